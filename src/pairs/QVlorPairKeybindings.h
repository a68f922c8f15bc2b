#ifndef QVLORPAIRKEYBINDINGS_H
#define QVLORPAIRKEYBINDINGS_H
// Keyboard shortcuts follow a plugin into its pair: bindings stored under a
// format's own action id move to the pair's id.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPluginPairs.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace QVlorAudioPlugins {

extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_FIXED_MIGRATION_DONE; // "vloraudio.plugins.fixed_action_keybinding_migration_done"
extern QVLOR_PLUGINS_EXPORT const char* const K_SHORTCUT_SETTING_PREFIX;      // "vloraudio.shortcuts."

// The action id of a plugin of one format: "vstid-N" for a VST2 unique id,
// "vst3id-CID" for a VST3 class; empty for no plugin (0, or an empty id).
QVLOR_PLUGINS_EXPORT QString Vst2ActionId(qint64 uniqueId);
QVLOR_PLUGINS_EXPORT QString Vst3ActionId(const QString& cid);
QVLOR_PLUGINS_EXPORT QString Lv2ActionId(const QString& uri); // "lv2id-URI"
// The settings key of the shortcut bound to an action.
QVLOR_PLUGINS_EXPORT QString ShortcutSettingKey(const QString& actionId);

struct QVLOR_PLUGINS_EXPORT KeybindingMigration {
    QMap<QString, QString> added; // new action id -> key sequence
    QStringList removed;          // old action ids
    bool ran = false;
};

// The moves that bring the bindings of paired plugins under "plugid-" ids;
// existing maps old action ids to their key sequences. Touches no setting.
QVLOR_PLUGINS_EXPORT KeybindingMigration MigratePluginPairKeybindings(const QMap<QString, QString>& existing,
                                                 const QList<QVlorPluginPairs::Entry>& entries);

} // namespace QVlorAudioPlugins

#endif
