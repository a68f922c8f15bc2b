#ifndef QVLORVST3_CATALOG_H
#define QVLORVST3_CATALOG_H

#include "QVlorAudioPluginsExport.h"
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>
#include <QStringList>

namespace QVlorVst3 {

// The usable face of one effect class, as front ends see it.
class QVLOR_PLUGINS_EXPORT Plugin {
public:
    Plugin();
    Plugin(const QString& path, const QString& uid, const QString& name, const QString& vendor,
           const QString& subCategories, const QString& version);
    Plugin(const Plugin&);
    Plugin& operator=(const Plugin&);
    ~Plugin();

    QString path() const;
    QString uid() const;
    QString name() const;
    QString vendor() const;
    QString subCategories() const;
    QString version() const;
    bool isValid() const;
    // Path and uid alone make the identity.
    bool operator==(const Plugin& other) const;

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    QSharedDataPointer<Data> d;
};

class QVLOR_PLUGINS_EXPORT CatalogClass {
public:
    enum State { New = 0, Verifying = 1, Enabled = 2, Failed = 3, Disabled = 4, Crashed = 5, Missing = 6 };
    static QString StateToString(State state);
    static State StateFromString(const QString& text);

    CatalogClass();
    CatalogClass(const QString& cid, const QString& name, const QString& vendor, const QString& subCategories,
                 const QString& version);
    CatalogClass(const CatalogClass&);
    CatalogClass& operator=(const CatalogClass&);
    ~CatalogClass();

    QString cid() const;
    QString name() const;
    QString vendor() const;
    QString subCategories() const;
    QString version() const;
    bool isEnabled() const;
    State state() const;
    QString lastError() const;
    qint64 verifiedAt() const;
    qint32 verifierBuild() const;
    void setEnabled(bool enabled);
    void setState(State state);
    void setLastError(const QString& text);
    void setVerifiedAt(qint64 seconds);
    void setVerifierBuild(qint32 build);

    QJsonObject toJsonObject() const;
    static CatalogClass fromJsonObject(const QJsonObject& object);

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    QSharedDataPointer<Data> d;
};

class QVLOR_PLUGINS_EXPORT CatalogBundle {
public:
    struct CompatEntry {
        QString newCid;
        QStringList oldCids;
    };

    CatalogBundle();
    CatalogBundle(const CatalogBundle&);
    CatalogBundle& operator=(const CatalogBundle&);
    ~CatalogBundle();

    QString path() const;
    qint64 mtimeSecs() const;
    qint64 sizeBytes() const;
    bool moduleinfoFound() const;
    bool failed() const;
    bool enabled() const;
    bool probed() const;
    bool verifying() const;
    bool missing() const;
    QString lastError() const;
    const QList<CatalogClass>& classes() const;
    QList<CatalogClass>& classes();
    const QList<CompatEntry>& compat() const;
    QList<CompatEntry>& compat();
    void setPath(const QString& path);
    void setMtimeSecs(qint64 seconds);
    void setSizeBytes(qint64 bytes);
    void setModuleinfoFound(bool found);
    void setFailed(bool failed);
    void setEnabled(bool enabled);
    void setProbed(bool probed);
    void setVerifying(bool verifying);
    void setMissing(bool missing);
    void setLastError(const QString& text);

    // The bundle changed on disk since it was probed (its own entry's time or size).
    bool isOutdated() const;
    QJsonObject toJsonObject() const;
    static CatalogBundle fromJsonObject(const QJsonObject& object);

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    QSharedDataPointer<Data> d;
};

class QVLOR_PLUGINS_EXPORT Catalog {
public:
    Catalog();
    Catalog(const Catalog&);
    Catalog& operator=(const Catalog&);
    ~Catalog();

    const QList<CatalogBundle>& bundles() const;
    QList<CatalogBundle>& bundles();
    const QStringList& disabledVendors() const;
    QStringList& disabledVendors();

    const CatalogClass* findClass(const QString& cid) const;
    CatalogClass* findClass(const QString& cid);
    CatalogBundle* findBundle(const QString& path);
    void removeBundle(const QString& path);
    // A missing file is a first start: the catalog empties and the answer is true.
    bool load(const QString& fileName);
    // Replaced whole or not at all.
    // False, with the file and the reason in *error, when nothing was kept.
    bool save(const QString& fileName, QString* error = nullptr) const;
    // The catalog as its file holds it, and from such a document.
    QJsonObject toJson() const;
    void fromJson(const QJsonObject& root);

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    QSharedDataPointer<Data> d;
};

} // namespace QVlorVst3

Q_DECLARE_METATYPE(QVlorVst3::Plugin)
Q_DECLARE_METATYPE(QVlorVst3::Catalog)

#endif
