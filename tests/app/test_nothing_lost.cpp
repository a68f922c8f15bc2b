// What a careless or hostile user does with vlorfx must lose none of their
// audio, files or choices: outputs in odd places, kills in the middle,
// effects that give no numbers.
#include "vlorfx_fixture.h"

#include "libbase.h"
#include "blsettings.h"
#include "QVlorJsonMerge_p.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

using namespace vlortest;

namespace {

// The names in a folder that hold ".partial-".
std::vector<std::string> partialsIn(const std::string& folder)
{
    std::vector<std::string> names;
    if (DIR* d = opendir(folder.c_str())) {
        while (const dirent* e = readdir(d))
            if (std::string(e->d_name).find(".partial-") != std::string::npos)
                names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

mode_t typeOf(const std::string& path, bool follow)
{
    struct stat st;
    if ((follow ? stat(path.c_str(), &st) : lstat(path.c_str(), &st)) != 0)
        return 0;
    return st.st_mode & S_IFMT;
}

int majorFormatOf(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        return -1;
    sf_close(f);
    return info.format & SF_FORMAT_TYPEMASK;
}

} // namespace

TEST_F(Apply, AnOutputThatIsNoRegularFileIsRefusedAndLeftAsItWas)
{
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string sock = dir.file("sock");
    const int s = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", sock.c_str());
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(symlink(fifo.c_str(), dir.file("link-to-fifo").c_str()), 0);
    ASSERT_EQ(mkdir(dir.file("folder.wav").c_str(), 0755), 0);
    // A device of our own making: root could make the test replace a real one.
    const bool device = mknod(dir.file("null").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;
    if (device) {
        ASSERT_EQ(symlink(dir.file("null").c_str(), dir.file("link-to-device").c_str()), 0);
    }

    struct Case {
        std::string name;
        mode_t before; // of the node at the end of the name
        std::string says;
    };
    std::vector<Case> cases = {
        {"fifo", S_IFIFO, "a pipe stands in its place"},
        {"sock", S_IFSOCK, "a socket stands in its place"},
        {"link-to-fifo", S_IFIFO, "a pipe stands in its place"},
        {"folder.wav", S_IFDIR, "a folder stands in its place"},
    };
    if (device) {
        cases.push_back({"null", S_IFCHR, "a device stands in its place"});
        cases.push_back({"link-to-device", S_IFCHR, "a device stands in its place"});
    }
    for (const Case& c : cases) {
        for (const std::string& how : {std::string("apply --vst2 '") + kStereo + "'",
                                       std::string("apply --mixer --vst2 '") + kStereo + "'"}) {
            EXPECT_EQ(run(how + " '" + dir.file("in.wav") + "' '" + dir.file(c.name) + "'"), 1) << c.name << err();
            EXPECT_NE(err().find("cannot write " + dir.file(c.name) + ": " + c.says), std::string::npos)
                << c.name << "\n" << err();
            EXPECT_EQ(typeOf(dir.file(c.name), true), c.before) << c.name;
        }
    }
    EXPECT_EQ(typeOf(dir.file("link-to-fifo"), false), mode_t(S_IFLNK));
    EXPECT_TRUE(partialsIn(dir.path()).empty());
    close(s);
}

TEST_F(Apply, ALinkToAFileIsWrittenThroughAndStays)
{
    writeFile(dir.file("old.wav"), "old contents");
    ASSERT_EQ(symlink("old.wav", dir.file("link.wav").c_str()), 0);
    ASSERT_EQ(run("apply --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("link.wav") + "'"), 0)
        << err();
    EXPECT_EQ(typeOf(dir.file("link.wav"), false), mode_t(S_IFLNK));
    EXPECT_EQ(read("old.wav").size(), input.size());
}

TEST_F(Apply, TheExtensionDecidesTheFormatOrTheOutputIsRefusedByName)
{
    struct Case {
        std::string out;
        std::string options;
        int status;
        int major; // of the file written
        std::string says;
    };
    const std::vector<Case> cases = {
        {"out.wav", "", 0, SF_FORMAT_WAV, ""},
        {"out.flac", "", 0, SF_FORMAT_FLAC, ""},
        {"out.FLAC", "", 0, SF_FORMAT_FLAC, ""},
        {"out.ogg", "", 0, SF_FORMAT_OGG, ""},
        {"out.mp3", "", 0, SF_FORMAT_MPEG, ""},
        {"out.aiff", "--float", 0, SF_FORMAT_AIFF, ""},
        {"noextension", "", 0, SF_FORMAT_WAV, ""}, // the input's own
        {"out.xyz", "", 1, -1, "no audio format is written as '.xyz'"},
        {"out.flac.txt", "", 1, -1, "no audio format is written as '.txt'"},
        {"float.flac", "--float", 1, -1, "FLAC files cannot hold 32-bit float samples"},
    };
    for (const Case& c : cases) {
        for (const std::string& how : {std::string("apply --vst2 '") + kStereo + "' ",
                                       std::string("apply --mixer --vst2 '") + kStereo + "' "}) {
            std::remove(dir.file(c.out).c_str());
            EXPECT_EQ(run(how + c.options + " '" + dir.file("in.wav") + "' '" + dir.file(c.out) + "'"), c.status)
                << how << c.out << err();
            EXPECT_EQ(majorFormatOf(dir.file(c.out)), c.major) << how << c.out;
            if (!c.says.empty()) {
                EXPECT_NE(err().find(c.says), std::string::npos) << c.out << "\n" << err();
            }
        }
    }
    EXPECT_TRUE(partialsIn(dir.path()).empty());
}

TEST_F(Apply, SamplesThatAreNoNumbersFailTheApplyAndAreSilencedInTheMixer)
{
    setenv("VLOR_FIXTURE_NAN_AT_BLOCK", "3", 1);
    const int filter = run("apply --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("f.wav") + "'");
    const std::string filterErr = err();
    const int mixer = run("apply --mixer --block 1024 --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" +
                          dir.file("m.wav") + "'");
    unsetenv("VLOR_FIXTURE_NAN_AT_BLOCK");

    EXPECT_EQ(filter, 1);
    EXPECT_NE(filterErr.find("Vlor Fixture Stereo: the effect gave samples that are not numbers"), std::string::npos)
        << filterErr;
    EXPECT_NE(filterErr.find("in block 3"), std::string::npos) << filterErr;
    EXPECT_FALSE(BLIO_Exists(dir.file("f.wav").c_str()));

    ASSERT_EQ(mixer, 0) << err();
    const std::string said = "Vlor Fixture Stereo gave samples that are not numbers";
    const size_t first = err().find(said);
    EXPECT_NE(first, std::string::npos) << err();
    EXPECT_EQ(err().find(said, first + 1), std::string::npos) << "told once\n" << err();
    const std::vector<float> out = read("m.wav");
    ASSERT_EQ(out.size(), input.size());
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_TRUE(std::isfinite(out[i])) << i;
    // The first two blocks played; from the third on every block was silenced.
    EXPECT_NE(out[2 * 100], 0.0f);
    for (size_t i = 2 * 2 * 1024; i < out.size(); ++i)
        ASSERT_EQ(out[i], 0.0f) << i;
}

TEST_F(Apply, AnApplyEndedByASignalLeavesNoPartialFile)
{
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        const std::string out = dir.file("slow-" + std::to_string(sig) + ".wav");
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            setenv("VLOR_FIXTURE_SLOW_MS", "300", 1);
            signal(SIGINT, SIG_DFL);
            const std::string data = dir.file("data");
            execl(kVlorfx.c_str(), "vlorfx", "--data", data.c_str(), "apply", "--vst2", kStereo.c_str(),
                  dir.file("in.wav").c_str(), out.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        ASSERT_TRUE(waitFor([&] { return !partialsIn(dir.path()).empty(); }, 20000)) << "no partial file appeared";
        kill(pid, sig);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig) << sig << " status " << status;
        EXPECT_TRUE(partialsIn(dir.path()).empty()) << sig;
        EXPECT_FALSE(BLIO_Exists(out.c_str())) << sig;
    }
}

TEST_F(Apply, AnOptionOfOneRunNeverWritesASetting)
{
    const std::string settings = dir.file("data") + "/settings.conf";
    // Killed while its dialog opens (the plugin takes its time): the panel's
    // setting was never the user's.
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        setenv("VLOR_FIXTURE_SLOW_MS", "4000", 1);
        signal(SIGINT, SIG_DFL);
        const std::string data = dir.file("data"), shot = dir.file("x.png");
        execl(kVlorfx.c_str(), "vlorfx", "--data", data.c_str(), "open", "--generic", "--screenshot", shot.c_str(),
              kStereo.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(readFile(settings).find("use_fallback_editor"), std::string::npos) << readFile(settings);

    ASSERT_EQ(mkdir(dir.file("vst").c_str(), 0755), 0);
    ASSERT_EQ(run("scan --no-vst3 --parallel 3 --check-timeout 7 --vst2-path '" + dir.file("vst") + "'"), 0) << err();
    for (const char* key : {"parallel_checks", "check_timeout", "probe_timeout"})
        EXPECT_EQ(readFile(settings).find(key), std::string::npos) << key << "\n" << readFile(settings);
}

TEST_F(Apply, AWindowWithoutADisplayFailsAtOnceSayingWhatToDo)
{
    struct Case {
        std::string display; // "" for none
        std::string command;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"", "open '" + kStereo + "'", "there is no display"},
        {"", "prefs", "there is no display"},
        {"", "gui", "there is no display"},
        {":987", "open --generic '" + kStereo + "'", "the display :987 does not answer"},
        {":987", "prefs --filter x", "the display :987 does not answer"},
    };
    for (const Case& c : cases) {
        const std::string env = c.display.empty() ? "env -u DISPLAY -u WAYLAND_DISPLAY "
                                                  : "env -u WAYLAND_DISPLAY DISPLAY=" + c.display + " ";
        const std::string cmd = env + "timeout 30 '" + kVlorfx + "' --data '" + dir.file("data") + "' " + c.command +
                                " 2>'" + dir.file("stderr") + "'";
        const int status = std::system(cmd.c_str());
        EXPECT_EQ(WEXITSTATUS(status), 1) << c.command;
        EXPECT_NE(err().find(c.says), std::string::npos) << c.command << "\n" << err();
        EXPECT_NE(err().find("xvfb-run -a vlorfx"), std::string::npos) << err();
        EXPECT_NE(err().find("--screenshot"), std::string::npos) << err();
    }
}

// A full disk (here a file size limit of nothing) fails every save: each
// command that saves says which file and why, and exits non-zero.
TEST_F(Apply, ACommandWhoseSaveFailsSaysSoAndFails)
{
    ASSERT_EQ(mkdir(dir.file("vst").c_str(), 0755), 0);
    ASSERT_EQ(std::system(("cp '" + kStereo + "' '" + dir.file("vst/stereo.so") + "'").c_str()), 0);
    ASSERT_EQ(mkdir(dir.file("more").c_str(), 0755), 0);
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + dir.file("vst") + "'"), 0) << err();
    struct Case {
        std::string command;
        std::string file; // in the data folder
    };
    const std::vector<Case> cases = {
        {"menu --bind vstid-1 Ctrl+Shift+K", "settings.conf"},
        {"disable 'Vlor Fixture Stereo'", "vstxml/catalog_v2.json"},
        {"scan --no-vst3 --vst2-path '" + dir.file("more") + "'", "vstxml/catalog_v2.json"},
    };
    for (const Case& c : cases) {
        // The limit is the command's alone: what it says reaches a pipe.
        const std::string cmd = "set -o pipefail; (ulimit -f 0; '" + kVlorfx + "' --data '" + dir.file("data") + "' " +
                                c.command + " 2>&1 >/dev/null) | cat >'" + dir.file("stderr") + "'";
        const int status = std::system(("bash -c \"" + cmd + "\"").c_str());
        EXPECT_NE(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0) << c.command << "\n" << err();
        EXPECT_NE(err().find("could not save " + dir.file("data") + "/" + c.file), std::string::npos)
            << c.command << "\n" << err();
        EXPECT_NE(err().find("File too large"), std::string::npos) << c.command << "\n" << err();
    }
}

// A first scan with a folder of the user's keeps the standard folders beside
// it, and later plain scans search them all.
TEST_F(Apply, AFolderGivenAtTheFirstScanKeepsTheStandardFolders)
{
    for (const char* f : {"mine", "system-a", "system-b"})
        ASSERT_EQ(mkdir(dir.file(f).c_str(), 0755), 0);
    ASSERT_EQ(std::system(("cp '" + kStereo + "' '" + dir.file("system-b/stereo.so") + "'").c_str()), 0);
    setenv("VST_PATH", (dir.file("system-a") + ":" + dir.file("system-b") + ":" + dir.file("gone")).c_str(), 1);
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + dir.file("mine") + "'"), 0) << err();
    ASSERT_EQ(run("scan --no-vst3"), 0) << err();
    ASSERT_EQ(run("list --json"), 0) << err();
    const std::string json = readFile(dir.file("stdout"));
    for (const char* f : {"mine", "system-a", "system-b"})
        EXPECT_NE(json.find("\"" + dir.file(f) + "\""), std::string::npos) << f << "\n" << json;
    EXPECT_EQ(json.find(dir.file("gone")), std::string::npos);
    EXPECT_NE(json.find("Vlor Fixture Stereo"), std::string::npos);
    // A folder that does not exist is refused by name and not kept.
    EXPECT_EQ(run("scan --no-vst3 --vst2-path '" + dir.file("nowhere") + "'"), 1);
    EXPECT_NE(err().find("no such folder: " + dir.file("nowhere")), std::string::npos) << err();
    ASSERT_EQ(run("list --json"), 0);
    EXPECT_EQ(readFile(dir.file("stdout")).find("nowhere"), std::string::npos);
}

TEST_F(Apply, AFolderThatIsNotSearchedIsNamedInTheSummary)
{
    ASSERT_EQ(mkdir(dir.file("locked").c_str(), 0), 0);
    ASSERT_EQ(run("scan --no-vst3 --vst2-path /"), 0) << err();
    EXPECT_NE(readFile(dir.file("stdout")).find("folders not searched:\n  VST2 folder /: the root of the file system is "
                                                "never searched; switched off"),
              std::string::npos)
        << readFile(dir.file("stdout"));
    if (geteuid() == 0)
        return; // root reads any folder: the unreadable case needs a user
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + dir.file("locked") + "'"), 0) << err();
    EXPECT_NE(readFile(dir.file("stdout")).find("VST2 folder " + dir.file("locked") + ": cannot be read: "),
              std::string::npos)
        << readFile(dir.file("stdout"));
}

TEST_F(Apply, ADataFolderWhoseParentIsMissingIsAnError)
{
    const std::string cmd = "'" + kVlorfx + "' --data '" + dir.file("no/such/data") + "' list 2>'" +
                            dir.file("stderr") + "'";
    EXPECT_EQ(WEXITSTATUS(std::system(cmd.c_str())), 2);
    EXPECT_NE(err().find("the folder " + dir.file("no/such") + " does not exist"), std::string::npos) << err();
    EXPECT_FALSE(BLIO_Exists(dir.file("no").c_str()));
    // A new data folder in a folder that is there is made as before.
    EXPECT_EQ(run("list"), 0) << err();
}

// A check child killed by someone else (not by our timeout) says nothing of
// its plugin: the next plain scan checks it again, and it comes up. Both
// formats: a VST2 check, a VST3 probe.
TEST_F(Apply, ACheckKilledFromOutsideIsCheckedAgainAtTheNextScan)
{
    struct Case {
        std::string format;  // "vst2" or "vst3"
        std::string plugin;  // what is copied into the folder
        std::string child;   // what the check child's command line holds
        std::string listed;  // list's line once it is checked
    };
    const std::vector<Case> cases = {
        {"vst2", "stereo.so", "[-]-check ", "Vlor Fixture Stereo"},
        {"vst3", "vlor-vst3-effects.vst3", "[-]-probe ", "vlor-vst3-effects.vst3"},
    };
    for (const Case& c : cases) {
        TempDir here;
        const std::string folder = here.file("plugins"), data = here.file("data"), plugin = folder + "/" + c.plugin;
        const std::string source = c.format == "vst2" ? kStereo : VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
        ASSERT_EQ(std::system(("mkdir -p '" + folder + "' && cp -r '" + source + "' '" + plugin + "'").c_str()), 0);
        const std::string only = c.format == "vst2" ? "--no-vst3" : "--no-vst2";
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            setenv("VLOR_FIXTURE_SLOW_MS", "8000", 1);
            setenv("HOME", here.path().c_str(), 1); // no bundles of the user's own
            const std::string out = here.file("scan.out"), option = "--" + c.format + "-path";
            freopen(out.c_str(), "w", stdout);
            execl(kVlorfx.c_str(), "vlorfx", "--data", data.c_str(), "scan", only.c_str(), option.c_str(),
                  folder.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        // "[-]" keeps the pattern from matching the shell that runs pkill.
        const std::string kill = "pkill -KILL -f -- '" + c.child + plugin + "' >/dev/null";
        EXPECT_TRUE(waitFor([&] { return std::system(kill.c_str()) == 0; }, 20000)) << c.format << ": no child to kill";
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_NE(readFile(here.file("scan.out")).find("the check was ended from outside (signal 9"), std::string::npos)
            << readFile(here.file("scan.out"));

        const std::string again = "HOME='" + here.path() + "' '" + kVlorfx + "' --data '" + data + "' scan " + only +
                                  " >/dev/null 2>&1 && '" + kVlorfx + "' --data '" + data + "' list >'" +
                                  here.file("list") + "'";
        ASSERT_EQ(std::system(again.c_str()), 0) << c.format;
        const std::string list = readFile(here.file("list"));
        EXPECT_NE(list.find(c.listed), std::string::npos) << list;
        EXPECT_EQ(list.find("ended from outside"), std::string::npos) << list;
        // Checked this time: its classes are on (but the fixture's one that fails by design).
        std::istringstream lines(list);
        int on = 0;
        for (std::string line; std::getline(lines, line);)
            on += line.find(c.plugin) != std::string::npos && line.find("  on  ") != std::string::npos;
        EXPECT_GT(on, 0) << list;
    }
}

// enable, disable and recheck take every name list prints, failed plugins'
// included: the file standing for the product, with or without extension.
TEST_F(Apply, EveryNameListPrintsIsTakenByEnableDisableAndRecheck)
{
    ASSERT_EQ(mkdir(dir.file("vst").c_str(), 0755), 0);
    ASSERT_EQ(std::system(("cp '" VLOR_FIXTURE_VST_DIR "/vlor-fault-synth.so' '" + dir.file("vst/synth.so") + "'").c_str()), 0);
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + dir.file("vst") + "'"), 0) << err();
    ASSERT_EQ(run("list"), 0);
    ASSERT_NE(readFile(dir.file("stdout")).find("synth.so"), std::string::npos);
    for (const char* command : {"disable", "enable", "recheck"})
        for (const std::string& name : {std::string("synth.so"), std::string("synth"), dir.file("vst/synth.so")}) {
            run(std::string(command) + " '" + name + "'");
            EXPECT_EQ(err().find("nothing in the catalog"), std::string::npos) << command << " " << name << "\n" << err();
            EXPECT_NE(readFile(dir.file("stdout")).find("synth.so: VST2 " + dir.file("vst/synth.so")), std::string::npos)
                << command << " " << name;
        }
}

// Each of the library's files that cannot be read gives back what the user
// chose from its last good copy: disabled plugins, folders, pair ids (which
// shortcuts are bound to). Said once; the broken file kept aside.
TEST_F(Apply, ACorruptFileGivesBackTheChoicesOfItsLastGoodCopy)
{
    if (!BLIO_Exists("/usr/lib/vst3/ZamComp.vst3") || !BLIO_Exists("/usr/lib/vst/ZamComp-vst.so"))
        GTEST_SKIP() << "zam-plugins is not installed: no twins to pair";
    const std::string data = dir.file("data");
    ASSERT_EQ(std::system(("mkdir -p '" + dir.file("vst2") + "' '" + dir.file("vst3") + "' && cp '" + kStereo + "' " +
                           "/usr/lib/vst/ZamComp-vst.so '" + dir.file("vst2") + "/' && cp -r /usr/lib/vst3/ZamComp.vst3 '" +
                           dir.file("vst3") + "/'")
                              .c_str()),
              0);
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", dir.path().c_str(), 1); // no bundles of the user's own
    const std::string scan = "scan --vst2-path '" + dir.file("vst2") + "' --vst3-path '" + dir.file("vst3") + "'";
    ASSERT_EQ(run(scan), 0) << err();
    ASSERT_EQ(run("disable 'Vlor Fixture Stereo'"), 0) << err();
    ASSERT_EQ(run("list --json"), 0) << err();
    const std::string before = readFile(dir.file("stdout"));
    ASSERT_NE(before.find("pairId"), std::string::npos) << before;

    for (const char* file : {"vstxml/catalog_v2.json", "catalog_vst3.json", "plugin_pairs.json"}) {
        SCOPED_TRACE(file);
        writeFile(data + "/" + file, "{\"broken\": ");
        ASSERT_EQ(run("list --json"), 0) << err();
        EXPECT_EQ(readFile(dir.file("stdout")), before);
        EXPECT_NE(err().find("Could not read " + data + "/" + file + " ("), std::string::npos) << err();
        EXPECT_NE(err().find("restored from its last good copy"), std::string::npos) << err();
        EXPECT_EQ(std::system(("ls '" + data + "/" + file + "'.unreadable-* >/dev/null 2>&1").c_str()), 0);
        // Said once: the file is good again.
        ASSERT_EQ(run("list --json"), 0) << err();
        EXPECT_EQ(err().find("restored"), std::string::npos) << err();
        EXPECT_EQ(readFile(dir.file("stdout")), before);
    }
    // A last good copy that is broken as well restores nothing: the file is
    // put aside as before, and nothing claims to be restored.
    writeFile(data + "/plugin_pairs.json", "{\"broken\": ");
    writeFile(data + "/plugin_pairs.json.last-good", "[1, 2]");
    ASSERT_EQ(run("list"), 0) << err();
    EXPECT_EQ(err().find("restored"), std::string::npos) << err();
    EXPECT_NE(err().find("Could not read " + data + "/plugin_pairs.json"), std::string::npos) << err();
    setenv("HOME", home.c_str(), 1);
}
