#include "QVlorLv2_Catalog.h"

#include "QVlorDataFile_p.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

namespace QVlorLv2 {

namespace {

const char* const kStates[] = {"usable", "failed", "not-an-effect", "crashed"};

QString text(const QJsonObject& o, const char* key) { return o.value(QLatin1String(key)).toString(); }
int number(const QJsonObject& o, const char* key) { return o.value(QLatin1String(key)).toInt(); }

} // namespace

QString CatalogPlugin::StateToString(State state) { return QLatin1String(kStates[int(state)]); }

CatalogPlugin::State CatalogPlugin::StateFromString(const QString& text)
{
    for (int i = 0; i < 4; ++i)
        if (text == QLatin1String(kStates[i]))
            return State(i);
    // A state this build does not know is looked at again by a check.
    return Failed;
}

QJsonObject CatalogPlugin::toJsonObject() const
{
    QJsonObject o{{QStringLiteral("uri"), uri},
                  {QStringLiteral("name"), name},
                  {QStringLiteral("maker"), maker},
                  {QStringLiteral("class"), className},
                  {QStringLiteral("binary"), binary},
                  {QStringLiteral("audioInputs"), audioInputs},
                  {QStringLiteral("audioOutputs"), audioOutputs},
                  {QStringLiteral("sideChainInputs"), sideChainInputs},
                  {QStringLiteral("parameters"), parameters},
                  {QStringLiteral("latency"), latency},
                  {QStringLiteral("x11Ui"), hasX11Ui},
                  {QStringLiteral("state"), StateToString(state)}};
    if (!reason.isEmpty())
        o.insert(QStringLiteral("reason"), reason);
    return o;
}

CatalogPlugin CatalogPlugin::fromJsonObject(const QJsonObject& o)
{
    CatalogPlugin p;
    p.uri = text(o, "uri");
    p.name = text(o, "name");
    p.maker = text(o, "maker");
    p.className = text(o, "class");
    p.binary = text(o, "binary");
    p.audioInputs = number(o, "audioInputs");
    p.audioOutputs = number(o, "audioOutputs");
    p.sideChainInputs = number(o, "sideChainInputs");
    p.parameters = number(o, "parameters");
    p.latency = number(o, "latency");
    p.hasX11Ui = o.value(QStringLiteral("x11Ui")).toBool();
    p.state = StateFromString(text(o, "state"));
    p.reason = text(o, "reason");
    return p;
}

CatalogPlugin CatalogPlugin::fromCheck(const QJsonObject& report)
{
    CatalogPlugin p = fromJsonObject(report);
    if (!report.value(QStringLiteral("effect")).toBool(true)) {
        p.state = NotAnEffect;
        p.reason = QStringLiteral("not an effect (an instrument, or no audio in and out)");
    } else if (report.value(QStringLiteral("ok")).toBool()) {
        p.state = Usable;
        p.reason.clear();
    } else {
        p.state = report.value(QStringLiteral("crashed")).toBool() ? Crashed : Failed;
        p.reason = text(report, "error");
    }
    return p;
}

QJsonObject CatalogBundle::toJsonObject() const
{
    QJsonArray list;
    for (const CatalogPlugin& p : plugins)
        list.append(p.toJsonObject());
    return {{QStringLiteral("path"), path}, {QStringLiteral("stamp"), stamp}, {QStringLiteral("plugins"), list}};
}

CatalogBundle CatalogBundle::fromJsonObject(const QJsonObject& o)
{
    CatalogBundle b;
    b.path = text(o, "path");
    b.stamp = text(o, "stamp");
    for (const QJsonValue& v : o.value(QStringLiteral("plugins")).toArray()) {
        const CatalogPlugin p = CatalogPlugin::fromJsonObject(v.toObject());
        if (!p.uri.isEmpty())
            b.plugins.append(p);
    }
    return b;
}

const CatalogPlugin* Catalog::findPlugin(const QString& uri) const
{
    for (const CatalogBundle& b : bundles)
        for (const CatalogPlugin& p : b.plugins)
            if (p.uri == uri)
                return &p;
    return nullptr;
}

// The writable finders walk with the lists' own writable iterators: a copy
// handed to another thread shares them until then, and must not change.
CatalogPlugin* Catalog::findPlugin(const QString& uri)
{
    for (CatalogBundle& b : bundles)
        for (CatalogPlugin& p : b.plugins)
            if (p.uri == uri)
                return &p;
    return nullptr;
}

const CatalogBundle* Catalog::findBundle(const QString& path) const
{
    for (const CatalogBundle& b : bundles)
        if (b.path == path)
            return &b;
    return nullptr;
}

CatalogBundle* Catalog::findBundle(const QString& path)
{
    for (CatalogBundle& b : bundles)
        if (b.path == path)
            return &b;
    return nullptr;
}

const CatalogBundle* Catalog::bundleOf(const QString& uri) const
{
    for (const CatalogBundle& b : bundles)
        for (const CatalogPlugin& p : b.plugins)
            if (p.uri == uri)
                return &b;
    return nullptr;
}

bool Catalog::isEnabled(const QString& uri) const { return !disabledUris.contains(uri); }
bool Catalog::isVendorEnabled(const QString& maker) const { return !disabledVendors.contains(maker.toLower()); }

bool Catalog::isOffered(const QString& uri) const
{
    const CatalogPlugin* p = findPlugin(uri);
    return p && p->state == CatalogPlugin::Usable && isEnabled(uri) && isVendorEnabled(p->maker);
}

int Catalog::pluginCount() const
{
    int n = 0;
    for (const CatalogBundle& b : bundles)
        n += int(b.plugins.size());
    return n;
}

QJsonObject Catalog::toJson() const
{
    QJsonArray list;
    for (const CatalogBundle& b : bundles)
        list.append(b.toJsonObject());
    return {{QStringLiteral("version"), 1},
            {QStringLiteral("bundles"), list},
            {QStringLiteral("disabled"), QJsonArray::fromStringList(disabledUris)},
            {QStringLiteral("disabledVendors"), QJsonArray::fromStringList(disabledVendors)}};
}

void Catalog::fromJson(const QJsonObject& root)
{
    bundles.clear();
    disabledUris.clear();
    disabledVendors.clear();
    for (const QJsonValue& v : root.value(QStringLiteral("bundles")).toArray()) {
        const CatalogBundle b = CatalogBundle::fromJsonObject(v.toObject());
        if (!b.path.isEmpty())
            bundles.append(b);
    }
    for (const QJsonValue& v : root.value(QStringLiteral("disabled")).toArray())
        if (v.isString() && !disabledUris.contains(v.toString()))
            disabledUris.append(v.toString());
    for (const QJsonValue& v : root.value(QStringLiteral("disabledVendors")).toArray())
        if (v.isString() && !disabledVendors.contains(v.toString().toLower()))
            disabledVendors.append(v.toString().toLower());
}

bool Catalog::load(const QString& fileName)
{
    if (!QFile::exists(fileName)) {
        *this = Catalog();
        return true;
    }
    QJsonObject root;
    if (!ReadJsonFileObject(fileName, &root))
        return false;
    fromJson(root);
    return true;
}

bool Catalog::save(const QString& fileName, QString* error) const
{
    return WriteJsonFileAtomically(fileName, toJson(), error);
}

QString BundleStamp(const QString& path)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const QFileInfoList files =
        QDir(path).entryInfoList(QDir::Files | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    for (const QFileInfo& f : files) {
        hash.addData(f.fileName().toUtf8());
        hash.addData(QByteArray::number(f.size()));
        hash.addData(QByteArray::number(f.lastModified().toMSecsSinceEpoch()));
    }
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace QVlorLv2
