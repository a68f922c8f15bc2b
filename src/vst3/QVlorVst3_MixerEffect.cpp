// A VST3 class in the mixer, in real-time mode; the owner starts and stops
// its engine through the power calls.
#include "QVlorVst3_MixerEffect.h"

#include "QVlorSamples_p.h"
#include "vst3engine.h"

#include <QDebug>

namespace QVlorVst3 {

class MixerEffect::Data {
public:
    Plugin plugin;
    _Vst3Instance* instance = nullptr;
    bool toldNonFinite = false;
};

MixerEffect::MixerEffect(const Plugin& plugin, int sampleRate, unsigned int channels)
    : QVlorMixer::Effect(sampleRate, channels), d(new Data)
{
    d->plugin = plugin;
    d->instance = VLORVST3_CreateInstance(plugin.path().toUtf8().constData(), plugin.uid().toUtf8().constData());
    if (!d->instance)
        return;
    if (!VLORVST3_SetAudioFormat(d->instance, sampleRate, int(channels))) {
        qWarning().noquote() << "QVlorVst3::MixerEffect: SetAudioFormat failed for" << plugin.name();
        VLORVST3_DestroyInstance(d->instance);
        d->instance = nullptr;
        return;
    }
    VLORVST3_SetOffline(d->instance, 0);
}

MixerEffect::~MixerEffect()
{
    if (d->instance) {
        VLORVST3_StopEngine(d->instance);
        VLORVST3_DestroyInstance(d->instance);
    }
    delete d;
}

bool MixerEffect::isOk() const { return d->instance != nullptr; }

int MixerEffect::process(float* input, float* output, int channels, int frames)
{
    if (!VLORVST3_ProcessAudio(d->instance, input, output, channels, frames))
        return 0;
    SilenceNonFiniteBlock(output, frames * channels, d->plugin.name(), &d->toldNonFinite);
    return frames;
}

void MixerEffect::reset() { VLORVST3_Reset(d->instance); }

// An endless tail counts as the engine says it: ten seconds.
int MixerEffect::tailSize() const { return int(VLORVST3_GetTailTime(d->instance) * sampleRate()); }

// The engine's block size is fixed and process cuts its input to fit it.
bool MixerEffect::powerOn(int) { return VLORVST3_StartEngine(d->instance) != 0; }
bool MixerEffect::powerOff() { return VLORVST3_StopEngine(d->instance) != 0; }
bool MixerEffect::setBypass(bool on) { return VLORVST3_SetBypass(d->instance, on ? 1 : 0) != 0; }
_Vst3Instance* MixerEffect::instance() const { return d->instance; }
Plugin MixerEffect::plugin() const { return d->plugin; }

QString MixerEffect::params() const
{
    char* config = VLORVST3_GetConfig(d->instance);
    const QString text = config ? QString::fromLatin1(config) : QString();
    VLORVST3_FreeString(config);
    return text;
}

bool MixerEffect::setParams(const QString& text)
{
    return VLORVST3_SetConfigEx(d->instance, text.toLatin1().constData(), true) != 0;
}

bool MixerEffect::reconfigure(const QString& config)
{
    return VLORVST3_SetConfigEx(d->instance, config.toLatin1().constData(), false) != 0;
}

} // namespace QVlorVst3
