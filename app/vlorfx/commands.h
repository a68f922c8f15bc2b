#pragma once

#include <QString>

// Each command of the reference editor takes the arguments behind its name
// and returns the process's exit status.
int cmdDemo(int argc, char** argv);
int cmdApply(int argc, char** argv);
int cmdScan(int argc, char** argv);
int cmdList(int argc, char** argv);
int cmdClasses(int argc, char** argv);
int cmdProbe(int argc, char** argv);
int cmdEnable(int argc, char** argv);
int cmdDisable(int argc, char** argv);
int cmdRecheck(int argc, char** argv);
int cmdApplyMixer(int argc, char** argv);
int cmdOpen(int argc, char** argv);
int cmdMenu(int argc, char** argv);
int cmdCategories(int argc, char** argv);
int cmdPreset(int argc, char** argv);
int cmdPrefs(int argc, char** argv);
// Takes the whole command line: it brings the library up with its own window as the host.
int runGui(int argc, char** argv);

class QAction;
class QMenu;
class QVlorAudio;
namespace vlorfx {
// The headless host's main menu, made on first asking; the library hangs its Plugins menu there.
QMenu* giveMainMenu();
// The id an action was registered under for shortcuts.
QString actionId(QAction* action);
// The audio the host calls its front window's.
void setFrontAudio(const QVlorAudio& audio);
} // namespace vlorfx
