// Audio of remote instances through the shared region: the same results as
// the pipe, parameters and events with the blocks, hosts that die or hang in
// a block, and nothing left behind by a thousand instances.
#include "audiovst_testing.h"
#include "blpopenio.h"
#include "blsettings.h"
#include "shmaudio_p.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace vlortest;

namespace {

const std::string kHost = VLOR_BIN_DIR "/vlorvst";
const std::string kFixtures = VLOR_FIXTURE_VST_DIR;
using Clock = std::chrono::steady_clock;

struct Events {
    std::vector<_VstEffectMessage> seen;
    static int callback(void* user, _VstEffectMessage* m)
    {
        static_cast<Events*>(user)->seen.push_back(*m);
        return 1;
    }
};

class RemoteAudio : public ::testing::Test {
protected:
    void SetUp() override { _RegisterRemoteIOCallbacks(); }
    void TearDown() override
    {
        vlorvstSetSharedAudio(-1);
        for (_VstEffectInstance* fx : opened)
            if (!fx->Destroy(fx))
                fx->Terminate(fx);
    }
    // A started instance of a fixture, its audio shared or on the pipe.
    _VstEffectInstance* start(const std::string& plugin, bool shared, int blockSize = 1024)
    {
        vlorvstSetSharedAudio(shared ? 1 : 0);
        _VstEffectInstance* fx = vlorvstCreateRemoteEffect(Events::callback, &events,
                                                           "\"%s\" --fxinstance \"%s\" --id 0", kHost.c_str(),
                                                           (kFixtures + "/" + plugin).c_str());
        if (!fx)
            return nullptr;
        opened.push_back(fx);
        if (!fx->Check(fx) || !fx->ActivateEngine(fx, blockSize, 44100) || !fx->StartEngine(fx))
            return nullptr;
        return fx;
    }
    static pid_t hostOf(_VstEffectInstance* fx) { return BLPOPENIO_GetPid(static_cast<BLPOpenIO>(vlorvstGetIO(fx))); }
    void forget(_VstEffectInstance* fx) { opened.erase(std::find(opened.begin(), opened.end(), fx)); }

    Events events;
    std::vector<_VstEffectInstance*> opened;
};

std::vector<float> noise(size_t n, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> v(n);
    for (float& x : v)
        x = d(gen);
    return v;
}

} // namespace

TEST_F(RemoteAudio, BlocksThroughTheRegionMatchThePipeAtEverySize)
{
    const struct {
        int channels, frames;
    } cases[] = {{2, 64}, {2, 256}, {2, 1024}, {2, 4096}, {1, 512}, {2, 0}};
    _VstEffectInstance* shared = start("vlor-fixture-stereo.so", true, 4096);
    _VstEffectInstance* pipe = start("vlor-fixture-stereo.so", false, 4096);
    ASSERT_TRUE(shared && pipe);
    EXPECT_EQ(vlorvstUsesSharedAudio(shared), 1);
    EXPECT_EQ(vlorvstUsesSharedAudio(pipe), 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.channels << " x " << c.frames);
        const std::vector<float> in = noise(size_t(c.channels * c.frames), unsigned(c.frames));
        std::vector<float> viaShared(in.size(), 9.0f), viaPipe(in.size(), 7.0f);
        ASSERT_EQ(shared->ProcessAudio(shared, in.data(), viaShared.data(), c.channels, c.frames), 1);
        ASSERT_EQ(pipe->ProcessAudio(pipe, in.data(), viaPipe.data(), c.channels, c.frames), 1);
        EXPECT_EQ(viaShared, viaPipe);
        EXPECT_EQ(viaShared, in); // the fixture passes its audio through
    }
    EXPECT_EQ(vlorvstUsesSharedAudio(shared), 1);
}

TEST_F(RemoteAudio, ABlockLargerThanTheRegionTakesThePipe)
{
    _VstEffectInstance* fx = start("vlor-fixture-stereo.so", true, 64); // a region of 8 x 64 samples
    ASSERT_NE(fx, nullptr);
    const std::vector<float> in = noise(2 * 1024, 3);
    std::vector<float> out(in.size());
    ASSERT_EQ(fx->ProcessAudio(fx, in.data(), out.data(), 2, 1024), 1);
    EXPECT_EQ(out, in);
    EXPECT_EQ(vlorvstUsesSharedAudio(fx), 1) << "the next small block takes the region again";
}

TEST_F(RemoteAudio, ParametersSetInPlaybackTravelWithTheNextBlockInOrder)
{
    // The fault fixtures play their input at twice their first parameter.
    _VstEffectInstance* fx = start("vlor-fault-dup-old.so", true);
    ASSERT_NE(fx, nullptr);
    std::vector<float> in(2 * 64, 1.0f), out(in.size());
    const struct {
        std::vector<float> sets;
        float gain;
    } cases[] = {{{0.25f}, 0.5f}, {{0.1f, 0.4f}, 0.8f}, {std::vector<float>(200, 0.05f), 0.1f}};
    for (const auto& c : cases) {
        for (size_t k = 0; k < c.sets.size(); ++k)
            ASSERT_EQ(fx->SetParameter(fx, 0, c.sets[k] + (k + 1 < c.sets.size() ? 0.01f * float(k % 7) : 0.0f)), 1);
        ASSERT_EQ(fx->ProcessAudio(fx, in.data(), out.data(), 2, 64), 1);
        EXPECT_FLOAT_EQ(out[0], c.gain) << c.sets.size() << " sets";
    }
    // A query after a set sees it, with no block between.
    ASSERT_EQ(fx->SetParameter(fx, 1, 0.75f), 1);
    float v = 0;
    ASSERT_EQ(fx->GetParameter(fx, 1, &v), 1);
    EXPECT_FLOAT_EQ(v, 0.75f);
    // An index the plugin does not have is refused, as on the pipe.
    EXPECT_EQ(fx->SetParameter(fx, 2, 0.5f), 0);
    EXPECT_EQ(fx->SetParameter(fx, -1, 0.5f), 0);
}

TEST_F(RemoteAudio, AnEventRaisedInABlockArrivesWithIt)
{
    _VstEffectInstance* fx = start("vlor-fault-resize.so", true);
    ASSERT_NE(fx, nullptr);
    std::vector<float> buf(2 * 64, 0.5f);
    ASSERT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 1);
    ASSERT_EQ(events.seen.size(), 1u);
    EXPECT_EQ(events.seen[0].width, 320);
    EXPECT_EQ(events.seen[0].height, 240);
    EXPECT_EQ(events.seen[0].instance, fx);
}

TEST_F(RemoteAudio, AHostKilledInABlockIsSeenWithinASlice)
{
    _VstEffectInstance* fx = start("vlor-fault-hang-process.so", true, 64);
    ASSERT_NE(fx, nullptr);
    const pid_t host = hostOf(fx);
    ASSERT_GT(host, 0);
    std::thread killer([host] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        kill(host, SIGKILL);
    });
    std::vector<float> buf(2 * 64, 0.5f);
    const auto t0 = Clock::now();
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 0);
    killer.join();
    // Well inside the read timeout of five seconds: a block's time and a
    // slice after the kill, with room for a loaded machine.
    EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(2000));
    EXPECT_EQ(vlorvstUsesSharedAudio(fx), 0);
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 0);
    EXPECT_EQ(fx->Destroy(fx), 0);
    EXPECT_EQ(fx->Terminate(fx), 1);
    forget(fx);
}

TEST_F(RemoteAudio, AHostStuckInABlockCostsOneTimeoutThenFailsAtOnce)
{
    _VstEffectInstance* fx = start("vlor-fault-hang-process.so", true, 64);
    ASSERT_NE(fx, nullptr);
    std::vector<float> buf(2 * 64, 0.5f);
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 0);
    const auto t0 = Clock::now();
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 0);
    EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(500));
    EXPECT_EQ(fx->Terminate(fx), 1);
    forget(fx);
}

TEST_F(RemoteAudio, ThePipeStaysWhenTheSettingAsksOrTheHostCannotMapTheRegion)
{
    const struct {
        const char* value;
        int shared;
    } settings[] = {{nullptr, 1}, {"pipe", 0}, {"shared_memory", 1}, {"something else", 1}};
    for (const auto& c : settings) {
        SCOPED_TRACE(c.value ? c.value : "(none)");
        if (c.value)
            BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.remote_audio=%s", c.value);
        else
            BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.remote_audio");
        vlorvstSetSharedAudio(-1);
        EXPECT_EQ(vlorvstGetSharedAudio(), c.shared);
        _VstEffectInstance* fx = vlorvstCreateRemoteEffect(nullptr, nullptr, "\"%s\" --fxinstance \"%s\" --id 0",
                                                           kHost.c_str(), (kFixtures + "/vlor-fixture-stereo.so").c_str());
        ASSERT_NE(fx, nullptr);
        opened.push_back(fx);
        ASSERT_TRUE(fx->Check(fx) && fx->ActivateEngine(fx, 64, 44100));
        EXPECT_EQ(vlorvstUsesSharedAudio(fx), c.shared);
    }
    BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.remote_audio");
    // A host that cannot map the region: the audio stays on its pipe.
    vlorvstSetSharedAudio(1);
    _VstEffectInstance* old = vlorvstCreateRemoteEffect(nullptr, nullptr, "%s %s", VLOR_BIN_DIR "/fake_vlorvst", "wrong");
    ASSERT_NE(old, nullptr);
    opened.push_back(old);
    ASSERT_EQ(old->Check(old), 1);
    ASSERT_EQ(old->ActivateEngine(old, 64, 44100), 1);
    ASSERT_EQ(old->StartEngine(old), 1);
    EXPECT_EQ(vlorvstUsesSharedAudio(old), 0);
    std::vector<float> in = noise(128, 5), out(128);
    ASSERT_EQ(old->ProcessAudio(old, in.data(), out.data(), 2, 64), 1);
    EXPECT_EQ(out, in);
}

TEST(SharedRegion, TheHostRefusesARegionItCannotTrust)
{
    enum Flaw { None, Unsealed, Smaller, OtherMagic, OtherVersion, NoSuchProcess, NoSuchDescriptor };
    const struct {
        Flaw flaw;
        bool attaches;
    } cases[] = {{None, true},          {Unsealed, false},     {Smaller, false},          {OtherMagic, false},
                 {OtherVersion, false}, {NoSuchProcess, false}, {NoSuchDescriptor, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(int(c.flaw));
        const int samples = 1024;
        vlorshm::Region mine;
        int fd = -1, pid = int(getpid()), asked = samples;
        if (c.flaw == Unsealed) {
            fd = int(syscall(SYS_memfd_create, "unsealed", MFD_CLOEXEC));
            ASSERT_EQ(ftruncate(fd, off_t(vlorshm::RegionSize(samples))), 0);
        } else {
            ASSERT_TRUE(mine.create(samples));
            fd = mine.fd();
        }
        if (c.flaw == Smaller)
            asked = samples * 4;
        if (c.flaw == OtherMagic)
            mine.header()->magic ^= 1;
        if (c.flaw == OtherVersion)
            mine.header()->version += 1;
        if (c.flaw == NoSuchProcess)
            pid = 0x3ffffff0;
        if (c.flaw == NoSuchDescriptor)
            fd = 1000;
        vlorshm::Region theirs;
        EXPECT_EQ(theirs.attach(pid, fd, asked), c.attaches);
        if (c.attaches) {
            // One memory: what one side writes, the other reads.
            vlorshm::InputOf(mine.header())[samples - 1] = 0.125f;
            EXPECT_EQ(vlorshm::InputOf(theirs.header())[samples - 1], 0.125f);
        }
        if (c.flaw == Unsealed)
            close(fd);
    }
}
