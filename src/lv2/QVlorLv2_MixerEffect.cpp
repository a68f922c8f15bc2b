#include "QVlorLv2_MixerEffect.h"

#include "QVlorRemoteFault_p.h"
#include "QVlorSamples_p.h"
#include "lv2engine.h"
#include "lv2track_p.h"

#include "blstring.h"

#include <QDebug>

#include <atomic>
#include <cstring>


namespace QVlorLv2 {

namespace {
// The longest run the mixer hands an effect at once; longer blocks are cut.
constexpr int kMaxBlock = 8192;
} // namespace

class MixerEffect::Data {
public:
    QString uri;
    QString error;
    Lv2Track track;
    bool toldNonFinite = false;
    std::atomic<bool> bypass{false};
    // A block failed in a host program that is gone or stuck: told once,
    // and not asked again, so that it costs the track nothing more.
    std::atomic<bool> dead{false};
};

MixerEffect::MixerEffect(const QString& uri, int sampleRate, unsigned int channels)
    : QVlorMixer::Effect(sampleRate, channels), d(new Data)
{
    d->uri = uri;
    std::string why;
    if (!VLORLV2_Initialize() || !d->track.open(uri.toUtf8().constData(), sampleRate, int(channels), kMaxBlock, &why)) {
        d->error = why.empty() ? QStringLiteral("the LV2 engine did not start") : QString::fromStdString(why);
        qWarning().noquote() << "QVlorLv2::MixerEffect:" << uri << d->error;
    }
}

MixerEffect::~MixerEffect() { delete d; }

bool MixerEffect::isOk() const { return d->track.first() != nullptr; }
QString MixerEffect::error() const { return d->error; }
QString MixerEffect::uri() const { return d->uri; }
_Lv2Instance* MixerEffect::instance() const { return d->track.first(); }

void MixerEffect::setBypass(bool on) { d->bypass.store(on); }

int MixerEffect::process(float* input, float* output, int channels, int frames)
{
    if (isOk() && d->bypass.load()) {
        if (output != input)
            std::memmove(output, input, sizeof(float) * size_t(frames) * size_t(channels));
        return frames;
    }
    if (!isOk() || d->dead.load())
        return 0;
    if (!d->track.process(input, output, channels, frames)) {
        const int state = VLORLV2_GetRemoteState(d->track.first());
        if (state >= kLv2RemoteCrashed && !d->dead.exchange(true)) {
            qWarning().noquote() << RemoteDeathText(d->uri, state);
            emit died();
        }
        return 0;
    }
    SilenceNonFiniteBlock(output, frames * channels, d->uri, &d->toldNonFinite);
    return frames;
}

void MixerEffect::reset() { d->track.reset(); }

QString MixerEffect::params() const
{
    char* state = VLORLV2_GetState(d->track.first());
    const QString text = state ? QString::fromUtf8(state) : QString();
    VLORLV2_FreeString(state);
    return text;
}

bool MixerEffect::setParams(const QString& text) { return isOk() && d->track.setState(text.toUtf8().constData()); }

bool MixerEffect::reconfigure(const QString& config)
{
    const QByteArray c = config.toUtf8();
    if (!BLSTRING_HasKeyInString(c.constData(), "lv2effect_state") &&
        !BLSTRING_HasKeyInString(c.constData(), "lv2effect_params"))
        return setParams(config);
    return isOk() && d->track.configure(c.constData());
}

} // namespace QVlorLv2
