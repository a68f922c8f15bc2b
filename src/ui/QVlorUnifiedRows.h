#ifndef QVLORUNIFIEDROWS_H
#define QVLORUNIFIEDROWS_H
// One row of the plugin manager, whatever the format: a pair, a plugin of
// one format, a shell header, a folder header of the new-plugin sections, or
// a plugin found on disk and never probed. The composition of the rows from
// the copies of both catalogs and the pair store, and what a row may do.

#include "QVlorAudioPluginsExport.h"
#include "QVlorLv2_Catalog.h"
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst_Path.h"

#include <QHash>
#include <QList>
#include <QMetaType>
#include <QSet>
#include <QString>
#include <QStringList>

// The item role a row travels under.
constexpr int UpmRowRole = 266;

enum UpmNewSection : qint32 { UpmNewSectionNone = 0, UpmNewSectionVst2 = 1, UpmNewSectionVst3 = 2 };

// What a row knows of one format.
struct QVLOR_PLUGINS_EXPORT UnifiedFormatInfo {
    bool present = false;
    bool active = false;   // at most one format of a row is active
    bool enabled = false;  // the catalog's own flag
    bool gated = false;    // switched off from above: shell, bundle or vendor
    bool is32Bit = false;  // VST2 only
    QString state;         // "verifying", "failed", "missing", "crashed", or empty
    QString error;         // VST3 only: the last error, for a tooltip
    QString identity;      // "vstid-N", "vsthash-H:N", a class ID, "vst3path-PATH", or an LV2 URI
    QString declared;      // the category key its format declares ("Reverb"), empty when it says nothing useful
};

struct QVLOR_PLUGINS_EXPORT UnifiedRow {
    QString pairId;
    QString name;
    QString vendorKey;
    QString vendor;
    bool isNew = false;
    UnifiedFormatInfo vst2;
    UnifiedFormatInfo vst3;
    UnifiedFormatInfo lv2;
    QString shellKey;
    bool isShellHeader = false;
    bool vendorEnabled = true;
    bool shellEnabled = true;
    UpmNewSection newSection = UpmNewSectionNone;
    QString newPath;
    bool isNewPathHeader = false;
    bool newPathShown = true;
    QString category; // the key of what the product does: "Dynamics", ..., "Other"

    // The state of the active format, VST3 first, then VST2, then LV2.
    QString rowStateText() const;
    // Whether the row's active format is on and nothing above switches it off.
    bool inUse() const;
};

Q_DECLARE_METATYPE(UnifiedRow)

// Plain rows, then shell groups, then LV2 plugins no family holds, then the
// VST2 and VST3 new-plugin sections; reads only the copies it is handed. pendingVst2Ids and
// pendingCids are the plugins a pair operation is running on;
// hiddenNewPaths holds "vst2|FOLDER" and "vst3|FOLDER"; vst3SearchPaths
// is empty when VST3 scanning is off.
QVLOR_PLUGINS_EXPORT QList<UnifiedRow> ComposeUnifiedRows(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog,
                                     const QVlorPluginPairs& pairs, const QList<QString>& vst3SearchPaths,
                                     const QSet<QString>& hiddenNewPaths, const QSet<qint64>& pendingVst2Ids,
                                     const QSet<QString>& pendingCids, bool vst2ScanEnabled,
                                     const QVlorLv2::Catalog& lv2Catalog = QVlorLv2::Catalog());
// The row of each LV2 plugin of the catalog, active in its one format.
QVLOR_PLUGINS_EXPORT QList<UnifiedRow> Lv2Rows(const QVlorLv2::Catalog& catalog);

// The identities of every form a row holds: what the user's marks on a
// product are kept by.
QVLOR_PLUGINS_EXPORT QStringList UpmRowIdentities(const UnifiedRow& row);
// The category of a product: the user's choice (by identity in overrides),
// else what its form in use declares, else what its other forms declare,
// else the words of its name.
QVLOR_PLUGINS_EXPORT QString UpmRowCategory(const UnifiedRow& row, const QHash<QString, QString>& overrides);

// A row in words, for a screen reader: its formats with the one in use and
// what failed, and the rest of what the row shows ("by MAKER; Formats: VST3
// in use, LV2; on; new").
QVLOR_PLUGINS_EXPORT QString UpmSpokenFormats(const UnifiedRow& row);
QVLOR_PLUGINS_EXPORT QString UpmSpokenRow(const UnifiedRow& row, bool favourite);

// What a row may do, shared by the delegates and the row menu.
QVLOR_PLUGINS_EXPORT bool UpmRowBusy(const UnifiedRow& row);
// A row whose check found no effect in it (an instrument, a generator).
QVLOR_PLUGINS_EXPORT bool UpmRowNotAnEffect(const UnifiedRow& row);
// A new plugin that "Add" can bring in: not busy, not gone, and an effect.
QVLOR_PLUGINS_EXPORT bool UpmRowAddable(const UnifiedRow& row);
// The entry of a pair in a copy of the store; null if none has that id.
QVLOR_PLUGINS_EXPORT const QVlorPluginPairs::Entry* UpmPairEntry(const QString& pairId, const QList<QVlorPluginPairs::Entry>& entries);
QVLOR_PLUGINS_EXPORT bool UpmRowEffectivelyUnpaired(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries);
QVLOR_PLUGINS_EXPORT bool UpmRowSplitEligible(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries);
QVLOR_PLUGINS_EXPORT bool UpmRowResetEligible(const UnifiedRow& row, const QVlorVst3::Catalog& catalog, QString* bundlePath);
QVLOR_PLUGINS_EXPORT bool UpmJoinPairEligible(const UnifiedRow& a, const UnifiedRow& b, const UnifiedRow** vst2Row, const UnifiedRow** vst3Row,
                         QString* activeFormat, const QList<QVlorPluginPairs::Entry>& entries);
// A VST2 row identity taken apart: "vstid-N" names a unique id, and
// "vsthash-HASH:N" a file's hash with its plugin id (an id outside 32 bits,
// or none, counts as 0). False for any other text, an empty hash or a zero id.
struct QVLOR_PLUGINS_EXPORT UpmVst2Identity {
    qint64 uniqueId = 0;
    QString hash;
    int pluginId = 0;
    // Whether the record is the one this identity names.
    bool names(const QVlorVst::Plugin& plugin) const;
};
QVLOR_PLUGINS_EXPORT bool UpmParseVst2Identity(const QString& identity, UpmVst2Identity* out);

// The VST2 records by the identities rows give them: by unique id, and by
// hash and plugin id; for a shell, its children after it; the first record
// of an identity wins. Made once for many look-ups: a walk of every path for
// each row would cost minutes with thousands of plugins.
class QVLOR_PLUGINS_EXPORT UpmVst2Index {
public:
    explicit UpmVst2Index(const QList<QVlorVst::Path>& paths);
    // The record a row's identity names, and the path that holds it.
    bool find(const QString& identity, QVlorVst::Plugin* plugin, QVlorVst::Path* path = nullptr) const;

private:
    struct Entry {
        QVlorVst::Plugin plugin;
        int path;
    };
    void add(const QVlorVst::Plugin& p, int path);
    QList<QVlorVst::Path> m_paths;
    QHash<qint64, Entry> m_byId;
    QHash<QString, Entry> m_byHash;
};

// The label of a vendor key: "Other" for none, else the key capitalized.
QVLOR_PLUGINS_EXPORT QString CapitalizedVendorLabel(const QString& key);

#endif
