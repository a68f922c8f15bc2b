// A thousand remote instances created, run and ended in every way an
// instance ends: no region, descriptor or process may outlive them.
#include "audiovst_testing.h"
#include "blpopenio.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

int countEntries(const char* dir)
{
    int n = 0;
    if (DIR* d = opendir(dir)) {
        while (dirent* e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

int ourRegionsMapped()
{
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);)
        n += line.find("memfd:vlor-audio") != std::string::npos;
    return n;
}

// Children of ours, zombies too.
int ourChildren()
{
    int n = 0;
    DIR* d = opendir("/proc");
    if (!d)
        return -1;
    const long self = long(getpid());
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] < '0' || e->d_name[0] > '9')
            continue;
        std::ifstream stat(std::string("/proc/") + e->d_name + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        const size_t close = text.rfind(')');
        long ppid = 0;
        char state = 0;
        if (close != std::string::npos && std::sscanf(text.c_str() + close + 1, " %c %ld", &state, &ppid) == 2)
            n += ppid == self;
    }
    closedir(d);
    return n;
}

struct Resources {
    int fds, regions, shm, children;
    bool operator==(const Resources& o) const
    {
        return fds == o.fds && regions == o.regions && shm == o.shm && children == o.children;
    }
};

Resources resources()
{
    return {countEntries("/proc/self/fd"), ourRegionsMapped(), countEntries("/dev/shm"), ourChildren()};
}

std::ostream& operator<<(std::ostream& os, const Resources& r)
{
    return os << r.fds << " descriptors, " << r.regions << " regions, " << r.shm << " in /dev/shm, " << r.children
              << " children";
}

// One life: made, activated, a block, and its end: 0 a clean "exit", 1 its
// host killed before a block (seen by the block), 2 ended while it plays.
bool live(const std::string& command, int end)
{
    _VstEffectInstance* fx = vlorvstCreateRemoteEffect(nullptr, nullptr, "%s", command.c_str());
    if (!fx)
        return false;
    std::vector<float> buf(2 * 64, 0.5f);
    bool ok = fx->Check(fx) && fx->ActivateEngine(fx, 64, 44100) && fx->StartEngine(fx) &&
              vlorvstUsesSharedAudio(fx) && fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64);
    if (end == 1) {
        kill(BLPOPENIO_GetPid(static_cast<BLPOpenIO>(vlorvstGetIO(fx))), SIGKILL);
        ok = ok && !fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64) && !vlorvstUsesSharedAudio(fx);
    }
    if (end == 2 || !fx->Destroy(fx)) {
        ok = ok && end != 0;
        fx->Terminate(fx);
    }
    return ok;
}

} // namespace

TEST(RemoteAudioLeaks, AThousandInstancesLeaveNoRegionDescriptorOrProcess)
{
    _RegisterRemoteIOCallbacks();
    vlorvstSetSharedAudio(1);
    const std::string command = "\"" VLOR_BIN_DIR "/vlorvst\" --fxinstance \"" VLOR_FIXTURE_VST_DIR
                                "/vlor-fixture-stereo.so\" --id 0";
    // One life first: whatever the process sets up once is there before the count.
    ASSERT_TRUE(live(command, 0));
    const Resources before = resources();
    constexpr int kLives = 1000, kThreads = 4;
    std::vector<int> failed(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int k = t; k < kLives; k += kThreads)
                failed[size_t(t)] += !live(command, k % 3);
        });
    }
    for (std::thread& t : threads)
        t.join();
    int failures = 0;
    for (int f : failed)
        failures += f;
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(resources(), before);
}
