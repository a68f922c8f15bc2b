#ifndef QVLORSLOWCHECKWATCH_H
#define QVLORSLOWCHECKWATCH_H
// Which plugin's check has been running for a while, in either format, for
// the progress lines that offer to skip it.

#include "QVlorPluginManagers.h"

#include <QObject>
#include <QString>
#include <QTimer>

class QVlorSlowCheckWatch : public QObject {
    Q_OBJECT
public:
    // A check counts as slow after this long.
    static constexpr int kSlowMs = 3000;

    explicit QVlorSlowCheckWatch(const QVlorAudioPlugins::PluginManagers& managers, QObject* parent = nullptr);

    // The plugin whose check is slow (the one running longest), or empty.
    QString current() const { return m_name; }
    // Skips it: its child ends now.
    void skip();

signals:
    void changed(const QString& name);

private:
    void poll();

    QVlorAudioPlugins::PluginManagers m_managers;
    QTimer m_timer;
    QString m_name;
    bool m_vst3 = false;
};

#endif
