// A product in several formats on the page, driven as a user drives it: the
// fixture gain in VST3 and LV2 is one row whose badges switch the form in
// use, keeping it on or off; the row menu splits the family, joins it again,
// takes a third form and lets one go, a group plays LV2 in all children,
// and the product runs in its own process.
#include "row_actions_fixture.h"

#include "QVlorLv2_Manager.h"
#include "QVlorPluginLibrary.h"
#include "QVlorSetting.h"

#include "fxisolation.h"

TEST_F(FamilyRows, ABadgeClickSwitchesTheFormInUseAndKeepsItOnOrOff)
{
    const QString pairId = family().pairId;
    UnifiedRow r = rowOf(rowOfPair(pairId));
    ASSERT_TRUE(r.vst3.present && r.lv2.present);
    EXPECT_TRUE(r.vst3.active) << "VST3 first in the format order";
    EXPECT_TRUE(r.inUse());

    click(badge(rowOfPair(pairId), 2).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().activeFormat == QStringLiteral("lv2") && rowOf(rowOfPair(pairId)).lv2.active;
    }, 10000));
    EXPECT_TRUE(rowOf(rowOfPair(pairId)).inUse());

    // Off in LV2, then back to VST3: it stays off there.
    click(checkBox(rowOfPair(pairId)));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !lv2->catalogCopy().isEnabled(kGainUri) && !rowOf(rowOfPair(pairId)).inUse();
    }, 10000));
    click(badge(rowOfPair(pairId), 1).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        const UnifiedRow now = rowOf(rowOfPair(pairId));
        return family().activeFormat == QStringLiteral("vst3") && now.vst3.active && !now.vst3.enabled;
    }, 10000));
    EXPECT_FALSE(rowOf(rowOfPair(pairId)).inUse());
}

TEST_F(FamilyRows, SplitJoinTakeAThirdFormAndLetOneGo)
{
    const QString pairId = family().pairId;
    const QString gainName = rowOf(rowOfPair(pairId)).name;
    EXPECT_TRUE(contextMenuOn({rowOfPair(pairId)}).contains(QStringLiteral("Split Family")));
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Split Family"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().pairId.isEmpty() && rowOf(rowOfPair(pairId)).vst3.present &&
               !rowOf(rowOfPair(pairId)).lv2.present;
    }, 10000));
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(family().pairId.isEmpty()) << "a split family stays split";

    // Join: the LV2 row and the VST3 row, one product again.
    QPersistentModelIndex lone;
    for (const QPersistentModelIndex& r : rowsNamed(gainName))
        if (rowOf(r).lv2.present)
            lone = r;
    ASSERT_TRUE(lone.isValid());
    EXPECT_TRUE(contextMenuOn({rowOfPair(pairId), lone}).contains(QStringLiteral("Join")));
    contextMenuOn({rowOfPair(pairId), lone}, QStringLiteral("Join"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().pairId == pairId && rowsNamed(gainName).size() == 1;
    }, 10000));
    EXPECT_EQ(family().origin, QStringLiteral("heuristic"));
    EXPECT_TRUE(family().manualOverride);

    // A third form by hand, then one let go: the other two stay together.
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Pair with...>") + gainName);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().formCount() == 3;
    }, 10000));
    EXPECT_TRUE(contextMenuOn({rowOfPair(pairId)}).contains(QStringLiteral("Split Off>LV2")));
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Split Off>LV2"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().pairId.isEmpty() && pairsOf(kStereoId).value(0).pairId == pairId;
    }, 10000));
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(family().pairId.isEmpty()) << "the form let go stays apart";
    restart();
    EXPECT_TRUE(family().pairId.isEmpty()) << "and after a restart";
    EXPECT_EQ(pairsOf(kStereoId).value(0).pairId, pairId);
}

TEST_F(FamilyRows, AGroupPlaysLv2InAllChildren)
{
    const QString pairId = family().pairId;
    const QPersistentModelIndex group = rowOfPair(pairId).parent();
    ASSERT_EQ(group.data().toString(), QStringLiteral("Effects"));
    contextMenuOn({group}, QStringLiteral("Use LV2 in all children"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return family().activeFormat == QStringLiteral("lv2");
    }, 10000));
}

// "Run in its own process" holds for the product in every form: its mark
// shows whichever form is in use, and taken back it forgets the plugin's
// crash too. When every plugin runs apart no row is marked.
TEST_F(FamilyRows, RunInItsOwnProcessHoldsForEveryFormAndShowsAMark)
{
    const QString pairId = family().pairId;
    const QString cid = rowOf(rowOfPair(pairId)).vst3.identity;
    const auto marked = [&] { return !rowOfPair(pairId).data(Qt::DecorationRole).isNull(); };
    EXPECT_TRUE(contextMenuOn({rowOfPair(pairId)}).contains(QStringLiteral("Run in its own process")));
    EXPECT_FALSE(marked());
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Run in its own process"));
    EXPECT_EQ(VLORFX_GetOwnProcess("vst3", cid.toUtf8().constData()), 1);
    EXPECT_EQ(VLORFX_GetOwnProcess("lv2", kGainUri.toUtf8().constData()), 1);
    EXPECT_TRUE(marked());
    EXPECT_TRUE(rowOfPair(pairId).data(Qt::ToolTipRole).toString().contains(QStringLiteral("own process")));
    // The form in use switched: the mark stays.
    click(badge(rowOfPair(pairId), 2).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOf(rowOfPair(pairId)).lv2.active;
    }, 10000));
    EXPECT_TRUE(marked());
    VLORFX_MarkCrashed("lv2", kGainUri.toUtf8().constData());
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Run in its own process"));
    EXPECT_EQ(VLORFX_GetOwnProcess("vst3", cid.toUtf8().constData()), 0);
    EXPECT_EQ(VLORFX_HasCrashed("lv2", kGainUri.toUtf8().constData()), 0);
    EXPECT_FALSE(marked());
    // Every plugin apart: no row is marked.
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.isolation"), QStringLiteral("always"));
    VLORFX_SetOwnProcess("lv2", kGainUri.toUtf8().constData(), 1);
    EXPECT_FALSE(marked());
    QVlorSetting::global().remove(QStringLiteral("vloraudio.plugins.isolation"));
    VLORFX_SetOwnProcess("lv2", kGainUri.toUtf8().constData(), 0);
}

// A crash of one form sends the product's other forms apart too.
TEST_F(FamilyRows, ACrashOfOneFormSendsEveryFormApart)
{
    const QString pairId = family().pairId;
    const QByteArray cid = rowOf(rowOfPair(pairId)).vst3.identity.toUtf8();
    const QByteArray uri = kGainUri.toUtf8();
    VLORFX_SetOwnProcess("lv2", uri.constData(), 0);
    ASSERT_EQ(VLORFX_HasCrashed("lv2", uri.constData()), 0);
    ASSERT_TRUE(writeOpeningSentinel(QStringLiteral("vst3"), QString::fromUtf8(cid), QStringLiteral("Fixture Gain")));
    vst3->consumeCrashSentinel();
    EXPECT_EQ(VLORFX_HasCrashed("vst3", cid.constData()), 1);
    EXPECT_EQ(VLORFX_HasCrashed("lv2", uri.constData()), 1) << "the LV2 form of the product stays in";
    EXPECT_TRUE(!rowOfPair(pairId).data(Qt::DecorationRole).isNull());
    VLORFX_SetOwnProcess("vst3", cid.constData(), 0);
    VLORFX_SetOwnProcess("lv2", uri.constData(), 0);
    vst3->purgePairState({}, {QString::fromUtf8(cid)});
}

// The star of the row menu holds for the product in every form: shown
// whichever form is in use, through a rescan and a restart, and found by the
// status filter's "Favourites".
TEST_F(FamilyRows, AFavouriteStarHoldsThroughAFormatSwitchARescanAndARestart)
{
    const QString pairId = family().pairId;
    const auto starred = [&] { return rowOfPair(pairId).data(UpmFavouriteRole).toBool(); };
    EXPECT_FALSE(starred());
    EXPECT_TRUE(rowOfPair(pairId).data(Qt::DecorationRole).isNull());
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Favourite"));
    EXPECT_TRUE(starred());
    EXPECT_FALSE(rowOfPair(pairId).data(Qt::DecorationRole).isNull()) << "the star is drawn";
    EXPECT_TRUE(rowOfPair(pairId).data(Qt::ToolTipRole).toString().contains(QStringLiteral("Favourite")));
    click(badge(rowOfPair(pairId), 2).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOf(rowOfPair(pairId)).lv2.active;
    }, 10000));
    EXPECT_TRUE(starred()) << "in LV2";
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(starred()) << "after a rescan";
    restart();
    QVlorPluginLibrary::instance()->reload();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOfPair(pairId).isValid();
    }, 10000));
    EXPECT_TRUE(starred()) << "after a restart";
    page->showStatus(QVlorPluginsPrefs::ProxyFilter::StatusFavourite);
    settle();
    QStringList shown;
    for (const QPersistentModelIndex& r : rowsNamed(rowOf(rowOfPair(pairId)).name))
        shown << r.data().toString();
    EXPECT_EQ(shown.size(), 1);
    EXPECT_EQ(tree->model()->rowCount(), 1) << "one group holds the one favourite";
    // Taken back in the other form's row: gone for the product.
    const QString cid = rowOf(rowOfPair(pairId)).vst3.identity;
    ASSERT_FALSE(cid.isEmpty());
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Favourite"));
    settle();
    EXPECT_FALSE(QVlorPluginLibrary::instance()->isFavourite({cid}));
    EXPECT_EQ(tree->model()->rowCount(), 0) << "the favourites' filter shows none now";
    page->showStatus(QVlorPluginsPrefs::ProxyFilter::StatusAll);
}

// Grouped by category, the product sits under what it does; the user's
// choice moves it, the filter finds it by the category's name, and the
// grouping is kept for the next opening of the page.
TEST_F(FamilyRows, GroupedByCategoryTheUsersChoiceMovesAProductAndTheFilterFindsIt)
{
    const QString pairId = family().pairId;
    auto* groupBy = page->findChild<QComboBox*>(QStringLiteral("groupByCombo"));
    ASSERT_NE(groupBy, nullptr);
    groupBy->setCurrentIndex(1);
    settle();
    ASSERT_TRUE(rowOfPair(pairId).isValid());
    // The gain: VST3 says "Fx", LV2 "Amplifier": a utility.
    EXPECT_EQ(rowOfPair(pairId).parent().data().toString(), QStringLiteral("Utility"));
    EXPECT_EQ(rowOfPair(pairId).parent().data(UpmCategoryKeyRole).toString(), QStringLiteral("Utility"));
    EXPECT_FALSE(rowOfPair(pairId).parent().data(Qt::CheckStateRole).isValid()) << "a category has no switch";
    QStringList groups;
    for (int i = 0; i < tree->model()->rowCount(); ++i)
        groups << tree->model()->index(i, 0).data().toString();
    EXPECT_EQ(groups.last(), QStringLiteral("Other")) << groups.join(QLatin1Char('|')).toStdString();

    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Category>Reverb"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOfPair(pairId).parent().data().toString() == QLatin1String("Reverb");
    }, 5000));
    QTest::keyClicks(filter->lineEdit(), QStringLiteral("reverb"));
    settle();
    EXPECT_EQ(tree->model()->rowCount(), 1);
    EXPECT_TRUE(rowOfPair(pairId).isValid());
    filter->lineEdit()->clear();
    settle();
    contextMenuOn({rowOfPair(pairId)}, QStringLiteral("Category>As the plugin says"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOfPair(pairId).parent().data().toString() == QLatin1String("Utility");
    }, 5000));
    restart();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOfPair(pairId).isValid();
    }, 10000));
    EXPECT_EQ(page->findChild<QComboBox*>(QStringLiteral("groupByCombo"))->currentIndex(), 1) << "kept";
    EXPECT_EQ(rowOfPair(pairId).parent().data().toString(), QStringLiteral("Utility"));
    page->findChild<QComboBox*>(QStringLiteral("groupByCombo"))->setCurrentIndex(0);
}
