// Offline rendering: a file through an effect, in blocks, with nothing left
// at the output path unless the whole render succeeded.
#include "audiofx.h"
#include "audio_p.h"

#include <sndfile.h>

#include <algorithm>
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

} // namespace

namespace {

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

extern "C" int AUDIO_RenderFile(const char* filterName, const char* config, const char* input, const char* output,
                                AUDIO_ProgressProc progress, void* user, char* error, int errorSize)
{
    if (!input || !output || !*input || !*output) {
        setError(error, errorSize, "an input and an output file are needed");
        return 0;
    }
    Files f;
    SF_INFO info;
    std::memset(&info, 0, sizeof(info));
    f.in = sf_open(input, SFM_READ, &info);
    if (!f.in) {
        setError(error, errorSize, "cannot read %s: %s", input, sf_strerror(nullptr));
        return 0;
    }
    if (info.channels <= 0 || info.samplerate <= 0 || info.channels > 64) {
        setError(error, errorSize, "%s has no usable audio", input);
        return 0;
    }

    AUDIO_FORMAT format;
    std::memset(&format, 0, sizeof(format));
    format.sampleRate = info.samplerate;
    format.numChannels = int16_t(info.channels);
    char why[512] = "";
    f.effect = AUDIO_CreateEffect(filterName, &format, config, why, sizeof(why));
    if (!f.effect) {
        setError(error, errorSize, "%s", why);
        return 0;
    }

    SF_INFO outInfo = info;
    outInfo.frames = 0;
    if (!sf_format_check(&outInfo))
        outInfo.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    removeStalePartials(output);
    f.partial = std::string(output) + ".partial-" + std::to_string(getpid());
    f.out = sf_open(f.partial.c_str(), SFM_WRITE, &outInfo);
    if (!f.out) {
        setError(error, errorSize, "cannot write %s: %s", output, sf_strerror(nullptr));
        f.partial.clear(); // nothing was created
        return 0;
    }

    const int ch = info.channels;
    const sf_count_t total = info.frames;
    // A latency the filter reports is dropped here; one it swallows itself is not reported.
    sf_count_t skip = sf_count_t(AUDIO_EffectLatency(f.effect) * info.samplerate + 0.5);
    const sf_count_t maxPad = sf_count_t(kMaxPadSeconds * info.samplerate);
    std::vector<float> in(size_t(kReadFrames) * size_t(ch));
    std::vector<float> out(size_t(kOutputRoom) * size_t(ch));
    sf_count_t read = 0, written = 0, padded = 0;
    bool inputDone = false;

    while (written < total || !inputDone) {
        sf_count_t got = 0;
        if (!inputDone) {
            got = sf_readf_float(f.in, in.data(), kReadFrames);
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
            std::fill(in.begin(), in.end(), 0.0f);
            padded += got;
        }
        sf_count_t offset = 0;
        while (offset < got) {
            long inFrames = long(got - offset);
            long outFrames = kOutputRoom;
            if (!AUDIO_ProcessEffect(f.effect, in.data() + offset * ch, &inFrames, out.data(), &outFrames)) {
                setError(error, errorSize, "the effect failed while processing %s", input);
                return 0;
            }
            if (inFrames <= 0 && outFrames <= 0) {
                setError(error, errorSize, "the effect stopped taking audio");
                return 0;
            }
            sf_count_t from = 0;
            if (skip > 0) {
                from = std::min<sf_count_t>(skip, outFrames);
                skip -= from;
            }
            const sf_count_t keep = std::min<sf_count_t>(outFrames - from, total - written);
            if (keep > 0 && sf_writef_float(f.out, out.data() + from * ch, keep) != keep) {
                setError(error, errorSize, "cannot write %s: %s", output, sf_strerror(f.out));
                return 0;
            }
            written += std::max<sf_count_t>(keep, 0);
            offset += inFrames;
        }
        if (progress && total > 0 && progress(user, double(std::min(read, total)) / double(total)) != 0) {
            setError(error, errorSize, "cancelled");
            return 0;
        }
    }
    sf_write_sync(f.out);
    if (sf_close(f.out) != 0) {
        f.out = nullptr;
        setError(error, errorSize, "cannot write %s", output);
        return 0;
    }
    f.out = nullptr;
    if (std::rename(f.partial.c_str(), output) != 0) {
        setError(error, errorSize, "cannot write %s: %s", output, std::strerror(errno));
        return 0;
    }
    f.keep = true;
    return 1;
}
