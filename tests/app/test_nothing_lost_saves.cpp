// Nothing lost across processes and channels: every channel of a track
// processed whatever the effect's layout, files whole when a process is
// killed in the middle of its saves, and two processes' choices merged.
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

// frames of channels, each channel a sine of its own pitch and level.
std::vector<float> writeChannels(const std::string& file, int channels, int frames)
{
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    std::vector<float> v(size_t(channels) * size_t(frames));
    for (int f = 0; f < frames; ++f)
        for (int c = 0; c < channels; ++c)
            v[size_t(f * channels + c)] = 0.1f * float(c + 1) * float(std::sin(0.01 * (c + 1) * f));
    SNDFILE* out = sf_open(file.c_str(), SFM_WRITE, &info);
    sf_writef_float(out, v.data(), frames);
    sf_close(out);
    return v;
}

} // namespace

// Every channel of a track comes out processed, whatever inputs and outputs
// the effect has: the filter and the mixer run one instance a channel where
// the effect has fewer than the track. The fixture's gain is the same on each
// channel, so each output channel is its own input channel times one gain.
TEST_F(Apply, EveryChannelOfTheTrackIsProcessedWhateverTheEffectsLayout)
{
    const int frames = 6000;
    for (const char* layout : {"1-1", "1-2", "2-1", "2-2"})
        for (int channels : {1, 2, 6})
            for (const std::string how : {"apply --param 0=0.75", "apply --mixer"}) {
                SCOPED_TRACE(std::string(layout) + ", " + std::to_string(channels) + " channels, " + how);
                const std::vector<float> in = writeChannels(dir.file("multi.wav"), channels, frames);
                setenv("VLOR_FIXTURE_LAYOUT", layout, 1);
                // A data folder a layout: the plugin's description is kept there.
                const std::string data = "--data '" + dir.file(std::string("data-") + layout) + "' ";
                const std::string cmd = "'" + kVlorfx + "' " + data + how + " --vst2 '" + kStereo + "' '" +
                                        dir.file("multi.wav") + "' '" + dir.file("multi-out.wav") + "' 2>'" +
                                        dir.file("stderr") + "'";
                const int status = std::system(cmd.c_str());
                unsetenv("VLOR_FIXTURE_LAYOUT");
                ASSERT_EQ(WEXITSTATUS(status), 0) << err();
                int got = 0;
                const std::vector<float> out = read("multi-out.wav", &got);
                ASSERT_EQ(got, channels);
                ASSERT_EQ(out.size(), in.size());
                const float gain = out[size_t(100 * channels)] / in[size_t(100 * channels)];
                EXPECT_GT(std::fabs(gain), 0.5f);
                for (int c = 0; c < channels; ++c)
                    for (int f = 0; f < frames; f += 7)
                        ASSERT_NEAR(out[size_t(f * channels + c)], in[size_t(f * channels + c)] * gain, 1e-4)
                            << "channel " << c << " frame " << f;
            }
}

// A mono VST3 effect on a stereo track: each channel through its own
// instance, none silent and none a copy of another.
TEST_F(Apply, AMonoVst3EffectProcessesEachChannelOfAStereoTrack)
{
    if (!BLIO_Exists("/usr/lib/vst3/ZamComp.vst3"))
        GTEST_SKIP() << "zam-plugins is not installed: no mono VST3 effect";
    const int frames = 8000;
    for (int channels : {2, 6}) {
        SCOPED_TRACE(channels);
        const std::vector<float> in = writeChannels(dir.file("multi.wav"), channels, frames);
        for (const std::string how : {"apply", "apply --mixer"}) {
            ASSERT_EQ(run(how + " --vst3 /usr/lib/vst3/ZamComp.vst3 '" + dir.file("multi.wav") + "' '" +
                          dir.file("multi-out.wav") + "'"),
                      0)
                << err();
            int got = 0;
            const std::vector<float> out = read("multi-out.wav", &got);
            ASSERT_EQ(got, channels);
            for (int c = 0; c < channels; ++c) {
                double inPeak = 0, outPeak = 0;
                for (int f = 0; f < frames; ++f) {
                    inPeak = std::max(inPeak, double(std::fabs(in[size_t(f * channels + c)])));
                    outPeak = std::max(outPeak, double(std::fabs(out[size_t(f * channels + c)])));
                }
                EXPECT_NEAR(outPeak / inPeak, 1.0, 0.25) << how << " channel " << c;
            }
        }
    }
}

// vlorfx killed at every moment of its saves (catalogs of both formats, the
// pairs, settings and bindings): each file is either the old or the new
// version, never half of one, and the choice it holds is one of the two.
TEST_F(Apply, AProcessKilledInTheMiddleOfItsSavesLeavesEachFileOldOrNew)
{
    ASSERT_EQ(std::system(("mkdir -p '" + dir.file("vst2") + "' '" + dir.file("vst3") + "' && cp '" + kStereo + "' '" +
                           dir.file("vst2") + "/' && cp -r '" VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3' '" +
                           dir.file("vst3") + "/'")
                              .c_str()),
              0);
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", dir.path().c_str(), 1); // no bundles of the user's own
    ASSERT_EQ(run("scan --vst2-path '" + dir.file("vst2") + "' --vst3-path '" + dir.file("vst3") + "'"), 0) << err();
    const std::string data = dir.file("data");
    const std::vector<std::string> jsonFiles = {data + "/vstxml/catalog_v2.json", data + "/catalog_vst3.json",
                                                data + "/plugin_pairs.json"};
    // Each command changes a choice and saves; killed after 0 to 60 ms.
    const std::vector<std::string> commands = {
        "disable 'Vlor Fixture Stereo'", "enable 'Vlor Fixture Stereo'", "disable 'Fixture Gain'",
        "enable 'Fixture Gain'", "menu --bind vstid-1 Ctrl+Shift+K", "menu --bind vstid-1 ''"};
    int killedDuring = 0;
    for (int round = 0; round < 36; ++round) {
        const std::string& command = commands[size_t(round) % commands.size()];
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            const std::string line = "exec '" + kVlorfx + "' --data '" + data + "' " + command + " >/dev/null 2>&1";
            execl("/bin/sh", "sh", "-c", line.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(round * 60 / 36));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        killedDuring += WIFSIGNALED(status);
        for (const std::string& file : jsonFiles) {
            const std::string text = readFile(file);
            QJsonParseError error;
            const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
            ASSERT_TRUE(error.error == QJsonParseError::NoError && doc.isObject())
                << "after '" << command << "' killed: " << file << " is half written\n" << text.substr(0, 200);
        }
        // The settings store is whole too: every line a key and its value.
        std::istringstream settings(readFile(data + "/settings.conf"));
        for (std::string line; std::getline(settings, line);)
            ASSERT_NE(line.find('='), std::string::npos) << "after '" << command << "' killed: " << line;
    }
    EXPECT_GT(killedDuring, 0) << "no run was killed before it ended";
    // The choices read back are those of a whole command: a last run of each
    // pair sets them for sure, and list agrees.
    ASSERT_EQ(run("disable 'Vlor Fixture Stereo'"), 0) << err();
    ASSERT_EQ(run("list"), 0) << err();
    EXPECT_NE(readFile(dir.file("stdout")).find("Vlor Fixture Stereo  Vlor Test Vendor  off"), std::string::npos)
        << readFile(dir.file("stdout"));
    setenv("HOME", home.c_str(), 1);
}

// Two processes share the data folder and flip different plugins 200 times
// each, at once: every save merges the other's choices, so neither loses
// any; the settings store (a binding each) the same.
TEST_F(Apply, TwoProcessesFlippingDifferentPluginsLoseNoChoice)
{
    const std::string folder = dir.file("vst2");
    ASSERT_EQ(std::system(("mkdir -p '" + folder + "' && cp '" + kStereo + "' '" + folder + "/a.so' && cp '" VLOR_FIXTURE_VST_DIR
                           "/vlor-fault-many-params.so' '" + folder + "/b.so'")
                              .c_str()),
              0);
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();
    const std::string data = dir.file("data");
    auto flipper = [&](const std::string& plugin, const std::string& action) {
        const pid_t pid = fork();
        if (pid == 0) {
            std::string script;
            for (int i = 0; i < 200; ++i) {
                const bool off = i % 2 == 0;
                script += "'" + kVlorfx + "' --data '" + data + "' " + (off ? "disable" : "enable") + " '" + folder +
                          "/" + plugin + "' >/dev/null 2>&1 || exit 1\n";
                if (i % 50 == 49) // and a binding now and then
                    script += "'" + kVlorfx + "' --data '" + data + "' menu --bind " + action + " Ctrl+" +
                              std::to_string(i) + " >/dev/null 2>&1 || exit 1\n";
            }
            // The last word: off.
            script += "'" + kVlorfx + "' --data '" + data + "' disable '" + folder + "/" + plugin + "' >/dev/null 2>&1\n";
            execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        return pid;
    };
    const pid_t a = flipper("a.so", "vstid-1");
    const pid_t b = flipper("b.so", "vstid-2");
    int sa = 0, sb = 0;
    ASSERT_EQ(waitpid(a, &sa, 0), a);
    ASSERT_EQ(waitpid(b, &sb, 0), b);
    EXPECT_TRUE(WIFEXITED(sa) && WEXITSTATUS(sa) == 0);
    EXPECT_TRUE(WIFEXITED(sb) && WEXITSTATUS(sb) == 0);
    ASSERT_EQ(run("list"), 0) << err();
    const std::string list = readFile(dir.file("stdout"));
    // Both names listed, both off: each process's last word.
    EXPECT_NE(list.find("Vlor Fixture Stereo"), std::string::npos) << list;
    EXPECT_NE(list.find("Faulty many_params"), std::string::npos) << list;
    EXPECT_EQ(list.find(" on "), std::string::npos) << list;
    const std::string settings = readFile(data + "/settings.conf");
    EXPECT_NE(settings.find("vloraudio.shortcuts.vstid-1=Ctrl+199"), std::string::npos) << settings;
    EXPECT_NE(settings.find("vloraudio.shortcuts.vstid-2=Ctrl+199"), std::string::npos) << settings;
}

// The merge of a save with what another process wrote since: record by
// record against the last version this process knew.
TEST(JsonMerge, ChoicesOfBothSidesAreKeptAndTheLaterSaveWinsAConflict)
{
    auto doc = [](const char* text) { return QJsonDocument::fromJson(QByteArray(text)).object(); };
    struct Case {
        const char* what;
        const char *base, *mine, *theirs, *merged;
    };
    const Case cases[] = {
        {"different records changed",
         R"({"paths":[{"path":"/p","plugins":[{"filename":"a","enabled":true},{"filename":"b","enabled":true}]}]})",
         R"({"paths":[{"path":"/p","plugins":[{"filename":"a"},{"filename":"b","enabled":true}]}]})",
         R"({"paths":[{"path":"/p","plugins":[{"filename":"a","enabled":true},{"filename":"b"}]}]})",
         R"({"paths":[{"path":"/p","plugins":[{"filename":"a"},{"filename":"b"}]}]})"},
        {"one record changed on both sides: mine",
         R"({"pairs":[{"pairId":"x","active":"vst2"}]})", R"({"pairs":[{"pairId":"x","active":"vst3"}]})",
         R"({"pairs":[{"pairId":"x","active":"vst2","veto":true}]})", R"({"pairs":[{"pairId":"x","active":"vst3","veto":true}]})"},
        {"a record they added, one I removed",
         R"({"pairs":[{"pairId":"x"},{"pairId":"y"}]})", R"({"pairs":[{"pairId":"x"}]})",
         R"({"pairs":[{"pairId":"x"},{"pairId":"y"},{"pairId":"z"}]})", R"({"pairs":[{"pairId":"x"},{"pairId":"z"}]})"},
        {"lists of names as sets", R"({"disabledVendors":["a","b"]})", R"({"disabledVendors":["a","b","c"]})",
         R"({"disabledVendors":["b"]})", R"({"disabledVendors":["b","c"]})"},
        {"classes of a bundle by class ID",
         R"({"bundles":[{"path":"/x.vst3","classes":[{"cid":"1","state":2},{"cid":"2","state":2}]}]})",
         R"({"bundles":[{"path":"/x.vst3","classes":[{"cid":"1","state":4},{"cid":"2","state":2}]}]})",
         R"({"bundles":[{"path":"/x.vst3","classes":[{"cid":"1","state":2},{"cid":"2","state":4}]}]})",
         R"({"bundles":[{"path":"/x.vst3","classes":[{"cid":"1","state":4},{"cid":"2","state":4}]}]})"},
        {"splits of one VST2 plugin from two LV2 plugins, one made on each side",
         R"({"splits":[]})", R"({"splits":[{"vst2":"1","vst3":null,"lv2":"urn:u"}]})",
         R"({"splits":[{"vst2":"1","vst3":null,"lv2":"urn:w"}]})",
         R"({"splits":[{"vst2":"1","vst3":null,"lv2":"urn:u"},{"vst2":"1","vst3":null,"lv2":"urn:w"}]})"},
        {"unchanged here: theirs", R"({"v":1})", R"({"v":1})", R"({"v":2})", R"({"v":2})"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MergeJson3(doc(c.base), doc(c.mine), doc(c.theirs)).toObject(), doc(c.merged)) << c.what;
}

// A setting written by another process (a binding made with vlorfx while the
// editor runs) is read here within a second; one this process changed and
// has not written yet stays its own, and both reach the file.
TEST(SettingsAcrossProcesses, AnotherProcesssBindingIsReadHereWithinASecond)
{
    const std::string data = dataDir();
    ASSERT_EQ(BLSETTINGS_ChangeEx(nullptr, "%s=%s", "vlortest.here", "mine"), 1);
    ASSERT_EQ(BLSETTINGS_Flush(), 1);
    ASSERT_EQ(BLSETTINGS_ChangeEx(nullptr, "%s=%s", "vlortest.pending", "not written yet"), 1);
    const std::string cmd = "'" + kVlorfx + "' --data '" + data + "' menu --bind vstid-9 Ctrl+9 >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    char value[256] = "";
    EXPECT_TRUE(waitFor([&] {
        BLSETTINGS_GetStringEx(nullptr, value, sizeof(value), "%s=[]", "vloraudio.shortcuts.vstid-9");
        return std::string(value) == "Ctrl+9";
    }, 2000)) << value;
    BLSETTINGS_GetStringEx(nullptr, value, sizeof(value), "%s=[]", "vlortest.pending");
    EXPECT_EQ(std::string(value), "not written yet");
    ASSERT_EQ(BLSETTINGS_Flush(), 1);
    const std::string file = readFile(data + "/settings.conf");
    for (const char* line : {"vloraudio.shortcuts.vstid-9=Ctrl+9", "vlortest.here=mine", "vlortest.pending=not written yet"})
        EXPECT_NE(file.find(line), std::string::npos) << line << "\n" << file;
}
