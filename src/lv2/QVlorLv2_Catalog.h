#ifndef QVLORLV2_CATALOG_H
#define QVLORLV2_CATALOG_H
// The LV2 catalog: per bundle folder the stamp that lets a rescan pass it by,
// per plugin what its check found; and the plugins the user switched off,
// kept by URI apart from the bundles so that the choice outlives them.

#include "QVlorAudioPluginsExport.h"
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>

namespace QVlorLv2 {

struct QVLOR_PLUGINS_EXPORT CatalogPlugin {
    enum State { Usable = 0, Failed = 1, NotAnEffect = 2, Crashed = 3 };
    static QString StateToString(State state);
    static State StateFromString(const QString& text);

    QString uri;
    QString name;
    QString maker;
    QString className; // "Compressor", "Reverb"
    QString binary;    // its code's library
    int audioInputs = 0;
    int audioOutputs = 0;
    int sideChainInputs = 0;
    int parameters = 0;
    int latency = 0;
    bool hasX11Ui = false;
    State state = Usable;
    QString reason; // why it failed, or is no effect
    // Whether the menu offers it: usable, and not switched off (see Catalog).
    QJsonObject toJsonObject() const;
    static CatalogPlugin fromJsonObject(const QJsonObject& object);
    // A check's report (see CheckPlugin).
    static CatalogPlugin fromCheck(const QJsonObject& report);
};

struct QVLOR_PLUGINS_EXPORT CatalogBundle {
    QString path;
    QString stamp; // the names, sizes and times of its files, hashed; see BundleStamp
    QList<CatalogPlugin> plugins;
    QJsonObject toJsonObject() const;
    static CatalogBundle fromJsonObject(const QJsonObject& object);
};

class QVLOR_PLUGINS_EXPORT Catalog {
public:
    QList<CatalogBundle> bundles;
    QStringList disabledUris; // switched off by the user, in the order they were
    QStringList disabledVendors; // makers switched off whole, in lower case

    const CatalogPlugin* findPlugin(const QString& uri) const;
    CatalogPlugin* findPlugin(const QString& uri);
    const CatalogBundle* findBundle(const QString& path) const;
    CatalogBundle* findBundle(const QString& path);
    const CatalogBundle* bundleOf(const QString& uri) const;
    bool isEnabled(const QString& uri) const;
    bool isVendorEnabled(const QString& maker) const;
    // Usable and switched on, itself and its maker: what the menu offers.
    bool isOffered(const QString& uri) const;
    int pluginCount() const;

    // A missing file is a first start: the catalog empties and the answer is true.
    bool load(const QString& fileName);
    // Replaced whole or not at all; false, with the file and why in *error, when nothing was kept.
    bool save(const QString& fileName, QString* error = nullptr) const;
    QJsonObject toJson() const;
    void fromJson(const QJsonObject& root);
};

// What a rescan compares to pass a bundle by: the names, sizes and times of
// the files at its top (its Turtle files and its binaries live there).
QVLOR_PLUGINS_EXPORT QString BundleStamp(const QString& path);

} // namespace QVlorLv2

Q_DECLARE_METATYPE(QVlorLv2::Catalog)

#endif
