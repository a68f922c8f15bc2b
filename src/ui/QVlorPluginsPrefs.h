#ifndef QVLORPLUGINSPREFS_H
#define QVLORPLUGINSPREFS_H
// The plugin manager: one page of the editor's preferences with the tree of
// both formats behind a filter. It rebuilds the tree from the managers'
// copies whenever they signal a change, and turns the user's clicks into
// calls on the managers; a click never changes a row by itself.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPluginManagers.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorWidgets.h"

#include <QSortFilterProxyModel>

class QAction;
namespace QVlorVst {
class Manager;
}
namespace QVlorVst3 {
class Manager;
}
namespace QVlorLv2 {
class Manager;
}
class QMenu;
class QVlorPreferencesTab;

extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_TREE_COLLAPSED;   // "vloraudio.plugins.tree_collapsed_groups"
extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_NEW_PATHS_HIDDEN; // "vloraudio.plugins.new_paths_hidden"

// The row menu's items for families of several formats, and the rows they act on.
struct QVLOR_PLUGINS_EXPORT FamilyMenuItems {
    QList<QAction*> splitOff; // each with its format's token
    QAction* join = nullptr;
    QAction* lv2Children = nullptr;
    UnifiedRow family, lv2Row, other;
    QList<UnifiedRow> shellChildren;
    // "Run in its own process": the row's VST3 and LV2 forms, as format and id.
    QAction* runsApart = nullptr;
    QList<QPair<QString, QString>> apartForms;
    // The user's marks on one product, kept by the identities of its forms.
    QAction* favourite = nullptr;
    QList<QAction*> categories; // each with its category key; an empty key: the product's own again
    QStringList identities;
};

class QVLOR_PLUGINS_EXPORT QVlorPluginsPrefs : public QVlorPreferencesTab {
    Q_OBJECT
public:
    class ProxyFilter : public QSortFilterProxyModel {
    public:
        // What a row is, or in which format it is there.
        enum StatusFilter {
            StatusAll = 0,
            StatusNew = 1,
            StatusFailed = 2,
            StatusEnabled = 3,
            FormatVst2 = 4,
            FormatVst3 = 5,
            FormatLv2 = 6,
            StatusFavourite = 7
        };

        explicit ProxyFilter(QObject* parent = nullptr);
        void setFilterString(const QString& text);
        QString filterString() const { return m_filterString; }
        void setStatusFilter(StatusFilter filter);
        StatusFilter statusFilter() const { return m_statusFilter; }
        // Asks every row again: what a row is shown for changed outside the rows.
        void refilter() { invalidateFilter(); }
        bool isFiltering() const { return !m_filterString.isEmpty() || m_statusFilter != StatusAll; }

        static bool acceptStatus(const UnifiedRow& row, StatusFilter filter);

    protected:
        bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
        bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

    private:
        bool accept(const QModelIndex& sourceIndex) const;
        bool filterGroup(const QModelIndex& sourceIndex) const;

        QString m_filterString;
        StatusFilter m_statusFilter = StatusAll;
    };

    // The name the page is offered under to the preferences dialog.
    struct Factory {
        static const char* const Name; // "plugin_prefs"
        static QVlorPreferencesTab* create(QWidget* parent);
    };

    // The page of the managers the library was installed with.
    explicit QVlorPluginsPrefs(QWidget* parent = nullptr);
    // The page of these managers.
    explicit QVlorPluginsPrefs(const QVlorAudioPlugins::PluginManagers& managers, QWidget* parent = nullptr);
    ~QVlorPluginsPrefs() override;

    QSize sizeHint() const override;
    void syncPreferences() override;
    void onLanguageChanged() override;
    void onPaletteChanged() override;

    // The rows last composed, as the tree shows them.
    QList<UnifiedRow> rows() const;

    // New plugins added, as "Add Plugins" adds them: all marked busy first,
    // one call a manager, then each enabled. Rows that are busy or missing
    // are passed over.
    void addPlugins(const QList<UnifiedRow>& rows);

    // Shows only the rows of one status, as the choice beside the filter does.
    void showStatus(ProxyFilter::StatusFilter filter);

public slots:
    void rebuildRows();
    void rebuildRowsNow();
    void rescanAll();
    void onBeginScan();
    void onEndScan(bool hasNewPlugins);
    void onProgressScan(int value, int total);
    void onStatusFilterChanged(int index);
    void filterView(const QString& text);
    void onPairCheckToggled(const QString& pairId, const UnifiedRow& row, bool checked);
    void onVendorCheckToggled(const QString& vendorKey, bool checked);
    void onShellGateToggled(const QString& shellKey, const UnifiedRow& row, bool checked);
    void onNewPathShowToggled(int section, const QString& path, bool shown);
    void onActiveFormatClicked(const QModelIndex& index, const QString& format);
    void onRawAddClicked(const QModelIndex& index);
    void onCustomContextMenuRequested(const QPoint& pos);

private:
    QVlorVst::Manager* vst2() const;
    QVlorVst3::Manager* vst3() const;
    QVlorLv2::Manager* lv2() const;
    void populateStatusFilterCombo();
    // The progress line for checks of plugins (enabling, updating) under way.
    void updateCheckProgress();
    void showProgressLine(const QString& text, const QString& format, int value, int total);
    void hideProgressLine();
    void enableVst2Plugin(const QString& identity);
    // Parts of the page's making.
    void setUpTree();
    void setUpProgressButtons();
    void followManagers(QVlorVst::Manager* m2, QVlorVst3::Manager* m3);
    void followLv2();
    // Parts of the row menu.
    void takeMenuSelection(QList<UnifiedRow>* rows, QStringList* shells, QList<UnifiedRow>* shellChildren) const;
    QList<QAction*> addPartnerMenu(QMenu* menu, const UnifiedRow& single,
                                   const QList<QVlorPluginPairs::Entry>& entries) const;
    QList<QPair<UnifiedRow, QString>> resettableRows(const QList<UnifiedRow>& rows) const;
    void splitPairsOf(const QList<UnifiedRow>& rows, const QList<QVlorPluginPairs::Entry>& entries);
    void pairByHand(const QString& vst2Identity, const QString& cid, const QString& activeFormat);
    void updateVst2Rows(const QList<UnifiedRow>& rows);
    void resetRowsAndShells(const QList<QPair<UnifiedRow, QString>>& resetRows, const QStringList& shells);
    QString formatUnder(const QPoint& pos) const;
    FamilyMenuItems addFamilyItems(QMenu* menu, const QList<UnifiedRow>& rows,
                                   const QList<QVlorPluginPairs::Entry>& entries) const;
    static void addLv2ChildrenItem(QMenu* menu, const QList<UnifiedRow>& shellChildren, FamilyMenuItems* items);
    static void addRunsApartItem(QMenu* menu, const UnifiedRow* single, FamilyMenuItems* items);
    // What one product's row offers at the end of its menu: its forms, where it runs, and the user's marks.
    void addProductItems(QMenu* menu, const UnifiedRow* single, FamilyMenuItems* items)
    {
        addFormatItems(menu, single);
        addRunsApartItem(menu, single, items);
        addLibraryItems(menu, single, items);
    }
    // "Favourite" and "Category" of one product: the user's own marks.
    static void addLibraryItems(QMenu* menu, const UnifiedRow* single, FamilyMenuItems* items);
    // The group switch and the library's signals.
    void setUpLibrary();
    // Names, keys and announcements.
    void setUpAccess();
    void updateFormatActions();
    void addFormatItems(QMenu* menu, const UnifiedRow* single);
    void announceFailedChecks();
    void announceScan(int value, int total, bool ended);
    bool actOnFamilyItem(const FamilyMenuItems& items, QAction* chosen);
    // The format a split keeps: the row's active one.
    static QString keptFormat(const UnifiedRow& row);

    struct QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

#endif
