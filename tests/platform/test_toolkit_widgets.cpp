// The editor's toolkit as the effect dialogs, the menu and the plugin page
// use it, driven by real events on real widgets.
#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorFxWidget.h"
#include "QVlorSetting.h"
#include "QVlorWidgets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

TEST(Dialogs, EveryDialogIsAnsweredThroughTheSeamAndRecorded)
{
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question& q) {
        QVlorDialogs::Answer a;
        a.button = q.kind == QLatin1String("question") ? QMessageBox::No : QMessageBox::Ok;
        a.directory = q.kind == QLatin1String("directory") ? QStringLiteral("/chosen") : QString();
        return a;
    });
    QVlorDialogs::takeAsked();
    EXPECT_EQ(QVlorMessageBox::question(nullptr, QStringLiteral("Remove"), QStringLiteral("Remove it?")), QMessageBox::No);
    EXPECT_EQ(QVlorMessageBox::warning(nullptr, QStringLiteral("Careful"), QStringLiteral("It crashed")), QMessageBox::Ok);
    QWidget window;
    EXPECT_EQ(QVlorMessageBox::windowModal(&window, QMessageBox::Critical, QStringLiteral("Plugin crashed"),
                                           QStringLiteral("It is gone"), QMessageBox::Close),
              QMessageBox::Ok);
    EXPECT_EQ(QVlorFileDialog::getExistingDirectory(nullptr, QStringLiteral("Add a folder"), QStringLiteral("/start")),
              QStringLiteral("/chosen"));
    const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 4);
    EXPECT_EQ(asked[0].title, QStringLiteral("Remove"));
    EXPECT_EQ(asked[0].buttons, QMessageBox::Yes | QMessageBox::No);
    EXPECT_EQ(asked[1].kind, QStringLiteral("warning"));
    EXPECT_TRUE(asked[2].windowModal);
    EXPECT_EQ(asked[2].kind, QStringLiteral("critical"));
    EXPECT_EQ(asked[3].text, QStringLiteral("/start"));
    QVlorDialogs::setAnswerer({});
}

TEST(PreferencesTab, ABoundCheckBoxWritesItsKeyWhenClicked)
{
    QVlorPreferencesTab tab;
    auto* box = new QCheckBox(QStringLiteral("Scan VST2"), &tab);
    tab.bind(box, QStringLiteral("vloraudio.test.scan"));
    QObject::connect(box, &QCheckBox::toggled, &tab, &QVlorPreferencesTab::valueChanged);
    tab.show();
    QVlorSetting::global().change(QStringLiteral("vloraudio.test.scan"), false);
    QTest::mouseClick(box, Qt::LeftButton);
    EXPECT_TRUE(QVlorSetting::global().getBool(QStringLiteral("vloraudio.test.scan")));
    QTest::mouseClick(box, Qt::LeftButton);
    EXPECT_FALSE(QVlorSetting::global().getBool(QStringLiteral("vloraudio.test.scan"), true));

    QVlorPreferencesTabFactory::registerTab(QStringLiteral("test_prefs"), [](QWidget* parent) {
        return new QVlorPreferencesTab(parent);
    });
    EXPECT_TRUE(QVlorPreferencesTabFactory::names().contains(QStringLiteral("test_prefs")));
    std::unique_ptr<QVlorPreferencesTab> made(QVlorPreferencesTabFactory::create(QStringLiteral("test_prefs")));
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(QVlorPreferencesTabFactory::create(QStringLiteral("nothing")), nullptr);
    QVlorPreferencesTabFactory::unregisterTab(QStringLiteral("test_prefs"));
}

TEST(BoxEditor, TypingTellsTheTextAsItChanges)
{
    QVlorBoxEditor editor;
    editor.setLabel(QStringLiteral("Filter:"));
    editor.show();
    QSignalSpy spy(&editor, &QVlorBoxEditor::textChanged);
    QTest::keyClicks(editor.lineEdit(), QStringLiteral("zam"));
    ASSERT_EQ(spy.count(), 3);
    EXPECT_EQ(spy.last().at(0).toString(), QStringLiteral("zam"));
    EXPECT_EQ(editor.label(), QStringLiteral("Filter:"));
}

TEST(FxWidget, ResizingKindsAndUserPresets)
{
    QVlorFxWidget widget(QVlorAudio(QStringLiteral("a.wav"), 2, 48000, 1000));
    EXPECT_EQ(widget.audio().numChannels(), 2);
    EXPECT_FALSE(widget.isResizing(QVlorFxWidget::PluginResizing));
    widget.startResizing(QVlorFxWidget::PluginResizing);
    EXPECT_TRUE(widget.isResizing(QVlorFxWidget::PluginResizing));
    EXPECT_FALSE(widget.isResizing(QVlorFxWidget::HostResizing));
    widget.finishResizing();
    EXPECT_FALSE(widget.isResizing(QVlorFxWidget::PluginResizing));

    QVlorFxPresets presets(QStringLiteral("vloraudio.fx.vst3.0123"));
    EXPECT_EQ(presets.userPresetCount(), 0);
    presets.storeUserPreset(QStringLiteral("Warm, wide"), QStringLiteral("params=[0.1,0.2]"));
    presets.storeUserPreset(QStringLiteral("Dry"), QStringLiteral("params=[0,0]"));
    presets.storeUserPreset(QStringLiteral("Warm, wide"), QStringLiteral("params=[0.3,0.2]"));
    EXPECT_EQ(presets.userPresetCount(), 2);
    EXPECT_EQ(presets.userPreset(QStringLiteral("Warm, wide")), QStringLiteral("params=[0.3,0.2]"));
    // Another object on the same root sees the same presets.
    EXPECT_EQ(QVlorFxPresets(QStringLiteral("vloraudio.fx.vst3.0123")).userPresetNames(),
              (QStringList{QStringLiteral("Dry"), QStringLiteral("Warm, wide")}));
    presets.removeUserPreset(QStringLiteral("Dry"));
    EXPECT_EQ(presets.userPresetCount(), 1);
}

TEST(Theme, TheMenuFollowsTheLightOrDarkTheme)
{
    EXPECT_EQ(QVlorApplication::uiMode(), int(QVlorApplication::Light));
    QMenu menu;
    QVlorStyle::updateMenuStylesheet(&menu, QStringLiteral("QMenu { font-weight: bold; }"));
    const QString light = menu.styleSheet();
    QVlorApplication::setUiMode(QVlorApplication::Dark);
    QVlorStyle::updateMenuStylesheet(&menu);
    EXPECT_NE(menu.styleSheet(), light);
    EXPECT_TRUE(light.endsWith(QStringLiteral("QMenu { font-weight: bold; }")));
    QVlorApplication::setUiMode(QVlorApplication::Light);
    // Offscreen there is no desktop to show a folder on.
    EXPECT_FALSE(QVlorApplication::hasDesktop());
    EXPECT_FALSE(QVlorApplication::showExternalLocation(QStringLiteral("/tmp")));
}
