#include "QVlorPluginsTreeView.h"

#include "QVlorApplication.h"

#include <QHoverEvent>
#include <QKeyEvent>
#include <QItemSelectionModel>
#include <QPainter>
#include <QPainterPath>

namespace {

constexpr double kRadius = 5.0;

int itemDepth(const QModelIndex& index)
{
    if (!index.model())
        return 0;
    int depth = 0;
    for (QModelIndex i = index; i.isValid(); i = i.parent())
        ++depth;
    return depth;
}

double bandLeftAtCheckbox(const QTreeView* view, const QStyleOptionViewItem& option, const QModelIndex& index)
{
    const QRect cell = view->visualRect(index);
    QStyleOptionViewItem opt = option;
    opt.features |= QStyleOptionViewItem::HasCheckIndicator;
    opt.rect = cell;
    const QRect check = view->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, view);
    const int left = check.isValid() && check.left() >= cell.left() ? check.left() : cell.left();
    return left + 2.0;
}

// Rounded on the sides that do not join a selected neighbour; a left corner
// also rounds towards a deeper neighbour, whose band starts further right and
// would leave a square corner jutting out.
QPainterPath rowCapsulePath(const QTreeView* view, const QStyleOptionViewItem& option, const QModelIndex& index,
                            bool joinTop, bool joinBottom, QRectF* band)
{
    const double left = bandLeftAtCheckbox(view, option, index);
    const double top = option.rect.top() + (joinTop ? 0 : 1);
    const double height = option.rect.height() - (joinTop ? 0 : 1) - (joinBottom ? 0 : 1);
    const double right = option.rect.left() + option.rect.width() - 6;
    const QRectF rect(left, top, right - left, height);
    if (band)
        *band = rect;

    const int depth = itemDepth(index);
    const QModelIndex above = view->indexAbove(index);
    const QModelIndex below = view->indexBelow(index);
    const double topRight = joinTop ? 0 : kRadius;
    const double bottomRight = joinBottom ? 0 : kRadius;
    const double topLeft = (!joinTop || (above.isValid() && itemDepth(above) > depth)) ? kRadius : 0;
    const double bottomLeft = (!joinBottom || (below.isValid() && itemDepth(below) > depth)) ? kRadius : 0;

    QPainterPath path;
    path.moveTo(rect.left() + topLeft, rect.top());
    path.lineTo(rect.right() - topRight, rect.top());
    if (topRight > 0)
        path.arcTo(rect.right() - 2 * topRight, rect.top(), 2 * topRight, 2 * topRight, 90, -90);
    path.lineTo(rect.right(), rect.bottom() - bottomRight);
    if (bottomRight > 0)
        path.arcTo(rect.right() - 2 * bottomRight, rect.bottom() - 2 * bottomRight, 2 * bottomRight, 2 * bottomRight, 0,
                   -90);
    path.lineTo(rect.left() + bottomLeft, rect.bottom());
    if (bottomLeft > 0)
        path.arcTo(rect.left(), rect.bottom() - 2 * bottomLeft, 2 * bottomLeft, 2 * bottomLeft, 270, -90);
    path.lineTo(rect.left(), rect.top() + topLeft);
    if (topLeft > 0)
        path.arcTo(rect.left(), rect.top(), 2 * topLeft, 2 * topLeft, 180, -90);
    path.closeSubpath();
    return path;
}

bool sameRow(const QModelIndex& a, const QModelIndex& b) { return a.row() == b.row() && a.parent() == b.parent(); }

} // namespace

QVlorPluginsTreeView::QVlorPluginsTreeView(QWidget* parent) : QTreeView(parent) { setUniformRowHeights(true); }

void QVlorPluginsTreeView::drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const int rowHeight = option.rect.height();
    if (rowHeight > 0) {
        const QItemSelectionModel* selection = selectionModel();
        const bool selected = selection && selection->isSelected(index);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing, true);
        painter->setPen(Qt::NoPen);
        if (selected) {
            const QModelIndex above = indexAbove(index);
            const QModelIndex below = indexBelow(index);
            const bool joinTop = above.isValid() && selection->isSelected(above);
            const bool joinBottom = below.isValid() && selection->isSelected(below);
            QRectF band;
            const QPainterPath path = rowCapsulePath(this, option, index, joinTop, joinBottom, &band);
            painter->fillPath(path, option.palette.brush(QPalette::Current, QPalette::Highlight));
            if (joinBottom) {
                const double ratio = devicePixelRatioF();
                const double hair = ratio > 0 ? 1.0 / ratio : 1.0;
                const QRectF line(band.left() + 16, option.rect.top() + option.rect.height() - hair,
                                  band.width() - 16 - 6, hair);
                painter->setRenderHint(QPainter::Antialiasing, false);
                painter->fillRect(line, QColor(255, 255, 255, 0x46));
            }
        } else {
            if (((verticalOffset() + option.rect.top()) / rowHeight) % 2 == 1) {
                const double left = bandLeftAtCheckbox(this, option, index);
                const QRectF stripe(left, option.rect.top() + 1, option.rect.right() - 5 - left,
                                    option.rect.bottom() - option.rect.top() - 1);
                painter->setBrush(option.palette.brush(QPalette::Current, QPalette::AlternateBase));
                painter->drawRoundedRect(stripe, kRadius, kRadius);
            }
            if (m_hoverIndex.isValid() && sameRow(m_hoverIndex, index)) {
                const QColor tint = QVlorApplication::uiMode() == QVlorApplication::Light ? QColor(0, 0, 0, 0x0E)
                                                                                        : QColor(255, 255, 255, 0x12);
                painter->fillPath(rowCapsulePath(this, option, index, false, false, nullptr), tint);
            }
        }
        if (hasFocus() && currentIndex().isValid() && sameRow(currentIndex(), index)) {
            // Text colour over the highlight and over the ground alike: seen in both themes.
            QColor ring = option.palette.color(QPalette::Current, QPalette::Text);
            ring.setAlpha(0xC8);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(QPen(ring, 1.6));
            painter->drawPath(rowCapsulePath(this, option, index, false, false, nullptr));
        }
        painter->restore();
    }
    QTreeView::drawRow(painter, option, index);
}

// The Menu key reaches the custom menu through Qt's own context menu event;
// Shift+F10, its twin on keyboards without it, does not: it is sent the same way.
void QVlorPluginsTreeView::keyPressEvent(QKeyEvent* event)
{
    const bool menuKeys = event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier;
    if (menuKeys && contextMenuPolicy() == Qt::CustomContextMenu) {
        const QModelIndex current = currentIndex();
        if (current.isValid()) {
            if (!selectionModel()->isSelected(current))
                selectionModel()->select(current, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            emit customContextMenuRequested(visualRect(current).center());
        }
        event->accept();
        return;
    }
    QTreeView::keyPressEvent(event);
}

void QVlorPluginsTreeView::focusInEvent(QFocusEvent* event)
{
    QTreeView::focusInEvent(event);
    viewport()->update();
}

void QVlorPluginsTreeView::focusOutEvent(QFocusEvent* event)
{
    QTreeView::focusOutEvent(event);
    viewport()->update();
}

void QVlorPluginsTreeView::setHoverIndex(const QModelIndex& index)
{
    const bool wasValid = m_hoverIndex.isValid();
    if (!wasValid && !index.isValid())
        return;
    if (wasValid && index.isValid() && sameRow(m_hoverIndex, index))
        return;
    m_hoverIndex = index;
    viewport()->update();
}

void QVlorPluginsTreeView::selectionChanged(const QItemSelection& selected, const QItemSelection& deselected)
{
    QTreeView::selectionChanged(selected, deselected);
    // A change of selection alters the joins of the neighbouring rows too.
    viewport()->update();
}

bool QVlorPluginsTreeView::viewportEvent(QEvent* event)
{
    switch (event->type()) {
    case QEvent::HoverLeave:
        setHoverIndex(QModelIndex());
        break;
    case QEvent::HoverEnter:
    case QEvent::HoverMove:
        setHoverIndex(indexAt(static_cast<QHoverEvent*>(event)->position().toPoint()));
        break;
    default:
        break;
    }
    return QTreeView::viewportEvent(event);
}
