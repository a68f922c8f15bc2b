#ifndef VLORVST_HOST_IO_H
#define VLORVST_HOST_IO_H
// What the parts of the host program share: our descriptors, the answers,
// and a plugin opened in this process.
#include "aeffect_p.h"
#include "vlorvst_wire.h"
#include "vsteffect_p.h"

#include <cstdint>
#include <mutex>

namespace vlorvsthost {

using vlorvst::Message;

extern int g_out; // our real standard output

bool readIn(void* data, size_t size);
bool writeOut(const void* data, size_t size);
// Written whole under a lock, so that an event from another thread of a
// plugin never lands inside an answer.
bool answer(const Message& m);
std::mutex& writeLock();

inline Message ok() { return Message(VLORVST_OK); }
inline bool fail() { return answer(Message(VLORVST_FAIL)); }
inline bool okOr(bool done) { return done ? answer(ok()) : fail(); }

// A plugin's own messages; its host data is its place in a group plus one,
// or null when the program serves one instance.
int onPluginMessage(void* hostData, _VstEffectMessage* message);

struct Plugin {
    _VSTEFFECT* record = nullptr;
    _VstEffectInstance* fx = nullptr;

    Plugin() = default;
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin();
    bool open(const char* file, int32_t id, void* hostData = nullptr);
};

// Serves one instance until the library says "exit" (true) or the stream
// breaks (false). A closed pipe is the library's end too.
bool serve(_VstEffectInstance* fx);
// Serves the instances of a group, made and ended by the library, until the
// library says "exit" outside any instance or the stream breaks.
bool serveGroup();

} // namespace vlorvsthost

#endif
