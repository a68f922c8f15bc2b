// vlorvst3: probes or verifies one VST3 bundle for the library and answers in
// one JSON line. All of it lives in the engine, so that the application can
// serve as its own host when this program is not installed.
#include "vst3engine.h"

int main(int argc, char** argv) { return VLORVST3_HostMain(argc, argv); }
