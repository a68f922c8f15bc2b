#include "QVlorDialogs.h"

#include "QVlorAccessible.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QMutex>

namespace {

QMutex g_lock;
QVlorDialogs::Answerer g_answerer;
QList<QVlorDialogs::Question> g_asked;

// The answer of the seam, when a test holds it.
bool answered(const QVlorDialogs::Question& q, QVlorDialogs::Answer* answer)
{
    QVlorDialogs::Answerer answerer;
    {
        QMutexLocker l(&g_lock);
        if (!g_answerer)
            return false;
        answerer = g_answerer;
        g_asked << q;
    }
    *answer = answerer(q);
    return true;
}

QString kindOf(QMessageBox::Icon icon)
{
    return icon == QMessageBox::Warning    ? QStringLiteral("warning")
           : icon == QMessageBox::Critical ? QStringLiteral("critical")
           : icon == QMessageBox::Question ? QStringLiteral("question")
                                           : QStringLiteral("information");
}

QMessageBox::StandardButton ask(QWidget* parent, QMessageBox::Icon icon, const QString& kind, const QString& title,
                                const QString& text, QMessageBox::StandardButtons buttons, bool windowModal,
                                const QString& informativeText = QString(),
                                QMessageBox::StandardButton defaultButton = QMessageBox::NoButton)
{
    // A failure is told in the window it happened in, whoever answers the box:
    // a reader hears it even where the box opens behind another window.
    if (icon == QMessageBox::Warning || icon == QMessageBox::Critical)
        QVlorAccessible::announce(parent, title + QStringLiteral(": ") + text, QVlorAccessible::Alert);
    QVlorDialogs::Answer answer;
    if (answered({kind, title, text, buttons, windowModal, informativeText, defaultButton}, &answer))
        return answer.button;
    QMessageBox box(icon, title, text, buttons, parent);
    box.setInformativeText(informativeText);
    if (defaultButton != QMessageBox::NoButton) {
        box.setDefaultButton(defaultButton);
        box.setEscapeButton(defaultButton);
    }
    if (windowModal)
        box.setWindowModality(Qt::WindowModal);
    return QMessageBox::StandardButton(box.exec());
}

} // namespace

namespace QVlorDialogs {

void setAnswerer(const Answerer& answerer)
{
    QMutexLocker l(&g_lock);
    g_answerer = answerer;
}

QList<Question> takeAsked()
{
    QMutexLocker l(&g_lock);
    QList<Question> asked;
    asked.swap(g_asked);
    return asked;
}

} // namespace QVlorDialogs

#define VLOR_MESSAGE_BOX(name, icon)                                                                               \
    QMessageBox::StandardButton QVlorMessageBox::name(QWidget* parent, const QString& title, const QString& text,   \
                                                      QMessageBox::StandardButtons buttons)                         \
    {                                                                                                              \
        return ask(parent, QMessageBox::icon, QStringLiteral(#name), title, text, buttons, false);                   \
    }
VLOR_MESSAGE_BOX(information, Information)
VLOR_MESSAGE_BOX(warning, Warning)
VLOR_MESSAGE_BOX(critical, Critical)
VLOR_MESSAGE_BOX(question, Question)
#undef VLOR_MESSAGE_BOX

QMessageBox::StandardButton QVlorMessageBox::windowModal(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                                                         const QString& text, QMessageBox::StandardButtons buttons,
                                                         const QString& informativeText,
                                                         QMessageBox::StandardButton defaultButton)
{
    return ask(parent, icon, kindOf(icon), title, text, buttons, true, informativeText, defaultButton);
}

QMessageBox::StandardButton QVlorMessageBox::detailed(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                                                      const QString& text, const QString& informativeText,
                                                      QMessageBox::StandardButtons buttons)
{
    return ask(parent, icon, kindOf(icon), title, text, buttons, false, informativeText);
}

QString QVlorFileDialog::getExistingDirectory(QWidget* parent, const QString& caption, const QString& directory,
                                              QFileDialog::Options options)
{
    QVlorDialogs::Answer answer;
    if (answered({QStringLiteral("directory"), caption, directory, QMessageBox::NoButton, false, QString(), QMessageBox::NoButton}, &answer))
        return answer.directory;
    return QFileDialog::getExistingDirectory(parent, caption, directory, options);
}

QString QVlorFileDialog::getOpenFileName(QWidget* parent, const QString& caption, const QString& directory,
                                         const QString& filter)
{
    QVlorDialogs::Answer answer;
    if (answered({QStringLiteral("open file"), caption, directory, QMessageBox::NoButton, false, filter, QMessageBox::NoButton}, &answer))
        return answer.directory;
    return QFileDialog::getOpenFileName(parent, caption, directory, filter);
}

QString QVlorFileDialog::getSaveFileName(QWidget* parent, const QString& caption, const QString& file, const QString& filter)
{
    QVlorDialogs::Answer answer;
    if (answered({QStringLiteral("save file"), caption, file, QMessageBox::NoButton, false, filter, QMessageBox::NoButton}, &answer))
        return answer.directory;
    return QFileDialog::getSaveFileName(parent, caption, file, filter);
}

QString QVlorInputDialog::getText(QWidget* parent, const QString& title, const QString& label, const QString& text)
{
    QVlorDialogs::Answer answer;
    if (answered({QStringLiteral("text"), title, label, QMessageBox::NoButton, false, text, QMessageBox::NoButton}, &answer))
        return answer.directory;
    bool ok = false;
    const QString typed = QInputDialog::getText(parent, title, label, QLineEdit::Normal, text, &ok);
    return ok ? typed : QString();
}
