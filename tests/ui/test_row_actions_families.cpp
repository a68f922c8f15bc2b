// A product in several formats on the page, driven as a user drives it: the
// fixture gain in VST3 and LV2 is one row whose badges switch the form in
// use, keeping it on or off; the row menu splits the family, joins it again,
// takes a third form and lets one go, a group plays LV2 in all children,
// and the product runs in its own process.
#include "row_actions_fixture.h"

#include "QVlorLv2_Manager.h"
#include "QVlorSetting.h"

#include "fxisolation.h"

namespace {

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

} // namespace

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
