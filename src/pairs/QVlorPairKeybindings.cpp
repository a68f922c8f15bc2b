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
QString Lv2ActionId(const QString& uri)
{
    return uri.isEmpty() ? QString() : QLatin1String(kLv2Format.actionIdPrefix) + uri;
}
QString ShortcutSettingKey(const QString& actionId) { return QLatin1String(K_SHORTCUT_SETTING_PREFIX) + actionId; }

KeybindingMigration MigratePluginPairKeybindings(const QMap<QString, QString>& existing,
                                                 const QList<QVlorPluginPairs::Entry>& entries)
{
    KeybindingMigration result;
    if (entries.isEmpty())
        return result;
    result.ran = true;
    for (const QVlorPluginPairs::Entry& e : entries) {
        const QString ids[] = {Vst2ActionId(e.vst2), Vst3ActionId(e.vst3), Lv2ActionId(e.lv2)};
        const QString formats[] = {Vst2Token(), Vst3Token(), Lv2Token()};
        QString taken;
        bool any = false;
        for (int i = 0; i < 3; ++i) {
            if (ids[i].isEmpty() || !existing.contains(ids[i]))
                continue;
            // Several bound: the format the user plays decides, else the oldest; the others go.
            if (!any || formats[i] == e.activeFormat)
                taken = existing.value(ids[i]);
            any = true;
            result.removed << ids[i];
        }
        if (!any)
            continue;
        const QString newId = PairActionId(e.pairId);
        if (!result.added.contains(newId))
            result.added.insert(newId, taken);
    }
    return result;
}

} // namespace QVlorAudioPlugins
