#include "catalog.h"
#include "text.h"

#include "QVlorAudioPlugins.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorSetting.h"

#include "blsettings.h"

#include <QAbstractEventDispatcher>
#include <QSet>

#include <algorithm>
#include <QDir>
#include <QElapsedTimer>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>

namespace vlorfx {

namespace {

// More rounds than any chain of signals between the managers takes.
constexpr int kSettleRounds = 100;

void syncWith(QObject* manager)
{
    if (manager)
        QMetaObject::invokeMethod(manager, [] {}, Qt::BlockingQueuedConnection);
}

void line(const char* what, int n, int total)
{
    std::fprintf(stderr, "\r%-26s %d/%d      ", what, n, total);
    std::fflush(stderr);
}

} // namespace

void settle()
{
    // A VST2 plugin that comes up posts a rematch to the VST3 manager: VST2
    // first. What the managers tell through this thread may queue more work
    // for them, so the round is made again until a round changes nothing:
    // every count read after it is the same on every run.
    QAbstractEventDispatcher* here = QAbstractEventDispatcher::instance();
    for (int round = 0; round < kSettleRounds; ++round) {
        syncWith(QVlorAudioPlugins::vstManager());
        syncWith(QVlorAudioPlugins::vst3Manager());
        syncWith(QVlorAudioPlugins::lv2Manager());
        bool told = false;
        for (int k = 0; here && k < kSettleRounds && here->processEvents(QEventLoop::ExcludeUserInputEvents); ++k)
            told = true;
        if (!told)
            break;
    }
}

QStringList standardFolders()
{
    const QString home = QDir::homePath();
    // VST_PATH, as other hosts on Linux read it, names the folders instead (empty: none).
    const QByteArray vstPath = qgetenv("VST_PATH");
    const QStringList candidates =
        qEnvironmentVariableIsSet("VST_PATH")
            ? QString::fromLocal8Bit(vstPath).split(QLatin1Char(':'), Qt::SkipEmptyParts)
            : QStringList{home + "/.vst", home + "/.lxvst", QStringLiteral("/usr/lib/vst"), QStringLiteral("/usr/lib/lxvst"),
                          QStringLiteral("/usr/local/lib/vst"), QStringLiteral("/usr/local/lib/lxvst")};
    QStringList out;
    for (const QString& f : candidates)
        if (QDir(f).exists() && !out.contains(QDir(f).absolutePath()))
            out << QDir(f).absolutePath();
    return out;
}

QStringList foldersNotSearched(const QStringList& vst3Roots)
{
    QStringList out;
    auto look = [&out](const char* format, const QString& folder, bool enabled) {
        const QString name = QStringLiteral("%1 folder %2").arg(QLatin1String(format), folder);
        if (QFileInfo(folder).isRoot()) {
            out << name + QStringLiteral(": the root of the file system is never searched; switched off");
            return;
        }
        if (!enabled)
            return; // the user's own choice
        DIR* dir = opendir(QFile::encodeName(folder).constData());
        if (!dir)
            out << name + QStringLiteral(": cannot be read: ") + QString::fromLocal8Bit(std::strerror(errno));
        else
            closedir(dir);
    };
    for (const QVlorVst::Path& p : vst2Paths())
        look("VST2", p.absolutePath(), p.isEnabled());
    for (const QString& root : vst3Roots)
        if (QFileInfo::exists(root))
            look("VST3", root, true);
    return out;
}

QList<QVlorVst::Path> vst2Paths()
{
    QList<QVlorVst::Path> paths;
    QVlorVst::Manager* m = QVlorAudioPlugins::vstManager();
    if (!m)
        return paths;
    // The working list: a loaded catalog is published only by the scan that follows.
    const QMetaObject::Connection c = QObject::connect(m, &QVlorVst::Manager::paths, m, [&paths](const QList<QVlorVst::Path>& list) {
            for (const QVlorVst::Path& p : list)
                paths << p.detachedCopy();
        },
        Qt::DirectConnection);
    m->getPaths();
    settle();
    QObject::disconnect(c);
    return paths;
}

QStringList catalogFolders()
{
    QStringList folders;
    for (const QVlorVst::Path& p : vst2Paths())
        folders << p.absolutePath();
    return folders;
}

ScanSummary scan(const ScanOptions& options)
{
    QVlorVst::Manager* vst2 = options.vst2 ? QVlorAudioPlugins::vstManager() : nullptr;
    QVlorVst3::Manager* vst3 = options.vst3 ? QVlorAudioPlugins::vst3Manager() : nullptr;
    QVlorLv2::Manager* lv2 = options.lv2 ? QVlorAudioPlugins::lv2Manager() : nullptr;
    QList<QMetaObject::Connection> connections;
    int vst2Phase = 0; // 0 finding files, 1 checking new plugins
    const bool oneLine = options.progress == ScanOptions::OneLine;
    // The plugin a child is checking is named, so that one that hangs is known.
    auto naming = [&options](const char* what) {
        return [&options, what](const QString& name) {
            if (options.progress == ScanOptions::OneLine)
                std::fprintf(stderr, "\r%-26s %-30s", what, printable(name.left(30)).constData());
            else
                std::fprintf(stderr, "%s %s\n", what, printable(name).constData());
            std::fflush(stderr);
        };
    };
    if (oneLine && vst2)
        connections << QObject::connect(vst2, &QVlorVst::Manager::progressScan, vst2, [&vst2Phase](int n, int total) {
                line(vst2Phase == 0 ? "VST2: finding plugins" : "VST2: checking new plugins", n, total);
            },
            Qt::DirectConnection);
    if (oneLine && vst3)
        connections << QObject::connect(vst3, &QVlorVst3::Manager::progressScan, vst3,
                                        [](int n, int total) { line("VST3: scanning bundles", n, total); },
                                        Qt::DirectConnection);
    if (options.progress != ScanOptions::Silent && vst2)
        connections << QObject::connect(vst2, &QVlorVst::Manager::progressPlugin, vst2, naming("VST2: checking"),
                                        Qt::DirectConnection);
    if (oneLine && lv2)
        connections << QObject::connect(lv2, &QVlorLv2::Manager::progressScan, lv2,
                                        [](int n, int total) { line("LV2: checking bundles", n, total); },
                                        Qt::DirectConnection);
    if (options.progress != ScanOptions::Silent && lv2)
        connections << QObject::connect(lv2, &QVlorLv2::Manager::progressPlugin, lv2, naming("LV2: checking"),
                                        Qt::DirectConnection);
    if (lv2 && !options.lv2Folders.isEmpty()) {
        QVlorSetting& settings = QVlorSetting::global();
        QStringList custom = settings.getStringList(QLatin1String(QVlorLv2::K_SETTING_LV2_CUSTOM_PATHS));
        for (const QString& folder : options.lv2Folders)
            if (!custom.contains(folder))
                custom << folder;
        settings.change(QLatin1String(QVlorLv2::K_SETTING_LV2_CUSTOM_PATHS), custom);
    }
    if (options.progress != ScanOptions::Silent && vst3)
        // A bundle is probed, a class verified: either is a check in a child.
        connections << QObject::connect(vst3, &QVlorVst3::Manager::progressPlugin, vst3, naming("VST3: checking"),
                                        Qt::DirectConnection);
    if (vst3 && !options.vst3Roots.isEmpty()) {
        QVlorSetting& settings = QVlorSetting::global();
        QStringList custom = settings.getStringList(QLatin1String(QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS));
        for (const QString& root : options.vst3Roots)
            if (!custom.contains(root))
                custom << root;
        settings.change(QLatin1String(QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS), custom);
    }

    QElapsedTimer timer;
    timer.start();
    if (vst2) {
        for (const QString& f : options.vst2Folders)
            vst2->addPath(f);
        vst2->updatePlugins(true, false);
        settle();
    }
    if (vst3) {
        vst3->searchPlugins(true);
        vst3->enableNewPlugins();
        settle();
    }
    if (vst2) {
        vst2Phase = 1;
        vst2->enableNewPlugins();
        settle();
    }
    if (lv2) {
        lv2->searchPlugins(true);
        settle();
    }
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    if (oneLine)
        std::fprintf(stderr, "\r%70s\r", "");
    for (const auto& c : connections)
        QObject::disconnect(c);
    ScanSummary summary = summarize();
    summary.milliseconds = ms;
    return summary;
}

ScanSummary summarize()
{
    ScanSummary s;
    if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager()) {
        for (const QVlorVst::Path& path : vst2->pathsCopy()) {
            if (!path.isValid())
                continue;
            ++s.folders;
            for (const QVlorVst::Plugin& p : path.plugins()) {
                ++s.found;
                if (p.isFailed()) {
                    ++s.failed;
                    s.failures << QStringLiteral("VST2 %1: %2").arg(p.filename(), p.failReason().isEmpty()
                                                                                   ? QStringLiteral("failed its check")
                                                                                   : p.failReason());
                }
                if (p.isShell()) {
                    QStringList children;
                    for (const QVlorVst::Plugin& c : p.plugins()) {
                        children << c.name();
                        s.enabled += c.isEnabled() ? 1 : 0;
                    }
                    s.shells << QStringLiteral("%1 (%2)").arg(p.filename(), children.join(QStringLiteral(", ")));
                } else if (p.isEnabled()) {
                    ++s.enabled;
                }
            }
        }
    }
    if (QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager()) {
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
            ++s.bundles;
            s.bundlesFailed += b.failed() ? 1 : 0;
            if (b.failed())
                s.failures << QStringLiteral("VST3 %1: %2").arg(b.path(), b.lastError());
            for (const QVlorVst3::CatalogClass& c : b.classes()) {
                ++s.classes;
                s.classesEnabled += c.state() == QVlorVst3::CatalogClass::Enabled ? 1 : 0;
                s.classesFailed += c.state() == QVlorVst3::CatalogClass::Failed ? 1 : 0;
                s.classesCrashed += c.state() == QVlorVst3::CatalogClass::Crashed ? 1 : 0;
                if (c.state() == QVlorVst3::CatalogClass::Failed || c.state() == QVlorVst3::CatalogClass::Crashed)
                    s.failures << QStringLiteral("VST3 %1 (%2): %3")
                                      .arg(c.name(), b.path(),
                                           c.state() == QVlorVst3::CatalogClass::Crashed ? QStringLiteral("crashed")
                                                                                          : c.lastError());
            }
        }
        // A product counts once, in two formats or three.
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.formCount() >= 2) {
                ++s.pairsByOrigin[e.origin];
                s.inThreeFormats += e.formCount() == 3 ? 1 : 0;
            }
    }
    if (QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager()) {
        const QVlorLv2::Catalog catalog = lv2->catalogCopy();
        for (const QVlorLv2::CatalogBundle& b : catalog.bundles) {
            ++s.lv2Bundles;
            for (const QVlorLv2::CatalogPlugin& p : b.plugins) {
                ++s.lv2Plugins;
                if (p.state == QVlorLv2::CatalogPlugin::Usable) {
                    ++(catalog.isEnabled(p.uri) ? s.lv2Usable : s.lv2Off);
                } else if (p.state == QVlorLv2::CatalogPlugin::NotAnEffect) {
                    ++s.lv2NotEffects;
                } else {
                    ++s.lv2Failed;
                    s.failures << QStringLiteral("LV2 %1 (%2): %3").arg(p.name.isEmpty() ? p.uri : p.name, p.uri, p.reason);
                }
            }
        }
    }
    // In the order of the names, not of the folders' listing.
    std::sort(s.failures.begin(), s.failures.end());
    return s;
}

QString stateWord(const QVlorVst::Plugin& p)
{
    if (p.verifying())
        return QStringLiteral("verifying");
    if (p.missing())
        return QStringLiteral("missing");
    if (p.isFailed())
        return QStringLiteral("failed");
    if (p.isNew())
        return QStringLiteral("new");
    return p.isEnabled() ? QStringLiteral("on") : QStringLiteral("off");
}

QString stateWord(const QVlorVst3::CatalogClass& c)
{
    switch (c.state()) {
    case QVlorVst3::CatalogClass::Enabled:
        return QStringLiteral("on");
    case QVlorVst3::CatalogClass::Disabled:
        return QStringLiteral("off");
    case QVlorVst3::CatalogClass::New:
        return QStringLiteral("new");
    case QVlorVst3::CatalogClass::Failed:
        return QStringLiteral("failed");
    case QVlorVst3::CatalogClass::Crashed:
        return QStringLiteral("crashed");
    case QVlorVst3::CatalogClass::Missing:
        return QStringLiteral("missing");
    case QVlorVst3::CatalogClass::Verifying:
        return QStringLiteral("verifying");
    }
    return QString();
}

QString stateWord(const QVlorLv2::Catalog& catalog, const QVlorLv2::CatalogPlugin& p)
{
    switch (p.state) {
    case QVlorLv2::CatalogPlugin::Usable:
        return catalog.isEnabled(p.uri) ? QStringLiteral("on") : QStringLiteral("off");
    case QVlorLv2::CatalogPlugin::NotAnEffect:
        return QStringLiteral("not an effect");
    case QVlorLv2::CatalogPlugin::Crashed:
        return QStringLiteral("crashed");
    default:
        return QStringLiteral("failed");
    }
}

bool reportSaveErrors(const char* who)
{
    static QSet<QString> told;
    QStringList errors;
    if (QVlorVst::Manager* m = QVlorAudioPlugins::vstManager())
        errors << m->saveError();
    if (QVlorVst3::Manager* m = QVlorAudioPlugins::vst3Manager())
        errors << m->saveError();
    if (QVlorLv2::Manager* m = QVlorAudioPlugins::lv2Manager())
        errors << m->saveError();
    // Settings are written a moment after they change: now, to know.
    char settings[2048] = "";
    if (!BLSETTINGS_Flush() && BLSETTINGS_GetSaveError(settings, int(sizeof(settings))))
        errors << QString::fromLocal8Bit(settings);
    bool failed = false;
    for (const QString& e : errors) {
        if (e.isEmpty())
            continue;
        failed = true;
        if (!told.contains(e))
            std::fprintf(stderr, "%s: could not save %s\n", who, qPrintable(e));
        told.insert(e);
    }
    return failed;
}

} // namespace vlorfx

namespace vlorfx {

QList<UnifiedRow> pageRows()
{
    QVlorVst3::Manager* m3 = QVlorAudioPlugins::vst3Manager();
    QVlorVst::Manager* m2 = QVlorAudioPlugins::vstManager();
    QVlorPluginPairs pairs;
    pairs.entries() = m3->pairsEntriesCopy();
    return QVlorUnifiedPluginsModel::composeRows(
        vst2Paths(), m3->catalogCopy(), pairs, m3->isScanEnabled() ? m3->searchPaths() : QStringList(), {},
        m3->pendingPairOpVst2IdsCopy(), m3->pendingPairOpCidsCopy(), m2 && m2->isScanEnabled(),
        QVlorAudioPlugins::lv2Manager() ? QVlorAudioPlugins::lv2Manager()->catalogCopy() : QVlorLv2::Catalog());
}

} // namespace vlorfx
