#include "QVlorPluginDelegates.h"
#include "QVlorPluginFormat.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QMovie>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

#include <algorithm>
#include <cmath>

namespace {

const QColor kActiveBlue(22, 119, 217);
const QColor kFailedRed(200, 60, 60);
const QString kVerifying = QStringLiteral("verifying");
const QString kMissing = QStringLiteral("missing");

QStyle* styleOf(const QStyleOptionViewItem& option)
{
    return option.widget ? option.widget->style() : QApplication::style();
}

// Badges are as tall as the row's check box, and never shorter than a line.
int CheckboxIndicatorHeight(const QStyleOptionViewItem& option)
{
    int h = styleOf(option)->pixelMetric(QStyle::PM_IndicatorHeight, &option, option.widget) - 2;
    if (h < 1)
        h = 14;
    return std::max(h, QFontMetrics(option.font).height() + 3);
}

QFont BadgeFont(const QFont& font, int height)
{
    QFont f = font;
    for (int i = 0; i < 16; ++i) {
        if (QFontMetrics(f).height() < height - 1)
            break;
        if (f.pointSizeF() > 1.0)
            f.setPointSizeF(f.pointSizeF() - 0.5);
        else if (f.pixelSize() >= 3)
            f.setPixelSize(f.pixelSize() - 1);
        else
            break;
    }
    return f;
}

bool isRawRow(const UnifiedRow& row) { return row.newSection != UpmNewSectionNone && !row.isNewPathHeader; }

bool rawAddInert(const UnifiedRow& row, const QStyleOptionViewItem& option)
{
    if (!(option.state & QStyle::State_Enabled))
        return true;
    const QString token = row.rowStateText();
    return token == kVerifying || token == kMissing;
}

bool darkPalette(const QPalette& palette) { return palette.color(QPalette::Window).lightness() < 128; }

double toLinear(double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); }
double toSrgb(double c) { return c <= 0.0031308 ? c * 12.92 : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055; }

// Mixing with white in linear light keeps the hue, where an sRGB mix greys it.
QColor OverlayWhiteLinear(const QColor& colour, double amount)
{
    auto mix = [amount](double c) { return std::clamp(toSrgb((1.0 - amount) * toLinear(c) + amount), 0.0, 1.0); };
    return QColor::fromRgbF(float(mix(colour.redF())), float(mix(colour.greenF())), float(mix(colour.blueF())),
                            colour.alphaF());
}

QColor BrightenLinear(const QColor& colour, double factor)
{
    auto up = [factor](double c) { return std::clamp(toSrgb(std::min(1.0, toLinear(c) * factor)), 0.0, 1.0); };
    return QColor::fromRgbF(float(up(colour.redF())), float(up(colour.greenF())), float(up(colour.blueF())),
                            colour.alphaF());
}

QColor withAlpha(QColor colour, double alpha)
{
    colour.setAlphaF(float(std::clamp(alpha, 0.0, 1.0)));
    return colour;
}

QPainterPath roundedPath(const QRectF& rect, double radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, std::max(0.0, radius), std::max(0.0, radius));
    return path;
}

void strokeRing(QPainter* painter, const QRectF& rect, double radius, double px, const QLinearGradient& gradient)
{
    const double half = px / 2.0;
    painter->setBrush(Qt::NoBrush);
    painter->setPen(QPen(QBrush(gradient), px));
    painter->drawPath(roundedPath(rect.adjusted(half, half, -half, -half), radius - half));
    painter->setPen(Qt::NoPen);
}

QLinearGradient vertical(const QRectF& rect)
{
    return QLinearGradient(rect.topLeft(), rect.bottomLeft());
}

} // namespace

QVlorPluginBadgeDelegate::QVlorPluginBadgeDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

QRectF QVlorPluginBadgeDelegate::slotRect(const QRect& cell, int slot, const QFontMetrics& metrics, int badgeHeight)
{
    const int advance = metrics.horizontalAdvance(QStringLiteral("VST2"));
    const int width = advance + 20;
    const int height = badgeHeight < 0 ? metrics.height() + 3 : badgeHeight;
    const double x = cell.right() - 4 - (advance + 26) * (kSlots - 1 - slot) - width + 1;
    const double y = (cell.top() + cell.bottom()) / 2 - 0.5 * height + 1.0;
    return QRectF(x, y, width, height);
}

int QVlorPluginBadgeDelegate::preferredColumnWidth(const QFontMetrics& metrics)
{
    return (metrics.horizontalAdvance(QStringLiteral("VST2")) + 26) * kSlots + 2;
}

void QVlorPluginBadgeDelegate::drawBadge(QPainter* painter, const QRectF& rect, const QColor& color, BadgeBodyState state,
                                         bool dark, double radius)
{
    if (radius < 0)
        radius = 0.22 * rect.height();
    const QPaintDevice* device = painter->device();
    const double ratio = device ? device->devicePixelRatioF() : 1.0;
    const double px = ratio > 0 ? 1.0 / ratio : 1.0;

    painter->save();
    painter->setPen(Qt::NoPen);
    painter->setRenderHint(QPainter::Antialiasing, true);

    if (state == BadgeBodyActive) {
        QLinearGradient ring = vertical(rect);
        if (dark) {
            ring.setColorAt(0.0, QColor(0x1A, 0x1A, 0x1A));
            ring.setColorAt(0.5, QColor(0x2E, 0x2E, 0x2E));
            ring.setColorAt(1.0, QColor(0x4D, 0x4D, 0x4D));
        } else {
            ring.setColorAt(0.0, withAlpha(color, 0.04));
            ring.setColorAt(1.0, withAlpha(color, 0.1));
        }
        strokeRing(painter, rect, radius, px, ring);

        const QRectF body = rect.adjusted(px, px, -px, -px);
        const double bodyRadius = std::max(0.0, radius - px);
        QLinearGradient fill = vertical(body);
        for (double t : {0.0, 0.25, 0.5, 0.75, 1.0})
            fill.setColorAt(t, dark ? BrightenLinear(color, 1.0 + (1.0 - t) * 0.2)
                                    : OverlayWhiteLinear(color, (1.0 - t) * 0.055));
        painter->setBrush(fill);
        painter->drawPath(roundedPath(body, bodyRadius));

        if (dark) {
            QLinearGradient shine = vertical(body);
            const QColor top = OverlayWhiteLinear(color, 0.2);
            shine.setColorAt(0.0, top);
            shine.setColorAt(0.45, withAlpha(top, 0.0));
            strokeRing(painter, body, bodyRadius, px, shine);
        }
    } else {
        if (state == BadgeBodyDisabled)
            painter->setOpacity(painter->opacity() * 0.5);
        const QPainterPath path = roundedPath(rect, radius);
        if (dark) {
            QLinearGradient fill = vertical(rect);
            fill.setColorAt(0.0, withAlpha(color, 0.82 * color.alphaF()));
            fill.setColorAt(1.0, withAlpha(color, 1.27 * color.alphaF()));
            painter->setBrush(fill);
            painter->drawPath(path);
        } else {
            painter->setBrush(color);
            painter->drawPath(path);
            QLinearGradient ring = vertical(rect);
            ring.setColorAt(0.0, QColor(0x40, 0x40, 0x40));
            ring.setColorAt(1.0, QColor(0x1A, 0x1A, 0x1A));
            strokeRing(painter, rect, radius, px, ring);
        }
    }
    painter->restore();
}

void QVlorPluginBadgeDelegate::paintBadgeSlot(QPainter* painter, const QPalette& palette, const QRectF& rect,
                                              const UnifiedFormatInfo& info,
                                              const QVlorAudioPlugins::PluginFormat& format, bool gray,
                                              bool pressed) const
{
    if (!info.present)
        return;
    const bool dark = darkPalette(palette);
    const QColor white = dark ? QColor(255, 255, 255, 0x38) : QColor(Qt::white);
    QColor colour;
    BadgeBodyState state;
    QColor text;
    if (gray) {
        colour = white;
        state = BadgeBodyDisabled;
        text = palette.color(QPalette::Disabled, QPalette::WindowText);
    } else if (info.active) {
        colour = kActiveBlue;
        state = BadgeBodyActive;
        text = Qt::white;
    } else {
        colour = white;
        state = BadgeBodyInactive;
        text = palette.color(QPalette::Current, QPalette::Text);
    }
    if (pressed)
        colour = colour.lighter(112);
    drawBadge(painter, rect, colour, state, dark, -1.0);

    painter->save();
    if (info.state == QLatin1String("failed") || info.state == kMissing || info.state == QLatin1String("crashed")) {
        const QColor outline = dark ? kFailedRed.lighter(140) : kFailedRed;
        text = outline;
        painter->setPen(QPen(outline, 1.0));
    } else if (info.state == kVerifying) {
        painter->setPen(QPen(palette.color(QPalette::Highlight).darker(120), 1.0));
    } else {
        painter->setPen(Qt::NoPen);
    }
    if (painter->pen().style() != Qt::NoPen) {
        // Inset by half the pen, so the line covers whole pixels and stays crisp.
        const double radius = 0.22 * rect.height();
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(rect.adjusted(0.5, 0.5, -0.5, -0.5), radius - 0.5, radius - 0.5);
    }
    if (info.state == kMissing)
        text.setAlphaF(0.4f);
    painter->setPen(text);
    const QString label = QVlorAudioPlugins::BadgeText(format, info.is32Bit);
    painter->drawText(rect, Qt::AlignCenter, label);
    painter->restore();
}

void QVlorPluginBadgeDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    UnifiedRow row;
    if (ClassifyUnifiedPluginsIndex(index, &row) != UpmIndexRow) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    opt.text.clear();
    styleOf(option)->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, option.widget);

    const int h = CheckboxIndicatorHeight(option);
    const QFontMetrics metrics(option.font);
    const bool pressedHere = pressedIndex.isValid() && pressedIndex == QPersistentModelIndex(index);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    // Every visible row paints with the same font and height: the shrinking is done once.
    if (option.font != m_badgeFontSource || h != m_badgeFontHeight) {
        m_badgeFontSource = option.font;
        m_badgeFontHeight = h;
        m_badgeFont = BadgeFont(option.font, h);
    }
    painter->setFont(m_badgeFont);
    if (isRawRow(row) && UpmRowNotAnEffect(row)) {
        // Nothing to add: the row's state icon and tooltip say why.
    } else if (isRawRow(row)) {
        const bool dark = darkPalette(option.palette);
        if (rawAddInert(row, option))
            painter->setOpacity(0.5);
        QColor colour = kActiveBlue;
        if (pressedHere && pressedSlot == kAddSlot)
            colour = colour.lighter(112);
        const QRectF rect = slotRect(option.rect, kAddSlot, metrics, h);
        drawBadge(painter, rect, colour, BadgeBodyActive, dark, -1.0);
        painter->setPen(Qt::white);
        painter->drawText(rect, Qt::AlignCenter, tr("Add"));
    } else {
        const UnifiedFormatInfo& active = row.vst3.active ? row.vst3 : row.vst2.active ? row.vst2 : row.lv2;
        const bool gray = !(option.state & QStyle::State_Enabled) || !active.present || !active.enabled || active.gated;
        // Each format in a column of its own: VST2, VST3, LV2.
        const UnifiedFormatInfo* forms[kSlots] = {&row.vst2, &row.vst3, &row.lv2};
        const QVlorAudioPlugins::PluginFormat* formats[kSlots] = {
            &QVlorAudioPlugins::Vst2Format(), &QVlorAudioPlugins::Vst3Format(), &QVlorAudioPlugins::kLv2Format};
        for (int slot = 0; slot < kSlots; ++slot)
            paintBadgeSlot(painter, option.palette, slotRect(option.rect, slot, metrics, h), *forms[slot],
                           *formats[slot], gray, pressedHere && pressedSlot == slot);
        // On a selected row the blue badge would melt into the selection: a white edge keeps it apart.
        if ((option.state & QStyle::State_Selected) && active.present && !gray) {
            const int slot = row.vst2.active ? 0 : row.vst3.active ? 1 : 2;
            const QRectF rect = slotRect(option.rect, slot, metrics, h).adjusted(0.5, 0.5, -0.5, -0.5);
            const double radius = 0.22 * rect.height();
            painter->setPen(QPen(QColor(255, 255, 255, 200), 1.0));
            painter->setBrush(Qt::NoBrush);
            painter->drawRoundedRect(rect, radius, radius);
        }
    }
    painter->restore();
}

QSize QVlorPluginBadgeDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(std::max(size.height() + 5, CheckboxIndicatorHeight(option) + 4));
    return size;
}

void QVlorPluginBadgeDelegate::setPressed(const QWidget* view, const QModelIndex& index, int slot)
{
    pressedIndex = index;
    pressedSlot = slot;
    if (auto* itemView = qobject_cast<const QAbstractItemView*>(view))
        const_cast<QAbstractItemView*>(itemView)->update(index);
}

void QVlorPluginBadgeDelegate::clearPressed(const QWidget* view)
{
    const QModelIndex was = pressedIndex;
    pressedIndex = QPersistentModelIndex();
    pressedSlot = -1;
    if (auto* itemView = qobject_cast<const QAbstractItemView*>(view); itemView && was.isValid())
        const_cast<QAbstractItemView*>(itemView)->update(was);
}

bool QVlorPluginBadgeDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                           const QModelIndex& index)
{
    const QEvent::Type type = event->type();
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick;
    const bool release = type == QEvent::MouseButtonRelease;
    UnifiedRow row;
    if ((!press && !release) || ClassifyUnifiedPluginsIndex(index, &row) != UpmIndexRow)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    auto* mouse = static_cast<QMouseEvent*>(event);
    if (mouse->button() != Qt::LeftButton)
        return QStyledItemDelegate::editorEvent(event, model, option, index);

    const QPoint point = mouse->position().toPoint();
    const int h = CheckboxIndicatorHeight(option);
    const QFontMetrics metrics(option.font);
    const QWidget* view = option.widget;

    if (isRawRow(row)) {
        if (!slotRect(option.rect, kAddSlot, metrics, h).contains(point))
            return QStyledItemDelegate::editorEvent(event, model, option, index);
        const bool inert = rawAddInert(row, option) || UpmRowNotAnEffect(row);
        if (release) {
            clearPressed(view);
            if (!inert)
                emit rawAddClicked(index);
        } else if (!inert) {
            setPressed(view, index, kAddSlot);
        }
        return true;
    }

    const UnifiedFormatInfo* forms[kSlots] = {&row.vst2, &row.vst3, &row.lv2};
    int slot = -1;
    for (int i = 0; i < kSlots && slot < 0; ++i)
        if (forms[i]->present && slotRect(option.rect, i, metrics, h).contains(point))
            slot = i;
    if (slot < 0)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    if (press) {
        setPressed(view, index, slot);
    } else {
        clearPressed(view);
        const QLatin1String tokens[kSlots] = {QVlorAudioPlugins::Vst2Token(), QVlorAudioPlugins::Vst3Token(),
                                              QVlorAudioPlugins::Lv2Token()};
        if (!row.pairId.isEmpty() && !forms[slot]->active)
            emit activeFormatClicked(index, tokens[slot]);
    }
    return true;
}

bool QVlorPluginBadgeDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                                         const QModelIndex& index)
{
    UnifiedRow row;
    if (!event || ClassifyUnifiedPluginsIndex(index, &row) != UpmIndexRow)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const int h = CheckboxIndicatorHeight(option);
    const QFontMetrics metrics(option.font);
    const QPoint point = event->pos();
    const QString failed = QStringLiteral("failed");
    QString text;
    if (isRawRow(row)) {
        if (slotRect(option.rect, kAddSlot, metrics, h).contains(point)) {
            if (row.vst3.present && row.vst3.state == failed)
                text = row.vst3.error;
            else if (row.vst2.present && row.vst2.state == failed)
                text = row.vst2.error;
        }
    } else {
        const UnifiedFormatInfo* forms[kSlots] = {&row.vst2, &row.vst3, &row.lv2};
        for (int slot = 0; slot < kSlots; ++slot)
            if (forms[slot]->present && slotRect(option.rect, slot, metrics, h).contains(point))
                text = forms[slot]->error;
    }
    if (text.isEmpty())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    QToolTip::showText(event->globalPos(), text, view);
    return true;
}

// The state column.

struct QVlorPluginStateDelegate::Data {
    QAbstractItemView* view = nullptr;
    QMovie* movie = nullptr;
    QHash<QString, QPixmap> icons;
    QHash<QString, QPixmap> scaledIcons;
    int iconWidth = 0;
    int iconHeight = 0;
    QSet<QPersistentModelIndex> animated;
};

QVlorPluginStateDelegate::QVlorPluginStateDelegate(QAbstractItemView* view) : QStyledItemDelegate(view), d(new Data)
{
    d->view = view;
    d->movie = new QMovie(QStringLiteral(":/QtVlor/icones/animated_progress.gif"), QByteArray(), this);
    d->movie->setCacheMode(QMovie::CacheAll);
    connect(d->movie, &QMovie::frameChanged, this, &QVlorPluginStateDelegate::onMovieFrameChanged);
    for (const char* token : {"failed", "crashed", "missing"})
        d->icons.insert(QLatin1String(token),
                        QPixmap(QStringLiteral(":/QtVlorAudioPlugins/icones/plugin_state_%1.png").arg(QLatin1String(token))));
}

QVlorPluginStateDelegate::~QVlorPluginStateDelegate() { delete d; }

int QVlorPluginStateDelegate::preferredColumnWidth() { return 20; }

bool QVlorPluginStateDelegate::isAnimating() const { return d->movie->state() == QMovie::Running; }

void QVlorPluginStateDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    UnifiedRow row;
    if (ClassifyUnifiedPluginsIndex(index, &row) != UpmIndexRow) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QString token = row.rowStateText();
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    opt.text.clear();
    styleOf(option)->drawControl(QStyle::CE_ItemViewItem, &opt, painter, option.widget);

    const bool verifying = token == kVerifying;
    if (!verifying && !d->icons.contains(token))
        return;
    const int side = std::min({option.rect.width(), option.rect.height(), 16});
    if (side <= 0)
        return;
    const QRect target(option.rect.right() - side + 1, option.rect.top() + (option.rect.height() - side) / 2, side, side);
    const double ratio = option.widget ? option.widget->devicePixelRatioF() : 1.0;
    const int pixels = int(std::lround(side * ratio));
    painter->save();
    painter->setRenderHint(QPainter::SmoothPixmapTransform, true);
    if (!verifying) {
        if (pixels != d->iconWidth || pixels != d->iconHeight) {
            d->scaledIcons.clear();
            d->iconWidth = pixels;
            d->iconHeight = pixels;
        }
        auto it = d->scaledIcons.find(token);
        if (it == d->scaledIcons.end())
            it = d->scaledIcons.insert(token, d->icons.value(token).scaled(QSize(pixels, pixels), Qt::KeepAspectRatio,
                                                                           Qt::SmoothTransformation));
        painter->drawPixmap(target, *it);
    } else {
        d->animated.insert(QPersistentModelIndex(index));
        if (d->movie->scaledSize() != QSize(pixels, pixels))
            d->movie->setScaledSize(QSize(pixels, pixels));
        if (d->movie->state() != QMovie::Running)
            d->movie->start();
        painter->drawPixmap(target, d->movie->currentPixmap());
    }
    painter->restore();
}

void QVlorPluginStateDelegate::onMovieFrameChanged()
{
    for (auto it = d->animated.begin(); it != d->animated.end();) {
        UnifiedRow row;
        if (!it->isValid() || ClassifyUnifiedPluginsIndex(*it, &row) != UpmIndexRow ||
            row.rowStateText() != kVerifying) {
            it = d->animated.erase(it);
            continue;
        }
        if (d->view)
            d->view->update(*it);
        ++it;
    }
    if (d->animated.isEmpty())
        d->movie->stop();
}

// The name column.

QVlorColNameMarginDelegate::QVlorColNameMarginDelegate(int margin, QObject* parent)
    : QStyledItemDelegate(parent), margin(margin)
{
}

void QVlorColNameMarginDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem shifted = option;
    shifted.rect.setLeft(shifted.rect.left() + margin);
    QStyledItemDelegate::paint(painter, shifted, index);
}

QSize QVlorColNameMarginDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.rwidth() += margin;
    return size;
}

bool QVlorColNameMarginDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                             const QModelIndex& index)
{
    QStyleOptionViewItem shifted = option;
    shifted.rect.setLeft(shifted.rect.left() + margin);
    return QStyledItemDelegate::editorEvent(event, model, shifted, index);
}
