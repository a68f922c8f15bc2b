#ifndef QVLORLV2_MIXEREFFECT_H
#define QVLORLV2_MIXEREFFECT_H
// An LV2 plugin as a real-time effect of the mixer: one instance over the
// track's channels, or one a channel, each operation a call of the engine.

#include "QVlorAudioPluginsExport.h"
#include "QVlorMixer.h"

#include <QString>

struct _Lv2Instance;

namespace QVlorLv2 {

class QVLOR_PLUGINS_EXPORT MixerEffect : public QVlorMixer::Effect {
    Q_OBJECT
public:
    MixerEffect(const QString& uri, int sampleRate, unsigned int channels);
    ~MixerEffect() override;

    bool isOk() const override;
    // Why the effect did not start, when it did not.
    QString error() const;
    using QVlorMixer::Effect::process;
    int process(float* input, float* output, int channels, int frames) override;
    void reset() override;
    // A state of params(), or lv2effect_state/lv2effect_params as the filter reads them.
    bool reconfigure(const QString& config) override;

    // Bypassed, the effect passes its input through untouched.
    void setBypass(bool on);
    QString uri() const;
    // The instance the dialog shows and sets.
    _Lv2Instance* instance() const;
    // The plugin's state as text, and back.
    QString params() const;
    bool setParams(const QString& text);

signals:
    // Once, from the audio thread, when a block failed because the plugin's
    // host program crashed or stopped answering: from then on the effect
    // gives nothing and the mixer plays the track without it.
    void died();

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorLv2

#endif
