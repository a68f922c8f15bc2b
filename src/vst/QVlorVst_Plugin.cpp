#include "QVlorVst_Plugin.h"


#include "audiovst.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace {

const char* const K_VST_FILENAME = "filename";
const char* const K_VST_PLUGIN_ID = "plugin_id";
const char* const K_VST_HASH = "hash";
const char* const K_VST_ARCH = "arch";
const char* const K_VST_ARCH_64_BITS = "arch64bits";
const char* const K_VST_ARCH_32_BITS = "arch32bits";
const char* const K_VST_ARCH_UNDEFINED = "undefined";
const char* const K_VST_KIND = "kind";
const char* const K_VST_SHELL_PLUGIN = "shell";
// Kept beside the others for readers of the files; nothing writes or compares them.
[[maybe_unused]] const char* const K_VST_INVALID_PLUGIN = "invalid";
[[maybe_unused]] const char* const K_VST_EFFECT_PLUGIN = "effect";
const char* const K_VST_IS_NEW = "is_new";
const char* const K_VST_UNIQUE_ID = "unique_id";
const char* const K_VST_NAME = "name";
const char* const K_VST_VENDOR = "vendor";
const char* const K_VST_PLUG_CATEGORY = "plugCategory";
const char* const K_VST_EXPANDED = "expanded";
const char* const K_VST_PLUGINS = "plugins";
const char* const K_VST_ENABLED = "enabled";
const char* const K_VST_FAILED = "failed";
const char* const K_VST_FAIL_REASON = "fail_reason";
const char* const K_VST_NEED_RECHECK = "need_recheck";

QString key(const char* k) { return QString::fromLatin1(k); }

} // namespace

namespace QVlorVst {

class Plugin::Data : public QSharedData {
public:
    PluginKind kind = InvalidPlugin;
    PluginArch arch = Arch64Bits;
    QString filename;
    int pluginId = 0;
    QString hash;
    bool exists = false;
    bool missing = false;
    bool verifying = false;
    bool isNew = false;
    bool enabled = false;
    bool failed = false;
    QString failReason;
    bool needRecheck = false;
    bool expanded = false;
    QString vendor;
    int plugCategory = 0;
    QString name;
    qint64 uniqueId = 0;
    QList<Plugin> plugins;
};

QString PluginSettingsHash(const QString& filename, qint64 uniqueId)
{
    if (filename.isEmpty())
        return QString();
    char buf[44];
    if (AUDIOVST_ComputePluginHash(filename.toUtf8().constData(), int(int32_t(uniqueId)), buf, sizeof(buf)) != 1)
        return QString();
    return QString::fromLatin1(buf, int(qstrnlen(buf, sizeof(buf))));
}

// The hash of a file without an id is the engine's too.
QString Hash(const QString& filename) { return PluginSettingsHash(filename, 0); }

Plugin::Plugin() : d(new Data) {}

Plugin::Plugin(const QString& filename) : Plugin(filename, 0) {}

Plugin::Plugin(const QString& filename, int pluginId) : d(new Data)
{
    d->kind = EffectPlugin;
    d->filename = QFileInfo(filename).absoluteFilePath();
    d->pluginId = pluginId;
    d->hash = Hash(d->filename);
    d->exists = QFile::exists(d->filename);
    d->isNew = true;
    d->expanded = true;
}

Plugin::Plugin(const QJsonObject& o) : d(new Data)
{
    d->kind = o.value(key(K_VST_KIND)).toString() == key(K_VST_SHELL_PLUGIN) ? ShellPlugin : EffectPlugin;
    d->arch = o.value(key(K_VST_ARCH)).toString() == key(K_VST_ARCH_32_BITS) ? Arch32Bits : Arch64Bits;
    d->filename = o.value(key(K_VST_FILENAME)).toString();
    d->pluginId = o.value(key(K_VST_PLUGIN_ID)).toInt(0);
    d->hash = Hash(d->filename);
    d->exists = !d->filename.isEmpty() && QFile::exists(d->filename);
    d->missing = false;
    d->verifying = false;
    d->isNew = o.value(key(K_VST_IS_NEW)).toBool(false);
    d->enabled = o.value(key(K_VST_ENABLED)).toBool(false);
    d->failed = o.value(key(K_VST_FAILED)).toBool(false);
    d->failReason = d->failed ? o.value(key(K_VST_FAIL_REASON)).toString() : QString();
    d->needRecheck = o.value(key(K_VST_NEED_RECHECK)).toBool(false);
    d->expanded = o.value(key(K_VST_EXPANDED)).toBool(true);
    d->vendor = o.value(key(K_VST_VENDOR)).toString();
    d->plugCategory = o.value(key(K_VST_PLUG_CATEGORY)).toInt(0);
    d->name = o.value(key(K_VST_NAME)).toString();
    d->uniqueId = qint64(int32_t(o.value(key(K_VST_UNIQUE_ID)).toInt(0)));
    if (d->uniqueId == 0 && d->pluginId != 0)
        d->uniqueId = d->pluginId;
    if (d->kind == ShellPlugin)
        for (const QJsonValue& v : o.value(key(K_VST_PLUGINS)).toArray())
            d->plugins.append(Plugin(v.toObject()));
}

Plugin::Plugin(const Plugin& other) = default;
Plugin& Plugin::operator=(const Plugin& other) = default;
Plugin::~Plugin() = default;

PluginKind Plugin::kind() const { return d->kind; }
PluginArch Plugin::arch() const { return d->arch; }
int Plugin::pluginId() const { return d->pluginId; }
bool Plugin::isNew() const { return d->isNew; }
bool Plugin::isFailed() const { return d->failed; }
QString Plugin::failReason() const { return d->failReason; }
bool Plugin::needRecheck() const { return d->needRecheck; }
bool Plugin::isExpanded() const { return d->expanded; }
bool Plugin::exists() const { return d->exists; }
bool Plugin::missing() const { return d->missing; }
bool Plugin::verifying() const { return d->verifying; }
QString Plugin::hash() const { return d->hash; }
QString Plugin::filename() const { return d->filename; }
QString Plugin::vendor() const { return d->vendor; }
QString Plugin::name() const { return d->name; }
qint64 Plugin::uniqueId() const { return d->uniqueId; }
const QList<Plugin>& Plugin::plugins() const { return d->plugins; }
QList<Plugin>& Plugin::plugins() { return d->plugins; }

void Plugin::setKind(PluginKind kind) { d->kind = kind; }
void Plugin::setArch(PluginArch arch) { d->arch = arch; }
void Plugin::setNew(bool isNew) { d->isNew = isNew; }
void Plugin::setNeedRecheck(bool needRecheck) { d->needRecheck = needRecheck; }
void Plugin::setEnabled(bool enabled) { d->enabled = enabled; }
void Plugin::setExpanded(bool expanded) { d->expanded = expanded; }
void Plugin::setMissing(bool missing) { d->missing = missing; }
void Plugin::setVerifying(bool verifying) { d->verifying = verifying; }
void Plugin::setVendor(const QString& vendor) { d->vendor = vendor; }
int Plugin::plugCategory() const { return d->plugCategory; }
void Plugin::setPlugCategory(int category) { d->plugCategory = category; }
void Plugin::setName(const QString& name) { d->name = name; }

void Plugin::setFailed(bool failed)
{
    d->failed = failed;
    if (!failed)
        d->failReason.clear();
    d->isNew = false;
}

void Plugin::setFailReason(const QString& reason) { d->failReason = reason; }

void Plugin::setUniqueId(qint64 uniqueId)
{
    d->uniqueId = uniqueId;
    d->isNew = false;
}

void Plugin::setExists(bool exists)
{
    d->exists = exists;
    if (isShell())
        for (Plugin& child : d->plugins)
            child.setExists(exists);
}

bool Plugin::isValid() const { return d->kind != InvalidPlugin; }
bool Plugin::isShell() const { return d->kind == ShellPlugin; }
bool Plugin::isDisabled() const { return !d->enabled || d->failed; }
bool Plugin::isEnabled() const { return isValid() && !isDisabled(); }
bool Plugin::isLoaded() const { return isValid() && isEnabled() && (d->uniqueId != 0 || isShell()); }

bool Plugin::operator==(const Plugin& other) const
{
    if (d == other.d)
        return true;
    return d && other.d && d->filename == other.d->filename && d->pluginId == other.d->pluginId;
}

QString Plugin::pluginRef() const { return d->filename + QLatin1Char(':') + QString::number(d->pluginId); }


QString Plugin::state() const
{
    if (d->failed)
        return QObject::tr("Failed");
    if (isShell())
        return QString();
    if (d->isNew)
        return QObject::tr("New");
    if (d->enabled)
        return QObject::tr("Loaded");
    return QObject::tr("Disabled");
}

QJsonObject Plugin::toJsonObject() const
{
    QJsonObject o;
    if (!isValid())
        return o;
    o.insert(key(K_VST_FILENAME), d->filename);
    if (d->pluginId != 0)
        o.insert(key(K_VST_PLUGIN_ID), d->pluginId);
    o.insert(key(K_VST_HASH), d->hash);
    o.insert(key(K_VST_ARCH), key(d->arch == Arch32Bits   ? K_VST_ARCH_32_BITS
                                  : d->arch == Arch64Bits ? K_VST_ARCH_64_BITS
                                                          : K_VST_ARCH_UNDEFINED));
    if (isShell())
        o.insert(key(K_VST_KIND), key(K_VST_SHELL_PLUGIN));
    if (d->isNew)
        o.insert(key(K_VST_IS_NEW), true);
    if (d->uniqueId != 0)
        o.insert(key(K_VST_UNIQUE_ID), d->uniqueId);
    if (d->kind == EffectPlugin && !d->name.isEmpty())
        o.insert(key(K_VST_NAME), d->name);
    if (d->kind == EffectPlugin && !d->vendor.isEmpty())
        o.insert(key(K_VST_VENDOR), d->vendor);
    if (d->kind == EffectPlugin && d->plugCategory != 0)
        o.insert(key(K_VST_PLUG_CATEGORY), d->plugCategory);
    if (isShell()) {
        o.insert(key(K_VST_EXPANDED), d->expanded);
        if (!d->plugins.isEmpty()) {
            QJsonArray children;
            for (const Plugin& child : d->plugins)
                children.append(child.toJsonObject());
            o.insert(key(K_VST_PLUGINS), children);
        }
    }
    if (d->enabled)
        o.insert(key(K_VST_ENABLED), true);
    if (d->failed)
        o.insert(key(K_VST_FAILED), true);
    if (d->failed && !d->failReason.isEmpty())
        o.insert(key(K_VST_FAIL_REASON), d->failReason);
    if (d->needRecheck)
        o.insert(key(K_VST_NEED_RECHECK), true);
    return o;
}

void Plugin::addPlugin(const QString& name, int pluginId, QList<Plugin>* previous)
{
    if (!isShell())
        return;
    for (const Plugin& child : d->plugins) {
        if (child.pluginId() == pluginId) {
            if (previous)
                previous->removeAll(child);
            return;
        }
    }
    Plugin child(filename(), pluginId);
    child.setName(name);
    // A shell's children are never new: each is enabled by the user.
    child.setUniqueId(pluginId);
    d->plugins.append(child);
}

void Plugin::removePlugin(const Plugin& child)
{
    if (isShell())
        d->plugins.removeAll(child);
}

void Plugin::clearPlugins()
{
    if (isShell() && !d->plugins.isEmpty())
        d->plugins.clear();
}

Plugin Plugin::detachedCopy() const
{
    Plugin copy(*this);
    copy.d.detach();
    for (Plugin& child : copy.d->plugins)
        child = child.detachedCopy();
    return copy;
}

} // namespace QVlorVst
