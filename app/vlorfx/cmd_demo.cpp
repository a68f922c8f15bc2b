// The main job, as far as the library reaches today: a real plugin of the
// machine checked and described by the host program, then run in the host
// program over a test signal, and a report of what it did.
#include "commands.h"

#include "aeffect_p.h"
#include "audiovst.h"
#include "remote_p.h"
#include "vsteffect_p.h"

#include "blio.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

namespace {

constexpr int kSampleRate = 44100;
constexpr int kBlock = 512;
constexpr int kChannels = 2;

std::string pickPlugin()
{
    static const char* const preferred[] = {"/usr/lib/vst/MVerb-vst.so", "/usr/lib/vst/ZamCompX2-vst.so",
                                            "/usr/lib/vst/3BandEQ-vst.so", "/usr/lib/vst/ZamTube-vst.so"};
    for (const char* p : preferred)
        if (BLIO_Exists(p))
            return p;
    std::string found;
    if (DIR* d = opendir("/usr/lib/vst")) {
        while (dirent* ent = readdir(d)) {
            const std::string name = ent->d_name;
            if (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0) {
                found = "/usr/lib/vst/" + name;
                break;
            }
        }
        closedir(d);
    }
    return found;
}

// Two seconds of a 220 Hz tone with a slow swell and a little noise, stereo.
std::vector<float> testSignal()
{
    const int frames = 2 * kSampleRate;
    std::vector<float> s(size_t(frames) * kChannels);
    uint32_t noise = 12345;
    for (int f = 0; f < frames; ++f) {
        const double t = double(f) / kSampleRate;
        const double env = 0.2 + 0.6 * std::sin(M_PI * t / 2.0);
        for (int c = 0; c < kChannels; ++c) {
            noise = noise * 1664525u + 1013904223u;
            const double n = (double(noise >> 8) / double(1u << 24) - 0.5) * 0.02;
            s[size_t(f) * kChannels + size_t(c)] = float(env * std::sin(2 * M_PI * (220.0 + c) * t) + n);
        }
    }
    return s;
}

void levels(const std::vector<float>& s, double* peakDb, double* rmsDb)
{
    double peak = 0, sum = 0;
    for (float v : s) {
        peak = std::fmax(peak, std::fabs(double(v)));
        sum += double(v) * double(v);
    }
    const double rms = s.empty() ? 0 : std::sqrt(sum / double(s.size()));
    *peakDb = peak > 0 ? 20 * std::log10(peak) : -INFINITY;
    *rmsDb = rms > 0 ? 20 * std::log10(rms) : -INFINITY;
}

// In the host program when there is one; in this process otherwise.
_VstEffectInstance* openInstance(_VSTEFFECT* e, bool* remote)
{
    *remote = false;
    if (const char* host = AUDIOVST_GetVlorVstPath(0)) {
        char* file = _QuoteArg(AUDIOVST_GetFileName(e));
        _VstEffectInstance* fx =
            vlorvstCreateRemoteEffect(_HostCallback, nullptr, "\"%s\" --fxinstance \"%s\" --id %d", host, file,
                                      e->pluginid);
        std::free(file);
        if (fx && fx->Check(fx)) {
            *remote = true;
            return fx;
        }
        if (fx)
            fx->Terminate(fx);
    }
    if (!AUDIOVST_LoadPlugin(e))
        return nullptr;
    return aeffectCreateEffect(_HostCallback, nullptr, e->entryPoint, e->pluginid);
}

} // namespace

int cmdDemo(int argc, char** argv)
{
    const std::string path = argc > 0 ? argv[0] : pickPlugin();
    if (path.empty()) {
        std::fprintf(stderr, "vlorfx demo: no VST2 plugin found in /usr/lib/vst\n");
        return 1;
    }
    std::printf("plugin file: %s\n", path.c_str());

    const auto t0 = std::chrono::steady_clock::now();
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(path.c_str(), 0, false);
    const double checkMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    if (!e || !AUDIOVST_IsEffect(e)) {
        std::fprintf(stderr, "vlorfx demo: %s is not a usable effect (status %d)\n", path.c_str(),
                     AUDIOVST_GetPluginStatusEx(path.c_str(), 0));
        return 1;
    }
    std::printf("checked and described by %s in %.1f ms\n", AUDIOVST_GetVlorVstPath(0), checkMs);
    std::printf("name: %s\nvendor: %s\nunique id: %d, version %d, %d inputs, %d outputs\n", AUDIOVST_GetDisplayName(e),
                AUDIOVST_GetDisplayCategory(e), AUDIOVST_GetUniqueID(e), AUDIOVST_GetVersion(e),
                AUDIOVST_GetNumInputs(e), AUDIOVST_GetNumOutputs(e));
    static const char* const kinds[] = {"-", "list", "linear", "curve"};
    std::printf("parameters (%d):\n", AUDIOVST_GetNumParams(e));
    for (int p = 0; p < AUDIOVST_GetNumParams(e); ++p) {
        const ParameterRecord& r = e->parameters[p];
        std::printf("  %2d %-24s %-6s %-6s", p, r.name, r.label, kinds[r.kind & 3]);
        if (r.kind == 2)
            std::printf(" %g .. %g", double(r.minValue), double(r.maxValue));
        else if (r.kind == 3)
            std::printf(" %s .. %s", r.minDisplay, r.maxDisplay);
        else if (r.kind == 1 && r.valueType)
            std::printf(" %s", r.valueType->name);
        std::printf("\n");
    }

    bool remote = false;
    _VstEffectInstance* fx = openInstance(e, &remote);
    if (!fx) {
        std::fprintf(stderr, "vlorfx demo: %s did not open\n", path.c_str());
        return 1;
    }
    std::printf("running %s, latency %d frames\n", remote ? "in the host program" : "in this process",
                fx->GetInitialDelay(fx));

    const std::vector<float> in = testSignal();
    std::vector<float> out(in.size(), 0.0f);
    int status = 0;
    if (!fx->ActivateEngine(fx, kBlock, kSampleRate) || !fx->StartEngine(fx)) {
        std::fprintf(stderr, "vlorfx demo: the plugin's engine did not start\n");
        status = 1;
    } else {
        const int frames = int(in.size() / kChannels);
        const auto r0 = std::chrono::steady_clock::now();
        for (int f = 0; f < frames && status == 0; f += kBlock) {
            const int n = std::min(kBlock, frames - f);
            if (!fx->ProcessAudio(fx, &in[size_t(f) * kChannels], &out[size_t(f) * kChannels], kChannels, n)) {
                std::fprintf(stderr, "vlorfx demo: processing failed at frame %d\n", f);
                status = 1;
            }
        }
        const double renderMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - r0).count();
        fx->StopEngine(fx);
        fx->DeactivateEngine(fx);
        double pin, rin, pout, rout;
        levels(in, &pin, &rin);
        levels(out, &pout, &rout);
        std::printf("rendered %d frames at %d Hz in blocks of %d in %.1f ms (%.0fx real time)\n", frames, kSampleRate,
                    kBlock, renderMs, 1000.0 * frames / kSampleRate / renderMs);
        std::printf("in:  peak %6.2f dBFS  rms %6.2f dBFS\n", pin, rin);
        std::printf("out: peak %6.2f dBFS  rms %6.2f dBFS\n", pout, rout);
    }
    if (!fx->Destroy(fx))
        fx->Terminate(fx);
    AUDIOVST_UnloadPlugin(e);
    return status;
}
