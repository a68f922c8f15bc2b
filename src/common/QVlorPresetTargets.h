#ifndef QVLORPRESETTARGETS_H
#define QVLORPRESETTARGETS_H
// Presets over the engines' instances: one target for each format.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPresets.h"

#include <vector>

struct _Vst3Instance;
struct _Lv2Instance;
struct _VSTEFFECT;
struct _VSTINSTANCE;

namespace QVlorAudioPlugins {

// A VST3 instance; its factory presets are its program list (the program
// parameter's steps, by their display names), then the preset files of the
// standard folders.
class QVLOR_PLUGINS_EXPORT Vst3PresetTarget : public PresetTarget {
public:
    Vst3PresetTarget(_Vst3Instance* instance, const QString& cid, const QString& name, const QString& vendor);
    QString format() const override;
    QString identity() const override { return m_cid; }
    QString productName() const override { return m_name; }
    int paramCount() const override { return int(m_ids.size()); }
    QString paramName(int index) const override;
    double normalized(int index) const override;
    void setNormalized(int index, double value) override;
    QString state() const override;
    bool setState(const QString& state) override;
    QList<FactoryPreset> factoryPresets() const override;
    bool loadFactoryPreset(const QString& id) override;

private:
    _Vst3Instance* m_instance;
    QString m_cid, m_name, m_vendor;
    std::vector<uint32_t> m_ids; // the parameters a preset holds: not bypass, read-only or the program list
    QStringList m_titles;
    uint32_t m_programParam = 0;
    int m_programs = 0; // steps of the program parameter; 0 when it has none
};

// An LV2 instance: values in their own units; its bundle's presets.
class QVLOR_PLUGINS_EXPORT Lv2PresetTarget : public PresetTarget {
public:
    Lv2PresetTarget(_Lv2Instance* instance, const QString& uri, const QString& name);
    QString format() const override;
    QString identity() const override { return m_uri; }
    QString productName() const override { return m_name; }
    int paramCount() const override;
    QString paramName(int index) const override;
    double normalized(int index) const override;
    void setNormalized(int index, double value) override;
    bool range(int index, double* minimum, double* maximum) const override;
    double plain(int index) const override;
    void setPlain(int index, double value) override;
    QString state() const override;
    bool setState(const QString& state) override;
    QList<FactoryPreset> factoryPresets() const override;
    bool loadFactoryPreset(const QString& id) override;

private:
    _Lv2Instance* m_instance;
    QString m_uri, m_name;
};

// A VST2 effect: over an instance where there is one, else over a list of
// values (the editor's filter takes those); its built-in programs.
class QVLOR_PLUGINS_EXPORT Vst2PresetTarget : public PresetTarget {
public:
    Vst2PresetTarget(const _VSTEFFECT* effect, _VSTINSTANCE* instance, const QString& identity);
    QString format() const override;
    QString identity() const override { return m_identity; }
    QString productName() const override;
    int paramCount() const override;
    QString paramName(int index) const override;
    double normalized(int index) const override;
    void setNormalized(int index, double value) override;
    QString state() const override;
    bool setState(const QString& state) override;
    QList<FactoryPreset> factoryPresets() const override;
    bool loadFactoryPreset(const QString& id) override;
    const std::vector<float>& values() const { return m_values; }

private:
    const _VSTEFFECT* m_effect;
    _VSTINSTANCE* m_instance;
    QString m_identity;
    std::vector<float> m_values;
};

} // namespace QVlorAudioPlugins

#endif
