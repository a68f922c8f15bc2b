// The VST2 effect dialog. Every call on the plugin may be the first to find
// its host program dead: from then on the widget is finished and touches
// nothing of the plugin again.
#include "QVlorVst_Widget.h"

#include "QVlorVst3_Manager.h"
#include "QVlorVst_MixerEffect.h"

#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorSetting.h"

#include "audiovst.h"
#include "blnotify.h"

#include <QComboBox>
#include <QDebug>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QSlider>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace QVlorVst {

namespace {

const char* const kFallbackEditorKey = "vloraudio.fx.vst.use_fallback_editor";
constexpr int kSliderSteps = 10000;
// Larger than any screen: a plugin that asks for this has its numbers wrong.
constexpr int kLargestEditor = 16384;

bool saneSize(int width, int height)
{
    return width > 0 && height > 0 && width <= kLargestEditor && height <= kLargestEditor;
}

QString headerStyle() { return QStringLiteral("font-weight: bold;"); }

} // namespace

int __QVlorVstWidgetNotifyCallback(void* user, const BLNotifyEvent* event)
{
    return static_cast<Widget*>(user)->notifyCallbackEvent(event);
}

// ---- a row of the generated editor -----------------------------------------

ParameterWidget::ParameterWidget(MixerEffect* effect, int index, QObject* parent)
    : QObject(parent), m_effect(effect), m_index(index)
{
}

QString ParameterWidget::displayString(const QString& text)
{
    if (text == QLatin1String("-inf"))
        return QStringLiteral("-%1").arg(QChar(0x221E));
    if (text == QLatin1String("+inf"))
        return QStringLiteral("+%1").arg(QChar(0x221E));
    return text;
}

QString ParameterWidget::displayValue(float value, bool* ok) const
{
    if (m_disabled)
        return QString();
    bool scratch = true;
    return m_effect->parameterValueString(m_index, m_maxValue, m_minValue, value, ok ? ok : &scratch);
}

void ParameterWidget::compose(QGridLayout* layout)
{
    m_kind = m_effect->parameterKind(m_index);
    m_minValue = m_effect->parameterMinValue(m_index);
    m_maxValue = m_effect->parameterMaxValue(m_index);
    QWidget* parent = layout->parentWidget();
    const int row = layout->rowCount();

    m_label = new QLabel(m_effect->parameterName(m_index) + QLatin1Char(':'), parent);
    QFont font = m_label->font();
    font.setPointSize(11);
    m_label->setFont(font);
    m_label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    layout->addWidget(m_label, row, 0);

    if (m_kind == 2 || m_kind == 3) {
        const QString grey = QStringLiteral("color: rgb(128, 128, 128);");
        bool ok = true;
        m_minLabel = new QLabel(displayString(m_effect->parameterMinValueString(m_index, &ok)), parent);
        m_minLabel->setStyleSheet(grey);
        m_minLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_minLabel->setMinimumWidth(40);
        m_slider = new QSlider(Qt::Horizontal, parent);
        m_slider->setRange(0, kSliderSteps);
        m_slider->setMinimumWidth(160);
        m_maxLabel = new QLabel(displayString(m_effect->parameterMaxValueString(m_index, &ok)), parent);
        m_maxLabel->setStyleSheet(grey);
        m_maxLabel->setMinimumWidth(40);
        m_lineEdit = new QLineEdit(parent);
        m_lineEdit->setStyleSheet(QStringLiteral("border: 0px none; background-color: %1;")
                                      .arg(parent->palette().color(QPalette::Base).name()));
        // Wide enough for the longest text the plugin shows at the ends of the range.
        const QFontMetrics metrics(m_lineEdit->font());
        bool shown = true;
        const int widest = std::max({metrics.horizontalAdvance(m_minLabel->text()), metrics.horizontalAdvance(m_maxLabel->text()),
                                     metrics.horizontalAdvance(displayValue(m_effect->parameterValue(m_index), &shown))});
        m_lineEdit->setFixedWidth(std::max(48, std::min(widest + 10, 96)));
        m_lineEdit->setMinimumHeight(20);
        m_lineEdit->setMaximumHeight(22);
        m_lineEdit->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_lineEdit->setEnabled(m_kind == 2);
        m_unitLabel = new QLabel(m_effect->parameterLabel(m_index), parent);
        m_unitLabel->setMinimumWidth(40);
        layout->addWidget(m_minLabel, row, 1);
        layout->addWidget(m_slider, row, 2);
        layout->addWidget(m_maxLabel, row, 3);
        layout->addWidget(m_lineEdit, row, 4);
        layout->addWidget(m_unitLabel, row, 5);
        update();
        connect(m_slider, &QSlider::valueChanged, this, &ParameterWidget::onSliderMoved);
        connect(m_lineEdit, &QLineEdit::textEdited, this, &ParameterWidget::onTextEdited);
        connect(m_lineEdit, &QLineEdit::editingFinished, this, &ParameterWidget::onEditingFinished);
    } else if (m_kind == 1) {
        m_comboBox = new QComboBox(parent);
        for (int i = 0; i < m_effect->parameterNumOptions(m_index); ++i)
            m_comboBox->addItem(m_effect->parameterOptionLabel(m_index, i));
        layout->addWidget(m_comboBox, row, 1, 1, 5);
        update();
        connect(m_comboBox, qOverload<int>(&QComboBox::currentIndexChanged), this,
                &ParameterWidget::onCurrentIndexChanged);
    }
}

void ParameterWidget::update()
{
    if (m_disabled)
        return;
    // Controls follow the plugin here; their change signals must not echo it back.
    m_updating = true;
    const float value = m_effect->parameterValue(m_index);
    if (m_slider) {
        m_slider->setValue(int(std::lround(double(value) * kSliderSteps)));
        if (!m_lineEdit->hasFocus())
            m_lineEdit->setText(displayValue(value, nullptr));
    } else if (m_comboBox) {
        bool ok = true;
        const int option = m_comboBox->findText(displayValue(value, &ok));
        if (option >= 0)
            m_comboBox->setCurrentIndex(option);
    }
    m_updating = false;
}

void ParameterWidget::onCrash() { m_disabled = true; }

void ParameterWidget::onSliderMoved(int position)
{
    if (m_updating || m_disabled || (m_kind != 2 && m_kind != 3))
        return;
    const float value = float(position) / float(kSliderSteps);
    m_effect->setParameterValue(m_index, value);
    m_lineEdit->setText(displayValue(value, nullptr));
}

void ParameterWidget::applyText(const QString& text)
{
    if (m_disabled || m_kind != 2 || text.isEmpty())
        return;
    // The plugin reads its own texts best; a plain number is the fallback.
    if (!m_effect->setParameterValueString(m_index, text)) {
        float number = 0;
        if (std::sscanf(text.toUtf8().constData(), "%f", &number) != 1)
            return;
        const float low = std::min(m_minValue, m_maxValue), high = std::max(m_minValue, m_maxValue);
        number = std::min(std::max(number, low), high);
        const float range = m_maxValue - m_minValue;
        m_effect->setParameterValue(m_index, range != 0 ? (number - m_minValue) / range : 0.0f);
    }
    m_updating = true;
    m_slider->setValue(int(std::lround(double(m_effect->parameterValue(m_index)) * kSliderSteps)));
    m_updating = false;
}

void ParameterWidget::onTextEdited(const QString& text) { applyText(text); }

void ParameterWidget::onEditingFinished()
{
    applyText(m_lineEdit->text());
    update();
}

void ParameterWidget::onCurrentIndexChanged(int)
{
    if (m_updating || m_disabled || m_kind != 1)
        return;
    m_effect->setParameterOption(m_index, m_comboBox->currentText());
}

// ---- the widget --------------------------------------------------------------

class Widget::Data {
public:
    ~Data()
    {
        if (QThread::currentThread() != qApp->thread())
            qWarning("******* QVlorVst::Widget::Data: Deleting timer outside mainthread");
    }
    Plugin plugin;
    MixerEffect* effect = nullptr;
    QTimer idleTimer;
    QTimer checkTimer;
    bool composed = false;
    bool hasPluginEditor = false;
    bool crashed = false;
    bool visibleState = false;
    QSize generatedSize;
    qreal pixelRatio = 1.0;
    QWidget* centralWidget = nullptr;
    QList<ParameterWidget*> rows;
};

Widget::Widget(const QVlorAudio& audio, QWidget* parent, Qt::WindowFlags flags)
    : QVlorFxWidget(audio, parent, flags), d(new Data)
{
    d->pixelRatio = devicePixelRatioF();
    d->idleTimer.setInterval(37);
    d->checkTimer.setInterval(200);
    connect(&d->idleTimer, &QTimer::timeout, this, &Widget::sendIdle);
    connect(&d->checkTimer, &QTimer::timeout, this, &Widget::checkPlugin);
    // A plugin's editor paints the whole widget itself.
    setAttribute(Qt::WA_OpaquePaintEvent);
    BLNOTIFY_AddDefaultHandler(__QVlorVstWidgetNotifyCallback, this);
}

Widget::~Widget()
{
    BLNOTIFY_RemoveDefaultHandler(__QVlorVstWidgetNotifyCallback, this);
    d->idleTimer.stop();
    d->checkTimer.stop();
    if (d->effect && !d->crashed && d->visibleState && d->hasPluginEditor)
        closeEditor(d->effect);
    delete d->effect;
    delete d;
}

bool Widget::CanEmbedEditors() { return QGuiApplication::platformName() == QLatin1String("xcb"); }

bool Widget::loadPlugin(const Plugin& plugin)
{
    d->plugin = plugin;
    const QString previous = QVlorVst3::Manager::SetOpeningSentinel(
        QStringLiteral("vst2"), QString::number(plugin.uniqueId()), plugin.filename());
    QVlorMixer::Mixer& mixer = QVlorMixer::Mixer::instance();
    d->effect = new MixerEffect(plugin, mixer.sampleRate(), unsigned(std::max(1, audio().numChannels())));
    d->effect->powerOn(mixer.bufferFrames());
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    if (!d->effect->isOk())
        return false;

    d->hasPluginEditor = d->effect->hasEditor();
    // The fallback switches every plugin to the generated editor, as does a
    // platform that has no windows a plugin could draw into.
    if (d->hasPluginEditor && QVlorSetting::global().getBool(QLatin1String(kFallbackEditorKey), false))
        d->hasPluginEditor = false;
    if (d->hasPluginEditor && !CanEmbedEditors())
        d->hasPluginEditor = false;
    if (d->hasPluginEditor) {
        setAttribute(Qt::WA_NativeWindow);
    } else {
        setAttribute(Qt::WA_OpaquePaintEvent, false);
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
        composeEditor(d->effect);
    }
    return true;
}

void Widget::setVisible(bool visible)
{
    if (d->crashed)
        return;
    if (!d->effect || !d->effect->isOk()) {
        QVlorFxWidget::setVisible(visible);
        return;
    }
    if (visible != d->visibleState) {
        if (visible) {
            // The window must exist before the plugin is given it.
            QVlorFxWidget::setVisible(true);
            if (d->hasPluginEditor)
                openEditor(d->effect);
            d->idleTimer.start();
            d->checkTimer.start();
        } else {
            d->idleTimer.stop();
            d->checkTimer.stop();
            if (d->hasPluginEditor)
                closeEditor(d->effect);
        }
        d->visibleState = visible;
    }
    QVlorFxWidget::setVisible(visible);
}

bool Widget::openEditor(MixerEffect* effect)
{
    if (d->crashed || !effect)
        return false;
    void* window = reinterpret_cast<void*>(winId());
    const QString previous = QVlorVst3::Manager::SetOpeningSentinel(
        QStringLiteral("vst2"), QString::number(d->plugin.uniqueId()), d->plugin.filename());
    bool opened = effect->openEditor(window);
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    // Plugins answer the open as they like; one that gives no size after it
    // has drawn nothing the user could see.
    if (opened && !editorSize(effect).isValid()) {
        effect->closeEditor(window);
        opened = false;
    }
    if (!opened) {
        // A plugin that says it has an editor and cannot open it gets the rows.
        d->hasPluginEditor = false;
        setAttribute(Qt::WA_OpaquePaintEvent, false);
        composeEditor(effect);
        emit fxResized(d->generatedSize.width(), d->generatedSize.height());
        return false;
    }
    const QSize size = editorSize(effect);
    if (size.width() > 0 && size.height() > 0)
        emit fxResized(size.width(), size.height());
    return true;
}

bool Widget::closeEditor(MixerEffect* effect)
{
    if (d->crashed || !effect)
        return false;
    return effect->closeEditor(reinterpret_cast<void*>(winId()));
}

QSize Widget::editorSize(MixerEffect* effect) const
{
    if (d->crashed)
        return QSize(-1, -1);
    if (!d->hasPluginEditor)
        return d->generatedSize;
    const QSize raw = effect ? effect->editorSize() : QSize(-1, -1);
    if (!saneSize(raw.width(), raw.height()))
        return QSize(-1, -1);
    return QSize(int(std::lround(raw.width() / d->pixelRatio)), int(std::lround(raw.height() / d->pixelRatio)));
}

QSize Widget::sizeHint() const
{
    const QSize size = editorSize(d->effect);
    return size.isValid() && !size.isEmpty() ? size : QVlorFxWidget::sizeHint();
}

void Widget::paintEvent(QPaintEvent* event)
{
    if (!d->hasPluginEditor || d->crashed) {
        QVlorFxWidget::paintEvent(event);
        return;
    }
    // Behind the plugin's window, until it has drawn.
    QPainter(this).fillRect(rect(), palette().color(QPalette::Window));
}

int Widget::notifyCallbackEvent(const BLNotifyEvent* event)
{
    if (!event || event->code != AUDIOVST_NOTIFY_EDITOR_RESIZE || !d->effect || !d->effect->isInstance(event->sender))
        return 1;
    const int width = event->a ? *static_cast<const int*>(event->a) : 0;
    const int height = event->b ? *static_cast<const int*>(event->b) : 0;
    if (!saneSize(width, height))
        return 0;
    emit fxResized(int(width / d->pixelRatio), int(height / d->pixelRatio));
    return 0;
}

void Widget::sendIdle()
{
    if (!d->crashed && d->effect)
        d->effect->refresh();
}

void Widget::checkPlugin()
{
    if (!d->effect || d->crashed)
        return;
    if (d->effect->checkState(false))
        return;
    d->checkTimer.stop();
    d->crashed = true;
    for (ParameterWidget* row : d->rows)
        row->onCrash();
    d->effect->checkState(true);
    d->plugin.setNeedRecheck(true);
    QPointer<Widget> alive(this);
    QVlorMessageBox::detailed(this, QMessageBox::Warning, tr("Plugin crashed"),
                              tr("The plugin %1 crashed and will be finalized.").arg(d->effect->name()),
                              tr("Vloraudio was not affected by this crash and will continue running normally."),
                              QMessageBox::Ok);
    if (alive)
        emit fxCrashed();
}

void Widget::composeEditor(MixerEffect* effect)
{
    if (d->composed || !effect)
        return;
    d->composed = true;

    auto* outer = new QVBoxLayout(this);
    outer->setSpacing(4);
    outer->setContentsMargins(12, 12, 12, 12);
    auto header = [this](const QString& caption, const QString& value) {
        auto* row = new QHBoxLayout;
        auto* left = new QLabel(caption, this);
        left->setStyleSheet(headerStyle());
        auto* right = new QLabel(value, this);
        row->addWidget(left);
        row->addStretch(1);
        row->addWidget(right);
        return row;
    };
    outer->addLayout(header(tr("VST Effect:"), effect->name()));
    outer->addLayout(header(tr("Manufacturer:"), effect->vendor()));

    const int count = std::min(effect->numParams(), int(MaxParameterRows));
    if (count > 0) {
        d->centralWidget = new QWidget(this);
        d->centralWidget->setObjectName(QStringLiteral("centralWidget"));
        d->centralWidget->setAttribute(Qt::WA_StyledBackground);
        auto* grid = new QGridLayout(d->centralWidget);
        grid->setColumnStretch(2, 1);
        for (int i = 0; i < count; ++i) {
            auto* row = new ParameterWidget(effect, i, this);
            row->compose(grid);
            d->rows << row;
        }
        const bool light = QVlorApplication::uiMode() == 1;
        const QString background = light ? QStringLiteral("#DEDEDE") : QStringLiteral("#202020");
        const QString border = light ? QStringLiteral("#D2D2D2") : QStringLiteral("#1C1C1C");
        d->centralWidget->setStyleSheet(
            QStringLiteral("QWidget#centralWidget { background-color: %1; border: 1px solid %2; border-radius: 5px; };")
                .arg(background, border));
        outer->addWidget(d->centralWidget);
    }
    outer->addStretch(1);
    d->generatedSize = outer->sizeHint() + QSize(1, 1);
}

void Widget::updateWidgets()
{
    if (d->crashed || !d->composed)
        return;
    for (ParameterWidget* row : d->rows)
        row->update();
    refresh();
}

void Widget::refresh()
{
    if (!d->crashed)
        QWidget::update();
}

QString Widget::uniqId() const
{
    return QStringLiteral("%1.%2").arg(QStringLiteral("vloraudio.fx.vst"), d->effect ? d->effect->hash() : QString());
}

QString Widget::title() const
{
    if (d->crashed)
        return tr("Crashed VST Effect");
    if (d->effect && d->effect->isOk())
        return d->effect->isNative() ? d->effect->name() : tr("%1 (32 bits)").arg(d->effect->name());
    return tr("VST Effect");
}

QString Widget::windowTitle() const
{
    if (d->crashed || !d->effect || !d->effect->isOk())
        return title();
    const QString name = QStringLiteral("VST / %1 / %2").arg(d->effect->vendor(), d->effect->name());
    return d->effect->isNative() ? name : tr("%1 (32 bits)").arg(name);
}

QString Widget::fxName() const { return d->plugin.name().isEmpty() && d->effect ? d->effect->name() : d->plugin.name(); }
qint64 Widget::pluginUniqueId() const { return d->plugin.uniqueId(); }
QString Widget::fxLabel() const { return tr("Applying %1|%1").arg(fxName()); }

QString Widget::fxParam(bool forPreset) const
{
    if (forPreset || !d->effect)
        return QString();
    return QStringLiteral("vsteffect_hash=\"%1\",vsteffect_filename=\"%2\",%3")
        .arg(d->effect->hash(), d->effect->filename(), presetConfig(0, QString()));
}

QString Widget::presetConfig(int, const QString&) const
{
    return d->crashed || !d->effect ? QString() : d->effect->params();
}

bool Widget::setPresetConfig(const QString& name, const QString& config)
{
    if (d->crashed || !d->effect)
        return false;
    d->effect->setProgram(name, config);
    d->effect->refresh();
    updateWidgets();
    return true;
}

void Widget::reset()
{
    if (d->crashed || !d->effect)
        return;
    d->effect->reset();
    d->effect->refresh();
    updateWidgets();
}

QStringList Widget::builtinPresets() const
{
    QStringList names;
    if (d->crashed || !d->effect)
        return names;
    for (int i = 0; i < d->effect->numPrograms(); ++i)
        names << d->effect->program(i).first;
    return names;
}

QVlorMixer::Effect* Widget::effect() const { return d->effect; }
bool Widget::isQWidget() const { return true; }

void Widget::setBypass(bool bypass)
{
    if (!d->crashed && d->effect)
        d->effect->setBypass(bypass);
}

bool Widget::isCrashed() const { return d->crashed; }
bool Widget::hasPluginEditor() const { return d->hasPluginEditor; }
QList<ParameterWidget*> Widget::parameterWidgets() const { return d->rows; }

} // namespace QVlorVst
