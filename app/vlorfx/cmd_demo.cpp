// The main job, as far as the library reaches today: a real plugin of the
// machine opened in this process, a test signal run through it, and a report.
#include "commands.h"

#include "aeffect_p.h"
#include "audiovst.h"
#include "vsteffect_p.h"

#include "blio.h"

#include <algorithm>
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

} // namespace

int cmdDemo(int argc, char** argv)
{
    const std::string path = argc > 0 ? argv[0] : pickPlugin();
    if (path.empty()) {
        std::fprintf(stderr, "vlorfx demo: no VST2 plugin found in /usr/lib/vst\n");
        return 1;
    }
    std::printf("plugin file: %s\n", path.c_str());

    _VSTEFFECT* record = _CreateEffectRecord(path.c_str(), 0);
    if (!record || !AUDIOVST_LoadPlugin(record)) {
        std::fprintf(stderr, "vlorfx demo: cannot load %s\n", path.c_str());
        if (record)
            AUDIOVST_DeletePlugin(record);
        return 1;
    }
    _VstEffectInstance* fx = aeffectCreateEffect(_HostCallback, nullptr, record->entryPoint, 0);
    if (!fx || !fx->Check(fx)) {
        std::fprintf(stderr, "vlorfx demo: %s did not open\n", path.c_str());
        AUDIOVST_DeletePlugin(record);
        return 1;
    }

    char name[128], vendor[128], product[128];
    aeffectGetString(fx, 45, 0, name, sizeof(name));
    aeffectGetString(fx, 47, 0, vendor, sizeof(vendor));
    aeffectGetString(fx, 48, 0, product, sizeof(product));
    AEffect* ae = aeffectGetAEffect(fx);
    std::printf("name: %s\nvendor: %s\nproduct: %s\nin process, %d inputs, %d outputs, latency %d frames\n", name,
                vendor, product, ae->numInputs, ae->numOutputs, fx->GetInitialDelay(fx));

    const int numParams = fx->GetNumParams(fx);
    std::printf("parameters (%d):\n", numParams);
    for (int p = 0; p < numParams; ++p) {
        char pname[128], label[128], text[16];
        float value = 0;
        aeffectGetString(fx, 8, p, pname, sizeof(pname));
        aeffectGetString(fx, 6, p, label, sizeof(label));
        fx->GetParameter(fx, p, &value);
        fx->GetCurrentDisplayValue(fx, p, text, sizeof(text));
        std::printf("  %2d %-24s %-8s %s (%.3f)\n", p, pname, text, label, double(value));
    }

    const std::vector<float> in = testSignal();
    std::vector<float> out(in.size(), 0.0f);
    int status = 0;
    if (!fx->ActivateEngine(fx, kBlock, kSampleRate) || !fx->StartEngine(fx)) {
        std::fprintf(stderr, "vlorfx demo: the plugin's engine did not start\n");
        status = 1;
    } else {
        const int frames = int(in.size() / kChannels);
        for (int f = 0; f < frames; f += kBlock) {
            const int n = std::min(kBlock, frames - f);
            fx->ProcessAudio(fx, &in[size_t(f) * kChannels], &out[size_t(f) * kChannels], kChannels, n);
        }
        fx->StopEngine(fx);
        fx->DeactivateEngine(fx);
        double pin, rin, pout, rout;
        levels(in, &pin, &rin);
        levels(out, &pout, &rout);
        std::printf("rendered %d frames at %d Hz in blocks of %d\n", frames, kSampleRate, kBlock);
        std::printf("in:  peak %6.2f dBFS  rms %6.2f dBFS\n", pin, rin);
        std::printf("out: peak %6.2f dBFS  rms %6.2f dBFS\n", pout, rout);
        if (!std::isfinite(rout) && rout > 0) {
            std::fprintf(stderr, "vlorfx demo: the output is not finite\n");
            status = 1;
        }
    }
    fx->Destroy(fx);
    AUDIOVST_UnloadPlugin(record);
    AUDIOVST_DeletePlugin(record);
    return status;
}
