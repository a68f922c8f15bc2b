#ifndef QVLORUNIFIEDROWS_P_H
#define QVLORUNIFIEDROWS_P_H
// The steps of the rows' composition, each a function of the copies it is
// handed, so that a test can take one alone.

#include "QVlorPluginFormat.h"
#include "QVlorUnifiedRows.h"

#include <QMap>
#include <QPair>

namespace UnifiedRowSteps {

struct FlatVst2Item {
    QVlorVst::Plugin plugin;
    QString shellKey;
    bool enabled = false;
    bool gated = false;
};

struct FlatVst3Item {
    QVlorVst3::CatalogClass cls;
    QString shellKey;
    QString bundlePath;
    bool gated = false;
    bool verifying = false;
};

struct ShellGroup {
    QString key, name, fileBaseName, vendorKey, vendor;
    bool enabled = true;
};

// Both catalogs as flat lists, VST2 shell groups first, and what the steps
// after need of them.
struct Flattened {
    QList<FlatVst2Item> vst2;
    QList<FlatVst3Item> vst3;
    QList<ShellGroup> groups;
    QList<QPair<QVlorVst::Plugin, QString>> rawItems; // VST2 plugins never probed, with their folder
    QSet<QString> disabledVendors;                    // of the VST3 catalog, in lower case
};

// The pending sets of the managers: rows of these plugins show as busy.
struct Pending {
    const QSet<qint64>& vst2Ids;
    const QSet<QString>& cids;
};

Flattened FlattenBoth(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog, bool vst2ScanEnabled);
// A row for every pair whose plugins are there (the last occurrence of an
// id pairs), then one for each plugin no pair claimed.
QList<UnifiedRow> ProductRows(const Flattened& f, const QVlorPluginPairs& pairs, const Pending& pending);
// The LV2 rows joined to the rows of the families that hold their plugins;
// the others appended as rows of their own.
void JoinLv2Forms(QList<UnifiedRow>* rows, const QList<UnifiedRow>& lv2Rows, const QVlorPluginPairs& pairs);
// Plain rows in order, then each shell group behind its headers.
QList<UnifiedRow> PlainThenShells(QList<UnifiedRow> rows, const QList<ShellGroup>& groups);
// The vendor gate: a vendor switched off in the VST3 catalog or on any VST2
// path gates every row of it.
void GateVendors(QList<UnifiedRow>* rows, const QSet<QString>& disabledVendors, const QList<QVlorVst::Path>& paths);
// The hidden new-plugin folders of one format ("vst2|PATH", "vst3|PATH").
QSet<QString> HiddenFolders(const QSet<QString>& hiddenNewPaths, const QVlorAudioPlugins::PluginFormat& format);
// VST2 plugins found and never probed, by folder; the folders in *folders.
QMap<QString, QList<UnifiedRow>> NewVst2Rows(const QList<QVlorVst::Path>& paths, const Flattened& f,
                                             QStringList* folders);
// VST3 bundles never probed, under the longest search path that holds them;
// the search paths in *folders.
QMap<QString, QList<UnifiedRow>> NewVst3Rows(const QVlorVst3::Catalog& catalog, const QList<QString>& searchPaths,
                                             QStringList* folders);

} // namespace UnifiedRowSteps

#endif
