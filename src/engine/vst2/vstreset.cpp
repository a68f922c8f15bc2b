// The file behind a hash, read from its descriptor, and the resets and
// rechecks of a plugin's record and persisted state.
#include "vsteffect_p.h"

#include "bldom.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int _GetFileAndIdFromHash(const char* hash, char* out, int size, int* id)
{
    char path[1024];
    if (!hash || !out || size <= 0 || !_GetVSTXMLPath(hash, path, sizeof(path)))
        return 0;
    BLDOM dom = BLDOM_CreateFromXMLFile(path);
    if (!dom)
        return 0;
    std::snprintf(out, size_t(size), "%s", BLDOM_NodeTextContent(dom, BLDOM_FindNode(dom, "/VLORVST/Filename")));
    if (id)
        *id = std::atoi(BLDOM_NodeTextContent(dom, BLDOM_FindNode(dom, "/VLORVST/UniqueID")));
    BLDOM_Destroy(dom);
    return 1;
}

extern "C" int AUDIOVST_GetFileNameFromHash(const char* hash, char* out, int size)
{
    return _GetFileAndIdFromHash(hash, out, size, nullptr);
}

extern "C" int AUDIOVST_ResetPlugin(_VSTEFFECT* e)
{
    if (!e || !e->hash[0])
        return 0;
    char hash[VSTEFFECT_HASH_SIZE];
    std::memcpy(hash, e->hash, sizeof(hash));
    _WipePluginPersistedState(hash);
    return AUDIOVST_DeletePlugin(e);
}

extern "C" int AUDIOVST_ResetPluginFile(const char* filename, int id)
{
    char hash[VSTEFFECT_HASH_SIZE];
    if (!filename || !*filename || !_ComputeHash(filename, id, hash))
        return 0;
    _WipePluginPersistedState(hash);
    _VSTEFFECT* e = _FindRecordByHash(hash);
    return e ? AUDIOVST_DeletePlugin(e) : 1;
}

extern "C" int AUDIOVST_NeedRecheck(_VSTEFFECT* e)
{
    if (!e)
        return 1;
    MutexLock(e->lock);
    const int v = e->force_recheck;
    MutexUnlock(e->lock);
    return v;
}

extern "C" int AUDIOVST_ForceRecheck(_VSTEFFECT* e)
{
    if (!e)
        return 0;
    MutexLock(e->lock);
    e->force_recheck = 1;
    MutexUnlock(e->lock);
    return 1;
}
