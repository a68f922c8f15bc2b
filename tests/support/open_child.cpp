// A stand-in for the editor's effect dialog: starts the library as the editor
// does and opens one plugin in this process inside the sentinel's stretch.
// usage: vlor_open_child vst3 CID NAME BUNDLE | vlor_open_child vst2 ID NAME FILE
// VLOR_CHILD_ARM names a fixture's fault variable to set just before the open.
#include "QVlorAudioPlugins.h"
#include "QVlorVst3_Manager.h"
#include "audiovst.h"
#include "testhost.h"
#include "vst3engine.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    QCoreApplication app(argc, argv);
    QVlorAudioPlugins::Initialize();
    vlortest::TestHost host;
    QVlorAudioPlugins::UI::install(&host);
    const bool vst3 = !std::strcmp(argv[1], "vst3");
    const QString previous = QVlorVst3::Manager::SetOpeningSentinel(
        QString::fromUtf8(argv[1]), QString::fromUtf8(argv[2]), QString::fromUtf8(argv[3]));
    // The fault that a test asks for is armed for the open alone: the VST2
    // side checks the plugin in its host program first, which must not crash.
    auto arm = [] {
        if (const char* fault = std::getenv("VLOR_CHILD_ARM"))
            setenv(fault, "1", 1);
    };
    bool opened;
    if (vst3) {
        arm();
        _Vst3Instance* instance = VLORVST3_CreateInstance(argv[4], argv[2]);
        opened = instance != nullptr;
        VLORVST3_DestroyInstance(instance);
    } else {
        // A file with one plugin is found by its name alone; the ID is the sentinel's key.
        _VSTEFFECT* effect = AUDIOVST_FindPluginEx(argv[4], 0, false);
        AUDIOVST_ForgetVlorVstPath(); // in this process, as an effect dialog without a host program
        arm();
        _VSTINSTANCE* instance = effect ? AUDIOVST_CreateInstance(effect) : nullptr;
        opened = instance != nullptr;
        AUDIOVST_DestroyInstance(instance);
    }
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    QVlorAudioPlugins::Finalize();
    std::printf("%s\n", opened ? "opened" : "not opened");
    return 0;
}
