#ifndef BLSETTINGS_H
#define BLSETTINGS_H
/* The application's settings store: one per process, thread-safe, kept as a
 * file in the application's data folder and written atomically.
 *
 * Every call takes a store (0: the application's store) and a printf-style
 * format. Writes format "key=value" and split at the first '='. Reads format
 * "key=[default]": the default stands in brackets behind the last '='. Keys
 * themselves therefore never contain '='. */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLSettingsStore* BLSettings;

int BLSETTINGS_ChangeEx(BLSettings store, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
/* Copies the value, or the default when the key is absent, into out; 1 when the
 * key exists, 0 when the default was used. */
int BLSETTINGS_GetStringEx(BLSettings store, char* out, int size, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int BLSETTINGS_GetIntEx(BLSettings store, const char* format, ...) __attribute__((format(printf, 2, 3)));
int64_t BLSETTINGS_GetInt64Ex(BLSettings store, const char* format, ...) __attribute__((format(printf, 2, 3)));
int BLSETTINGS_GetBoolEx(BLSettings store, const char* format, ...) __attribute__((format(printf, 2, 3)));
/* format is the key alone */
int BLSETTINGS_ExistsEx(BLSettings store, const char* format, ...) __attribute__((format(printf, 2, 3)));
/* 1 if the key was there */
int BLSETTINGS_DeleteEx(BLSettings store, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Writes pending changes now. Changes are otherwise written shortly after they
 * are made, and at exit. 1 on success. */
int BLSETTINGS_Flush(void);
/* 1 when the last write of the store failed, with "PATH: why" in out; 0
 * when it succeeded (or nothing was written yet). */
int BLSETTINGS_GetSaveError(char* out, int size);
/* Path of the file behind the application's store. */
const char* BLSETTINGS_GetFilePath(void);
/* Forgets everything in memory and reads the file again (after writing pending
 * changes). Used when the data folder changes at run time, and by tests. */
int BLSETTINGS_Reload(void);

/* The keys present, for a prefix ("" for all), as a null-terminated array to
 * free with free(); one block. */
char** BLSETTINGS_ListKeys(const char* prefix);

#ifdef __cplusplus
}
#endif
#endif
