#include "bllib.h"

#include "bldebug.h"

#include <dlfcn.h>

extern "C" BLLibHandle BLLIB_OpenLibrary(const char* path)
{
    if (!path || !*path)
        return nullptr;
#if defined(__SANITIZE_ADDRESS__)
    // Sanitized builds keep libraries mapped after close, so that a leak
    // inside a plugin is reported against its file and can be told apart
    // from ours.
    void* h = dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
#else
    void* h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
    if (!h)
        BLDEBUG_Error(-1, "BLLIB_OpenLibrary: %s", dlerror());
    return h;
}

extern "C" void* BLLIB_GetLibraryFunction(BLLibHandle library, const char* name)
{
    if (!library || !name)
        return nullptr;
    dlerror();
    return dlsym(library, name);
}

extern "C" int BLLIB_CloseLibrary(BLLibHandle library) { return library && dlclose(library) == 0 ? 1 : 0; }
