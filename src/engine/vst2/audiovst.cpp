// The registry of VST2 records and their hash, the accessors, loading, and
// the location of the host program.
#include "vsteffect_p.h"
#include "vlorvst_protocol.h"
#include "../hostprogram_p.h"

#include "blcore.h"
#include "bldebug.h"
#include "blio.h"
#include "blioutils.h"
#include "bllib.h"
#include "blsettings.h"
#include "blsha1.h"
#include "blstring.h"
#include "remote_p.h"

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static _VSTEFFECT* __TopEffect = nullptr;
static Mutex __TopEffectListLock = nullptr;
static char** __VLORVSTEXEPATH = nullptr;
static int32_t __VLORVSTEXEPATH_LEN = 0;
static bool __VLORVSTEXEPATH_OK = false;
static char* __VLORVSTXMLPATH = nullptr;


extern "C" void _LockEffectList(void) { MutexLock(__TopEffectListLock); }
extern "C" void _UnlockEffectList(void) { MutexUnlock(__TopEffectListLock); }
extern "C" _VSTEFFECT* _FirstEffectRecord(void) { return __TopEffect; }

/* ---- hash ---------------------------------------------------------------- */

extern "C" int _ComputeHash(const char* filename, int32_t id, char out[VSTEFFECT_HASH_SIZE])
{
    if (!filename || !out)
        return 0;
    SHA1Context ctx;
    uint8_t digest[SHA1HashSize];
    fSHA1Reset(&ctx);
    fSHA1Input(&ctx, filename, std::strlen(filename));
    if (id != 0)
        fSHA1Input(&ctx, &id, sizeof(id)); // as it lies in memory: little-endian here
    fSHA1Result(&ctx, digest);
    if (!BLSTRING_KeyToStr(digest, out, SHA1HashSize))
        return 0;
    // The two characters of the prefix are dropped; the rest is the hash.
    BLMEM_OverlapMemCopy(out, out + 2, std::strlen(out + 2) + 1);
    return 1;
}

extern "C" int AUDIOVST_ComputePluginHash(const char* filename, int id, char* out, int size)
{
    if (!filename || !*filename || !out || size <= 0)
        return 0;
    char hash[VSTEFFECT_HASH_SIZE];
    if (!_ComputeHash(filename, id, hash))
        return 0;
    std::snprintf(out, size_t(size), "%s", hash);
    return 1;
}

/* ---- engine lifetime ----------------------------------------------------- */

extern "C" int AUDIOVST_Initialize(void)
{
    if (__TopEffectListLock)
        return 1;
    __TopEffectListLock = MutexRecursiveInit();
    __TopEffect = nullptr;
    return __TopEffectListLock ? 1 : 0;
}

static void _FreeHostPaths(void)
{
    if (__VLORVSTEXEPATH) {
        std::free(__VLORVSTEXEPATH[0]);
        std::free(__VLORVSTEXEPATH[1]);
        std::free(__VLORVSTEXEPATH);
        __VLORVSTEXEPATH = nullptr;
    }
    __VLORVSTEXEPATH_LEN = 0;
}

extern "C" int AUDIOVST_Finalize(void)
{
    if (!__TopEffectListLock)
        return 1;
    Mutex lock = __TopEffectListLock;
    MutexLock(lock);
    std::free(__VLORVSTXMLPATH);
    _FreeHostPaths();
    __VLORVSTEXEPATH_OK = false;
    // The freed pointers are cleared as well: an engine started again after
    // this must not lock a destroyed mutex or read a freed path. The records
    // stay where they are, as their owners may still hold them.
    __VLORVSTXMLPATH = nullptr;
    __TopEffectListLock = nullptr;
    MutexUnlock(lock);
    MutexDestroy(lock);
    return 1;
}

/* ---- host program -------------------------------------------------------- */

static bool _IsWorkingHost(const char* candidate)
{
    // --true must exit 1 and --false 0: a program that always gives the same
    // status, or a status that does not reach us unchanged, is no host.
    return HostProgramUsable(candidate) && BLCORE_Spawn("\"%s\" --true", candidate) == VLORVST_STATUS_TRUE &&
           BLCORE_Spawn("\"%s\" --false", candidate) == VLORVST_STATUS_FALSE;
}

extern "C" int AUDIOVST_SetVlorVstPath(const char* dir)
{
    if (!dir || !*dir)
        return 0;
    const size_t size = std::strlen(dir) + 64;
    char* candidates[2] = {nullptr, nullptr};
    bool anyPassed = false;
    for (int i = 0; i < 2; ++i) {
        // One file serves both indices; the table keeps the distinction.
        char* path = static_cast<char*>(std::malloc(size));
        if (!path)
            break;
        std::snprintf(path, size, "%s/vlorvst", dir);
        const bool passed = (i == 1 && candidates[0] && std::strcmp(candidates[0], path) == 0)
                                ? true
                                : _IsWorkingHost(path);
        if (passed) {
            candidates[i] = path;
            anyPassed = true;
        } else {
            std::free(path);
            if (i == 0)
                break; // the same file would fail again as index 1
        }
    }
    if (!anyPassed) {
        std::free(candidates[0]);
        std::free(candidates[1]);
        return 0;
    }

    _LockEffectList();
    if (!__VLORVSTEXEPATH)
        __VLORVSTEXEPATH = static_cast<char**>(std::calloc(2, sizeof(char*)));
    __VLORVSTEXEPATH_LEN = 0;
    for (int i = 0; i < 2; ++i) {
        std::free(__VLORVSTEXEPATH[i]);
        __VLORVSTEXEPATH[i] = candidates[i];
        if (candidates[i] && int32_t(std::strlen(candidates[i])) > __VLORVSTEXEPATH_LEN)
            __VLORVSTEXEPATH_LEN = int32_t(std::strlen(candidates[i]));
    }
    _UnlockEffectList();

    _RegisterRemoteIOCallbacks();
    __VLORVSTEXEPATH_OK = true;
    return 1;
}

extern "C" void AUDIOVST_ForgetVlorVstPath(void)
{
    _LockEffectList();
    _FreeHostPaths();
    __VLORVSTEXEPATH_OK = false;
    _UnlockEffectList();
}

extern "C" bool _HostPathsOk(void) { return __VLORVSTEXEPATH_OK; }
extern "C" int32_t _HostPathLength(void) { return __VLORVSTEXEPATH_LEN; }

extern "C" const char* AUDIOVST_GetVlorVstPath(int index)
{
    if (index < 0 || index > 1 || !__VLORVSTEXEPATH)
        return nullptr;
    return __VLORVSTEXEPATH[index];
}

extern "C" char* _QuoteArg(const char* text)
{
    std::string out;
    for (const char* p = text ? text : ""; *p; ++p) {
        if (*p == '"' || *p == '\\')
            out += '\\';
        out += *p;
    }
    return strdup(out.c_str());
}

/* ---- descriptor location ------------------------------------------------- */

extern "C" char* _GetVSTXMLPath(const char* hash, char* out, int size)
{
    if (!hash || !*hash || !out || size <= 0)
        return nullptr;
    _LockEffectList();
    if (!__VLORVSTXMLPATH) {
        const char* data = std::getenv("VLOR_DATA_PATH");
        if (!data || !*data) {
            _UnlockEffectList();
            return nullptr;
        }
        const size_t n = std::strlen(data) + 16;
        __VLORVSTXMLPATH = static_cast<char*>(std::malloc(n));
        std::snprintf(__VLORVSTXMLPATH, n, "%s%cvstxml", data, '/');
        // Made once: after a failed creation the path is kept and not tried again.
        if (!BLIOUTILS_MakeDirectory(__VLORVSTXMLPATH)) {
            _UnlockEffectList();
            return nullptr;
        }
    }
    std::snprintf(out, size_t(size), "%s%c%s.vstxml", __VLORVSTXMLPATH, '/', hash);
    _UnlockEffectList();
    return out;
}

extern "C" char* _CheckedDescriptionPath(const char* filename, int32_t id, int64_t stamp, char* out, int size)
{
    char hash[VSTEFFECT_HASH_SIZE];
    char probe[1024];
    if (!filename || !out || size <= 0 || !_ComputeHash(filename, id, hash) ||
        !_GetVSTXMLPath(hash, probe, sizeof(probe)))
        return nullptr;
    // Beside the descriptors, in a folder of its own.
    std::string dir(probe);
    dir = dir.substr(0, dir.rfind('/')) + "/.checked";
    if (!BLIOUTILS_MakeDirectory(dir.c_str()))
        return nullptr;
    std::snprintf(out, size_t(size), "%s/%s-%" PRId64 ".vstxml", dir.c_str(), hash, stamp);
    return out;
}

/* ---- records and the list ------------------------------------------------ */

extern "C" _VSTEFFECT* _CreateEffectRecord(const char* filename, int32_t id)
{
    if (!filename || !*filename)
        return nullptr;
    BLMemDescr mem = BLMEM_CreateMemDescrEx("VST Effect", 0, 8);
    auto* e = static_cast<_VSTEFFECT*>(BLMEM_NewEx(mem, sizeof(_VSTEFFECT), 0));
    if (!e) {
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    e->memDescr = mem;
    e->lock = MutexInit();
    e->filename = BLMEM_StrDup(mem, filename);
    e->pluginid = id;
    e->architecture = 0;
    _ComputeHash(filename, id, e->hash);
    _LockEffectList();
    e->next = __TopEffect;
    __TopEffect = e;
    _UnlockEffectList();
    return e;
}

extern "C" void _UnlinkEffectRecord(_VSTEFFECT* effect)
{
    if (!effect)
        return;
    _LockEffectList();
    for (_VSTEFFECT** p = &__TopEffect; *p; p = &(*p)->next) {
        if (*p == effect) {
            *p = effect->next;
            break;
        }
    }
    effect->next = nullptr;
    _UnlockEffectList();
}

extern "C" _VSTEFFECT* _FindRecordByHash(const char* hash)
{
    if (!hash)
        return nullptr;
    _LockEffectList();
    _VSTEFFECT* e = __TopEffect;
    while (e && std::strcmp(e->hash, hash) != 0)
        e = e->next;
    _UnlockEffectList();
    return e;
}

extern "C" int _MatchEffectById(_VSTEFFECT* effect, int32_t id, _VSTEFFECT** found)
{
    if (!effect)
        return 0;
    if (effect->category == VSTEFFECT_CATEGORY_SHELL) {
        for (int i = 0; i < effect->u.shell.numShellEntries; ++i)
            if (_MatchEffectById(effect->u.shell.shellEntries[i].effect, id, found))
                return 1;
        return 0;
    }
    if (effect->uniqueId != id)
        return 0;
    if (found)
        *found = effect;
    return 1;
}

extern "C" _VSTEFFECT* _FindListBySupportedId(int32_t id)
{
    _LockEffectList();
    _VSTEFFECT* result = nullptr;
    for (_VSTEFFECT* e = __TopEffect; e && !result; e = e->next) {
        _VSTEFFECT* match = nullptr;
        if (_MatchEffectById(e, id, &match) && match->supported)
            result = match;
    }
    _UnlockEffectList();
    return result;
}

/* ---- accessors ----------------------------------------------------------- */

static bool _IsNullName(const char* s) { return !s[0] || std::strcmp(s, "(null)") == 0; }

extern "C" int AUDIOVST_GetCategory(const _VSTEFFECT* e) { return e ? e->category : -1; }
extern "C" int AUDIOVST_GetPlugCategory(const _VSTEFFECT* e) { return e ? e->plugCategory : 0; }
extern "C" int AUDIOVST_GetArch(const _VSTEFFECT* e) { return e ? e->architecture : 0; }
extern "C" int AUDIOVST_GetUniqueID(const _VSTEFFECT* e) { return e ? e->uniqueId : 0; }
extern "C" const char* AUDIOVST_GetFileName(const _VSTEFFECT* e) { return e ? e->filename : nullptr; }
extern "C" const char* AUDIOVST_GetHash(const _VSTEFFECT* e) { return e ? e->hash : nullptr; }
extern "C" bool AUDIOVST_IsEffect(const _VSTEFFECT* e) { return e && e->category == VSTEFFECT_CATEGORY_EFFECT; }
extern "C" bool AUDIOVST_IsCrashed(const _VSTEFFECT* e) { return e && e->crashed; }
extern "C" bool AUDIOVST_IsNative(const _VSTEFFECT* e) { return e && e->architecture == 64; }
extern "C" bool AUDIOVST_IsEnabled(const _VSTEFFECT* e) { return e && !e->crashed && e->enabled; }
extern "C" bool AUDIOVST_IsSupported(const _VSTEFFECT* e) { return e && e->supported && !e->crashed; }

extern "C" int AUDIOVST_GetVersion(const _VSTEFFECT* e) { return AUDIOVST_IsEffect(e) ? e->u.fx.version : 0; }
extern "C" int AUDIOVST_GetNumInputs(const _VSTEFFECT* e) { return AUDIOVST_IsEffect(e) ? e->u.fx.numInputs : 0; }
extern "C" int AUDIOVST_GetNumOutputs(const _VSTEFFECT* e) { return AUDIOVST_IsEffect(e) ? e->u.fx.numOutputs : 0; }
extern "C" int AUDIOVST_GetNumParams(const _VSTEFFECT* e) { return AUDIOVST_IsEffect(e) ? e->numParams : -1; }

extern "C" const char* AUDIOVST_GetProductString(const _VSTEFFECT* e)
{
    return AUDIOVST_IsEffect(e) ? e->product : nullptr;
}

extern "C" const char* AUDIOVST_GetEffectName(const _VSTEFFECT* e)
{
    return AUDIOVST_IsEffect(e) ? e->effectName : nullptr;
}

extern "C" const char* AUDIOVST_GetVendorString(const _VSTEFFECT* e)
{
    return e && (e->category == VSTEFFECT_CATEGORY_EFFECT || e->category == VSTEFFECT_CATEGORY_SHELL) ? e->vendor
                                                                                                      : nullptr;
}

extern "C" const char* AUDIOVST_GetDisplayName(const _VSTEFFECT* e)
{
    if (!AUDIOVST_IsEffect(e))
        return nullptr;
    if (!_IsNullName(e->effectName))
        return e->effectName;
    if (!_IsNullName(e->product))
        return e->product;
    if (!e->filename)
        return nullptr;
    const char* slash = std::strrchr(e->filename, '/');
    return slash ? slash : e->filename;
}

extern "C" const char* AUDIOVST_GetDisplayCategory(const _VSTEFFECT* e)
{
    if (!e)
        return nullptr;
    return _IsNullName(e->vendor) ? "Undefined" : e->vendor;
}

static bool _IsShell(const _VSTEFFECT* e) { return e && e->category == VSTEFFECT_CATEGORY_SHELL; }

extern "C" int AUDIOVST_PluginsCount(const _VSTEFFECT* s) { return _IsShell(s) ? s->u.shell.numShellEntries : 0; }

extern "C" const char* AUDIOVST_GetPluginName(const _VSTEFFECT* s, int i)
{
    if (!_IsShell(s) || i < 0 || i >= s->u.shell.numShellEntries)
        return nullptr;
    return s->u.shell.shellEntries[i].name;
}

extern "C" int AUDIOVST_GetPluginId(const _VSTEFFECT* s, int i)
{
    if (!_IsShell(s) || i < 0 || i >= s->u.shell.numShellEntries)
        return 0;
    return s->u.shell.shellEntries[i].id;
}

/* ---- loading ------------------------------------------------------------- */

extern "C" int AUDIOVST_LoadPlugin(_VSTEFFECT* e)
{
    if (!e)
        return 0;
    MutexLock(e->lock);
    const int ok = _UnsafeLoadVSTPlugin(e);
    MutexUnlock(e->lock);
    return ok;
}

extern "C" int _UnsafeUnloadVSTPlugin(_VSTEFFECT* e)
{
    if (!e->loaded)
        return 1;
    if (e->category == VSTEFFECT_CATEGORY_EFFECT && e->numInstances > 0) {
        BLDEBUG_Error(-1, "AUDIOVST_UnloadPlugin: Plugin %s has %d instances created.", e->filename, e->numInstances);
        return 0;
    }
    if (e->configInstance && e->endConfigInstance)
        e->endConfigInstance(e);
    BLLIB_CloseLibrary(e->library);
    e->loaded = 0;
    e->library = nullptr;
    e->entryPoint = nullptr;
    return 1;
}

extern "C" int AUDIOVST_UnloadPlugin(_VSTEFFECT* e)
{
    if (!e)
        return 0;
    MutexLock(e->lock);
    const int ok = _UnsafeUnloadVSTPlugin(e);
    MutexUnlock(e->lock);
    return ok;
}

namespace {
void freeRecord(_VSTEFFECT* e)
{
    MutexDestroy(e->lock);
    BLMEM_DisposeMemDescr(e->memDescr);
}
} // namespace

// A record that instances still point at (the filter's, a widget's config
// instance, remote or not) leaves the list at once, so that nobody finds it
// again, and is freed by the end of its last instance: freeing it now would
// leave them reading freed memory and their hosts running.
extern "C" int AUDIOVST_DeletePlugin(_VSTEFFECT* e)
{
    if (!e)
        return 0;
    MutexLock(e->lock);
    if (e->orphaned) {
        MutexUnlock(e->lock);
        return 1;
    }
    if (e->numInstances > 0 || e->configInstance) {
        e->orphaned = 1;
        MutexUnlock(e->lock);
        _UnlinkEffectRecord(e);
        return 1;
    }
    if (e->loaded && !_UnsafeUnloadVSTPlugin(e)) {
        MutexUnlock(e->lock);
        BLDEBUG_Error(-1, "AUDIOVST_DeletePlugin: Can't delete loaded plugin (%s)\n", e->filename);
        return 0;
    }
    MutexUnlock(e->lock);
    _UnlinkEffectRecord(e);
    freeRecord(e);
    return 1;
}

extern "C" int _ReleaseOrphanLocked(_VSTEFFECT* e)
{
    if (!e->orphaned || e->numInstances > 0 || e->configInstance)
        return 0;
    if (e->loaded)
        _UnsafeUnloadVSTPlugin(e);
    MutexUnlock(e->lock);
    freeRecord(e);
    return 1;
}
