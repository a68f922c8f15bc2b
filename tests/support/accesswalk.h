#ifndef VLOR_TEST_ACCESSWALK_H
#define VLOR_TEST_ACCESSWALK_H
// A screen reader's look at a window, through Qt's accessibility interfaces:
// every control it meets, and what would leave a person who cannot see or
// cannot use a mouse stranded: a control without a name, a plugin row that
// does not say its formats and whether it is on, a control the keyboard
// cannot reach.
#include "QVlorUnifiedRows.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSlider>
#include <QAccessible>
#include <QComboBox>
#include <QLineEdit>
#include <QScrollBar>
#include <QStringList>
#include <QTreeView>
#include <QWidget>

namespace vlortest {

struct AccessWalk {
    QStringList problems;
    QStringList controls;  // "ROLE: NAME" of each named control met
    int rowsChecked = 0;   // plugin rows whose words were checked
};

inline bool accessInteractive(QAccessible::Role role)
{
    switch (role) {
    case QAccessible::PushButton:
    case QAccessible::CheckBox:
    case QAccessible::RadioButton:
    case QAccessible::ComboBox:
    case QAccessible::EditableText:
    case QAccessible::Slider:
    case QAccessible::SpinBox:
    case QAccessible::ButtonMenu:
    case QAccessible::ButtonDropDown:
    case QAccessible::PageTab:
    case QAccessible::Tree:
    case QAccessible::Table:
    case QAccessible::List:
    case QAccessible::TreeItem:
    case QAccessible::Cell:
    case QAccessible::ListItem:
    case QAccessible::MenuItem:
    case QAccessible::ProgressBar:
        return true;
    default:
        return false;
    }
}

inline QString accessWhere(QAccessibleInterface* iface)
{
    QObject* o = iface->object();
    QString where = o ? QString::fromLatin1(o->metaObject()->className()) : QStringLiteral("item");
    if (o && !o->objectName().isEmpty())
        where += QLatin1Char('#') + o->objectName();
    return where + QStringLiteral(" (role %1)").arg(int(iface->role()));
}

// The index of a cell of a tree: its row counts the rows the tree shows.
inline QModelIndex accessCellIndex(QAccessibleInterface* cell)
{
    QAccessibleTableCellInterface* c = cell->tableCellInterface();
    QAccessibleInterface* table = cell->parent();
    auto* tree = table ? qobject_cast<QTreeView*>(table->object()) : nullptr;
    if (!c || !tree || !tree->model())
        return QModelIndex();
    QModelIndex index = tree->model()->index(0, 0);
    for (int i = 0; i < c->rowIndex() && index.isValid(); ++i)
        index = tree->indexBelow(index);
    return index.isValid() ? index.siblingAtColumn(c->columnIndex()) : QModelIndex();
}

// A plugin row says each of its forms, the one in use, and on or off.
inline void accessCheckRow(QAccessibleInterface* cell, const UnifiedRow& row, AccessWalk* walk)
{
    const QString words = cell->text(QAccessible::Name) + QLatin1Char(' ') + cell->text(QAccessible::Description);
    QStringList missing;
    const struct {
        const UnifiedFormatInfo* form;
        const char* badge;
    } forms[] = {{&row.vst2, "VST2"}, {&row.vst3, "VST3"}, {&row.lv2, "LV2"}};
    for (const auto& f : forms) {
        if (!f.form->present)
            continue;
        if (!words.contains(QLatin1String(f.badge)))
            missing << QLatin1String(f.badge);
        if (f.form->active && !words.contains(QLatin1String(f.badge) + QStringLiteral(" in use")))
            missing << QStringLiteral("%1 in use").arg(QLatin1String(f.badge));
        if (f.form->state == QLatin1String("failed") && !words.contains(QStringLiteral("failed")))
            missing << QStringLiteral("failed");
    }
    if (row.newSection == UpmNewSectionNone && !row.isShellHeader &&
        !words.contains(row.inUse() ? QStringLiteral("; on") : QStringLiteral("; off")))
        missing << QStringLiteral("on or off");
    if (!missing.isEmpty())
        walk->problems << QStringLiteral("row %1 does not say %2: \"%3\"").arg(row.name, missing.join(QStringLiteral(", ")), words);
    ++walk->rowsChecked;
}

// A control a mouse can use and the keyboard cannot reach: no Tab stop and no key.
inline bool accessMouseOnly(QWidget* w)
{
    const bool control = qobject_cast<QAbstractButton*>(w) || qobject_cast<QComboBox*>(w) ||
                         qobject_cast<QLineEdit*>(w) || qobject_cast<QAbstractSlider*>(w) ||
                         qobject_cast<QAbstractItemView*>(w);
    // A scroll bar is the keyboard's too, through the view it scrolls.
    if (!control || qobject_cast<QScrollBar*>(w) || !w->isEnabled() || (w->focusPolicy() & Qt::TabFocus))
        return false;
    auto* button = qobject_cast<QAbstractButton*>(w);
    return !(button && !button->shortcut().isEmpty());
}

inline void accessVisit(QAccessibleInterface* iface, AccessWalk* walk, int depth)
{
    if (!iface || !iface->isValid() || depth > 64 || iface->state().invisible)
        return;
    const QAccessible::Role role = iface->role();
    QString name = iface->text(QAccessible::Name).trimmed();
    // On Linux a list box's name is its current text; a reader names it by its label.
    if (role == QAccessible::ComboBox) {
        const auto labels = iface->relations(QAccessible::Label);
        name = labels.isEmpty() ? QString() : labels.first().first->text(QAccessible::Name).trimmed();
    }
    // A row's cells are told apart by the row: the tree's cells are checked by their index.
    const bool cell = role == QAccessible::TreeItem || role == QAccessible::Cell;
    if (accessInteractive(role)) {
        if (name.isEmpty())
            walk->problems << QStringLiteral("unnamed %1").arg(accessWhere(iface));
        else if (!cell)
            walk->controls << QStringLiteral("%1: %2").arg(int(role)).arg(name);
    }
    if (cell) {
        const QModelIndex index = accessCellIndex(iface);
        if (index.isValid() && index.column() == 0 && index.data(UpmRowRole).isValid())
            accessCheckRow(iface, index.data(UpmRowRole).value<UnifiedRow>(), walk);
    }
    if (auto* w = qobject_cast<QWidget*>(iface->object()); w && !cell && accessMouseOnly(w))
        walk->problems << QStringLiteral("mouse only: %1 \"%2\"").arg(accessWhere(iface), name);
    for (int i = 0; i < iface->childCount(); ++i)
        accessVisit(iface->child(i), walk, depth + 1);
}

inline AccessWalk walkAccessible(QObject* window)
{
    AccessWalk walk;
    accessVisit(QAccessible::queryAccessibleInterface(window), &walk, 0);
    return walk;
}

} // namespace vlortest

#endif
