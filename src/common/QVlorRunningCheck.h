#ifndef QVLORRUNNINGCHECK_H
#define QVLORRUNNINGCHECK_H

#include "QVlorAudioPluginsExport.h"
#include <QList>
#include <QString>

// A plugin being checked in a child process of its own, as a manager tells it.
struct QVLOR_PLUGINS_EXPORT QVlorRunningCheck {
    QString name;  // the plugin, as skipCheck takes it
    qint64 sinceMs = 0; // when its child started, on QDateTime's clock
};

#endif
