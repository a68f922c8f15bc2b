// The plugin tree's context menu, used as a user uses it: rows selected by
// clicks, the menu opened as a right click opens it and its items clicked by
// their text.
#include "row_actions_fixture.h"

TEST_F(RowActions, TheItemsFollowTheSelection)
{
    struct Case {
        QStringList select;
        QStringList has;
        QStringList hasNot;
    };
    const QString pairWith = QStringLiteral("Pair with...");
    const std::vector<Case> cases = {
        // One VST2 plugin: its partners are the unpaired VST3 classes, by name.
        {{QStringLiteral("Vlor Fixture Stereo")},
         {pairWith, QStringLiteral("Pair with...>Fixture Alone"), QStringLiteral("Pair with...>Fixture Gain"),
          QStringLiteral("Update Plugin"), QStringLiteral("Open file location")},
         {QStringLiteral("Split Pair"), QStringLiteral("Join Pair"), QStringLiteral("Add Plugin"),
          QStringLiteral("Remove from catalog")}},
        // One VST3 class: the VST2 plugin is its partner; nothing to update.
        {{QStringLiteral("Fixture Gain")},
         {pairWith, QStringLiteral("Pair with...>Vlor Fixture Stereo"), QStringLiteral("Open file location")},
         {QStringLiteral("Update Plugin"), QStringLiteral("Split Pair")}},
        // One of each: they can be joined; plural texts; no single-row items.
        {{QStringLiteral("Vlor Fixture Stereo"), QStringLiteral("Fixture Gain")},
         {QStringLiteral("Join Pair"), QStringLiteral("Update Plugins")},
         {pairWith, QStringLiteral("Open file location"), QStringLiteral("Update Plugin")}},
        // Two of one format cannot be joined.
        {{QStringLiteral("Fixture Gain"), QStringLiteral("Fixture Alone")}, {}, {QStringLiteral("Join Pair"), pairWith}},
        // A bundle's group: its children's format, after a separator.
        {{QStringLiteral("Effects")},
         {QStringLiteral("Reset Plugin"), QStringLiteral("--"), QStringLiteral("Use VST3 in all children"),
          QStringLiteral("Use VST2 in all children")},
         {pairWith}},
    };
    for (const Case& c : cases) {
        const QStringList texts = contextMenu(c.select);
        const std::string what = c.select.join(QStringLiteral(" + ")).toStdString() + ": " +
                                 texts.join(QStringLiteral(" | ")).toStdString();
        for (const QString& t : c.has)
            EXPECT_TRUE(texts.contains(t)) << what << " lacks " << t.toStdString();
        for (const QString& t : c.hasNot)
            EXPECT_FALSE(texts.contains(t)) << what << " has " << t.toStdString();
    }
    // Partners: of the same vendor first, then by name.
    const QStringList partners = contextMenu({QStringLiteral("Vlor Fixture Stereo")}).filter(QStringLiteral("Pair with...>"));
    EXPECT_EQ(partners, (QStringList{QStringLiteral("Pair with...>Fixture Alone"), QStringLiteral("Pair with...>Fixture Endless"),
                                     QStringLiteral("Pair with...>Fixture Fails"), QStringLiteral("Pair with...>Fixture Gain")}));

    // A busy row offers nothing.
    vst3->markClassesVerifying({kAlone});
    settle();
    EXPECT_TRUE(contextMenu({QStringLiteral("Fixture Alone")}).isEmpty());
}

TEST_F(RowActions, PairWithSplitAndJoinReachThePairStoreAndLastThroughRescansAndRestarts)
{
    // Paired by hand from the VST2 row: its format stays the active one.
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Pair with...>Fixture Gain"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 10000));
    QList<QVlorPluginPairs::Entry> pair = pairsOf(kStereoId);
    EXPECT_EQ(pair.first().vst3, kGain);
    EXPECT_EQ(pair.first().activeFormat, QStringLiteral("vst2"));
    const QString pairId = pair.first().pairId;
    EXPECT_TRUE(rowOfPair(pairId).isValid());
    EXPECT_FALSE(row(QStringLiteral("Fixture Gain")).isValid()) << "one row for the pair";

    ASSERT_TRUE(rescanByButton());
    EXPECT_EQ(pairsOf(kStereoId).size(), 1) << "after a rescan";
    restart();
    ASSERT_EQ(pairsOf(kStereoId).size(), 1) << "after a restart";
    EXPECT_EQ(pairsOf(kStereoId).first().pairId, pairId);

    // Split: two rows again, and they stay two.
    contextMenu({rowOf(rowOfPair(pairId)).name}, QStringLiteral("Split Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).isEmpty() && row(QStringLiteral("Fixture Gain")).isValid() &&
               row(QStringLiteral("Vlor Fixture Stereo")).isValid();
    }, 10000));
    ASSERT_TRUE(rescanByButton());
    EXPECT_TRUE(pairsOf(kStereoId).isEmpty()) << "a split pair stays split";

    // Join: both on, so the row under the pointer decides the active format.
    // A rescan may still be checking one of them: the join waits for both.
    ASSERT_TRUE(waitFor([&] {
        settle();
        const UnifiedRow gain = rowOf(row(QStringLiteral("Fixture Gain")));
        const UnifiedRow stereo = rowOf(row(QStringLiteral("Vlor Fixture Stereo")));
        return gain.inUse() && stereo.inUse() && !UpmRowBusy(gain) && !UpmRowBusy(stereo);
    }, 10000));
    contextMenu({QStringLiteral("Fixture Gain"), QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Join Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 10000));
    EXPECT_EQ(pairsOf(kStereoId).first().activeFormat, QStringLiteral("vst3"));
    restart();
    EXPECT_EQ(pairsOf(kStereoId).size(), 1) << "joined, after a restart";
}

TEST_F(RowActions, UpdateRechecksAndAGroupSwitchesItsChildrensFormat)
{
    QSignalSpy enabled(vst2, &QVlorVst::Manager::pluginEnabled);
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Update Plugin"));
    // Marked at once, checked again, and on again.
    EXPECT_TRUE(rowOf(row(QStringLiteral("Vlor Fixture Stereo"))).vst2.state == QStringLiteral("verifying") ||
                enabled.count() > 0);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return enabled.count() > 0 && rowOf(row(QStringLiteral("Vlor Fixture Stereo"))).vst2.state.isEmpty();
    }, 20000));
    EXPECT_TRUE(stereoPlugin(vst2).isEnabled());
    EXPECT_FALSE(stereoPlugin(vst2).needRecheck());

    vst3->addManualPair(kStereoId, kGain, QStringLiteral("vst3"));
    settle();
    const QString pairId = pairsOf(kStereoId).value(0).pairId;
    ASSERT_FALSE(pairId.isEmpty());
    // The group the pair's row stands in.
    const QPersistentModelIndex group = rowOfPair(pairId).parent();
    ASSERT_EQ(group.data().toString(), QStringLiteral("Effects"));
    contextMenuOn({group}, QStringLiteral("Use VST2 in all children"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).value(0).activeFormat == QStringLiteral("vst2");
    }, 10000));
    contextMenuOn({rowOfPair(pairId).parent()}, QStringLiteral("Use VST3 in all children"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).value(0).activeFormat == QStringLiteral("vst3");
    }, 10000));
}

TEST_F(RowActions, AMissingClassIsRemovedFromTheCatalog)
{
    ASSERT_TRUE(QDir(plugins.bundle).removeRecursively());
    vst3->rescanPlugins();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowOf(row(QStringLiteral("Fixture Gain"))).vst3.state == QStringLiteral("missing");
    }, 20000));
    const QStringList texts = contextMenu({QStringLiteral("Fixture Gain")});
    EXPECT_TRUE(texts.contains(QStringLiteral("Remove from catalog"))) << texts.join(QLatin1Char('|')).toStdString();
    EXPECT_FALSE(texts.contains(QStringLiteral("Open file location"))) << "a missing file has no place";
    contextMenu({QStringLiteral("Fixture Gain")}, QStringLiteral("Remove from catalog"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !row(QStringLiteral("Fixture Gain")).isValid();
    }, 10000));
    EXPECT_EQ(vst3->catalogCopy().findClass(kGain), nullptr);
}

// hand, and two plugins no matcher pairs, paired by hand. After each step and
// after a restart the page, the Plugins menu and `vlorfx list` tell the same.
class RealPairs : public RowActions {
protected:
    void SetUp() override
    {
        if (!QFileInfo::exists(kZamVst2) || !QFileInfo::exists(kZamVst3))
            GTEST_SKIP() << "zam-plugins is not installed (" << kZamVst2.toStdString() << ")";
        RowActions::SetUp();
        // Copies of one real product in both formats, in folders of their own.
        const QString vst2Folder = QString::fromStdString(real.file("vst2"));
        const QString vst3Folder = QString::fromStdString(real.file("vst3"));
        QDir().mkpath(vst2Folder);
        QDir().mkpath(vst3Folder);
        ASSERT_TRUE(QFile::copy(kZamVst2, vst2Folder + QStringLiteral("/ZamComp-vst.so")));
        ASSERT_TRUE(copyTree(kZamVst3, vst3Folder + QStringLiteral("/ZamComp.vst3")));
        vst3Folders = {plugins.vst3Folder(), vst3Folder};
        host.menu = new QMenu(QStringLiteral("Main"));
        firstScanInOrder({vst2Folder}, vst3Folders);
        ASSERT_TRUE(waitFor([&] {
            settle();
            return !zamPair().isEmpty();
        }, 20000)) << "the matcher did not pair ZamComp" << debugState();
    }
    void TearDown() override
    {
        if (IsSkipped())
            return;
        RowActions::TearDown();
        delete host.menu;
    }

    std::string debugState() const
    {
        QString t;
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                t += QStringLiteral(" vst2:%1/%2/%3").arg(p.name()).arg(p.uniqueId()).arg(p.state());
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
            for (const QVlorVst3::CatalogClass& c : b.classes())
                t += QStringLiteral(" vst3:%1/%2").arg(c.name()).arg(int(c.state()));
        t += QStringLiteral(" pairs:%1").arg(vst3->pairsEntriesCopy().size());
        return t.toStdString();
    }
    qint64 zamId() const
    {
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.name() == QLatin1String("ZamComp"))
                    return p.uniqueId();
        return 0;
    }
    QString zamPair() const
    {
        const qint64 id = zamId();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (id != 0 && e.vst2 == id && !e.vst3.isEmpty())
                return e.pairId;
        return QString();
    }
    // What each of the three says of a product: its rows on the page, its
    // entries in the menu, and whether `vlorfx list` holds the pair.
    struct Told {
        QStringList page;
        QStringList menu;
        bool listPaired = false;
    };
    Told told(const QString& name, qint64 vst2Id, const QString& cid)
    {
        Told t;
        for (const QPersistentModelIndex& r : rowsNamed(name)) {
            const UnifiedRow row = rowOf(r);
            if (row.inUse())
                t.page << name + (row.vst3.active ? QStringLiteral(" \u00B7 VST3") : QStringLiteral(" \u00B7 VST2"));
        }
        t.page.sort();
        auto* controller = QVlorAudioPlugins::UI::menuController();
        controller->rebuildPluginsMenuNow();
        if (QMenu* menu = controller->pluginsMenu())
            for (QAction* vendor : menu->actions())
                if (vendor->menu())
                    for (QAction* entry : vendor->menu()->actions())
                        if (entry->text().startsWith(name + QStringLiteral(" \u00B7 ")))
                            t.menu << entry->text();
        t.menu.sort();
        vst2->saveCatalog();
        vst3->saveCatalogAndPairs();
        settle();
        QProcess list;
        list.start(QStringLiteral(VLOR_BIN_DIR "/vlorfx"),
                   {QStringLiteral("--data"), QString::fromStdString(dataDir()), QStringLiteral("list"), QStringLiteral("--json")});
        if (!list.waitForFinished(30000) || list.exitCode() != 0) {
            ADD_FAILURE() << "vlorfx list: " << list.readAllStandardError().toStdString();
            return t;
        }
        const QJsonArray pairs = QJsonDocument::fromJson(list.readAllStandardOutput()).object().value(QStringLiteral("pairs"))
                                     .toObject().value(QStringLiteral("pairs")).toArray();
        for (const QJsonValue& p : pairs)
            t.listPaired = t.listPaired || (p.toObject().value(QStringLiteral("vst2")).toInteger() == vst2Id &&
                                            p.toObject().value(QStringLiteral("vst3")).toString() == cid);
        return t;
    }
    // The three agree: one row and one entry for a pair that the list holds, one of each format otherwise.
    void expectAgreement(const QString& name, qint64 vst2Id, const QString& cid, bool paired, const char* when)
    {
        const Told t = told(name, vst2Id, cid);
        EXPECT_EQ(t.listPaired, paired) << when;
        EXPECT_EQ(t.page, t.menu) << when;
        EXPECT_EQ(t.page.size(), paired ? 1 : 2) << when << ": " << t.page.join(QLatin1Char('|')).toStdString();
    }

    static inline const QString kZamVst2 = QStringLiteral("/usr/lib/vst/ZamComp-vst.so");
    static inline const QString kZamVst3 = QStringLiteral("/usr/lib/vst3/ZamComp.vst3");
    TempDir real;
};

TEST_F(RealPairs, SplitAndRejoinAZamPairAndPairTwoPluginsByHandAllTellingTheSame)
{
    const qint64 zam = zamId();
    QString cid;
    for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
        if (e.vst2 == zam)
            cid = e.vst3;
    ASSERT_FALSE(cid.isEmpty());
    const QString name = QStringLiteral("ZamComp");
    expectAgreement(name, zam, cid, true, "as the matcher paired it");

    // The product's twins as two rows, both in use: the split keeps the VST3 side
    // active, and the VST2 plugin is switched on by its box.
    contextMenuOn({rowsNamed(name).value(0)}, QStringLiteral("Split Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return zamPair().isEmpty() && rowsNamed(name).size() == 2;
    }, 20000));
    for (const QPersistentModelIndex& r : rowsNamed(name))
        if (!rowOf(r).inUse())
            click(checkBox(r));
    ASSERT_TRUE(waitFor([&] {
        settle();
        const QList<QPersistentModelIndex> rows = rowsNamed(name);
        return rows.size() == 2 && rowOf(rows[0]).inUse() && rowOf(rows[1]).inUse();
    }, 20000));
    expectAgreement(name, zam, cid, false, "split");

    contextMenuOn(rowsNamed(name), QStringLiteral("Join Pair"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !zamPair().isEmpty() && rowsNamed(name).size() == 1;
    }, 20000));
    expectAgreement(name, zam, cid, true, "joined by hand");

    // Two plugins no matcher would pair (fixtures: no DPF or LSP product here
    // comes in both formats).
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Pair with...>Fixture Gain"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        return pairsOf(kStereoId).size() == 1;
    }, 20000));
    expectAgreement(QStringLiteral("Vlor Fixture Stereo"), kStereoId, kGain, true, "fixtures paired by hand");

    restart();
    ASSERT_TRUE(waitFor([&] {
        settle();
        return rowsNamed(name).size() == 1;
    }, 20000));
    expectAgreement(name, zam, cid, true, "after a restart");
    expectAgreement(QStringLiteral("Vlor Fixture Stereo"), kStereoId, kGain, true, "after a restart");
}

TEST_F(RowActions, ResetForgetsAPluginAndOffersItAsNew)
{
    const QStringList texts = contextMenu({QStringLiteral("Vlor Fixture Stereo")});
    ASSERT_TRUE(texts.contains(QStringLiteral("Reset Plugin"))) << texts.join(QLatin1Char('|')).toStdString();
    contextMenu({QStringLiteral("Vlor Fixture Stereo")}, QStringLiteral("Reset Plugin"));
    ASSERT_TRUE(waitFor([&] {
        settle();
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (const QVlorVst::Plugin& p : path.plugins())
                if (p.filename() == plugins.vst2File)
                    return p.isNew() && !p.isEnabled() && rawRow(UpmNewSectionVst2).isValid();
        return false;
    }, 20000));
    // Its Add button brings it back as it was.
    click(badge(rawRow(UpmNewSectionVst2), QVlorPluginBadgeDelegate::kAddSlot).center().toPoint());
    ASSERT_TRUE(waitFor([&] {
        settle();
        return stereoPlugin(vst2).isEnabled() && row(QStringLiteral("Vlor Fixture Stereo")).isValid();
    }, 20000));
}
