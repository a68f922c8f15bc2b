// The reference editor for a person who does not see the screen or does not
// use a mouse: every window a screen reader walks is named throughout, and a
// whole job is done with keys alone, from the plugin manager to an undo.
#include "gui_fixture.h"

#include "QVlorAccessible.h"
#include "accesswalk.h"

#include <QApplication>
#include <QUndoStack>

namespace {

// Presses a key on whatever has the focus, as a keyboard does.
void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QWidget* target = QApplication::activePopupWidget() ? QApplication::activePopupWidget() : QApplication::focusWidget();
    ASSERT_NE(target, nullptr) << "nothing has the focus";
    QTest::keyClick(target, Qt::Key(key), modifiers);
}

// Tab until the focus is on a widget that passes; false after a lap.
template <typename Pass>
bool tabTo(Pass pass)
{
    for (int i = 0; i < 60; ++i) {
        if (QApplication::focusWidget() && pass(QApplication::focusWidget()))
            return true;
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCoreApplication::processEvents(); // as between a person's keys
    }
    return false;
}

// Down in the open menu until its current item has that text; Right opens a submenu.
bool menuDownTo(const QString& text)
{
    for (int i = 0; i < 80; ++i) {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu)
            return false;
        if (menu->activeAction() && menu->activeAction()->text() == text)
            return true;
        QTest::keyClick(menu, Qt::Key_Down);
    }
    return false;
}

UnifiedRow currentRow(QTreeView* tree) { return tree->currentIndex().siblingAtColumn(0).data(UpmRowRole).value<UnifiedRow>(); }

} // namespace

TEST_F(Gui, EveryWindowAScreenReaderMeetsIsNamedThroughout)
{
    QStringList covered;
    auto expectNamed = [&covered](QObject* window, const char* what) {
        const vlortest::AccessWalk walk = vlortest::walkAccessible(window);
        EXPECT_TRUE(walk.problems.isEmpty()) << what << ":\n" << walk.problems.join(QLatin1Char('\n')).toStdString();
        covered << QStringLiteral("%1 (%2 controls): %3")
                       .arg(QLatin1String(what))
                       .arg(walk.controls.size())
                       .arg(walk.controls.join(QStringLiteral(", ")));
    };
    expectNamed(window.get(), "main window");

    // The selection by keys, in words.
    vlorfx::WaveformView* wave = window->waveform();
    wave->setFocus();
    for (int i = 0; i < 5; ++i)
        QTest::keyClick(wave, Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_EQ(wave->selectionEnd() - wave->selectionStart(), 5 * 4410);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(wave)->text(QAccessible::Description),
              QStringLiteral("Selection from 0:00.000 to 0:00.500, length 0.500 seconds"));
    QTest::keyClick(wave, Qt::Key_Home);
    EXPECT_TRUE(QAccessible::queryAccessibleInterface(wave)->text(QAccessible::Description).startsWith(QStringLiteral("No selection")));

    QMenu* plugins = pluginsMenu();
    ASSERT_NE(plugins, nullptr);
    plugins->popup(window->mapToGlobal(QPoint(20, 20)));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(plugins));
    expectNamed(plugins, "Plugins menu");
    plugins->close();

    window->showQuickOpen();
    auto* quick = window->findChild<vlorfx::QuickOpenDialog*>();
    ASSERT_NE(quick, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(quick));
    QTest::keyClicks(quick->field(), QStringLiteral("zam"));
    expectNamed(quick, "Quick Open");
    EXPECT_FALSE(quick->list()->item(0)->data(Qt::AccessibleDescriptionRole).toString().isEmpty());
    quick->close();

    window->showPreferences();
    auto* prefs = window->findChild<QDialog*>(QStringLiteral("preferencesDialog"));
    ASSERT_NE(prefs, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(prefs));
    expectNamed(prefs, "plugin manager");
    prefs->hide();

    QAction* zam = entry(plugins, QStringLiteral("ZamComp \u00B7 VST3"));
    ASSERT_NE(zam, nullptr);
    zam->trigger();
    vlorfx::EffectDialog* dialog = window->effectDialog();
    ASSERT_NE(dialog, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog));
    expectNamed(dialog, "effect dialog");
    dialog->close();
    std::cout << covered.join(QLatin1Char('\n')).toStdString() << std::endl;
}

// The whole job with keys alone: the manager from the Tools menu, the filter,
// the product's row, its VST2 form, off and on again, the dialog from the
// Plugins menu, a parameter, Apply, Undo.
TEST_F(Gui, AKeyboardAloneOpensTheManagerSwitchesAFormAppliesAnEffectAndUndoes)
{
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    window->waveform()->setFocus();
    const QVector<float> input = window->document()->samples();

    // Tools > Preferences..., by its mnemonics.
    press(Qt::Key_T, Qt::AltModifier);
    ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activePopupWidget() != nullptr; }, 3000)) << "Alt+T opens Tools";
    press(Qt::Key_P);
    auto* prefs = window->findChild<QDialog*>(QStringLiteral("preferencesDialog"));
    ASSERT_NE(prefs, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowActive(prefs));
    auto* page = prefs->findChild<QVlorPluginsPrefs*>();
    auto* tree = prefs->findChild<QTreeView*>(QStringLiteral("vstPluginsTreeView"));
    auto* filter = prefs->findChild<QVlorBoxEditor*>(QStringLiteral("filterBox"));
    ASSERT_TRUE(page && tree && filter);
    ASSERT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == prefs; }, 3000))
        << "the manager keeps the keys: "
        << (QApplication::activeWindow() ? QApplication::activeWindow()->metaObject()->className() : "none");
    ASSERT_TRUE(tabTo([&](QWidget* w) { return w == filter->lineEdit(); })) << "Tab reaches the filter";
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("ZamComp"));
    ASSERT_TRUE(tabTo([&](QWidget* w) { return w == tree; })) << "Tab reaches the plugins";
    for (int i = 0; i < 10 && currentRow(tree).name != QStringLiteral("ZamComp"); ++i)
        press(Qt::Key_Down);
    ASSERT_EQ(currentRow(tree).name, QStringLiteral("ZamComp"));
    EXPECT_TRUE(currentRow(tree).vst3.active);

    press(Qt::Key_1, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return currentRow(tree).vst2.active;
    }, 10000)) << "Ctrl+1 uses the VST2 form";
    press(Qt::Key_Space);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !currentRow(tree).inUse();
    }, 10000)) << "Space turns it off";
    press(Qt::Key_Space);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return currentRow(tree).inUse() && !UpmRowBusy(currentRow(tree));
    }, 30000)) << "and on again";
    EXPECT_TRUE(tree->hasFocus());
    press(Qt::Key_Escape);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !prefs->isVisible(); }, 3000));

    // The Plugins menu: from File along the menu bar, then down to the entry.
    // (Off screen no window manager hands the keys back to the window a
    // closed dialog leaves: it is done here as one would.)
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    QMenu* plugins = pluginsMenu();
    ASSERT_TRUE(QTest::qWaitFor([&] { return entry(plugins, QStringLiteral("ZamComp \u00B7 VST2")) != nullptr; }, 20000));
    window->waveform()->setFocus();
    press(Qt::Key_F, Qt::AltModifier);
    for (int i = 0; i < 6 && QApplication::activePopupWidget() != plugins; ++i)
        press(Qt::Key_Right);
    ASSERT_EQ(QApplication::activePopupWidget(), plugins) << "Right walks the menu bar to Plugins";
    QAction* zam = entry(plugins, QStringLiteral("ZamComp \u00B7 VST2"));
    QMenu* group = nullptr;
    for (QAction* a : plugins->actions())
        if (a->menu() && a->menu()->actions().contains(zam))
            group = a->menu();
    if (group) {
        ASSERT_TRUE(menuDownTo(group->menuAction()->text()));
        press(Qt::Key_Right);
    }
    ASSERT_TRUE(menuDownTo(zam->text()));
    press(Qt::Key_Return);

    vlorfx::EffectDialog* dialog = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (dialog = window->effectDialog()) != nullptr; }, 5000));
    ASSERT_TRUE(QTest::qWaitForWindowActive(dialog));
    EXPECT_EQ(dialog->format(), QStringLiteral("vst2"));
    const vlortest::AccessWalk walk = vlortest::walkAccessible(dialog);
    EXPECT_TRUE(walk.problems.isEmpty()) << "the VST2 panel:\n" << walk.problems.join(QLatin1Char('\n')).toStdString();
    QSlider* slider = nullptr;
    // The makeup gain: a change of it is heard on a quiet signal.
    ASSERT_TRUE(tabTo([&](QWidget* w) {
        slider = qobject_cast<QSlider*>(w);
        return slider && slider->accessibleName().startsWith(QStringLiteral("Makeup"));
    })) << "Tab reaches the Makeup slider";
    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(slider);
    EXPECT_FALSE(reader->text(QAccessible::Name).isEmpty());
    const QString before = reader->text(QAccessible::Value);
    for (int i = 0; i < 3; ++i)
        press(Qt::Key_PageUp);
    EXPECT_NE(reader->text(QAccessible::Value), before) << "the reader hears the new value";

    press(Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->document()->undoStack()->count() == 1; }, 30000)) << "Enter applies";
    EXPECT_NE(window->document()->samples(), input);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->effectDialog(); }, 5000));
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    press(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(window->document()->undoStack()->index(), 0) << "Ctrl+Z undoes";
    EXPECT_EQ(window->document()->samples(), input);
}
