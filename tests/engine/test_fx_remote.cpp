// VST3 and LV2 instances in host programs of their own sound, answer and
// keep state as they do in this process; their editors are made over there;
// the isolation setting decides where an instance runs.
#include "fx_remote_fixture.h"

#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace fxremote_test {
namespace {

struct Events {
    std::vector<std::vector<int>> seen;
    static void vst3(void* user, Vst3HostEvent e, int32_t a, int32_t b)
    {
        static_cast<Events*>(user)->seen.push_back({int(e), a, b});
    }
    static void lv2(void* user, int e, int a, int b) { static_cast<Events*>(user)->seen.push_back({e, a, b}); }
    bool has(int e, int a, int b) const
    {
        for (const auto& s : seen)
            if (s[0] == e && s[1] == a && s[2] == b)
                return true;
        return false;
    }
};

// Blocks of every size, one larger than the shared region takes at once.
const int kFrames[] = {0, 1, 64, 1000, 4096, 40000};

TEST_F(FxRemote, Vst3InAHostProgramSoundsAsInThisProcess)
{
    Vst3 here = MakeVst3(0), there = MakeVst3(1);
    ASSERT_TRUE(here && there);
    EXPECT_EQ(VLORVST3_GetRemoteState(here.get()), kVst3Local);
    EXPECT_EQ(VLORVST3_GetRemoteState(there.get()), kVst3RemoteAlive);
    EXPECT_GT(VLORVST3_GetRemotePid(there.get()), 0);
    for (_Vst3Instance* fx : {here.get(), there.get()})
        ASSERT_EQ(VLORVST3_SetParamNormalized(fx, kGainId, 0.8), 1);
    for (int frames : kFrames) {
        SCOPED_TRACE(frames);
        // One frame more than the block: no empty block has null buffers.
        const std::vector<float> in = Noise(2, frames + 1, unsigned(frames));
        std::vector<float> a(in.size(), -9.0f), b(in.size(), -9.0f);
        ASSERT_EQ(VLORVST3_ProcessAudio(here.get(), in.data(), a.data(), 2, frames), 1);
        ASSERT_EQ(VLORVST3_ProcessAudio(there.get(), in.data(), b.data(), 2, frames), 1);
        EXPECT_EQ(a, b);
    }
    // A reset keeps the engine running, over there as here.
    for (_Vst3Instance* fx : {here.get(), there.get()}) {
        EXPECT_EQ(VLORVST3_Reset(fx), 1);
        std::vector<float> in = Noise(2, 64), out(in.size());
        EXPECT_EQ(VLORVST3_ProcessAudio(fx, in.data(), out.data(), 2, 64), 1);
    }
    EXPECT_DOUBLE_EQ(VLORVST3_GetLatency(here.get()), VLORVST3_GetLatency(there.get()));
    EXPECT_DOUBLE_EQ(VLORVST3_GetTailTime(here.get()), VLORVST3_GetTailTime(there.get()));
    int in[2] = {}, out[2] = {};
    EXPECT_EQ(VLORVST3_GetBusChannels(here.get(), &in[0], &out[0]), 1);
    EXPECT_EQ(VLORVST3_GetBusChannels(there.get(), &in[1], &out[1]), 1);
    EXPECT_EQ(in[0], in[1]);
    EXPECT_EQ(out[0], out[1]);
}

TEST_F(FxRemote, Lv2InAHostProgramSoundsAsInThisProcess)
{
    Lv2 here = MakeLv2(0, "gain"), there = MakeLv2(1, "gain");
    ASSERT_TRUE(here && there);
    EXPECT_EQ(VLORLV2_GetRemoteState(there.get()), kLv2RemoteAlive);
    for (_Lv2Instance* fx : {here.get(), there.get()})
        ASSERT_EQ(VLORLV2_SetParam(fx, 0, 6.0f), 1);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(there.get(), 0), 6.0f);
    for (int frames : kFrames) {
        SCOPED_TRACE(frames);
        const std::vector<float> in = Noise(2, frames + 1, unsigned(frames));
        std::vector<float> a(in.size(), -9.0f), b(in.size(), -9.0f);
        ASSERT_EQ(VLORLV2_ProcessAudio(here.get(), in.data(), a.data(), 2, frames), 1);
        ASSERT_EQ(VLORLV2_ProcessAudio(there.get(), in.data(), b.data(), 2, frames), 1);
        EXPECT_EQ(a, b);
    }
    EXPECT_EQ(VLORLV2_GetLatency(here.get()), VLORLV2_GetLatency(there.get()));
}

TEST_F(FxRemote, Vst3ParametersAndStateCrossTheWire)
{
    Vst3 here = MakeVst3(0), there = MakeVst3(1);
    ASSERT_TRUE(here && there);
    const int count = VLORVST3_GetNumParams(here.get());
    ASSERT_GT(count, 0);
    ASSERT_EQ(VLORVST3_GetNumParams(there.get()), count);
    for (int i = 0; i < count; ++i) {
        Vst3ParamInfo a{}, b{};
        ASSERT_EQ(VLORVST3_GetParamInfo(here.get(), i, &a), 1);
        ASSERT_EQ(VLORVST3_GetParamInfo(there.get(), i, &b), 1);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0) << a.title;
        char ta[128] = "", tb[128] = "";
        VLORVST3_GetParamDisplay(here.get(), a.id, 0.25, ta, sizeof(ta));
        VLORVST3_GetParamDisplay(there.get(), a.id, 0.25, tb, sizeof(tb));
        EXPECT_STREQ(ta, tb);
    }
    EXPECT_EQ(VLORVST3_GetParamInfo(there.get(), count, nullptr), 0);
    // A state saved over there, restored here, and the other way round.
    ASSERT_EQ(VLORVST3_SetParamNormalized(there.get(), kGainId, 0.3), 1);
    std::vector<float> in = Noise(2, 512), a(in.size()), b(in.size());
    VLORVST3_ProcessAudio(there.get(), in.data(), b.data(), 2, 512);
    char* config = VLORVST3_GetConfig(there.get());
    ASSERT_NE(config, nullptr);
    Events events;
    VLORVST3_SetEventCallback(here.get(), Events::vst3, &events);
    EXPECT_EQ(VLORVST3_SetConfigEx(here.get(), config, true), 1);
    VLORVST3_FreeString(config);
    EXPECT_NEAR(VLORVST3_GetParamNormalized(here.get(), kGainId), 0.3, 1e-9);
    VLORVST3_ProcessAudio(here.get(), in.data(), a.data(), 2, 512);
    EXPECT_EQ(a, b);
    // An event of the host program reaches the callback here.
    Events remoteEvents;
    VLORVST3_SetEventCallback(there.get(), Events::vst3, &remoteEvents);
    config = VLORVST3_GetConfig(here.get());
    EXPECT_EQ(VLORVST3_SetConfigEx(there.get(), config, true), 1);
    VLORVST3_FreeString(config);
    EXPECT_TRUE(remoteEvents.has(kVst3EventParamChanged, -1, 0));
    EXPECT_EQ(VLORVST3_SetParamByString(there.get(), kGainId, "nonsense words"),
              VLORVST3_SetParamByString(here.get(), kGainId, "nonsense words"));
}

TEST_F(FxRemote, Lv2ParametersAndStateCrossTheWire)
{
    Lv2 here = MakeLv2(0, "gain"), there = MakeLv2(1, "gain");
    ASSERT_TRUE(here && there);
    const int count = VLORLV2_GetNumParams(here.get());
    ASSERT_EQ(VLORLV2_GetNumParams(there.get()), count);
    for (int i = 0; i < count; ++i) {
        Lv2ParamInfo a{}, b{};
        ASSERT_EQ(VLORLV2_GetParamInfo(here.get(), i, &a), 1);
        ASSERT_EQ(VLORLV2_GetParamInfo(there.get(), i, &b), 1);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0) << a.name;
        for (int p = 0; p < a.scalePoints; ++p) {
            float va = 0, vb = 0;
            char la[64] = "", lb[64] = "";
            ASSERT_EQ(VLORLV2_GetScalePoint(here.get(), i, p, &va, la, 64), 1);
            ASSERT_EQ(VLORLV2_GetScalePoint(there.get(), i, p, &vb, lb, 64), 1);
            EXPECT_EQ(va, vb);
            EXPECT_STREQ(la, lb);
        }
    }
    VLORLV2_SetParam(there.get(), 0, -4.0f);
    char* state = VLORLV2_GetState(there.get());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(VLORLV2_SetState(here.get(), state), 1);
    VLORLV2_FreeString(state);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(here.get(), 0), -4.0f);
    EXPECT_EQ(VLORLV2_SetState(there.get(), "not a state"), VLORLV2_SetState(here.get(), "not a state"));
}

TEST_F(FxRemote, Vst3EditorIsMadeInTheHostProgram)
{
    Vst3 there = MakeVst3(1);
    ASSERT_TRUE(there);
    Events events;
    VLORVST3_SetEventCallback(there.get(), Events::vst3, &events);
    ASSERT_EQ(VLORVST3_HasEditor(there.get()), 1);
    int32_t w = 0, h = 0;
    ASSERT_EQ(VLORVST3_EditorGetSize(there.get(), &w, &h), 1);
    EXPECT_EQ(w, 300);
    EXPECT_EQ(h, 200);
    // The fixture's editor asks for a size as it is attached: the request
    // comes back here as the event the dialog resizes by.
    ASSERT_EQ(VLORVST3_EditorOpen(there.get(), 0x1234), 1);
    EXPECT_EQ(VLORVST3_EditorOpen(there.get(), 0x1234), 0);
    EXPECT_TRUE(events.has(kVst3EventResize, 640, 480));
    EXPECT_EQ(VLORVST3_EditorCanResize(there.get()), 1);
    // Never narrower than 200, the editor says.
    EXPECT_EQ(VLORVST3_EditorOnSize(there.get(), 100, 50), 1);
    ASSERT_EQ(VLORVST3_EditorGetSize(there.get(), &w, &h), 1);
    EXPECT_EQ(w, 200);
    EXPECT_EQ(h, 50);
    VLORVST3_EditorIdle(there.get());
    EXPECT_EQ(VLORVST3_EditorClose(there.get()), 1);
    EXPECT_EQ(VLORVST3_EditorOpen(there.get(), 0x1234), 1);
    EXPECT_EQ(VLORVST3_EditorClose(there.get()), 1);
}

struct IsolationCase {
    const char* mode; // null: no setting
    bool userChoice;
    bool crashed;
    int expected;
};

TEST_F(FxRemote, IsolationSettingDecidesWhereAnInstanceRuns)
{
    const IsolationCase cases[] = {
        {nullptr, false, false, 0}, {nullptr, false, true, 1},       {nullptr, true, false, 1},
        {"never", false, true, 0},  {"never", true, false, 1},       {"after_crash", false, false, 0},
        {"after_crash", false, true, 1}, {"always", false, false, 1}, {"nonsense", false, true, 1},
    };
    const std::string uri = kLv2 + "gain";
    for (const IsolationCase& c : cases) {
        SCOPED_TRACE(std::string(c.mode ? c.mode : "(none)") + (c.userChoice ? " user" : "") +
                     (c.crashed ? " crashed" : ""));
        if (c.mode)
            BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.isolation=%s", c.mode);
        else
            BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.isolation");
        VLORFX_SetOwnProcess("vst3", kVst3Gain, c.userChoice);
        VLORFX_SetOwnProcess("lv2", uri.c_str(), c.userChoice);
        if (c.crashed) {
            VLORFX_MarkCrashed("vst3", kVst3Gain);
            VLORFX_MarkCrashed("lv2", uri.c_str());
        }
        EXPECT_EQ(VLORFX_RunsInOwnProcess("vst3", kVst3Gain), c.expected);
        EXPECT_EQ(VLORFX_RunsInOwnProcess("lv2", uri.c_str()), c.expected);
        // One plugin's marks are not another's, nor another format's.
        EXPECT_EQ(VLORFX_RunsInOwnProcess("lv2", kVst3Gain), c.mode && !std::strcmp(c.mode, "always") ? 1 : 0);
        Vst3 fx(VLORVST3_CreateInstance(kVst3Bundle.c_str(), kVst3Gain), VLORVST3_DestroyInstance);
        ASSERT_TRUE(fx);
        EXPECT_EQ(VLORVST3_GetRemoteState(fx.get()), c.expected ? kVst3RemoteAlive : kVst3Local);
        char error[256];
        Lv2 lv2(VLORLV2_CreateInstance(uri.c_str(), 48000, 512, error, sizeof(error)), VLORLV2_DestroyInstance);
        ASSERT_TRUE(lv2) << error;
        EXPECT_EQ(VLORLV2_GetRemoteState(lv2.get()), c.expected ? kLv2RemoteAlive : kLv2Local);
        // Taking the choice back forgets the crash too.
        for (const char* format : {"vst3", "lv2"}) {
            const char* id = std::strcmp(format, "lv2") ? kVst3Gain : uri.c_str();
            VLORFX_SetOwnProcess(format, id, 0);
            EXPECT_EQ(VLORFX_HasCrashed(format, id), 0);
        }
    }
    BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.isolation");
}

} // namespace
} // namespace fxremote_test

namespace fxremote_test {
namespace {

// The host program is looked for in the helpers' folder first, then beside
// the application; a folder without it is passed over.
TEST_F(FxRemote, TheHelpersFolderComesFirstAndOneWithoutTheProgramIsPassedOver)
{
    char pattern[] = "/tmp/vlorhelpers.XXXXXX";
    const std::string helpers = mkdtemp(pattern);
    const std::string bin = std::string(VLOR_BIN_DIR);
    const auto exeOf = [](int pid) {
        char path[4096] = "";
        const ssize_t n = readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), path, sizeof(path) - 1);
        return n > 0 ? std::string(path, size_t(n)) : std::string();
    };
    setenv("VLOR_HELPERS_PATH", helpers.c_str(), 1);
    {
        Vst3 fx = MakeVst3(1);
        ASSERT_TRUE(fx) << "an empty helpers' folder stopped the search";
        EXPECT_EQ(exeOf(VLORVST3_GetRemotePid(fx.get())), bin + "/vlorvst3");
    }
    ASSERT_EQ(std::system(("cp '" + bin + "/vlorvst3' '" + helpers + "/'").c_str()), 0);
    {
        Vst3 fx = MakeVst3(1);
        ASSERT_TRUE(fx);
        EXPECT_EQ(exeOf(VLORVST3_GetRemotePid(fx.get())), helpers + "/vlorvst3");
    }
    unsetenv("VLOR_HELPERS_PATH");
    std::system(("rm -rf '" + helpers + "'").c_str());
}

} // namespace
} // namespace fxremote_test
