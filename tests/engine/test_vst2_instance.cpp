// Instances of a resolved plugin: where they run, how they end, and what the
// description and the display texts look like through them.
#include "audiovst.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sstream>
#include <string>

using namespace vlortest;

namespace {

const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";

class Instance : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        effect = AUDIOVST_FindPluginEx(kStereo.c_str(), 0, false);
        ASSERT_NE(effect, nullptr);
    }
    void TearDown() override { AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR); }
    _VSTEFFECT* effect = nullptr;
};

// The host programs that run an instance for this process.
int instanceHosts()
{
    int n = 0;
    DIR* tasks = opendir("/proc/self/task");
    while (dirent* t = tasks ? readdir(tasks) : nullptr) {
        if (t->d_name[0] == '.')
            continue;
        std::istringstream children(readFile(std::string("/proc/self/task/") + t->d_name + "/children"));
        for (std::string pid; children >> pid;) {
            const std::string cmdline = readFile("/proc/" + pid + "/cmdline");
            n += cmdline.find("--fxinstance") != std::string::npos && processRuns(std::stol(pid), 0);
        }
    }
    if (tasks)
        closedir(tasks);
    return n;
}

} // namespace

TEST_F(Instance, NormalInstancesRunInTheHostAndAreCounted)
{
    _VSTINSTANCE* a = AUDIOVST_CreateInstance(effect);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(AUDIOVST_IsRemoteInstance(a), 1);
    EXPECT_EQ(effect->numInstances, 1);
    EXPECT_EQ(AUDIOVST_GetEffectFromInstance(a), effect);
    EXPECT_EQ(AUDIOVST_CheckState(a), 1);
    EXPECT_EQ(AUDIOVST_HasEditor(a), 1);
    EXPECT_EQ(AUDIOVST_GetNumPrograms(a), 3);
    EXPECT_EQ(AUDIOVST_SetParameter(a, 0, 0.25f), 1);
    EXPECT_FLOAT_EQ(AUDIOVST_GetParameter(a, 0), 0.25f);
    EXPECT_EQ(AUDIOVST_SetParameter(a, 9, 0.25f), 0);
    EXPECT_EQ(AUDIOVST_EditorIdle(a), 0); // no editor open
    EXPECT_EQ(AUDIOVST_DestroyInstance(a), 1);
    EXPECT_EQ(effect->numInstances, 0);
}

TEST_F(Instance, CrashedOrDisabledPluginsGiveNoInstance)
{
    effect->enabled = 0;
    EXPECT_EQ(AUDIOVST_CreateInstance(effect), nullptr);
    effect->enabled = 1;
    effect->crashed = 1;
    EXPECT_EQ(AUDIOVST_CreateInstance(effect), nullptr);
    EXPECT_EQ(AUDIOVST_CreateConfigInstance(effect), nullptr);
    effect->crashed = 0;
}

TEST_F(Instance, TheConfigInstanceIsNotDestroyedAsANormalOne)
{
    LogCapture log;
    _VSTINSTANCE* config = AUDIOVST_CreateConfigInstance(effect);
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(effect->numInstances, 0);
    EXPECT_EQ(AUDIOVST_DestroyInstance(config), 0);
    EXPECT_TRUE(log.contains("AUDIOVST_DestroyInstance: Cannot destroy Config Instance!"));
    EXPECT_TRUE(log.contains("AUDIOVST_DestroyInstance: Use AUDIOVST_DestroyConfigInstance instead!!"));
    EXPECT_EQ(AUDIOVST_CheckState(config), 1);
    EXPECT_EQ(AUDIOVST_ReleaseConfigInstance(config), 1);

    _VSTINSTANCE* normal = AUDIOVST_CreateInstance(effect);
    EXPECT_EQ(AUDIOVST_ReleaseConfigInstance(normal), 0);
    EXPECT_TRUE(log.contains("AUDIOVST_ReleaseConfigInstance: Invalid config instance"));
    EXPECT_EQ(AUDIOVST_DestroyConfigInstance(&normal), 0);
    EXPECT_NE(normal, nullptr);
    AUDIOVST_DestroyInstance(normal);
    EXPECT_EQ(AUDIOVST_TerminateConfigInstance(&config), 1);
    EXPECT_EQ(config, nullptr);
    EXPECT_EQ(AUDIOVST_GetConfigInstance(effect), nullptr);
    EXPECT_TRUE(log.contains("AUDIOVST_GetConfigInstance: Config instance not created!"));
}

TEST_F(Instance, UnloadIsRefusedWhileInstancesLiveInProcess)
{
    AUDIOVST_ForgetVlorVstPath();
    LogCapture log;
    _VSTINSTANCE* a = AUDIOVST_CreateInstance(effect);
    _VSTINSTANCE* b = AUDIOVST_CreateInstance(effect);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(AUDIOVST_IsRemoteInstance(a), 0);
    EXPECT_EQ(AUDIOVST_UnloadPlugin(effect), 0);
    EXPECT_TRUE(log.contains("has 2 instances created."));
    EXPECT_TRUE(effect->loaded);
    AUDIOVST_DestroyInstance(a);
    AUDIOVST_DestroyInstance(b);
    // With none left, unloading also ends the config instance.
    ASSERT_NE(AUDIOVST_CreateConfigInstance(effect), nullptr);
    EXPECT_EQ(AUDIOVST_UnloadPlugin(effect), 1);
    EXPECT_FALSE(effect->loaded);
    EXPECT_EQ(effect->configInstance, nullptr);
}

TEST_F(Instance, DisplayStringsFollowTheParameterKind)
{
    _VSTINSTANCE* a = AUDIOVST_CreateInstance(effect);
    ASSERT_NE(a, nullptr);
    char text[64];
    ASSERT_EQ(AUDIOVST_GetParameterDisplayString(a, 0, text, sizeof(text), 0.5f - 12.5f / 48.0f), 1);
    EXPECT_STREQ(text, "-12.5"); // linear: the number without its unit
    ASSERT_EQ(AUDIOVST_GetParameterDisplayString(a, 1, text, sizeof(text), 0.1f), 1);
    EXPECT_STREQ(text, "Off"); // enumerated: the entry's name
    ASSERT_EQ(AUDIOVST_GetParameterDisplayString(a, 2, text, sizeof(text), 1.0f / 3.0f), 1);
    EXPECT_STREQ(text, "12"); // "12 dB/oct" from the plugin
    ASSERT_EQ(AUDIOVST_GetParameterDisplayString(a, 3, text, sizeof(text), 1.0f), 1);
    EXPECT_STREQ(text, "Overdriven Extremely"); // entry names are not cut
    EXPECT_EQ(AUDIOVST_GetParameterDisplayString(a, 4, text, sizeof(text), 0.5f), 0);

    EXPECT_EQ(AUDIOVST_SetParameterOption(a, 1, "On"), 1);
    EXPECT_GT(AUDIOVST_GetParameter(a, 1), 0.5f);
    EXPECT_EQ(AUDIOVST_SetParameterOption(a, 1, "Maybe"), 0);
    EXPECT_EQ(AUDIOVST_SetParameterOption(a, 0, "On"), 0); // no options there
    AUDIOVST_DestroyInstance(a);
}

TEST_F(Instance, TheStaticDescriptionComesFromTheRecord)
{
    EXPECT_STREQ(AUDIOVST_GetParameterName(effect, 2), "Slope");
    EXPECT_STREQ(AUDIOVST_GetParameterLabel(effect, 0), "dB");
    EXPECT_EQ(AUDIOVST_GetParameterKind(effect, 0), 2);
    EXPECT_FLOAT_EQ(AUDIOVST_GetParameterMaxValue(effect, 0), 24.0f);
    EXPECT_STREQ(AUDIOVST_GetParameterMinValueString(effect, 2), "6 dB/oct");
    EXPECT_EQ(AUDIOVST_GetParameterMinValueString(effect, 1), nullptr);
    EXPECT_EQ(AUDIOVST_GetNumParamOptions(effect, 1), 2);
    EXPECT_STREQ(AUDIOVST_GetParamOptionLabel(effect, 1, 1), "On");
    EXPECT_EQ(AUDIOVST_GetParamOptionLabel(effect, 1, 2), nullptr);
    EXPECT_EQ(AUDIOVST_GetNumBuiltInPrograms(effect), 3);
    EXPECT_STREQ(AUDIOVST_GetProgramName(effect, 0), "Init");
    EXPECT_FLOAT_EQ(AUDIOVST_GetBuiltInProgramParams(effect, 1)[0], 0.75f);
    EXPECT_FLOAT_EQ(AUDIOVST_GetDefaultProgram(effect)[0], 0.5f);
    EXPECT_EQ(AUDIOVST_GetProgramIndex(effect, "lead"), 1);
    EXPECT_EQ(AUDIOVST_GetProgramIndex(effect, "lea"), -1);
    EXPECT_EQ(AUDIOVST_GetProgramIndex(effect, nullptr), -1);
    EXPECT_EQ(AUDIOVST_GetParameterName(effect, 4), nullptr);
    EXPECT_EQ(AUDIOVST_GetParameterName(nullptr, 0), nullptr);
}

TEST(InstanceNull, EveryCallAcceptsNull)
{
    char text[16];
    int w, h;
    EXPECT_EQ(AUDIOVST_CreateInstance(nullptr), nullptr);
    EXPECT_EQ(AUDIOVST_CheckState(nullptr), 0);
    EXPECT_EQ(AUDIOVST_GetParameter(nullptr, 0), 0.0f);
    EXPECT_EQ(AUDIOVST_ProcessSamples(nullptr, nullptr, nullptr, 2, 64), 0);
    EXPECT_EQ(AUDIOVST_EditorGetSize(nullptr, &w, &h), 0);
    EXPECT_EQ(AUDIOVST_GetCurrentProgramName(nullptr, text, sizeof(text)), 0);
    EXPECT_EQ(AUDIOVST_DestroyInstance(nullptr), 0);
    EXPECT_EQ(AUDIOVST_DestroyConfigInstance(nullptr), 0);
    EXPECT_EQ(AUDIOVST_GetEffectFromInstance(nullptr), nullptr);
}

// The file vanishes under a running instance, the rescan deletes its record
// and the user resets it: the record stays until the instances are gone, and
// no host is left behind them (the sanitized build sees any use after free).
TEST_F(Instance, ARecordDeletedUnderLiveInstancesOutlivesThem)
{
    TempDir dir;
    const std::string file = dir.file("vanishing.so");
    ASSERT_EQ(std::system(("cp '" + kStereo + "' '" + file + "'").c_str()), 0);
    effect->enabled = 0; // the copy is not a duplicate of the fixture's own record
    for (const bool remote : {true, false}) {
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
        ASSERT_NE(e, nullptr);
        if (!remote)
            AUDIOVST_ForgetVlorVstPath(); // instances then run in this process
        const int hostsBefore = instanceHosts();
        if (remote)
            e->architecture = 32; // served by the second host: the config instance runs there too
        _VSTINSTANCE* a = AUDIOVST_CreateInstance(e);
        _VSTINSTANCE* config = AUDIOVST_CreateConfigInstance(e);
        ASSERT_TRUE(a && config);
        ASSERT_EQ(AUDIOVST_IsRemoteInstance(a), remote ? 1 : 0);
        EXPECT_EQ(instanceHosts(), hostsBefore + (remote ? 2 : 0));
        const std::string hash = e->hash;
        const int32_t id = e->pluginid;

        ASSERT_EQ(std::rename(file.c_str(), (file + ".away").c_str()), 0);
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), id, false), nullptr); // the rescan deletes the record
        EXPECT_EQ(AUDIOVST_FindPluginByHash(hash.c_str()), nullptr);
        EXPECT_EQ(AUDIOVST_ResetPluginFile(file.c_str(), id), 1);
        EXPECT_EQ(AUDIOVST_ResetPlugin(e), 1);

        float in[128] = {}, out[128] = {};
        EXPECT_EQ(AUDIOVST_ActivateEngine(a, 64, 44100), 1);
        EXPECT_EQ(AUDIOVST_StartEngine(a), 1);
        EXPECT_EQ(AUDIOVST_ProcessSamples(a, in, out, 2, 64), 1); // still runs
        EXPECT_EQ(AUDIOVST_DestroyInstance(a), 1);
        EXPECT_EQ(AUDIOVST_DestroyConfigInstance(&config), 1);
        EXPECT_EQ(instanceHosts(), hostsBefore);
        ASSERT_EQ(std::rename((file + ".away").c_str(), file.c_str()), 0);
    }
    effect->enabled = 1;
}
