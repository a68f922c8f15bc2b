#ifndef QVLORPLUGINSTREEVIEW_H
#define QVLORPLUGINSTREEVIEW_H
// The plugin tree with rounded capsules in place of the flat highlight:
// stripes on alternate rows, a capsule under the pointer, and one joined
// capsule for a run of selected rows, all starting at the check box so that
// the branch arrows stay outside. With the focus, the current row is
// ringed, since the selection alone does not say where the keys act.

#include "QVlorAudioPluginsExport.h"
#include <QPersistentModelIndex>
#include <QTreeView>

class QVLOR_PLUGINS_EXPORT QVlorPluginsTreeView : public QTreeView {
    Q_OBJECT
public:
    explicit QVlorPluginsTreeView(QWidget* parent = nullptr);

    void setHoverIndex(const QModelIndex& index);
    QModelIndex hoverIndex() const { return m_hoverIndex; }

protected:
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) override;
    bool viewportEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    QPersistentModelIndex m_hoverIndex;
};

#endif
