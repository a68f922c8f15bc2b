// A stand-in for the editor's process with a plugin that crashes in it: the
// crash record named, one VST3 or LV2 instance made here and one block run.
// usage: vlor_crash_child RECORD vst3 BUNDLE UID | vlor_crash_child RECORD lv2 URI
// (the VST3 fixture's fault comes from VLOR_FIXTURE_FAULT, as in the host.)
#include "fxisolation.h"
#include "lv2engine.h"
#include "vst3engine.h"

#include <cstring>
#include <vector>

int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    VLORFX_SetCrashRecordPath(argv[1]);
    std::vector<float> in(512, 0.25f), out(512);
    if (!std::strcmp(argv[2], "vst3") && argc == 5) {
        VLORVST3_Initialize();
        _Vst3Instance* h = VLORVST3_CreateInstanceEx(argv[3], argv[4], 0);
        return h && VLORVST3_StartEngine(h) && VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 256) ? 0 : 3;
    }
    char error[256];
    VLORLV2_Initialize();
    _Lv2Instance* d = VLORLV2_CreateInstanceEx(argv[3], 48000, 512, 0, error, sizeof(error));
    return d && VLORLV2_Activate(d) && VLORLV2_ProcessAudio(d, in.data(), out.data(), 2, 256) ? 0 : 3;
}
