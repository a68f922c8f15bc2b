// The VST3 module cache and class listing, on test bundles and on the real
// bundles of the system.
#include "vst3engine.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <string>
#include <vector>

using namespace vlortest;

namespace {

const std::string kBundles = VLOR_FIXTURE_VST3_DIR;
const std::string kClasses = kBundles + "/vlor-vst3-classes.vst3";

std::vector<Vst3ClassRecord> list(const std::string& path, int limit = 32, int* result = nullptr)
{
    std::vector<Vst3ClassRecord> records(size_t(limit > 0 ? limit : 1));
    const int n = VLORVST3_ListClasses(path.c_str(), records.data(), limit);
    if (result)
        *result = n;
    records.resize(size_t(n > 0 ? n : 0));
    return records;
}

// The module's own count of ModuleEntry calls, read through the loaded copy.
int entries(const std::string& bundle, const std::string& name)
{
    void* h = dlopen((bundle + "/Contents/x86_64-linux/" + name + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (!h)
        return -1;
    const int n = *static_cast<int*>(dlsym(h, "vlorvst3fixture_entries"));
    dlclose(h);
    return n;
}

void copyBundle(const std::string& from, const std::string& name, const std::string& to)
{
    std::system(("mkdir -p '" + to + "/Contents/x86_64-linux' && cp '" + from + "/Contents/x86_64-linux/" + name +
                 ".so' '" + to + "/Contents/x86_64-linux/" + "bundle.so.tmp' && mv '" + to +
                 "/Contents/x86_64-linux/bundle.so.tmp' '" + to + "/Contents/x86_64-linux/bundle.so'")
                    .c_str());
}

class Modules : public ::testing::Test {
protected:
    void SetUp() override { VLORVST3_Initialize(); }
};

} // namespace

TEST_F(Modules, EffectClassesAreListedInFactoryOrderWithTheirLeadingZeros)
{
    const std::vector<Vst3ClassRecord> r = list(kClasses);
    ASSERT_EQ(r.size(), 5u); // the controllers take no record
    EXPECT_STREQ(r[0].uid, "0A010203000000000000000000000001");
    EXPECT_STREQ(r[0].name, "Fixture Delay");
    EXPECT_STREQ(r[0].category, "Audio Module Class");
    EXPECT_STREQ(r[0].subCategories, "Fx|Delay");
    EXPECT_STREQ(r[0].version, "1.2.3");
    EXPECT_STREQ(r[0].vendor, "Vlor Fixtures"); // the factory's, as the class names none
    EXPECT_STREQ(r[1].uid, "000BCDEF000000000000000000000002");
    EXPECT_STREQ(r[2].subCategories, "Instrument|Synth");
    EXPECT_STREQ(r[3].name, "Fixture Gate");
    EXPECT_STREQ(r[4].subCategories, "Fx|Instrument");

    int n = 0;
    const std::vector<Vst3ClassRecord> one = list(kClasses, 1, &n);
    EXPECT_EQ(n, 1);
    EXPECT_STREQ(one[0].name, "Fixture Delay");
}

TEST_F(Modules, ABundleIsLoadedOnceHoweverOftenItIsAskedFor)
{
    list(kClasses);
    list(kClasses);
    list(kClasses, 2);
    EXPECT_EQ(entries(kClasses, "vlor-vst3-classes"), 1);
    // Another spelling of the same folder is another key: loaded again as the
    // same shared object, which the loader shares.
    VLORVST3_ReleaseModule(nullptr);
    VLORVST3_ReleaseModule("/not/cached.vst3");
    EXPECT_EQ(entries(kClasses, "vlor-vst3-classes"), 1);
}

TEST_F(Modules, AFailedBundleIsTriedAgainOnceFixed)
{
    TempDir dir;
    const std::string bundle = dir.file("bundle.vst3");
    copyBundle(kBundles + "/vlor-vst3-entry-fails.vst3", "vlor-vst3-entry-fails", bundle);
    int n = 0;
    list(bundle, 8, &n);
    EXPECT_EQ(n, -1);
    copyBundle(kClasses, "vlor-vst3-classes", bundle);
    list(bundle, 8, &n);
    EXPECT_EQ(n, 5);
}

TEST_F(Modules, BadArgumentsAndThingsThatAreNoBundle)
{
    Vst3ClassRecord r[2];
    EXPECT_EQ(VLORVST3_ListClasses(nullptr, r, 2), -1);
    EXPECT_EQ(VLORVST3_ListClasses(kClasses.c_str(), nullptr, 2), -1);
    EXPECT_EQ(VLORVST3_ListClasses(kClasses.c_str(), r, 0), -1);
    TempDir dir;
    std::system(("mkdir -p '" + dir.file("empty.vst3/Contents/x86_64-linux") + "'").c_str());
    writeFile(dir.file("text.vst3"), "not a library");
    for (const std::string& bad : {dir.path(), dir.file("empty.vst3"), dir.file("text.vst3"), dir.file("missing.vst3"),
                                   std::string("/usr/lib/x86_64-linux-gnu/libc.so.6")})
        EXPECT_EQ(VLORVST3_ListClasses(bad.c_str(), r, 2), -1) << bad;
    EXPECT_EQ(VLORVST3_ListClasses((kBundles + "/vlor-vst3-controllers-only.vst3").c_str(), r, 2), 0);
}

TEST(RealBundles, EveryZamBundleListsItsEffect)
{
    VLORVST3_Initialize();
    DIR* d = opendir("/usr/lib/vst3");
    if (!d)
        GTEST_SKIP() << "no system bundles";
    int bundles = 0;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.size() < 6 || name.compare(name.size() - 5, 5, ".vst3") != 0)
            continue;
        ++bundles;
        const std::vector<Vst3ClassRecord> r = list("/usr/lib/vst3/" + name);
        ASSERT_EQ(r.size(), 1u) << name;
        EXPECT_EQ(std::string(r[0].subCategories).rfind("Fx", 0), 0u) << name;
        EXPECT_EQ(std::strlen(r[0].uid), 32u) << name;
    }
    closedir(d);
    EXPECT_GT(bundles, 0);
}
