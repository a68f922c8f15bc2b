// What vlorfx says to a person on the command line: a mistyped command, a
// table fitted to the terminal, counts that agree between runs and commands,
// plugins' own printing kept in a log, and files that cannot be read told in
// words.
#include "vlorfx_fixture.h"

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>

#include <regex>
#include <sstream>

using namespace vlortest;

namespace {

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// A folder with the fixture bundle of effects alone: scanned in a moment.
std::string effectsBundle()
{
    static TempDir folder;
    const std::string bundle = folder.file("vlor-vst3-effects.vst3");
    if (!QFileInfo::exists(QString::fromStdString(bundle)))
        std::system(("cp -r '" VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3' '" + folder.path() + "/'").c_str());
    return folder.path();
}

// vlorfx with its standard output on a terminal of the given width; what it printed.
std::string onTerminal(const std::string& data, const std::string& args, int columns)
{
    int master = -1;
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = 50;
    const pid_t pid = forkpty(&master, nullptr, nullptr, &size);
    if (pid == 0) {
        const std::string cmd = "exec '" + kVlorfx + "' --data '" + data + "' " + args + " 2>/dev/null";
        // A terminal that tells no width (0) leaves it to COLUMNS.
        setenv("COLUMNS", "70", 1);
        execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    std::string out;
    char buffer[4096];
    for (ssize_t n; (n = ::read(master, buffer, sizeof(buffer))) > 0;)
        out.append(buffer, size_t(n));
    close(master);
    waitpid(pid, nullptr, 0);
    out.erase(std::remove(out.begin(), out.end(), '\r'), out.end());
    return out;
}

} // namespace

TEST_F(Cli, AMistypedCommandGetsOneLineWithTheNearestCommand)
{
    struct Case {
        const char* typed;
        const char* said;
    };
    const Case cases[] = {
        {"lst", "vlorfx: unknown command 'lst'; did you mean 'list'?\n"},
        {"scna", "vlorfx: unknown command 'scna'; did you mean 'scan'?\n"},
        {"appl", "vlorfx: unknown command 'appl'; did you mean 'apply'?\n"},
        {"rechek", "vlorfx: unknown command 'rechek'; did you mean 'recheck'?\n"},
        {"xyzzy", "vlorfx: unknown command 'xyzzy'\n"},
        {"opxyz", "vlorfx: unknown command 'opxyz'\n"}, // three edits from open: too far
        {"prefx", "vlorfx: unknown command 'prefx'; did you mean 'prefs'?\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.typed), 2) << c.typed;
        EXPECT_EQ(err(), std::string(c.said) + "'vlorfx --help' lists the commands.\n") << c.typed;
    }
}

TEST_F(Cli, ListsAreSortedAndFittedToTheTerminalAndWholeWithWideOrOffIt)
{
    const std::string folder = plugins({{"vlor-fixture-stereo.so", "a-plugin-with-a-long-file-name-indeed.so"},
                                        {"vlor-fault-synth.so", "synth.so"},
                                        {"vlor-fault-many-params.so", "many.so"}});
    ASSERT_EQ(run("scan --quiet --vst2-path '" + folder + "' --vst3-path '" + effectsBundle() + "'"), 0) << err();
    for (const char* command : {"list", "list --rows"}) {
        ASSERT_EQ(run(command), 0) << err();
        const std::vector<std::string> whole = lines(out());
        ASSERT_GT(whole.size(), 3u) << command;
        EXPECT_EQ(whole[0].substr(0, 7), "PRODUCT") << command;
        EXPECT_NE(whole[0].find("PAIRED BY  FILES"), std::string::npos) << whole[0];
        size_t longest = 0;
        for (size_t i = 1; i < whole.size(); ++i) {
            longest = std::max(longest, whole[i].size());
            // Sorted by product, as a person looks one up.
            if (i > 1) {
                const QString before = QString::fromStdString(whole[i - 1]).section(QLatin1Char(' '), 0, 0);
                const QString here = QString::fromStdString(whole[i]).section(QLatin1Char(' '), 0, 0);
                EXPECT_LE(before.compare(here, Qt::CaseInsensitive), 0) << command << ":\n" << out();
            }
        }
        EXPECT_GT(longest, 90u) << "off a terminal every line is whole";
        EXPECT_NE(out().find("a-plugin-with-a-long-file-name-indeed.so"), std::string::npos) << out();

        for (int columns : {80, 60, 0}) {
            const std::vector<std::string> fitted = lines(onTerminal(dir.file("data"), command, columns));
            ASSERT_EQ(fitted.size(), whole.size()) << command << " at " << columns;
            for (const std::string& line : fitted)
                EXPECT_LE(QString::fromStdString(line).size(), columns ? columns : 70) << command << ": " << line;
        }
        const std::vector<std::string> wide = lines(onTerminal(dir.file("data"), std::string(command) + " --wide", 80));
        EXPECT_EQ(wide, whole) << command << " --wide prints what a file gets";
    }
}

// Real products of both formats pair as a scan finds them: the scan's count,
// list's paired lines and a second scan's count are one number.
TEST_F(Cli, ScanAndListCountThePairsAlike)
{
    // The machine's plugins, checked many at a time: the last checks come in
    // while the pairs are being made.
    if (!QFileInfo::exists(QStringLiteral("/usr/lib/vst/ZamComp-vst.so")) ||
        !QFileInfo::exists(QStringLiteral("/usr/lib/vst3/ZamComp.vst3")))
        GTEST_SKIP() << "zam-plugins is not installed in both formats";
    setenv("VST_PATH", "/usr/lib/vst", 1);
    ASSERT_EQ(run("scan --quiet --parallel 8"), 0) << err();
    std::smatch m;
    const std::string summary = out();
    ASSERT_TRUE(std::regex_search(summary, m, std::regex("pairs: (\\d+)"))) << summary;
    const int scanned = std::stoi(m[1]);
    EXPECT_GE(scanned, 5) << "zam's products pair:\n" << summary;
    ASSERT_EQ(run("list"), 0);
    int listed = 0;
    const std::string table = out();
    for (const std::string& line : lines(table)) {
        const size_t plus = line.find(" + ");
        if (plus == std::string::npos)
            continue;
        ++listed;
        // A paired product is on one line only: its VST2 file is on no other.
        const std::string file = line.substr(line.rfind(' ', plus - 1) + 1, plus - line.rfind(' ', plus - 1) - 1);
        size_t seen = 0;
        for (const std::string& other : lines(table))
            seen += other.find(file) != std::string::npos ? 1 : 0;
        EXPECT_EQ(seen, 1u) << file << " in\n" << table;
    }
    EXPECT_EQ(listed, scanned) << table;
    ASSERT_EQ(run("scan --quiet"), 0);
    EXPECT_NE(out().find("pairs: " + std::to_string(scanned)), std::string::npos) << "the same on a second run:\n" << out();
}

TEST_F(Cli, WhatPluginsPrintGoesToTheLogAndWithVerboseToTheTerminal)
{
    const std::string folder = plugins({{"vlor-fault-chatty.so", "chatty.so"}});
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();
    EXPECT_EQ(out().find("chatty plugin"), std::string::npos) << out();
    EXPECT_EQ(err().find("chatty plugin"), std::string::npos) << err();
    const std::string log = readFile(dir.file("data/plugins.log"));
    EXPECT_NE(log.find("chatty plugin says"), std::string::npos) << "its standard output";
    EXPECT_NE(log.find("chatty plugin warns"), std::string::npos) << "and its standard error";

    // Run in this process too, the plugin keeps off the terminal.
    ASSERT_EQ(run("apply --in-process --vst2 '" + folder + "/chatty.so' '" + dir.file("in.wav") + "' '" +
                  dir.file("out.wav") + "'"),
              0)
        << err();
    EXPECT_EQ(out().rfind("wrote ", 0), 0u) << out();
    EXPECT_EQ(out().find("chatty"), std::string::npos) << out();
    EXPECT_EQ(err().find("chatty"), std::string::npos) << err();

    // --verbose shows it where the user looks.
    const std::string cmd = "'" + kVlorfx + "' --data '" + dir.file("data") + "' --verbose recheck chatty.so 2>'" +
                            dir.file("stderr") + "' >/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << err();
    EXPECT_NE(err().find("chatty plugin"), std::string::npos) << err();
}

TEST_F(Cli, AFileThatCannotBeReadIsToldInWordsWithTheLibrarysTextAfter)
{
    const std::string text = dir.file("notes.txt");
    writeFile(text, "these are words, not audio\n");
    writeFile(dir.file("empty.wav"), "");
    mkdir(dir.file("folder.wav").c_str(), 0755);
    struct Case {
        std::string file;
        std::string said;
    };
    const Case cases[] = {
        // The library's own words follow after a colon, whichever they are.
        {text, "cannot read " + text + ": it holds no audio in a format that can be read: F"},
        {dir.file("gone.wav"), "cannot read " + dir.file("gone.wav") + ": there is no such file"},
        {dir.file("empty.wav"), "cannot read " + dir.file("empty.wav") + ": the file is empty"},
        {dir.file("folder.wav"), "cannot read " + dir.file("folder.wav") + ": it is a folder, not a file"},
    };
    for (const Case& c : cases) {
        for (const std::string& how : {std::string("apply --vst2 '") + kStereo + "'", std::string("apply --mixer --vst2 '") + kStereo + "'"}) {
            EXPECT_EQ(run(how + " '" + c.file + "' '" + dir.file("out.wav") + "'"), 1) << how;
            EXPECT_NE(err().find(c.said), std::string::npos) << how << "\n" << err();
        }
    }
}
