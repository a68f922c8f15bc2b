// What running a plugin in the host program adds to a block, against the
// physical floor of a two-process design.
//  1. The wake-up: a bare ping-pong through a shared region with the
//     doorbell, sleeping at once and with the bounded spin, back to back
//     and paced at the block's own time (as playback calls).
//  2. Per block at 64, 256, 1024 and 4096 frames, stereo, interleaved in
//     one run: the floor (the same bytes, the same doorbell, the host
//     program's block server copying input to output), the plugin in this
//     process, in the host through the pipe, and through the shared region.
//     Median and 99th percentile, and what the remote path adds to the
//     plugin run in process against the floor.
//  3. A chain of four effects: members of one host group in one round trip,
//     against four instances in hosts of their own.
//
//   build/bin/bench_remote_audio [--rounds N]
#include "aeffect_p.h"
#include "audiovst.h"
#include "audiovst_testing.h"
#include "remote_p.h"
#include "shmhost_p.h"
#include "vsteffect_p.h"

#include "libbase.h"

#include "bench_common.h"
#include "bench_floor.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace bench;

namespace {

_VstEffectInstance* remote(const std::string& host, const std::string& plugin, int frames, bool shared)
{
    vlorvstSetSharedAudio(shared ? 1 : 0);
    _VstEffectInstance* fx =
        vlorvstCreateRemoteEffect(nullptr, nullptr, "\"%s\" --fxinstance \"%s\" --id 0", host.c_str(), plugin.c_str());
    if (!fx || !fx->Check(fx) || !fx->ActivateEngine(fx, frames, kRate) || !fx->StartEngine(fx) ||
        vlorvstUsesSharedAudio(fx) != (shared ? 1 : 0)) {
        std::fprintf(stderr, "the host did not come up as asked\n");
        std::exit(1);
    }
    return fx;
}

_VstEffectInstance* inProcess(_VSTEFFECT* record, int frames)
{
    _VstEffectInstance* fx = aeffectCreateEffect(nullptr, nullptr, record->entryPoint, 0);
    if (!fx || !fx->ActivateEngine(fx, frames, kRate) || !fx->StartEngine(fx)) {
        std::fprintf(stderr, "the plugin did not open in process\n");
        std::exit(1);
    }
    return fx;
}

void close(_VstEffectInstance* fx)
{
    fx->StopEngine(fx);
    fx->DeactivateEngine(fx);
    if (!fx->Destroy(fx))
        fx->Terminate(fx);
}

void wakeUps(int rounds)
{
    std::printf("Wake-up on another core: bare ping-pong of 64 stereo frames (microseconds)\n");
    std::printf("%-38s %-20s %10s %10s\n", "both sides", "blocks", "median", "p99");
    std::vector<float> in(64 * kChannels, 0.5f), out(in.size());
    const long budget = vlorshm::SpinBudgetNs(64, kRate);
    const struct {
        const char* name;
        vlorshm::Spin::Policy policy;
    } policies[] = {{"sleep at once", vlorshm::Spin::Never},
                    {"spin, then sleep", vlorshm::Spin::Always},
                    {"spin while blocks come back to back", vlorshm::Spin::BackToBack}};
    for (const auto& p : policies) {
        for (long pace : {0L, 64L * 1000000000L / kRate}) {
            Floor floor(64, vlorshm::Spin(budget, p.policy), vlorshm::Spin(vlorshm::kHostSpinNs, p.policy));
            std::vector<double> t;
            for (int r = 0; r < rounds; ++r)
                t.push_back(timeBlock([&] { floor.block(in.data(), out.data(), int(in.size())); }, pace));
            const Stats s = stats(t);
            std::printf("%-38s %-20s %10.1f %10.1f\n", p.name, pace ? "at the block's pace" : "back to back",
                        s.median, s.p99);
        }
    }
}

void chains(const std::string& host, const std::string& plugin, int rounds)
{
    std::printf("\nA chain of 4 effects, stereo, %d blocks each, interleaved (microseconds)\n", rounds);
    std::printf("%6s | %21s | %21s | %8s\n", "frames", "one group, med / p99", "4 hosts, med / p99", "ratio");
    for (int frames : {64, 256, 1024, 4096}) {
        std::vector<_VstEffectInstance*> group, apart;
        for (int k = 0; k < 4; ++k) {
            _VstEffectInstance* g = vlorvstCreateGroupEffect("bench", host.c_str(), nullptr, nullptr, plugin.c_str(), 0);
            if (!g || !g->Check(g) || !g->ActivateEngine(g, frames, kRate) || !g->StartEngine(g))
                std::exit(1);
            group.push_back(g);
            apart.push_back(remote(host, plugin, frames, true));
        }
        std::vector<float> in(size_t(frames) * kChannels, 0.25f), out(in.size());
        std::vector<double> tg, ta;
        for (int r = 0; r < rounds; ++r) {
            auto one = [&] { vlorvstProcessChain(group.data(), 4, in.data(), out.data(), kChannels, frames); };
            auto four = [&] { vlorvstProcessChain(apart.data(), 4, in.data(), out.data(), kChannels, frames); };
            if (r % 2) {
                tg.push_back(timeBlock(one, 0));
                ta.push_back(timeBlock(four, 0));
            } else {
                ta.push_back(timeBlock(four, 0));
                tg.push_back(timeBlock(one, 0));
            }
        }
        const Stats g = stats(tg), a = stats(ta);
        std::printf("%6d | %9.1f / %9.1f | %9.1f / %9.1f | %7.2fx\n", frames, g.median, g.p99, a.median, a.p99,
                    a.median / g.median);
        if (vlorvstBlocksShared(group[1]) != 0)
            std::printf("       (the chain rang more than its first member)\n");
        for (size_t k = 0; k < 4; ++k) {
            close(group[k]);
            close(apart[k]);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = 5000;
    for (int i = 1; i < argc; ++i)
        if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc)
            rounds = std::atoi(argv[++i]);
    const std::string bin = binDir();
    const std::string host = bin + "/vlorvst";
    const std::string plugin = bin + "/../fixtures/vst/vlor-fixture-stereo.so";
    BLDEBUG_SetStderrEnabled(0);
    AUDIOVST_Initialize();
    _RegisterRemoteIOCallbacks();
    _VSTEFFECT* record = _CreateEffectRecord(plugin.c_str(), 0);
    if (!record || !AUDIOVST_LoadPlugin(record))
        return 1;

    wakeUps(rounds / 2);

    std::printf("\nPer block, stereo, %d blocks each, interleaved (microseconds; added = remote - in process)\n", rounds);
    std::printf("%6s | %15s | %15s | %15s | %15s | %17s | %17s\n", "frames", "floor med/p99", "in process",
                "pipe", "shared region", "pipe added/floor", "shared added/floor");
    for (int frames : {64, 256, 1024, 4096}) {
        Floor floor(frames, vlorshm::Spin(vlorshm::SpinBudgetNs(frames, kRate)));
        _VstEffectInstance* local = inProcess(record, frames);
        _VstEffectInstance* pipe = remote(host, plugin, frames, false);
        _VstEffectInstance* shared = remote(host, plugin, frames, true);
        std::vector<float> in(size_t(frames) * kChannels, 0.25f), out(in.size());
        std::vector<double> tf, tl, tp, ts;
        // Each path in turn, the first one moving on every round: what ran
        // just before (a pipe's copies, a core left idle) falls on all alike.
        for (int r = 0; r < rounds; ++r) {
            for (int k = 0; k < 4; ++k) {
                switch ((r + k) % 4) {
                case 0:
                    tf.push_back(timeBlock([&] { floor.block(in.data(), out.data(), int(in.size())); }, 0));
                    break;
                case 1:
                    tl.push_back(timeBlock([&] { local->ProcessAudio(local, in.data(), out.data(), kChannels, frames); }, 0));
                    break;
                case 2:
                    tp.push_back(timeBlock([&] { pipe->ProcessAudio(pipe, in.data(), out.data(), kChannels, frames); }, 0));
                    break;
                default:
                    ts.push_back(timeBlock([&] { shared->ProcessAudio(shared, in.data(), out.data(), kChannels, frames); }, 0));
                }
            }
        }
        const Stats f = stats(tf), l = stats(tl), p = stats(tp), s = stats(ts);
        std::printf("%6d | %6.1f / %6.1f | %6.1f / %6.1f | %6.1f / %6.1f | %6.1f / %6.1f | %7.2fx / %6.2fx | %7.2fx / %6.2fx\n",
                    frames, f.median, f.p99, l.median, l.p99, p.median, p.p99, s.median, s.p99,
                    (p.median - l.median) / f.median, (p.p99 - l.p99) / f.p99, (s.median - l.median) / f.median,
                    (s.p99 - l.p99) / f.p99);
        close(local);
        close(pipe);
        close(shared);
    }
    chains(host, plugin, rounds);
    return 0;
}
