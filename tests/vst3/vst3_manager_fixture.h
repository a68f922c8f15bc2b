#ifndef VLOR_TEST_VST3_MANAGER_FIXTURE_H
#define VLOR_TEST_VST3_MANAGER_FIXTURE_H
// The VST3 manager under test: its real thread and the real host program over
// fixture trees, with a recorder of what it tells.
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <QSaveFile>

#include <gtest/gtest.h>

#include <memory>

using namespace QVlorVst3;
using namespace vlortest;

// A named namespace: the fixture must be one class in every file of the suite.
namespace vlortest_vst3_manager {

const QString kBundles = QStringLiteral(VLOR_FIXTURE_VST3_DIR);
const QString kEffects = QStringLiteral("vlor-vst3-effects");
const QString kClasses = QStringLiteral("vlor-vst3-classes");
// The effects bundle's classes.
const QString kGain = QStringLiteral("51000000000000000000000000000001");

inline void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

// What the manager said, and on which thread.
struct Recorder {
    QMutex lock;
    QStringList events;
    QSet<QThread*> threads;
    void add(const QString& e)
    {
        QMutexLocker l(&lock);
        events << e;
        threads << QThread::currentThread();
    }
    int count(const QString& e)
    {
        QMutexLocker l(&lock);
        return int(events.count(e));
    }
    QStringList take()
    {
        QMutexLocker l(&lock);
        QStringList out;
        out.swap(events);
        return out;
    }
    void attach(Manager& m)
    {
        const auto direct = Qt::DirectConnection;
        QObject::connect(&m, &Manager::beginScan, &m, [this] { add(QStringLiteral("begin")); }, direct);
        QObject::connect(&m, &Manager::endScan, &m, [this](bool b) { add(QStringLiteral("end %1").arg(b)); }, direct);
        QObject::connect(&m, &Manager::catalogChanged, &m, [this] { add(QStringLiteral("changed")); }, direct);
        QObject::connect(&m, &Manager::newPluginsFound, &m,
                         [this](const QList<QString>& n) { add(QStringLiteral("new ") + QStringList(n).join(',')); },
                         direct);
        auto state = [this](const char* what) {
            return [this, what](const CatalogClass& c) {
                add(QStringLiteral("%1 %2 %3").arg(QLatin1String(what), c.name(), CatalogClass::StateToString(c.state())));
            };
        };
        QObject::connect(&m, &Manager::pluginStateChanged, &m, state("state"), direct);
        QObject::connect(&m, &Manager::pluginEnabled, &m, state("enabled"), direct);
        QObject::connect(&m, &Manager::pluginDisabled, &m, state("disabled"), direct);
        QObject::connect(&m, &Manager::pluginFailed, &m, state("failed"), direct);
    }
};

// A data folder and plugin roots of the test's own, and a host program that
// logs every start before it hands over to vlorvst3.
class Vst3ManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = QString::fromStdString(dir.file("root"));
        QDir().mkpath(root);
        hostLog = dir.file("host.log");
        host = QString::fromStdString(dir.file("vlorvst3"));
        writeFile(host.toStdString(),
                  "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + hostLog + "'\nexec '" VLOR_BIN_DIR "/vlorvst3' \"$@\"\n",
                  true);
        QVlorSetting::global().change(QLatin1String(K_SETTING_SCAN_VST3), true);
    }
    void TearDown() override { manager.reset(); }

    Manager& make(const QStringList& roots = {})
    {
        manager.reset(new Manager(nullptr, file("catalog_vst3.json"), file("plugin_pairs.json"), 7,
                                  file("opening_sentinel")));
        manager->setHostBinary(host, {});
        manager->setSearchPathsForTesting(roots.isEmpty() ? QStringList{root} : roots);
        events.attach(*manager);
        return *manager;
    }
    QString file(const char* name) const { return QString::fromStdString(dir.file(name)); }
    // A copy of a fixture bundle under the root, its binary renamed to match.
    QString copyBundle(const QString& fixture, const QString& to)
    {
        const QString target = root + QLatin1Char('/') + to;
        const QString base = QFileInfo(to).completeBaseName();
        QDir().mkpath(target + QStringLiteral("/Contents/x86_64-linux"));
        QFile::copy(kBundles + QLatin1Char('/') + fixture + QStringLiteral(".vst3/Contents/x86_64-linux/") + fixture +
                        QStringLiteral(".so"),
                    target + QStringLiteral("/Contents/x86_64-linux/") + base + QStringLiteral(".so"));
        return target;
    }
    int hostRuns() { return int(QString::fromStdString(readFile(hostLog)).count(QLatin1Char('\n'))); }
    // Runs a call on the manager's thread and waits for it, all before it, and
    // what it queued in turn (the save that follows a change).
    void run(const std::function<void(Manager&)>& call)
    {
        call(*manager);
        sync(*manager);
        sync(*manager);
    }
    CatalogClass cls(const QString& cid)
    {
        const Catalog c = manager->catalogCopy();
        const CatalogClass* found = c.findClass(cid);
        return found ? *found : CatalogClass();
    }
    QString cidOf(const QString& name)
    {
        const Catalog catalog = manager->catalogCopy();
        for (const CatalogBundle& b : catalog.bundles())
            for (const CatalogClass& c : b.classes())
                if (c.name() == name)
                    return c.cid();
        return QString();
    }
    CatalogBundle bundle(const QString& path)
    {
        Catalog c = manager->catalogCopy();
        const CatalogBundle* b = c.findBundle(path);
        return b ? *b : CatalogBundle();
    }
    QJsonObject savedCatalog()
    {
        QFile f(file("catalog_vst3.json"));
        f.open(QIODevice::ReadOnly);
        return QJsonDocument::fromJson(f.readAll()).object();
    }
    // A class's state as the saved catalog holds it.
    QString savedState(const QString& cid)
    {
        for (const QJsonValue& b : savedCatalog().value(QStringLiteral("bundles")).toArray())
            for (const QJsonValue& c : b.toObject().value(QStringLiteral("classes")).toArray())
                if (c.toObject().value(QStringLiteral("cid")).toString() == cid)
                    return c.toObject().value(QStringLiteral("state")).toString();
        return QString();
    }

    TempDir dir;
    QString root;
    QString host;
    std::string hostLog;
    Recorder events;
    std::unique_ptr<Manager> manager;
};

} // namespace vlortest_vst3_manager

using namespace vlortest_vst3_manager;

#endif
