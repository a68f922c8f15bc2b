// Offline rendering: a file through an effect, in blocks, with nothing left
// at the output path unless the whole render succeeded.
#include "audiofx.h"
#include "audio_p.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <sys/stat.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

using audio::setError;

namespace {

constexpr sf_count_t kReadFrames = 4096;
constexpr long kOutputRoom = 16384; // enough for any filter's whole block
constexpr double kMaxPadSeconds = 10.0;


struct Files {
    SNDFILE* in = nullptr;
    SNDFILE* out = nullptr;
    AUDIO_Effect* effect = nullptr;
    std::string partial;
    bool keep = false;
    ~Files()
    {
        if (in)
            sf_close(in);
        if (out)
            sf_close(out);
        if (effect)
            AUDIO_DestroyEffect(effect);
        if (!keep && !partial.empty())
            std::remove(partial.c_str());
    }
};

// A render that was killed leaves its partial output behind: "NAME.partial-PID".
// The next render into that folder removes those whose process is gone (a pid
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

} // namespace

namespace {

// One render: the files and the effect, the counts that keep the output as
// long as the input, and the error text of the caller.
class Render {
public:
    Render(char* error, int errorSize) : m_error(error), m_errorSize(errorSize) {}

    bool openInput(const char* input)
    {
        std::memset(&m_info, 0, sizeof(m_info));
        m_files.in = sf_open(input, SFM_READ, &m_info);
        if (!m_files.in)
            return fail("cannot read %s: %s", input, sf_strerror(nullptr));
        if (m_info.channels <= 0 || m_info.samplerate <= 0 || m_info.channels > 64)
            return fail("%s has no usable audio", input);
        m_input = input;
        return true;
    }

    bool createEffect(const char* filterName, const char* config)
    {
        AUDIO_FORMAT format;
        std::memset(&format, 0, sizeof(format));
        format.sampleRate = m_info.samplerate;
        format.numChannels = int16_t(m_info.channels);
        char why[512] = "";
        m_files.effect = AUDIO_CreateEffect(filterName, &format, config, why, sizeof(why));
        if (!m_files.effect)
            return fail("%s", why);
        // A latency the filter reports is dropped here; one it swallows itself is not reported.
        m_skip = sf_count_t(AUDIO_EffectLatency(m_files.effect) * m_info.samplerate + 0.5);
        return true;
    }

    // The output is written beside its place, under a name of this process.
    bool openOutput(const char* output, int flags)
    {
        SF_INFO outInfo = m_info;
        outInfo.frames = 0;
        if (flags & AUDIO_RENDER_FLOAT)
            outInfo.format = (outInfo.format & SF_FORMAT_TYPEMASK) | SF_FORMAT_FLOAT;
        if (!sf_format_check(&outInfo))
            outInfo.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        const int subtype = outInfo.format & SF_FORMAT_SUBMASK;
        m_report.floatOutput = subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
        removeStalePartials(output);
        m_files.partial = std::string(output) + ".partial-" + std::to_string(getpid());
        m_files.out = sf_open(m_files.partial.c_str(), SFM_WRITE, &outInfo);
        if (!m_files.out) {
            m_files.partial.clear(); // nothing was created
            return fail("cannot write %s: %s", output, sf_strerror(nullptr));
        }
        m_output = output;
        return true;
    }

    bool run(AUDIO_ProgressProc progress, void* user)
    {
        const int ch = m_info.channels;
        const sf_count_t total = m_info.frames;
        const sf_count_t maxPad = sf_count_t(kMaxPadSeconds * m_info.samplerate);
        m_in.assign(size_t(kReadFrames) * size_t(ch), 0.0f);
        m_out.assign(size_t(kOutputRoom) * size_t(ch), 0.0f);
        sf_count_t read = 0, padded = 0;
        bool inputDone = false;
        while (m_written < total || !inputDone) {
            sf_count_t got = 0;
            if (!inputDone) {
                got = sf_readf_float(m_files.in, m_in.data(), kReadFrames);
                if (got <= 0) {
                    inputDone = true;
                    continue;
                }
                read += got;
            } else {
                // The effect still owes frames (its latency): feed it silence.
                if (padded >= maxPad)
                    break;
                got = std::min<sf_count_t>(kReadFrames, maxPad - padded);
                std::fill(m_in.begin(), m_in.end(), 0.0f);
                padded += got;
            }
            if (!process(got))
                return false;
            if (progress && total > 0 && progress(user, double(std::min(read, total)) / double(total)) != 0)
                return fail("cancelled");
        }
        return true;
    }

    const AUDIO_RenderReport& report() const { return m_report; }

    // The output takes the place of its name only now, whole.
    bool finish()
    {
        sf_write_sync(m_files.out);
        const int closed = sf_close(m_files.out);
        m_files.out = nullptr;
        if (closed != 0)
            return fail("cannot write %s", m_output);
        if (std::rename(m_files.partial.c_str(), m_output) != 0)
            return fail("cannot write %s: %s", m_output, std::strerror(errno));
        m_files.keep = true;
        return true;
    }

private:
    // got frames of the input buffer through the effect, as many calls as it takes.
    bool process(sf_count_t got)
    {
        const int ch = m_info.channels;
        const sf_count_t total = m_info.frames;
        sf_count_t offset = 0;
        while (offset < got) {
            long inFrames = long(got - offset);
            long outFrames = kOutputRoom;
            if (!AUDIO_ProcessEffect(m_files.effect, m_in.data() + offset * ch, &inFrames, m_out.data(), &outFrames))
                return fail("the effect failed while processing %s", m_input);
            if (inFrames <= 0 && outFrames <= 0)
                return fail("the effect stopped taking audio");
            sf_count_t from = 0;
            if (m_skip > 0) {
                from = std::min<sf_count_t>(m_skip, outFrames);
                m_skip -= from;
            }
            const sf_count_t keep = std::min<sf_count_t>(outFrames - from, total - m_written);
            measure(m_out.data() + from * ch, keep * ch);
            if (keep > 0 && sf_writef_float(m_files.out, m_out.data() + from * ch, keep) != keep)
                return fail("cannot write %s: %s", m_output, sf_strerror(m_files.out));
            m_written += std::max<sf_count_t>(keep, 0);
            offset += inFrames;
        }
        return true;
    }

    // The peak, and what an output of whole numbers cuts at full scale.
    void measure(const float* samples, sf_count_t count)
    {
        for (sf_count_t i = 0; i < count; ++i) {
            const double v = std::fabs(double(samples[i]));
            if (v > m_report.peak)
                m_report.peak = v;
            if (v > 1.0 && !m_report.floatOutput)
                ++m_report.clippedSamples;
        }
    }

    __attribute__((format(printf, 2, 3))) bool fail(const char* format, ...)
    {
        char text[1024];
        va_list ap;
        va_start(ap, format);
        std::vsnprintf(text, sizeof(text), format, ap);
        va_end(ap);
        setError(m_error, m_errorSize, "%s", text);
        return false;
    }

    char* m_error;
    int m_errorSize;
    Files m_files;
    SF_INFO m_info;
    const char* m_input = "";
    const char* m_output = "";
    std::vector<float> m_in, m_out;
    sf_count_t m_skip = 0;
    sf_count_t m_written = 0;
    AUDIO_RenderReport m_report{};
};

} // namespace

extern "C" int AUDIO_RenderFileEx(const char* filterName, const char* config, const char* input, const char* output,
                                  int flags, AUDIO_ProgressProc progress, void* user, AUDIO_RenderReport* report,
                                  char* error, int errorSize)
{
    if (!input || !output || !*input || !*output) {
        setError(error, errorSize, "an input and an output file are needed");
        return 0;
    }
    Render render(error, errorSize);
    const bool ok = render.openInput(input) && render.createEffect(filterName, config) &&
                    render.openOutput(output, flags) && render.run(progress, user) && render.finish();
    if (report)
        *report = render.report();
    return ok ? 1 : 0;
}

extern "C" int AUDIO_RenderFile(const char* filterName, const char* config, const char* input, const char* output,
                                AUDIO_ProgressProc progress, void* user, char* error, int errorSize)
{
    return AUDIO_RenderFileEx(filterName, config, input, output, 0, progress, user, nullptr, error, errorSize);
}
