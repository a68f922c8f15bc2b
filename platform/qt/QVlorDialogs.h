#ifndef QVLORDIALOGS_H
#define QVLORDIALOGS_H
// The editor's modal dialogs: message boxes and the folder chooser. Every
// one of them goes through one seam, so that a test answers it instead of a
// person, and no test waits on a dialog.

#include <QFileDialog>
#include <QMessageBox>
#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

namespace QVlorDialogs {

// What a dialog asks.
struct Question {
    QString kind;  // "information", "warning", "critical", "question", "directory", "open file", "save file", "text"
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    bool windowModal = false;
    QString informativeText;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton; // also the escape button
};

// The answer to give: a button for a message box, a folder for the chooser,
// a file for the file choosers, the text typed for a text (empty for a cancel).
struct Answer {
    QMessageBox::StandardButton button = QMessageBox::NoButton;
    QString directory;
};

using Answerer = std::function<Answer(const Question&)>;

// While set, dialogs are not shown: the answerer answers them. A test sets
// it and clears it with an empty one.
void setAnswerer(const Answerer& answerer);
// The questions asked since the last call, for tests.
QList<Question> takeAsked();

} // namespace QVlorDialogs

// Message boxes of the editor's look.
class QVlorMessageBox {
public:
    static QMessageBox::StandardButton information(QWidget* parent, const QString& title, const QString& text,
                                                   QMessageBox::StandardButtons buttons = QMessageBox::Ok);
    static QMessageBox::StandardButton warning(QWidget* parent, const QString& title, const QString& text,
                                               QMessageBox::StandardButtons buttons = QMessageBox::Ok);
    static QMessageBox::StandardButton critical(QWidget* parent, const QString& title, const QString& text,
                                                QMessageBox::StandardButtons buttons = QMessageBox::Ok);
    static QMessageBox::StandardButton question(QWidget* parent, const QString& title, const QString& text,
                                                QMessageBox::StandardButtons buttons = QMessageBox::Yes |
                                                                                       QMessageBox::No);
    // A box with a second, smaller text below the first.
    static QMessageBox::StandardButton detailed(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                                                const QString& text, const QString& informativeText,
                                                QMessageBox::StandardButtons buttons = QMessageBox::Ok);
    // Modal to its window only: the rest of the application goes on.
    static QMessageBox::StandardButton windowModal(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                                                   const QString& text, QMessageBox::StandardButtons buttons,
                                                   const QString& informativeText = QString(),
                                                   QMessageBox::StandardButton defaultButton = QMessageBox::NoButton);
};

class QVlorFileDialog {
public:
    static QString getExistingDirectory(QWidget* parent, const QString& caption, const QString& directory = QString(),
                                        QFileDialog::Options options = QFileDialog::ShowDirsOnly);
    static QString getOpenFileName(QWidget* parent, const QString& caption, const QString& directory,
                                   const QString& filter);
    static QString getSaveFileName(QWidget* parent, const QString& caption, const QString& file, const QString& filter);
};

// A line of text asked for, such as a name; empty for a cancel.
class QVlorInputDialog {
public:
    static QString getText(QWidget* parent, const QString& title, const QString& label, const QString& text = QString());
};

#endif
