#ifndef QVLORVST3_MIXEREFFECT_H
#define QVLORVST3_MIXEREFFECT_H
// A VST3 effect class as a real-time effect of the mixer: each operation is
// one call of the engine on its instance.

#include "QVlorAudioPluginsExport.h"
#include "QVlorMixer.h"
#include "QVlorVst3_Catalog.h"

#include <QString>

struct _Vst3Instance;

namespace QVlorVst3 {

class QVLOR_PLUGINS_EXPORT MixerEffect : public QVlorMixer::Effect {
    Q_OBJECT
public:
    MixerEffect(const QVlorVst3::Plugin& plugin, int sampleRate, unsigned int channels);
    ~MixerEffect() override;

    bool isOk() const override;
    using QVlorMixer::Effect::process;
    int process(float* input, float* output, int channels, int frames) override;
    void reset() override;
    int tailSize() const override;
    bool reconfigure(const QString& config) override;

    bool powerOn(int blockSize);
    bool powerOff();
    bool setBypass(bool on);
    _Vst3Instance* instance() const;
    QVlorVst3::Plugin plugin() const;
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

} // namespace QVlorVst3

#endif
