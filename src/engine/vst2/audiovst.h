#ifndef AUDIOVST_H
#define AUDIOVST_H
/* The VST2 effect engine: flat functions over opaque records. A null handle
 * answers 0, null or nothing; results are 1 for success and 0 for failure;
 * errors go to BLDEBUG_Error and no further. */
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define AUDIOVST_EXPORT __attribute__((visibility("default")))

typedef struct _VSTEFFECT _VSTEFFECT;

/* Status word of AUDIOVST_GetPluginStatusEx */
enum {
    AUDIOVST_STATUS_DISABLED = 1,
    AUDIOVST_STATUS_CRASHED = 2,
    AUDIOVST_STATUS_UNKNOWN = 4,
    AUDIOVST_STATUS_UNSUPPORTED = 8,
    AUDIOVST_STATUS_NOFILE = 16,
    AUDIOVST_STATUS_DUPLICATED = 32,
    AUDIOVST_STATUS_RAWMODE = 64
};

/* Notifications sent through BLNOTIFY_SendEvent */
enum {
    AUDIOVST_NOTIFY_EDITOR_RESIZE = 118, /* a = int* width, b = int* height */
    AUDIOVST_NOTIFY_NO_HOST = 123
};

AUDIOVST_EXPORT int AUDIOVST_Initialize(void);
AUDIOVST_EXPORT int AUDIOVST_Finalize(void);

AUDIOVST_EXPORT int AUDIOVST_SetVlorVstPath(const char* dir);
/* Forgets the host program: instances made from now on run in this process.
 * Resolution finds the host again when it next needs one. */
AUDIOVST_EXPORT void AUDIOVST_ForgetVlorVstPath(void);
/* The host program for index 0 (64-bit) or 1 (32-bit), or null. */
AUDIOVST_EXPORT const char* AUDIOVST_GetVlorVstPath(int index);

AUDIOVST_EXPORT int AUDIOVST_ComputePluginHash(const char* filename, int id, char* out, int size);
AUDIOVST_EXPORT int AUDIOVST_GetPluginStatusEx(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_GetPluginFileArchEx(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_SetEnabledEx(const char* filename, int id, bool enabled);

AUDIOVST_EXPORT int AUDIOVST_GetCategory(const _VSTEFFECT* effect);
/* What the plugin says it is (the ABI's plugin category): 0 when unknown. */
AUDIOVST_EXPORT int AUDIOVST_GetPlugCategory(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetArch(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetUniqueID(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetFileName(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetHash(const _VSTEFFECT* effect);
AUDIOVST_EXPORT bool AUDIOVST_IsEffect(const _VSTEFFECT* effect);
AUDIOVST_EXPORT bool AUDIOVST_IsCrashed(const _VSTEFFECT* effect);
AUDIOVST_EXPORT bool AUDIOVST_IsNative(const _VSTEFFECT* effect);
AUDIOVST_EXPORT bool AUDIOVST_IsEnabled(const _VSTEFFECT* effect);
AUDIOVST_EXPORT bool AUDIOVST_IsSupported(const _VSTEFFECT* effect);

AUDIOVST_EXPORT int AUDIOVST_GetVersion(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetNumInputs(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetNumOutputs(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetNumParams(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetProductString(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetEffectName(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetVendorString(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetDisplayName(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetDisplayCategory(const _VSTEFFECT* effect);

AUDIOVST_EXPORT int AUDIOVST_PluginsCount(const _VSTEFFECT* shell);
AUDIOVST_EXPORT const char* AUDIOVST_GetPluginName(const _VSTEFFECT* shell, int index);
AUDIOVST_EXPORT int AUDIOVST_GetPluginId(const _VSTEFFECT* shell, int index);

/* Resolution: a usable record for a file and id, checking the plugin in the
 * host program when what is stored cannot be trusted. Null unless supported. */
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_FindPluginEx(const char* filename, int id, bool force);
/* Why the last AUDIOVST_FindPluginEx of the calling thread gave no plugin, in
 * words for the user ("did not answer within 120 s"); empty when it gave one
 * or did not say. */
AUDIOVST_EXPORT const char* AUDIOVST_GetLastFailure(void);
/* Checks made ahead of their turn. AUDIOVST_CheckAhead runs the check of a
 * plugin file in the host programs now, on the calling thread (any thread,
 * several at once), and keeps the outcome: the next AUDIOVST_FindPluginEx of
 * that file and id that needs a check takes it instead of starting a child,
 * as long as the file has not changed. Nothing else is touched, so the
 * resolutions, run in their own order, come out as if each had checked
 * itself. stop, polled while the child runs, ends it: 1 counts as skipped by
 * the user, 2 as cancelled. Gives the status of the last child. */
AUDIOVST_EXPORT int AUDIOVST_CheckAhead(const char* filename, int id, int (*stop)(void* user), void* user);
/* Whether the next resolution of that file and id would check it in a child
 * (a plugin never checked, one asked to be checked again, a file changed or a
 * description gone since): 1 or 0. Nothing is loaded or started. */
AUDIOVST_EXPORT int AUDIOVST_WouldCheck(const char* filename, int id);
/* Forgets the outcomes nobody took. */
AUDIOVST_EXPORT void AUDIOVST_DropChecksAhead(void);
/* How long a check may take before its child is killed and the plugin is
 * recorded as having timed out: for checks made ahead. Default 30000 ms. */
AUDIOVST_EXPORT void AUDIOVST_SetCheckTimeout(int milliseconds);
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_FindPluginByHash(const char* hash);
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_FindPluginByUniqId(int id);
AUDIOVST_EXPORT int AUDIOVST_GetFileNameFromHash(const char* hash, char* out, int size);
AUDIOVST_EXPORT int AUDIOVST_ResetPlugin(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_ResetPluginFile(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_NeedRecheck(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_ForceRecheck(_VSTEFFECT* effect);

/* ---- instances: in the host program when there is one, else in process ---- */

typedef struct _VSTINSTANCE _VSTINSTANCE;

AUDIOVST_EXPORT _VSTINSTANCE* AUDIOVST_CreateInstance(_VSTEFFECT* effect);
AUDIOVST_EXPORT _VSTINSTANCE* AUDIOVST_CreateConfigInstance(_VSTEFFECT* effect);
AUDIOVST_EXPORT _VSTINSTANCE* AUDIOVST_GetConfigInstance(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_ReleaseConfigInstance(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_DestroyConfigInstance(_VSTINSTANCE** instance);
AUDIOVST_EXPORT int AUDIOVST_TerminateConfigInstance(_VSTINSTANCE** instance);
AUDIOVST_EXPORT int AUDIOVST_DestroyInstance(_VSTINSTANCE* instance);
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_GetEffectFromInstance(_VSTINSTANCE* instance);
/* 1 when the instance runs in the host program. */
AUDIOVST_EXPORT int AUDIOVST_IsRemoteInstance(_VSTINSTANCE* instance);

/* Static description, from the record. */
AUDIOVST_EXPORT const char* AUDIOVST_GetParameterName(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT const char* AUDIOVST_GetParameterLabel(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT int AUDIOVST_GetParameterKind(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT float AUDIOVST_GetParameterMinValue(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT float AUDIOVST_GetParameterMaxValue(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT const char* AUDIOVST_GetParameterMinValueString(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT const char* AUDIOVST_GetParameterMaxValueString(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT int AUDIOVST_GetNumParamOptions(const _VSTEFFECT* effect, int index);
AUDIOVST_EXPORT const char* AUDIOVST_GetParamOptionLabel(const _VSTEFFECT* effect, int index, int option);
AUDIOVST_EXPORT int AUDIOVST_GetNumBuiltInPrograms(const _VSTEFFECT* effect);
AUDIOVST_EXPORT const char* AUDIOVST_GetProgramName(const _VSTEFFECT* effect, int program);
AUDIOVST_EXPORT const float* AUDIOVST_GetBuiltInProgramParams(const _VSTEFFECT* effect, int program);
AUDIOVST_EXPORT const float* AUDIOVST_GetDefaultProgram(const _VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_GetProgramIndex(const _VSTEFFECT* effect, const char* name);

/* Per instance; 0 when the instance, its effect or its implementation is missing. */
AUDIOVST_EXPORT int AUDIOVST_CheckState(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_HasEditor(_VSTINSTANCE* instance);
AUDIOVST_EXPORT float AUDIOVST_GetParameter(_VSTINSTANCE* instance, int index);
AUDIOVST_EXPORT int AUDIOVST_SetParameter(_VSTINSTANCE* instance, int index, float value);
AUDIOVST_EXPORT int AUDIOVST_GetParameters(_VSTINSTANCE* instance, float* values, int count);
AUDIOVST_EXPORT int AUDIOVST_SetParameters(_VSTINSTANCE* instance, const float* values, int count);
AUDIOVST_EXPORT int AUDIOVST_SetStringParameter(_VSTINSTANCE* instance, int index, const char* text);
AUDIOVST_EXPORT int AUDIOVST_SetBypass(_VSTINSTANCE* instance, int bypass);
AUDIOVST_EXPORT int AUDIOVST_GetInitialDelay(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_GetTailSize(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_GetNumPrograms(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_SetProgram(_VSTINSTANCE* instance, int program);
AUDIOVST_EXPORT int AUDIOVST_SetProgramName(_VSTINSTANCE* instance, const char* name);
AUDIOVST_EXPORT int AUDIOVST_GetCurrentProgramName(_VSTINSTANCE* instance, char* out, int size);
AUDIOVST_EXPORT int AUDIOVST_ActivateEngine(_VSTINSTANCE* instance, int blockSize, int sampleRate);
AUDIOVST_EXPORT int AUDIOVST_DeactivateEngine(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_StartEngine(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_StopEngine(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_ProcessSamples(_VSTINSTANCE* instance, const float* in, float* out, int channels,
                                            int frames);
/* A block through instances in order, out the last one's output: those that
 * share a host program (the setting "vloraudio.plugins.host_groups") in one
 * round trip. 1 on success. */
AUDIOVST_EXPORT int AUDIOVST_ProcessChain(_VSTINSTANCE** instances, int count, const float* in, float* out,
                                          int channels, int frames);
/* Whether two instances run in one host program. */
AUDIOVST_EXPORT int AUDIOVST_SameHostProgram(_VSTINSTANCE* a, _VSTINSTANCE* b);
/* After an instance's host program ended: 1 when its own plugin was in the
 * call in flight, 0 when another plugin in that program was; -1 while the
 * host runs, or for an instance in this process. */
AUDIOVST_EXPORT int AUDIOVST_GetCrashBlame(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_EditorGetSize(_VSTINSTANCE* instance, int* width, int* height);
AUDIOVST_EXPORT int AUDIOVST_EditorOpen(_VSTINSTANCE* instance, void* window);
AUDIOVST_EXPORT int AUDIOVST_EditorIdle(_VSTINSTANCE* instance);
AUDIOVST_EXPORT int AUDIOVST_EditorClose(_VSTINSTANCE* instance, void* window);
AUDIOVST_EXPORT int AUDIOVST_GetParameterDisplayString(_VSTINSTANCE* instance, int index, char* out, int size,
                                                       float value);
AUDIOVST_EXPORT int AUDIOVST_SetParameterOption(_VSTINSTANCE* instance, int index, const char* label);

/* Opening the plugin's library in this process, under the record's lock. */
AUDIOVST_EXPORT int AUDIOVST_LoadPlugin(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_UnloadPlugin(_VSTEFFECT* effect);
/* Unlinks and frees the record; 0 while its library cannot be unloaded. */
AUDIOVST_EXPORT int AUDIOVST_DeletePlugin(_VSTEFFECT* effect);

#ifdef __cplusplus
}
#endif
#endif
