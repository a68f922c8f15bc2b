// A VST2 plugin's persisted status: the settings group each record is saved
// to and read from, and the status calls that answer with or without a record.
#include "vsteffect_p.h"

#include "blio.h"
#include "blsettings.h"

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>

/* ---- settings ------------------------------------------------------------ */

extern "C" void _SettingsGroup(const char* hash, char group[VST_SETTINGS_GROUP_SIZE])
{
    std::snprintf(group, VST_SETTINGS_GROUP_SIZE, "%s.%s", VST_SETTINGS_PREFIX, hash);
}

namespace {

// The ten fields of a plugin's settings group: one table for the writer,
// the reader, the wipe and the status word.
enum FieldKind { FIELD_TEXT, FIELD_INT32, FIELD_INT64, FIELD_FLAG };
struct PersistedField {
    const char* name;
    FieldKind kind;
    size_t offset;
    int fallback; // what a record reads when the group lacks the field
};
const PersistedField kPersistedFields[] = {
    {"filename", FIELD_TEXT, offsetof(_VSTEFFECT, filename), 0},
    {"pluginid", FIELD_INT32, offsetof(_VSTEFFECT, pluginid), 0},
    {"timestamp", FIELD_INT64, offsetof(_VSTEFFECT, timestamp), 0},
    {"architecture", FIELD_INT32, offsetof(_VSTEFFECT, architecture), 0},
    {"force_recheck", FIELD_FLAG, offsetof(_VSTEFFECT, force_recheck), 0},
    {"enabled", FIELD_FLAG, offsetof(_VSTEFFECT, enabled), 1},
    {"supported", FIELD_FLAG, offsetof(_VSTEFFECT, supported), 1},
    {"crashed", FIELD_FLAG, offsetof(_VSTEFFECT, crashed), 0},
    {"duplicated", FIELD_FLAG, offsetof(_VSTEFFECT, duplicated), 0},
    {"rawmode", FIELD_FLAG, offsetof(_VSTEFFECT, rawmode), 0},
};

template <typename T> T& field(_VSTEFFECT* e, const PersistedField& f)
{
    return *reinterpret_cast<T*>(reinterpret_cast<char*>(e) + f.offset);
}
template <typename T> const T& field(const _VSTEFFECT* e, const PersistedField& f)
{
    return *reinterpret_cast<const T*>(reinterpret_cast<const char*>(e) + f.offset);
}

// The flags of the status word, as a record holds them.
int statusOf(const _VSTEFFECT* e)
{
    int status = 0;
    if (!e->enabled)
        status |= AUDIOVST_STATUS_DISABLED;
    if (e->crashed)
        status |= AUDIOVST_STATUS_CRASHED;
    if (!e->supported)
        status |= AUDIOVST_STATUS_UNSUPPORTED;
    if (e->duplicated)
        status |= AUDIOVST_STATUS_DUPLICATED;
    if (e->rawmode)
        status |= AUDIOVST_STATUS_RAWMODE;
    return status;
}

} // namespace

extern "C" void _SaveToSettings(const _VSTEFFECT* e)
{
    if (!e)
        return;
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(e->hash, g);
    for (const PersistedField& f : kPersistedFields) {
        switch (f.kind) {
        case FIELD_TEXT: {
            const char* text = field<char*>(e, f);
            BLSETTINGS_ChangeEx(0, "%s.%s=%s", g, f.name, text ? text : "");
            break;
        }
        case FIELD_INT32:
            BLSETTINGS_ChangeEx(0, "%s.%s=%d", g, f.name, field<int32_t>(e, f));
            break;
        case FIELD_INT64:
            BLSETTINGS_ChangeEx(0, "%s.%s=%" PRId64, g, f.name, field<int64_t>(e, f));
            break;
        case FIELD_FLAG:
            BLSETTINGS_ChangeEx(0, "%s.%s=%d", g, f.name, field<uint8_t>(e, f));
            break;
        }
    }
}

extern "C" void _LoadFromSettings(_VSTEFFECT* e, const char* hash, int withFallbacks)
{
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    for (const PersistedField& f : kPersistedFields) {
        const int fallback = withFallbacks ? f.fallback : 0;
        switch (f.kind) {
        case FIELD_TEXT:
            break; // the record's file is its own
        case FIELD_INT32:
            field<int32_t>(e, f) = BLSETTINGS_GetIntEx(0, "%s.%s=[%d]", g, f.name, fallback);
            break;
        case FIELD_INT64:
            field<int64_t>(e, f) = BLSETTINGS_GetInt64Ex(0, "%s.%s=[%d]", g, f.name, fallback);
            break;
        case FIELD_FLAG:
            field<uint8_t>(e, f) = uint8_t(BLSETTINGS_GetBoolEx(0, "%s.%s=[%d]", g, f.name, fallback));
            break;
        }
    }
}

extern "C" void _WipePluginPersistedState(const char* hash)
{
    if (!hash || !*hash)
        return;
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    for (const PersistedField& f : kPersistedFields)
        BLSETTINGS_DeleteEx(0, "%s.%s", g, f.name);
    char path[1024];
    if (_GetVSTXMLPath(hash, path, sizeof(path)) && BLIO_Exists(path))
        std::remove(path);
}

/* ---- status -------------------------------------------------------------- */

extern "C" int AUDIOVST_GetPluginStatusEx(const char* filename, int id)
{
    if (!filename)
        return AUDIOVST_STATUS_NOFILE;
    char hash[VSTEFFECT_HASH_SIZE];
    if (!_ComputeHash(filename, id, hash))
        return AUDIOVST_STATUS_NOFILE;
    if (const _VSTEFFECT* e = _FindRecordByHash(hash))
        return statusOf(e);
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    if (!BLSETTINGS_ExistsEx(0, "%s.%s", g, "enabled"))
        return AUDIOVST_STATUS_UNKNOWN;
    // Without a record, a flag the group lacks counts as not set.
    _VSTEFFECT stored{};
    _LoadFromSettings(&stored, hash, 0);
    return statusOf(&stored);
}

extern "C" int AUDIOVST_GetPluginFileArchEx(const char* filename, int id)
{
    char hash[VSTEFFECT_HASH_SIZE];
    if (!filename || !_ComputeHash(filename, id, hash))
        return 0;
    if (const _VSTEFFECT* e = _FindRecordByHash(hash))
        return e->architecture;
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    return BLSETTINGS_GetIntEx(0, "%s.%s=[0]", g, "architecture");
}

extern "C" int AUDIOVST_SetEnabledEx(const char* filename, int id, bool enabled)
{
    char hash[VSTEFFECT_HASH_SIZE];
    if (!filename || !_ComputeHash(filename, id, hash))
        return 0;
    if (_VSTEFFECT* e = _FindRecordByHash(hash))
        e->enabled = enabled ? 1 : 0;
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    return BLSETTINGS_ChangeEx(0, "%s.%s=%d", g, "enabled", enabled ? 1 : 0);
}
