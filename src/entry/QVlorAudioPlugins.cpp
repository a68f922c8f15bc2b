#include "QVlorAudioPlugins.h"
#include "QVlorRemoteFault_p.h"

#include "QVlorApplication.h"
#include "QVlorPluginFormat.h"
#include "QVlorFxWidget.h"
#include "QVlorPairKeybindings.h"
#include "QVlorPluginsMenu.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorLv2_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorLv2_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"

#include "audiofx.h"
#include "audiovst.h"
#include "blcore.h"
#include "blutils.h"
#include "vst3filter.h"
#include "lv2filter.h"
#include "vstfilter.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>

namespace QVlorAudioPlugins {

const char* const K_SETTING_SUPPORT_VST_PLUGINS = kVst2Format.supportSettingKey;
const char* const K_SETTING_SUPPORT_AUDIO_UNIT_PLUGINS = kSupportAudioUnitSettingKey;

namespace {

// How long a child under way at quit may still take before it is killed.
constexpr int kQuitGraceMs = 2000;
constexpr qint64 kPluginLogBytes = 1 << 20;

Host* s_host = nullptr;
QObject* s_wiring = nullptr; // the context of every connection made here; set means installed
QVlorVst::Manager* s_vstManager = nullptr;
QVlorVst3::Manager* s_vst3Manager = nullptr;
QVlorLv2::Manager* s_lv2Manager = nullptr;
MenuController* s_menuController = nullptr;

void _AnnounceNewPlugins(const QList<QString>& names)
{
    if (s_host)
        s_host->announceNewPlugins(names);
}

// The fixed commands took their present ids once; bindings under the old ones move, at this one chance.
void _MigrateFixedPluginActionKeybindings()
{
    QVlorSetting& settings = QVlorSetting::global();
    settings.setDefault(QLatin1String(K_SETTING_FIXED_MIGRATION_DONE), false);
    if (settings.getBool(QLatin1String(K_SETTING_FIXED_MIGRATION_DONE), false))
        return;
    static const char* const kMoves[][2] = {
        {"Vst_Preferences", "Plugins_Manage"},
        {"Vst_SearchPlugins", "Plugins_SearchPlugins"},
        {"Vst_CancelSearch", "Plugins_CancelSearch"},
    };
    for (const auto& move : kMoves) {
        const QString oldKey = ShortcutSettingKey(QLatin1String(move[0]));
        if (!settings.exists(oldKey))
            continue;
        settings.change(ShortcutSettingKey(QLatin1String(move[1])), settings.getString(oldKey, QString()));
        settings.remove(oldKey);
    }
    settings.change(QLatin1String(K_SETTING_FIXED_MIGRATION_DONE), true);
}

// After a VST3 scan every pair of the run is known: bindings follow their plugins into pairs.
void _MigratePluginKeybindings()
{
    if (!s_vst3Manager)
        return;
    const QList<QVlorPluginPairs::Entry> entries = s_vst3Manager->pairsEntriesCopy();
    QVlorSetting& settings = QVlorSetting::global();
    QMap<QString, QString> existing;
    for (const QVlorPluginPairs::Entry& e : entries) {
        for (const QString& id : {Vst2ActionId(e.vst2), Vst3ActionId(e.vst3), Lv2ActionId(e.lv2)})
            if (!id.isEmpty() && settings.exists(ShortcutSettingKey(id)))
                existing.insert(id, settings.getString(ShortcutSettingKey(id), QString()));
    }
    const KeybindingMigration moves = MigratePluginPairKeybindings(existing, entries);
    if (!moves.ran || (moves.added.isEmpty() && moves.removed.isEmpty()))
        return;
    for (auto it = moves.added.constBegin(); it != moves.added.constEnd(); ++it)
        settings.change(ShortcutSettingKey(it.key()), it.value());
    for (const QString& id : moves.removed)
        settings.remove(ShortcutSettingKey(id));
    qInfo() << "QVlorAudioPlugins: plugin keybinding migration --" << moves.added.size()
            << "binding(s) moved to plugid- ids";
}

QVlorVst3::Manager::Vst2PluginInfo _Vst2Info(const QVlorVst::Plugin& p, bool exists)
{
    QVlorVst3::Manager::Vst2PluginInfo info;
    info.uniqueId = p.uniqueId();
    info.name = p.name();
    info.vendor = p.vendor();
    info.exists = exists;
    info.isNew = p.isNew();
    info.enabled = p.isEnabled();
    info.failed = p.isFailed();
    return info;
}

// The VST2 side as the VST3 manager's matcher sees it: a shell only through its children.
QList<QVlorVst3::Manager::Vst2PluginInfo> _Vst2Items()
{
    QList<QVlorVst3::Manager::Vst2PluginInfo> items;
    if (!s_vstManager)
        return items;
    for (const QVlorVst::Path& path : s_vstManager->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins()) {
            if (!p.isShell()) {
                items.append(_Vst2Info(p, p.exists()));
                continue;
            }
            for (const QVlorVst::Plugin& child : p.plugins())
                items.append(_Vst2Info(child, p.exists()));
        }
    return items;
}

// The LV2 side as the matcher sees it: every plugin that is an effect, a
// failed one too, so that its family shows it failed rather than a row apart.
QList<QVlorVst3::Manager::Lv2PluginInfo> _Lv2Items()
{
    QList<QVlorVst3::Manager::Lv2PluginInfo> items;
    if (!s_lv2Manager)
        return items;
    const QVlorLv2::Catalog catalog = s_lv2Manager->catalogCopy();
    for (const QVlorLv2::CatalogBundle& b : catalog.bundles)
        for (const QVlorLv2::CatalogPlugin& p : b.plugins)
            if (p.state != QVlorLv2::CatalogPlugin::NotAnEffect)
                items.append({p.uri, p.name, p.maker, catalog.isOffered(p.uri)});
    return items;
}

// Where the presets of a family's form are kept: empty when its plugin is in no catalog.
QString _PresetsRootOf(const PluginFormat& format, const QVlorPluginPairs::Entry& e)
{
    if (&format == &kVst3Format)
        return s_vst3Manager->catalogCopy().findClass(e.vst3)
                   ? QLatin1String(kVst3Format.effectSettingsPrefix) + QLatin1Char('.') + e.vst3.toLower()
                   : QString();
    if (&format == &kLv2Format)
        return s_lv2Manager && s_lv2Manager->catalogCopy().findPlugin(e.lv2) ? QVlorLv2::Widget::SettingsRoot(e.lv2)
                                                                             : QString();
    const QList<QVlorVst::Path> paths = s_vstManager ? s_vstManager->pathsCopy() : QList<QVlorVst::Path>();
    for (const QVlorVst::Path& path : paths)
        for (const QVlorVst::Plugin& p : path.plugins()) {
            QList<QVlorVst::Plugin> candidates{p};
            candidates += p.plugins();
            for (const QVlorVst::Plugin& c : candidates)
                if (c.uniqueId() == e.vst2)
                    return QStringLiteral("%1.%2").arg(QLatin1String(kVst2Format.effectSettingsPrefix),
                                                       QVlorVst::PluginSettingsHash(c.filename(), c.uniqueId()));
        }
    return QString();
}

// The stamp of the host program that verifies, from the application when it is ours.
qint32 _VerifierBuild()
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return 0;
    auto* vlorApp = qobject_cast<QVlorApplication*>(app);
    return vlorApp ? vlorApp->buildStamp(1, 1) : 0;
}

// What plugins print in the host programs goes to one log in the data folder,
// named to every child by the environment; a log over a megabyte at a start
// is moved aside as plugins.log.old. A log named already, or "-" (standard
// error), is left alone.
void OpenPluginLog()
{
    if (qEnvironmentVariableIsSet("VLOR_PLUGIN_LOG"))
        return;
    char dir[4096];
    if (!BLUTILS_GetDataDir(dir, int(sizeof(dir))))
        return;
    const QString log = QDir(QFile::decodeName(dir)).filePath(QStringLiteral("plugins.log"));
    if (QFileInfo(log).size() > kPluginLogBytes) {
        QFile::remove(log + QStringLiteral(".old"));
        QFile::rename(log, log + QStringLiteral(".old"));
    }
    qputenv("VLOR_PLUGIN_LOG", QFile::encodeName(log));
}

} // namespace

int Initialize()
{
    OpenPluginLog();
    AUDIOVST_Initialize();
    AUDIO_AddEffectFilter(&VSTEffect);
    // The LV2 world and the host programs read LV2_PATH: the folders the user
    // added are found by them too, not by the scan alone. Before the filter,
    // which makes the world.
    if (QVlorLv2::Manager::isFormatEnabled()) {
        const QStringList folders = QVlorLv2::Manager::ConfiguredPaths();
        if (!folders.isEmpty())
            qputenv("LV2_PATH", folders.join(QLatin1Char(':')).toLocal8Bit());
    }
    AUDIO_AddEffectFilter(&LV2Effect);
    return AUDIO_AddEffectFilter(&VST3Effect);
}

int Finalize() { return AUDIOVST_Finalize(); }

QVlorVst::Manager* vstManager() { return s_vstManager; }
QVlorVst3::Manager* vst3Manager() { return s_vst3Manager; }
QVlorLv2::Manager* lv2Manager() { return s_lv2Manager; }
Host* host() { return s_host; }

void AboutToQuit()
{
    // Both managers' children get their grace from now, not one after the other.
    BLCORE_AbortSpawns(kQuitGraceMs);
    if (s_vstManager)
        s_vstManager->cancel();
    if (s_vst3Manager)
        s_vst3Manager->aboutToQuit();
    if (s_lv2Manager)
        s_lv2Manager->aboutToQuit();
    if (s_vstManager) {
        s_vstManager->aboutToQuit();
        s_vstManager->saveCatalog(QString());
    }
    BLCORE_AbortSpawns(-1);
}

namespace {

// Every form of the product of one plugin, its own included: a crash of any
// of them sends the VST3 and LV2 forms apart.
QList<QPair<QString, QString>> productForms(const QString& format, const QString& id)
{
    QList<QPair<QString, QString>> forms;
    QVlorVst3::Manager* m3 = s_vst3Manager;
    if (!m3)
        return forms;
    for (const QVlorPluginPairs::Entry& e : m3->pairsEntriesCopy()) {
        const bool mine = (format == Vst2Token() && e.vst2 != 0 && QString::number(e.vst2) == id) ||
                          (format == Vst3Token() && !e.vst3.isEmpty() && e.vst3.compare(id, Qt::CaseInsensitive) == 0) ||
                          (format == Lv2Token() && !e.lv2.isEmpty() && e.lv2 == id);
        if (!mine)
            continue;
        if (!e.vst3.isEmpty())
            forms << qMakePair(QString(Vst3Token()), e.vst3);
        if (!e.lv2.isEmpty())
            forms << qMakePair(QString(Lv2Token()), e.lv2);
    }
    return forms;
}

} // namespace

namespace UI {

MenuController* menuController() { return s_menuController; }

void install(Host* host)
{
    if (s_wiring)
        return;
    s_host = host;
    s_wiring = new QObject;
    SetSiblingForms(productForms);

    QVlorSetting& settings = QVlorSetting::global();
    settings.setDefault(QLatin1String(K_SETTING_SUPPORT_VST_PLUGINS), true);
    settings.setDefault(QLatin1String(K_SETTING_SUPPORT_AUDIO_UNIT_PLUGINS), true);
    if (settings.getBool(QLatin1String(K_SETTING_SUPPORT_VST_PLUGINS), false)) {
        s_vstManager = new QVlorVst::Manager(nullptr);
        QObject::connect(s_vstManager, &QVlorVst::Manager::newPluginsFound, s_wiring,
                         [](const QStringList& names) { _AnnounceNewPlugins(names); }, Qt::QueuedConnection);
    }

    const QDir data(QVlorApplication::applicationDataLocation());
    const QString sentinelPath = data.absoluteFilePath(QStringLiteral("opening_sentinel"));
    const QString pairsPath = data.absoluteFilePath(QLatin1String(kPairsFile));
    const QString catalogPath = data.absoluteFilePath(QLatin1String(kVst3Format.catalogFile));
    s_vst3Manager = new QVlorVst3::Manager(nullptr, catalogPath, pairsPath, _VerifierBuild(), sentinelPath);
    QObject::connect(s_vst3Manager, &QVlorVst3::Manager::newPluginsFound, s_wiring,
                     [](const QList<QString>& names) { _AnnounceNewPlugins(names); }, Qt::QueuedConnection);
    s_vst3Manager->setVst2ItemsProvider(&_Vst2Items);

    qRegisterMetaType<QVlorVst::Plugin>("QVlorVst::Plugin");
    qRegisterMetaType<QVlorVst::Path>("QVlorVst::Path");
    if (s_vstManager) {
        // Each VST2 plugin that turns up runs the matcher restricted to itself.
        QObject::connect(s_vstManager, &QVlorVst::Manager::pluginEnabled, s_vst3Manager,
                         [](const QVlorVst::Plugin& plugin, const QVlorVst::Path&) {
                             if (s_vst3Manager)
                                 s_vst3Manager->queueRematch(plugin.isShell() ? 0 : plugin.uniqueId());
                         },
                         Qt::QueuedConnection);
    }
    s_vst3Manager->setVst2FailedSetter([](qint64 id) {
        if (s_vstManager)
            s_vstManager->markPluginCrashed(id);
    });
    if (QVlorLv2::Manager::isFormatEnabled()) {
        s_lv2Manager = new QVlorLv2::Manager(nullptr, data.absoluteFilePath(QLatin1String(kLv2Format.catalogFile)));
        QObject::connect(s_lv2Manager, &QVlorLv2::Manager::newPluginsFound, s_wiring,
                         [](const QList<QString>& names) { _AnnounceNewPlugins(names); }, Qt::QueuedConnection);
        s_vst3Manager->setLv2ItemsProvider(&_Lv2Items);
        // An LV2 scan's plugins join their families.
        QObject::connect(s_lv2Manager, &QVlorLv2::Manager::endScan, s_vst3Manager, [](bool) {
            if (s_vst3Manager)
                s_vst3Manager->queueRematch(0);
        });
    }
    // The sentinel is read by the VST3 manager; a crash it pins on an LV2 plugin is the LV2 manager's.
    s_vst3Manager->setOtherFailedSetter([](const QString& format, const QString& key) {
        if (s_lv2Manager && format == Lv2Token())
            s_lv2Manager->markCrashed(key);
    });

    _MigrateFixedPluginActionKeybindings();
    // Pairs are made at the end of a scan of any format, and by the user:
    // bindings follow their plugins in whenever the store changed.
    QObject::connect(s_vst3Manager, &QVlorVst3::Manager::catalogChanged, s_wiring, [] { _MigratePluginKeybindings(); },
                     Qt::QueuedConnection);

    PluginManagers::setInstalled({s_vstManager, s_vst3Manager, s_lv2Manager});
    QVlorPreferencesTabFactory::registerTab(QLatin1String(QVlorPluginsPrefs::Factory::Name),
                                            &QVlorPluginsPrefs::Factory::create);
    // Last, so that it finds both managers in place.
    s_menuController = new MenuController(host);
}

bool twinPresetHint(QVlorFxWidget* widget, QString* twinFormat, int* presetCount)
{
    if (!widget || !s_vst3Manager)
        return false;
    // Which form the dialog plays, and the family that holds it.
    QString own, key;
    qint64 uniqueId = 0;
    if (auto* vst2 = qobject_cast<QVlorVst::Widget*>(widget)) {
        own = Vst2Token();
        uniqueId = vst2->pluginUniqueId();
    } else if (auto* vst3 = qobject_cast<QVlorVst3::Widget*>(widget)) {
        own = Vst3Token();
        key = vst3->pluginUid();
    } else if (auto* lv2 = qobject_cast<QVlorLv2::Widget*>(widget)) {
        own = Lv2Token();
        key = lv2->uri();
    } else {
        return false;
    }
    for (const QVlorPluginPairs::Entry& e : s_vst3Manager->pairsEntriesCopy()) {
        // A plugin without an identity (a VST2 id of 0) is in no family.
        const bool holdsOwn = own == Vst2Token()   ? uniqueId != 0 && e.vst2 == uniqueId
                              : own == Vst3Token() ? !key.isEmpty() && e.vst3 == key
                                                   : !key.isEmpty() && e.lv2 == key;
        if (!holdsOwn)
            continue;
        // The other forms in the order of preference, the first with presets of the user's.
        for (const PluginFormat* format : {&kVst3Format, &kLv2Format, &kVst2Format}) {
            if (QLatin1String(format->token) == own || !e.holds(QLatin1String(format->token)))
                continue;
            const QString root = _PresetsRootOf(*format, e);
            const int count = root.isEmpty() ? 0 : QVlorFxPresets(root).userPresetCount();
            if (count <= 0)
                continue;
            if (twinFormat)
                *twinFormat = QLatin1String(format->badge);
            if (presetCount)
                *presetCount = count;
            return true;
        }
        return false;
    }
    return false;
}

void uninstall(Host*)
{
    SetSiblingForms({});
    QVlorPreferencesTabFactory::unregisterTab(QLatin1String(QVlorPluginsPrefs::Factory::Name));
    PluginManagers::setInstalled({});
    if (s_menuController) {
        delete s_menuController;
        s_menuController = nullptr;
    }
    if (s_lv2Manager) {
        delete s_lv2Manager;
        s_lv2Manager = nullptr;
    }
    if (s_vst3Manager) {
        delete s_vst3Manager;
        s_vst3Manager = nullptr;
    }
    if (s_vstManager) {
        delete s_vstManager;
        s_vstManager = nullptr;
    }
    delete s_wiring;
    s_wiring = nullptr;
    s_host = nullptr;
}

} // namespace UI

} // namespace QVlorAudioPlugins
