#ifndef REMOTE_OPS_P_H
#define REMOTE_OPS_P_H
// What the files of the protocol's client share: the instance behind the
// table of operations, the lock held for a whole request and answer, and the
// shapes of a request.
#include "remote_p.h"

#include "vlorvst_wire.h"

#include <cstddef>
#include <cstdint>

namespace vlorvst_remote {

struct ShmLink;
struct Group;

// What a member of a group learnt of its host's end: nothing yet, another
// member's plugin was in flight, or its own was.
enum { kCrashNone = -1, kCrashOther = 0, kCrashBlamed = 1 };

using vlorvst::Message;

struct RemoteInstance {
    _VstEffectInstance ops; // first: the table is the instance
    void* io;
    pthread_mutex_t* lock;
    int32_t activated;
    int32_t started;
    int32_t editorOpen;
    // Where an "aud " is composed, so that a block goes out in one write.
    char* scratch;
    size_t scratchSize;
    ShmLink* shm; // the shared region of "aud ", once the host mapped it
    Group* group; // the host program shared with other instances, or null
    int32_t place; // in the group's host
    int32_t crash; // kCrash*, once the host is gone
};

inline RemoteInstance* remote(_VstEffectInstance* i) { return reinterpret_cast<RemoteInstance*>(i); }

class Locked {
public:
    explicit Locked(RemoteInstance* r) : m_lock(r->lock) { VLORVST_MutexLock(m_lock); }
    ~Locked() { VLORVST_MutexUnlock(m_lock); }

private:
    pthread_mutex_t* m_lock;
};

bool send(void* io, const Message& m);
void fillOps(_VstEffectInstance* ops);
void freeRemote(RemoteInstance* r);
bool readAll(void* io, void* data, int size);
// Drains late events, sends, and waits for the answer; true on "OK  ".
bool request(RemoteInstance* r, const Message& m);
// Like request, for commands whose state changes on any answer.
bool requestAnswered(RemoteInstance* r, const Message& m, bool* ok);
// A payload we refused is still in the pipe: thrown away, ok passed on.
bool orResync(RemoteInstance* r, bool ok);
int intQuery(_VstEffectInstance* i, int32_t tag);
int plainCommand(_VstEffectInstance* i, const Message& m);

// The shared region: made and named to the host after an activation (false
// leaves the pipe), one block through it (-1: it cannot take this one, the
// pipe must), and its end.
bool shmAttach(RemoteInstance* r, int blockSize, int sampleRate);
int shmProcess(RemoteInstance* r, const float* in, float* out, int channels, int frames);
void shmLeave(RemoteInstance* r);
bool shmQueueParameter(RemoteInstance* r, int index, float value);
// Whether the host is inside this instance's plugin in a block.
bool shmInCall(RemoteInstance* r);

// Groups: a command goes to its member (the selection ahead of it), the
// outcome of an exchange on the pipe or of a block tells whether the host
// is gone, a GDAT event goes to its member.
bool sendPrefix(RemoteInstance* r);
bool sendTo(RemoteInstance* r, const Message& m);
void answered(RemoteInstance* r, bool gotAnswer);
void blockFailed(RemoteInstance* r);
bool routeGroupEvent(RemoteInstance* r);
void leaveGroup(RemoteInstance* r, bool terminate);
bool sameGroup(RemoteInstance* a, RemoteInstance* b);
int groupSize(RemoteInstance* r);
void shmFree(RemoteInstance* r);

// The queries and commands of parameters and programs.
int rCheck(_VstEffectInstance* i);
int rGetNumParams(_VstEffectInstance* i);
int rGetInitialDelay(_VstEffectInstance* i);
int rGetTailSize(_VstEffectInstance* i);
int rGetNumPrograms(_VstEffectInstance* i);
int rGetParameter(_VstEffectInstance* i, int index, float* out);
int rGetParameters(_VstEffectInstance* i, float* out, int count);
int rSetParameter(_VstEffectInstance* i, int index, float value);
int rSetParameters(_VstEffectInstance* i, const float* values, int count);
int rSetBypass(_VstEffectInstance* i, int bypass);
int rGetCurrentDisplayValue(_VstEffectInstance* i, int index, char* out, int size);
int rGetDisplayValue(_VstEffectInstance* i, int index, float value, char* out, int size);
int rGetProgramName(_VstEffectInstance* i, char* out, int size);
int rSetStringParameter(_VstEffectInstance* i, int index, const char* text);
int rSetProgram(_VstEffectInstance* i, int program);
int rGetProgram(_VstEffectInstance* i, int* out);
int rSetProgramName(_VstEffectInstance* i, const char* name);

} // namespace vlorvst_remote

#endif
