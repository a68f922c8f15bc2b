#include "QVlorPresetBar.h"
#include "window.h"

#include "../catalog.h"

#include "QVlorApplication.h"
#include "QVlorAudio.h"
#include "QVlorDialogs.h"
#include "QVlorFxWidget.h"
#include "QVlorPairKeybindings.h"
#include "QVlorPluginsMenu.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorLv2_Widget.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"
#include "QVlorWidgets.h"

#include "audiofx.h"
#include "blthread.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <atomic>
#include <cmath>

namespace vlorfx {

namespace {


QString duration(qint64 frames, int rate)
{
    if (rate <= 0)
        return QString();
    const double seconds = double(frames) / rate;
    return QStringLiteral("%1:%2").arg(int(seconds) / 60).arg(std::fmod(seconds, 60.0), 6, 'f', 3, QLatin1Char('0'));
}

struct RenderJob {
    std::atomic<double> fraction{0.0};
    std::atomic<bool> cancel{false};
};

int renderProgress(void* user, double fraction)
{
    auto* job = static_cast<RenderJob*>(user);
    job->fraction.store(fraction);
    return job->cancel.load() ? 1 : 0;
}

// The engine hands work to the main thread (an instance of a filter ends
// there); the window's event loop runs it, whatever loop is turning.
void dispatchToMainThread(BLThreadFunction function, void* argument)
{
    QMetaObject::invokeMethod(qApp, [function, argument] { function(argument); }, Qt::QueuedConnection);
}

} // namespace

// The waveform.

EffectDialog::EffectDialog(QVlorFxWidget* widget, const QString& format, QWidget* parent)
    : QDialog(parent), m_widget(widget), m_format(format)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(widget->windowTitle());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    widget->setParent(this);
    // The star and the presets above the effect, for the library's effects.
    if (QVlorPresetBar* bar = QVlorPresetBar::forEffect(widget, this))
        layout->addWidget(bar);
    layout->addWidget(widget, 1);
    auto* buttons = new QDialogButtonBox(this);
    buttons->setContentsMargins(12, 6, 12, 12);
    // Enter applies (the default), Escape cancels, Alt+P previews.
    m_preview = buttons->addButton(tr("&Preview"), QDialogButtonBox::ActionRole);
    m_preview->setObjectName(QStringLiteral("previewButton"));
    connect(m_preview, &QPushButton::clicked, this, [this] { emit previewRequested(this); });
    QPushButton* apply = buttons->addButton(tr("&Apply"), QDialogButtonBox::AcceptRole);
    apply->setObjectName(QStringLiteral("applyButton"));
    apply->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);
    layout->addWidget(buttons);
    connect(apply, &QPushButton::clicked, this, [this] { emit applyRequested(this); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    // The plugin asks for its size; the dialog follows.
    connect(widget, &QVlorFxWidget::fxResized, this, [this, widget](int w, int h) {
        if (w <= 0 || h <= 0 || w > 8192 || h > 8192)
            return;
        widget->setFixedSize(w, h);
        adjustSize();
    });
    const QSize hint = widget->sizeHint();
    if (hint.width() > 0 && hint.height() > 0 && hint.width() <= 8192 && hint.height() <= 8192)
        widget->setMinimumSize(hint);
}

void EffectDialog::setPreviewState(bool playing, const QString& unavailable)
{
    m_preview->setText(playing ? tr("S&top") : tr("&Preview"));
    m_preview->setEnabled(playing || unavailable.isEmpty());
    m_preview->setToolTip(playing ? tr("Stop the preview")
                                  : unavailable.isEmpty() ? tr("Play the selection through the effect") : unavailable);
}

// The window.

MainWindow::MainWindow()
{
    BLTHREAD_SetMainThreadDispatcher(dispatchToMainThread);
    setWindowTitle(QStringLiteral("vlorfx"));
    m_wave = new WaveformView(&m_doc, this);
    setCentralWidget(m_wave);
    m_previewer = new Previewer(this);
    m_saveFailures = new SaveFailureNotice(this);
    m_libraryMenu = new QMenu(QStringLiteral("Main"), this);

    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Open..."), QKeySequence::Open, this, &MainWindow::openDialog);
    QAction* save = file->addAction(tr("&Save"), QKeySequence::Save, this, [this] {
        if (!m_doc.path().isEmpty())
            saveFile(m_doc.path());
    });
    save->setObjectName(QStringLiteral("saveAction"));
    file->addAction(tr("Save &As..."), QKeySequence::SaveAs, this, &MainWindow::saveAs);
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    QAction* undo = m_doc.undoStack()->createUndoAction(this, tr("&Undo"));
    undo->setShortcut(QKeySequence::Undo);
    QAction* redo = m_doc.undoStack()->createRedoAction(this, tr("&Redo"));
    redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    edit->addAction(undo);
    edit->addAction(redo);
    edit->addSeparator();
    edit->addAction(tr("Select &All"), QKeySequence::SelectAll, this,
                    [this] { m_wave->setSelection(0, m_doc.frames()); });

    QMenu* tools = menuBar()->addMenu(tr("&Tools"));
    tools->addAction(tr("&Quick Open..."), QKeySequence(Qt::CTRL | Qt::Key_K), this, &MainWindow::showQuickOpen);
    tools->addAction(tr("&Shortcuts..."), this, &MainWindow::showShortcuts);
    tools->addAction(tr("&Preferences..."), QKeySequence::Preferences, this, &MainWindow::showPreferences);

    m_status = new QLabel(this);
    statusBar()->addWidget(m_status, 1);
    m_scanBar = new QProgressBar(this);
    m_scanBar->setMaximumWidth(180);
    m_scanBar->setFormat(tr("Scanning plugins %p%"));
    m_scanBar->setAccessibleName(tr("Plugin scan"));
    m_scanBar->hide();
    m_scanCancel = new QPushButton(tr("Cancel"), this);
    m_scanCancel->setAccessibleName(tr("Cancel the plugin scan"));
    m_scanCancel->hide();
    m_newPlugins = new QLabel(this);
    m_newPlugins->setObjectName(QStringLiteral("newPluginsNote"));
    m_newPlugins->hide();
    m_showNewPlugins = new QPushButton(tr("Show"), this);
    m_showNewPlugins->setObjectName(QStringLiteral("showNewPlugins"));
    m_showNewPlugins->setToolTip(tr("Open the plugin manager with the new plugins"));
    m_showNewPlugins->hide();
    connect(m_showNewPlugins, &QPushButton::clicked, this, &MainWindow::showNewPlugins);
    statusBar()->addPermanentWidget(m_newPlugins);
    statusBar()->addPermanentWidget(m_showNewPlugins);
    statusBar()->addPermanentWidget(m_scanBar);
    statusBar()->addPermanentWidget(m_scanCancel);
    connect(&m_doc, &AudioDocument::changed, this, &MainWindow::refreshStatus);
    connect(m_wave, &WaveformView::selectionChanged, this, &MainWindow::refreshStatus);
    connect(m_doc.undoStack(), &QUndoStack::cleanChanged, this, &MainWindow::refreshStatus);
    refreshStatus();
    resize(900, 520);
}

MainWindow::~MainWindow()
{
    BLTHREAD_SetMainThreadDispatcher(nullptr);
    m_previewer->stop();
    if (m_effectDialog)
        delete m_effectDialog;
}

void MainWindow::refreshStatus()
{
    if (m_doc.isEmpty() && m_doc.path().isEmpty()) {
        m_status->setText(tr("No audio open"));
        setWindowTitle(QStringLiteral("vlorfx"));
        return;
    }
    QString text = QStringLiteral("%1 \u2014 %2 Hz, %3 ch, %4")
                       .arg(QFileInfo(m_doc.path()).fileName())
                       .arg(m_doc.sampleRate())
                       .arg(m_doc.channels())
                       .arg(duration(m_doc.frames(), m_doc.sampleRate()));
    if (m_wave->selectionEnd() > m_wave->selectionStart())
        text += tr("   selection %1 to %2")
                    .arg(duration(m_wave->selectionStart(), m_doc.sampleRate()),
                         duration(m_wave->selectionEnd(), m_doc.sampleRate()));
    m_status->setText(text);
    setWindowTitle(QStringLiteral("%1%2 \u2014 vlorfx").arg(QFileInfo(m_doc.path()).fileName(),
                                                             m_doc.isModified() ? QStringLiteral(" *") : QString()));
}

bool MainWindow::openFile(const QString& path)
{
    QString error;
    if (!m_doc.load(path, &error)) {
        QVlorMessageBox::warning(this, tr("Open"), error);
        return false;
    }
    m_wave->setSelection(0, 0);
    // Playback runs at the audio's own rate; effects made from now on follow it.
    QVlorMixer::Mixer::instance().setSampleRate(m_doc.sampleRate());
    // The menu's entries are enabled by the front audio at their build.
    if (QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController())
        controller->rebuildPluginsMenu();
    return true;
}

bool MainWindow::saveFile(const QString& path)
{
    QString error;
    if (!m_doc.save(path, &error)) {
        QVlorMessageBox::warning(this, tr("Save"), error);
        return false;
    }
    return true;
}

void MainWindow::openDialog()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Open Audio"), QString(),
                                                      tr("Audio files (*.wav *.flac *.ogg *.aiff *.aif *.au);;All files (*)"));
    if (!path.isEmpty())
        openFile(path);
}

void MainWindow::saveAs()
{
    const QString path = QFileDialog::getSaveFileName(this, tr("Save Audio As"), m_doc.path());
    if (!path.isEmpty())
        saveFile(path);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_doc.isModified()) {
        const auto answer = QVlorMessageBox::question(this, tr("Quit"), tr("Save the changes to %1?")
                                                                            .arg(QFileInfo(m_doc.path()).fileName()),
                                                      QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel);
        if (answer == QMessageBox::Cancel || (answer == QMessageBox::Save && !saveFile(m_doc.path()))) {
            event->ignore();
            return;
        }
    }
    if (m_effectDialog)
        m_effectDialog->close();
    event->accept();
}

// The library.

QVlorAudio MainWindow::currentAudio()
{
    if (m_doc.channels() <= 0)
        return QVlorAudio();
    return QVlorAudio(m_doc.path(), m_doc.channels(), m_doc.sampleRate(), m_doc.frames(), true);
}

QHash<QString, QAction*> MainWindow::actionsById() const
{
    QHash<QString, QAction*> byId;
    for (auto it = m_ids.constBegin(); it != m_ids.constEnd(); ++it)
        byId.insert(it.value(), it.key());
    return byId;
}

void MainWindow::presentEffectWidget(QVlorFxWidget* widget, QAction*, const QString&, const QString& format)
{
    if (m_effectDialog)
        m_effectDialog->close();
    auto* dialog = new EffectDialog(widget, format, this);
    m_effectDialog = dialog;
    dialog->setPreviewState(false, !widget->effect() || !widget->effect()->isOk()
                                       ? tr("The plugin could not be started for a preview")
                                       : Previewer::unavailableReason(m_doc.sampleRate(), m_doc.channels()));
    connect(dialog, &EffectDialog::previewRequested, this, &MainWindow::togglePreview);
    // The preview plays through the dialog's effect: it ends with the dialog,
    // and when the plugin crashes under it.
    connect(dialog, &QDialog::finished, m_previewer, &Previewer::stop);
    connect(dialog, &QObject::destroyed, m_previewer, &Previewer::stop);
    connect(widget, &QVlorFxWidget::fxCrashed, dialog, [this, dialog] {
        m_previewer->stop();
        dialog->setPreviewState(false, tr("The plugin crashed"));
    });
    connect(m_previewer, &Previewer::finished, dialog, [dialog] { dialog->setPreviewState(false, QString()); });
    connect(dialog, &EffectDialog::applyRequested, this, [this](EffectDialog* d) {
        QString error;
        if (!applyEffect(d->widget(), &error)) {
            if (!error.isEmpty())
                QVlorMessageBox::warning(this, tr("Apply"), error);
            return;
        }
        d->accept();
        d->close();
    });
    dialog->show();
}

void MainWindow::selectedRange(qint64* start, qint64* count) const
{
    *start = m_wave->selectionStart();
    *count = m_wave->selectionEnd() - *start;
    if (*count <= 0) {
        *start = 0;
        *count = m_doc.frames();
    }
}

void MainWindow::togglePreview(EffectDialog* dialog)
{
    if (m_previewer->isPlaying()) {
        m_previewer->stop();
        dialog->setPreviewState(false, QString());
        return;
    }
    if (m_doc.isEmpty())
        return;
    qint64 start = 0, count = 0;
    selectedRange(&start, &count);
    QString error;
    if (!m_previewer->start(m_doc.range(start, count), m_doc.sampleRate(), m_doc.channels(), dialog->widget()->effect(),
                            &error)) {
        dialog->setPreviewState(false, error);
        return;
    }
    dialog->setPreviewState(true, QString());
}

bool MainWindow::applyEffect(QVlorFxWidget* widget, QString* error)
{
    if (m_doc.isEmpty()) {
        *error = tr("There is no audio to apply the effect to");
        return false;
    }
    // Each format's filter; an LV2 dialog's configuration means nothing to the others.
    const char* filter = qobject_cast<QVlorVst3::Widget*>(widget)  ? "VST3 host"
                         : qobject_cast<QVlorLv2::Widget*>(widget) ? "LV2 host"
                                                                  : "VST host";
    const QByteArray config = widget->fxParam(false).toUtf8();
    qint64 start = 0, count = 0;
    selectedRange(&start, &count);
    QTemporaryDir dir;
    const QString in = dir.filePath(QStringLiteral("in.wav"));
    const QString out = dir.filePath(QStringLiteral("out.wav"));
    if (!dir.isValid() || !m_doc.writeRange(in, start, count, error))
        return false;

    RenderJob job;
    int ok = 0;
    char message[1024] = "";
    const QByteArray inPath = QFile::encodeName(in);
    const QByteArray outPath = QFile::encodeName(out);
    // The render runs aside; the window keeps drawing and offers Cancel.
    QThread* worker = QThread::create([&] {
        ok = AUDIO_RenderFileEx(filter, config.constData(), inPath.constData(), outPath.constData(), AUDIO_RENDER_FLOAT,
                                renderProgress, &job, nullptr, message, int(sizeof(message)));
    });
    QProgressDialog progress(tr("Applying %1...").arg(widget->title()), tr("Cancel"), 0, 1000, this);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(800);
    progress.setObjectName(QStringLiteral("applyProgress"));
    QEventLoop loop;
    QTimer tick;
    connect(&tick, &QTimer::timeout, this, [&] {
        progress.setValue(int(job.fraction.load() * 1000));
        if (progress.wasCanceled())
            job.cancel.store(true);
    });
    connect(worker, &QThread::finished, &loop, &QEventLoop::quit);
    tick.start(40);
    worker->start();
    loop.exec();
    worker->wait();
    delete worker;
    progress.reset();
    if (job.cancel.load()) {
        error->clear();
        return false;
    }
    if (!ok) {
        *error = QString::fromUtf8(message);
        return false;
    }
    int channels = 0, rate = 0;
    QVector<float> rendered;
    if (!AudioDocument::readFile(out, &channels, &rate, &rendered, error))
        return false;
    if (channels != m_doc.channels() || rendered.size() / std::max(1, channels) < count) {
        *error = tr("The effect gave %1 channels and %2 frames for %3 and %4")
                     .arg(channels)
                     .arg(rendered.size() / std::max(1, channels))
                     .arg(m_doc.channels())
                     .arg(count);
        return false;
    }
    rendered.resize(qsizetype(count * channels));
    m_doc.replace(start, rendered, tr("Apply %1").arg(widget->title()));
    return true;
}

// Dialogs.

void MainWindow::showPreferences()
{
    auto* dialog = findChild<QDialog*>(QStringLiteral("preferencesDialog"));
    if (!dialog) {
        dialog = new QDialog(this);
        dialog->setObjectName(QStringLiteral("preferencesDialog"));
        dialog->setWindowTitle(tr("Preferences"));
        auto* layout = new QVBoxLayout(dialog);
        QVlorPreferencesTab* page = QVlorPreferencesTabFactory::create(QStringLiteral("plugin_prefs"), dialog);
        if (page)
            layout->addWidget(page, 1);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
        layout->addWidget(buttons);
        connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::hide);
        dialog->resize(760, 620);
    }
    if (auto* page = dialog->findChild<QVlorPreferencesTab*>())
        page->syncPreferences();
    dialog->show();
    dialog->raise();
    // Opened again from the keyboard, it takes the keys too.
    dialog->activateWindow();
}

void MainWindow::showShortcuts()
{
    auto* dialog = new ShortcutsDialog(actionsById(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

void MainWindow::showQuickOpen()
{
    auto* dialog = new QuickOpenDialog(quickEntries(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
    dialog->field()->setFocus();
}

} // namespace vlorfx
