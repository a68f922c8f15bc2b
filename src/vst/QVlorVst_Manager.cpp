// The VST2 catalog's manager: its thread, the snapshot, the catalog files and
// the scan. The single operations on plugins, paths and vendors are in
// QVlorVst_ManagerOps.cpp.
#include "QVlorVst_Manager.h"
#include "QVlorVst_Manager_p.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"

#include "QVlorApplication.h"
#include "QVlorSetting.h"

#include "QVlorDataFile_p.h"
#include "blcore.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QMetaObject>

namespace QVlorVst {

const char* const K_SETTING_SCAN_VST2 = QVlorAudioPlugins::kVst2Format.scanSettingKey;
const char* const K_SETTING_CHECK_TIMEOUT_S = QVlorAudioPlugins::kVst2Format.checkTimeoutSettingKey;

namespace {
// How long a check under way at quit may still take before it is killed.
constexpr int kQuitGraceMs = 2000;
} // namespace
static const char* const K_VST_XML_FOLDER = "vstxml";
static const char* const K_VST_CATALOG_V2_NAME = "catalog_v2.json";
static const char* const K_VST_CATALOG_V1_NAME = "catalog.json";
static const char* const K_VST_PATHS = "paths";
static const char* const K_VST_DESCRIPTORS = "descriptors";

QList<Path> Manager::Data::SystemPaths() { return {}; }

Path Manager::Data::ConvertJsonValueToPath(const QJsonValue& value) { return Path(value.toObject()); }

bool Manager::Data::PluginIsNewAndEnabled(const Plugin& p)
{
    if (!p.isShell())
        return p.isNew() && p.isEnabled();
    for (const Plugin& child : p.plugins())
        if (PluginIsNewAndEnabled(child))
            return true;
    return false;
}

Plugin* Manager::Data::findLivePlugin(const Path& path, const Plugin& plugin)
{
    const QString wantedPath = path.absolutePath();
    const QString ref = plugin.pluginRef();
    for (Path& p : paths) {
        if (!wantedPath.isEmpty() && p.absolutePath() != wantedPath)
            continue;
        for (Plugin& candidate : p.plugins()) {
            if (candidate.pluginRef() == ref)
                return &candidate;
            if (candidate.isShell())
                for (Plugin& child : candidate.plugins())
                    if (child.pluginRef() == ref)
                        return &child;
        }
    }
    return nullptr;
}

Path* Manager::Data::findPath(const QString& absolutePath)
{
    for (Path& p : paths)
        if (p.absolutePath() == absolutePath)
            return &p;
    return nullptr;
}

bool Manager::Data::applyPendingVerifyingLocked()
{
    if (pendingVerifying.isEmpty() || published.isEmpty())
        return false;
    auto wanted = [this](const Plugin& p) { return pendingVerifying.contains(p.pluginRef()) && !p.missing(); };
    bool changed = false;
    for (int i = 0; i < published.size(); ++i) {
        bool hit = false;
        for (const Plugin& p : published[i].plugins()) {
            hit = hit || (wanted(p) && !p.verifying());
            if (p.isShell())
                for (const Plugin& child : p.plugins())
                    hit = hit || (wanted(child) && !child.verifying());
            if (hit)
                break;
        }
        if (!hit)
            continue;
        // The path is replaced, never written to: older snapshots stay as they were.
        Path copy = published[i].detachedCopy();
        for (Plugin& p : copy.plugins()) {
            if (wanted(p))
                p.setVerifying(true);
            if (p.isShell())
                for (Plugin& child : p.plugins())
                    if (wanted(child))
                        child.setVerifying(true);
        }
        published[i] = copy;
        changed = true;
    }
    return changed;
}

bool Manager::Data::clearPendingVerifying(const QString& ref)
{
    QMutexLocker l(&publishLock);
    return pendingVerifying.remove(ref);
}

QString Manager::Data::catalogFile(const QString& filename, const char* defaultName)
{
    if (!filename.isEmpty() && qstrcmp(defaultName, K_VST_CATALOG_V2_NAME) == 0)
        return filename;
    const QDir data(QVlorApplication::applicationDataLocation());
    if (!data.exists(QLatin1String(K_VST_XML_FOLDER))) {
        data.mkpath(QStringLiteral("."));
        data.mkdir(QLatin1String(K_VST_XML_FOLDER));
    }
    return data.filePath(QLatin1String(K_VST_XML_FOLDER) + QLatin1Char('/') + QLatin1String(defaultName));
}

bool Manager::Data::readCatalog(const QString& filename, QJsonObject* root)
{
    JsonFileFault fault;
    if (ReadJsonFileObject(filename, root, JsonFileOwner::Library, &fault))
        return true;
    if (fault.happened && !fault.parseError.isEmpty())
        qWarning() << "Failed to parser vst plugin catalog" << filename << "with error" << fault.parseError;
    else if (fault.happened)
        qWarning() << "Unexpected data in plugin catalog" << filename;
    return false;
}

bool Manager::Data::replacePaths(const QJsonObject& root)
{
    const QJsonValue list = root.value(QLatin1String(K_VST_PATHS));
    if (!list.isArray())
        return false;
    paths.clear();
    for (const QJsonValue& v : list.toArray())
        paths.append(ConvertJsonValueToPath(v));
    return true;
}

/* ---- construction and the thread ------------------------------------------ */

Manager::Manager(QObject*) : QObject(nullptr), d(new Data)
{
    // An object with a parent cannot change threads: the parent is not taken.
    d->q = this;
    d->paths = Data::SystemPaths();
    qRegisterMetaType<QVlorVst::Plugin>("QVlorVst::Plugin");
    qRegisterMetaType<QVlorVst::Path>("QVlorVst::Path");
    qRegisterMetaType<QList<QVlorVst::Plugin>>("QList<QVlorVst::Plugin>");
    qRegisterMetaType<QList<QVlorVst::Path>>("QList<QVlorVst::Path>");

    QVlorSetting& settings = QVlorSetting::global();
    settings.setDefault(QLatin1String(K_SETTING_SCAN_VST2), true);
    settings.setDefault(QLatin1String(K_SETTING_CHECK_TIMEOUT_S), 30);
    settings.setDefault(QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey), false);
    settings.setDefault(QStringLiteral("%1.%2").arg(QLatin1String(QVlorAudioPlugins::kVst2Format.effectSettingsPrefix),
                                                    QLatin1String("use_fallback_editor_for_non_native")),
                        false);

    connect(this, &Manager::beginScan, this, &Manager::onBeginScan);
    connect(this, &Manager::endScan, this, &Manager::onEndScan);
    d->publish();
    // Made before the manager moves to its thread, so that it moves along.
    d->startLookingAtDisk([this] { d->absorbChangesElsewhere(); });
    d->startThread(QStringLiteral("QVlorVst::Manager"), [this] { saveCatalog(); });
}

QJsonObject Manager::Data::catalogJson() const
{
    QJsonArray array;
    for (const Path& p : paths)
        array.append(p.toJsonObject());
    return QJsonObject{{QLatin1String(K_VST_PATHS), array}};
}

void Manager::Data::absorbChangesElsewhere()
{
    const QString name = catalogFile(QString(), K_VST_CATALOG_V2_NAME);
    QJsonObject merged;
    if (!catalogWatch.takeIn(name, [this] { return catalogJson(); }, &merged) || !replacePaths(merged))
        return;
    qInfo().noquote() << "VlorVst::Manager: took in what another process saved in" << name;
    show();
}

Manager::~Manager()
{
    aboutToQuit();
    // Its runs end before the records they write into go.
    d->ahead.close();
    delete d;
}

void Manager::aboutToQuit()
{
    const bool fromOutside = d->awayFromThread();
    d->stopLookingAtDisk();
    d->saveIfDue([this] { saveCatalog(); });
    if (fromOutside) {
        // The check under way gets a short grace; what is queued behind it is dropped.
        cancel();
        BLCORE_AbortSpawns(kQuitGraceMs);
    }
    if (d->endThread())
        qInfo() << "QVlorVst::Manager::About to quit ...";
    if (fromOutside)
        BLCORE_AbortSpawns(-1);
}

/* ---- snapshot and plain state ------------------------------------------- */

void Manager::Data::publish()
{
    QList<Path> copy;
    copy.reserve(paths.size());
    for (const Path& p : std::as_const(paths))
        copy.append(p.detachedCopy());
    QMutexLocker l(&publishLock);
    published.swap(copy);
    applyPendingVerifyingLocked();
}

QList<Path> Manager::pathsCopy() const
{
    QMutexLocker l(&d->publishLock);
    return d->published;
}

bool Manager::isScanning() const { return d->scanning.loadAcquire() != 0; }
bool Manager::hasChanges() const { return d->changed.loadAcquire() != 0; }
void Manager::cancel() { d->cancel(); }

QList<QVlorRunningCheck> Manager::runningChecks() const { return d->runningChecks(); }
bool Manager::skipCheck(const QString& name) { return d->ahead.skip(name); }

void Manager::Data::dropCancelledWork()
{
    bool dropped;
    {
        QMutexLocker l(&publishLock);
        dropped = !pendingVerifying.isEmpty();
        pendingVerifying.clear();
    }
    // The marks may be on the working list too.
    for (Path& path : paths)
        for (Plugin& p : path.plugins()) {
            dropped = dropped || p.verifying();
            p.setVerifying(false);
            for (Plugin& child : p.plugins()) {
                dropped = dropped || child.verifying();
                child.setVerifying(false);
            }
        }
    if (dropped)
        show();
}
void Manager::setChanged() { d->markChanged(); }
void Manager::onBeginScan() { d->scanning.storeRelease(1); }
void Manager::onEndScan(bool) { d->scanning.storeRelease(0); }

bool Manager::isScanEnabled() { return QVlorSetting::global().getBool(QLatin1String(K_SETTING_SCAN_VST2), true); }

void Manager::setScanEnabled(bool enabled) { QVlorSetting::global().change(QLatin1String(K_SETTING_SCAN_VST2), enabled); }

bool Manager::hasNewPlugins() const
{
    for (const Path& path : d->paths)
        for (const Plugin& p : path.plugins())
            if (Data::PluginIsNewAndEnabled(p))
                return true;
    return false;
}

void Manager::getPaths()
{
    if (d->post([this] { getPaths(); }))
        return;
    emit paths(d->paths);
}

void Manager::markPluginsVerifying(const QStringList& pluginRefs)
{
    bool shown = false;
    {
        QMutexLocker l(&d->publishLock);
        for (const QString& ref : pluginRefs)
            d->pendingVerifying.insert(ref);
        // Away from the manager's thread the marks show on the published copy at once.
        if (d->awayFromThread())
            shown = d->applyPendingVerifyingLocked();
    }
    if (shown)
        emit catalogChanged();
    if (d->post([this, pluginRefs] { markPluginsVerifying(pluginRefs); }))
        return;
    const QSet<QString> refs(pluginRefs.begin(), pluginRefs.end());
    bool any = false;
    auto mark = [&](Plugin& p) {
        if (refs.contains(p.pluginRef()) && !p.missing()) {
            p.setVerifying(true);
            any = true;
        }
    };
    for (Path& path : d->paths)
        for (Plugin& p : path.plugins()) {
            mark(p);
            if (p.isShell())
                for (Plugin& child : p.plugins())
                    mark(child);
        }
    if (any)
        d->show();
}

/* ---- catalog files ------------------------------------------------------- */

void Manager::loadCatalog(const QString& filename)
{
    const QString name = Data::catalogFile(filename, K_VST_CATALOG_V2_NAME);
    if (d->post([this, name] { loadCatalog(name); }))
        return;
    qInfo().noquote() << "VlorVst::Manager: loadCatalog: " + name;
    if (!QFile::exists(name)) {
        loadCatalog_v1(Data::catalogFile(QString(), K_VST_CATALOG_V1_NAME));
        return;
    }
    QJsonObject root;
    // Shown at once: the menu, the page and the matcher read the published
    // copy, and a start without a scan would leave them without VST2 plugins.
    if (Data::readCatalog(name, &root) && d->replacePaths(root))
        d->show();
}

void Manager::loadCatalog_v1(const QString& filename)
{
    QJsonObject root;
    if (!Data::readCatalog(filename, &root) || !d->replacePaths(root))
        return;
    for (const QJsonValue& v : root.value(QLatin1String(K_VST_DESCRIPTORS)).toArray()) {
        const QJsonObject o = v.toObject();
        const QString owner = o.value(QLatin1String("path")).toString();
        for (Path& path : d->paths) {
            if (path.absolutePath() != owner)
                continue;
            const bool isNew = o.value(QLatin1String("is_new")).toBool(false);
            // Failed plugins, and ones never probed that nobody waits for, are found again by the next scan.
            if (o.value(QLatin1String("failed")).toBool(false))
                break;
            if (o.value(QLatin1String("unique_id")).toInt(0) == 0 && !isNew)
                break;
            Plugin plugin(o);
            if (!isNew)
                plugin.setEnabled(!o.value(QLatin1String("disabled")).toBool(false));
            path.appendPlugin(plugin);
            break;
        }
    }
    if (!d->paths.isEmpty())
        d->commit();
}

bool Manager::saveCatalog(const QString& filename)
{
    const QString name = Data::catalogFile(filename, K_VST_CATALOG_V2_NAME);
    // Tested first, so that an unchanged catalog is never written, also at exit.
    if (!hasChanges())
        return true;
    if (d->post([this, name] { saveCatalog(name); }))
        return true;
    QString error;
    return d->recordSave(WriteJsonFileAtomically(name, d->catalogJson(), &error), error);
}

QString Manager::saveError() const { return d->lastSaveError(); }

/* ---- scanning ------------------------------------------------------------ */

void Manager::searchPlugins(bool notifyNewPlugins)
{
    if (d->postWork([this, notifyNewPlugins] { searchPlugins(notifyNewPlugins); }))
        return;
    if (!isScanEnabled() || d->paths.isEmpty())
        return;
    qInfo() << "VlorVst::Manager: searchPlugins started!";
    d->cancelled.storeRelease(0);
    QStringList refs;
    bool changed = false;
    for (Path& path : d->paths) {
        if (!path.isSearched() || !path.isEnabled() || !QDir(path.absolutePath()).exists())
            continue;
        qInfo().noquote() << "VlorVst::Manager: searchPlugins in:" << path.absolutePath();
        for (Plugin& p : path.plugins()) {
            if (!QFile::exists(p.filename()))
                continue; // only an enable attempt finds out that a file is gone
            p.setExists(true);
            if (retryEndedChecks(p, false)) {
                d->markChanged(); // a persistent change: failed to new
                changed = true;
            }
            if (p.missing()) {
                p.setMissing(false);
                changed = true;
            }
            for (Plugin& child : p.plugins()) {
                if (child.missing()) {
                    child.setMissing(false);
                    changed = true;
                }
            }
        }
        if (!searchPluginsInPath(path.absolutePath(), path, refs))
            path.setEnabled(false);
        if (d->cancelled.loadAcquire())
            break;
    }
    if (!d->cancelled.loadAcquire()) {
        if (!refs.isEmpty()) {
            d->markChanged();
            d->publish();
            if (notifyNewPlugins)
                emit newPluginsFound(refs);
            emit catalogChanged();
        } else if (changed) {
            d->show();
        }
    }
    qInfo() << "VlorVst::Manager: searchPlugins finished!";
}

// A check that said nothing of its plugin (someone else ended it; at a
// rescan, the user skipped it too) is undone: the plugin is new again.
bool Manager::retryEndedChecks(Plugin& p, bool skippedToo)
{
    bool changed = false;
    QList<Plugin*> records{&p};
    for (Plugin& child : p.plugins())
        records << &child;
    for (Plugin* r : records)
        if (r->isFailed() && (IsEndedFromOutside(r->failReason()) || (skippedToo && IsSkippedByUser(r->failReason())))) {
            r->setFailed(false);
            r->setNew(true);
            changed = true;
        }
    return changed;
}

bool Manager::searchPluginsInPath(const QString& folder, Path& path, QStringList& refs)
{
    // The root of a file system is never walked; the caller disables the path.
    if (QFileInfo(folder).isRoot())
        return false;
    QDirIterator it(folder, QDir::AllEntries | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (info.suffix() == QLatin1String("so")) {
            const Plugin p = path.addPlugin(info.absoluteFilePath());
            if (p.isValid())
                refs.append(p.pluginRef());
        } else if (info.isDir()) {
            if (!searchPluginsInPath(info.absoluteFilePath(), path, refs))
                return false;
        }
        if (d->cancelled.loadAcquire())
            return true;
    }
    return true;
}

void Manager::updatePlugins(bool notifyNewPlugins, bool deep_check_shell_plugins)
{
    if (d->postWork([this, notifyNewPlugins, deep_check_shell_plugins] {
            updatePlugins(notifyNewPlugins, deep_check_shell_plugins);
        }))
        return;
    d->cancelled.storeRelease(0);
    emit beginScan();
    if (!isScanEnabled()) {
        emit endScan(false);
        return;
    }
    qInfo() << "VlorVst::Manager: updatePlugins started!";
    searchPlugins(false);
    QStringList newRefs;
    if (!d->cancelled.loadAcquire()) {
        int total = 0, done = 0;
        for (const Path& path : std::as_const(d->paths))
            total += int(path.plugins().size());
        for (int pi = 0; pi < d->paths.size(); ++pi)
            if (!announcePath(d->paths[pi], notifyNewPlugins, deep_check_shell_plugins, &newRefs, &done, &total))
                break;
    }
    d->publish();
    emit endScan(hasNewPlugins());
    if (!newRefs.isEmpty() && notifyNewPlugins)
        emit newPluginsFound(newRefs);
    if (hasChanges())
        emit catalogChanged();
    qInfo() << "VlorVst::Manager: updatePlugins finished!";
}

// Each usable plugin of the path is announced, a shell checked again when
// asked; new ones wait for the user. False when a cancel stopped it.
bool Manager::announcePath(Path& path, bool notifyNewPlugins, bool deepCheckShells, QStringList* newRefs, int* done,
                           int* total)
{
    const QHash<QString, int> counts = _BuildVendorCount(path);
    for (int k = 0; k < path.plugins().size(); ++k) {
        Plugin& plugin = path.plugins()[k];
        const bool usable = plugin.isEnabled() && !_VendorBlocksPlugin(plugin, path, counts);
        if (usable && plugin.isShell() && plugin.exists()) {
            if (notifyNewPlugins)
                enablePlugin(plugin, path, deepCheckShells);
            *total += int(plugin.plugins().size());
            for (Plugin& child : plugin.plugins()) {
                if (child.isEnabled() && child.exists())
                    emit pluginEnabled(child, path);
                else if (child.isNew())
                    newRefs->append(child.pluginRef());
                emit progressScan(++*done, *total);
                if (d->cancelled.loadAcquire())
                    break;
            }
        } else if (usable && plugin.exists()) {
            emit pluginEnabled(plugin, path);
        } else if (plugin.isNew()) {
            newRefs->append(plugin.pluginRef());
        }
        emit progressScan(++*done, *total);
        if (d->cancelled.loadAcquire())
            return false;
    }
    return true;
}

void Manager::rescanPlugins()
{
    if (d->postWork([this] { rescanPlugins(); }))
        return;
    // What the user skipped is checked again: it counts as new.
    for (Path& path : d->paths)
        for (Plugin& p : path.plugins())
            retryEndedChecks(p, true);
    updatePlugins(true, true);
}

} // namespace QVlorVst
