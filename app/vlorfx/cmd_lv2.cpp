// vlorfx's LV2 commands: probe --lv2 (the host program's check of one
// plugin, or the list of them all) and apply --lv2 (the effect over a file,
// checked in the host program first, then run here).
#include "commands.h"
#include "lv2.h"
#include "text.h"

#include "QVlorAudioPlugins.h"
#include "QVlorLv2_Check.h"
#include "QVlorLv2_Manager.h"
#include "lv2engine.h"

#include <QFileInfo>
#include <QJsonArray>

#include <cstdio>
#include <cstring>
#include <vector>

std::string vlorfx::Lv2UriOf(const std::string& arg)
{
    QVlorLv2::Manager* m = QVlorAudioPlugins::lv2Manager();
    if (!m)
        return arg;
    const QString text = QString::fromStdString(arg);
    const QString folder = QFileInfo(text).isDir() ? QFileInfo(text).absoluteFilePath() : QString();
    const QVlorLv2::Catalog catalog = m->catalogCopy();
    if (catalog.findPlugin(text))
        return arg;
    QStringList found;
    for (const QVlorLv2::CatalogBundle& b : catalog.bundles)
        for (const QVlorLv2::CatalogPlugin& p : b.plugins)
            if (p.name.compare(text, Qt::CaseInsensitive) == 0 || (!folder.isEmpty() && b.path == folder))
                found << p.uri;
    // A name or folder of several plugins names none of them: the argument stands.
    return found.size() == 1 ? found.first().toStdString() : arg;
}

namespace {

constexpr int kTimeoutMs = 30000;

const char* const kProbeHelp =
    "usage: vlorfx probe --lv2 URI\n"
    "       vlorfx probe --lv2 --all\n"
    "\n"
    "Checks an LV2 plugin in a host process of its own: instantiated, run on\n"
    "noise, its output looked at, freed. Tells what it is (ports, parameters,\n"
    "latency, its own editor) or why it fails (a crash, a hang, a feature this\n"
    "host does not offer, invalid samples). --all lists every LV2 plugin of the\n"
    "machine without running any.\n"
    "\n"
    "example:\n"
    "  vlorfx probe --lv2 urn:zamaudio:ZamComp\n";

QByteArray text(const QJsonObject& o, const char* key) { return vlorfx::printable(o.value(QLatin1String(key)).toString()); }
int number(const QJsonObject& o, const char* key) { return o.value(QLatin1String(key)).toInt(); }

QString ports(const QJsonObject& o)
{
    QString s = QStringLiteral("%1 in, %2 out").arg(number(o, "audioInputs")).arg(number(o, "audioOutputs"));
    if (number(o, "sideChainInputs") > 0)
        s += QStringLiteral(", %1 side chain").arg(number(o, "sideChainInputs"));
    return s;
}

int listAll()
{
    QJsonObject reply;
    QString error;
    if (!QVlorLv2::ListPlugins(kTimeoutMs, &reply, &error)) {
        std::fprintf(stderr, "vlorfx probe: %s\n", qPrintable(error));
        return 1;
    }
    for (const QJsonValue& v : reply.value(QStringLiteral("plugins")).toArray()) {
        const QJsonObject p = v.toObject();
        const QString missing = p.value(QStringLiteral("missingFeature")).toString();
        std::printf("%s  %s  (%s; %s)%s\n", text(p, "uri").constData(), text(p, "name").constData(),
                    text(p, "maker").constData(), qPrintable(ports(p)),
                    !p.value(QStringLiteral("effect")).toBool() ? "  not an effect"
                    : missing.isEmpty()                        ? ""
                                                               : qPrintable(QStringLiteral("  needs ") + missing));
    }
    return 0;
}

} // namespace

namespace vlorfx {

bool CheckLv2(const char* uri, QJsonObject* report, QString* error)
{
    return QVlorLv2::CheckPlugin(QString::fromUtf8(uri), kTimeoutMs, report, error);
}

int probeLv2(int argc, char** argv)
{
    if (argc != 1 || !std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h")) {
        std::fputs(kProbeHelp, argc == 1 ? stdout : stderr);
        return argc == 1 ? 0 : 2;
    }
    if (!std::strcmp(argv[0], "--all"))
        return listAll();
    QJsonObject r;
    QString error;
    if (!CheckLv2(argv[0], &r, &error)) {
        std::fprintf(stderr, "vlorfx probe: %s: %s\n", argv[0], qPrintable(error));
        return 1;
    }
    std::printf("%s\n  %s by %s, %s\n  audio: %s; %d parameters; latency %d frames%s\n  checked: runs on noise%s\n",
                text(r, "uri").constData(), text(r, "name").constData(), text(r, "maker").constData(),
                text(r, "class").constData(), qPrintable(ports(r)), number(r, "parameters"), number(r, "latency"),
                r.value(QStringLiteral("x11Ui")).toBool() ? "; its own editor (X11)" : "",
                r.value(QStringLiteral("changesAudio")).toBool() ? " and changes it" : ", leaving it as it was");
    return r.value(QStringLiteral("effect")).toBool() ? 0 : 1;
}

// The parameter values of an LV2 effect with the given ones set: "[v0,v1,...]".
bool Lv2Params(const char* uri, const std::vector<std::pair<int, float>>& given, std::string* values,
               std::string* error)
{
    char why[512] = "";
    VLORLV2_Initialize();
    _Lv2Instance* fx = VLORLV2_CreateInstance(uri, 48000, 64, why, sizeof(why));
    if (!fx) {
        *error = why;
        return false;
    }
    const int n = VLORLV2_GetNumParams(fx);
    std::vector<float> v(size_t(n > 0 ? n : 0));
    for (int i = 0; i < n; ++i)
        v[size_t(i)] = VLORLV2_GetParam(fx, i);
    for (const auto& p : given) {
        if (p.first < 0 || p.first >= n || !VLORLV2_SetParam(fx, p.first, p.second)) {
            *error = "parameter " + std::to_string(p.first) + " does not exist: the effect has " + std::to_string(n) +
                     " parameters";
            VLORLV2_DestroyInstance(fx);
            return false;
        }
        v[size_t(p.first)] = VLORLV2_GetParam(fx, p.first);
    }
    VLORLV2_DestroyInstance(fx);
    *values = "[";
    char number[32];
    for (size_t i = 0; i < v.size(); ++i) {
        std::snprintf(number, sizeof(number), "%.9g", double(v[i]));
        *values += (i ? "," : "") + std::string(number);
    }
    *values += "]";
    return true;
}

} // namespace vlorfx
