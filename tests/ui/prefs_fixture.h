#pragma once
// The plugin manager page over fixture plugins of both formats found by real
// scans of real managers, and the hands of a user on it: clicks on check
// boxes and badges, right clicks, and the rows found by name.
#include "QVlorApplication.h"
#include "QVlorLv2_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginDelegates.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorPluginsTreeView.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include "audiovst.h"
#include "testhost.h"
#include "testsupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolTip>
#include <QTreeView>

#include <gtest/gtest.h>

#include <memory>

namespace vlortest {

inline namespace prefs {

const QString kGain = QStringLiteral("51000000000000000000000000000001");
const QString kAlone = QStringLiteral("51000000000000000000000000000003");
const QString kFails = QStringLiteral("51000000000000000000000000000004");
const qint64 kStereoId = 0x566C4678;

inline void settle()
{
    settleManagers();
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

inline QModelIndex findRow(const QAbstractItemModel* model, const QString& text, const QModelIndex& parent = QModelIndex())
{
    for (int i = 0; i < model->rowCount(parent); ++i) {
        const QModelIndex child = model->index(i, 0, parent);
        if (child.data().toString() == text)
            return child;
        const QModelIndex inner = findRow(model, text, child);
        if (inner.isValid())
            return inner;
    }
    return QModelIndex();
}

// Every name the tree shows, depth first, vendors and sections included.
inline QStringList shown(const QAbstractItemModel* model, const QModelIndex& parent = QModelIndex())
{
    QStringList names;
    for (int i = 0; i < model->rowCount(parent); ++i) {
        const QModelIndex child = model->index(i, 0, parent);
        names << child.data().toString();
        names += shown(model, child);
    }
    return names;
}

// Where the check box of a row of a tree with a name margin of 6 lies.
inline QPoint checkBoxAt(QTreeView* view, const QModelIndex& index)
{
    QStyleOptionViewItem opt;
    opt.initFrom(view);
    opt.rect = view->visualRect(index);
    opt.rect.setLeft(opt.rect.left() + 6);
    opt.features = QStyleOptionViewItem::HasCheckIndicator | QStyleOptionViewItem::HasDisplay;
    opt.text = index.data().toString();
    opt.font = view->font();
    opt.widget = view;
    return view->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, view).center();
}

inline UnifiedRow rowOf(const QModelIndex& index) { return index.data(UpmRowRole).value<UnifiedRow>(); }

inline QVlorVst3::CatalogClass::State classState(QVlorVst3::Manager* m, const QString& cid)
{
    const QVlorVst3::Catalog catalog = m->catalogCopy();
    const QVlorVst3::CatalogClass* c = catalog.findClass(cid);
    return c ? c->state() : QVlorVst3::CatalogClass::State(-1);
}

inline QVlorVst::Plugin stereoPlugin(QVlorVst::Manager* m)
{
    for (const QVlorVst::Path& path : m->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins())
            if (p.uniqueId() == kStereoId)
                return p;
    return QVlorVst::Plugin();
}

class Prefs : public ::testing::Test {
protected:
    static void SetUpTestSuite() { QVlorAudioPlugins::Initialize(); }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void SetUp() override
    {
        AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
        QVlorApplication::applyTheme(QVlorApplication::Light);
        removeCatalogs();
        QVlorSetting::global().remove(QLatin1String(K_SETTING_TREE_COLLAPSED));
        QVlorAudioPlugins::UI::install(&host);
        vst2 = QVlorAudioPlugins::vstManager();
        vst3 = QVlorAudioPlugins::vst3Manager();
        plugins.scanWithInstalledManagers();
        ASSERT_TRUE(waitFor([&] {
            settle();
            return classState(vst3, kGain) == QVlorVst3::CatalogClass::Enabled &&
                   classState(vst3, kFails) == QVlorVst3::CatalogClass::Failed && stereoPlugin(vst2).isEnabled();
        }, 30000));
        openPage();
    }
    void TearDown() override
    {
        page.reset();
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
    }

    // The managers go with their saved catalogs and come back from them, as at a restart.
    void restart()
    {
        page.reset();
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
        QVlorAudioPlugins::UI::install(&host);
        vst2 = QVlorAudioPlugins::vstManager();
        vst3 = QVlorAudioPlugins::vst3Manager();
        vst2->loadCatalog();
        vst2->updatePlugins(false, false);
        vst3->setSearchPathsForTesting(vst3Folders.isEmpty() ? QStringList{plugins.vst3Folder()} : vst3Folders);
        vst3->searchPlugins(false);
        settle();
        openPage();
    }
    void openPage()
    {
        page = std::make_unique<QVlorPluginsPrefs>();
        page->resize(720, 560);
        page->syncPreferences();
        page->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(page.get()));
        tree = page->findChild<QVlorPluginsTreeView*>(QStringLiteral("vstPluginsTreeView"));
        filter = page->findChild<QVlorBoxEditor*>(QStringLiteral("filterBox"));
        ASSERT_NE(tree, nullptr);
        ASSERT_NE(filter, nullptr);
        settle();
    }
    QModelIndex row(const QString& name) const { return findRow(tree->model(), name); }
    // The fixture bundle scanned by the installed LV2 manager, its rows on the page.
    QVlorLv2::Manager* scanLv2Fixtures()
    {
        QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
        if (!lv2)
            return nullptr;
        const QString atom = QStringLiteral("urn:vlor:fixture:atom");
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 2);
        lv2->setSearchPathsForTesting({QStringLiteral(VLOR_FIXTURE_LV2_DIR)});
        lv2->searchPlugins(false);
        const bool shown = waitFor([&] {
            settle();
            return lv2->catalogCopy().isOffered(atom) && row(QStringLiteral("Fixture Atom")).isValid();
        }, 30000);
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey),
                                             QVariant());
        return shown ? lv2 : nullptr;
    }

    // Where a user clicks: the row's check box, a badge.
    QPoint checkBox(const QModelIndex& index) const { return checkBoxAt(tree, index); }
    QRectF badge(const QModelIndex& index, int slot) const
    {
        return QVlorPluginBadgeDelegate::slotRect(tree->visualRect(index.siblingAtColumn(1)), slot,
                                                  QFontMetrics(tree->font()), -1);
    }
    // "Rescan Plugins" clicked; true once both scans ended and the tree is back.
    bool rescanByButton()
    {
        QTest::mouseClick(page->findChild<QPushButton*>(QStringLiteral("updateButton")), Qt::LeftButton);
        return waitFor([&] {
            settle();
            return !vst3->isScanning() && !vst2->isScanning() && tree->isEnabled();
        }, 30000);
    }
    void click(const QPoint& at) { QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, at); }
    QModelIndex rawRow(int section, const QModelIndex& parent = QModelIndex()) const
    {
        const QAbstractItemModel* m = tree->model();
        for (int i = 0; i < m->rowCount(parent); ++i) {
            const QModelIndex child = m->index(i, 0, parent);
            const UnifiedRow r = rowOf(child);
            if (child.data(UpmRowRole).isValid() && r.newSection == section && !r.isNewPathHeader)
                return child;
            const QModelIndex inner = rawRow(section, child);
            if (inner.isValid())
                return inner;
        }
        return QModelIndex();
    }
    QModelIndex rowOfPair(const QString& pairId, const QModelIndex& parent = QModelIndex()) const
    {
        const QAbstractItemModel* m = tree->model();
        for (int i = 0; i < m->rowCount(parent); ++i) {
            const QModelIndex child = m->index(i, 0, parent);
            if (!pairId.isEmpty() && rowOf(child).pairId == pairId)
                return child;
            const QModelIndex inner = rowOfPair(pairId, child);
            if (inner.isValid())
                return inner;
        }
        return QModelIndex();
    }
    QString pairOfStereo() const
    {
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.vst2 == kStereoId)
                return e.pairId;
        return QString();
    }
    QString activeFormat(const QString& pairId) const
    {
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.pairId == pairId)
                return e.activeFormat;
        return QString();
    }

    const FixturePlugins plugins;
    QStringList vst3Folders; // searched after a restart; the fixture's folder when empty
    TestHost host;
    QVlorVst::Manager* vst2 = nullptr;
    QVlorVst3::Manager* vst3 = nullptr;
    std::unique_ptr<QVlorPluginsPrefs> page;
    QVlorPluginsTreeView* tree = nullptr;
    QVlorBoxEditor* filter = nullptr;
};

} // namespace prefs

} // namespace vlortest
