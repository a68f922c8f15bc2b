#ifndef LV2ENGINE_TESTING_H
#define LV2ENGINE_TESTING_H
/* Below the LV2 engine's calls, for benchmarks that time the plugin alone. */

#include "lv2engine.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The buffer of the k-th main audio input or output; null if none. */
float* VLORLV2_TestingAudioBuffer(_Lv2Instance* instance, int output, int k);
/* One bare run of the plugin on its connected buffers: lilv's call and nothing else. */
void VLORLV2_TestingRunBare(_Lv2Instance* instance, int frames);

#ifdef __cplusplus
}
#endif
#endif
