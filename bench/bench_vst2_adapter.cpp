// ProcessAudio through the adapter against the plugin's own processReplacing
// called directly, on the same real plugin, block sizes 512 and 2048, stereo.
// The adapter adds the interleaving of the editor's buffers; the target is to
// stay within 5% of the direct call.
//
//   build/bin/bench_vst2_adapter [--benchmark_repetitions=5] [PLUGIN]
#include "audiovst_testing.h"
#include "audiovst.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

std::string g_plugin = "/usr/lib/vst/ZamCompX2-vst.so";

struct Instance {
    _VSTEFFECT* record = nullptr;
    _VstEffectInstance* fx = nullptr;

    explicit Instance(int block)
    {
        AUDIOVST_Initialize();
        record = _CreateEffectRecord(g_plugin.c_str(), 0);
        if (record && AUDIOVST_LoadPlugin(record))
            fx = aeffectCreateEffect(_HostCallback, nullptr, record->entryPoint, 0);
        if (fx && !(fx->ActivateEngine(fx, block, 44100) && fx->StartEngine(fx))) {
            fx->Destroy(fx);
            fx = nullptr;
        }
    }
    ~Instance()
    {
        if (fx) {
            fx->StopEngine(fx);
            fx->DeactivateEngine(fx);
            fx->Destroy(fx);
        }
        AUDIOVST_DeletePlugin(record);
    }
};

std::vector<float> signal(size_t n)
{
    std::vector<float> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = 0.5f * float(std::sin(0.01 * double(i)));
    return v;
}

void BM_Direct(benchmark::State& state)
{
    const int block = int(state.range(0));
    Instance inst(block);
    if (!inst.fx) {
        state.SkipWithError("plugin did not open");
        return;
    }
    AEffect* ae = aeffectGetAEffect(inst.fx);
    std::vector<std::vector<float>> in(size_t(ae->numInputs), signal(size_t(block)));
    std::vector<std::vector<float>> out(size_t(ae->numOutputs), std::vector<float>(size_t(block)));
    std::vector<float*> inPtr, outPtr;
    for (auto& c : in)
        inPtr.push_back(c.data());
    for (auto& c : out)
        outPtr.push_back(c.data());
    for (auto _ : state) {
        ae->processReplacing(ae, inPtr.data(), outPtr.data(), block);
        benchmark::DoNotOptimize(outPtr[0][0]);
    }
    state.SetItemsProcessed(state.iterations() * block);
}

void BM_Adapter(benchmark::State& state)
{
    const int block = int(state.range(0));
    Instance inst(block);
    if (!inst.fx) {
        state.SkipWithError("plugin did not open");
        return;
    }
    const std::vector<float> in = signal(size_t(block) * 2);
    std::vector<float> out(size_t(block) * 2);
    for (auto _ : state) {
        inst.fx->ProcessAudio(inst.fx, in.data(), out.data(), 2, block);
        benchmark::DoNotOptimize(out[0]);
    }
    state.SetItemsProcessed(state.iterations() * block);
}

} // namespace

BENCHMARK(BM_Direct)->Arg(512)->Arg(2048);
BENCHMARK(BM_Adapter)->Arg(512)->Arg(2048);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc > 1)
        g_plugin = argv[1];
    std::printf("plugin: %s\n", g_plugin.c_str());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
