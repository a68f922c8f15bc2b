#ifndef VLOR_TEST_GUI_FIXTURE_H
#define VLOR_TEST_GUI_FIXTURE_H
// The reference editor's window over a real zam product in both formats,
// scanned, paired and checked, with a generated WAV open.
#include "window.h"

#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorLv2_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorVst_MixerEffect.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsMenu.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorWidgets.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"

#include "audiovst.h"
#include "blsettings.h"
#include "testhost.h"
#include "testsupport.h"

#include <QAbstractSlider>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSlider>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QKeySequenceEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace vlortest;

// Named: several sources of one test program share its fixture, which
// gtest holds to one class.
namespace guitest {

const QString kZamVst2 = QStringLiteral("/usr/lib/vst/ZamComp-vst.so");
const QString kZamVst3 = QStringLiteral("/usr/lib/vst3/ZamComp.vst3");

inline void writeWav(const std::string& file)
{
    SF_INFO info{};
    info.channels = 2;
    info.samplerate = 44100;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(file.c_str(), SFM_WRITE, &info);
    std::vector<float> v(2 * 22050);
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = 0.1f * float(std::sin(0.03 * double(i / 2)));
    sf_writef_float(f, v.data(), 22050);
    sf_close(f);
}

inline double rms(const QVector<float>& v)
{
    double sum = 0;
    for (float s : v)
        sum += double(s) * s;
    return v.isEmpty() ? 0 : std::sqrt(sum / v.size());
}


inline QAction* entry(QMenu* menu, const QString& text)
{
    for (QAction* a : menu ? menu->actions() : QList<QAction*>()) {
        if (a->menu())
            if (QAction* inner = entry(a->menu(), text))
                return inner;
        if (!a->menu() && a->text() == text)
            return a;
    }
    return nullptr;
}

class Gui : public ::testing::Test {
protected:
    static void SetUpTestSuite() { QVlorAudioPlugins::Initialize(); }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void SetUp() override
    {
        if (!QFileInfo::exists(kZamVst2) || !QFileInfo::exists(kZamVst3))
            GTEST_SKIP() << "zam-plugins is not installed";
        AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
        removeCatalogs();
        QVlorSetting::global().change(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), true);
        QVlorSetting::global().change(QStringLiteral("vlorfx.gui.first_scan_offered"), true);
        // One real product in both formats, in folders of its own.
        QDir().mkpath(QString::fromStdString(dir.file("vst2")));
        ASSERT_TRUE(QFile::copy(kZamVst2, QString::fromStdString(dir.file("vst2/ZamComp-vst.so"))));
        ASSERT_TRUE(copyTree(kZamVst3, QString::fromStdString(dir.file("vst3/ZamComp.vst3"))));
        window = std::make_unique<vlorfx::MainWindow>();
        QVlorAudioPlugins::UI::install(window.get());
        vst2 = QVlorAudioPlugins::vstManager();
        vst3 = QVlorAudioPlugins::vst3Manager();
        firstScanInOrder({QString::fromStdString(dir.file("vst2"))}, {QString::fromStdString(dir.file("vst3"))});
        // Paired, checked and on, with nothing left running.
        ASSERT_TRUE(waitFor([&] {
            settle();
            bool on = false;
            const QVlorVst3::Catalog catalog = vst3->catalogCopy();
            for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
                for (const QVlorVst3::CatalogClass& c : b.classes())
                    on = on || c.state() == QVlorVst3::CatalogClass::Enabled;
            return !pairId().isEmpty() && on && !vst2->isScanning() && !vst3->isScanning();
        }, 60000)) << "ZamComp was not paired";
        settle();
        window->libraryInstalled();
        writeWav(dir.file("in.wav"));
        ASSERT_TRUE(window->openFile(QString::fromStdString(dir.file("in.wav"))));
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override
    {
        // A test may skip after the window is up (no sound output): it still goes down in order.
        if (!window)
            return;
        QVlorSetting::global().remove(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"));
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(window.get());
        window.reset();
    }
    void settle()
    {
        settleManagers();
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
    }
    QString pairId() const
    {
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.vst2 != 0 && !e.vst3.isEmpty())
                return e.pairId;
        return QString();
    }
    QMenu* pluginsMenu() const
    {
        QVlorAudioPlugins::MenuController* c = QVlorAudioPlugins::UI::menuController();
        if (c)
            c->rebuildPluginsMenuNow();
        return c ? c->pluginsMenu() : nullptr;
    }

    TempDir dir;
    std::unique_ptr<vlorfx::MainWindow> window;
    QVlorVst::Manager* vst2 = nullptr;
    QVlorVst3::Manager* vst3 = nullptr;
};

} // namespace guitest

using namespace guitest;

#endif
