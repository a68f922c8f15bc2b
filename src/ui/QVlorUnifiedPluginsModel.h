#ifndef QVLORUNIFIEDPLUGINSMODEL_H
#define QVLORUNIFIEDPLUGINSMODEL_H
// One row of the plugin manager, whatever the format: a pair, a plugin of
// one format, a shell header, a folder header of the new-plugin sections, or
// a plugin found on disk and never probed. And the composition of the rows
// from the copies of both catalogs and the pair store.

#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst_Path.h"

#include <QList>
#include <QMetaType>
#include <QSet>
#include <QString>

// The item role a row travels under.
constexpr int UpmRowRole = 266;

enum UpmNewSection : qint32 { UpmNewSectionNone = 0, UpmNewSectionVst2 = 1, UpmNewSectionVst3 = 2 };

// What a row knows of one format.
struct UnifiedFormatInfo {
    bool present = false;
    bool active = false;   // at most one format of a row is active
    bool enabled = false;  // the catalog's own flag
    bool gated = false;    // switched off from above: shell, bundle or vendor
    bool is32Bit = false;  // VST2 only
    QString state;         // "verifying", "failed", "missing", "crashed", or empty
    QString error;         // VST3 only: the last error, for a tooltip
    QString identity;      // "vstid-N", "vsthash-H:N", a class ID, or "vst3path-PATH"
};

struct UnifiedRow {
    QString pairId;
    QString name;
    QString vendorKey;
    QString vendor;
    bool isNew = false;
    UnifiedFormatInfo vst2;
    UnifiedFormatInfo vst3;
    QString shellKey;
    bool isShellHeader = false;
    bool vendorEnabled = true;
    bool shellEnabled = true;
    UpmNewSection newSection = UpmNewSectionNone;
    QString newPath;
    bool isNewPathHeader = false;
    bool newPathShown = true;

    // The state of the active format, VST3 first.
    QString rowStateText() const;
    // Whether the row's active format is on and nothing above switches it off.
    bool inUse() const;
};

Q_DECLARE_METATYPE(UnifiedRow)

class QVlorUnifiedPluginsModel {
public:
    // Plain rows, then shell groups, then the VST2 and VST3 new-plugin
    // sections; reads only the copies it is handed. pendingVst2Ids and
    // pendingCids are the plugins a pair operation is running on;
    // hiddenNewPaths holds "vst2|FOLDER" and "vst3|FOLDER"; vst3SearchPaths
    // is empty when VST3 scanning is off.
    static QList<UnifiedRow> composeRows(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog,
                                         const QVlorPluginPairs& pairs, const QList<QString>& vst3SearchPaths,
                                         const QSet<QString>& hiddenNewPaths, const QSet<qint64>& pendingVst2Ids,
                                         const QSet<QString>& pendingCids, bool vst2ScanEnabled);
};

// The label of a vendor key: "Other" for none, else the key capitalized.
QString CapitalizedVendorLabel(const QString& key);

#endif
