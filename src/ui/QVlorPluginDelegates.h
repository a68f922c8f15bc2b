#ifndef QVLORPLUGINDELEGATES_H
#define QVLORPLUGINDELEGATES_H
// The painters of the plugin tree's columns: the format badges (which are
// also the switch of a pair's active format, or a raw row's "Add" button),
// the state icon or wheel, and the name column's margin.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPluginFormat.h"
#include "QVlorUnifiedPluginsModel.h"

#include <QFont>
#include <QHash>
#include <QPersistentModelIndex>
#include <QPixmap>
#include <QSet>
#include <QStyledItemDelegate>

class QMovie;
class QAbstractItemView;

class QVLOR_PLUGINS_EXPORT QVlorPluginBadgeDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    enum BadgeBodyState { BadgeBodyActive = 0, BadgeBodyInactive = 1, BadgeBodyDisabled = 2 };

    explicit QVlorPluginBadgeDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

    // Slot 0 holds the VST2 badge, slot 1 the VST3 badge, slot 2 the LV2
    // badge or a raw row's button: the rightmost.
    static constexpr int kSlots = 3;
    static constexpr int kAddSlot = kSlots - 1;
    static QRectF slotRect(const QRect& cell, int slot, const QFontMetrics& metrics, int badgeHeight);
    static int preferredColumnWidth(const QFontMetrics& metrics);
    static void drawBadge(QPainter* painter, const QRectF& rect, const QColor& color, BadgeBodyState state, bool dark,
                          double radius);

    void setPressed(const QWidget* view, const QModelIndex& index, int slot);
    void clearPressed(const QWidget* view);

signals:
    void activeFormatClicked(const QModelIndex& index, const QString& format);
    void rawAddClicked(const QModelIndex& index);

private:
    void paintBadgeSlot(QPainter* painter, const QPalette& palette, const QRectF& rect, const UnifiedFormatInfo& info,
                        const QVlorAudioPlugins::PluginFormat& format, bool gray, bool pressed) const;

    QPersistentModelIndex pressedIndex;
    int pressedSlot = -1;
    mutable QFont m_badgeFontSource;
    mutable int m_badgeFontHeight = -1;
    mutable QFont m_badgeFont;
};

class QVLOR_PLUGINS_EXPORT QVlorPluginStateDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit QVlorPluginStateDelegate(QAbstractItemView* view);
    ~QVlorPluginStateDelegate() override;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    static int preferredColumnWidth();

    // Whether the wheel runs, for tests and for the page's idle state.
    bool isAnimating() const;

private slots:
    void onMovieFrameChanged();

private:
    struct QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

class QVLOR_PLUGINS_EXPORT QVlorColNameMarginDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit QVlorColNameMarginDelegate(int margin, QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

private:
    int margin;
};

#endif
