// The LV2 engine's run (interleaved audio in and out, atom buffers readied,
// the worker served, the editor's queues looked at) against bare lilv calls
// on the same instance, at block sizes from 64 to 4096 frames, two ways:
//   "bare run"   lilv's run alone on the connected buffers, nothing else timed;
//   "bare host"  the least a host of interleaved audio does: the same copies
//                in and out of the port buffers as the engine makes, and the run.
// Ten seconds of stereo audio each way, three rounds interleaved, the best counts.
//
//   build/bin/bench_lv2_filter [URI...]
#include "lv2engine_testing.h"

#include "bench_common.h"
#include "../src/engine/interleave_p.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using namespace bench;

namespace {

constexpr int kRate = 48000;
constexpr int kSeconds = 10;

_Lv2Instance* make(const std::string& uri, int block)
{
    char error[256];
    _Lv2Instance* fx = VLORLV2_CreateInstance(uri.c_str(), kRate, block, error, sizeof(error));
    if (fx)
        VLORLV2_Activate(fx);
    return fx;
}

double engine(const std::string& uri, int block, const std::vector<float>& in)
{
    _Lv2Instance* fx = make(uri, block);
    if (!fx)
        return -1;
    std::vector<float> out(in.size());
    const int frames = int(in.size() / 2);
    const auto t0 = Clock::now();
    for (int at = 0; at < frames; at += block)
        VLORLV2_ProcessAudio(fx, in.data() + size_t(at) * 2, out.data() + size_t(at) * 2, 2,
                             std::min(block, frames - at));
    const double secs = micros(Clock::now() - t0) / 1e6;
    VLORLV2_DestroyInstance(fx);
    return secs;
}

struct Bare {
    double run = -1, host = -1; // seconds
};

// A stereo plugin's bare calls; the run timed alone and with the copies.
Bare bare(const std::string& uri, int block, const std::vector<float>& in)
{
    _Lv2Instance* fx = make(uri, block);
    if (!fx)
        return {};
    int inputs = 0, outputs = 0;
    VLORLV2_GetBusChannels(fx, &inputs, &outputs);
    if (inputs != 2 || outputs != 2) {
        VLORLV2_DestroyInstance(fx);
        return {};
    }
    std::vector<float> out(in.size());
    float* l = VLORLV2_TestingAudioBuffer(fx, 0, 0);
    float* r = VLORLV2_TestingAudioBuffer(fx, 0, 1);
    const float* ol = VLORLV2_TestingAudioBuffer(fx, 1, 0);
    const float* orr = VLORLV2_TestingAudioBuffer(fx, 1, 1);
    const int frames = int(in.size() / 2);
    double run = 0, host = 0;
    for (int at = 0; at < frames; at += block) {
        const int n = std::min(block, frames - at);
        const auto t0 = Clock::now();
        deinterleave2(in.data() + size_t(at) * 2, l, r, n);
        const auto t1 = Clock::now();
        VLORLV2_TestingRunBare(fx, n);
        const auto t2 = Clock::now();
        interleave2(ol, orr, out.data() + size_t(at) * 2, n);
        const auto t3 = Clock::now();
        run += micros(t2 - t1);
        host += micros(t3 - t0);
    }
    VLORLV2_DestroyInstance(fx);
    return {run / 1e6, host / 1e6};
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> uris = {"urn:zamaudio:ZamCompX2", "urn:zamaudio:ZamVerb",
                                     "http://lsp-plug.in/plugins/lv2/compressor_stereo"};
    if (argc > 1)
        uris.assign(argv + 1, argv + argc);
    VLORLV2_Initialize();
    std::vector<float> in(size_t(kRate) * kSeconds * 2);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = 0.4f * float(std::sin(0.0031 * double(i / 2)));
    std::printf("%d s of %d Hz stereo; speeds in times real time, ratios engine / bare\n\n%-50s %6s %10s %10s "
                "%10s %9s %9s\n",
                kSeconds, kRate, "plugin", "block", "bare run", "bare host", "engine", "/run", "/host");
    for (const std::string& uri : uris)
        for (int block = 64; block <= 4096; block *= 4) {
            double run = 1e9, host = 1e9, ours = 1e9;
            for (int round = 0; round < 3; ++round) {
                const Bare b = bare(uri, block, in);
                run = std::min(run, b.run);
                host = std::min(host, b.host);
                ours = std::min(ours, engine(uri, block, in));
            }
            if (run <= 0 || ours <= 0) {
                std::printf("%-50s not available (or not stereo)\n", uri.c_str());
                break;
            }
            std::printf("%-50s %6d %9.0fx %9.0fx %9.0fx %9.3f %9.3f\n", uri.c_str(), block, kSeconds / run,
                        kSeconds / host, kSeconds / ours, ours / run, ours / host);
        }
    return 0;
}
