#ifndef VLOR_TEST_ROW_ACTIONS_FIXTURE_H
#define VLOR_TEST_ROW_ACTIONS_FIXTURE_H
// The page of fixture plugins with its row menu at hand: rows picked by
// clicks, the menu opened as a right click opens it, its items by their text.
#include "prefs_fixture.h"

#include "QVlorDialogs.h"
#include "QVlorPluginsMenu.h"
#include "QVlorLv2_Manager.h"
#include "QVlorSearchPathsDialog.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardItem>
#include <QTimer>

using namespace vlortest;

// Named: its fixtures are shared by several sources of one test program,
// where gtest holds a fixture to one class.
namespace rowactions {

// What a menu shows: each item's text, "--" for a separator, a submenu's
// items as "submenu>item", and "(off)" after a disabled item.
inline QStringList menuTexts(const QMenu* menu)
{
    QStringList texts;
    for (QAction* a : menu->actions()) {
        if (a->isSeparator()) {
            texts << QStringLiteral("--");
            continue;
        }
        texts << a->text() + (a->isEnabled() ? QString() : QStringLiteral(" (off)"));
        if (a->menu())
            for (QAction* inner : a->menu()->actions())
                texts << a->text() + QLatin1Char('>') + inner->text();
    }
    return texts;
}

inline QAction* actionOf(const QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

// Clicks the item of that text in the open menu; "submenu>item" opens the
// submenu first, as the pointer does.
inline void clickItem(QMenu* menu, const QString& choose)
{
    const QStringList parts = choose.split(QLatin1Char('>'));
    QAction* item = actionOf(menu, parts.first());
    if (!item) {
        ADD_FAILURE() << "no item " << parts.first().toStdString();
        menu->close();
        return;
    }
    QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(item).center());
    if (parts.size() == 1)
        return;
    QMenu* sub = item->menu();
    // A submenu opens a moment after the pointer rests on its item.
    (void)QTest::qWaitFor([sub] { return sub && sub->isVisible(); }, 3000);
    QAction* inner = sub ? actionOf(sub, parts.at(1)) : nullptr;
    if (!inner || !sub->isVisible()) {
        ADD_FAILURE() << "no open submenu item " << choose.toStdString();
        menu->close();
        return;
    }
    QTest::mouseClick(sub, Qt::LeftButton, {}, sub->actionGeometry(inner).center());
}

class RowActions : public Prefs {
protected:
    // Selects the rows by name (a click, then Ctrl+clicks), opens the context
    // menu over the first as a right click does, and gives back its texts;
    // with choose, that item is clicked. No menu gives an empty list.
    QStringList contextMenu(const QStringList& names, const QString& choose = QString())
    {
        QList<QPersistentModelIndex> rows;
        for (const QString& name : names) {
            rows << row(name);
            if (!rows.last().isValid()) {
                ADD_FAILURE() << "no row " << name.toStdString();
                return {};
            }
        }
        return contextMenuOn(rows, choose);
    }
    QStringList contextMenuOn(const QList<QPersistentModelIndex>& rows, const QString& choose = QString())
    {
        tree->clearSelection();
        for (int i = 0; i < rows.size(); ++i) {
            const QModelIndex r = rows.at(i);
            tree->scrollTo(r);
            QTest::mouseClick(tree->viewport(), Qt::LeftButton, i == 0 ? Qt::NoModifier : Qt::ControlModifier,
                              nameCell(r));
        }
        QStringList texts;
        QTimer::singleShot(0, tree, [&] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            if (!menu)
                return;
            texts = menuTexts(menu);
            if (choose.isEmpty())
                menu->close();
            else
                clickItem(menu, choose);
        });
        const QPoint at = nameCell(rows.first());
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, tree->viewport()->mapToGlobal(at));
        QCoreApplication::sendEvent(tree->viewport(), &event);
        QCoreApplication::processEvents(); // no menu: the answer above finds none, now
        return texts;
    }
    // A point on the row's name, clear of its check box and badges.
    QPoint nameCell(const QModelIndex& index) const
    {
        const QRect cell = tree->visualRect(index);
        return QPoint(cell.left() + 60, cell.center().y());
    }
    // Every row of that name, in groups too.
    QList<QPersistentModelIndex> rowsNamed(const QString& name, const QModelIndex& parent = QModelIndex()) const
    {
        QList<QPersistentModelIndex> found;
        for (int i = 0; i < tree->model()->rowCount(parent); ++i) {
            const QModelIndex child = tree->model()->index(i, 0, parent);
            if (child.data(UpmRowRole).isValid() && child.data().toString() == name)
                found << child;
            found += rowsNamed(name, child);
        }
        return found;
    }
    // The whole pairs of a VST2 plugin (a split leaves a one-sided entry behind).
    QList<QVlorPluginPairs::Entry> pairsOf(qint64 vst2Id) const
    {
        QList<QVlorPluginPairs::Entry> found;
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.vst2 == vst2Id && !e.vst3.isEmpty())
                found << e;
        return found;
    }
};

// The row of a folder under a format's row of the search paths dialog.
inline QModelIndex folderRow(QStandardItem* parent, const QString& folder)
{
    constexpr int kFolderRole = Qt::UserRole + 1;
    for (int i = 0; parent && i < parent->rowCount(); ++i)
        if (parent->child(i, 0)->data(kFolderRole).toString() == folder)
            return parent->child(i, 0)->index();
    return QModelIndex();
}

// The fixture gain in VST3 and LV2 on one row: a family.
const QString kGainUri = QStringLiteral("urn:vlor:fixture:gain");

class FamilyRows : public RowActions {
protected:
    void SetUp() override
    {
        RowActions::SetUp();
        if (HasFatalFailure())
            return;
        lv2 = scanLv2Fixtures();
        ASSERT_NE(lv2, nullptr);
        ASSERT_TRUE(waitFor([&] {
            settle();
            return !family().pairId.isEmpty() && rowOfPair(family().pairId).isValid();
        }, 20000)) << "the LV2 gain joins the VST3 gain";
    }
    // The family of the gain's LV2 form, as the store holds it.
    QVlorPluginPairs::Entry family() const
    {
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.lv2 == kGainUri)
                return e;
        return {};
    }
    QVlorLv2::Manager* lv2 = nullptr;
};

} // namespace rowactions

using namespace rowactions;

#endif
