// The LV2 manager: the scan (folders walked, bundles stamped, the changed
// ones checked in children ahead of their turn), the user's switches and
// the saves.
#include "QVlorLv2_Manager.h"

#include "QVlorLv2_BundleCheck.h"
#include "QVlorManagerCore_p.h"
#include "QVlorDataFile_p.h"
#include "lv2engine.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <mutex>

namespace QVlorLv2 {

const char* const K_SETTING_LV2_CUSTOM_PATHS = "vloraudio.plugins.lv2_custom_paths";
const char* const K_SETTING_LV2_DISABLED_PATHS = "vloraudio.plugins.lv2_disabled_paths";

namespace {

QLatin1String formatKey() { return QLatin1String(QVlorAudioPlugins::kLv2Format.supportSettingKey); }

// The bundles directly under a folder: folders holding a manifest.
QStringList bundlesUnder(const QString& folder)
{
    QStringList found;
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& e : entries)
        if (QFileInfo::exists(e.absoluteFilePath() + QStringLiteral("/manifest.ttl")))
            found.append(e.absoluteFilePath());
    return found;
}

} // namespace

class Manager::Data : public ManagerCore<Manager, Manager::Data> {
public:
    QString catalogPath;
    Catalog live;              // the manager's thread's
    Catalog published;         // under publishLock
    QStringList pathsOverride; // under publishLock
    bool pathsOverridden = false;
    std::mutex resultsLock;
    QHash<QString, BundleCheck> results; // bundle checks run ahead, by path
    DataFileWatch catalogWatch;

    void publish()
    {
        QMutexLocker l(&publishLock);
        published = live;
    }
    void dropCancelledWork() {}
    // A switch flipped or a scan saved by another process (vlorfx beside the editor).
    void absorbChangesElsewhere()
    {
        QJsonObject merged;
        if (!catalogWatch.takeIn(catalogPath, [this] { return live.toJson(); }, &merged))
            return;
        live.fromJson(merged);
        qInfo().noquote() << "QVlorLv2::Manager: took in what another process saved in" << catalogPath;
        show();
    }
};

Manager::Manager(QObject* parent, const QString& catalogPath) : QObject(parent), d(new Data)
{
    d->q = this;
    d->catalogPath = catalogPath;
    if (!d->live.load(catalogPath))
        qWarning().noquote() << "QVlorLv2::Manager: the catalog" << catalogPath << "could not be read";
    d->publish();
    d->startLookingAtDisk([this] { d->absorbChangesElsewhere(); });
    d->startThread(QStringLiteral("vlor-lv2-manager"), [this] { saveCatalog(); });
}

Manager::~Manager()
{
    aboutToQuit();
    delete d;
}

Catalog Manager::catalogCopy() const
{
    QMutexLocker l(&d->publishLock);
    return d->published;
}

bool Manager::isScanning() const { return d->scanning.loadAcquire() != 0; }
QList<QVlorRunningCheck> Manager::runningChecks() const { return d->runningChecks(); }
bool Manager::skipCheck(const QString& name) { return d->ahead.skip(name); }
QString Manager::saveError() const { return d->lastSaveError(); }

QStringList Manager::SystemPaths()
{
    const QByteArray env = qgetenv("LV2_PATH");
    if (!env.isEmpty())
        return QString::fromLocal8Bit(env).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    QStringList paths{QDir::homePath() + QStringLiteral("/.lv2"), QStringLiteral("/usr/local/lib/lv2"),
                      QStringLiteral("/usr/lib/lv2")};
    // The multiarch folder of this machine's architecture.
    for (const QFileInfo& arch : QDir(QStringLiteral("/usr/lib")).entryInfoList({QStringLiteral("*-linux-gnu*")},
                                                                                  QDir::Dirs))
        if (QFileInfo(arch.absoluteFilePath() + QStringLiteral("/lv2")).isDir())
            paths.append(arch.absoluteFilePath() + QStringLiteral("/lv2"));
    return paths;
}

QStringList Manager::searchPaths() const
{
    {
        QMutexLocker l(&d->publishLock);
        if (d->pathsOverridden)
            return d->pathsOverride;
    }
    return ConfiguredPaths();
}

QStringList Manager::ConfiguredPaths()
{
    QStringList paths = SystemPaths();
    QVlorSetting& settings = QVlorSetting::global();
    for (const QString& custom : settings.getStringList(QLatin1String(K_SETTING_LV2_CUSTOM_PATHS)))
        if (!paths.contains(custom))
            paths.append(custom);
    for (const QString& off : settings.getStringList(QLatin1String(K_SETTING_LV2_DISABLED_PATHS)))
        paths.removeAll(off);
    return paths;
}

bool Manager::isScanEnabled()
{
    return QVlorSetting::global().getBool(QLatin1String(QVlorAudioPlugins::kLv2Format.scanSettingKey), true);
}
void Manager::setScanEnabled(bool on)
{
    QVlorSetting::global().change(QLatin1String(QVlorAudioPlugins::kLv2Format.scanSettingKey), on);
}
bool Manager::isFormatEnabled() { return QVlorSetting::global().getBool(formatKey(), true); }
void Manager::setFormatEnabled(bool on) { QVlorSetting::global().change(formatKey(), on); }

void Manager::setSearchPathsForTesting(const QStringList& paths)
{
    QMutexLocker l(&d->publishLock);
    d->pathsOverride = paths;
    d->pathsOverridden = true;
}

/* ---- the scan ---------------------------------------------------------------- */

// A bundle to check: all of it, or the one plugin `only` of it.
struct Manager::Work {
    QString path;
    QString stamp;
    QString only;
    QString name; // what the progress line and a skip know it by
};

void Manager::searchPlugins(bool notifyNew)
{
    if (d->postWork([this, notifyNew] { searchPlugins(notifyNew); }))
        return;
    d->cancelled.storeRelease(0);
    d->scanning.storeRelease(1);
    emit beginScan();
    QStringList found;
    // Scanning switched off: the catalog stays as it is.
    if (!isScanEnabled()) {
        d->scanning.storeRelease(0);
        emit endScan(false);
        return;
    }
    for (const QString& folder : searchPaths())
        for (const QString& bundle : bundlesUnder(folder))
            if (!found.contains(bundle))
                found.append(bundle);
    // Gone bundles leave; the user's switches, kept by URI, stay for their return.
    const int before = int(d->live.bundles.size());
    d->live.bundles.erase(std::remove_if(d->live.bundles.begin(), d->live.bundles.end(),
                                         [&found](const CatalogBundle& b) { return !found.contains(b.path); }),
                          d->live.bundles.end());
    if (int(d->live.bundles.size()) != before)
        d->commit();
    // An unchanged bundle is passed by on its stamp alone: no child, no metadata read.
    QList<Work> changed;
    for (const QString& path : found) {
        const QString stamp = BundleStamp(path);
        const CatalogBundle* known = d->live.findBundle(path);
        if (!known || known->stamp != stamp)
            changed.append(Work{path, stamp, {}, QFileInfo(path).fileName()});
    }
    QList<QString> newNames;
    checkBundles(changed, &newNames);
    d->scanning.storeRelease(0);
    emit endScan(!newNames.isEmpty());
    if (notifyNew && !newNames.isEmpty())
        emit newPluginsFound(newNames);
}

// The bundles' checks, started ahead up to the parallel limit and taken in
// order: the catalog changes as a one-at-a-time scan would change it.
void Manager::checkBundles(const QList<Work>& work, QList<QString>* newNames)
{
    const int timeoutMs = TimeoutSecondsSetting(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey) * 1000;
    d->ahead.setParallel(ParallelChecks());
    for (const Work& w : work) {
        d->ahead.submit(w.path, w.name, [this, w, timeoutMs](const QAtomicInt* stop) {
            BundleCheck check = CheckBundle(w.path, timeoutMs, stop, {}, w.only);
            std::lock_guard<std::mutex> l(d->resultsLock);
            d->results.insert(w.path, check);
        });
    }
    for (int i = 0; i < work.size(); ++i) {
        emit progressScan(i, int(work.size()));
        emit progressPlugin(work[i].name);
        const bool ran = d->ahead.take(work[i].path);
        BundleCheck check;
        {
            std::lock_guard<std::mutex> l(d->resultsLock);
            check = d->results.take(work[i].path);
        }
        if (d->cancelled.loadAcquire())
            break;
        takeInCheck(work[i], ran, check, newNames);
        d->commit();
    }
    d->ahead.forgetUntaken();
    emit progressScan(int(work.size()), int(work.size()));
}

void Manager::takeInCheck(const Work& work, bool ran, const BundleCheck& check, QList<QString>* newNames)
{
    const bool whole = ran && !check.stopped && check.error.isEmpty();
    QList<CatalogPlugin> found;
    for (const QJsonObject& report : check.reports) {
        const CatalogPlugin p = CatalogPlugin::fromCheck(report);
        if (!d->live.findPlugin(p.uri) && p.state == CatalogPlugin::Usable)
            newNames->append(p.name);
        found.append(p);
    }
    // A folder added since the world was made: what it holds opens now, not after a restart.
    if (std::any_of(found.begin(), found.end(), [](const CatalogPlugin& p) { return p.state == CatalogPlugin::Usable; }))
        VLORLV2_AddBundle(work.path.toUtf8().constData());
    CatalogBundle* known = d->live.findBundle(work.path);
    if (!work.only.isEmpty() && known) {
        // One plugin of an unchanged bundle: its siblings and the stamp stay.
        auto it = std::find_if(known->plugins.begin(), known->plugins.end(),
                               [&work](const CatalogPlugin& p) { return p.uri == work.only; });
        if (!found.isEmpty() && it != known->plugins.end())
            *it = found.first();
        else if (!found.isEmpty())
            known->plugins.append(found.first());
        else if (whole && it != known->plugins.end())
            known->plugins.erase(it); // the bundle no longer holds it
        return;
    }
    // Skipped, or read by no child: its stamp stays unknown, so the next scan tries again.
    const CatalogBundle bundle{work.path, whole ? work.stamp : QString(), found};
    if (known)
        *known = bundle;
    else
        d->live.bundles.append(bundle);
}

void Manager::recheckAll()
{
    if (d->postWork([this] { recheckAll(); }))
        return;
    for (CatalogBundle& b : d->live.bundles)
        b.stamp.clear();
    searchPlugins(false);
}

void Manager::recheckPlugin(const QString& uriOrBundle)
{
    if (d->postWork([this, uriOrBundle] { recheckPlugin(uriOrBundle); }))
        return;
    const CatalogBundle* b = d->live.bundleOf(uriOrBundle);
    const QString path = b ? b->path : uriOrBundle;
    if (!QFileInfo(path + QStringLiteral("/manifest.ttl")).exists())
        return;
    Work work{path, BundleStamp(path), {}, QFileInfo(path).fileName()};
    const CatalogPlugin* plugin = d->live.findPlugin(uriOrBundle);
    if (plugin && b->plugins.size() > 1 && b->stamp == work.stamp) {
        work.only = uriOrBundle;
        work.name = plugin->name.isEmpty() ? uriOrBundle : plugin->name;
    }
    d->scanning.storeRelease(1);
    emit beginScan();
    QList<QString> newNames;
    checkBundles({work}, &newNames);
    d->scanning.storeRelease(0);
    emit endScan(!newNames.isEmpty());
}

/* ---- the user's switches ------------------------------------------------------ */

void Manager::setPluginEnabled(const QString& uri, bool on)
{
    if (d->post([this, uri, on] { setPluginEnabled(uri, on); }))
        return;
    if (on == d->live.isEnabled(uri))
        return;
    if (on)
        d->live.disabledUris.removeAll(uri);
    else
        d->live.disabledUris.append(uri);
    d->commit();
    if (on)
        emit pluginEnabled(uri);
    else
        emit pluginDisabled(uri);
}

void Manager::setVendorEnabled(const QString& maker, bool on)
{
    if (d->post([this, maker, on] { setVendorEnabled(maker, on); }))
        return;
    const QString key = maker.toLower();
    if (key.isEmpty() || on == d->live.isVendorEnabled(key))
        return;
    if (on)
        d->live.disabledVendors.removeAll(key);
    else
        d->live.disabledVendors.append(key);
    d->commit();
}

void Manager::resetPlugin(const QString& uri)
{
    if (d->postWork([this, uri] { resetPlugin(uri); }))
        return;
    if (d->live.disabledUris.removeAll(uri) > 0) {
        d->commit();
        emit pluginEnabled(uri);
    }
    recheckPlugin(uri);
}

void Manager::markCrashed(const QString& uri)
{
    if (d->post([this, uri] { markCrashed(uri); }))
        return;
    CatalogPlugin* p = d->live.findPlugin(uri);
    if (!p)
        return;
    p->state = CatalogPlugin::Crashed;
    p->reason = QStringLiteral("it crashed the editor while it opened");
    // Its bundle is checked again at the next scan.
    if (CatalogBundle* b = d->live.findBundle(d->live.bundleOf(uri)->path))
        b->stamp.clear();
    d->commit();
}

/* ---- the end ---------------------------------------------------------------- */

void Manager::cancel() { d->cancel(); }

bool Manager::saveCatalog()
{
    if (d->awayFromThread()) {
        bool ok = false;
        QMetaObject::invokeMethod(this, [this, &ok] { ok = saveCatalog(); }, Qt::BlockingQueuedConnection);
        return ok;
    }
    if (!d->changed.loadAcquire())
        return true;
    QString error;
    const bool ok = d->live.save(d->catalogPath, &error);
    return d->recordSave(ok, error);
}

void Manager::aboutToQuit()
{
    d->stopLookingAtDisk();
    d->saveIfDue([this] { saveCatalog(); });
    if (d->endThread())
        saveCatalog();
    d->ahead.close();
}

} // namespace QVlorLv2
