// The LV2 plugins' rows among the others', from hand-built catalogs: their
// states, and the maker's switch that gates a vendor in every format.
#include "QVlorUnifiedRows_p.h"

#include <gtest/gtest.h>

namespace {

QVlorLv2::CatalogPlugin lv2Plugin(const char* uri, const char* maker)
{
    QVlorLv2::CatalogPlugin p;
    p.uri = QLatin1String(uri);
    p.name = p.uri.mid(4).toUpper();
    p.maker = QLatin1String(maker);
    return p;
}

QVlorVst3::Catalog vst3Catalog(const QString& vendor)
{
    QVlorVst3::CatalogClass c(QStringLiteral("C1"), QStringLiteral("Comp"), vendor, QStringLiteral("Fx"),
                              QStringLiteral("1.0"));
    c.setState(QVlorVst3::CatalogClass::Enabled);
    c.setEnabled(true);
    QVlorVst3::CatalogBundle b;
    b.setPath(QStringLiteral("/vst3/comp.vst3"));
    b.setProbed(true);
    b.setEnabled(true);
    b.classes() = {c};
    QVlorVst3::Catalog catalog;
    catalog.bundles() << b;
    return catalog;
}

} // namespace

TEST(UnifiedRows, Lv2PluginsAreRowsOfTheirOwnWithTheirStates)
{
    QVlorLv2::Catalog lv2;
    QVlorLv2::CatalogBundle bundle;
    bundle.path = QStringLiteral("/lv2/x.lv2");
    struct Case {
        const char* uri;
        QVlorLv2::CatalogPlugin::State state;
        const char* reason;
        const char* rowState;
        bool inUse;
        bool notAnEffect;
    } cases[] = {
        {"urn:a", QVlorLv2::CatalogPlugin::Usable, "", "", true, false},
        {"urn:b", QVlorLv2::CatalogPlugin::Failed, "invalid samples", "failed", true, false},
        {"urn:c", QVlorLv2::CatalogPlugin::Crashed, "the plugin crashed during its check", "crashed", true, false},
        {"urn:d", QVlorLv2::CatalogPlugin::NotAnEffect, "not an effect (an instrument)", "failed", true, true},
        {"urn:off", QVlorLv2::CatalogPlugin::Usable, "", "", false, false},
    };
    for (const Case& c : cases) {
        QVlorLv2::CatalogPlugin p;
        p.uri = QLatin1String(c.uri);
        p.name = p.uri.mid(4).toUpper();
        p.maker = QStringLiteral("Some Maker");
        p.state = c.state;
        p.reason = QLatin1String(c.reason);
        bundle.plugins << p;
    }
    lv2.bundles << bundle;
    lv2.disabledUris << QStringLiteral("urn:off");
    const QList<UnifiedRow> rows = ComposeUnifiedRows({}, QVlorVst3::Catalog(), QVlorPluginPairs(), {}, {}, {}, {},
                                                      true, lv2);
    ASSERT_EQ(rows.size(), int(std::size(cases)));
    for (int i = 0; i < rows.size(); ++i) {
        const UnifiedRow& r = rows[i];
        const Case& c = cases[i];
        EXPECT_TRUE(r.lv2.present && r.lv2.active && !r.vst2.present && !r.vst3.present) << c.uri;
        EXPECT_EQ(r.lv2.identity, QLatin1String(c.uri));
        EXPECT_EQ(r.vendorKey, QStringLiteral("some maker"));
        EXPECT_EQ(r.rowStateText(), QLatin1String(c.rowState)) << c.uri;
        EXPECT_EQ(r.inUse(), c.inUse) << c.uri;
        EXPECT_EQ(UpmRowNotAnEffect(r), c.notAnEffect) << c.uri;
    }
}

// A maker switched off in the LV2 catalog gates its rows of every format,
// and one switched off in the VST3 catalog gates its LV2 rows; makers match
// whatever their case, and another maker's rows stay.
TEST(UnifiedRows, AMakerSwitchedOffInAnyCatalogGatesItsLv2AndVst3Rows)
{
    struct Case {
        const char* what;
        const char* lv2Off;
        const char* vst3Off;
    } cases[] = {
        {"off in the LV2 catalog", "zam", nullptr},
        {"off in the VST3 catalog", nullptr, "zam"},
        {"off in both", "zam", "zam"},
    };
    for (const Case& c : cases) {
        QVlorLv2::Catalog lv2;
        QVlorLv2::CatalogBundle bundle;
        bundle.path = QStringLiteral("/lv2/x.lv2");
        bundle.plugins << lv2Plugin("urn:zam", "ZAM") << lv2Plugin("urn:other", "Other");
        lv2.bundles << bundle;
        if (c.lv2Off)
            lv2.disabledVendors << QLatin1String(c.lv2Off);
        QVlorVst3::Catalog vst3 = vst3Catalog(QStringLiteral("Zam"));
        if (c.vst3Off)
            vst3.disabledVendors() << QLatin1String(c.vst3Off);
        const QList<UnifiedRow> rows =
            ComposeUnifiedRows({}, vst3, QVlorPluginPairs(), {}, {}, {}, {}, true, lv2);
        ASSERT_EQ(rows.size(), 3) << c.what;
        for (const UnifiedRow& r : rows) {
            const bool zam = r.vendorKey == QLatin1String("zam");
            EXPECT_EQ(r.vendorEnabled, !zam) << c.what << " " << r.name.toStdString();
            EXPECT_EQ(r.inUse(), !zam) << c.what << " " << r.name.toStdString();
            EXPECT_EQ(r.lv2.gated || r.vst3.gated, zam) << c.what << " " << r.name.toStdString();
        }
        EXPECT_EQ(lv2.isOffered(QStringLiteral("urn:zam")), !c.lv2Off) << c.what;
        EXPECT_TRUE(lv2.isOffered(QStringLiteral("urn:other"))) << c.what;
    }
}

// An LV2 plugin a family holds is a badge of the family's one row, active
// when the family plays LV2 (its name and maker then the row's); a failed LV2
// form shows on that row; a family whose other forms are gone keeps its id.
TEST(UnifiedRows, AFamilysLv2FormIsABadgeOfItsOneRow)
{
    struct Case {
        const char* name;
        const char* familyCid; // the VST3 class the family holds, "" for none in the catalog
        const char* active;
        QVlorLv2::CatalogPlugin::State state;
        int rows;
        bool lv2Active;
        const char* rowName;
    } cases[] = {
        {"VST3 active", "C1", "vst3", QVlorLv2::CatalogPlugin::Usable, 1, false, "Comp"},
        {"LV2 active", "C1", "lv2", QVlorLv2::CatalogPlugin::Usable, 1, true, "COMP"},
        {"LV2 failed, VST3 active", "C1", "vst3", QVlorLv2::CatalogPlugin::Failed, 1, false, "Comp"},
        {"the VST3 form gone", "C9", "vst3", QVlorLv2::CatalogPlugin::Usable, 2, true, "COMP"},
    };
    for (const Case& c : cases) {
        QVlorPluginPairs pairs;
        QVlorPluginPairs::Entry* e = pairs.addFamily(0, QLatin1String(c.familyCid), QStringLiteral("urn:comp"),
                                                     QStringLiteral("heuristic"), QLatin1String(c.active));
        ASSERT_NE(e, nullptr);
        const QString pairId = e->pairId;
        QVlorLv2::Catalog lv2;
        QVlorLv2::CatalogBundle bundle;
        bundle.path = QStringLiteral("/lv2/comp.lv2");
        bundle.plugins << lv2Plugin("urn:comp", "Acme LV2");
        bundle.plugins.last().state = c.state;
        bundle.plugins << lv2Plugin("urn:solo", "Acme LV2");
        lv2.bundles << bundle;
        const QList<UnifiedRow> rows =
            ComposeUnifiedRows({}, vst3Catalog(QStringLiteral("Acme")), pairs, {}, {}, {}, {}, true, lv2);
        // The lone LV2 plugin always has its own row, last.
        ASSERT_EQ(rows.size(), c.rows + 1) << c.name;
        EXPECT_EQ(rows.last().lv2.identity, QStringLiteral("urn:solo")) << c.name;
        EXPECT_TRUE(rows.last().pairId.isEmpty()) << c.name;
        const UnifiedRow* family = nullptr;
        for (const UnifiedRow& r : rows)
            if (r.lv2.identity == QLatin1String("urn:comp"))
                family = &r;
        ASSERT_NE(family, nullptr) << c.name;
        EXPECT_EQ(family->pairId, pairId) << c.name;
        EXPECT_EQ(family->lv2.active, c.lv2Active) << c.name;
        EXPECT_EQ(family->vst3.present, c.rows == 1) << c.name;
        EXPECT_EQ(family->vst3.active, c.rows == 1 && !c.lv2Active) << c.name;
        EXPECT_EQ(family->name, QLatin1String(c.rowName)) << c.name;
        EXPECT_EQ(family->lv2.state, QLatin1String(c.state == QVlorLv2::CatalogPlugin::Failed ? "failed" : ""))
            << c.name;
        EXPECT_EQ(family->vendorKey, QLatin1String(c.lv2Active ? "acme lv2" : "acme")) << c.name;
    }
}
