// vlorfx preset: the presets of a plugin of any format, the factory's and
// the user's; saved from one form of a product, loaded into another.
#include "commands.h"
#include "lv2.h"
#include "presets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

const char* const kHelp =
    "usage: vlorfx preset list PLUGIN\n"
    "       vlorfx preset save NAME PLUGIN [--param NAME=VALUE]... [--preset OTHER]\n"
    "       vlorfx preset load NAME PLUGIN\n"
    "       vlorfx preset delete NAME PLUGIN\n"
    "       vlorfx preset export NAME FILE PLUGIN\n"
    "       vlorfx preset import FILE\n"
    "\n"
    "PLUGIN is --vst2 FILE [--id N], --vst3 BUNDLE [--cid CID] or --lv2 URI (or its name).\n"
    "\n"
    "The user's presets are kept by product in the data folder's \"presets\"\n"
    "folder: one saved from one form of a product (its VST3 form, say) is\n"
    "listed and loaded for its other forms too, where its state is not theirs,\n"
    "by the parameters' names; load says which parameters found no match.\n"
    "list prints the user's presets, then the factory's (VST2 programs, VST3\n"
    "preset files of the standard folders, LV2 presets). save keeps the\n"
    "plugin's defaults, or OTHER's values, with the --param values over them:\n"
    "from 0 to 1 for VST2 and VST3, in the parameter's own unit for LV2.\n"
    "load prints every parameter's value after loading. vlorfx apply --preset\n"
    "NAME applies an effect with a preset.\n"
    "\n"
    "Exit status 0 on success, 1 when the preset or the plugin cannot be used,\n"
    "2 for bad arguments.\n";

struct Options {
    std::string verb, name, file;
    vlorfx::PluginChoice plugin;
    std::string from;
    std::vector<std::pair<std::string, double>> params;
};

int bad(const std::string& message)
{
    std::fprintf(stderr, "vlorfx preset: %s (vlorfx preset --help tells more)\n", message.c_str());
    return 2;
}

int fail(const std::string& message)
{
    std::fprintf(stderr, "vlorfx preset: %s\n", message.c_str());
    return 1;
}

// 0, or the exit status of a mistake.
int readOptions(int argc, char** argv, Options* o)
{
    std::vector<std::string> words;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        const bool more = i + 1 < argc;
        if (a == "--vst2" && more)
            o->plugin.vst2 = argv[++i];
        else if (a == "--id" && more)
            o->plugin.id = std::atoi(argv[++i]);
        else if (a == "--vst3" && more)
            o->plugin.bundle = argv[++i];
        else if (a == "--cid" && more)
            o->plugin.cid = argv[++i];
        else if (a == "--lv2" && more)
            o->plugin.lv2 = vlorfx::Lv2UriOf(argv[++i]);
        else if (a == "--preset" && more)
            o->from = argv[++i];
        else if (a == "--param" && more) {
            const std::string p = argv[++i];
            const size_t eq = p.rfind('=');
            char* end = nullptr;
            const double v = eq == std::string::npos ? 0 : std::strtod(p.c_str() + eq + 1, &end);
            if (eq == std::string::npos || eq == 0 || !end || *end || eq + 1 == p.size())
                return bad("bad --param '" + p + "': it needs NAME=VALUE");
            o->params.emplace_back(p.substr(0, eq), v);
        } else if (!a.empty() && a[0] == '-')
            return bad("unknown option or missing value: '" + a + "'");
        else
            words.push_back(a);
    }
    if (words.empty())
        return bad("a verb is needed: list, save, load, delete, export or import");
    o->verb = words[0];
    const size_t wanted = o->verb == "list" ? 1 : o->verb == "export" ? 3 : 2;
    if (words.size() != wanted)
        return bad("'" + o->verb + "' takes " + std::to_string(wanted - 1) + " word(s) after it");
    if (o->verb == "import")
        o->file = words[1];
    else if (wanted > 1)
        o->name = words[1];
    if (o->verb == "export")
        o->file = words[2];
    const int given = int(!o->plugin.vst2.empty()) + int(!o->plugin.bundle.empty()) + int(!o->plugin.lv2.empty());
    if (o->verb != "import" && given != 1)
        return bad("one plugin is needed: --vst2 FILE, --vst3 BUNDLE or --lv2 URI");
    return 0;
}

void printValues(const QVlorAudioPlugins::PresetTarget& t)
{
    for (int i = 0; i < t.paramCount(); ++i) {
        double lo = 0, hi = 0;
        const bool unit = t.range(i, &lo, &hi);
        std::printf("  %-28s %.6g\n", qPrintable(t.paramName(i)), unit ? t.plain(i) : t.normalized(i));
    }
}

int listPresets(QVlorAudioPlugins::PresetTarget& t)
{
    for (const QString& name : QVlorAudioPlugins::UserPresetNames(t.productName()))
        std::printf("user     %s\n", qPrintable(name));
    for (const QVlorAudioPlugins::FactoryPreset& f : t.factoryPresets())
        std::printf("factory  %s\n", qPrintable(f.name));
    return 0;
}

int savePreset(vlorfx::OpenedPlugin& plugin, const Options& o)
{
    QVlorAudioPlugins::PresetTarget& t = *plugin.target();
    QStringList unmatched;
    std::string error;
    if (!o.from.empty() && !vlorfx::LoadNamedPreset(plugin, o.from, &unmatched, &error))
        return fail(error);
    for (const auto& [name, value] : o.params) {
        int found = -1;
        for (int i = 0; i < t.paramCount() && found < 0; ++i)
            if (t.paramName(i).compare(QString::fromStdString(name), Qt::CaseInsensitive) == 0)
                found = i;
        double lo = 0, hi = 0;
        if (found < 0)
            return fail(plugin.name() + " has no parameter named '" + name + "'");
        if (t.range(found, &lo, &hi))
            t.setPlain(found, value);
        else if (value < 0 || value > 1)
            return bad("bad --param '" + name + "': a VST value is from 0 to 1");
        else
            t.setNormalized(found, value);
    }
    QString why;
    plugin.settle();
    if (!QVlorAudioPlugins::SaveUserPreset(QVlorAudioPlugins::CapturePreset(t, QString::fromStdString(o.name)), &why))
        return fail(why.toStdString());
    std::printf("saved %s of %s (%s)\n", o.name.c_str(), plugin.name().c_str(), qPrintable(t.format()));
    return 0;
}

} // namespace

int cmdPreset(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kHelp, stdout);
            return 0;
        }
    Options o;
    if (const int status = readOptions(argc, argv, &o))
        return status;
    QString why;
    if (o.verb == "import") {
        QVlorAudioPlugins::Preset p;
        if (!QVlorAudioPlugins::ReadPresetFile(QString::fromStdString(o.file), &p, &why) ||
            !QVlorAudioPlugins::SaveUserPreset(p, &why))
            return fail(why.toStdString());
        std::printf("imported %s of %s\n", qPrintable(p.name), qPrintable(p.product));
        return 0;
    }
    vlorfx::OpenedPlugin plugin;
    std::string error;
    if (!plugin.open(o.plugin, &error))
        return fail(error);
    QVlorAudioPlugins::PresetTarget& t = *plugin.target();
    const QString name = QString::fromStdString(o.name);
    if (o.verb == "list")
        return listPresets(t);
    if (o.verb == "save")
        return savePreset(plugin, o);
    if (o.verb == "delete")
        return QVlorAudioPlugins::RemoveUserPreset(t.productName(), name) ? 0 : fail("no preset named " + o.name);
    if (o.verb == "export") {
        QVlorAudioPlugins::Preset p;
        if (!QVlorAudioPlugins::LoadUserPreset(t.productName(), name, &p, &why) ||
            !QVlorAudioPlugins::WritePresetFile(p, QString::fromStdString(o.file), &why))
            return fail(why.toStdString());
        return 0;
    }
    if (o.verb != "load")
        return bad("unknown verb '" + o.verb + "'");
    QStringList unmatched;
    if (!vlorfx::LoadNamedPreset(plugin, o.name, &unmatched, &error))
        return fail(error);
    std::printf("loaded %s into %s (%s)\n", o.name.c_str(), plugin.name().c_str(), qPrintable(t.format()));
    printValues(t);
    if (!unmatched.isEmpty())
        std::printf("not matched: %s\n", qPrintable(unmatched.join(QStringLiteral(", "))));
    return 0;
}
