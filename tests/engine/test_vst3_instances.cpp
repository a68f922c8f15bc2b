// VST3 instances of the system's real bundles: creation, the engine's start
// and stop, audio through the plugin's buses, and parameters.
#include "vst3engine.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

namespace {

struct Bundle {
    std::string path;
    std::string uid;
};

std::vector<Bundle> systemBundles()
{
    std::vector<Bundle> out;
    DIR* d = opendir("/usr/lib/vst3");
    if (!d)
        return out;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.size() < 6 || name.compare(name.size() - 5, 5, ".vst3") != 0)
            continue;
        Vst3ClassRecord r[4];
        const std::string path = "/usr/lib/vst3/" + name;
        if (VLORVST3_ListClasses(path.c_str(), r, 4) >= 1)
            out.push_back({path, r[0].uid});
    }
    closedir(d);
    return out;
}

std::vector<float> tone(int channels, int frames)
{
    std::vector<float> v(size_t(channels) * size_t(frames));
    for (int f = 0; f < frames; ++f)
        for (int c = 0; c < channels; ++c)
            v[size_t(f) * size_t(channels) + size_t(c)] = 0.4f * float(std::sin(0.03 * f + c));
    return v;
}

class Instances : public ::testing::Test {
protected:
    void SetUp() override
    {
        VLORVST3_Initialize();
        bundles = systemBundles();
        if (bundles.empty())
            GTEST_SKIP() << "no system bundles";
    }
    Bundle find(const std::string& name)
    {
        for (const Bundle& b : bundles)
            if (b.path.find("/" + name + ".vst3") != std::string::npos)
                return b;
        return bundles.front();
    }
    std::vector<Bundle> bundles;
};

} // namespace

TEST_F(Instances, EveryBundleRunsAndChangesTheSound)
{
    for (const Bundle& b : bundles) {
        _Vst3Instance* h = VLORVST3_CreateInstance(b.path.c_str(), b.uid.c_str());
        ASSERT_NE(h, nullptr) << b.path;
        EXPECT_EQ(VLORVST3_GetBlockSize(h), 8192);
        ASSERT_EQ(VLORVST3_SetAudioFormat(h, 48000, 2), 1);
        ASSERT_EQ(VLORVST3_SetOffline(h, 1), 1);
        ASSERT_EQ(VLORVST3_StartEngine(h), 1) << b.path;
        EXPECT_EQ(VLORVST3_StartEngine(h), 0); // already started
        const std::vector<float> in = tone(2, 20000);
        std::vector<float> out(in.size(), 7.0f);
        ASSERT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 20000), 1) << b.path;
        bool finite = true;
        for (float v : out)
            finite = finite && std::isfinite(v) && v != 7.0f;
        EXPECT_TRUE(finite) << b.path;
        EXPECT_GE(VLORVST3_GetLatency(h), 0.0);
        EXPECT_GE(VLORVST3_GetTailTime(h), 0.0);
        EXPECT_EQ(VLORVST3_StopEngine(h), 1);
        EXPECT_EQ(VLORVST3_StopEngine(h), 1);
        EXPECT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 100), 0); // stopped
        EXPECT_EQ(VLORVST3_Reset(h), 1);
        EXPECT_EQ(VLORVST3_DestroyInstance(h), 1);
    }
}

TEST_F(Instances, ChannelsAreAdaptedToTheBuses)
{
    const Bundle b = find("ZamEQ2");
    _Vst3Instance* h = VLORVST3_CreateInstance(b.path.c_str(), b.uid.c_str());
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(VLORVST3_SetAudioFormat(h, 44100, 3), 1);
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    const std::vector<float> in = tone(3, 4096);
    std::vector<float> out(in.size());
    ASSERT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 3, 4096), 1);
    // Three caller channels out of a smaller bus: the last bus channel repeats.
    for (int f = 0; f < 4096; ++f)
        ASSERT_EQ(out[size_t(f) * 3 + 2], out[size_t(f) * 3 + 1]) << f;
    // In place works too, and nothing is done for no frames.
    std::vector<float> same = in;
    ASSERT_EQ(VLORVST3_ProcessAudio(h, same.data(), same.data(), 3, 4096), 1);
    EXPECT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 3, 0), 1);
    VLORVST3_DestroyInstance(h);
}

TEST_F(Instances, ParametersReadWriteAndDisplay)
{
    const Bundle b = find("ZamComp");
    _Vst3Instance* h = VLORVST3_CreateInstance(b.path.c_str(), b.uid.c_str());
    ASSERT_NE(h, nullptr);
    const int n = VLORVST3_GetNumParams(h);
    ASSERT_GT(n, 0);
    Vst3ParamInfo info;
    ASSERT_EQ(VLORVST3_GetParamInfo(h, 0, &info), 1);
    EXPECT_GT(std::strlen(info.title), 0u);
    EXPECT_EQ(VLORVST3_GetParamInfo(h, n, &info), 0);
    EXPECT_EQ(VLORVST3_GetParamInfo(h, -1, &info), 0);
    EXPECT_EQ(VLORVST3_GetParamInfo(h, 0, nullptr), 0);
    VLORVST3_GetParamInfo(h, 0, &info);
    ASSERT_EQ(VLORVST3_SetParamNormalized(h, info.id, 0.25), 1);
    EXPECT_NEAR(VLORVST3_GetParamNormalized(h, info.id), 0.25, 1e-6);
    char text[64];
    ASSERT_EQ(VLORVST3_GetParamDisplay(h, info.id, 0.25, text, sizeof(text)), 1);
    EXPECT_GT(std::strlen(text), 0u);
    char one[1] = {'x'};
    ASSERT_EQ(VLORVST3_GetParamDisplay(h, info.id, 0.25, one, 1), 1);
    EXPECT_EQ(one[0], '\0');
    // Changes queued while stopped reach the processor with the first block.
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    const std::vector<float> in = tone(2, 512);
    std::vector<float> out(in.size());
    EXPECT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 512), 1);
    VLORVST3_DestroyInstance(h);
}

TEST(InstanceArguments, BadPathsIdsAndNullHandles)
{
    VLORVST3_Initialize();
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-classes.vst3";
    EXPECT_EQ(VLORVST3_CreateInstance(nullptr, "0A010203000000000000000000000001"), nullptr);
    EXPECT_EQ(VLORVST3_CreateInstance(bundle.c_str(), nullptr), nullptr);
    EXPECT_EQ(VLORVST3_CreateInstance(bundle.c_str(), "0A01020300000000000000000000001"), nullptr);   // 31
    EXPECT_EQ(VLORVST3_CreateInstance(bundle.c_str(), "0A0102030000000000000000000000011"), nullptr); // 33
    EXPECT_EQ(VLORVST3_CreateInstance(bundle.c_str(), "ZZ010203000000000000000000000001"), nullptr);  // no class
    EXPECT_EQ(VLORVST3_CreateInstance("/tmp", "0A010203000000000000000000000001"), nullptr);
    EXPECT_EQ(VLORVST3_DestroyInstance(nullptr), 0);
    EXPECT_EQ(VLORVST3_StartEngine(nullptr), 0);
    EXPECT_EQ(VLORVST3_ProcessAudio(nullptr, nullptr, nullptr, 2, 1), 0);
    EXPECT_EQ(VLORVST3_GetLatency(nullptr), 0.0);
    EXPECT_EQ(VLORVST3_SetAudioFormat(nullptr, 44100, 2), 0);
    EXPECT_EQ(VLORVST3_GetNumParams(nullptr), 0);
    EXPECT_EQ(VLORVST3_SetBypass(nullptr, 1), 0);
}

TEST_F(Instances, StateRoundTripsThroughTheConfigurationString)
{
    for (const Bundle& b : bundles) {
        _Vst3Instance* a = VLORVST3_CreateInstance(b.path.c_str(), b.uid.c_str());
        ASSERT_NE(a, nullptr);
        ASSERT_EQ(VLORVST3_StartEngine(a), 1);
        // The first writable parameter gets a value of its own.
        Vst3ParamInfo info{};
        for (int i = 0; i < VLORVST3_GetNumParams(a); ++i)
            if (VLORVST3_GetParamInfo(a, i, &info) && !info.isReadOnly && !info.isHidden && !info.isBypass)
                break;
        VLORVST3_SetParamNormalized(a, info.id, 0.3);
        // The processor hears of it with the next block (these plugins pass
        // over changes in a block of no samples).
        std::vector<float> block(2 * 256, 0.0f);
        VLORVST3_ProcessAudio(a, block.data(), block.data(), 2, 256);
        char* config = VLORVST3_GetConfig(a);
        ASSERT_NE(config, nullptr) << b.path;
        EXPECT_EQ(std::strncmp(config, "presetsize=", 11), 0) << config;

        _Vst3Instance* c = VLORVST3_CreateInstance(b.path.c_str(), b.uid.c_str());
        int events = 0;
        VLORVST3_SetEventCallback(
            c, [](void* user, Vst3HostEvent e, int32_t p, int32_t) {
                if (e == kVst3EventParamChanged && p == -1)
                    ++*static_cast<int*>(user);
            },
            &events);
        const int applied = VLORVST3_SetConfigEx(c, config, true);
        if (std::string(config) == "presetsize=4,presetdata=\"AA==\"") {
            // A plugin with nothing to keep writes one zero byte and then
            // refuses it as state: the refusal comes back as 0, with no event.
            EXPECT_EQ(applied, 0) << b.path;
            EXPECT_EQ(events, 0);
            VLORVST3_FreeString(config);
            VLORVST3_DestroyInstance(c);
            VLORVST3_DestroyInstance(a);
            continue;
        }
        ASSERT_EQ(applied, 1) << b.path << " " << config;
        EXPECT_EQ(events, 1);
        EXPECT_NEAR(VLORVST3_GetParamNormalized(c, info.id), VLORVST3_GetParamNormalized(a, info.id), 1e-4) << b.path;
        // Inside a larger configuration, and with no state at all.
        const std::string wrapped = std::string("vst3effect_uid=\"") + b.uid + "\"," + config;
        EXPECT_EQ(VLORVST3_SetConfigEx(c, wrapped.c_str(), false), 1);
        EXPECT_EQ(VLORVST3_SetConfigEx(c, "nothing=1", false), 1);
        // Malformed or truncated state is an absent pair, not a crash.
        std::string truncated(config);
        truncated.resize(truncated.size() / 2);
        EXPECT_EQ(VLORVST3_SetConfigEx(c, truncated.c_str(), false), 1);
        EXPECT_EQ(VLORVST3_SetConfigEx(c, "presetsize=8,presetdata=\"!!!!!!!!\"", false), 1);
        EXPECT_EQ(VLORVST3_SetConfigEx(c, "presetsize=0,presetdata=\"AAAA\"", false), 1);
        VLORVST3_FreeString(config);
        VLORVST3_DestroyInstance(c);
        VLORVST3_DestroyInstance(a);
    }
    EXPECT_EQ(VLORVST3_GetConfig(nullptr), nullptr);
    EXPECT_EQ(VLORVST3_SetConfigEx(nullptr, "x", false), 0);
    VLORVST3_FreeString(nullptr);
}
