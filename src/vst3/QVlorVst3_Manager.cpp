// The VST3 manager: its thread, the published copies, the search paths and
// the scan. Enabling and verifying are in QVlorVst3_ManagerOps.cpp, the pair
// operations in QVlorVst3_ManagerPairs.cpp, the crash sentinel in
// QVlorVst3_Sentinel.cpp.
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Manager_p.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"

#include "QVlorSetting.h"
#include "QVlorVst3_ModuleInfo.h"
#include "QVlorVst3_Probe_p.h"
#include "QVlorDataFile_p.h"
#include "QVlorHostProgram_p.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QRegularExpression>

#include <limits>

namespace QVlorVst3 {

const char* const K_SETTING_SCAN_VST3 = QVlorAudioPlugins::kVst3Format.scanSettingKey;
const char* const K_SETTING_VST3_CUSTOM_PATHS = "vloraudio.plugins.vst3_custom_paths";
const char* const K_SETTING_VST3_DISABLED_PATHS = "vloraudio.plugins.vst3_disabled_paths";
const char* const K_PROBE_TRUNCATED_TEXT =
    "probe class list truncated -- module exposes more classes than the probe cap";

/* ---- Data ---------------------------------------------------------------- */

bool Manager::Data::addMarks(ManagedCatalog::MarkKind kind, const QStringList& keys, bool* shown)
{
    QMutexLocker l(&publishLock);
    store.addMarks(kind, keys);
    if (!awayFromThread())
        return false;
    *shown = store.applyMarksLocked();
    return true;
}

void Manager::Data::dropCancelledWork()
{
    if (store.dropMarks())
        commit();
}

bool Manager::Data::retryChecks(bool skippedToo)
{
    const bool changed = store.retryFailures(skippedToo);
    if (changed)
        markChanged();
    return changed;
}

void Manager::Data::absorbChangesElsewhere()
{
    if (!store.takeInChangesElsewhere())
        return;
    qInfo() << "QVlorVst3::Manager: took in what another process saved";
    show();
}

namespace {

// A probed bundle that changed on disk or lost classes is probed again by a scan.
bool NeedsReprobe(const CatalogBundle& b)
{
    if (b.isOutdated())
        return true;
    for (const CatalogClass& c : b.classes())
        if (c.state() == CatalogClass::Missing)
            return true;
    return false;
}

} // namespace

/* ---- construction and the thread ------------------------------------------ */

Manager::Manager(QObject*, const QString& catalogPath, const QString& pairsPath, qint32 verifierBuild,
                 const QString& sentinel)
    : QObject(nullptr), d(new Data)
{
    // An object with a parent cannot change threads: the parent is not taken.
    d->sentinelPath = sentinel;
    d->verifierBuild = verifierBuild;
    d->q = this;

    qRegisterMetaType<QVlorVst3::CatalogClass>("QVlorVst3::CatalogClass");
    qRegisterMetaType<QVlorVst3::CatalogClass>("QVlorVst3::CatalogClass&");
    qRegisterMetaType<QVlorVst3::Catalog>("QVlorVst3::Catalog");
    qRegisterMetaType<QVlorPluginPairs::Entry>("QVlorPluginPairs::Entry");
    qRegisterMetaType<QList<QVlorPluginPairs::Entry>>("QList<QVlorPluginPairs::Entry>");
    QVlorAudioPlugins::SetOpeningSentinelPath(sentinel);
    QVlorSetting& settings = QVlorSetting::global();
    settings.setDefault(QLatin1String(K_SETTING_SCAN_VST3), true);
    settings.setDefault(QLatin1String(K_SETTING_PROBE_TIMEOUT_S), 30);

    d->store.load(catalogPath, pairsPath);
    d->publish();

    connect(this, &Manager::beginScan, this, &Manager::onBeginScan);
    connect(this, &Manager::endScan, this, &Manager::onEndScan);
    // Made before the manager moves to its thread, so that it moves along.
    d->startLookingAtDisk([this] { d->absorbChangesElsewhere(); });
    d->startThread(QStringLiteral("QVlorVst3::Manager"), [this] { saveCatalogAndPairs(); });
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
    if (d->awayFromThread())
        d->runs.quit();
    d->stopLookingAtDisk();
    d->saveIfDue([this] { saveCatalogAndPairs(); });
    // What the thread held is saved last, once nothing can change it any more.
    if (d->endThread())
        saveCatalogAndPairs();
}

/* ---- read side and plain state ------------------------------------------- */

Catalog Manager::catalogCopy() const { return d->store.catalogCopy(); }

Catalog& Manager::catalog() { return d->store.live; }
QVlorPluginPairs& Manager::pairs() { return d->store.pairs; }
bool Manager::isScanning() const { return d->scanning.loadAcquire() != 0; }
void Manager::cancel() { d->cancel(); }

QList<QVlorRunningCheck> Manager::runningChecks() const { return d->runningChecks(); }
bool Manager::skipCheck(const QString& name) { return d->ahead.skip(name); }

void Manager::onBeginScan() { d->scanning.storeRelease(1); }
void Manager::onEndScan(bool) { d->scanning.storeRelease(0); }

bool Manager::isScanEnabled() { return QVlorSetting::global().getBool(QLatin1String(K_SETTING_SCAN_VST3), true); }

void Manager::setScanEnabled(bool on) { QVlorSetting::global().change(QLatin1String(K_SETTING_SCAN_VST3), on); }

bool Manager::saveCatalogAndPairs()
{
    if (!d->changed.loadAcquire())
        return true;
    QString error;
    const bool ok = d->store.save(&error);
    return d->recordSave(ok, error);
}

QString Manager::saveError() const { return d->lastSaveError(); }

void Manager::setVst2ItemsProvider(const Vst2ItemsProvider& provider)
{
    if (d->post([this, provider] { setVst2ItemsProvider(provider); }))
        return;
    d->pairHooks.vst2Items = provider;
}

void Manager::setVst2FailedSetter(const Vst2FailedSetter& setter)
{
    if (d->post([this, setter] { setVst2FailedSetter(setter); }))
        return;
    d->pairHooks.vst2Failed = setter;
}

void Manager::setLv2ItemsProvider(const Lv2ItemsProvider& provider)
{
    if (d->post([this, provider] { setLv2ItemsProvider(provider); }))
        return;
    d->pairHooks.lv2Items = provider;
}

void Manager::setOtherFailedSetter(const OtherFailedSetter& setter)
{
    if (d->post([this, setter] { setOtherFailedSetter(setter); }))
        return;
    d->otherFailed = setter;
}

void Manager::setHostBinary(const QString& path, const QStringList& arguments)
{
    if (d->post([this, path, arguments] { setHostBinary(path, arguments); }))
        return;
    d->runs.setProgram(path, arguments);
}

void Manager::setHostBinaryForTesting(const QString& path) { setHostBinary(path, {QStringLiteral("--vst3")}); }

void Manager::setSearchPathsForTesting(const QStringList& paths)
{
    if (d->post([this, paths] { setSearchPathsForTesting(paths); }))
        return;
    // Read from any thread by searchPaths().
    QMutexLocker l(&d->publishLock);
    d->searchPathsOverride = paths;
    d->searchPathsOverridden = true;
}

/* ---- search paths ---------------------------------------------------------- */

QStringList Manager::SystemPaths()
{
    return {QDir::homePath() + QStringLiteral("/.vst3"), QStringLiteral("/usr/lib/vst3"),
            QStringLiteral("/usr/local/lib/vst3")};
}

QStringList Manager::searchPaths() const
{
    {
        QMutexLocker l(&d->publishLock);
        if (d->searchPathsOverridden)
            return d->searchPathsOverride;
    }
    QStringList paths = SystemPaths();
    QVlorSetting& settings = QVlorSetting::global();
    for (const QString& custom : settings.getStringList(QLatin1String(K_SETTING_VST3_CUSTOM_PATHS)))
        if (!paths.contains(custom))
            paths.append(custom);
    for (const QString& off : settings.getStringList(QLatin1String(K_SETTING_VST3_DISABLED_PATHS)))
        paths.removeAll(off);
    return paths;
}

void __CollectBundlePaths(const QString& directory, QStringList* output)
{
    QDirIterator it(directory, QDir::Dirs | QDir::Files | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (info.suffix().compare(QVlorAudioPlugins::Vst3Token(), Qt::CaseInsensitive) == 0)
            output->append(info.absoluteFilePath());
        else if (info.isDir())
            __CollectBundlePaths(info.absoluteFilePath(), output);
    }
}

/* ---- the scan ---------------------------------------------------------------- */

void Manager::searchPlugins(bool notifyNew)
{
    if (d->postWork([this, notifyNew] { searchPlugins(notifyNew); }))
        return;
    d->cancelled.storeRelease(0);
    if (!isScanEnabled()) {
        emit endScan(false);
        return;
    }
    emit beginScan();
    qInfo() << "QVlorVst3::Manager: searchPlugins started";
    d->retryChecks(false);

    const QStringList roots = searchPaths();
    QStringList found;
    for (const QString& root : roots)
        if (QFileInfo(root).isDir())
            __CollectBundlePaths(root, &found);
    settleGoneBundles(roots, QSet<QString>(found.begin(), found.end()));

    // Where each known bundle stands: a catalog of thousands is not searched once a bundle.
    // The list only grows from here on, so the places hold.
    QHash<QString, int> place;
    const QList<CatalogBundle>& bundles = std::as_const(d->store.live).bundles();
    for (int k = 0; k < bundles.size(); ++k)
        place.insert(bundles.at(k).path(), k);
    // The bundles to probe again run ahead, up to the limit at a time; each
    // is taken in its turn below.
    d->ahead.setParallel(ParallelChecks());
    for (const QString& path : std::as_const(found)) {
        const int at = place.value(path, -1);
        if (at >= 0 && bundles.at(at).probed() && NeedsReprobe(bundles.at(at)))
            d->runs.runAhead(ProbeArguments(path), QFileInfo(path).fileName());
    }
    QSet<QString> seen;
    QList<QString> newNames;
    const int total = int(found.size());
    for (int i = 1; i <= total; ++i) {
        if (d->cancelled.loadAcquire())
            break;
        visitBundle(found.at(i - 1), &place, &seen, &newNames);
        emit progressScan(i, total);
    }
    d->ahead.forgetUntaken();

    runMatcher({}, 0);
    d->commit();
    bool anyNew = false;
    for (const CatalogBundle& b : std::as_const(d->store.live).bundles())
        for (const CatalogClass& c : b.classes())
            anyNew = anyNew || c.state() == CatalogClass::New;
    emit endScan(anyNew);
    if (!newNames.isEmpty() && notifyNew)
        emit newPluginsFound(newNames);
    qInfo() << "QVlorVst3::Manager: searchPlugins finished";
}

// Never probed and gone: nothing of the user's is lost. Probed bundles hold
// the user's choices and stay, their classes missing.
void Manager::settleGoneBundles(const QStringList& roots, const QSet<QString>& found)
{
    QList<CatalogBundle>& bundles = d->store.live.bundles();
    for (int i = int(bundles.size()) - 1; i >= 0; --i) {
        const CatalogBundle& b = bundles.at(i);
        if (!b.probed() && !found.contains(b.path()) && __IsUnderScannedRoot(b.path(), roots))
            bundles.removeAt(i);
    }
    for (CatalogBundle& b : bundles) {
        if (found.contains(b.path()) || !__IsUnderScannedRoot(b.path(), roots))
            continue;
        for (CatalogClass& c : b.classes()) {
            if (c.state() == CatalogClass::Missing)
                continue;
            c.setState(CatalogClass::Missing);
            emit pluginStateChanged(c);
        }
    }
}

// One bundle the scan found: new ones are recorded unprobed, unprobed ones
// get their stamp, probed ones keep their classes unless the file changed.
void Manager::visitBundle(const QString& path, QHash<QString, int>* place, QSet<QString>* seen,
                          QList<QString>* newNames)
{
    const int at = place->value(path, -1);
    CatalogBundle* b = at < 0 ? nullptr : &d->store.live.bundles()[at];
    if (!b) {
        CatalogBundle fresh;
        fresh.setPath(path);
        HostRuns::StoreFileStamp(&fresh);
        fresh.setProbed(false);
        place->insert(path, int(d->store.live.bundles().size()));
        d->store.live.bundles().append(fresh);
        newNames->append(QFileInfo(path).completeBaseName());
    } else if (!b->probed()) {
        const qint64 oldTime = b->mtimeSecs(), oldSize = b->sizeBytes();
        HostRuns::StoreFileStamp(b);
        b->setMissing(false);
        // A changed file gets a new chance.
        if (oldTime != b->mtimeSecs() || oldSize != b->sizeBytes()) {
            b->setFailed(false);
            b->setLastError(QString());
        }
    } else {
        if (!NeedsReprobe(*b)) {
            // The first bundle holding a class ID keeps it.
            QList<CatalogClass>& classes = b->classes();
            for (int k = int(classes.size()) - 1; k >= 0; --k)
                if (seen->contains(classes.at(k).cid()))
                    classes.removeAt(k);
            for (const CatalogClass& c : std::as_const(classes))
                seen->insert(c.cid());
        } else {
            reprobeBundle(path, seen, newNames);
        }
    }
}

// A probed bundle that changed or lost classes: probed again, keeping the user's choices.
void Manager::reprobeBundle(const QString& path, QSet<QString>* seen, QList<QString>* newNames)
{
    CatalogBundle copy = *d->store.live.findBundle(path);
    HostRuns::StoreFileStamp(&copy);
    emit progressPlugin(QFileInfo(path).fileName());
    QJsonObject reply;
    QString error;
    const bool ok = d->runs.run(ProbeArguments(path), &reply, &error, QFileInfo(path).fileName());
    if (!ok && HostRuns::CutShort(error))
        return; // the bundle stays as it was; the next start probes it again
    if (!ok) {
        copy.setFailed(true);
        copy.setLastError(error);
        QList<CatalogClass>& classes = copy.classes();
        for (int k = 0; k < classes.size();) {
            if (seen->contains(classes.at(k).cid())) {
                classes.removeAt(k);
            } else {
                seen->insert(classes.at(k).cid());
                ++k;
            }
        }
    } else {
        copy.setFailed(false);
        copy.setLastError(QString());
        const QList<CatalogClass> old = copy.classes();
        QList<CatalogClass> classes = ReplyClasses(reply, seen);
        for (CatalogClass& c : classes) {
            const CatalogClass* before = nullptr;
            for (const CatalogClass& o : old)
                if (o.cid() == c.cid())
                    before = &o;
            if (!before) {
                newNames->append(c.name());
                continue;
            }
            c.setEnabled(before->isEnabled());
            c.setLastError(before->lastError());
            c.setVerifiedAt(before->verifiedAt());
            c.setVerifierBuild(before->verifierBuild());
            if (before->state() == CatalogClass::Missing)
                c.setState(before->isEnabled() ? CatalogClass::Enabled : CatalogClass::Disabled);
            else
                c.setState(before->state());
        }
        copy.classes() = classes;
    }
    HostRuns::ReadModuleInfo(&copy);
    if (reply.value(QStringLiteral("truncated")).toBool(false))
        copy.setLastError(QLatin1String(K_PROBE_TRUNCATED_TEXT));
    if (CatalogBundle* live = d->store.live.findBundle(path))
        *live = copy;
    else
        d->store.live.bundles().append(copy);
}

} // namespace QVlorVst3
