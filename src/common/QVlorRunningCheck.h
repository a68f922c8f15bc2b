#ifndef QVLORRUNNINGCHECK_H
#define QVLORRUNNINGCHECK_H

#include <QList>
#include <QString>

// A plugin being checked in a child process of its own, as a manager tells it.
struct QVlorRunningCheck {
    QString name;  // the plugin, as skipCheck takes it
    qint64 sinceMs = 0; // when its child started, on QDateTime's clock
};

#endif
