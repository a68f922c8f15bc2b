// A VST2 plugin in the mixer: every operation is one call of the engine on
// the plugin's config instance, which the power calls make and end.
#include "QVlorVst_MixerEffect.h"

#include "QVlorSamples_p.h"
#include "QVlorUtils.h"

#include "audiovst.h"
#include "../engine/channelsplit_p.h"

#include <QDebug>

#include <cmath>
#include <cstdio>
#include <vector>

namespace QVlorVst {

class MixerEffect::Data {
public:
    Plugin plugin;
    _VSTEFFECT* effect = nullptr;
    _VSTINSTANCE* instance = nullptr; // the config instance: what the dialog shows and sets
    bool toldNonFinite = false;
    // A block failed: the host program is gone or stuck. The effect is not
    // asked again, so that a dead host costs the track nothing more.
    bool dead = false;
    // When the plugin has fewer inputs or outputs than the track has
    // channels: one more instance a channel beyond the first, following the
    // config instance's parameters.
    std::vector<_VSTINSTANCE*> more;
    ChannelSplitter splitter;
    std::vector<float> values; // the config instance's, as last copied
    int framesSinceFollow = 0;

    bool openMore(int count, int blockSize, int sampleRate);
    void die(MixerEffect* q);
    void closeMore();
    void followConfigInstance(int frames, int sampleRate);
};

bool MixerEffect::Data::openMore(int count, int blockSize, int sampleRate)
{
    for (int k = 0; k < count; ++k) {
        _VSTINSTANCE* i = AUDIOVST_CreateInstance(effect);
        if (!i)
            return false;
        more.push_back(i);
        if (!AUDIOVST_ActivateEngine(i, blockSize, sampleRate) || !AUDIOVST_StartEngine(i))
            return false;
    }
    values.clear();
    framesSinceFollow = 0;
    followConfigInstance(0, sampleRate);
    return true;
}

void MixerEffect::Data::die(MixerEffect* q)
{
    if (dead)
        return;
    dead = true;
    const int blame = AUDIOVST_GetCrashBlame(instance);
    if (blame == 0)
        qWarning().noquote() << q->name()
                             << "stopped: another plugin crashed the host program they shared; the track plays on "
                                "without it";
    else
        qWarning().noquote() << q->name() << (blame == 1 ? "crashed" : "stopped answering")
                             << "; the track plays on without it";
    emit q->died();
}

void MixerEffect::Data::closeMore()
{
    for (_VSTINSTANCE* i : more) {
        AUDIOVST_StopEngine(i);
        AUDIOVST_DestroyInstance(i);
    }
    more.clear();
}

// The dialog sets the config instance (its panel, the plugin's own editor,
// programs): the others take what changed, ten times a second at most, as
// each look costs a round trip to a host program.
void MixerEffect::Data::followConfigInstance(int frames, int sampleRate)
{
    framesSinceFollow += frames;
    if (!values.empty() && framesSinceFollow < sampleRate / 10)
        return;
    framesSinceFollow = 0;
    const int n = AUDIOVST_GetNumParams(effect);
    values.resize(size_t(n > 0 ? n : 0), -1.0f);
    for (int p = 0; p < n; ++p) {
        const float v = AUDIOVST_GetParameter(instance, p);
        if (v == values[size_t(p)])
            continue;
        values[size_t(p)] = v;
        for (_VSTINSTANCE* i : more)
            AUDIOVST_SetParameter(i, p, v);
    }
}

namespace {

QString text(const char* s) { return s ? QString::fromUtf8(s) : QString(); }

} // namespace

MixerEffect::MixerEffect(const Plugin& plugin, int sampleRate, unsigned int channels)
    : QVlorMixer::Effect(sampleRate, channels), d(new Data)
{
    // The copy shares the record: a failure marked here shows in the catalog's copy too.
    d->plugin = plugin;
    d->effect = AUDIOVST_FindPluginByUniqId(int(plugin.uniqueId()));
    if (!d->effect)
        d->effect = AUDIOVST_FindPluginEx(plugin.filename().toUtf8().constData(), int(plugin.uniqueId()), false);
    if (!d->effect)
        d->plugin.setFailed(true);
}

MixerEffect::~MixerEffect()
{
    if (d->instance)
        powerOff();
    delete d;
}

_VSTEFFECT* MixerEffect::record() const { return d->effect; }
_VSTINSTANCE* MixerEffect::configInstance() const { return d->instance; }

bool MixerEffect::isOk() const { return d->instance != nullptr; }
bool MixerEffect::isInstance(const void* instance) const { return instance && instance == d->instance; }

bool MixerEffect::powerOn(int blockSize)
{
    if (d->instance) {
        qWarning() << "Effect already on!";
        return false;
    }
    if (!d->effect)
        return false;
    const ChannelPlan plan =
        PlanChannels(int(numChannels()), AUDIOVST_GetNumInputs(d->effect), AUDIOVST_GetNumOutputs(d->effect));
    if (plan.instances == 0) {
        qWarning().noquote() << name() << "cannot serve the track:"
                             << QString::fromStdString(WhyNoChannelPlan(AUDIOVST_GetNumInputs(d->effect),
                                                                        AUDIOVST_GetNumOutputs(d->effect)));
        return false;
    }
    d->instance = AUDIOVST_CreateConfigInstance(d->effect);
    if (!d->instance)
        return false;
    d->dead = false;
    if (AUDIOVST_ActivateEngine(d->instance, blockSize, sampleRate()) && AUDIOVST_StartEngine(d->instance) &&
        d->openMore(plan.instances - 1, blockSize, sampleRate()))
        return true;
    d->closeMore();
    AUDIOVST_DestroyConfigInstance(&d->instance);
    d->instance = nullptr;
    return false;
}

bool MixerEffect::powerOff()
{
    if (!d->instance) {
        qWarning() << "Effect already off!";
        return false;
    }
    d->closeMore();
    // Ending the instance takes the place of deactivating it.
    const bool stopped = AUDIOVST_StopEngine(d->instance) != 0;
    const bool destroyed = AUDIOVST_DestroyConfigInstance(&d->instance) != 0;
    d->instance = nullptr;
    return stopped && destroyed;
}

int MixerEffect::process(float* input, float* output, int, int frames)
{
    if (d->dead || !d->instance)
        return 0;
    const int channels = int(numChannels());
    bool processed;
    if (d->more.empty()) {
        processed = AUDIOVST_ProcessSamples(d->instance, input, output, channels, frames) != 0;
    } else {
        d->followConfigInstance(frames, sampleRate());
        processed = d->splitter.process(input, output, channels, frames, [this](int k, const float* mono, float* monoOut, int n) {
            _VSTINSTANCE* i = k == 0 ? d->instance : d->more[size_t(k - 1)];
            return AUDIOVST_ProcessSamples(i, mono, monoOut, 1, n) != 0;
        });
    }
    if (!processed) {
        d->die(this);
        return 0;
    }
    SilenceNonFiniteBlock(output, frames * int(numChannels()), name(), &d->toldNonFinite);
    return frames;
}

int MixerEffect::joinable(const QList<QVlorMixer::Effect*>& following) const
{
    if (d->dead || !d->instance || !d->more.empty())
        return 0;
    int n = 0;
    for (QVlorMixer::Effect* e : following) {
        auto* next = qobject_cast<MixerEffect*>(e);
        if (!next || next->d->dead || !next->d->instance || !next->d->more.empty() ||
            next->numChannels() != numChannels() || !AUDIOVST_SameHostProgram(d->instance, next->d->instance))
            break;
        ++n;
    }
    return n;
}

int MixerEffect::processJoined(const QList<QVlorMixer::Effect*>& effects, float* input, float* output, int,
                               int frames)
{
    std::vector<_VSTINSTANCE*> instances;
    for (QVlorMixer::Effect* e : effects)
        instances.push_back(static_cast<MixerEffect*>(e)->d->instance);
    if (!AUDIOVST_ProcessChain(instances.data(), int(instances.size()), input, output, int(numChannels()), frames)) {
        // The host program is gone for all of them: each is told.
        for (QVlorMixer::Effect* e : effects)
            static_cast<MixerEffect*>(e)->d->die(static_cast<MixerEffect*>(e));
        return 0;
    }
    SilenceNonFiniteBlock(output, frames * int(numChannels()), name(), &d->toldNonFinite);
    return frames;
}

bool MixerEffect::crashedItself() const { return AUDIOVST_GetCrashBlame(d->instance) != 0; }

void MixerEffect::reset()
{
    const float* defaults = AUDIOVST_GetDefaultProgram(d->effect);
    if (!defaults)
        return;
    for (int i = 0; i < numParams(); ++i)
        AUDIOVST_SetParameter(d->instance, i, defaults[i]);
}

int MixerEffect::tailSize() const { return AUDIOVST_GetTailSize(d->instance); }

QString MixerEffect::name() const { return d->effect ? text(AUDIOVST_GetEffectName(d->effect)) : QStringLiteral("Invalid"); }
QString MixerEffect::vendor() const { return d->effect ? text(AUDIOVST_GetVendorString(d->effect)) : QStringLiteral("Invalid"); }
QString MixerEffect::hash() const { return d->effect ? text(AUDIOVST_GetHash(d->effect)) : QString(); }
QString MixerEffect::filename() const { return d->effect ? text(AUDIOVST_GetFileName(d->effect)) : QString(); }
qint64 MixerEffect::uniqueId() const { return d->plugin.uniqueId(); }
bool MixerEffect::isNative() const { return AUDIOVST_IsNative(d->effect); }
int MixerEffect::numParams() const { return AUDIOVST_GetNumParams(d->effect); }
int MixerEffect::numPrograms() const { return AUDIOVST_GetNumBuiltInPrograms(d->effect); }

bool MixerEffect::setBypass(bool bypass)
{
    for (_VSTINSTANCE* i : d->more)
        AUDIOVST_SetBypass(i, bypass ? 1 : 0);
    return AUDIOVST_SetBypass(d->instance, bypass ? 1 : 0) != 0;
}
bool MixerEffect::hasEditor() const { return AUDIOVST_HasEditor(d->instance) != 0; }
bool MixerEffect::openEditor(void* window) { return hasEditor() && AUDIOVST_EditorOpen(d->instance, window); }
bool MixerEffect::closeEditor(void* window) { return hasEditor() && AUDIOVST_EditorClose(d->instance, window); }
bool MixerEffect::refresh() { return hasEditor() && AUDIOVST_EditorIdle(d->instance); }

QSize MixerEffect::editorSize() const
{
    int width = 0, height = 0;
    if (!AUDIOVST_EditorGetSize(d->instance, &width, &height))
        return QSize(-1, -1);
    return QSize(width, height);
}

bool MixerEffect::checkState(bool force)
{
    if (!d->instance)
        return false;
    return force ? AUDIOVST_ForceRecheck(d->effect) != 0 : AUDIOVST_CheckState(d->instance) != 0;
}

QString MixerEffect::parameterName(int index) const { return text(AUDIOVST_GetParameterName(d->effect, index)); }
QString MixerEffect::parameterLabel(int index) const { return text(AUDIOVST_GetParameterLabel(d->effect, index)); }

int MixerEffect::parameterKind(int index) const
{
    const int kind = AUDIOVST_GetParameterKind(d->effect, index);
    return kind >= 1 && kind <= 3 ? kind : 0;
}

QString MixerEffect::parameterMinValueString(int index, bool* ok) const
{
    return parameterValueString(index, parameterMaxValue(index), parameterMinValue(index), 0.0f, ok);
}

QString MixerEffect::parameterMaxValueString(int index, bool* ok) const
{
    return parameterValueString(index, parameterMaxValue(index), parameterMinValue(index), 1.0f, ok);
}

float MixerEffect::parameterValue(int index) const { return AUDIOVST_GetParameter(d->instance, index); }
float MixerEffect::parameterMinValue(int index) const { return AUDIOVST_GetParameterMinValue(d->effect, index); }
float MixerEffect::parameterMaxValue(int index) const { return AUDIOVST_GetParameterMaxValue(d->effect, index); }
bool MixerEffect::setParameterValue(int index, float value) { return AUDIOVST_SetParameter(d->instance, index, value) != 0; }

bool MixerEffect::setParameterValueString(int index, const QString& text)
{
    return AUDIOVST_SetStringParameter(d->instance, index, text.toUtf8().constData()) != 0;
}

bool MixerEffect::setParameterOption(int index, const QString& label)
{
    return AUDIOVST_SetParameterOption(d->instance, index, label.toUtf8().constData()) != 0;
}

int MixerEffect::parameterNumOptions(int index) const
{
    return parameterKind(index) == 1 ? AUDIOVST_GetNumParamOptions(d->effect, index) : 0;
}

QString MixerEffect::parameterOptionLabel(int index, int option) const
{
    return parameterKind(index) == 1 ? text(AUDIOVST_GetParamOptionLabel(d->effect, index, option)) : QString();
}

QString MixerEffect::parameterValueString(int index, float maxValue, float minValue, float value, bool* ok) const
{
    char buffer[32];
    if (!AUDIOVST_GetParameterDisplayString(d->instance, index, buffer, sizeof(buffer), value))
        return QString();
    const QString shown = QString::fromUtf8(buffer);
    float number = 0;
    if (std::sscanf(buffer, "%f", &number) != 1) {
        *ok = false;
        return shown;
    }
    if (number > 999999.0f) {
        *ok = false;
        return QStringLiteral("+%1").arg(QChar(0x221E));
    }
    if (number < -999999.0f) {
        *ok = false;
        return QStringLiteral("-%1").arg(QChar(0x221E));
    }
    // A display that strays from the line through the range is no number to type into.
    const float low = std::min(minValue, maxValue), high = std::max(minValue, maxValue);
    const float clamped = std::min(std::max(number, low), high);
    const float mapped = maxValue != minValue ? (clamped - minValue) / (maxValue - minValue) : 0.0f;
    if (std::fabs(mapped - value) > 0.1f)
        *ok = false;
    return shown;
}

QString MixerEffect::params() const
{
    if (!d->instance)
        return QString();
    QList<float> values(numParams());
    if (values.isEmpty() || !AUDIOVST_GetParameters(d->instance, values.data(), int(values.size())))
        return QString();
    return QStringLiteral("params=[%1]").arg(QVlorUtils::vec2str(values));
}

void MixerEffect::setParams(const QString& text)
{
    const QList<float> values = QVlor::getFloatVectorFromString(text, QStringLiteral("params"));
    if (!values.isEmpty() && values.size() == numParams())
        AUDIOVST_SetParameters(d->instance, values.constData(), int(values.size()));
}

QPair<QString, QString> MixerEffect::program(int index) const
{
    const float* values = AUDIOVST_GetBuiltInProgramParams(d->effect, index);
    if (index < 0 || index >= numPrograms() || !values)
        return {};
    QList<float> list;
    for (int i = 0; i < numParams(); ++i)
        list << values[i];
    return {text(AUDIOVST_GetProgramName(d->effect, index)), QStringLiteral("params=[%1]").arg(QVlorUtils::vec2str(list))};
}

void MixerEffect::setProgram(const QString& name, const QString& config)
{
    const QList<float> values = QVlor::getFloatVectorFromString(config, QStringLiteral("params"));
    if (values.size() != numParams())
        return;
    const int index = AUDIOVST_GetProgramIndex(d->effect, name.toUtf8().constData());
    if (index < 0) {
        AUDIOVST_SetParameters(d->instance, values.constData(), int(values.size()));
        return;
    }
    AUDIOVST_SetProgram(d->instance, index);
    QList<float> now(numParams());
    const bool read = AUDIOVST_GetParameters(d->instance, now.data(), int(now.size())) != 0;
    // A stored preset wins over the plugin's own program of that name.
    if (!read || now != values)
        AUDIOVST_SetParameters(d->instance, values.constData(), int(values.size()));
}

} // namespace QVlorVst
