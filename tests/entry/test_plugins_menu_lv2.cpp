// The Plugins menu with LV2 effects and families of several formats: one
// entry a product, opening the form in use, its shortcut kept through
// switches of format and a restart.
#include "QVlorLv2_Manager.h"
#include "QVlorLv2_Widget.h"
#include "QVlorPluginFormat.h"
#include "QVlorSetting.h"

#include "menu_fixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdlib>

using namespace vlortest;
using namespace menutest;

// LV2 plugins reach the menu from their catalog, under their maker, opening
// the LV2 dialog; failed ones, no effects and switched-off ones stay out; one
// that crashed asks first. The LV2 gain joins the VST3 gain's family (same
// name and maker), whose one entry plays LV2, first in the format order.
TEST_F(Menu, Lv2EffectsAreEntriesThatOpenTheLv2Dialog)
{
    QVlorSetting& settings = QVlorSetting::global();
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 2);
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kFormatOrderSettingKey), QStringLiteral("lv2,vst3"));
    QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
    ASSERT_NE(lv2, nullptr);
    lv2->searchPlugins(false);
    const QString uri = QStringLiteral("urn:vlor:fixture:gain");
    QString pairId;
    ASSERT_TRUE(waitFor([&] {
        settle();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.lv2 == uri && !e.vst3.isEmpty())
                pairId = e.pairId;
        return lv2->catalogCopy().isOffered(uri) && !pairId.isEmpty();
    }, 30000));
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), QVariant());
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kFormatOrderSettingKey), QVariant());
    lv2->setPluginEnabled(QStringLiteral("urn:vlor:fixture:atom"), false);
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    // The manager's thread takes the switch; the copy shows it after.
    ASSERT_TRUE(waitFor([&] { return !lv2->catalogCopy().isEnabled(QStringLiteral("urn:vlor:fixture:atom")); }, 5000));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    for (const char* absent : {"Fixture Nan \u00B7 LV2", "Fixture Instrument \u00B7 LV2", "Fixture Atom \u00B7 LV2"})
        EXPECT_EQ(find(controller->pluginsMenu(), QString::fromUtf8(absent)), nullptr) << absent;
    QAction* gain = find(controller->pluginsMenu(), QString::fromUtf8("Fixture Gain \u00B7 LV2"));
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(host.ids.value(gain), QStringLiteral("plugid-") + pairId);
    EXPECT_EQ(find(controller->pluginsMenu(), QString::fromUtf8("Fixture Gain \u00B7 VST3")), nullptr);
    gain->trigger();
    ASSERT_NE(host.presented, nullptr);
    EXPECT_EQ(host.presentedFormat, QStringLiteral("lv2"));
    auto* dialog = qobject_cast<QVlorLv2::Widget*>(host.presented.get());
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->uri(), QStringLiteral("urn:vlor:fixture:gain"));
    host.presented.reset();

    lv2->markCrashed(QStringLiteral("urn:vlor:fixture:gain"));
    ASSERT_TRUE(waitFor([&] {
        return lv2->catalogCopy().findPlugin(QStringLiteral("urn:vlor:fixture:gain"))->state ==
               QVlorLv2::CatalogPlugin::Crashed;
    }, 5000));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    gain = find(controller->pluginsMenu(), QString::fromUtf8("Fixture Gain \u00B7 LV2"));
    ASSERT_NE(gain, nullptr);
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::No, QString()}; });
    gain->trigger();
    ASSERT_EQ(QVlorDialogs::takeAsked().size(), 1);
    EXPECT_EQ(host.presented, nullptr);
}

// zam ships ZamComp in three formats: one entry, whose id is the family's,
// so a shortcut bound to it plays whichever form is active, VST3, LV2 or
// VST2, and still does after a restart.
TEST_F(Menu, AShortcutOfAZamProductStaysThroughSwitchesOfFormatAndARestart)
{
    const QString kZamCompCid = QStringLiteral("2046504473616C63504D435A00000000");
    const QStringList installed = {QStringLiteral("/usr/lib/vst/ZamComp-vst.so"),
                                   QStringLiteral("/usr/lib/vst3/ZamComp.vst3"), QStringLiteral("/usr/lib/lv2/ZamComp.lv2")};
    for (const QString& path : installed)
        if (!QFileInfo::exists(path))
            GTEST_SKIP() << "zam-plugins is not installed in all three formats: no " << path.toStdString();
    // ZamComp alone in folders of its own, beside the fixtures.
    TempDir zam;
    const QStringList folders = {QString::fromStdString(zam.file("vst2")), QString::fromStdString(zam.file("vst3")),
                                 QString::fromStdString(zam.file("lv2"))};
    // Copies: the scans do not follow links.
    for (int i = 0; i < 3; ++i) {
        QDir().mkpath(folders[i]);
        const std::string copy = "cp -r '" + installed[i].toStdString() + "' '" + folders[i].toStdString() + "'";
        ASSERT_EQ(std::system(copy.c_str()), 0) << copy;
    }
    QVlorSetting& settings = QVlorSetting::global();
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 10);
    vst2->loadCatalog(); // as the editor's start does: the catalog it saves at quit
    vst2->addPath(folders[0]);
    vst2->updatePlugins(true, false);
    vst2->enableNewPlugins();
    vst3->setSearchPathsForTesting({plugins.vst3Folder(), folders[1]});
    vst3->searchPlugins(true);
    vst3->enableNewPlugins();
    QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
    lv2->setSearchPathsForTesting({QStringLiteral(VLOR_FIXTURE_LV2_DIR), folders[2]});
    lv2->searchPlugins(false);
    QString pairId;
    bool enableAsked = false;
    ASSERT_TRUE(waitFor([&] {
        settle();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.lv2 == QLatin1String("urn:zamaudio:ZamComp") && e.vst2 != 0 && !e.vst3.isEmpty())
                pairId = e.pairId;
        // Each form checked and switched on, so that each can be played.
        bool vst2On = false;
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                vst2On = vst2On || (p.name() == QLatin1String("ZamComp") && p.isEnabled() && !p.verifying());
        const QVlorVst3::Catalog classes = vst3->catalogCopy();
        const QVlorVst3::CatalogClass* c = classes.findClass(kZamCompCid);
        // A class whose twin was on first stays off, as a new pair plays one form.
        if (c && c->state() == QVlorVst3::CatalogClass::Disabled && !enableAsked) {
            enableAsked = true;
            vst3->enablePlugin(kZamCompCid);
        }
        return !pairId.isEmpty() && vst2On && c && c->state() == QVlorVst3::CatalogClass::Enabled;
    }, 60000)) << [&] {
        std::string told;
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            told += std::to_string(e.vst2) + " " + e.vst3.toStdString() + " " + e.lv2.toStdString() + "\n";
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                told += p.name().toStdString() + " " + std::to_string(p.uniqueId()) + " on " +
                        std::to_string(p.isEnabled()) + " verifying " + std::to_string(p.verifying()) + "\n";
        const QVlorVst3::CatalogClass* c = vst3->catalogCopy().findClass(kZamCompCid);
        told += c ? QVlorVst3::CatalogClass::StateToString(c->state()).toStdString() : std::string("no class");
        return told;
    }();
    settings.setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), QVariant());
    const QString binding = QStringLiteral("vloraudio.shortcuts.plugid-") + pairId;
    settings.change(binding, QStringLiteral("Ctrl+Alt+Z"));
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);

    // The one entry of the product, in the badge of the form in use.
    auto entryIn = [&](const char* badge) -> QAction* {
        controller->rebuildPluginsMenu();
        settle();
        QAction* found = nullptr;
        for (const char* each : {"VST2", "VST3", "LV2"}) {
            QAction* a = find(controller->pluginsMenu(), QStringLiteral("ZamComp \u00B7 ") + QLatin1String(each));
            if (QLatin1String(each) == QLatin1String(badge))
                found = a;
            else
                EXPECT_EQ(a, nullptr) << "a second entry, in " << each;
        }
        return found;
    };
    // What the menu and the managers hold, when an entry is not where it should be.
    auto describe = [&] {
            std::string told;
            for (QAction* a : controller->pluginsMenu()->actions())
                if (a->menu())
                    told += a->text().toStdString() + ": " + texts(a->menu()).join(QLatin1Char('|')).toStdString() + "\n";
            for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
                told += std::to_string(e.vst2) + " " + e.vst3.toStdString() + " " + e.lv2.toStdString() + " " + e.activeFormat.toStdString() + "\n";
            const QVlorVst3::CatalogClass* c = vst3->catalogCopy().findClass(kZamCompCid);
            told += c ? QVlorVst3::CatalogClass::StateToString(c->state()).toStdString() : std::string("no class");
            return told;
        };
    for (const char* format : {"vst3", "lv2", "vst2"}) {
        vst3->setPairActiveFormat(pairId, QLatin1String(format));
        settle();
        QAction* entry = entryIn(QByteArray(format).toUpper().constData());
        ASSERT_NE(entry, nullptr) << format << describe();
        EXPECT_EQ(host.ids.value(entry), QStringLiteral("plugid-") + pairId) << format;
        EXPECT_EQ(settings.getString(binding), QStringLiteral("Ctrl+Alt+Z")) << format;
    }

    QAction* beforeRestart = entryIn("VST2");
    beforeRestart->trigger();
    EXPECT_EQ(host.presentedFormat, QStringLiteral("vst2"));
    EXPECT_EQ(host.presentedPair, pairId);
    host.presented.reset();
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    QVlorAudioPlugins::UI::install(&host);
    vst2 = QVlorAudioPlugins::vstManager();
    vst3 = QVlorAudioPlugins::vst3Manager();
    controller = QVlorAudioPlugins::UI::menuController();
    vst2->loadCatalog(); // as the editor's start does, with no scan after
    settle();
    QAction* afterRestart = entryIn("VST2");
    ASSERT_NE(afterRestart, nullptr) << describe();
    EXPECT_EQ(host.ids.value(afterRestart), QStringLiteral("plugid-") + pairId);
    EXPECT_EQ(settings.getString(binding), QStringLiteral("Ctrl+Alt+Z"));
}
