#ifndef VST3FILTER_H
#define VST3FILTER_H
#include "audiofx.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The "VST3 host" filter record, registered with the audio engine. */
extern AUDIO_EffectFilter VST3Effect;

#ifdef __cplusplus
}
#endif
#endif
