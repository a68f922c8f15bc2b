#include "QVlorVst3_Catalog.h"

#include "QVlorDataFile_p.h"
#include "QVlorJsonReader_p.h"
#include "QVlorVst3_Catalog_p.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace QVlorVst3 {

/* ---- Plugin -------------------------------------------------------------- */

class Plugin::Data : public QSharedData {
public:
    QString path, uid, name, vendor, subCategories, version;
};

Plugin::Plugin() : d(new Data) {}
Plugin::Plugin(const QString& path, const QString& uid, const QString& name, const QString& vendor,
               const QString& subCategories, const QString& version)
    : d(new Data)
{
    d->path = path;
    d->uid = uid;
    d->name = name;
    d->vendor = vendor;
    d->subCategories = subCategories;
    d->version = version;
}
Plugin::Plugin(const Plugin&) = default;
Plugin& Plugin::operator=(const Plugin&) = default;
Plugin::~Plugin() = default;
QString Plugin::path() const { return d->path; }
QString Plugin::uid() const { return d->uid; }
QString Plugin::name() const { return d->name; }
QString Plugin::vendor() const { return d->vendor; }
QString Plugin::subCategories() const { return d->subCategories; }
QString Plugin::version() const { return d->version; }
bool Plugin::isValid() const { return !d->path.isEmpty() && d->uid.size() == 32; }
bool Plugin::operator==(const Plugin& o) const { return d == o.d || (d->path == o.d->path && d->uid == o.d->uid); }

/* ---- CatalogClass -------------------------------------------------------- */

namespace {
const char* const kStateTexts[] = {"new", "verifying", "enabled", "failed", "disabled", "crashed", "missing"};
}

QString CatalogClass::StateToString(State state)
{
    const int s = int(state);
    return QString::fromLatin1(kStateTexts[s >= 1 && s <= 6 ? s : 0]);
}

CatalogClass::State CatalogClass::StateFromString(const QString& text)
{
    for (int s = 0; s <= 6; ++s)
        if (text == QLatin1String(kStateTexts[s]))
            return State(s);
    return New;
}

class CatalogClass::Data : public QSharedData {
public:
    QString cid, name, vendor, subCategories, version;
    bool enabled = false;
    State state = New;
    QString lastError;
    qint64 verifiedAt = 0;
    qint32 verifierBuild = 0;
};

CatalogClass::CatalogClass() : d(new Data) {}
CatalogClass::CatalogClass(const QString& cid, const QString& name, const QString& vendor,
                           const QString& subCategories, const QString& version)
    : d(new Data)
{
    d->cid = cid;
    d->name = name;
    d->vendor = vendor;
    d->subCategories = subCategories;
    d->version = version;
}
CatalogClass::CatalogClass(const CatalogClass&) = default;
CatalogClass& CatalogClass::operator=(const CatalogClass&) = default;
CatalogClass::~CatalogClass() = default;
QString CatalogClass::cid() const { return d->cid; }
QString CatalogClass::name() const { return d->name; }
QString CatalogClass::vendor() const { return d->vendor; }
QString CatalogClass::subCategories() const { return d->subCategories; }
QString CatalogClass::version() const { return d->version; }
bool CatalogClass::isEnabled() const { return d->enabled; }
CatalogClass::State CatalogClass::state() const { return d->state; }
QString CatalogClass::lastError() const { return d->lastError; }
qint64 CatalogClass::verifiedAt() const { return d->verifiedAt; }
qint32 CatalogClass::verifierBuild() const { return d->verifierBuild; }
void CatalogClass::setEnabled(bool enabled) { d->enabled = enabled; }
void CatalogClass::setState(State state) { d->state = state; }
void CatalogClass::setLastError(const QString& text) { d->lastError = text; }
void CatalogClass::setVerifiedAt(qint64 seconds) { d->verifiedAt = seconds; }
void CatalogClass::setVerifierBuild(qint32 build) { d->verifierBuild = build; }

QJsonObject CatalogClass::toJsonObject() const
{
    return QJsonObject{{QStringLiteral("cid"), d->cid},
                       {QStringLiteral("name"), d->name},
                       {QStringLiteral("vendor"), d->vendor},
                       {QStringLiteral("subCategories"), d->subCategories},
                       {QStringLiteral("version"), d->version},
                       {QStringLiteral("enabled"), d->enabled},
                       {QStringLiteral("state"), StateToString(d->state)},
                       {QStringLiteral("lastError"), d->lastError},
                       {QStringLiteral("verifiedAt"), d->verifiedAt},
                       {QStringLiteral("verifierBuild"), d->verifierBuild}};
}

CatalogClass CatalogClass::fromJsonObject(const QJsonObject& o)
{
    CatalogClass c(o.value(QStringLiteral("cid")).toString(), o.value(QStringLiteral("name")).toString(),
                   o.value(QStringLiteral("vendor")).toString(), o.value(QStringLiteral("subCategories")).toString(),
                   o.value(QStringLiteral("version")).toString());
    c.d->enabled = o.value(QStringLiteral("enabled")).toBool(false);
    c.d->state = StateFromString(o.value(QStringLiteral("state")).toString());
    c.d->lastError = o.value(QStringLiteral("lastError")).toString();
    c.d->verifiedAt = o.value(QStringLiteral("verifiedAt")).toInteger(0);
    c.d->verifierBuild = qint32(o.value(QStringLiteral("verifierBuild")).toInt(0));
    return c;
}

/* ---- CatalogBundle ------------------------------------------------------- */

class CatalogBundle::Data : public QSharedData {
public:
    QString path;
    qint64 mtimeSecs = 0;
    qint64 sizeBytes = 0;
    bool moduleinfoFound = false;
    bool failed = false;
    bool enabled = true;
    bool probed = true;
    bool verifying = false;
    bool missing = false;
    QString lastError;
    QList<CatalogClass> classes;
    QList<CompatEntry> compat;
};

CatalogBundle::CatalogBundle() : d(new Data) {}
CatalogBundle::CatalogBundle(const CatalogBundle&) = default;
CatalogBundle& CatalogBundle::operator=(const CatalogBundle&) = default;
CatalogBundle::~CatalogBundle() = default;
QString CatalogBundle::path() const { return d->path; }
qint64 CatalogBundle::mtimeSecs() const { return d->mtimeSecs; }
qint64 CatalogBundle::sizeBytes() const { return d->sizeBytes; }
bool CatalogBundle::moduleinfoFound() const { return d->moduleinfoFound; }
bool CatalogBundle::failed() const { return d->failed; }
bool CatalogBundle::enabled() const { return d->enabled; }
bool CatalogBundle::probed() const { return d->probed; }
bool CatalogBundle::verifying() const { return d->verifying; }
bool CatalogBundle::missing() const { return d->missing; }
QString CatalogBundle::lastError() const { return d->lastError; }
const QList<CatalogClass>& CatalogBundle::classes() const { return d->classes; }
QList<CatalogClass>& CatalogBundle::classes() { return d->classes; }
const QList<CatalogBundle::CompatEntry>& CatalogBundle::compat() const { return d->compat; }
QList<CatalogBundle::CompatEntry>& CatalogBundle::compat() { return d->compat; }
void CatalogBundle::setPath(const QString& path) { d->path = path; }
void CatalogBundle::setMtimeSecs(qint64 seconds) { d->mtimeSecs = seconds; }
void CatalogBundle::setSizeBytes(qint64 bytes) { d->sizeBytes = bytes; }
void CatalogBundle::setModuleinfoFound(bool found) { d->moduleinfoFound = found; }
void CatalogBundle::setFailed(bool failed) { d->failed = failed; }
void CatalogBundle::setEnabled(bool enabled) { d->enabled = enabled; }
void CatalogBundle::setProbed(bool probed) { d->probed = probed; }
void CatalogBundle::setVerifying(bool verifying) { d->verifying = verifying; }
void CatalogBundle::setMissing(bool missing) { d->missing = missing; }
void CatalogBundle::setLastError(const QString& text) { d->lastError = text; }

bool CatalogBundle::isOutdated() const
{
    const QFileInfo info(d->path);
    if (!info.exists())
        return false; // a vanished bundle is missing, not outdated
    if (info.lastModified().toSecsSinceEpoch() != d->mtimeSecs)
        return true;
    return info.size() != d->sizeBytes;
}

QJsonObject CatalogBundle::toJsonObject() const
{
    QJsonArray classes;
    for (const CatalogClass& c : d->classes)
        classes.append(c.toJsonObject());
    QJsonArray compat;
    for (const CompatEntry& e : d->compat)
        compat.append(QJsonObject{{QStringLiteral("new"), e.newCid},
                                  {QStringLiteral("old"), QJsonArray::fromStringList(e.oldCids)}});
    return QJsonObject{{QStringLiteral("path"), d->path},
                       {QStringLiteral("mtime"), d->mtimeSecs},
                       {QStringLiteral("size"), d->sizeBytes},
                       {QStringLiteral("moduleinfoFound"), d->moduleinfoFound},
                       {QStringLiteral("failed"), d->failed},
                       {QStringLiteral("enabled"), d->enabled},
                       {QStringLiteral("probed"), d->probed},
                       {QStringLiteral("lastError"), d->lastError},
                       {QStringLiteral("classes"), classes},
                       {QStringLiteral("compat"), compat}};
}

CatalogBundle CatalogBundle::fromJsonObject(const QJsonObject& o)
{
    CatalogBundle b;
    b.d->path = o.value(QStringLiteral("path")).toString();
    b.d->mtimeSecs = o.value(QStringLiteral("mtime")).toInteger(0);
    b.d->sizeBytes = o.value(QStringLiteral("size")).toInteger(0);
    b.d->moduleinfoFound = o.value(QStringLiteral("moduleinfoFound")).toBool(false);
    b.d->failed = o.value(QStringLiteral("failed")).toBool(false);
    // Files from before these keys existed count as enabled and probed.
    b.d->enabled = o.value(QStringLiteral("enabled")).toBool(true);
    b.d->probed = o.value(QStringLiteral("probed")).toBool(true);
    b.d->lastError = o.value(QStringLiteral("lastError")).toString();
    for (const QJsonValue& v : o.value(QStringLiteral("classes")).toArray())
        b.d->classes.append(CatalogClass::fromJsonObject(v.toObject()));
    for (const QJsonValue& v : o.value(QStringLiteral("compat")).toArray()) {
        const QJsonObject c = v.toObject();
        CompatEntry e;
        e.newCid = c.value(QStringLiteral("new")).toString();
        for (const QJsonValue& old : c.value(QStringLiteral("old")).toArray())
            e.oldCids << old.toString();
        b.d->compat.append(e);
    }
    return b;
}

/* ---- Catalog ------------------------------------------------------------- */

class Catalog::Data : public QSharedData {
public:
    QList<CatalogBundle> bundles;
    QStringList disabledVendors;
};

Catalog::Catalog() : d(new Data) {}
Catalog::Catalog(const Catalog&) = default;
Catalog& Catalog::operator=(const Catalog&) = default;
Catalog::~Catalog() = default;
const QList<CatalogBundle>& Catalog::bundles() const { return d->bundles; }
QList<CatalogBundle>& Catalog::bundles() { return d->bundles; }
const QStringList& Catalog::disabledVendors() const { return d->disabledVendors; }
QStringList& Catalog::disabledVendors() { return d->disabledVendors; }

const CatalogClass* Catalog::findClass(const QString& cid) const
{
    for (const CatalogBundle& b : d->bundles)
        for (const CatalogClass& c : b.classes())
            if (c.cid() == cid)
                return &c;
    return nullptr;
}

CatalogClass* Catalog::findClass(const QString& cid)
{
    for (CatalogBundle& b : d->bundles)
        for (CatalogClass& c : b.classes())
            if (c.cid() == cid)
                return &c;
    return nullptr;
}

CatalogBundle* Catalog::findBundle(const QString& path)
{
    for (CatalogBundle& b : d->bundles)
        if (b.path() == path)
            return &b;
    return nullptr;
}

void Catalog::removeBundle(const QString& path)
{
    for (int i = 0; i < d->bundles.size(); ++i)
        if (d->bundles[i].path() == path) {
            d->bundles.removeAt(i);
            return;
        }
}

/* ---- the direct reading of a catalog file --------------------------------- */

namespace {

// A vendor switched off, as a load keeps it: in lower case, once, never empty.
void AddDisabledVendor(QStringList* vendors, const QString& text)
{
    const QString vendor = text.toLower();
    if (!vendor.isEmpty() && !vendors->contains(vendor))
        *vendors << vendor;
}

using QVlorJson::Reader;
using QVlorJson::Scalar;

// A list read where an array is due; anything else is an empty list, as
// QJsonValue::toArray gives it.
template<typename Element>
bool ReadArray(Reader& r, Element&& element)
{
    if (r.peek() != Scalar::Array)
        return r.skipValue();
    if (!r.beginArray())
        return false;
    while (r.nextElement())
        if (!element())
            return false;
    return !r.failed();
}

// The members of an object where one is due; anything else reads as an
// object without members, as QJsonValue::toObject gives it.
template<typename Member>
bool ReadObject(Reader& r, Member&& member)
{
    if (r.peek() != Scalar::Object)
        return r.skipValue();
    if (!r.beginObject())
        return false;
    std::string key;
    while (r.nextMember(&key))
        if (!member(key))
            return false;
    return !r.failed();
}

bool ReadClass(Reader& r, CatalogClass* out)
{
    QString cid, name, vendor, subCategories, version, state, lastError;
    bool enabled = false;
    qint64 verifiedAt = 0;
    qint32 verifierBuild = 0;
    Scalar v;
    const bool ok = ReadObject(r, [&](const std::string& key) {
        if (!r.readScalar(&v))
            return false;
        if (key == "cid")
            cid = v.toString();
        else if (key == "name")
            name = v.toString();
        else if (key == "vendor")
            vendor = v.toString();
        else if (key == "subCategories")
            subCategories = v.toString();
        else if (key == "version")
            version = v.toString();
        else if (key == "enabled")
            enabled = v.toBool(false);
        else if (key == "state")
            state = v.toString();
        else if (key == "lastError")
            lastError = v.toString();
        else if (key == "verifiedAt")
            verifiedAt = v.toInteger(0);
        else if (key == "verifierBuild")
            verifierBuild = qint32(v.toInt(0));
        return true;
    });
    CatalogClass c(cid, name, vendor, subCategories, version);
    c.setEnabled(enabled);
    c.setState(CatalogClass::StateFromString(state));
    c.setLastError(lastError);
    c.setVerifiedAt(verifiedAt);
    c.setVerifierBuild(verifierBuild);
    *out = c;
    return ok;
}

bool ReadCompat(Reader& r, CatalogBundle::CompatEntry* out)
{
    Scalar v;
    return ReadObject(r, [&](const std::string& key) {
        if (key == "old") {
            out->oldCids.clear();
            
            return ReadArray(r, [&] {
                if (!r.readScalar(&v))
                    return false;
                out->oldCids << v.toString();
                return true;
            });
        }
        if (!r.readScalar(&v))
            return false;
        if (key == "new")
            out->newCid = v.toString();
        return true;
    });
}

bool ReadBundle(Reader& r, CatalogBundle* b)
{
    // Files from before these keys existed count as enabled and probed.
    b->setEnabled(true);
    b->setProbed(true);
    Scalar v;
    return ReadObject(r, [&](const std::string& key) {
        if (key == "classes") {
            b->classes().clear();
            return ReadArray(r, [&] {
                CatalogClass c;
                const bool ok = ReadClass(r, &c);
                b->classes().append(c);
                return ok;
            });
        }
        if (key == "compat") {
            b->compat().clear();
            return ReadArray(r, [&] {
                CatalogBundle::CompatEntry e;
                const bool ok = ReadCompat(r, &e);
                b->compat().append(e);
                return ok;
            });
        }
        if (!r.readScalar(&v))
            return false;
        if (key == "path")
            b->setPath(v.toString());
        else if (key == "mtime")
            b->setMtimeSecs(v.toInteger(0));
        else if (key == "size")
            b->setSizeBytes(v.toInteger(0));
        else if (key == "moduleinfoFound")
            b->setModuleinfoFound(v.toBool(false));
        else if (key == "failed")
            b->setFailed(v.toBool(false));
        else if (key == "enabled")
            b->setEnabled(v.toBool(true));
        else if (key == "probed")
            b->setProbed(v.toBool(true));
        else if (key == "lastError")
            b->setLastError(v.toString());
        return true;
    });
}

} // namespace

void CatalogFromJson(const QJsonObject& root, QList<CatalogBundle>* bundles, QStringList* disabledVendors)
{
    QList<CatalogBundle> list;
    for (const QJsonValue& v : root.value(QStringLiteral("bundles")).toArray())
        list.append(CatalogBundle::fromJsonObject(v.toObject()));
    QStringList vendors;
    for (const QJsonValue& v : root.value(QStringLiteral("disabledVendors")).toArray())
        AddDisabledVendor(&vendors, v.toString());
    *bundles = list;
    *disabledVendors = vendors;
}

bool ReadCatalogText(const char* begin, const char* end, QList<CatalogBundle>* bundles, QStringList* disabledVendors)
{
    Reader r(begin, end);
    QList<CatalogBundle> list;
    QStringList vendors;
    Scalar v;
    if (r.peek() != Scalar::Object)
        return false;
    const bool ok = ReadObject(r, [&](const std::string& key) {
        if (key == "bundles") {
            list.clear();
            return ReadArray(r, [&] {
                CatalogBundle b;
                const bool read = ReadBundle(r, &b);
                list.append(b);
                return read;
            });
        }
        if (key == "disabledVendors") {
            vendors.clear();
            return ReadArray(r, [&] {
                if (!r.readScalar(&v))
                    return false;
                AddDisabledVendor(&vendors, v.toString());
                return true;
            });
        }
        return r.skipValue();
    });
    if (!ok || !r.atEnd())
        return false;
    *bundles = std::move(list);
    *disabledVendors = std::move(vendors);
    return true;
}

bool Catalog::load(const QString& fileName)
{
    if (!QFile::exists(fileName)) {
        d->bundles.clear();
        d->disabledVendors.clear();
        return true;
    }
    // A catalog of thousands of plugins is read at every start, on the
    // caller's thread: straight from the mapped file into the records. What
    // the direct reading refuses is read again through QJsonDocument, which
    // judges it and words the fault.
    {
        QFile file(fileName);
        if (QFileInfo(fileName).isFile() && file.open(QIODevice::ReadOnly)) {
            QByteArray copy;
            const char* text;
            qint64 length = file.size();
            if (uchar* mapped = length > 0 ? file.map(0, length) : nullptr) {
                text = reinterpret_cast<const char*>(mapped);
            } else {
                copy = file.readAll();
                text = copy.constData();
                length = copy.size();
            }
            QList<CatalogBundle> bundles;
            QStringList vendors;
            if (ReadCatalogText(text, text + length, &bundles, &vendors)) {
                RememberDataFileBase(fileName, QByteArray(text, int(length)));
                d->bundles = std::move(bundles);
                d->disabledVendors = std::move(vendors);
                return true;
            }
        }
    }
    QJsonObject root;
    if (!ReadJsonFileObject(fileName, &root))
        return false;
    fromJson(root);
    return true;
}

QJsonObject Catalog::toJson() const
{
    QJsonArray bundles;
    for (const CatalogBundle& b : d->bundles)
        bundles.append(b.toJsonObject());
    return QJsonObject{{QStringLiteral("version"), 1},
                       {QStringLiteral("bundles"), bundles},
                       {QStringLiteral("disabledVendors"), QJsonArray::fromStringList(d->disabledVendors)}};
}

void Catalog::fromJson(const QJsonObject& root) { CatalogFromJson(root, &d->bundles, &d->disabledVendors); }

bool Catalog::save(const QString& fileName, QString* error) const
{
    return WriteJsonFileAtomically(fileName, toJson(), error);
}

} // namespace QVlorVst3
