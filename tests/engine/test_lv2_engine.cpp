// The LV2 engine on the fixture bundle (each fault named by the host
// program; parameters, state, worker, atoms, side chains) and on every LV2
// effect of the machine (ten seconds of noise each, the state round trip).
#include "QVlorLv2_MixerEffect.h"
#include "lv2engine.h"

#include <gtest/gtest.h>

#include <csignal>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
// A host program built with the address sanitizer reports a crash and exits 1
// rather than dying of the signal.
constexpr int kCrashStatus = 1;
#else
constexpr int kCrashStatus = 128 + SIGSEGV;
#endif

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const std::string kFixtures = VLOR_FIXTURE_LV2_DIR;
const std::string kHost = std::string(VLOR_BIN_DIR) + "/vlorlv2";
const std::string kFixture = "urn:vlor:fixture:";

using Instance = std::unique_ptr<_Lv2Instance, int (*)(_Lv2Instance*)>;

class Lv2 : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // The fixtures beside the machine's own folders, as a user's LV2_PATH would add them.
        setenv("LV2_PATH", (kFixtures + ":/usr/lib/lv2:/usr/local/lib/lv2").c_str(), 1);
        ASSERT_EQ(VLORLV2_Initialize(), 1);
    }

    static Instance make(const std::string& uri, int maxBlock = 256)
    {
        char error[512] = "";
        Instance fx(VLORLV2_CreateInstance(uri.c_str(), 48000, maxBlock, error, sizeof(error)),
                    VLORLV2_DestroyInstance);
        EXPECT_TRUE(fx) << uri << ": " << error;
        if (fx)
            VLORLV2_Activate(fx.get());
        return fx;
    }

    // Reproducible noise, interleaved.
    static std::vector<float> noise(size_t samples, unsigned seed = 7)
    {
        std::vector<float> v(samples);
        for (float& x : v) {
            seed = seed * 1103515245u + 12345u;
            x = (float((seed >> 9) & 0xffff) / 32768.0f - 1.0f) * 0.25f;
        }
        return v;
    }

    static std::vector<float> process(_Lv2Instance* fx, const std::vector<float>& in, int channels)
    {
        std::vector<float> out(in.size());
        EXPECT_EQ(VLORLV2_ProcessAudio(fx, in.data(), out.data(), channels, int(in.size()) / channels), 1);
        return out;
    }
};

// What the host program answers for a fixture: the exit, and its last line.
struct HostAnswer {
    int status; // the exit status, or 128 + the signal that ended it
    std::string line;
};

// The host program run with those arguments (quoted by the caller); its last line.
HostAnswer runHost(const std::string& arguments)
{
    const std::string cmd = "LV2_PATH='" + kFixtures + ":/usr/lib/lv2' VLOR_PLUGIN_LOG=/dev/null timeout -s KILL 4 '" +
                            kHost + "' " + arguments;
    FILE* pipe = popen(cmd.c_str(), "r");
    std::string all;
    char buffer[4096];
    while (pipe && std::fgets(buffer, sizeof(buffer), pipe))
        all += buffer;
    const int raw = pipe ? pclose(pipe) : -1;
    const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    while (!all.empty() && all.back() == '\n')
        all.pop_back();
    return {status, all.substr(all.rfind('\n') == std::string::npos ? 0 : all.rfind('\n') + 1)};
}

HostAnswer checkInHost(const std::string& uri) { return runHost("--check '" + uri + "'"); }

TEST_F(Lv2, EachFaultOfTheFixturesIsSurvivedAndNamedByTheHostProgram)
{
    struct Case {
        const char* fixture;
        int status; // 137: killed by the timeout (SIGKILL); 139: a segmentation fault in the child
        const char* says;
    } cases[] = {
        {"gain", 0, "\"ok\":true"},
        {"gain", 0, "\"latency\":16"},
        {"needs-feature", 1, "requires a feature this host does not offer: urn:vlor:fixture#unoffered"},
        {"crash-instantiate", kCrashStatus, ""},
        {"crash-run", kCrashStatus, ""},
        {"hang", 137, ""},
        {"nan", 1, "invalid samples"},
        {"atom", 0, "\"ok\":true"},
        {"worker", 0, "\"ok\":true"},
        {"sidechain", 0, "\"sideChainInputs\":1"},
        {"fixed-block", 0, "\"ok\":true"},
        {"no-such-plugin", 1, "no LV2 plugin has this URI"},
    };
    for (const Case& c : cases) {
        const HostAnswer a = checkInHost(kFixture + c.fixture);
        // The timeout ends the hang with its own status when the child dies by our signal.
        EXPECT_EQ(a.status, c.status) << c.fixture;
        EXPECT_NE(a.line.find(c.says), std::string::npos) << c.fixture << ": " << a.line;
    }
}

// A bundle's check takes --after and --only once each, each with its URI;
// anything else is refused with the usage, and nothing is checked.
TEST_F(Lv2, TheBundleCheckTakesItsOptionsOnceEachAndRefusesTheRest)
{
    const std::string bundle = "--check-bundle '" + kFixtures + "/vlor-lv2-fixtures.lv2'";
    const std::string gain = " '" + kFixture + "gain'";
    struct Case {
        std::string options;
        int status;
        const char* says;
    } cases[] = {
        {" --only" + gain, 0, "\"checked\":1}"},
        {" --only" + gain + " --after 'urn:a'", 0, "\"checked\":1}"},
        {" --after", 2, "bad arguments to the LV2 host"},
        {" --only", 2, "bad arguments to the LV2 host"},
        {" --only" + gain + " --only" + gain, 2, "bad arguments to the LV2 host"},
        {" --after 'urn:a' --after 'urn:b'", 2, "bad arguments to the LV2 host"},
        {" --first" + gain, 2, "bad arguments to the LV2 host"},
    };
    for (const Case& c : cases) {
        const HostAnswer a = runHost(bundle + c.options);
        EXPECT_EQ(a.status, c.status) << c.options;
        EXPECT_NE(a.line.find(c.says), std::string::npos) << c.options << ": " << a.line;
    }
}

TEST_F(Lv2, AMissingFeatureIsRefusedInProcessByName)
{
    char error[512] = "";
    EXPECT_EQ(VLORLV2_CreateInstance((kFixture + "needs-feature").c_str(), 48000, 256, error, sizeof(error)), nullptr);
    EXPECT_STREQ(error, "the plugin requires a feature this host does not offer: urn:vlor:fixture#unoffered");
    Lv2PluginRecord r;
    ASSERT_EQ(VLORLV2_DescribePlugin((kFixture + "needs-feature").c_str(), &r), 1);
    EXPECT_STREQ(r.missingFeature, "urn:vlor:fixture#unoffered");
    EXPECT_EQ(VLORLV2_DescribePlugin("urn:vlor:fixture:nothing", &r), 0);
}

TEST_F(Lv2, TheControlInputsAreTheParametersWithTheirKinds)
{
    Instance fx = make(kFixture + "gain");
    ASSERT_TRUE(fx);
    ASSERT_EQ(VLORLV2_GetNumParams(fx.get()), 3);
    struct Expected {
        const char* symbol;
        const char* units;
        float minimum, maximum, defaultValue;
        int flags, points;
    } expected[] = {
        {"gain", "dB", -20, 20, 0, 0, 0},
        {"mode", "", 0, 2, 0, kLv2ParamInteger | kLv2ParamEnumeration, 3},
        {"mute", "", 0, 1, 0, kLv2ParamToggled, 0},
    };
    for (int i = 0; i < 3; ++i) {
        Lv2ParamInfo info;
        ASSERT_EQ(VLORLV2_GetParamInfo(fx.get(), i, &info), 1);
        EXPECT_STREQ(info.symbol, expected[i].symbol);
        EXPECT_STREQ(info.units, expected[i].units) << info.symbol;
        EXPECT_EQ(info.minimum, expected[i].minimum) << info.symbol;
        EXPECT_EQ(info.maximum, expected[i].maximum) << info.symbol;
        EXPECT_EQ(info.defaultValue, expected[i].defaultValue) << info.symbol;
        EXPECT_EQ(info.flags, expected[i].flags) << info.symbol;
        EXPECT_EQ(info.scalePoints, expected[i].points) << info.symbol;
    }
    // The labelled values in value order, whatever order the file gives.
    std::string labels;
    for (int p = 0; p < 3; ++p) {
        float value;
        char label[64];
        ASSERT_EQ(VLORLV2_GetScalePoint(fx.get(), 1, p, &value, label, sizeof(label)), 1);
        labels += std::to_string(int(value)) + "=" + label + " ";
    }
    EXPECT_EQ(labels, "0=Plain 1=Inverted 2=Half ");
    // Set values are clamped to the range, rounded for integers and toggles.
    struct Set {
        int index;
        float value, read;
    } sets[] = {{0, 35, 20}, {0, -6.5f, -6.5f}, {1, 1.4f, 1}, {1, 9, 2}, {2, 0.7f, 1}, {2, 0.2f, 0}};
    for (const Set& s : sets) {
        EXPECT_EQ(VLORLV2_SetParam(fx.get(), s.index, s.value), 1);
        EXPECT_EQ(VLORLV2_GetParam(fx.get(), s.index), s.read) << s.index << " " << s.value;
    }
    EXPECT_EQ(VLORLV2_SetParam(fx.get(), 0, NAN), 0);
    EXPECT_EQ(VLORLV2_SetParam(fx.get(), 3, 1), 0);
}

TEST_F(Lv2, ParametersReachTheAudioAndTheLatencyIsTold)
{
    Instance fx = make(kFixture + "gain", 100);
    ASSERT_TRUE(fx);
    const std::vector<float> in = noise(1000);
    struct Case {
        float gain, mode, mute, factor;
    } cases[] = {{0, 0, 0, 1}, {20, 0, 0, 10}, {0, 1, 0, -1}, {0, 2, 0, 0.5f}, {0, 0, 1, 0}};
    for (const Case& c : cases) {
        VLORLV2_SetParam(fx.get(), 0, c.gain);
        VLORLV2_SetParam(fx.get(), 1, c.mode);
        VLORLV2_SetParam(fx.get(), 2, c.mute);
        // Blocks longer than the largest run are cut: 1000 frames, runs of 100.
        const std::vector<float> out = process(fx.get(), in, 1);
        for (size_t i = 0; i < in.size(); i += 97)
            ASSERT_NEAR(out[i], in[i] * c.factor, 1e-5f) << c.gain << " " << c.mode << " " << c.mute;
    }
    EXPECT_EQ(VLORLV2_GetLatency(fx.get()), 16);
    // A mono effect on a stereo track: the second channel is silent here; the
    // layer above makes one instance a channel.
    const std::vector<float> stereo = process(fx.get(), noise(200), 2);
    for (size_t i = 1; i < stereo.size(); i += 2)
        ASSERT_EQ(stereo[i], 0.0f);
}

TEST_F(Lv2, StateRoundTripsBitIdenticallyAndRefusesAnotherPluginsState)
{
    Instance a = make(kFixture + "gain");
    ASSERT_TRUE(a);
    VLORLV2_SetParam(a.get(), 0, -3.25f);
    VLORLV2_SetParam(a.get(), 1, 1);
    char* state = VLORLV2_GetState(a.get());
    ASSERT_NE(state, nullptr);
    EXPECT_NE(std::strstr(state, "urn:vlor:fixture:note"), nullptr) << state; // the state interface's own
    Instance b = make(kFixture + "gain");
    ASSERT_EQ(VLORLV2_SetState(b.get(), state), 1);
    EXPECT_EQ(VLORLV2_GetParam(b.get(), 0), -3.25f);
    const std::vector<float> in = noise(4096);
    const std::vector<float> outA = process(a.get(), in, 1), outB = process(b.get(), in, 1);
    EXPECT_EQ(std::memcmp(outA.data(), outB.data(), outA.size() * sizeof(float)), 0);
    Instance other = make(kFixture + "atom");
    EXPECT_EQ(VLORLV2_SetState(other.get(), state), 0);
    EXPECT_EQ(VLORLV2_SetState(b.get(), "not turtle at all"), 0);
    VLORLV2_FreeString(state);
}

TEST_F(Lv2, WorkerAtomsAndSideChainsAreServed)
{
    // The worker's response reaches the plugin at the end of a run: from
    // then on it halves. Its thread answers within a few blocks.
    Instance worker = make(kFixture + "worker", 64);
    ASSERT_TRUE(worker);
    std::vector<float> out;
    for (int round = 0; round < 200; ++round) {
        out = process(worker.get(), std::vector<float>(64, 1.0f), 1);
        if (out[0] == 0.5f)
            break;
        usleep(1000);
    }
    EXPECT_EQ(out[0], 0.5f);
    // Atom buffers readied as the format says, and side chains connected
    // and silent: the fixtures answer a fault with samples that are no numbers.
    for (const char* name : {"atom", "sidechain"}) {
        Instance fx = make(kFixture + name);
        ASSERT_TRUE(fx);
        for (float v : process(fx.get(), noise(2048), 2))
            ASSERT_TRUE(std::isfinite(v)) << name;
    }
    int inputs = 0, outputs = 0;
    Instance side = make(kFixture + "sidechain");
    VLORLV2_GetBusChannels(side.get(), &inputs, &outputs);
    EXPECT_EQ(inputs, 1) << "a side chain is no main input";
    EXPECT_EQ(outputs, 1);
}

// A plugin that needs runs of one length gets them, whatever blocks it is
// given, in place or not: its output is its input a run late, and that run
// is counted in its latency.
TEST_F(Lv2, APluginThatNeedsOneRunLengthGetsItAndItsLatencyCountsTheGathering)
{
    for (int maxBlock : {256, 1000, 4096}) {
        Instance fx = make(kFixture + "fixed-block", maxBlock);
        ASSERT_TRUE(fx);
        const int late = VLORLV2_GetLatency(fx.get());
        EXPECT_EQ(late, maxBlock == 256 ? 256 : maxBlock == 1000 ? 512 : 1024) << maxBlock;
        const std::vector<float> in = noise(2 * 6000);
        std::vector<float> out(in.size());
        const int blocks[] = {1, 77, 256, 3, 1024, 500};
        size_t at = 0;
        for (int b = 0; at < in.size() / 2; b = (b + 1) % 6) {
            const int n = int(std::min<size_t>(size_t(blocks[b]), in.size() / 2 - at));
            std::copy_n(in.begin() + long(at * 2), n * 2, out.begin() + long(at * 2));
            ASSERT_EQ(VLORLV2_ProcessAudio(fx.get(), out.data() + at * 2, out.data() + at * 2, 2, n), 1);
            at += size_t(n);
        }
        for (size_t f = 0; f < in.size() / 2; ++f)
            for (size_t c = 0; c < 2; ++c) {
                const float expected = c == 0 && f >= size_t(late) ? in[(f - size_t(late)) * 2] : 0.0f;
                ASSERT_EQ(out[f * 2 + c], expected) << maxBlock << " frame " << f << " channel " << c;
            }
    }
}

// The mixer's effect: every channel of the track, the filter's configuration
// and its own state text, samples that are no numbers silenced, and a plugin
// that cannot start told by its reason.
TEST_F(Lv2, TheMixerEffectServesEveryChannelAndSilencesInvalidSamples)
{
    QVlorLv2::MixerEffect gain(QString::fromStdString(kFixture + "gain"), 48000, 2);
    ASSERT_TRUE(gain.isOk()) << gain.error().toStdString();
    ASSERT_TRUE(gain.reconfigure(QStringLiteral("lv2effect_params=\"[0,2,0]\"")));
    std::vector<float> block = noise(512);
    const std::vector<float> in = block;
    ASSERT_EQ(gain.process(block.data(), 2, 256), 256);
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_EQ(block[i], in[i] * 0.5f) << i; // both channels: one instance each
    // Bypassed, the audio passes untouched; back on, the effect is heard again.
    gain.setBypass(true);
    block = in;
    ASSERT_EQ(gain.process(block.data(), 2, 256), 256);
    EXPECT_EQ(block, in);
    gain.setBypass(false);
    ASSERT_EQ(gain.process(block.data(), 2, 256), 256);
    EXPECT_EQ(block[100], in[100] * 0.5f);
    const QString state = gain.params();
    QVlorLv2::MixerEffect copy(QString::fromStdString(kFixture + "gain"), 48000, 2);
    ASSERT_TRUE(copy.setParams(state));
    EXPECT_EQ(VLORLV2_GetParam(copy.instance(), 1), 2.0f);
    EXPECT_FALSE(copy.setParams(QStringLiteral("not a state")));

    QVlorLv2::MixerEffect nan(QString::fromStdString(kFixture + "nan"), 48000, 1);
    std::vector<float> mono = noise(128);
    ASSERT_EQ(nan.process(mono.data(), 1, 128), 128);
    for (float v : mono)
        ASSERT_EQ(v, 0.0f);

    QVlorLv2::MixerEffect lacking(QString::fromStdString(kFixture + "needs-feature"), 48000, 2);
    EXPECT_FALSE(lacking.isOk());
    EXPECT_EQ(lacking.error().toStdString(),
              "the plugin requires a feature this host does not offer: urn:vlor:fixture#unoffered");
    EXPECT_EQ(lacking.process(block.data(), 2, 256), 0);
}

// Non-default values for every continuous parameter, the same for each instance.
void moveParameters(_Lv2Instance* fx)
{
    for (int i = 0; i < VLORLV2_GetNumParams(fx); ++i) {
        Lv2ParamInfo info;
        VLORLV2_GetParamInfo(fx, i, &info);
        if (!(info.flags & (kLv2ParamToggled | kLv2ParamInteger | kLv2ParamEnumeration)))
            VLORLV2_SetParam(fx, i, info.defaultValue + 0.1f * (info.maximum - info.minimum));
    }
}

// Every LV2 effect of the machine's packages in this process: ten seconds of
// stereo noise, finite output, and the state round trip: an instance made
// from another's state sounds as that one does, bit for bit, wherever two
// instances set alike sound alike at all (noise generators do not).
TEST_F(Lv2, EveryEffectOfTheMachineRunsTenSecondsOfNoiseAndRoundTripsItsState)
{
#if defined(__SANITIZE_ADDRESS__)
    // What the machine's plugins allocate and keep is theirs: the leak check
    // looks at our code, and at the fixtures, elsewhere in this suite.
    __lsan_disable();
    struct Enable {
        ~Enable() { __lsan_enable(); }
    } enableAgain;
#endif
    const int count = VLORLV2_ListPlugins(nullptr, 0);
    std::vector<Lv2PluginRecord> all(size_t(std::max(count, 0)));
    VLORLV2_ListPlugins(all.data(), count);
    int effects = 0, random = 0;
    std::string notEffects, differing;
    for (const Lv2PluginRecord& r : all) {
        if (!std::strncmp(r.uri, kFixture.c_str(), kFixture.size()))
            continue;
        if (!r.isEffect) {
            notEffects += std::string(" ") + r.name + ";";
            continue;
        }
        ++effects;
        Instance fx = make(r.uri, 1024), alike = make(r.uri, 1024), restored = make(r.uri, 1024);
        ASSERT_TRUE(fx && alike && restored) << r.uri;
        moveParameters(fx.get());
        moveParameters(alike.get());
        char* state = VLORLV2_GetState(fx.get());
        ASSERT_NE(state, nullptr) << r.uri;
        EXPECT_EQ(VLORLV2_SetState(restored.get(), state), 1) << r.uri;
        VLORLV2_FreeString(state);
        int inputs = 0, outputs = 0;
        VLORLV2_GetBusChannels(fx.get(), &inputs, &outputs);
        const int channels = std::max(2, std::max(inputs, outputs));
        const std::vector<float> in = noise(size_t(48000) * 10 * size_t(channels));
        const std::vector<float> out = process(fx.get(), in, channels);
        for (float v : out)
            ASSERT_TRUE(std::isfinite(v)) << r.uri;
        // Its latency port is known by its designation alone.
        if (!std::strcmp(r.uri, "http://lsp-plug.in/plugins/lv2/limiter_stereo")) {
            EXPECT_GT(VLORLV2_GetLatency(fx.get()), 0);
        }
        const std::vector<float> second(in.begin(), in.begin() + 48000 * channels);
        const std::vector<float> outAlike = process(alike.get(), second, channels);
        const std::vector<float> outRestored = process(restored.get(), second, channels);
        const size_t bytes = second.size() * sizeof(float);
        if (std::memcmp(out.data(), outAlike.data(), bytes) != 0)
            ++random;
        else if (std::memcmp(out.data(), outRestored.data(), bytes) != 0)
            differing += std::string(" ") + r.uri;
    }
    if (effects == 0)
        GTEST_SKIP() << "no LV2 effects on this machine (install zam-plugins, lsp-plugins-lv2, dpf-plugins-lv2)";
    std::printf("%d LV2 effects ran ten seconds of noise; %d of them sound differently each time; not effects:%s\n",
                effects, random, notEffects.c_str());
    EXPECT_EQ(differing, "") << "the state round trip changed the output of";
}

} // namespace
