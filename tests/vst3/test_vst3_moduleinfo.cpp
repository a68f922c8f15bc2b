// What a bundle's moduleinfo.json says of it.
#include "QVlorVst3_ModuleInfo.h"

#include "testsupport.h"

#include <QDir>

#include <gtest/gtest.h>

using QVlorVst3::ModuleInfo;
using namespace vlortest;

namespace {
const QString kBundles = QStringLiteral(VLOR_FIXTURE_VST3_DIR);
}

TEST(ModuleInfoReader, ClassesCompatibilityAndVendor)
{
    QList<ModuleInfo::ClassEntry> classes;
    QList<ModuleInfo::CompatEntry> compat;
    QString vendor;
    ASSERT_TRUE(ModuleInfo::read(kBundles + QStringLiteral("/vlor-vst3-classes.vst3"), &classes, &compat, &vendor));
    EXPECT_EQ(vendor, QStringLiteral("Vlor Fixtures"));
    ASSERT_EQ(classes.size(), 2); // the controller is no effect class
    EXPECT_EQ(classes[0].cid, QStringLiteral("0A010203000000000000000000000001"));
    EXPECT_EQ(classes[0].vendor, QStringLiteral("Vlor Fixtures"));
    EXPECT_EQ(classes[0].subCategories, QStringLiteral("Fx|Delay"));
    EXPECT_EQ(classes[1].vendor, QStringLiteral("Another Vendor"));
    ASSERT_EQ(compat.size(), 2);
    EXPECT_EQ(compat[0].newCid, QStringLiteral("0A010203000000000000000000000001"));
    EXPECT_EQ(compat[0].oldCids,
              (QStringList{QStringLiteral("56534544656C61796669787475726500"), QStringLiteral("ABCDEF00000000000000000000000000")}));
    EXPECT_TRUE(compat[1].oldCids.isEmpty());

    // Only what is asked for.
    QList<ModuleInfo::CompatEntry> only;
    EXPECT_TRUE(ModuleInfo::read(kBundles + QStringLiteral("/vlor-vst3-classes.vst3"), nullptr, &only, nullptr));
    EXPECT_EQ(only.size(), 2);
}

TEST(ModuleInfoReader, RelaxedJsonAndMissingFilesGiveFalse)
{
    QList<ModuleInfo::CompatEntry> compat{ModuleInfo::CompatEntry{QStringLiteral("KEEP"), {}}};
    EXPECT_FALSE(ModuleInfo::read(kBundles + QStringLiteral("/vlor-vst3-controllers-only.vst3"), nullptr, &compat, nullptr));
    ASSERT_EQ(compat.size(), 1); // left as it was
    EXPECT_FALSE(ModuleInfo::read(kBundles + QStringLiteral("/vlor-vst3-entry-fails.vst3"), nullptr, &compat, nullptr));
    EXPECT_FALSE(ModuleInfo::read(QStringLiteral("/nowhere.vst3"), nullptr, nullptr, nullptr));
}

TEST(ModuleInfoReader, ContentsComesBeforeResourcesAndCompatibilityIsOptional)
{
    TempDir dir;
    const QString bundle = QString::fromStdString(dir.file("both.vst3"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/Resources"));
    writeFile((bundle + QStringLiteral("/Contents/moduleinfo.json")).toStdString(),
              R"({"Factory Info":{"Vendor":"Top"},"Classes":[{"CID":"ab","Category":"Audio Module Class"}]})");
    writeFile((bundle + QStringLiteral("/Contents/Resources/moduleinfo.json")).toStdString(),
              R"({"Factory Info":{"Vendor":"Resources"}})");
    QString vendor;
    QList<ModuleInfo::ClassEntry> classes;
    QList<ModuleInfo::CompatEntry> compat;
    ASSERT_TRUE(ModuleInfo::read(bundle, &classes, &compat, &vendor));
    EXPECT_EQ(vendor, QStringLiteral("Top"));
    ASSERT_EQ(classes.size(), 1);
    EXPECT_EQ(classes[0].cid, QStringLiteral("AB"));
    EXPECT_EQ(classes[0].vendor, QStringLiteral("Top"));
    EXPECT_TRUE(compat.isEmpty());
}
