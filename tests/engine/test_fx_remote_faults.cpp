// A VST3 or LV2 plugin that crashes or hangs in its host program takes only
// that program with it: the instance says what became of it, fails every
// call at once from then on, and can be ended; this process goes on.
#include "fx_remote_fixture.h"

#include "fxremote_protocol.h"
#include "vlorvst_wire.h"

#include "blpopenio.h"

#include <csignal>
#include <sys/wait.h>
#include <thread>

namespace fxremote_test {
namespace {

enum class Where { Open, Process, Editor, Close };

struct FaultCase {
    const char* name;
    const char* vst3Fault; // VLOR_FIXTURE_FAULT, or null for an LV2 fixture
    const char* lv2Plugin;
    Where where;
    int expected; // the remote state after the fault
};

const FaultCase kFaults[] = {
    {"vst3 crash at open", "open", nullptr, Where::Open, 0},
    {"vst3 crash in process", "process", nullptr, Where::Process, kVst3RemoteCrashed},
    {"vst3 hang in process", "hang-process", nullptr, Where::Process, kVst3RemoteHung},
    {"vst3 crash in editor", "editor", nullptr, Where::Editor, kVst3RemoteCrashed},
    {"vst3 hang in editor", "hang-editor", nullptr, Where::Editor, kVst3RemoteHung},
    {"vst3 crash at close", "close", nullptr, Where::Close, 0},
    {"lv2 crash at open", nullptr, "crash-instantiate", Where::Open, 0},
    {"lv2 crash in process", nullptr, "crash-run", Where::Process, kLv2RemoteCrashed},
    {"lv2 hang in process", nullptr, "hang", Where::Process, kLv2RemoteHung},
};

// The fault's call on a live instance: 1 when it succeeded.
int provoke(_Vst3Instance* v, _Lv2Instance* l, Where where)
{
    std::vector<float> in = Noise(2, 256), out(in.size());
    if (where == Where::Process)
        return v ? VLORVST3_ProcessAudio(v, in.data(), out.data(), 2, 256)
                 : VLORLV2_ProcessAudio(l, in.data(), out.data(), 2, 256);
    if (where == Where::Editor)
        return VLORVST3_EditorOpen(v, 0x1234);
    return 1;
}

TEST_F(FxRemote, AFaultStaysInTheHostProgram)
{
    for (const FaultCase& c : kFaults) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Fault> fault(c.vst3Fault ? new Fault(c.vst3Fault) : nullptr);
        std::string why;
        const auto t0 = std::chrono::steady_clock::now();
        Vst3 v = c.vst3Fault ? MakeVst3(1) : Vst3(nullptr, VLORVST3_DestroyInstance);
        Lv2 l = c.lv2Plugin ? MakeLv2(1, c.lv2Plugin, 4096, &why) : Lv2(nullptr, VLORLV2_DestroyInstance);
        if (c.where == Where::Open) {
            EXPECT_FALSE(v || l);
            if (c.lv2Plugin) {
                EXPECT_EQ(why, "the plugin crashed while opening");
            }
            continue;
        }
        ASSERT_TRUE(v || l);
        const int pid = v ? VLORVST3_GetRemotePid(v.get()) : VLORLV2_GetRemotePid(l.get());
        if (c.where == Where::Close) {
            EXPECT_EQ(VLORVST3_DestroyInstance(v.release()), 1);
            EXPECT_LT(SecondsSince(t0), 4.0);
            continue;
        }
        const auto t1 = std::chrono::steady_clock::now();
        EXPECT_EQ(provoke(v.get(), l.get(), c.where), 0);
        // A stuck host is given up at the timeout (a second here), a dead
        // one within a slice of the wait.
        EXPECT_LT(SecondsSince(t1), c.expected == kVst3RemoteHung ? 2.0 : 0.9);
        EXPECT_EQ(v ? VLORVST3_GetRemoteState(v.get()) : VLORLV2_GetRemoteState(l.get()), c.expected);
        // From then on every call fails at once.
        const auto t2 = std::chrono::steady_clock::now();
        EXPECT_EQ(provoke(v.get(), l.get(), Where::Process), 0);
        EXPECT_EQ(v ? VLORVST3_GetNumParams(v.get()) : VLORLV2_GetNumParams(l.get()), v ? 0 : -1);
        EXPECT_LT(SecondsSince(t2), 0.1);
        // Ended on request, and gone with its handle.
        EXPECT_EQ(v ? VLORVST3_Terminate(v.get()) : VLORLV2_Terminate(l.get()), 1);
        v.reset();
        l.reset();
        EXPECT_NE(::kill(pid, 0), 0) << "the host program outlived its instance";
    }
}

TEST_F(FxRemote, AHostKilledBetweenCommandsIsSeenByTheNextOne)
{
    Vst3 v = MakeVst3(1);
    Lv2 l = MakeLv2(1, "gain");
    ASSERT_TRUE(v && l);
    const int pids[] = {VLORVST3_GetRemotePid(v.get()), VLORLV2_GetRemotePid(l.get())};
    for (int pid : pids)
        ::kill(pid, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // The editor's idle looks without a command.
    VLORVST3_EditorIdle(v.get());
    EXPECT_EQ(VLORVST3_GetRemoteState(v.get()), kVst3RemoteCrashed);
    EXPECT_EQ(VLORLV2_GetParam(l.get(), 0), 0.0f);
    EXPECT_EQ(VLORLV2_GetRemoteState(l.get()), kLv2RemoteCrashed);
    EXPECT_EQ(VLORLV2_UiIdle(l.get()), 0);
}

TEST_F(FxRemote, AHostProgramThatIsMissingOrRefusesFailsTheCreation)
{
    // A bundle or URI the host cannot open answers with its reason.
    Vst3 v(VLORVST3_CreateInstanceEx("/nonexistent.vst3", kVst3Gain, 1), VLORVST3_DestroyInstance);
    EXPECT_FALSE(v);
    std::string why;
    Lv2 l = MakeLv2(1, "no-such-plugin", 512, &why);
    EXPECT_FALSE(l);
    EXPECT_NE(why.find("URI"), std::string::npos) << why;
}

} // namespace
} // namespace fxremote_test

namespace fxremote_test {
namespace {

struct RecordCase {
    const char* name;
    const char* fault; // VLOR_FIXTURE_FAULT, or null
    std::vector<std::string> args;
    const char* expected;
};

// A plugin that crashes in the editor's own process, in its opening or in a
// block, is named where the next start reads it: it runs apart from then on.
TEST_F(FxRemote, ACrashInThisProcessNamesThePluginForTheNextStart)
{
    const std::string gain = std::string("vst3|") + kVst3Gain + "|Fixture Gain";
    const RecordCase cases[] = {
        {"vst3 in a block", "process", {"vst3", kVst3Bundle, kVst3Gain}, gain.c_str()},
        {"vst3 opening", "open", {"vst3", kVst3Bundle, kVst3Gain}, gain.c_str()},
        {"lv2 in a block", nullptr, {"lv2", kLv2 + "crash-run"}, "lv2|urn:vlor:fixture:crash-run|Fixture Crash Run"},
        {"lv2 opening", nullptr, {"lv2", kLv2 + "crash-instantiate"},
         "lv2|urn:vlor:fixture:crash-instantiate|Fixture Crash Instantiate"},
    };
    const std::string record = std::string(VLOR_BIN_DIR) + "/../testhome/crash-record.txt";
    for (const RecordCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::remove(record.c_str());
        std::string command = std::string(c.fault ? "VLOR_FIXTURE_FAULT=" : "") + (c.fault ? c.fault : "") + " '" +
                              VLOR_BIN_DIR + "/vlor_crash_child' '" + record + "'";
        for (const std::string& a : c.args)
            command += " '" + a + "'";
        const int status = std::system((command + " 2>/dev/null").c_str());
        EXPECT_NE(status, 0) << "the plugin did not crash";
        FILE* f = std::fopen(record.c_str(), "r");
        ASSERT_NE(f, nullptr) << "nothing was recorded";
        char text[512] = "";
        const size_t n = std::fread(text, 1, sizeof(text) - 1, f);
        std::fclose(f);
        EXPECT_EQ(std::string(text, n), c.expected);
    }
    std::remove(record.c_str());
}

} // namespace
} // namespace fxremote_test

namespace fxremote_test {
namespace {

// The host program reads only items within their limits: a string or blob
// of a length no library sends is refused, not taken as empty.
TEST_F(FxRemote, TheHostRefusesItemsOfImpossibleLength)
{
    const std::string bin = VLOR_BIN_DIR;
    struct Case {
        const char* name;
        std::string command;
        vlorvst::Message message;
    };
    const Case cases[] = {
        {"lv2 state of length -5",
         "'" + bin + "/vlorlv2' --fxinstance urn:vlor:fixture:gain --rate 48000 --block 512 --bundle '" +
             VLOR_FIXTURE_LV2_DIR + "/vlor-lv2-fixtures.lv2'",
         vlorvst::Message(VLORFX_SET_STATE).i32(-5).i32(0)},
        {"vst3 text of length -1", "'" + bin + "/vlorvst3' --fxinstance '" + kVst3Bundle + "' --cid " + kVst3Gain,
         vlorvst::Message(VLORFX_SET_TEXT).u64(kGainId).i32(-1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        BLPOpenIO io = BLPOPENIO_Create("rw", c.command.c_str());
        ASSERT_NE(io, nullptr);
        int32_t hello[2] = {};
        ASSERT_EQ(BLPOPENIO_ReadDataEx(io, hello, 8, 5000), 8);
        ASSERT_EQ(hello[0], VLORVST_OK);
        ASSERT_EQ(BLPOPENIO_WriteData(io, c.message.data(), int(c.message.size())), int(c.message.size()));
        int32_t tag = 0;
        ASSERT_EQ(BLPOPENIO_ReadDataEx(io, &tag, 4, 5000), 4);
        EXPECT_EQ(tag, VLORVST_FAIL);
        BLPOPENIO_CloseEx(io, 0, 0);
    }
}

} // namespace
} // namespace fxremote_test
