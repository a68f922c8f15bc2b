#ifndef QVLORPLUGINFORMAT_H
#define QVLORPLUGINFORMAT_H
// What a plugin format is to the layers above its engine, written once: the
// token that names it in pairs and rows, its badge, how the ids of its rows
// and its actions are made and read back, its settings, its host program and
// its catalog file. Rows, the page, its menu, the Plugins menu, the keybindings and
// vlorfx make and read ids only through here.

#include "QVlorAudioPluginsExport.h"
#include <QList>
#include <QString>
#include <QStringList>

namespace QVlorAudioPlugins {

struct QVLOR_PLUGINS_EXPORT PluginFormat {
    const char* token;                  // "vst2", "vst3": a pair's active format, a row's format
    const char* badge;                  // "VST2", "VST3"
    const char* actionIdPrefix;         // "vstid-", "vst3id-": the action id of one plugin
    const char* scanSettingKey;         // the setting that switches its scanning
    const char* supportSettingKey;      // the setting that switches the format on; null: always on
    const char* checkTimeoutSettingKey; // the seconds a check or probe of one plugin may take
    const char* effectSettingsPrefix;   // the group under which an effect's own settings are kept
    const char* hostProgram;            // the program that runs its plugins outside the editor
    const char* catalogFile;            // the catalog, in the application's data folder
};

// The descriptions are constants, so that the managers' setting keys can be
// made from them before any code runs.
inline constexpr PluginFormat kVst2Format = {
    "vst2",
    "VST2",
    "vstid-",
    "vloraudio.plugins.scan_vst2",
    "vloraudio.support_vst_plugins",
    "vloraudio.plugins.vst2_check_timeout_s",
    "vloraudio.fx.vst",
    "vlorvst",
    "vstxml/catalog_v2.json",
};
inline constexpr PluginFormat kVst3Format = {
    "vst3",
    "VST3",
    "vst3id-",
    "vloraudio.plugins.scan_vst3",
    nullptr,
    "vloraudio.plugins.vst3_probe_timeout_s",
    "vloraudio.fx.vst3",
    "vlorvst3",
    "catalog_vst3.json",
};
inline constexpr PluginFormat kLv2Format = {
    "lv2",
    "LV2",
    "lv2id-",
    "vloraudio.plugins.lv2_scan",
    "vloraudio.plugins.lv2_enabled",
    "vloraudio.plugins.lv2_check_timeout_s",
    "vloraudio.fx.lv2",
    "vlorlv2",
    "catalog_lv2.json",
};

// Settings of no one format.
inline constexpr const char* kSupportAudioUnitSettingKey = "vloraudio.support_audio_unit_plugins";
// Shows the generated editor in place of every plugin's own.
inline constexpr const char* kFallbackEditorSettingKey = "vloraudio.fx.vst.use_fallback_editor";
inline constexpr const char* kParallelChecksSettingKey = "vloraudio.plugins.parallel_checks";
// The formats a new family takes first, when the user uses none of its forms:
// tokens separated by commas, "vst3,lv2,vst2" unless set.
inline constexpr const char* kFormatOrderSettingKey = "vloraudio.plugins.format_order";
// The formats of a format order's text, known tokens once each in its order,
// then those it leaves out in the default order.
QVLOR_PLUGINS_EXPORT QStringList ParseFormatOrder(const QString& text);
// The pairs' file, in the application's data folder.
inline constexpr const char* kPairsFile = "plugin_pairs.json";

// The tokens as texts, for comparisons and the values kept in pairs.
inline QLatin1String Vst2Token() { return QLatin1String(kVst2Format.token); }
inline QLatin1String Lv2Token() { return QLatin1String(kLv2Format.token); }
inline QLatin1String Vst3Token() { return QLatin1String(kVst3Format.token); }

QVLOR_PLUGINS_EXPORT const PluginFormat& Vst2Format();
QVLOR_PLUGINS_EXPORT const PluginFormat& Vst3Format();
// Every format, in the order rows show their badges.
QVLOR_PLUGINS_EXPORT QList<const PluginFormat*> PluginFormats();
// The text of a format's badge, with "·32" for a plugin of 32 bits.
QVLOR_PLUGINS_EXPORT QString BadgeText(const PluginFormat& format, bool is32Bit);

// The action id of a pair: "plugid-" and the pair's id.
QVLOR_PLUGINS_EXPORT QString PairActionId(const QString& pairId);
QVLOR_PLUGINS_EXPORT bool IsPairActionId(const QString& actionId);

// The identity of a VST2 row: its action id for a plugin with a unique id,
// otherwise "vsthash-" with the file's hash and the plugin id ("vsthash-H:N").
QVLOR_PLUGINS_EXPORT QString Vst2RowIdentity(qint64 uniqueId, const QString& hash, int pluginId);
// The hash and plugin id of a "vsthash-" identity; false for another text.
QVLOR_PLUGINS_EXPORT bool Vst2HashIdentityParts(const QString& identity, QString* hashAndId);
// The unique id of a "vstid-" identity; 0 for another text.
QVLOR_PLUGINS_EXPORT qint64 Vst2UniqueIdOfIdentity(const QString& identity);

// The identity of a VST3 bundle not probed yet: "vst3path-" and its path.
QVLOR_PLUGINS_EXPORT QString Vst3BundleIdentity(const QString& path);
// The path of such an identity; false for another text.
QVLOR_PLUGINS_EXPORT bool Vst3BundleOfIdentity(const QString& identity, QString* path);

} // namespace QVlorAudioPlugins

#endif
