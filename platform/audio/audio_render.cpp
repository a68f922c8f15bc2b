// Offline rendering: a file through an effect, in blocks, with nothing left
// at the output path unless the whole render succeeded.
#include "audiofx.h"
#include "audio_p.h"
#include "audio_errors.h"
#include "audio_output.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
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
    AUDIO_Effect* effect = nullptr;
    audio::PartialOutput out;
    ~Files()
    {
        if (in)
            sf_close(in);
        if (effect)
            AUDIO_DestroyEffect(effect);
    }
};

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
            return fail("%s", audio::ReadErrorText(input).c_str());
        if (m_info.channels <= 0 || m_info.samplerate <= 0 || m_info.channels > 64)
            return fail("%s has no usable audio", input);
        m_input = input;
        m_report.channels = m_info.channels;
        m_report.sampleRate = m_info.samplerate;
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

    bool openOutput(const char* output, int flags)
    {
        std::string why;
        if (!m_files.out.open(output, m_info, flags & AUDIO_RENDER_FLOAT, &why))
            return fail("%s", why.c_str());
        const int subtype = m_files.out.info().format & SF_FORMAT_SUBMASK;
        m_report.floatOutput = subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
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
                for (sf_count_t i = 0; i < got * ch; ++i)
                    m_report.inputPeak = std::max(m_report.inputPeak, double(std::fabs(m_in[size_t(i)])));
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
        std::string why;
        return m_files.out.commit(&why) || fail("%s", why.c_str());
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
            ++m_blocks;
            if (!measure(m_out.data() + from * ch, keep * ch))
                return fail("the effect gave samples that are not numbers (NaN or infinity) in block %lld, "
                            "%.2f s into %s",
                            m_blocks, double(m_written) / m_info.samplerate, m_input);
            if (keep > 0 && sf_writef_float(m_files.out.file(), m_out.data() + from * ch, keep) != keep)
                return fail("%s", audio::WriteErrorText(m_output, m_files.out.file()).c_str());
            m_written += std::max<sf_count_t>(keep, 0);
            m_report.frames = m_written;
            offset += inFrames;
        }
        return true;
    }

    // The peak, and what an output of whole numbers cuts at full scale;
    // false for a sample that is no number, which no file should hold.
    bool measure(const float* samples, sf_count_t count)
    {
        for (sf_count_t i = 0; i < count; ++i) {
            if (!std::isfinite(samples[i]))
                return false;
            const double v = std::fabs(double(samples[i]));
            if (v > m_report.peak)
                m_report.peak = v;
            if (v > 1.0 && !m_report.floatOutput)
                ++m_report.clippedSamples;
        }
        return true;
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
    long long m_blocks = 0;
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
