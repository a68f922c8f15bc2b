#include "QVlorVst3_ModuleInfo.h"

#include "QVlorDataFile_p.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace QVlorVst3 {

bool ModuleInfo::read(const QString& bundlePath, QList<ClassEntry>* classes, QList<CompatEntry>* compat,
                      QString* vendor)
{
    QString file = bundlePath + QStringLiteral("/Contents/moduleinfo.json");
    if (!QFile::exists(file)) {
        file = bundlePath + QStringLiteral("/Contents/Resources/moduleinfo.json");
        if (!QFile::exists(file))
            return false;
    }
    // Qt's strict parser, with no clean-up first: relaxed JSON is an error.
    QJsonObject root;
    if (!ReadJsonFileObject(file, &root, JsonFileOwner::Plugin))
        return false;
    const QString factoryVendor =
        root.value(QStringLiteral("Factory Info")).toObject().value(QStringLiteral("Vendor")).toString();
    if (vendor)
        *vendor = factoryVendor;
    if (classes) {
        for (const QJsonValue& v : root.value(QStringLiteral("Classes")).toArray()) {
            const QJsonObject c = v.toObject();
            if (c.value(QStringLiteral("Category")).toString() != QLatin1String("Audio Module Class"))
                continue;
            ClassEntry e;
            e.cid = c.value(QStringLiteral("CID")).toString().toUpper();
            e.name = c.value(QStringLiteral("Name")).toString();
            e.vendor = c.value(QStringLiteral("Vendor")).toString();
            if (e.vendor.isEmpty())
                e.vendor = factoryVendor;
            e.version = c.value(QStringLiteral("Version")).toString();
            QStringList subs;
            for (const QJsonValue& s : c.value(QStringLiteral("Sub Categories")).toArray())
                subs << s.toString();
            e.subCategories = subs.join(QLatin1Char('|'));
            classes->append(e);
        }
    }
    if (compat) {
        for (const QJsonValue& v : root.value(QStringLiteral("Compatibility")).toArray()) {
            const QJsonObject c = v.toObject();
            CompatEntry e;
            e.newCid = c.value(QStringLiteral("New")).toString().toUpper();
            for (const QJsonValue& old : c.value(QStringLiteral("Old")).toArray())
                e.oldCids << old.toString().toUpper();
            compat->append(e);
        }
    }
    return true;
}

} // namespace QVlorVst3
