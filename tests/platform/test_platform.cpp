// The editor-side functions the engines stand on, checked for the behaviour
// the engines rely on.
#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace vlortest;

namespace {

std::string sha1Hex(const void* data, size_t size)
{
    uint8_t digest[SHA1HashSize];
    EXPECT_EQ(BLSHA1_GetHash(data, size, digest), 1);
    char text[2 * SHA1HashSize + 3];
    BLSTRING_KeyToStr(digest, text, SHA1HashSize);
    return text;
}

} // namespace

TEST(Sha1, MatchesPublishedDigests)
{
    EXPECT_EQ(sha1Hex("", 0), "0xda39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(sha1Hex("abc", 3), "0xa9993e364706816aba3e25717850c26c9cd0d89d");
    const char* two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(sha1Hex(two, std::strlen(two)), "0x84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    const std::string million(1000000, 'a');
    EXPECT_EQ(sha1Hex(million.data(), million.size()), "0x34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Sha1, StreamingInUnevenPiecesEqualsOneShot)
{
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += char('a' + i % 26);
    SHA1Context ctx;
    fSHA1Reset(&ctx);
    size_t pos = 0;
    for (size_t piece = 1; pos < text.size(); ++piece) {
        const size_t n = std::min(piece, text.size() - pos);
        fSHA1Input(&ctx, text.data() + pos, n);
        pos += n;
    }
    uint8_t streamed[SHA1HashSize], oneShot[SHA1HashSize];
    fSHA1Result(&ctx, streamed);
    BLSHA1_GetHash(text.data(), text.size(), oneShot);
    EXPECT_EQ(std::memcmp(streamed, oneShot, SHA1HashSize), 0);
}

TEST(StringHelpers, KeyToStrWritesPrefixAndLowerCaseHex)
{
    const unsigned char bytes[] = {0x00, 0xab, 0x7f};
    char out[16];
    EXPECT_STREQ(BLSTRING_KeyToStr(bytes, out, 3), "0x00ab7f");
}

TEST(StringHelpers, StripStringTrimsBothEnds)
{
    char text[] = " \t -12.5 dB \n";
    EXPECT_STREQ(StripString(text), "-12.5 dB");
}

TEST(StringHelpers, CompareInsensitiveN)
{
    EXPECT_EQ(BLSTRING_CompareInsensitiveN("LEAD", "lead", 4), 0);
    EXPECT_NE(BLSTRING_CompareInsensitiveN("LEAD", "lea", 4), 0);
}

TEST(StringHelpers, SplitCommandLineHonoursQuotes)
{
    struct Case {
        const char* line;
        std::vector<std::string> args;
    };
    const Case cases[] = {
        {"/bin/host --check \"/a dir/plug in.so\" --id 42", {"/bin/host", "--check", "/a dir/plug in.so", "--id", "42"}},
        {"  a   b  ", {"a", "b"}},
        {"x 'single quoted \\ text' \"esc \\\" q\"", {"x", "single quoted \\ text", "esc \" q"}},
        {"empty \"\" arg", {"empty", "", "arg"}},
    };
    for (const Case& c : cases) {
        char** argv = BLSTRING_SplitCommandLine(c.line);
        ASSERT_NE(argv, nullptr) << c.line;
        std::vector<std::string> got;
        for (char** a = argv; *a; ++a)
            got.emplace_back(*a);
        std::free(argv);
        EXPECT_EQ(got, c.args) << c.line;
    }
    EXPECT_EQ(BLSTRING_SplitCommandLine("unbalanced \"quote"), nullptr);
    EXPECT_EQ(BLSTRING_SplitCommandLine("   "), nullptr);
}

TEST(MemoryDescriptor, AllocationsAreZeroedAlignedAndGoWithTheDescriptor)
{
    BLMemDescr mem = BLMEM_CreateMemDescrEx("VST Effect", 0, 8);
    ASSERT_NE(mem, nullptr);
    EXPECT_STREQ(BLMEM_GetName(mem), "VST Effect");
    std::vector<char*> blocks;
    for (size_t size : {1, 7, 64, 5000, 3, 100000}) {
        auto* p = static_cast<char*>(BLMEM_NewEx(mem, size, 0));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t), 0u);
        for (size_t i = 0; i < size; ++i)
            ASSERT_EQ(p[i], 0);
        std::memset(p, 0x5a, size); // the sanitizers catch any overlap
        blocks.push_back(p);
    }
    EXPECT_EQ(BLMEM_GetAllocated(mem), 1u + 7 + 64 + 5000 + 3 + 100000);
    EXPECT_STREQ(BLMEM_StrDup(mem, "name"), "name");
    EXPECT_EQ(BLMEM_DisposeMemDescr(mem), 1);
    EXPECT_EQ(BLMEM_NewEx(nullptr, 8, 0), nullptr);
    EXPECT_EQ(BLMEM_DisposeMemDescr(nullptr), 0);
}

TEST(MemoryDescriptor, OverlapMemCopyMovesOverlappingRegions)
{
    char text[] = "0xabcdef";
    BLMEM_OverlapMemCopy(text, text + 2, std::strlen(text + 2) + 1);
    EXPECT_STREQ(text, "abcdef");
}

TEST(Settings, ReadsDefaultsFromTheFormat)
{
    EXPECT_EQ(BLSETTINGS_GetIntEx(0, "test.absent.%s=[7]", "int"), 7);
    EXPECT_EQ(BLSETTINGS_GetBoolEx(0, "test.absent.bool=[1]"), 1);
    EXPECT_EQ(BLSETTINGS_GetBoolEx(0, "test.absent.bool=[0]"), 0);
    char out[32];
    EXPECT_EQ(BLSETTINGS_GetStringEx(0, out, sizeof(out), "test.absent.text=[fallback]"), 0);
    EXPECT_STREQ(out, "fallback");
    EXPECT_EQ(BLSETTINGS_ExistsEx(0, "test.absent.int"), 0);
}

TEST(Settings, WritesReadsAndDeletesTypedValues)
{
    EXPECT_EQ(BLSETTINGS_ChangeEx(0, "%s.%s=%d", "test.typed", "int", -42), 1);
    EXPECT_EQ(BLSETTINGS_ChangeEx(0, "test.typed.big=%lld", 5000000000LL), 1);
    EXPECT_EQ(BLSETTINGS_ChangeEx(0, "test.typed.bool=%d", 1), 1);
    EXPECT_EQ(BLSETTINGS_GetIntEx(0, "test.typed.int=[0]"), -42);
    EXPECT_EQ(BLSETTINGS_GetInt64Ex(0, "test.typed.big=[0]"), 5000000000LL);
    EXPECT_EQ(BLSETTINGS_GetBoolEx(0, "test.typed.bool=[0]"), 1);
    EXPECT_EQ(BLSETTINGS_ExistsEx(0, "test.typed.%s", "int"), 1);
    EXPECT_EQ(BLSETTINGS_DeleteEx(0, "test.typed.int"), 1);
    EXPECT_EQ(BLSETTINGS_DeleteEx(0, "test.typed.int"), 0);
    EXPECT_EQ(BLSETTINGS_GetIntEx(0, "test.typed.int=[3]"), 3);
}

TEST(Settings, PersistAtomicallyInTheDataFolderAndSurviveReload)
{
    const std::string value = "/path/with=equals\nand a new line\\and backslash";
    BLSETTINGS_ChangeEx(0, "test.persist.text=%s", value.c_str());
    ASSERT_EQ(BLSETTINGS_Flush(), 1);
    const std::string path = BLSETTINGS_GetFilePath();
    EXPECT_EQ(path, dataDir() + "/settings.conf");
    EXPECT_NE(readFile(path).find("test.persist.text="), std::string::npos);
    // No temporary file is left behind by the atomic replace.
    EXPECT_EQ(std::system(("ls " + dataDir() + " | grep -q tmp").c_str()) == 0, false);

    ASSERT_EQ(BLSETTINGS_Reload(), 1);
    char out[256];
    EXPECT_EQ(BLSETTINGS_GetStringEx(0, out, sizeof(out), "test.persist.text=[]"), 1);
    EXPECT_EQ(std::string(out), value);
}

TEST(Settings, ChangesReachTheFileWithoutAnExplicitFlush)
{
    BLSETTINGS_ChangeEx(0, "test.lazy.key=%d", 99);
    const std::string path = BLSETTINGS_GetFilePath();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (readFile(path).find("test.lazy.key=99") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_NE(readFile(path).find("test.lazy.key=99"), std::string::npos);
}

TEST(Settings, ConcurrentWritersLoseNothing)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                BLSETTINGS_ChangeEx(0, "test.threads.%d.%d=%d", t, i, t * 1000 + i);
                BLSETTINGS_GetIntEx(0, "test.threads.%d.%d=[0]", t, i / 2);
            }
        });
    for (auto& th : threads)
        th.join();
    for (int t = 0; t < 8; ++t)
        for (int i = 0; i < 200; ++i)
            ASSERT_EQ(BLSETTINGS_GetIntEx(0, "test.threads.%d.%d=[-1]", t, i), t * 1000 + i);
    char** keys = BLSETTINGS_ListKeys("test.threads.");
    int count = 0;
    for (char** k = keys; *k; ++k)
        ++count;
    std::free(keys);
    EXPECT_EQ(count, 1600);
}

TEST(Spawn, ReturnsExitStatusesUnchanged)
{
    EXPECT_EQ(BLCORE_Spawn("/bin/true"), 0);
    EXPECT_EQ(BLCORE_Spawn("/bin/false"), 1);
    EXPECT_EQ(BLCORE_Spawn("/bin/sh -c \"exit %d\"", 7), 7);
    EXPECT_EQ(BLCORE_Spawn("sh -c 'exit 3'"), 3); // found on PATH
}

TEST(Spawn, ArgumentsArriveWholeWithoutAShell)
{
    TempDir dir;
    const std::string script = dir.file("args.sh");
    writeFile(script, "#!/bin/sh\n[ \"$1\" = 'a b' ] && [ \"$2\" = '$HOME;x' ] && [ $# -eq 2 ]\n", true);
    EXPECT_EQ(BLCORE_Spawn("%s \"a b\" \"$HOME;x\"", script.c_str()), 0);
}

TEST(Spawn, ASignalIsNeitherSuccessNorUnsupported)
{
    const int status = BLCORE_Spawn("/bin/sh -c 'kill -SEGV $$'");
    EXPECT_EQ(status, BLCORE_SPAWN_SIGNALED(11));
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 7);
}

TEST(Spawn, AHungChildIsKilledAtTheTimeout)
{
    const int old = BLCORE_SetSpawnTimeout(300);
    const auto start = std::chrono::steady_clock::now();
    const int status = BLCORE_Spawn("/bin/sleep 30");
    const auto elapsed = std::chrono::steady_clock::now() - start;
    BLCORE_SetSpawnTimeout(old);
    EXPECT_EQ(status, BLCORE_SPAWN_SIGNALED(9));
    EXPECT_LT(elapsed, std::chrono::seconds(5));
}

TEST(Spawn, MissingProgramsAndBadLinesFailCleanly)
{
    LogCapture log;
    EXPECT_EQ(BLCORE_Spawn("/nonexistent/program --true"), BLCORE_SPAWN_FAILED);
    EXPECT_EQ(BLCORE_Spawn("\"unbalanced"), -1);
    EXPECT_EQ(BLCORE_Spawn(nullptr), -1);
    EXPECT_TRUE(log.contains("BLCORE_Spawn:"));
}

TEST(Notify, NewestHandlerFirstAndTheFirstTakerStopsTheWalk)
{
    struct Seen {
        std::vector<int> order;
    } seen;
    auto passOn = [](void* user, const BLNotifyEvent* e) -> int {
        static_cast<Seen*>(user)->order.push_back(e->code * 10 + 1);
        return 1;
    };
    auto take = [](void* user, const BLNotifyEvent* e) -> int {
        static_cast<Seen*>(user)->order.push_back(e->code * 10 + 2);
        return e->code == 5 ? 0 : 1;
    };
    BLNotifyHandler h1 = take, h2 = passOn;
    ASSERT_EQ(BLNOTIFY_AddDefaultHandler(h1, &seen), 1);
    ASSERT_EQ(BLNOTIFY_AddDefaultHandler(h2, &seen), 1);
    ASSERT_EQ(BLNOTIFY_AddDefaultHandler(h2, &seen), 1); // once only
    EXPECT_EQ(BLNOTIFY_SendEvent(nullptr, 0, 5, nullptr, nullptr), 0);
    EXPECT_EQ(BLNOTIFY_SendEvent(nullptr, 0, 6, nullptr, nullptr), 1);
    EXPECT_EQ(seen.order, (std::vector<int>{51, 52, 61, 62}));
    EXPECT_EQ(BLNOTIFY_RemoveDefaultHandler(h1, &seen), 1);
    EXPECT_EQ(BLNOTIFY_RemoveDefaultHandler(h2, &seen), 1);
    EXPECT_EQ(BLNOTIFY_SendEvent(nullptr, 0, 5, nullptr, nullptr), 1);
}

TEST(Mutex, UnlockByAThreadThatDoesNotHoldItIsRefused)
{
    Mutex m = MutexInit();
    ASSERT_EQ(MutexLock(m), 1);
    int otherResult = -1;
    std::thread([&] { otherResult = MutexUnlock(m); }).join();
    EXPECT_EQ(otherResult, 0);
    EXPECT_EQ(MutexTryLock(m), 0);
    EXPECT_EQ(MutexUnlock(m), 1);
    EXPECT_EQ(MutexUnlock(m), 0); // a second release changes nothing
    EXPECT_EQ(MutexTryLock(m), 1);
    EXPECT_EQ(MutexUnlock(m), 1);
    MutexDestroy(m);
}

TEST(Mutex, RecursiveLockNestsAndExcludesOtherThreads)
{
    Mutex m = MutexRecursiveInit();
    MutexLock(m);
    MutexLock(m);
    std::atomic<int> got{-1};
    std::thread([&] { got = MutexTryLock(m); }).join();
    EXPECT_EQ(got.load(), 0);
    MutexUnlock(m);
    MutexUnlock(m);
    std::thread([&] {
        got = MutexTryLock(m);
        MutexUnlock(m);
    }).join();
    EXPECT_EQ(got.load(), 1);
    MutexDestroy(m);
    EXPECT_EQ(MutexLock(nullptr), 0);
}

TEST(DebugLog, ReachesTheCallbackWithoutTrailingNewline)
{
    LogCapture log;
    BLDEBUG_Error(-1, "SomeFunction: failed %d\n", 3);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "SomeFunction: failed 3");
}

TEST(DataFolder, ComesFromTheEnvironmentOrTheXdgDataHome)
{
    char out[1024];
    ASSERT_NE(BLUTILS_GetDataDir(out, sizeof(out)), nullptr);
    EXPECT_EQ(std::string(out), dataDir());

    const std::string saved = dataDir();
    unsetenv("VLOR_DATA_PATH");
    setenv("XDG_DATA_HOME", "/xdg/data/", 1);
    BLUTILS_GetDataDir(out, sizeof(out));
    EXPECT_STREQ(out, "/xdg/data/vloraudio");
    unsetenv("XDG_DATA_HOME");
    const std::string home = getenv("HOME");
    BLUTILS_GetDataDir(out, sizeof(out));
    EXPECT_EQ(std::string(out), home + "/.local/share/vloraudio");
    setenv("VLOR_DATA_PATH", saved.c_str(), 1);
    EXPECT_EQ(BLUTILS_GetDataDir(out, 4), nullptr); // too small
}

TEST(Files, ExistsStampsAndMakeDirs)
{
    TempDir dir;
    const std::string f = dir.file("a.txt");
    EXPECT_EQ(BLIO_Exists(f.c_str()), 0);
    EXPECT_EQ(BLIO_GetFileTimeStamp(f.c_str(), 2), 0);
    writeFile(f, "x");
    EXPECT_EQ(BLIO_Exists(f.c_str()), 1);
    const int64_t first = BLIO_GetFileTimeStamp(f.c_str(), 2);
    EXPECT_GT(first, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    writeFile(f, "changed");
    EXPECT_NE(BLIO_GetFileTimeStamp(f.c_str(), 2), first);
    EXPECT_EQ(BLIOUTILS_MakeDirectory(dir.file("x/y/z").c_str()), 1);
    EXPECT_EQ(BLIO_Exists(dir.file("x/y/z").c_str()), 1);
    EXPECT_EQ(BLIO_Exists(nullptr), 0);
}

TEST(Library, OpensResolvesAndReportsFailures)
{
    LogCapture log;
    BLLibHandle libc = BLLIB_OpenLibrary("libc.so.6");
    ASSERT_NE(libc, nullptr);
    EXPECT_NE(BLLIB_GetLibraryFunction(libc, "strlen"), nullptr);
    EXPECT_EQ(BLLIB_GetLibraryFunction(libc, "no_such_symbol_here"), nullptr);
    EXPECT_EQ(BLLIB_CloseLibrary(libc), 1);
    EXPECT_EQ(BLLIB_OpenLibrary("/nonexistent.so"), nullptr);
    EXPECT_TRUE(log.contains("BLLIB_OpenLibrary:"));
}

TEST(ChildPipes, ReadTimeoutAvailableBytesAndBothWaysOfClosing)
{
    BLPOpenIO io = BLPOPENIO_Create("rw", "/bin/cat");
    ASSERT_NE(io, nullptr);
    char buf[16];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(BLPOPENIO_ReadDataEx(io, buf, sizeof(buf), 200), -1); // nothing to read: times out
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(190));
    ASSERT_EQ(BLPOPENIO_WriteData(io, "hello", 5), 5);
    for (int i = 0; i < 200 && BLPOPENIO_GetBytesReadAvailable(io) < 5; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(BLPOPENIO_GetBytesReadAvailable(io), 5);
    EXPECT_EQ(BLPOPENIO_ReadDataEx(io, buf, sizeof(buf), 1000), 5);
    EXPECT_EQ(std::string(buf, 5), "hello");
    // cat ends by itself once its input ends: a waiting close gets its status.
    EXPECT_EQ(BLPOPENIO_CloseEx(io, 1, 5000), 0);

    io = BLPOPENIO_Create("rw", "/bin/sleep 30");
    ASSERT_NE(io, nullptr);
    const auto killStart = std::chrono::steady_clock::now();
    EXPECT_EQ(BLPOPENIO_CloseEx(io, 0, 0), BLCORE_SPAWN_SIGNALED(9));
    EXPECT_LT(std::chrono::steady_clock::now() - killStart, std::chrono::seconds(2));

    io = BLPOPENIO_Create("rw", "/bin/sleep 30");
    EXPECT_EQ(BLPOPENIO_CloseEx(io, 1, 200), BLCORE_SPAWN_SIGNALED(9)); // waited, then killed
    EXPECT_EQ(BLPOPENIO_CloseEx(nullptr, 1, 0), -1);
}

// A plugin that forks leaves a grandchild; it must end with the child that
// started it, however that child ends.
// At quit the children being waited for get a grace and no more, and so do
// those started while it lasts; after its end, children run as long as ever.
TEST(Spawn, AnAbortEndsTheChildrenRunningThenAfterTheirGrace)
{
    int status = 0;
    const auto start = std::chrono::steady_clock::now();
    std::thread waiter([&status] { status = BLCORE_Spawn("/bin/sleep 30"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    BLCORE_AbortSpawns(300);
    waiter.join();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(status, BLCORE_SPAWN_SIGNALED(9));
    EXPECT_GE(took, std::chrono::milliseconds(450));
    EXPECT_LT(took, std::chrono::milliseconds(2000));
    EXPECT_EQ(BLCORE_LastSpawnAborted(), 0); // another thread's spawn
    EXPECT_EQ(BLCORE_Spawn("/bin/sleep 30"), BLCORE_SPAWN_SIGNALED(9)); // started during the abort: no grace left
    EXPECT_EQ(BLCORE_LastSpawnAborted(), 1);
    BLCORE_AbortSpawns(-1);
    EXPECT_EQ(BLCORE_Spawn("/bin/sh -c \"sleep 0.5; exit 3\""), 3); // after its end: runs to its end
    EXPECT_EQ(BLCORE_LastSpawnAborted(), 0);
}

TEST(ChildProcessGroup, WhatAChildForksEndsWithIt)
{
    TempDir dir;
    const std::string pidFile = dir.file("grandchild.pid");
    // The child forks a sleeper and says where it is, then ends as the case says.
    auto script = [&](const char* end) {
        return "/bin/sh -c \"sleep 60 & echo $! > '" + pidFile + "'; " + end + "\"";
    };
    struct Case {
        const char* name;
        std::function<void(const std::string&)> run;
    };
    const std::vector<Case> cases = {
        {"spawn, normal end", [](const std::string& cmd) { EXPECT_EQ(BLCORE_Spawn("%s", cmd.c_str()), 0); }},
        {"spawn, crash",
         [](const std::string& cmd) { EXPECT_EQ(BLCORE_Spawn("%s", cmd.c_str()), BLCORE_SPAWN_SIGNALED(11)); }},
        {"spawn, timeout",
         [](const std::string& cmd) {
             const int old = BLCORE_SetSpawnTimeout(300);
             EXPECT_EQ(BLCORE_Spawn("%s", cmd.c_str()), BLCORE_SPAWN_SIGNALED(9));
             BLCORE_SetSpawnTimeout(old);
         }},
        {"pipe, closed waiting",
         [](const std::string& cmd) {
             BLPOpenIO io = BLPOPENIO_Create("r", cmd.c_str());
             ASSERT_NE(io, nullptr);
             EXPECT_EQ(BLPOPENIO_CloseEx(io, 1, 5000), 0);
         }},
        {"pipe, killed",
         [&](const std::string& cmd) {
             BLPOpenIO io = BLPOPENIO_Create("rw", cmd.c_str());
             ASSERT_NE(io, nullptr);
             pidFromFile(pidFile);
             EXPECT_EQ(BLPOPENIO_CloseEx(io, 0, 0), BLCORE_SPAWN_SIGNALED(9));
         }},
    };
    const std::vector<const char*> ends = {"exit 0", "kill -SEGV $$", "sleep 30", "exit 0", "sleep 30"};
    for (size_t i = 0; i < cases.size(); ++i) {
        std::remove(pidFile.c_str());
        cases[i].run(script(ends[i]));
        const long grandchild = pidFromFile(pidFile);
        ASSERT_GT(grandchild, 0) << cases[i].name;
        EXPECT_FALSE(processRuns(grandchild)) << cases[i].name;
        if (processRuns(grandchild, 0))
            kill(pid_t(grandchild), SIGKILL);
    }
}

TEST(ChildPipes, WritingToAChildThatIsGoneFailsWithoutASignal)
{
    BLPOpenIO io = BLPOPENIO_Create("rw", "/bin/true");
    ASSERT_NE(io, nullptr);
    char buf[4];
    EXPECT_EQ(BLPOPENIO_ReadDataEx(io, buf, sizeof(buf), 2000), 0); // end of stream
    std::vector<char> block(1 << 16, 'x');
    int result = 0;
    for (int i = 0; i < 50 && result >= 0; ++i)
        result = BLPOPENIO_WriteData(io, block.data(), int(block.size()));
    EXPECT_EQ(result, -1); // and this process is still here
    BLPOPENIO_CloseEx(io, 1, 1000);
    EXPECT_EQ(BLPOPENIO_Create("rw", "/nonexistent/program"), nullptr);
    EXPECT_EQ(BLPOPENIO_Create("rw", "\"unbalanced"), nullptr);
}

TEST(ChildPipes, ReadOnlyCommandsFeedTheXmlReader)
{
    BLDOM dom = BLDOM_CreateFromXMLFile("popen:///bin/echo \"<A><B x='1'>t</B></A>\"");
    ASSERT_NE(dom, nullptr);
    EXPECT_STREQ(BLDOM_NodeAttributeTextValue(dom, BLDOM_FindNode(dom, "/A/B"), "x"), "1");
    BLDOM_Destroy(dom);
    // A command that fails gives no tree, even with output.
    EXPECT_EQ(BLDOM_CreateFromXMLFile("popen:///bin/sh -c 'echo \"<A/>\"; exit 3'"), nullptr);
    // One that hangs is killed at the spawn timeout.
    const int old = BLCORE_SetSpawnTimeout(300);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(BLDOM_CreateFromXMLFile("popen:///bin/sleep 20"), nullptr);
    BLCORE_SetSpawnTimeout(old);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST(Paths, ComparePathIgnoresDotsAndRepeatedSlashes)
{
    EXPECT_EQ(BLIOUTILS_ComparePath("/a/b/c.so", "/a//b/./c.so"), 0);
    EXPECT_EQ(BLIOUTILS_ComparePath("/a/x/../b/c.so", "/a/b/c.so"), 0);
    EXPECT_EQ(BLIOUTILS_ComparePath("/a/b/", "/a/b"), 0);
    EXPECT_NE(BLIOUTILS_ComparePath("/a/b/c.so", "/a/b/d.so"), 0);
    EXPECT_NE(BLIOUTILS_ComparePath("a/b", "/a/b"), 0);
    float v[3];
    EXPECT_EQ(BLSTRING_GetFloatVectorValuesFromString("[0.25, 1e-1]", v, 3), 2);
    EXPECT_FLOAT_EQ(v[1], 0.1f);
    EXPECT_EQ(BLSTRING_GetFloatVectorValuesFromString("[x]", v, 3), 0);
    char value[8];
    setenv("VLOR_TEST_ENV", "abcdefghij", 1);
    EXPECT_EQ(BLENV_GetEnvValue("VLOR_TEST_ENV", value, sizeof(value)), 1);
    EXPECT_STREQ(value, "abcdefg");
    EXPECT_EQ(BLENV_GetEnvValue("VLOR_TEST_ENV_UNSET", value, sizeof(value)), 0);
    EXPECT_STREQ(value, "");
}

// A value fits when it and its terminator do; a value that ends in a
// backslash nobody escaped keeps it.
TEST(StringHelpers, KeyValueStringsReportTruncationAtTheExactSize)
{
    struct Case {
        const char* list;
        const char* key;
        int size;
        int result;
        const char* value;
    };
    const Case cases[] = {
        {"name=\"abcd\"", "name", 5, 1, "abcd"},             // four characters and the terminator
        {"name=\"abcde\"", "name", 5, 0, "abcd"},            // exactly as long as the buffer: cut
        {"name=abcd,x=1", "name", 5, 1, "abcd"},
        {"x=1,path=\"C:\\dir\\\"", "path", 64, 1, "C:\\dir\\"}, // the last backslash is not an escape
        {"path=\"a\\\\b\"", "path", 64, 1, "a\\b"},
        {"x=1", "missing", 8, 0, "dflt"},
    };
    for (const Case& c : cases) {
        char buffer[64] = "";
        EXPECT_EQ(BLSTRING_GetStringValueFromString(c.list, c.key, "dflt", buffer, c.size), c.result) << c.list;
        EXPECT_STREQ(buffer, c.value) << c.list;
    }
}

TEST(StringHelpers, Base64RoundTripsAndRefusesGarbage)
{
    const unsigned char three[] = {0x01, 0xff, 0x80};
    char* b64 = BLSTRING_ToBase64(three, 3);
    ASSERT_NE(b64, nullptr);
    EXPECT_STREQ(b64, "Af+A");
    int n = 0;
    void* back = BLSTRING_FromBase64(b64, &n);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(std::memcmp(back, three, 3), 0);
    std::free(back);
    std::free(b64);
    for (int len = 0; len < 7; ++len) {
        const char* text = "abcdefg";
        char* enc = BLSTRING_ToBase64(text, len);
        void* dec = BLSTRING_FromBase64(enc, &n);
        EXPECT_EQ(n, len);
        EXPECT_EQ(std::memcmp(dec, text, size_t(len)), 0);
        std::free(enc);
        std::free(dec);
    }
    EXPECT_EQ(BLSTRING_FromBase64("!!!!", &n), nullptr);
    EXPECT_EQ(BLSTRING_FromBase64("AA=A", &n), nullptr);
    EXPECT_EQ(BLSTRING_FromBase64(nullptr, &n), nullptr);
}
