// A real plugin's editor in a window of ours, under a virtual X server.
#include "vst3engine.h"

#include <gtest/gtest.h>

// After gtest: Xlib's macros (None, Bool) would break its templates.
#include <X11/Xlib.h>

#include <chrono>
#include <dlfcn.h>
#include <unistd.h>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string uidOf(const std::string& bundle)
{
    Vst3ClassRecord r[2];
    return VLORVST3_ListClasses(bundle.c_str(), r, 2) >= 1 ? r[0].uid : "";
}

struct Resizes {
    std::vector<std::pair<int, int>> seen;
    static void callback(void* user, Vst3HostEvent e, int32_t a, int32_t b)
    {
        if (e == kVst3EventResize)
            static_cast<Resizes*>(user)->seen.emplace_back(a, b);
    }
};

} // namespace

TEST(Editor, ARealEditorOpensInOurWindowAndItsResizeRequestArrives)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        GTEST_SKIP() << "no X display (run under xvfb-run)";
    const std::string bundle = "/usr/lib/vst3/ZamComp.vst3";
    if (uidOf(bundle).empty())
        GTEST_SKIP() << "no system bundle";
    VLORVST3_Initialize();
    _Vst3Instance* h = VLORVST3_CreateInstance(bundle.c_str(), uidOf(bundle).c_str());
    ASSERT_NE(h, nullptr);
    Resizes resizes;
    VLORVST3_SetEventCallback(h, Resizes::callback, &resizes);
    ASSERT_EQ(VLORVST3_HasEditor(h), 1);
    int32_t w = 0, hgt = 0;
    ASSERT_EQ(VLORVST3_EditorGetSize(h, &w, &hgt), 1);
    EXPECT_GT(w, 0);
    EXPECT_GT(hgt, 0);

    const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, unsigned(w), unsigned(hgt), 0,
                                              0, 0);
    XMapWindow(display, window);
    XFlush(display);
    EXPECT_EQ(VLORVST3_EditorOpen(h, 0), 0);
    ASSERT_EQ(VLORVST3_EditorOpen(h, uint64_t(window)), 1);
    EXPECT_EQ(VLORVST3_EditorOpen(h, uint64_t(window)), 0); // twice is refused
    int ran = 0;
    for (int i = 0; i < 20; ++i) {
        ran += VLORVST3_EditorIdle(h);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_GT(ran, 0); // the plugin's timer runs through our run loop
    // Our window asks for another size; a plugin that resizes asks back through the frame.
    const int took = VLORVST3_EditorOnSize(h, w + 40, hgt + 30);
    for (int i = 0; i < 10; ++i) {
        VLORVST3_EditorIdle(h);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(took, 1);
    // The plugin asks its frame for the size it wants; the request reaches us as an event.
    ASSERT_FALSE(resizes.seen.empty());
    EXPECT_GT(resizes.seen.back().first, 0);
    EXPECT_GT(resizes.seen.back().second, 0);
    EXPECT_EQ(VLORVST3_EditorClose(h), 1);
    EXPECT_EQ(VLORVST3_EditorClose(h), 1);
    ASSERT_EQ(VLORVST3_EditorOpen(h, uint64_t(window)), 1); // again, after a close
    EXPECT_EQ(VLORVST3_DestroyInstance(h), 1);              // closes it on the way
    XDestroyWindow(display, window);
    XCloseDisplay(display);
}

TEST(Editor, APluginWithoutViewIsAskedOnce)
{
    VLORVST3_Initialize();
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    _Vst3Instance* h = VLORVST3_CreateInstance(bundle.c_str(), "51000000000000000000000000000004");
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(VLORVST3_HasEditor(h), 0);
    EXPECT_EQ(VLORVST3_HasEditor(h), 0);
    int32_t w, hh;
    EXPECT_EQ(VLORVST3_EditorGetSize(h, &w, &hh), 0);
    EXPECT_EQ(VLORVST3_EditorOpen(h, 1234), 0);
    EXPECT_EQ(VLORVST3_EditorClose(h), 0);
    EXPECT_EQ(VLORVST3_EditorIdle(h), 0);
    VLORVST3_DestroyInstance(h);
}

namespace {

template <typename T> T effectsFixture(const char* name)
{
    void* lib = dlopen(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3/Contents/x86_64-linux/vlor-vst3-effects.so",
                       RTLD_NOW | RTLD_NOLOAD);
    T f = lib ? reinterpret_cast<T>(dlsym(lib, name)) : nullptr;
    if (lib)
        dlclose(lib);
    return f;
}

std::string takeCalls()
{
    char text[2048];
    effectsFixture<void (*)(char*, int)>("vlorfx3_calls")(text, sizeof(text));
    effectsFixture<void (*)()>("vlorfx3_reset")();
    return text;
}

} // namespace

TEST(EditorRules, OpenCloseAndTheFrame)
{
    VLORVST3_Initialize();
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    _Vst3Instance* h = VLORVST3_CreateInstance(bundle.c_str(), "51000000000000000000000000000001");
    ASSERT_NE(h, nullptr);
    Resizes resizes;
    VLORVST3_SetEventCallback(h, Resizes::callback, &resizes);
    takeCalls();
    EXPECT_EQ(VLORVST3_HasEditor(h), 1);
    EXPECT_EQ(VLORVST3_HasEditor(h), 1);
    EXPECT_EQ(takeCalls(), "createView\n"); // asked once
    int32_t w = 0, hh = 0;
    ASSERT_EQ(VLORVST3_EditorGetSize(h, &w, &hh), 1);
    EXPECT_EQ(w, 300);
    EXPECT_EQ(hh, 200);
    // Closing what was never opened still takes the frame away.
    EXPECT_EQ(VLORVST3_EditorClose(h), 1);
    EXPECT_EQ(takeCalls(), "setFrame null\n");
    ASSERT_EQ(VLORVST3_EditorOpen(h, 0x42), 1);
    EXPECT_EQ(VLORVST3_EditorOpen(h, 0x42), 0);
    EXPECT_EQ(takeCalls(), "setFrame frame\nview attached\n");
    // The view asked for 640 x 480, and once with no rectangle, which raised nothing.
    ASSERT_EQ(resizes.seen.size(), 1u);
    EXPECT_EQ(resizes.seen[0], (std::pair<int, int>(640, 480)));
    // Its timer runs through our run loop.
    int ran = 0;
    for (int i = 0; i < 5 && ran == 0; ++i) {
        usleep(2000);
        ran = VLORVST3_EditorIdle(h);
    }
    EXPECT_GE(ran, 1);
    EXPECT_EQ(VLORVST3_EditorCanResize(h), 1);
    ASSERT_EQ(VLORVST3_EditorOnSize(h, 100, 150), 1);
    ASSERT_EQ(VLORVST3_EditorGetSize(h, &w, &hh), 1);
    EXPECT_EQ(w, 200); // the view's own constraint
    EXPECT_EQ(hh, 150);
    takeCalls();
    EXPECT_EQ(VLORVST3_EditorClose(h), 1);
    EXPECT_EQ(takeCalls(), "view removed\nsetFrame null\n");
    VLORVST3_DestroyInstance(h);

    // A view for another platform gives 0 and no frame.
    _Vst3Instance* other = VLORVST3_CreateInstance(bundle.c_str(), "51000000000000000000000000000002");
    ASSERT_NE(other, nullptr);
    takeCalls();
    EXPECT_EQ(VLORVST3_HasEditor(other), 1);
    EXPECT_EQ(VLORVST3_EditorOpen(other, 0x42), 0);
    EXPECT_EQ(takeCalls(), "createView\n");
    VLORVST3_DestroyInstance(other);
}
