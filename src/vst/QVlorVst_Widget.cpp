// The VST2 effect dialog. Every call on the plugin may be the first to find
// its host program dead: from then on the widget is finished and touches
// nothing of the plugin again.
#include "QVlorPresetTargets.h"
#include "QVlorPluginFormat.h"
#include "QVlorVst_Widget.h"

#include "QVlorVst_MixerEffect.h"
#include "QVlorDisplayText_p.h"
#include "QVlorPanelText_p.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"

#include "QVlorDialogs.h"
#include "QVlorRemoteFault_p.h"
#include "QVlorSetting.h"

#include "audiovst.h"
#include "blnotify.h"

#include <QDebug>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace QVlorVst {

namespace {

// Larger than any screen: a plugin that asks for this has its numbers wrong.
constexpr int kLargestEditor = 16384;

bool saneSize(int width, int height)
{
    return width > 0 && height > 0 && width <= kLargestEditor && height <= kLargestEditor;
}


} // namespace

int __QVlorVstWidgetNotifyCallback(void* user, const BLNotifyEvent* event)
{
    return static_cast<Widget*>(user)->notifyCallbackEvent(event);
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
    bool applyingColours = false;
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

bool Widget::CanEmbedEditors() { return QVlorAudioPlugins::CanEmbedEditors(); }

bool Widget::loadPlugin(const Plugin& plugin)
{
    d->plugin = plugin;
    const QString previous = QVlorAudioPlugins::SetOpeningSentinel(
        QVlorAudioPlugins::Vst2Token(), QString::number(plugin.uniqueId()), plugin.filename());
    QVlorMixer::Mixer& mixer = QVlorMixer::Mixer::instance();
    d->effect = new MixerEffect(plugin, mixer.sampleRate(), unsigned(std::max(1, audio().numChannels())));
    d->effect->powerOn(mixer.bufferFrames());
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
    if (!d->effect->isOk())
        return false;

    d->hasPluginEditor = d->effect->hasEditor() && QVlorAudioPlugins::PluginEditorsWanted();
    if (d->hasPluginEditor) {
        setAttribute(Qt::WA_NativeWindow);
        QVlorAudioPlugins::NameOwnEditor(this, title());
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
    const QString previous = QVlorAudioPlugins::SetOpeningSentinel(
        QVlorAudioPlugins::Vst2Token(), QString::number(d->plugin.uniqueId()), d->plugin.filename());
    bool opened = effect->openEditor(window);
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
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
    // A plugin whose host program another plugin took down is no suspect:
    // it is not checked again.
    const bool itself = d->effect->crashedItself();
    if (itself) {
        d->effect->checkState(true);
        d->plugin.setNeedRecheck(true);
        // Its VST3 and LV2 forms run apart from now on.
        QVlorAudioPlugins::MarkCrashed(QVlorAudioPlugins::Vst2Token(), QString::number(d->plugin.uniqueId()));
    }
    QPointer<Widget> alive(this);
    QVlorMessageBox::detailed(
        this, QMessageBox::Warning, tr("Plugin crashed"),
        itself ? tr("The plugin %1 crashed and will be finalized.").arg(d->effect->name())
               : tr("The plugin %1 stopped: another plugin crashed the host program they shared.")
                     .arg(d->effect->name()),
        tr("Vloraudio was not affected by this crash and will continue running normally."), QMessageBox::Ok);
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
    outer->addLayout(PanelHeaderRow(this, tr("VST Effect:"), CutForDisplay(effect->name())));
    outer->addLayout(PanelHeaderRow(this, tr("Manufacturer:"), CutForDisplay(effect->vendor())));

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
        outer->addWidget(d->centralWidget);
    }
    outer->addStretch(1);
    applyColours();
    d->generatedSize = outer->sizeHint() + QSize(1, 1);
}

// Every text of the rows reads on its ground in the theme of the moment: the
// colours come from the palette, and follow it when it changes.
void Widget::applyColours()
{
    if (!d->centralWidget || d->applyingColours)
        return;
    d->applyingColours = true;
    const QColor ground = StylePanelGround(d->centralWidget, palette());
    for (ParameterWidget* row : d->rows)
        row->applyColours(palette(), ground);
    d->applyingColours = false;
}

void Widget::changeEvent(QEvent* event)
{
    QVlorFxWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColours();
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
    return QStringLiteral("%1.%2").arg(QLatin1String(QVlorAudioPlugins::kVst2Format.effectSettingsPrefix),
                                       d->effect ? d->effect->hash() : QString());
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

std::unique_ptr<QVlorAudioPlugins::PresetTarget> Widget::createPresetTarget() const
{
    if (!d->effect || !d->effect->record() || !d->effect->configInstance())
        return nullptr;
    return std::make_unique<QVlorAudioPlugins::Vst2PresetTarget>(
        d->effect->record(), d->effect->configInstance(),
        QVlorAudioPlugins::Vst2RowIdentity(d->plugin.uniqueId(), d->plugin.hash(), d->plugin.pluginId()));
}

} // namespace QVlorVst
