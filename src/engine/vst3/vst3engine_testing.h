#ifndef VST3ENGINE_TESTING_H
#define VST3ENGINE_TESTING_H
// For the tests and the benchmarks only, through the target
// qtvloraudioplugins_testing (with the SDK): the inside of an instance of
// vst3engine.h, so that a plugin's own process() can be measured beside the
// filter's. An application uses vst3engine.h.
#include "vst3engine.h"

#include "vst3instance_p.h"

#endif
