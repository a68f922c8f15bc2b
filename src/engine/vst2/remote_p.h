#ifndef REMOTE_P_H
#define REMOTE_P_H
/* The client of the host program: a plugin instance in a child process,
 * driven over its standard input and output. It fills the same operations
 * table as the in-process adapter. */
#include "vstinstance_p.h"

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* (*vlorvstOpenProc)(const char* command);
typedef int (*vlorvstReadProc)(void* io, void* buffer, int size);
typedef int (*vlorvstWriteProc)(void* io, const void* buffer, int size);
typedef int (*vlorvstAvailableProc)(void* io);
typedef int (*vlorvstCloseProc)(void* io);

int vlorvstRegisterIOCallbacks(vlorvstOpenProc open, vlorvstReadProc read, vlorvstWriteProc write,
                               vlorvstAvailableProc dataAvailable, vlorvstCloseProc close,
                               vlorvstCloseProc terminate);

/* The platform's pipes as the I/O callbacks: 5000 ms reads, 10000 ms close. */
void _RegisterRemoteIOCallbacks(void);

int vlorvstSendCommand(void* io, int32_t tag);
int vlorvstRecvCommand(void* io, int32_t* tag);
int vlorvstSendIntValue(void* io, int32_t value);
int vlorvstRecvIntValue(void* io, int32_t* value);
int vlorvstSendFloatValue(void* io, float value);
int vlorvstRecvFloatValue(void* io, float* value);
int vlorvstSendUWord64Value(void* io, uint64_t value);
int vlorvstRecvUWord64Value(void* io, uint64_t* value);
int vlorvstSendFloatVector(void* io, const float* values, int count);
/* Fails unless the sender's count is the expected one. */
int vlorvstRecvFloatVector(void* io, float* values, int count);
int vlorvstSendString(void* io, const char* text);
/* Fails unless the length is below size; out gets a terminator. */
int vlorvstRecvString(void* io, char* out, int size);

int vlorvstOpenIO(const char* command, void** io);
int vlorvstCloseIO(void* io);
int vlorvsTerminateIO(void* io);
int vlorvstFlushInput(void* io);
int vlorvstPeekCommand(void* io, int32_t* tag);
int vlorvstCheckCommand(_VstEffectInstance* effect, int32_t* tag);
_VstEffectInstance* vlorvstCreateRemoteEffect(VstHostCallbackProc hostCallback, void* hostData,
                                              const char* format, ...) __attribute__((format(printf, 3, 4)));
int vlorvstDestroyRemoteEffect(_VstEffectInstance* effect);
int vlorvstTerminateRemoteEffect(_VstEffectInstance* effect);

pthread_mutex_t* VLORVST_MutexInit(void);
int VLORVST_MutexLock(pthread_mutex_t* m);
int VLORVST_MutexUnlock(pthread_mutex_t* m);
int VLORVST_MutexDestroy(pthread_mutex_t* m);

/* Whether instances activated from now on move their audio through a shared
 * region or through the pipe: 1 and 0 decide, -1 (the default) leaves it to
 * the setting "vloraudio.plugins.remote_audio" ("shared_memory", the
 * default, or "pipe"). The getter gives what an activation would use. */
void vlorvstSetSharedAudio(int mode);
int vlorvstGetSharedAudio(void);
/* 1 while the instance's blocks go through its shared region. */
int vlorvstUsesSharedAudio(_VstEffectInstance* effect);
/* The round trips its region has carried: for tests and benchmarks. */
int vlorvstBlocksShared(_VstEffectInstance* effect);

/* An instance in the host program of a group: the one started with
 * "--group" for groupKey (a maker's name, or one for all), started when no
 * live one has that key. Null when the plugin does not open there. The
 * first Check is the caller's, as for vlorvstCreateRemoteEffect. */
_VstEffectInstance* vlorvstCreateGroupEffect(const char* groupKey, const char* host, VstHostCallbackProc hostCallback,
                                             void* hostData, const char* file, int id);
/* After the host was seen gone: 1 when this instance's plugin was in the
 * call in flight, 0 when another plugin of its group was, -1 before. */
int vlorvstCrashBlame(_VstEffectInstance* effect);
/* The instances that share this one's host program, itself included. */
int vlorvstGroupSize(_VstEffectInstance* effect);
int vlorvstSameGroup(_VstEffectInstance* a, _VstEffectInstance* b);
/* A block through effects in order, out the last one's output. Members of
 * one group with their shared regions go in one round trip; any others one
 * after the other. */
int vlorvstProcessChain(_VstEffectInstance** effects, int count, const float* in, float* out, int channels,
                        int frames);
/* The same, one call after the other: for instances of any kind. */
int vlorvstProcessInTurn(_VstEffectInstance** effects, int count, const float* in, float* out, int channels,
                         int frames);

/* The pipe handle of a remote instance, or null: for tests that play the
 * part of a misbehaving host. */
void* vlorvstGetIO(_VstEffectInstance* effect);

#ifdef __cplusplus
}
#endif
#endif
