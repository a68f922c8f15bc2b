#pragma once
// The library brought up as the editor brings it up, over the synthetic
// catalogs: a host that records nothing, the managers installed, and the
// VST2 catalog loaded and published.
#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"
#include "QVlorVst_Manager.h"
#include "synthetic_catalogs.h"

#include <QMenu>
#include <QTemporaryDir>

namespace bench {

class BenchHost : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>&) override {}
    QMenu* mainMenu() override { return withMenu ? &main : nullptr; }
    void registerAction(QAction*, const QString&, const QString&, const QString&) override { ++registered; }
    void registerQuickOpen(int, QAction*, const QString&, const QString&, const QString&, const QString&,
                           const QString&) override
    {
    }
    void unregisterAction(QAction*) override {}
    void unregisterQuickOpen(QAction*) override {}
    QVlorAudio currentAudio() override { return QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100); }
    void presentEffectWidget(QVlorFxWidget*, QAction*, const QString&, const QString&) override {}

    bool withMenu = false;
    QMenu main;
    int registered = 0;
};

// The data folder must be the library's (VLOR_DATA_PATH) before the application starts.
inline void installOverSyntheticCatalogs(const QTemporaryDir& dir, BenchHost* host)
{
    writeVst2Catalog(dir.filePath(QStringLiteral("vstxml/catalog_v2.json")), dir.filePath(QStringLiteral("plugins")));
    writeVst3Files(dir.filePath(QStringLiteral("catalog_vst3.json")), dir.filePath(QStringLiteral("plugin_pairs.json")));
    QVlorAudioPlugins::Initialize();
    QVlorAudioPlugins::UI::install(host);
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    vst2->loadCatalog();
    // A load is published by the next operation that changes something.
    vst2->markPluginCrashed(1000);
    QMetaObject::invokeMethod(vst2, [] {}, Qt::BlockingQueuedConnection);
}

inline void uninstall(BenchHost* host)
{
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(host);
    QVlorAudioPlugins::Finalize();
}

} // namespace bench
