#ifndef VSTFILTER_H
#define VSTFILTER_H
#include "audiofx.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The "VST host" filter record, registered with the audio engine. */
extern AUDIO_EffectFilter VSTEffect;

#ifdef __cplusplus
}
#endif
#endif
