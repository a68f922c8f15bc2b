#ifndef LV2FILTER_H
#define LV2FILTER_H
#include "audiofx.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The "LV2 host" filter record, registered with the audio engine. Its
 * configuration: lv2effect_uri="URI", and optionally lv2effect_state="..." (a
 * saved state in Base64) and lv2effect_params="[v0,v1,...]" (one value a
 * parameter, in order), the state first. */
extern AUDIO_EffectFilter LV2Effect;

#ifdef __cplusplus
}
#endif
#endif
