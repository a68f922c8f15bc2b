// Every example command of the README, run as it stands there (in a home and
// a data folder of the test's own, on a generated in.wav, with this machine's
// zam-plugins and the fixture plugins in ~/my-vst and ~/my-vst3), and checked
// to do what its comment says. An example with no check here fails the test:
// the README cannot promise what nothing tries.
#include "vlorfx_fixture.h"
#include "testhost.h"

#include <QDir>
#include <QImage>
#include <QString>

#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

using namespace vlortest;

namespace {

// The example lines of the README's "What to try next": each command of a
// line (split at ';'), without its comment.
std::vector<std::string> readmeExamples()
{
    std::ifstream in(VLOR_SOURCE_DIR "/README.md");
    std::vector<std::string> commands;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("## ", 0) == 0 || line.rfind("### ", 0) == 0) {
            inside = line == "## What to try next";
            continue;
        }
        if (!inside || line.rfind("    ", 0) != 0)
            continue;
        line = line.substr(0, line.find(" # "));
        std::istringstream parts(line);
        for (std::string part; std::getline(parts, part, ';');) {
            part = std::regex_replace(part, std::regex("^\\s+|\\s+$"), "");
            if (part.find("vlorfx") != std::string::npos)
                commands.push_back(part);
        }
    }
    return commands;
}

double peakOf(const std::vector<float>& v)
{
    double peak = 0;
    for (float x : v)
        peak = std::max(peak, double(std::fabs(x)));
    return peak;
}

struct Outcome {
    int status;
    std::string out, err;
};

class ReadmeExamples : public Cli {
public:
    // For the checks of the table.
    using Apply::dir;
    using Apply::input;
    using Apply::read;

protected:
    void SetUp() override
    {
        Cli::SetUp();
        if (!QFileInfo::exists(QStringLiteral("/usr/lib/vst/ZamComp-vst.so")) ||
            !QFileInfo::exists(QStringLiteral("/usr/lib/vst3/ZamComp.vst3")) ||
            !QFileInfo::exists(QStringLiteral("/usr/lib/vst3/ZamDelay.vst3")))
            GTEST_SKIP() << "the README's examples name zam-plugins, which is not installed";
        // The user's own folders of the examples, with plugins of the test's.
        QDir().mkpath(QString::fromStdString(dir.file("home/my-vst")));
        QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so"),
                    QString::fromStdString(dir.file("home/my-vst/vlor-fixture-stereo.so")));
        ASSERT_TRUE(copyTree(QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3"),
                             QString::fromStdString(dir.file("home/my-vst3/vlor-vst3-effects.vst3"))));
        mkdir(dir.file("data").c_str(), 0755);
        mkdir(dir.file("pictures").c_str(), 0755);
        mkdir(dir.file("pictures/gui").c_str(), 0755);
    }

public:
    // The command as a person types it in the test's folder, vlorfx being
    // the built one with the test's data folder; windows answer with a
    // picture (extra), as no person is there to look.
    Outcome run(std::string command, const std::string& extra = std::string())
    {
        const std::string vlorfx = "'" + kVlorfx + "' --data '" + dir.file("data") + "'";
        command = std::regex_replace(command, std::regex("(^|\\s)vlorfx(\\s)"), "$1" + vlorfx + "$2");
        // HOME is set before the line is read, so that its ~ is the test's home.
        const std::string cmd = "export HOME='" + dir.file("home") + "' VST_PATH=/usr/lib/vst QT_QPA_PLATFORM=offscreen; cd '" +
                                dir.path() + "' && " + command + extra + " >'" + dir.file("stdout") + "' 2>'" +
                                dir.file("stderr") + "'";
        const int status = std::system(cmd.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128, readFile(dir.file("stdout")), readFile(dir.file("stderr"))};
    }
    // The line list prints for a product, or nothing.
    std::string listLine(const std::string& product)
    {
        const Outcome o = run("vlorfx list --wide");
        std::istringstream in(o.out);
        for (std::string line; std::getline(in, line);)
            if (line.rfind(product + " ", 0) == 0)
                return line;
        return {};
    }
    void expectPicture(const std::string& file, const std::string& what)
    {
        const QImage image(QString::fromStdString(file));
        EXPECT_FALSE(image.isNull()) << what << ": no picture at " << file;
        EXPECT_GT(image.width(), 100) << what;
    }
};

// What each example says it does, looked for in what it did.
using Check = std::function<void(ReadmeExamples*, const Outcome&)>;

} // namespace

TEST_F(ReadmeExamples, EveryExampleCommandDoesWhatItsCommentSays)
{
    // A window asked for its picture: one that shows something.
    auto picture = [](const std::string& file, const std::string& what) -> Check {
        return [file, what](ReadmeExamples* t, const Outcome& o) {
            EXPECT_EQ(o.status, 0) << o.err;
            t->expectPicture(t->dir.file(file), what);
        };
    };
    struct Rule {
        std::regex command;
        std::string extra; // for a window: the picture it is asked for
        Check check;
    };
    const std::vector<Rule> rules = {
        {std::regex("^vlorfx scan --vst2-path ~/my-vst --vst3-path ~/my-vst3$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_NE(o.out.find("VST2: "), std::string::npos) << o.out;
             const Outcome list = t->run("vlorfx list --wide");
             EXPECT_NE(list.out.find("vlor-fixture-stereo.so"), std::string::npos) << "the plugin of ~/my-vst:\n" << list.out;
             EXPECT_NE(list.out.find("vlor-vst3-effects.vst3"), std::string::npos) << "the bundle of ~/my-vst3";
             // One count of the pairs, the same in the summary and in the list.
             std::smatch pairs;
             ASSERT_TRUE(std::regex_search(o.out, pairs, std::regex("\npairs: (\\d+)"))) << o.out;
             int paired = 0;
             std::istringstream lines(list.out);
             for (std::string line; std::getline(lines, line);)
                 paired += line.find(".so + ") != std::string::npos ? 1 : 0;
             EXPECT_EQ(std::stoi(pairs[1]), paired) << o.out << list.out;
         }},
        {std::regex("^vlorfx list$"), "",
         [](ReadmeExamples*, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             // One line for a product of several formats, and a failure's reason.
             EXPECT_EQ(std::count(o.out.begin(), o.out.end(), '\n') > 3, true) << o.out;
             EXPECT_TRUE(std::regex_search(
                 o.out, std::regex("\nZamComp +Damien Zammit +on +on +(-|on) +(vst[23]|lv2) .*ZamComp-vst.so \\+ ZamComp.vst3")))
                 << o.out;
             EXPECT_TRUE(std::regex_search(o.out, std::regex("\nFixture Fails .* failed .*\\(.+\\)"))) << o.out;
         }},
        {std::regex("^vlorfx list --rows$"), "",
         [](ReadmeExamples*, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_EQ(o.out.rfind("PRODUCT", 0), 0u) << "the same columns as list";
             EXPECT_TRUE(std::regex_search(o.out, std::regex("\nZamComp +Damien Zammit "))) << o.out;
         }},
        {std::regex("^vlorfx disable \"ZamComp\"$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_TRUE(std::regex_search(t->listLine("ZamComp"), std::regex("^ZamComp +Damien Zammit +(off +off|.*off)")))
                 << t->listLine("ZamComp");
         }},
        {std::regex("^vlorfx enable \"ZamComp\"$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_EQ(t->listLine("ZamComp").find(" off "), std::string::npos) << t->listLine("ZamComp");
         }},
        {std::regex("^vlorfx recheck /usr/lib/vst/ZamComp-vst.so$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_NE(o.out.find("ZamComp"), std::string::npos) << o.out;
             EXPECT_TRUE(std::regex_search(t->listLine("ZamComp"), std::regex("^ZamComp +Damien Zammit +on ")));
         }},
        {std::regex("^vlorfx apply --vst2 \\S+ZamComp-vst.so --param 5=0.5 in.wav out.wav$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             ASSERT_EQ(o.status, 0) << o.err;
             EXPECT_EQ(o.out.rfind("wrote out.wav: 0.68 s, 2 channels, 44100 Hz; peak ", 0), 0u) << o.out;
             const double gain = 20 * std::log10(peakOf(t->read("out.wav")) / peakOf(t->input));
             EXPECT_NEAR(gain, 15.0, 1.5) << "15 dB louder";
         }},
        {std::regex("^vlorfx apply --vst3 \\S+ZamComp.vst3 in.wav out.wav$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             ASSERT_EQ(o.status, 0) << o.err;
             EXPECT_EQ(o.out.rfind("wrote out.wav:", 0), 0u) << o.out;
             EXPECT_EQ(t->read("out.wav").size(), t->input.size());
         }},
        {std::regex("^vlorfx apply --mixer --vst2 \\S+ZamComp-vst.so --vst3 \\S+ZamDelay.vst3 in.wav out.wav$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             ASSERT_EQ(o.status, 0) << o.err;
             EXPECT_EQ(o.out.rfind("wrote out.wav: 0.68 s, 2 channels, 44100 Hz; peak ", 0), 0u) << o.out;
             const std::vector<float> out = t->read("out.wav");
             ASSERT_EQ(out.size(), t->input.size());
             double difference = 0;
             for (size_t i = 0; i < out.size(); ++i)
                 difference = std::max(difference, double(std::fabs(out[i] - t->input[i])));
             EXPECT_GT(difference, 0.01) << "the delay is heard";
         }},
        {std::regex("^vlorfx menu --with-audio$"), "",
         [](ReadmeExamples*, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_TRUE(std::regex_search(o.out, std::regex("ZamComp.*plugid-"))) << o.out;
         }},
        {std::regex("^vlorfx open \\S+ZamComp.vst3$"), " --screenshot pictures/open.png",
         picture("pictures/open.png", "the effect's dialog")},
        {std::regex("^xvfb-run -a vlorfx open --screenshot comp.png \\S+ZamComp-vst.so$"), "",
         picture("comp.png", "the picture of the dialog")},
        {std::regex("^vlorfx prefs$"), " --screenshot pictures/prefs.png",
         picture("pictures/prefs.png", "the plugin manager page")},
        {std::regex("^vlorfx prefs --theme dark --filter zam --screenshot page.png$"), "",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             t->expectPicture(t->dir.file("page.png"), "the page");
             const QImage page(QString::fromStdString(t->dir.file("page.png")));
             EXPECT_LT(QColor(page.pixel(5, 5)).lightness(), 100) << "dark";
         }},
        {std::regex("^vlorfx prefs --context-menu ZamComp$"), " --screenshot pictures/menu.png",
         [](ReadmeExamples*, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             for (const char* item : {"Split Pair", "Update Plugin", "Reset Plugin", "Open file location"})
                 EXPECT_NE(o.out.find(item), std::string::npos) << item << " in " << o.out;
         }},
        {std::regex("^vlorfx prefs --search-paths$"), " --screenshot pictures/paths.png",
         picture("pictures/paths.png", "the search folders")},
        {std::regex("^vlorfx gui in.wav$"), " --screenshot pictures/gui",
         [](ReadmeExamples* t, const Outcome& o) {
             EXPECT_EQ(o.status, 0) << o.err;
             EXPECT_FALSE(QDir(QString::fromStdString(t->dir.file("pictures/gui"))).entryList({QStringLiteral("*.png")}).isEmpty());
         }},
    };

    const std::vector<std::string> examples = readmeExamples();
    ASSERT_GE(examples.size(), 15u) << "the README's examples were not found";
    const bool xvfb = std::system("command -v xvfb-run >/dev/null 2>&1") == 0;
    for (const std::string& example : examples) {
        const Rule* rule = nullptr;
        for (const Rule& r : rules)
            if (std::regex_search(example, r.command))
                rule = &r;
        if (!rule) {
            ADD_FAILURE() << "the README's example '" << example << "' has no check";
            continue;
        }
        if (example.rfind("xvfb-run", 0) == 0 && !xvfb) {
            std::printf("passed over (no xvfb-run here): %s\n", example.c_str());
            continue;
        }
        SCOPED_TRACE(example);
        const Outcome o = run(example, rule->extra);
        rule->check(this, o);
    }
}
