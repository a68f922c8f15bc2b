// The mixer effects' cost per block against the bare engine call underneath,
// on the same instance: QVlorVst::MixerEffect::process against
// AUDIOVST_ProcessSamples, QVlorVst3::MixerEffect::process against
// VLORVST3_ProcessAudio, at 64, 256 and 1024 frames.
//   bench_mixer [VST2 FILE] [VST3 BUNDLE]
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst_MixerEffect.h"

#include "audiovst.h"
#include "vst3engine.h"

#include "bench_common.h"

#include <QCoreApplication>

#include <cmath>
#include <cstdio>
#include <functional>

using namespace bench;

namespace {

constexpr int kRate = 48000;
constexpr int kRounds = 9;

// Median over rounds of the microseconds one block takes, for each side, run alternately.
void compare(const char* what, int frames, const std::function<int(float*, float*)>& viaMixer,
             const std::function<int(float*, float*)>& bare)
{
    std::vector<float> in(size_t(frames) * 2), out(in.size());
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = 0.3f * float(std::sin(0.01 * double(i / 2)));
    const int blocks = std::max(200, 200000 / frames);
    std::vector<double> mixer, engine;
    for (int r = 0; r < kRounds; ++r) {
        for (int side = 0; side < 2; ++side) {
            const auto& run = side == 0 ? viaMixer : bare;
            const auto t0 = Clock::now();
            for (int b = 0; b < blocks; ++b)
                run(in.data(), out.data());
            (side == 0 ? mixer : engine).push_back(micros(Clock::now() - t0) / blocks);
        }
    }
    const double m = median(mixer), e = median(engine);
    std::printf("%-12s %6d %12.2f %12.2f %8.3f\n", what, frames, e, m, m / e);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const std::string vst2 = argc > 1 ? argv[1] : "/usr/lib/vst/ZamComp-vst.so";
    const std::string vst3 = argc > 2 ? argv[2] : "/usr/lib/vst3/ZamComp.vst3";
    AUDIOVST_Initialize();
    VLORVST3_Initialize();
    std::printf("%-12s %6s %12s %12s %8s\n", "effect", "frames", "engine us", "mixer us", "ratio");

    _VSTEFFECT* e = AUDIOVST_FindPluginEx(vst2.c_str(), 0, false);
    if (e) {
        QVlorVst::Plugin plugin(QString::fromStdString(vst2));
        plugin.setUniqueId(AUDIOVST_GetUniqueID(e));
        for (int frames : {64, 256, 1024}) {
            QVlorVst::MixerEffect fx(plugin, kRate, 2);
            if (!fx.powerOn(frames))
                break;
            _VSTINSTANCE* instance = AUDIOVST_GetConfigInstance(e);
            compare("VST2", frames, [&](float* in, float* out) { return fx.process(in, out, 2, frames); },
                    [&](float* in, float* out) { return AUDIOVST_ProcessSamples(instance, in, out, 2, frames); });
            fx.powerOff();
        }
    } else {
        std::printf("VST2         %s not available\n", vst2.c_str());
    }

    std::vector<Vst3ClassRecord> classes(8);
    if (VLORVST3_ListClasses(vst3.c_str(), classes.data(), 8) >= 1) {
        const QVlorVst3::Plugin plugin(QString::fromStdString(vst3), QString::fromLatin1(classes[0].uid), QString(),
                                       QString(), QString(), QString());
        for (int frames : {64, 256, 1024}) {
            QVlorVst3::MixerEffect fx(plugin, kRate, 2);
            if (!fx.isOk() || !fx.powerOn(frames))
                break;
            _Vst3Instance* h = fx.instance();
            compare("VST3", frames, [&](float* in, float* out) { return fx.process(in, out, 2, frames); },
                    [&](float* in, float* out) { return VLORVST3_ProcessAudio(h, in, out, 2, frames); });
            fx.powerOff();
        }
    } else {
        std::printf("VST3         %s not available\n", vst3.c_str());
    }
    return 0;
}
