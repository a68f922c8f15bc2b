// The files of the VST3 catalog and the pair store: tolerant reading, and
// saves that replace the old file whole or leave it alone.
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst3_Catalog_p.h"

#include "testsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>
#include <csignal>
#include <functional>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>
#include <sys/resource.h>

using namespace QVlorVst3;
using vlortest::TempDir;

namespace {

QString writeFile(const TempDir& dir, const char* name, const QByteArray& text)
{
    const QString path = QString::fromStdString(dir.file(name));
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(text);
    return path;
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}

// Writes past a few bytes fail, as on a full disk (and for root too).
struct FullDisk {
    FullDisk()
    {
        getrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit tiny = old;
        tiny.rlim_cur = 16;
        setrlimit(RLIMIT_FSIZE, &tiny);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &old); }
    struct rlimit old;
};

Catalog sampleCatalog()
{
    Catalog c;
    CatalogBundle b;
    b.setPath(QStringLiteral("/usr/lib/vst3/A.vst3"));
    b.setMtimeSecs(1700000000);
    b.setSizeBytes(4096);
    b.setLastError(QStringLiteral("probe crashed"));
    CatalogClass k(QStringLiteral("0123456789ABCDEF0123456789ABCDEF"), QStringLiteral("A"), QStringLiteral("V"),
                   QStringLiteral("Fx"), QStringLiteral("1.0"));
    k.setEnabled(true);
    k.setState(CatalogClass::Crashed);
    k.setVerifiedAt(1700000001);
    k.setVerifierBuild(7);
    b.classes().append(k);
    b.compat().append({QStringLiteral("0123456789ABCDEF0123456789ABCDEF"), {QStringLiteral("FEDCBA98765432100123456789ABCDEF")}});
    c.bundles().append(b);
    c.disabledVendors().append(QStringLiteral("acme"));
    return c;
}

} // namespace

TEST(Vst3CatalogFile, RoundTripKeepsEveryField)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("catalog_vst3.json"));
    ASSERT_TRUE(sampleCatalog().save(file));
    Catalog c;
    ASSERT_TRUE(c.load(file));
    ASSERT_EQ(c.bundles().size(), 1);
    const CatalogBundle& b = c.bundles().first();
    EXPECT_EQ(b.path(), QStringLiteral("/usr/lib/vst3/A.vst3"));
    EXPECT_EQ(b.mtimeSecs(), 1700000000);
    EXPECT_EQ(b.sizeBytes(), 4096);
    EXPECT_EQ(b.lastError(), QStringLiteral("probe crashed"));
    ASSERT_EQ(b.classes().size(), 1);
    const CatalogClass& k = b.classes().first();
    EXPECT_TRUE(k.isEnabled());
    EXPECT_EQ(k.state(), CatalogClass::Crashed); // kept as saved, for the crash sentinel
    EXPECT_EQ(k.verifiedAt(), 1700000001);
    EXPECT_EQ(k.verifierBuild(), 7);
    ASSERT_EQ(b.compat().size(), 1);
    EXPECT_EQ(b.compat().first().oldCids, QStringList{QStringLiteral("FEDCBA98765432100123456789ABCDEF")});
    EXPECT_EQ(c.disabledVendors(), QStringList{QStringLiteral("acme")});
    EXPECT_NE(c.findClass(QStringLiteral("0123456789ABCDEF0123456789ABCDEF")), nullptr);
}

TEST(Vst3CatalogFile, TolerantReading)
{
    TempDir dir;
    // Old files lack "enabled" and "probed"; wrong types read as their defaults;
    // a future version is read as far as its keys are known.
    const QString file = writeFile(dir, "catalog_vst3.json", R"({
        "version": 99,
        "bundles": [
          {"path": "/b/Old.vst3", "classes": [{"cid": "00000000000000000000000000000001", "state": "enabled"}]},
          {"path": 5, "mtime": "yesterday", "enabled": "yes", "probed": false,
           "classes": [{"cid": "00000000000000000000000000000002", "enabled": 1, "state": "bogus", "verifiedAt": "x"}]},
          {"path": "/b/Huge.vst3", "mtime": 1e300, "size": 2.5},
          "not an object"
        ],
        "disabledVendors": ["ACME", "acme", "", 3]
    })");
    Catalog c;
    ASSERT_TRUE(c.load(file));
    ASSERT_GE(c.bundles().size(), 2);
    const CatalogBundle& old = c.bundles().at(0);
    EXPECT_TRUE(old.enabled());
    EXPECT_TRUE(old.probed());
    EXPECT_FALSE(old.failed());
    EXPECT_FALSE(old.classes().first().isEnabled());
    EXPECT_EQ(old.classes().first().state(), CatalogClass::Enabled);
    const CatalogBundle& odd = c.bundles().at(1);
    EXPECT_TRUE(odd.path().isEmpty());
    EXPECT_EQ(odd.mtimeSecs(), 0);
    EXPECT_TRUE(odd.enabled()); // a string is no boolean: the default holds
    EXPECT_FALSE(odd.probed());
    EXPECT_FALSE(odd.classes().first().isEnabled());
    EXPECT_EQ(odd.classes().first().state(), CatalogClass::New);
    EXPECT_EQ(odd.classes().first().verifiedAt(), 0);
    // Numbers that no 64-bit integer holds read as 0, not as undefined values.
    ASSERT_GE(c.bundles().size(), 3);
    EXPECT_EQ(c.bundles().at(2).mtimeSecs(), 0);
    EXPECT_EQ(c.bundles().at(2).sizeBytes(), 0);
    EXPECT_EQ(c.disabledVendors(), QStringList{QStringLiteral("acme")});
}

// The records as a save would write them: what two readings must agree on.
std::string persisted(const QList<CatalogBundle>& bundles, const QStringList& vendors)
{
    QJsonArray list;
    for (const CatalogBundle& b : bundles)
        list.append(b.toJsonObject());
    return QJsonDocument(QJsonObject{{QStringLiteral("bundles"), list},
                                     {QStringLiteral("disabledVendors"), QJsonArray::fromStringList(vendors)}})
        .toJson(QJsonDocument::Compact)
        .toStdString();
}

// The direct reading of the catalog against QJsonDocument's, on texts that
// take each rule of the format and of JSON. "direct" says whether the direct
// reading takes the text; what it takes must read the same, and what it
// leaves, the file's load still reads as QJsonDocument does.
TEST(Vst3CatalogFile, DirectReadingAgreesWithTheDocumentReading)
{
    const QByteArray cls = R"({"cid":"0123456789ABCDEF0123456789ABCDEF","name":"Comp","vendor":"Acme","state":"enabled","enabled":true,"verifiedAt":1700000000,"verifierBuild":7})";
    const struct {
        const char* what;
        QByteArray text;
        bool direct;
    } cases[] = {
        {"every field", R"({"version":1,"bundles":[{"path":"/p/A.vst3","mtime":1699999999,"size":4096,"moduleinfoFound":true,"failed":false,"enabled":false,"probed":false,"lastError":"x","classes":[)" + cls + R"(],"compat":[{"new":"AA","old":["BB","CC"]}]}],"disabledVendors":["Acme","acme","","Zed"]})", true},
        {"indented as saved", QJsonDocument::fromJson(R"({"bundles":[{"path":"/p/A.vst3","classes":[)" + cls + "]}]}").toJson(), true},
        {"missing keys take the defaults", R"({"bundles":[{},{"classes":[{}]}]})", true},
        {"wrong types take the defaults", R"({"bundles":[{"path":7,"mtime":"1","size":true,"enabled":null,"probed":0,"classes":{"a":1},"compat":"x"}],"disabledVendors":{"a":"b"}})", true},
        {"classes of the wrong type", R"({"bundles":[{"classes":[1,"two",null,[],{"cid":3,"enabled":"yes","verifiedAt":1.5,"verifierBuild":4294967296}]}]})", true},
        {"elements that are not objects", R"({"bundles":[3,"x",null,[1,[2]]],"disabledVendors":[1,null,"B"]})", true},
        {"numbers as integers and doubles", R"({"bundles":[{"mtime":1.0,"size":-0,"classes":[{"verifiedAt":1e3,"verifierBuild":-2147483648}]},{"mtime":9223372036854775807,"size":99999999999999999999}]})", true},
        {"the last of a repeated key", R"({"bundles":[{"path":"a","path":"b","classes":[{"name":"x"}],"classes":[{"name":"y"},{"name":"z"}]}],"bundles":[{"path":"c"}]})", true},
        {"escapes and unicode", R"({"bundles":[{"path":"/p/\u00e9t\u00E9 \"q\" \\ \/ \b\f\n\r\t","lastError":"caf\u00e9 \u2603","classes":[{"name":"Gr\u00fcn \u4e2d","vendor":"\u0000"}]}]})", true},
        {"raw UTF-8", "{\"bundles\":[{\"path\":\"/p/\xc3\xa9t\xc3\xa9\",\"classes\":[{\"name\":\"\xe2\x98\x83 \xf0\x9f\x8e\xb9\"}]}]}", true},
        {"unknown keys with nested values", R"({"extra":{"a":[1,{"b":[]}]},"bundles":[{"x":[[[]]],"classes":[{"y":{"z":null}}]}]})", true},
        {"white space everywhere", " \n\t{ \"bundles\" : [ { \"path\" : \"a\" } ] , \"disabledVendors\" : [ ] } \r\n", true},
        {"an empty object", "{}", true},
        // Left to the document reading, which takes some and refuses others.
        {"a lone surrogate", R"({"bundles":[{"path":"\ud800"}]})", false},
        {"a surrogate pair", R"({"bundles":[{"path":"\ud83c\udfb9"}]})", false},
        {"a raw control character", "{\"bundles\":[{\"path\":\"a\tb\"}]}", false},
        {"a byte order mark", "\xef\xbb\xbf{\"bundles\":[]}", false},
        {"a number cut short", R"({"bundles":[{"mtime":1.}]})", false},
        {"an infinite number", R"({"bundles":[{"mtime":1e400}]})", false},
        {"a leading zero", R"({"bundles":[{"mtime":01}]})", false},
        {"a trailing comma", R"({"bundles":[{"path":"a",}]})", false},
        {"an element after the end", R"({"bundles":[]} {})", false},
        {"a cut text", R"({"bundles":[{"path":"a")", false},
        {"an encoded surrogate", "{\"bundles\":[{\"path\":\"\xed\xa0\x80\"}]}", false},
        {"an overlong encoding", "{\"bundles\":[{\"path\":\"\xc0\xaf\"}]}", false},
        {"an array at the top", R"([{"bundles":[]}])", false},
        {"deep nesting", "{\"x\":" + QByteArray(300, '[') + QByteArray(300, ']') + "}", false},
        {"nothing", "", false},
    };
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        QList<CatalogBundle> direct;
        QStringList directVendors;
        const bool took = ReadCatalogText(c.text.constData(), c.text.constData() + c.text.size(), &direct, &directVendors);
        EXPECT_EQ(took, c.direct);
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(c.text, &error);
        const bool documentTakes = error.error == QJsonParseError::NoError && doc.isObject();
        QList<CatalogBundle> viaDocument;
        QStringList viaDocumentVendors;
        if (documentTakes)
            CatalogFromJson(doc.object(), &viaDocument, &viaDocumentVendors);
        if (took) {
            ASSERT_TRUE(documentTakes) << "the direct reading took what the document reading refuses";
            EXPECT_EQ(persisted(direct, directVendors), persisted(viaDocument, viaDocumentVendors));
        }
        // The file's load gives the document reading's answer either way.
        Catalog catalog;
        EXPECT_EQ(catalog.load(writeFile(dir, "catalog_vst3.json", c.text)), documentTakes);
        if (documentTakes)
            EXPECT_EQ(persisted(catalog.bundles(), catalog.disabledVendors()), persisted(viaDocument, viaDocumentVendors));
    }
}

TEST(Vst3CatalogFile, BrokenOrMissingFiles)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("catalog_vst3.json"));
    ASSERT_TRUE(sampleCatalog().save(file));
    Catalog c;
    ASSERT_TRUE(c.load(file));

    for (const QByteArray& broken : {QByteArray("{\"bundles\": ["), QByteArray("[1,2]"), QByteArray("")}) {
        const QString bad = writeFile(dir, "broken.json", broken);
        EXPECT_FALSE(c.load(bad)) << broken.constData();
        EXPECT_EQ(c.bundles().size(), 1); // what it held stays
    }
    EXPECT_TRUE(c.load(QString::fromStdString(dir.file("absent.json"))));
    EXPECT_TRUE(c.bundles().isEmpty());
}

TEST(Vst3CatalogFile, FailedSaveLeavesTheOldFileWhole)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("catalog_vst3.json"));
    ASSERT_TRUE(sampleCatalog().save(file));
    const QByteArray before = readFile(file);
    FullDisk full;
    Catalog empty;
    EXPECT_FALSE(empty.save(file));
    EXPECT_EQ(readFile(file), before);
}

TEST(PairStoreFile, RoundTripAndTheIdAsText)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("plugin_pairs.json"));
    QVlorPluginPairs pairs;
    // Ids above 2^53 would be rounded by a reader that takes them as numbers.
    const qint64 big = (qint64(1) << 60) + 3;
    QVlorPluginPairs::Entry* e = pairs.addPair(big, QStringLiteral("AA"), QStringLiteral("compat"), QStringLiteral("vst2"));
    ASSERT_NE(e, nullptr);
    e->vetoedAutoEnable = true;
    const QString id = e->pairId;
    ASSERT_NE(pairs.addPair(7, QStringLiteral("BB"), QStringLiteral("fourcc"), QStringLiteral("vst3")), nullptr);
    pairs.splitPair(pairs.findByVst2(7)->pairId, QStringLiteral("vst3"));
    ASSERT_TRUE(pairs.save(file));

    const QJsonObject root = QJsonDocument::fromJson(readFile(file)).object();
    EXPECT_EQ(root.value(QStringLiteral("version")).toInt(), 2) << "the version that added the LV2 form";
    EXPECT_EQ(root.value(QStringLiteral("pairs")).toArray().at(0).toObject().value(QStringLiteral("vst2")).toString(),
              QString::number(big));
    EXPECT_TRUE(root.value(QStringLiteral("pairs")).toArray().at(1).toObject().value(QStringLiteral("vst2")).isNull());

    QVlorPluginPairs loaded;
    ASSERT_TRUE(loaded.load(file));
    ASSERT_EQ(loaded.entries().size(), 2);
    const QVlorPluginPairs::Entry* back = loaded.findByPairId(id);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->vst2, big);
    EXPECT_EQ(back->origin, QStringLiteral("compat"));
    EXPECT_EQ(back->activeFormat, QStringLiteral("vst2"));
    EXPECT_TRUE(back->vetoedAutoEnable);
    EXPECT_FALSE(back->manualOverride);
    // The split survives the file: the broken pair is never formed again.
    EXPECT_TRUE(loaded.isSplitBlocked(7, QStringLiteral("BB")));
    EXPECT_EQ(loaded.addPair(7, QStringLiteral("BB"), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);
}

TEST(PairStoreFile, TolerantReadingAndBrokenFiles)
{
    TempDir dir;
    const QString file = writeFile(dir, "plugin_pairs.json", R"({
        "pairs": [
          {"pairId": "p1", "vst2": 1234, "vst3": "CC", "origin": "heuristic", "manualOverride": "yes"},
          {"pairId": "p2", "vst2": "99", "vst3": 17, "activeFormat": "vst2", "vetoedAutoEnable": true},
          7
        ],
        "splits": [{"vst2": "5", "vst3": "DD"}, {"vst2": 6}]
    })");
    QVlorPluginPairs pairs;
    ASSERT_TRUE(pairs.load(file));
    ASSERT_EQ(pairs.entries().size(), 3);
    const QVlorPluginPairs::Entry& p1 = pairs.entries().at(0);
    EXPECT_EQ(p1.vst2, 0); // a number is not the id's form
    EXPECT_EQ(p1.vst3, QStringLiteral("CC"));
    EXPECT_FALSE(p1.manualOverride);
    const QVlorPluginPairs::Entry& p2 = pairs.entries().at(1);
    EXPECT_EQ(p2.vst2, 99);
    EXPECT_TRUE(p2.vst3.isEmpty());
    EXPECT_TRUE(p2.vetoedAutoEnable);
    EXPECT_TRUE(pairs.isSplitBlocked(5, QStringLiteral("DD")));
    EXPECT_TRUE(pairs.isSplitBlocked(0, QString())); // the number 6 read as 0, the missing cid as empty

    for (const QByteArray& broken : {QByteArray("{\"pairs\": [}"), QByteArray("\"text\""), QByteArray("")}) {
        EXPECT_FALSE(pairs.load(writeFile(dir, "broken.json", broken))) << broken.constData();
        EXPECT_EQ(pairs.entries().size(), 3);
    }
    EXPECT_TRUE(pairs.load(QString::fromStdString(dir.file("absent.json"))));
    EXPECT_TRUE(pairs.entries().isEmpty());
    EXPECT_FALSE(pairs.isSplitBlocked(5, QStringLiteral("DD")));
}

TEST(PairStoreFile, FailedSaveLeavesTheOldFileWhole)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("plugin_pairs.json"));
    QVlorPluginPairs pairs;
    pairs.addPair(1, QStringLiteral("AA"), QStringLiteral("manual"), QStringLiteral("vst3"));
    ASSERT_TRUE(pairs.save(file));
    const QByteArray before = readFile(file);
    FullDisk full;
    pairs.entries().clear();
    EXPECT_FALSE(pairs.save(file));
    EXPECT_EQ(readFile(file), before);
}

TEST(PairStore, AddSplitRejoinAndPurge)
{
    QVlorPluginPairs pairs;
    EXPECT_EQ(pairs.addPair(0, QString(), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);
    const QString id = pairs.addPair(10, QStringLiteral("C10"), QStringLiteral("compat"), QStringLiteral("vst3"))->pairId;
    EXPECT_FALSE(id.contains(QLatin1Char('{')));
    // An identity is in one entry at most.
    EXPECT_EQ(pairs.addPair(10, QStringLiteral("C11"), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);
    EXPECT_EQ(pairs.addPair(11, QStringLiteral("C10"), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);

    pairs.splitPair(id, QStringLiteral("VST3")); // not a format: nothing happens
    EXPECT_NE(pairs.findByVst2(10), nullptr);
    pairs.splitPair(id, QStringLiteral("vst3"));
    EXPECT_EQ(pairs.findByVst2(10), nullptr);
    ASSERT_NE(pairs.findByVst3(QStringLiteral("C10")), nullptr);
    EXPECT_TRUE(pairs.findByVst3(QStringLiteral("C10"))->manualOverride);
    EXPECT_EQ(pairs.addPair(10, QStringLiteral("C10"), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);
    // The side let go may pair with something else.
    ASSERT_NE(pairs.addPair(10, QStringLiteral("C99"), QStringLiteral("heuristic"), QStringLiteral("vst2")), nullptr);

    // Rejoining over a whole pair in the way changes nothing.
    EXPECT_EQ(pairs.rejoinPair(10, QStringLiteral("C10"), QStringLiteral("vst2")), nullptr);
    EXPECT_TRUE(pairs.isSplitBlocked(10, QStringLiteral("C10")));
    pairs.splitPair(pairs.findByVst2(10)->pairId, QStringLiteral("vst2"));
    // Two leftovers: "vst3" keeps the VST3 leftover's id; the split is gone.
    QVlorPluginPairs::Entry* joined = pairs.rejoinPair(10, QStringLiteral("C10"), QStringLiteral("vst3"));
    ASSERT_NE(joined, nullptr);
    EXPECT_EQ(joined->pairId, id);
    EXPECT_EQ(joined->vst2, 10);
    EXPECT_EQ(joined->origin, QStringLiteral("compat"));
    EXPECT_TRUE(joined->manualOverride);
    EXPECT_FALSE(pairs.isSplitBlocked(10, QStringLiteral("C10")));
    EXPECT_EQ(pairs.entries().size(), 1); // C99's leftover was merged away

    // A rejoin from nothing is a new manual pair.
    QVlorPluginPairs::Entry* fresh = pairs.rejoinPair(20, QStringLiteral("C20"), QStringLiteral("vst2"));
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->origin, QStringLiteral("manual"));
    EXPECT_FALSE(fresh->manualOverride);

    EXPECT_FALSE(pairs.purgeIdentities({}, {}));
    ASSERT_NE(pairs.addPair(30, QStringLiteral("C30"), QStringLiteral("manual"), QStringLiteral("vst3")), nullptr);
    pairs.splitPair(fresh->pairId, QStringLiteral("vst2"));
    // Naming one side removes the whole entry and its splits.
    EXPECT_TRUE(pairs.purgeIdentities({20, 10}, {}));
    EXPECT_EQ(pairs.findByVst3(QStringLiteral("C10")), nullptr);
    EXPECT_FALSE(pairs.isSplitBlocked(20, QStringLiteral("C20")));
    ASSERT_EQ(pairs.entries().size(), 1);
    EXPECT_EQ(pairs.entries().first().vst2, 30);
}

TEST(PairStore, EffectBlobs)
{
    QString id = QStringLiteral("untouched"), format = QStringLiteral("untouched");
    EXPECT_FALSE(PluginPairEffectBlobExtract(QByteArray(), &id, &format));
    EXPECT_EQ(id, QStringLiteral("untouched"));
    EXPECT_EQ(PluginPairEffectBlobAppend(QByteArray(), QStringLiteral("p"), QStringLiteral("vst2")), QByteArray());
    EXPECT_EQ(PluginPairEffectBlobAppend("[1]", QStringLiteral("p"), QStringLiteral("vst2")), QByteArray("[1]"));
    EXPECT_EQ(PluginPairEffectBlobAppend("{}", QString(), QStringLiteral("vst2")), QByteArray("{}"));

    const QByteArray blob = PluginPairEffectBlobAppend(R"({"preset": "x", "gain": 2})", QStringLiteral("p1"),
                                                       QStringLiteral("vst3"));
    ASSERT_TRUE(PluginPairEffectBlobExtract(blob, &id, nullptr));
    EXPECT_EQ(id, QStringLiteral("p1"));
    ASSERT_TRUE(PluginPairEffectBlobExtract(blob, nullptr, &format));
    EXPECT_EQ(format, QStringLiteral("vst3"));
    EXPECT_EQ(QJsonDocument::fromJson(blob).object().value(QStringLiteral("gain")).toInt(), 2);
    EXPECT_FALSE(blob.contains('\n'));
}

// What stands where a file of ours is saved decides whether it is replaced:
// a regular file or nothing is; a link to a regular file is written through
// and stays a link; a folder, a pipe, a device, or a link to any of them, is
// refused and left as it was, and the refusal says why.
TEST(SavedFiles, OnlyRegularFilesAreReplaced)
{
    struct Writer {
        const char* name;
        std::function<bool(const QString&, QString*)> save;
    };
    const std::vector<Writer> writers = {
        {"VST3 catalog", [](const QString& f, QString* e) { return sampleCatalog().save(f, e); }},
        {"pair store",
         [](const QString& f, QString* e) {
             QVlorPluginPairs pairs;
             pairs.addPair(42, QStringLiteral("0123456789ABCDEF0123456789ABCDEF"), QStringLiteral("manual"), QStringLiteral("vst2"));
             return pairs.save(f, e);
         }},
    };
    enum Kind { Nothing, Regular, LinkToRegular, Folder, Fifo, LinkToFifo, Device, LinkToDevice };
    struct Case {
        Kind kind;
        bool saved;
        const char* why; // part of the reason of a refusal
    };
    const std::vector<Case> cases = {
        {Nothing, true, ""},          {Regular, true, ""},           {LinkToRegular, true, ""},
        {Folder, false, "folder"},    {Fifo, false, "pipe"},         {LinkToFifo, false, "pipe"},
        {Device, false, "device"},    {LinkToDevice, false, "device"},
    };
    for (const Writer& w : writers) {
        for (const Case& c : cases) {
            TempDir dir;
            const std::string path = dir.file("file.json");
            const std::string other = dir.file("elsewhere");
            switch (c.kind) {
            case Nothing: break;
            case Regular: vlortest::writeFile(path, "{}"); break;
            case LinkToRegular:
                vlortest::writeFile(other, "{}");
                ASSERT_EQ(symlink(other.c_str(), path.c_str()), 0);
                break;
            case Folder: ASSERT_EQ(mkdir(path.c_str(), 0755), 0); break;
            case Fifo: ASSERT_EQ(mkfifo(path.c_str(), 0644), 0); break;
            case LinkToFifo:
                ASSERT_EQ(mkfifo(other.c_str(), 0644), 0);
                ASSERT_EQ(symlink(other.c_str(), path.c_str()), 0);
                break;
            case Device:
            case LinkToDevice: {
                // A node like /dev/null, made in the test's own folder.
                const std::string node = c.kind == Device ? path : other;
                if (mknod(node.c_str(), S_IFCHR | 0644, makedev(1, 3)) != 0)
                    continue; // only root may make one
                if (c.kind == LinkToDevice) {
                    ASSERT_EQ(symlink(other.c_str(), path.c_str()), 0);
                }
                break;
            }
            }
            QString error;
            const bool saved = w.save(QString::fromStdString(path), &error);
            EXPECT_EQ(saved, c.saved) << w.name << " case " << c.kind << ": " << error.toStdString();
            EXPECT_EQ(error.contains(QLatin1String(c.why)), true) << w.name << " case " << c.kind << ": " << error.toStdString();
            struct stat st;
            ASSERT_EQ(lstat(path.c_str(), &st), 0) << w.name << " case " << c.kind;
            struct stat end;
            stat(path.c_str(), &end);
            switch (c.kind) {
            case Nothing:
            case Regular: EXPECT_TRUE(S_ISREG(st.st_mode)); break;
            case LinkToRegular:
                EXPECT_TRUE(S_ISLNK(st.st_mode)) << w.name; // the link stays
                EXPECT_GT(vlortest::readFile(other).size(), 2u) << w.name;
                break;
            case Folder: EXPECT_TRUE(S_ISDIR(st.st_mode)); break;
            case Fifo: EXPECT_TRUE(S_ISFIFO(st.st_mode)); break;
            case LinkToFifo: EXPECT_TRUE(S_ISLNK(st.st_mode) && S_ISFIFO(end.st_mode)); break;
            case Device: EXPECT_TRUE(S_ISCHR(st.st_mode)); break;
            case LinkToDevice: EXPECT_TRUE(S_ISLNK(st.st_mode) && S_ISCHR(end.st_mode)); break;
            }
        }
    }
}

// A full disk is told as such, with the file.
TEST(SavedFiles, AFullDiskIsReportedWithTheFile)
{
    TempDir dir;
    const QString file = QString::fromStdString(dir.file("catalog_vst3.json"));
    QString error;
    {
        FullDisk full;
        EXPECT_FALSE(sampleCatalog().save(file, &error));
    }
    EXPECT_TRUE(error.startsWith(file)) << error.toStdString();
    EXPECT_TRUE(error.contains(QStringLiteral("too large")) || error.contains(QStringLiteral("space")))
        << error.toStdString();
    EXPECT_TRUE(sampleCatalog().save(file, &error));
    EXPECT_TRUE(error.isEmpty());
}
