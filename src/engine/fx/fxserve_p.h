#ifndef FXSERVE_P_H
#define FXSERVE_P_H
// The host program's side of an instance of its own (fxremote_protocol.h):
// the loop that reads commands while the plugin's editor gets its idle
// time, and the block server behind the shared region. A format gives its
// plugin as a Plugin; the rest is common.
#include "fxremote_protocol.h"
#include "vlorvst_wire.h"

#include <cstdint>
#include <string>

namespace vlorfx {

// The items of a command, as they follow its tag.
class Request {
public:
    explicit Request(vlorvst::BufferedInput& in) : m_in(in) {}
    bool i32(int32_t* v) { return m_in.readAll(v, 4); }
    bool u64(uint64_t* v) { return m_in.readAll(v, 8); }
    bool f64(double* v) { return u64(reinterpret_cast<uint64_t*>(v)); }
    bool str(std::string* s, int limit = VLORVST_MAX_STRING);

private:
    vlorvst::BufferedInput& m_in;
};

// Appends a blob (null: length -1) to an answer.
void PutBlob(vlorvst::Message& m, const char* data, int32_t size);
inline vlorvst::Message& PutF64(vlorvst::Message& m, double v)
{
    uint64_t bits;
    static_assert(sizeof(bits) == sizeof(v), "a double is 8 bytes");
    __builtin_memcpy(&bits, &v, 8);
    return m.u64(bits);
}

class Plugin {
public:
    virtual ~Plugin() = default;
    // On the block server's thread.
    virtual bool process(const float* in, float* out, int channels, int frames) = 0;
    // Any other command, on the main thread: false answers FAIL (and then
    // every item it takes must have been read); true sends answer, which
    // already holds OK.
    virtual bool command(int32_t tag, Request& in, vlorvst::Message& answer) = 0;
    // While true the loop calls idle() some 60 times a second.
    virtual bool editorOpen() const = 0;
    virtual void idle() {}
};

// An event of the plugin, from any thread: with the block in flight on the
// block server's thread, otherwise on the pipe.
void PostEvent(int event, int a, int b);

// The whole instance mode after the plugin was opened (or not: then failure
// says why). The exit status.
int Serve(Plugin* plugin, const std::string& failure);

} // namespace vlorfx

#endif
