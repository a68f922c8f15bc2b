#ifndef QVLORVST_PATH_H
#define QVLORVST_PATH_H

#include "QVlorAudioPluginsExport.h"
#include "QVlorVst_Plugin.h"

#include <QExplicitlySharedDataPointer>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QSet>
#include <QString>

namespace QVlorVst {

enum PathKind { SystemPath = 0, UserPath = 1 };

// One folder the scanner searches, with the plugins found under it and the
// user's choices for it. Shared like Plugin: copies alias, detachedCopy isolates.
class QVLOR_PLUGINS_EXPORT Path {
public:
    class QVLOR_PLUGINS_HIDDEN Data;

    Path();
    Path(const QString& path, PathKind kind);
    explicit Path(const QJsonObject& object);
    Path(const Path& other);
    Path& operator=(const Path& other);
    ~Path();

    bool isValid() const;
    PathKind kind() const;
    bool isSearched() const;
    void setSearched(bool searched);
    bool isExpanded() const;
    void setExpanded(bool expanded);
    const QList<Plugin>& plugins() const;
    QList<Plugin>& plugins();

    QString absolutePath() const;
    operator QString() const { return absolutePath(); }
    bool operator==(const Path& other) const;
    bool isEnabled() const;
    void setEnabled(bool enabled);
    bool isVendorEnabled(const QString& vendor) const;
    void setVendorEnabled(const QString& vendor, bool enabled);
    bool isVendorExpanded(const QString& vendor) const;
    void setVendorExpanded(const QString& vendor, bool expanded);
    bool containsPlugin(const QString& filename) const;
    // A new record for a file not yet known; an invalid one for a known file.
    Plugin addPlugin(const QString& filename);
    void appendPlugin(const Plugin& plugin);
    int dropUnprobedPlugins();
    Path detachedCopy() const;
    QJsonObject toJsonObject() const;

private:
    QExplicitlySharedDataPointer<Data> d;
};

} // namespace QVlorVst

Q_DECLARE_METATYPE(QVlorVst::Path)

#endif
