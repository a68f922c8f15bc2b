// The "VST3 host" filter over real plugins against the same plugins driven by
// bare process() calls on their own buses, with the same block size. A second
// of audio is played 60 times so that the figures compare work, not the
// memory bus; each way runs three times, interleaved, and the best counts.
//
//   build/bin/bench_vst3_filter [BUNDLE...]
#include "QVlorAudioPlugins.h"
#include "audiofx.h"
#include "vst3engine_testing.h"

#include "bench_common.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using namespace bench;

namespace {

constexpr int kRate = 44100;
constexpr int kSeconds = 60;
constexpr int kBlock = 4096; // what the offline renderer hands the filter

std::string uidOf(const std::string& bundle)
{
    Vst3ClassRecord r[2];
    return VLORVST3_ListClasses(bundle.c_str(), r, 2) >= 1 ? r[0].uid : "";
}

double throughFilter(const std::string& bundle, const std::vector<float>& in)
{
    AUDIO_FORMAT f{};
    f.sampleRate = kRate;
    f.numChannels = 2;
    const std::string config = "vst3effect_uid=\"" + uidOf(bundle) + "\",vst3effect_path=\"" + bundle + "\"";
    AUDIO_Effect* fx = AUDIO_CreateEffect("VST3 host", &f, config.c_str(), nullptr, 0);
    if (!fx)
        return -1;
    std::vector<float> out(in.size());
    const auto t0 = Clock::now();
    for (int s = 0; s < kSeconds; ++s)
        for (size_t at = 0; at < in.size() / 2;) {
            long i = std::min<long>(kBlock, long(in.size() / 2 - at)), o = i;
            AUDIO_ProcessEffect(fx, in.data() + at * 2, &i, out.data() + at * 2, &o);
            at += size_t(i);
        }
    const double secs = micros(Clock::now() - t0) / 1e6;
    AUDIO_DestroyEffect(fx);
    return secs;
}

// process() itself on the buses the instance prepared, fed planar.
double bare(const std::string& bundle, const std::vector<float>& in)
{
    _Vst3Instance* h = VLORVST3_CreateInstance(bundle.c_str(), uidOf(bundle).c_str());
    if (!h || !VLORVST3_SetAudioFormat(h, kRate, 2) || !VLORVST3_SetOffline(h, 1) || !VLORVST3_StartEngine(h))
        return -1;
    Steinberg::Vst::HostProcessData& pd = h->processData;
    pd.inputParameterChanges = h->inputChanges;
    pd.outputParameterChanges = h->outputChanges;
    pd.inputEvents = h->inputEvents;
    pd.outputEvents = h->outputEvents;
    const size_t frames = in.size() / 2;
    double total = 0;
    for (int s = 0; s < kSeconds; ++s)
        for (size_t at = 0; at < frames; at += kBlock) {
            const int n = int(std::min<size_t>(kBlock, frames - at));
            for (int c = 0; c < pd.inputs[0].numChannels; ++c)
                for (int k = 0; k < n; ++k)
                    pd.inputs[0].channelBuffers32[c][k] = in[(at + size_t(k)) * 2 + size_t(c & 1)];
            pd.numSamples = n;
            const auto t0 = Clock::now(); // the copy above is the host's work, not the plugin's
            h->processor->process(pd);
            total += micros(Clock::now() - t0);
        }
    VLORVST3_DestroyInstance(h);
    return total / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> bundles = {"/usr/lib/vst3/ZamCompX2.vst3", "/usr/lib/vst3/ZamVerb.vst3"};
    if (argc > 1)
        bundles.assign(argv + 1, argv + argc);
    QVlorAudioPlugins::Initialize();
    std::vector<float> in(size_t(kRate) * 2);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = 0.4f * float(std::sin(0.0031 * double(i / 2)));
    std::printf("%d s of %d Hz stereo in blocks of %d\n\n", kSeconds, kRate, kBlock);
    std::printf("%-34s %12s %12s %8s\n", "bundle", "bare process", "filter", "ratio");
    std::printf("%-34s %12s %12s\n", "", "x realtime", "x realtime");
    for (const std::string& b : bundles) {
        double raw = 1e9, filter = 1e9;
        for (int round = 0; round < 3; ++round) {
            raw = std::min(raw, bare(b, in));
            filter = std::min(filter, throughFilter(b, in));
        }
        if (raw <= 0 || filter <= 0) {
            std::printf("%-34s not available\n", b.c_str());
            continue;
        }
        std::printf("%-34s %12.0f %12.0f %8.3f\n", b.c_str(), kSeconds / raw, kSeconds / filter, filter / raw);
    }
    return 0;
}
