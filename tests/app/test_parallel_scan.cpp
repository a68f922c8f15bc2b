// First scans that check several plugins at a time. The machine's plugins,
// with fixtures that crash, hang, chatter and share unique ids mixed in,
// give the same catalogs and pair store whether one, two or four are checked
// at a time; and a plugin that hangs its check holds none of the others.
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

using vlortest::TempDir;

namespace {

const std::string kVlorfx = VLOR_BIN_DIR "/vlorfx";

int vlorfx(const std::string& data, const std::string& args, const std::string& env = std::string())
{
    // The folders are the test's alone: none of the machine's standard ones beside them.
    const std::string cmd =
        "VST_PATH= " + env + " '" + kVlorfx + "' --data '" + data + "' " + args + " >'" + data + ".out' 2>&1";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

// A saved JSON file with its keys in order, without what is not the scan's
// to decide: the times of verification (the clock's) and the pairs' ids
// (drawn at random). Pair entries are taken in the order of their twins:
// they are stored in the order the matches ran, which follows the two
// managers' threads.
QJsonValue withoutClock(const QJsonValue& v)
{
    if (v.isArray()) {
        QJsonArray out;
        for (const QJsonValue& e : v.toArray())
            out.append(withoutClock(e));
        return out;
    }
    if (!v.isObject())
        return v;
    QJsonObject out;
    const QJsonObject o = v.toObject();
    for (auto it = o.begin(); it != o.end(); ++it)
        if (it.key() != QLatin1String("verifiedAt") && it.key() != QLatin1String("pairId"))
            out.insert(it.key(), withoutClock(it.value()));
    if (out.contains(QLatin1String("pairs"))) {
        QJsonArray pairs = out.value(QLatin1String("pairs")).toArray();
        QList<QJsonValue> sorted(pairs.begin(), pairs.end());
        std::sort(sorted.begin(), sorted.end(), [](const QJsonValue& a, const QJsonValue& b) {
            return QJsonDocument(a.toObject()).toJson() < QJsonDocument(b.toObject()).toJson();
        });
        QJsonArray in;
        for (const QJsonValue& p : sorted)
            in.append(p);
        out.insert(QLatin1String("pairs"), in);
    }
    return out;
}

std::string normalized(const QString& file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return "(missing)";
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll());
    return QJsonDocument(withoutClock(doc.object()).toObject()).toJson().toStdString();
}

bool anyPlugins(const QString& folder, const QStringList& patterns)
{
    return !QDir(folder).entryList(patterns, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot).isEmpty();
}

} // namespace

TEST(ParallelScans, OneTwoAndFourAtATimeGiveTheSameCatalogsAndPairs)
{
    const bool vst2 = anyPlugins(QStringLiteral("/usr/lib/vst"), {QStringLiteral("*.so")});
    const bool vst3 = anyPlugins(QStringLiteral("/usr/lib/vst3"), {QStringLiteral("*.vst3")});
    if (!vst2 && !vst3)
        GTEST_SKIP() << "no VST2 or VST3 plugins in /usr/lib/vst or /usr/lib/vst3 (zam-plugins, lsp-plugins-vst ...)";
    TempDir dir;
    std::string folders;
    for (const char* f : {"/usr/lib/vst", "/usr/lib/lxvst"})
        if (QFileInfo(QLatin1String(f)).isDir())
            folders += std::string(" --vst2-path ") + f;
    folders += " --vst2-path '" VLOR_FIXTURE_VST_DIR "' --vst3-path '" VLOR_FIXTURE_VST3_DIR "'";
    std::map<int, std::string> data;
    for (int n : {1, 2, 4}) {
        data[n] = dir.file("data" + std::to_string(n));
        // Long enough for the slowest real plugin (a convolution reverb loads
        // its impulse) on two busy cores; only the hang fixture reaches it.
        ASSERT_EQ(vlorfx(data[n], "scan --quiet --check-timeout 10 --parallel " + std::to_string(n) + folders), 0)
            << vlortest::readFile(data[n] + ".out");
    }
    const std::string vst2Catalog = normalized(QString::fromStdString(data[1] + "/vstxml/catalog_v2.json"));
    EXPECT_NE(vst2Catalog.find("vlor-fault-hang-open.so"), std::string::npos) << "the fixtures were scanned";
    for (int n : {2, 4}) {
        SCOPED_TRACE("checks at a time: " + std::to_string(n));
        for (const char* file : {"/vstxml/catalog_v2.json", "/catalog_vst3.json", "/plugin_pairs.json"})
            EXPECT_EQ(normalized(QString::fromStdString(data[n] + file)),
                      normalized(QString::fromStdString(data[1] + file)))
                << file;
        // The descriptors written for the plugins that passed, file by file.
        const QStringList one = QDir(QString::fromStdString(data[1] + "/vstxml")).entryList({QStringLiteral("*.vstxml")});
        EXPECT_EQ(QDir(QString::fromStdString(data[n] + "/vstxml")).entryList({QStringLiteral("*.vstxml")}), one);
        for (const QString& name : one)
            EXPECT_EQ(vlortest::readFile(data[n] + "/vstxml/" + name.toStdString()),
                      vlortest::readFile(data[1] + "/vstxml/" + name.toStdString()))
                << name.toStdString();
    }
}

// Twenty good plugins and one whose check hangs, two at a time: no good
// plugin's check waits for the hang's timeout to start.
TEST(ParallelScans, AHangHoldsNoneOfTheOthers)
{
    TempDir dir;
    const QString folder = QString::fromStdString(dir.file("plugins"));
    QDir().mkpath(folder);
    ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-hang-open.so"), folder + "/hang.so"));
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so"),
                                folder + QStringLiteral("/good%1.so").arg(i, 2, 10, QLatin1Char('0'))));
    // A host that notes when each check starts, on one clock.
    const std::string helpers = dir.file("helpers");
    QDir().mkpath(QString::fromStdString(helpers));
    {
        std::ofstream wrap(helpers + "/vlorvst");
        wrap << "#!/bin/sh\n[ \"$1\" = --check ] && echo \"$(date +%s%N) $2\" >> '" << dir.file("starts.log")
             << "'\nexec '" VLOR_BIN_DIR "/vlorvst' \"$@\"\n";
    }
    QFile::setPermissions(QString::fromStdString(helpers + "/vlorvst"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const int timeoutS = 10;
    ASSERT_EQ(vlorfx(dir.file("data"),
                     "scan --quiet --no-vst3 --parallel 2 --check-timeout " + std::to_string(timeoutS) + " --vst2-path '" +
                         folder.toStdString() + "'",
                     "VLOR_HELPERS_PATH='" + helpers + "'"),
              0)
        << vlortest::readFile(dir.file("data.out"));
    std::ifstream in(dir.file("starts.log"));
    long long hangStart = 0;
    std::map<std::string, long long> starts;
    for (long long t; in >> t;) {
        std::string file;
        in >> file;
        if (QFileInfo(QString::fromStdString(file)).fileName() == QLatin1String("hang.so"))
            hangStart = t;
        else
            starts[file] = t;
    }
    ASSERT_NE(hangStart, 0) << "the hang was checked";
    ASSERT_EQ(starts.size(), 20u);
    for (const auto& [file, t] : starts)
        EXPECT_LT(t, hangStart + timeoutS * 1000000000LL) << file << " waited for the hang";
    // The scan ended with its summary.
    EXPECT_EQ(vlortest::readFile(dir.file("data.out")).rfind("VST2: 21 plugins in 1 folders: ", 0), 0u)
        << vlortest::readFile(dir.file("data.out"));
}
