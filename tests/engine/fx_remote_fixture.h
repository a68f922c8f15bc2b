#ifndef FX_REMOTE_FIXTURE_H
#define FX_REMOTE_FIXTURE_H
// VST3 and LV2 instances in host programs of their own, on the fixture
// plugins: what the tests of sound, parameters, editors and faults share.
#include "fxisolation.h"
#include "lv2engine.h"
#include "vst3engine.h"

#include "blsettings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace fxremote_test {

const std::string kVst3Bundle = std::string(VLOR_FIXTURE_VST3_DIR) + "/vlor-vst3-effects.vst3";
constexpr const char* kVst3Gain = "51000000000000000000000000000001";
constexpr uint32_t kGainId = 1;
const std::string kLv2 = "urn:vlor:fixture:";

using Vst3 = std::unique_ptr<_Vst3Instance, int (*)(_Vst3Instance*)>;
using Lv2 = std::unique_ptr<_Lv2Instance, int (*)(_Lv2Instance*)>;

inline std::vector<float> Noise(int channels, int frames, unsigned seed = 7)
{
    std::vector<float> v(size_t(channels) * size_t(frames));
    for (float& x : v) {
        seed = seed * 1664525u + 1013904223u;
        x = float(int(seed >> 8) % 2000 - 1000) / 1000.0f;
    }
    return v;
}

// where: 1 in a host program, 0 here. Started at 48 kHz in stereo.
inline Vst3 MakeVst3(int where, const char* uid = kVst3Gain)
{
    Vst3 fx(VLORVST3_CreateInstanceEx(kVst3Bundle.c_str(), uid, where), VLORVST3_DestroyInstance);
    if (fx) {
        VLORVST3_SetAudioFormat(fx.get(), 48000, 2);
        EXPECT_EQ(VLORVST3_StartEngine(fx.get()), 1);
    }
    return fx;
}

inline Lv2 MakeLv2(int where, const std::string& name, int maxBlock = 4096, std::string* why = nullptr)
{
    char error[512] = "";
    Lv2 fx(VLORLV2_CreateInstanceEx((kLv2 + name).c_str(), 48000, maxBlock, where, error, sizeof(error)),
           VLORLV2_DestroyInstance);
    if (why)
        *why = error;
    if (fx) {
        EXPECT_EQ(VLORLV2_Activate(fx.get()), 1);
    }
    return fx;
}

// A fault of the VST3 fixture for the host programs started while it lives.
class Fault {
public:
    explicit Fault(const char* what) { setenv("VLOR_FIXTURE_FAULT", what, 1); }
    ~Fault() { unsetenv("VLOR_FIXTURE_FAULT"); }
};

inline double SecondsSince(std::chrono::steady_clock::time_point t)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

class FxRemote : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR, 1);
        ASSERT_EQ(VLORLV2_Initialize(), 1);
        VLORVST3_Initialize();
        // A stuck host is given up after a second, not five.
        BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.hang_timeout=1");
    }
    static void TearDownTestSuite() { BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.hang_timeout"); }
};

} // namespace fxremote_test

#endif
