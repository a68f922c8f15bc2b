// Plugin instances in the host program, driven over the wire: the real host
// with test and system plugins, and a fake one that misbehaves on purpose.
#include "audiovst.h"
#include "remote_p.h"
#include "vlorvst_protocol.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

using namespace vlortest;

namespace {

const std::string kHost = VLOR_BIN_DIR "/vlorvst";
const std::string kFake = VLOR_BIN_DIR "/fake_vlorvst";
const std::string kFixtures = VLOR_FIXTURE_VST_DIR;

struct Events {
    std::vector<_VstEffectMessage> seen;
    static int callback(void* user, _VstEffectMessage* m)
    {
        static_cast<Events*>(user)->seen.push_back(*m);
        return 1;
    }
};

class Remote : public ::testing::Test {
protected:
    void SetUp() override { _RegisterRemoteIOCallbacks(); }
    void TearDown() override
    {
        if (fx && !fx->Destroy(fx))
            fx->Terminate(fx);
    }
    _VstEffectInstance* open(const std::string& plugin, int id = 0)
    {
        fx = vlorvstCreateRemoteEffect(Events::callback, &events, "\"%s\" --fxinstance \"%s\" --id %d", kHost.c_str(),
                                       plugin.c_str(), id);
        return fx;
    }
    _VstEffectInstance* openFake(const char* mode)
    {
        fx = vlorvstCreateRemoteEffect(Events::callback, &events, "%s %s", kFake.c_str(), mode);
        return fx;
    }
    Events events;
    _VstEffectInstance* fx = nullptr;
};

using Clock = std::chrono::steady_clock;

} // namespace

TEST_F(Remote, AWholeLifeOverTheWireMatchesTheInProcessResults)
{
    ASSERT_NE(open(kFixtures + "/vlor-fixture-stereo.so"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    EXPECT_EQ(fx->GetNumParams(fx), 4);
    EXPECT_EQ(fx->GetNumPrograms(fx), 3);
    EXPECT_EQ(fx->GetTailSize(fx), 4410);
    EXPECT_EQ(fx->CanEdit(fx), 1);

    ASSERT_EQ(fx->SetParameter(fx, 0, 0.5f - 12.5f / 48.0f), 1);
    char text[64];
    ASSERT_EQ(fx->GetCurrentDisplayValue(fx, 0, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "-12.5 d"); // cut in the host as in process
    ASSERT_EQ(fx->GetDisplayValue(fx, 1, 1.0f, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "On");
    ASSERT_EQ(fx->SetProgram(fx, 2), 1);
    int program = -1;
    ASSERT_EQ(fx->GetProgram(fx, &program), 1);
    EXPECT_EQ(program, 2);
    ASSERT_EQ(fx->GetProgramName(fx, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "A Program Name Longer T");
    ASSERT_EQ(fx->SetProgramName(fx, "Mine"), 1);
    ASSERT_EQ(fx->SetStringParameter(fx, 0, "0.5"), 1);
    float values[4] = {0.5f, 0.0f, 0.25f, 0.0f};
    ASSERT_EQ(fx->SetParameters(fx, values, 4), 1);
    float back[4] = {};
    ASSERT_EQ(fx->GetParameters(fx, back, 4), 1);
    EXPECT_FLOAT_EQ(back[2], 0.25f);
    EXPECT_EQ(fx->GetParameters(fx, back, 3), 0); // a count other than the host's fails

    EXPECT_EQ(fx->StartEngine(fx), 0); // not activated: nothing is sent
    ASSERT_EQ(fx->ActivateEngine(fx, 512, 44100), 1);
    EXPECT_EQ(fx->ActivateEngine(fx, 512, 44100), 0);
    ASSERT_EQ(fx->StartEngine(fx), 1);
    EXPECT_EQ(fx->DeactivateEngine(fx), 0); // started: refused
    std::vector<float> in(512 * 2), out(512 * 2);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = float(std::sin(0.01 * double(i)));
    ASSERT_EQ(fx->ProcessAudio(fx, in.data(), out.data(), 2, 512), 1);
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_FLOAT_EQ(out[i], in[i]);
    // A missing input is silence; a missing output still takes the answer.
    ASSERT_EQ(fx->ProcessAudio(fx, nullptr, out.data(), 2, 512), 1);
    EXPECT_EQ(out[100], 0.0f);
    ASSERT_EQ(fx->ProcessAudio(fx, in.data(), nullptr, 2, 512), 1);
    ASSERT_EQ(fx->StopEngine(fx), 1);
    EXPECT_EQ(fx->ProcessAudio(fx, in.data(), out.data(), 2, 512), 0);
    ASSERT_EQ(fx->DeactivateEngine(fx), 1);
    ASSERT_EQ(fx->Destroy(fx), 1);
    fx = nullptr;
}

TEST_F(Remote, EditorResizeArrivesAsAnEvent)
{
    ASSERT_NE(open(kFixtures + "/vlor-fixture-stereo.so"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    int w = 0, h = 0;
    ASSERT_EQ(fx->EditorGetSize(fx, &w, &h), 1);
    EXPECT_EQ(w, 300);
    EXPECT_EQ(h, 200);
    EXPECT_EQ(fx->EditorIdle(fx), 0); // not open yet
    EXPECT_EQ(fx->EditorOpen(fx, nullptr), 0); // no window
    ASSERT_EQ(fx->EditorOpen(fx, reinterpret_cast<void*>(0x1234)), 1);
    ASSERT_EQ(events.seen.size(), 1u);
    EXPECT_EQ(events.seen[0].type, 0);
    EXPECT_EQ(events.seen[0].width, 400);
    EXPECT_EQ(events.seen[0].height, 250);
    EXPECT_EQ(events.seen[0].instance, fx);
    EXPECT_EQ(fx->EditorOpen(fx, reinterpret_cast<void*>(0x1234)), 0); // already open
    EXPECT_EQ(fx->EditorIdle(fx), 1);
    EXPECT_EQ(fx->EditorClose(fx, reinterpret_cast<void*>(0x1234)), 1);
    EXPECT_EQ(fx->EditorClose(fx, reinterpret_cast<void*>(0x1234)), 0);
}

TEST_F(Remote, AnEventBeforeTheAnswerOfGetIsDeliveredAndTheFloatStillArrives)
{
    ASSERT_NE(open(kFixtures + "/vlor-fault-resize.so"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    ASSERT_EQ(fx->SetParameter(fx, 1, 0.75f), 1);
    events.seen.clear();
    float v = 0;
    ASSERT_EQ(fx->GetParameter(fx, 1, &v), 1);
    EXPECT_FLOAT_EQ(v, 0.75f);
    ASSERT_GE(events.seen.size(), 1u);
    EXPECT_EQ(events.seen.back().width, 640);
    EXPECT_EQ(events.seen.back().height, 480);
}

TEST_F(Remote, TwoEventsWaitingAreBothDeliveredByTheNextCommand)
{
    ASSERT_NE(openFake("events"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    // The events came unasked after the answer; the next command drains them.
    float v = 0;
    for (int tries = 0; tries < 200 && BLPOPENIO_GetBytesReadAvailable(static_cast<BLPOpenIO>(vlorvstGetIO(fx))) < 32;
         ++tries)
        usleep(5000);
    ASSERT_EQ(fx->GetParameter(fx, 0, &v), 1);
    EXPECT_FLOAT_EQ(v, 0.25f);
    ASSERT_EQ(events.seen.size(), 2u);
    EXPECT_EQ(events.seen[0].width, 100);
    EXPECT_EQ(events.seen[1].width, 200);
    EXPECT_EQ(events.seen[1].height, 20);
}

TEST_F(Remote, PluginChatterNeverReachesTheProtocol)
{
    ASSERT_NE(open(kFixtures + "/vlor-fault-chatty.so"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    ASSERT_EQ(fx->ActivateEngine(fx, 64, 44100), 1);
    ASSERT_EQ(fx->StartEngine(fx), 1);
    std::vector<float> buf(128, 0.5f);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 64), 1);
    float v = 0;
    EXPECT_EQ(fx->GetParameter(fx, 0, &v), 1);
    EXPECT_FLOAT_EQ(v, 0.5f);
}

TEST_F(Remote, AHostThatDiesMidBlockFailsAtOnceAndOnlyTerminateRemains)
{
    setenv("VLOR_FIXTURE_CRASH_AFTER", "2", 1);
    ASSERT_NE(open(kFixtures + "/vlor-fault-crash-process.so"), nullptr);
    unsetenv("VLOR_FIXTURE_CRASH_AFTER");
    ASSERT_EQ(fx->Check(fx), 1);
    ASSERT_EQ(fx->ActivateEngine(fx, 256, 44100), 1);
    ASSERT_EQ(fx->StartEngine(fx), 1);
    std::vector<float> buf(512, 0.1f);
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 256), 1);
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 256), 1);
    const auto start = Clock::now();
    EXPECT_EQ(fx->ProcessAudio(fx, buf.data(), buf.data(), 2, 256), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(5500));
    EXPECT_EQ(fx->Check(fx), 0);
    EXPECT_EQ(fx->Destroy(fx), 0); // the record stays
    EXPECT_EQ(fx->Terminate(fx), 1);
    fx = nullptr;
}

TEST_F(Remote, AHostThatNeverAnswersCostsOneReadTimeout)
{
    ASSERT_NE(openFake("silent"), nullptr);
    const auto start = Clock::now();
    EXPECT_EQ(fx->Check(fx), 0);
    const auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(4900));
    EXPECT_LT(elapsed, std::chrono::milliseconds(7000));
    EXPECT_EQ(fx->Terminate(fx), 1);
    fx = nullptr;
}

TEST_F(Remote, APluginThatCannotOpenFailsItsFirstCheck)
{
    for (const char* plugin : {"/vlor-fault-crash-entry.so", "/vlor-fault-crash-open.so", "/missing.so"}) {
        ASSERT_NE(open(kFixtures + plugin), nullptr) << plugin;
        EXPECT_EQ(fx->Check(fx), 0) << plugin;
        EXPECT_EQ(fx->Terminate(fx), 1);
        fx = nullptr;
    }
}

TEST_F(Remote, WrongCountsAndStaleAnswersFailWithoutHarm)
{
    ASSERT_NE(openFake("wrong"), nullptr);
    float values[2];
    EXPECT_EQ(fx->GetParameters(fx, values, 2), 0);
    EXPECT_EQ(fx->Terminate(fx), 1);

    ASSERT_NE(openFake("stale"), nullptr);
    ASSERT_EQ(fx->Check(fx), 1);
    for (int tries = 0; tries < 200 && BLPOPENIO_GetBytesReadAvailable(static_cast<BLPOpenIO>(vlorvstGetIO(fx))) < 4;
         ++tries)
        usleep(5000);
    // The late second answer is thrown away by the next command's drain.
    EXPECT_EQ(fx->Check(fx), 1);
}

TEST(RemoteWire, StringsAndVectorsRespectTheirBounds)
{
    // A pipe to ourselves through the fake host's echo of "aud ".
    _RegisterRemoteIOCallbacks();
    void* io = nullptr;
    ASSERT_EQ(vlorvstOpenIO((kFake + " echo").c_str(), &io), 1);
    const float samples[4] = {1, 2, 3, 4};
    ASSERT_EQ(vlorvstSendCommand(io, VLORVST_PROCESS), 1);
    ASSERT_EQ(vlorvstSendIntValue(io, 2), 1);
    ASSERT_EQ(vlorvstSendIntValue(io, 2), 1);
    ASSERT_EQ(vlorvstSendFloatVector(io, samples, 4), 1);
    int32_t tag = 0;
    ASSERT_EQ(vlorvstRecvCommand(io, &tag), 1);
    EXPECT_EQ(tag, VLORVST_OK);
    // The answer's count (4) read as a string length: equal to the buffer size fails.
    char text[4];
    EXPECT_EQ(vlorvstRecvString(io, text, 4), 0);
    EXPECT_EQ(vlorvsTerminateIO(io) >= 0, true);

    // Without callbacks only a null command "opens".
    vlorvstRegisterIOCallbacks(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(vlorvstOpenIO(nullptr, &io), 1);
    EXPECT_EQ(vlorvstOpenIO("x", &io), 0);
    _RegisterRemoteIOCallbacks();
    EXPECT_EQ(vlorvstOpenIO(nullptr, &io), 0);
}

TEST_F(Remote, RealPluginsRunInTheHost)
{
    const auto plugins = {"/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst/MVerb-vst.so"};
    if (const std::string missing = missingFile(plugins); !missing.empty())
        GTEST_SKIP() << missing << " is not installed";
    for (const char* plugin : plugins) {
        ASSERT_NE(open(plugin), nullptr);
        ASSERT_EQ(fx->Check(fx), 1) << plugin;
        ASSERT_EQ(fx->ActivateEngine(fx, 1024, 48000), 1);
        ASSERT_EQ(fx->StartEngine(fx), 1);
        std::vector<float> in(2048), out(2048);
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = 0.3f * float(std::sin(0.02 * double(i / 2)));
        double energy = 0;
        for (int b = 0; b < 20; ++b) {
            ASSERT_EQ(fx->ProcessAudio(fx, in.data(), out.data(), 2, 1024), 1);
            for (float v : out) {
                ASSERT_TRUE(std::isfinite(v));
                energy += double(v) * v;
            }
        }
        EXPECT_GT(energy, 0.0) << plugin;
        ASSERT_EQ(fx->Destroy(fx), 1) << plugin; // stops, deactivates on exit
        fx = nullptr;
    }
}

TEST(HostProgram, DiesWithItsParent)
{
    // A shell starts the host and is then killed; the host must follow it.
    // Nothing of the script keeps the test's own output open once it is done.
    const std::string script = "exec 2>/dev/null; sleep 5 | '" + kHost + "' --fxinstance '" + kFixtures +
                               "/vlor-fixture-stereo.so' --id 0 & echo $!; wait";
    BLPOpenIO io = BLPOPENIO_Create("r", ("/bin/sh -c \"" + script + "\"").c_str());
    ASSERT_NE(io, nullptr);
    char buf[32] = {};
    ASSERT_GT(BLPOPENIO_ReadDataEx(io, buf, sizeof(buf) - 1, 5000), 0);
    const pid_t host = pid_t(std::atoi(buf));
    ASSERT_GT(host, 0);
    usleep(100000); // let the host load its plugin
    EXPECT_EQ(kill(host, 0), 0);
    BLPOPENIO_CloseEx(io, 0, 0); // kills the shell
    bool gone = false;
    for (int i = 0; i < 200 && !gone; ++i) {
        gone = kill(host, 0) != 0;
        usleep(10000);
    }
    EXPECT_TRUE(gone);
}

TEST(HostProgram, AnswersTrueAndFalseAndRefusesBadArguments)
{
    EXPECT_EQ(BLCORE_Spawn("%s --true", kHost.c_str()), 1);
    EXPECT_EQ(BLCORE_Spawn("%s --false", kHost.c_str()), 0);
    EXPECT_EQ(BLCORE_Spawn("%s --check", kHost.c_str()), 2);
    EXPECT_EQ(BLCORE_Spawn("%s --bogus x --id 1", kHost.c_str()), 2);
    EXPECT_EQ(BLCORE_Spawn("%s --check /nonexistent.so --id 0", kHost.c_str()), VLORVST_CHECK_UNSUPPORTED);
}
