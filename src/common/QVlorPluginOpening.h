#ifndef QVLORPLUGINOPENING_H
#define QVLORPLUGINOPENING_H
// What the widgets of every format do around opening a plugin in this
// process: name it in the crash sentinel while it opens, so that a start
// after a crash blames the right plugin, and decide whether its own editor
// may show.

#include "QVlorPluginFormat.h"

#include <QString>

class QWidget;

namespace QVlorAudioPlugins {

// Where the sentinel is written; empty (the default) writes none.
void SetOpeningSentinelPath(const QString& path);
QString OpeningSentinelPath();

// Writes "format|id|name" to the sentinel and gives the text it held
// before, or an empty text; ClearOpeningSentinel puts that text back, or
// removes the file when there was none. Opens nest, so that an open inside
// another leaves the outer one named.
QString SetOpeningSentinel(const QString& format, const QString& id, const QString& name);
void ClearOpeningSentinel(const QString& previous);
// The text a sentinel at path holds, the file removed: a start blames a
// plugin at most once. Empty when there is none.
QString TakeOpeningSentinel(const QString& path);

// Whether a plugin's own editor can be embedded on this platform: it draws
// into an X11 window.
bool CanEmbedEditors();
// Whether a plugin's own editor is shown where it has one: a platform that
// embeds, and the generated editor not asked for instead.
bool PluginEditorsWanted();
// Names the window a plugin draws its own editor into: a screen reader sees
// nothing inside it, so it says whose it is and where named controls are.
void NameOwnEditor(QWidget* window, const QString& plugin);

} // namespace QVlorAudioPlugins

#endif
