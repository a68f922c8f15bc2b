// vlorlv2: checks one LV2 plugin for the library, or lists what the LV2
// folders hold, and answers in one JSON line. All of it lives in the engine,
// so that the application can serve as its own host when this program is
// not installed.
#include "lv2engine.h"

int main(int argc, char** argv) { return VLORLV2_HostMain(argc, argv); }
