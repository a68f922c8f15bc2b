#ifndef VST3ENGINE_H
#define VST3ENGINE_H
/* The VST3 engine: flat functions over bundles and their classes. A null
 * argument answers 0, -1 or nothing as each function says; nothing here
 * throws. SDK types stay behind these names. */

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VLORVST3_EXPORT __attribute__((visibility("default")))

/* One effect class of a bundle, as VLORVST3_ListClasses writes it. */
typedef struct Vst3ClassRecord {
    char uid[33]; /* 32 upper-case hexadecimal digits */
    char name[128];
    char vendor[128];
    char category[128];
    char subCategories[128];
    char version[64];
} Vst3ClassRecord;

/* The process-wide host context; 1 always. */
VLORVST3_EXPORT int VLORVST3_Initialize(void);
/* Releases every module and the host context (for host programs at exit). */
VLORVST3_EXPORT void VLORVST3_Finalize(void);
/* Forgets the cached module of exactly this path; live instances keep theirs. */
VLORVST3_EXPORT void VLORVST3_ReleaseModule(const char* path);
/* Writes up to limit records of the bundle's effect classes, in the factory's
 * order; the number written, or -1 for bad arguments or a bundle that does not load. */
VLORVST3_EXPORT int VLORVST3_ListClasses(const char* path, Vst3ClassRecord* records, int limit);

/* ---- instances ---- */

typedef struct _Vst3Instance _Vst3Instance;

typedef enum Vst3HostEvent {
    kVst3EventResize = 1,       /* a = width, b = height */
    kVst3EventParamChanged = 2, /* a = parameter ID, or -1 for all */
    kVst3EventRestart = 3       /* a = the plugin's restart flags */
} Vst3HostEvent;

/* May run on any thread the plugin likes: receivers hop to their own. */
typedef void (*Vst3EventCallback)(void* userData, Vst3HostEvent event, int32_t a, int32_t b);

typedef struct Vst3ParamInfo {
    uint32_t id;
    char title[128];
    char units[64];
    int32_t stepCount;
    double defaultNormalized;
    int32_t canAutomate;
    int32_t isBypass;
    int32_t isReadOnly;
    int32_t isHidden;
    int32_t isProgramChange; /* the plugin's program list, not a value of the sound */
} Vst3ParamInfo;

/* The class uid of the bundle at path, as 32 hexadecimal digits; null when it
 * cannot be made. Nothing is started. */
VLORVST3_EXPORT _Vst3Instance* VLORVST3_CreateInstance(const char* path, const char* uid);
VLORVST3_EXPORT int VLORVST3_DestroyInstance(_Vst3Instance* instance);
/* Takes effect at the next start. */
VLORVST3_EXPORT int VLORVST3_SetAudioFormat(_Vst3Instance* instance, int sampleRate, int channels);
VLORVST3_EXPORT void VLORVST3_SetEventCallback(_Vst3Instance* instance, Vst3EventCallback callback, void* userData);
VLORVST3_EXPORT int VLORVST3_SetOffline(_Vst3Instance* instance, int offline);
VLORVST3_EXPORT int VLORVST3_StartEngine(_Vst3Instance* instance);
VLORVST3_EXPORT int VLORVST3_StopEngine(_Vst3Instance* instance);
VLORVST3_EXPORT int VLORVST3_Reset(_Vst3Instance* instance);
VLORVST3_EXPORT int VLORVST3_GetBlockSize(_Vst3Instance* instance);
/* The channels of the main input and output buses as the plugin took them at
 * the start (a plugin may refuse the track's and insist on its own); 0 before
 * a start. */
VLORVST3_EXPORT int VLORVST3_GetBusChannels(_Vst3Instance* instance, int* inputs, int* outputs);
/* Seconds; an infinite tail is told as 10 seconds. */
VLORVST3_EXPORT double VLORVST3_GetLatency(_Vst3Instance* instance);
VLORVST3_EXPORT double VLORVST3_GetTailTime(_Vst3Instance* instance);

/* Interleaved floats in and out (they may be the same array). */
VLORVST3_EXPORT int VLORVST3_ProcessAudio(_Vst3Instance* instance, const float* input, float* output, int channels,
                                          int frames);
VLORVST3_EXPORT int VLORVST3_GetNumParams(_Vst3Instance* instance);
VLORVST3_EXPORT int VLORVST3_GetParamInfo(_Vst3Instance* instance, int index, Vst3ParamInfo* info);
VLORVST3_EXPORT double VLORVST3_GetParamNormalized(_Vst3Instance* instance, uint32_t id);
VLORVST3_EXPORT int VLORVST3_SetParamNormalized(_Vst3Instance* instance, uint32_t id, double value);
VLORVST3_EXPORT int VLORVST3_GetParamDisplay(_Vst3Instance* instance, uint32_t id, double value, char* buffer,
                                             int bufferSize);
/* The value the plugin reads from text (its own parsing, units and all), set
 * as an edit; 0 when the plugin does not take the text. */
VLORVST3_EXPORT int VLORVST3_SetParamByString(_Vst3Instance* instance, uint32_t id, const char* text);
VLORVST3_EXPORT int VLORVST3_SetBypass(_Vst3Instance* instance, int on);

/* ---- the plugin's own editor, in an X11 window of the caller ---- */

VLORVST3_EXPORT int VLORVST3_HasEditor(_Vst3Instance* instance);
VLORVST3_EXPORT int VLORVST3_EditorGetSize(_Vst3Instance* instance, int32_t* width, int32_t* height);
/* window: an X11 window ID. Opening twice without a close is refused. */
VLORVST3_EXPORT int VLORVST3_EditorOpen(_Vst3Instance* instance, uint64_t window);
VLORVST3_EXPORT int VLORVST3_EditorClose(_Vst3Instance* instance);
/* The host's window changed size; 1 if the plugin took it. */
VLORVST3_EXPORT int VLORVST3_EditorOnSize(_Vst3Instance* instance, int32_t width, int32_t height);
VLORVST3_EXPORT int VLORVST3_EditorCanResize(_Vst3Instance* instance);
/* Runs the editor's due timers and ready file handlers; call it often from the
 * window's thread while the editor is open. How many ran. */
VLORVST3_EXPORT int VLORVST3_EditorIdle(_Vst3Instance* instance);

/* ---- state ---- */

/* The plugin's state as "presetsize=N,presetdata=\"...\",ctrlsize=N,ctrldata=\"...\"",
 * with its bypass lifted while it is read; null when there is nothing to save.
 * Free with VLORVST3_FreeString. */
VLORVST3_EXPORT char* VLORVST3_GetConfig(_Vst3Instance* instance);
VLORVST3_EXPORT void VLORVST3_FreeString(char* text);
/* Applies the state keys found in config (others are ignored); 0 only when the
 * component refuses its state. notify raises a "all parameters changed" event. */
VLORVST3_EXPORT int VLORVST3_SetConfigEx(_Vst3Instance* instance, const char* config, bool notify);

/* ---- where the instance runs ---- */

/* where: 1 in a host program of its own, 0 in this process, -1 as the
 * isolation setting says for the class (what VLORVST3_CreateInstance does). */
VLORVST3_EXPORT _Vst3Instance* VLORVST3_CreateInstanceEx(const char* path, const char* uid, int where);
enum { kVst3Local = 0, kVst3RemoteAlive = 1, kVst3RemoteCrashed = 2, kVst3RemoteHung = 3 };
/* kVst3Local, or what became of its host program. An instance whose host is
 * gone fails every call but this one, Terminate and Destroy. */
VLORVST3_EXPORT int VLORVST3_GetRemoteState(_Vst3Instance* instance);
/* Ends a remote instance's host program at once: for one that hangs. */
VLORVST3_EXPORT int VLORVST3_Terminate(_Vst3Instance* instance);
/* The host program's process id; 0 in this process. */
VLORVST3_EXPORT int VLORVST3_GetRemotePid(_Vst3Instance* instance);

/* ---- the child side of probing ---- */

/* The whole of a probe or verify child: "--probe BUNDLE" or "--verify BUNDLE
 * --cid CID" in argv[1..]; or an instance served to the library,
 * "--fxinstance BUNDLE --cid CID", until it says "exit". Writes one JSON line on standard output and ends
 * the process; returns only for bad arguments. */
VLORVST3_EXPORT int VLORVST3_HostMain(int argc, char** argv);

#ifdef __cplusplus
}
#endif
#endif
