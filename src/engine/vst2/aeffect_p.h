#ifndef AEFFECT_P_H
#define AEFFECT_P_H
/* The in-process implementation of the operations table: a VST2 plugin's
 * AEffect driven in this process. */
#include "vstinstance_p.h"

#include <aeffectx.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _AEffectEngine {
    int32_t blockSize;
    int32_t sampleRate;
    float** inputs;
    float** outputs;
    VstTimeInfo timeInfo;
} _AEffectEngine;

typedef struct _AEffectInstance {
    _VstEffectInstance ops; /* first: the table is the instance */
    AEffect* effect;
    _AEffectEngine* engine;
    int32_t alive;
} _AEffectInstance;

/* The plugin id in force while a plugin's entry function runs. */
extern int32_t VLORVST_CurrentPluginId;

_VstEffectInstance* aeffectCreateEffect(VstHostCallbackProc hostCallback, void* hostData, void* entryPoint,
                                        int32_t pluginId);
VstTimeInfo* aeffectGetTime(_VstEffectInstance* instance);
const char* callbackOpCodeString(int opcode);

int aeffectCheck(_VstEffectInstance*);
int aeffectGetNumParams(_VstEffectInstance*);
int aeffectGetInitialDelay(_VstEffectInstance*);
int aeffectGetTailSize(_VstEffectInstance*);
int aeffectGetParameter(_VstEffectInstance*, int index, float* out);
int aeffectGetParameters(_VstEffectInstance*, float* out, int count);
int aeffectSetParameter(_VstEffectInstance*, int index, float value);
int aeffectSetParameters(_VstEffectInstance*, const float* values, int count);
int aeffectSetBypass(_VstEffectInstance*, int bypass);
int aeffectGetCurrentDisplayValue(_VstEffectInstance*, int index, char* out, int size);
int aeffectGetDisplayValue(_VstEffectInstance*, int index, float value, char* out, int size);
int aeffectSetStringParameter(_VstEffectInstance*, int index, const char* text);
int aeffectGetNumPrograms(_VstEffectInstance*);
int aeffectSetProgram(_VstEffectInstance*, int program);
int aeffectGetProgram(_VstEffectInstance*, int* out);
int aeffectGetProgramName(_VstEffectInstance*, char* out, int size);
int aeffectSetProgramName(_VstEffectInstance*, const char* name);
int aeffectCanEdit(_VstEffectInstance*);
int aeffectEditorGetSize(_VstEffectInstance*, int* width, int* height);
int aeffectEditorOpen(_VstEffectInstance*, void* window);
int aeffectEditorIdle(_VstEffectInstance*);
int aeffectEditorClose(_VstEffectInstance*, void* window);
int aeffectActivateEngine(_VstEffectInstance*, int blockSize, int sampleRate);
int aeffectStartEngine(_VstEffectInstance*);
int aeffectProcessAudio(_VstEffectInstance*, const float* in, float* out, int channels, int frames);
int aeffectStopEngine(_VstEffectInstance*);
int aeffectDeactivateEngine(_VstEffectInstance*);
int aeffectDestroyEffect(_VstEffectInstance*);

/* The AEffect behind an in-process instance, or null. For describing a plugin
 * (names, parameters, programs), which needs more than the table offers. */
AEffect* aeffectGetAEffect(_VstEffectInstance* instance);
/* A text the plugin writes for a dispatcher opcode (names, labels, vendor),
 * cut to size - 1 characters whatever the plugin writes; 1 on success. */
int aeffectGetString(_VstEffectInstance* instance, int opcode, int index, char* out, int size);

#ifdef __cplusplus
}
#endif
#endif
