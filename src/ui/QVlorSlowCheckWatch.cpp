#include "QVlorSlowCheckWatch.h"

#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include <QDateTime>

QVlorSlowCheckWatch::QVlorSlowCheckWatch(const QVlorAudioPlugins::PluginManagers& managers, QObject* parent)
    : QObject(parent), m_managers(managers)
{
    m_timer.setInterval(500);
    connect(&m_timer, &QTimer::timeout, this, &QVlorSlowCheckWatch::poll);
    // Watched only while something may be checking: a scan, or a check begun.
    auto wake = [this] {
        if (!m_timer.isActive())
            m_timer.start();
    };
    if (QVlorVst::Manager* m = m_managers.vst2.data()) {
        connect(m, &QVlorVst::Manager::beginScan, this, wake);
        connect(m, &QVlorVst::Manager::progressPlugin, this, wake);
    }
    if (QVlorVst3::Manager* m = m_managers.vst3.data()) {
        connect(m, &QVlorVst3::Manager::beginScan, this, wake);
        connect(m, &QVlorVst3::Manager::progressPlugin, this, wake);
    }
    wake();
}

void QVlorSlowCheckWatch::poll()
{
    QVlorVst::Manager* m2 = m_managers.vst2.data();
    QVlorVst3::Manager* m3 = m_managers.vst3.data();
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    QString name;
    bool vst3 = false;
    qint64 oldest = now;
    bool anyRunning = false;
    auto look = [&](const QList<QVlorRunningCheck>& checks, bool isVst3) {
        for (const QVlorRunningCheck& c : checks) {
            anyRunning = true;
            if (now - c.sinceMs >= kSlowMs && c.sinceMs < oldest) {
                oldest = c.sinceMs;
                name = c.name;
                vst3 = isVst3;
            }
        }
    };
    if (m2)
        look(m2->runningChecks(), false);
    if (m3)
        look(m3->runningChecks(), true);
    if (!anyRunning && !(m2 && m2->isScanning()) && !(m3 && m3->isScanning()))
        m_timer.stop();
    m_vst3 = vst3;
    if (name != m_name) {
        m_name = name;
        emit changed(name);
    }
}

void QVlorSlowCheckWatch::skip()
{
    if (m_name.isEmpty())
        return;
    if (m_vst3) {
        if (QVlorVst3::Manager* m = m_managers.vst3.data())
            m->skipCheck(m_name);
    } else if (QVlorVst::Manager* m = m_managers.vst2.data()) {
        m->skipCheck(m_name);
    }
    m_name.clear();
    emit changed(QString());
}
