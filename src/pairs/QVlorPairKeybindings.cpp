#include "QVlorPairKeybindings.h"
#include "QVlorPluginFormat.h"

namespace QVlorAudioPlugins {

const char* const K_SETTING_FIXED_MIGRATION_DONE = "vloraudio.plugins.fixed_action_keybinding_migration_done";
const char* const K_SHORTCUT_SETTING_PREFIX = "vloraudio.shortcuts.";

QString Vst2ActionId(qint64 uniqueId)
{
    return uniqueId != 0 ? QLatin1String(Vst2Format().actionIdPrefix) + QString::number(uniqueId) : QString();
}
QString Vst3ActionId(const QString& cid) { return cid.isEmpty() ? QString() : QLatin1String(Vst3Format().actionIdPrefix) + cid; }
QString ShortcutSettingKey(const QString& actionId) { return QLatin1String(K_SHORTCUT_SETTING_PREFIX) + actionId; }

KeybindingMigration MigratePluginPairKeybindings(const QMap<QString, QString>& existing,
                                                 const QList<QVlorPluginPairs::Entry>& entries)
{
    KeybindingMigration result;
    if (entries.isEmpty())
        return result;
    result.ran = true;
    for (const QVlorPluginPairs::Entry& e : entries) {
        const QString id2 = Vst2ActionId(e.vst2);
        const QString id3 = Vst3ActionId(e.vst3);
        const bool has2 = !id2.isEmpty() && existing.contains(id2);
        const bool has3 = !id3.isEmpty() && existing.contains(id3);
        if (!has2 && !has3)
            continue;
        // Both bound: the format the user plays decides; the other binding goes.
        QString taken;
        if (has2 && has3)
            taken = e.activeFormat == QVlorAudioPlugins::Vst3Token() ? existing.value(id3) : existing.value(id2);
        else
            taken = has2 ? existing.value(id2) : existing.value(id3);
        const QString newId = PairActionId(e.pairId);
        if (!result.added.contains(newId))
            result.added.insert(newId, taken);
        if (has2)
            result.removed << id2;
        if (has3)
            result.removed << id3;
    }
    return result;
}

} // namespace QVlorAudioPlugins
