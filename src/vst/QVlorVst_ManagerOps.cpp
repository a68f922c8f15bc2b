// The single operations of the VST2 manager on plugins, paths and vendors.
// Only enablePlugin loads plugin code, through the engine, and only when the
// catalog does not already know the answer.
#include "QVlorVst_Manager.h"
#include "QVlorVst_Manager_p.h"

#include "QVlorTracer.h"

#include "audiovst.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace QVlorVst {

namespace {

PluginArch archOf(int engineArch) { return engineArch == 32 ? Arch32Bits : engineArch == 64 ? Arch64Bits : ArchUndefined; }

QString text(const char* s) { return s ? QString::fromUtf8(s) : QString(); }

} // namespace

QHash<QString, int> _BuildVendorCount(const Path& path)
{
    QHash<QString, int> counts;
    for (const Plugin& p : path.plugins())
        if (p.exists() && !p.isShell() && !p.vendor().isEmpty())
            ++counts[p.vendor().toLower()];
    return counts;
}

bool _VendorBlocksPlugin(const Plugin& plugin, const Path& path, const QHash<QString, int>& counts)
{
    if (plugin.isShell() || plugin.vendor().isEmpty())
        return false;
    const QString vendor = plugin.vendor().toLower();
    if (path.isVendorEnabled(vendor))
        return false;
    return counts.value(vendor) > 1;
}

// The user's switch is also kept in the plugin's settings, which outlive a
// lost catalog: a plugin found again takes it from there.
void _PersistSwitch(const Plugin& p, bool on)
{
    if (p.isShell() || p.uniqueId() == 0)
        return;
    AUDIOVST_SetEnabledEx(p.filename().toUtf8().constData(), int(p.uniqueId()), on);
}

void Manager::Data::ApplyCheckTimeout()
{
    AUDIOVST_SetCheckTimeout(TimeoutSecondsSetting(K_SETTING_CHECK_TIMEOUT_S) * 1000);
}

bool Manager::Data::NeedsCheck(const Plugin& p, bool deepShell)
{
    if (!p.exists() || !QFile::exists(p.filename()))
        return false;
    return p.isFailed() || p.uniqueId() == 0 || p.needRecheck() || (deepShell && p.isShell());
}

namespace {
QString CheckKey(const Plugin& p) { return p.filename() + QLatin1Char('\n') + QString::number(p.pluginId()); }
QString CheckLabel(const Plugin& p) { return p.name().isEmpty() ? QFileInfo(p.filename()).fileName() : p.name(); }
int StopOf(void* user) { return static_cast<const QAtomicInt*>(user)->loadAcquire(); }
} // namespace

void Manager::Data::checkAhead(const Plugin& p) const
{
    const QByteArray file = p.filename().toUtf8();
    const int id = int(p.pluginId());
    ahead.submit(CheckKey(p), CheckLabel(p), [file, id](const QAtomicInt* stop) {
        AUDIOVST_CheckAhead(file.constData(), id, &StopOf, const_cast<QAtomicInt*>(stop));
    });
}

bool Manager::Data::takeCheckAhead(const Plugin& p) const
{
    ApplyCheckTimeout();
    if (cancelledSinceWorkBegan()) {
        ahead.take(CheckKey(p)); // one made ahead is let go
        return false;
    }
    checkAhead(p);
    return ahead.take(CheckKey(p));
}

// What the engine's check found, into the record: a shell's children or an
// effect's names. False when the plugin is no use.
bool Manager::Data::takeCheck(Plugin& p, _VSTEFFECT* h)
{
    if (!h) {
        p.setEnabled(false);
        p.setFailed(true);
        p.setFailReason(QString::fromUtf8(AUDIOVST_GetLastFailure()));
        return false;
    }
    p.setUniqueId(qint64(int32_t(AUDIOVST_GetUniqueID(h))));
    if (p.uniqueId() == 0) {
        p.setFailed(true);
        p.setEnabled(false);
        return false;
    }
    if (AUDIOVST_GetCategory(h) == 1) {
        QList<Plugin> previous = p.plugins();
        p.setKind(ShellPlugin);
        p.setArch(archOf(AUDIOVST_GetArch(h)));
        const QString vendor = text(AUDIOVST_GetVendorString(h));
        if (!vendor.isEmpty())
            p.setVendor(vendor);
        for (int i = 0; i < AUDIOVST_PluginsCount(h); ++i)
            p.addPlugin(text(AUDIOVST_GetPluginName(h, i)), AUDIOVST_GetPluginId(h, i), &previous);
        for (const Plugin& gone : previous)
            p.removePlugin(gone);
        return true;
    }
    // The engine's display category is the vendor grouping of the effect list.
    p.setVendor(text(AUDIOVST_GetDisplayCategory(h)));
    p.setPlugCategory(AUDIOVST_GetPlugCategory(h));
    p.setName(text(AUDIOVST_GetDisplayName(h)));
    p.setNeedRecheck(AUDIOVST_NeedRecheck(h) != 0);
    p.setFailed(false);
    p.setArch(archOf(AUDIOVST_GetArch(h)));
    return true;
}

// The catalog knows this plugin: it is switched on without loading its code.
void Manager::enableKnownPlugin(Plugin& p, const Path& path)
{
    const QString ref = p.pluginRef();
    if (!p.isEnabled() || p.isShell()) {
        d->clearPendingVerifying(ref);
        p.setVerifying(false);
        p.setEnabled(true);
        _PersistSwitch(p, true);
        d->publishChange();
    } else if (d->clearPendingVerifying(ref) || p.verifying()) {
        p.setVerifying(false);
        d->publish();
    }
    emit pluginEnabled(p, path);
}

void Manager::enablePlugin(Plugin& plugin, const Path& path, bool deep_check_shell_plugins)
{
    Plugin copy = plugin;
    if (d->postWork([this, copy, path, deep_check_shell_plugins]() mutable {
            enablePlugin(copy, path, deep_check_shell_plugins);
        }))
        return;
    Plugin& p = d->livePlugin(path, plugin);
    const QString ref = p.pluginRef();

    if (!p.exists() || !QFile::exists(p.filename())) {
        d->clearPendingVerifying(ref);
        p.setVerifying(false);
        p.setMissing(true);
        d->publish();
        emit pluginFailed(p, path);
        return;
    }
    if (!Data::NeedsCheck(p, deep_check_shell_plugins)) {
        enableKnownPlugin(p, path);
        return;
    }

    QVlor::Tracer(QStringLiteral("QVlorVst::Manager:")) << "-- => will check plugin " << "\"" << p.filename() << "\"...";
    p.setVerifying(true);
    d->show();
    emit progressPlugin(p.name().isEmpty() ? QFileInfo(p.filename()).fileName() : p.name());

    const QByteArray file = p.filename().toUtf8();
    // A plugin new to the catalog is enabled as its settings say: switched
    // off there, it was the user's choice before the catalog was lost.
    const bool wasNew = p.isNew();
    if (!d->takeCheckAhead(p)) {
        // Dropped by a cancel before its child began: as it was.
        d->clearPendingVerifying(ref);
        p.setVerifying(false);
        d->show();
        return;
    }
    _VSTEFFECT* h = AUDIOVST_FindPluginEx(file.constData(), p.pluginId(), true);
    d->clearPendingVerifying(ref);
    p.setVerifying(false);
    if (!h && qstrcmp(AUDIOVST_GetLastFailure(), "cancelled") == 0) {
        // Cut short by the quit: the plugin is as it was before the check.
        d->show();
        return;
    }
    if (!d->takeCheck(p, h)) {
        d->publishChange();
        emit pluginFailed(p, path);
        return;
    }
    if (p.isShell()) {
        d->publish();
        for (const Plugin& child : p.plugins())
            if (child.isEnabled())
                emit pluginEnabled(child, path);
    }
    if (wasNew && !p.isShell() && !AUDIOVST_IsEnabled(h)) {
        p.setFailed(false);
        p.setEnabled(false);
        d->publishChange();
        emit pluginDisabled(p, path);
        return;
    }
    p.setFailed(false);
    p.setEnabled(true);
    _PersistSwitch(p, true);
    d->publishChange();
    emit pluginEnabled(p, path);
}

void Manager::disablePlugin(Plugin& plugin, const Path& path)
{
    Plugin copy = plugin;
    if (d->post([this, copy, path]() mutable { disablePlugin(copy, path); }))
        return;
    Plugin& p = d->livePlugin(path, plugin);
    if (!p.isValid()) {
        emit pluginFailed(p, path);
        return;
    }
    if (p.isDisabled()) {
        emit pluginDisabled(p, path);
        return;
    }
    p.setEnabled(false);
    _PersistSwitch(p, false);
    if (p.isShell())
        for (const Plugin& child : p.plugins())
            emit pluginDisabled(child, path);
    d->publishChange();
    emit pluginDisabled(p, path);
}

void Manager::resetPlugin(Plugin& plugin, const Path& path)
{
    Plugin copy = plugin;
    if (d->post([this, copy, path]() mutable { resetPlugin(copy, path); }))
        return;
    Plugin& p = d->livePlugin(path, plugin);
    if (!p.isValid()) {
        if (d->clearPendingVerifying(p.pluginRef()) || p.verifying()) {
            p.setVerifying(false);
            d->show();
        }
        return;
    }
    const QList<Plugin> children = p.isShell() ? p.plugins() : QList<Plugin>();
    d->clearPendingVerifying(p.pluginRef());
    for (const Plugin& child : children)
        d->clearPendingVerifying(child.pluginRef());

    if (p.isShell()) {
        for (const Plugin& child : children)
            AUDIOVST_ResetPluginFile(child.filename().toUtf8().constData(), child.pluginId());
        AUDIOVST_ResetPluginFile(p.filename().toUtf8().constData(), p.pluginId());
        p.clearPlugins();
        p.setKind(EffectPlugin);
        p.setArch(Arch64Bits);
        p.setName(QString());
        p.setVendor(QString());
    } else {
        _VSTEFFECT* h = AUDIOVST_FindPluginByHash(PluginSettingsHash(p.filename(), p.uniqueId()).toUtf8().constData());
        if (!h)
            h = AUDIOVST_FindPluginEx(p.filename().toUtf8().constData(), p.pluginId(), false);
        if (h)
            AUDIOVST_ResetPlugin(h);
    }
    // setNew last: the first two clear it.
    p.setUniqueId(0);
    p.setFailed(false);
    p.setEnabled(false);
    p.setNeedRecheck(false);
    p.setVerifying(false);
    p.setNew(true);
    d->publishChange();
    for (const Plugin& child : children)
        emit pluginDisabled(child, path);
    emit pluginDisabled(p, path);
}

void Manager::enablePlugins(const QStringList& plugins)
{
    if (d->postWork([this, plugins] { enablePlugins(plugins); }))
        return;
    d->cancelled.storeRelease(0);
    emit beginScan();
    const QSet<QString> wanted(plugins.begin(), plugins.end());
    // The checks this loop will need run ahead, up to the limit at a time, in
    // its order; each resolution below takes its own in its turn.
    d->ahead.setParallel(ParallelChecks());
    Data::ApplyCheckTimeout();
    for (const Path& path : std::as_const(d->paths)) {
        if (!path.isEnabled())
            continue;
        for (const Plugin& plugin : path.plugins()) {
            if (!plugin.isShell()) {
                if (wanted.contains(plugin.pluginRef()) && Data::NeedsCheck(plugin, false))
                    d->checkAhead(plugin);
                continue;
            }
            for (const Plugin& child : plugin.plugins())
                if (wanted.contains(child.pluginRef()) && Data::NeedsCheck(child, false))
                    d->checkAhead(child);
        }
    }
    int total = 0, n = 0;
    for (const Path& path : d->paths)
        if (path.isEnabled())
            total += int(path.plugins().size());
    bool stop = false;
    for (int pi = 0; pi < d->paths.size() && !stop; ++pi) {
        Path& path = d->paths[pi];
        if (!path.isEnabled())
            continue;
        const QHash<QString, int> counts = _BuildVendorCount(path);
        for (int k = 0; k < path.plugins().size() && !stop; ++k) {
            Plugin& plugin = path.plugins()[k];
            if (!plugin.isShell()) {
                if (wanted.contains(plugin.pluginRef()))
                    enablePlugin(plugin, path);
                else if (plugin.isEnabled() && plugin.exists() && !_VendorBlocksPlugin(plugin, path, counts))
                    emit pluginEnabled(plugin, path);
            } else {
                total += int(plugin.plugins().size());
                for (Plugin& child : plugin.plugins()) {
                    if (wanted.contains(child.pluginRef()))
                        enablePlugin(child, path);
                    else if (child.isEnabled() && child.exists())
                        emit pluginEnabled(child, path);
                    emit progressScan(++n, total);
                    if (d->cancelled.loadAcquire())
                        break;
                }
            }
            emit progressScan(++n, total);
            stop = d->cancelled.loadAcquire() != 0;
        }
    }
    d->ahead.forgetUntaken();
    AUDIOVST_DropChecksAhead();
    emit endScan(hasNewPlugins());
}

void Manager::enableNewPlugins()
{
    if (d->postWork([this] { enableNewPlugins(); }))
        return;
    QStringList refs;
    for (const Path& path : d->paths)
        for (const Plugin& p : path.plugins()) {
            if (p.isNew())
                refs.append(p.pluginRef());
            if (p.isShell())
                for (const Plugin& child : p.plugins())
                    if (child.isNew())
                        refs.append(child.pluginRef());
        }
    enablePlugins(refs);
}

void Manager::markPluginCrashed(qint64 uniqueId)
{
    if (d->post([this, uniqueId] { markPluginCrashed(uniqueId); }))
        return;
    for (Path& path : d->paths) {
        for (Plugin& p : path.plugins()) {
            Plugin* hit = p.uniqueId() == uniqueId ? &p : nullptr;
            for (int c = 0; !hit && p.isShell() && c < p.plugins().size(); ++c)
                if (p.plugins()[c].uniqueId() == uniqueId)
                    hit = &p.plugins()[c];
            if (!hit)
                continue;
            hit->setFailed(true);
            hit->setEnabled(false);
            d->publishChange();
            emit pluginFailed(*hit, path);
            emit catalogChanged();
            return;
        }
    }
}

void Manager::addPath(const QString& path)
{
    if (d->post([this, path] { addPath(path); }))
        return;
    if (!QDir(path).exists())
        return;
    const QString absolute = QDir(path).absolutePath();
    if (Path* known = d->findPath(absolute)) {
        if (known->isSearched())
            return;
        // A folder deleted while it still had plugins comes back with them.
        known->setSearched(true);
        d->publishChange();
        emit pathAdded(absolute);
        return;
    }
    d->paths.append(Path(path, UserPath));
    d->publishChange();
    emit pathAdded(path);
}

void Manager::deletePath(const QString& path)
{
    if (d->post([this, path] { deletePath(path); }))
        return;
    for (int i = 0; i < d->paths.size(); ++i) {
        Path& p = d->paths[i];
        if (p.absolutePath() != path)
            continue;
        if (p.kind() == SystemPath)
            return;
        d->markChanged();
        p.dropUnprobedPlugins();
        const QString absolute = p.absolutePath();
        // Probed plugins keep their state: the path stays, out of every scan.
        if (p.plugins().isEmpty())
            d->paths.removeAt(i);
        else
            p.setSearched(false);
        d->publish();
        emit pathDeleted(absolute);
        return;
    }
}

void Manager::enablePath(const QString& path)
{
    if (d->post([this, path] { enablePath(path); }))
        return;
    if (Path* p = d->findPath(path)) {
        p->setEnabled(true);
        d->publishChange();
        emit pathEnabled(p->absolutePath());
    }
}

void Manager::disablePath(const QString& path)
{
    if (d->post([this, path] { disablePath(path); }))
        return;
    if (Path* p = d->findPath(path)) {
        p->setEnabled(false);
        d->publishChange();
        emit pathDisabled(p->absolutePath());
    }
}

void Manager::setVendorEnabled(const QString& path, const QString& vendorKey, bool enabled)
{
    if (d->post([this, path, vendorKey, enabled] { setVendorEnabled(path, vendorKey, enabled); }))
        return;
    Path* p = d->findPath(path);
    if (!p)
        return;
    const QString vendor = vendorKey.toLower();
    p->setVendorEnabled(vendor, enabled);
    d->publishChange();
    // The plugins' own flags stay: the vendor switch acts on top of them.
    for (const Plugin& plugin : p->plugins()) {
        if (plugin.isShell() || plugin.vendor().toLower() != vendor || !plugin.isEnabled() || !plugin.exists())
            continue;
        if (enabled)
            emit pluginEnabled(plugin, *p);
        else
            emit pluginDisabled(plugin, *p);
    }
    emit vendorEnabledChanged(p->absolutePath());
}

} // namespace QVlorVst
