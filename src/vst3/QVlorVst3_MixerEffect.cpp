// A VST3 class in the mixer, in real-time mode; the owner starts and stops
// its engine through the power calls.
#include "QVlorVst3_MixerEffect.h"

#include "QVlorRemoteFault_p.h"
#include "QVlorSamples_p.h"
#include "vst3engine.h"
#include "vst3track_p.h"

#include <QDebug>

#include <atomic>

namespace QVlorVst3 {

class MixerEffect::Data {
public:
    Plugin plugin;
    Vst3Track track; // one instance, or one a channel
    _Vst3Instance* instance = nullptr; // the track's first: what the dialog shows
    bool toldNonFinite = false;
    // A block failed in a host program that is gone or stuck: told once,
    // and not asked again, so that it costs the track nothing more.
    std::atomic<bool> dead{false};
};

MixerEffect::MixerEffect(const Plugin& plugin, int sampleRate, unsigned int channels)
    : QVlorMixer::Effect(sampleRate, channels), d(new Data)
{
    d->plugin = plugin;
    // Started once to learn the buses the plugin takes; the owner's power calls start it for good.
    std::string why;
    if (!d->track.open(plugin.path().toUtf8().constData(), plugin.uid().toUtf8().constData(), sampleRate,
                       int(channels), false, &why)) {
        qWarning().noquote() << "QVlorVst3::MixerEffect:" << plugin.name() << QString::fromStdString(why);
        return;
    }
    d->track.stop();
    d->instance = d->track.first();
}

MixerEffect::~MixerEffect()
{
    delete d;
}

bool MixerEffect::isOk() const { return d->instance != nullptr; }

int MixerEffect::process(float* input, float* output, int channels, int frames)
{
    if (!d->instance || d->dead.load())
        return 0;
    if (!d->track.process(input, output, channels, frames)) {
        const int state = VLORVST3_GetRemoteState(d->instance);
        if (state >= kVst3RemoteCrashed && !d->dead.exchange(true)) {
            qWarning().noquote() << RemoteDeathText(d->plugin.name(), state);
            emit died();
        }
        return 0;
    }
    SilenceNonFiniteBlock(output, frames * channels, d->plugin.name(), &d->toldNonFinite);
    return frames;
}

void MixerEffect::reset() { d->track.reset(); }

// An endless tail counts as the engine says it: ten seconds.
int MixerEffect::tailSize() const { return int(VLORVST3_GetTailTime(d->instance) * sampleRate()); }

// The engine's block size is fixed and process cuts its input to fit it.
bool MixerEffect::powerOn(int) { return d->track.start(); }
bool MixerEffect::powerOff() { return d->track.stop(); }
bool MixerEffect::setBypass(bool on) { return d->track.setBypass(on); }
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
    return d->track.setConfig(text.toLatin1().constData(), true);
}

bool MixerEffect::reconfigure(const QString& config)
{
    return d->track.setConfig(config.toLatin1().constData(), false);
}

} // namespace QVlorVst3
