#ifndef MENU_FIXTURE_H
#define MENU_FIXTURE_H
// The Plugins menu's tests' host and fixture: a real menu bar, the library
// installed over fixture plugins of every format found by real scans.
#include "QVlorAudioPlugins.h"
#include "QVlorDialogs.h"
#include "QVlorPluginsMenu.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "QVlorFxWidget.h"

#include "audiovst.h"
#include "testhost.h"
#include "testsupport.h"

#include <QAction>
#include <QCoreApplication>
#include <QMenu>
#include <QMenuBar>

#include <gtest/gtest.h>

#include <memory>

namespace menutest {

using namespace vlortest;


inline const QString kGain = QStringLiteral("51000000000000000000000000000001");

class MenuHost : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>&) override {}
    QMenu* mainMenu() override { return main; }
    void registerAction(QAction* action, const QString& id, const QString&, const QString&) override { ids[action] = id; }
    void registerQuickOpen(int, QAction* action, const QString& url, const QString&, const QString& description,
                           const QString&, const QString&) override
    {
        urls[action] = url;
        descriptions[action] = description;
    }
    void unregisterAction(QAction* action) override { ids.remove(action); }
    void unregisterQuickOpen(QAction* action) override
    {
        urls.remove(action);
        descriptions.remove(action);
    }
    QVlorAudio currentAudio() override
    {
        ++audioAsked;
        return audio;
    }
    void presentEffectWidget(QVlorFxWidget* widget, QAction*, const QString& pairId, const QString& format) override
    {
        presented.reset(widget);
        presentedFormat = format;
        presentedPair = pairId;
    }

    QMenu* main = nullptr;
    QVlorAudio audio;
    QHash<QAction*, QString> ids;
    QHash<QAction*, QString> urls;
    QHash<QAction*, QString> descriptions;
    int audioAsked = 0;
    std::unique_ptr<QVlorFxWidget> presented;
    QString presentedFormat, presentedPair;
};

// The managers' work, then what it posted to this thread (the menu's rebuild among it).
inline void settle()
{
    settleManagers();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

inline QStringList texts(const QMenu* menu)
{
    QStringList t;
    for (QAction* a : menu->actions())
        t << (a->isSeparator() ? QStringLiteral("--") : a->text());
    return t;
}

inline QAction* find(const QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions()) {
        // The favourites' and recent sections hold copies of the groups' entries.
        if (a->property("vlorTopSection").toBool())
            continue;
        if (a->menu())
            if (QAction* inner = find(a->menu(), text))
                return inner;
        if (a->text() == text)
            return a;
    }
    return nullptr;
}

class Menu : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // The LV2 folders are the fixtures' alone: no test scans the machine's.
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR, 1);
        QVlorAudioPlugins::Initialize();
    }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void SetUp() override
    {
        AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
        bar = std::make_unique<QMenuBar>();
        host.main = new QMenu(QStringLiteral("Main"), bar.get());
        removeCatalogs();
        QVlorAudioPlugins::UI::install(&host);
        vst2 = QVlorAudioPlugins::vstManager();
        vst3 = QVlorAudioPlugins::vst3Manager();
        plugins.scanWithInstalledManagers();
        ASSERT_TRUE(waitFor([&] {
            settle();
            const QVlorVst3::Catalog catalog = vst3->catalogCopy();
            const QVlorVst3::CatalogClass* c = catalog.findClass(kGain);
            return c && c->state() == QVlorVst3::CatalogClass::Enabled;
        }, 20000));
        controller = QVlorAudioPlugins::UI::menuController();
        ASSERT_NE(controller, nullptr);
        controller->rebuildPluginsMenu();
        settle();
        QVlorDialogs::takeAsked();
    }
    void TearDown() override
    {
        QVlorDialogs::setAnswerer({});
        host.presented.reset();
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
    }
    const FixturePlugins plugins;
    const QString& vst2File = plugins.vst2File;
    const QString& bundle = plugins.bundle;
    std::unique_ptr<QMenuBar> bar;
    MenuHost host;
    QVlorVst::Manager* vst2 = nullptr;
    QVlorVst3::Manager* vst3 = nullptr;
    QVlorAudioPlugins::MenuController* controller = nullptr;
};

} // namespace menutest

#endif
