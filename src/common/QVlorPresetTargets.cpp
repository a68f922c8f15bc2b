#include "QVlorPresetTargets.h"

#include "QVlorPluginFormat.h"

#include "audiovst.h"
#include "lv2engine.h"
#include "vst3engine.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cmath>
#include <cstdlib>

namespace QVlorAudioPlugins {

namespace {

QString FromUtf8(const char* text) { return text ? QString::fromUtf8(text) : QString(); }

// A string the engines allocate, taken over and freed.
template <typename Free>
QString TakeText(char* text, Free free)
{
    const QString out = FromUtf8(text);
    free(text);
    return out;
}

// A .vstpreset: "VST3", a version, the class ID in 32 characters and the
// offset of a list of chunks ("List", a count, then id, offset and size
// each); the component's state is the "Comp" chunk, the controller's "Cont".
bool ReadChunks(const QByteArray& data, QString* cid, QByteArray* comp, QByteArray* cont)
{
    if (data.size() < 48 || !data.startsWith("VST3"))
        return false;
    *cid = QString::fromLatin1(data.mid(8, 32)).toUpper();
    const qint64 listAt = qFromLittleEndian<qint64>(data.constData() + 40);
    if (listAt < 48 || listAt > data.size() - 8 || data.mid(int(listAt), 4) != "List")
        return false;
    const qint32 count = qFromLittleEndian<qint32>(data.constData() + listAt + 4);
    if (count < 0 || count > (data.size() - listAt - 8) / 20)
        return false;
    for (qint32 k = 0; k < count; ++k) {
        const char* entry = data.constData() + listAt + 8 + 20 * k;
        const QByteArray id(entry, 4);
        const qint64 at = qFromLittleEndian<qint64>(entry + 4);
        const qint64 size = qFromLittleEndian<qint64>(entry + 12);
        if (at < 0 || size < 0 || at > data.size() || size > data.size() - at)
            return false;
        if (id == "Comp")
            *comp = data.mid(int(at), int(size));
        else if (id == "Cont")
            *cont = data.mid(int(at), int(size));
    }
    return !comp->isEmpty();
}

} // namespace

bool Vst3PresetFileState(const QString& file, const QString& cid, QString* state, QString* error)
{
    QFile in(file);
    QString fileCid;
    QByteArray comp, cont;
    if (!in.open(QIODevice::ReadOnly) || in.size() > (64 << 20) || !ReadChunks(in.readAll(), &fileCid, &comp, &cont)) {
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "%1 is no VST3 preset file").arg(file);
        return false;
    }
    if (fileCid != cid.toUpper()) {
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "%1 is a preset of another plugin").arg(file);
        return false;
    }
    // The engine's notation: each size is that of the Base64 text that follows.
    const QByteArray comp64 = comp.toBase64(), cont64 = cont.toBase64();
    *state = QStringLiteral("presetsize=%1,presetdata=\"%2\"").arg(comp64.size()).arg(QString::fromLatin1(comp64));
    if (!cont.isEmpty())
        *state += QStringLiteral(",ctrlsize=%1,ctrldata=\"%2\"").arg(cont64.size()).arg(QString::fromLatin1(cont64));
    return true;
}

QStringList Vst3PresetFolders(const QString& vendor, const QString& pluginName)
{
    const QString tail = QStringLiteral("/vst3/presets/%1/%2").arg(vendor, pluginName);
    return {QDir::homePath() + QStringLiteral("/.vst3/presets/%1/%2").arg(vendor, pluginName),
            QStringLiteral("/usr/share") + tail, QStringLiteral("/usr/local/share") + tail};
}

// ---- VST3 ----

Vst3PresetTarget::Vst3PresetTarget(_Vst3Instance* instance, const QString& cid, const QString& name,
                                   const QString& vendor)
    : m_instance(instance), m_cid(cid), m_name(name), m_vendor(vendor)
{
    const int n = VLORVST3_GetNumParams(instance);
    for (int i = 0; i < n; ++i) {
        Vst3ParamInfo info{};
        if (!VLORVST3_GetParamInfo(instance, i, &info) || info.isBypass || info.isReadOnly)
            continue;
        if (info.isProgramChange) {
            // A list of one is no choice; a list of thousands is no list.
            if (info.stepCount > 0 && info.stepCount < 1024 && m_programs == 0) {
                m_programParam = info.id;
                m_programs = info.stepCount + 1;
            }
            continue;
        }
        m_ids.push_back(info.id);
        m_titles << FromUtf8(info.title);
    }
}

QString Vst3PresetTarget::format() const { return Vst3Token(); }
QString Vst3PresetTarget::paramName(int index) const { return m_titles.value(index); }
double Vst3PresetTarget::normalized(int index) const { return VLORVST3_GetParamNormalized(m_instance, m_ids[size_t(index)]); }
void Vst3PresetTarget::setNormalized(int index, double value)
{
    VLORVST3_SetParamNormalized(m_instance, m_ids[size_t(index)], value);
}
QString Vst3PresetTarget::state() const { return TakeText(VLORVST3_GetConfig(m_instance), VLORVST3_FreeString); }
bool Vst3PresetTarget::setState(const QString& state)
{
    return VLORVST3_SetConfigEx(m_instance, state.toUtf8().constData(), true) != 0;
}

QList<FactoryPreset> Vst3PresetTarget::factoryPresets() const
{
    QList<FactoryPreset> found;
    for (int k = 0; k < m_programs; ++k) {
        char name[256] = "";
        const double value = double(k) / double(m_programs - 1);
        if (VLORVST3_GetParamDisplay(m_instance, m_programParam, value, name, sizeof(name)) && name[0])
            found << FactoryPreset{FromUtf8(name), QStringLiteral("program:%1").arg(k)};
    }
    for (const QString& folder : Vst3PresetFolders(m_vendor, m_name))
        for (const QFileInfo& f : QDir(folder).entryInfoList({QStringLiteral("*.vstpreset")}, QDir::Files, QDir::Name))
            found << FactoryPreset{f.completeBaseName(), f.absoluteFilePath()};
    return found;
}

bool Vst3PresetTarget::loadFactoryPreset(const QString& id)
{
    if (id.startsWith(QLatin1String("program:"))) {
        bool ok = false;
        const int k = id.mid(8).toInt(&ok);
        if (!ok || k < 0 || k >= m_programs)
            return false;
        if (!VLORVST3_SetParamNormalized(m_instance, m_programParam, double(k) / double(m_programs - 1)))
            return false;
        // The controller takes the program's values; the processor hears
        // values only as changes, so each is told again.
        for (size_t i = 0; i < m_ids.size(); ++i)
            VLORVST3_SetParamNormalized(m_instance, m_ids[i], VLORVST3_GetParamNormalized(m_instance, m_ids[i]));
        return true;
    }
    QString state;
    return Vst3PresetFileState(id, m_cid, &state, nullptr) && setState(state);
}

// ---- LV2 ----

Lv2PresetTarget::Lv2PresetTarget(_Lv2Instance* instance, const QString& uri, const QString& name)
    : m_instance(instance), m_uri(uri), m_name(name)
{
}

QString Lv2PresetTarget::format() const { return Lv2Token(); }
int Lv2PresetTarget::paramCount() const { return VLORLV2_GetNumParams(m_instance); }
QString Lv2PresetTarget::paramName(int index) const
{
    Lv2ParamInfo info{};
    return VLORLV2_GetParamInfo(m_instance, index, &info) ? FromUtf8(info.name) : QString();
}

bool Lv2PresetTarget::range(int index, double* minimum, double* maximum) const
{
    Lv2ParamInfo info{};
    if (!VLORLV2_GetParamInfo(m_instance, index, &info))
        return false;
    *minimum = info.minimum;
    *maximum = info.maximum;
    return true;
}

double Lv2PresetTarget::plain(int index) const { return VLORLV2_GetParam(m_instance, index); }
void Lv2PresetTarget::setPlain(int index, double value) { VLORLV2_SetParam(m_instance, index, float(value)); }

// Across the range as the VST forms of a product read it: in a straight line.
double Lv2PresetTarget::normalized(int index) const
{
    double lo = 0, hi = 0;
    if (!range(index, &lo, &hi) || hi <= lo)
        return 0;
    return std::fmin(1.0, std::fmax(0.0, (plain(index) - lo) / (hi - lo)));
}

void Lv2PresetTarget::setNormalized(int index, double value)
{
    double lo = 0, hi = 0;
    if (range(index, &lo, &hi))
        setPlain(index, lo + value * (hi - lo));
}

QString Lv2PresetTarget::state() const { return TakeText(VLORLV2_GetState(m_instance), VLORLV2_FreeString); }
bool Lv2PresetTarget::setState(const QString& state) { return VLORLV2_SetState(m_instance, state.toUtf8().constData()) != 0; }

QList<FactoryPreset> Lv2PresetTarget::factoryPresets() const
{
    QList<FactoryPreset> found;
    const QByteArray uri = m_uri.toUtf8();
    const int n = VLORLV2_ListPresets(uri.constData(), nullptr, 0);
    if (n <= 0)
        return found;
    QByteArray lines(n * 512 + 1024, '\0');
    VLORLV2_ListPresets(uri.constData(), lines.data(), int(lines.size()));
    for (const QString& line : QString::fromUtf8(lines.constData()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const int tab = line.indexOf(QLatin1Char('\t'));
        if (tab > 0)
            found << FactoryPreset{line.left(tab), line.mid(tab + 1)};
    }
    return found;
}

bool Lv2PresetTarget::loadFactoryPreset(const QString& id)
{
    const QString state = TakeText(VLORLV2_GetPresetState(id.toUtf8().constData()), VLORLV2_FreeString);
    return !state.isEmpty() && setState(state);
}

// ---- VST2 ----

Vst2PresetTarget::Vst2PresetTarget(const _VSTEFFECT* effect, _VSTINSTANCE* instance, const QString& identity)
    : m_effect(effect), m_instance(instance), m_identity(identity)
{
    const int n = std::max(0, AUDIOVST_GetNumParams(effect));
    m_values.assign(size_t(n), 0.0f);
    if (instance)
        AUDIOVST_GetParameters(instance, m_values.data(), n);
    else if (const float* defaults = AUDIOVST_GetDefaultProgram(effect))
        m_values.assign(defaults, defaults + n);
}

QString Vst2PresetTarget::format() const { return Vst2Token(); }
QString Vst2PresetTarget::productName() const { return FromUtf8(AUDIOVST_GetDisplayName(m_effect)); }
int Vst2PresetTarget::paramCount() const { return int(m_values.size()); }
QString Vst2PresetTarget::paramName(int index) const { return FromUtf8(AUDIOVST_GetParameterName(m_effect, index)); }
double Vst2PresetTarget::normalized(int index) const
{
    return m_instance ? AUDIOVST_GetParameter(m_instance, index) : m_values[size_t(index)];
}

void Vst2PresetTarget::setNormalized(int index, double value)
{
    m_values[size_t(index)] = float(value);
    if (m_instance)
        AUDIOVST_SetParameter(m_instance, index, float(value));
}

// The values, as many as it has, in the filter's own notation: "[v0,v1,...]".
QString Vst2PresetTarget::state() const
{
    QStringList values;
    for (int i = 0; i < paramCount(); ++i)
        values << QString::number(normalized(i), 'g', 9);
    return QLatin1Char('[') + values.join(QLatin1Char(',')) + QLatin1Char(']');
}

bool Vst2PresetTarget::setState(const QString& state)
{
    QString inner = state.trimmed();
    if (!inner.startsWith(QLatin1Char('[')) || !inner.endsWith(QLatin1Char(']')))
        return false;
    const QStringList parts = inner.mid(1, inner.size() - 2).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (parts.size() != paramCount())
        return false;
    std::vector<double> values;
    for (const QString& part : parts) {
        bool ok = false;
        const double v = part.toDouble(&ok);
        if (!ok || !(v >= 0 && v <= 1))
            return false;
        values.push_back(v);
    }
    for (int i = 0; i < paramCount(); ++i)
        setNormalized(i, values[size_t(i)]);
    return true;
}

QList<FactoryPreset> Vst2PresetTarget::factoryPresets() const
{
    QList<FactoryPreset> found;
    for (int p = 0; p < AUDIOVST_GetNumBuiltInPrograms(m_effect); ++p)
        if (AUDIOVST_GetBuiltInProgramParams(m_effect, p))
            found << FactoryPreset{FromUtf8(AUDIOVST_GetProgramName(m_effect, p)), QString::number(p)};
    return found;
}

bool Vst2PresetTarget::loadFactoryPreset(const QString& id)
{
    bool ok = false;
    const int program = id.toInt(&ok);
    const float* values = ok ? AUDIOVST_GetBuiltInProgramParams(m_effect, program) : nullptr;
    if (!values)
        return false;
    for (int i = 0; i < paramCount(); ++i)
        setNormalized(i, values[i]);
    return true;
}

} // namespace QVlorAudioPlugins
