#pragma once
// A save that fails is told to the person once for each reason: what they
// chose is still in effect, but would be gone at the next start.

#include <QObject>
#include <QSet>
#include <QTimer>

class QWidget;
namespace QVlorVst {
class Manager;
}
namespace QVlorVst3 {
class Manager;
}

namespace vlorfx {

class SaveFailureNotice : public QObject {
    Q_OBJECT
public:
    explicit SaveFailureNotice(QWidget* window);
    // The catalogs and the pairs say so by a signal.
    void watch(QVlorVst::Manager* vst2, QVlorVst3::Manager* vst3);
    // The settings store has no signal: it is looked at every few seconds, and now.
    void checkSettings();

private:
    void tell(const QString& error);

    QWidget* m_window;
    QSet<QString> m_told;
    QTimer m_settingsLook;
};

} // namespace vlorfx
