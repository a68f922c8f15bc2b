#ifndef FXISOLATION_H
#define FXISOLATION_H
/* Where a VST3 or LV2 effect runs: in the editor's process, or in a host
 * program of its own. The setting "vloraudio.plugins.isolation" says
 * "never", "after_crash" (the default: once a plugin has crashed, in any
 * format and any place, it runs apart from then on) or "always"; a user's
 * choice for one plugin ("vloraudio.plugins.own_process.FORMAT.KEY") sends
 * it apart whatever the setting. VST2 keeps its own rule. format is
 * "vst3" or "lv2", id the class ID or the URI. */

#ifdef __cplusplus
extern "C" {
#endif

#define VLORFX_EXPORT __attribute__((visibility("default")))

/* 1 when an instance of the plugin made now runs in a host program. */
VLORFX_EXPORT int VLORFX_RunsInOwnProcess(const char* format, const char* id);
VLORFX_EXPORT int VLORFX_GetOwnProcess(const char* format, const char* id);
/* The user's choice; taking it back forgets the plugin's crash as well. */
VLORFX_EXPORT void VLORFX_SetOwnProcess(const char* format, const char* id, int on);
/* The plugin took a process down (or its host program): remembered. */
VLORFX_EXPORT void VLORFX_MarkCrashed(const char* format, const char* id);
VLORFX_EXPORT int VLORFX_HasCrashed(const char* format, const char* id);
/* A mode over the setting for as long as this process runs (null: none);
 * the setting itself is left as it is. */
VLORFX_EXPORT void VLORFX_SetIsolationForThisRun(const char* mode);
/* Where a fatal signal inside a plugin's call in this process writes
 * "format|id|name", the text a start after the crash reads to blame it;
 * null or empty: nowhere. */
VLORFX_EXPORT void VLORFX_SetCrashRecordPath(const char* path);
/* This process is a host program: its instances are made here, always. */
VLORFX_EXPORT void VLORFX_SetHostProgram(void);

#ifdef __cplusplus
}
#endif
#endif
