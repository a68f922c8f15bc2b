// VST2 plugins opened and run in this process through the AEffect adapter:
// the test plugins for what real plugins rarely show, and real plugins from
// the system for what matters in the field.
#include "aeffect_p.h"
#include "audiovst.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

using namespace vlortest;

namespace {

const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";
const std::string kShell = VLOR_FIXTURE_VST_DIR "/vlor-fixture-shell.so";

struct LogEntry {
    int opcode;
    int index;
    long value;
    float opt;
};

// A loaded plugin file and one instance of it, released in the right order.
class Loaded {
public:
    explicit Loaded(const std::string& file, int32_t id = 0, VstHostCallbackProc callback = _HostCallback,
                    void* hostData = nullptr)
    {
        record = _CreateEffectRecord(file.c_str(), id);
        if (record && AUDIOVST_LoadPlugin(record))
            fx = aeffectCreateEffect(callback, hostData, record->entryPoint, id);
    }
    ~Loaded()
    {
        if (fx) {
            fx->DeactivateEngine(fx);
            fx->Destroy(fx);
        }
        AUDIOVST_DeletePlugin(record);
    }
    template <typename T> T symbol(const char* name) { return reinterpret_cast<T>(dlsym(record->library, name)); }

    std::vector<LogEntry> log()
    {
        auto count = symbol<int (*)()>("vlorfixture_log_count");
        auto get = symbol<int (*)(int, int*, int*, long*, float*)>("vlorfixture_log_get");
        std::vector<LogEntry> out;
        for (int i = 0; i < count(); ++i) {
            LogEntry e;
            get(i, &e.opcode, &e.index, &e.value, &e.opt);
            out.push_back(e);
        }
        return out;
    }
    void resetLog() { symbol<void (*)()>("vlorfixture_log_reset")(); }
    int setParameterCalls()
    {
        int n = 0;
        for (const LogEntry& e : log())
            n += e.opcode == -1;
        return n;
    }

    _VSTEFFECT* record = nullptr;
    _VstEffectInstance* fx = nullptr;
};

std::vector<float> ramp(int channels, int frames, float scale = 0.001f)
{
    std::vector<float> v(size_t(channels) * size_t(frames));
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = float(i % 1000) * scale;
    return v;
}

class Adapter : public ::testing::Test {
protected:
    void SetUp() override { AUDIOVST_Initialize(); }
};

} // namespace

/* ---- loading: bad files fail with a message and no crash ------------------ */

TEST_F(Adapter, FilesThatAreNoPluginFailWithAMessage)
{
    TempDir dir;
    writeFile(dir.file("text.so"), "this is not an ELF file\n");
    const std::string noEntry = "/usr/lib/vst/lsp-plugins/lsp-plugins-vst2-1.2.5.so";
    std::vector<std::string> bad = {dir.file("missing.so"), dir.file("text.so")};
    if (BLIO_Exists(noEntry.c_str()))
        bad.push_back(noEntry);
    for (const std::string& file : bad) {
        LogCapture log;
        _VSTEFFECT* e = _CreateEffectRecord(file.c_str(), 0);
        EXPECT_EQ(AUDIOVST_LoadPlugin(e), 0) << file;
        EXPECT_TRUE(log.contains("_LoadVSTPlugin: Fail to load plugin " + file)) << file;
        EXPECT_FALSE(e->loaded);
        EXPECT_EQ(e->library, nullptr);
        // The record's lock is usable afterwards: the error path released it once too often.
        EXPECT_EQ(MutexTryLock(e->lock), 1);
        MutexUnlock(e->lock);
        EXPECT_EQ(AUDIOVST_DeletePlugin(e), 1);
    }
    EXPECT_EQ(aeffectCreateEffect(nullptr, nullptr, nullptr, 0), nullptr);
}

TEST_F(Adapter, LoadingTwiceKeepsTheOpenLibrary)
{
    _VSTEFFECT* e = _CreateEffectRecord(kStereo.c_str(), 0);
    ASSERT_EQ(AUDIOVST_LoadPlugin(e), 1);
    void* library = e->library;
    EXPECT_EQ(AUDIOVST_LoadPlugin(e), 1);
    EXPECT_EQ(e->library, library);
    EXPECT_EQ(AUDIOVST_UnloadPlugin(e), 1);
    EXPECT_FALSE(e->loaded);
    EXPECT_EQ(e->entryPoint, nullptr);
    EXPECT_EQ(AUDIOVST_DeletePlugin(e), 1);
}

/* ---- the host callback ---------------------------------------------------- */

TEST_F(Adapter, HostAnswersFromInsideTheEntryFunction)
{
    Loaded p(kStereo, 0x1234);
    ASSERT_NE(p.fx, nullptr);
    long version, currentId, idle, vendorAnswer, canDo;
    char vendor[128];
    p.symbol<void (*)(long*, long*, long*, long*, char*, long*)>("vlorfixture_entry_answers")(
        &version, &currentId, &idle, &vendorAnswer, vendor, &canDo);
    EXPECT_EQ(version, 2400);
    EXPECT_EQ(currentId, 0x1234);
    EXPECT_EQ(idle, 0); // no instance exists yet
    EXPECT_EQ(vendorAnswer, 1);
    EXPECT_STREQ(vendor, "vloraudio Team");
    EXPECT_EQ(canDo, 1);
}

TEST_F(Adapter, ShellServesTheChildWhoseIdIsAsked)
{
    {
        Loaded shell(kShell, 0);
        ASSERT_NE(shell.fx, nullptr);
        EXPECT_EQ(shell.symbol<long (*)()>("vlorshell_last_current_id")(), 0);
        AEffect* ae = aeffectGetAEffect(shell.fx);
        EXPECT_EQ(ae->dispatcher(ae, 35, 0, 0, nullptr, 0), 10); // a shell
        std::vector<std::pair<int, std::string>> children;
        char name[128];
        while (int id = int(ae->dispatcher(ae, 70, 0, 0, name, 0)))
            children.emplace_back(id, name);
        ASSERT_EQ(children.size(), 4u);
        EXPECT_EQ(children[1].second, "Shell Child Stereo");

        Loaded child(kShell, children[1].first);
        ASSERT_NE(child.fx, nullptr);
        EXPECT_EQ(child.symbol<long (*)()>("vlorshell_last_current_id")(), children[1].first);
        EXPECT_EQ(aeffectGetAEffect(child.fx)->uniqueID, children[1].first);
        EXPECT_EQ(aeffectGetAEffect(child.fx)->numInputs, 2);
    }
    Loaded unknown(kShell, 0x0badf00d);
    EXPECT_EQ(unknown.fx, nullptr); // the entry returns null for an id it does not serve
}

TEST_F(Adapter, EditorResizeBecomesNotification118)
{
    struct Seen {
        int width = 0, height = 0;
        void* sender = nullptr;
    } seen;
    auto handler = [](void* user, const BLNotifyEvent* e) -> int {
        if (e->code != AUDIOVST_NOTIFY_EDITOR_RESIZE)
            return 1;
        auto* s = static_cast<Seen*>(user);
        s->width = *static_cast<int*>(e->a);
        s->height = *static_cast<int*>(e->b);
        s->sender = e->sender;
        return 0;
    };
    BLNotifyHandler h = handler;
    BLNOTIFY_AddDefaultHandler(h, &seen);
    int hostData = 0;
    {
        Loaded p(kStereo, 0, _HostCallback, &hostData);
        ASSERT_NE(p.fx, nullptr);
        EXPECT_EQ(p.fx->CanEdit(p.fx), 1);
        int w = -1, hgt = -1;
        EXPECT_EQ(p.fx->EditorGetSize(p.fx, &w, &hgt), 1);
        EXPECT_EQ(w, 300);
        EXPECT_EQ(hgt, 200);
        EXPECT_EQ(p.fx->EditorOpen(p.fx, nullptr), 1); // the plugin asks for 400 x 250
        EXPECT_EQ(p.fx->EditorIdle(p.fx), 1);
        EXPECT_EQ(p.fx->EditorClose(p.fx, nullptr), 1);
    }
    BLNOTIFY_RemoveDefaultHandler(h, &seen);
    EXPECT_EQ(seen.width, 400);
    EXPECT_EQ(seen.height, 250);
    EXPECT_EQ(seen.sender, &hostData);
}

TEST_F(Adapter, HostCallbackAnswersForALiveInstance)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    AEffect* ae = aeffectGetAEffect(p.fx);
    auto call = p.symbol<VstIntPtr (*)(AEffect*, int, int, VstIntPtr, void*)>("vlorfixture_call_host");
    auto callNoEffect = p.symbol<VstIntPtr (*)(AEffect*, int, void*)>("vlorfixture_call_host_without_effect");
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 128, 48000), 1);

    EXPECT_EQ(call(ae, 7, 0, 0, nullptr), reinterpret_cast<VstIntPtr>(aeffectGetTime(p.fx)));
    EXPECT_EQ(call(ae, 23, 0, 0, nullptr), 2);
    EXPECT_EQ(call(ae, 1, 0, 0, nullptr), 2400);
    EXPECT_EQ(call(ae, 34, 0, 0, nullptr), 32001);
    EXPECT_EQ(call(ae, 38, 0, 0, nullptr), 1);
    EXPECT_EQ(call(ae, 0, 3, 0, nullptr), 0);  // automation is ignored
    EXPECT_EQ(call(ae, 42, 0, 0, nullptr), 0); // update display
    EXPECT_EQ(call(ae, 13, 0, 0, nullptr), 0); // anything else
    char product[64] = {};
    EXPECT_EQ(call(ae, 33, 0, 0, product), 1);
    EXPECT_STREQ(product, "vloraudio");

    // Idle requests reach the plugin as the matching dispatches.
    p.resetLog();
    EXPECT_EQ(call(ae, 3, 0, 0, nullptr), 1);
    EXPECT_EQ(call(ae, 14, 0, 0, nullptr), 1);
    EXPECT_EQ(call(ae, 43, 0, 0, nullptr), 1);
    EXPECT_EQ(call(ae, 44, 0, 0, nullptr), 1);
    std::vector<int> ops;
    for (const LogEntry& e : p.log())
        ops.push_back(e.opcode);
    EXPECT_EQ(ops, (std::vector<int>{19, 53, 19, 19}));

    const std::vector<std::pair<const char*, int>> canDo = {
        {"sendVstTimeInfo", 1}, {"receiveVstEvents", 1}, {"sizeWindow", 1}, {"offline", 1},
        {"supplyIdle", 1}, {"sendVstEvents", 0}, {"sendVstMidiEvent", 0}, {"receiveVstMidiEvent", 0},
        {"receiveVstTimeInfo", 0}, {"reportConnectionChanges", 0}, {"acceptIOChanges", 0},
        {"asyncProcessing", 0}, {"somethingElse", 0}};
    for (const auto& c : canDo)
        EXPECT_EQ(call(ae, 37, 0, 0, const_cast<char*>(c.first)), c.second) << c.first;

    // Without an effect only the plain answers come.
    EXPECT_EQ(callNoEffect(ae, 7, nullptr), 0);
    EXPECT_EQ(callNoEffect(ae, 23, nullptr), 0);
    EXPECT_EQ(callNoEffect(ae, 14, nullptr), 0);
    EXPECT_EQ(callNoEffect(ae, 1, nullptr), 2400);
}

TEST_F(Adapter, HostCallbackOfTheInstanceLayer)
{
    EXPECT_EQ(_HostCallback(nullptr, nullptr), -1);
    _VstEffectMessage other{VSTEFFECT_MESSAGE_OTHER, nullptr, 0, 0};
    EXPECT_EQ(_HostCallback(nullptr, &other), 1);
    _VstEffectMessage unknown{9, nullptr, 0, 0};
    EXPECT_EQ(_HostCallback(nullptr, &unknown), 0);
    // Nobody listens: the resize is not taken.
    _VstEffectMessage resize{VSTEFFECT_MESSAGE_RESIZE, nullptr, 10, 10};
    EXPECT_EQ(_HostCallback(nullptr, &resize), 0);

    EXPECT_STREQ(callbackOpCodeString(7), "audioMasterGetTime");
    EXPECT_STREQ(callbackOpCodeString(49), "audioMasterGetInputSpeakerArrangement");
    EXPECT_STREQ(callbackOpCodeString(5), "unsuported");
    EXPECT_STREQ(callbackOpCodeString(50), "unsuported");
    EXPECT_STREQ(callbackOpCodeString(-1), "unsuported");
}

/* ---- lifecycle ------------------------------------------------------------ */

TEST_F(Adapter, CreationAndActivationDispatchInTheirFixedOrder)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    std::vector<LogEntry> log = p.log();
    ASSERT_GE(log.size(), 4u);
    const size_t n = log.size();
    EXPECT_EQ(log[n - 4].opcode, 10);
    EXPECT_FLOAT_EQ(log[n - 4].opt, 44100.0f);
    EXPECT_EQ(log[n - 3].opcode, 11);
    EXPECT_EQ(log[n - 3].value, 512);
    EXPECT_EQ(log[n - 2].opcode, 22);
    EXPECT_EQ(log[n - 1].opcode, 0);

    EXPECT_EQ(p.fx->ActivateEngine(p.fx, 256, 5999), 0);
    EXPECT_EQ(p.fx->ActivateEngine(p.fx, 0, 48000), 0);
    p.resetLog();
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 256, 6000), 1);
    log = p.log();
    const std::vector<std::pair<int, long>> expected = {{10, 0}, {11, 11025}, {12, 1}, {12, 0}, {11, 256}, {12, 1}};
    ASSERT_EQ(log.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(log[i].opcode, expected[i].first) << i;
        if (expected[i].first != 10) {
            EXPECT_EQ(log[i].value, expected[i].second) << i;
        }
    }
    EXPECT_FLOAT_EQ(log[0].opt, 6000.0f);
    EXPECT_EQ(p.fx->ActivateEngine(p.fx, 256, 6000), 0); // already active

    EXPECT_EQ(p.fx->StartEngine(p.fx), 1);
    EXPECT_EQ(p.fx->StopEngine(p.fx), 1);
    EXPECT_EQ(p.fx->DeactivateEngine(p.fx), 1);
    EXPECT_EQ(p.fx->StartEngine(p.fx), 0); // needs the engine
    EXPECT_EQ(p.fx->DeactivateEngine(p.fx), 0);
}

TEST_F(Adapter, TimeInfoFollowsTheProcessedFrames)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    EXPECT_EQ(aeffectGetTime(p.fx), nullptr);
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 512, 48000), 1);
    const std::vector<float> in = ramp(2, 512);
    std::vector<float> out(in.size());
    p.fx->ProcessAudio(p.fx, in.data(), out.data(), 2, 512);
    p.fx->ProcessAudio(p.fx, in.data(), out.data(), 2, 100);
    const VstTimeInfo* t = aeffectGetTime(p.fx);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->samplePos, 612.0);
    EXPECT_EQ(t->sampleRate, 48000.0);
}

/* ---- audio ---------------------------------------------------------------- */

TEST_F(Adapter, MonoSourceFeedsBothInputsOfAStereoPlugin)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    ASSERT_EQ(p.fx->SetParameter(p.fx, 1, 1.0f), 1); // swap: output 0 is input 1
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 64, 44100), 1);
    const std::vector<float> mono = ramp(1, 64);
    std::vector<float> out(64, -9.0f);
    ASSERT_EQ(p.fx->ProcessAudio(p.fx, mono.data(), out.data(), 1, 64), 1);
    for (int i = 0; i < 64; ++i)
        ASSERT_FLOAT_EQ(out[size_t(i)], mono[size_t(i)]) << i;

    // No input at all: the plugin hears silence.
    ASSERT_EQ(p.fx->ProcessAudio(p.fx, nullptr, out.data(), 1, 64), 1);
    for (float v : out)
        ASSERT_EQ(v, 0.0f);
}

TEST_F(Adapter, OutputChannelsBeyondThePluginsAreLeftUntouched)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 128, 44100), 1);
    const std::vector<float> in = ramp(4, 128);
    std::vector<float> out(in.size(), 7.0f);
    ASSERT_EQ(p.fx->ProcessAudio(p.fx, in.data(), out.data(), 4, 128), 1);
    for (int f = 0; f < 128; ++f) {
        ASSERT_FLOAT_EQ(out[size_t(f) * 4 + 0], in[size_t(f) * 4 + 0]);
        ASSERT_FLOAT_EQ(out[size_t(f) * 4 + 1], in[size_t(f) * 4 + 1]);
        ASSERT_EQ(out[size_t(f) * 4 + 2], 7.0f);
        ASSERT_EQ(out[size_t(f) * 4 + 3], 7.0f);
    }
}

TEST_F(Adapter, MoreFramesThanTheBlockSizeAreProcessedInBlocks)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 512, 44100), 1);
    const std::vector<float> in = ramp(2, 1500);
    std::vector<float> out(in.size(), 0.0f);
    ASSERT_EQ(p.fx->ProcessAudio(p.fx, in.data(), out.data(), 2, 1500), 1);
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_FLOAT_EQ(out[i], in[i]) << i;
    EXPECT_EQ(aeffectGetTime(p.fx)->samplePos, 1500.0);
}

TEST_F(Adapter, InitialDelayIsReportedAndDelaysTheSignal)
{
    setenv("VLOR_FIXTURE_INITIAL_DELAY", "100", 1);
    Loaded p(kStereo);
    unsetenv("VLOR_FIXTURE_INITIAL_DELAY");
    ASSERT_NE(p.fx, nullptr);
    EXPECT_EQ(p.fx->GetInitialDelay(p.fx), 100);
    EXPECT_EQ(p.fx->GetTailSize(p.fx), 4410);
    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 256, 44100), 1);
    const std::vector<float> in = ramp(2, 256);
    std::vector<float> out(in.size());
    p.fx->ProcessAudio(p.fx, in.data(), out.data(), 2, 256);
    for (int f = 0; f < 100; ++f)
        ASSERT_EQ(out[size_t(f) * 2], 0.0f);
    for (int f = 100; f < 256; ++f)
        ASSERT_FLOAT_EQ(out[size_t(f) * 2], in[size_t(f - 100) * 2]);
}

/* ---- parameters and programs --------------------------------------------- */

TEST_F(Adapter, DisplayTextsAreCutToSevenCharacters)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    char text[64];
    std::memset(text, 'x', sizeof(text));
    ASSERT_EQ(p.fx->GetDisplayValue(p.fx, 3, 1.0f, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "Overdri");
    ASSERT_EQ(p.fx->GetDisplayValue(p.fx, 0, 0.5f - 12.5f / 48.0f, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "-12.5 d");
    ASSERT_EQ(p.fx->GetDisplayValue(p.fx, 1, 0.0f, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "Off");
    ASSERT_EQ(p.fx->GetCurrentDisplayValue(p.fx, 2, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "12 dB/o");
    EXPECT_EQ(p.fx->GetCurrentDisplayValue(p.fx, 2, text, 7), 0); // the buffer must take 8
    EXPECT_EQ(p.fx->GetCurrentDisplayValue(p.fx, 4, text, sizeof(text)), 0);
}

TEST_F(Adapter, GetDisplayValueLeavesTheParameterAsItWas)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    ASSERT_EQ(p.fx->SetParameter(p.fx, 0, 0.3f), 1);
    char text[16];
    p.fx->GetDisplayValue(p.fx, 0, 0.9f, text, sizeof(text));
    float v = 0;
    ASSERT_EQ(p.fx->GetParameter(p.fx, 0, &v), 1);
    EXPECT_FLOAT_EQ(v, 0.3f);
}

TEST_F(Adapter, SetParameterSkipsUnchangedValuesAndChecksIndices)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    p.resetLog();
    EXPECT_EQ(p.fx->SetParameter(p.fx, 0, 0.5f), 1); // already 0.5
    EXPECT_EQ(p.setParameterCalls(), 0);
    EXPECT_EQ(p.fx->SetParameter(p.fx, 0, 0.6f), 1);
    EXPECT_EQ(p.setParameterCalls(), 1);
    EXPECT_EQ(p.fx->SetParameter(p.fx, 4, 0.6f), 0);
    EXPECT_EQ(p.fx->SetParameter(p.fx, -1, 0.6f), 0);
    EXPECT_EQ(p.fx->GetParameter(p.fx, 4, nullptr), 0);

    EXPECT_EQ(p.fx->GetNumParams(p.fx), 4);
    float values[4] = {0.1f, 1.0f, 0.5f, 0.6f};
    EXPECT_EQ(p.fx->SetParameters(p.fx, values, 3), 0);
    ASSERT_EQ(p.fx->SetParameters(p.fx, values, 4), 1);
    float back[4] = {};
    ASSERT_EQ(p.fx->GetParameters(p.fx, back, 4), 1);
    for (int i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(back[i], values[i]);
    EXPECT_EQ(p.fx->GetParameters(p.fx, nullptr, 4), 0);
    EXPECT_EQ(p.fx->SetStringParameter(p.fx, 0, "0.25"), 1);
    p.fx->GetParameter(p.fx, 0, &back[0]);
    EXPECT_FLOAT_EQ(back[0], 0.25f);
    EXPECT_EQ(p.fx->SetBypass(p.fx, 1), 1);
}

TEST_F(Adapter, ProgramNamesAreCutToTwentyThreeCharacters)
{
    Loaded p(kStereo);
    ASSERT_NE(p.fx, nullptr);
    EXPECT_EQ(p.fx->GetNumPrograms(p.fx), 3);
    ASSERT_EQ(p.fx->SetProgram(p.fx, 2), 1);
    int program = -1;
    ASSERT_EQ(p.fx->GetProgram(p.fx, &program), 1);
    EXPECT_EQ(program, 2);
    char name[64];
    ASSERT_EQ(p.fx->GetProgramName(p.fx, name, sizeof(name)), 1);
    EXPECT_STREQ(name, "A Program Name Longer T");
    EXPECT_EQ(std::strlen(name), 23u);
    EXPECT_EQ(p.fx->GetProgramName(p.fx, name, 23), 0);
    EXPECT_EQ(p.fx->SetProgram(p.fx, 3), 0);
    ASSERT_EQ(p.fx->SetProgramName(p.fx, "Renamed"), 1);
    p.fx->GetProgramName(p.fx, name, sizeof(name));
    EXPECT_STREQ(name, "Renamed");
}

/* ---- real plugins from the system ---------------------------------------- */

class RealPlugin : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        if (!BLIO_Exists(GetParam()))
            GTEST_SKIP() << GetParam() << " is not installed";
    }
};

TEST_P(RealPlugin, OpensProcessesFiniteAudioAndCloses)
{
    Loaded p(GetParam());
    ASSERT_NE(p.fx, nullptr);
    AEffect* ae = aeffectGetAEffect(p.fx);
    ASSERT_NE(ae, nullptr);
    EXPECT_GE(ae->numOutputs, 1);
    char name[128];
    ASSERT_EQ(aeffectGetString(p.fx, 45, 0, name, sizeof(name)), 1);
    EXPECT_GT(std::strlen(name), 0u);
    for (int i = 0; i < p.fx->GetNumParams(p.fx); ++i) {
        char text[16];
        ASSERT_EQ(p.fx->GetCurrentDisplayValue(p.fx, i, text, sizeof(text)), 1);
        EXPECT_LE(std::strlen(text), 7u);
    }

    ASSERT_EQ(p.fx->ActivateEngine(p.fx, 512, 44100), 1);
    ASSERT_EQ(p.fx->StartEngine(p.fx), 1);
    std::vector<float> in(512 * 2), out(512 * 2, 0.0f);
    double energy = 0;
    for (int block = 0; block < 86; ++block) { // one second
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = 0.5f * float(std::sin(0.05 * double(block * 512 + int(i / 2))));
        ASSERT_EQ(p.fx->ProcessAudio(p.fx, in.data(), out.data(), 2, 512), 1);
        for (float v : out) {
            ASSERT_TRUE(std::isfinite(v));
            energy += double(v) * double(v);
        }
    }
    EXPECT_GT(energy, 0.0);
    EXPECT_EQ(p.fx->StopEngine(p.fx), 1);
}

INSTANTIATE_TEST_SUITE_P(ZamAndDpf, RealPlugin,
                         ::testing::Values("/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst/ZamTube-vst.so",
                                           "/usr/lib/vst/3BandEQ-vst.so", "/usr/lib/vst/MVerb-vst.so",
                                           "/usr/lib/lxvst/DragonflyRoomReverb-vst.so"));
