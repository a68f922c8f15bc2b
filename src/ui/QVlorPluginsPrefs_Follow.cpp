// The page's following of the managers: their scans and changes reach it
// (progress, and a rebuild of the rows at every change), and its progress
// line's Cancel and "Skip" reach them.
#include "QVlorPluginsPrefs.h"

#include "QVlorLv2_Manager.h"
#include "QVlorPluginsPrefs_p.h"
#include "QVlorSlowCheckWatch.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

// The progress line's Cancel and "Skip" of a slow check.
void QVlorPluginsPrefs::setUpProgressButtons()
{
    // Cancel stops what either manager has under way or waiting: a scan, or checks.
    connect(d->ui.scanCancelButton, &QPushButton::clicked, this, [this] {
        if (QVlorVst::Manager* m2 = vst2())
            m2->cancel();
        if (QVlorVst3::Manager* m3 = vst3())
            m3->cancel();
    });
    d->ui.skipCheckButton->hide();
    d->slowChecks = new QVlorSlowCheckWatch(d->managers, this);
    connect(d->slowChecks, &QVlorSlowCheckWatch::changed, this, [this](const QString& name) {
        QPushButton* skip = d->ui.skipCheckButton;
        skip->setVisible(!name.isEmpty());
        if (name.isEmpty())
            return;
        skip->setText(tr("Skip %1").arg(skip->fontMetrics().elidedText(name, Qt::ElideMiddle, 180)));
        skip->setToolTip(tr("The check of %1 has taken more than %2 seconds: end it now. The plugin is checked "
                            "again at the next rescan.")
                             .arg(name)
                             .arg(QVlorSlowCheckWatch::kSlowMs / 1000));
    });
    connect(d->ui.skipCheckButton, &QPushButton::clicked, d->slowChecks, &QVlorSlowCheckWatch::skip);
}

// The managers' scans and changes reach the page: progress, and a rebuild
// of the rows at every change.
void QVlorPluginsPrefs::followManagers(QVlorVst::Manager* m2, QVlorVst3::Manager* m3)
{
    if (m2) {
        connect(m2, &QVlorVst::Manager::beginScan, this, &QVlorPluginsPrefs::onBeginScan);
        connect(m2, &QVlorVst::Manager::progressScan, this, &QVlorPluginsPrefs::onProgressScan);
        connect(m2, &QVlorVst::Manager::endScan, this, &QVlorPluginsPrefs::onEndScan);
        connect(m2, &QVlorVst::Manager::pluginEnabled, this, &QVlorPluginsPrefs::rebuildRows);
        connect(m2, &QVlorVst::Manager::pluginDisabled, this, &QVlorPluginsPrefs::rebuildRows);
        connect(m2, &QVlorVst::Manager::pluginFailed, this, &QVlorPluginsPrefs::rebuildRows);
        connect(m2, &QVlorVst::Manager::catalogChanged, this, &QVlorPluginsPrefs::rebuildRows);
        for (auto signal : {&QVlorVst::Manager::vendorEnabledChanged, &QVlorVst::Manager::pathAdded,
                            &QVlorVst::Manager::pathDeleted, &QVlorVst::Manager::pathEnabled,
                            &QVlorVst::Manager::pathDisabled})
            connect(m2, signal, this, &QVlorPluginsPrefs::rebuildRows);
    }
    if (m3) {
        connect(m3, &QVlorVst3::Manager::beginScan, this, &QVlorPluginsPrefs::onBeginScan);
        connect(m3, &QVlorVst3::Manager::progressScan, this, &QVlorPluginsPrefs::onProgressScan);
        connect(m3, &QVlorVst3::Manager::endScan, this, &QVlorPluginsPrefs::onEndScan);
        for (auto signal : {&QVlorVst3::Manager::pluginEnabled, &QVlorVst3::Manager::pluginDisabled,
                            &QVlorVst3::Manager::pluginFailed, &QVlorVst3::Manager::pluginStateChanged})
            connect(m3, signal, this, &QVlorPluginsPrefs::rebuildRows);
        connect(m3, &QVlorVst3::Manager::catalogChanged, this, &QVlorPluginsPrefs::rebuildRows);
    }
}

// The LV2 manager's scans and switches, like the others'.
void QVlorPluginsPrefs::followLv2()
{
    QVlorLv2::Manager* m = lv2();
    if (!m)
        return;
    connect(m, &QVlorLv2::Manager::beginScan, this, &QVlorPluginsPrefs::onBeginScan);
    connect(m, &QVlorLv2::Manager::progressScan, this, &QVlorPluginsPrefs::onProgressScan);
    connect(m, &QVlorLv2::Manager::endScan, this, &QVlorPluginsPrefs::onEndScan);
    connect(m, &QVlorLv2::Manager::catalogChanged, this, &QVlorPluginsPrefs::rebuildRows);
}
