#ifndef QVLORREMOTEFAULT_P_H
#define QVLORREMOTEFAULT_P_H
// What an effect dialog does when the plugin it shows runs in a host
// program and that program crashes or stops answering: the user hears of
// it once, may end a stuck one, and the dialog goes dead while the editor
// keeps everything else.

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QList>
#include <QPair>
#include <QString>
#include <QTimer>

#include <functional>

class QWidget;

class QVlorRemoteFaultWatch : public QObject {
    Q_OBJECT
public:
    // state: the engine's remote state (0 here, 1 alive, 2 crashed, 3 hung);
    // end: ends the host program. format and id name the plugin's mark.
    QVlorRemoteFaultWatch(QWidget* dialog, const QString& name, const QString& format, const QString& id,
                          std::function<int()> state, std::function<void()> end);
    bool isDead() const { return m_dead; }
    // Looks now, as the timer does every so often.
    void check();

signals:
    // Once, after the user was told: the dialog is to go dead.
    void died();

private:
    QPointer<QWidget> m_dialog;
    QString m_name, m_format, m_id;
    std::function<int()> m_state;
    std::function<void()> m_end;
    QTimer m_timer;
    bool m_dead = false;
};

namespace QVlorAudioPlugins {

// Whether the VST3 or LV2 plugin (format token, class ID or URI) runs in a
// host program of its own for its own sake: the user's choice, or a crash
// the isolation setting heeds; not when every plugin does.
bool RunsApartByItsMarks(const QString& format, const QString& id);
// Every VST3 and LV2 plugin runs apart ("vloraudio.plugins.isolation" is "always").
bool EveryPluginRunsApart();
void SetRunsApart(const QString& format, const QString& id, bool on);
// A plugin crashed: it runs apart from now on where the setting says so,
// and so do the other forms of its product (the VST2 form keeps its own rule).
void MarkCrashed(const QString& format, const QString& id);
// The other forms of a plugin's product, as format and id: what the entry
// knows of families, handed down (none before).
using SiblingForms = std::function<QList<QPair<QString, QString>>(const QString& format, const QString& id)>;
void SetSiblingForms(SiblingForms siblings);

// The page's mark of a plugin that runs apart: drawn here, for any size.
QIcon RunsApartIcon();

} // namespace QVlorAudioPlugins

// The warning the mixer writes once when a remote effect dies in playback.
QString RemoteDeathText(const QString& name, int state);

#endif
