#ifndef QVLORSEARCHPATHSDIALOG_H
#define QVLORSEARCHPATHSDIALOG_H
// The search folders of every format in one tree: a parent per format whose
// box turns its scanning on and off, and its folders below with their own
// boxes. Edits are staged in the tree and applied together when the dialog
// closes, however it closes; a scan starts only where something was added
// or turned on.

#include "QVlorPluginManagers.h"
#include <QDialog>
#include <QMap>
#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

class QStandardItem;
class QStandardItemModel;
class QVlorPluginsTreeView;

// Column 1 of the dialog's tree: the origin of a folder, and the add and
// remove buttons.
class QVlorPathOriginDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit QVlorPathOriginDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

    // Where the button of a cell lies, and the origin tag of a folder row.
    static QRectF buttonRect(const QRect& cell);
    static QRectF tagRect(const QRect& cell, const QFont& font, const QString& text);

signals:
    void addClicked(const QModelIndex& index);
    void removeClicked(const QModelIndex& index);

private:
    QPersistentModelIndex m_pressed;
};

class QVlorSearchPathsDialog : public QDialog {
    Q_OBJECT
public:
    // The paths of the managers the library was installed with.
    explicit QVlorSearchPathsDialog(QWidget* parent = nullptr);
    // The paths of these managers.
    explicit QVlorSearchPathsDialog(const QVlorAudioPlugins::PluginManagers& managers, QWidget* parent = nullptr);
    ~QVlorSearchPathsDialog() override;

    QStandardItem* parentItemFor(const QString& format) const;

public slots:
    void accept() override;
    void reject() override;
    void reload();
    void applyChanges();
    void addPathFor(const QString& format);
    void removePath(const QString& format, const QString& path);

signals:
    void pathsChanged();

private:
    QStandardItem* buildParent(const QString& format);
    void appendPathRow(QStandardItem* parent, const QString& format, const QString& path, bool enabled, bool userAdded);
    void dimChildren(QStandardItem* parent, bool dim);
    void onItemChanged(QStandardItem* item);
    bool applyFormat(QStandardItem* parent, bool* changed);
    void showContextMenu(const QPoint& pos);

    struct Data;
    Data* d;
};

#endif
