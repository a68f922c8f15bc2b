#ifndef QVLORVST_MIXEREFFECT_H
#define QVLORVST_MIXEREFFECT_H
// A VST2 plugin as a real-time effect of the mixer: one object per plugin in
// use, driving the plugin's config instance.

#include "QVlorAudioPluginsExport.h"
#include "QVlorMixer.h"
#include "QVlorVst_Plugin.h"

#include <QPair>
#include <QSize>
#include <QString>

struct _VSTEFFECT;
struct _VSTINSTANCE;

namespace QVlorVst {

class QVLOR_PLUGINS_EXPORT MixerEffect : public QVlorMixer::Effect {
    Q_OBJECT
public:
    MixerEffect(const QVlorVst::Plugin& plugin, int sampleRate, unsigned int channels);
    ~MixerEffect() override;

    bool isOk() const override;
    // The plugin's record and the instance the dialog shows and sets, for its presets.
    _VSTEFFECT* record() const;
    _VSTINSTANCE* configInstance() const;
    using QVlorMixer::Effect::process;
    int process(float* input, float* output, int channels, int frames) override;
    // VST2 effects right after this one whose plugins share its host
    // program play with it in one round trip.
    int joinable(const QList<QVlorMixer::Effect*>& following) const override;
    int processJoined(const QList<QVlorMixer::Effect*>& effects, float* input, float* output, int channels,
                      int frames) override;
    void reset() override;
    int tailSize() const override;

    bool powerOn(int blockSize);
    bool powerOff();
    bool isInstance(const void* instance) const;

    QString name() const;
    QString vendor() const;
    QString hash() const;
    QString filename() const;
    qint64 uniqueId() const;
    bool isNative() const;
    int numParams() const;
    int numPrograms() const;

    bool setBypass(bool bypass);
    bool hasEditor() const;
    bool openEditor(void* window);
    bool closeEditor(void* window);
    bool refresh();
    QSize editorSize() const;
    // Whether the plugin is alive; with force, it is also marked for another check.
    bool checkState(bool force);

    QString parameterName(int index) const;
    QString parameterLabel(int index) const;
    int parameterKind(int index) const;
    QString parameterMinValueString(int index, bool* ok) const;
    QString parameterMaxValueString(int index, bool* ok) const;
    float parameterValue(int index) const;
    float parameterMinValue(int index) const;
    float parameterMaxValue(int index) const;
    bool setParameterValue(int index, float value);
    bool setParameterValueString(int index, const QString& text);
    bool setParameterOption(int index, const QString& label);
    int parameterNumOptions(int index) const;
    QString parameterOptionLabel(int index, int option) const;
    // The plugin's display of value; *ok (set by the caller) is cleared when
    // the text is no number that runs linearly with the value.
    QString parameterValueString(int index, float maxValue, float minValue, float value, bool* ok) const;

    QString params() const;
    void setParams(const QString& text);
    QPair<QString, QString> program(int index) const;
    void setProgram(const QString& name, const QString& config);

    // Once its host program ended: whether its own plugin was the one in
    // the call then (false: another plugin that shared the host was).
    bool crashedItself() const;

signals:
    // Once, from the audio thread, when a block failed: from then on the
    // effect gives nothing and the mixer plays the track without it.
    void died();

private:
    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorVst

#endif
