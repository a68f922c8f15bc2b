// The VST3 manager's operations that move classes and bundles through their
// states: probing, verifying, switching on and off, forgetting.
#include "QVlorVst3_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorVst3_Manager_p.h"
#include "QVlorCheckVerdict_p.h"

#include "QVlorPluginMatcher.h"
#include "QVlorVst3_Probe_p.h"

#include <QHash>
#include <QDateTime>
#include <QFileInfo>

namespace QVlorVst3 {

bool __LocateClassAndBundle(Catalog& catalog, const QString& cid, CatalogBundle** bundle, CatalogClass** catalogClass)
{
    const QList<CatalogBundle>& constBundles = std::as_const(catalog).bundles();
    for (int b = 0; b < constBundles.size(); ++b) {
        const QList<CatalogClass>& classes = constBundles.at(b).classes();
        for (int c = 0; c < classes.size(); ++c) {
            if (classes.at(c).cid() != cid)
                continue;
            // Detached only once found, so that a miss copies nothing.
            CatalogBundle& live = catalog.bundles()[b];
            *bundle = &live;
            *catalogClass = &live.classes()[c];
            return true;
        }
    }
    return false;
}

void Manager::enablePlugin(const QString& cid)
{
    if (d->postWork([this, cid] { enablePlugin(cid); }))
        return;
    CatalogBundle* bundle = nullptr;
    CatalogClass* c = nullptr;
    if (!__LocateClassAndBundle(d->store.live, cid, &bundle, &c)) {
        d->store.clearMark(ManagedCatalog::ClassMark, cid);
        d->publish();
        return;
    }
    const CatalogClass::State before = c->state();
    c->setState(CatalogClass::Verifying);
    const QString path = bundle->path();
    d->publish();
    emit pluginStateChanged(*c);

    emit progressPlugin(c->name());
    QString error;
    const bool ok = d->runs.run(VerifyArguments(path, cid), nullptr, &error, c->name());
    d->store.clearMark(ManagedCatalog::ClassMark, cid);
    // The catalog may have changed while the host ran.
    if (!__LocateClassAndBundle(d->store.live, cid, &bundle, &c)) {
        d->publish();
        return;
    }
    if (!ok && HostRuns::CutShort(error)) {
        // Cut short by the quit: the class is no worse than before it.
        c->setState(before);
        d->publish();
        emit pluginStateChanged(*c);
        return;
    }
    if (ok) {
        c->setEnabled(true);
        c->setState(CatalogClass::Enabled);
        c->setLastError(QString());
        c->setVerifiedAt(QDateTime::currentSecsSinceEpoch());
        c->setVerifierBuild(d->verifierBuild);
        if (QVlorPluginPairs::Entry* entry = d->store.pairs.findByVst3(cid))
            entry->vetoedAutoEnable = false;
    } else {
        c->setEnabled(false);
        c->setState(CatalogClass::Failed);
        c->setLastError(error);
    }
    const CatalogClass result = *c;
    d->publishChange();
    if (ok)
        emit pluginEnabled(result);
    else
        emit pluginFailed(result);
    emit catalogChanged();
}

void Manager::enableBundle(const QString& path) { enableBundleInternal(path, true); }

void Manager::enableBundleInternal(const QString& path, bool autoEnableSingle)
{
    if (d->postWork([this, path, autoEnableSingle] { enableBundleInternal(path, autoEnableSingle); }))
        return;
    auto dropMark = [this, &path] { return d->store.clearMark(ManagedCatalog::BundleMark, path); };
    CatalogBundle* b = d->store.live.findBundle(path);
    if (!b) {
        // A mark on a bundle that is gone would show it busy until the next publish.
        if (dropMark()) {
            d->show();
        }
        return;
    }
    if (b->probed()) {
        const bool wasMarked = dropMark();
        if (wasMarked || b->verifying()) {
            b->setVerifying(false);
            d->show();
        }
        return;
    }
    if (!QFileInfo::exists(path)) {
        dropMark();
        b->setVerifying(false);
        b->setMissing(true);
        d->commit();
        return;
    }
    b->setVerifying(true);
    d->show();

    emit progressPlugin(QFileInfo(path).fileName());
    QJsonObject reply;
    QString error;
    const bool ok = d->runs.run(ProbeArguments(path), &reply, &error, QFileInfo(path).fileName());
    dropMark();
    b = d->store.live.findBundle(path);
    if (!b) {
        d->publish();
        return;
    }
    b->setVerifying(false);
    if (!ok && HostRuns::CutShort(error)) {
        d->publish(); // still unprobed: the next start probes it
        return;
    }
    HostRuns::StoreFileStamp(b);
    if (!ok) {
        // Not probed: the bundle can be tried again.
        b->setFailed(true);
        b->setLastError(error);
        d->commit();
        return;
    }
    takeProbe(b, reply, autoEnableSingle);
    runMatcher({}, 0);
    d->commit();
}

// A probe's classes into the bundle; a class ID another bundle holds stays there.
void Manager::takeProbe(CatalogBundle* b, const QJsonObject& reply, bool autoEnableSingle)
{
    QSet<QString> taken;
    for (const CatalogBundle& other : std::as_const(d->store.live).bundles())
        if (other.path() != b->path())
            for (const CatalogClass& c : other.classes())
                taken.insert(c.cid());
    QList<CatalogClass> classes = ReplyClasses(reply, &taken);
    // The probe has just loaded the only class: that is its verification.
    if (autoEnableSingle && classes.size() == 1) {
        classes[0].setEnabled(true);
        classes[0].setState(CatalogClass::Enabled);
    }
    b->classes() = classes;
    b->setProbed(true);
    b->setFailed(false);
    b->setMissing(false);
    b->setLastError(reply.value(QStringLiteral("truncated")).toBool(false) ? QLatin1String(K_PROBE_TRUNCATED_TEXT)
                                                                          : QString());
    HostRuns::ReadModuleInfo(b);
}

void Manager::enableNewPlugins()
{
    if (d->postWork([this] { enableNewPlugins(); }))
        return;
    const int generation = d->cancelGeneration.loadAcquire();
    auto cancelled = [this, generation] { return d->cancelGeneration.loadAcquire() != generation; };
    QStringList unprobed;
    for (const CatalogBundle& b : std::as_const(d->store.live).bundles())
        if (!b.probed() && !b.failed() && !b.missing() && b.enabled())
            unprobed.append(b.path());
    // The probes run ahead, up to the limit at a time, and are taken in order:
    // the catalog changes as it would one bundle after the other.
    d->ahead.setParallel(ParallelChecks());
    for (const QString& path : std::as_const(unprobed))
        if (QFileInfo::exists(path))
            d->runs.runAhead(ProbeArguments(path), QFileInfo(path).fileName());
    // Each new class is decided below, by its twin.
    for (const QString& path : std::as_const(unprobed)) {
        if (cancelled())
            break;
        enableBundleInternal(path, false);
    }

    QStringList fresh;
    for (const CatalogBundle& b : std::as_const(d->store.live).bundles())
        for (const CatalogClass& c : b.classes())
            if (c.state() == CatalogClass::New)
                fresh.append(c.cid());
    const QList<Vst2PluginInfo> vst2 = d->pairHooks.vst2Plugins();

    // So do the verifications of the classes that are going to be switched on.
    for (const QString& cid : std::as_const(fresh)) {
        CatalogBundle* bundle = nullptr;
        CatalogClass* c = nullptr;
        if (!cancelled() && newClassFormat(cid, vst2) == QVlorAudioPlugins::Vst3Token() &&
            __LocateClassAndBundle(d->store.live, cid, &bundle, &c))
            d->runs.runAhead(VerifyArguments(bundle->path(), cid), c->name());
    }
    for (const QString& cid : std::as_const(fresh)) {
        if (cancelled())
            break;
        decideNewClass(cid, vst2);
    }
    d->ahead.forgetUntaken();
    for (const QString& cid : std::as_const(fresh))
        d->store.returningPairs.remove(cid);
    d->commit();
}

// What a new class is going to be: "vst3", "vst2" or "veto", as its pair and
// its VST2 twin say. Nothing is changed.
QString Manager::newClassFormat(const QString& cid, const QList<Vst2PluginInfo>& vst2) const
{
    const QVlorPluginPairs::Entry* entry = d->store.pairs.findByVst3(cid);
    // A class that comes back (its catalog was lost, its pair entry was not)
    // takes what the user chose for its pair, whatever the probes match now.
    const auto known = d->store.returningPairs.constFind(cid);
    if (entry && known != d->store.returningPairs.cend() && known->vst2 == entry->vst2)
        return known->vetoedAutoEnable ? QStringLiteral("veto") : known->activeFormat;
    bool hasVst2 = false, vst2Enabled = false, vst2UserDisabled = false;
    if (entry && entry->vst2 != 0) {
        hasVst2 = true;
        for (const Vst2PluginInfo& info : vst2) {
            if (info.uniqueId != entry->vst2 || info.isNew)
                continue;
            // Off and not failed: the user switched it off. A twin that crashed gives way.
            vst2Enabled = info.enabled;
            vst2UserDisabled = !info.enabled && !info.failed;
            break;
        }
    }
    return QVlorPluginMatcher::defaultEnableFormat(hasVst2, vst2Enabled, vst2UserDisabled, true);
}

// A new class is switched on as VST3, or left off for its VST2 twin, or
// vetoed, as its pair says.
void Manager::decideNewClass(const QString& cid, const QList<Vst2PluginInfo>& vst2)
{
    const CatalogClass* c = std::as_const(d->store.live).findClass(cid);
    if (!c || c->state() != CatalogClass::New)
        return;
    const QString format = newClassFormat(cid, vst2);
    QVlorPluginPairs::Entry* entry = d->store.pairs.findByVst3(cid);
    // A returning class's pair takes back what the user chose for it.
    const auto known = d->store.returningPairs.constFind(cid);
    if (entry && known != d->store.returningPairs.cend() && known->vst2 == entry->vst2) {
        entry->activeFormat = known->activeFormat;
        entry->vetoedAutoEnable = known->vetoedAutoEnable;
    }
    if (format == QLatin1String("veto")) {
        if (entry)
            entry->vetoedAutoEnable = true;
    } else if (format == QVlorAudioPlugins::Vst3Token()) {
        if (entry)
            entry->activeFormat = QVlorAudioPlugins::Vst3Token();
        enablePlugin(cid);
    } else {
        if (entry)
            entry->activeFormat = QVlorAudioPlugins::Vst2Token();
        // Turned off without a verify: the pair runs as VST2.
        if (CatalogClass* live = d->store.live.findClass(cid)) {
            live->setState(CatalogClass::Disabled);
            const CatalogClass off = *live;
            d->publish();
            emit pluginStateChanged(off);
        }
    }
}

void Manager::disablePlugin(const QString& cid)
{
    if (d->post([this, cid] { disablePlugin(cid); }))
        return;
    CatalogClass* c = d->store.live.findClass(cid);
    if (!c)
        return;
    c->setEnabled(false);
    c->setState(CatalogClass::Disabled);
    const CatalogClass off = *c;
    d->publishChange();
    emit pluginDisabled(off);
    emit catalogChanged();
}

void Manager::setBundleEnabled(const QString& path, bool on)
{
    if (d->post([this, path, on] { setBundleEnabled(path, on); }))
        return;
    CatalogBundle* b = d->store.live.findBundle(path);
    if (!b || b->enabled() == on)
        return;
    b->setEnabled(on);
    d->commit();
}

void Manager::setVendorEnabled(const QString& vendor, bool on)
{
    if (d->post([this, vendor, on] { setVendorEnabled(vendor, on); }))
        return;
    const QString key = vendor.toLower();
    if (key.isEmpty())
        return;
    QStringList& vendors = d->store.live.disabledVendors();
    bool changed;
    if (on) {
        changed = vendors.removeAll(key) > 0;
    } else {
        changed = !vendors.contains(key);
        if (changed)
            vendors.append(key);
    }
    if (!changed)
        return;
    d->commit();
}

void Manager::clearCrashedState(const QString& cid)
{
    if (d->post([this, cid] { clearCrashedState(cid); }))
        return;
    CatalogClass* c = d->store.live.findClass(cid);
    if (!c || c->state() != CatalogClass::Crashed)
        return;
    c->setState(CatalogClass::Enabled);
    const CatalogClass cleared = *c;
    d->publishChange();
    emit pluginStateChanged(cleared);
    // The user's answer must outlive a crash of the very next open.
    emit catalogChanged();
}

void Manager::removeFromCatalog(const QString& cid)
{
    if (d->post([this, cid] { removeFromCatalog(cid); }))
        return;
    CatalogBundle* bundle = nullptr;
    CatalogClass* c = nullptr;
    if (!__LocateClassAndBundle(d->store.live, cid, &bundle, &c))
        return;
    QList<CatalogClass>& classes = bundle->classes();
    classes.removeAt(int(c - classes.data()));
    if (classes.isEmpty())
        d->store.live.removeBundle(bundle->path());
    d->commit();
}

void Manager::resetBundle(const QString& path)
{
    if (d->post([this, path] { resetBundle(path); }))
        return;
    CatalogBundle* b = d->store.live.findBundle(path);
    if (!b)
        return;
    QStringList cids;
    for (const CatalogClass& c : std::as_const(*b).classes())
        cids.append(c.cid());
    b->classes().clear();
    b->compat().clear();
    b->setProbed(false);
    b->setModuleinfoFound(false);
    b->setFailed(false);
    b->setLastError(QString());
    b->setEnabled(true);
    b->setVerifying(false);
    b->setMissing(false);
    d->store.pairs.purgeIdentities({}, cids);
    d->store.clearPairOpMarks({}, cids);
    d->store.clearMark(ManagedCatalog::BundleMark, path);
    for (const QString& cid : std::as_const(cids))
        d->store.clearMark(ManagedCatalog::ClassMark, cid);
    d->commit();
}

void Manager::purgeUnprobedUnder(const QString& root)
{
    if (d->post([this, root] { purgeUnprobedUnder(root); }))
        return;
    if (root.isEmpty())
        return;
    QList<CatalogBundle>& bundles = d->store.live.bundles();
    bool any = false;
    for (int i = int(bundles.size()) - 1; i >= 0; --i) {
        if (bundles.at(i).probed() || !__IsUnderScannedRoot(bundles.at(i).path(), {root}))
            continue;
        bundles.removeAt(i);
        any = true;
    }
    if (!any)
        return;
    d->commit();
}

void Manager::markClassesVerifying(const QStringList& cids)
{
    bool shown = false;
    if (d->addMarks(ManagedCatalog::ClassMark, cids, &shown)) {
        if (shown)
            emit catalogChanged();
        d->post([this, cids] { markClassesVerifying(cids); });
        return;
    }
    bool any = false;
    for (const QString& cid : cids) {
        CatalogClass* c = d->store.live.findClass(cid);
        if (c && c->state() != CatalogClass::Verifying) {
            c->setState(CatalogClass::Verifying);
            any = true;
        }
    }
    if (any) {
        d->show();
    }
}

void Manager::markBundlesVerifying(const QStringList& paths)
{
    bool shown = false;
    if (d->addMarks(ManagedCatalog::BundleMark, paths, &shown)) {
        if (shown)
            emit catalogChanged();
        d->post([this, paths] { markBundlesVerifying(paths); });
        return;
    }
    bool any = false;
    for (const QString& path : paths) {
        CatalogBundle* b = d->store.live.findBundle(path);
        if (b && !b->missing() && !b->verifying()) {
            b->setVerifying(true);
            any = true;
        }
    }
    if (any) {
        d->show();
    }
}

/* ---- a rescan ---------------------------------------------------------- */

void Manager::rescanPlugins()
{
    if (d->postWork([this] { rescanPlugins(); }))
        return;
    d->retryChecks(true);
    for (CatalogBundle& b : d->store.live.bundles()) {
        if (!b.probed() || b.failed())
            continue;
        b.setMtimeSecs(0);
        b.setSizeBytes(0);
    }
    searchPlugins(false);
}

} // namespace QVlorVst3
