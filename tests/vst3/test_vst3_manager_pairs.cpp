// The VST3 manager's pair decisions and commands, its quit, cancel and skip,
// and what another process saves.
#include "vst3_manager_fixture.h"

TEST_F(Vst3ManagerTest, ANewClassIsDecidedByItsVst2Twin)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString vendor = cls(kGain).vendor();
    auto twin = [&](qint64 id, const char* name, bool enabled, bool failed) {
        Manager::Vst2PluginInfo i;
        i.uniqueId = id;
        i.name = QLatin1String(name);
        i.vendor = vendor;
        i.exists = true;
        i.enabled = enabled;
        i.failed = failed;
        return i;
    };
    // Gain's twin is in use, Endless's was switched off by the user, Alone's crashed; Fails has none.
    const QList<Manager::Vst2PluginInfo> vst2{twin(1001, "Fixture Gain", true, false),
                                              twin(1002, "Fixture Endless", false, false),
                                              twin(1003, "Fixture Alone", false, true)};
    m.setVst2ItemsProvider([vst2] { return vst2; });
    run([](Manager& m) { m.rematchPairs(); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 3);
    run([](Manager& m) { m.enableNewPlugins(); });

    auto entryOf = [&](qint64 id) {
        for (const QVlorPluginPairs::Entry& e : m.pairsEntriesCopy())
            if (e.vst2 == id)
                return e;
        return QVlorPluginPairs::Entry();
    };
    // "vst2": turned off without a verify.
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);
    EXPECT_EQ(cls(kGain).verifiedAt(), 0);
    EXPECT_EQ(entryOf(1001).activeFormat, QStringLiteral("vst2"));
    // "veto": left new, and the pair remembers it.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Endless"))).state(), CatalogClass::New);
    EXPECT_TRUE(entryOf(1002).vetoedAutoEnable);
    // "vst3": verified and enabled.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Alone"))).state(), CatalogClass::Enabled);
    EXPECT_EQ(entryOf(1003).activeFormat, QStringLiteral("vst3"));
    // No twin: "vst3", and its verify fails.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Fails"))).state(), CatalogClass::Failed);

    // A later verify of the vetoed class lifts the veto.
    run([&](Manager& m) { m.enablePlugin(cidOf(QStringLiteral("Fixture Endless"))); });
    EXPECT_FALSE(entryOf(1002).vetoedAutoEnable);
    // Saved with the catalog.
    auto savedPairs = [&] {
        QFile pairs(file("plugin_pairs.json"));
        return pairs.open(QIODevice::ReadOnly)
                   ? QJsonDocument::fromJson(pairs.readAll()).object().value(QStringLiteral("pairs")).toArray().size()
                   : -1;
    };
    EXPECT_TRUE(waitFor([&] { return savedPairs() == 3; })) << savedPairs();
}

TEST_F(Vst3ManagerTest, PairCommandsClearTheirBusyMarksAndPublish)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString vendor = cls(kGain).vendor();
    Manager::Vst2PluginInfo gain;
    gain.uniqueId = 1001;
    gain.name = QStringLiteral("Fixture Gain");
    gain.vendor = vendor;
    gain.exists = false; // its file is gone: not offered to the matcher
    QList<Manager::Vst2PluginInfo> vst2{gain};
    m.setVst2ItemsProvider([&vst2] { return vst2; });
    events.take();
    run([](Manager& m) { m.rematchPairs(); });
    EXPECT_TRUE(m.pairsEntriesCopy().isEmpty());
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")}); // emitted even with nothing added
    vst2[0].exists = true;
    run([](Manager& m) { m.rematchPairs(1001); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    const QString pairId = m.pairsEntriesCopy().first().pairId;

    run([&](Manager& m) { m.setPairActiveFormat(pairId, QStringLiteral("veto")); });
    EXPECT_EQ(m.pairsEntriesCopy().first().activeFormat, QStringLiteral("vst3"));
    run([&](Manager& m) { m.setPairActiveFormat(pairId, QStringLiteral("vst2")); });
    EXPECT_EQ(m.pairsEntriesCopy().first().activeFormat, QStringLiteral("vst2"));

    // Marks: emitted once, however often they are asked for.
    events.take();
    m.markPairOpPending({1001, 0}, {kGain});
    m.markPairOpPending({1001}, {kGain});
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")});
    EXPECT_EQ(m.pendingPairOpVst2IdsCopy(), QSet<qint64>{1001});
    // A split clears the marks of the pair's identities; the split forbids the pair.
    run([&](Manager& m) { m.splitPair(pairId, QStringLiteral("vst3")); });
    EXPECT_TRUE(m.pendingPairOpVst2IdsCopy().isEmpty());
    EXPECT_TRUE(m.pendingPairOpCidsCopy().isEmpty());
    run([](Manager& m) { m.rematchPairs(); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    EXPECT_EQ(m.pairsEntriesCopy().first().vst2, 0); // the VST3 side stays, alone
    // With an unknown pair id, the marks given still go.
    m.markPairOpPending({77}, {QStringLiteral("X")});
    run([](Manager& m) { m.splitPair(QStringLiteral("nope"), QStringLiteral("vst2"), 77, QStringLiteral("X")); });
    EXPECT_TRUE(m.pendingPairOpVst2IdsCopy().isEmpty());
    // A manual pair lifts the split, in the entry that held the VST3 side.
    m.markPairOpPending({1001}, {kGain});
    run([&](Manager& m) { m.addManualPair(1001, kGain, QStringLiteral("vst3")); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    EXPECT_EQ(m.pairsEntriesCopy().first().vst2, 1001);
    EXPECT_TRUE(m.pairsEntriesCopy().first().manualOverride);
    EXPECT_TRUE(m.pendingPairOpCidsCopy().isEmpty());

    // Purging identities that are only marked: a signal, no publish needed.
    m.markPairOpPending({555}, {});
    events.take();
    run([](Manager& m) { m.purgePairState({555}, {}); });
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")});
    EXPECT_EQ(m.pairsEntriesCopy().size(), 1);
    run([&](Manager& m) { m.purgePairState({}, {kGain}); });
    EXPECT_TRUE(m.pairsEntriesCopy().isEmpty());
}

// A quit while a bundle hangs its probe, with more queued behind it: the
// hanging child gets two seconds, the queue does not start, and what was cut
// short is not marked failed.
TEST_F(Vst3ManagerTest, AQuitWaitsForNoQueueAndAHangForTwoSecondsAtMost)
{
    const QString first = copyBundle(kEffects, QStringLiteral("First.vst3"));
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    const QString after = copyBundle(kClasses, QStringLiteral("After.vst3"));
    const QString last = copyBundle(kEffects, QStringLiteral("Last.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    QSemaphore hanging;
    QObject::connect(&m, &Manager::progressPlugin, &m,
                     [&hanging](const QString& name) {
                         if (name == QLatin1String("Hang.vst3"))
                             hanging.release();
                     },
                     Qt::DirectConnection);
    for (const QString& path : {first, hang, after, last})
        m.enableBundle(path);
    ASSERT_TRUE(hanging.tryAcquire(1, 10000));
    QElapsedTimer timer;
    timer.start();
    m.aboutToQuit();
    EXPECT_LT(timer.elapsed(), 2000 + 1500);
    EXPECT_TRUE(bundle(first).probed());
    EXPECT_FALSE(bundle(hang).probed());
    EXPECT_FALSE(bundle(hang).failed()); // cut short, not failed: the next start probes it
    EXPECT_FALSE(bundle(after).probed());
    EXPECT_FALSE(bundle(last).probed());
    EXPECT_EQ(readFile(hostLog).find("After.vst3"), std::string::npos);
}

// Cancel drops the probes queued before it; those asked for after it run.
TEST_F(Vst3ManagerTest, CancelDropsTheWorkQueuedBeforeIt)
{
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 1);
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    const QString queued = copyBundle(kEffects, QStringLiteral("Queued.vst3"));
    const QString later = copyBundle(kClasses, QStringLiteral("Later.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    QSemaphore hanging;
    QObject::connect(&m, &Manager::progressPlugin, &m, [&hanging](const QString&) { hanging.release(); },
                     Qt::DirectConnection);
    m.markBundlesVerifying({queued});
    m.enableBundle(hang);
    m.enableBundle(queued);
    ASSERT_TRUE(hanging.tryAcquire(1, 10000));
    m.cancel();
    m.enableBundle(later);
    sync(m);
    sync(m);
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 30);
    // The cancel ended the hung child too: not a failure, tried again later.
    EXPECT_FALSE(bundle(hang).probed());
    EXPECT_FALSE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QString());
    EXPECT_FALSE(bundle(queued).probed());
    EXPECT_FALSE(bundle(queued).verifying()); // its mark is taken back
    EXPECT_TRUE(bundle(later).probed());
}

// A bundle whose factory names its classes in Latin-1 probes and verifies
// through the manager, and its classes list with readable names.
TEST_F(Vst3ManagerTest, ClassesNamedInAnotherCodePageListReadably)
{
    const QString path = copyBundle(QStringLiteral("vlor-vst3-latin1"), QStringLiteral("Latin.vst3"));
    make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&path](Manager& m) { m.enableBundle(path); });
    const QString cafe = cidOf(QStringLiteral("Fixture Caf\u00E9 Gain"));
    ASSERT_FALSE(cafe.isEmpty());
    EXPECT_FALSE(cidOf(QStringLiteral("Fixture Endless \uFFFDt\uFFFD")).isEmpty());
    run([&cafe](Manager& m) { m.enablePlugin(cafe); });
    EXPECT_EQ(cls(cafe).state(), CatalogClass::Enabled) << cls(cafe).lastError().toStdString();
    EXPECT_TRUE(waitFor([&] {
        return savedCatalog().value(QStringLiteral("bundles")).toArray().first().toObject().value(QStringLiteral("classes"))
                   .toArray().first().toObject().value(QStringLiteral("name")).toString() == QStringLiteral("Fixture Caf\u00E9 Gain");
    }));
}

// A probe that hangs, skipped by the user while it runs: its child ends at
// once, the bundle fails as skipped, and a rescan gives it its chance again.
TEST_F(Vst3ManagerTest, ASkippedProbeEndsAtOnceAndIsTriedAgainAtTheNextRescan)
{
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    m.enableBundle(hang);
    ASSERT_TRUE(waitFor([&] {
        const QList<QVlorRunningCheck> running = m.runningChecks();
        return !running.isEmpty() && running.first().name == QStringLiteral("Hang.vst3");
    }, 10000));
    EXPECT_FALSE(m.skipCheck(QStringLiteral("Other.vst3")));
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(m.skipCheck(QStringLiteral("Hang.vst3")));
    sync(m);
    EXPECT_LT(clock.elapsed(), 10000) << "not the probe's timeout";
    EXPECT_TRUE(m.runningChecks().isEmpty());
    EXPECT_TRUE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QStringLiteral("skipped by the user (checked again at the next rescan)"));
    // A plain scan leaves the user's skip alone: only a rescan tries again.
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_TRUE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QStringLiteral("skipped by the user (checked again at the next rescan)"));
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 1);
    run([](Manager& m) { m.rescanPlugins(); });
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 30);
    EXPECT_FALSE(bundle(hang).failed()) << "offered to be probed again";
    EXPECT_FALSE(bundle(hang).probed());
}

// Failures that are no verdict on the plugin are tried again, at the scan
// or the rescan each belongs to; a verdict stays, and so does a class that
// did not fail whatever its last error says.
TEST_F(Vst3ManagerTest, OnlyFailuresThatAreNoVerdictAreTriedAgain)
{
    struct Case {
        const char* cid;
        CatalogClass::State state;
        const char* error;
        CatalogClass::State afterScan, afterRescan;
    } cases[] = {
        {"A0000000000000000000000000000000", CatalogClass::Failed, "the effect fails to process audio",
         CatalogClass::Failed, CatalogClass::Failed},
        {"B0000000000000000000000000000000", CatalogClass::Failed,
         "the check was ended from outside (signal 9; checked again at the next scan)", CatalogClass::New,
         CatalogClass::New},
        {"C0000000000000000000000000000000", CatalogClass::Failed,
         "skipped by the user (checked again at the next rescan)", CatalogClass::Failed, CatalogClass::New},
        {"D0000000000000000000000000000000", CatalogClass::Disabled,
         "the check was ended from outside (signal 9; checked again at the next scan)", CatalogClass::Disabled,
         CatalogClass::Disabled},
    };
    // A bundle outside the scanned root: the scan leaves it where it is.
    CatalogBundle b;
    b.setPath(file("elsewhere/Kept.vst3"));
    b.setProbed(true);
    b.setEnabled(true);
    for (const Case& c : cases) {
        CatalogClass k(QLatin1String(c.cid), QLatin1String(c.cid), QStringLiteral("V"), QStringLiteral("Fx"),
                       QStringLiteral("1"));
        k.setState(c.state);
        k.setLastError(QLatin1String(c.error));
        b.classes().append(k);
    }
    Catalog catalog;
    catalog.bundles().append(b);
    QString error;
    ASSERT_TRUE(catalog.save(file("catalog_vst3.json"), &error)) << error.toStdString();
    make();
    run([](Manager& m) { m.searchPlugins(false); });
    for (const Case& c : cases)
        EXPECT_EQ(cls(QLatin1String(c.cid)).state(), c.afterScan) << c.cid << " after a scan";
    run([](Manager& m) { m.rescanPlugins(); });
    for (const Case& c : cases)
        EXPECT_EQ(cls(QLatin1String(c.cid)).state(), c.afterRescan) << c.cid << " after a rescan";
}

// Another process switches a class off (its save replaces the file): the
// running manager takes it in within a second or so, tells it as a change,
// and its own next save keeps it.
TEST_F(Vst3ManagerTest, AChoiceSavedByAnotherProcessReachesARunningManager)
{
    copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(root + QStringLiteral("/Effects.vst3"), false); });
    run([](Manager& m) { m.enablePlugin(kGain); });
    ASSERT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    run([](Manager& m) { m.saveCatalogAndPairs(); });
    events.take();

    QJsonObject catalog = savedCatalog();
    QJsonArray bundles = catalog.value(QStringLiteral("bundles")).toArray();
    for (int b = 0; b < bundles.size(); ++b) {
        QJsonObject bundle = bundles[b].toObject();
        QJsonArray classes = bundle.value(QStringLiteral("classes")).toArray();
        for (int c = 0; c < classes.size(); ++c) {
            QJsonObject o = classes[c].toObject();
            if (o.value(QStringLiteral("cid")).toString() == kGain) {
                o.insert(QStringLiteral("state"), QStringLiteral("disabled"));
                o.insert(QStringLiteral("enabled"), false);
            }
            classes[c] = o;
        }
        bundle.insert(QStringLiteral("classes"), classes);
        bundles[b] = bundle;
    }
    catalog.insert(QStringLiteral("bundles"), bundles);
    const QString path = file("catalog_vst3.json");
    QSaveFile out(path);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(QJsonDocument(catalog).toJson());
    ASSERT_TRUE(out.commit());

    EXPECT_TRUE(waitFor([&] { return cls(kGain).state() == CatalogClass::Disabled; }, 3000)) << "not taken in";
    EXPECT_TRUE(events.take().contains(QStringLiteral("changed")));
    m.disablePlugin(QStringLiteral("51000000000000000000000000000003")); // a change of its own, saved
    run([](Manager& m) { m.saveCatalogAndPairs(); });
    EXPECT_EQ(savedState(kGain), QStringLiteral("disabled"));
}
