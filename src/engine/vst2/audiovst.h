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
/* The host program for index 0 (64-bit) or 1 (32-bit), or null. */
AUDIOVST_EXPORT const char* AUDIOVST_GetVlorVstPath(int index);

AUDIOVST_EXPORT int AUDIOVST_ComputePluginHash(const char* filename, int id, char* out, int size);
AUDIOVST_EXPORT int AUDIOVST_GetPluginStatusEx(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_GetPluginFileArchEx(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_SetEnabledEx(const char* filename, int id, bool enabled);

AUDIOVST_EXPORT int AUDIOVST_GetCategory(const _VSTEFFECT* effect);
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
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_FindPluginByHash(const char* hash);
AUDIOVST_EXPORT _VSTEFFECT* AUDIOVST_FindPluginByUniqId(int id);
AUDIOVST_EXPORT int AUDIOVST_GetFileNameFromHash(const char* hash, char* out, int size);
AUDIOVST_EXPORT int AUDIOVST_ResetPlugin(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_ResetPluginFile(const char* filename, int id);
AUDIOVST_EXPORT int AUDIOVST_NeedRecheck(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_ForceRecheck(_VSTEFFECT* effect);

/* Opening the plugin's library in this process, under the record's lock. */
AUDIOVST_EXPORT int AUDIOVST_LoadPlugin(_VSTEFFECT* effect);
AUDIOVST_EXPORT int AUDIOVST_UnloadPlugin(_VSTEFFECT* effect);
/* Unlinks and frees the record; 0 while its library cannot be unloaded. */
AUDIOVST_EXPORT int AUDIOVST_DeletePlugin(_VSTEFFECT* effect);

#ifdef __cplusplus
}
#endif
#endif
