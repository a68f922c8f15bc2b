#ifndef BLLIB_H
#define BLLIB_H
/* The dynamic loader. Failures are logged through BLDEBUG_Error. */

#ifdef __cplusplus
extern "C" {
#endif

typedef void* BLLibHandle;

BLLibHandle BLLIB_OpenLibrary(const char* path);
void* BLLIB_GetLibraryFunction(BLLibHandle library, const char* name);
int BLLIB_CloseLibrary(BLLibHandle library);

#ifdef __cplusplus
}
#endif
#endif
