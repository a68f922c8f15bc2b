// The application's side of the library's wiring, for tests: no audio, and
// a main menu only when a test gives one; it keeps what it is told.
#pragma once

#include "QVlorPluginLibrary.h"
#include "QVlorSetting.h"
#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QString>

namespace vlortest {

class TestHost : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>& names) override { announced << names; }
    QMenu* mainMenu() override { return menu; }
    void registerAction(QAction*, const QString&, const QString&, const QString&) override {}
    void registerQuickOpen(int, QAction*, const QString&, const QString&, const QString&, const QString&,
                           const QString&) override
    {
    }
    void unregisterAction(QAction*) override {}
    void unregisterQuickOpen(QAction*) override {}
    QVlorAudio currentAudio() override { return QVlorAudio(); }
    void presentEffectWidget(QVlorFxWidget*, QAction*, const QString&, const QString&) override {}

    QList<QString> announced;
    QMenu* menu = nullptr;
};

// Waits until both installed managers have done what was asked of them so far.
inline void settleManagers()
{
    for (QObject* m : {static_cast<QObject*>(QVlorAudioPlugins::vstManager()),
                       static_cast<QObject*>(QVlorAudioPlugins::vst3Manager())})
        if (m)
            QMetaObject::invokeMethod(m, [] {}, Qt::BlockingQueuedConnection);
}

// A first scan in the order that pairs twins: the VST2 files found, the VST3
// classes probed and switched on while their twins are still new, then the
// VST2 plugins checked, each pairing with its twin as it comes up.
inline void firstScanInOrder(const QStringList& vst2Folders, const QStringList& vst3Folders)
{
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    for (const QString& folder : vst2Folders)
        vst2->addPath(folder);
    vst2->updatePlugins(true, false);
    settleManagers();
    vst3->setSearchPathsForTesting(vst3Folders);
    vst3->searchPlugins(true);
    vst3->enableNewPlugins();
    settleManagers();
    vst2->enableNewPlugins();
    settleManagers();
}

// The mark an in-process open leaves when the process dies during it.
inline bool writeOpeningSentinel(const QString& format, const QString& key, const QString& name)
{
    QFile sentinel(QDir(QString::fromStdString(dataDir())).filePath(QStringLiteral("opening_sentinel")));
    if (!sentinel.open(QIODevice::WriteOnly))
        return false;
    return sentinel.write((format + QLatin1Char('|') + key + QLatin1Char('|') + name).toUtf8()) > 0;
}

// A folder or file copied whole (a plugin bundle, for one).
inline bool copyTree(const QString& from, const QString& to)
{
    if (QFileInfo(from).isFile())
        return QFile::copy(from, to);
    QDir().mkpath(to);
    for (const QFileInfo& entry : QDir(from).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot))
        if (!copyTree(entry.absoluteFilePath(), to + QLatin1Char('/') + entry.fileName()))
            return false;
    return true;
}

// A start from nothing: no catalog, pair or opening mark of a test before,
// no favourite, recent entry, category of the user's or menu layout either.
inline void removeCatalogs()
{
    for (const char* key : {"vloraudio.plugins.favourites", "vloraudio.plugins.recent",
                            "vloraudio.plugins.category_overrides", "vloraudio.plugins.menu_layout"})
        QVlorSetting::global().remove(QLatin1String(key));
    QVlorPluginLibrary::instance()->reload();
    const QDir data(QString::fromStdString(dataDir()));
    for (const char* file :
         {"catalog_vst3.json", "plugin_pairs.json", "opening_sentinel", "vstxml/catalog_v2.json", "catalog_lv2.json"})
        QFile::remove(data.filePath(QLatin1String(file)));
}

#ifdef VLOR_FIXTURE_VST_DIR
// One plugin of each format copied into folders of their own, as on a
// user's machine: the stereo VST2 fixture and the bundle of VST3 effects.
struct FixturePlugins {
    FixturePlugins()
        : vst2File(QString::fromStdString(dir.file("vst2/Stereo.so"))),
          bundle(QString::fromStdString(dir.file("vst3/Effects.vst3")))
    {
        QDir().mkpath(vst2Folder());
        QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so"), vst2File);
        QDir().mkpath(bundle + QStringLiteral("/Contents/x86_64-linux"));
        QFile::copy(QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3/Contents/x86_64-linux/vlor-vst3-effects.so"),
                    bundle + QStringLiteral("/Contents/x86_64-linux/Effects.so"));
    }
    QString vst2Folder() const { return QFileInfo(vst2File).absolutePath(); }
    QString vst3Folder() const { return QFileInfo(bundle).absolutePath(); }

    // Both folders searched by the installed managers and what is new there
    // switched on, as a user's first scan does; checks still run when it returns.
    void scanWithInstalledManagers() const
    {
        QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
        vst2->addPath(vst2Folder());
        vst2->updatePlugins(true, false);
        vst2->enableNewPlugins();
        QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
        vst3->setSearchPathsForTesting({vst3Folder()});
        vst3->searchPlugins(true);
        vst3->enableNewPlugins();
    }

    TempDir dir;
    const QString vst2File;
    const QString bundle;
};
#endif

} // namespace vlortest
