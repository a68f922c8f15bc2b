// The child side of checking LV2 plugins: one plugin, or the plugins of one
// bundle in turn. Their code is foreign, so whatever it does to this process
// (crash, abort, hang, chatter) stays here, and the parent reads lines.
#include "../hostreply_p.h"
#include "lv2engine.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr double kCheckRate = 48000;
constexpr int kCheckFrames = 512;
// Long enough for a plugin to fill its delay lines and show what it does
// to noise; short enough that a scan of hundreds stays quick.
constexpr int kCheckBlocks = 24;

std::string recordJson(const Lv2PluginRecord& r)
{
    return "\"uri\":" + HostJsonString(r.uri) + ",\"name\":" + HostJsonString(r.name) +
           ",\"maker\":" + HostJsonString(r.maker) + ",\"class\":" + HostJsonString(r.className) +
           ",\"audioInputs\":" + std::to_string(r.audioInputs) + ",\"audioOutputs\":" + std::to_string(r.audioOutputs) +
           ",\"sideChainInputs\":" + std::to_string(r.sideChainInputs) +
           ",\"parameters\":" + std::to_string(r.controlInputs) + ",\"effect\":" + (r.isEffect ? "true" : "false") +
           ",\"x11Ui\":" + (r.hasX11Ui ? "true" : "false") + ",\"binary\":" + HostJsonString(r.binary);
}

// Noise through the running instance: the failure's text, or empty; whether
// the output differed from the input in *changed.
std::string processNoise(_Lv2Instance* fx, int channels, bool* changed)
{
    std::vector<float> in(size_t(kCheckFrames) * size_t(channels)), out(in.size());
    unsigned seed = 1;
    for (int block = 0; block < kCheckBlocks; ++block) {
        for (float& v : in) {
            seed = seed * 1103515245u + 12345u;
            v = float((seed >> 9) & 0xffff) / 32768.0f - 1.0f;
            v *= 0.25f;
        }
        if (VLORLV2_ProcessAudio(fx, in.data(), out.data(), channels, kCheckFrames) != 1)
            return "the plugin fails to process audio";
        for (size_t i = 0; i < out.size(); ++i) {
            if (!std::isfinite(out[i]))
                return "the plugin turns noise into invalid samples (not a number or infinite)";
            *changed = *changed || out[i] != in[i];
        }
    }
    return std::string();
}

// One plugin checked: its record and what the check found, as a JSON object.
std::string checkOne(const Lv2PluginRecord& record)
{
    const std::string head = "{" + recordJson(record);
    auto failed = [&head](const std::string& why) {
        return head + ",\"ok\":false,\"error\":" + HostJsonString(why.c_str()) + "}";
    };
    if (record.missingFeature[0])
        return failed(std::string("the plugin requires a feature this host does not offer: ") + record.missingFeature);
    char error[512];
    _Lv2Instance* fx = VLORLV2_CreateInstance(record.uri, kCheckRate, kCheckFrames, error, sizeof(error));
    if (!fx)
        return failed(error);
    int inputs = 0, outputs = 0;
    VLORLV2_GetBusChannels(fx, &inputs, &outputs);
    const int channels = std::max(1, std::max(inputs, outputs));
    VLORLV2_Activate(fx);
    bool changed = false;
    const std::string processError = processNoise(fx, channels, &changed);
    const int latency = VLORLV2_GetLatency(fx);
    if (processError.empty())
        VLORLV2_FreeString(VLORLV2_GetState(fx));
    VLORLV2_Deactivate(fx);
    VLORLV2_DestroyInstance(fx);
    if (!processError.empty())
        return failed(processError);
    return head + ",\"ok\":true,\"latency\":" + std::to_string(latency) +
           ",\"changesAudio\":" + (changed ? "true" : "false") + "}";
}

int check(const char* uri)
{
    Lv2PluginRecord record;
    if (!VLORLV2_DescribePlugin(uri, &record))
        return HostFail("no LV2 plugin has this URI");
    const std::string result = checkOne(record);
    HostReply(result);
    return result.find("\"ok\":true") != std::string::npos ? 0 : 1;
}

// Every plugin of one bundle, in URI order from the one after `after`: a
// line before each check names it, a line after tells what it found, so
// that a plugin that takes the child down is known by the parent, which
// starts another child after it. Plugins that are no effects are not run.
// With `only`, that plugin alone: a user's recheck of one plugin of a large
// bundle need not wait for all of its siblings.
int checkBundle(const char* after, const char* only)
{
    // One plugin's data alone is read for `only`: lilv reads a plugin's files
    // when it is first asked of, and a large bundle's take seconds.
    std::vector<Lv2PluginRecord> records;
    if (only) {
        records.resize(1);
        if (!VLORLV2_DescribePlugin(only, records.data()))
            records.clear();
    } else {
        records.resize(size_t(std::max(VLORLV2_ListPlugins(nullptr, 0), 0)));
        VLORLV2_ListPlugins(records.data(), int(records.size()));
    }
    int checked = 0;
    for (const Lv2PluginRecord& r : records) {
        if ((after && std::strcmp(r.uri, after) <= 0) || (only && std::strcmp(r.uri, only) != 0))
            continue;
        if (!r.isEffect) {
            HostReplyLine("{\"plugin\":{" + recordJson(r) + ",\"ok\":false,\"error\":\"not an effect\"}}");
            continue;
        }
        HostReplyLine("{\"checking\":" + HostJsonString(r.uri) + ",\"record\":{" + recordJson(r) + "}}");
        HostReplyLine("{\"plugin\":" + checkOne(r) + "}");
        ++checked;
    }
    HostReply("{\"ok\":true,\"plugins\":" + std::to_string(records.size()) + ",\"checked\":" +
              std::to_string(checked) + "}");
    return 0;
}

// The options after --check-bundle FOLDER: --after URI and --only URI, each at most once.
bool bundleOptions(int argc, char** argv, const char** after, const char** only)
{
    for (int i = 3; i < argc; i += 2) {
        const char** slot = !std::strcmp(argv[i], "--after") ? after : !std::strcmp(argv[i], "--only") ? only : nullptr;
        if (!slot || *slot || i + 1 >= argc)
            return false;
        *slot = argv[i + 1];
    }
    return true;
}

int list()
{
    const int count = VLORLV2_ListPlugins(nullptr, 0);
    std::vector<Lv2PluginRecord> records(size_t(std::max(count, 0)));
    VLORLV2_ListPlugins(records.data(), count);
    std::string out = "{\"ok\":true,\"plugins\":[";
    for (size_t i = 0; i < records.size(); ++i)
        out += (i ? ",{" : "{") + recordJson(records[i]) +
               ",\"missingFeature\":" + HostJsonString(records[i].missingFeature) + "}";
    HostReply(out + "]}");
    return 0;
}

} // namespace

int vlorlv2ServeInstance(int argc, char** argv);

extern "C" VLORLV2_EXPORT int VLORLV2_HostMain(int argc, char** argv)
{
    // The instance mode answers on the protocol, not in JSON.
    if (argc >= 3 && !std::strcmp(argv[1], "--fxinstance"))
        return vlorlv2ServeInstance(argc, argv);
    if (const int status = HostReplyBegin())
        return status;
    int status;
    const char* after = nullptr;
    const char* only = nullptr;
    if (argc == 3 && !std::strcmp(argv[1], "--check") && VLORLV2_Initialize()) {
        status = check(argv[2]);
    } else if (argc >= 3 && !std::strcmp(argv[1], "--check-bundle") && bundleOptions(argc, argv, &after, &only) &&
               VLORLV2_InitializeBundle(argv[2])) {
        status = checkBundle(after, only);
    } else if (argc == 2 && !std::strcmp(argv[1], "--list") && VLORLV2_Initialize()) {
        status = list();
    } else {
        std::fprintf(stderr, "usage: %s --check URI | --check-bundle FOLDER [--after URI] [--only URI] | --list\n",
                     argc > 0 ? argv[0] : "vlorlv2");
        HostFail("bad arguments to the LV2 host");
        return 2;
    }
    // Libraries unloaded after the reply could only turn a good answer bad.
    std::fflush(stderr);
    _exit(status);
}
