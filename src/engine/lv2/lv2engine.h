#ifndef LV2ENGINE_H
#define LV2ENGINE_H
/* The LV2 engine: flat functions over the plugins the machine's LV2 folders
 * hold, named by URI. A null argument answers 0, -1 or nothing as each
 * function says; nothing here throws. lilv's types stay behind these names. */

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VLORLV2_EXPORT __attribute__((visibility("default")))

/* What the metadata tells of one plugin, read without loading its code. */
typedef struct Lv2PluginRecord {
    char uri[512];
    char name[128];
    char maker[128];
    char className[64];     /* the label of its lv2 class: "Compressor", "Reverb" */
    int32_t audioInputs;    /* main inputs: side chains are counted apart */
    int32_t audioOutputs;
    int32_t sideChainInputs;
    int32_t controlInputs;
    int32_t isEffect;       /* audio in and out, and no instrument class */
    int32_t hasX11Ui;
    char missingFeature[256]; /* the first required feature the engine does not offer, or empty */
    char binary[1024];        /* the path of its code's library, or empty */
} Lv2PluginRecord;

/* The process-wide world, its folders read; 1 when it stands. LV2_PATH, where
 * set, names the folders, as lilv reads it. */
VLORLV2_EXPORT int VLORLV2_Initialize(void);
/* A world of the one bundle at path (a folder), for a child that checks it
 * without reading every other; 0 when a world stands already. */
VLORLV2_EXPORT int VLORLV2_InitializeBundle(const char* path);
/* A bundle found after the world was made (in a folder the user added since)
 * read into it, or into the world when it is made; 1 when taken. One the
 * world holds already is left as it is. */
VLORLV2_EXPORT int VLORLV2_AddBundle(const char* path);
/* Frees the world (for host programs at exit); live instances must be gone. */
VLORLV2_EXPORT void VLORLV2_Finalize(void);
/* Writes up to limit records, in URI order; the number of plugins (which may
 * exceed limit), or -1 without a world. */
VLORLV2_EXPORT int VLORLV2_ListPlugins(Lv2PluginRecord* records, int limit);
/* The record of one plugin; 0 when no plugin has that URI. */
VLORLV2_EXPORT int VLORLV2_DescribePlugin(const char* uri, Lv2PluginRecord* record);

/* ---- instances ---- */

typedef struct _Lv2Instance _Lv2Instance;

/* Instantiated with every feature the engine offers, its ports connected
 * and at their defaults; null with the reason in error (a missing feature
 * is named). maxBlock bounds the frames of one run; blocks of any length up
 * to it are fine. */
VLORLV2_EXPORT _Lv2Instance* VLORLV2_CreateInstance(const char* uri, double sampleRate, int maxBlock, char* error,
                                                    int errorSize);
/* where: 1 in a host program of its own, 0 in this process, -1 as the
 * isolation setting says for the URI (what VLORLV2_CreateInstance does). */
VLORLV2_EXPORT _Lv2Instance* VLORLV2_CreateInstanceEx(const char* uri, double sampleRate, int maxBlock, int where,
                                                      char* error, int errorSize);
VLORLV2_EXPORT int VLORLV2_DestroyInstance(_Lv2Instance* instance);
enum { kLv2Local = 0, kLv2RemoteAlive = 1, kLv2RemoteCrashed = 2, kLv2RemoteHung = 3 };
/* kLv2Local, or what became of its host program. An instance whose host is
 * gone fails every call but this one, Terminate and Destroy. */
VLORLV2_EXPORT int VLORLV2_GetRemoteState(_Lv2Instance* instance);
/* Ends a remote instance's host program at once: for one that hangs. */
VLORLV2_EXPORT int VLORLV2_Terminate(_Lv2Instance* instance);
/* The host program's process id; 0 in this process. */
VLORLV2_EXPORT int VLORLV2_GetRemotePid(_Lv2Instance* instance);
VLORLV2_EXPORT int VLORLV2_Activate(_Lv2Instance* instance);
VLORLV2_EXPORT int VLORLV2_Deactivate(_Lv2Instance* instance);
/* The main audio inputs and outputs (side chains apart). */
VLORLV2_EXPORT int VLORLV2_GetBusChannels(_Lv2Instance* instance, int* inputs, int* outputs);
/* Frames, as the latency port last told it; 0 without one. */
VLORLV2_EXPORT int VLORLV2_GetLatency(_Lv2Instance* instance);
/* Interleaved floats in and out (they may be the same array), channels on
 * both sides: channel c feeds main input c and takes main output c; inputs
 * the track cannot fill and side chains hear silence, outputs beyond the
 * plugin's are silent. Frames of any number: runs are cut at maxBlock. */
VLORLV2_EXPORT int VLORLV2_ProcessAudio(_Lv2Instance* instance, const float* input, float* output, int channels,
                                        int frames);

/* ---- parameters: the control input ports ---- */

enum {
    kLv2ParamToggled = 1,
    kLv2ParamInteger = 2,
    kLv2ParamEnumeration = 4,
    kLv2ParamLogarithmic = 8,
};

typedef struct Lv2ParamInfo {
    uint32_t port; /* the port index */
    char symbol[64];
    char name[128];
    char units[32]; /* the unit's symbol ("dB", "ms"), or empty */
    float minimum;
    float maximum;
    float defaultValue;
    int32_t flags;       /* kLv2Param* */
    int32_t scalePoints; /* labelled values, for an enumeration */
} Lv2ParamInfo;

VLORLV2_EXPORT int VLORLV2_GetNumParams(_Lv2Instance* instance);
VLORLV2_EXPORT int VLORLV2_GetParamInfo(_Lv2Instance* instance, int index, Lv2ParamInfo* info);
/* The point-th labelled value of a parameter, by value order; 0 if none. */
VLORLV2_EXPORT int VLORLV2_GetScalePoint(_Lv2Instance* instance, int index, int point, float* value, char* label,
                                         int labelSize);
VLORLV2_EXPORT float VLORLV2_GetParam(_Lv2Instance* instance, int index);
/* Clamped to the port's range, rounded for an integer or a toggle; takes
 * effect at the next run. */
VLORLV2_EXPORT int VLORLV2_SetParam(_Lv2Instance* instance, int index, float value);

/* ---- state ---- */

/* The plugin's state as text (its state interface where it has one, and
 * every control input), or null. Free with VLORLV2_FreeString. */
VLORLV2_EXPORT char* VLORLV2_GetState(_Lv2Instance* instance);
VLORLV2_EXPORT void VLORLV2_FreeString(char* text);
/* Restores a text of VLORLV2_GetState; 0 when it does not read. */
VLORLV2_EXPORT int VLORLV2_SetState(_Lv2Instance* instance, const char* state);
/* The presets of a plugin's bundle, as lines "LABEL<tab>PRESET-URI\n" in
 * label order, cut at size; the count, or -1 when no plugin has this URI. */
VLORLV2_EXPORT int VLORLV2_ListPresets(const char* uri, char* out, int size);
/* A preset as a state text that VLORLV2_SetState restores; null when it does
 * not read. Free with VLORLV2_FreeString. */
VLORLV2_EXPORT char* VLORLV2_GetPresetState(const char* presetUri);

/* ---- the plugin's own editor: its X11 UI, embedded in a window of ours ----
 * Every call from the thread of the host's event loop. */

enum { kLv2UiResize = 1, kLv2UiParamEdited = 2 };
/* kLv2UiResize: the editor asks for a = width, b = height. kLv2UiParamEdited:
 * the editor set parameter a (an index of VLORLV2_GetParamInfo, or -1). */
typedef void (*Lv2UiCallback)(void* user, int event, int a, int b);

/* 1 when the plugin has an X11 editor whose every required feature is offered. */
VLORLV2_EXPORT int VLORLV2_HasUi(_Lv2Instance* instance);
/* Loads the editor and makes it in the X11 window parent; 0 with the reason in
 * error. Its writes reach the plugin at the next run; the plugin's outputs
 * reach it at each VLORLV2_UiIdle. */
VLORLV2_EXPORT int VLORLV2_UiOpen(_Lv2Instance* instance, uint64_t parent, Lv2UiCallback callback, void* user,
                                  char* error, int errorSize);
/* Tells the editor what changed and lets it draw; 0 when it is not open or
 * its user closed it. Called often (30 to 60 times a second). */
VLORLV2_EXPORT int VLORLV2_UiIdle(_Lv2Instance* instance);
/* The editor's own X11 window, made in ours; 0 if it made none. */
VLORLV2_EXPORT uint64_t VLORLV2_UiGetWidget(_Lv2Instance* instance);
/* The size the editor last asked for; 0 before it asked (many never do: the
 * size of its window then tells). */
VLORLV2_EXPORT int VLORLV2_UiGetSize(_Lv2Instance* instance, int* width, int* height);
/* Tells an editor that can follow it the size of its window; 0 if it cannot. */
VLORLV2_EXPORT int VLORLV2_UiSetSize(_Lv2Instance* instance, int width, int height);
VLORLV2_EXPORT int VLORLV2_UiClose(_Lv2Instance* instance);

/* ---- the child side of checking ---- */

/* An instance served to the library: "--fxinstance URI --rate R --block B
 * [--bundle FOLDER]", until it says "exit". The whole of a check child: "--check URI" (instantiate, activate, run
 * noise, look at the output, deactivate, free) or "--list" in argv[1..].
 * Writes JSON on standard output and ends the process; returns only for bad
 * arguments. */
VLORLV2_EXPORT int VLORLV2_HostMain(int argc, char** argv);

#ifdef __cplusplus
}
#endif
#endif
