#include "QVlorRemoteFault_p.h"

#include "QVlorDialogs.h"
#include "QVlorPluginFormat.h"
#include "QVlorSetting.h"

#include "fxisolation.h"

#include <QMutex>
#include <QPainter>
#include <QPainterPath>
#include <QWidget>

namespace {

// Often enough to be told within a second of the host's timeout.
constexpr int kCheckMs = 250;
enum { kCrashed = 2, kHung = 3 };

} // namespace

QVlorRemoteFaultWatch::QVlorRemoteFaultWatch(QWidget* dialog, const QString& name, const QString& format,
                                             const QString& id, std::function<int()> state,
                                             std::function<void()> end)
    : QObject(dialog), m_dialog(dialog), m_name(name), m_format(format), m_id(id), m_state(std::move(state)),
      m_end(std::move(end))
{
    m_timer.setInterval(kCheckMs);
    connect(&m_timer, &QTimer::timeout, this, &QVlorRemoteFaultWatch::check);
    m_timer.start();
}

void QVlorRemoteFaultWatch::check()
{
    if (m_dead)
        return;
    const int state = m_state();
    if (state != kCrashed && state != kHung)
        return;
    m_dead = true;
    m_timer.stop();
    // A plugin that took its host program down would have taken the editor
    // with it: it keeps running apart.
    QVlorAudioPlugins::MarkCrashed(m_format, m_id);
    QPointer<QVlorRemoteFaultWatch> alive(this);
    if (state == kCrashed) {
        QVlorMessageBox::detailed(m_dialog, QMessageBox::Warning, tr("Plugin crashed"),
                                  tr("The plugin %1 crashed and will be finalized.").arg(m_name),
                                  tr("It ran in a program of its own: your audio, your selection and your undo "
                                     "history are as they were."),
                                  QMessageBox::Ok);
    } else {
        const QMessageBox::StandardButton answer = QVlorMessageBox::question(
            m_dialog, tr("Plugin not answering"),
            tr("The plugin %1 has stopped answering. End it now? Your audio and your undo history are kept.")
                .arg(m_name),
            QMessageBox::Yes | QMessageBox::No);
        if (answer == QMessageBox::Yes && alive)
            m_end();
    }
    if (alive)
        emit died();
}

QString RemoteDeathText(const QString& name, int state)
{
    return state == kHung ? QStringLiteral("%1 stopped answering; the track plays on without it").arg(name)
                          : QStringLiteral("%1 crashed in its host program; the track plays on without it").arg(name);
}

namespace QVlorAudioPlugins {

namespace {
QByteArray utf8(const QString& s) { return s.toUtf8(); }
QMutex s_siblingsLock;
SiblingForms s_siblings;
} // namespace

void SetSiblingForms(SiblingForms siblings)
{
    QMutexLocker l(&s_siblingsLock);
    s_siblings = std::move(siblings);
}

void MarkCrashed(const QString& format, const QString& id)
{
    SiblingForms siblings;
    {
        QMutexLocker l(&s_siblingsLock);
        siblings = s_siblings;
    }
    QList<QPair<QString, QString>> forms{qMakePair(format, id)};
    if (siblings)
        forms += siblings(format, id);
    for (const auto& form : std::as_const(forms))
        if (form.first == Vst3Token() || form.first == Lv2Token())
            VLORFX_MarkCrashed(utf8(form.first).constData(), utf8(form.second).constData());
}

bool EveryPluginRunsApart()
{
    return QVlorSetting::global().getString(QStringLiteral("vloraudio.plugins.isolation"), QString()) ==
           QLatin1String("always");
}

bool RunsApartByItsMarks(const QString& format, const QString& id)
{
    return !EveryPluginRunsApart() && VLORFX_RunsInOwnProcess(utf8(format).constData(), utf8(id).constData());
}

void SetRunsApart(const QString& format, const QString& id, bool on)
{
    VLORFX_SetOwnProcess(utf8(format).constData(), utf8(id).constData(), on ? 1 : 0);
}

// Two boxes, one standing apart from the other: the plugin in a program of
// its own. Grey and blue read in both themes; on a selected row, where the
// blue would vanish, both are drawn in the selection's white.
QIcon RunsApartIcon()
{
    static const QIcon icon = [] {
        QIcon i;
        for (const bool selected : {false, true}) {
            const QColor outline = selected ? QColor(Qt::white) : QColor(128, 128, 128);
            const QColor filled = selected ? QColor(Qt::white) : QColor(74, 144, 226);
            for (int size : {16, 32, 48}) {
                QPixmap pixmap(size, size);
                pixmap.fill(Qt::transparent);
                QPainter p(&pixmap);
                p.setRenderHint(QPainter::Antialiasing);
                const qreal u = size / 16.0;
                p.setPen(QPen(outline, 1.2 * u));
                p.drawRoundedRect(QRectF(1.5 * u, 5.5 * u, 8 * u, 8 * u), 1.5 * u, 1.5 * u);
                p.setBrush(filled);
                p.setPen(QPen(filled, 1.2 * u));
                p.drawRoundedRect(QRectF(8.5 * u, 2.5 * u, 6 * u, 6 * u), 1.5 * u, 1.5 * u);
                p.end();
                i.addPixmap(pixmap, selected ? QIcon::Selected : QIcon::Normal);
            }
        }
        return i;
    }();
    return icon;
}

} // namespace QVlorAudioPlugins
