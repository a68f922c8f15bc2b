#ifndef QVLORUNIFIEDPLUGINSMODEL_H
#define QVLORUNIFIEDPLUGINSMODEL_H
// One row of the plugin manager, whatever the format: a pair, a plugin of
// one format, a shell header, a folder header of the new-plugin sections, or
// a plugin found on disk and never probed. And the composition of the rows
// from the copies of both catalogs and the pair store.

#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst_Path.h"

#include <QAbstractItemModel>
#include <QHash>
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

// Vendors, shells, plugins and the two new-plugin sections as one tree,
// rebuilt whole from rows at each setRows. A click on a check box changes
// nothing here: it is told by a signal, and the rows come back composed anew.
class QVlorUnifiedPluginsModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum NodeKind : qint32 { NodeRoot = 0, NodeVendor = 1, NodeItem = 2, NodeChild = 3, NodeNewSection = 4, NodeNewPath = 5 };

    struct Node {
        NodeKind kind = NodeRoot;
        QString label;
        QString fullLabel; // the whole text when label is cut for display
        QString vendorKey;
        UnifiedRow row;
        bool hasRow = false;
        bool checked = true;
        bool gated = false;
        Node* parent = nullptr;
        QList<Node*> children;
        ~Node() { qDeleteAll(children); }
    };

    explicit QVlorUnifiedPluginsModel(QObject* parent = nullptr);
    ~QVlorUnifiedPluginsModel() override;

    void setRows(const QList<UnifiedRow>& rows);

    QModelIndex index(int row, int column, const QModelIndex& parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    static Qt::CheckState effectiveCheckState(Node* node);
    static bool formatAvailableForPair(const QList<UnifiedRow>& rows, const QString& pairId, const QString& format);

    // Plain rows, then shell groups, then the VST2 and VST3 new-plugin
    // sections; reads only the copies it is handed. pendingVst2Ids and
    // pendingCids are the plugins a pair operation is running on;
    // hiddenNewPaths holds "vst2|FOLDER" and "vst3|FOLDER"; vst3SearchPaths
    // is empty when VST3 scanning is off.
    static QList<UnifiedRow> composeRows(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog,
                                         const QVlorPluginPairs& pairs, const QList<QString>& vst3SearchPaths,
                                         const QSet<QString>& hiddenNewPaths, const QSet<qint64>& pendingVst2Ids,
                                         const QSet<QString>& pendingCids, bool vst2ScanEnabled);

signals:
    void pairCheckToggled(const QString& pairId, const UnifiedRow& row, bool checked);
    void vendorCheckToggled(const QString& vendorKey, bool checked);
    void shellGateToggled(const QString& shellKey, const UnifiedRow& row, bool checked);
    void newPathShowToggled(int section, const QString& path, bool shown);

private:
    Node* nodeOf(const QModelIndex& index) const;
    Node* m_root;
};

// What a row may do, shared by the delegates and the row menu.
bool UpmRowBusy(const UnifiedRow& row);
// A row whose check found no effect in it (an instrument, a generator).
bool UpmRowNotAnEffect(const UnifiedRow& row);
// A new plugin that "Add" can bring in: not busy, not gone, and an effect.
bool UpmRowAddable(const UnifiedRow& row);
// The entry of a pair in a copy of the store; null if none has that id.
const QVlorPluginPairs::Entry* UpmPairEntry(const QString& pairId, const QList<QVlorPluginPairs::Entry>& entries);
bool UpmRowEffectivelyUnpaired(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries);
bool UpmRowSplitEligible(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries);
bool UpmRowResetEligible(const UnifiedRow& row, const QVlorVst3::Catalog& catalog, QString* bundlePath);
bool UpmJoinPairEligible(const UnifiedRow& a, const UnifiedRow& b, const UnifiedRow** vst2Row, const UnifiedRow** vst3Row,
                         QString* activeFormat, const QList<QVlorPluginPairs::Entry>& entries);
int UpmNewRootSortRank(const QModelIndex& index);
int ClassifyUnifiedPluginsIndex(const QModelIndex& index, UnifiedRow* row);

// A VST2 row identity taken apart: "vstid-N" names a unique id, and
// "vsthash-HASH:N" a file's hash with its plugin id (an id outside 32 bits,
// or none, counts as 0). False for any other text, an empty hash or a zero id.
struct UpmVst2Identity {
    qint64 uniqueId = 0;
    QString hash;
    int pluginId = 0;
    // Whether the record is the one this identity names.
    bool names(const QVlorVst::Plugin& plugin) const;
};
bool UpmParseVst2Identity(const QString& identity, UpmVst2Identity* out);

// The VST2 records by the identities rows give them: by unique id, and by
// hash and plugin id; for a shell, its children after it; the first record
// of an identity wins. Made once for many look-ups: a walk of every path for
// each row would cost minutes with thousands of plugins.
class UpmVst2Index {
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

// Item roles beside UpmRowRole.
constexpr int UpmVendorKeyRole = 267;
constexpr int UpmShellKeyRole = 268;
constexpr int UpmNewSectionRole = 269;
constexpr int UpmNewPathRole = 270;

// The label of a vendor key: "Other" for none, else the key capitalized.
QString CapitalizedVendorLabel(const QString& key);

#endif
