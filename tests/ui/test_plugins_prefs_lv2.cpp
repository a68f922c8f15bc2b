// The plugin manager page's LV2 rows, driven as a user drives them over a
// real scan of the fixture bundle: the plugin's box and its maker's reach
// the LV2 manager; and the status filter's format choices.
#include "prefs_fixture.h"

#include "QVlorLv2_Manager.h"

using namespace vlortest;

namespace {

const QString kAtom = QStringLiteral("urn:vlor:fixture:atom");

using PrefsLv2 = Prefs;

} // namespace

// The status filter's format choices: a row shows under each format it is there in.
TEST(PrefsFilter, TheFormatChoicesKeepTheRowsOfThatFormat)
{
    using F = QVlorPluginsPrefs::ProxyFilter;
    UnifiedRow vst2, pair, lv2, lv2Failed;
    vst2.vst2 = {true, true, true, false, false, {}, {}, QStringLiteral("vstid-1"), {}};
    pair.vst2 = vst2.vst2;
    pair.vst2.active = false;
    pair.vst3 = {true, true, true, false, false, {}, {}, QStringLiteral("A"), {}};
    lv2.lv2 = {true, true, true, false, false, {}, {}, QStringLiteral("urn:a"), {}};
    lv2Failed.lv2 = {true, true, true, false, false, QStringLiteral("failed"), QStringLiteral("invalid samples"),
                     QStringLiteral("urn:b"), {}};
    struct Case {
        F::StatusFilter filter;
        bool vst2, pair, lv2, lv2Failed;
    } cases[] = {
        {F::FormatVst2, true, true, false, false},   {F::FormatVst3, false, true, false, false},
        {F::FormatLv2, false, false, true, true},    {F::StatusFailed, false, false, false, true},
        {F::StatusEnabled, true, true, true, false}, {F::StatusAll, true, true, true, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(F::acceptStatus(vst2, c.filter), c.vst2) << c.filter;
        EXPECT_EQ(F::acceptStatus(pair, c.filter), c.pair) << c.filter;
        EXPECT_EQ(F::acceptStatus(lv2, c.filter), c.lv2) << c.filter;
        EXPECT_EQ(F::acceptStatus(lv2Failed, c.filter), c.lv2Failed) << c.filter;
    }
}

// An LV2 plugin's row: its box reaches the LV2 manager, and the row follows.
TEST_F(PrefsLv2, AnLv2RowsBoxReachesTheLv2Manager)
{
    QVlorLv2::Manager* lv2 = scanLv2Fixtures();
    ASSERT_NE(lv2, nullptr);
    EXPECT_TRUE(rowOf(row(QStringLiteral("Fixture Atom"))).lv2.present);
    EXPECT_EQ(rowOf(row(QStringLiteral("Fixture Nan"))).rowStateText(), QStringLiteral("failed"));
    click(checkBox(row(QStringLiteral("Fixture Atom"))));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !lv2->catalogCopy().isEnabled(kAtom) &&
               row(QStringLiteral("Fixture Atom")).data(Qt::CheckStateRole).toInt() == Qt::Unchecked;
    }, 5000));
}

// A maker's box reaches the LV2 manager as it reaches the others: its LV2
// plugins leave the menu, keep their own switches, and come back.
TEST_F(PrefsLv2, AMakersBoxReachesTheLv2ManagerAndGatesItsRows)
{
    QVlorLv2::Manager* lv2 = scanLv2Fixtures();
    ASSERT_NE(lv2, nullptr);
    ASSERT_TRUE(rowOf(row(QStringLiteral("Fixture Atom"))).inUse());
    click(checkBox(row(QStringLiteral("Vlor fixtures"))));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !lv2->catalogCopy().isOffered(kAtom) && !rowOf(row(QStringLiteral("Fixture Atom"))).inUse();
    }, 5000));
    EXPECT_TRUE(lv2->catalogCopy().isEnabled(kAtom)) << "the plugin's own switch stays on";
    EXPECT_TRUE(rowOf(row(QStringLiteral("Fixture Atom"))).lv2.gated);
    click(checkBox(row(QStringLiteral("Vlor fixtures"))));
    EXPECT_TRUE(waitFor([&] {
        settle();
        return lv2->catalogCopy().isOffered(kAtom) && rowOf(row(QStringLiteral("Fixture Atom"))).inUse();
    }, 5000));
}
