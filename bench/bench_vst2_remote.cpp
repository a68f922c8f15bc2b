// The cost of running a plugin in the host program.
//  1. One "aud " round trip against a bare echo of the same bytes between two
//     processes, the physical limit of a pipe design, at 64 to 8192 frames.
//  2. --check plus --info per plugin over every VST2 plugin of the system,
//     with the description --check leaves for --info and without it.
//
//   build/bin/bench_vst2_remote [--rounds N] [--skip-scan]
//   build/bin/bench_vst2_remote --echo BYTES_IN BYTES_OUT   (the echo child)
#include "audiovst.h"
#include "audiovst_testing.h"

#include "libbase.h"

#include "bench_common.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <unistd.h>
#include <vector>

using namespace bench;

namespace {

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
    runEchoChildIfAsked(argc, argv);
    int rounds = 2000;
    bool scan = true;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc)
            rounds = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--skip-scan"))
            scan = false;
    }
    const std::string bin = binDir();
    const std::string host = bin + "/vlorvst";
    const std::string plugin = bin + "/../fixtures/vst/vlor-fixture-stereo.so";
    BLDEBUG_SetStderrEnabled(0);
    AUDIOVST_Initialize();
    _RegisterRemoteIOCallbacks();

    std::printf("\"aud \" round trip, stereo, median of %d (microseconds)\n", rounds);
    std::printf("%8s %12s %12s %8s\n", "frames", "bare echo", "aud ", "ratio");
    for (int frames : {64, 512, 2048, 8192}) {
        const double echo = bareEcho(frames, 2, rounds);
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
