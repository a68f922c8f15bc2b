#ifndef VSTEFFECT_P_H
#define VSTEFFECT_P_H
/* The engine's own view of a plugin record. Nothing outside src/engine/vst2
 * (and the host program, which shares the engine) sees these fields. */
#include "audiovst.h"

#include "blmem.h"
#include "blmutex.h"

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { VSTEFFECT_CATEGORY_EFFECT = 0, VSTEFFECT_CATEGORY_SHELL = 1 };

enum {
    VSTEFFECT_FLAG_HAS_EDITOR = 1u << 0,
    VSTEFFECT_FLAG_CAN_REPLACING = 1u << 4,
    VSTEFFECT_FLAG_IS_SYNTH = 1u << 8
};

#define VSTEFFECT_HASH_SIZE 44
#define VSTEFFECT_STRING_SIZE 65

typedef struct ShellEntry {
    int32_t id;
    char name[64];
    _VSTEFFECT* effect;
} ShellEntry;

typedef struct ValueTypeEntry {
    char name[VSTEFFECT_STRING_SIZE];
    float low;
    float high;
} ValueTypeEntry;

typedef struct ValueType {
    char name[VSTEFFECT_STRING_SIZE];
    int32_t count;
    ValueTypeEntry* entries;
} ValueType;

typedef struct ParameterRecord {
    char name[VSTEFFECT_STRING_SIZE];
    char label[VSTEFFECT_STRING_SIZE];
    ValueType* valueType;
    int32_t kind; /* 0 none, 1 enumerated, 2 linear, 3 nonlinear */
    char minDisplay[VSTEFFECT_STRING_SIZE];
    char maxDisplay[VSTEFFECT_STRING_SIZE];
    float minValue;
    float maxValue;
} ParameterRecord;

typedef struct ProgramRecord {
    char name[VSTEFFECT_STRING_SIZE];
    int32_t id;
    float* values; /* numParams floats */
} ProgramRecord;

typedef int32_t (*VSTEntryPoint)(void);

struct _VSTEFFECT {
    int32_t category;
    BLMemDescr memDescr;
    Mutex lock;
    char* filename;
    int32_t pluginid;
    char hash[VSTEFFECT_HASH_SIZE];
    int64_t timestamp;
    int32_t uniqueId;
    int32_t plugCategory; /* what the plugin says it is: 0 unknown, 1 effect, 3 analysis, ... */
    int32_t architecture;
    uint8_t crashed;
    uint8_t enabled;
    uint8_t supported;
    uint8_t duplicated;
    uint8_t rawmode;
    uint8_t force_recheck;
    uint8_t loaded;
    void* library;
    void* entryPoint;
    _VSTEFFECT* next;
    union {
        struct {
            int32_t version;
            uint32_t flags;
            int32_t numInputs;
            int32_t numOutputs;
        } fx;
        struct {
            int32_t numShellEntries;
            ShellEntry* shellEntries;
        } shell;
    } u;
    int32_t numParams;
    int32_t numValueTypes;
    ValueType** valueTypes;
    ParameterRecord* parameters;
    int32_t numPrograms;
    ProgramRecord* defaultProgram;
    ProgramRecord** programs;
    char vendor[VSTEFFECT_STRING_SIZE];
    char product[VSTEFFECT_STRING_SIZE];
    char effectName[VSTEFFECT_STRING_SIZE];
    int32_t numInstances;
    void* configInstance;
    /* Ends configInstance: set with it by the instance layer, which the
     * registry, below it, does not know. The record's lock is held. */
    void (*endConfigInstance)(_VSTEFFECT* effect);
    /* Deleted while instances still used it: out of the list, freed by the
     * end of the last one. Guarded by lock. */
    uint8_t orphaned;
};

#define VST_SETTINGS_PREFIX "vloraudio.fx.vst"
#define VST_SETTINGS_GROUP_SIZE 69

/* The hash of a file and id into out[44]; 1 on success. */
int _ComputeHash(const char* filename, int32_t id, char out[VSTEFFECT_HASH_SIZE]);
/* A new record for filename and id, linked at the head of the list. */
_VSTEFFECT* _CreateEffectRecord(const char* filename, int32_t id);
/* Unlinks the record under the list lock; it is not freed. */
void _UnlinkEffectRecord(_VSTEFFECT* effect);
/* First record (supported or not) whose hash is this one, or null. */
_VSTEFFECT* _FindRecordByHash(const char* hash);
_VSTEFFECT* _FindListBySupportedId(int32_t id);
int _MatchEffectById(_VSTEFFECT* effect, int32_t id, _VSTEFFECT** found);

/* The settings group of a hash: "vloraudio.fx.vst.HASH". */
void _SettingsGroup(const char* hash, char group[VST_SETTINGS_GROUP_SIZE]);
void _SaveToSettings(const _VSTEFFECT* effect);
/* The persisted fields but the file name, from the group of hash; a field
 * the group lacks reads as its default, or as 0 without withFallbacks. */
void _LoadFromSettings(_VSTEFFECT* effect, const char* hash, int withFallbacks);
void _WipePluginPersistedState(const char* hash);

int _UnsafeLoadVSTPlugin(_VSTEFFECT* effect);
int _UnsafeUnloadVSTPlugin(_VSTEFFECT* effect);
/* Frees a record deleted while in use once its last instance has ended; the
 * record's lock is held and, when it returns 1, gone. */
int _ReleaseOrphanLocked(_VSTEFFECT* effect);

void _LockEffectList(void);
/* Head of the list; walk it with the list lock held. */
_VSTEFFECT* _FirstEffectRecord(void);
void _UnlockEffectList(void);

/* Path of the descriptor file of a hash into out (1024 bytes), or null when
 * there is no data folder to keep it in. */
char* _GetVSTXMLPath(const char* hash, char* out, int size);
/* Where "--check" leaves the description it made of a file as it was at
 * stamp, so that describing it needs no second load; null without a data folder. */
char* _CheckedDescriptionPath(const char* filename, int32_t id, int64_t stamp, char* out, int size);

/* ---- descriptor files ---- */

/* Copies source into destination, escaping < > " & for XML, within size
 * bytes. An empty source writes nothing: destination keeps what it had. */
void _XMLEncode(const char* source, char* destination, int size);
/* Writes the record as a descriptor; 1 on success. */
int _WriteVSTXML(const _VSTEFFECT* effect, FILE* out);
/* The file and the unique id a descriptor of this hash was written for; 1 if it reads. */
int _GetFileAndIdFromHash(const char* hash, char* out, int size, int* id);
/* Fills the record from a descriptor file or a "popen://" command line; 0
 * when it cannot be parsed or names another file. */
int _LoadFromVSTXML(_VSTEFFECT* effect, const char* path);

/* Fills the record with what a plugin opened in this process tells of itself:
 * names, flags, channels, parameters with their kinds, programs; or, for a
 * shell, its entries. Run by the host program for "--info". 1 on success. */
int _DescribeEffect(_VSTEFFECT* effect, void* instance);
/* Why a described plugin is no effect the editor can use, or null when it
 * is one. A shell is judged by its children: null. */
const char* _WhyNotUsableEffect(const _VSTEFFECT* effect);

/* ---- resolution ---- */

/* The text of an argument for a command line that BLCORE_Spawn splits: the
 * caller puts it in double quotes. Backslashes and quotes are escaped, so any
 * file name arrives whole. Returns a malloc'd string. */
char* _QuoteArg(const char* text);
int _CheckPlugin(_VSTEFFECT* effect);
/* 1 described, 0 failed (the verdict is in the record), -1 cut short by
 * BLCORE_AbortSpawns with nothing learned. */
int _RefreshPluginData(_VSTEFFECT* effect);
/* True once a working host program has been found. */
bool _HostPathsOk(void);
int32_t _HostPathLength(void);

#ifdef __cplusplus
}
#endif
#endif
