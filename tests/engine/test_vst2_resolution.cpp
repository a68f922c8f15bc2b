// Resolution: from a file and an id to a record, with every check run by the
// host program. A wrapper around the host logs each start, so that the tests
// can count the checks and see that nothing else is ever started.
#include "audiovst.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace vlortest;

namespace {

const std::string kHost = VLOR_BIN_DIR "/vlorvst";
const std::string kFixtures = VLOR_FIXTURE_VST_DIR;

class Resolution : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        wrapperDir = dir.file("host");
        std::system(("mkdir -p '" + wrapperDir + "'").c_str());
        log = dir.file("starts.log");
        writeFile(wrapperDir + "/vlorvst",
                  "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + log + "'\nexec '" + kHost + "' \"$@\"\n", true);
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(wrapperDir.c_str()), 1);
        writeFile(log, "");
    }

    // A plugin file of the test's own, copied from a fixture.
    std::string plugin(const std::string& fixture, const std::string& name)
    {
        const std::string path = dir.file(name);
        copy(kFixtures + "/" + fixture, path);
        return path;
    }
    static void copy(const std::string& from, const std::string& to)
    {
        std::ifstream in(from, std::ios::binary);
        std::ofstream out(to + ".tmp", std::ios::binary);
        out << in.rdbuf();
        out.close();
        // Moved into place, so that a plugin loaded from the old file keeps its mapping.
        std::rename((to + ".tmp").c_str(), to.c_str());
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // a new stamp
    }
    int starts(const std::string& mode)
    {
        int n = 0;
        std::ifstream in(log);
        for (std::string line; std::getline(in, line);)
            n += line == mode;
        return n;
    }
    static int settingInt(const _VSTEFFECT* e, const char* field, int def = -1)
    {
        return BLSETTINGS_GetIntEx(0, "vloraudio.fx.vst.%s.%s=[%d]", e->hash, field, def);
    }
    static int settingInt(const std::string& file, int id, const char* field, int def = -1)
    {
        char hash[64];
        AUDIOVST_ComputePluginHash(file.c_str(), id, hash, sizeof(hash));
        return BLSETTINGS_GetIntEx(0, "vloraudio.fx.vst.%s.%s=[%d]", hash, field, def);
    }

    TempDir dir;
    std::string wrapperDir;
    std::string log;
};

int32_t fourCC(const char* s)
{
    return int32_t((uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) | (uint32_t(uint8_t(s[2])) << 8) |
                   uint32_t(uint8_t(s[3])));
}

} // namespace

TEST_F(Resolution, AGoodPluginIsCheckedOnceDescribedAndRemembered)
{
    const std::string file = plugin("vlor-fixture-stereo.so", "good.so");
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    ASSERT_NE(e, nullptr);
    EXPECT_TRUE(AUDIOVST_IsSupported(e));
    EXPECT_TRUE(AUDIOVST_IsEffect(e));
    EXPECT_EQ(AUDIOVST_GetArch(e), 64);
    EXPECT_STREQ(AUDIOVST_GetDisplayName(e), "Vlor Fixture Stereo");
    // Asked for with id 0, the record moves to its unique id and its hash.
    EXPECT_EQ(e->pluginid, fourCC("VlFx"));
    char hash[64];
    AUDIOVST_ComputePluginHash(file.c_str(), fourCC("VlFx"), hash, sizeof(hash));
    EXPECT_STREQ(AUDIOVST_GetHash(e), hash);
    EXPECT_EQ(settingInt(e, "supported"), 1);
    EXPECT_EQ(settingInt(e, "architecture"), 64);
    char path[1024];
    ASSERT_NE(_GetVSTXMLPath(hash, path, sizeof(path)), nullptr);
    EXPECT_TRUE(BLIO_Exists(path));
    char name[1024];
    ASSERT_EQ(AUDIOVST_GetFileNameFromHash(hash, name, sizeof(name)), 1);
    EXPECT_EQ(std::string(name), file);
    // A missing argument answers 0 and writes nothing.
    EXPECT_EQ(AUDIOVST_GetFileNameFromHash(nullptr, name, sizeof(name)), 0);
    EXPECT_EQ(AUDIOVST_GetFileNameFromHash(hash, nullptr, sizeof(name)), 0);
    EXPECT_EQ(AUDIOVST_GetFileNameFromHash(hash, name, 0), 0);
    EXPECT_EQ(starts("--check"), 1);
    EXPECT_EQ(starts("--info"), 0); // the check left its description: loaded once

    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), fourCC("VlFx"), false), e);
    EXPECT_EQ(AUDIOVST_FindPluginByHash(hash), e);
    EXPECT_EQ(AUDIOVST_FindPluginByUniqId(fourCC("VlFx")), e);
    EXPECT_EQ(starts("--check"), 1); // nothing new to check

    // A fresh engine reads the descriptor instead of asking the host.
    AUDIOVST_DeletePlugin(e);
    e = AUDIOVST_FindPluginEx(file.c_str(), fourCC("VlFx"), false);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->numParams, 4);
    EXPECT_EQ(starts("--check"), 1);

    EXPECT_EQ(AUDIOVST_NeedRecheck(e), 0);
    AUDIOVST_ForceRecheck(e);
    EXPECT_EQ(AUDIOVST_NeedRecheck(e), 1);
    ASSERT_NE(AUDIOVST_FindPluginEx(file.c_str(), fourCC("VlFx"), true), nullptr);
    EXPECT_EQ(starts("--check"), 2);
    EXPECT_EQ(AUDIOVST_NeedRecheck(e), 0);

    EXPECT_EQ(AUDIOVST_ResetPlugin(e), 1);
    EXPECT_EQ(settingInt(file, fourCC("VlFx"), "supported"), -1);
    EXPECT_FALSE(BLIO_Exists(path));
}

TEST_F(Resolution, ACrashInTheCheckIsRememberedUntilTheFileChanges)
{
    const std::string file = plugin("vlor-fixture-stereo.so", "changing.so");
    const int32_t id = fourCC("VlFx");
    ASSERT_NE(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr);

    copy(kFixtures + "/vlor-fault-crash-open.so", file);
    LogCapture messages;
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), id, false), nullptr);
    EXPECT_TRUE(messages.contains("VSTCHECK: Failed to check VST plugin " + file));
    EXPECT_EQ(settingInt(file, id, "crashed"), 1);
    EXPECT_TRUE(AUDIOVST_GetPluginStatusEx(file.c_str(), id) & AUDIOVST_STATUS_CRASHED);
    const int checks = starts("--check");

    // Unchanged: not checked again.
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), id, false), nullptr);
    EXPECT_EQ(starts("--check"), checks);

    // Changed: checked again, and the crash is forgotten.
    copy(kFixtures + "/vlor-fixture-stereo.so", file);
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), id, false);
    ASSERT_NE(e, nullptr);
    EXPECT_FALSE(AUDIOVST_IsCrashed(e));
    EXPECT_EQ(settingInt(file, id, "crashed"), 0);
    EXPECT_EQ(starts("--check"), checks + 1);
}

// A known plugin whose file becomes one the check rejects (an instrument) is
// unusable, not crashed, and both are recorded: the old description does not
// make it usable again.
TEST_F(Resolution, AKnownPluginTheCheckRejectsIsRecordedUnsupportedNotCrashed)
{
    const std::string file = plugin("vlor-fixture-stereo.so", "becomes-synth.so");
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    ASSERT_NE(e, nullptr);
    const int32_t id = e->pluginid;
    copy(kFixtures + "/vlor-fault-synth.so", file);
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), id, false), nullptr);
    EXPECT_EQ(settingInt(file, id, "supported"), 0);
    EXPECT_EQ(settingInt(file, id, "crashed"), 0);
    const int status = AUDIOVST_GetPluginStatusEx(file.c_str(), id);
    EXPECT_TRUE(status & AUDIOVST_STATUS_UNSUPPORTED) << status;
    EXPECT_FALSE(status & AUDIOVST_STATUS_CRASHED) << status;
    EXPECT_STREQ(AUDIOVST_GetLastFailure(), "not an effect this host can use (an instrument, or no audio in place)");
}

TEST_F(Resolution, AFirstCheckThatFailsLeavesNothingAndIsRunAgain)
{
    struct Case {
        const char* fixture;
        bool crash;
    };
    for (const Case c : {Case{"vlor-fault-crash-entry.so", true}, Case{"vlor-fault-crash-open.so", true},
                         Case{"vlor-fault-synth.so", false}, Case{"vlor-fault-no-replacing.so", false}}) {
        const std::string file = plugin(c.fixture, std::string("first-") + c.fixture);
        writeFile(log, "");
        EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr) << c.fixture;
        EXPECT_EQ(AUDIOVST_GetPluginStatusEx(file.c_str(), 0), AUDIOVST_STATUS_UNKNOWN) << c.fixture;
        EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr) << c.fixture;
        // The second host is one program with the first here: not asked again.
        EXPECT_EQ(starts("--check"), 2) << c.fixture;
        EXPECT_EQ(starts("--info"), 0) << c.fixture;
    }
}

TEST_F(Resolution, WithoutTheChecksDescriptionTheHostDescribesAgain)
{
    const std::string file = plugin("vlor-fixture-stereo.so", "described-twice.so");
    // A host that checks but leaves nothing behind, as an older one would: its
    // data folder lies under a file, which nobody can create, root included.
    const std::string blocked = dir.file("a-file") + "/data";
    writeFile(dir.file("a-file"), "");
    writeFile(wrapperDir + "/vlorvst", "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + log +
                                           "'\n[ \"$1\" = --check ] && export VLOR_DATA_PATH='" + blocked +
                                           "'\nexec '" + kHost + "' \"$@\"\n",
              true);
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->numParams, 4);
    EXPECT_EQ(starts("--check"), 1);
    EXPECT_EQ(starts("--info"), 1);
}

TEST_F(Resolution, AHangingCheckIsKilledAtTheSpawnTimeout)
{
    const std::string file = plugin("vlor-fault-hang-open.so", "hang.so");
    const int old = BLCORE_SetSpawnTimeout(1000);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr);
    BLCORE_SetSpawnTimeout(old);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(Resolution, TwoFilesWithOneUniqueIdSettleByVersion)
{
    const std::string older = plugin("vlor-fault-dup-old.so", "dup-old.so");
    const std::string newer = plugin("vlor-fault-dup-new.so", "dup-new.so");
    _VSTEFFECT* o = AUDIOVST_FindPluginEx(older.c_str(), 0, false);
    ASSERT_NE(o, nullptr);
    _VSTEFFECT* n = AUDIOVST_FindPluginEx(newer.c_str(), 0, false);
    ASSERT_NE(n, nullptr);
    EXPECT_TRUE(AUDIOVST_IsEnabled(n));
    EXPECT_FALSE(AUDIOVST_IsEnabled(o));
    EXPECT_EQ(settingInt(o, "duplicated"), 1);
    EXPECT_EQ(settingInt(o, "enabled"), 0);
    EXPECT_EQ(settingInt(n, "duplicated"), 0);

    // Asked for again, the older one loses to the newer at once.
    const std::string olderAgain = plugin("vlor-fault-dup-old.so", "dup-old-2.so");
    EXPECT_EQ(AUDIOVST_FindPluginEx(olderAgain.c_str(), 0, false), nullptr);
}

TEST_F(Resolution, AVanishedFileLosesItsRecord)
{
    const std::string file = plugin("vlor-fixture-stereo.so", "vanishing.so");
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    ASSERT_NE(e, nullptr);
    const std::string hash = AUDIOVST_GetHash(e);
    std::remove(file.c_str());
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr);
    EXPECT_EQ(AUDIOVST_FindPluginByHash(hash.c_str()), nullptr);
}

TEST_F(Resolution, AShellResolvesToAShellRecord)
{
    const std::string file = plugin("vlor-fixture-shell.so", "shell.so");
    _VSTEFFECT* s = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    ASSERT_NE(s, nullptr);
    EXPECT_FALSE(AUDIOVST_IsEffect(s));
    EXPECT_EQ(AUDIOVST_GetCategory(s), VSTEFFECT_CATEGORY_SHELL);
    EXPECT_EQ(AUDIOVST_PluginsCount(s), 4);
    EXPECT_EQ(s->pluginid, 0); // a shell keeps the id it was asked for
}

TEST_F(Resolution, HostileFileNamesReachOnlyTheHostAndResolve)
{
    // A shell would create the marker in the working folder.
    const std::string marker = "vlor-hostile-marker";
    std::remove(marker.c_str());
    const std::vector<std::string> names = {
        "quote\"d.so", "$(touch " + marker + ").so", "`touch " + marker + "`.so", "semi;touch " + marker + ".so",
        "with space.so", "new\nline.so", "back\\slash.so", "'single'.so"};
    for (const std::string& name : names) {
        const std::string file = plugin("vlor-fixture-stereo.so", name);
        writeFile(log, "");
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
        ASSERT_NE(e, nullptr) << name;
        EXPECT_EQ(std::string(AUDIOVST_GetFileName(e)), file);
        EXPECT_EQ(starts("--check"), 1) << name;
        EXPECT_EQ(starts("--info"), 0) << name;
        AUDIOVST_ResetPluginFile(file.c_str(), e->pluginid);
    }
    EXPECT_FALSE(BLIO_Exists(marker.c_str()));
}

// Folders and files named with what XML must escape: the descriptor written
// for them reads back, so a second engine resolves them from it alone.
TEST_F(Resolution, NamesXmlMustEscapeAreDescribedAndReadBack)
{
    const std::string folder = dir.file("Drums & Bass");
    ASSERT_EQ(std::system(("mkdir -p '" + folder + "'").c_str()), 0);
    const std::vector<std::string> names = {"Drums & Bass/amp&.so", "a<b>.so", "q\"uote\".so", "cr\r.so",
                                            "Caf\xC3\xA9 \xC3\xBCnicode.so", "tab\there.so"};
    for (const std::string& name : names) {
        const std::string file = plugin("vlor-fixture-stereo.so", name);
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
        ASSERT_NE(e, nullptr) << name;
        const int32_t id = e->pluginid;
        char path[1024];
        ASSERT_NE(_GetVSTXMLPath(e->hash, path, sizeof(path)), nullptr);
        char fromHash[4096];
        ASSERT_EQ(AUDIOVST_GetFileNameFromHash(e->hash, fromHash, sizeof(fromHash)), 1) << name;
        EXPECT_EQ(std::string(fromHash), file);

        AUDIOVST_DeletePlugin(e);
        writeFile(log, "");
        e = AUDIOVST_FindPluginEx(file.c_str(), id, false);
        ASSERT_NE(e, nullptr) << name;
        EXPECT_EQ(e->numParams, 4) << name;
        EXPECT_EQ(starts("--check"), 0) << name; // read from the descriptor
        AUDIOVST_ResetPlugin(e);
    }
}

// Each child of a shell is a record of its own: asked for by its id, it is
// found, checked and remembered as itself, whatever was asked for before.
TEST_F(Resolution, EveryChildOfAShellKeepsItsOwnRecord)
{
    const std::string file = plugin("vlor-fixture-shell.so", "children.so");
    struct Child {
        const char* id;
        const char* name;
    };
    const std::vector<Child> children = {
        {"VsA1", "Shell Child Mono"}, {"VsA2", "Shell Child Stereo"}, {"VsA4", "Shell \"Child\" & <Wide>"}};
    std::vector<std::string> hashes;
    for (int round = 0; round < 2; ++round) {
        for (const Child& c : children) {
            _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), fourCC(c.id), false);
            ASSERT_NE(e, nullptr) << c.id;
            EXPECT_EQ(e->uniqueId, fourCC(c.id)) << c.id;
            EXPECT_EQ(e->pluginid, fourCC(c.id)) << c.id;
            EXPECT_STREQ(AUDIOVST_GetDisplayName(e), c.name);
            char hash[64];
            AUDIOVST_ComputePluginHash(file.c_str(), fourCC(c.id), hash, sizeof(hash));
            EXPECT_STREQ(e->hash, hash) << c.id;
            EXPECT_EQ(AUDIOVST_FindPluginByHash(hash), e) << c.id;
            char path[1024];
            ASSERT_NE(_GetVSTXMLPath(hash, path, sizeof(path)), nullptr);
            EXPECT_TRUE(BLIO_Exists(path)) << c.id;
            if (round == 0)
                hashes.push_back(hash);
        }
        // The second round reads every child back from its own descriptor.
        for (const std::string& h : hashes)
            AUDIOVST_DeletePlugin(AUDIOVST_FindPluginByHash(h.c_str()));
    }
    EXPECT_EQ(std::set<std::string>(hashes.begin(), hashes.end()).size(), children.size());
}

TEST_F(Resolution, RealPluginsFromTheSystemResolve)
{
    const char* noEntry = "/usr/lib/vst/lsp-plugins/lsp-plugins-vst2-1.2.5.so";
    const auto files = {"/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst/3BandEQ-vst.so",
                        "/usr/lib/lxvst/DragonflyRoomReverb-vst.so"};
    if (const std::string missing = missingFile(files); !missing.empty())
        GTEST_SKIP() << missing << " is not installed";
    for (const char* file : files) {
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file, 0, false);
        ASSERT_NE(e, nullptr) << file;
        EXPECT_GT(AUDIOVST_GetNumParams(e), 0) << file;
        EXPECT_GT(AUDIOVST_GetNumOutputs(e), 0) << file;
        EXPECT_TRUE(AUDIOVST_IsNative(e));
    }
    // The shared core of the lsp set has no entry point; its version is in its name.
    if (BLIO_Exists(noEntry)) {
        EXPECT_EQ(AUDIOVST_FindPluginEx(noEntry, 0, false), nullptr);
    }
}

/* ---- without a host: run in a copy of this program that has none --------- */

TEST(NoHost, EveryCallSendsNotification123AndCreatesNoRecord)
{
    if (!getenv("VLOR_NOHOST_CHILD")) {
        // A copy of this program in a folder without the host, with a PATH
        // whose only host sits behind the last ':', which is never tried.
        TempDir dir;
        const std::string exe = dir.file("test_copy");
        ASSERT_EQ(std::system(("cp /proc/" + std::to_string(getpid()) + "/exe '" + exe + "'").c_str()), 0);
        const std::string env = "VLOR_NOHOST_CHILD=1 PATH=/nonexistent:" + dir.path() + ":" VLOR_BIN_DIR " ";
        const int status = std::system((env + "'" + exe + "' --gtest_filter=NoHost.* >/dev/null 2>&1").c_str());
        EXPECT_EQ(status, 0);
        return;
    }
    AUDIOVST_Initialize();
    int notified = 0;
    auto handler = [](void* user, const BLNotifyEvent* e) -> int {
        if (e->code == AUDIOVST_NOTIFY_NO_HOST)
            ++*static_cast<int*>(user);
        return 1;
    };
    BLNotifyHandler h = handler;
    BLNOTIFY_AddDefaultHandler(h, &notified);
    const std::string file = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr);
    EXPECT_EQ(AUDIOVST_FindPluginEx(file.c_str(), 0, false), nullptr);
    EXPECT_EQ(notified, 2);
    EXPECT_EQ(AUDIOVST_GetVlorVstPath(0), nullptr);
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(file.c_str(), 0), AUDIOVST_STATUS_UNKNOWN);
}

// A descriptor path taken by a pipe or a folder is neither read (which would
// block) nor replaced; the plugin resolves all the same.
TEST_F(Resolution, ADescriptorPathThatIsNoFileIsLeftAlone)
{
    for (const bool fifo : {true, false}) {
        const std::string file = plugin("vlor-fixture-stereo.so", fifo ? "pipe-in-place.so" : "folder-in-place.so");
        char hash[64];
        AUDIOVST_ComputePluginHash(file.c_str(), fourCC("VlFx"), hash, sizeof(hash));
        char path[1024];
        ASSERT_NE(_GetVSTXMLPath(hash, path, sizeof(path)), nullptr);
        ASSERT_EQ(fifo ? mkfifo(path, 0644) : mkdir(path, 0755), 0);
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
        ASSERT_NE(e, nullptr);
        e = AUDIOVST_FindPluginEx(file.c_str(), fourCC("VlFx"), true);
        ASSERT_NE(e, nullptr);
        struct stat st;
        ASSERT_EQ(lstat(path, &st), 0);
        EXPECT_TRUE(fifo ? S_ISFIFO(st.st_mode) : S_ISDIR(st.st_mode));
        AUDIOVST_DeletePlugin(e);
        if (fifo)
            std::remove(path);
        else
            rmdir(path);
    }
}
