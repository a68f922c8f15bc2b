#include "QVlorAudioPlugins.h"

#include "QVlorApplication.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include "audiofx.h"
#include "audiovst.h"
#include "blcore.h"
#include "vst3filter.h"
#include "vstfilter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QObject>

namespace QVlorAudioPlugins {

const char* const K_SETTING_SUPPORT_VST_PLUGINS = "vloraudio.support_vst_plugins";
const char* const K_SETTING_SUPPORT_AUDIO_UNIT_PLUGINS = "vloraudio.support_audio_unit_plugins";

namespace {

// How long a child under way at quit may still take before it is killed.
constexpr int kQuitGraceMs = 2000;

Host* s_host = nullptr;
QObject* s_wiring = nullptr; // the context of every connection made here; set means installed
QVlorVst::Manager* s_vstManager = nullptr;
QVlorVst3::Manager* s_vst3Manager = nullptr;
MenuController* s_menuController = nullptr;

void _AnnounceNewPlugins(const QList<QString>& names)
{
    if (s_host)
        s_host->announceNewPlugins(names);
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

// The stamp of the host program that verifies, from the application when it is ours.
qint32 _VerifierBuild()
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return 0;
    auto* vlorApp = qobject_cast<QVlorApplication*>(app);
    return vlorApp ? vlorApp->buildStamp(1, 1) : 0;
}

} // namespace

int Initialize()
{
    AUDIOVST_Initialize();
    AUDIO_AddEffectFilter(&VSTEffect);
    return AUDIO_AddEffectFilter(&VST3Effect);
}

int Finalize() { return AUDIOVST_Finalize(); }

QVlorVst::Manager* vstManager() { return s_vstManager; }
QVlorVst3::Manager* vst3Manager() { return s_vst3Manager; }
Host* host() { return s_host; }

void AboutToQuit()
{
    // Both managers' children get their grace from now, not one after the other.
    BLCORE_AbortSpawns(kQuitGraceMs);
    if (s_vstManager)
        s_vstManager->cancel();
    if (s_vst3Manager)
        s_vst3Manager->aboutToQuit();
    if (s_vstManager) {
        s_vstManager->aboutToQuit();
        s_vstManager->saveCatalog(QString());
    }
    BLCORE_AbortSpawns(-1);
}

namespace UI {

MenuController* menuController() { return s_menuController; }

void install(Host* host)
{
    if (s_wiring)
        return;
    s_host = host;
    s_wiring = new QObject;

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
    const QString pairsPath = data.absoluteFilePath(QStringLiteral("plugin_pairs.json"));
    const QString catalogPath = data.absoluteFilePath(QStringLiteral("catalog_vst3.json"));
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
                                 s_vst3Manager->rematchPairs(plugin.isShell() ? 0 : plugin.uniqueId());
                         },
                         Qt::QueuedConnection);
    }
    s_vst3Manager->setVst2FailedSetter([](qint64 id) {
        if (s_vstManager)
            s_vstManager->markPluginCrashed(id);
    });
}

void uninstall(Host*)
{
    s_menuController = nullptr; // the Plugins menu is not built by this version
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
