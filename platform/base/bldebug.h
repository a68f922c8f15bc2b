#ifndef BLDEBUG_H
#define BLDEBUG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*BLDebugLogCallback)(void* user, int code, const char* message);

/* Writes the formatted message to stderr (unless silenced) and hands it to the
 * log callback. code -1 is the usual "error" code. Returns 0. */
int BLDEBUG_Error(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));
/* One callback for the process; null removes it. */
void BLDEBUG_SetLogCallback(BLDebugLogCallback callback, void* user);
/* Turns the stderr copy on or off; returns the old setting. */
int BLDEBUG_SetStderrEnabled(int enabled);

#ifdef __cplusplus
}
#endif
#endif
