#ifndef VSTINSTANCE_P_H
#define VSTINSTANCE_P_H
/* The table of operations behind which a VST2 plugin runs, in this process
 * (the AEffect adapter) or in the host program (the remote client). Both fill
 * the same table, so the layers above cannot tell them apart. */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _VstEffectInstance _VstEffectInstance;

enum { VSTEFFECT_MESSAGE_RESIZE = 0, VSTEFFECT_MESSAGE_OTHER = 1 };

typedef struct _VstEffectMessage {
    int32_t type;
    _VstEffectInstance* instance;
    int32_t width;
    int32_t height;
} _VstEffectMessage;

typedef int (*VstHostCallbackProc)(void* hostData, _VstEffectMessage* message);

struct _VstEffectInstance {
    int (*Check)(_VstEffectInstance*);
    int (*GetNumParams)(_VstEffectInstance*);
    int (*GetInitialDelay)(_VstEffectInstance*);
    int (*GetTailSize)(_VstEffectInstance*);
    int (*GetParameter)(_VstEffectInstance*, int index, float* out);
    int (*GetParameters)(_VstEffectInstance*, float* out, int count);
    int (*SetParameter)(_VstEffectInstance*, int index, float value);
    int (*SetParameters)(_VstEffectInstance*, const float* values, int count);
    int (*SetBypass)(_VstEffectInstance*, int bypass);
    int (*GetCurrentDisplayValue)(_VstEffectInstance*, int index, char* out, int size);
    int (*GetDisplayValue)(_VstEffectInstance*, int index, float value, char* out, int size);
    int (*SetStringParameter)(_VstEffectInstance*, int index, const char* text);
    int (*GetNumPrograms)(_VstEffectInstance*);
    int (*SetProgram)(_VstEffectInstance*, int program);
    int (*GetProgram)(_VstEffectInstance*, int* out);
    int (*GetProgramName)(_VstEffectInstance*, char* out, int size);
    int (*SetProgramName)(_VstEffectInstance*, const char* name);
    int (*CanEdit)(_VstEffectInstance*);
    int (*EditorGetSize)(_VstEffectInstance*, int* width, int* height);
    int (*EditorOpen)(_VstEffectInstance*, void* window);
    int (*EditorIdle)(_VstEffectInstance*);
    int (*EditorClose)(_VstEffectInstance*, void* window);
    int (*ActivateEngine)(_VstEffectInstance*, int blockSize, int sampleRate);
    int (*StartEngine)(_VstEffectInstance*);
    int (*ProcessAudio)(_VstEffectInstance*, const float* in, float* out, int channels, int frames);
    int (*StopEngine)(_VstEffectInstance*);
    int (*DeactivateEngine)(_VstEffectInstance*);
    int (*Destroy)(_VstEffectInstance*);
    int (*Terminate)(_VstEffectInstance*);

    VstHostCallbackProc hostCallback;
    void* hostData;
};

/* The hostCallback that the instance layer installs: turns an editor resize
 * into notification 118. */
int _HostCallback(void* hostData, _VstEffectMessage* message);

#ifdef __cplusplus
}
#endif
#endif
