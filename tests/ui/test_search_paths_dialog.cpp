// The search paths dialog, used as a user uses it: its buttons clicked and
// the dialog closed by each of its ways out.
#include "row_actions_fixture.h"

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
