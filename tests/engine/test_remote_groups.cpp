// Instances that share a host program: the setting that groups them, a
// chain in one round trip, and a crash blamed on the plugin in flight.
#include "audiovst_testing.h"
#include "blpopenio.h"
#include "blsettings.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace vlortest;

namespace {

const std::string kHost = VLOR_BIN_DIR "/vlorvst";
const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";
// The fault fixtures play their input at twice their first parameter.
const std::string kGain = VLOR_FIXTURE_VST_DIR "/vlor-fault-dup-old.so";
const std::string kCrash = VLOR_FIXTURE_VST_DIR "/vlor-fault-crash-process.so";

// The host programs running for this process.
std::set<long> hostPrograms()
{
    std::set<long> pids;
    for (long pid : instanceHostPids("vlorvst"))
        if (processRuns(pid, 0))
            pids.insert(pid);
    return pids;
}

class Groups : public ::testing::Test {
protected:
    void SetUp() override { _RegisterRemoteIOCallbacks(); }
    void TearDown() override
    {
        for (_VstEffectInstance* fx : opened)
            if (!fx->Destroy(fx))
                fx->Terminate(fx);
        BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.host_groups");
        unsetenv("VLOR_FIXTURE_CRASH_AFTER");
    }
    _VstEffectInstance* member(const char* group, const std::string& plugin, int blockSize = 256)
    {
        _VstEffectInstance* fx = vlorvstCreateGroupEffect(group, kHost.c_str(), nullptr, nullptr, plugin.c_str(), 0);
        if (!fx)
            return nullptr;
        opened.push_back(fx);
        return fx->Check(fx) && fx->ActivateEngine(fx, blockSize, 44100) && fx->StartEngine(fx) ? fx : nullptr;
    }
    std::vector<_VstEffectInstance*> opened;
};

} // namespace

TEST_F(Groups, TheSettingGivesEachInstanceItsOwnHostOneAMakerOrOneForAll)
{
    AUDIOVST_Initialize();
    ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
    _VSTEFFECT* stereo = AUDIOVST_FindPluginEx(kStereo.c_str(), 0, false);
    _VSTEFFECT* gain = AUDIOVST_FindPluginEx(kGain.c_str(), 0, false);
    ASSERT_TRUE(stereo && gain);
    const struct {
        const char* setting;
        size_t hosts;
    } cases[] = {{nullptr, 4}, {"each", 4}, {"maker", 2}, {"one", 1}, {"nonsense", 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setting ? c.setting : "(none)");
        if (c.setting)
            BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.host_groups=%s", c.setting);
        else
            BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.host_groups");
        const std::set<long> before = hostPrograms();
        std::vector<_VSTINSTANCE*> instances;
        for (_VSTEFFECT* e : {stereo, stereo, gain, gain})
            instances.push_back(AUDIOVST_CreateInstance(e));
        std::vector<float> in(2 * 64, 0.25f), out(in.size());
        for (_VSTINSTANCE* i : instances) {
            ASSERT_NE(i, nullptr);
            ASSERT_TRUE(AUDIOVST_ActivateEngine(i, 64, 44100) && AUDIOVST_StartEngine(i));
            ASSERT_EQ(AUDIOVST_ProcessSamples(i, in.data(), out.data(), 2, 64), 1);
            EXPECT_EQ(out, in);
        }
        EXPECT_EQ(hostPrograms().size() - before.size(), c.hosts);
        EXPECT_EQ(AUDIOVST_SameHostProgram(instances[0], instances[1]), c.hosts < 4);
        EXPECT_EQ(AUDIOVST_SameHostProgram(instances[1], instances[2]), c.hosts == 1);
        // All four in turn, one round trip where they share a host; nothing
        // with a missing instance.
        ASSERT_EQ(AUDIOVST_ProcessChain(instances.data(), 4, in.data(), out.data(), 2, 64), 1);
        EXPECT_EQ(out, in);
        _VSTINSTANCE* withGap[] = {instances[0], nullptr};
        EXPECT_EQ(AUDIOVST_ProcessChain(withGap, 2, in.data(), out.data(), 2, 64), 0);
        EXPECT_EQ(AUDIOVST_ProcessChain(instances.data(), 0, in.data(), out.data(), 2, 64), 0);
        for (_VSTINSTANCE* i : instances) {
            AUDIOVST_StopEngine(i);
            AUDIOVST_DestroyInstance(i);
        }
        EXPECT_TRUE(waitFor([&] { return hostPrograms() == before; })) << "the last member ends its host";
    }
}

TEST_F(Groups, AChainOfMembersRunsInOneRoundTripInItsOrder)
{
    const float gains[] = {0.5f, 0.25f, 1.0f, 0.75f}; // times 1, 0.5, 2 and 1.5
    std::vector<_VstEffectInstance*> chain;
    for (float g : gains) {
        _VstEffectInstance* fx = member("chain", kGain);
        ASSERT_NE(fx, nullptr);
        ASSERT_EQ(fx->SetParameter(fx, 0, g), 1);
        chain.push_back(fx);
    }
    EXPECT_EQ(vlorvstGroupSize(chain[0]), 4);
    std::vector<float> in(2 * 256, 0.1f), out(in.size());
    ASSERT_EQ(vlorvstProcessChain(chain.data(), 4, in.data(), out.data(), 2, 256), 1);
    EXPECT_FLOAT_EQ(out[0], 0.1f * 1.5f);
    EXPECT_FLOAT_EQ(out[511], 0.1f * 1.5f);
    // The first carried the block; the others' regions were not rung.
    EXPECT_EQ(vlorvstBlocksShared(chain[0]), 1);
    for (int k = 1; k < 4; ++k)
        EXPECT_EQ(vlorvstBlocksShared(chain[k]), 0) << k;
    // A parameter set since travels with the chain's next block.
    ASSERT_EQ(chain[2]->SetParameter(chain[2], 0, 0.5f), 1);
    ASSERT_EQ(vlorvstProcessChain(chain.data(), 4, in.data(), out.data(), 2, 256), 1);
    EXPECT_FLOAT_EQ(out[0], 0.1f * 0.75f);
    // An instance of another group breaks the chain into calls one by one.
    _VstEffectInstance* stranger = member("elsewhere", kGain);
    ASSERT_NE(stranger, nullptr);
    std::vector<_VstEffectInstance*> mixed = {chain[0], stranger, chain[1]};
    ASSERT_EQ(vlorvstProcessChain(mixed.data(), 3, in.data(), out.data(), 2, 256), 1);
    EXPECT_FLOAT_EQ(out[0], 0.1f * 0.5f);
    EXPECT_EQ(vlorvstBlocksShared(chain[1]), 1);
}

TEST_F(Groups, ACrashIsToldToEveryMemberAndBlamedOnThePluginInFlight)
{
    setenv("VLOR_FIXTURE_CRASH_AFTER", "1", 1);
    _VstEffectInstance* calm = member("crash", kStereo);
    _VstEffectInstance* crashing = member("crash", kCrash);
    _VstEffectInstance* other = member("crash", kGain);
    ASSERT_TRUE(calm && crashing && other);
    std::vector<float> buf(2 * 256, 0.1f);
    ASSERT_EQ(crashing->ProcessAudio(crashing, buf.data(), buf.data(), 2, 256), 1);
    EXPECT_EQ(vlorvstCrashBlame(calm), -1);
    EXPECT_EQ(crashing->ProcessAudio(crashing, buf.data(), buf.data(), 2, 256), 0);
    EXPECT_EQ(vlorvstCrashBlame(crashing), 1);
    EXPECT_EQ(vlorvstCrashBlame(calm), 0);
    EXPECT_EQ(vlorvstCrashBlame(other), 0);
    for (_VstEffectInstance* fx : {calm, other}) {
        EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 256), 0);
        EXPECT_EQ(fx->Check(fx), 0);
    }
    // A member made now gets a new host program.
    unsetenv("VLOR_FIXTURE_CRASH_AFTER");
    _VstEffectInstance* next = member("crash", kGain);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(vlorvstGroupSize(next), 1);
    ASSERT_EQ(next->ProcessAudio(next, buf.data(), buf.data(), 2, 256), 1);
    EXPECT_FLOAT_EQ(buf[0], 0.1f);
}

TEST_F(Groups, ACrashInAChainIsBlamedOnTheMemberThatRan)
{
    setenv("VLOR_FIXTURE_CRASH_AFTER", "0", 1);
    _VstEffectInstance* first = member("chain-crash", kGain);
    _VstEffectInstance* crashing = member("chain-crash", kCrash);
    _VstEffectInstance* last = member("chain-crash", kGain);
    ASSERT_TRUE(first && crashing && last);
    std::vector<_VstEffectInstance*> chain = {first, crashing, last};
    std::vector<float> buf(2 * 256, 0.1f);
    EXPECT_EQ(vlorvstProcessChain(chain.data(), 3, buf.data(), buf.data(), 2, 256), 0);
    EXPECT_EQ(vlorvstCrashBlame(crashing), 1);
    EXPECT_EQ(vlorvstCrashBlame(first), 0);
    EXPECT_EQ(vlorvstCrashBlame(last), 0);
}

TEST_F(Groups, TheLastMemberEndsItsHostAndTheNextOneStartsAnother)
{
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const std::set<long> before = hostPrograms();
        _VstEffectInstance* fx = member("again", kGain);
        ASSERT_NE(fx, nullptr);
        const std::set<long> during = hostPrograms();
        EXPECT_EQ(during.size(), before.size() + 1);
        std::vector<float> buf(2 * 256, 0.1f);
        ASSERT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 256), 1);
        ASSERT_EQ(fx->Destroy(fx), 1);
        opened.clear();
        EXPECT_TRUE(waitFor([&] { return hostPrograms() == before; }));
    }
}
