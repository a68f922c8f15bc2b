// The plugin manager page driven as a user drives it: QTest keys and clicks
// on the real tree, over fixture plugins of both formats found by real scans
// of real managers; and its painting, checked by pixels in both themes.
#include "prefs_fixture.h"

#include "fxisolation.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSemaphore>
#include <QSignalSpy>
#include <QToolTip>

#include <functional>

using namespace vlortest;

TEST_F(Prefs, TheTreeHoldsBothFormatsByVendorWithTheirBadges)
{
    const QStringList names = shown(tree->model());
    // Two vendors, each with its products sorted by name; the bundle of four
    // classes is a group of its own.
    EXPECT_EQ(tree->model()->rowCount(), 2);
    EXPECT_EQ(names.size(), 8);
    EXPECT_EQ(shown(tree->model(), row(QStringLiteral("Vlor fixtures"))),
              (QStringList{QStringLiteral("Effects"), QStringLiteral("Fixture Alone"), QStringLiteral("Fixture Endless"),
                           QStringLiteral("Fixture Fails"), QStringLiteral("Fixture Gain")}));
    EXPECT_EQ(shown(tree->model(), row(QStringLiteral("Vlor Test Vendor"))),
              QStringList{QStringLiteral("Vlor Fixture Stereo")});
    EXPECT_TRUE(rowOf(row(QStringLiteral("Fixture Gain"))).vst3.present);
    EXPECT_TRUE(rowOf(row(QStringLiteral("Vlor Fixture Stereo"))).vst2.present);
    EXPECT_EQ(tree->header()->sectionSize(1),
              QVlorPluginBadgeDelegate::preferredColumnWidth(tree->fontMetrics()));
    EXPECT_EQ(page->sizeHint(), QSize(680, 460));
    EXPECT_EQ(page->objectName(), QStringLiteral("QVlorPluginsPrefs"));
}

TEST_F(Prefs, TypingAFilterNarrowsToNamesAndVendorsAndKeepsTheStatusFilter)
{
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("GAIN"));
    EXPECT_EQ(shown(tree->model()), (QStringList{QStringLiteral("Vlor fixtures"), QStringLiteral("Effects"), QStringLiteral("Fixture Gain")}));

    // A vendor that matches shows all of its products, whatever their names.
    filter->lineEdit()->clear();
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("test vendor"));
    EXPECT_EQ(shown(tree->model()), (QStringList{QStringLiteral("Vlor Test Vendor"), QStringLiteral("Vlor Fixture Stereo")}));

    // The status filter: vendors with no failed plugin go, and the one failed plugin stays alone.
    filter->lineEdit()->clear();
    QComboBox* combo = filter->comboBox();
    const QStringList kFailedOnly{QStringLiteral("Vlor fixtures"), QStringLiteral("Effects"), QStringLiteral("Fixture Fails")};
    combo->setCurrentIndex(combo->findText(QStringLiteral("Failed")));
    EXPECT_EQ(shown(tree->model()), kFailedOnly);
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("fixture"));
    EXPECT_EQ(shown(tree->model()), kFailedOnly);
    QTest::keyClicks(filter->lineEdit(), QStringLiteral(" gain"));
    EXPECT_TRUE(shown(tree->model()).isEmpty());
    filter->lineEdit()->clear();
    EXPECT_EQ(shown(tree->model()), kFailedOnly);

    combo->setCurrentIndex(combo->findText(QStringLiteral("Enabled")));
    const QStringList enabled = shown(tree->model());
    EXPECT_TRUE(enabled.contains(QStringLiteral("Fixture Gain")));
    EXPECT_FALSE(enabled.contains(QStringLiteral("Fixture Fails")));
    combo->setCurrentIndex(combo->findText(QStringLiteral("All")));
    EXPECT_EQ(shown(tree->model()).size(), 8);
}

TEST_F(Prefs, ACheckBoxClickReachesTheRightManagerAndTheBoxFollowsAtTheNextRebuild)
{
    // VST3: off, then on again through a verification.
    const QModelIndex gain = row(QStringLiteral("Fixture Gain"));
    click(checkBox(gain));
    EXPECT_EQ(gain.data(Qt::CheckStateRole).toInt(), Qt::Checked) << "the box waits for the manager";
    settle();
    EXPECT_EQ(classState(vst3, kGain), QVlorVst3::CatalogClass::Disabled);
    EXPECT_EQ(row(QStringLiteral("Fixture Gain")).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    click(checkBox(row(QStringLiteral("Fixture Gain"))));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return classState(vst3, kGain) == QVlorVst3::CatalogClass::Enabled;
    }, 20000));
    EXPECT_EQ(row(QStringLiteral("Fixture Gain")).data(Qt::CheckStateRole).toInt(), Qt::Checked);

    // VST2: the row's plugin, found in the paths the rows were made from.
    click(checkBox(row(QStringLiteral("Vlor Fixture Stereo"))));
    settle();
    EXPECT_TRUE(stereoPlugin(vst2).isDisabled());
    EXPECT_EQ(classState(vst3, kGain), QVlorVst3::CatalogClass::Enabled);
    EXPECT_EQ(row(QStringLiteral("Vlor Fixture Stereo")).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);

    // A vendor's box reaches both managers.
    click(checkBox(row(QStringLiteral("Vlor fixtures"))));
    settle();
    EXPECT_EQ(row(QStringLiteral("Vlor fixtures")).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    EXPECT_FALSE(rowOf(row(QStringLiteral("Fixture Gain"))).inUse());
}

TEST_F(Prefs, ABadgeClickSwitchesAPairsFormatKeepingItInUseAndNotOntoACrashedOne)
{
    vst3->addManualPair(kStereoId, kGain, QStringLiteral("vst3"));
    settle();
    const QString pairId = pairOfStereo();
    ASSERT_FALSE(pairId.isEmpty());
    // The row of a pair takes the name of its active format: it is found by its pair.
    const auto pairRow = [&] { return rowOfPair(pairId); };
    ASSERT_TRUE(pairRow().isValid());
    // The VST2 side was off: switching to it switches it on, so the pair stays in use.
    QVlorVst::Plugin stereo = stereoPlugin(vst2);
    vst2->disablePlugin(stereo, vst2->pathsCopy().first());
    settle();
    ASSERT_TRUE(stereoPlugin(vst2).isDisabled());
    click(badge(pairRow(), 0).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return activeFormat(pairId) == QStringLiteral("vst2") && stereoPlugin(vst2).isEnabled();
    }, 20000));
    EXPECT_TRUE(rowOf(pairRow()).vst2.active);
    EXPECT_EQ(rowOf(pairRow()).name, QStringLiteral("Vlor Fixture Stereo"));

    // A click on the badge already active changes nothing.
    click(badge(pairRow(), 0).center().toPoint());
    settle();
    EXPECT_EQ(activeFormat(pairId), QStringLiteral("vst2"));

    // A crashed format cannot be made active.
    ASSERT_TRUE(writeOpeningSentinel(QStringLiteral("vst3"), kGain, QStringLiteral("Fixture Gain")));
    VLORFX_SetOwnProcess("vst3", kGain.toUtf8().constData(), 0);
    EXPECT_EQ(vst3->consumeCrashSentinel(), QStringLiteral("Fixture Gain"));
    settle();
    ASSERT_EQ(rowOf(pairRow()).vst3.state, QStringLiteral("crashed"));
    // The plugin that took the editor down runs in a host program from now on.
    EXPECT_EQ(VLORFX_HasCrashed("vst3", kGain.toUtf8().constData()), 1);
    EXPECT_EQ(VLORFX_RunsInOwnProcess("vst3", kGain.toUtf8().constData()), 1);
    VLORFX_SetOwnProcess("vst3", kGain.toUtf8().constData(), 0);
    click(badge(pairRow(), 1).center().toPoint());
    settle();
    EXPECT_EQ(activeFormat(pairId), QStringLiteral("vst2"));
    vst3->purgePairState({kStereoId}, {kGain});
    settle();
}

TEST_F(Prefs, BusyRowsTakeNoInputAndShowTheWheelUntilTheWorkEnds)
{
    auto* states = qobject_cast<QVlorPluginStateDelegate*>(tree->itemDelegateForColumn(2));
    ASSERT_NE(states, nullptr);
    EXPECT_FALSE(states->isAnimating());
    vst3->markClassesVerifying({kAlone});
    settle();
    const QModelIndex alone = row(QStringLiteral("Fixture Alone"));
    ASSERT_EQ(rowOf(alone).rowStateText(), QStringLiteral("verifying"));
    EXPECT_FALSE(alone.flags() & Qt::ItemIsEnabled);
    tree->viewport()->repaint();
    EXPECT_TRUE(states->isAnimating());

    QSignalSpy disabled(vst3, &QVlorVst3::Manager::pluginDisabled);
    click(checkBox(alone));
    settle();
    EXPECT_EQ(disabled.count(), 0);
    EXPECT_EQ(classState(vst3, kAlone), QVlorVst3::CatalogClass::Verifying);

    // The verification ends the busy state; the wheel stops with the next frame.
    vst3->enablePlugin(kAlone);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return classState(vst3, kAlone) == QVlorVst3::CatalogClass::Enabled;
    }, 20000));
    tree->viewport()->repaint();
    EXPECT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return !states->isAnimating();
    }, 3000));
    EXPECT_TRUE(row(QStringLiteral("Fixture Alone")).flags() & Qt::ItemIsEnabled);
}

TEST_F(Prefs, ChecksUnderWayAreCountedOffOnTheProgressLineAndCancelDropsTheRest)
{
    auto* bar = page->findChild<QProgressBar*>(QStringLiteral("scanProgressBar"));
    auto* label = page->findChild<QLabel*>(QStringLiteral("refreshProgressLabel"));
    auto* cancel = page->findChild<QPushButton*>(QStringLiteral("scanCancelButton"));
    ASSERT_TRUE(bar && label && cancel);
    EXPECT_FALSE(cancel->isVisibleTo(page.get()));
    // Off, so that a check that ran would show: it turns the class on.
    vst3->disablePlugin(kAlone);
    settle();
    const QVlorVst3::CatalogClass::State aloneBefore = classState(vst3, kAlone);
    ASSERT_NE(aloneBefore, QVlorVst3::CatalogClass::Enabled);

    // Two checks at once show at once, none done yet.
    vst3->markClassesVerifying({kAlone, kFails});
    settle();
    ASSERT_TRUE(bar->isVisibleTo(page.get()));
    EXPECT_EQ(label->text(), QStringLiteral("Checking plugins"));
    EXPECT_EQ(bar->maximum(), 2);
    EXPECT_EQ(bar->value(), 0);
    EXPECT_EQ(bar->text(), QStringLiteral("0 of 2"));
    EXPECT_TRUE(cancel->isVisibleTo(page.get()));
    EXPECT_TRUE(tree->isEnabled()) << "the other rows stay usable";

    // One ends and is counted off.
    vst3->enablePlugin(kFails);
    EXPECT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return bar->value() == 1;
    }, 20000));
    EXPECT_EQ(bar->maximum(), 2);
    EXPECT_EQ(classState(vst3, kFails), QVlorVst3::CatalogClass::Failed);

    // The other's check waits behind work that holds the manager's thread;
    // Cancel drops it, and the line goes.
    QSemaphore hold;
    QMetaObject::invokeMethod(vst3, [&hold] { hold.acquire(); }, Qt::QueuedConnection);
    vst3->enablePlugin(kAlone);
    QTest::mouseClick(cancel, Qt::LeftButton);
    hold.release();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !bar->isVisibleTo(page.get());
    }, 10000));
    EXPECT_EQ(classState(vst3, kAlone), aloneBefore) << "the check never ran";
    EXPECT_NE(rowOf(row(QStringLiteral("Fixture Alone"))).rowStateText(), QStringLiteral("verifying"));

    // A single check shows only once it has taken a second.
    vst3->markClassesVerifying({kAlone});
    settle();
    EXPECT_FALSE(bar->isVisibleTo(page.get()));
    EXPECT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return bar->isVisibleTo(page.get());
    }, 3000));
    EXPECT_EQ(label->text(), QStringLiteral("Checking a plugin"));
    vst3->enablePlugin(kAlone);
    EXPECT_TRUE(waitFor([&] {
        settle();
        return !bar->isVisibleTo(page.get());
    }, 20000));
    EXPECT_EQ(classState(vst3, kAlone), QVlorVst3::CatalogClass::Enabled);
}

TEST_F(Prefs, ARescanDisablesTheTreeAndShowsProgressThenGivesItBack)
{
    auto* bar = page->findChild<QProgressBar*>(QStringLiteral("scanProgressBar"));
    auto* label = page->findChild<QLabel*>(QStringLiteral("refreshProgressLabel"));
    auto* rescan = page->findChild<QPushButton*>(QStringLiteral("updateButton"));
    ASSERT_TRUE(bar && label && rescan);
    EXPECT_FALSE(bar->isVisible());
    EXPECT_FALSE(label->isVisible());

    // What the page shows while the scan runs: these run right after the page's own slots.
    bool sawBusy = false;
    int progressSeen = 0;
    QObject probe;
    QObject::connect(vst3, &QVlorVst3::Manager::beginScan, &probe, [&] {
        sawBusy = !tree->isEnabled() && bar->isVisibleTo(page.get()) && label->isVisibleTo(page.get()) &&
                  !rescan->isEnabled();
    }, Qt::QueuedConnection);
    QObject::connect(vst3, &QVlorVst3::Manager::progressScan, &probe, [&](int, int total) {
        if (bar->maximum() == total)
            progressSeen = std::max(progressSeen, total);
    }, Qt::QueuedConnection);
    QTest::mouseClick(rescan, Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !vst3->isScanning() && !vst2->isScanning() && tree->isEnabled() && !bar->isVisible();
    }, 30000));
    EXPECT_TRUE(sawBusy);
    EXPECT_GE(progressSeen, 1);
    EXPECT_TRUE(rescan->isEnabled());
    EXPECT_FALSE(label->isVisible());
    EXPECT_TRUE(row(QStringLiteral("Fixture Gain")).isValid());

    // A page opened while a scan runs shows it at once.
    vst3->rescanPlugins();
    QCoreApplication::processEvents();
    auto second = std::make_unique<QVlorPluginsPrefs>();
    if (vst3->isScanning()) {
        second->syncPreferences();
        EXPECT_FALSE(second->findChild<QTreeView*>(QStringLiteral("vstPluginsTreeView"))->isEnabled());
    }
    settle();
}

TEST_F(Prefs, CollapseStateSurvivesRebuildsAndFiltersAndIsStored)
{
    const QString key = QLatin1String(K_SETTING_TREE_COLLAPSED);
    const QModelIndex vendor = row(QStringLiteral("Vlor fixtures"));
    ASSERT_TRUE(tree->isExpanded(vendor));
    // Select the vendor and collapse it with the keyboard.
    click(tree->visualRect(vendor).center());
    QTest::keyClick(tree, Qt::Key_Left);
    EXPECT_FALSE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));

    // Ten catalog signals in one turn: one rebuild, and the vendor stays collapsed.
    QSignalSpy resets(tree->model(), &QAbstractItemModel::modelReset);
    for (int i = 0; i < 10; ++i)
        emit vst3->catalogChanged();
    settle();
    EXPECT_EQ(resets.count(), 1);
    EXPECT_FALSE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));
    EXPECT_TRUE(tree->isExpanded(row(QStringLiteral("Vlor Test Vendor"))));
    EXPECT_EQ(QVlorSetting::global().getStringList(key), QStringList{QStringLiteral("v|vlor fixtures")});

    // A search expands everything and leaves the stored state alone, through a rebuild too.
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("fixture"));
    EXPECT_TRUE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));
    page->rebuildRows();
    settle();
    EXPECT_TRUE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));
    EXPECT_EQ(QVlorSetting::global().getStringList(key), QStringList{QStringLiteral("v|vlor fixtures")});
    filter->lineEdit()->clear();
    EXPECT_FALSE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));

    // A page opened later, as after a restart, starts from the stored state.
    page.reset();
    openPage();
    EXPECT_FALSE(tree->isExpanded(row(QStringLiteral("Vlor fixtures"))));
    EXPECT_TRUE(tree->isExpanded(row(QStringLiteral("Vlor Test Vendor"))));
}

TEST_F(Prefs, TheAddButtonOfANewPluginChecksItAndBringsItIn)
{
    // Found after the first scan and not switched on: a raw row under its folder.
    ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-many-params.so"),
                            plugins.vst2Folder() + QStringLiteral("/ManyParams.so")));
    vst2->searchPlugins(false);
    settle();
    const QModelIndex raw = rawRow(UpmNewSectionVst2);
    ASSERT_TRUE(raw.isValid());
    EXPECT_FALSE(raw.data(Qt::CheckStateRole).isValid()) << "a raw row has a button, not a box";
    EXPECT_TRUE(raw.parent().data(UpmNewPathRole).isValid()) << "under its folder";

    click(badge(raw, QVlorPluginBadgeDelegate::kAddSlot).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.filename().endsWith(QLatin1String("ManyParams.so")))
                    return p.isEnabled() && !rawRow(UpmNewSectionVst2).isValid();
        return false;
    }, 20000));
}

TEST_F(Prefs, AFailedBadgeTellsItsErrorInATooltip)
{
    const QVlorVst3::Catalog catalog = vst3->catalogCopy();
    const QString error = catalog.findClass(kFails) ? catalog.findClass(kFails)->lastError() : QString();
    ASSERT_FALSE(error.isEmpty());
    const QPoint at = badge(row(QStringLiteral("Fixture Fails")), 1).center().toPoint();
    QHelpEvent help(QEvent::ToolTip, at, tree->viewport()->mapToGlobal(at));
    QCoreApplication::sendEvent(tree->viewport(), &help);
    EXPECT_EQ(QToolTip::text(), error);
    QToolTip::hideText();
}

TEST_F(Prefs, CurationSurvivesARescanAndARestartInBothFormats)
{
    // Switched off by hand: a VST2 plugin, a VST3 class, and a vendor of each
    // format; a class under the vendor keeps its own switch on.
    click(checkBox(row(QStringLiteral("Vlor Fixture Stereo"))));
    click(checkBox(row(QStringLiteral("Fixture Alone"))));
    settle();
    click(checkBox(row(QStringLiteral("Vlor Test Vendor"))));
    click(checkBox(row(QStringLiteral("Vlor fixtures"))));
    settle();
    auto curated = [&] {
        const QModelIndex stereo = row(QStringLiteral("Vlor Fixture Stereo"));
        const QModelIndex alone = row(QStringLiteral("Fixture Alone"));
        const QModelIndex vendor2 = row(QStringLiteral("Vlor Test Vendor"));
        return stereo.isValid() && alone.isValid() && vendor2.isValid() && !rowOf(stereo).vst2.enabled &&
               !rowOf(alone).vst3.enabled && !rowOf(stereo).vendorEnabled &&
               vendor2.data(Qt::CheckStateRole).toInt() == Qt::Unchecked &&
               row(QStringLiteral("Vlor fixtures")).data(Qt::CheckStateRole).toInt() == Qt::Unchecked &&
               !rowOf(row(QStringLiteral("Fixture Gain"))).vendorEnabled &&
               rowOf(row(QStringLiteral("Fixture Gain"))).vst3.enabled;
    };
    ASSERT_TRUE(curated());

    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(curated()) << "after Rescan Plugins";

    restart();
    EXPECT_TRUE(waitFor([&] {
        settle();
        return curated();
    }, 20000)) << "after a restart";
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(curated()) << "after a restart and a rescan";
}

TEST_F(Prefs, HoverFollowsThePointerByRowAndLeavingClearsIt)
{
    const QModelIndex gain = row(QStringLiteral("Fixture Gain"));
    const QRect rect = tree->visualRect(gain);
    QTest::mouseMove(tree->viewport(), rect.center());
    QCoreApplication::processEvents();
    ASSERT_TRUE(tree->hoverIndex().isValid());
    EXPECT_EQ(tree->hoverIndex().row(), gain.row());
    // Another column of the same row is the same hover.
    QTest::mouseMove(tree->viewport(), tree->visualRect(gain.siblingAtColumn(1)).center());
    QCoreApplication::processEvents();
    EXPECT_EQ(tree->hoverIndex().row(), gain.row());
    QHoverEvent leave(QEvent::HoverLeave, QPointF(-1, -1), QPointF(-1, -1), QPointF(rect.center()));
    QCoreApplication::sendEvent(tree->viewport(), &leave);
    EXPECT_FALSE(tree->hoverIndex().isValid());
}

// A page shows the managers whoever builds it hands it, and outlives them.
TEST_F(Prefs, APageShowsTheManagersItIsHandedAndOutlivesThem)
{
    auto present = [](const QList<UnifiedRow>& rows, UnifiedFormatInfo UnifiedRow::*format) {
        return std::count_if(rows.begin(), rows.end(), [&](const UnifiedRow& r) { return (r.*format).present; });
    };
    ASSERT_GT(present(page->rows(), &UnifiedRow::vst2), 0);
    QVlorPluginsPrefs vst3Only({nullptr, vst3, {}});
    vst3Only.rebuildRowsNow();
    EXPECT_EQ(present(vst3Only.rows(), &UnifiedRow::vst2), 0);
    EXPECT_EQ(present(vst3Only.rows(), &UnifiedRow::vst3), present(page->rows(), &UnifiedRow::vst3));
    // The library goes while the page stays: the page asks nothing of the
    // managers gone, and keeps the rows it had.
    const qsizetype before = vst3Only.rows().size();
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    vst3Only.rebuildRowsNow();
    QCoreApplication::processEvents();
    EXPECT_EQ(vst3Only.rows().size(), before);
    // A page made by name after that shows no manager at all.
    QVlorPluginsPrefs byName;
    byName.rebuildRowsNow();
    EXPECT_TRUE(byName.rows().isEmpty());
}

TEST(PrefsAlone, WithoutManagersOnlyTheSupportSwitchIsShown)
{
    ASSERT_EQ(QVlorAudioPlugins::vstManager(), nullptr);
    ASSERT_EQ(QVlorAudioPlugins::vst3Manager(), nullptr);
    QVlorPluginsPrefs page;
    page.show();
    page.syncPreferences();
    QCoreApplication::processEvents();
    for (const char* hidden : {"vstPluginsTreeView", "filterBox", "updateButton", "managePathsBtn", "scanProgressBar",
                               "cbEnableAudioUnitSupport"})
        EXPECT_FALSE(page.findChild<QWidget*>(QLatin1String(hidden))->isVisible()) << hidden;
    auto* vst = page.findChild<QCheckBox*>(QStringLiteral("cbEnableVSTSupport"));
    ASSERT_TRUE(vst->isVisible());
    // The switch writes its setting as it is clicked.
    const QString key = QLatin1String(QVlorAudioPlugins::K_SETTING_SUPPORT_VST_PLUGINS);
    const bool was = QVlorSetting::global().getBool(key, true);
    QTest::mouseClick(vst, Qt::LeftButton, {}, QPoint(8, vst->height() / 2));
    EXPECT_EQ(QVlorSetting::global().getBool(key, true), !was);
    QVlorSetting::global().change(key, was);
    EXPECT_TRUE(QVlorPreferencesTabFactory::names().isEmpty() ||
                !QVlorPreferencesTabFactory::names().contains(QLatin1String(QVlorPluginsPrefs::Factory::Name)));
}

// "Add Plugins" over several new plugins: every row is marked busy in the
// published copies before the call returns (one mark a manager, not one a
// row), and each is checked and brought in.
TEST_F(Prefs, AddPluginsMarksEveryRowBusyAtOnceAndBringsEachIn)
{
    const QStringList faults{QStringLiteral("many-params"), QStringLiteral("chatty"), QStringLiteral("resize"),
                             QStringLiteral("endless-display")};
    for (const QString& f : faults)
        ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-%1.so").arg(f),
                                plugins.vst2Folder() + QStringLiteral("/Added-%1.so").arg(f)));
    vst2->searchPlugins(false);
    settle();
    QList<UnifiedRow> raw;
    std::function<void(const QModelIndex&)> collect = [&](const QModelIndex& parent) {
        for (int i = 0; i < tree->model()->rowCount(parent); ++i) {
            const QModelIndex index = tree->model()->index(i, 0, parent);
            const UnifiedRow r = rowOf(index);
            if (r.newSection == UpmNewSectionVst2 && !r.isNewPathHeader && !r.vst2.identity.isEmpty())
                raw << r;
            collect(index);
        }
    };
    collect(QModelIndex());
    ASSERT_EQ(raw.size(), faults.size());
    auto added = [&](bool (*state)(const QVlorVst::Plugin&)) {
        int n = 0;
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                n += p.filename().contains(QLatin1String("/Added-")) && state(p);
        return n;
    };
    page->addPlugins(raw);
    EXPECT_EQ(added([](const QVlorVst::Plugin& p) { return p.verifying() || p.isEnabled(); }), faults.size());
    EXPECT_TRUE(waitFor([&] {
        settle();
        return added([](const QVlorVst::Plugin& p) { return p.isEnabled() && !p.verifying(); }) == faults.size();
    }, 30000));
}
