#ifndef AUDIOFX_H
#define AUDIOFX_H
/* The audio engine's effect filters: a filter is a static record of entries
 * that the engine calls to create an effect from an audio format and a
 * configuration string and to push interleaved samples through it. */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The engine's audio format: 40 bytes, sample rate first, channels behind. */
typedef struct AUDIO_FORMAT {
    int32_t sampleRate;
    int16_t numChannels;
    int16_t sampleFormat; /* reserved: samples are always float here */
    int32_t reserved[8];
} AUDIO_FORMAT;

/* A configuration key the engine adds when an effect may be reconfigured
 * while it runs (a real-time use rather than an offline render). */
#define AUDIOFXPARAM_AllowReconfigure "allow_reconfigure"

typedef int (*AUDIO_fxInitializeProc)(void);
typedef int (*AUDIO_fxFinalizeProc)(void);
typedef void* (*AUDIO_fxCreateProc)(void* engine, const AUDIO_FORMAT* format, const char* config);
typedef int (*AUDIO_fxConfigureProc)(void* instance, const char* config);
/* Consumes up to *inFrames and delivers up to *outFrames interleaved frames;
 * both are set to what was done. wholeBlocks asks the filter to work in its
 * own block size (see blockSize). 1 on success. */
typedef int (*AUDIO_fxProcessProc)(void* instance, const float* in, long* inFrames, float* out, long* outFrames,
                                   int wholeBlocks);
typedef int (*AUDIO_fxDestroyProc)(void* instance);
typedef int (*AUDIO_fxResetProc)(void* instance);
typedef int (*AUDIO_fxBlockSizeProc)(void* instance);
typedef double (*AUDIO_fxTimeProc)(void* instance); /* seconds */

/* The filter record: 320 bytes. A null entry is a facility the filter does
 * not offer. The words at 32 to 52 belong to the engine and pass as they stand. */
typedef struct AUDIO_EffectFilter {
    const char* name;
    const char* shortName;
    const char* description;
    void* reserved0;
    uint32_t classWord;
    uint32_t kindWord;
    uint32_t firstCount;
    uint32_t secondCount;
    uint32_t formatMask;
    uint32_t capabilityMask;
    AUDIO_fxInitializeProc initialize;
    AUDIO_fxFinalizeProc finalize;
    void* reserved72;
    AUDIO_fxCreateProc create;
    AUDIO_fxConfigureProc configure;
    AUDIO_fxProcessProc processSamples;
    void* reserved104[3];
    AUDIO_fxDestroyProc destroy;
    void* reserved136;
    AUDIO_fxResetProc reset;
    void* reserved152[10];
    AUDIO_fxBlockSizeProc blockSize;
    AUDIO_fxTimeProc latency;
    AUDIO_fxTimeProc tailTime;
    void* reserved256[8];
} AUDIO_EffectFilter;

/* ---- the registry ---- */

/* Registers a filter (a second record of the same name replaces the first)
 * and runs its initialize entry; 1 on success. */
int AUDIO_AddEffectFilter(const AUDIO_EffectFilter* filter);
int AUDIO_RemoveEffectFilter(const char* name);
const AUDIO_EffectFilter* AUDIO_FindEffectFilter(const char* name);
int AUDIO_EffectFilterCount(void);
const AUDIO_EffectFilter* AUDIO_GetEffectFilter(int index);

/* ---- the engine side: one effect made from a filter ---- */

typedef struct AUDIO_Effect AUDIO_Effect;

/* Null with a message in error (when given) if the filter is unknown or its
 * create entry refuses. */
AUDIO_Effect* AUDIO_CreateEffect(const char* filterName, const AUDIO_FORMAT* format, const char* config, char* error,
                                 int errorSize);
int AUDIO_ConfigureEffect(AUDIO_Effect* effect, const char* config);
int AUDIO_ProcessEffect(AUDIO_Effect* effect, const float* in, long* inFrames, float* out, long* outFrames);
int AUDIO_ProcessEffectEx(AUDIO_Effect* effect, const float* in, long* inFrames, float* out, long* outFrames,
                          int wholeBlocks);
/* 0 (or 0.0) where the filter offers no such entry. */
int AUDIO_ResetEffect(AUDIO_Effect* effect);
int AUDIO_EffectBlockSize(AUDIO_Effect* effect);
double AUDIO_EffectLatency(AUDIO_Effect* effect);
double AUDIO_EffectTailTime(AUDIO_Effect* effect);
int AUDIO_DestroyEffect(AUDIO_Effect* effect);

/* A filter's create entry says why it made no effect, for the user: the
 * text AUDIO_CreateEffect gives (on this thread). */
void AUDIO_SetEffectError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- offline rendering of a file ---- */

/* fraction from 0 to 1; a non-zero answer cancels the render */
typedef int (*AUDIO_ProgressProc)(void* user, double fraction);

/* Reads input with libsndfile, runs it through a new effect of the filter in
 * blocks, and writes output in the format its extension names (the input's
 * sample format where that format holds it; see audio_output.h). The result
 * is written beside output and moved over it at the end, so a failure leaves
 * nothing at output; only a regular file or nothing is replaced. A sample
 * that is no number (NaN, infinity) fails the render. A latency the filter
 * reports is dropped from the start; after the input, silence is fed for as
 * long as the effect still owes frames (up to ten seconds), so that the
 * output lines up with the input and is as long. 1 on success; on failure
 * error holds a message for the user. */
int AUDIO_RenderFile(const char* filterName, const char* config, const char* input, const char* output,
                     AUDIO_ProgressProc progress, void* user, char* error, int errorSize);

/* What a render did beyond its output. */
typedef struct AUDIO_RenderReport {
    long long clippedSamples; /* beyond full scale, cut by an output format of whole numbers */
    double peak;              /* the largest magnitude the effect gave, 1 being full scale */
    int floatOutput;          /* the output holds 32-bit floats */
    double inputPeak;         /* the largest magnitude of the input */
    long long frames;         /* frames written, as many as the input has */
    int channels;
    int sampleRate;
} AUDIO_RenderReport;

enum { AUDIO_RENDER_FLOAT = 1 /* write 32-bit float, whatever the input's format */ };

/* AUDIO_RenderFile with flags, and what it did in *report (may be null). */
int AUDIO_RenderFileEx(const char* filterName, const char* config, const char* input, const char* output, int flags,
                       AUDIO_ProgressProc progress, void* user, AUDIO_RenderReport* report, char* error,
                       int errorSize);

#ifdef __cplusplus
}
#endif
#endif
