#pragma once
// The reference editor's window: a waveform of the front audio with a
// selection, the File, Edit, Plugins and Tools menus, and the Host the
// library asks for, built on the library as any editor would build on it.

#include "QVlorAudioPlugins.h"
#include "document.h"
#include "preview.h"
#include "savefailures.h"

#include <QDialog>
#include <QHash>
#include <QMainWindow>
#include <QPointer>

class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QVlorFxWidget;

namespace vlorfx {

// The front audio drawn as its peaks, one lane a channel; a selection by
// mouse or keys, told to a screen reader as its description.
class WaveformView : public QWidget {
    Q_OBJECT
public:
    explicit WaveformView(AudioDocument* doc, QWidget* parent = nullptr);
    // [start, end) in frames; empty when start == end.
    qint64 selectionStart() const { return m_start; }
    qint64 selectionEnd() const { return m_end; }
    void setSelection(qint64 start, qint64 end);
    QSize sizeHint() const override { return QSize(720, 260); }

signals:
    void selectionChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent*) override { update(); }
    void focusOutEvent(QFocusEvent*) override { update(); }

private:
    void describeSelection();
    qint64 frameAt(int x) const;
    int xOf(qint64 frame) const;

    AudioDocument* m_doc;
    qint64 m_start = 0;
    qint64 m_end = 0;
    qint64 m_anchor = 0;
    bool m_caretAtStart = false; // the keys move the start of the selection, not its end
};

// An effect's widget with Preview, Apply and Cancel.
class EffectDialog : public QDialog {
    Q_OBJECT
public:
    EffectDialog(QVlorFxWidget* widget, const QString& format, QWidget* parent);
    QVlorFxWidget* widget() const { return m_widget; }
    QString format() const { return m_format; }

    // Shows whether a preview plays, or why none can.
    void setPreviewState(bool playing, const QString& unavailable);

signals:
    void applyRequested(EffectDialog* dialog);
    void previewRequested(EffectDialog* dialog);

private:
    QVlorFxWidget* m_widget;
    QString m_format;
    QPushButton* m_preview = nullptr;
};

class MainWindow : public QMainWindow, public QVlorAudioPlugins::Host {
    Q_OBJECT
public:
    MainWindow();
    ~MainWindow() override;

    AudioDocument* document() { return &m_doc; }
    WaveformView* waveform() { return m_wave; }
    bool openFile(const QString& path);
    bool saveFile(const QString& path);
    // After UI::install: the library's menu in the menu bar, the scan commands wired.
    void libraryInstalled();
    // Offers the first scan, tells of a crash at the last start.
    void greet();

    // Renders the effect of the dialog's widget over the selection (or all), as one undoable step.
    bool applyEffect(QVlorFxWidget* widget, QString* error);
    EffectDialog* effectDialog() const { return m_effectDialog; }
    bool isPreviewing() const { return m_previewer->isPlaying(); }
    // Registered actions by id, and the quick-open entries.
    QHash<QString, QAction*> actionsById() const;
    struct QuickEntry {
        QAction* action;
        QString title;
        QString description;
    };
    QList<QuickEntry> quickEntries() const { return m_quick.values(); }

    // Host.
    void announceNewPlugins(const QList<QString>& names) override;
    QMenu* mainMenu() override { return m_libraryMenu; }
    void registerAction(QAction* action, const QString& id, const QString& category, const QString& title) override;
    void registerQuickOpen(int kind, QAction* action, const QString& url, const QString& title,
                           const QString& description, const QString& module, const QString& icon) override;
    void unregisterAction(QAction* action) override;
    void unregisterQuickOpen(QAction* action) override;
    QVlorAudio currentAudio() override;
    void presentEffectWidget(QVlorFxWidget* widget, QAction* action, const QString& pairId,
                             const QString& format) override;

public slots:
    void showShortcuts();
    void showQuickOpen();
    void showPreferences();
    void openDialog();
    void saveAs();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void refreshStatus();
    void attachPluginsMenu();
    void onScanProgress(int value, int total);
    void onScanEnded();
    void showScanLine(bool running);
    void showNewPlugins();
    void togglePreview(EffectDialog* dialog);
    // The selection, or the whole audio when nothing is selected.
    void selectedRange(qint64* start, qint64* count) const;

    AudioDocument m_doc;
    WaveformView* m_wave = nullptr;
    QMenu* m_libraryMenu = nullptr; // where the library hangs its Plugins menu
    QPointer<QMenu> m_attached;
    QLabel* m_status = nullptr;
    QProgressBar* m_scanBar = nullptr;
    QPushButton* m_scanCancel = nullptr;
    // "12 new plugins found" and the button that shows them.
    QLabel* m_newPlugins = nullptr;
    QPushButton* m_showNewPlugins = nullptr;
    QHash<QAction*, QString> m_ids;
    QHash<QAction*, QuickEntry> m_quick;
    QPointer<EffectDialog> m_effectDialog;
    Previewer* m_previewer = nullptr;
    SaveFailureNotice* m_saveFailures = nullptr;
};

// A palette of the plugin entries: typing narrows by name, vendor and format.
class QuickOpenDialog : public QDialog {
    Q_OBJECT
public:
    QuickOpenDialog(const QList<MainWindow::QuickEntry>& entries, QWidget* parent);
    QLineEdit* field() const { return m_field; }
    QListWidget* list() const { return m_list; }

private:
    void narrow(const QString& text);
    void openCurrent();

    QList<MainWindow::QuickEntry> m_entries;
    QLineEdit* m_field;
    QListWidget* m_list;
};

// Every registered action with its keys; what is changed is stored where
// the library's migration looks for it.
class ShortcutsDialog : public QDialog {
    Q_OBJECT
public:
    ShortcutsDialog(const QHash<QString, QAction*>& actions, QWidget* parent);
    // Binds keys to the action of that id now, in the window, stored for the next start.
    static void bind(QWidget* window, QAction* action, const QString& id, const QKeySequence& keys);
};

} // namespace vlorfx
