// A stand-in for the editor's effect dialog: starts the library as the editor
// does and opens one plugin in this process through the effect widget of its
// format, whose open is the sentinel's stretch.
// usage: vlor_open_child vst3 CID NAME BUNDLE | vlor_open_child vst2 ID NAME FILE
// VLOR_CHILD_ARM names a fixture's fault variable to set just before the open.
#include "QVlorAudioPlugins.h"
#include "QVlorApplication.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Widget.h"
#include "audiovst.h"
#include "testhost.h"
#include "vst3engine.h"


#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QVlorApplication app(argc, argv);
    QVlorAudioPlugins::Initialize();
    vlortest::TestHost host;
    QVlorAudioPlugins::UI::install(&host);
    const bool vst3 = !std::strcmp(argv[1], "vst3");
    // The fault that a test asks for is armed for the open alone: the VST2
    // side checks the plugin in its host program first, which must not crash.
    auto arm = [] {
        if (const char* fault = std::getenv("VLOR_CHILD_ARM"))
            setenv(fault, "1", 1);
    };
    const QVlorAudio audio(QString(), 2, 44100, 44100);
    bool opened;
    if (vst3) {
        arm();
        QVlorVst3::Widget widget(audio);
        opened = widget.loadPlugin(QVlorVst3::Plugin(QString::fromUtf8(argv[4]), QString::fromUtf8(argv[2]),
                                                     QString::fromUtf8(argv[3]), QString(), QString(), QString()));
    } else {
        // A file with one plugin is found by its name alone.
        _VSTEFFECT* effect = AUDIOVST_FindPluginEx(argv[4], 0, false);
        AUDIOVST_ForgetVlorVstPath(); // in this process, as an effect dialog without a host program
        QVlorVst::Plugin plugin(QString::fromUtf8(argv[4]));
        plugin.setUniqueId(effect ? AUDIOVST_GetUniqueID(effect) : std::atoll(argv[2]));
        arm();
        QVlorVst::Widget widget(audio);
        opened = widget.loadPlugin(plugin);
    }
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    QVlorAudioPlugins::Finalize();
    std::printf("%s\n", opened ? "opened" : "not opened");
    return 0;
}
