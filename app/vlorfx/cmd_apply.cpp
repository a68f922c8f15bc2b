// vlorfx apply: a VST2 effect over an audio file, through the "VST host"
// filter exactly as the editor applies one.
#include "commands.h"

#include "audiofx.h"
#include "audiovst.h"
#include "vst3engine.h"

#include "bldebug.h"
#include "blnotify.h"
#include "blstring.h"

#include <cctype>
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
    "\n"
    "Runs the VST2 effect in FILE over the audio file IN and writes OUT in the\n"
    "same format. The plugin is checked in the host program first, and runs\n"
    "there unless --in-process is given. Its latency is taken out: OUT lines up\n"
    "with IN and is as long.\n"
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
    "\n"
    "Exit status 0 on success, 1 when the effect cannot be applied, 2 for bad arguments.\n";

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

int progressBar(void*, double fraction)
{
    const int width = 40;
    const int filled = int(fraction * width + 0.5);
    std::fprintf(stderr, "\r[%.*s%*s] %3d%%", filled, "########################################", width - filled, "",
                 int(fraction * 100 + 0.5));
    std::fflush(stderr);
    return 0;
}

std::string quoted(const std::string& s)
{
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
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

int render(const char* filter, const std::string& config, const std::string& in, const std::string& out)
{
    const bool bar = isatty(STDERR_FILENO);
    char error[1024] = "";
    const int ok = AUDIO_RenderFile(filter, config.c_str(), in.c_str(), out.c_str(), bar ? progressBar : nullptr,
                                    nullptr, error, sizeof(error));
    if (bar)
        std::fprintf(stderr, "\n");
    return ok ? 0 : fail(error);
}

// Parameters become state, as the editor's effect dialog would save it: set
// on an instance of our own, heard by its processor, then read back.
int applyVst3(const std::string& bundle, std::string cid, const std::vector<std::pair<int, float>>& params,
              const std::string& state, const std::string& in, const std::string& out)
{
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
    bool known = false;
    for (int k = 0; k < n; ++k)
        known = known || cid == classes[size_t(k)].uid;
    if (!known)
        return fail("no effect class " + cid + " in " + bundle);

    std::string config = "vst3effect_uid=" + quoted(cid) + ",vst3effect_path=" + quoted(bundle);
    if (params.empty()) {
        if (!state.empty())
            config += "," + state;
        return render("VST3 host", config, in, out);
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
    return render("VST3 host", config, in, out);
}

} // namespace

namespace {

// What the command line asked for.
struct ApplyOptions {
    std::string plugin, in, out, bundle, cid, state;
    int id = 0;
    bool inProcess = false;
    std::vector<std::pair<int, float>> params;
};

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
        } else if (a == "--id" && i + 1 < argc) {
            char* end = nullptr;
            o->id = int(std::strtol(argv[++i], &end, 0));
            if (*end)
                return usageError(std::string("bad plugin id '") + argv[i] + "'");
        } else if (a == "--param" && i + 1 < argc) {
            const std::string p = argv[++i];
            const size_t eq = p.find('=');
            char* e1 = nullptr;
            char* e2 = nullptr;
            const long index = eq == std::string::npos ? -1 : std::strtol(p.c_str(), &e1, 10);
            const float value = eq == std::string::npos ? 0 : std::strtof(p.c_str() + eq + 1, &e2);
            if (eq == std::string::npos || e1 != p.c_str() + eq || index < 0 || !e2 || *e2 || value < 0 || value > 1)
                return usageError("bad --param '" + p + "': INDEX=VALUE with VALUE from 0 to 1");
            o->params.emplace_back(int(index), value);
        } else if (a == "--in-process") {
            o->inProcess = true;
        } else if (a == "--vst3" && i + 1 < argc) {
            o->bundle = argv[++i];
        } else if (a == "--cid" && i + 1 < argc) {
            o->cid = argv[++i];
        } else if (a == "--state" && i + 1 < argc) {
            o->state = argv[++i];
        } else if (!a.empty() && a[0] == '-' && a != "-") {
            return usageError("unknown option '" + a + "'");
        } else if (o->in.empty()) {
            o->in = a;
        } else if (o->out.empty()) {
            o->out = a;
        } else {
            return usageError("too many files");
        }
    }
    if (o->plugin.empty() == o->bundle.empty())
        return usageError("one of --vst2 FILE and --vst3 BUNDLE is needed");
    if (o->in.empty() || o->out.empty())
        return usageError("an input and an output file are needed");
    return 0;
}

int applyVst2(const ApplyOptions& o)
{
    BLNOTIFY_AddDefaultHandler(noHostHandler, nullptr);
    BLDEBUG_SetLogCallback(onLog, nullptr);
    BLDEBUG_SetStderrEnabled(0); // our own message says it better
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(o.plugin.c_str(), o.id, false);
    if (e && !AUDIOVST_IsEffect(e)) {
        std::string list;
        for (int k = 0; k < AUDIOVST_PluginsCount(e); ++k)
            list += "\n  --id " + std::to_string(AUDIOVST_GetPluginId(e, k)) + "  " + AUDIOVST_GetPluginName(e, k);
        return fail(o.plugin + " holds several plugins; choose one:" + list);
    }
    if (!e || !AUDIOVST_IsEnabled(e))
        return fail(whyNot(o.plugin, o.id));

    std::string config = "vsteffect_hash=" + quoted(AUDIOVST_GetHash(e)) + ",vsteffect_filename=" + quoted(o.plugin);
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
    return render("VST host", config, o.in, o.out);
}

} // namespace

int cmdApply(int argc, char** argv)
{
    ApplyOptions o;
    bool help = false;
    if (const int status = readOptions(argc, argv, &o, &help))
        return status;
    if (help) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (!o.bundle.empty())
        return applyVst3(o.bundle, o.cid, o.params, o.state, o.in, o.out);
    return applyVst2(o);
}
