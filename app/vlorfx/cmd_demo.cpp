// The main job, as far as the library reaches today: the machine's VST2
// plugins scanned into the catalog (each new one checked in the host
// program), then one of them applied to a generated signal through the
// "VST host" filter in the host program, with the result written next to the
// input and a report of what it did.
#include "catalog.h"
#include "commands.h"

#include "audiofx.h"
#include "QVlorApplication.h"
#include "audiovst.h"
#include "vsteffect_p.h"

#include "blio.h"
#include "blioutils.h"
#include "blutils.h"

#include <sndfile.h>

#include <chrono>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kSampleRate = 44100;
constexpr int kChannels = 2;
constexpr int kSeconds = 4;

// A reverb shows best what an effect does; otherwise any enabled effect.
std::string pickPlugin(const QList<QVlorVst::Path>& paths)
{
    static const char* const preferred[] = {"MVerb-vst.so", "ZamVerb-vst.so", "ZamCompX2-vst.so", "3BandEQ-vst.so"};
    for (const char* name : preferred)
        for (const QVlorVst::Path& path : paths)
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.isEnabled() && !p.isShell() && p.filename().endsWith(QLatin1Char('/') + QLatin1String(name)))
                    return p.filename().toStdString();
    for (const QVlorVst::Path& path : paths)
        for (const QVlorVst::Plugin& p : path.plugins())
            if (p.isEnabled() && !p.isShell())
                return p.filename().toStdString();
    return std::string();
}

// A 220 Hz tone with a slow swell, a little noise, and a second of silence
// at the end so that a reverb's tail shows.
std::vector<float> testSignal()
{
    const int frames = kSeconds * kSampleRate;
    std::vector<float> s(size_t(frames) * kChannels);
    uint32_t noise = 12345;
    for (int f = 0; f < frames - kSampleRate; ++f) {
        const double t = double(f) / kSampleRate;
        const double env = 0.2 + 0.6 * std::sin(M_PI * t / (kSeconds - 1));
        for (int c = 0; c < kChannels; ++c) {
            noise = noise * 1664525u + 1013904223u;
            const double n = (double(noise >> 8) / double(1u << 24) - 0.5) * 0.02;
            s[size_t(f) * kChannels + size_t(c)] = float(env * std::sin(2 * M_PI * (220.0 + c) * t) + n);
        }
    }
    return s;
}

bool writeWav(const std::string& path, const std::vector<float>& samples)
{
    SF_INFO info{};
    info.samplerate = kSampleRate;
    info.channels = kChannels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f)
        return false;
    const sf_count_t frames = sf_count_t(samples.size() / kChannels);
    const bool ok = sf_writef_float(f, samples.data(), frames) == frames;
    return sf_close(f) == 0 && ok;
}

std::vector<float> readWav(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        return {};
    std::vector<float> v(size_t(info.frames) * size_t(info.channels));
    sf_readf_float(f, v.data(), info.frames);
    sf_close(f);
    return v;
}

void levels(const std::vector<float>& s, size_t from, size_t to, double* peakDb, double* rmsDb)
{
    double peak = 0, sum = 0;
    for (size_t i = from; i < to && i < s.size(); ++i) {
        peak = std::fmax(peak, std::fabs(double(s[i])));
        sum += double(s[i]) * double(s[i]);
    }
    const double rms = to > from ? std::sqrt(sum / double(to - from)) : 0;
    *peakDb = peak > 0 ? 20 * std::log10(peak) : -INFINITY;
    *rmsDb = rms > 0 ? 20 * std::log10(rms) : -INFINITY;
}

int progressBar(void*, double fraction)
{
    if (isatty(STDOUT_FILENO)) {
        std::printf("\rapplying: %3d%%", int(fraction * 100 + 0.5));
        std::fflush(stdout);
    }
    return 0;
}

} // namespace

int cmdDemo(int argc, char** argv)
{
    std::printf("scanning the VST2 folders of this machine into %s\n",
                qPrintable(QVlorApplication::applicationDataLocation()));
    const auto s0 = std::chrono::steady_clock::now();
    QList<QVlorVst::Path> catalog;
    {
        QVlorVst::Manager manager;
        vlorfx::loadCatalog(manager);
        const QStringList folders =
            vlorfx::catalogFolders(manager).isEmpty() ? vlorfx::standardFolders() : QStringList();
        const vlorfx::ScanSummary s = vlorfx::scan(manager, folders, isatty(STDERR_FILENO));
        vlorfx::finish(manager);
        catalog = manager.pathsCopy();
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - s0).count();
        std::printf("%d folders, %d plugin files, %d enabled, %d failed (instruments, or no plugin), in %.0f ms\n\n",
                    s.folders, s.found, s.enabled, s.failed, ms);
    }
    const std::string path = argc > 0 ? argv[0] : pickPlugin(catalog);
    if (path.empty()) {
        std::fprintf(stderr, "vlorfx demo: no usable VST2 plugin was found\n");
        return 1;
    }
    std::printf("plugin file: %s\n", path.c_str());

    const auto t0 = std::chrono::steady_clock::now();
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(path.c_str(), 0, false);
    const double checkMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    if (!e || !AUDIOVST_IsEffect(e)) {
        std::fprintf(stderr, "vlorfx demo: %s is not a usable effect (status %d)\n", path.c_str(),
                     AUDIOVST_GetPluginStatusEx(path.c_str(), 0));
        return 1;
    }
    std::printf("resolved in %.1f ms (checked by %s when it was new)\n", checkMs, AUDIOVST_GetVlorVstPath(0));
    std::printf("name: %s\nvendor: %s\nunique id: %d, version %d, %d inputs, %d outputs\n", AUDIOVST_GetDisplayName(e),
                AUDIOVST_GetDisplayCategory(e), AUDIOVST_GetUniqueID(e), AUDIOVST_GetVersion(e),
                AUDIOVST_GetNumInputs(e), AUDIOVST_GetNumOutputs(e));
    static const char* const kinds[] = {"-", "list", "linear", "curve"};
    std::printf("parameters (%d):\n", AUDIOVST_GetNumParams(e));
    for (int p = 0; p < AUDIOVST_GetNumParams(e); ++p) {
        const ParameterRecord& r = e->parameters[p];
        std::printf("  %2d %-24s %-6s %-6s", p, r.name, r.label, kinds[r.kind & 3]);
        if (r.kind == 2)
            std::printf(" %g .. %g", double(r.minValue), double(r.maxValue));
        else if (r.kind == 3)
            std::printf(" %s .. %s", r.minDisplay, r.maxDisplay);
        else if (r.kind == 1 && r.valueType)
            std::printf(" %s", r.valueType->name);
        std::printf("\n");
    }

    char data[1024];
    const std::string dir = std::string(BLUTILS_GetDataDir(data, sizeof(data)) ? data : ".") + "/demo";
    BLIOUTILS_MakeDirectory(dir.c_str());
    const std::string input = dir + "/input.wav";
    std::string name = AUDIOVST_GetDisplayName(e);
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '-';
    const std::string output = dir + "/input." + name + ".wav";
    const std::vector<float> in = testSignal();
    if (!writeWav(input, in)) {
        std::fprintf(stderr, "vlorfx demo: cannot write %s\n", input.c_str());
        return 1;
    }

    const std::string config = "vsteffect_hash=\"" + std::string(AUDIOVST_GetHash(e)) + "\"";
    char error[1024] = "";
    const auto r0 = std::chrono::steady_clock::now();
    const int ok =
        AUDIO_RenderFile("VST host", config.c_str(), input.c_str(), output.c_str(), progressBar, nullptr, error,
                         sizeof(error));
    const double renderMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - r0).count();
    if (isatty(STDOUT_FILENO))
        std::printf("\r");
    if (!ok) {
        std::fprintf(stderr, "vlorfx demo: %s\n", error);
        return 1;
    }
    const std::vector<float> out = readWav(output);
    const size_t signalEnd = size_t(kSeconds - 1) * kSampleRate * kChannels;
    double pin, rin, pout, rout, ptail, rtail, pin2, rin2;
    levels(in, 0, signalEnd, &pin, &rin);
    levels(out, 0, signalEnd, &pout, &rout);
    levels(in, signalEnd, in.size(), &pin2, &rin2);
    levels(out, signalEnd, out.size(), &ptail, &rtail);
    std::printf("applied through the \"VST host\" filter in the host program: %.1f s of audio in %.1f ms "
                "(%.0fx real time)\n",
                double(kSeconds), renderMs, 1000.0 * kSeconds / renderMs);
    std::printf("input:  %s\noutput: %s\n", input.c_str(), output.c_str());
    std::printf("              peak dBFS  rms dBFS\n");
    std::printf("signal  in    %8.2f  %8.2f\n", pin, rin);
    std::printf("signal  out   %8.2f  %8.2f\n", pout, rout);
    std::printf("silence in    %8.2f  %8.2f\n", pin2, rin2);
    std::printf("silence out   %8.2f  %8.2f   (what the effect adds after the signal)\n", ptail, rtail);
    return 0;
}
