// vlorfx apply --mixer: a file through a chain of mixer effects of either
// format, block by block as playback runs them, into memory and then OUT.
#include "chatter.h"
#include "commands.h"
#include "text.h"

#include "QVlorMixer.h"
#include "audio_errors.h"
#include "audio_output.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst_MixerEffect.h"
#include "audiovst.h"
#include "vst3engine.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* const kMixerHelp =
    "usage: vlorfx apply --mixer [--block FRAMES] [--float] [--force] EFFECT... IN OUT\n"
    "  EFFECT: --vst2 FILE [--id N] | --vst3 BUNDLE [--cid CID]\n"
    "\n"
    "Plays IN through the effects in the order given, in blocks of FRAMES (1024\n"
    "unless told), as the playback mixer runs them in real time, and writes OUT in\n"
    "the format its extension names (--float: 32-bit float). Latency is not taken out, as in\n"
    "playback. An effect that stops giving audio (its host program ended) is\n"
    "passed over from then on, and the blocks it missed are counted.\n"
    "\n"
    "example:\n"
    "  vlorfx apply --mixer --vst2 /usr/lib/vst/ZamComp-vst.so --vst3 /usr/lib/vst3/ZamDelay.vst3 in.wav out.wav\n";

// What the effects tell while the chain runs (a block silenced), said where
// our own lines go while plugins' printing is kept aside.
FILE* g_toldTo = nullptr;
void tellWarnings(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg && type != QtInfoMsg && g_toldTo)
        std::fprintf(g_toldTo, "vlorfx apply --mixer: %s\n", qPrintable(message));
}

int mixerError(const std::string& message)
{
    std::fprintf(stderr, "vlorfx apply --mixer: %s (vlorfx apply --mixer --help tells more)\n", message.c_str());
    return 2;
}

int mixerFail(const std::string& message, FILE* out = stderr)
{
    std::fprintf(out, "vlorfx apply --mixer: %s\n", message.c_str());
    return 1;
}

struct Step {
    bool vst3 = false;
    std::string file;
    int id = 0;
    std::string cid;
};

std::unique_ptr<QVlorMixer::Effect> makeEffect(const Step& s, int rate, unsigned channels, std::string* why)
{
    if (!s.vst3) {
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(s.file.c_str(), s.id, false);
        if (!e || !AUDIOVST_IsEffect(e) || !AUDIOVST_IsEnabled(e)) {
            *why = s.file + " is no VST2 effect that can be used (vlorfx apply --vst2 tells why)";
            return nullptr;
        }
        QVlorVst::Plugin plugin(QString::fromStdString(s.file));
        plugin.setUniqueId(AUDIOVST_GetUniqueID(e));
        auto fx = std::make_unique<QVlorVst::MixerEffect>(plugin, rate, channels);
        if (!fx->powerOn(1024)) {
            *why = s.file + " did not start";
            return nullptr;
        }
        return fx;
    }
    std::string cid = s.cid;
    if (cid.empty()) {
        std::vector<Vst3ClassRecord> classes(64);
        const int n = VLORVST3_ListClasses(s.file.c_str(), classes.data(), int(classes.size()));
        if (n != 1) {
            *why = s.file + (n < 0 ? " is not a VST3 bundle that loads here" : " needs --cid: it holds " + std::to_string(n) + " effects");
            return nullptr;
        }
        cid = classes[0].uid;
    }
    const QVlorVst3::Plugin plugin(QString::fromStdString(s.file), QString::fromStdString(cid).toUpper(), QString(),
                                   QString(), QString(), QString());
    auto fx = std::make_unique<QVlorVst3::MixerEffect>(plugin, rate, channels);
    if (!fx->isOk() || !fx->powerOn(1024)) {
        *why = s.file + " (" + cid + ") did not start";
        return nullptr;
    }
    return fx;
}

double peakOf(const std::vector<float>& samples)
{
    double peak = 0;
    for (const float v : samples)
        peak = std::max(peak, double(std::fabs(v)));
    return peak;
}

} // namespace

int cmdApplyMixer(int argc, char** argv)
{
    std::vector<Step> steps;
    std::string in, out;
    int block = 1024;
    bool asFloat = false, force = false;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--mixer") {
            continue;
        } else if (a == "--help" || a == "-h") {
            std::fputs(kMixerHelp, stdout);
            return 0;
        } else if ((a == "--vst2" || a == "--vst3") && hasValue) {
            steps.push_back(Step{a == "--vst3", argv[++i], 0, {}});
        } else if (a == "--id" && hasValue) {
            if (steps.empty() || steps.back().vst3)
                return mixerError("--id follows the --vst2 it is for");
            steps.back().id = std::atoi(argv[++i]);
        } else if (a == "--cid" && hasValue) {
            if (steps.empty() || !steps.back().vst3)
                return mixerError("--cid follows the --vst3 it is for");
            steps.back().cid = argv[++i];
        } else if (a == "--block" && hasValue) {
            char* end = nullptr;
            block = int(std::strtol(argv[++i], &end, 10));
            if (*end || block < 16 || block > 8192)
                return mixerError(std::string("bad --block '") + argv[i] + "': frames from 16 to 8192");
        } else if (a == "--float") {
            asFloat = true;
        } else if (a == "--force") {
            force = true;
        } else if (!a.empty() && a[0] == '-') {
            return mixerError("'" + a + "' is no option of --mixer, or needs a value");
        } else if (in.empty()) {
            in = a;
        } else if (out.empty()) {
            out = a;
        } else {
            return mixerError("too many files: '" + a + "'");
        }
    }
    if (steps.empty())
        return mixerError("no effect: give --vst2 FILE or --vst3 BUNDLE, once for each effect of the chain");
    if (in.empty() || out.empty())
        return mixerError("an input and an output file are needed");
    if (!force && vlorfx::sameFile(in, out))
        return mixerError(out + " is the input file; give --force to write over it");

    SF_INFO info{};
    SNDFILE* f = sf_open(in.c_str(), SFM_READ, &info);
    if (!f)
        return mixerFail(audio::ReadErrorText(in));
    std::vector<float> audio(size_t(info.frames) * size_t(info.channels));
    sf_readf_float(f, audio.data(), info.frames);
    sf_close(f);

    AUDIOVST_Initialize();
    VLORVST3_Initialize();
    // Declared first, ended last: the effects' chatter while they go is kept aside too.
    vlorfx::PluginChatterAside aside;
    std::vector<std::unique_ptr<QVlorMixer::Effect>> effects;
    QVlorMixer::Chain chain(unsigned(info.channels), block);
    for (const Step& s : steps) {
        std::string why;
        auto fx = makeEffect(s, info.samplerate, unsigned(info.channels), &why);
        if (!fx)
            return mixerFail(why, aside.out());
        chain.append(fx.get());
        effects.push_back(std::move(fx));
    }
    // The output's place and format are settled before any effect runs.
    audio::PartialOutput output;
    {
        std::string why;
        if (!audio::ChooseOutputFormat(out, info, asFloat, &info.format, &why))
            return mixerFail("cannot write " + out + ": " + why, aside.out());
    }
    std::vector<float> result(audio.size());
    g_toldTo = aside.out();
    const QtMessageHandler before = qInstallMessageHandler(tellWarnings);
    const long long missed = chain.render(audio.data(), result.data(), info.frames);
    qInstallMessageHandler(before);
    g_toldTo = nullptr;

    std::string why;
    if (!output.open(out, info, asFloat, &why) ||
        sf_writef_float(output.file(), result.data(), info.frames) != info.frames || !output.commit(&why))
        return mixerFail(why.empty() ? audio::WriteErrorText(out, output.file()) : why, aside.out());
    if (missed > 0) {
        std::fprintf(aside.out(), "vlorfx apply --mixer: %lld frames were passed over by an effect that gave no audio\n",
                     missed);
        return 1;
    }
    aside.printResult(vlorfx::writtenLine(out, info.frames, info.channels, info.samplerate, peakOf(audio), peakOf(result)));
    return 0;
}
