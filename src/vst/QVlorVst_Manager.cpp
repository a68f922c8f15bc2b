// The VST2 catalog's manager: its thread, the snapshot, the catalog files and
// the scan. The single operations on plugins, paths and vendors are in
// QVlorVst_ManagerOps.cpp.
#include "QVlorVst_Manager.h"
#include "QVlorVst_Manager_p.h"

#include "QVlorApplication.h"
#include "QVlorSetting.h"

#include "QVlorJsonFile_p.h"
#include "QVlorManagerThread_p.h"
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

const char* const K_SETTING_SCAN_VST2 = "vloraudio.plugins.scan_vst2";

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

bool Manager::Data::mustHop() const
{
    return thread && QThread::currentThread() != thread.data() && !thread->isFinished();
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
    QMutexLocker l(&mutex);
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

bool Manager::Data::readJsonObject(const QString& filename, QJsonObject* object)
{
    // A pipe or a device in the file's place would block the open or never end.
    if (!QFileInfo(filename).isFile())
        return false;
    QFile file(filename);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        qWarning() << "Failed to parser vst plugin catalog" << filename << "with error" << error.errorString();
        MarkJsonFileUnreadable(filename);
        return false;
    }
    if (!doc.isObject()) {
        qWarning() << "Unexpected data in plugin catalog" << filename;
        MarkJsonFileUnreadable(filename);
        return false;
    }
    *object = doc.object();
    return true;
}

/* ---- construction and the thread ------------------------------------------ */

Manager::Manager(QObject*) : QObject(nullptr), d(new Data)
{
    // An object with a parent cannot change threads: the parent is not taken.
    d->paths = Data::SystemPaths();
    d->thread = new QThread;
    qRegisterMetaType<QVlorVst::Plugin>("QVlorVst::Plugin");
    qRegisterMetaType<QVlorVst::Path>("QVlorVst::Path");
    qRegisterMetaType<QList<QVlorVst::Plugin>>("QList<QVlorVst::Plugin>");
    qRegisterMetaType<QList<QVlorVst::Path>>("QList<QVlorVst::Path>");

    QVlorSetting& settings = QVlorSetting::global();
    settings.setDefault(QLatin1String(K_SETTING_SCAN_VST2), true);
    settings.setDefault(QStringLiteral("%1.%2").arg(QLatin1String("vloraudio.fx.vst"), QLatin1String("use_fallback_editor")),
                        false);
    settings.setDefault(QStringLiteral("%1.%2").arg(QLatin1String("vloraudio.fx.vst"),
                                                    QLatin1String("use_fallback_editor_for_non_native")),
                        false);

    connect(this, &Manager::beginScan, this, &Manager::onBeginScan);
    connect(this, &Manager::endScan, this, &Manager::onEndScan);
    d->saveTimer = MakeSaveTimer(this, [this] { saveCatalog(); });
    connect(this, &Manager::catalogChanged, this, [this] { ScheduleSave(d->saveTimer, d->thread); });

    publish();

    StartManagerThread(this, &d->thread, QStringLiteral("QVlorVst::Manager"));
}

Manager::~Manager()
{
    aboutToQuit();
    delete d;
}

void Manager::aboutToQuit()
{
    const bool fromOutside = d->mustHop();
    if (!fromOutside && d->thread && !d->thread->isFinished())
        SaveBeforeTheEnd(d->saveTimer, [this] { saveCatalog(); });
    if (fromOutside) {
        // The check under way gets a short grace; what is queued behind it is dropped.
        cancel();
        BLCORE_AbortSpawns(kQuitGraceMs);
    }
    if (EndManagerThread(this, &d->thread))
        qInfo() << "QVlorVst::Manager::About to quit ...";
    if (fromOutside)
        BLCORE_AbortSpawns(-1);
}

/* ---- snapshot and plain state ------------------------------------------- */

void Manager::publish()
{
    QList<Path> copy;
    copy.reserve(d->paths.size());
    for (const Path& p : d->paths)
        copy.append(p.detachedCopy());
    QMutexLocker l(&d->mutex);
    d->published.swap(copy);
    d->applyPendingVerifyingLocked();
}

QList<Path> Manager::pathsCopy() const
{
    QMutexLocker l(&d->mutex);
    return d->published;
}

bool Manager::isScanning() const { return d->scanning.loadAcquire() != 0; }
bool Manager::hasChanges() const { return d->changed.loadAcquire() != 0; }
void Manager::cancel()
{
    d->cancelled.storeRelease(1);
    d->cancelGeneration.fetchAndAddOrdered(1);
}

void Manager::Data::dropCancelledWork(Manager* manager)
{
    bool dropped;
    {
        QMutexLocker l(&mutex);
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
    if (!dropped)
        return;
    manager->publish();
    emit manager->catalogChanged();
}
void Manager::setChanged()
{
    d->changed.storeRelease(1);
    ScheduleSave(d->saveTimer, d->thread);
}
void Manager::onBeginScan() { d->scanning.storeRelease(1); }
void Manager::onEndScan(bool) { d->scanning.storeRelease(0); }

bool Manager::isScanEnabled() const { return QVlorSetting::global().getBool(QLatin1String(K_SETTING_SCAN_VST2), true); }

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
    if (d->mustHop()) {
        QMetaObject::invokeMethod(this, [this] { getPaths(); }, Qt::QueuedConnection);
        return;
    }
    emit paths(d->paths);
}

void Manager::markPluginsVerifying(const QStringList& pluginRefs)
{
    {
        QMutexLocker l(&d->mutex);
        for (const QString& ref : pluginRefs)
            d->pendingVerifying.insert(ref);
    }
    if (d->mustHop()) {
        bool changed;
        {
            QMutexLocker l(&d->mutex);
            changed = d->applyPendingVerifyingLocked();
        }
        if (changed)
            emit catalogChanged();
        QMetaObject::invokeMethod(this, [this, pluginRefs] { markPluginsVerifying(pluginRefs); }, Qt::QueuedConnection);
        return;
    }
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
    if (any) {
        publish();
        emit catalogChanged();
    }
}

/* ---- catalog files ------------------------------------------------------- */

void Manager::loadCatalog(const QString& filename)
{
    const QString name = Data::catalogFile(filename, K_VST_CATALOG_V2_NAME);
    if (d->mustHop()) {
        QMetaObject::invokeMethod(this, [this, name] { loadCatalog(name); }, Qt::QueuedConnection);
        return;
    }
    qInfo().noquote() << "VlorVst::Manager: loadCatalog: " + name;
    if (!QFile::exists(name)) {
        loadCatalog_v1(Data::catalogFile(QString(), K_VST_CATALOG_V1_NAME));
        return;
    }
    QJsonObject root;
    if (Data::readJsonObject(name, &root))
        d->replacePaths(root);
}

void Manager::loadCatalog_v1(const QString& filename)
{
    QJsonObject root;
    if (!Data::readJsonObject(filename, &root) || !d->replacePaths(root))
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
    if (!d->paths.isEmpty()) {
        setChanged();
        publish();
        emit catalogChanged();
    }
}

bool Manager::saveCatalog(const QString& filename)
{
    const QString name = Data::catalogFile(filename, K_VST_CATALOG_V2_NAME);
    // Tested first, so that an unchanged catalog is never written, also at exit.
    if (!hasChanges())
        return true;
    if (d->mustHop()) {
        QMetaObject::invokeMethod(this, [this, name] { saveCatalog(name); }, Qt::QueuedConnection);
        return true;
    }
    QJsonArray array;
    for (const Path& p : d->paths)
        array.append(p.toJsonObject());
    QJsonObject root;
    root.insert(QLatin1String(K_VST_PATHS), array);
    QString error;
    const bool ok = WriteJsonFileAtomically(name, root, &error);
    {
        QMutexLocker l(&d->mutex);
        d->saveError = error;
    }
    if (!ok)
        return false; // the flag stays set: a later save tries again
    d->changed.storeRelease(0);
    return true;
}

QString Manager::saveError() const
{
    QMutexLocker l(&d->mutex);
    return d->saveError;
}

/* ---- scanning ------------------------------------------------------------ */

void Manager::searchPlugins(bool notifyNewPlugins)
{
    if (d->postWork(this, [this, notifyNewPlugins] { searchPlugins(notifyNewPlugins); }))
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
            setChanged();
            publish();
            if (notifyNewPlugins)
                emit newPluginsFound(refs);
            emit catalogChanged();
        } else if (changed) {
            publish();
            emit catalogChanged();
        }
    }
    qInfo() << "VlorVst::Manager: searchPlugins finished!";
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
    if (d->postWork(this, [this, notifyNewPlugins, deep_check_shell_plugins] {
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
        int total = 0, n = 0;
        for (const Path& path : d->paths)
            total += int(path.plugins().size());
        bool stop = false;
        for (int pi = 0; pi < d->paths.size() && !stop; ++pi) {
            Path& path = d->paths[pi];
            const QHash<QString, int> counts = _BuildVendorCount(path);
            for (int k = 0; k < path.plugins().size() && !stop; ++k) {
                Plugin& plugin = path.plugins()[k];
                const bool usable = plugin.isEnabled() && !_VendorBlocksPlugin(plugin, path, counts);
                if (usable && plugin.isShell() && plugin.exists()) {
                    if (notifyNewPlugins)
                        enablePlugin(plugin, path, deep_check_shell_plugins);
                    total += int(plugin.plugins().size());
                    for (Plugin& child : plugin.plugins()) {
                        if (child.isEnabled() && child.exists())
                            emit pluginEnabled(child, path);
                        else if (child.isNew())
                            newRefs.append(child.pluginRef());
                        emit progressScan(++n, total);
                        if (d->cancelled.loadAcquire())
                            break;
                    }
                } else if (usable && plugin.exists()) {
                    emit pluginEnabled(plugin, path);
                } else if (plugin.isNew()) {
                    newRefs.append(plugin.pluginRef());
                }
                emit progressScan(++n, total);
                stop = d->cancelled.loadAcquire() != 0;
            }
        }
    }
    publish();
    emit endScan(hasNewPlugins());
    if (!newRefs.isEmpty() && notifyNewPlugins)
        emit newPluginsFound(newRefs);
    if (hasChanges())
        emit catalogChanged();
    qInfo() << "VlorVst::Manager: updatePlugins finished!";
}

void Manager::rescanPlugins() { updatePlugins(true, true); }

} // namespace QVlorVst
