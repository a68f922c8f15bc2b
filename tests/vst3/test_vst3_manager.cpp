// The VST3 manager with its real thread and the real host program: scanning
// fixture trees, probing and verifying, the state changes of enabling, the
// published copies and the marks that must outlive them, and cancelling a scan.
#include "vst3_manager_fixture.h"

TEST_F(Vst3ManagerTest, AScanFindsBundlesWhereARootHoldsThemAndNowhereElse)
{
    const QString nested = copyBundle(kEffects, QStringLiteral("a/b/Effects.vst3"));
    const QString upper = copyBundle(kClasses, QStringLiteral("Upper.VST3"));
    // A bundle inside a bundle is part of it, not a bundle of its own.
    copyBundle(kClasses, QStringLiteral("Upper.VST3/Contents/Inner.vst3"));
    // Links are not followed, to a bundle or to a folder.
    TempDir elsewhere;
    QFile::link(kBundles + QStringLiteral("/vlor-vst3-effects.vst3"), root + QStringLiteral("/Link.vst3"));
    QFile::link(kBundles, root + QStringLiteral("/linked-folder"));
    Manager& m = make({root, root + QStringLiteral("/no/such/root")});

    run([](Manager& m) { m.searchPlugins(true); });
    QStringList paths;
    const Catalog found = m.catalogCopy();
    for (const CatalogBundle& b : found.bundles()) {
        paths << b.path();
        EXPECT_FALSE(b.probed());
        EXPECT_TRUE(b.classes().isEmpty());
        EXPECT_EQ(b.mtimeSecs(), QFileInfo(b.path()).lastModified().toSecsSinceEpoch());
    }
    paths.sort();
    EXPECT_EQ(paths, (QStringList{upper, nested}));
    // Recording new bundles loads nothing; they have no classes that are new yet.
    EXPECT_EQ(hostRuns(), 0);
    const QStringList said = events.take();
    EXPECT_EQ(said.first(), QStringLiteral("begin"));
    EXPECT_TRUE(said.contains(QStringLiteral("end 0")));
    EXPECT_TRUE(said.contains(QStringLiteral("new Effects,Upper")) || said.contains(QStringLiteral("new Upper,Effects")));
    EXPECT_TRUE(waitFor([&] { return QFile::exists(file("catalog_vst3.json")); })); // saved as a consequence of catalogChanged

    // Scanning turned off: an end and nothing else.
    QVlorVst3::Manager::setScanEnabled(false);
    run([](Manager& m) { m.searchPlugins(true); });
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("end 0")});
    QVlorVst3::Manager::setScanEnabled(true);
}

TEST_F(Vst3ManagerTest, TheSearchPathsAreTheSystemsAndTheUsersLessThoseTurnedOff)
{
    QVlorSetting& settings = QVlorSetting::global();
    settings.change(QLatin1String(K_SETTING_VST3_CUSTOM_PATHS),
                    QStringList{QStringLiteral("/opt/vst3"), QStringLiteral("/usr/lib/vst3"), QStringLiteral("/opt/vst3")});
    settings.change(QLatin1String(K_SETTING_VST3_DISABLED_PATHS), QStringList{QStringLiteral("/usr/lib/vst3")});
    Manager m(nullptr, file("c.json"), file("p.json"), 0, QString());
    EXPECT_EQ(m.searchPaths(), (QStringList{QDir::homePath() + QStringLiteral("/.vst3"),
                                            QStringLiteral("/usr/local/lib/vst3"), QStringLiteral("/opt/vst3")}));
    m.setSearchPathsForTesting({QStringLiteral("/only")});
    sync(m);
    EXPECT_EQ(m.searchPaths(), QStringList{QStringLiteral("/only")});
    settings.change(QLatin1String(K_SETTING_VST3_CUSTOM_PATHS), QStringList());
    settings.change(QLatin1String(K_SETTING_VST3_DISABLED_PATHS), QStringList());
}

TEST_F(Vst3ManagerTest, ProbingKeepsEffectsOnlyAndTheFirstHolderOfAClassId)
{
    const QString first = copyBundle(kClasses, QStringLiteral("A-Classes.vst3"));
    const QString second = copyBundle(kClasses, QStringLiteral("B-Classes.vst3"));
    make();
    run([](Manager& m) { m.searchPlugins(false); });
    // Two classes: the probe's own single-class shortcut does not apply.
    run([&](Manager& m) { m.enableBundle(first); });
    run([&](Manager& m) { m.enableBundle(second); });
    QStringList names;
    const CatalogBundle firstBundle = bundle(first);
    for (const CatalogClass& c : firstBundle.classes()) {
        names << c.name();
        EXPECT_EQ(c.state(), CatalogClass::New);
        EXPECT_FALSE(c.isEnabled());
    }
    // The instrument is dropped, the instrument that is also an effect kept;
    // the controllers never were classes.
    EXPECT_EQ(names, (QStringList{QStringLiteral("Fixture Delay"), QStringLiteral("Fixture EQ"),
                                  QStringLiteral("Fixture Gate"), QStringLiteral("Fixture Vocoder")}));
    EXPECT_TRUE(bundle(first).probed());
    EXPECT_TRUE(bundle(first).moduleinfoFound() == false); // copies carry no moduleinfo.json
    // The same classes in a second bundle belong to the first.
    EXPECT_TRUE(bundle(second).probed());
    EXPECT_TRUE(bundle(second).classes().isEmpty());

    // A probed bundle: enableBundle does not load it again.
    const int runs = hostRuns();
    run([&](Manager& m) { m.enableBundle(first); });
    EXPECT_EQ(hostRuns(), runs);
}

TEST_F(Vst3ManagerTest, AClassIdHeldByTwoProbedBundlesStaysWithOne)
{
    // A catalog from elsewhere (an older version, a hand edit) with one class in two bundles.
    Catalog saved;
    for (const char* name : {"A.vst3", "B.vst3"}) {
        CatalogBundle b;
        b.setPath(copyBundle(kEffects, QLatin1String(name)));
        b.setMtimeSecs(QFileInfo(b.path()).lastModified().toSecsSinceEpoch());
        b.setSizeBytes(QFileInfo(b.path()).size());
        b.setProbed(true);
        CatalogClass c(kGain, QStringLiteral("Fixture Gain"), QString(), QStringLiteral("Fx"), QString());
        c.setState(CatalogClass::Enabled);
        c.setEnabled(true);
        b.classes() << c;
        saved.bundles() << b;
    }
    ASSERT_TRUE(saved.save(file("catalog_vst3.json")));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    const Catalog after = m.catalogCopy();
    ASSERT_EQ(after.bundles().size(), 2);
    // The first found in the walk keeps it; the folder decides which that is.
    EXPECT_EQ(after.bundles().at(0).classes().size() + after.bundles().at(1).classes().size(), 1);
    EXPECT_EQ(hostRuns(), 0); // unchanged bundles are not loaded again
}

// A host program that answers with nonsense (ours never does; a broken
// install might): only classes that can be found again by their ID go in.
TEST_F(Vst3ManagerTest, AMalformedProbeReplyAddsOnlyWellFormedClasses)
{
    const QString path = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    const QString liar = QString::fromStdString(dir.file("liar"));
    writeFile(liar.toStdString(),
              "#!/bin/sh\necho '{\"ok\":true}'\necho '{\"ok\":true,\"truncated\":true,\"classes\":[{\"cid\":\"\"},"
              "{\"cid\":\"xyz\"},{\"cid\":7},null,[],{\"cid\":\"0123456789abcdef0123456789ABCDEF\"},"
              "{\"cid\":\"0123456789ABCDEF0123456789ABCDEF\",\"name\":5,\"subCategories\":[\"Fx\"]}]}'\n",
              true);
    Manager& m = make();
    m.setHostBinary(liar, {});
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundle(path); });
    const CatalogBundle b = bundle(path);
    ASSERT_EQ(b.classes().size(), 1);
    EXPECT_EQ(b.classes().first().cid(), QStringLiteral("0123456789ABCDEF0123456789ABCDEF"));
    EXPECT_EQ(b.classes().first().name(), QString());
    // One well-formed class: the probe's shortcut enables it.
    EXPECT_EQ(b.classes().first().state(), CatalogClass::Enabled);
    EXPECT_EQ(b.lastError(), QStringLiteral("probe class list truncated -- module exposes more classes than the probe cap"));
    EXPECT_FALSE(b.failed());
}

TEST_F(Vst3ManagerTest, ABundleThatGoesAndComesBackKeepsTheUsersChoices)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    const QString unprobed = copyBundle(kClasses, QStringLiteral("Unprobed.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([](Manager& m) { m.enableNewPlugins(); });
    // enableNewPlugins also probed the other bundle: made unprobed again, to be pruned below.
    run([&](Manager& m) { m.resetBundle(unprobed); });
    const QString endless = cidOf(QStringLiteral("Fixture Endless"));
    run([&](Manager& m) { m.disablePlugin(endless); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_EQ(cls(endless).state(), CatalogClass::Disabled);

    // Both leave the root: the unprobed one is forgotten, the probed one stays with its classes missing.
    const QString away = QString::fromStdString(dir.file("away"));
    QDir().mkpath(away);
    ASSERT_TRUE(QDir().rename(effects, away + QStringLiteral("/Effects.vst3")));
    QDir(unprobed).removeRecursively();
    events.take();
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_FALSE(m.catalogCopy().findBundle(unprobed));
    ASSERT_EQ(bundle(effects).classes().size(), 4);
    const CatalogBundle gone = bundle(effects);
    for (const CatalogClass& c : gone.classes())
        EXPECT_EQ(c.state(), CatalogClass::Missing) << c.name().toStdString();
    EXPECT_EQ(events.count(QStringLiteral("state Fixture Gain missing")), 1);

    // Missing stays missing, with no second signal.
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(events.count(QStringLiteral("state Fixture Gain missing")), 1);

    // Back again: probed anew, each class with the choice it had.
    ASSERT_TRUE(QDir().rename(away + QStringLiteral("/Effects.vst3"), effects));
    const int runs = hostRuns();
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(hostRuns(), runs + 1);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_GT(cls(kGain).verifiedAt(), 0);
    EXPECT_EQ(cls(kGain).verifierBuild(), 7);
    EXPECT_EQ(cls(endless).state(), CatalogClass::Disabled);

    // A root taken out of the search leaves its bundles alone.
    m.setSearchPathsForTesting({QString::fromStdString(dir.file("other"))});
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    run([&](Manager& m) { m.purgeUnprobedUnder(root); }); // nothing unprobed there
    EXPECT_TRUE(m.catalogCopy().findBundle(effects));
}

TEST_F(Vst3ManagerTest, VerifyingMovesAClassThroughItsStates)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString fails = cidOf(QStringLiteral("Fixture Fails"));
    events.take();

    run([&](Manager& m) { m.enablePlugin(kGain); });
    EXPECT_EQ(events.take(), (QStringList{QStringLiteral("state Fixture Gain verifying"),
                                          QStringLiteral("enabled Fixture Gain enabled"), QStringLiteral("changed")}));
    EXPECT_TRUE(cls(kGain).isEnabled());
    EXPECT_NEAR(double(cls(kGain).verifiedAt()), double(QDateTime::currentSecsSinceEpoch()), 60);

    // A failure keeps its reason, and a second try runs the host again.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int runs = hostRuns();
        run([&](Manager& m) { m.enablePlugin(fails); });
        EXPECT_EQ(hostRuns(), runs + 1);
        EXPECT_EQ(cls(fails).state(), CatalogClass::Failed);
        EXPECT_FALSE(cls(fails).isEnabled());
        EXPECT_FALSE(cls(fails).lastError().isEmpty());
        EXPECT_EQ(cls(fails).verifiedAt(), 0);
    }
    EXPECT_EQ(events.count(QStringLiteral("failed Fixture Fails failed")), 2);

    // An unknown class: nothing runs, no mark stays behind.
    const int runs = hostRuns();
    m.markClassesVerifying({QStringLiteral("0123")});
    run([](Manager& m) { m.enablePlugin(QStringLiteral("0123")); });
    EXPECT_EQ(hostRuns(), runs);

    run([&](Manager& m) { m.disablePlugin(kGain); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);
    EXPECT_FALSE(cls(kGain).isEnabled());
    run([&](Manager& m) { m.clearCrashedState(kGain); }); // not crashed: left alone
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);

    run([](Manager& m) {
        m.setVendorEnabled(QStringLiteral("ACME"), false);
        m.setVendorEnabled(QStringLiteral("Acme"), false);
    });
    EXPECT_EQ(m.catalogCopy().disabledVendors(), QStringList{QStringLiteral("acme")});
    run([](Manager& m) { m.setVendorEnabled(QStringLiteral("acme"), true); });
    EXPECT_TRUE(m.catalogCopy().disabledVendors().isEmpty());

    // The bundle's own switch is a gate of its own: the classes keep their states.
    run([&](Manager& m) { m.setBundleEnabled(effects, false); });
    EXPECT_FALSE(bundle(effects).enabled());
    EXPECT_EQ(cls(fails).state(), CatalogClass::Failed);

    // Forgetting: the classes one by one, the bundle with its last.
    const CatalogBundle before = bundle(effects);
    for (const CatalogClass& c : before.classes())
        run([&](Manager& m) { m.removeFromCatalog(c.cid()); });
    EXPECT_FALSE(m.catalogCopy().findBundle(effects));
    // Still on disk: found again, unprobed, by the next scan.
    run([](Manager& m) { m.searchPlugins(false); });
    ASSERT_TRUE(m.catalogCopy().findBundle(effects));
    EXPECT_FALSE(bundle(effects).probed());

    // A reset gives a bundle that was switched off its first chance back.
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([&](Manager& m) { m.setBundleEnabled(effects, false); });
    run([&](Manager& m) { m.resetBundle(effects); });
    EXPECT_FALSE(bundle(effects).probed());
    EXPECT_TRUE(bundle(effects).enabled());
    EXPECT_TRUE(bundle(effects).classes().isEmpty());
}

TEST_F(Vst3ManagerTest, ABundleWithOneClassIsEnabledByItsProbe)
{
    make({QStringLiteral("/usr/lib/vst3")});
    const QString tube = QStringLiteral("/usr/lib/vst3/ZamTube.vst3");
    if (!QFileInfo::exists(tube))
        GTEST_SKIP() << "zam-plugins is not installed";
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundle(tube); });
    ASSERT_EQ(bundle(tube).classes().size(), 1);
    const CatalogClass c = bundle(tube).classes().first();
    EXPECT_EQ(c.state(), CatalogClass::Enabled);
    EXPECT_TRUE(c.isEnabled());
    EXPECT_EQ(c.verifiedAt(), 0); // the probe loaded it; no verify ran
    EXPECT_EQ(hostRuns(), 1);
}

// The editor itself as the host program, told so by "--vst3".
TEST_F(Vst3ManagerTest, TheApplicationCanServeAsItsOwnHostProgram)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    m.setHostBinaryForTesting(QStringLiteral(VLOR_BIN_DIR "/vlorfx"));
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([](Manager& m) { m.enablePlugin(kGain); });
    EXPECT_EQ(bundle(effects).classes().size(), 4);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_EQ(hostRuns(), 0); // not the logging wrapper
}

TEST_F(Vst3ManagerTest, MarksOfTheUserInterfaceOutliveEveryPublishUntilTheWorkIsDone)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });

    // The manager's thread is held busy while the user interface marks and posts.
    QSemaphore release1, release2;
    QMetaObject::invokeMethod(&m, [&] { release1.acquire(); });
    QThread* uiThread = QThread::currentThread();
    QThread* signalThread = nullptr;
    const auto c = QObject::connect(&m, &Manager::catalogChanged, &m, [&] { signalThread = QThread::currentThread(); },
                                    Qt::DirectConnection);
    m.markClassesVerifying({kGain});
    // Shown at once, from the caller's thread, on the published copy alone.
    EXPECT_EQ(signalThread, uiThread);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Verifying);
    QObject::disconnect(c);
    m.setVendorEnabled(QStringLiteral("someone"), false); // publishes before the verify
    QMetaObject::invokeMethod(&m, [&] { release2.acquire(); });
    m.enablePlugin(kGain);
    release1.release();
    // The vendor change has published; the verify has not begun.
    for (int i = 0; i < 2500 && m.catalogCopy().disabledVendors().isEmpty(); ++i)
        QThread::msleep(2);
    ASSERT_EQ(m.catalogCopy().disabledVendors(), QStringList{QStringLiteral("someone")});
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Verifying);
    release2.release();
    sync(m);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    // The mark is gone with the work: later publishes show the real state.
    run([](Manager& m) { m.setVendorEnabled(QStringLiteral("someone"), true); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);

    // A bundle's mark likewise, until its probe is done.
    run([&](Manager& m) { m.resetBundle(effects); });
    QSemaphore release3;
    QMetaObject::invokeMethod(&m, [&] { release3.acquire(); });
    m.markBundlesVerifying({effects});
    EXPECT_TRUE(bundle(effects).verifying());
    m.enableBundle(effects);
    release3.release();
    sync(m);
    EXPECT_FALSE(bundle(effects).verifying());
    EXPECT_TRUE(bundle(effects).probed());

    // Every signal came from the manager's own thread, but the marks' own catalogChanged.
    for (QThread* t : events.threads)
        EXPECT_TRUE(t == uiThread || t->objectName() == QStringLiteral("QVlorVst3::Manager"));
    EXPECT_TRUE(QVlorVst3::Manager::isScanEnabled());
    EXPECT_FALSE(m.isScanning());
}

TEST_F(Vst3ManagerTest, AfterShutdownCallsRunOnTheCallersThreadAndTheLastChangeIsSaved)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    m.aboutToQuit();
    m.aboutToQuit(); // a second time: nothing left to stop
    // No thread to post to: the work is done here and now.
    m.enableBundleInternal(effects, false);
    EXPECT_EQ(bundle(effects).classes().size(), 4);
    QThread* here = QThread::currentThread();
    bool sameThread = false;
    const auto c = QObject::connect(&m, &Manager::pluginEnabled, &m, [&] { sameThread = QThread::currentThread() == here; },
                                    Qt::DirectConnection);
    m.enablePlugin(kGain);
    QObject::disconnect(c);
    EXPECT_TRUE(sameThread);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    // Saving is a queued consequence of a change; with no loop left, the owner saves.
    m.saveCatalogAndPairs();
    EXPECT_EQ(savedState(kGain), QStringLiteral("enabled"));
}

TEST_F(Vst3ManagerTest, CancelEndsTheScanBetweenBundlesAndStillPublishesAndSaves)
{
    // One check at a time, so that the cancel finds exactly one child started.
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.parallel_checks"), 1);
    QStringList paths;
    for (const char* name : {"A.vst3", "B.vst3", "C.vst3"})
        paths << copyBundle(kEffects, QLatin1String(name));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) {
        for (const QString& p : paths)
            m.enableBundleInternal(p, false);
    });
    // Only the first bundle holds the classes; all three are probed.
    // A rescan probes each again; a cancel at the first progress stops it there.
    bool scanning = false;
    const auto c = QObject::connect(&m, &Manager::progressScan, &m, [&](int n, int) {
            if (n == 1) {
                scanning = m.isScanning();
                m.cancel();
            }
        },
        Qt::DirectConnection);
    const int runs = hostRuns();
    events.take();
    run([](Manager& m) { m.rescanPlugins(); });
    QObject::disconnect(c);
    EXPECT_TRUE(scanning);
    EXPECT_FALSE(m.isScanning());
    // The first probe ran; the second may have started ahead as the first
    // ended, and the cancel ended it at once; the third never started.
    EXPECT_GE(hostRuns(), runs + 1);
    EXPECT_LE(hostRuns(), runs + 2);
    QVlorSetting::global().remove(QStringLiteral("vloraudio.plugins.parallel_checks"));
    const QStringList said = events.take();
    EXPECT_TRUE(said.contains(QStringLiteral("changed")));
    EXPECT_TRUE(said.contains(QStringLiteral("end 1"))); // the classes are still new
    // The first bundle has its fresh stamp; the others still carry the rescan's zero.
    int stamped = 0;
    const Catalog after = m.catalogCopy();
    for (const CatalogBundle& b : after.bundles())
        stamped += b.mtimeSecs() != 0;
    EXPECT_EQ(stamped, 1);
    auto savedStamped = [&] {
        int n = 0;
        for (const QJsonValue& v : savedCatalog().value(QStringLiteral("bundles")).toArray())
            n += v.toObject().value(QStringLiteral("mtime")).toInteger() != 0;
        return n;
    };
    EXPECT_TRUE(waitFor([&] { return savedStamped() == 1; })) << savedStamped();
}
