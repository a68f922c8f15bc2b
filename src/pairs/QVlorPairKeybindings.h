#ifndef QVLORPAIRKEYBINDINGS_H
#define QVLORPAIRKEYBINDINGS_H
// Keyboard shortcuts follow a plugin into its pair: bindings stored under a
// format's own action id move to the pair's id.

#include "QVlorPluginPairs.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace QVlorAudioPlugins {

extern const char* const K_SETTING_FIXED_MIGRATION_DONE; // "vloraudio.plugins.fixed_action_keybinding_migration_done"
extern const char* const K_SHORTCUT_SETTING_PREFIX;      // "vloraudio.shortcuts."

struct KeybindingMigration {
    QMap<QString, QString> added; // new action id -> key sequence
    QStringList removed;          // old action ids
    bool ran = false;
};

// The moves that bring the bindings of paired plugins under "plugid-" ids;
// existing maps old action ids to their key sequences. Touches no setting.
KeybindingMigration MigratePluginPairKeybindings(const QMap<QString, QString>& existing,
                                                 const QList<QVlorPluginPairs::Entry>& entries);

} // namespace QVlorAudioPlugins

#endif
