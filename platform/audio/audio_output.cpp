// Output files of renders: the place checked, the format chosen by name, the
// partial file written aside and never left behind by this process.
#include "audio_output.h"
#include "audio_errors.h"

#include "blsavetarget.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace audio {

namespace {

// The partial files this process is writing, for the signal handler: it may
// only read plain memory and unlink.
struct PartialSlot {
    std::atomic<bool> used{false};
    char path[PATH_MAX];
};
PartialSlot g_partials[16];

int claimSlot(const std::string& path)
{
    if (path.size() >= PATH_MAX)
        return -1;
    for (int i = 0; i < int(sizeof(g_partials) / sizeof(g_partials[0])); ++i) {
        bool expected = false;
        if (!g_partials[i].used.compare_exchange_strong(expected, true))
            continue;
        // Marked used before the path is whole: a signal in between unlinks a
        // name that is not there yet, which is harmless.
        std::memcpy(g_partials[i].path, path.c_str(), path.size() + 1);
        return i;
    }
    return -1;
}

void releaseSlot(int slot)
{
    if (slot >= 0)
        g_partials[slot].used.store(false);
}

void onSignal(int sig)
{
    for (PartialSlot& s : g_partials)
        if (s.used.load())
            unlink(s.path);
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

// A render that was killed by SIGKILL leaves its partial output behind. The
// next render into that folder removes those whose process is gone (a pid
// that runs again is left alone, as its owner cannot be told).
void removeStalePartials(const std::string& output)
{
    const size_t slash = output.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string(".") : output.substr(0, slash);
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return;
    while (const dirent* e = readdir(dir)) {
        const std::string name = e->d_name;
        const size_t at = name.rfind(".partial-");
        if (at == std::string::npos || at + 9 >= name.size())
            continue;
        const std::string digits = name.substr(at + 9);
        if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 9)
            continue;
        const pid_t owner = pid_t(std::stol(digits));
        const std::string path = folder + "/" + name;
        struct stat st;
        if (owner == getpid() || lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
            continue;
        if (kill(owner, 0) != 0 && errno == ESRCH)
            std::remove(path.c_str());
    }
    closedir(dir);
}

struct NamedKind {
    const char* extension;
    int major;
    int subtype; // 0: the input's, or the first the kind can hold
};

// Names the library's own list does not give, or gives to another kind.
const NamedKind kNamedKinds[] = {
    {"wav", SF_FORMAT_WAV, 0},      {"wave", SF_FORMAT_WAV, 0},
    {"aif", SF_FORMAT_AIFF, 0},     {"aiff", SF_FORMAT_AIFF, 0},
    {"aifc", SF_FORMAT_AIFF, 0},    {"flac", SF_FORMAT_FLAC, 0},
    {"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS}, {"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},  {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
    {"au", SF_FORMAT_AU, 0},        {"snd", SF_FORMAT_AU, 0},
    {"caf", SF_FORMAT_CAF, 0},      {"w64", SF_FORMAT_W64, 0},
    {"rf64", SF_FORMAT_RF64, 0},
};

// The kind an extension names: from the table, else the library's own list; 0 for none.
int kindOf(const std::string& extension, int* subtype)
{
    *subtype = 0;
    for (const NamedKind& k : kNamedKinds)
        if (extension == k.extension) {
            *subtype = k.subtype;
            return k.major;
        }
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        if (sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof(info)) == 0 && info.extension &&
            extension == info.extension)
            return info.format & SF_FORMAT_TYPEMASK;
    }
    return 0;
}

std::string kindName(int major)
{
    SF_FORMAT_INFO info{};
    info.format = major;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info)) == 0 && info.name) {
        const std::string name = info.name;
        return name.substr(0, name.find(' '));
    }
    return "this kind of file";
}

// The extension of the file's name, in lower case; empty for none.
std::string extensionOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size())
        return {};
    std::string ext = name.substr(dot + 1);
    for (char& c : ext)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

} // namespace

bool ChooseOutputFormat(const std::string& output, const SF_INFO& input, bool floatSamples, int* format,
                        std::string* why)
{
    const std::string ext = extensionOf(output);
    int namedSubtype = 0;
    const int inputMajor = input.format & SF_FORMAT_TYPEMASK;
    int major = ext.empty() ? inputMajor : kindOf(ext, &namedSubtype);
    if (major == 0) {
        *why = "no audio format is written as '." + ext + "' (for example .wav, .flac, .ogg, .mp3 or .aiff)";
        return false;
    }
    const int ends = major == inputMajor ? (input.format & SF_FORMAT_ENDMASK) : 0;
    const int inputSubtype = input.format & SF_FORMAT_SUBMASK;
    // Float when asked for; else what the input held, then what the kind is known for.
    const int candidates[] = {floatSamples ? SF_FORMAT_FLOAT : namedSubtype ? namedSubtype : inputSubtype,
                              floatSamples ? 0 : inputSubtype, floatSamples ? 0 : SF_FORMAT_PCM_24,
                              floatSamples ? 0 : SF_FORMAT_PCM_16, floatSamples ? 0 : SF_FORMAT_VORBIS,
                              floatSamples ? 0 : SF_FORMAT_MPEG_LAYER_III};
    for (int subtype : candidates) {
        if (!subtype)
            continue;
        SF_INFO check = input;
        check.frames = 0;
        check.format = major | subtype | ends;
        if (sf_format_check(&check)) {
            *format = check.format;
            return true;
        }
    }
    *why = kindName(major) + (floatSamples ? " files cannot hold 32-bit float samples (leave out --float)"
                                           : " files cannot hold this audio (" + std::to_string(input.channels) +
                                                 " channels at " + std::to_string(input.samplerate) + " Hz)");
    return false;
}

PartialOutput::~PartialOutput() { release(); }

void PartialOutput::release()
{
    if (m_file)
        sf_close(m_file);
    m_file = nullptr;
    if (!m_partial.empty())
        std::remove(m_partial.c_str());
    m_partial.clear();
    releaseSlot(m_slot);
    m_slot = -1;
}

bool PartialOutput::open(const std::string& output, const SF_INFO& input, bool floatSamples, std::string* why)
{
    release();
    std::string place;
    if (!SaveTarget(output, &m_target, &place)) {
        *why = "cannot write " + output + ": " + place + "; only a regular file is replaced";
        return false;
    }
    m_info = input;
    m_info.frames = 0;
    std::string format;
    if (!ChooseOutputFormat(output, input, floatSamples, &m_info.format, &format)) {
        *why = "cannot write " + output + ": " + format;
        return false;
    }
    m_output = output;
    removeStalePartials(m_target);
    m_partial = m_target + ".partial-" + std::to_string(getpid());
    m_slot = claimSlot(m_partial);
    m_file = sf_open(m_partial.c_str(), SFM_WRITE, &m_info);
    if (!m_file) {
        *why = WriteErrorText(output);
        release();
        return false;
    }
    return true;
}

bool PartialOutput::commit(std::string* why)
{
    if (!m_file) {
        *why = "cannot write " + m_output;
        return false;
    }
    sf_write_sync(m_file);
    const int closed = sf_close(m_file);
    m_file = nullptr;
    if (closed != 0) {
        *why = "cannot write " + m_output + ": " + sf_error_number(closed);
        release();
        return false;
    }
    // The place is looked at again: something may have taken it meanwhile.
    std::string target, place;
    if (!SaveTarget(m_output, &target, &place) || target != m_target) {
        *why = "cannot write " + m_output + ": " + (place.empty() ? "its place changed while it was written" : place);
        release();
        return false;
    }
    if (std::rename(m_partial.c_str(), m_target.c_str()) != 0) {
        *why = "cannot write " + m_output + ": " + std::strerror(errno);
        release();
        return false;
    }
    m_partial.clear();
    release();
    return true;
}

void RemovePartialsOnSignals()
{
    static std::atomic<bool> installed{false};
    if (installed.exchange(true))
        return;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) != 0 || old.sa_handler != SIG_DFL)
            continue;
        struct sigaction now {};
        now.sa_handler = onSignal;
        sigemptyset(&now.sa_mask);
        sigaction(sig, &now, nullptr);
    }
}

} // namespace audio
