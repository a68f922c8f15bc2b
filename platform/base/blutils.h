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

#ifdef __cplusplus
}
#endif
#endif
