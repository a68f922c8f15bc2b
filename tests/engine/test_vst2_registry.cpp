// The VST2 registry: the hash that names a plugin, its status from memory or
// from the settings, the host program's self test, and the library's entry.
#include "QVlorAudioPlugins.h"
#include "audiovst.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace vlortest;

namespace {

const char* const kZamComp = "/usr/lib/vst/ZamComp-vst.so";

class Registry : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(AUDIOVST_Initialize(), 1); }

    // A record as resolution leaves it for a described effect.
    _VSTEFFECT* effectRecord(const std::string& file, int id = 0)
    {
        _VSTEFFECT* e = _CreateEffectRecord(file.c_str(), id);
        e->category = VSTEFFECT_CATEGORY_EFFECT;
        e->enabled = 1;
        e->supported = 1;
        return e;
    }

    static void writeGroup(const std::string& hash, const char* field, int value)
    {
        BLSETTINGS_ChangeEx(0, "vloraudio.fx.vst.%s.%s=%d", hash.c_str(), field, value);
    }

    static std::string hashOf(const std::string& file, int id)
    {
        char h[64];
        EXPECT_EQ(AUDIOVST_ComputePluginHash(file.c_str(), id, h, sizeof(h)), 1);
        return h;
    }
};

} // namespace

TEST_F(Registry, HashIsTheDigestOfPathAndIdWithThePrefixDropped)
{
    // Fixed forever: the hash names settings groups and descriptor files.
    EXPECT_EQ(hashOf(kZamComp, 0), "f30be93b962a4415867d5671b60ea3403710079e");
    EXPECT_EQ(hashOf(kZamComp, 1234), "1fe2c4ac74e93b057cd6ae8fb65f84a06c7797ee");
    EXPECT_NE(hashOf(kZamComp, 0), hashOf(kZamComp, 1234));
    EXPECT_EQ(hashOf(kZamComp, 1234), hashOf(kZamComp, 1234));
    EXPECT_LT(hashOf(kZamComp, 0).size() + 1, size_t(VSTEFFECT_HASH_SIZE));
}

TEST_F(Registry, ComputePluginHashRefusesBadArguments)
{
    char out[64];
    EXPECT_EQ(AUDIOVST_ComputePluginHash(nullptr, 0, out, sizeof(out)), 0);
    EXPECT_EQ(AUDIOVST_ComputePluginHash("", 0, out, sizeof(out)), 0);
    EXPECT_EQ(AUDIOVST_ComputePluginHash(kZamComp, 0, nullptr, 64), 0);
    EXPECT_EQ(AUDIOVST_ComputePluginHash(kZamComp, 0, out, 0), 0);
    // A short buffer gets a cut text, not an overrun.
    char small[8];
    EXPECT_EQ(AUDIOVST_ComputePluginHash(kZamComp, 0, small, sizeof(small)), 1);
    EXPECT_STREQ(small, "f30be93");
}

TEST_F(Registry, StatusWordWithoutRecordComesFromTheSettings)
{
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(nullptr, 0), AUDIOVST_STATUS_NOFILE);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx("/nowhere/never-seen.so", 0), AUDIOVST_STATUS_UNKNOWN);

    const std::string a = "/settings/only/a.so";
    writeGroup(hashOf(a, 0), "enabled", 0);
    writeGroup(hashOf(a, 0), "crashed", 1);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(a.c_str(), 0),
              AUDIOVST_STATUS_DISABLED | AUDIOVST_STATUS_CRASHED | AUDIOVST_STATUS_UNSUPPORTED);
    writeGroup(hashOf(a, 0), "supported", 1);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(a.c_str(), 0), AUDIOVST_STATUS_DISABLED | AUDIOVST_STATUS_CRASHED);

    // The id is part of the name: the same file with another id is unknown.
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(a.c_str(), 77), AUDIOVST_STATUS_UNKNOWN);

    const std::string b = "/settings/only/b.so";
    writeGroup(hashOf(b, 5), "enabled", 1);
    writeGroup(hashOf(b, 5), "supported", 1);
    writeGroup(hashOf(b, 5), "duplicated", 1);
    writeGroup(hashOf(b, 5), "rawmode", 1);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(b.c_str(), 5), AUDIOVST_STATUS_DUPLICATED | AUDIOVST_STATUS_RAWMODE);
}

TEST_F(Registry, StatusWordWithRecordComesFromItsFields)
{
    const std::string f = "/records/status.so";
    _VSTEFFECT* e = effectRecord(f, 9);
    // The record wins over whatever the settings say.
    writeGroup(e->hash, "enabled", 0);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(f.c_str(), 9), 0);
    e->crashed = 1;
    e->supported = 0;
    e->rawmode = 1;
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(f.c_str(), 9),
              AUDIOVST_STATUS_CRASHED | AUDIOVST_STATUS_UNSUPPORTED | AUDIOVST_STATUS_RAWMODE);
    EXPECT_FALSE(AUDIOVST_IsEnabled(e));
    EXPECT_FALSE(AUDIOVST_IsSupported(e));
    EXPECT_EQ(AUDIOVST_DeletePlugin(e), 1);
}

TEST_F(Registry, SetEnabledWritesTheSettingWithOrWithoutARecord)
{
    const std::string absent = "/records/not-in-memory.so";
    EXPECT_EQ(AUDIOVST_SetEnabledEx(absent.c_str(), 0, false), 1);
    EXPECT_EQ(BLSETTINGS_GetIntEx(0, "vloraudio.fx.vst.%s.enabled=[1]", hashOf(absent, 0).c_str()), 0);
    EXPECT_TRUE(AUDIOVST_GetPluginStatusEx(absent.c_str(), 0) & AUDIOVST_STATUS_DISABLED);

    _VSTEFFECT* e = effectRecord("/records/in-memory.so", 3);
    EXPECT_EQ(AUDIOVST_SetEnabledEx("/records/in-memory.so", 3, false), 1);
    EXPECT_FALSE(AUDIOVST_IsEnabled(e));
    EXPECT_EQ(BLSETTINGS_GetIntEx(0, "vloraudio.fx.vst.%s.enabled=[1]", e->hash), 0);
    EXPECT_EQ(AUDIOVST_SetEnabledEx(nullptr, 0, true), 0);
    AUDIOVST_DeletePlugin(e);
}

TEST_F(Registry, FileArchFromRecordThenSettings)
{
    const std::string f = "/records/arch.so";
    EXPECT_EQ(AUDIOVST_GetPluginFileArchEx(f.c_str(), 0), 0);
    writeGroup(hashOf(f, 0), "architecture", 32);
    EXPECT_EQ(AUDIOVST_GetPluginFileArchEx(f.c_str(), 0), 32);
    _VSTEFFECT* e = effectRecord(f);
    e->architecture = 64;
    EXPECT_EQ(AUDIOVST_GetPluginFileArchEx(f.c_str(), 0), 64);
    EXPECT_TRUE(AUDIOVST_IsNative(e));
    EXPECT_EQ(AUDIOVST_GetPluginFileArchEx(nullptr, 0), 0);
    AUDIOVST_DeletePlugin(e);
}

TEST_F(Registry, SaveAndWipeCoverAllTenKeysAndTheDescriptor)
{
    _VSTEFFECT* e = effectRecord("/records/persisted.so", 12);
    e->timestamp = 1234567890123456789LL;
    e->architecture = 64;
    e->duplicated = 1;
    _SaveToSettings(e);
    const char* fields[] = {"timestamp", "filename", "pluginid", "architecture", "force_recheck",
                            "enabled", "supported", "crashed", "duplicated", "rawmode"};
    for (const char* field : fields)
        EXPECT_EQ(BLSETTINGS_ExistsEx(0, "vloraudio.fx.vst.%s.%s", e->hash, field), 1) << field;
    EXPECT_EQ(BLSETTINGS_GetInt64Ex(0, "vloraudio.fx.vst.%s.timestamp=[0]", e->hash), 1234567890123456789LL);
    char name[256];
    BLSETTINGS_GetStringEx(0, name, sizeof(name), "vloraudio.fx.vst.%s.filename=[]", e->hash);
    EXPECT_STREQ(name, "/records/persisted.so");

    char path[1024];
    ASSERT_NE(_GetVSTXMLPath(e->hash, path, sizeof(path)), nullptr);
    EXPECT_EQ(std::string(path), dataDir() + "/vstxml/" + e->hash + ".vstxml");
    writeFile(path, "<VLORVST/>");

    _WipePluginPersistedState(e->hash);
    for (const char* field : fields)
        EXPECT_EQ(BLSETTINGS_ExistsEx(0, "vloraudio.fx.vst.%s.%s", e->hash, field), 0) << field;
    EXPECT_EQ(BLIO_Exists(path), 0);
    AUDIOVST_DeletePlugin(e);
}

TEST_F(Registry, AccessorsAnswerNullSafelyAndByCategory)
{
    EXPECT_EQ(AUDIOVST_GetCategory(nullptr), -1);
    EXPECT_EQ(AUDIOVST_GetNumParams(nullptr), -1);
    EXPECT_EQ(AUDIOVST_GetFileName(nullptr), nullptr);
    EXPECT_FALSE(AUDIOVST_IsEnabled(nullptr));
    EXPECT_EQ(AUDIOVST_GetDisplayName(nullptr), nullptr);

    _VSTEFFECT* e = effectRecord("/plugins/dir/Named.so");
    std::strcpy(e->effectName, "(null)");
    std::strcpy(e->product, "(null)");
    EXPECT_STREQ(AUDIOVST_GetDisplayName(e), "/Named.so");
    std::strcpy(e->product, "Product");
    EXPECT_STREQ(AUDIOVST_GetDisplayName(e), "Product");
    std::strcpy(e->effectName, "Effect");
    EXPECT_STREQ(AUDIOVST_GetDisplayName(e), "Effect");
    EXPECT_STREQ(AUDIOVST_GetDisplayCategory(e), "Undefined");
    std::strcpy(e->vendor, "Vendor");
    EXPECT_STREQ(AUDIOVST_GetDisplayCategory(e), "Vendor");

    // A shell has entries but no effect fields.
    e->category = VSTEFFECT_CATEGORY_SHELL;
    e->u.shell.numShellEntries = 2;
    e->u.shell.shellEntries = static_cast<ShellEntry*>(BLMEM_NewEx(e->memDescr, 2 * sizeof(ShellEntry), 0));
    e->u.shell.shellEntries[0].id = 11;
    std::strcpy(e->u.shell.shellEntries[0].name, "First");
    e->u.shell.shellEntries[1].id = 22;
    std::strcpy(e->u.shell.shellEntries[1].name, "Second");
    EXPECT_FALSE(AUDIOVST_IsEffect(e));
    EXPECT_EQ(AUDIOVST_GetNumParams(e), -1);
    EXPECT_EQ(AUDIOVST_GetDisplayName(e), nullptr);
    EXPECT_STREQ(AUDIOVST_GetVendorString(e), "Vendor");
    EXPECT_EQ(AUDIOVST_PluginsCount(e), 2);
    EXPECT_STREQ(AUDIOVST_GetPluginName(e, 1), "Second");
    EXPECT_EQ(AUDIOVST_GetPluginId(e, 0), 11);
    EXPECT_EQ(AUDIOVST_GetPluginName(e, 2), nullptr);
    EXPECT_EQ(AUDIOVST_GetPluginId(e, -1), 0);

    e->category = 5; // neither effect nor shell
    EXPECT_EQ(AUDIOVST_GetVendorString(e), nullptr);
    EXPECT_EQ(AUDIOVST_PluginsCount(e), 0);
    AUDIOVST_DeletePlugin(e);
}

TEST_F(Registry, SupportedIdSearchPassesOverUnsupportedRecords)
{
    _VSTEFFECT* unsupported = effectRecord("/records/dup-a.so");
    unsupported->uniqueId = 0x44555031;
    unsupported->supported = 0;
    EXPECT_EQ(_FindListBySupportedId(0x44555031), nullptr);
    _VSTEFFECT* supported = effectRecord("/records/dup-b.so");
    supported->uniqueId = 0x44555031;
    EXPECT_EQ(_FindListBySupportedId(0x44555031), supported);
    AUDIOVST_DeletePlugin(unsupported);
    AUDIOVST_DeletePlugin(supported);
}

TEST_F(Registry, ARecordInUseLeavesTheListAtOnceAndIsFreedByItsLastInstance)
{
    LogCapture log;
    _VSTEFFECT* e = effectRecord(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so");
    ASSERT_EQ(AUDIOVST_LoadPlugin(e), 1);
    e->numInstances = 2;
    EXPECT_EQ(AUDIOVST_UnloadPlugin(e), 0);
    EXPECT_TRUE(log.contains("AUDIOVST_UnloadPlugin: Plugin " VLOR_FIXTURE_VST_DIR
                             "/vlor-fixture-stereo.so has 2 instances created."));
    const std::string hash = e->hash;
    EXPECT_EQ(AUDIOVST_DeletePlugin(e), 1);
    EXPECT_EQ(_FindRecordByHash(hash.c_str()), nullptr); // nobody finds it again
    EXPECT_TRUE(e->loaded);                               // its instances still run it
    EXPECT_EQ(AUDIOVST_DeletePlugin(e), 1);               // a second delete changes nothing
    MutexLock(e->lock);
    e->numInstances = 1;
    EXPECT_EQ(_ReleaseOrphanLocked(e), 0);
    e->numInstances = 0;
    EXPECT_EQ(_ReleaseOrphanLocked(e), 1); // the last one ends: unloaded and freed
}

/* ---- the host program's self test ---------------------------------------- */

class HostPath : public Registry {
protected:
    TempDir dir;
    void makeHost(const std::string& folder, const std::string& body)
    {
        std::system(("mkdir -p '" + folder + "'").c_str());
        writeFile(folder + "/vlorvst", "#!/bin/sh\n" + body, true);
    }
};

TEST_F(HostPath, AWorkingHostIsAcceptedForBothIndices)
{
    const std::string good = dir.file("good dir"); // a space in the path too
    makeHost(good, "case \"$1\" in --true) exit 1;; --false) exit 0;; esac\nexit 3\n");
    ASSERT_EQ(AUDIOVST_SetVlorVstPath(good.c_str()), 1);
    EXPECT_EQ(std::string(AUDIOVST_GetVlorVstPath(0)), good + "/vlorvst");
    EXPECT_EQ(std::string(AUDIOVST_GetVlorVstPath(1)), good + "/vlorvst");
    EXPECT_EQ(AUDIOVST_GetVlorVstPath(2), nullptr);
}

TEST_F(HostPath, ProgramsThatDoNotAnswerLikeAHostAreRefusedAndChangeNothing)
{
    const std::string good = dir.file("good");
    makeHost(good, "[ \"$1\" = --true ] && exit 1\nexit 0\n");
    ASSERT_EQ(AUDIOVST_SetVlorVstPath(good.c_str()), 1);

    const std::string alwaysZero = dir.file("zero");
    makeHost(alwaysZero, "exit 0\n");
    const std::string alwaysOne = dir.file("one");
    makeHost(alwaysOne, "exit 1\n");
    const std::string plainFile = dir.file("plain");
    std::system(("mkdir -p '" + plainFile + "'").c_str());
    writeFile(plainFile + "/vlorvst", "not a program");

    for (const std::string& bad : {alwaysZero, alwaysOne, plainFile, dir.file("missing")}) {
        EXPECT_EQ(AUDIOVST_SetVlorVstPath(bad.c_str()), 0) << bad;
        EXPECT_EQ(std::string(AUDIOVST_GetVlorVstPath(0)), good + "/vlorvst") << bad;
    }
    EXPECT_EQ(AUDIOVST_SetVlorVstPath(nullptr), 0);
}

/* ---- the library's entry -------------------------------------------------- */

TEST(LibraryEntry, StartsAndStopsWithoutAnApplicationAndCanStartAgain)
{
    // No QCoreApplication exists in this program.
    EXPECT_EQ(QVlorAudioPlugins::Initialize(), 1);
    EXPECT_EQ(QVlorAudioPlugins::Initialize(), 1);
    EXPECT_EQ(QVlorAudioPlugins::Finalize(), 1);
    EXPECT_EQ(QVlorAudioPlugins::Finalize(), 1); // not initialised: nothing to do
    EXPECT_EQ(AUDIOVST_GetVlorVstPath(0), nullptr);
    EXPECT_EQ(QVlorAudioPlugins::Initialize(), 1);
    // The engine works again after a second start.
    char path[1024];
    EXPECT_NE(_GetVSTXMLPath("abc", path, sizeof(path)), nullptr);
}
