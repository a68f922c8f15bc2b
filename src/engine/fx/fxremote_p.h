#ifndef FXREMOTE_P_H
#define FXREMOTE_P_H
// A VST3 or LV2 instance in a host program of its own, seen from the
// library: the control messages on the host's pipe, the audio through a
// shared region, and what became of the host. The engines keep one behind
// their own handles, so that their callers cannot tell the difference but
// by asking (fxremote_protocol.h for the wire).
#include "fxremote_protocol.h"
#include "vlorvst_wire.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vlorfx {

// What became of the host program: alive, ended by a crash (or any death
// we did not ask for), or stopped answering within the time the setting
// "vloraudio.plugins.hang_timeout" (seconds, default 5) gives it.
enum class Life { Alive = 1, Crashed = 2, Hung = 3 };

using EventSink = void (*)(void* user, int event, int a, int b);

// The items of an answer, read from the pipe with the hang timeout.
class Answer {
public:
    virtual ~Answer() = default;
    virtual bool i32(int32_t* v) = 0;
    virtual bool u64(uint64_t* v) = 0;
    bool f32(float* v) { return i32(reinterpret_cast<int32_t*>(v)); }
    bool f64(double* v) { return u64(reinterpret_cast<uint64_t*>(v)); }
    // A string up to VLORVST_MAX_STRING, a blob up to VLORFX_MAX_BLOB;
    // *isNull for a blob of length -1.
    virtual bool str(std::string* s) = 0;
    virtual bool blob(std::string* s, bool* isNull) = 0;
};

class Remote {
public:
    // Starts the host program's command line and waits for the plugin to
    // open there; null with the reason in error.
    static std::unique_ptr<Remote> Start(const std::string& command, std::string* error);
    ~Remote();
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    void setEventSink(EventSink sink, void* user);

    // One command and its answer's items; false on a failure answer, or
    // when the host is gone or stuck (then life() says which).
    template <typename Read> bool call(const vlorvst::Message& m, Read&& read)
    {
        struct R final : Answer {
            Remote* self;
            bool i32(int32_t* v) override { return self->readRaw(v, 4); }
            bool u64(uint64_t* v) override { return self->readRaw(v, 8); }
            bool str(std::string* s) override { return self->readBytes(s, VLORVST_MAX_STRING, nullptr); }
            bool blob(std::string* s, bool* isNull) override { return self->readBytes(s, VLORFX_MAX_BLOB, isNull); }
        } answer;
        answer.self = this;
        std::unique_lock<std::mutex> l(m_pipeLock);
        const int sent = send(m);
        if (sent <= 0)
            return finish(l, false);
        if (!read(static_cast<Answer&>(answer))) {
            gone();
            return finish(l, false);
        }
        return finish(l, true);
    }
    bool call(const vlorvst::Message& m)
    {
        return call(m, [](Answer&) { return true; });
    }
    // An int32 answer, or fallback on any failure.
    int32_t callInt(const vlorvst::Message& m, int32_t fallback = 0);

    // The audio from now on through a region for maxSamples each way.
    bool attachAudio(int maxSamples, int blockFrames, int sampleRate);
    void leaveAudio();
    // Interleaved, in place or not; cut into runs the region takes.
    bool process(const float* in, float* out, int channels, int frames);
    bool hasAudio() const { return m_region != nullptr; }
    // The blocks the region carried: for tests and benchmarks.
    int blocks() const { return int(m_blocks.load()); }

    // Events that arrived between commands, to the sink, without waiting.
    void pollEvents();

    Life life() const { return Life(m_life.load()); }
    int pid() const { return m_pid; }
    // Ends the host at once, whatever it is doing.
    void terminate();
    // The host's answer time for one command, in milliseconds.
    int timeoutMs() const { return m_timeoutMs; }

private:
    struct Audio;
    Remote() = default;
    // 1 sent and answered OK, 0 a failure answer, -1 the host gone or stuck.
    int send(const vlorvst::Message& m);
    bool finish(std::unique_lock<std::mutex>& l, bool ok);
    bool readRaw(void* p, int size);
    bool readBytes(std::string* s, int limit, bool* isNull);
    bool readEvent();
    void deliver();
    // The host is no longer to be asked: crashed, or stuck.
    void gone(bool timedOut = false);

    void* m_io = nullptr;
    int m_pid = 0;
    int m_timeoutMs = 5000;
    std::atomic<int> m_life{int(Life::Alive)};
    bool m_lastReadTimedOut = false;
    std::mutex m_pipeLock;
    std::mutex m_audioLock;
    std::unique_ptr<Audio> m_region;
    std::atomic<uint32_t> m_blocks{0};
    std::mutex m_eventLock;
    EventSink m_sink = nullptr;
    void* m_user = nullptr;
    std::vector<int32_t> m_events; // triples waiting for the sink
};

// The host program's command line for a format: "vlorvst3" or "vlorlv2"
// in the library's helper, resource or executable folder, then the
// arguments quoted; empty when there is none.
std::string HostCommand(const char* program, const char* flag, const std::vector<std::string>& arguments);
// Sets the folder the host programs are looked for in first (tests).
void SetHostFolder(const char* folder);

} // namespace vlorfx

#endif
