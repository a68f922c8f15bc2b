#ifndef QVLORPLUGINSPREFS_P_H
#define QVLORPLUGINSPREFS_P_H
// The page's state, shared by its sources: the page itself and its row actions.

#include "QVlorPluginDelegates.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorVst_Path.h"
#include "ui_QVlorPluginsPrefs.h"

#include "QVlorSlowCheckWatch.h"

#include <QElapsedTimer>
#include <QSet>

#include <memory>

struct QVlorPluginsPrefs::Data {
    QVlorAudioPlugins::PluginManagers managers;
    QVlorUnifiedPluginsModel model;
    ProxyFilter proxy;
    QVlorPluginBadgeDelegate* badgeDelegate = nullptr;
    QVlorPluginStateDelegate* stateDelegate = nullptr;
    QList<UnifiedRow> rows;
    QList<QVlorVst::Path> paths;
    // Over paths, made at the first look-up after a rebuild.
    mutable std::unique_ptr<UpmVst2Index> vst2Index;
    bool rebuildPending = false;
    // A scan under way owns the progress line; checks show there otherwise.
    bool scanning = false;
    // The plugins of the checks under way since the line was last idle, and
    // when the first began: the line counts them off.
    QSet<QString> checkBatch;
    QElapsedTimer checkClock;
    // The check that has run for a while, offered to be skipped.
    QVlorSlowCheckWatch* slowChecks = nullptr;
    QSet<QString> collapsedGroups;
    QSet<QString> hiddenNewPaths;

    // The keyboard's switches of the current row's form, VST2, VST3, LV2.
    QList<QAction*> formatActions;
    // The failed checks the reader has been told of.
    QSet<QString> failedSeen;
    bool failuresKnown = false;

    Ui::QVlorPluginsPrefs ui;
    QString treeStyleSheet;

    QString expansionKey(const QModelIndex& index) const;
    QString currentKey(const QModelIndex& index) const;
    void restoreCurrent(QTreeView* tree, const QString& key, const QModelIndex& parent);
    void captureExpansion(QTreeView* tree);
    void collectCollapsed(QTreeView* tree, const QModelIndex& parent);
    void applyCollapsed(QTreeView* tree, const QModelIndex& parent);
    static qint64 ParseVst2UniqueId(const QString& identity);
    bool findVst2PluginAndPath(const QString& identity, QVlorVst::Plugin* plugin, QVlorVst::Path* path) const;
    QString revealPathForRow(const UnifiedRow& row) const;
};

// A set of settings values as a list in a stable order, as they are saved.
inline QStringList SortedList(const QSet<QString>& set)
{
    QStringList list(set.begin(), set.end());
    list.sort();
    return list;
}

#endif
