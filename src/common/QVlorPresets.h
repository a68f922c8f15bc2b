#ifndef QVLORPRESETS_H
#define QVLORPRESETS_H
// Presets of every format: the factory's own (VST2 programs, VST3 preset
// files, LV2 presets) and the user's, saved by name per product as the
// format's state and the parameters' values by name, so that a preset of
// one form of a product loads into its other forms where the parameters
// match, and says which did not.

#include "QVlorAudioPluginsExport.h"
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace QVlorAudioPlugins {

struct QVLOR_PLUGINS_EXPORT PresetParam {
    QString name;
    double normalized = 0; // from 0 to 1, as the VST formats keep values
    double plain = 0;      // in the parameter's own unit, where the format has one (LV2)
    bool hasPlain = false;
};

struct QVLOR_PLUGINS_EXPORT Preset {
    QString name;
    QString product; // the product's name: what every form of it shares
    QString format;  // the token of the form it was saved from
    QString plugin;  // that form's identity: a class ID, an LV2 URI, "vstid-N"
    QString state;   // that form's own state, as text
    QList<PresetParam> params;

    QJsonObject toJson() const;
    static bool fromJson(const QJsonObject& object, Preset* preset, QString* error);
};

struct QVLOR_PLUGINS_EXPORT FactoryPreset {
    QString name;
    QString id; // what the target loads it by: a program number, a file, a preset URI
};

// An instance of one form, as presets see it. Values as the format has them:
// normalized for all, plain too where the format keeps a unit and a range.
class QVLOR_PLUGINS_EXPORT PresetTarget {
public:
    virtual ~PresetTarget() = default;
    virtual QString format() const = 0;
    virtual QString identity() const = 0;
    virtual QString productName() const = 0;
    virtual int paramCount() const = 0;
    virtual QString paramName(int index) const = 0;
    virtual double normalized(int index) const = 0;
    virtual void setNormalized(int index, double value) = 0;
    // False where the format has no unit for it.
    virtual bool range(int index, double* minimum, double* maximum) const;
    virtual double plain(int index) const;
    virtual void setPlain(int index, double value);
    virtual QString state() const = 0;
    virtual bool setState(const QString& state) = 0;
    virtual QList<FactoryPreset> factoryPresets() const = 0;
    virtual bool loadFactoryPreset(const QString& id) = 0;
};

QVLOR_PLUGINS_EXPORT Preset CapturePreset(const PresetTarget& target, const QString& name);
// The preset's state where it is of this very plugin; otherwise its
// parameters by name (a name cut short by a format matches its whole).
// unmatched: the preset's parameters the target has none of.
QVLOR_PLUGINS_EXPORT bool ApplyPreset(const Preset& preset, PresetTarget& target, QStringList* unmatched, QString* error);

// The user's presets of a product, one file each, in the data folder's
// "presets" folder under the product's name.
QVLOR_PLUGINS_EXPORT QString UserPresetFolder(const QString& productName);
QVLOR_PLUGINS_EXPORT QStringList UserPresetNames(const QString& productName);
QVLOR_PLUGINS_EXPORT bool SaveUserPreset(const Preset& preset, QString* error);
QVLOR_PLUGINS_EXPORT bool LoadUserPreset(const QString& productName, const QString& name, Preset* preset, QString* error);
QVLOR_PLUGINS_EXPORT bool RemoveUserPreset(const QString& productName, const QString& name);
// A preset file anywhere: what export writes and import reads.
QVLOR_PLUGINS_EXPORT bool WritePresetFile(const Preset& preset, const QString& file, QString* error);
QVLOR_PLUGINS_EXPORT bool ReadPresetFile(const QString& file, Preset* preset, QString* error);
// A saved preset by name: the user's first, then the factory's of the target.
QVLOR_PLUGINS_EXPORT bool FindPreset(PresetTarget& target, const QString& name, Preset* user, QString* factoryId);

// A VST3 preset file (".vstpreset") as the state text the engine reads;
// false when it is no such file or of another class.
QVLOR_PLUGINS_EXPORT bool Vst3PresetFileState(const QString& file, const QString& cid, QString* state, QString* error);
// The standard folders of VST3 presets for a plugin: the user's, then the system's.
QVLOR_PLUGINS_EXPORT QStringList Vst3PresetFolders(const QString& vendor, const QString& pluginName);

} // namespace QVlorAudioPlugins

#endif
