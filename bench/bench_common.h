// What the benchmarks share: timing, medians, and a bare echo between two
// processes, the physical limit of a design that talks over a pipe.
#pragma once

#include "blpopenio.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double micros(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }

inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

inline std::string selfPath()
{
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    self[n > 0 ? n : 0] = '\0';
    return self;
}

inline std::string binDir()
{
    const std::string self = selfPath();
    return self.substr(0, self.rfind('/'));
}

// The child side: answers every request of `in` bytes with `out` bytes.
inline int echoChild(size_t in, size_t out)
{
    std::vector<char> buf(std::max(in, out));
    for (;;) {
        size_t got = 0;
        while (got < in) {
            const ssize_t n = read(0, buf.data() + got, in - got);
            if (n <= 0)
                return 0;
            got += size_t(n);
        }
        if (write(1, buf.data(), out) != ssize_t(out))
            return 1;
    }
}

// Call first in main: a benchmark started as "--echo IN OUT" is the echo child.
inline void runEchoChildIfAsked(int argc, char** argv)
{
    if (argc == 4 && !std::strcmp(argv[1], "--echo"))
        std::exit(echoChild(size_t(std::atoll(argv[2])), size_t(std::atoll(argv[3]))));
}

// Median round trip in microseconds of a bare echo of one "aud " block's bytes:
// one write of the request, one read of the answer.
inline double bareEcho(int frames, int channels, int rounds)
{
    const size_t samples = size_t(frames) * size_t(channels) * sizeof(float);
    const size_t in = 16 + samples, out = 8 + samples;
    BLPOpenIO io = BLPOPENIO_Create(
        "rw", ("\"" + selfPath() + "\" --echo " + std::to_string(in) + " " + std::to_string(out)).c_str());
    std::vector<char> request(in, 1), answer(out);
    std::vector<double> times;
    for (int r = 0; r < rounds; ++r) {
        const auto t0 = Clock::now();
        BLPOPENIO_WriteData(io, request.data(), int(in));
        size_t got = 0;
        while (got < out) {
            const int n = BLPOPENIO_ReadDataEx(io, answer.data() + got, int(out - got), 5000);
            if (n <= 0)
                break;
            got += size_t(n);
        }
        times.push_back(micros(Clock::now() - t0));
    }
    BLPOPENIO_CloseEx(io, 0, 0);
    return median(times);
}

} // namespace bench
