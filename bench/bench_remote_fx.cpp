// What running a VST3 or an LV2 effect in a host program of its own adds to
// a block: per block at 64, 256, 1024 and 4096 frames, stereo, interleaved
// in one run, the floor (two processes passing the same bytes through a
// shared region with the same doorbell), the effect in this process and in
// its host program. The target: remote <= in process + floor + 10%.
//
//   build/bin/bench_remote_fx [--rounds N]
// ZamComp where zam-plugins is installed, the fixtures' gain otherwise.
#include "lv2engine.h"
#include "vst3engine.h"

#include "libbase.h"

#include "bench_common.h"
#include "bench_floor.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <unistd.h>

using namespace bench;

namespace {

struct Effect {
    std::string name;
    std::function<void*(int where, int frames)> make;
    std::function<int(void*, const float*, float*, int)> process;
    std::function<void(void*)> destroy;
};

Effect vst3Effect(const std::string& bin)
{
    std::string bundle = "/usr/lib/vst3/ZamComp.vst3", name = "VST3 ZamComp";
    Vst3ClassRecord r[1];
    if (access(bundle.c_str(), R_OK) != 0 || VLORVST3_ListClasses(bundle.c_str(), r, 1) != 1) {
        bundle = bin + "/../fixtures/vst3/vlor-vst3-effects.vst3";
        name = "VST3 fixture gain";
        VLORVST3_ListClasses(bundle.c_str(), r, 1);
    }
    const std::string uid = r[0].uid;
    return {name,
            [bundle, uid](int where, int) -> void* {
                _Vst3Instance* h = VLORVST3_CreateInstanceEx(bundle.c_str(), uid.c_str(), where);
                if (h && VLORVST3_SetAudioFormat(h, kRate, kChannels) && VLORVST3_StartEngine(h))
                    return h;
                return nullptr;
            },
            [](void* h, const float* in, float* out, int frames) {
                return VLORVST3_ProcessAudio(static_cast<_Vst3Instance*>(h), in, out, kChannels, frames);
            },
            [](void* h) { VLORVST3_DestroyInstance(static_cast<_Vst3Instance*>(h)); }};
}

Effect lv2Effect()
{
    std::string uri = "urn:zamaudio:ZamComp", name = "LV2 ZamComp";
    Lv2PluginRecord record;
    if (VLORLV2_DescribePlugin(uri.c_str(), &record) != 1) {
        uri = "urn:vlor:fixture:gain";
        name = "LV2 fixture gain";
    }
    return {name,
            [uri](int where, int frames) -> void* {
                char error[256];
                _Lv2Instance* h = VLORLV2_CreateInstanceEx(uri.c_str(), kRate, frames, where, error, sizeof(error));
                if (h && VLORLV2_Activate(h))
                    return h;
                std::fprintf(stderr, "%s: %s\n", uri.c_str(), error);
                return nullptr;
            },
            [](void* h, const float* in, float* out, int frames) {
                return VLORLV2_ProcessAudio(static_cast<_Lv2Instance*>(h), in, out, kChannels, frames);
            },
            [](void* h) { VLORLV2_DestroyInstance(static_cast<_Lv2Instance*>(h)); }};
}

// One effect at every size: the three paths in turn, the first one moving
// on every round, so that what ran just before falls on all alike.
bool measure(const Effect& e, int rounds)
{
    bool met = true;
    std::printf("\n%s, per block, stereo, %d blocks each (microseconds)\n", e.name.c_str(), rounds);
    std::printf("%6s | %15s | %15s | %15s | %20s | %s\n", "frames", "floor med/p99", "in process", "remote",
                "(remote-in)/floor", "remote <= in + floor + 10%");
    for (int frames : {64, 256, 1024, 4096}) {
        Floor floor(frames, vlorshm::Spin(vlorshm::SpinBudgetNs(frames, kRate)));
        void* local = e.make(0, frames);
        void* remote = e.make(1, frames);
        if (!local || !remote) {
            std::fprintf(stderr, "%s did not start\n", e.name.c_str());
            return false;
        }
        std::vector<float> in(size_t(frames) * kChannels, 0.25f), out(in.size());
        std::vector<double> tf, tl, tr;
        for (int r = 0; r < rounds; ++r) {
            for (int k = 0; k < 3; ++k) {
                const int path = (r + k) % 3;
                if (path == 0)
                    tf.push_back(timeBlock([&] { floor.block(in.data(), out.data(), int(in.size())); }, 0));
                else
                    (path == 1 ? tl : tr).push_back(timeBlock(
                        [&] { e.process(path == 1 ? local : remote, in.data(), out.data(), frames); }, 0));
            }
        }
        const Stats f = stats(tf), l = stats(tl), r = stats(tr);
        const bool ok = r.median <= (l.median + f.median) * 1.1;
        met = met && ok;
        std::printf("%6d | %6.1f / %6.1f | %6.1f / %6.1f | %6.1f / %6.1f | %8.2fx / %7.2fx | %s (%.1f <= %.1f)\n",
                    frames, f.median, f.p99, l.median, l.p99, r.median, r.p99, (r.median - l.median) / f.median,
                    (r.p99 - l.p99) / f.p99, ok ? "yes" : "NO", r.median, (l.median + f.median) * 1.1);
        e.destroy(local);
        e.destroy(remote);
    }
    return met;
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = 3000;
    for (int i = 1; i < argc; ++i)
        if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc)
            rounds = std::atoi(argv[++i]);
    const std::string bin = binDir();
    BLDEBUG_SetStderrEnabled(0);
    setenv("LV2_PATH", (bin + "/../fixtures/lv2:/usr/lib/lv2").c_str(), 0);
    VLORVST3_Initialize();
    VLORLV2_Initialize();
    const bool vst3 = measure(vst3Effect(bin), rounds);
    const bool lv2 = measure(lv2Effect(), rounds);
    std::printf("\ntarget met: VST3 %s, LV2 %s\n", vst3 ? "yes" : "no", lv2 ? "yes" : "no");
    return 0;
}
