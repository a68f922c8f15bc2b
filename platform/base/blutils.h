#ifndef BLUTILS_H
#define BLUTILS_H

#ifdef __cplusplus
extern "C" {
#endif

/* The application's data folder: "VLOR_DATA_PATH" if set, otherwise the XDG
 * data home plus "/vloraudio". Fills out (without a trailing slash) and returns
 * it; null if it does not fit. The folder is not created here. */
char* BLUTILS_GetDataDir(char* out, int size);
/* Folder of the running executable. */
char* BLUTILS_GetExecutableDir(char* out, int size);
/* Folder of the application's helper programs: "VLOR_HELPERS_PATH" if set,
 * otherwise the executable's folder. */
char* BLUTILS_GetHelpersDir(char* out, int size);
/* Folder of the application's resources: the executable's folder plus
 * "/../share/vloraudio". */
char* BLUTILS_GetResourceDir(char* out, int size);

/* Copies the variable's value into out; 1 if it is set, 0 otherwise (out then empty). */
int BLENV_GetEnvValue(const char* name, char* out, int size);

#ifdef __cplusplus
}
#endif
#endif
