// The plugin tree's context menu and the search paths dialog, used as a user
// uses them: rows selected by clicks, the menu opened as a right click opens
// it and its items clicked by their text; the dialog's buttons clicked and the
// dialog closed by each of its ways out.
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

namespace {

// What a menu shows: each item's text, "--" for a separator, a submenu's
// items as "submenu>item", and "(off)" after a disabled item.
QStringList menuTexts(const QMenu* menu)
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

QAction* actionOf(const QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

// Clicks the item of that text in the open menu; "submenu>item" opens the
// submenu first, as the pointer does.
void clickItem(QMenu* menu, const QString& choose)
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

} // namespace

TEST_F(RowActions, TheItemsFollowTheSelection)
{
    struct Case {
        QStringList select;
        QStringList has;
        QStringList hasNot;
    };
    const QString pairWith = QStringLiteral("Pair with...");
    const std::vector<Case> cases = {
        // One VST2 plugin: its partners are the unpaired VST3 classes, by name.
        {{QStringLiteral("Vlor Fixture Stereo")},
         {pairWith, QStringLiteral("Pair with...>Fixture Alone"), QStringLiteral("Pair with...>Fixture Gain"),
          QStringLiteral("Update Plugin"), QStringLiteral("Open file location")},
         {QStringLiteral("Split Pair"), QStringLiteral("Join Pair"), QStringLiteral("Add Plugin"),
          QStringLiteral("Remove from catalog")}},
        // One VST3 class: the VST2 plugin is its partner; nothing to update.
        {{QStringLiteral("Fixture Gain")},
         {pairWith, QStringLiteral("Pair with...>Vlor Fixture Stereo"), QStringLiteral("Open file location")},
         {QStringLiteral("Update Plugin"), QStringLiteral("Split Pair")}},
        // One of each: they can be joined; plural texts; no single-row items.
        {{QStringLiteral("Vlor Fixture Stereo"), QStringLiteral("Fixture Gain")},
         {QStringLiteral("Join Pair"), QStringLiteral("Update Plugins")},
         {pairWith, QStringLiteral("Open file location"), QStringLiteral("Update Plugin")}},
        // Two of one format cannot be joined.
        {{QStringLiteral("Fixture Gain"), QStringLiteral("Fixture Alone")}, {}, {QStringLiteral("Join Pair"), pairWith}},
        // A bundle's group: its children's format, after a separator.
        {{QStringLiteral("Effects")},
         {QStringLiteral("Reset Plugin"), QStringLiteral("--"), QStringLiteral("Use VST3 in all children"),
          QStringLiteral("Use VST2 in all children")},
         {pairWith}},
    };
    for (const Case& c : cases) {
        const QStringList texts = contextMenu(c.select);
        const std::string what = c.select.join(QStringLiteral(" + ")).toStdString() + ": " +
                                 texts.join(QStringLiteral(" | ")).toStdString();
        for (const QString& t : c.has)
            EXPECT_TRUE(texts.contains(t)) << what << " lacks " << t.toStdString();
        for (const QString& t : c.hasNot)
            EXPECT_FALSE(texts.contains(t)) << what << " has " << t.toStdString();
    }
    // Partners: of the same vendor first, then by name.
    const QStringList partners = contextMenu({QStringLiteral("Vlor Fixture Stereo")}).filter(QStringLiteral("Pair with...>"));
    EXPECT_EQ(partners, (QStringList{QStringLiteral("Pair with...>Fixture Alone"), QStringLiteral("Pair with...>Fixture Endless"),
                                     QStringLiteral("Pair with...>Fixture Fails"), QStringLiteral("Pair with...>Fixture Gain")}));

    // A busy row offers nothing.
    vst3->markClassesVerifying({kAlone});
    settle();
    EXPECT_TRUE(contextMenu({QStringLiteral("Fixture Alone")}).isEmpty());
}

TEST_F(RowActions, PairWithSplitAndJoinReachThePairStoreAndLastThroughRescansAndRestarts)
{
    // Paired by hand from the VST2 row: its format stays the active one.
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Pair with...>Fixture Gain"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 10000));
    QList<QVlorPluginPairs::Entry> pair = pairsOf(kStereoId);
    EXPECT_EQ(pair.first().vst3, kGain);
    EXPECT_EQ(pair.first().activeFormat, QStringLiteral("vst2"));
    const QString pairId = pair.first().pairId;
    EXPECT_TRUE(rowOfPair(pairId).isValid());
    EXPECT_FALSE(row(QStringLiteral("Fixture Gain")).isValid()) << "one row for the pair";

    ASSERT_TRUE(rescanByButton());
    EXPECT_EQ(pairsOf(kStereoId).size(), 1) << "after a rescan";
    restart();
    ASSERT_EQ(pairsOf(kStereoId).size(), 1) << "after a restart";
    EXPECT_EQ(pairsOf(kStereoId).first().pairId, pairId);

    // Split: two rows again, and they stay two.
    contextMenu({rowOf(rowOfPair(pairId)).name}, QStringLiteral("Split Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).isEmpty() && row(QStringLiteral("Fixture Gain")).isValid() &&
               row(QStringLiteral("Vlor Fixture Stereo")).isValid();
    }, 10000));
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(pairsOf(kStereoId).isEmpty()) << "a split pair stays split";

    // Join: both on, so the row under the pointer decides the active format.
    contextMenu({QStringLiteral("Fixture Gain"), QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Join Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 10000));
    EXPECT_EQ(pairsOf(kStereoId).first().activeFormat, QStringLiteral("vst3"));
    restart();
    EXPECT_EQ(pairsOf(kStereoId).size(), 1) << "joined, after a restart";
}

TEST_F(RowActions, UpdateRechecksAndAGroupSwitchesItsChildrensFormat)
{
    QSignalSpy enabled(vst2, &QVlorVst::Manager::pluginEnabled);
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Update Plugin"));
    // Marked at once, checked again, and on again.
    EXPECT_TRUE(rowOf(row(QStringLiteral("Vlor Fixture Stereo"))).vst2.state == QStringLiteral("verifying") ||
                enabled.count() > 0);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return enabled.count() > 0 && rowOf(row(QStringLiteral("Vlor Fixture Stereo"))).vst2.state.isEmpty();
    }, 20000));
    EXPECT_TRUE(stereoPlugin(vst2).isEnabled());
    EXPECT_FALSE(stereoPlugin(vst2).needRecheck());

    vst3->addManualPair(kStereoId, kGain, QStringLiteral("vst3"));
    settle();
    const QString pairId = pairsOf(kStereoId).value(0).pairId;
    ASSERT_FALSE(pairId.isEmpty());
    // The group the pair's row stands in.
    const QPersistentModelIndex group = rowOfPair(pairId).parent();
    ASSERT_EQ(group.data().toString(), QStringLiteral("Effects"));
    contextMenuOn({group}, QStringLiteral("Use VST2 in all children"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).value(0).activeFormat == QStringLiteral("vst2");
    }, 10000));
    contextMenuOn({rowOfPair(pairId).parent()}, QStringLiteral("Use VST3 in all children"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).value(0).activeFormat == QStringLiteral("vst3");
    }, 10000));
}

TEST_F(RowActions, AMissingClassIsRemovedFromTheCatalog)
{
    ASSERT_TRUE(QDir(plugins.bundle).removeRecursively());
    vst3->rescanPlugins();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOf(row(QStringLiteral("Fixture Gain"))).vst3.state == QStringLiteral("missing");
    }, 20000));
    const QStringList texts = contextMenu({QStringLiteral("Fixture Gain")});
    EXPECT_TRUE(texts.contains(QStringLiteral("Remove from catalog"))) << texts.join(QLatin1Char('|')).toStdString();
    EXPECT_FALSE(texts.contains(QStringLiteral("Open file location"))) << "a missing file has no place";
    contextMenu({QStringLiteral("Fixture Gain")}, QStringLiteral("Remove from catalog"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !row(QStringLiteral("Fixture Gain")).isValid();
    }, 10000));
    EXPECT_EQ(vst3->catalogCopy().findClass(kGain), nullptr);
}

// The search paths dialog.

namespace {

constexpr int kFolderRole = Qt::UserRole + 1;

QModelIndex folderRow(QStandardItem* parent, const QString& folder)
{
    for (int i = 0; parent && i < parent->rowCount(); ++i)
        if (parent->child(i, 0)->data(kFolderRole).toString() == folder)
            return parent->child(i, 0)->index();
    return QModelIndex();
}

} // namespace

class SearchPaths : public RowActions {
protected:
    void SetUp() override
    {
        RowActions::SetUp();
        dialog = std::make_unique<QVlorSearchPathsDialog>();
        dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog.get()));
        view = dialog->findChild<QTreeView*>(QStringLiteral("searchPathsTree"));
        ASSERT_NE(view, nullptr);
    }
    void TearDown() override
    {
        QVlorDialogs::setAnswerer({});
        dialog.reset();
        QVlorVst::Manager::setScanEnabled(true);
        RowActions::TearDown();
    }
    // The add button of a format's row, the remove button of a folder's.
    QPoint button(const QModelIndex& index) const
    {
        return QVlorPathOriginDelegate::buttonRect(view->visualRect(index.siblingAtColumn(1))).center().toPoint();
    }
    void clickIn(const QPoint& at) { QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at); }
    QPoint checkBoxOf(const QModelIndex& index) const { return checkBoxAt(view, index); }
    void answerFolder(const QString& folder)
    {
        QVlorDialogs::setAnswerer([folder](const QVlorDialogs::Question& q) {
            QVlorDialogs::Answer a;
            if (q.kind == QLatin1String("directory"))
                a.directory = folder;
            return a;
        });
    }

    std::unique_ptr<QVlorSearchPathsDialog> dialog;
    QTreeView* view = nullptr;
};

// Each format's row names its format, and its box tells and switches that
// format's scanning, not the other's.
TEST_F(SearchPaths, EachFormatsRowNamesItAndShowsItsOwnScanning)
{
    QVlorVst::Manager::setScanEnabled(false);
    dialog->reload();
    struct Case {
        const char* format;
        const char* text;
        const char* tip;
        Qt::CheckState state;
    } cases[] = {{"vst2", "VST2", "Scan VST2 plugins", Qt::Unchecked},
                 {"vst3", "VST3", "Scan VST3 plugins", Qt::Checked},
                 {"lv2", "LV2", "Scan LV2 plugins", Qt::Checked}};
    for (const Case& c : cases) {
        QStandardItem* parent = dialog->parentItemFor(QLatin1String(c.format));
        ASSERT_NE(parent, nullptr) << c.format;
        EXPECT_EQ(parent->text(), QLatin1String(c.text));
        EXPECT_EQ(parent->toolTip(), QLatin1String(c.tip));
        EXPECT_EQ(parent->checkState(), c.state) << c.format;
    }
}

TEST_F(SearchPaths, NoEditCallsNothingAndAnAddedThenRemovedFolderLeavesNoTrace)
{
    QSignalSpy changed(dialog.get(), &QVlorSearchPathsDialog::pathsChanged);
    QSignalSpy added(vst2, &QVlorVst::Manager::pathAdded);
    QSignalSpy began(vst2, &QVlorVst::Manager::beginScan);
    QTest::keyClick(dialog.get(), Qt::Key_Escape);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(changed.count(), 0);

    dialog->show();
    const TempDir extra;
    answerFolder(QString::fromStdString(extra.path()));
    QStandardItem* vst2Parent = dialog->parentItemFor(QStringLiteral("vst2"));
    clickIn(button(vst2Parent->index()));
    const QModelIndex folder = folderRow(vst2Parent, QString::fromStdString(extra.path()));
    ASSERT_TRUE(folder.isValid());
    EXPECT_EQ(QVlorDialogs::takeAsked().value(0).title, QStringLiteral("Select Directory"));
    clickIn(button(folder));
    EXPECT_FALSE(folderRow(vst2Parent, QString::fromStdString(extra.path())).isValid());
    dialog->close(); // the window's close button
    settle();
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(added.count(), 0);
    EXPECT_EQ(began.count(), 0);
}

// An LV2 folder the user adds is kept in its settings and scanned at the close.
TEST_F(SearchPaths, AnLv2FolderAddedIsKeptAndScanned)
{
    QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
    ASSERT_NE(lv2, nullptr);
    QSignalSpy began(lv2, &QVlorLv2::Manager::beginScan);
    const TempDir extra;
    // The scan walks that folder alone, not the machine's.
    lv2->setSearchPathsForTesting({QString::fromStdString(extra.path())});
    answerFolder(QString::fromStdString(extra.path()));
    QStandardItem* parent = dialog->parentItemFor(QStringLiteral("lv2"));
    ASSERT_NE(parent, nullptr);
    clickIn(button(parent->index()));
    ASSERT_TRUE(folderRow(parent, QString::fromStdString(extra.path())).isValid());
    dialog->accept();
    const QLatin1String key(QVlorLv2::K_SETTING_LV2_CUSTOM_PATHS);
    EXPECT_TRUE(QVlorSetting::global().getStringList(key).contains(QString::fromStdString(extra.path())));
    EXPECT_TRUE(began.count() == 1 || began.wait(5000));
    QVlorSetting::global().remove(key);
}

TEST_F(SearchPaths, ASystemFolderCanBeSwitchedOffButNotRemoved)
{
    QStandardItem* vst3Parent = dialog->parentItemFor(QStringLiteral("vst3"));
    const QString system = QVlorVst3::Manager::SystemPaths().first();
    const QModelIndex folder = folderRow(vst3Parent, system);
    ASSERT_TRUE(folder.isValid());
    clickIn(button(folder));
    EXPECT_TRUE(folderRow(vst3Parent, system).isValid()) << "no remove button";
    bool menu = false;
    QTimer::singleShot(0, dialog.get(), [&] {
        if (auto* m = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
            menu = true;
            m->close();
        }
    });
    const QPoint at = view->visualRect(folder).center();
    QContextMenuEvent event(QContextMenuEvent::Mouse, at, view->viewport()->mapToGlobal(at));
    QCoreApplication::sendEvent(view->viewport(), &event);
    QCoreApplication::processEvents();
    EXPECT_FALSE(menu) << "no Remove item for a system folder";

    QSignalSpy changed(dialog.get(), &QVlorSearchPathsDialog::pathsChanged);
    clickIn(checkBoxOf(folder));
    EXPECT_EQ(folder.data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    dialog->accept();
    EXPECT_EQ(changed.count(), 1) << "switched off: the rows change, nothing is scanned";
    EXPECT_TRUE(QVlorSetting::global().getStringList(QLatin1String(QVlorVst3::K_SETTING_VST3_DISABLED_PATHS)).contains(system));
    QVlorSetting::global().remove(QLatin1String(QVlorVst3::K_SETTING_VST3_DISABLED_PATHS));
}

TEST_F(SearchPaths, AFormatSwitchedOffDimsItsFoldersBlocksTheirButtonsAndScansNothing)
{
    QSignalSpy began(vst2, &QVlorVst::Manager::beginScan);
    QStandardItem* vst2Parent = dialog->parentItemFor(QStringLiteral("vst2"));
    clickIn(checkBoxOf(vst2Parent->index()));
    ASSERT_EQ(vst2Parent->checkState(), Qt::Unchecked);
    const QModelIndex folder = folderRow(vst2Parent, plugins.vst2Folder());
    ASSERT_TRUE(folder.isValid());
    EXPECT_EQ(folder.data(Qt::ForegroundRole).value<QBrush>().color(),
              dialog->palette().color(QPalette::Disabled, QPalette::Text));
    clickIn(button(folder)); // a user folder's remove button, blocked while the format is off
    EXPECT_TRUE(folderRow(vst2Parent, plugins.vst2Folder()).isValid());
    QTest::keyClick(dialog.get(), Qt::Key_Escape);
    settle();
    EXPECT_FALSE(QVlorVst::Manager::isScanEnabled());
    EXPECT_EQ(began.count(), 0);
    // The page dims the format's rows: nothing of VST2 is offered as new.
    page->rebuildRows();
    settle();
    EXPECT_FALSE(rawRow(UpmNewSectionVst2).isValid());
}

TEST_F(SearchPaths, AFolderAddedThroughThePageIsScannedAndItsPluginsAppear)
{
    dialog.reset();
    const TempDir extra;
    ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-many-params.so"),
                            QString::fromStdString(extra.file("ManyParams.so"))));
    answerFolder(QString::fromStdString(extra.path()));
    bool seen = false;
    QTimer::singleShot(100, page.get(), [&] {
        auto* paths = qobject_cast<QVlorSearchPathsDialog*>(QApplication::activeModalWidget());
        if (!paths)
            return;
        seen = true;
        auto* tree = paths->findChild<QTreeView*>(QStringLiteral("searchPathsTree"));
        const QModelIndex parent = paths->parentItemFor(QStringLiteral("vst2"))->index();
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {},
                          QVlorPathOriginDelegate::buttonRect(tree->visualRect(parent.siblingAtColumn(1))).center().toPoint());
        QTest::keyClick(paths, Qt::Key_Escape);
    });
    QTest::mouseClick(page->findChild<QPushButton*>(QStringLiteral("managePathsBtn")), Qt::LeftButton);
    ASSERT_TRUE(seen) << "the dialog did not open";
    EXPECT_TRUE(waitFor([&] {
        settle();
        const QModelIndex raw = rawRow(UpmNewSectionVst2);
        return raw.isValid() && raw.parent().data(UpmNewPathRole).toString() == QString::fromStdString(extra.path());
    }, 20000));
}

TEST_F(SearchPaths, SwitchingAFolderOffChangesTheRowsAndOnAgainScans)
{
    QStandardItem* vst2Parent = dialog->parentItemFor(QStringLiteral("vst2"));
    QSignalSpy changed(dialog.get(), &QVlorSearchPathsDialog::pathsChanged);
    QSignalSpy began(vst2, &QVlorVst::Manager::beginScan);
    clickIn(checkBoxOf(folderRow(vst2Parent, plugins.vst2Folder())));
    dialog->accept();
    settle();
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(began.count(), 0);
    bool off = false;
    for (const QVlorVst::Path& path : vst2->pathsCopy())
        off = off || (path.absolutePath() == plugins.vst2Folder() && !path.isEnabled());
    EXPECT_TRUE(off);

    dialog->reload();
    dialog->show();
    vst2Parent = dialog->parentItemFor(QStringLiteral("vst2"));
    const QModelIndex folder = folderRow(vst2Parent, plugins.vst2Folder());
    ASSERT_EQ(folder.data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    clickIn(checkBoxOf(folder));
    dialog->accept();
    settle();
    EXPECT_EQ(changed.count(), 1) << "a scan follows instead";
    EXPECT_GE(began.count(), 1);
}


// Real plugins: the zam twins the matcher pairs, split and joined again by
// hand, and two plugins no matcher pairs, paired by hand. After each step and
// after a restart the page, the Plugins menu and `vlorfx list` tell the same.
class RealPairs : public RowActions {
protected:
    void SetUp() override
    {
        if (!QFileInfo::exists(kZamVst2) || !QFileInfo::exists(kZamVst3))
            GTEST_SKIP() << "zam-plugins is not installed (" << kZamVst2.toStdString() << ")";
        RowActions::SetUp();
        // Copies of one real product in both formats, in folders of their own.
        const QString vst2Folder = QString::fromStdString(real.file("vst2"));
        const QString vst3Folder = QString::fromStdString(real.file("vst3"));
        QDir().mkpath(vst2Folder);
        QDir().mkpath(vst3Folder);
        ASSERT_TRUE(QFile::copy(kZamVst2, vst2Folder + QStringLiteral("/ZamComp-vst.so")));
        ASSERT_TRUE(copyTree(kZamVst3, vst3Folder + QStringLiteral("/ZamComp.vst3")));
        vst3Folders = {plugins.vst3Folder(), vst3Folder};
        host.menu = new QMenu(QStringLiteral("Main"));
        firstScanInOrder({vst2Folder}, vst3Folders);
        ASSERT_TRUE(waitFor([&] {
            settle();
            return !zamPair().isEmpty();
        }, 20000)) << "the matcher did not pair ZamComp" << debugState();
    }
    void TearDown() override
    {
        if (IsSkipped())
            return;
        RowActions::TearDown();
        delete host.menu;
    }

    std::string debugState() const
    {
        QString t;
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                t += QStringLiteral(" vst2:%1/%2/%3").arg(p.name()).arg(p.uniqueId()).arg(p.state());
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
            for (const QVlorVst3::CatalogClass& c : b.classes())
                t += QStringLiteral(" vst3:%1/%2").arg(c.name()).arg(int(c.state()));
        t += QStringLiteral(" pairs:%1").arg(vst3->pairsEntriesCopy().size());
        return t.toStdString();
    }
    qint64 zamId() const
    {
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.name() == QLatin1String("ZamComp"))
                    return p.uniqueId();
        return 0;
    }
    QString zamPair() const
    {
        const qint64 id = zamId();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (id != 0 && e.vst2 == id && !e.vst3.isEmpty())
                return e.pairId;
        return QString();
    }
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
    // What each of the three says of a product: its rows on the page, its
    // entries in the menu, and whether `vlorfx list` holds the pair.
    struct Told {
        QStringList page;
        QStringList menu;
        bool listPaired = false;
    };
    Told told(const QString& name, qint64 vst2Id, const QString& cid)
    {
        Told t;
        for (const QPersistentModelIndex& r : rowsNamed(name)) {
            const UnifiedRow row = rowOf(r);
            if (row.inUse())
                t.page << name + (row.vst3.active ? QStringLiteral(" \u00B7 VST3") : QStringLiteral(" \u00B7 VST2"));
        }
        t.page.sort();
        auto* controller = QVlorAudioPlugins::UI::menuController();
        controller->rebuildPluginsMenuNow();
        if (QMenu* menu = controller->pluginsMenu())
            for (QAction* vendor : menu->actions())
                if (vendor->menu())
                    for (QAction* entry : vendor->menu()->actions())
                        if (entry->text().startsWith(name + QStringLiteral(" \u00B7 ")))
                            t.menu << entry->text();
        t.menu.sort();
        vst2->saveCatalog();
        vst3->saveCatalogAndPairs();
        settle();
        QProcess list;
        list.start(QStringLiteral(VLOR_BIN_DIR "/vlorfx"),
                   {QStringLiteral("--data"), QString::fromStdString(dataDir()), QStringLiteral("list"), QStringLiteral("--json")});
        if (!list.waitForFinished(30000) || list.exitCode() != 0) {
            ADD_FAILURE() << "vlorfx list: " << list.readAllStandardError().toStdString();
            return t;
        }
        const QJsonArray pairs = QJsonDocument::fromJson(list.readAllStandardOutput()).object().value(QStringLiteral("pairs"))
                                     .toObject().value(QStringLiteral("pairs")).toArray();
        for (const QJsonValue& p : pairs)
            t.listPaired = t.listPaired || (p.toObject().value(QStringLiteral("vst2")).toInteger() == vst2Id &&
                                            p.toObject().value(QStringLiteral("vst3")).toString() == cid);
        return t;
    }
    // The three agree: one row and one entry for a pair that the list holds, one of each format otherwise.
    void expectAgreement(const QString& name, qint64 vst2Id, const QString& cid, bool paired, const char* when)
    {
        const Told t = told(name, vst2Id, cid);
        EXPECT_EQ(t.listPaired, paired) << when;
        EXPECT_EQ(t.page, t.menu) << when;
        EXPECT_EQ(t.page.size(), paired ? 1 : 2) << when << ": " << t.page.join(QLatin1Char('|')).toStdString();
    }

    static inline const QString kZamVst2 = QStringLiteral("/usr/lib/vst/ZamComp-vst.so");
    static inline const QString kZamVst3 = QStringLiteral("/usr/lib/vst3/ZamComp.vst3");
    TempDir real;
};

TEST_F(RealPairs, SplitAndRejoinAZamPairAndPairTwoPluginsByHandAllTellingTheSame)
{
    const qint64 zam = zamId();
    QString cid;
    for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
        if (e.vst2 == zam)
            cid = e.vst3;
    ASSERT_FALSE(cid.isEmpty());
    const QString name = QStringLiteral("ZamComp");
    expectAgreement(name, zam, cid, true, "as the matcher paired it");

    // The product's twins as two rows, both in use: the split keeps the VST3 side
    // active, and the VST2 plugin is switched on by its box.
    contextMenuOn({rowsNamed(name).value(0)}, QStringLiteral("Split Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return zamPair().isEmpty() && rowsNamed(name).size() == 2;
    }, 20000));
    for (const QPersistentModelIndex& r : rowsNamed(name))
        if (!rowOf(r).inUse())
            click(checkBox(r));
    ASSERT_TRUE(waitFor([&] {
        settle();
        const QList<QPersistentModelIndex> rows = rowsNamed(name);
        return rows.size() == 2 && rowOf(rows[0]).inUse() && rowOf(rows[1]).inUse();
    }, 20000));
    expectAgreement(name, zam, cid, false, "split");

    contextMenuOn(rowsNamed(name), QStringLiteral("Join Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !zamPair().isEmpty() && rowsNamed(name).size() == 1;
    }, 20000));
    expectAgreement(name, zam, cid, true, "joined by hand");

    // Two plugins no matcher would pair (fixtures: no DPF or LSP product here
    // comes in both formats).
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Pair with...>Fixture Gain"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 20000));
    expectAgreement(QStringLiteral("Vlor Fixture Stereo"), kStereoId, kGain, true, "fixtures paired by hand");

    restart();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowsNamed(name).size() == 1;
    }, 20000));
    expectAgreement(name, zam, cid, true, "after a restart");
    expectAgreement(QStringLiteral("Vlor Fixture Stereo"), kStereoId, kGain, true, "after a restart");
}

TEST_F(RowActions, ResetForgetsAPluginAndOffersItAsNew)
{
    const QStringList texts = contextMenu({QStringLiteral("Vlor Fixture Stereo")});
    ASSERT_TRUE(texts.contains(QStringLiteral("Reset Plugin"))) << texts.join(QLatin1Char('|')).toStdString();
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Reset Plugin"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.filename() == plugins.vst2File)
                    return p.isNew() && !p.isEnabled() && rawRow(UpmNewSectionVst2).isValid();
        return false;
    }, 20000));
    // Its Add button brings it back as it was.
    click(badge(rawRow(UpmNewSectionVst2), 1).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return stereoPlugin(vst2).isEnabled() && row(QStringLiteral("Vlor Fixture Stereo")).isValid();
    }, 20000));
}

TEST_F(SearchPaths, AVst3FolderAddedAndLaterRemovedIsForgotten)
{
    const QString key = QLatin1String(QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS);
    const TempDir extra;
    const QString folder = QString::fromStdString(extra.path());
    answerFolder(folder);
    clickIn(button(dialog->parentItemFor(QStringLiteral("vst3"))->index()));
    QTest::keyClick(dialog.get(), Qt::Key_Escape);
    EXPECT_TRUE(QVlorSetting::global().getStringList(key).contains(folder));

    // Opened again: the folder is the user's, and its cross removes it.
    dialog->reload();
    dialog->show();
    const QModelIndex row = folderRow(dialog->parentItemFor(QStringLiteral("vst3")), folder);
    ASSERT_TRUE(row.isValid());
    EXPECT_TRUE(row.data(Qt::UserRole + 2).toBool());
    clickIn(button(row));
    dialog->accept();
    EXPECT_FALSE(QVlorSetting::global().getStringList(key).contains(folder));
}
