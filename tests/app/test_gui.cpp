// The reference editor driven as a person drives it, off screen: a generated
// WAV opened, a real zam product picked from the library's Plugins menu, a
// parameter changed in its dialog with keys, Apply, Undo, Redo, Save; and a
// shortcut bound to a plugin entry that still opens it once the product's
// formats are paired.
#include "gui_fixture.h"

class GuiFormats : public Gui, public ::testing::WithParamInterface<const char*> {};

TEST_P(GuiFormats, PickApplyUndoRedoAndSaveAZamEffect)
{
    const QString format = QLatin1String(GetParam());
    if (format == QLatin1String("vst2")) {
        // The pair's other format, switched on as the page's badge does.
        vst3->setPairActiveFormat(pairId(), format);
        for (const QVlorVst::Path& path : vst2->pathsCopy())
            for (QVlorVst::Plugin p : path.plugins())
                if (!p.isEnabled())
                    vst2->enablePlugin(p, path, false);
        ASSERT_TRUE(waitFor([&] {
            settle();
            return entry(pluginsMenu(), QStringLiteral("ZamComp \u00B7 VST2")) != nullptr;
        }, 20000));
    }
    const QVector<float> input = window->document()->samples();
    // The menu bar holds the library's menu; its entry for the pair opens the dialog.
    QMenu* plugins = pluginsMenu();
    ASSERT_NE(plugins, nullptr);
    QAction* zam = entry(plugins, QStringLiteral("ZamComp \u00B7 ") + format.toUpper());
    ASSERT_NE(zam, nullptr) << "no ZamComp entry";
    ASSERT_TRUE(zam->isEnabled()) << "an open audio enables the entries";
    zam->trigger();
    vlorfx::EffectDialog* dialog = window->effectDialog();
    ASSERT_NE(dialog, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog));
    EXPECT_EQ(dialog->format(), format);
    // Preview is offered exactly where a sound output can play this audio, and
    // says why not elsewhere.
    const int channels = window->document()->channels();
    QPushButton* preview = dialog->findChild<QPushButton*>(QStringLiteral("previewButton"));
    const QString unavailable = vlorfx::Previewer::unavailableReason(window->document()->sampleRate(), channels);
    EXPECT_EQ(preview->isEnabled(), unavailable.isEmpty());
    if (!unavailable.isEmpty()) {
        EXPECT_EQ(preview->toolTip(), unavailable);
    }

    // The makeup gain to its top, with a key on its slider.
    QAbstractSlider* makeup = nullptr;
    if (auto* panel = qobject_cast<QVlorVst3::Widget*>(dialog->widget())) {
        for (QVlorVst3::ParameterWidget* row : panel->parameterWidgets())
            if (row->label()->text() == QStringLiteral("Makeup:"))
                makeup = row->slider();
    } else if (auto* rows = qobject_cast<QVlorVst::Widget*>(dialog->widget())) {
        for (QVlorVst::ParameterWidget* row : rows->parameterWidgets())
            if (static_cast<QVlorVst::MixerEffect*>(rows->effect())->parameterName(row->index()) == QStringLiteral("Makeup"))
                makeup = row->slider();
    }
    ASSERT_NE(makeup, nullptr);
    makeup->setFocus();
    QTest::keyClick(makeup, Qt::Key_End);

    // What Preview plays: the audio through the dialog's own live effect,
    // block by block, as bytes of either sample format.
    for (auto kind : {vlorfx::PreviewStream::Float, vlorfx::PreviewStream::Int16}) {
        vlorfx::PreviewStream stream(input, channels, dialog->widget()->effect(), 512, kind);
        const QByteArray bytes = stream.readAll();
        ASSERT_EQ(bytes.size(), stream.totalFrames() * stream.bytesPerFrame());
        EXPECT_TRUE(stream.atEnd());
        EXPECT_EQ(stream.framesDry(), 0) << "the effect gave every block";
        QVector<float> played(input.size());
        for (int i = 0; i < played.size(); ++i)
            played[i] = kind == vlorfx::PreviewStream::Float ? reinterpret_cast<const float*>(bytes.constData())[i]
                                                             : reinterpret_cast<const qint16*>(bytes.constData())[i] / 32767.0f;
        EXPECT_GT(rms(played), rms(input) * 5) << "the preview carries the makeup";
    }

    QTest::mouseClick(dialog->findChild<QPushButton*>(QStringLiteral("applyButton")), Qt::LeftButton);
    const QVector<float> applied = window->document()->samples();
    ASSERT_EQ(applied.size(), input.size());
    EXPECT_GT(rms(applied), rms(input) * 5) << "30 dB of makeup";
    EXPECT_TRUE(window->document()->isModified());

    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(window->document()->samples(), input) << "undo restores the input exactly";
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(window->document()->samples(), applied);

    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
    EXPECT_FALSE(window->document()->isModified());
    int savedChannels = 0, rate = 0;
    QVector<float> saved;
    QString error;
    ASSERT_TRUE(vlorfx::AudioDocument::readFile(QString::fromStdString(dir.file("in.wav")), &savedChannels, &rate, &saved, &error));
    ASSERT_EQ(saved.size(), input.size());
    EXPECT_GT(rms(saved), rms(input) * 5);
}

INSTANTIATE_TEST_SUITE_P(BothFormats, GuiFormats, ::testing::Values("vst3", "vst2"));

TEST_F(Gui, PreviewPlaysTheSelectionOnTheSoundOutputAndStopsOnAClickOrAtItsEnd)
{
    const QString unavailable = vlorfx::Previewer::unavailableReason(44100, 2);
    if (!unavailable.isEmpty())
        GTEST_SKIP() << unavailable.toStdString();
    QAction* zam = entry(pluginsMenu(), QStringLiteral("ZamComp \u00B7 VST3"));
    ASSERT_NE(zam, nullptr);
    zam->trigger();
    vlorfx::EffectDialog* dialog = window->effectDialog();
    ASSERT_NE(dialog, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog));
    QPushButton* preview = dialog->findChild<QPushButton*>(QStringLiteral("previewButton"));
    ASSERT_TRUE(preview->isEnabled());
    // A click stops a preview under way.
    QTest::mouseClick(preview, Qt::LeftButton);
    EXPECT_EQ(preview->text(), QStringLiteral("S&top"));
    EXPECT_TRUE(window->isPreviewing());
    QTest::qWait(100);
    QTest::mouseClick(preview, Qt::LeftButton);
    EXPECT_EQ(preview->text(), QStringLiteral("&Preview"));
    // A tenth of a second plays to its end and gives the button back.
    window->waveform()->setSelection(0, 4410);
    QTest::mouseClick(preview, Qt::LeftButton);
    EXPECT_EQ(preview->text(), QStringLiteral("S&top"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return preview->text() == QStringLiteral("&Preview"); }, 5000));
    EXPECT_TRUE(preview->isEnabled());
    // Closing the dialog while it plays ends the preview with it.
    QTest::mouseClick(preview, Qt::LeftButton);
    EXPECT_TRUE(window->isPreviewing());
    dialog->close();
    EXPECT_FALSE(window->isPreviewing());
}

TEST(GuiPreview, WithoutAWorkingEffectTheAudioPlaysDryBlockByBlock)
{
    // A plugin that could not start (or crashed) gives nothing; the preview
    // goes on dry, as the mixer passes such an effect over.
    QVector<float> input(2 * 1000);
    for (int i = 0; i < input.size(); ++i)
        input[i] = float(std::sin(i * 0.01)) * 1.5f;
    vlorfx::PreviewStream stream(input, 2, nullptr, 300, vlorfx::PreviewStream::Int16);
    QByteArray bytes;
    // The sound output asks for odd amounts: only whole frames are given.
    while (!stream.atEnd())
        bytes += stream.read(997);
    ASSERT_EQ(bytes.size(), 1000 * 2 * 2);
    EXPECT_EQ(stream.framesDry(), 1000);
    const auto* s = reinterpret_cast<const qint16*>(bytes.constData());
    for (int i = 0; i < input.size(); ++i)
        ASSERT_EQ(s[i], qint16(std::lround(std::clamp(input[i], -1.0f, 1.0f) * 32767.0f))) << i;
}

TEST_F(Gui, ACrashAtTheLastStartIsToldAndTheMenuAsksBeforeOpeningIt)
{
    QVlorDialogs::takeAsked();
    QMessageBox::StandardButton answer = QMessageBox::Ok;
    QVlorDialogs::setAnswerer([&](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{answer, QString()}; });
    QString cid;
    for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
        if (e.pairId == pairId())
            cid = e.vst3;
    ASSERT_TRUE(writeOpeningSentinel(QStringLiteral("vst3"), cid, QStringLiteral("ZamComp")));
    window->greet();
    QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 1);
    EXPECT_TRUE(asked[0].text.contains(QStringLiteral("ZamComp")));
    settle();

    answer = QMessageBox::No;
    QAction* zam = entry(pluginsMenu(), QStringLiteral("ZamComp \u00B7 VST3"));
    ASSERT_NE(zam, nullptr);
    zam->trigger();
    asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].title, QStringLiteral("Question"));
    EXPECT_EQ(window->effectDialog(), nullptr) << "No opens nothing";
    EXPECT_TRUE(window->isVisible());
    QVlorDialogs::setAnswerer({});
}

TEST_F(Gui, AShortcutOnAPluginEntryStillOpensItOnceTheFormatsArePaired)
{
    // Unpaired, so that the VST3 class has an entry of its own to bind.
    QList<qint64> ids;
    QString cid;
    for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
        if (e.pairId == pairId()) {
            ids << e.vst2;
            cid = e.vst3;
        }
    vst3->purgePairState(ids, {cid});
    settle();
    ASSERT_TRUE(pairId().isEmpty());
    QAction* zam = entry(pluginsMenu(), QStringLiteral("ZamComp \u00B7 VST3"));
    ASSERT_NE(zam, nullptr);
    const QString id = window->actionsById().key(zam);
    ASSERT_EQ(id, QStringLiteral("vst3id-") + cid);

    // The shortcuts dialog: keys typed into the entry's field, then OK.
    window->showShortcuts();
    auto* shortcuts = window->findChild<QDialog*>(QStringLiteral("shortcutsDialog"));
    ASSERT_NE(shortcuts, nullptr);
    auto* field = shortcuts->findChild<QKeySequenceEdit*>(id);
    ASSERT_NE(field, nullptr);
    QTest::keyClick(field, Qt::Key_F7, Qt::ControlModifier);
    ASSERT_TRUE(QTest::qWaitFor([field] { return field->keySequence() == QKeySequence(Qt::CTRL | Qt::Key_F7); }, 3000));
    QMetaObject::invokeMethod(shortcuts, [shortcuts] {
        for (QPushButton* b : shortcuts->findChildren<QPushButton*>())
            if (b->text().remove(QLatin1Char('&')) == QStringLiteral("OK"))
                b->click();
    });
    QCoreApplication::processEvents();
    EXPECT_EQ(zam->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_F7));

    // Paired again, then a VST3 scan: the binding moves to the pair's id.
    vst3->addManualPair(ids.value(0), cid, QStringLiteral("vst3"));
    vst3->searchPlugins(false);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return !pairId().isEmpty() && !vst3->isScanning();
    }, 20000));
    settle();
    QAction* paired = entry(pluginsMenu(), QStringLiteral("ZamComp \u00B7 VST3"));
    ASSERT_NE(paired, nullptr);
    EXPECT_EQ(window->actionsById().key(paired), QStringLiteral("plugid-") + pairId());
    EXPECT_EQ(paired->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_F7));
    if (window->effectDialog())
        window->effectDialog()->close();
    QCoreApplication::processEvents();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    QTest::keyClick(window.get(), Qt::Key_F7, Qt::ControlModifier);
    ASSERT_NE(window->effectDialog(), nullptr) << "the shortcut opened nothing";
    EXPECT_EQ(window->effectDialog()->format(), QStringLiteral("vst3"));
}

TEST_F(Gui, QuickOpenNarrowsByNameVendorAndFormatAndOpensWithEnter)
{
    pluginsMenu();
    window->showQuickOpen();
    auto* quick = window->findChild<vlorfx::QuickOpenDialog*>(QStringLiteral("quickOpenDialog"));
    ASSERT_NE(quick, nullptr);
    QTest::keyClicks(quick->field(), QStringLiteral("zammit vst3"));
    ASSERT_EQ(quick->list()->count(), 1);
    EXPECT_TRUE(quick->list()->item(0)->text().contains(QStringLiteral("ZamComp")));
    QTest::keyClicks(quick->field(), QStringLiteral(" nothing"));
    EXPECT_EQ(quick->list()->count(), 0);
    quick->field()->clear();
    QTest::keyClicks(quick->field(), QStringLiteral("zamcomp"));
    QTest::keyClick(quick->field(), Qt::Key_Return);
    ASSERT_NE(window->effectDialog(), nullptr);
}

// LV2 effects are in the quick open beside the others: found by their format's
// name, opened in the LV2 dialog with Enter; one switched off leaves it.
TEST_F(Gui, QuickOpenFindsLv2EffectsAndOpensThem)
{
    QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
    ASSERT_NE(lv2, nullptr);
    QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 2);
    lv2->setSearchPathsForTesting({QStringLiteral(VLOR_FIXTURE_LV2_DIR)});
    lv2->searchPlugins(false);
    const QString atom = QStringLiteral("urn:vlor:fixture:atom");
    ASSERT_TRUE(waitFor([&] { return lv2->catalogCopy().isOffered(atom) && !lv2->isScanning(); }, 30000));
    QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), QVariant());
    lv2->setPluginEnabled(atom, false);
    ASSERT_TRUE(waitFor([&] { return !lv2->catalogCopy().isEnabled(atom); }, 5000));
    pluginsMenu();
    window->showQuickOpen();
    auto* quick = window->findChild<vlorfx::QuickOpenDialog*>(QStringLiteral("quickOpenDialog"));
    ASSERT_NE(quick, nullptr);
    QTest::keyClicks(quick->field(), QStringLiteral("fixture lv2"));
    QStringList found;
    for (int i = 0; i < quick->list()->count(); ++i)
        found << quick->list()->item(i)->text();
    EXPECT_TRUE(found.filter(QStringLiteral("Fixture Gain")).size() == 1) << found.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(found.filter(QStringLiteral("Fixture Atom")).isEmpty()) << "switched off";
    EXPECT_TRUE(found.filter(QStringLiteral("Fixture Nan")).isEmpty()) << "failed its check";
    quick->field()->clear();
    QTest::keyClicks(quick->field(), QStringLiteral("fixture gain lv2"));
    ASSERT_EQ(quick->list()->count(), 1);
    // An error would be asked on the seam, not block the test.
    QVlorDialogs::takeAsked();
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
    QTest::keyClick(quick->field(), Qt::Key_Return);
    QVlorDialogs::setAnswerer({});
    EXPECT_TRUE(QVlorDialogs::takeAsked().isEmpty()) << "the plugin did not open";
    ASSERT_NE(window->effectDialog(), nullptr);
    EXPECT_EQ(window->effectDialog()->format(), QStringLiteral("lv2"));
}

TEST_F(Gui, AnEffectWhoseHostProgramDiesWhileApplyingLeavesTheWindowAndTheAudioAsTheyWere)
{
    // A VST2 plugin that dies after a few blocks of audio, in the host program that applies it.
    const QString folder = QString::fromStdString(dir.file("faults"));
    QDir().mkpath(folder);
    ASSERT_TRUE(QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-crash-process.so"),
                            folder + QStringLiteral("/CrashProcess.so")));
    vst2->addPath(folder);
    vst2->updatePlugins(true, false);
    vst2->enableNewPlugins();
    QAction* faulty = nullptr;
    ASSERT_TRUE(waitFor([&] {
        settle();
        faulty = entry(pluginsMenu(), QStringLiteral("Faulty crash_process & <Co> \u00B7 VST2"));
        return faulty != nullptr;
    }, 20000));
    const QVector<float> input = window->document()->samples();
    faulty->trigger();
    vlorfx::EffectDialog* dialog = window->effectDialog();
    ASSERT_NE(dialog, nullptr);
    QVlorDialogs::takeAsked();
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
    QTest::mouseClick(dialog->findChild<QPushButton*>(QStringLiteral("applyButton")), Qt::LeftButton);
    const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    QVlorDialogs::setAnswerer({});
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].kind, QStringLiteral("warning"));
    EXPECT_TRUE(asked[0].text.contains(QStringLiteral("failed"))) << asked[0].text.toStdString();
    EXPECT_EQ(window->document()->samples(), input);
    EXPECT_FALSE(window->document()->undoStack()->canUndo());
    EXPECT_TRUE(window->isVisible());
    EXPECT_NE(window->effectDialog(), nullptr) << "the dialog stays for another try";
}

TEST(GuiFirstStart, NothingKnownOffersTheStandardFoldersOnceAndNoLeavesThemAlone)
{
    QVlorAudioPlugins::Initialize();
    removeCatalogs();
    QVlorSetting::global().remove(QStringLiteral("vlorfx.gui.first_scan_offered"));
    {
        vlorfx::MainWindow window;
        QVlorAudioPlugins::UI::install(&window);
        window.libraryInstalled();
        QVlorDialogs::takeAsked();
        QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::No, QString()}; });
        QSignalSpy began(QVlorAudioPlugins::vst3Manager(), &QVlorVst3::Manager::beginScan);
        window.greet();
        QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
        ASSERT_EQ(asked.size(), 1);
        EXPECT_EQ(asked[0].kind, QStringLiteral("question"));
        settleManagers();
        QCoreApplication::processEvents();
        EXPECT_EQ(began.count(), 0) << "No scans nothing";
        EXPECT_TRUE(QVlorAudioPlugins::vstManager()->pathsCopy().isEmpty());
        window.greet();
        EXPECT_TRUE(QVlorDialogs::takeAsked().isEmpty()) << "asked once";
        QVlorDialogs::setAnswerer({});
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&window);
    }
    QVlorAudioPlugins::Finalize();
}

// A catalog and the settings that cannot be saved (folders in their places)
// are each told once, however often their saves fail again.
TEST(GuiSaveFailures, ASaveThatFailsIsToldOnceForEachReason)
{
    QVlorAudioPlugins::Initialize();
    removeCatalogs();
    const QDir data(QString::fromStdString(dataDir()));
    const QString catalog = data.filePath(QStringLiteral("catalog_vst3.json"));
    const QString settings = QString::fromLocal8Bit(BLSETTINGS_GetFilePath());
    const QString settingsAside = settings + QStringLiteral(".aside");
    ASSERT_TRUE(data.mkpath(catalog));
    BLSETTINGS_Flush();
    QFile::remove(settingsAside);
    const bool hadSettings = QFileInfo::exists(settings);
    ASSERT_TRUE(!hadSettings || QFile::rename(settings, settingsAside));
    ASSERT_TRUE(data.mkpath(settings));
    FixturePlugins plugins;
    {
        vlorfx::MainWindow window;
        QVlorAudioPlugins::UI::install(&window);
        window.libraryInstalled();
        QVlorDialogs::takeAsked();
        QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
        plugins.scanWithInstalledManagers();
        QVlorSetting::global().change(QStringLiteral("vlorfx.test.saved"), 1);
        QList<QVlorDialogs::Question> asked;
        EXPECT_TRUE(waitFor([&] {
            settleManagers();
            QCoreApplication::processEvents();
            asked += QVlorDialogs::takeAsked();
            return asked.size() >= 2;
        }, 20000)) << asked.size();
        // Another change fails again for the same reasons: nothing more is asked.
        QVlorAudioPlugins::vst3Manager()->searchPlugins(true);
        QVlorSetting::global().change(QStringLiteral("vlorfx.test.saved"), 2);
        settleManagers();
        QTest::qWait(3500);
        asked += QVlorDialogs::takeAsked();
        ASSERT_EQ(asked.size(), 2);
        QStringList texts{asked[0].text, asked[1].text};
        texts.sort();
        EXPECT_TRUE(texts[0].contains(catalog + QStringLiteral(": a folder stands in its place"))) << texts[0].toStdString();
        EXPECT_TRUE(texts[1].contains(settings + QStringLiteral(": a folder stands in its place"))) << texts[1].toStdString();
        QVlorDialogs::setAnswerer({});
        QDir(catalog).removeRecursively();
        QDir(settings).removeRecursively();
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&window);
    }
    QFile::remove(settings);
    if (hadSettings)
        QFile::rename(settingsAside, settings);
    BLSETTINGS_Reload();
    QVlorAudioPlugins::Finalize();
}

// The status bar counts the plugins a scan found, in words, and its button
// opens the plugin manager showing just them; the Plugins menu has its scan
// line and Cancel only while a scan runs.
TEST(GuiStatus, NewPluginsAreCountedAndTheScanLineShowsOnlyWhileAScanRuns)
{
    QVlorAudioPlugins::Initialize();
    removeCatalogs();
    QVlorSetting::global().change(QStringLiteral("vlorfx.gui.first_scan_offered"), true);
    {
        vlorfx::MainWindow window;
        QVlorAudioPlugins::UI::install(&window);
        window.libraryInstalled();
        QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
        ASSERT_NE(controller, nullptr);
        ASSERT_NE(controller->scanProgressAction(), nullptr);
        auto scanLine = [controller] {
            return std::make_pair(controller->scanProgressAction()->isVisible(), controller->cancelScanAction()->isVisible());
        };
        EXPECT_EQ(scanLine(), std::make_pair(false, false)) << "no scan runs";
        QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
        emit vst3->progressScan(1, 4);
        EXPECT_EQ(scanLine(), std::make_pair(true, true));
        EXPECT_EQ(controller->scanProgressAction()->text(), QStringLiteral("Scanning plugins ... 25 %"));
        emit vst3->endScan(false);
        EXPECT_EQ(scanLine(), std::make_pair(false, false));
        controller->rebuildPluginsMenuNow();
        EXPECT_EQ(scanLine(), std::make_pair(false, false)) << "a rebuild brings nothing back";

        auto* note = window.findChild<QLabel*>(QStringLiteral("newPluginsNote"));
        auto* show = window.findChild<QPushButton*>(QStringLiteral("showNewPlugins"));
        ASSERT_TRUE(note && show);
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        EXPECT_FALSE(note->isVisible());
        const struct {
            int count;
            const char* said;
        } counts[] = {{1, "1 new plugin found"}, {12, "12 new plugins found"}};
        for (const auto& c : counts) {
            QList<QString> names;
            for (int i = 0; i < c.count; ++i)
                names << QStringLiteral("/usr/lib/vst/Plugin%1.so:0").arg(i);
            window.announceNewPlugins(names);
            EXPECT_EQ(note->text(), QString::fromLatin1(c.said));
            EXPECT_TRUE(note->isVisible() && show->isVisible());
            EXPECT_FALSE(note->text().contains(QLatin1Char('/'))) << "no internals";
        }
        QTest::mouseClick(show, Qt::LeftButton);
        EXPECT_FALSE(note->isVisible());
        auto* page = window.findChild<QVlorPluginsPrefs*>();
        ASSERT_NE(page, nullptr);
        EXPECT_TRUE(page->isVisible());
        auto* box = page->findChild<QVlorBoxEditor*>();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->comboBox()->currentData().toInt(), int(QVlorPluginsPrefs::ProxyFilter::StatusNew));
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&window);
    }
    QVlorAudioPlugins::Finalize();
}
