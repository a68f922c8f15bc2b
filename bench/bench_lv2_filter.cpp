// The LV2 engine's run (interleaved audio in and out, atom buffers readied,
// the worker served) against lilv's bare run of the same instance on its
// connected buffers, at block sizes from 64 to 4096 frames. Ten seconds of
// stereo audio each way, three rounds interleaved, the best counts; the copy
// into the bare run's buffers is the host's work and is not timed.
//
//   build/bin/bench_lv2_filter [URI...]
#include "lv2engine_testing.h"

#include "bench_common.h"

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

double bare(const std::string& uri, int block, const std::vector<float>& in)
{
    _Lv2Instance* fx = make(uri, block);
    if (!fx)
        return -1;
    int inputs = 0, outputs = 0;
    VLORLV2_GetBusChannels(fx, &inputs, &outputs);
    const int frames = int(in.size() / 2);
    double total = 0;
    for (int at = 0; at < frames; at += block) {
        const int n = std::min(block, frames - at);
        for (int c = 0; c < inputs; ++c) {
            float* to = VLORLV2_TestingAudioBuffer(fx, 0, c);
            for (int k = 0; k < n; ++k)
                to[k] = in[(size_t(at) + size_t(k)) * 2 + size_t(c & 1)];
        }
        const auto t0 = Clock::now();
        VLORLV2_TestingRunBare(fx, n);
        total += micros(Clock::now() - t0);
    }
    VLORLV2_DestroyInstance(fx);
    return total / 1e6;
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
    std::printf("%d s of %d Hz stereo\n\n%-50s %6s %10s %10s %8s\n", kSeconds, kRate, "plugin", "block",
                "bare run", "engine", "ratio");
    for (const std::string& uri : uris)
        for (int block = 64; block <= 4096; block *= 4) {
            double raw = 1e9, ours = 1e9;
            for (int round = 0; round < 3; ++round) {
                raw = std::min(raw, bare(uri, block, in));
                ours = std::min(ours, engine(uri, block, in));
            }
            if (raw <= 0 || ours <= 0) {
                std::printf("%-50s not available\n", uri.c_str());
                break;
            }
            std::printf("%-50s %6d %9.0fx %9.0fx %8.3f\n", uri.c_str(), block, kSeconds / raw, kSeconds / ours,
                        ours / raw);
        }
    return 0;
}
