#include "QVlorVst_Path.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

namespace {
const char* const K_VST_PATH = "path";
const char* const K_VST_PATH_KIND = "kind";
const char* const K_VST_PATH_KIND_USER = "user";
const char* const K_VST_PATH_KIND_SYSTEM = "system";
const char* const K_VST_PATH_DISABLED = "disabled";
const char* const K_VST_PATH_EXPANDED = "expanded";
const char* const K_VST_PATH_SEARCHED = "searched";
const char* const K_VST_PATH_PLUGINS = "plugins";
const char* const K_VST_PATH_DISABLED_VENDORS = "disabledVendors";
const char* const K_VST_PATH_COLLAPSED_VENDORS = "collapsedVendors";

QString key(const char* k) { return QString::fromLatin1(k); }

QJsonArray toArray(const QSet<QString>& set)
{
    QJsonArray a;
    for (const QString& s : set)
        a.append(s);
    return a;
}

QSet<QString> toSet(const QJsonValue& v)
{
    QSet<QString> set;
    for (const QJsonValue& e : v.toArray())
        set.insert(e.toString());
    return set;
}
} // namespace

namespace QVlorVst {

// A plugin's part of this: only a path knows where it begins.
QString Plugin::relativeFilename(const Path& path) const { return filename().mid(path.absolutePath().size() + 1); }

class Path::Data : public QSharedData {
public:
    bool valid = false;
    QDir dir;
    PathKind kind = UserPath;
    bool disabled = false;
    bool expanded = false;
    bool searched = true;
    QList<Plugin> plugins;
    QSet<QString> disabledVendors;
    QSet<QString> collapsedVendors;
};

Path::Path() : d(new Data) {}

Path::Path(const QString& path, PathKind kind) : d(new Data)
{
    d->valid = true;
    d->dir = QDir(path);
    d->kind = kind;
    d->expanded = true;
}

Path::Path(const QJsonObject& o) : d(new Data)
{
    d->valid = o.contains(key(K_VST_PATH));
    d->dir = QDir(o.value(key(K_VST_PATH)).toString());
    d->kind = o.value(key(K_VST_PATH_KIND)).toString() == key(K_VST_PATH_KIND_SYSTEM) ? SystemPath : UserPath;
    d->disabled = o.value(key(K_VST_PATH_DISABLED)).toBool(false);
    d->expanded = o.value(key(K_VST_PATH_EXPANDED)).toBool(true);
    d->searched = o.value(key(K_VST_PATH_SEARCHED)).toBool(true);
    for (const QJsonValue& v : o.value(key(K_VST_PATH_PLUGINS)).toArray())
        d->plugins.append(Plugin(v.toObject()));
    d->disabledVendors = toSet(o.value(key(K_VST_PATH_DISABLED_VENDORS)));
    d->collapsedVendors = toSet(o.value(key(K_VST_PATH_COLLAPSED_VENDORS)));
}

Path::Path(const Path& other) = default;
Path& Path::operator=(const Path& other) = default;
Path::~Path() = default;

bool Path::isValid() const { return d->valid; }
PathKind Path::kind() const { return d->kind; }
bool Path::isSearched() const { return d->searched; }
void Path::setSearched(bool searched) { d->searched = searched; }
bool Path::isExpanded() const { return d->expanded; }
void Path::setExpanded(bool expanded) { d->expanded = expanded; }
const QList<Plugin>& Path::plugins() const { return d->plugins; }
QList<Plugin>& Path::plugins() { return d->plugins; }
QString Path::absolutePath() const { return d->dir.absolutePath(); }

bool Path::operator==(const Path& other) const
{
    if (d == other.d)
        return true;
    return d && other.d && d->dir == other.d->dir;
}

bool Path::isEnabled() const { return d->valid && !d->disabled; }
void Path::setEnabled(bool enabled) { d->disabled = !enabled; }
bool Path::isVendorEnabled(const QString& vendor) const { return !d->disabledVendors.contains(vendor); }

void Path::setVendorEnabled(const QString& vendor, bool enabled)
{
    if (enabled)
        d->disabledVendors.remove(vendor);
    else
        d->disabledVendors.insert(vendor);
}

bool Path::isVendorExpanded(const QString& vendor) const { return !d->collapsedVendors.contains(vendor); }

void Path::setVendorExpanded(const QString& vendor, bool expanded)
{
    if (expanded)
        d->collapsedVendors.remove(vendor);
    else
        d->collapsedVendors.insert(vendor);
}

bool Path::containsPlugin(const QString& filename) const
{
    const QString absolute = QFileInfo(filename).absoluteFilePath();
    for (const Plugin& p : d->plugins)
        if (p.filename() == absolute)
            return true;
    return false;
}

Plugin Path::addPlugin(const QString& filename)
{
    if (containsPlugin(filename))
        return Plugin();
    Plugin p(filename);
    d->plugins.append(p);
    return p;
}

void Path::appendPlugin(const Plugin& plugin)
{
    if (!containsPlugin(plugin.filename()))
        d->plugins.append(plugin);
}

int Path::dropUnprobedPlugins()
{
    int removed = 0;
    for (int i = int(d->plugins.size()) - 1; i >= 0; --i) {
        if (d->plugins[i].uniqueId() == 0) {
            d->plugins.removeAt(i);
            ++removed;
        }
    }
    return removed;
}

Path Path::detachedCopy() const
{
    Path copy(*this);
    copy.d.detach();
    for (Plugin& p : copy.d->plugins)
        p = p.detachedCopy();
    return copy;
}

QJsonObject Path::toJsonObject() const
{
    QJsonObject o;
    if (!d->valid)
        return o;
    o.insert(key(K_VST_PATH), absolutePath());
    o.insert(key(K_VST_PATH_KIND), key(d->kind == UserPath ? K_VST_PATH_KIND_USER : K_VST_PATH_KIND_SYSTEM));
    o.insert(key(K_VST_PATH_DISABLED), !isEnabled());
    o.insert(key(K_VST_PATH_EXPANDED), isExpanded());
    o.insert(key(K_VST_PATH_SEARCHED), isSearched());
    QJsonArray plugins;
    for (const Plugin& p : d->plugins)
        plugins.append(p.toJsonObject());
    o.insert(key(K_VST_PATH_PLUGINS), plugins);
    if (!d->disabledVendors.isEmpty())
        o.insert(key(K_VST_PATH_DISABLED_VENDORS), toArray(d->disabledVendors));
    if (!d->collapsedVendors.isEmpty())
        o.insert(key(K_VST_PATH_COLLAPSED_VENDORS), toArray(d->collapsedVendors));
    return o;
}

} // namespace QVlorVst
