// vlorfx apply: a VST2 effect over an audio file, through the "VST host"
// filter exactly as the editor applies one.
#include "chatter.h"
#include "lv2.h"
#include "presets.h"
#include "commands.h"
#include "text.h"

#include "audio_output.h"
#include "audiofx.h"
#include "audiovst.h"
#include "vst3engine.h"

#include "bldebug.h"
#include "blnotify.h"
#include "blstring.h"

#include <cctype>
#include <cmath>
#include <fcntl.h>
#include <sys/stat.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const char* const kHelp =
    "usage: vlorfx apply --vst2 FILE [--id N] [--param INDEX=VALUE]... [--in-process] IN OUT\n"
    "       vlorfx apply --vst3 BUNDLE [--cid CID] [--param ID=VALUE]... [--state STRING] IN OUT\n"
    "       vlorfx apply --lv2 URI [--param INDEX=VALUE]... IN OUT\n"
    "\n"
    "Runs a VST2 or VST3 effect over the audio file IN and writes OUT in the\n"
    "format its extension names (.wav, .flac, .ogg, .mp3, .aiff, ...), in IN's\n"
    "sample format where that format can hold it (--float writes 32-bit float;\n"
    "samples an output of whole numbers cuts at full scale are reported). OUT is\n"
    "a new or a regular file, never a device or a pipe. A VST2 plugin is checked in the host\n"
    "program first, and runs there unless --in-process is given; a VST3 effect\n"
    "runs in this process. The latency is taken out: OUT lines up with IN and is\n"
    "as long. What a plugin prints is kept off the terminal, in plugins.log of\n"
    "the data folder (vlorfx --verbose apply ... shows it). On success one line\n"
    "tells what was written: file, length, channels, rate, peak level in and out.\n"
    "\n"
    "  --vst2 FILE          the plugin file\n"
    "  --id N               the plugin inside a shell file (see the ids listed when it is one)\n"
    "  --param INDEX=VALUE  a normalised value from 0 to 1 for parameter INDEX (from 0);\n"
    "                       the others keep the plugin's defaults\n"
    "  --in-process         run the plugin in this process instead of the host program\n"
    "  --vst3 BUNDLE        a VST3 bundle (runs in this process)\n"
    "  --cid CID            its effect class, 32 hexadecimal digits; needed when it has several\n"
    "  --param ID=VALUE     for VST3, a normalised value for the parameter with that ID\n"
    "  --state STRING       for VST3, a saved state (presetsize=...,presetdata=\"...\",...)\n"
    "  --lv2 URI            an LV2 plugin by its URI, or by its name or bundle in the catalog\n"
    "                       (checked in the host program, then run in this process;\n"
    "                       vlorfx probe --lv2 --all lists them)\n"
    "  --param INDEX=VALUE  for LV2, the value of control input INDEX (from 0) in its own unit\n"
    "  --preset NAME        load the effect's preset of that name first: the user's (vlorfx\n"
    "                       preset), else the factory's; not with --param or --state\n"
    "  --float              write OUT as 32-bit float\n"
    "  --force              write OUT even when it is IN\n"
    "  --mixer              a chain of effects of either format, in real time (apply --mixer --help)\n"
    "\n"
    "example:\n"
    "  vlorfx apply --vst2 /usr/lib/vst/ZamComp-vst.so --param 5=0.5 in.wav out.wav\n"
    "    (ZamComp's Makeup, parameter 5, at half its range: 15 dB louder)\n"
    "\n"
    "Exit status 0 on success, 1 when the effect cannot be applied, 2 for bad arguments.\n";

// What the command line asked for.
struct ApplyOptions {
    std::string plugin, in, out, bundle, cid, state, lv2, preset;
    int id = 0;
    bool idGiven = false;
    bool inProcess = false;
    bool floatOutput = false;
    bool force = false;
    std::vector<std::pair<int, float>> params;
    std::vector<std::string> paramTexts; // as given, for messages
};

// A mistake on the command line: said in one line, without the whole help.
int badArgument(const std::string& message)
{
    std::fprintf(stderr, "vlorfx apply: %s (vlorfx apply --help tells more)\n", message.c_str());
    return 2;
}

bool g_noHost = false;
int g_checkStatus = 0; // the host program's answer to the last failed check

// Resolution reports a failed check in the log; its status tells why.
void onLog(void*, int, const char* message)
{
    int status = 0;
    if (std::sscanf(message, "VSTCHECK: Failed to check VST plugin %*[^(](error code = %d)", &status) == 1)
        g_checkStatus = status;
}

int noHostHandler(void*, const BLNotifyEvent* e)
{
    if (e->code == AUDIOVST_NOTIFY_NO_HOST)
        g_noHost = true;
    return 1;
}

int fail(const std::string& message)
{
    std::fprintf(stderr, "vlorfx apply: %s\n", message.c_str());
    return 1;
}

int usageError(const std::string& message)
{
    std::fprintf(stderr, "vlorfx apply: %s\n\n%s", message.c_str(), kHelp);
    return 2;
}

std::string whyNot(const std::string& file, int id)
{
    if (g_noHost)
        return "no working vlorvst host program was found";
    if (access(file.c_str(), R_OK) != 0)
        return file + ": " + std::strerror(errno);
    const int status = AUDIOVST_GetPluginStatusEx(file.c_str(), id);
    if ((status & AUDIOVST_STATUS_CRASHED) || (g_checkStatus != 0 && g_checkStatus != 7))
        return file + " crashed the host program while it was checked";
    if (status & AUDIOVST_STATUS_DUPLICATED)
        return file + " is an older copy of a plugin found elsewhere";
    if (status & AUDIOVST_STATUS_DISABLED)
        return file + " is disabled";
    return file + " cannot be applied: it is no VST2 effect (an instrument, or not a plugin)";
}

int progressBarTo(void* user, double fraction)
{
    FILE* out = static_cast<FILE*>(user);
    const int width = 40;
    const int filled = int(fraction * width + 0.5);
    std::fprintf(out, "\r[%.*s%*s] %3d%%", filled, "########################################", width - filled, "",
                 int(fraction * 100 + 0.5));
    std::fflush(out);
    return 0;
}

// name: the effect's, for a failure that is the effect's own.
int render(const char* filter, const std::string& config, const ApplyOptions& o, const std::string& name)
{
    const bool bar = isatty(STDERR_FILENO);
    char error[1024] = "";
    AUDIO_RenderReport report{};
    int ok;
    {
        vlorfx::PluginChatterAside aside;
        ok = AUDIO_RenderFileEx(filter, config.c_str(), o.in.c_str(), o.out.c_str(),
                                o.floatOutput ? AUDIO_RENDER_FLOAT : 0, bar ? progressBarTo : nullptr, aside.out(),
                                &report, error, sizeof(error));
        if (bar)
            std::fprintf(aside.out(), "\n");
    }
    if (!ok)
        return fail(std::strncmp(error, "the effect ", 11) == 0 ? name + ": " + error : std::string(error));
    if (report.clippedSamples > 0)
        std::fprintf(stderr,
                     "vlorfx apply: %lld samples went beyond full scale (peak %+.1f dBFS) and were cut in %s; "
                     "--float keeps them\n",
                     report.clippedSamples, 20.0 * std::log10(report.peak), o.out.c_str());
    std::printf("%s\n", vlorfx::writtenLine(o.out, report.frames, report.channels, report.sampleRate,
                                            report.inputPeak, report.peak).c_str());
    return 0;
}

// A state the effect could never read is an error, not a silent default.
bool readableState(const std::string& state)
{
    for (const char* key : {"presetsize", "ctrlsize"}) {
        const int size = BLSTRING_GetIntegerValueFromString(state.c_str(), key, 0);
        if (size <= 0)
            continue;
        std::vector<char> data(size_t(size) + 1);
        const char* dataKey = std::strcmp(key, "presetsize") == 0 ? "presetdata" : "ctrldata";
        if (!BLSTRING_GetStringValueFromString(state.c_str(), dataKey, "", data.data(), size + 1))
            return false;
        int length = 0;
        void* bytes = BLSTRING_FromBase64(data.data(), &length);
        std::free(bytes);
        if (!bytes || length < 1)
            return false;
        return true;
    }
    return false;
}

// Parameters become state, as the editor's effect dialog would save it: set
// on an instance of our own, heard by its processor, then read back.
int applyVst3(const ApplyOptions& o)
{
    const std::string& bundle = o.bundle;
    std::string cid = o.cid;
    const std::vector<std::pair<int, float>>& params = o.params;
    const std::string& state = o.state;
    if (!state.empty() && !readableState(state))
        return badArgument("--state cannot be read: it needs presetsize= with presetdata=\"...\" (or ctrlsize= "
                           "with ctrldata=), the data in Base64, as a saved state gives them");
    std::vector<Vst3ClassRecord> classes(64);
    const int n = VLORVST3_ListClasses(bundle.c_str(), classes.data(), int(classes.size()));
    if (n < 0)
        return fail(bundle + " is not a VST3 bundle that loads here");
    if (cid.empty()) {
        if (n != 1) {
            std::string list;
            for (int k = 0; k < n; ++k)
                list += std::string("\n  --cid ") + classes[size_t(k)].uid + "  " + classes[size_t(k)].name;
            return fail(bundle + (n ? " holds several effects; choose one:" + list : " holds no effect"));
        }
        cid = classes[0].uid;
    }
    for (char& c : cid)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    std::string name;
    for (int k = 0; k < n; ++k)
        if (cid == classes[size_t(k)].uid)
            name = classes[size_t(k)].name;
    if (name.empty())
        return fail("no effect class " + cid + " in " + bundle);

    std::string config = "vst3effect_uid=" + vlorfx::quoted(cid) + ",vst3effect_path=" + vlorfx::quoted(bundle);
    if (params.empty()) {
        if (!state.empty())
            config += "," + state;
        return render("VST3 host", config, o, name);
    }
    _Vst3Instance* h = VLORVST3_CreateInstance(bundle.c_str(), cid.c_str());
    if (!h || !VLORVST3_StartEngine(h)) {
        VLORVST3_DestroyInstance(h);
        return fail("the effect " + cid + " did not start");
    }
    if (!state.empty() && !VLORVST3_SetConfigEx(h, state.c_str(), false)) {
        VLORVST3_DestroyInstance(h);
        return fail("the plugin refused the state given");
    }
    for (const auto& p : params) {
        bool exists = false;
        Vst3ParamInfo info;
        for (int k = 0; k < VLORVST3_GetNumParams(h) && !exists; ++k)
            exists = VLORVST3_GetParamInfo(h, k, &info) && info.id == uint32_t(p.first);
        if (!exists) {
            VLORVST3_DestroyInstance(h);
            return fail("the effect has no parameter with ID " + std::to_string(p.first));
        }
        VLORVST3_SetParamNormalized(h, uint32_t(p.first), p.second);
    }
    std::vector<float> silence(2 * 64, 0.0f);
    VLORVST3_SetAudioFormat(h, 44100, 2);
    VLORVST3_ProcessAudio(h, silence.data(), silence.data(), 2, 64);
    char* saved = VLORVST3_GetConfig(h);
    if (saved)
        config += std::string(",") + saved;
    VLORVST3_FreeString(saved);
    VLORVST3_DestroyInstance(h);
    return render("VST3 host", config, o, name);
}

} // namespace

namespace {

// INDEX=VALUE, VALUE from 0 to 1; what is wrong with it otherwise.
std::string readParam(const std::string& p, int* index, float* value)
{
    const size_t eq = p.find('=');
    if (eq == std::string::npos)
        return "bad --param '" + p + "': it needs INDEX=VALUE";
    char* end = nullptr;
    const long i = std::strtol(p.c_str(), &end, 10);
    if (end != p.c_str() + eq || eq == 0 || i < 0 || i > 1 << 30)
        return "bad --param '" + p + "': the index '" + p.substr(0, eq) + "' is no number from 0 on";
    const float v = std::strtof(p.c_str() + eq + 1, &end);
    if (eq + 1 == p.size() || *end)
        return "bad --param '" + p + "': the value '" + p.substr(eq + 1) + "' is no number";
    if (!std::isfinite(v))
        return "bad --param '" + p + "': the value '" + p.substr(eq + 1) + "' is no number";
    *index = int(i);
    *value = v;
    return {};
}

// Options that the other format takes, or that contradict each other.
int checkCombination(const ApplyOptions& o)
{
    if (!o.plugin.empty() && !o.bundle.empty())
        return badArgument("--vst2 and --vst3 cannot be used together");
    if (!o.lv2.empty() && (!o.plugin.empty() || !o.bundle.empty()))
        return badArgument("--lv2 cannot be used with --vst2 or --vst3");
    if (o.plugin.empty() && o.bundle.empty() && o.lv2.empty())
        return badArgument("one of --vst2 FILE and --vst3 BUNDLE is needed (or --lv2 URI)");
    if (!o.lv2.empty() && (o.idGiven || o.inProcess || !o.cid.empty() || !o.state.empty()))
        return badArgument("--id, --in-process, --cid and --state are not for --lv2");
    if (!o.bundle.empty() && (o.idGiven || o.inProcess))
        return badArgument(std::string(o.idGiven ? "--id" : "--in-process") + " is for --vst2 (a VST3 effect is chosen with --cid and runs in this process)");
    if (!o.plugin.empty() && (!o.cid.empty() || !o.state.empty()))
        return badArgument(std::string(!o.cid.empty() ? "--cid" : "--state") + " is for --vst3");
    // VST values are normalised; an LV2 value is in the parameter's own unit.
    for (size_t k = 0; k < o.params.size(); ++k)
        if (o.lv2.empty() && !(o.params[k].second >= 0 && o.params[k].second <= 1))
            return badArgument("bad --param '" + o.paramTexts[k] + "': the value must be from 0 to 1");
    if (!o.preset.empty() && (!o.params.empty() || !o.state.empty()))
        return badArgument("--preset cannot be used with --param or --state");
    if (o.in.empty() || o.out.empty())
        return badArgument("an input and an output file are needed");
    if (!o.force && vlorfx::sameFile(o.in, o.out))
        return badArgument(o.out + " is the input file; give --force to write over it");
    return 0;
}

// 0 when the options are read, or the exit status: --help, or a usage error.
int readOptions(int argc, char** argv, ApplyOptions* o, bool* help)
{
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            *help = true;
            return 0;
        } else if (a == "--vst2" && i + 1 < argc) {
            o->plugin = argv[++i];
        } else if (a == "--lv2" && i + 1 < argc) {
            o->lv2 = vlorfx::Lv2UriOf(argv[++i]);
        } else if (a == "--id" && i + 1 < argc) {
            char* end = nullptr;
            o->id = int(std::strtol(argv[++i], &end, 0));
            o->idGiven = true;
            if (*end || !*argv[i])
                return badArgument(std::string("bad plugin id '") + argv[i] + "': a number is needed");
        } else if (a == "--param" && i + 1 < argc) {
            int index = 0;
            float value = 0;
            const std::string why = readParam(argv[++i], &index, &value);
            if (!why.empty())
                return badArgument(why);
            o->params.emplace_back(index, value);
            o->paramTexts.emplace_back(argv[i]);
        } else if (a == "--float") {
            o->floatOutput = true;
        } else if (a == "--force") {
            o->force = true;
        } else if (a == "--in-process") {
            o->inProcess = true;
        } else if (a == "--vst3" && i + 1 < argc) {
            o->bundle = argv[++i];
        } else if (a == "--cid" && i + 1 < argc) {
            o->cid = argv[++i];
        } else if (a == "--state" && i + 1 < argc) {
            o->state = argv[++i];
        } else if (a == "--preset" && i + 1 < argc) {
            o->preset = argv[++i];
        } else if (!a.empty() && a[0] == '-' && a != "-") {
            if (a == "--vst2" || a == "--vst3" || a == "--lv2" || a == "--id" || a == "--param" || a == "--cid" ||
                a == "--state" || a == "--preset")
                return badArgument(a + " needs a value");
            return usageError("unknown option '" + a + "'");
        } else if (o->in.empty()) {
            o->in = a;
        } else if (o->out.empty()) {
            o->out = a;
        } else {
            return badArgument("too many files: '" + a + "' after " + o->in + " and " + o->out);
        }
    }
    return checkCombination(*o);
}

int applyVst2(const ApplyOptions& o)
{
    BLNOTIFY_AddDefaultHandler(noHostHandler, nullptr);
    BLDEBUG_SetLogCallback(onLog, nullptr);
    BLDEBUG_SetStderrEnabled(0); // our own message says it better
    if (o.id != 0) {
        // An id names a plugin inside a shell; a file of one plugin has none to choose.
        _VSTEFFECT* whole = AUDIOVST_FindPluginEx(o.plugin.c_str(), 0, false);
        if (whole && AUDIOVST_IsEffect(whole))
            return badArgument("--id " + std::to_string(o.id) + ": " + o.plugin +
                               " holds one plugin, not a shell; leave --id out");
    }
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(o.plugin.c_str(), o.id, false);
    if (e && !AUDIOVST_IsEffect(e)) {
        std::string list;
        for (int k = 0; k < AUDIOVST_PluginsCount(e); ++k)
            list += "\n  --id " + std::to_string(AUDIOVST_GetPluginId(e, k)) + "  " + AUDIOVST_GetPluginName(e, k);
        return fail(o.plugin + " holds several plugins; choose one:" + list);
    }
    if (!e || !AUDIOVST_IsEnabled(e))
        return fail(whyNot(o.plugin, o.id));

    std::string config = "vsteffect_hash=" + vlorfx::quoted(AUDIOVST_GetHash(e)) + ",vsteffect_filename=" + vlorfx::quoted(o.plugin);
    if (!o.params.empty()) {
        const int n = AUDIOVST_GetNumParams(e);
        std::vector<float> values(size_t(n > 0 ? n : 0), 0.0f);
        if (const float* defaults = AUDIOVST_GetDefaultProgram(e))
            values.assign(defaults, defaults + n);
        for (const auto& p : o.params) {
            if (p.first >= n)
                return fail("parameter " + std::to_string(p.first) + " does not exist: " + AUDIOVST_GetDisplayName(e) +
                            " has " + std::to_string(n) + " parameters");
            values[size_t(p.first)] = p.second;
        }
        std::vector<char> text(values.size() * 20 + 8);
        BLSTRING_FloatVectorToString(values.data(), int(values.size()), text.data(), int(text.size()));
        config += ",params=" + std::string(text.data());
    }
    if (o.inProcess)
        AUDIOVST_ForgetVlorVstPath();
    return render("VST host", config, o, AUDIOVST_GetDisplayName(e));
}

// Checked in the host program before its code comes into this process.
int applyLv2(const ApplyOptions& o)
{
    QJsonObject report;
    QString error;
    if (!vlorfx::CheckLv2(o.lv2.c_str(), &report, &error))
        return fail(o.lv2 + ": " + error.toStdString());
    if (!report.value(QStringLiteral("effect")).toBool())
        return fail(o.lv2 + " is no effect: it has no audio input (an instrument or a generator)");
    std::string config = "lv2effect_uri=" + vlorfx::quoted(o.lv2);
    if (!o.params.empty()) {
        std::string values, why;
        if (!vlorfx::Lv2Params(o.lv2.c_str(), o.params, &values, &why))
            return fail(why);
        config += ",lv2effect_params=" + vlorfx::quoted(values);
    }
    return render("LV2 host", config, o, report.value(QStringLiteral("name")).toString().toStdString());
}

// The effect opened here with its preset loaded, then applied as the editor
// applies one with those settings.
int applyPreset(const ApplyOptions& o)
{
    vlorfx::PluginChoice choice;
    choice.vst2 = o.plugin;
    choice.id = o.id;
    choice.bundle = o.bundle;
    choice.cid = o.cid;
    choice.lv2 = o.lv2;
    vlorfx::OpenedPlugin plugin;
    std::string error;
    QStringList unmatched;
    if (!plugin.open(choice, &error) || !vlorfx::LoadNamedPreset(plugin, o.preset, &unmatched, &error))
        return fail(error);
    if (!unmatched.isEmpty())
        std::fprintf(stderr, "vlorfx apply: the preset's %s found no match in %s\n",
                     qPrintable(unmatched.join(QStringLiteral(", "))), plugin.name().c_str());
    if (!o.plugin.empty() && o.inProcess)
        AUDIOVST_ForgetVlorVstPath();
    const char* filter = !o.bundle.empty() ? "VST3 host" : !o.lv2.empty() ? "LV2 host" : "VST host";
    return render(filter, plugin.filterSettings(), o, plugin.name());
}

} // namespace

int cmdApply(int argc, char** argv)
{
    // Ctrl-C or a kill leaves no half-written output behind.
    audio::RemovePartialsOnSignals();
    for (int i = 0; i < argc; ++i)
        if (!std::strcmp(argv[i], "--mixer"))
            return cmdApplyMixer(argc, argv);
    ApplyOptions o;
    bool help = false;
    if (const int status = readOptions(argc, argv, &o, &help))
        return status;
    if (help) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (!o.preset.empty())
        return applyPreset(o);
    if (!o.bundle.empty())
        return applyVst3(o);
    if (!o.lv2.empty())
        return applyLv2(o);
    return applyVst2(o);
}
