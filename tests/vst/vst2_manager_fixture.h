#ifndef VLOR_TEST_VST2_MANAGER_FIXTURE_H
#define VLOR_TEST_VST2_MANAGER_FIXTURE_H
// The VST2 manager under test: its real thread over a folder of test plugins,
// checked by the real host program, with a recorder of what it tells.
#include "QVlorVst_Manager.h"

#include "QVlorSetting.h"
#include "audiovst.h"
#include "libbase.h"
#include "testsupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QFile>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

using namespace QVlorVst;
using namespace vlortest;

// A named namespace: the fixture must be one class in every file of the suite.
namespace vlortest_vst2_manager {

const QString kFixtures = QStringLiteral(VLOR_FIXTURE_VST_DIR);

inline void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

// What the manager said, and on which thread.
struct Recorder {
    QMutex lock;
    QStringList events;
    QList<QThread*> threads;
    void add(const QString& e)
    {
        QMutexLocker l(&lock);
        events << e;
        threads << QThread::currentThread();
    }
    QStringList take()
    {
        QMutexLocker l(&lock);
        QStringList out;
        out.swap(events);
        threads.clear();
        return out;
    }
    int count(const QString& prefix)
    {
        QMutexLocker l(&lock);
        int n = 0;
        for (const QString& e : events)
            n += e.startsWith(prefix);
        return n;
    }
    void attach(Manager& m)
    {
        auto direct = Qt::DirectConnection;
        QObject::connect(&m, &Manager::beginScan, &m, [this] { add(QStringLiteral("begin")); }, direct);
        QObject::connect(&m, &Manager::endScan, &m, [this](bool b) { add(QStringLiteral("end %1").arg(b)); }, direct);
        QObject::connect(&m, &Manager::pluginEnabled, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("enabled ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pluginDisabled, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("disabled ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pluginFailed, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("failed ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pathAdded, &m, [this](const QString& p) { add(QStringLiteral("pathAdded ") + p); },
                         direct);
        QObject::connect(&m, &Manager::pathDeleted, &m,
                         [this](const QString& p) { add(QStringLiteral("pathDeleted ") + p); }, direct);
        QObject::connect(&m, &Manager::newPluginsFound, &m,
                         [this](const QStringList& refs) { add(QStringLiteral("new %1").arg(refs.size())); }, direct);
    }
};

// A folder of the test's own with copies of fixture plugins, and a host
// program that logs every start.
class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        folder = QString::fromStdString(dir.file("plugins"));
        QDir().mkpath(folder);
        const std::string host = dir.file("host");
        QDir().mkpath(QString::fromStdString(host));
        log = dir.file("starts.log");
        writeFile(host + "/vlorvst",
                  "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + log + "'\nexec '" VLOR_BIN_DIR "/vlorvst' \"$@\"\n", true);
        AUDIOVST_ForgetVlorVstPath();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(host.c_str()), 1);
        QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.scan_vst2"), true);
    }
    QString add(const QString& fixture, const QString& name)
    {
        const QString to = folder + QLatin1Char('/') + name;
        QDir().mkpath(QFileInfo(to).absolutePath());
        QFile::remove(to);
        QFile::copy(kFixtures + QLatin1Char('/') + fixture, to);
        return to;
    }
    int checks()
    {
        std::ifstream in(log);
        int n = 0;
        for (std::string line; std::getline(in, line);)
            n += line == "--check";
        return n;
    }
    Plugin find(Manager& m, const QString& file, int id = 0)
    {
        for (const Path& p : m.pathsCopy())
            for (const Plugin& plugin : p.plugins()) {
                if (plugin.filename() == file && plugin.pluginId() == id)
                    return plugin;
                for (const Plugin& c : plugin.plugins())
                    if (c.filename() == file && c.pluginId() == id)
                        return c;
            }
        return Plugin();
    }
    Path pathOf(Manager& m)
    {
        for (const Path& p : m.pathsCopy())
            if (p.absolutePath() == folder)
                return p;
        return Path();
    }
    void scan(Manager& m)
    {
        m.updatePlugins(true, false);
        m.enableNewPlugins();
        sync(m);
    }

    TempDir dir;
    QString folder;
    std::string log;
};

} // namespace vlortest_vst2_manager

using namespace vlortest_vst2_manager;

#endif
