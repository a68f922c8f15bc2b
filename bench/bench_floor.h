#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H
// The floor of a two-process design, for the benchmarks of plugins in host
// programs: a child that serves a shared region with a copy of the block,
// through the same doorbell as the host programs' block server.
#include "shmhost_p.h"

#include "bench_common.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {

constexpr int kRate = 44100;
constexpr int kChannels = 2;

struct Stats {
    double median, p99;
};

inline Stats stats(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return {v[v.size() / 2], v[std::min(v.size() - 1, v.size() * 99 / 100)]};
}

// The floor: a child that serves the region with a copy, as the host
// program's block server does with a plugin.
class Floor {
public:
    Floor(int frames, vlorshm::Spin spin, vlorshm::Spin hostSpin = vlorshm::Spin(vlorshm::kHostSpinNs))
        : m_spin(spin)
    {
        const int samples = frames * kChannels;
        if (!m_region.create(samples))
            std::exit(1);
        const int fd = m_region.fd(), parent = int(getpid());
        m_child = fork();
        if (m_child == 0) {
            vlorshm::BlockServer server(
                [](const float* in, float* out, int channels, int n) {
                    std::memcpy(out, in, size_t(channels) * size_t(n) * sizeof(float));
                    return true;
                },
                [](int, float) {}, hostSpin);
            if (!server.attach(parent, fd, samples))
                _exit(1);
            pause();
            _exit(0);
        }
        while (!m_region.header()->hostPid.load())
            usleep(100);
    }
    ~Floor()
    {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
    void block(const float* in, float* out, int samples)
    {
        vlorshm::Header* h = m_region.header();
        h->channels = kChannels;
        h->frames = samples / kChannels;
        std::memcpy(vlorshm::InputOf(h), in, size_t(samples) * sizeof(float));
        const long spin = m_spin.forGap(vlorshm::NowNs() - m_answeredAt);
        h->spin.store(spin > 0 ? 1 : 0);
        vlorshm::Ring(&h->request, ++m_seq);
        vlorshm::WaitFor(&h->reply, vlorshm::Until{m_seq, false}, spin, 100, -1, [] { return true; });
        m_answeredAt = vlorshm::NowNs();
        std::memcpy(out, vlorshm::OutputOf(h), size_t(samples) * sizeof(float));
    }

private:
    vlorshm::Region m_region;
    vlorshm::Spin m_spin;
    pid_t m_child = 0;
    uint32_t m_seq = 0;
    long long m_answeredAt = 0;
};

template <typename Block> double timeBlock(Block&& block, long paceNs)
{
    if (paceNs > 0) {
        const long long until = vlorshm::NowNs() + paceNs;
        while (vlorshm::NowNs() < until)
            std::this_thread::sleep_for(std::chrono::nanoseconds(until - vlorshm::NowNs()));
    }
    const auto t0 = Clock::now();
    block();
    return micros(Clock::now() - t0);
}


} // namespace bench

#endif
