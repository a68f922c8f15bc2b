// The VST3 effect dialog. The plugin may call us from any thread; its events
// are posted to the widget's and handled there.
#include "QVlorVst3_Widget.h"

#include "QVlorVst3_Manager.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst_Widget.h"

#include "QVlorSetting.h"

#include "vst3engine.h"

#include <QGridLayout>
#include <QHash>
#include <QLabel>
#include <QResizeEvent>
#include <QScrollArea>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

namespace QVlorVst3 {

namespace {

constexpr int kSliderSteps = 1000;

void __QVlorVst3WidgetEventCallback(void* user, Vst3HostEvent event, int32_t a, int32_t b)
{
    static_cast<Widget*>(user)->postHostEvent(int(event), int(a), int(b));
}

} // namespace

// ---- a row of the generic panel ----------------------------------------------

ParameterWidget::ParameterWidget(_Vst3Instance* instance, QGridLayout* layout, int row, quint32 id,
                                 const QString& title, const QString& units, int, QObject* parent)
    : QObject(parent), m_instance(instance), m_id(id), m_units(units)
{
    QWidget* owner = layout->parentWidget();
    m_label = new QLabel(title.endsWith(QLatin1Char(':')) ? title : title + QLatin1Char(':'), owner);
    // A stepped parameter gets the same continuous slider: the plugin rounds.
    m_slider = new QSlider(Qt::Horizontal, owner);
    m_slider->setRange(0, kSliderSteps);
    m_slider->setMinimumWidth(160);
    m_valueLabel = new QLabel(owner);
    m_valueLabel->setMinimumWidth(64);
    m_valueLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_valueLabel->setStyleSheet(QStringLiteral("color: rgb(128, 128, 128);"));
    m_slider->setValue(int(std::lround(VLORVST3_GetParamNormalized(instance, id) * kSliderSteps)));
    updateDisplay();
    layout->addWidget(m_label, row, 0);
    layout->addWidget(m_slider, row, 1);
    layout->addWidget(m_valueLabel, row, 2);
    connect(m_slider, &QSlider::valueChanged, this, &ParameterWidget::onSliderValueChanged);
}

void ParameterWidget::updateDisplay()
{
    const double value = VLORVST3_GetParamNormalized(m_instance, m_id);
    char text[128] = {0};
    QString shown = VLORVST3_GetParamDisplay(m_instance, m_id, value, text, int(sizeof(text)))
                        ? QString::fromUtf8(text)
                        : QString::number(value, 'f', 3);
    if (!m_units.isEmpty())
        shown += QLatin1Char(' ') + m_units;
    m_valueLabel->setText(shown);
}

void ParameterWidget::update()
{
    m_updating = true;
    m_slider->setValue(int(std::lround(VLORVST3_GetParamNormalized(m_instance, m_id) * kSliderSteps)));
    m_updating = false;
    updateDisplay();
}

void ParameterWidget::onSliderValueChanged(int value)
{
    // A change that came from the plugin is not the user's edit.
    if (m_updating)
        return;
    VLORVST3_SetParamNormalized(m_instance, m_id, double(value) / double(kSliderSteps));
    updateDisplay();
    emit edited();
}

// ---- the widget --------------------------------------------------------------

class Widget::Data {
public:
    Plugin plugin;
    MixerEffect* effect = nullptr;
    _Vst3Instance* instance = nullptr;
    bool editorShown = false;
    bool hasEditor = false;
    int editorWidth = 0;
    int editorHeight = 0;
    QList<ParameterWidget*> parameters;
    QHash<quint32, ParameterWidget*> parametersById;
    // The plugin's timers and file handlers run from our loop while its view is open.
    QTimer idleTimer;
};

Widget::Widget(const QVlorAudio& audio, QWidget* parent, Qt::WindowFlags flags)
    : QVlorFxWidget(audio, parent, flags), d(new Data)
{
    d->idleTimer.setInterval(16);
    connect(&d->idleTimer, &QTimer::timeout, this, [this] { VLORVST3_EditorIdle(d->instance); });
}

Widget::~Widget()
{
    d->idleTimer.stop();
    if (d->instance) {
        if (d->editorShown)
            closeEditor();
        VLORVST3_SetEventCallback(d->instance, nullptr, nullptr);
    }
    delete d->effect;
    delete d;
}

bool Widget::loadPlugin(const Plugin& plugin)
{
    d->plugin = plugin;
    const QString previous =
        QVlorVst3::Manager::SetOpeningSentinel(QStringLiteral("vst3"), plugin.uid(), plugin.name());
    QVlorMixer::Mixer& mixer = QVlorMixer::Mixer::instance();
    d->effect = new MixerEffect(plugin, mixer.sampleRate(), unsigned(std::max(1, audio().numChannels())));
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    if (!d->effect->isOk())
        return false;
    d->effect->powerOn(mixer.bufferFrames());
    d->instance = d->effect->instance();
    VLORVST3_SetEventCallback(d->instance, __QVlorVst3WidgetEventCallback, this);
    // Without windows a plugin could draw into, the generic panel stands in;
    // the user's switch to generated editors holds for both formats.
    d->hasEditor = VLORVST3_HasEditor(d->instance) == 1 && QVlorVst::Widget::CanEmbedEditors() &&
                   !QVlorSetting::global().getBool(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), false);
    if (d->hasEditor) {
        setAttribute(Qt::WA_NativeWindow);
        int32_t width = 0, height = 0;
        if (VLORVST3_EditorGetSize(d->instance, &width, &height) == 1 && width > 0 && height > 0) {
            d->editorWidth = width;
            d->editorHeight = height;
        }
    } else {
        buildGenericUi();
    }
    return d->effect->isOk();
}

bool Widget::openEditor()
{
    if (!d->hasEditor)
        return false;
    const QString previous =
        QVlorVst3::Manager::SetOpeningSentinel(QStringLiteral("vst3"), d->plugin.uid(), d->plugin.name());
    const int opened = VLORVST3_EditorOpen(d->instance, uint64_t(winId()));
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    if (opened != 1) {
        // A view that does not open leaves the user the generic panel.
        d->hasEditor = false;
        buildGenericUi();
        return false;
    }
    d->idleTimer.start();
    int32_t width = 0, height = 0;
    if (VLORVST3_EditorGetSize(d->instance, &width, &height) == 1 && width > 0 && height > 0) {
        d->editorWidth = width;
        d->editorHeight = height;
        resize(width, height);
        emit fxResized(width, height);
    }
    return true;
}

bool Widget::closeEditor()
{
    if (!d->hasEditor)
        return false;
    d->idleTimer.stop();
    return VLORVST3_EditorClose(d->instance) == 1;
}

void Widget::setVisible(bool on)
{
    if (d->effect && d->effect->isOk() && on != d->editorShown) {
        if (on) {
            // The native window must exist before the plugin is given it.
            QVlorFxWidget::setVisible(true);
            openEditor();
        } else {
            closeEditor();
        }
        d->editorShown = on;
    }
    QVlorFxWidget::setVisible(on);
}

void Widget::postHostEvent(int event, int a, int b)
{
    QMetaObject::invokeMethod(this, "onHostEvent", Qt::QueuedConnection, Q_ARG(int, event), Q_ARG(int, a),
                              Q_ARG(int, b));
}

void Widget::onHostEvent(int event, int a, int b)
{
    switch (event) {
    case kVst3EventParamChanged:
        if (a == -1) {
            refresh();
        } else if (ParameterWidget* row = d->parametersById.value(quint32(a))) {
            row->update();
        }
        break;
    case kVst3EventRestart:
        refresh();
        break;
    case kVst3EventResize:
        if (d->hasEditor && a > 0 && b > 0 && a <= 16384 && b <= 16384) {
            startResizing(PluginResizing);
            d->editorWidth = a;
            d->editorHeight = b;
            resize(a, b);
            VLORVST3_EditorOnSize(d->instance, a, b);
            finishResizing();
        }
        break;
    default:
        break;
    }
}

void Widget::resizeEvent(QResizeEvent* event)
{
    QVlorFxWidget::resizeEvent(event);
    // A size the plugin asked for is not sent back to it.
    if (d->hasEditor && d->editorShown && isResizing(HostResizing) && VLORVST3_EditorCanResize(d->instance))
        VLORVST3_EditorOnSize(d->instance, event->size().width(), event->size().height());
}

void Widget::onParamEdited() { emit fxConfigChanged(); }

void Widget::buildGenericUi()
{
    if (layout())
        return;
    auto* container = new QWidget;
    auto* grid = new QGridLayout(container);
    grid->setVerticalSpacing(6);
    grid->setColumnStretch(0, 0);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(2, 0);
    const int count = VLORVST3_GetNumParams(d->instance);
    int row = 0;
    for (int i = 0; i < count; ++i) {
        Vst3ParamInfo info;
        if (VLORVST3_GetParamInfo(d->instance, i, &info) != 1 || info.isReadOnly || info.isHidden)
            continue;
        auto* widget = new ParameterWidget(d->instance, grid, row++, info.id, QString::fromUtf8(info.title),
                                           QString::fromUtf8(info.units), info.stepCount, this);
        connect(widget, &ParameterWidget::edited, this, &Widget::onParamEdited);
        d->parameters << widget;
        d->parametersById.insert(info.id, widget);
    }
    if (row == 0)
        grid->addWidget(new QLabel(tr("This effect has no parameters to show."), container), row++, 0, 1, 3);
    grid->setRowStretch(row, 1);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(container);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(12, 12, 12, 12);
    outer->addWidget(scroll);
}

QSize Widget::sizeHint() const
{
    if (d->editorWidth > 0 && d->editorHeight > 0)
        return QSize(d->editorWidth, d->editorHeight);
    return QSize(460, 240);
}

QString Widget::fxName() const { return QStringLiteral("VST3"); }

QString Widget::title() const { return d->effect ? d->plugin.name() : tr("VST3 Effect"); }

QString Widget::windowTitle() const
{
    return d->effect ? QStringLiteral("VST3 / %1 / %2").arg(d->plugin.vendor(), d->plugin.name()) : tr("VST3 Effect");
}

QString Widget::fxLabel() const { return tr("Applying %1|%1").arg(title()); }
QString Widget::uniqId() const { return QStringLiteral("vloraudio.fx.vst3.") + d->plugin.uid().toLower(); }
QString Widget::pluginUid() const { return d->plugin.uid(); }

QString Widget::fxParam(bool forPreset) const
{
    if (forPreset)
        return QString();
    return QStringLiteral("vst3effect_uid=\"%1\",vst3effect_path=\"%2\",%3")
        .arg(d->plugin.uid(), d->plugin.path(), presetConfig(0, QString()));
}

QString Widget::presetConfig(int, const QString&) const
{
    return d->effect && d->effect->isOk() ? d->effect->params() : QString();
}

bool Widget::setPresetConfig(const QString&, const QString& config)
{
    if (!d->effect || !d->effect->isOk())
        return false;
    const bool taken = d->effect->setParams(config);
    refresh();
    return taken;
}

void Widget::reset()
{
    if (!d->effect)
        return;
    d->effect->reset();
    refresh();
}

void Widget::setBypass(bool on)
{
    if (d->effect)
        d->effect->setBypass(on);
}

void Widget::refresh()
{
    for (ParameterWidget* row : d->parameters)
        row->update();
}

QVlorMixer::Effect* Widget::effect() const { return d->effect; }
bool Widget::hasEditor() const { return d->hasEditor; }
QList<ParameterWidget*> Widget::parameterWidgets() const { return d->parameters; }

} // namespace QVlorVst3
