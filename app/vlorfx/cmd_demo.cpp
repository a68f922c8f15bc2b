// The main job: the machine's plugins of both formats scanned into the
// catalogs (each new one checked or verified in a host program), the twins
// paired, and one paired effect applied in its active format to a generated
// signal, with the result written next to the input and a report of what it did.
#include "catalog.h"
#include "QVlorPluginFormat.h"
#include "commands.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "audiofx.h"
#include "audiovst.h"

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

struct Choice {
    QVlorPluginPairs::Entry pair;
    QString name;
    QString vst2File;
    QString vst3Bundle;
};

// A paired effect whose active format is usable; an echo shows best what an effect does.
bool pickPair(Choice* choice)
{
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    if (!vst3 || !vst2)
        return false;
    const QVlorVst3::Catalog catalog = vst3->catalogCopy();
    const QList<QVlorVst::Path> paths = vst2->pathsCopy();
    QList<Choice> usable;
    for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy()) {
        Choice c{e, QString(), QString(), QString()};
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
            for (const QVlorVst3::CatalogClass& k : b.classes())
                if (k.cid() == e.vst3 && (e.activeFormat != QVlorAudioPlugins::Vst3Token() || k.isEnabled())) {
                    c.vst3Bundle = b.path();
                    c.name = k.name();
                }
        for (const QVlorVst::Path& path : paths)
            for (const QVlorVst::Plugin& p : path.plugins())
                if (!p.isShell() && p.uniqueId() == e.vst2 &&
                    (e.activeFormat != QVlorAudioPlugins::Vst2Token() || p.isEnabled()))
                    c.vst2File = p.filename();
        if (!c.vst3Bundle.isEmpty() && !c.vst2File.isEmpty())
            usable << c;
    }
    if (usable.isEmpty())
        return false;
    for (const char* preferred : {"ZamDelay", "ZamTube", "ZamVerb"})
        for (const Choice& c : usable)
            if (c.name == QLatin1String(preferred)) {
                *choice = c;
                return true;
            }
    *choice = usable.first();
    return true;
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

namespace {

// What the scan found, in a few lines.
void printScanSummary(const vlorfx::ScanSummary& s)
{
    std::printf("VST2: %d plugin files, %d enabled, %d failed\n", s.found, s.enabled, s.failed);
    std::printf("VST3: %d bundles, %d effect classes, %d verified and enabled, %d failed, %d crashed\n", s.bundles,
                s.classes, s.classesEnabled, s.classesFailed, s.classesCrashed);
    int pairs = 0;
    QStringList origins;
    for (auto it = s.pairsByOrigin.begin(); it != s.pairsByOrigin.end(); ++it) {
        pairs += it.value();
        origins << QStringLiteral("%1 by %2").arg(it.value()).arg(it.key());
    }
    if (s.inThreeFormats > 0)
        origins << QStringLiteral("%1 in all three").arg(s.inThreeFormats);
    std::printf("pairs: %d products exist in several formats (%s)\n", pairs,
                qPrintable(origins.join(QStringLiteral(", "))));
    std::printf("all of it in %.0f ms\n", s.milliseconds);
    if (!s.failures.isEmpty()) {
        std::printf("what failed, and why:\n");
        for (const QString& f : s.failures)
            std::printf("  %s\n", vlorfx::printable(f).constData());
    }
    std::printf("\n");
}

// The filter and its configuration that apply the pair in its active format.
bool filterOf(const Choice& choice, const char** filter, std::string* config)
{
    if (choice.pair.activeFormat == QVlorAudioPlugins::Vst3Token()) {
        *filter = "VST3 host";
        *config = "vst3effect_uid=\"" + choice.pair.vst3.toStdString() + "\",vst3effect_path=\"" +
                  choice.vst3Bundle.toStdString() + "\"";
        return true;
    }
    *filter = "VST host";
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(choice.vst2File.toUtf8().constData(), int(choice.pair.vst2), false);
    if (!e) {
        std::fprintf(stderr, "vlorfx demo: %s is not usable\n", qPrintable(choice.vst2File));
        return false;
    }
    *config = "vsteffect_hash=\"" + std::string(AUDIOVST_GetHash(e)) + "\"";
    return true;
}

// The levels of input and output, while the signal plays and after it.
void printLevels(const std::vector<float>& in, const std::vector<float>& out)
{
    const size_t signalEnd = size_t(kSeconds - 1) * kSampleRate * kChannels;
    double pin, rin, pout, rout, ptail, rtail, pin2, rin2;
    levels(in, 0, signalEnd, &pin, &rin);
    levels(out, 0, signalEnd, &pout, &rout);
    levels(in, signalEnd, in.size(), &pin2, &rin2);
    levels(out, signalEnd, out.size(), &ptail, &rtail);
    std::printf("              peak dBFS  rms dBFS\n");
    std::printf("signal  in    %8.2f  %8.2f\n", pin, rin);
    std::printf("signal  out   %8.2f  %8.2f\n", pout, rout);
    std::printf("silence in    %8.2f  %8.2f\n", pin2, rin2);
    std::printf("silence out   %8.2f  %8.2f   (what the effect adds after the signal)\n", ptail, rtail);
}

} // namespace

int cmdDemo(int argc, char** argv)
{
    if (argc > 0) {
        const bool help = !std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h");
        std::fprintf(help ? stdout : stderr,
                     "%s"
                     "usage: vlorfx demo\n\n"
                     "Scans the machine's VST2 and VST3 plugins (new ones checked in host\n"
                     "programs), pairs the products found in both formats, picks one pair and\n"
                     "applies it in its active format to a generated test signal, then reports\n"
                     "the levels that went in and came out. Give --data DIR before demo to\n"
                     "start from an empty catalog.\n\n"
                     "example:\n  vlorfx --data /tmp/demo demo\n",
                     help ? "" : "vlorfx demo: takes no arguments\n\n");
        return help ? 0 : 2;
    }
    std::printf("data folder: %s\n", qPrintable(QVlorApplication::applicationDataLocation()));
    vlorfx::ScanOptions options;
    if (vlorfx::catalogFolders().isEmpty())
        options.vst2Folders = vlorfx::standardFolders();
    options.progress = isatty(STDERR_FILENO) ? vlorfx::ScanOptions::OneLine : vlorfx::ScanOptions::Silent;
    std::printf("scanning VST2 folders (%s) and VST3 roots (%s)\n",
                qPrintable(options.vst2Folders.join(QStringLiteral(", "))),
                qPrintable(QVlorAudioPlugins::vst3Manager()->searchPaths().join(QStringLiteral(", "))));
    printScanSummary(vlorfx::scan(options));

    Choice choice;
    if (!pickPair(&choice)) {
        std::fprintf(stderr, "vlorfx demo: no effect was found in both formats\n");
        return 1;
    }
    const bool asVst3 = choice.pair.activeFormat == QVlorAudioPlugins::Vst3Token();
    std::printf("paired effect: %s (pair %s, paired by %s)\n  VST2: %s\n  VST3: %s\n  active format: %s\n",
                qPrintable(choice.name), qPrintable(choice.pair.pairId), qPrintable(choice.pair.origin),
                qPrintable(choice.vst2File), qPrintable(choice.vst3Bundle), qPrintable(choice.pair.activeFormat));

    char data[1024];
    const std::string dir = std::string(BLUTILS_GetDataDir(data, sizeof(data)) ? data : ".") + "/demo";
    BLIOUTILS_MakeDirectory(dir.c_str());
    const std::string input = dir + "/input.wav";
    std::string name = choice.name.toStdString();
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '-';
    const std::string output = dir + "/input." + name + "." + (asVst3 ? "vst3" : "vst2") + ".wav";
    const std::vector<float> in = testSignal();
    if (!writeWav(input, in)) {
        std::fprintf(stderr, "vlorfx demo: cannot write %s\n", input.c_str());
        return 1;
    }

    const char* filter = nullptr;
    std::string config;
    if (!filterOf(choice, &filter, &config))
        return 1;
    char error[1024] = "";
    const auto r0 = std::chrono::steady_clock::now();
    const int ok =
        AUDIO_RenderFile(filter, config.c_str(), input.c_str(), output.c_str(), progressBar, nullptr, error,
                         sizeof(error));
    const double renderMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - r0).count();
    if (isatty(STDOUT_FILENO))
        std::printf("\r");
    if (!ok) {
        std::fprintf(stderr, "vlorfx demo: %s\n", error);
        return 1;
    }
    std::printf("applied in its active format through the \"%s\" filter: %.1f s of audio in %.1f ms "
                "(%.0fx real time)\n",
                filter, double(kSeconds), renderMs, 1000.0 * kSeconds / renderMs);
    std::printf("input:  %s\noutput: %s\n", input.c_str(), output.c_str());
    printLevels(in, readWav(output));
    return 0;
}
