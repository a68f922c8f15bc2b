#include "savefailures.h"

#include "QVlorDialogs.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include "blsettings.h"

#include <QWidget>

namespace vlorfx {

SaveFailureNotice::SaveFailureNotice(QWidget* window) : QObject(window), m_window(window)
{
    m_settingsLook.setInterval(3000);
    connect(&m_settingsLook, &QTimer::timeout, this, &SaveFailureNotice::checkSettings);
    m_settingsLook.start();
}

void SaveFailureNotice::watch(QVlorVst::Manager* vst2, QVlorVst3::Manager* vst3)
{
    if (vst2)
        connect(vst2, &QVlorVst::Manager::saveFailed, this, &SaveFailureNotice::tell, Qt::QueuedConnection);
    if (vst3)
        connect(vst3, &QVlorVst3::Manager::saveFailed, this, &SaveFailureNotice::tell, Qt::QueuedConnection);
}

void SaveFailureNotice::checkSettings()
{
    char error[2048] = "";
    if (BLSETTINGS_GetSaveError(error, int(sizeof(error))))
        tell(QString::fromLocal8Bit(error));
}

void SaveFailureNotice::tell(const QString& error)
{
    if (error.isEmpty() || m_told.contains(error))
        return;
    m_told.insert(error);
    QVlorMessageBox::warning(m_window, tr("Could not save"),
                             tr("Could not save %1.\n\nWhat you changed is in effect until you quit; it is saved "
                                "again with the next change.")
                                 .arg(error));
}

} // namespace vlorfx
