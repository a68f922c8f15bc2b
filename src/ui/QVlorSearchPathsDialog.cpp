#include "QVlorSearchPathsDialog.h"
#include "QVlorPluginFormat.h"

#include "QVlorDialogs.h"
#include "QVlorPluginDelegates.h"
#include "QVlorPluginsTreeView.h"
#include "QVlorSetting.h"
#include "QVlorLv2_Manager.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "QVlorWidgets.h"

#include <QApplication>
#include <QAction>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QHelpEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QScopedValueRollback>
#include <QStandardItemModel>
#include <QToolTip>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int kFormatRole = Qt::UserRole;        // "vst2", "vst3" or "lv2"
constexpr int kFolderRole = Qt::UserRole + 1;    // a folder row's folder
constexpr int kUserAddedRole = Qt::UserRole + 2; // the user added the folder
constexpr int kParentRole = Qt::UserRole + 3;    // a format's row
constexpr int kTagGap = 6;

bool isParentRow(const QModelIndex& index) { return index.siblingAtColumn(0).data(kParentRole).toBool(); }

bool isChildRow(const QModelIndex& index, bool* userAdded)
{
    if (!index.parent().isValid())
        return false;
    if (userAdded)
        *userAdded = index.siblingAtColumn(0).data(kUserAddedRole).toBool();
    return true;
}

bool isScanOff(const QModelIndex& index)
{
    const QModelIndex row = isParentRow(index) ? index.siblingAtColumn(0) : index.parent().siblingAtColumn(0);
    return row.isValid() && row.data(Qt::CheckStateRole).toInt() == Qt::Unchecked;
}

QFont tagFont(const QFont& font)
{
    QFont f = font;
    if (f.pointSizeF() > 0)
        f.setPointSizeF(std::max(6.0, f.pointSizeF() * 0.82));
    else if (f.pixelSize() > 0)
        f.setPixelSize(std::max(7, int(f.pixelSize() * 0.82)));
    return f;
}

QString tagText(bool userAdded)
{
    return userAdded ? QVlorPathOriginDelegate::tr("User") : QVlorPathOriginDelegate::tr("System");
}

QStringList settingList(const char* key) { return QVlorSetting::global().getStringList(QLatin1String(key)); }
void writeSettingList(const char* key, const QStringList& list) { QVlorSetting::global().change(QLatin1String(key), list); }

// A format whose folders are kept in settings: the system's, and those the
// user added or switched off. (VST2's live in its catalog.)
struct ListedFormat {
    QString token;
    const char* customKey;
    const char* disabledKey;
    bool (*scanEnabled)();
    void (*setScanEnabled)(bool);
    QStringList (*systemPaths)();
};

QList<ListedFormat> listedFormats(const QVlorAudioPlugins::PluginManagers& m)
{
    QList<ListedFormat> formats;
    if (m.vst3)
        formats.append({QVlorAudioPlugins::Vst3Token(), QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS,
                        QVlorVst3::K_SETTING_VST3_DISABLED_PATHS, &QVlorVst3::Manager::isScanEnabled,
                        &QVlorVst3::Manager::setScanEnabled, &QVlorVst3::Manager::SystemPaths});
    if (m.lv2)
        formats.append({QVlorAudioPlugins::Lv2Token(), QVlorLv2::K_SETTING_LV2_CUSTOM_PATHS,
                        QVlorLv2::K_SETTING_LV2_DISABLED_PATHS, &QVlorLv2::Manager::isScanEnabled,
                        &QVlorLv2::Manager::setScanEnabled, &QVlorLv2::Manager::SystemPaths});
    return formats;
}

} // namespace

// The origin delegate.

QVlorPathOriginDelegate::QVlorPathOriginDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

QRectF QVlorPathOriginDelegate::buttonRect(const QRect& cell)
{
    const double side = std::max(1, cell.height() - 7);
    return QRectF(cell.right() - 1 - side + 1, cell.top() + (cell.height() - side) / 2.0, side, side);
}

QRectF QVlorPathOriginDelegate::tagRect(const QRect& cell, const QFont& font, const QString& text)
{
    const QFontMetrics metrics(tagFont(font));
    const QRectF button = buttonRect(cell);
    const double width = metrics.horizontalAdvance(text) + 10;
    const double height = metrics.height() + 2;
    return QRectF(button.left() - kTagGap - width, cell.top() + (cell.height() - height) / 2.0, width, height);
}

void QVlorPathOriginDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    bool userAdded = false;
    const bool parentRow = isParentRow(index);
    if (!parentRow && !isChildRow(index, &userAdded))
        return;
    const bool dark = option.palette.color(QPalette::Window).lightness() < 128;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    if (isScanOff(index))
        painter->setOpacity(0.4);
    const bool pressed = m_pressed.isValid() && m_pressed == QPersistentModelIndex(index);
    const QRectF button = buttonRect(option.rect);
    auto drawButton = [&](const QColor& body, QVlorPluginBadgeDelegate::BadgeBodyState state, const QColor& mark,
                          bool plus) {
        QVlorPluginBadgeDelegate::drawBadge(painter, button, pressed ? body.lighter(112) : body, state, dark,
                                            button.height() / 2.0);
        const double half = 0.42 * button.width() / 2.0;
        const QPointF c = button.center();
        painter->setPen(QPen(mark, 1.5, Qt::SolidLine, Qt::RoundCap));
        if (plus) {
            painter->drawLine(QPointF(c.x() - half, c.y()), QPointF(c.x() + half, c.y()));
            painter->drawLine(QPointF(c.x(), c.y() - half), QPointF(c.x(), c.y() + half));
        } else {
            const double h = half * 0.8;
            painter->drawLine(QPointF(c.x() - h, c.y() - h), QPointF(c.x() + h, c.y() + h));
            painter->drawLine(QPointF(c.x() - h, c.y() + h), QPointF(c.x() + h, c.y() - h));
        }
    };
    if (parentRow) {
        drawButton(QColor(22, 119, 217), QVlorPluginBadgeDelegate::BadgeBodyActive, Qt::white, true);
    } else {
        const QString text = tagText(userAdded);
        const QRectF tag = tagRect(option.rect, option.font, text);
        const QColor ink = option.palette.color(QPalette::Current, QPalette::Text);
        QColor edge = ink;
        edge.setAlphaF(0.35f);
        painter->setPen(QPen(edge, 1.0));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(tag.adjusted(0.5, 0.5, -0.5, -0.5), tag.height() / 2.0, tag.height() / 2.0);
        QColor label = ink;
        label.setAlphaF(0.75f);
        painter->setPen(label);
        painter->setFont(tagFont(option.font));
        painter->drawText(tag, Qt::AlignCenter, text);
        if (userAdded)
            drawButton(dark ? QColor(255, 255, 255, 0x38) : QColor(Qt::white),
                       QVlorPluginBadgeDelegate::BadgeBodyInactive, QColor(200, 60, 60), false);
    }
    painter->restore();
}

QSize QVlorPathOriginDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    // Rows as tall as the plugin page's, so the buttons are a finger's size.
    size.setHeight(std::max(size.height() + 5, option.fontMetrics.height() + 9));
    const QFontMetrics metrics(tagFont(option.font));
    const int tag = std::max(metrics.horizontalAdvance(tr("User")), metrics.horizontalAdvance(tr("System"))) + 10;
    const int button = std::max(1, size.height() - 7);
    size.setWidth(std::max(size.width(), tag + kTagGap + button + 4));
    return size;
}

bool QVlorPathOriginDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                          const QModelIndex& index)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease && type != QEvent::MouseButtonDblClick)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    auto* mouse = static_cast<QMouseEvent*>(event);
    bool userAdded = false;
    const bool parentRow = isParentRow(index);
    const bool hasButton = parentRow || (isChildRow(index, &userAdded) && userAdded);
    if (mouse->button() != Qt::LeftButton || !hasButton || isScanOff(index))
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    auto* view = qobject_cast<QAbstractItemView*>(const_cast<QWidget*>(option.widget));
    const bool inside = buttonRect(option.rect).contains(mouse->position());
    if (type == QEvent::MouseButtonRelease) {
        const QModelIndex was = m_pressed;
        m_pressed = QPersistentModelIndex();
        if (view && was.isValid())
            view->update(was);
        if (!inside)
            return false;
        if (parentRow)
            emit addClicked(index);
        else
            emit removeClicked(index);
        return true;
    }
    if (!inside)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    m_pressed = index;
    if (view)
        view->update(index);
    return true;
}

bool QVlorPathOriginDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                                        const QModelIndex& index)
{
    if (!event)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const QPointF point = event->pos();
    QString text;
    bool userAdded = false;
    if (isParentRow(index)) {
        if (buttonRect(option.rect).contains(point))
            text = tr("Add %1 path\u2026").arg(index.siblingAtColumn(0).data(kFormatRole).toString().toUpper());
    } else if (isChildRow(index, &userAdded)) {
        if (userAdded && buttonRect(option.rect).contains(point))
            text = tr("Remove this path");
        else if (tagRect(option.rect, option.font, tagText(userAdded)).contains(point))
            text = userAdded ? tr("Added by you") : tr("Provided by the system");
    }
    if (text.isEmpty())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    QToolTip::showText(event->globalPos(), text, view);
    return true;
}

// The dialog.

struct QVlorSearchPathsDialog::Data {
    QVlorAudioPlugins::PluginManagers managers;
    QVlorPluginsTreeView* view = nullptr;
    QStandardItemModel* model = nullptr;
    // By format: whether it was scanned, and its folders and whether each was on, as last applied.
    QMap<QString, bool> originalScan;
    QMap<QString, QMap<QString, bool>> originalPaths;
    bool reloading = false;
};

QVlorSearchPathsDialog::QVlorSearchPathsDialog(QWidget* parent)
    : QVlorSearchPathsDialog(QVlorAudioPlugins::PluginManagers::installed(), parent)
{
}

QVlorSearchPathsDialog::QVlorSearchPathsDialog(const QVlorAudioPlugins::PluginManagers& managers, QWidget* parent)
    : QDialog(parent), d(new Data)
{
    d->managers = managers;
    setWindowTitle(tr("Manage Search Paths"));
    resize(520, 380);
    auto* layout = new QVBoxLayout(this);
    d->view = new QVlorPluginsTreeView(this);
    d->view->setObjectName(QStringLiteral("searchPathsTree"));
    d->model = new QStandardItemModel(this);
    d->view->setModel(d->model);
    d->view->setHeaderHidden(true);
    d->view->setRootIsDecorated(true);
    d->view->setSelectionBehavior(QAbstractItemView::SelectRows);
    d->view->setSelectionMode(QAbstractItemView::NoSelection);
    d->view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    d->view->setMouseTracking(true);
    d->view->setContextMenuPolicy(Qt::CustomContextMenu);
    d->view->setItemDelegateForColumn(0, new QVlorColNameMarginDelegate(6, d->view));
    auto* origin = new QVlorPathOriginDelegate(d->view);
    d->view->setItemDelegateForColumn(1, origin);
    QFile style(QStringLiteral(":/styles/qvlorpluginsprefs_qtreeview.qss"));
    if (style.open(QIODevice::ReadOnly))
        d->view->setStyleSheet(QString::fromUtf8(style.readAll()));
    else
        qWarning("QVlorSearchPathsDialog: styles resource missing, tree falls back to the default style");
    layout->addWidget(d->view, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QVlorSearchPathsDialog::reject);

    connect(d->model, &QStandardItemModel::itemChanged, this, &QVlorSearchPathsDialog::onItemChanged);
    connect(origin, &QVlorPathOriginDelegate::addClicked, this,
            [this](const QModelIndex& index) { addPathFor(index.siblingAtColumn(0).data(kFormatRole).toString()); });
    connect(origin, &QVlorPathOriginDelegate::removeClicked, this, [this](const QModelIndex& index) {
        const QModelIndex row = index.siblingAtColumn(0);
        removePath(row.data(kFormatRole).toString(), row.data(kFolderRole).toString());
    });
    connect(d->view, &QWidget::customContextMenuRequested, this, &QVlorSearchPathsDialog::showContextMenu);
    // The painted buttons' keys: Insert adds a folder to the current row's
    // format, Delete removes the current folder the user added.
    d->view->setAccessibleName(tr("Search paths"));
    d->view->setAccessibleDescription(tr("Space switches a format or a folder on or off; Insert adds a folder; "
                                         "Delete removes a folder you added"));
    auto* add = new QAction(tr("Add Path..."), d->view);
    add->setShortcut(QKeySequence(Qt::Key_Insert));
    auto* remove = new QAction(tr("Remove"), d->view);
    remove->setShortcut(QKeySequence(QKeySequence::Delete));
    for (QAction* a : {add, remove}) {
        a->setShortcutContext(Qt::WidgetShortcut);
        d->view->addAction(a);
    }
    connect(add, &QAction::triggered, this,
            [this] { addPathFor(d->view->currentIndex().siblingAtColumn(0).data(kFormatRole).toString()); });
    connect(remove, &QAction::triggered, this, [this] {
        const QModelIndex row = d->view->currentIndex().siblingAtColumn(0);
        if (row.isValid() && row.data(kUserAddedRole).toBool() && !row.data(kParentRole).toBool())
            removePath(row.data(kFormatRole).toString(), row.data(kFolderRole).toString());
    });
    reload();
}

QVlorSearchPathsDialog::~QVlorSearchPathsDialog() { delete d; }

// No way out drops the edits: closing, by any means, applies them.
void QVlorSearchPathsDialog::accept()
{
    applyChanges();
    QDialog::accept();
}

void QVlorSearchPathsDialog::reject() { accept(); }

QStandardItem* QVlorSearchPathsDialog::parentItemFor(const QString& format) const
{
    for (int i = 0; i < d->model->rowCount(); ++i) {
        QStandardItem* item = d->model->item(i, 0);
        if (item && item->data(kFormatRole).toString() == format)
            return item;
    }
    return nullptr;
}

QStandardItem* QVlorSearchPathsDialog::buildParent(const QString& format)
{
    auto* item = new QStandardItem(format.toUpper());
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
    item->setCheckState(d->originalScan.value(format) ? Qt::Checked : Qt::Unchecked);
    item->setData(format, kFormatRole);
    item->setData(tr("Scan %1 plugins").arg(format.toUpper()), Qt::ToolTipRole);
    item->setData(true, kParentRole);
    auto* origin = new QStandardItem;
    origin->setData(tr("Add %1 path").arg(format.toUpper()), Qt::AccessibleTextRole);
    origin->setFlags(Qt::ItemIsEnabled);
    d->model->appendRow({item, origin});
    return item;
}

void QVlorSearchPathsDialog::appendPathRow(QStandardItem* parent, const QString& format, const QString& path,
                                           bool enabled, bool userAdded)
{
    auto* item = new QStandardItem(path);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
    item->setCheckState(enabled ? Qt::Checked : Qt::Unchecked);
    item->setData(format, kFormatRole);
    item->setData(path, kFolderRole);
    item->setData(path, Qt::ToolTipRole);
    item->setData(userAdded, kUserAddedRole);
    item->setData(userAdded ? tr("added by you") : tr("provided by the system"), Qt::AccessibleDescriptionRole);
    auto* origin = new QStandardItem;
    origin->setData(userAdded ? tr("Added by you, Delete removes it") : tr("Provided by the system"),
                    Qt::AccessibleTextRole);
    origin->setFlags(Qt::ItemIsEnabled);
    parent->appendRow({item, origin});
}

void QVlorSearchPathsDialog::dimChildren(QStandardItem* parent, bool dim)
{
    const QSignalBlocker blocker(d->model);
    const QBrush disabled = palette().brush(QPalette::Disabled, QPalette::Text);
    for (int row = 0; row < parent->rowCount(); ++row)
        for (int column = 0; column < parent->columnCount(); ++column)
            if (QStandardItem* child = parent->child(row, column)) {
                if (dim)
                    child->setData(disabled, Qt::ForegroundRole);
                else
                    child->setData(QVariant(), Qt::ForegroundRole);
            }
    d->view->viewport()->update();
}

void QVlorSearchPathsDialog::reload()
{
    d->originalPaths.clear();
    d->originalScan.clear();
    d->originalScan.insert(QVlorAudioPlugins::Vst2Token(), QVlorVst::Manager::isScanEnabled());
    {
        // The view must hear of the new rows; only the reactions to edits wait.
        const QScopedValueRollback<bool> reloading(d->reloading, true);
        d->model->clear();
        d->model->setColumnCount(2);
        if (QVlorVst::Manager* m2 = d->managers.vst2.data()) {
            QStandardItem* parent = buildParent(QVlorAudioPlugins::Vst2Token());
            for (const QVlorVst::Path& path : m2->pathsCopy()) {
                if (!path.isSearched())
                    continue;
                d->originalPaths[QVlorAudioPlugins::Vst2Token()].insert(path.absolutePath(), path.isEnabled());
                appendPathRow(parent, QVlorAudioPlugins::Vst2Token(), path.absolutePath(), path.isEnabled(),
                              path.kind() != QVlorVst::SystemPath);
            }
            dimChildren(parent, !QVlorVst::Manager::isScanEnabled());
        }
        for (const ListedFormat& f : listedFormats(d->managers)) {
            d->originalScan.insert(f.token, f.scanEnabled());
            QStandardItem* parent = buildParent(f.token);
            const QStringList custom = settingList(f.customKey);
            const QStringList disabled = settingList(f.disabledKey);
            const QStringList system = f.systemPaths();
            QMap<QString, bool>& original = d->originalPaths[f.token];
            for (const QString& folder : system + custom) {
                if (original.contains(folder))
                    continue;
                original.insert(folder, !disabled.contains(folder));
                appendPathRow(parent, f.token, folder, !disabled.contains(folder), !system.contains(folder));
            }
            dimChildren(parent, !f.scanEnabled());
        }
    }
    d->view->header()->setStretchLastSection(false);
    d->view->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    d->view->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    d->view->expandAll();
}

void QVlorSearchPathsDialog::addPathFor(const QString& format)
{
    QString folder = QVlorFileDialog::getExistingDirectory(this, tr("Select Directory"), QDir::homePath(),
                                                           QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty())
        return;
    folder = QDir::toNativeSeparators(QDir::cleanPath(folder));
    folder.replace(QStringLiteral(":\\\\"), QStringLiteral("://"));
    QStandardItem* parent = parentItemFor(format);
    if (!parent)
        return;
    for (int i = 0; i < parent->rowCount(); ++i)
        if (parent->child(i, 0)->data(kFolderRole).toString() == folder)
            return;
    appendPathRow(parent, format, folder, true, true);
    if (parent->checkState() != Qt::Checked)
        dimChildren(parent, true);
    d->view->expand(parent->index());
}

void QVlorSearchPathsDialog::removePath(const QString& format, const QString& path)
{
    QStandardItem* parent = parentItemFor(format);
    if (!parent)
        return;
    for (int i = 0; i < parent->rowCount(); ++i)
        if (parent->child(i, 0)->data(kFolderRole).toString() == path) {
            parent->removeRow(i);
            return;
        }
}

void QVlorSearchPathsDialog::onItemChanged(QStandardItem* item)
{
    if (d->reloading)
        return;
    if (item->column() == 0 && item->data(kParentRole).toBool())
        dimChildren(item, item->checkState() != Qt::Checked);
}

void QVlorSearchPathsDialog::showContextMenu(const QPoint& pos)
{
    const QModelIndex index = d->view->indexAt(pos).siblingAtColumn(0);
    if (!index.isValid())
        return;
    const QString format = index.data(kFormatRole).toString();
    const QString folder = index.data(kFolderRole).toString();
    const bool removable = !index.data(kParentRole).toBool() && index.data(kUserAddedRole).toBool();
    // A format's row offers what its painted "+" does: the menu is the keyboard's way to it.
    QMenu menu(this);
    QAction* add = index.data(kParentRole).toBool() ? menu.addAction(tr("Add %1 path...").arg(format.toUpper())) : nullptr;
    QAction* remove = removable ? menu.addAction(tr("Remove")) : nullptr;
    if (menu.isEmpty())
        return;
    QVlorStyle::updateMenuStylesheet(&menu, QString());
    QAction* chosen = menu.exec(d->view->viewport()->mapToGlobal(pos));
    if (chosen && chosen == remove)
        removePath(format, folder);
    else if (chosen && chosen == add)
        addPathFor(format);
}

// One format's edits: its scan switch, and its folders added, removed,
// switched on and off. Whether a scan is due; *changed when anything was.
bool QVlorSearchPathsDialog::applyFormat(QStandardItem* parent, bool* changed)
{
    const QString token = parent->data(kFormatRole).toString();
    const bool vst2 = token == QVlorAudioPlugins::Vst2Token();
    QVlorVst::Manager* m2 = d->managers.vst2.data();
    const QList<ListedFormat> formats = listedFormats(d->managers);
    const auto listed = std::find_if(formats.begin(), formats.end(), [&](const ListedFormat& f) { return f.token == token; });
    if (vst2 ? !m2 : listed == formats.end())
        return false;
    bool needScan = false;
    const bool scan = parent->checkState() == Qt::Checked;
    if (scan != d->originalScan.value(token)) {
        if (vst2)
            QVlorVst::Manager::setScanEnabled(scan);
        else
            listed->setScanEnabled(scan);
        *changed = true;
        needScan = scan;
    }
    QMap<QString, bool> current;
    for (int row = 0; row < parent->rowCount(); ++row) {
        const QStandardItem* child = parent->child(row, 0);
        current.insert(child->data(kFolderRole).toString(), child->checkState() == Qt::Checked);
    }
    QMap<QString, bool>& original = d->originalPaths[token];
    QStringList custom = vst2 ? QStringList() : settingList(listed->customKey);
    QStringList disabled = vst2 ? QStringList() : settingList(listed->disabledKey);
    const QStringList customBefore = custom, disabledBefore = disabled;
    for (auto it = original.constBegin(); it != original.constEnd(); ++it) {
        if (current.contains(it.key()))
            continue;
        *changed = true;
        if (vst2) {
            m2->deletePath(it.key());
            continue;
        }
        custom.removeAll(it.key());
        if (QVlorVst3::Manager* m3 = d->managers.vst3.data(); m3 && token == QVlorAudioPlugins::Vst3Token())
            m3->purgeUnprobedUnder(it.key());
    }
    for (auto it = current.constBegin(); it != current.constEnd(); ++it) {
        const bool added = !original.contains(it.key());
        if (!added && original.value(it.key()) == it.value())
            continue;
        *changed = true;
        needScan = needScan || it.value();
        if (vst2)
            added ? m2->addPath(it.key()) : it.value() ? m2->enablePath(it.key()) : m2->disablePath(it.key());
        else if (added && !custom.contains(it.key()))
            custom << it.key();
        else if (!added && it.value())
            disabled.removeAll(it.key());
        else if (!added && !disabled.contains(it.key()))
            disabled << it.key();
    }
    // What is applied is the new starting point: a second close finds nothing to do.
    original = current;
    d->originalScan.insert(token, scan);
    if (!vst2 && custom != customBefore)
        writeSettingList(listed->customKey, custom);
    if (!vst2 && disabled != disabledBefore)
        writeSettingList(listed->disabledKey, disabled);
    return needScan;
}

void QVlorSearchPathsDialog::applyChanges()
{
    bool changed = false;
    QSet<QString> scans;
    for (int i = 0; i < d->model->rowCount(); ++i)
        if (applyFormat(d->model->item(i, 0), &changed))
            scans.insert(d->model->item(i, 0)->data(kFormatRole).toString());
    if (QVlorVst::Manager* m2 = d->managers.vst2.data(); m2 && scans.contains(QVlorAudioPlugins::Vst2Token()))
        m2->updatePlugins(false, false);
    if (QVlorVst3::Manager* m3 = d->managers.vst3.data(); m3 && scans.contains(QVlorAudioPlugins::Vst3Token()))
        m3->searchPlugins(false);
    if (QVlorLv2::Manager* lv2 = d->managers.lv2.data(); lv2 && scans.contains(QVlorAudioPlugins::Lv2Token()))
        lv2->searchPlugins(false);
    if (scans.isEmpty() && changed)
        emit pathsChanged();
}
