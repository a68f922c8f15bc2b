#ifndef QVLORVST3_MODULEINFO_H
#define QVLORVST3_MODULEINFO_H

#include "QVlorAudioPluginsExport.h"
#include <QList>
#include <QString>
#include <QStringList>

namespace QVlorVst3 {

// What a bundle's moduleinfo.json says of it, read without loading the bundle.
class QVLOR_PLUGINS_EXPORT ModuleInfo {
public:
    struct ClassEntry {
        QString cid;
        QString name;
        QString vendor;
        QString subCategories;
        QString version;
    };
    struct CompatEntry {
        QString newCid;
        QStringList oldCids;
    };

    // Reads "Contents/moduleinfo.json" or else "Contents/Resources/moduleinfo.json";
    // null outputs are not wanted. False when no file was found or it is not
    // strict JSON; the outputs are then left as they were.
    static bool read(const QString& bundlePath, QList<ClassEntry>* classes, QList<CompatEntry>* compat,
                     QString* vendor);
};

} // namespace QVlorVst3

#endif
