// The LV2 effect dialog. The plugin's own editor lives in a native child
// window and is driven from the widget's event loop; what it asks for is
// posted to the widget and handled there.
#include "QVlorPresetTargets.h"
#include "QVlorLv2_Widget.h"

#include "QVlorLv2_MixerEffect.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"
#include "QVlorDisplayText_p.h"
#include "QVlorPanelText_p.h"
#include "QVlorRemoteFault_p.h"

#include "lv2engine.h"

#include <QDebug>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QResizeEvent>
#include <QScrollArea>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include <xcb/xcb.h>

#include <algorithm>

namespace QVlorLv2 {

namespace {

void uiCallback(void* user, int event, int a, int b) { static_cast<Widget*>(user)->postUiEvent(event, a, b); }

// Many editors never ask for a size: their window, made in ours, has it.
QSize windowSize(quint64 window)
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection || !window)
        return QSize();
    xcb_get_geometry_reply_t* reply =
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, xcb_drawable_t(window)), nullptr);
    const QSize size = reply ? QSize(reply->width, reply->height) : QSize();
    free(reply);
    return size;
}

} // namespace

class Widget::Data {
public:
    QString uri, name, maker, error;
    MixerEffect* effect = nullptr;
    _Lv2Instance* instance = nullptr;
    bool editorShown = false;
    bool editorOpen = false;
    bool hasEditor = false;
    QSize editorSize;
    QList<ParameterRow*> rows;
    // The editor draws and hears the plugin from our loop while it is open.
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
    connect(&d->idleTimer, &QTimer::timeout, this, &Widget::onIdle);
}

Widget::~Widget()
{
    d->idleTimer.stop();
    closeEditor();
    delete d->effect;
    delete d;
}

bool Widget::loadPlugin(const QString& uri)
{
    d->uri = uri;
    Lv2PluginRecord record;
    if (!VLORLV2_Initialize() || VLORLV2_DescribePlugin(uri.toUtf8().constData(), &record) != 1) {
        d->error = tr("no LV2 plugin has this URI");
        return false;
    }
    d->name = QString::fromUtf8(record.name);
    d->maker = QString::fromUtf8(record.maker);
    const QString previous = QVlorAudioPlugins::SetOpeningSentinel(QVlorAudioPlugins::Lv2Token(), uri, d->name);
    QVlorMixer::Mixer& mixer = QVlorMixer::Mixer::instance();
    d->effect = new MixerEffect(uri, mixer.sampleRate(), unsigned(std::max(1, audio().numChannels())));
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
    if (!d->effect->isOk()) {
        d->error = d->effect->error();
        return false;
    }
    d->instance = d->effect->instance();
    if (VLORLV2_GetRemoteState(d->instance) != kLv2Local) {
        _Lv2Instance* instance = d->instance;
        d->watch = new QVlorRemoteFaultWatch(
            this, d->name, QVlorAudioPlugins::Lv2Token(), uri, [instance] { return VLORLV2_GetRemoteState(instance); },
            [instance] { VLORLV2_Terminate(instance); });
        connect(d->watch, &QVlorRemoteFaultWatch::died, this, [this] {
            d->idleTimer.stop();
            d->editorOpen = false;
            if (d->panel)
                d->panel->setEnabled(false);
            emit fxCrashed();
        });
    }
    // Without windows an editor could draw into, the generic panel stands in;
    // the user's switch to generated editors holds for every format.
    d->hasEditor = VLORLV2_HasUi(d->instance) == 1 && QVlorAudioPlugins::PluginEditorsWanted();
    if (d->hasEditor) {
        setAttribute(Qt::WA_NativeWindow);
        QVlorAudioPlugins::NameOwnEditor(this, title());
    } else {
        buildGenericUi();
    }
    return true;
}

QString Widget::error() const { return d->error; }

bool Widget::openEditor()
{
    if (!d->hasEditor || d->editorOpen)
        return false;
    const QString previous = QVlorAudioPlugins::SetOpeningSentinel(QVlorAudioPlugins::Lv2Token(), d->uri, d->name);
    char error[512] = "";
    const int opened = VLORLV2_UiOpen(d->instance, quint64(winId()), uiCallback, this, error, int(sizeof(error)));
    QVlorAudioPlugins::ClearOpeningSentinel(previous);
    if (opened != 1) {
        // An editor that does not open leaves the user the generic panel.
        qWarning().noquote() << "QVlorLv2::Widget:" << d->uri << error;
        d->hasEditor = false;
        buildGenericUi();
        return false;
    }
    d->editorOpen = true;
    d->idleTimer.start();
    int width = 0, height = 0;
    const QSize size = VLORLV2_UiGetSize(d->instance, &width, &height) == 1
                           ? QSize(width, height)
                           : windowSize(VLORLV2_UiGetWidget(d->instance));
    if (size.width() > 0 && size.height() > 0 && size.width() <= 16384 && size.height() <= 16384) {
        d->editorSize = size;
        resize(size);
        emit fxResized(size.width(), size.height());
    }
    return true;
}

bool Widget::closeEditor()
{
    if (!d->editorOpen)
        return false;
    d->idleTimer.stop();
    d->editorOpen = false;
    return VLORLV2_UiClose(d->instance) == 1;
}

void Widget::onIdle()
{
    // A host program gone is told at once, not at the watch's next look.
    if (d->watch) {
        d->watch->check();
        if (d->watch->isDead())
            return;
    }
    // An editor whose own close button was pressed is closed; the dialog stays.
    if (VLORLV2_UiIdle(d->instance) != 1)
        closeEditor();
}

void Widget::setVisible(bool on)
{
    if (d->effect && d->effect->isOk() && on != d->editorShown) {
        if (on) {
            // The native window must exist before the editor is given it.
            QVlorFxWidget::setVisible(true);
            openEditor();
        } else {
            closeEditor();
        }
        d->editorShown = on;
    }
    QVlorFxWidget::setVisible(on);
}

void Widget::postUiEvent(int event, int a, int b)
{
    QMetaObject::invokeMethod(this, "onUiEvent", Qt::QueuedConnection, Q_ARG(int, event), Q_ARG(int, a),
                              Q_ARG(int, b));
}

void Widget::onUiEvent(int event, int a, int b)
{
    if (event == kLv2UiParamEdited) {
        for (ParameterRow* row : d->rows)
            if (row->index() == a)
                row->update();
        emit fxConfigChanged();
    } else if (event == kLv2UiResize && d->editorOpen && a > 0 && b > 0 && a <= 16384 && b <= 16384 &&
               QSize(a, b) != d->editorSize) {
        startResizing(PluginResizing);
        d->editorSize = QSize(a, b);
        resize(a, b);
        finishResizing();
        emit fxResized(a, b);
    }
}

void Widget::resizeEvent(QResizeEvent* event)
{
    QVlorFxWidget::resizeEvent(event);
    // A size the editor asked for is not sent back to it.
    if (d->editorOpen && isResizing(HostResizing))
        VLORLV2_UiSetSize(d->instance, event->size().width(), event->size().height());
}

void Widget::buildGenericUi()
{
    if (layout() || !d->instance)
        return;
    auto* container = new QWidget;
    container->setObjectName(QStringLiteral("centralWidget"));
    container->setAttribute(Qt::WA_StyledBackground);
    d->panel = container;
    auto* grid = new QGridLayout(container);
    grid->setVerticalSpacing(6);
    grid->setColumnStretch(1, 1);
    const int count = VLORLV2_GetNumParams(d->instance);
    int row = 0;
    for (int i = 0; i < count; ++i) {
        Lv2ParamInfo info;
        if (VLORLV2_GetParamInfo(d->instance, i, &info) != 1)
            continue;
        auto* r = new ParameterRow(d->instance, i, info, grid, row++, this);
        connect(r, &ParameterRow::edited, this, &QVlorFxWidget::fxConfigChanged);
        d->rows << r;
    }
    if (row == 0)
        grid->addWidget(new QLabel(tr("This effect has no parameters to show."), container), row++, 0, 1, 4);
    grid->setRowStretch(row, 1);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    // The rows take the panel's width; only a long list scrolls.
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(container);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(12, 12, 12, 12);
    outer->setSpacing(4);
    outer->addLayout(PanelHeaderRow(this, tr("LV2 Effect:"), CutForDisplay(d->name)));
    outer->addLayout(PanelHeaderRow(this, tr("Manufacturer:"), CutForDisplay(d->maker)));
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
    for (ParameterRow* row : d->rows)
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
    if (d->editorSize.isValid())
        return d->editorSize;
    // Room for a dozen rows before the list scrolls.
    return QSize(560, std::clamp(110 + 30 * int(d->rows.size()), 240, 480));
}

QString Widget::fxName() const { return QStringLiteral("LV2"); }
QString Widget::title() const { return d->effect ? d->name : tr("LV2 Effect"); }

QString Widget::windowTitle() const
{
    if (!d->effect)
        return tr("LV2 Effect");
    return d->maker.isEmpty() ? QStringLiteral("LV2 / %1").arg(d->name)
                              : QStringLiteral("LV2 / %1 / %2").arg(d->maker, d->name);
}

QString Widget::fxLabel() const { return tr("Applying %1|%1").arg(title()); }

// A URI's slashes would make groups of a settings key: it is kept encoded.
QString Widget::SettingsRoot(const QString& uri)
{
    return QLatin1String(QVlorAudioPlugins::kLv2Format.effectSettingsPrefix) + QLatin1Char('.') +
           QString::fromLatin1(QUrl::toPercentEncoding(uri));
}

QString Widget::uniqId() const { return SettingsRoot(d->uri); }

QString Widget::uri() const { return d->uri; }

QString Widget::fxParam(bool forPreset) const
{
    if (forPreset || !d->effect)
        return QString();
    return QStringLiteral("lv2effect_uri=\"%1\",%2").arg(d->uri, presetConfig(0, QString()));
}

QString Widget::presetConfig(int, const QString&) const
{
    if (!d->effect || !d->effect->isOk())
        return QString();
    return QStringLiteral("lv2effect_state=\"%1\"").arg(QString::fromLatin1(d->effect->params().toUtf8().toBase64()));
}

bool Widget::setPresetConfig(const QString&, const QString& config)
{
    if (!d->effect || !d->effect->isOk())
        return false;
    const bool taken = d->effect->reconfigure(config);
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
    for (ParameterRow* row : d->rows)
        row->update();
}

QVlorMixer::Effect* Widget::effect() const { return d->effect; }
bool Widget::hasEditor() const { return d->hasEditor; }
bool Widget::editorOpen() const { return d->editorOpen; }
QList<ParameterRow*> Widget::parameterRows() const { return d->rows; }

std::unique_ptr<QVlorAudioPlugins::PresetTarget> Widget::createPresetTarget() const
{
    if (!d->instance)
        return nullptr;
    return std::make_unique<QVlorAudioPlugins::Lv2PresetTarget>(d->instance, d->uri, d->name);
}

} // namespace QVlorLv2
