// The platform's audio engine: the registry of filters, an effect's life,
// the offline renderer, key=value configurations and the main thread.
#include "audiofx.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace vlortest;

namespace {

// A filter of the test's own: a gain read from the configuration, and a
// latency that it takes out of what it delivers, as the VST filter does.
struct GainFx {
    float gain;
    int channels;
    long latencyLeft;
};

std::atomic<int> g_initialized{0};
int gainInit() { return ++g_initialized, 1; }
void* gainCreate(void*, const AUDIO_FORMAT* f, const char* config)
{
    if (BLSTRING_GetBooleanValueFromString(config, "refuse", 0))
        return nullptr;
    return new GainFx{BLSTRING_GetFloatValueFromString(config, "gain", 1.0f), f->numChannels,
                      long(BLSTRING_GetIntegerValueFromString(config, "latency", 0))};
}
int gainConfigure(void* h, const char* config)
{
    static_cast<GainFx*>(h)->gain = BLSTRING_GetFloatValueFromString(config, "gain", 1.0f);
    return 1;
}
int gainProcess(void* h, const float* in, long* inFrames, float* out, long* outFrames, int)
{
    auto* fx = static_cast<GainFx*>(h);
    long n = std::min(std::min(*inFrames, *outFrames), 1000L);
    *inFrames = n;
    for (long i = 0; i < n * fx->channels; ++i)
        out[i] = in[i] * fx->gain;
    const long drop = std::min(n, fx->latencyLeft);
    fx->latencyLeft -= drop;
    std::memmove(out, out + drop * fx->channels, size_t((n - drop) * fx->channels) * sizeof(float));
    *outFrames = n - drop;
    return 1;
}
int gainDestroy(void* h)
{
    delete static_cast<GainFx*>(h);
    return 1;
}

AUDIO_EffectFilter makeGainFilter()
{
    AUDIO_EffectFilter f;
    std::memset(&f, 0, sizeof(f));
    f.name = "Test gain";
    f.initialize = gainInit;
    f.create = gainCreate;
    f.configure = gainConfigure;
    f.processSamples = gainProcess;
    f.destroy = gainDestroy;
    return f;
}
AUDIO_EffectFilter g_gain = makeGainFilter();

void writeWav(const std::string& path, int channels, int frames, int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT)
{
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = channels;
    info.format = format;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    std::vector<float> data(size_t(channels) * size_t(frames));
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = float(i % 100) / 200.0f;
    sf_writef_float(f, data.data(), frames);
    sf_close(f);
}

std::vector<float> readWav(const std::string& path, SF_INFO* info)
{
    *info = SF_INFO{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, info);
    if (!f)
        return {};
    std::vector<float> data(size_t(info->frames) * size_t(info->channels));
    sf_readf_float(f, data.data(), info->frames);
    sf_close(f);
    return data;
}

} // namespace

TEST(EffectRegistry, FiltersAreRegisteredOnceAndFoundByName)
{
    const int before = g_initialized;
    ASSERT_EQ(AUDIO_AddEffectFilter(&g_gain), 1);
    ASSERT_EQ(AUDIO_AddEffectFilter(&g_gain), 1);
    EXPECT_EQ(g_initialized, before + 1);
    EXPECT_EQ(AUDIO_FindEffectFilter("Test gain"), &g_gain);
    EXPECT_EQ(AUDIO_FindEffectFilter("nothing"), nullptr);
    AUDIO_EffectFilter incomplete;
    std::memset(&incomplete, 0, sizeof(incomplete));
    incomplete.name = "incomplete";
    EXPECT_EQ(AUDIO_AddEffectFilter(&incomplete), 0);
    EXPECT_EQ(AUDIO_AddEffectFilter(nullptr), 0);
}

TEST(EffectRegistry, AnEffectsLifeAndTheEntriesItLacks)
{
    AUDIO_AddEffectFilter(&g_gain);
    AUDIO_FORMAT format{};
    format.sampleRate = 48000;
    format.numChannels = 2;
    char error[256];
    EXPECT_EQ(AUDIO_CreateEffect("nothing", &format, "", error, sizeof(error)), nullptr);
    EXPECT_STREQ(error, "no effect filter named \"nothing\"");
    EXPECT_EQ(AUDIO_CreateEffect("Test gain", &format, "refuse=1", error, sizeof(error)), nullptr);
    AUDIO_Effect* fx = AUDIO_CreateEffect("Test gain", &format, "gain=2", error, sizeof(error));
    ASSERT_NE(fx, nullptr);
    float in[4] = {1, 2, 3, 4}, out[4];
    long i = 2, o = 2;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in, &i, out, &o), 1);
    EXPECT_EQ(out[3], 8.0f);
    ASSERT_EQ(AUDIO_ConfigureEffect(fx, "gain=0.5"), 1);
    AUDIO_ProcessEffect(fx, in, &i, out, &o);
    EXPECT_EQ(out[3], 2.0f);
    EXPECT_EQ(AUDIO_ResetEffect(fx), 0);
    EXPECT_EQ(AUDIO_EffectLatency(fx), 0.0);
    EXPECT_EQ(AUDIO_DestroyEffect(fx), 1);
}

TEST(Render, AFileThroughAnEffectKeepsItsFormatAndLength)
{
    AUDIO_AddEffectFilter(&g_gain);
    TempDir dir;
    writeWav(dir.file("in.wav"), 2, 20000, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    char error[256] = "";
    std::vector<double> progress;
    auto onProgress = [](void* user, double f) {
        static_cast<std::vector<double>*>(user)->push_back(f);
        return 0;
    };
    ASSERT_EQ(AUDIO_RenderFile("Test gain", "gain=0.5,latency=300", dir.file("in.wav").c_str(),
                               dir.file("out.wav").c_str(), onProgress, &progress, error, sizeof(error)),
              1)
        << error;
    SF_INFO inInfo, outInfo;
    const std::vector<float> in = readWav(dir.file("in.wav"), &inInfo);
    const std::vector<float> out = readWav(dir.file("out.wav"), &outInfo);
    EXPECT_EQ(outInfo.format, inInfo.format);
    EXPECT_EQ(outInfo.frames, inInfo.frames); // the latency was made up with silence fed after the input
    for (size_t k = 0; k < 1000; ++k)
        ASSERT_NEAR(out[k], in[k] * 0.5f, 1e-4) << k;
    ASSERT_FALSE(progress.empty());
    EXPECT_DOUBLE_EQ(progress.back(), 1.0);
}

TEST(Render, FailuresLeaveNothingAtTheOutput)
{
    AUDIO_AddEffectFilter(&g_gain);
    TempDir dir;
    writeWav(dir.file("in.wav"), 1, 5000);
    writeFile(dir.file("text.wav"), "not audio at all");
    char error[256];
    struct Case {
        const char* filter;
        std::string config, in, out, message;
    };
    const Case cases[] = {
        {"Test gain", "", dir.file("text.wav"), dir.file("a.wav"), "cannot read"},
        {"Test gain", "", dir.file("missing.wav"), dir.file("b.wav"), "cannot read"},
        {"nothing", "", dir.file("in.wav"), dir.file("c.wav"), "no effect filter"},
        {"Test gain", "refuse=1", dir.file("in.wav"), dir.file("d.wav"), "could not create"},
        {"Test gain", "", dir.file("in.wav"), dir.file("no/such/dir/e.wav"), "cannot write"},
    };
    for (const Case& c : cases) {
        error[0] = '\0';
        EXPECT_EQ(AUDIO_RenderFile(c.filter, c.config.c_str(), c.in.c_str(), c.out.c_str(), nullptr, nullptr, error,
                                   sizeof(error)),
                  0);
        EXPECT_NE(std::string(error).find(c.message), std::string::npos) << error;
        EXPECT_FALSE(BLIO_Exists(c.out.c_str())) << c.out;
    }
    // A cancelled render leaves nothing either, not even its partial file.
    auto cancel = [](void*, double) { return 1; };
    EXPECT_EQ(AUDIO_RenderFile("Test gain", "", dir.file("in.wav").c_str(), dir.file("f.wav").c_str(), cancel,
                               nullptr, error, sizeof(error)),
              0);
    EXPECT_EQ(std::system(("ls '" + dir.path() + "' | grep -q partial").c_str()) == 0, false);
}

TEST(KeyValueLists, QuotesBracketsAndDefaults)
{
    const char* config = "vsteffect_hash=\"ab,cd\", vsteffect_filename=\"/a \\\"b\\\"/c,d.so\",params=[0.5, 1,0.25],"
                         "use_config_instance=true,count=12";
    char buf[64];
    ASSERT_EQ(BLSTRING_GetStringValueFromString(config, "vsteffect_hash", "", buf, sizeof(buf)), 1);
    EXPECT_STREQ(buf, "ab,cd");
    ASSERT_EQ(BLSTRING_GetStringValueFromString(config, "vsteffect_filename", "", buf, sizeof(buf)), 1);
    EXPECT_STREQ(buf, "/a \"b\"/c,d.so");
    ASSERT_EQ(BLSTRING_GetStringValueFromString(config, "params", "", buf, sizeof(buf)), 1);
    EXPECT_EQ(BLSTRING_GetVectorSizeFromString(buf), 3);
    float v[3];
    EXPECT_EQ(BLSTRING_GetFloatVectorValuesFromString(buf, v, 3), 3);
    EXPECT_FLOAT_EQ(v[2], 0.25f);
    EXPECT_EQ(BLSTRING_GetBooleanValueFromString(config, "use_config_instance", 0), 1);
    EXPECT_EQ(BLSTRING_GetIntegerValueFromString(config, "count", 0), 12);
    EXPECT_EQ(BLSTRING_GetIntegerValueFromString(config, "absent", 7), 7);
    EXPECT_EQ(BLSTRING_GetStringValueFromString(config, "absent", "dflt", buf, sizeof(buf)), 0);
    EXPECT_STREQ(buf, "dflt");
    EXPECT_EQ(BLSTRING_GetStringValueFromString(config, "vsteffect_filename", "", buf, 4), 0); // too long
    EXPECT_EQ(BLSTRING_HasKeyInString(config, "params"), 1);
    EXPECT_EQ(BLSTRING_HasKeyInString("paramsx=1", "params"), 0);

    const float values[] = {0.1f, 1.0f / 3.0f, 1e-8f};
    char text[128];
    ASSERT_GT(BLSTRING_FloatVectorToString(values, 3, text, sizeof(text)), 0);
    float back[3];
    ASSERT_EQ(BLSTRING_GetFloatVectorValuesFromString(text, back, 3), 3);
    EXPECT_EQ(std::memcmp(values, back, sizeof(values)), 0); // exact round trip
    EXPECT_EQ(BLSTRING_FloatVectorToString(values, 3, text, 4), -1);
}

TEST(MainThread, CallsFromOtherThreadsRunWhenTheMainThreadPumps)
{
    EXPECT_EQ(BLTHREAD_IsMainThread(), 1);
    std::atomic<bool> ranOnMain{false};
    auto check = [](void* flag) { static_cast<std::atomic<bool>*>(flag)->store(BLTHREAD_IsMainThread() == 1); };
    BLTHREAD_RunInMainThread(check, &ranOnMain); // from the main thread: at once
    EXPECT_TRUE(ranOnMain);
    ranOnMain = false;
    std::atomic<bool> done{false};
    std::thread worker([&] {
        EXPECT_EQ(BLTHREAD_IsMainThread(), 0);
        BLTHREAD_RunInMainThread(check, &ranOnMain);
        done = true;
    });
    while (!done)
        BLTHREAD_ProcessPendingCalls(10);
    worker.join();
    EXPECT_TRUE(ranOnMain);
}
