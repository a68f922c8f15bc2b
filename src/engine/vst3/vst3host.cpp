// The child side of probing and verifying a bundle. One job a process: the
// bundle is foreign code, so whatever it does to this process (crash, hang,
// chatter, a corrupt heap) stays here, and the parent reads one line.
#include "../hostreply_p.h"
#include "vst3engine.h"
#include "vst3module_p.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>


namespace {

// More classes than any real bundle carries; past it the reply says "truncated".
constexpr int kMaxClasses = 256;
constexpr int kVerifyRate = 44100;
constexpr int kVerifyChannels = 2;
// A few short blocks prove that processing runs; blocks of the instance's
// largest size (8192 frames) would only make heavy effects slow to verify.
constexpr int kVerifyBlocks = 4;
constexpr int kVerifyFrames = 512;

std::string moduleError(const char* bundle)
{
    std::string error;
    if (VST3::Hosting::Module::Ptr module = vlorvst3ModuleForPath(bundle, error))
        return std::string();
    return "the bundle could not be loaded: " + (error.empty() ? std::string("unknown reason") : error);
}

int probe(const char* bundle)
{
    const std::string error = moduleError(bundle);
    if (!error.empty())
        return HostFail(error);
    std::vector<Vst3ClassRecord> records(kMaxClasses + 1);
    const int count = VLORVST3_ListClasses(bundle, records.data(), kMaxClasses + 1);
    if (count < 0)
        return HostFail("the bundle has no class factory");
    const bool truncated = count > kMaxClasses;
    std::string out = "{\"ok\":true,\"classes\":[";
    for (int i = 0; i < count && i < kMaxClasses; ++i) {
        const Vst3ClassRecord& r = records[size_t(i)];
        if (i)
            out += ",";
        out += "{\"cid\":" + HostJsonString(r.uid) + ",\"name\":" + HostJsonString(r.name) +
               ",\"vendor\":" + HostJsonString(r.vendor) + ",\"version\":" + HostJsonString(r.version) +
               ",\"subCategories\":" + HostJsonString(r.subCategories) + "}";
    }
    out += "]";
    if (truncated)
        out += ",\"truncated\":true";
    HostReply(out + "}");
    return 0;
}

// A few blocks of silence through a started effect; the failure's text, or
// empty.
std::string processSilence(_Vst3Instance* fx)
{
    std::vector<float> in(size_t(kVerifyFrames) * kVerifyChannels, 0.0f), out(in.size());
    for (int block = 0; block < kVerifyBlocks; ++block) {
        if (VLORVST3_ProcessAudio(fx, in.data(), out.data(), kVerifyChannels, kVerifyFrames) != 1)
            return "the effect fails to process audio";
        for (float v : out)
            if (!std::isfinite(v))
                return "the effect turns silence into invalid samples";
    }
    return std::string();
}

// Opens the class the way an effect is used: set up, start, a few blocks of
// silence, its state read, stopped and torn down, the module unloaded.
int verify(const char* bundle, const char* cid)
{
    const std::string error = moduleError(bundle);
    if (!error.empty())
        return HostFail(error);
    _Vst3Instance* fx = VLORVST3_CreateInstance(bundle, cid);
    if (!fx)
        return HostFail(std::string("the bundle has no effect class ") + cid + " that can be created");
    if (VLORVST3_SetAudioFormat(fx, kVerifyRate, kVerifyChannels) != 1 || VLORVST3_StartEngine(fx) != 1) {
        VLORVST3_DestroyInstance(fx);
        return HostFail("the effect refuses to start in stereo at " + std::to_string(kVerifyRate) + " Hz");
    }
    const std::string processError = processSilence(fx);
    if (processError.empty())
        VLORVST3_FreeString(VLORVST3_GetConfig(fx));
    VLORVST3_StopEngine(fx);
    VLORVST3_DestroyInstance(fx);
    if (!processError.empty())
        return HostFail(processError);
    VLORVST3_Finalize();
    HostReply("{\"ok\":true}");
    return 0;
}

} // namespace

int vlorvst3ServeInstance(const char* bundle, const char* cid);

extern "C" VLORVST3_EXPORT int VLORVST3_HostMain(int argc, char** argv)
{
    // The instance mode answers on the protocol, not in a JSON line.
    if (argc == 5 && !std::strcmp(argv[1], "--fxinstance") && !std::strcmp(argv[3], "--cid"))
        return vlorvst3ServeInstance(argv[2], argv[4]);
    if (const int status = HostReplyBegin())
        return status;

    int status;
    if (argc == 3 && !std::strcmp(argv[1], "--probe")) {
        VLORVST3_Initialize();
        status = probe(argv[2]);
    } else if (argc == 5 && !std::strcmp(argv[1], "--verify") && !std::strcmp(argv[3], "--cid")) {
        VLORVST3_Initialize();
        status = verify(argv[2], argv[4]);
    } else {
        std::fprintf(stderr, "usage: %s --probe BUNDLE | --verify BUNDLE --cid CID\n", argc > 0 ? argv[0] : "vlorvst3");
        HostFail("bad arguments to the VST3 host");
        return 2;
    }
    // Module teardown after the reply could only turn a good answer bad.
    std::fflush(stderr);
    _exit(status);
}
