#ifndef QVLORUNIFIEDPLUGINSMODEL_H
#define QVLORUNIFIEDPLUGINSMODEL_H
// The plugin manager's tree over its rows: vendors, shells, plugins and the
// new-plugin sections, and how an index of it is told apart.

#include "QVlorAudioPluginsExport.h"
#include "QVlorUnifiedRows.h"

#include <QAbstractItemModel>

// Vendors, shells, plugins and the two new-plugin sections as one tree,
// rebuilt whole from rows at each setRows. A click on a check box changes
// nothing here: it is told by a signal, and the rows come back composed anew.
class QVLOR_PLUGINS_EXPORT QVlorUnifiedPluginsModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum NodeKind : qint32 {
        NodeRoot = 0,
        NodeVendor = 1,
        NodeItem = 2,
        NodeChild = 3,
        NodeNewSection = 4,
        NodeNewPath = 5,
        NodeCategory = 6
    };

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
    // Products under their makers (with their shells), or under what they
    // do: a category holds products, and has no switch of its own.
    void setGroupedByCategory(bool byCategory) { m_byCategory = byCategory; }
    bool groupedByCategory() const { return m_byCategory; }

    QModelIndex index(int row, int column, const QModelIndex& parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    static Qt::CheckState effectiveCheckState(Node* node);
    static bool runsApart(const Node* node);
    static bool formatAvailableForPair(const QList<UnifiedRow>& rows, const QString& pairId, const QString& format);

    // ComposeUnifiedRows, by the name the page has always called.
    static QList<UnifiedRow> composeRows(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog,
                                         const QVlorPluginPairs& pairs, const QList<QString>& vst3SearchPaths,
                                         const QSet<QString>& hiddenNewPaths, const QSet<qint64>& pendingVst2Ids,
                                         const QSet<QString>& pendingCids, bool vst2ScanEnabled,
                                         const QVlorLv2::Catalog& lv2Catalog = QVlorLv2::Catalog());

signals:
    void pairCheckToggled(const QString& pairId, const UnifiedRow& row, bool checked);
    void vendorCheckToggled(const QString& vendorKey, bool checked);
    void shellGateToggled(const QString& shellKey, const UnifiedRow& row, bool checked);
    void newPathShowToggled(int section, const QString& path, bool shown);

private:
    Node* nodeOf(const QModelIndex& index) const;
    QVariant spokenText(const Node* node, int column, int role) const;
    Node* m_root;
    bool m_byCategory = false;
};

QVLOR_PLUGINS_EXPORT int UpmNewRootSortRank(const QModelIndex& index);

// What an index of the tree is.
enum UpmIndexKind : int {
    UpmIndexRow = 0, // a row: a plugin, a pair, a new plugin
    UpmIndexVendor = 1,
    UpmIndexShell = 2,
    UpmIndexNewSection = 3,
    UpmIndexNewPath = 4,
    UpmIndexInvalid = 5,
    UpmIndexCategory = 6,
};
// The kind of index; for a row, the row is copied to *row if given.
QVLOR_PLUGINS_EXPORT UpmIndexKind ClassifyUnifiedPluginsIndex(const QModelIndex& index, UnifiedRow* row);

// Item roles beside UpmRowRole.
constexpr int UpmVendorKeyRole = 267;
constexpr int UpmShellKeyRole = 268;
constexpr int UpmNewSectionRole = 269;
constexpr int UpmNewPathRole = 270;
constexpr int UpmCategoryKeyRole = 271;
// Whether a row's product is a favourite: bool.
constexpr int UpmFavouriteRole = 272;

#endif
