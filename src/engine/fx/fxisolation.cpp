// The plugins' marks are settings keys: a URI holds characters no key may,
// so every id is keyed by a hash of it (and the format, so that a VST3 and
// an LV2 plugin never share a mark).
#include "fxisolation.h"

#include "blsettings.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

namespace {

std::atomic<bool> g_hostProgram{false};
// The mode for this run, over the setting; empty for none.
std::mutex g_runLock;
std::string g_runMode;

std::string keyOf(const char* kind, const char* format, const char* id)
{
    uint64_t h = 1469598103934665603ULL;
    for (const char* p = id; *p; ++p)
        h = (h ^ uint8_t(*p)) * 1099511628211ULL;
    char key[128];
    std::snprintf(key, sizeof(key), "vloraudio.plugins.%s.%s.%016llx", kind, format, (unsigned long long)h);
    return key;
}

bool valid(const char* format, const char* id) { return format && id && *format && *id; }

int flag(const char* kind, const char* format, const char* id)
{
    return valid(format, id) && BLSETTINGS_GetBoolEx(nullptr, "%s=[0]", keyOf(kind, format, id).c_str()) ? 1 : 0;
}

void setFlag(const char* kind, const char* format, const char* id, bool on)
{
    if (!valid(format, id))
        return;
    const std::string key = keyOf(kind, format, id);
    if (on)
        BLSETTINGS_ChangeEx(nullptr, "%s=1", key.c_str());
    else
        BLSETTINGS_DeleteEx(nullptr, "%s", key.c_str());
}

} // namespace

extern "C" int VLORFX_RunsInOwnProcess(const char* format, const char* id)
{
    if (g_hostProgram.load() || !valid(format, id))
        return 0;
    char mode[32] = {};
    BLSETTINGS_GetStringEx(nullptr, mode, int(sizeof(mode)), "vloraudio.plugins.isolation=[after_crash]");
    {
        std::lock_guard<std::mutex> g(g_runLock);
        if (!g_runMode.empty())
            std::snprintf(mode, sizeof(mode), "%s", g_runMode.c_str());
    }
    if (!std::strcmp(mode, "always") || VLORFX_GetOwnProcess(format, id))
        return 1;
    return std::strcmp(mode, "never") != 0 && VLORFX_HasCrashed(format, id) ? 1 : 0;
}

extern "C" int VLORFX_GetOwnProcess(const char* format, const char* id) { return flag("own_process", format, id); }
extern "C" void VLORFX_SetOwnProcess(const char* format, const char* id, int on)
{
    setFlag("own_process", format, id, on != 0);
    // Taken back, the choice forgets the crash that made it for the user.
    if (!on)
        setFlag("crashed", format, id, false);
}
extern "C" void VLORFX_MarkCrashed(const char* format, const char* id) { setFlag("crashed", format, id, true); }
extern "C" int VLORFX_HasCrashed(const char* format, const char* id) { return flag("crashed", format, id); }
extern "C" void VLORFX_SetHostProgram(void) { g_hostProgram.store(true); }

extern "C" void VLORFX_SetIsolationForThisRun(const char* mode)
{
    std::lock_guard<std::mutex> g(g_runLock);
    g_runMode = mode ? mode : "";
}
