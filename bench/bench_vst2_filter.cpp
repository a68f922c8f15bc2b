// A minute of stereo through the "VST host" filter, in process and in the
// host program, for three real plugins of different cost; beside them the
// plugin's own processReplacing on the same blocks, and a bare pipe round
// trip of one block's bytes, all in one run.
//
// Each way runs three times, interleaved, and the best time counts.
//
//   build/bin/bench_vst2_filter [PLUGIN...]
#include "audiovst_testing.h"
#include "audiofx.h"
#include "audiovst.h"
#include "vstfilter.h"

#include "QVlorAudioPlugins.h"
#include "libbase.h"

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
constexpr int kBlock = 2048;

// One second, played kSeconds times: the buffers stay in the cache, so that
// the figures compare work rather than the memory bus.
std::vector<float> signal()
{
    std::vector<float> s(size_t(kRate) * 2);
    for (size_t i = 0; i < s.size(); ++i)
        s[i] = 0.4f * float(std::sin(0.0031 * double(i / 2))) * float(0.5 + 0.5 * std::sin(0.00001 * double(i)));
    return s;
}

// Seconds through the filter; out gets the result.
double throughFilter(const std::string& config, const std::vector<float>& in, std::vector<float>* out)
{
    AUDIO_FORMAT f{};
    f.sampleRate = kRate;
    f.numChannels = 2;
    AUDIO_Effect* fx = AUDIO_CreateEffect("VST host", &f, config.c_str(), nullptr, 0);
    if (!fx)
        return -1;
    out->assign(in.size(), 0.0f);
    const auto t0 = Clock::now();
    for (int second = 0; second < kSeconds; ++second) {
        for (size_t at = 0; at < in.size() / 2;) {
            long i = long(in.size() / 2 - at), o = i;
            if (!AUDIO_ProcessEffect(fx, in.data() + at * 2, &i, out->data() + at * 2, &o))
                break;
            at += size_t(i);
        }
    }
    const double s = micros(Clock::now() - t0) / 1e6;
    AUDIO_DestroyEffect(fx);
    return s;
}

// Seconds of the plugin's own processReplacing on planar blocks of the same size.
double direct(_VSTEFFECT* e, const std::vector<float>& in)
{
    AUDIOVST_LoadPlugin(e);
    _VstEffectInstance* fx = aeffectCreateEffect(_HostCallback, nullptr, e->entryPoint, e->pluginid);
    if (!fx || !fx->ActivateEngine(fx, kBlock, kRate) || !fx->StartEngine(fx))
        return -1;
    AEffect* ae = aeffectGetAEffect(fx);
    std::vector<std::vector<float>> planarIn(size_t(ae->numInputs), std::vector<float>(kBlock));
    std::vector<std::vector<float>> planarOut(size_t(ae->numOutputs), std::vector<float>(kBlock));
    std::vector<float*> pin, pout;
    for (auto& c : planarIn)
        pin.push_back(c.data());
    for (auto& c : planarOut)
        pout.push_back(c.data());
    const size_t frames = in.size() / 2;
    double total = 0;
    for (int second = 0; second < kSeconds; ++second)
    for (size_t at = 0; at < frames; at += kBlock) {
        const int n = int(std::min<size_t>(kBlock, frames - at));
        for (size_t c = 0; c < planarIn.size(); ++c)
            for (int k = 0; k < n; ++k)
                planarIn[c][size_t(k)] = in[(at + size_t(k)) * 2 + (c & 1)];
        const auto t0 = Clock::now(); // the copy above is the adapter's work, not the plugin's
        ae->processReplacing(ae, pin.data(), pout.data(), n);
        total += micros(Clock::now() - t0);
    }
    fx->StopEngine(fx);
    fx->DeactivateEngine(fx);
    fx->Destroy(fx);
    return total / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    runEchoChildIfAsked(argc, argv);
    std::vector<std::string> plugins = {"/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst/MVerb-vst.so",
                                        "/usr/lib/vst/3BandEQ-vst.so"};
    if (argc > 1)
        plugins.assign(argv + 1, argv + argc);
    BLDEBUG_SetStderrEnabled(0);
    QVlorAudioPlugins::Initialize();
    const std::string bin = binDir();
    if (!AUDIOVST_SetVlorVstPath(bin.c_str())) {
        std::fprintf(stderr, "no host program in %s\n", bin.c_str());
        return 1;
    }
    const std::vector<float> in = signal();
    const double blocks = std::ceil(double(in.size() / 2) / kBlock) * kSeconds;
    const double echo = bareEcho(kBlock, 2, 2000);
    std::printf("%d s of %d Hz stereo in blocks of %d; bare pipe round trip of one block: %.1f us\n\n", kSeconds,
                kRate, kBlock, echo);
    std::printf("%-14s %10s %10s %10s %8s %12s %12s %10s\n", "plugin", "direct", "in proc", "host", "host/in",
                "ours in proc", "host extra", "allowed");
    std::printf("%-14s %10s %10s %10s %8s %12s %12s %10s\n", "", "x realtime", "x realtime", "x realtime", "", "",
                "us/block", "us/block");
    for (const std::string& p : plugins) {
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(p.c_str(), 0, false);
        if (!e) {
            std::printf("%-14s not available\n", p.c_str());
            continue;
        }
        const std::string config = "vsteffect_hash=\"" + std::string(AUDIOVST_GetHash(e)) + "\"";
        // The machine is shared: each way runs three times, interleaved, and the best counts.
        std::vector<float> outHost, outLocal;
        double host = 1e9, local = 1e9, raw = 1e9;
        for (int round = 0; round < 3; ++round) {
            raw = std::min(raw, direct(e, in));
            host = std::min(host, throughFilter(config, in, &outHost));
            AUDIOVST_ForgetVlorVstPath();
            local = std::min(local, throughFilter(config, in, &outLocal));
            AUDIOVST_SetVlorVstPath(bin.c_str());
        }
        const double extra = (host - local) * 1e6 / blocks;
        std::printf("%-14s %10.0f %10.0f %10.0f %8.2f %11.1f%% %12.1f %10.1f%s\n", AUDIOVST_GetDisplayName(e),
                    kSeconds / raw, kSeconds / local, kSeconds / host, host / local, 100.0 * (local / raw - 1), extra,
                    1.25 * echo, outHost == outLocal ? "" : "  (outputs differ!)");
    }
    return 0;
}
