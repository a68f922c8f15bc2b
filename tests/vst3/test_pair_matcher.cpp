// Which VST2 plugin and which VST3 class the matcher takes for one product,
// and what it refuses.
#include "QVlorPluginMatcher.h"

#include <gtest/gtest.h>

using M = QVlorPluginMatcher;

namespace {

M::Vst2Item v2(qint64 id, const char* name, const char* vendor = "Acme", bool enabled = false)
{
    return {id, QString::fromUtf8(name), QString::fromUtf8(vendor), enabled};
}

M::Vst3Item v3(const QString& cid, const char* name, const char* vendor = "Acme", QList<QString> compat = {},
               bool enabled = false)
{
    return {cid, QString::fromUtf8(name), QString::fromUtf8(vendor), compat, enabled};
}

QString cid(int n) { return QStringLiteral("%1").arg(n, 32, 16, QLatin1Char('0')).toUpper(); }

void match(const QList<M::Vst2Item>& a, const QList<M::Vst3Item>& b, QVlorPluginPairs& pairs,
           const QSet<QString>& onlyCids = {}, qint64 onlyVst2 = 0)
{
    M::match(a, b, pairs, onlyCids, onlyVst2);
}

} // namespace

TEST(PairMatcherKeys, FuidAndNormalisedNames)
{
    // 'ABCD' and a long name: VST, the id's bytes, nine bytes of the lower-cased name.
    EXPECT_EQ(M::fuidFromVst2(0x41424344, QStringLiteral("MegaCompressor")),
              QStringLiteral("565354") + QStringLiteral("41424344") + QByteArray("megacompr").toHex().toUpper());
    EXPECT_EQ(M::fuidFromVst2(0x41424344, QStringLiteral("Ab")),
              QStringLiteral("56535441424344") + QStringLiteral("6162") + QStringLiteral("00").repeated(7));
    // Only the low 32 bits of the id count.
    EXPECT_EQ(M::fuidFromVst2(0x1241424344LL, QStringLiteral("Ab")), M::fuidFromVst2(0x41424344, QStringLiteral("Ab")));
    // A multi-byte character is cut by bytes, as the convention does.
    EXPECT_EQ(M::fuidFromVst2(1, QStringLiteral("ÄÄÄÄÄ")).size(), 32);

    EXPECT_EQ(M::normalizeKey(QStringLiteral("  Big\t\tVerb  ")), QStringLiteral("big verb"));
    EXPECT_EQ(M::normalizeKey(QString::fromUtf8("Comp\u00a0\u2003X (x64)")), QStringLiteral("comp x (x64)"));
    EXPECT_EQ(M::normalizeKey(QStringLiteral("\n")), QString());
    // A name as some plugins report it, with the line end of another system.
    EXPECT_EQ(M::normalizeKey(QStringLiteral("Big Verb\r")), M::normalizeKey(QStringLiteral("Big Verb")));
}

TEST(PairMatcherTiers, CompatFourccAndHeuristic)
{
    QVlorPluginPairs pairs;
    const M::Vst2Item old = v2(0x5A4D4558, "Old Name", "Acme", true);
    const M::Vst2Item conv = v2(0x434F4E56, "Converted");
    const M::Vst2Item named = v2(77, "Same Name", "Acme");
    const QList<M::Vst3Item> classes{
        v3(cid(1), "New Name", "Acme", {QStringLiteral("FFFF"), M::fuidFromVst2(old.uniqueId, old.name)}),
        v3(M::fuidFromVst2(conv.uniqueId, conv.name), "Converted (VST3)"),
        v3(cid(3), "  same  NAME ", "ACME"),
    };
    match({old, conv, named}, classes, pairs);
    ASSERT_EQ(pairs.entries().size(), 3);
    const QVlorPluginPairs::Entry* a = pairs.findByVst3(cid(1));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->vst2, old.uniqueId);
    EXPECT_EQ(a->origin, QStringLiteral("compat"));
    EXPECT_EQ(a->activeFormat, QStringLiteral("vst2")); // the user is on the old one only
    EXPECT_EQ(pairs.findByVst2(conv.uniqueId)->origin, QStringLiteral("fourcc"));
    EXPECT_EQ(pairs.findByVst2(77)->origin, QStringLiteral("heuristic"));
    EXPECT_EQ(pairs.findByVst2(77)->vst3, cid(3));

    // Rematching adds nothing and touches nothing.
    pairs.findByVst2(77)->activeFormat = QStringLiteral("vst2");
    match({old, conv, named}, classes, pairs);
    EXPECT_EQ(pairs.entries().size(), 3);
    EXPECT_EQ(pairs.findByVst2(77)->activeFormat, QStringLiteral("vst2"));
}

TEST(PairMatcherTiers, HeuristicNeedsOneOnEachSide)
{
    // Two classes of one name and vendor: neither pairs by name.
    QVlorPluginPairs pairs;
    match({v2(1, "Verb")}, {v3(cid(1), "Verb"), v3(cid(2), "verb ")}, pairs);
    EXPECT_TRUE(pairs.entries().isEmpty());

    // Two VST2 plugins of one name: the same.
    match({v2(1, "Verb"), v2(2, "Verb")}, {v3(cid(1), "Verb")}, pairs);
    EXPECT_TRUE(pairs.entries().isEmpty());

    // Another vendor is another product; an id of 0 was never probed.
    match({v2(1, "Verb", "Other"), v2(0, "Delay")}, {v3(cid(1), "Verb"), v3(cid(2), "Delay")}, pairs);
    EXPECT_TRUE(pairs.entries().isEmpty());

    // One of the twin classes may still pair by stronger evidence.
    const M::Vst2Item a = v2(5, "Verb");
    match({a}, {v3(cid(1), "Verb"), v3(M::fuidFromVst2(5, QStringLiteral("Verb")), "Verb")}, pairs);
    ASSERT_EQ(pairs.entries().size(), 1);
    EXPECT_EQ(pairs.entries().first().origin, QStringLiteral("fourcc"));
}

TEST(PairMatcherTiers, SplitsAreRefusedInEveryTier)
{
    const M::Vst2Item a = v2(0x41424344, "Twin");
    const QString fourcc = M::fuidFromVst2(a.uniqueId, a.name);
    QVlorPluginPairs pairs;
    // The user broke the pair: compat, fourcc and name all point at it again.
    pairs.addPair(a.uniqueId, fourcc, QStringLiteral("fourcc"), QStringLiteral("vst3"));
    pairs.splitPair(pairs.entries().first().pairId, QStringLiteral("vst2"));
    pairs.entries().clear(); // the kept side forgotten too: only the split remains
    match({a}, {v3(fourcc, "Twin", "Acme", {fourcc})}, pairs);
    EXPECT_TRUE(pairs.entries().isEmpty());

    // A compat text of the split pair falls through to the next text.
    const M::Vst2Item b = v2(0x45464748, "Other Twin");
    match({a, b}, {v3(fourcc, "Twin", "Acme", {fourcc, M::fuidFromVst2(b.uniqueId, b.name)})}, pairs);
    ASSERT_EQ(pairs.entries().size(), 1);
    EXPECT_EQ(pairs.entries().first().vst2, b.uniqueId);
    EXPECT_EQ(pairs.entries().first().origin, QStringLiteral("compat"));

    // The kept side of a split hides from matching altogether.
    QVlorPluginPairs kept;
    kept.addPair(a.uniqueId, cid(9), QStringLiteral("manual"), QStringLiteral("vst2"));
    kept.splitPair(kept.entries().first().pairId, QStringLiteral("vst2"));
    match({a}, {v3(fourcc, "Twin")}, kept);
    EXPECT_EQ(kept.entries().size(), 1);
    EXPECT_TRUE(kept.findByVst2(a.uniqueId)->vst3.isEmpty());
}

TEST(PairMatcherTiers, Restrictions)
{
    const QList<M::Vst2Item> plugins{v2(1, "One"), v2(2, "Two"), v2(3, "Two")};
    const QList<M::Vst3Item> classes{v3(cid(1), "One"), v3(cid(2), "Two")};
    QVlorPluginPairs pairs;
    match(plugins, classes, pairs, {cid(2)});
    EXPECT_TRUE(pairs.entries().isEmpty()); // "Two" is not unique on the VST2 side

    match(plugins, classes, pairs, {cid(1)});
    EXPECT_EQ(pairs.entries().size(), 1);

    // Restricted to one VST2 plugin, the others still count against a name.
    QVlorPluginPairs only;
    match(plugins, classes, only, {}, 3);
    EXPECT_TRUE(only.entries().isEmpty());
    match(plugins, classes, only, {}, 2);
    EXPECT_TRUE(only.entries().isEmpty());
    match(plugins, classes, only, {}, 1);
    ASSERT_EQ(only.entries().size(), 1);
    EXPECT_EQ(only.entries().first().vst3, cid(1));
}

TEST(PairMatcherTiers, ActiveFormat)
{
    struct Case {
        bool vst2On, vst3On;
        const char* expected;
    };
    for (const Case& c : {Case{true, true, "vst3"}, Case{false, false, "vst3"}, Case{true, false, "vst2"},
                          Case{false, true, "vst3"}}) {
        QVlorPluginPairs pairs;
        match({v2(1, "Fx", "Acme", c.vst2On)}, {v3(cid(1), "Fx", "Acme", {}, c.vst3On)}, pairs);
        ASSERT_EQ(pairs.entries().size(), 1);
        EXPECT_EQ(pairs.entries().first().activeFormat, QLatin1String(c.expected)) << c.vst2On << c.vst3On;
    }
}

TEST(PairMatcherTiers, DefaultEnableFormat)
{
    // hasVst2, vst2Enabled, vst2UserDisabled, hasVst3
    EXPECT_EQ(M::defaultEnableFormat(true, true, false, true), QStringLiteral("vst2"));
    EXPECT_EQ(M::defaultEnableFormat(true, true, true, true), QStringLiteral("vst2"));
    EXPECT_EQ(M::defaultEnableFormat(true, false, false, true), QStringLiteral("vst3"));
    EXPECT_EQ(M::defaultEnableFormat(true, false, true, true), QStringLiteral("veto"));
    EXPECT_EQ(M::defaultEnableFormat(true, false, true, false), QStringLiteral("vst2"));
    EXPECT_EQ(M::defaultEnableFormat(false, true, true, true), QStringLiteral("vst3"));
    EXPECT_EQ(M::defaultEnableFormat(false, false, false, false), QStringLiteral("veto"));
}
