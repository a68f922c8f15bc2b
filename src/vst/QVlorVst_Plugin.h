#ifndef QVLORVST_PLUGIN_H
#define QVLORVST_PLUGIN_H

#include "QVlorAudioPluginsExport.h"
#include <QExplicitlySharedDataPointer>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>

namespace QVlorVst {

class Path;

enum PluginKind { InvalidPlugin = -1, EffectPlugin = 0, ShellPlugin = 1 };
enum PluginArch { ArchUndefined = -1, Arch64Bits = 0, Arch32Bits = 1 };

// The catalog's record of one VST2 plugin file, or of one plugin inside a
// shell file. Copies share the data and setters write through to every copy:
// only detachedCopy() isolates a record.
class QVLOR_PLUGINS_EXPORT Plugin {
public:
    class QVLOR_PLUGINS_HIDDEN Data;

    Plugin();
    explicit Plugin(const QString& filename);
    Plugin(const QString& filename, int pluginId);
    explicit Plugin(const QJsonObject& object);
    Plugin(const Plugin& other);
    Plugin& operator=(const Plugin& other);
    virtual ~Plugin();

    PluginKind kind() const;
    PluginArch arch() const;
    int pluginId() const;
    bool isNew() const;
    bool isFailed() const;
    // Why the last check failed, for the user: "did not answer within 120 s".
    QString failReason() const;
    bool needRecheck() const;
    bool isExpanded() const;
    bool exists() const;
    bool missing() const;
    bool verifying() const;
    QString hash() const;
    QString filename() const;
    QString vendor() const;
    QString name() const;
    qint64 uniqueId() const;
    const QList<Plugin>& plugins() const;
    QList<Plugin>& plugins();

    void setKind(PluginKind kind);
    void setArch(PluginArch arch);
    void setNew(bool isNew);
    void setNeedRecheck(bool needRecheck);
    void setEnabled(bool enabled);
    void setExpanded(bool expanded);
    void setMissing(bool missing);
    void setVerifying(bool verifying);
    void setVendor(const QString& vendor);
    // What the plugin says it is: the VST2 plugin category, 0 when unknown.
    int plugCategory() const;
    void setPlugCategory(int category);
    void setName(const QString& name);
    // Also clears isNew: a record stops being new once it has been probed.
    void setFailed(bool failed);
    void setFailReason(const QString& reason);
    void setUniqueId(qint64 uniqueId);
    // On a shell, also on every child.
    void setExists(bool exists);

    bool isValid() const;
    bool isShell() const;
    bool isDisabled() const;
    bool isEnabled() const;
    bool isLoaded() const;
    bool operator==(const Plugin& other) const;
    bool operator!=(const Plugin& other) const { return !(*this == other); }
    QString pluginRef() const;
    QString relativeFilename(const Path& path) const;
    QString state() const;
    QJsonObject toJsonObject() const;

    void addPlugin(const QString& name, int pluginId, QList<Plugin>* previous);
    void removePlugin(const Plugin& child);
    void clearPlugins();
    Plugin detachedCopy() const;

private:
    QExplicitlySharedDataPointer<Data> d;
};

// Identity of a file: SHA-1 of its UTF-8 name as text, lead dropped.
QVLOR_PLUGINS_EXPORT QString Hash(const QString& filename);
// The key of a plugin's settings group, from the engine.
QVLOR_PLUGINS_EXPORT QString PluginSettingsHash(const QString& filename, qint64 uniqueId);

} // namespace QVlorVst

Q_DECLARE_METATYPE(QVlorVst::Plugin)

#endif
