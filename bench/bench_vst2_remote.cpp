// The cost of running a plugin in the host program.
//  1. One "aud " round trip against a bare echo of the same bytes between two
//     processes, the physical limit of a pipe design, at 64 to 8192 frames.
//  2. --check plus --info per plugin over every VST2 plugin of the system,
//     with the description --check leaves for --info and without it.
//
//   build/bin/bench_vst2_remote [--rounds N] [--skip-scan]
//   build/bin/bench_vst2_remote --echo BYTES_IN BYTES_OUT   (the echo child)
#include "audiovst.h"
#include "remote_p.h"
#include "vlorvst_protocol.h"
#include "vsteffect_p.h"

#include "libbase.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double micros(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

int echoChild(size_t in, size_t out)
{
    std::vector<char> buf(std::max(in, out));
    for (;;) {
        size_t got = 0;
        while (got < in) {
            const ssize_t n = read(0, buf.data() + got, in - got);
            if (n <= 0)
                return 0;
            got += size_t(n);
        }
        if (write(1, buf.data(), out) != ssize_t(out))
            return 1;
    }
}

// Median round trip of a bare echo: one write of the request, one read of the answer.
double bareEcho(const std::string& self, int frames, int rounds)
{
    const size_t samples = size_t(frames) * 2 * sizeof(float);
    const size_t in = 16 + samples, out = 8 + samples;
    BLPOpenIO io = BLPOPENIO_Create("rw", (self + " --echo " + std::to_string(in) + " " + std::to_string(out)).c_str());
    std::vector<char> request(in, 1), answer(out);
    std::vector<double> times;
    for (int r = 0; r < rounds; ++r) {
        const auto t0 = Clock::now();
        BLPOPENIO_WriteData(io, request.data(), int(in));
        size_t got = 0;
        while (got < out) {
            const int n = BLPOPENIO_ReadDataEx(io, answer.data() + got, int(out - got), 5000);
            if (n <= 0)
                break;
            got += size_t(n);
        }
        times.push_back(micros(Clock::now() - t0));
    }
    BLPOPENIO_CloseEx(io, 0, 0);
    return median(times);
}

double audRoundTrip(const std::string& host, const std::string& plugin, int frames, int rounds)
{
    _VstEffectInstance* fx =
        vlorvstCreateRemoteEffect(nullptr, nullptr, "\"%s\" --fxinstance \"%s\" --id 0", host.c_str(), plugin.c_str());
    if (!fx || !fx->Check(fx) || !fx->ActivateEngine(fx, frames, 44100) || !fx->StartEngine(fx)) {
        std::fprintf(stderr, "the host did not come up\n");
        std::exit(1);
    }
    std::vector<float> in(size_t(frames) * 2, 0.25f), out(in.size());
    std::vector<double> times;
    for (int r = 0; r < rounds; ++r) {
        const auto t0 = Clock::now();
        fx->ProcessAudio(fx, in.data(), out.data(), 2, frames);
        times.push_back(micros(Clock::now() - t0));
    }
    fx->StopEngine(fx);
    fx->DeactivateEngine(fx);
    fx->Destroy(fx);
    return median(times);
}

void collect(const std::string& dir, int depth, std::vector<std::string>* out)
{
    DIR* d = opendir(dir.c_str());
    if (!d)
        return;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = dir + "/" + name;
        if (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0)
            out->push_back(path);
        else if (depth > 0)
            collect(path, depth - 1, out);
    }
    closedir(d);
    std::sort(out->begin(), out->end());
}

double timeIt(const std::string& command, bool popen)
{
    const auto t0 = Clock::now();
    if (popen) {
        BLDOM dom = BLDOM_CreateFromXMLFile(("popen://" + command).c_str());
        BLDOM_Destroy(dom);
    } else {
        BLCORE_Spawn("%s", command.c_str());
    }
    return micros(Clock::now() - t0) / 1000.0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && !std::strcmp(argv[1], "--echo"))
        return echoChild(size_t(std::atoll(argv[2])), size_t(std::atoll(argv[3])));
    int rounds = 2000;
    bool scan = true;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc)
            rounds = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--skip-scan"))
            scan = false;
    }
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    self[n > 0 ? n : 0] = '\0';
    const std::string bin = std::string(self).substr(0, std::string(self).rfind('/'));
    const std::string host = bin + "/vlorvst";
    const std::string plugin = bin + "/../fixtures/vst/vlor-fixture-stereo.so";
    BLDEBUG_SetStderrEnabled(0);
    AUDIOVST_Initialize();
    _RegisterRemoteIOCallbacks();

    std::printf("\"aud \" round trip, stereo, median of %d (microseconds)\n", rounds);
    std::printf("%8s %12s %12s %8s\n", "frames", "bare echo", "aud ", "ratio");
    for (int frames : {64, 512, 2048, 8192}) {
        const double echo = bareEcho(self, frames, rounds);
        const double aud = audRoundTrip(host, plugin, frames, rounds);
        std::printf("%8d %12.1f %12.1f %8.2f\n", frames, echo, aud, aud / echo);
    }

    if (!scan)
        return 0;
    std::vector<std::string> plugins;
    collect("/usr/lib/vst", 1, &plugins);
    collect("/usr/lib/lxvst", 1, &plugins);
    std::vector<double> withCache, withoutCache;
    std::string slowest;
    double slowestTime = 0;
    for (const std::string& p : plugins) {
        const std::string args = " \"" + p + "\" --id 0";
        const double check = timeIt("\"" + host + "\" --check" + args, false);
        const double infoCached = timeIt("\"" + host + "\" --info" + args, true);
        const double infoCold = timeIt("\"" + host + "\" --info" + args, true); // the check's description is used up
        withCache.push_back(check + infoCached);
        withoutCache.push_back(check + infoCold);
        if (check + infoCached > slowestTime) {
            slowestTime = check + infoCached;
            slowest = p;
        }
    }
    std::printf("\n--check + --info over %zu plugin files (milliseconds)\n", plugins.size());
    std::printf("  with the check's description kept for --info: median %.1f, slowest %.1f (%s)\n", median(withCache),
                slowestTime, slowest.c_str());
    std::printf("  loading the plugin for each:                  median %.1f, slowest %.1f\n", median(withoutCache),
                *std::max_element(withoutCache.begin(), withoutCache.end()));
    return 0;
}
