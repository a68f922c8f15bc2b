#include "QVlorPresets.h"

#include "QVlorApplication.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <QCoreApplication>

#include <cmath>

namespace QVlorAudioPlugins {

namespace {

const char* const K_PRESET_KIND = "vloraudio-preset";
const char* const K_PRESET_SUFFIX = ".vlorpreset";
// A preset is a state and a list of values: far below this. A larger file is no preset.
constexpr qint64 kPresetFileLimit = 64 << 20;

// A name as a file's name: anything a folder or a shell would read otherwise becomes "_".
QString FileSafe(const QString& name)
{
    QString out;
    for (const QChar c : name.trimmed())
        out += (c.isLetterOrNumber() || c == QLatin1Char(' ') || c == QLatin1Char('-') || c == QLatin1Char('_') ||
                c == QLatin1Char('.') || c == QLatin1Char('(') || c == QLatin1Char(')'))
                   ? c
                   : QLatin1Char('_');
    while (out.startsWith(QLatin1Char('.')))
        out.remove(0, 1);
    return out.left(120);
}

QString Normal(const QString& name) { return name.simplified().toLower(); }

// Whether two parameters' names are one: equal, or one cut short of the
// other by a format that keeps few characters (VST2 keeps 8 in places).
bool SameParam(const QString& a, const QString& b)
{
    const QString x = Normal(a), y = Normal(b);
    if (x == y)
        return true;
    const QString& shorter = x.size() < y.size() ? x : y;
    const QString& longer = x.size() < y.size() ? y : x;
    return shorter.size() >= 6 && longer.startsWith(shorter);
}

QString PresetsRoot() { return QDir(QVlorApplication::applicationDataLocation()).filePath(QStringLiteral("presets")); }

} // namespace

bool PresetTarget::range(int, double*, double*) const { return false; }
double PresetTarget::plain(int) const { return 0; }
void PresetTarget::setPlain(int, double) {}

QJsonObject Preset::toJson() const
{
    QJsonArray list;
    for (const PresetParam& p : params) {
        QJsonObject o{{QStringLiteral("name"), p.name}, {QStringLiteral("normalized"), p.normalized}};
        if (p.hasPlain)
            o.insert(QStringLiteral("plain"), p.plain);
        list.append(o);
    }
    return {{QStringLiteral("kind"), QLatin1String(K_PRESET_KIND)},
            {QStringLiteral("name"), name},
            {QStringLiteral("product"), product},
            {QStringLiteral("format"), format},
            {QStringLiteral("plugin"), plugin},
            {QStringLiteral("state"), state},
            {QStringLiteral("params"), list}};
}

bool Preset::fromJson(const QJsonObject& o, Preset* preset, QString* error)
{
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    if (o.value(QStringLiteral("kind")).toString() != QLatin1String(K_PRESET_KIND))
        return fail(QCoreApplication::translate("QVlorPresets", "it is no preset"));
    Preset p;
    p.name = o.value(QStringLiteral("name")).toString();
    p.product = o.value(QStringLiteral("product")).toString();
    p.format = o.value(QStringLiteral("format")).toString();
    p.plugin = o.value(QStringLiteral("plugin")).toString();
    p.state = o.value(QStringLiteral("state")).toString();
    if (p.name.trimmed().isEmpty())
        return fail(QCoreApplication::translate("QVlorPresets", "the preset has no name"));
    for (const QJsonValue& v : o.value(QStringLiteral("params")).toArray()) {
        const QJsonObject po = v.toObject();
        PresetParam param;
        param.name = po.value(QStringLiteral("name")).toString();
        param.normalized = po.value(QStringLiteral("normalized")).toDouble(-1);
        param.hasPlain = po.contains(QStringLiteral("plain"));
        param.plain = po.value(QStringLiteral("plain")).toDouble();
        // A value out of its range or no number at all is a broken file, not a value to play.
        if (param.name.isEmpty() || !(param.normalized >= 0 && param.normalized <= 1) ||
            (param.hasPlain && !std::isfinite(param.plain)))
            return fail(QCoreApplication::translate("QVlorPresets", "a parameter's value cannot be read"));
        p.params << param;
    }
    *preset = p;
    return true;
}

Preset CapturePreset(const PresetTarget& target, const QString& name)
{
    Preset p;
    p.name = name.trimmed();
    p.product = target.productName();
    p.format = target.format();
    p.plugin = target.identity();
    p.state = target.state();
    for (int i = 0; i < target.paramCount(); ++i) {
        PresetParam param;
        param.name = target.paramName(i);
        param.normalized = target.normalized(i);
        double lo = 0, hi = 0;
        if (target.range(i, &lo, &hi)) {
            param.hasPlain = true;
            param.plain = target.plain(i);
        }
        if (!param.name.isEmpty())
            p.params << param;
    }
    return p;
}

bool ApplyPreset(const Preset& preset, PresetTarget& target, QStringList* unmatched, QString* error)
{
    if (unmatched)
        unmatched->clear();
    if (preset.format == target.format() && preset.plugin == target.identity() && !preset.state.isEmpty()) {
        if (target.setState(preset.state))
            return true;
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "the plugin refused the preset's state");
        return false;
    }
    QVector<bool> used(target.paramCount(), false);
    for (const PresetParam& p : preset.params) {
        int found = -1;
        for (int i = 0; i < target.paramCount() && found < 0; ++i)
            if (!used[i] && SameParam(p.name, target.paramName(i)))
                found = i;
        if (found < 0) {
            if (unmatched)
                *unmatched << p.name;
            continue;
        }
        used[found] = true;
        double lo = 0, hi = 0;
        if (target.range(found, &lo, &hi))
            // Where both have units the value is taken as it is; from a form
            // without one, across the target's range.
            target.setPlain(found, p.hasPlain ? p.plain : lo + p.normalized * (hi - lo));
        else
            target.setNormalized(found, std::fmin(1.0, std::fmax(0.0, p.normalized)));
    }
    return true;
}

QString UserPresetFolder(const QString& productName)
{
    const QString safe = FileSafe(productName);
    return QDir(PresetsRoot()).filePath(safe.isEmpty() ? QStringLiteral("_") : safe);
}

QStringList UserPresetNames(const QString& productName)
{
    QStringList names;
    const QDir dir(UserPresetFolder(productName));
    for (const QFileInfo& f : dir.entryInfoList({QStringLiteral("*") + QLatin1String(K_PRESET_SUFFIX)}, QDir::Files)) {
        Preset p;
        if (ReadPresetFile(f.absoluteFilePath(), &p, nullptr))
            names << p.name;
    }
    names.sort(Qt::CaseInsensitive);
    return names;
}

bool SaveUserPreset(const Preset& preset, QString* error)
{
    const QString folder = UserPresetFolder(preset.product);
    if (!QDir().mkpath(folder)) {
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "%1 cannot be made").arg(folder);
        return false;
    }
    const QString safe = FileSafe(preset.name);
    if (safe.isEmpty()) {
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "the preset needs a name");
        return false;
    }
    // A name that differs from another only in what a file name cannot hold replaces it.
    return WritePresetFile(preset, QDir(folder).filePath(safe + QLatin1String(K_PRESET_SUFFIX)), error);
}

bool LoadUserPreset(const QString& productName, const QString& name, Preset* preset, QString* error)
{
    const QString file = QDir(UserPresetFolder(productName)).filePath(FileSafe(name) + QLatin1String(K_PRESET_SUFFIX));
    if (!QFileInfo::exists(file)) {
        if (error)
            *error = QCoreApplication::translate("QVlorPresets", "no preset named %1").arg(name);
        return false;
    }
    return ReadPresetFile(file, preset, error);
}

bool RemoveUserPreset(const QString& productName, const QString& name)
{
    return QFile::remove(QDir(UserPresetFolder(productName)).filePath(FileSafe(name) + QLatin1String(K_PRESET_SUFFIX)));
}

bool WritePresetFile(const Preset& preset, const QString& file, QString* error)
{
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly) || out.write(QJsonDocument(preset.toJson()).toJson()) < 0 || !out.commit()) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(file, out.errorString());
        return false;
    }
    return true;
}

bool ReadPresetFile(const QString& file, Preset* preset, QString* error)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly) || in.size() > kPresetFileLimit) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(file, in.isOpen() ? QCoreApplication::translate("QVlorPresets", "too large for a preset")
                                                                    : in.errorString());
        return false;
    }
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(in.readAll(), &parse);
    QString why;
    if (doc.isObject() && Preset::fromJson(doc.object(), preset, &why))
        return true;
    if (error)
        *error = QStringLiteral("%1: %2").arg(file, why.isEmpty() ? parse.errorString() : why);
    return false;
}

bool FindPreset(PresetTarget& target, const QString& name, Preset* user, QString* factoryId)
{
    if (LoadUserPreset(target.productName(), name, user, nullptr)) {
        factoryId->clear();
        return true;
    }
    for (const FactoryPreset& f : target.factoryPresets())
        if (f.name.compare(name, Qt::CaseInsensitive) == 0) {
            *factoryId = f.id;
            return true;
        }
    return false;
}

} // namespace QVlorAudioPlugins
