// The Plugins menu under a host with a real menu bar, over fixture plugins
// of both formats found by real scans: its content and order, what an entry
// opens, the question before a plugin that crashed, the coalesced rebuild and
// the menu's life when the host tears it down.
#include "QVlorAudioPlugins.h"
#include "QVlorDialogs.h"
#include "QVlorLv2_Manager.h"
#include "QVlorLv2_Widget.h"
#include "QVlorPluginFormat.h"
#include "QVlorSetting.h"
#include "QVlorPluginsMenu.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"

#include "audiovst.h"
#include "menu_fixture.h"
#include "testhost.h"
#include "testsupport.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QProgressDialog>
#include <QTimer>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace vlortest;

using namespace menutest;

TEST_F(Menu, VendorsEntriesAndFixedCommandsInTheirOrderAndEntriesOpenOnlyWithAudio)
{
    QMenu* menu = controller->pluginsMenu();
    ASSERT_NE(menu, nullptr);
    const QStringList top = texts(menu);
    ASSERT_GE(top.size(), 7);
    // No favourite and nothing used yet: the sections above are not there.
    EXPECT_EQ(top.first(), QStringLiteral("--"));
    EXPECT_FALSE(menu->actions().first()->isVisible());
    EXPECT_EQ(top.at(1), QStringLiteral("Scanning plugins ... 0 %"));
    EXPECT_EQ(top.mid(top.size() - 6), (QStringList{QStringLiteral("--"), QStringLiteral("Search new plugins"),
                                                     QStringLiteral("Manage Plugins..."), QStringLiteral("Arrange Plugins"),
                                                     QStringLiteral("--"), QStringLiteral("Cancel Plugin Scanning")}));
    EXPECT_TRUE(top.contains(QStringLiteral("Vlor Test Vendor")));
    EXPECT_TRUE(top.contains(QStringLiteral("Vlor Fixtures")));
    EXPECT_EQ(host.ids.value(controller->managePluginsAction()), QStringLiteral("Plugins_Manage"));
    EXPECT_EQ(host.ids.value(controller->searchPluginsAction()), QStringLiteral("Plugins_SearchPlugins"));
    EXPECT_EQ(host.ids.value(controller->cancelScanAction()), QStringLiteral("Plugins_CancelSearch"));

    QAction* stereo = find(menu, QStringLiteral("Vlor Fixture Stereo \u00B7 VST2"));
    QAction* gain = find(menu, QStringLiteral("Fixture Gain \u00B7 VST3"));
    ASSERT_NE(stereo, nullptr) << texts(menu).join(QLatin1Char('|')).toStdString();
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(host.ids.value(gain), QStringLiteral("vst3id-") + kGain);
    EXPECT_TRUE(host.ids.value(stereo).startsWith(QStringLiteral("vstid-")));
    EXPECT_EQ(host.urls.value(gain), QStringLiteral("fx://vlorfixturesfixturegain"));
    // No audio: every entry is off, and a trigger by hand opens nothing.
    EXPECT_FALSE(stereo->isEnabled());
    EXPECT_FALSE(gain->isEnabled());
    stereo->trigger();
    EXPECT_EQ(host.presented, nullptr);

    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    controller->rebuildPluginsMenu();
    settle();
    stereo = find(controller->pluginsMenu(), QStringLiteral("Vlor Fixture Stereo \u00B7 VST2"));
    gain = find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3"));
    ASSERT_TRUE(stereo && gain);
    EXPECT_TRUE(stereo->isEnabled());
    stereo->trigger();
    ASSERT_NE(host.presented, nullptr);
    EXPECT_NE(qobject_cast<QVlorVst::Widget*>(host.presented.get()), nullptr);
    EXPECT_EQ(host.presentedFormat, QStringLiteral("vst2"));
    host.presented.reset();
    gain->trigger();
    ASSERT_NE(qobject_cast<QVlorVst3::Widget*>(host.presented.get()), nullptr);
    EXPECT_FALSE(controller->triggerPairAction(QStringLiteral("no-such-pair")));

    // A plugin switched off leaves the menu; a burst of signals costs one rebuild.
    for (QVlorVst::Path path : vst2->pathsCopy())
        for (QVlorVst::Plugin& p : path.plugins())
            vst2->disablePlugin(p, path);
    settle();
    settle();
    EXPECT_EQ(find(controller->pluginsMenu(), QStringLiteral("Vlor Fixture Stereo \u00B7 VST2")), nullptr);
    const int before = host.audioAsked;
    for (int i = 0; i < 10; ++i)
        emit vst3->catalogChanged();
    settle();
    EXPECT_EQ(host.audioAsked, before + 1);
}

TEST_F(Menu, APairIsOneEntryOpeningItsActiveFormatUnderOneId)
{
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    QVlorVst::Plugin stereo;
    for (const QVlorVst::Path& path : vst2->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins())
            stereo = p;
    vst3->addManualPair(stereo.uniqueId(), kGain, QStringLiteral("vst2"));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    const QList<QVlorPluginPairs::Entry> pairs = vst3->pairsEntriesCopy();
    ASSERT_EQ(pairs.size(), 1);
    const QString pairId = pairs[0].pairId;
    QAction* entry = find(controller->pluginsMenu(), QStringLiteral("Vlor Fixture Stereo \u00B7 VST2"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3")), nullptr);
    EXPECT_EQ(host.ids.value(entry), QStringLiteral("plugid-") + pairId);
    EXPECT_TRUE(controller->triggerPairAction(pairId));
    EXPECT_EQ(host.presentedFormat, QStringLiteral("vst2"));
    EXPECT_EQ(host.presentedPair, pairId);

    // The other format: the same id opens the VST3 class now.
    vst3->setPairActiveFormat(pairId, QStringLiteral("vst3"));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    QAction* now = nullptr;
    for (auto it = host.ids.constBegin(); it != host.ids.constEnd(); ++it)
        if (it.value() == QStringLiteral("plugid-") + pairId)
            now = it.key();
    ASSERT_NE(now, nullptr);
    EXPECT_TRUE(now->text().endsWith(QStringLiteral("VST3")));
    EXPECT_TRUE(controller->formatAvailableForPair(pairId, QStringLiteral("vst2")));
    EXPECT_TRUE(controller->triggerPairAction(pairId));
    EXPECT_EQ(host.presentedFormat, QStringLiteral("vst3"));
    vst3->purgePairState({stereo.uniqueId()}, {kGain});
    settle();
}

TEST_F(Menu, ACrashedClassAsksFirstWithNoAsTheDefault)
{
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    ASSERT_TRUE(writeOpeningSentinel(QStringLiteral("vst3"), kGain, QStringLiteral("Fixture Gain")));
    EXPECT_EQ(vst3->consumeCrashSentinel(), QStringLiteral("Fixture Gain"));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    QAction* gain = find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3"));
    ASSERT_NE(gain, nullptr);

    QMessageBox::StandardButton answer = QMessageBox::No;
    QVlorDialogs::setAnswerer([&](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{answer, QString()}; });
    gain->trigger();
    QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].title, QStringLiteral("Question"));
    EXPECT_EQ(asked[0].text, QStringLiteral("This plugin crashed vloraudio the last time it was opened. Open it anyway?"));
    EXPECT_EQ(asked[0].defaultButton, QMessageBox::No);
    EXPECT_TRUE(asked[0].windowModal);
    EXPECT_EQ(host.presented, nullptr);
    EXPECT_EQ(vst3->catalogCopy().findClass(kGain)->state(), QVlorVst3::CatalogClass::Crashed);

    answer = QMessageBox::Yes;
    gain->trigger();
    EXPECT_EQ(QVlorDialogs::takeAsked().size(), 1);
    EXPECT_NE(host.presented, nullptr);
    settle();
    EXPECT_EQ(vst3->catalogCopy().findClass(kGain)->state(), QVlorVst3::CatalogClass::Enabled);
}

TEST_F(Menu, TheHostTearingItsMenuDownIsSurvived)
{
    ASSERT_NE(controller->pluginsMenu(), nullptr);
    delete host.main;
    host.main = nullptr;
    EXPECT_EQ(controller->pluginsMenu(), nullptr);
    EXPECT_EQ(controller->scanProgressAction(), nullptr);
    EXPECT_EQ(controller->managePluginsAction(), nullptr);
    controller->rebuildPluginsMenu();
    settle();
    EXPECT_EQ(controller->pluginsMenu(), nullptr); // no main menu: nothing to hang it on
    host.main = new QMenu(QStringLiteral("Main again"), bar.get());
    controller->rebuildPluginsMenu();
    settle();
    ASSERT_NE(controller->pluginsMenu(), nullptr);
    EXPECT_NE(find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3")), nullptr);
}

TEST_F(Menu, VerifyingPluginsStayAndVendorSwitchedOffOrFailedOnesGo)
{
    auto entries = [&] {
        controller->rebuildPluginsMenu();
        settle();
        QStringList all;
        for (QAction* a : controller->pluginsMenu()->actions())
            if (a->menu())
                all += texts(a->menu());
        return all;
    };
    ASSERT_TRUE(entries().contains(QStringLiteral("Fixture Gain \u00B7 VST3")));
    // A class being verified is still offered.
    vst3->markClassesVerifying({kGain});
    settle();
    EXPECT_TRUE(entries().contains(QStringLiteral("Fixture Gain \u00B7 VST3")));
    // A plugin that failed its check is not.
    vst2->markPluginCrashed(0x566C4678);
    settle();
    EXPECT_FALSE(entries().contains(QStringLiteral("Vlor Fixture Stereo \u00B7 VST2")));
    // A vendor switched off takes all its plugins along; its submenu goes when nothing is left.
    vst3->setVendorEnabled(QStringLiteral("vlor fixtures"), false);
    settle();
    const QStringList after = entries();
    EXPECT_FALSE(after.contains(QStringLiteral("Fixture Gain \u00B7 VST3")));
    for (const QString& t : after)
        EXPECT_FALSE(t.endsWith(QStringLiteral("VST3"))) << t.toStdString();
    vst3->setVendorEnabled(QStringLiteral("vlor fixtures"), true);
    settle();
}

TEST_F(Menu, APluginThatNoLongerLoadsIsToldWithTheLoadErrorBox)
{
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    controller->rebuildPluginsMenu();
    settle();
    QAction* stereo = find(controller->pluginsMenu(), QStringLiteral("Vlor Fixture Stereo \u00B7 VST2"));
    ASSERT_NE(stereo, nullptr);
    // Gone since the menu was built: the entry is stale.
    ASSERT_TRUE(QFile::remove(vst2File));
    AUDIOVST_ForgetVlorVstPath();
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
    stereo->trigger();
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
    const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    if (host.presented)
        GTEST_SKIP() << "the plugin stayed loaded in this process, so it still opens";
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].kind, QStringLiteral("critical"));
    EXPECT_EQ(asked[0].title, QStringLiteral("VST Load Error"));
    EXPECT_EQ(asked[0].text,
              QStringLiteral("The VST Vlor Fixture Stereo plug-in could not be loaded (or crash during this process)."));
    EXPECT_EQ(asked[0].informativeText,
              QStringLiteral("It may be a temporary problem that can be resolved by restarting vloraudio."));
    EXPECT_TRUE(asked[0].windowModal);
}

// The real zam products in both formats: each one entry under its vendor,
// opening a working dialog of its active format; and a switch of format
// changes what the same entry opens.
TEST_F(Menu, RealTwinsOpenWorkingDialogsOfTheirActiveFormat)
{
    const QStringList bundles = QDir(QStringLiteral("/usr/lib/vst3")).entryList({QStringLiteral("Za*.vst3")});
    if (bundles.isEmpty() || !QFileInfo::exists(QStringLiteral("/usr/lib/vst/ZamComp-vst.so")))
        GTEST_SKIP() << "zam-plugins is not installed";
    TempDir zam;
    QDir().mkpath(QString::fromStdString(zam.file("vst2")));
    QDir().mkpath(QString::fromStdString(zam.file("vst3")));
    // Copies, as a user's own folders hold them.
    ASSERT_EQ(std::system(("cp /usr/lib/vst/Za*-vst.so '" + zam.file("vst2") + "/' && cp -r /usr/lib/vst3/Za*.vst3 '" +
                           zam.file("vst3") + "/'").c_str()),
              0);
    vst2->addPath(QString::fromStdString(zam.file("vst2")));
    vst2->updatePlugins(true, false);
    vst2->enableNewPlugins();
    vst3->setSearchPathsForTesting({plugins.vst3Folder(), QString::fromStdString(zam.file("vst3"))});
    vst3->searchPlugins(true);
    vst3->enableNewPlugins();
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    auto zamMenu = [&]() -> QMenu* {
        controller->rebuildPluginsMenu();
        settle();
        for (QAction* a : controller->pluginsMenu()->actions())
            if (a->menu() && a->text() == QStringLiteral("Damien Zammit"))
                return a->menu();
        return nullptr;
    };
    ASSERT_TRUE(waitFor([&] {
        const QMenu* m = zamMenu();
        return m && m->actions().size() == bundles.size();
    }, 60000)) << (zamMenu() ? texts(zamMenu()).join(QLatin1Char('|')).toStdString() : std::string("no zam menu"));
    for (QAction* entry : zamMenu()->actions()) {
        host.presented.reset();
        entry->trigger();
        ASSERT_NE(host.presented, nullptr) << entry->text().toStdString();
        EXPECT_TRUE(entry->text().endsWith(host.presentedFormat.toUpper())) << entry->text().toStdString();
        ASSERT_NE(host.presented->effect(), nullptr);
        EXPECT_TRUE(host.presented->effect()->isOk()) << entry->text().toStdString();
        EXPECT_TRUE(host.ids.value(entry).startsWith(QStringLiteral("plugid-"))) << entry->text().toStdString();
    }
    host.presented.reset();

    QString pairId;
    ASSERT_TRUE(waitFor([&] {
        settle();
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy()) {
            const QVlorVst3::CatalogClass* c = catalog.findClass(e.vst3);
            if (e.vst2 != 0 && c && c->name() == QStringLiteral("ZamComp"))
                pairId = e.pairId;
        }
        return !pairId.isEmpty();
    }, 30000)) << [&] {
        std::string why;
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
            for (const QVlorVst3::CatalogClass& c : b.classes())
                why += c.name().toStdString() + "=" + QVlorVst3::CatalogClass::StateToString(c.state()).toStdString() + " ";
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                why += p.filename().toStdString() + ":" + p.state().toStdString() + " ";
        why += "pairs " + std::to_string(vst3->pairsEntriesCopy().size());
        return why;
    }();
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    for (const QString& format : {QStringLiteral("vst3"), QStringLiteral("vst2")}) {
        // As the page's badge does: the format made active, and switched on if it was off.
        vst3->setPairActiveFormat(pairId, format);
        if (format == QStringLiteral("vst3"))
            for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
                if (e.pairId == pairId)
                    vst3->enablePlugin(e.vst3);
        // The format switched on may be verified first, in a child process.
        auto zamEntries = [&] {
            controller->rebuildPluginsMenu();
            settle();
            int n = 0;
            for (auto it = host.ids.constBegin(); it != host.ids.constEnd(); ++it)
                n += it.key()->text().startsWith(QStringLiteral("ZamComp \u00B7 ") + format.toUpper()) ? 1 : 0;
            return n;
        };
        EXPECT_TRUE(waitFor([&] { return zamEntries() > 0; }, 20000)) << format.toStdString();
        EXPECT_EQ(zamEntries(), 1) << format.toStdString();
        host.presented.reset();
        ASSERT_TRUE(controller->triggerPairAction(pairId)) << format.toStdString();
        ASSERT_NE(host.presented, nullptr) << format.toStdString();
        EXPECT_EQ(host.presentedFormat, format);
        ASSERT_NE(host.presented->effect(), nullptr);
        EXPECT_TRUE(host.presented->effect()->isOk()) << format.toStdString();
        EXPECT_FALSE(host.presented->fxParam(false).isEmpty());
        host.presented.reset();
    }
    vst3->purgePairState({}, {});
}

// A check that runs for more than three seconds is offered for skipping, by
// the plugin's name, in the menu under its progress line and on the plugin
// page; skipped, its child ends at once, the plugin is failed as skipped by
// the user, and the next rescan offers it as new again.
TEST_F(Menu, ALongCheckCanBeSkippedFromTheMenuOrThePageAndComesBackAtTheNextRescan)
{
    const QString hang = QFileInfo(vst2File).absolutePath() + QStringLiteral("/hang.so");
    ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-hang-open.so"), hang));
    auto record = [&] {
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.filename() == hang)
                    return std::make_pair(p, path);
        return std::make_pair(QVlorVst::Plugin(), QVlorVst::Path());
    };
    vst2->updatePlugins(true, false);
    settle();
    ASSERT_TRUE(record().first.isNew());
    QVlorPluginsPrefs page;
    auto* button = page.findChild<QPushButton*>(QStringLiteral("skipCheckButton"));
    ASSERT_NE(button, nullptr);
    QAction* skip = controller->skipCheckAction();
    ASSERT_NE(skip, nullptr);
    EXPECT_FALSE(skip->isVisible());

    auto [plugin, path] = record();
    vst2->enablePlugin(plugin, path);
    ASSERT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return skip->isVisible() && button->isVisibleTo(&page);
    }, 10000)) << "offered after three seconds";
    EXPECT_TRUE(skip->text().startsWith(QStringLiteral("Skip hang.so"))) << skip->text().toStdString();
    EXPECT_EQ(button->text(), QStringLiteral("Skip hang.so"));
    QElapsedTimer clock;
    clock.start();
    skip->trigger();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return record().first.isFailed();
    }, 10000));
    EXPECT_LT(clock.elapsed(), 10000) << "not the 30 s of its timeout";
    EXPECT_EQ(record().first.failReason(), QStringLiteral("skipped by the user (checked again at the next rescan)"));
    EXPECT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return !skip->isVisible() && !button->isVisibleTo(&page);
    }, 3000));

    vst2->rescanPlugins();
    EXPECT_TRUE(waitFor([&] {
        settle();
        return record().first.isNew() && !record().first.isFailed();
    }, 10000));
}

// A VST2 plugin whose file changed since its check is checked again before
// its dialog opens: away from the main thread, which goes on turning, with a
// progress dialog and Cancel; a check that hangs is told as a hang.
TEST_F(Menu, AChangedPluginIsCheckedAwayFromTheMainThreadWithProgressAndCancel)
{
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    controller->rebuildPluginsMenu();
    settle();
    QAction* stereo = find(controller->pluginsMenu(), QStringLiteral("Vlor Fixture Stereo \u00B7 VST2"));
    ASSERT_NE(stereo, nullptr);
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
    struct Case {
        const char* what;
        int slowMs;        // the plugin's open, in the check child
        int timeoutMs;     // the check's
        bool cancel;
        bool opens;
        QString told;      // in the load error box
    };
    const Case cases[] = {
        {"a slow check", 2000, 30000, false, true, QString()},
        {"a cancel", 8000, 30000, true, false, QString()},
        {"a hang", 8000, 1000, false, false, QStringLiteral("did not answer within 1 s")},
    };
    int touch = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        host.presented.reset();
        QVlorDialogs::takeAsked();
        // The file changes: its next opening checks it again.
        const QDateTime when = QDateTime::currentDateTime().addSecs(++touch * 10);
        QFile f(vst2File);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite) && f.setFileTime(when, QFileDevice::FileModificationTime));
        f.close();
        // As in an editor that starts: the plugin is not resolved in this process yet.
        while (_VSTEFFECT* e = AUDIOVST_FindPluginByUniqId(0x566C4678 /* the stereo fixture's unique id */))
            AUDIOVST_DeletePlugin(e);
        ASSERT_TRUE(AUDIOVST_WouldCheck(vst2File.toUtf8().constData(), 0x566C4678 /* the stereo fixture's unique id */));
        AUDIOVST_SetCheckTimeout(c.timeoutMs);
        qputenv("VLOR_FIXTURE_SLOW_MS", QByteArray::number(c.slowMs));
        int ticks = 0;
        bool progressShown = false;
        QTimer tick;
        QObject::connect(&tick, &QTimer::timeout, [&] {
            ++ticks;
            if (ticks == 4)
                qunsetenv("VLOR_FIXTURE_SLOW_MS"); // the check child has it; the opening after does not
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* p = qobject_cast<QProgressDialog*>(w);
                    p && p->objectName() == QLatin1String("pluginCheckProgress") && p->isVisible()) {
                    progressShown = true;
                    if (c.cancel)
                        if (auto* button = p->findChild<QPushButton*>())
                            QTest::mouseClick(button, Qt::LeftButton);
                }
        });
        tick.start(100);
        QElapsedTimer clock;
        clock.start();
        stereo->trigger();
        tick.stop();
        qunsetenv("VLOR_FIXTURE_SLOW_MS");
        AUDIOVST_SetCheckTimeout(30000);
        EXPECT_GE(ticks, c.cancel ? 3 : 6) << "the main thread turned while the check ran";
        EXPECT_TRUE(progressShown);
        EXPECT_EQ(host.presented != nullptr, c.opens);
        if (c.cancel) {
            EXPECT_LT(clock.elapsed(), 6000) << "a cancel ends the check at once";
        }
        const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
        if (c.told.isEmpty()) {
            EXPECT_TRUE(asked.isEmpty()) << (asked.isEmpty() ? std::string() : asked[0].text.toStdString());
        } else {
            ASSERT_EQ(asked.size(), 1);
            EXPECT_TRUE(asked[0].text.contains(c.told)) << asked[0].text.toStdString();
        }
    }
}
