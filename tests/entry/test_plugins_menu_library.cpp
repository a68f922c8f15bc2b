// The Plugins menu's favourites, recently used effects and layouts, over the
// fixture plugins found by real scans.
#include "menu_fixture.h"

#include "QVlorPluginLibrary.h"

#include <QSet>

using namespace vlortest;
using namespace menutest;

namespace {

// The texts of the sections above the scan line: "[Favourites]", entries, "[Recently used]", ...
QStringList topTexts(const QMenu* menu)
{
    QStringList t;
    for (QAction* a : menu->actions()) {
        if (a->text().startsWith(QLatin1String("Scanning plugins")))
            break;
        if (a->isSeparator() && !a->text().isEmpty())
            t << QLatin1Char('[') + a->text() + QLatin1Char(']');
        else if (!a->isSeparator())
            t << a->text();
    }
    return t;
}

QStringList groupTitles(const QMenu* menu)
{
    QStringList t;
    for (QAction* a : menu->actions())
        if (a->menu() && a->menu()->objectName() != QLatin1String("pluginsLayoutMenu"))
            t << a->text();
    return t;
}

QAction* topEntry(const QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions())
        if (a->property("vlorTopSection").toBool() && a->text() == text)
            return a;
    return nullptr;
}

} // namespace

TEST_F(Menu, FavouritesAndRecentEntriesStayThroughAFormatSwitchARescanAndARestart)
{
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    // The star of the page marks a product by the identities of its forms: the VST3 gain's here.
    library->setFavourite({kGain}, true);
    controller->rebuildPluginsMenu(); // entries are enabled with audio to apply them to
    settle();
    EXPECT_EQ(topTexts(controller->pluginsMenu()),
              (QStringList{QStringLiteral("[Favourites]"), QStringLiteral("Fixture Gain \u00B7 VST3")}));

    // Opened from its group: it becomes the one recent entry.
    QAction* gain = find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3"));
    ASSERT_NE(gain, nullptr);
    gain->trigger();
    ASSERT_NE(host.presented, nullptr);
    host.presented.reset();
    settle();
    const QStringList both{QStringLiteral("[Favourites]"), QStringLiteral("Fixture Gain \u00B7 VST3"),
                           QStringLiteral("[Recently used]"), QStringLiteral("Fixture Gain \u00B7 VST3"),
                           QStringLiteral("Clear recently used")};
    EXPECT_EQ(topTexts(controller->pluginsMenu()), both);
    // The group's entry the caller holds is still alive: only the top was made again.
    EXPECT_EQ(find(controller->pluginsMenu(), QStringLiteral("Fixture Gain \u00B7 VST3")), gain);

    // The product gains a VST2 form in use: the same product, in its new badge.
    QVlorVst::Plugin stereo;
    for (const QVlorVst::Path& path : vst2->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins())
            stereo = p;
    vst3->addManualPair(stereo.uniqueId(), kGain, QStringLiteral("vst2"));
    settle();
    controller->rebuildPluginsMenu();
    settle();
    // What a dialog's star marks: every form of the product.
    EXPECT_EQ(controller->productIdentities(kGain).size(), 2);
    EXPECT_EQ(controller->productIdentities(QStringLiteral("nothing")), QStringList{QStringLiteral("nothing")});
    const QString asVst2 = QStringLiteral("Vlor Fixture Stereo \u00B7 VST2");
    const QStringList switched{QStringLiteral("[Favourites]"), asVst2, QStringLiteral("[Recently used]"), asVst2,
                               QStringLiteral("Clear recently used")};
    EXPECT_EQ(topTexts(controller->pluginsMenu()), switched);
    // A favourite's entry opens the form in use.
    QAction* fav = topEntry(controller->pluginsMenu(), asVst2);
    ASSERT_NE(fav, nullptr);
    fav->trigger();
    EXPECT_EQ(host.presentedFormat, QStringLiteral("vst2"));
    host.presented.reset();

    plugins.scanWithInstalledManagers();
    settle();
    controller->rebuildPluginsMenu();
    settle();
    EXPECT_EQ(topTexts(controller->pluginsMenu()), switched) << "after a rescan";

    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    library->reload(); // what a new start reads
    QVlorAudioPlugins::UI::install(&host);
    vst2 = QVlorAudioPlugins::vstManager();
    vst3 = QVlorAudioPlugins::vst3Manager();
    controller = QVlorAudioPlugins::UI::menuController();
    vst2->loadCatalog();
    ASSERT_TRUE(waitFor([&] {
        settle();
        controller->rebuildPluginsMenu();
        settle();
        return topTexts(controller->pluginsMenu()) == switched;
    }, 20000)) << topTexts(controller->pluginsMenu()).join(QLatin1Char('|')).toStdString();

    controller->pluginsMenu()->findChild<QAction*>(QStringLiteral("clearRecentAction"))->trigger();
    settle();
    EXPECT_EQ(topTexts(controller->pluginsMenu()), (QStringList{QStringLiteral("[Favourites]"), asVst2}));
    library->reload();
    EXPECT_TRUE(library->recent().isEmpty()) << "cleared for good";
}

TEST_F(Menu, LayoutsByMakerByCategoryAndFlatAndQuickOpenFindsACategory)
{
    QMenu* menu = controller->pluginsMenu();
    const QStringList makers = groupTitles(menu);
    EXPECT_TRUE(makers.contains(QStringLiteral("Vlor Fixtures"))) << makers.join(QLatin1Char('|')).toStdString();
    QMenu* arrange = menu->findChild<QMenu*>(QStringLiteral("pluginsLayoutMenu"));
    ASSERT_NE(arrange, nullptr);
    ASSERT_EQ(arrange->actions().size(), 3);
    EXPECT_TRUE(arrange->actions().at(0)->isChecked());

    arrange->actions().at(1)->trigger(); // By category
    settle();
    const QStringList categories = groupTitles(menu);
    // The fixtures say only "Fx" (VST3) and "Amplifier" (LV2): their names place
    // the stereo fixture and the gain, and what nothing places is Other, last.
    EXPECT_EQ(categories, (QStringList{QStringLiteral("Spatial"), QStringLiteral("Utility"), QStringLiteral("Other")}))
        << "the vocabulary's order, not the alphabet's";
    for (QAction* a : host.descriptions.keys()) {
        const QString d = host.descriptions.value(a);
        EXPECT_TRUE(std::any_of(categories.begin(), categories.end(), [&](const QString& c) { return d.endsWith(c); }))
            << d.toStdString();
    }

    // The user's choice moves the gain to Reverb, and quick open finds it by that word.
    QVlorPluginLibrary::instance()->setCategoryOverride({kGain}, QStringLiteral("Reverb"));
    settle();
    QMenu* reverb = nullptr;
    for (QAction* a : menu->actions())
        if (a->menu() && a->text() == QLatin1String("Reverb"))
            reverb = a->menu();
    ASSERT_NE(reverb, nullptr) << groupTitles(menu).join(QLatin1Char('|')).toStdString();
    EXPECT_NE(find(reverb, QStringLiteral("Fixture Gain \u00B7 VST3")), nullptr);
    QStringList foundByReverb;
    for (auto it = host.descriptions.constBegin(); it != host.descriptions.constEnd(); ++it)
        if (it.value().contains(QLatin1String("reverb"), Qt::CaseInsensitive))
            foundByReverb << it.key()->text();
    EXPECT_EQ(foundByReverb, QStringList{QStringLiteral("Fixture Gain \u00B7 VST3")});

    arrange->actions().at(2)->trigger(); // Flat list
    settle();
    EXPECT_TRUE(groupTitles(menu).isEmpty());
    QAction* flat = find(menu, QStringLiteral("Fixture Gain \u00B7 VST3"));
    ASSERT_NE(flat, nullptr);
    EXPECT_EQ(flat->parent(), menu);
    host.audio = QVlorAudio(QStringLiteral("a.wav"), 2, 44100, 44100);
    controller->rebuildPluginsMenu();
    settle();
    find(menu, QStringLiteral("Fixture Gain \u00B7 VST3"))->trigger();
    EXPECT_NE(host.presented, nullptr) << "a flat entry opens as a grouped one";
    EXPECT_EQ(QVlorPluginLibrary::instance()->menuLayout(), QStringLiteral("flat"));
}
