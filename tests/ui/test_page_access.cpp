// The plugin manager page and its search paths dialog as a screen reader and
// a keyboard meet them: every control named, every plugin row saying its
// formats, the one in use, on or off and what failed; keys for what the
// badges and the painted buttons do; a scan and a failed check told without
// moving the focus.
#include "row_actions_fixture.h"

#include "QVlorAccessible.h"
#include "QVlorPluginLibrary.h"
#include "accesswalk.h"

#include <QAccessible>

namespace {

// What the page tells a reader of its own accord, caught where it is told,
// with what a reader finds on the notification object at that moment.
struct Heard {
    Heard()
    {
        QVlorAccessible::setListener([this](QWidget* notification, const QString& text, QVlorAccessible::Urgency urgency) {
            QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(notification);
            if (!reader || reader->role() != QAccessible::Notification || reader->text(QAccessible::Name) != text ||
                reader->state().invisible)
                return;
            (urgency == QVlorAccessible::Alert ? alerts : said) << text;
        });
    }
    ~Heard() { QVlorAccessible::setListener({}); }
    QStringList said;
    QStringList alerts;
};

QAction* treeAction(QWidget* tree, const QString& name)
{
    for (QAction* a : tree->actions())
        if (a->objectName() == name)
            return a;
    return nullptr;
}

} // namespace

TEST_F(FamilyRows, EveryControlOfThePageIsNamedAndEveryRowSaysItsFormsAndState)
{
    const AccessWalk walk = walkAccessible(page.get());
    EXPECT_TRUE(walk.problems.isEmpty()) << walk.problems.join(QLatin1Char('\n')).toStdString();
    EXPECT_GE(walk.rowsChecked, 4);
    for (const char* control : {"Plugins", "Filter plugins", "Show plugins", "Group plugins", "Manage Search Paths...",
                                "Rescan Plugins"})
        EXPECT_TRUE(std::any_of(walk.controls.begin(), walk.controls.end(),
                                [&](const QString& c) { return c.endsWith(QLatin1String(": ") + QLatin1String(control)); }))
            << control << " in " << walk.controls.join(QLatin1Char('|')).toStdString();

    // What each row says, in full, a table.
    QVlorPluginLibrary::instance()->setFavourite(UpmRowIdentities(rowOf(rowOfPair(family().pairId))), true);
    settle();
    struct Case {
        QModelIndex index;
        const char* says;
    } cases[] = {
        {rowOfPair(family().pairId), "by Vlor Fixtures; Formats: VST3 in use, LV2; on; favourite"},
        {row(QStringLiteral("Vlor Fixture Stereo")), "VST2 in use"},
        {row(QStringLiteral("Fixture Fails")), "VST3 in use failed"},
        {rowOfPair(family().pairId).parent(), "plugin file, 4 plugins"},
        {rowOfPair(family().pairId).parent().parent(), "maker, "},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(c.index.isValid()) << c.says;
        EXPECT_TRUE(c.index.data(Qt::AccessibleDescriptionRole).toString().contains(QLatin1String(c.says)))
            << c.index.data(Qt::AccessibleDescriptionRole).toString().toStdString();
    }
    // The badges' and the state's columns are named by what they show.
    const QModelIndex gain = rowOfPair(family().pairId);
    EXPECT_EQ(gain.siblingAtColumn(1).data(Qt::AccessibleTextRole).toString(), QStringLiteral("Formats: VST3 in use, LV2"));
    EXPECT_EQ(gain.siblingAtColumn(2).data(Qt::AccessibleTextRole).toString(), QStringLiteral("on"));
    EXPECT_EQ(row(QStringLiteral("Fixture Fails")).siblingAtColumn(2).data(Qt::AccessibleTextRole).toString(),
              QStringLiteral("failed"));
}

// The keys do what the badges and the right click do, and the keyboard's
// place survives the rebuild each switch makes.
TEST_F(FamilyRows, KeysSwitchTheFormOpenTheRowMenuAndKeepTheirPlace)
{
    const QString pairId = family().pairId;
    page->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(page.get()));
    tree->setFocus();
    tree->setCurrentIndex(rowOfPair(pairId));
    QAction* useLv2 = treeAction(tree, QStringLiteral("use_lv2"));
    QAction* useVst2 = treeAction(tree, QStringLiteral("use_vst2"));
    ASSERT_TRUE(useLv2 && useVst2);
    EXPECT_TRUE(useLv2->isEnabled());
    EXPECT_FALSE(useVst2->isVisible()) << "the family has no VST2 form";

    QTest::keyClick(tree, Qt::Key_3, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().activeFormat == QStringLiteral("lv2");
    }, 10000));
    EXPECT_EQ(tree->currentIndex().siblingAtColumn(0), rowOfPair(pairId).siblingAtColumn(0));
    EXPECT_TRUE(rowOf(rowOfPair(pairId)).inUse()) << "a switch keeps the product on";
    EXPECT_TRUE(treeAction(tree, QStringLiteral("use_lv2"))->isChecked());

    // Space turns it off where the keyboard stands.
    QTest::keyClick(tree, Qt::Key_Space);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !rowOf(rowOfPair(pairId)).inUse();
    }, 10000));

    // Shift+F10 and the Menu key open the row's menu, with the forms in it; the keys choose.
    for (int way = 0; way < 2; ++way) {
        QStringList texts;
        bool chosen = false;
        QTimer::singleShot(0, tree, [&] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            if (!menu)
                return;
            texts = menuTexts(menu);
            // Down to "Use VST3", then Enter.
            for (int i = 0; i < 20 && (!menu->activeAction() || menu->activeAction()->text() != QStringLiteral("Use VST3")); ++i)
                QTest::keyClick(menu, Qt::Key_Down);
            chosen = menu->activeAction() && menu->activeAction()->text() == QStringLiteral("Use VST3");
            QTest::keyClick(menu, chosen && way == 0 ? Qt::Key_Return : Qt::Key_Escape);
        });
        if (way == 0) {
            QTest::keyClick(tree, Qt::Key_F10, Qt::ShiftModifier);
        } else {
            // The Menu key arrives as the window system sends it: a context menu event from the keyboard.
            const QPoint at = tree->visualRect(tree->currentIndex()).center();
            QContextMenuEvent event(QContextMenuEvent::Keyboard, at, tree->mapToGlobal(at));
            QCoreApplication::sendEvent(tree, &event);
        }
        EXPECT_TRUE(texts.contains(QStringLiteral("Use VST3")) && texts.contains(QStringLiteral("Use LV2 (off)")) &&
                    texts.contains(QStringLiteral("Favourite")))
            << way << ": " << texts.join(QLatin1Char('|')).toStdString();
        EXPECT_TRUE(chosen) << way;
    }
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().activeFormat == QStringLiteral("vst3");
    }, 10000));
    EXPECT_FALSE(rowOf(rowOfPair(pairId)).inUse()) << "off in LV2, off in VST3";
    EXPECT_EQ(tree->currentIndex().siblingAtColumn(0), rowOfPair(pairId).siblingAtColumn(0));
    EXPECT_EQ(page->focusWidget(), tree) << "the focus is back on the plugins";

    // A product being checked switches nothing: its keys are off until the check ends.
    vst3->markClassesVerifying({kGain});
    ASSERT_TRUE(waitFor([&] {
        settle();
        return UpmRowBusy(rowOf(rowOfPair(pairId)));
    }, 10000));
    EXPECT_EQ(tree->currentIndex().siblingAtColumn(0), rowOfPair(pairId).siblingAtColumn(0));
    EXPECT_FALSE(treeAction(tree, QStringLiteral("use_lv2"))->isEnabled());
}

TEST_F(FamilyRows, AScanAndAFailedCheckAreToldWithoutMovingTheFocus)
{
    Heard heard;
    page->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(page.get()));
    QLineEdit* field = filter->lineEdit();
    field->setFocus();
    ASSERT_TRUE(waitFor([&] { return field->hasFocus(); }, 2000));
    ASSERT_TRUE(rescanByButton());
    field->setFocus(); // the click on the button took it
    settle();
    EXPECT_TRUE(heard.said.contains(QStringLiteral("Plugin scan finished"))) << heard.said.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(std::any_of(heard.said.begin(), heard.said.end(),
                            [](const QString& s) { return s.startsWith(QStringLiteral("Scanning plugins: ")); }));

    // The failing plugin checked again: its failure is news, told at once.
    heard.said.clear();
    click(checkBox(row(QStringLiteral("Fixture Fails"))));
    field->setFocus();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return std::any_of(heard.alerts.begin(), heard.alerts.end(),
                           [](const QString& s) { return s.contains(QStringLiteral("Fixture Fails (VST3) failed its check")); });
    }, 20000)) << heard.alerts.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(field->hasFocus()) << "the focus stays where the user works";
    // Told once: a rebuild with the same failure says nothing new.
    const int alerts = int(heard.alerts.size());
    page->rebuildRowsNow();
    settle();
    EXPECT_EQ(heard.alerts.size(), alerts);
}

// The search paths dialog: named, and its painted buttons' work done by keys.
TEST_F(RowActions, TheSearchPathsDialogIsNamedAndItsButtonsHaveKeys)
{
    QVlorSearchPathsDialog dialog;
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    const AccessWalk walk = walkAccessible(&dialog);
    EXPECT_TRUE(walk.problems.isEmpty()) << walk.problems.join(QLatin1Char('\n')).toStdString();
    auto* view = dialog.findChild<QTreeView*>(QStringLiteral("searchPathsTree"));
    ASSERT_NE(view, nullptr);
    QStandardItem* parent = dialog.parentItemFor(QStringLiteral("vst2"));
    ASSERT_NE(parent, nullptr);
    EXPECT_EQ(parent->index().siblingAtColumn(1).data(Qt::AccessibleTextRole).toString(), QStringLiteral("Add VST2 path"));

    const TempDir extra;
    const QString folder = QString::fromStdString(extra.path());
    QVlorDialogs::setAnswerer([folder](const QVlorDialogs::Question& q) {
        QVlorDialogs::Answer a;
        if (q.kind == QLatin1String("directory"))
            a.directory = folder;
        return a;
    });
    view->setFocus();
    view->setCurrentIndex(parent->index());
    QTest::keyClick(view, Qt::Key_Insert);
    const QModelIndex added = folderRow(parent, folder);
    ASSERT_TRUE(added.isValid()) << "Insert adds a folder to the current format";
    EXPECT_TRUE(added.siblingAtColumn(1).data(Qt::AccessibleTextRole).toString().startsWith(QStringLiteral("Added by you")));
    view->setCurrentIndex(added);
    QTest::keyClick(view, Qt::Key_Delete);
    // The format's row menu, by Shift+F10 and the keys, adds one too.
    QStringList offered;
    QTimer::singleShot(0, view, [&] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu)
            return;
        offered = menuTexts(menu);
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Return);
    });
    view->setCurrentIndex(parent->index());
    QTest::keyClick(view, Qt::Key_F10, Qt::ShiftModifier);
    EXPECT_EQ(offered, QStringList{QStringLiteral("Add VST2 path...")});
    EXPECT_TRUE(folderRow(parent, folder).isValid()) << "the menu's Add adds the folder";
    // (Off screen no window manager gives the dialog the keys back after a menu.)
    dialog.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
    view->setFocus();
    view->setCurrentIndex(folderRow(parent, folder));
    QTest::keyClick(view, Qt::Key_Delete);
    EXPECT_FALSE(folderRow(parent, folder).isValid()) << "Delete removes the folder the user added";
    QVlorDialogs::setAnswerer({});
    dialog.close();
}
