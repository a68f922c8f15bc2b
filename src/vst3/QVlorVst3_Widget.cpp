// The VST3 effect dialog. The plugin may call us from any thread; its events
// are posted to the widget's and handled there.
#include "QVlorPresetTargets.h"
#include "QVlorVst3_Widget.h"

#include "QVlorAccessible.h"

#include "QVlorVst3_Manager.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"
#include "QVlorDisplayText_p.h"
#include "QVlorPanelText_p.h"
#include "QVlorRemoteFault_p.h"

#include "QVlorSetting.h"

#include "vst3engine.h"

#include <QGridLayout>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QResizeEvent>
#include <QScrollArea>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
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
                                 const QString& title, const QString& units, int stepCount, QObject* parent)
    : QObject(parent), m_instance(instance), m_id(id), m_units(units)
{
    QWidget* owner = layout->parentWidget();
    m_label = new QLabel(title.endsWith(QLatin1Char(':')) ? title : title + QLatin1Char(':'), owner);
    // A stepped parameter gets the same continuous slider: the plugin rounds.
    m_slider = new QSlider(Qt::Horizontal, owner);
    QVlorAccessible::setValueText(m_slider, QString());
    m_slider->setRange(0, kSliderSteps);
    m_slider->setMinimumWidth(160);
    m_slider->setAccessibleName(title);
    // A stepped parameter shows each of its values with the decimals its step
    // needs ("0.50" beside "0.75"); a continuous one keeps no zero behind.
    // The plugin's texts at both ends of the range, asked once.
    const QString lowest = displayText(0.0), highest = displayText(1.0);
    double low = 0, high = 0;
    if (stepCount > 0 && LeadingNumber(lowest, &low) && LeadingNumber(highest, &high))
        m_keepDecimals = DecimalsForStep((high - low) / stepCount);
    m_valueField = new QLineEdit(owner);
    // As wide as those texts, not wider: the slider takes the room.
    const QFontMetrics metrics(m_valueField->font());
    const int widest = std::max(metrics.horizontalAdvance(TidyNumberText(lowest, m_keepDecimals)),
                                metrics.horizontalAdvance(TidyNumberText(highest, m_keepDecimals)));
    m_valueField->setFixedWidth(std::clamp(widest + 16, 56, 120));
    m_valueField->setFrame(false);
    m_valueField->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_valueField->setAccessibleName(title);
    m_valueField->setToolTip(tr("Type a value and press Enter"));
    m_unitsLabel = new QLabel(units, owner);
    m_slider->setValue(int(std::lround(VLORVST3_GetParamNormalized(instance, id) * kSliderSteps)));
    QVlorAccessible::followValueText(m_slider, m_valueField, units);
    updateDisplay();
    layout->addWidget(m_label, row, 0);
    layout->addWidget(m_slider, row, 1);
    layout->addWidget(m_valueField, row, 2);
    layout->addWidget(m_unitsLabel, row, 3);
    connect(m_slider, &QSlider::valueChanged, this, &ParameterWidget::onSliderValueChanged);
    connect(m_valueField, &QLineEdit::editingFinished, this, &ParameterWidget::onValueTyped);
}

QString ParameterWidget::displayText(double normalized) const
{
    char text[128] = {0};
    if (!VLORVST3_GetParamDisplay(m_instance, m_id, normalized, text, int(sizeof(text))))
        return QString::number(normalized, 'f', 3);
    return QString::fromUtf8(text);
}

void ParameterWidget::updateDisplay()
{
    m_valueField->setText(TidyNumberText(displayText(VLORVST3_GetParamNormalized(m_instance, m_id)), m_keepDecimals));
    m_valueField->setCursorPosition(0);
}

void ParameterWidget::applyColours(const QPalette& palette, const QColor& ground)
{
    m_unitsLabel->setStyleSheet(
        QStringLiteral("color: %1;").arg(QuietTextColor(palette.color(QPalette::WindowText), ground).name()));
    m_valueField->setStyleSheet(QStringLiteral("background-color: %1; color: %2;")
                                    .arg(palette.color(QPalette::Base).name(), palette.color(QPalette::Text).name()));
}

// The slider to the plugin's value, without counting it as an edit.
void ParameterWidget::followPlugin()
{
    m_updating = true;
    m_slider->setValue(int(std::lround(VLORVST3_GetParamNormalized(m_instance, m_id) * kSliderSteps)));
    m_updating = false;
}

void ParameterWidget::update()
{
    followPlugin();
    if (!m_valueField->hasFocus())
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

void ParameterWidget::onValueTyped()
{
    const QString typed = m_valueField->text().trimmed();
    if (!m_valueField->isModified() || typed.isEmpty()) {
        updateDisplay();
        return;
    }
    m_valueField->setModified(false);
    // The plugin reads the text itself, units and all; some take the number
    // only, so the units shown beside the field may be left off.
    bool taken = VLORVST3_SetParamByString(m_instance, m_id, typed.toUtf8().constData()) == 1;
    if (!taken && !m_units.isEmpty() && typed.endsWith(m_units)) {
        const QString bare = typed.chopped(m_units.size()).trimmed();
        taken = !bare.isEmpty() && VLORVST3_SetParamByString(m_instance, m_id, bare.toUtf8().constData()) == 1;
    }
    // What the plugin did not take leaves its value, and the field shows it again.
    followPlugin();
    updateDisplay();
    if (taken)
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
    QWidget* panel = nullptr;
    bool applyingColours = false;
    // Set when the plugin runs in a host program of its own.
    QVlorRemoteFaultWatch* watch = nullptr;
};

Widget::Widget(const QVlorAudio& audio, QWidget* parent, Qt::WindowFlags flags)
    : QVlorFxWidget(audio, parent, flags), d(new Data)
{
    d->idleTimer.setInterval(16);
    connect(&d->idleTimer, &QTimer::timeout, this, [this] {
        VLORVST3_EditorIdle(d->instance);
        // A host program gone is told at once, not at the watch's next look.
        if (d->watch)
            d->watch->check();
    });
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
        QVlorAudioPlugins::SetOpeningSentinel(QVlorAudioPlugins::Vst3Token(), plugin.uid(), plugin.name());
    QVlorMixer::Mixer& mixer = QVlorMixer::Mixer::instance();
    d->effect = new MixerEffect(plugin, mixer.sampleRate(), unsigned(std::max(1, audio().numChannels())));
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
    if (!d->effect->isOk())
        return false;
    d->effect->powerOn(mixer.bufferFrames());
    d->instance = d->effect->instance();
    if (VLORVST3_GetRemoteState(d->instance) != kVst3Local) {
        _Vst3Instance* instance = d->instance;
        d->watch = new QVlorRemoteFaultWatch(
            this, plugin.name(), QVlorAudioPlugins::Vst3Token(), plugin.uid(),
            [instance] { return VLORVST3_GetRemoteState(instance); }, [instance] { VLORVST3_Terminate(instance); });
        connect(d->watch, &QVlorRemoteFaultWatch::died, this, [this] {
            d->idleTimer.stop();
            if (d->panel)
                d->panel->setEnabled(false);
            emit fxCrashed();
        });
    }
    VLORVST3_SetEventCallback(d->instance, __QVlorVst3WidgetEventCallback, this);
    // Without windows a plugin could draw into, the generic panel stands in;
    // the user's switch to generated editors holds for both formats.
    d->hasEditor = VLORVST3_HasEditor(d->instance) == 1 && QVlorAudioPlugins::PluginEditorsWanted();
    if (d->hasEditor) {
        setAttribute(Qt::WA_NativeWindow);
        QVlorAudioPlugins::NameOwnEditor(this, title());
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
        QVlorAudioPlugins::SetOpeningSentinel(QVlorAudioPlugins::Vst3Token(), d->plugin.uid(), d->plugin.name());
    const int opened = VLORVST3_EditorOpen(d->instance, uint64_t(winId()));
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
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
    container->setObjectName(QStringLiteral("centralWidget"));
    container->setAttribute(Qt::WA_StyledBackground);
    d->panel = container;
    auto* grid = new QGridLayout(container);
    grid->setVerticalSpacing(6);
    grid->setColumnStretch(0, 0);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(2, 0);
    grid->setColumnStretch(3, 0);
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
        grid->addWidget(new QLabel(tr("This effect has no parameters to show."), container), row++, 0, 1, 4);
    grid->setRowStretch(row, 1);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(container);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(12, 12, 12, 12);
    outer->setSpacing(4);
    outer->addLayout(PanelHeaderRow(this, tr("VST3 Effect:"), CutForDisplay(d->plugin.name())));
    outer->addLayout(PanelHeaderRow(this, tr("Manufacturer:"), CutForDisplay(d->plugin.vendor())));
    outer->addWidget(scroll);
    applyColours();
}

// Every text of the panel reads on its ground in the theme of the moment.
void Widget::applyColours()
{
    if (!d->panel || d->applyingColours)
        return;
    d->applyingColours = true;
    const QColor ground = StylePanelGround(d->panel, palette());
    for (ParameterWidget* row : d->parameters)
        row->applyColours(palette(), ground);
    d->applyingColours = false;
}

void Widget::changeEvent(QEvent* event)
{
    QVlorFxWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColours();
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
QString Widget::uniqId() const
{
    return QLatin1String(QVlorAudioPlugins::kVst3Format.effectSettingsPrefix) + QLatin1Char('.') +
           d->plugin.uid().toLower();
}
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

std::unique_ptr<QVlorAudioPlugins::PresetTarget> Widget::createPresetTarget() const
{
    if (!d->instance)
        return nullptr;
    return std::make_unique<QVlorAudioPlugins::Vst3PresetTarget>(d->instance, d->plugin.uid(), d->plugin.name(),
                                                                 d->plugin.vendor());
}

} // namespace QVlorVst3
