// The window's own views and small dialogs: the waveform with its selection,
// Quick Open and the shortcuts.
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
#include <QKeyEvent>
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

WaveformView::WaveformView(AudioDocument* doc, QWidget* parent) : QWidget(parent), m_doc(doc)
{
    setMinimumSize(320, 160);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Waveform"));
    connect(this, &WaveformView::selectionChanged, this, &WaveformView::describeSelection);
    connect(doc, &AudioDocument::changed, this, [this] {
        const qint64 frames = m_doc->frames();
        if (m_end > frames || m_start > frames)
            setSelection(0, 0);
        describeSelection();
        update();
    });
    describeSelection();
}

namespace {

QString secondsText(qint64 frames, int rate)
{
    const double seconds = rate > 0 ? double(frames) / rate : 0.0;
    return QStringLiteral("%1:%2").arg(int(seconds) / 60).arg(std::fmod(seconds, 60.0), 6, 'f', 3, QLatin1Char('0'));
}

} // namespace

// The selection in words, for a screen reader: what the eye reads off the shading.
void WaveformView::describeSelection()
{
    const int rate = m_doc->sampleRate();
    QString text;
    if (m_doc->frames() <= 0)
        text = tr("No audio open");
    else if (m_end > m_start)
        text = tr("Selection from %1 to %2, length %3 seconds")
                   .arg(secondsText(m_start, rate), secondsText(m_end, rate))
                   .arg(rate > 0 ? double(m_end - m_start) / rate : 0.0, 0, 'f', 3);
    else
        text = tr("No selection, cursor at %1: effects apply to the whole audio").arg(secondsText(m_start, rate));
    setAccessibleDescription(text);
}

// The keyboard's selection: arrows move the cursor a tenth of a second (Ctrl:
// a second), Home and End to the ends; with Shift they stretch the selection
// from where it was anchored.
void WaveformView::keyPressEvent(QKeyEvent* event)
{
    const qint64 frames = m_doc->frames();
    const qint64 step = std::max<qint64>(1, m_doc->sampleRate() / ((event->modifiers() & Qt::ControlModifier) ? 1 : 10));
    const qint64 caret = m_end > m_start && m_caretAtStart ? m_start : m_end;
    qint64 to = caret;
    switch (event->key()) {
    case Qt::Key_Left:
        to = caret - step;
        break;
    case Qt::Key_Right:
        to = caret + step;
        break;
    case Qt::Key_Home:
        to = 0;
        break;
    case Qt::Key_End:
        to = frames;
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    to = std::clamp<qint64>(to, 0, frames);
    if (!(event->modifiers() & Qt::ShiftModifier) || m_end <= m_start)
        m_anchor = (event->modifiers() & Qt::ShiftModifier) ? caret : to;
    m_caretAtStart = to < m_anchor;
    setSelection(m_anchor, to);
    event->accept();
}

void WaveformView::setSelection(qint64 start, qint64 end)
{
    const qint64 frames = m_doc->frames();
    start = std::clamp<qint64>(start, 0, frames);
    end = std::clamp<qint64>(end, 0, frames);
    if (start > end)
        std::swap(start, end);
    if (start == m_start && end == m_end)
        return;
    m_start = start;
    m_end = end;
    update();
    emit selectionChanged();
}

qint64 WaveformView::frameAt(int x) const
{
    const qint64 frames = m_doc->frames();
    if (width() <= 0)
        return 0;
    return std::clamp<qint64>(qint64(double(x) / width() * double(frames) + 0.5), 0, frames);
}

int WaveformView::xOf(qint64 frame) const
{
    const qint64 frames = m_doc->frames();
    return frames > 0 ? int(double(frame) / double(frames) * width()) : 0;
}

void WaveformView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    const QPalette pal = palette();
    p.fillRect(rect(), pal.color(QPalette::Base));
    const int channels = m_doc->channels();
    const qint64 frames = m_doc->frames();
    if (channels <= 0 || frames <= 0) {
        p.setPen(pal.color(QPalette::PlaceholderText));
        p.drawText(rect(), Qt::AlignCenter, tr("Open an audio file (File > Open...)"));
        return;
    }
    if (m_end > m_start)
        p.fillRect(QRect(QPoint(xOf(m_start), 0), QPoint(xOf(m_end), height())),
                   QColor(pal.color(QPalette::Highlight).red(), pal.color(QPalette::Highlight).green(),
                          pal.color(QPalette::Highlight).blue(), 70));
    const float* s = m_doc->samples().constData();
    const double lane = double(height()) / channels;
    const QColor wave = pal.color(QPalette::Highlight);
    for (int c = 0; c < channels; ++c) {
        const double mid = lane * (c + 0.5);
        p.setPen(pal.color(QPalette::Mid));
        p.drawLine(QPointF(0, mid), QPointF(width(), mid));
        p.setPen(wave);
        for (int x = 0; x < width(); ++x) {
            const qint64 from = frameAt(x);
            const qint64 to = std::max(from + 1, frameAt(x + 1));
            float lo = 0, hi = 0;
            for (qint64 f = from; f < to && f < frames; ++f) {
                const float v = s[f * channels + c];
                lo = std::min(lo, v);
                hi = std::max(hi, v);
            }
            const double half = lane * 0.45;
            p.drawLine(QPointF(x + 0.5, mid - std::clamp(hi, -1.0f, 1.0f) * half),
                       QPointF(x + 0.5, mid - std::clamp(lo, -1.0f, 1.0f) * half));
        }
    }
    if (hasFocus()) {
        // Where the keys act: the cursor, and a frame round the view.
        p.setPen(QPen(pal.color(QPalette::Text), 1));
        const int caret = xOf(m_end > m_start && m_caretAtStart ? m_start : m_end);
        p.drawLine(caret, 0, caret, height());
        p.setPen(QPen(pal.color(QPalette::Highlight), 2));
        p.setBrush(Qt::NoBrush);
        p.drawRect(QRectF(rect()).adjusted(1, 1, -1, -1));
    }
}

void WaveformView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_anchor = frameAt(event->position().toPoint().x());
    m_caretAtStart = false;
    setSelection(m_anchor, m_anchor);
}

void WaveformView::mouseMoveEvent(QMouseEvent* event)
{
    if (event->buttons() & Qt::LeftButton) {
        const qint64 at = frameAt(event->position().toPoint().x());
        m_caretAtStart = at < m_anchor;
        setSelection(m_anchor, at);
    }
}

// The effect dialog.

QuickOpenDialog::QuickOpenDialog(const QList<MainWindow::QuickEntry>& entries, QWidget* parent)
    : QDialog(parent), m_entries(entries), m_field(new QLineEdit(this)), m_list(new QListWidget(this))
{
    setObjectName(QStringLiteral("quickOpenDialog"));
    setWindowTitle(tr("Quick Open"));
    std::sort(m_entries.begin(), m_entries.end(), [](const MainWindow::QuickEntry& a, const MainWindow::QuickEntry& b) {
        return QString::localeAwareCompare(a.title, b.title) < 0;
    });
    auto* layout = new QVBoxLayout(this);
    m_field->setPlaceholderText(tr("Type a plugin, a vendor or a format"));
    m_field->setAccessibleName(tr("Find a plugin"));
    m_list->setAccessibleName(tr("Plugins found"));
    layout->addWidget(m_field);
    layout->addWidget(m_list, 1);
    resize(460, 360);
    connect(m_field, &QLineEdit::textChanged, this, &QuickOpenDialog::narrow);
    connect(m_field, &QLineEdit::returnPressed, this, &QuickOpenDialog::openCurrent);
    connect(m_list, &QListWidget::itemActivated, this, &QuickOpenDialog::openCurrent);
    narrow(QString());
}

void QuickOpenDialog::narrow(const QString& text)
{
    m_list->clear();
    const QStringList words = text.toLower().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (int i = 0; i < m_entries.size(); ++i) {
        const MainWindow::QuickEntry& e = m_entries.at(i);
        const QString hay = (e.title + QLatin1Char(' ') + e.description).toLower();
        if (!std::all_of(words.begin(), words.end(), [&hay](const QString& w) { return hay.contains(w); }))
            continue;
        auto* item = new QListWidgetItem(e.title, m_list);
        item->setToolTip(e.description);
        item->setData(Qt::AccessibleDescriptionRole, e.description);
        item->setData(Qt::UserRole, i);
        item->setFlags(e.action->isEnabled() ? item->flags() : item->flags() & ~Qt::ItemIsEnabled);
    }
    m_list->setCurrentRow(0);
}

void QuickOpenDialog::openCurrent()
{
    QListWidgetItem* item = m_list->currentItem();
    if (!item)
        return;
    QAction* action = m_entries.value(item->data(Qt::UserRole).toInt()).action;
    close();
    if (action && action->isEnabled())
        action->trigger();
}

ShortcutsDialog::ShortcutsDialog(const QHash<QString, QAction*>& actions, QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("shortcutsDialog"));
    setWindowTitle(tr("Shortcuts"));
    auto* layout = new QVBoxLayout(this);
    auto* table = new QTableWidget(int(actions.size()), 2, this);
    table->setObjectName(QStringLiteral("shortcutsTable"));
    table->setHorizontalHeaderLabels({tr("Command"), tr("Keys")});
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->verticalHeader()->hide();
    QStringList ids = actions.keys();
    std::sort(ids.begin(), ids.end(), [&actions](const QString& a, const QString& b) {
        return QString::localeAwareCompare(actions.value(a)->text(), actions.value(b)->text()) < 0;
    });
    QList<QKeySequenceEdit*> edits;
    for (int row = 0; row < ids.size(); ++row) {
        QAction* action = actions.value(ids.at(row));
        auto* name = new QTableWidgetItem(action->text());
        name->setToolTip(ids.at(row));
        name->setData(Qt::UserRole, ids.at(row));
        name->setFlags(Qt::ItemIsEnabled);
        table->setItem(row, 0, name);
        auto* edit = new QKeySequenceEdit(action->shortcut(), table);
        edit->setObjectName(ids.at(row));
        table->setCellWidget(row, 1, edit);
        edits << edit;
    }
    layout->addWidget(table, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, this, [this, actions, ids, edits] {
        for (int row = 0; row < ids.size(); ++row) {
            QAction* action = actions.value(ids.at(row));
            if (action && edits.at(row)->keySequence() != action->shortcut())
                bind(parentWidget(), action, ids.at(row), edits.at(row)->keySequence());
        }
        accept();
    });
    resize(560, 480);
}

void ShortcutsDialog::bind(QWidget* window, QAction* action, const QString& id, const QKeySequence& keys)
{
    action->setShortcut(keys);
    if (window && !keys.isEmpty())
        window->addAction(action);
    const QString key = QVlorAudioPlugins::ShortcutSettingKey(id);
    if (keys.isEmpty())
        QVlorSetting::global().remove(key);
    else
        QVlorSetting::global().change(key, keys.toString());
}

} // namespace vlorfx
