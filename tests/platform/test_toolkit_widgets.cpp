// The editor's toolkit as the effect dialogs, the menu and the plugin page
// use it, driven by real events on real widgets.
#include "QVlorAccessible.h"
#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorFxWidget.h"
#include "QVlorSetting.h"
#include "QVlorWidgets.h"

#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>

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

// What the editor tells a reader of its own accord: a failure's box is
// announced in its window at once, progress politely, the same text once,
// and the focus stays where the user types.
TEST(Accessible, AnnouncementsReachTheWindowsNotificationAndLeaveTheFocus)
{
    QWidget window;
    auto* field = new QLineEdit(&window);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    field->setFocus();
    QStringList heard;
    QVlorAccessible::setListener([&heard](QWidget* notification, const QString& text, QVlorAccessible::Urgency urgency) {
        QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(notification);
        heard << QStringLiteral("%1|%2|%3").arg(urgency).arg(reader ? int(reader->role()) : -1).arg(reader ? reader->text(QAccessible::Name) : QString());
    });
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, {}}; });
    const QString notification = QString::number(int(QAccessible::Notification));
    const struct {
        std::function<void()> act;
        QString heard; // empty: nothing
    } cases[] = {
        {[&] { QVlorMessageBox::warning(field, QStringLiteral("Plugin crashed"), QStringLiteral("ZamComp stopped")); },
         QStringLiteral("1|%1|Plugin crashed: ZamComp stopped").arg(notification)},
        {[&] { QVlorMessageBox::information(field, QStringLiteral("Done"), QStringLiteral("All fine")); }, QString()},
        {[&] { QVlorAccessible::announce(field, QStringLiteral("Scanning plugins: 40 %")); },
         QStringLiteral("0|%1|Scanning plugins: 40 %").arg(notification)},
        {[&] { QVlorAccessible::announce(field, QStringLiteral("Scanning plugins: 40 %")); }, QString()},
        {[&] { QVlorMessageBox::critical(field, QStringLiteral("VST3 Load Error"), QStringLiteral("Gone")); },
         QStringLiteral("1|%1|VST3 Load Error: Gone").arg(notification)},
    };
    for (const auto& c : cases) {
        heard.clear();
        c.act();
        EXPECT_EQ(heard, c.heard.isEmpty() ? QStringList() : QStringList{c.heard});
        EXPECT_TRUE(field->hasFocus());
    }
    EXPECT_EQ(QVlorAccessible::lastAnnouncement(&window), QStringLiteral("VST3 Load Error: Gone"));
    QVlorAccessible::setListener({});
    QVlorDialogs::setAnswerer({});
    QVlorDialogs::takeAsked();
}

// A slider reads its value as the text it is given, and its number without one.
TEST(Accessible, ASliderReadsItsValueText)
{
    QSlider plain(Qt::Horizontal);
    QSlider named(Qt::Horizontal);
    QVlorAccessible::setValueText(&named, QString());
    named.setRange(0, 100);
    plain.setRange(0, 100);
    plain.setValue(30);
    QLineEdit field;
    QVlorAccessible::followValueText(&named, &field, QStringLiteral("dB"));
    field.setText(QStringLiteral("-20"));
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&named)->text(QAccessible::Value), QStringLiteral("-20 dB"));
    field.setText(QString());
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&named)->text(QAccessible::Value), QStringLiteral("0"));
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&plain)->text(QAccessible::Value), QStringLiteral("30"));
    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(&named);
    ASSERT_NE(reader->valueInterface(), nullptr);
    reader->valueInterface()->setCurrentValue(55);
    EXPECT_EQ(named.value(), 55);
    EXPECT_EQ(reader->valueInterface()->maximumValue().toInt(), 100);
}
