// Families of up to three forms: the store's file across versions, a form
// split off a family, and the LV2 forms the matcher joins to their products
// by the names and makers the makers' own packages use.
#include "QVlorPluginFormat.h"
#include "QVlorPluginMatcher.h"
#include "testsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <functional>

using M = QVlorPluginMatcher;
using Entry = QVlorPluginPairs::Entry;

namespace {

const QStringList kOrder = {QStringLiteral("vst3"), QStringLiteral("lv2"), QStringLiteral("vst2")};

M::Lv2Item lv2(const char* uri, const char* name, const char* maker, bool enabled = false)
{
    return {QString::fromUtf8(uri), QString::fromUtf8(name), QString::fromUtf8(maker), enabled};
}

QString describe(const Entry& e)
{
    return QStringLiteral("%1|%2|%3 %4").arg(e.vst2).arg(e.vst3, e.lv2, e.activeFormat);
}

QStringList describeAll(const QVlorPluginPairs& pairs)
{
    QStringList out;
    for (const Entry& e : pairs.entries())
        out << describe(e);
    return out;
}

} // namespace

// A store written by the previous release, with a split, a switch to VST2 and
// a refused enabling made by the user: every one is read, and written again
// as version 2 with nothing lost.
TEST(FamilyStore, AFileOfThePreviousReleaseIsReadAndRewrittenWhole)
{
    const QString old = QStringLiteral(VLOR_TEST_DATA_DIR "/plugin_pairs_v1.json");
    QFile f(old);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QJsonObject v1 = QJsonDocument::fromJson(f.readAll()).object();
    ASSERT_EQ(v1.value(QStringLiteral("version")).toInt(), 1);
    QVlorPluginPairs pairs;
    ASSERT_TRUE(pairs.load(old));
    const QJsonArray oldPairs = v1.value(QStringLiteral("pairs")).toArray();
    ASSERT_EQ(pairs.entries().size(), oldPairs.size());
    for (int i = 0; i < oldPairs.size(); ++i) {
        const QJsonObject o = oldPairs.at(i).toObject();
        const Entry& e = pairs.entries().at(i);
        EXPECT_EQ(e.pairId, o.value(QStringLiteral("pairId")).toString());
        EXPECT_EQ(e.vst2, o.value(QStringLiteral("vst2")).toString().toLongLong());
        EXPECT_EQ(e.vst3, o.value(QStringLiteral("vst3")).toString());
        EXPECT_EQ(e.activeFormat, o.value(QStringLiteral("activeFormat")).toString());
        EXPECT_EQ(e.manualOverride, o.value(QStringLiteral("manualOverride")).toBool());
        EXPECT_EQ(e.vetoedAutoEnable, o.value(QStringLiteral("vetoedAutoEnable")).toBool());
        EXPECT_TRUE(e.lv2.isEmpty());
    }
    const QJsonObject split = v1.value(QStringLiteral("splits")).toArray().first().toObject();
    const qint64 splitVst2 = split.value(QStringLiteral("vst2")).toString().toLongLong();
    const QString splitVst3 = split.value(QStringLiteral("vst3")).toString();
    EXPECT_TRUE(pairs.isSplitBlocked(splitVst2, splitVst3));
    EXPECT_EQ(pairs.addPair(splitVst2, splitVst3, QStringLiteral("heuristic"), QStringLiteral("vst3")), nullptr);

    vlortest::TempDir dir;
    const QString again = QString::fromStdString(dir.file("plugin_pairs.json"));
    ASSERT_TRUE(pairs.save(again));
    QVlorPluginPairs reread;
    ASSERT_TRUE(reread.load(again));
    EXPECT_EQ(describeAll(reread), describeAll(pairs));
    EXPECT_TRUE(reread.isSplitBlocked(splitVst2, splitVst3));
    QFile written(again);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(QJsonDocument::fromJson(written.readAll()).object().value(QStringLiteral("version")).toInt(), 2);
}

// One form split off a family of three: the other two stay together, the
// active format moves off a form that left, and no form rejoins the ones it
// was split from, also after the file is read again.
TEST(FamilyStore, AFormSplitOffAFamilyLeavesTheOtherTwoTogether)
{
    struct Case {
        const char* letGo;
        const char* active;
        const char* left;  // the family after the split
        const char* after; // the active format after it
    } cases[] = {
        {"lv2", "lv2", "7|C7|", "vst3"},
        {"vst3", "vst3", "7||urn:x", "lv2"},
        {"vst2", "vst3", "0|C7|urn:x", "vst3"},
    };
    for (const Case& c : cases) {
        QVlorPluginPairs pairs;
        Entry* e = pairs.addFamily(7, QStringLiteral("C7"), QStringLiteral("urn:x"), QStringLiteral("heuristic"),
                                   QLatin1String(c.active));
        ASSERT_NE(e, nullptr);
        const QString id = e->pairId;
        pairs.splitForm(id, QLatin1String(c.letGo));
        const Entry* family = pairs.findByPairId(id);
        ASSERT_NE(family, nullptr);
        EXPECT_EQ(describe(*family), QStringLiteral("%1 %2").arg(QLatin1String(c.left), QLatin1String(c.after)))
            << c.letGo;
        EXPECT_TRUE(family->manualOverride);
        vlortest::TempDir dir;
        const QString file = QString::fromStdString(dir.file("p.json"));
        ASSERT_TRUE(pairs.save(file));
        QVlorPluginPairs reread;
        ASSERT_TRUE(reread.load(file));
        Entry* kept = reread.findByPairId(id);
        ASSERT_NE(kept, nullptr);
        // The form that left comes back neither to the family nor with either form.
        if (QLatin1String(c.letGo) == QLatin1String("lv2")) {
            EXPECT_EQ(reread.addLv2Form(id, QStringLiteral("urn:x")), nullptr);
            EXPECT_EQ(reread.addFamily(7, QString(), QStringLiteral("urn:x"), QStringLiteral("m"), QStringLiteral("lv2")),
                      nullptr);
        } else if (QLatin1String(c.letGo) == QLatin1String("vst3")) {
            EXPECT_TRUE(reread.isSplitBlocked(7, QStringLiteral("C7")));
            EXPECT_EQ(reread.addFamily(0, QStringLiteral("C7"), QStringLiteral("urn:x"), QStringLiteral("m"),
                                       QStringLiteral("lv2")),
                      nullptr);
        } else {
            EXPECT_TRUE(reread.isSplitBlocked(7, QStringLiteral("C7")));
        }
    }
}

// The product keys, on the names and makers the makers' packages here give.
TEST(FamilyMatcher, ProductKeysOfRealPackages)
{
    struct Case {
        const char* name;
        const char* maker;
        const char* keyName;
        const char* keyMaker;
    } cases[] = {
        {"ZamComp", "Damien Zammit", "zamcomp", "damien zammit"},
        {"LSP Compressor Stereo", "LSP LV2", "compressor stereo", "lsp"},
        {"Compressor Stereo", "LSP VST", "compressor stereo", "lsp"},
        {"LSP Graphic Equalizer x16 Mono", "LSP LV2", "graphic equalizer x16 mono", "lsp"},
        {"3 Band EQ", "DISTRHO", "3 band eq", "distrho"},
        {"MVerb", "Martin Eastwood, falkTX", "mverb", "martin eastwood, falktx"},
        // A maker's own name alone is no prefix, nor is a word that only begins like it.
        {"LSP", "LSP LV2", "lsp", "lsp"},
        {"LSPX Comp", "LSP LV2", "lspx comp", "lsp"},
        // A maker called by a format word alone keeps it.
        {"Thing", "VST", "thing", "vst"},
    };
    for (const Case& c : cases) {
        const auto key = M::productKey(QString::fromUtf8(c.name), QString::fromUtf8(c.maker));
        EXPECT_EQ(key.first, QString::fromUtf8(c.keyName)) << c.name;
        EXPECT_EQ(key.second, QString::fromUtf8(c.keyMaker)) << c.name;
    }
}

// Which LV2 plugin joins which product, and which are left alone.
TEST(FamilyMatcher, Lv2FormsJoinTheirProductsWhereTheKeyIsUniqueOnBothSides)
{
    QVlorPluginPairs pairs;
    // ZamComp in all three formats: the pair of the older two takes the LV2 form.
    const QList<M::Vst2Item> vst2 = {{100, QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"), false},
                                     {200, QStringLiteral("Compressor Stereo"), QStringLiteral("LSP VST"), true},
                                     {300, QStringLiteral("Gate"), QStringLiteral("Acme"), false},
                                     {301, QStringLiteral("Gate"), QStringLiteral("Acme"), false},
                                     {400, QStringLiteral("Delay"), QStringLiteral("Solo"), false}};
    const QList<M::Vst3Item> vst3 = {{QStringLiteral("C100"), QStringLiteral("ZamComp"),
                                      QStringLiteral("Damien Zammit"), {}, true},
                                     {QStringLiteral("C500"), QStringLiteral("Verb"), QStringLiteral("Solo"), {}, false}};
    M::match(vst2, vst3, pairs, {}, 0);
    ASSERT_EQ(describeAll(pairs), QStringList{QStringLiteral("100|C100| vst3")});
    M::matchLv2(vst2, vst3,
                {lv2("urn:zam:comp", "ZamComp", "Damien Zammit"),
                 lv2("urn:lsp:comp", "LSP Compressor Stereo", "LSP LV2"),
                 // Two VST2 plugins of that key: no proof.
                 lv2("urn:acme:gate", "Gate", "Acme"),
                 // Two LV2 plugins of that key: no proof either.
                 lv2("urn:solo:delay", "Delay", "Solo"), lv2("urn:solo:delay2", "Delay", "Solo"),
                 // A lone VST3 class and an LV2 plugin the user uses: LV2 is active.
                 lv2("urn:solo:verb", "Verb", "Solo", true),
                 // No form of its product elsewhere.
                 lv2("urn:solo:only", "Only", "Solo")},
                pairs, kOrder);
    EXPECT_EQ(describeAll(pairs), (QStringList{QStringLiteral("100|C100|urn:zam:comp vst3"),
                                               QStringLiteral("200||urn:lsp:comp vst2"),
                                               QStringLiteral("0|C500|urn:solo:verb lv2")}));
    // A rematch changes nothing: what is held stays, nothing is joined twice.
    const QStringList before = describeAll(pairs);
    M::matchLv2(vst2, vst3, {lv2("urn:zam:comp", "ZamComp", "Damien Zammit")}, pairs, kOrder);
    EXPECT_EQ(describeAll(pairs), before);
}

// A new family whose forms the user uses alike takes the first of the order.
TEST(FamilyMatcher, TheFormatOrderDecidesWhereTheUserUsesNeitherForm)
{
    struct Case {
        QStringList order;
        bool vst2Enabled, lv2Enabled;
        const char* active;
    } cases[] = {
        {kOrder, false, false, "lv2"},
        {kOrder, true, true, "lv2"},
        {{QStringLiteral("vst2"), QStringLiteral("lv2")}, false, false, "vst2"},
        {kOrder, true, false, "vst2"},
        {{QStringLiteral("vst2")}, false, true, "lv2"},
    };
    for (const Case& c : cases) {
        QVlorPluginPairs pairs;
        M::matchLv2({{9, QStringLiteral("Comp"), QStringLiteral("Acme"), c.vst2Enabled}}, {},
                    {{QStringLiteral("urn:c"), QStringLiteral("Comp"), QStringLiteral("Acme"), c.lv2Enabled}}, pairs,
                    c.order);
        ASSERT_EQ(pairs.entries().size(), 1) << c.order.join(QLatin1Char(',')).toStdString();
        EXPECT_EQ(pairs.entries().first().activeFormat, QLatin1String(c.active))
            << c.order.join(QLatin1Char(',')).toStdString() << c.vst2Enabled << c.lv2Enabled;
    }
}

// A family of an LV2 plugin and one VST form takes the other VST form when it
// comes; a split's leftover does not, and two families are never merged.
TEST(FamilyMatcher, AVstFormCompletesAFamilyWithAnLv2Form)
{
    const M::Vst2Item comp2{7, QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"), true};
    const M::Vst3Item comp3{QStringLiteral("C7"), QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"), {}, true};
    const QString uri = QStringLiteral("urn:zam:comp");
    struct Case {
        const char* name;
        std::function<void(QVlorPluginPairs&)> before;
        QStringList after;
    } cases[] = {
        {"VST2 and LV2, then VST3", [&](QVlorPluginPairs& p) { p.addFamily(7, QString(), uri, "heuristic", "lv2"); },
         {QStringLiteral("7|C7|urn:zam:comp lv2")}},
        {"VST3 and LV2, then VST2", [&](QVlorPluginPairs& p) { p.addFamily(0, QStringLiteral("C7"), uri, "heuristic", "vst3"); },
         {QStringLiteral("7|C7|urn:zam:comp vst3")}},
        {"the VST3 form split off before",
         [&](QVlorPluginPairs& p) {
             p.addFamily(7, QStringLiteral("C7"), uri, "heuristic", "vst3");
             p.splitForm(p.entries().first().pairId, QStringLiteral("vst3"));
         },
         {QStringLiteral("7||urn:zam:comp lv2")}},
        {"a leftover of two VST forms split apart",
         [&](QVlorPluginPairs& p) {
             p.addPair(7, QStringLiteral("C0"), "heuristic", "vst2");
             p.splitPair(p.entries().first().pairId, QStringLiteral("vst2"));
         },
         {QStringLiteral("7|| vst2")}},
        {"each VST form in a family of its own with an LV2 plugin",
         [&](QVlorPluginPairs& p) {
             p.addFamily(7, QString(), uri, "heuristic", "lv2");
             p.addFamily(0, QStringLiteral("C7"), QStringLiteral("urn:other"), "heuristic", "vst3");
         },
         {QStringLiteral("7||urn:zam:comp lv2"), QStringLiteral("0|C7|urn:other vst3")}},
    };
    for (const Case& c : cases) {
        QVlorPluginPairs pairs;
        c.before(pairs);
        M::match({comp2}, {comp3}, pairs, {}, 0);
        M::match({comp2}, {comp3}, pairs, {}, 0); // a rescan's
        EXPECT_EQ(describeAll(pairs), c.after) << c.name;
    }
}

// VST2 names come cut by their field: LSP's long names, as its packages
// here give them, join their LV2 forms by their beginning where it is unique
// both ways; four names cut alike, or a short name, prove nothing.
TEST(FamilyMatcher, CutVst2NamesJoinByTheirBeginning)
{
    const QString vst = QStringLiteral("LSP VST"), lv2Maker = QStringLiteral("LSP LV2");
    struct Case {
        const char* name;
        QStringList vst2Names;
        QStringList lv2Names;
        int joined;
    } cases[] = {
        {"a cut name", {QStringLiteral("Multiband Dynamic Processor Lef")},
         {QStringLiteral("LSP Multiband Dynamic Processor LeftRight x8"),
          QStringLiteral("LSP Multiband Dynamic Processor MidSide x8")},
         1},
        {"a name cut at a blank", {QStringLiteral("Multiband Compressor LeftRight")},
         {QStringLiteral("LSP Multiband Compressor LeftRight x8")}, 1},
        {"four names cut alike",
         QStringList(4, QStringLiteral("Sidechain Multiband Compressor")),
         {QStringLiteral("LSP Sidechain Multiband Compressor LeftRight x8"),
          QStringLiteral("LSP Sidechain Multiband Compressor MidSide x8"),
          QStringLiteral("LSP Sidechain Multiband Compressor Mono x8"),
          QStringLiteral("LSP Sidechain Multiband Compressor Stereo x8")},
         0},
        {"two LV2 names begin so", {QStringLiteral("Multiband Dynamic Processor Mo")},
         {QStringLiteral("LSP Multiband Dynamic Processor Mono x8"),
          QStringLiteral("LSP Multiband Dynamic Processor Mono x16")},
         0},
        {"a name too short to be cut", {QStringLiteral("Compressor")}, {QStringLiteral("LSP Compressor Mono")}, 0},
        {"another maker's", {QStringLiteral("Multiband Dynamic Processor Lef")},
         {QStringLiteral("Multiband Dynamic Processor LeftRight x8")}, 0},
    };
    for (const Case& c : cases) {
        QList<M::Vst2Item> vst2;
        for (const QString& n : c.vst2Names)
            vst2.append({100 + vst2.size(), n, vst, false});
        QList<M::Lv2Item> lv2;
        for (const QString& n : c.lv2Names)
            lv2.append({QStringLiteral("urn:lsp:%1").arg(lv2.size()), n,
                        QLatin1String(c.name) == QLatin1String("another maker's") ? QStringLiteral("Other") : lv2Maker,
                        false});
        QVlorPluginPairs pairs;
        M::matchLv2(vst2, {}, lv2, pairs, kOrder);
        EXPECT_EQ(pairs.entries().size(), c.joined) << c.name;
        if (c.joined == 1)
            EXPECT_EQ(pairs.entries().first().lv2, QStringLiteral("urn:lsp:0")) << c.name;
    }
}

// The user's split of one form: kept through rescans, a restart, and a
// store whose file was then found broken (read back from its last good copy).
TEST(FamilyStore, ASplitFormStaysApartThroughRescansRestartsAndABrokenFile)
{
    const QList<M::Vst2Item> vst2 = {{7, QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"), true}};
    const QList<M::Vst3Item> vst3 = {
        {QStringLiteral("C7"), QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"), {}, true}};
    const QList<M::Lv2Item> lv2Items = {lv2("urn:zam:comp", "ZamComp", "Damien Zammit", true)};
    auto rescan = [&](QVlorPluginPairs& pairs) {
        M::match(vst2, vst3, pairs, {}, 0);
        M::matchLv2(vst2, vst3, lv2Items, pairs, kOrder);
    };
    vlortest::TempDir dir;
    const QString file = QString::fromStdString(dir.file("plugin_pairs.json"));
    QVlorPluginPairs pairs;
    rescan(pairs);
    ASSERT_EQ(describeAll(pairs), QStringList{QStringLiteral("7|C7|urn:zam:comp vst3")});
    pairs.splitForm(pairs.entries().first().pairId, QStringLiteral("lv2"));
    const QStringList split = {QStringLiteral("7|C7| vst3")};
    rescan(pairs);
    rescan(pairs);
    EXPECT_EQ(describeAll(pairs), split);
    ASSERT_TRUE(pairs.save(file));

    QVlorPluginPairs restarted;
    ASSERT_TRUE(restarted.load(file));
    rescan(restarted);
    EXPECT_EQ(describeAll(restarted), split);

    QFile broken(file);
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly | QIODevice::Truncate));
    broken.write("{\"version\": 2, \"pairs\": [");
    broken.close();
    QVlorPluginPairs afterBreak;
    ASSERT_TRUE(afterBreak.load(file));
    rescan(afterBreak);
    EXPECT_EQ(describeAll(afterBreak), split);
}

TEST(FamilyMatcher, TheFormatOrderSettingIsReadTolerantly)
{
    struct Case {
        const char* text;
        const char* order;
    } cases[] = {
        {"", "vst3,lv2,vst2"},
        {"lv2", "lv2,vst3,vst2"},
        {" VST2 , lv2", "vst2,lv2,vst3"},
        {"vst2,vst2,au,,lv2", "vst2,lv2,vst3"},
        {"garbage", "vst3,lv2,vst2"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(QVlorAudioPlugins::ParseFormatOrder(QString::fromUtf8(c.text)).join(QLatin1Char(',')),
                  QLatin1String(c.order))
            << c.text;
}
