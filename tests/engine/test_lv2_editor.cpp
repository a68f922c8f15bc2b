// LV2 plugins' own editors in a window of ours, under a virtual X server:
// the fixture's editor followed message by message both ways, an editor that
// needs what we lack refused by name, and real editors opened and driven.
#include "lv2engine.h"

#include <gtest/gtest.h>

// After gtest: Xlib's macros (None, Bool) would break its templates.
#include <X11/Xlib.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

const std::string kFixture = "urn:vlor:fixture:";
using Instance = std::unique_ptr<_Lv2Instance, int (*)(_Lv2Instance*)>;

struct Asked {
    std::vector<std::pair<int, int>> sizes;
    std::vector<int> edited;
    static void callback(void* user, int event, int a, int b)
    {
        auto* asked = static_cast<Asked*>(user);
        if (event == kLv2UiResize)
            asked->sizes.emplace_back(a, b);
        else if (event == kLv2UiParamEdited)
            asked->edited.push_back(a);
    }
};

class Lv2Editor : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        setenv("LV2_PATH", (std::string(VLOR_FIXTURE_LV2_DIR) + ":/usr/lib/lv2").c_str(), 1);
        ASSERT_EQ(VLORLV2_Initialize(), 1);
        // One connection for the whole suite: a virtual server resets when its
        // last client leaves, and refuses the next one for a moment.
        display = XOpenDisplay(nullptr);
    }

    void SetUp() override
    {
        if (!display)
            GTEST_SKIP() << "no X display (run under xvfb-run)";
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 400, 300, 0, 0, 0);
        XMapWindow(display, window);
        XFlush(display);
    }

    void TearDown() override
    {
        if (display)
            XDestroyWindow(display, window);
    }

    static Instance make(const std::string& uri)
    {
        char error[512] = "";
        Instance fx(VLORLV2_CreateInstance(uri.c_str(), 48000, 256, error, sizeof(error)), VLORLV2_DestroyInstance);
        EXPECT_TRUE(fx) << uri << ": " << error;
        if (fx)
            VLORLV2_Activate(fx.get());
        return fx;
    }

    static int param(_Lv2Instance* fx, const char* symbol)
    {
        for (int i = 0; i < VLORLV2_GetNumParams(fx); ++i) {
            Lv2ParamInfo info;
            if (VLORLV2_GetParamInfo(fx, i, &info) == 1 && std::string(info.symbol) == symbol)
                return i;
        }
        return -1;
    }

    static void run(_Lv2Instance* fx, int frames = 256)
    {
        std::vector<float> in(size_t(frames) * 2, 0.1f), out(in.size());
        ASSERT_EQ(VLORLV2_ProcessAudio(fx, in.data(), out.data(), 2, frames), 1);
    }

    static Display* display;
    Window window = 0;
};

Display* Lv2Editor::display = nullptr;

} // namespace

TEST_F(Lv2Editor, TheEditorsWritesReachThePluginAndThePluginsOutputsReachTheEditor)
{
    Instance fx = make(kFixture + "atom");
    ASSERT_TRUE(fx);
    _Lv2Instance* h = fx.get();
    const int gain = param(h, "gain"), mode = param(h, "mode"), mute = param(h, "mute"), seen = param(h, "seen");
    ASSERT_GE(seen, 0);
    ASSERT_EQ(VLORLV2_HasUi(h), 1);
    Asked asked;
    char error[256] = "";
    EXPECT_EQ(VLORLV2_UiOpen(h, 0, Asked::callback, &asked, error, sizeof(error)), 0);
    ASSERT_EQ(VLORLV2_UiOpen(h, uint64_t(window), Asked::callback, &asked, error, sizeof(error)), 1) << error;
    EXPECT_EQ(VLORLV2_UiOpen(h, uint64_t(window), Asked::callback, &asked, error, sizeof(error)), 0);
    EXPECT_STREQ(error, "the editor is open already");

    // Made, it asked for its size and set the gain; its atom waits for a run.
    ASSERT_EQ(asked.sizes.size(), 1u);
    EXPECT_EQ(asked.sizes[0], std::make_pair(320, 180));
    int w = 0, hgt = 0;
    ASSERT_EQ(VLORLV2_UiGetSize(h, &w, &hgt), 1);
    EXPECT_EQ(std::make_pair(w, hgt), std::make_pair(320, 180));
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, gain), 6.0f);
    EXPECT_NE(std::find(asked.edited.begin(), asked.edited.end(), gain), asked.edited.end());

    // A run takes the atom and echoes it; the idle hands the echo and the
    // latency output to the editor, whose answers are writes we can read.
    run(h);
    ASSERT_EQ(VLORLV2_UiIdle(h), 1);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, gain), 4.2f);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, seen), 4.0f);
    // The host's own change of an input reaches the editor too.
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, mute), 0.0f);
    VLORLV2_SetParam(h, mode, 2.0f);
    ASSERT_EQ(VLORLV2_UiIdle(h), 1);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, mute), 1.0f);
    // Nothing new, nothing told: the editor's answers stay as they were.
    VLORLV2_SetParam(h, gain, -3.0f);
    ASSERT_EQ(VLORLV2_UiIdle(h), 1);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, gain), -3.0f);

    EXPECT_EQ(VLORLV2_UiSetSize(h, 500, 260), 1);
    EXPECT_EQ(VLORLV2_UiClose(h), 1);
    EXPECT_EQ(VLORLV2_UiClose(h), 0);
    EXPECT_EQ(VLORLV2_UiIdle(h), 0);
    // Closed, the plugin runs on without it, and it opens again.
    run(h);
    ASSERT_EQ(VLORLV2_UiOpen(h, uint64_t(window), Asked::callback, &asked, error, sizeof(error)), 1) << error;
    run(h);
    EXPECT_EQ(VLORLV2_UiIdle(h), 1);
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(h, gain), 4.2f);
}

TEST_F(Lv2Editor, AnEditorThatNeedsWhatWeLackIsRefusedByName)
{
    Instance fx = make(kFixture + "worker");
    ASSERT_TRUE(fx);
    EXPECT_EQ(VLORLV2_HasUi(fx.get()), 0);
    char error[256] = "";
    EXPECT_EQ(VLORLV2_UiOpen(fx.get(), uint64_t(window), nullptr, nullptr, error, sizeof(error)), 0);
    EXPECT_STREQ(error, "the editor requires a feature this host does not offer: urn:vlor:feature:nobody-offers");
    Instance plain = make(kFixture + "gain");
    ASSERT_TRUE(plain);
    EXPECT_EQ(VLORLV2_HasUi(plain.get()), 0);
    EXPECT_EQ(VLORLV2_UiOpen(plain.get(), uint64_t(window), nullptr, nullptr, error, sizeof(error)), 0);
    EXPECT_STREQ(error, "the plugin has no X11 editor");
}

TEST_F(Lv2Editor, RealEditorsOpenInOurWindowAskForASizeAndRunWhileTheAudioRuns)
{
    int tried = 0;
    for (const char* uri : {"urn:zamaudio:ZamComp", "urn:zamaudio:ZamEQ2",
                            "http://lsp-plug.in/plugins/lv2/compressor_stereo", "http://lsp-plug.in/plugins/lv2/para_equalizer_x16_stereo"}) {
        Lv2PluginRecord record;
        if (VLORLV2_DescribePlugin(uri, &record) != 1)
            continue;
        ++tried;
        Instance fx = make(uri);
        ASSERT_TRUE(fx);
        ASSERT_EQ(VLORLV2_HasUi(fx.get()), 1) << uri;
        Asked asked;
        char error[256] = "";
        ASSERT_EQ(VLORLV2_UiOpen(fx.get(), uint64_t(window), Asked::callback, &asked, error, sizeof(error)), 1)
            << uri << ": " << error;
        for (int i = 0; i < 20; ++i) {
            run(fx.get());
            EXPECT_EQ(VLORLV2_UiIdle(fx.get()), 1) << uri;
        }
        // Its size as it asked, or as its window has it.
        int w = 0, h = 0;
        if (VLORLV2_UiGetSize(fx.get(), &w, &h) != 1) {
            XWindowAttributes attributes{};
            ASSERT_NE(VLORLV2_UiGetWidget(fx.get()), 0u) << uri;
            ASSERT_NE(XGetWindowAttributes(display, Window(VLORLV2_UiGetWidget(fx.get())), &attributes), 0) << uri;
            w = attributes.width;
            h = attributes.height;
        }
        EXPECT_GT(w, 100) << uri;
        EXPECT_GT(h, 50) << uri;
        EXPECT_EQ(VLORLV2_UiClose(fx.get()), 1) << uri;
    }
    if (tried == 0)
        GTEST_SKIP() << "neither zam-plugins nor lsp-plugins-lv2 is installed";
}
