// The library's side of a VST3 or LV2 instance in a host program: one lock
// for the pipe (the control messages of the user interface), one for the
// region (the audio thread's blocks), so that neither waits on the other.
#include "fxremote_p.h"

#include "../hostprogram_p.h"
#include "../shmaudio_p.h"

#include "blpopenio.h"
#include "blsettings.h"
#include "blutils.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace vlorfx {

namespace {

constexpr int kSliceMs = 5;
constexpr int kCloseMs = 2000;
// Opening a plugin reads its files and builds its state: more than a block.
constexpr int kOpenTimeoutFactor = 6;

std::mutex g_folderLock;
std::string g_folder;

int hangTimeoutMs()
{
    const int seconds = BLSETTINGS_GetIntEx(nullptr, "vloraudio.plugins.hang_timeout=[5]");
    return std::clamp(seconds, 1, 600) * 1000;
}

std::string quoted(const std::string& text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

// Whether the process lives: a zombie does not (its pidfd says it ended).
bool hostAlive(int pid)
{
    vlorshm::PeerWatch w;
    return pid > 0 && w.watch(pid) && w.alive();
}

// The project's one rule for a usable host program: a folder of that name is none.
bool executable(const std::string& path) { return HostProgramUsable(path.c_str()); }

} // namespace

struct Remote::Audio {
    vlorshm::Region region;
    vlorshm::PeerWatch host;
    vlorshm::Spin spin;
    uint32_t seq = 0;
    long long answeredAt = 0;
};

std::unique_ptr<Remote> Remote::Start(const std::string& command, std::string* error)
{
    std::unique_ptr<Remote> r(new Remote);
    r->m_timeoutMs = hangTimeoutMs();
    r->m_io = command.empty() ? nullptr : BLPOPENIO_Create("rw", command.c_str());
    if (!r->m_io) {
        *error = "the host program does not start";
        return nullptr;
    }
    r->m_pid = BLPOPENIO_GetPid(static_cast<BLPOpenIO>(r->m_io));
    const int timeout = r->m_timeoutMs;
    r->m_timeoutMs = timeout * kOpenTimeoutFactor;
    int32_t tag = 0, pid = 0;
    std::string reason;
    const bool hello = r->readRaw(&tag, 4);
    if (hello && tag == VLORVST_OK && r->readRaw(&pid, 4)) {
        r->m_timeoutMs = timeout;
        return r;
    }
    if (hello && tag == VLORVST_FAIL && r->readBytes(&reason, VLORVST_MAX_STRING, nullptr))
        *error = reason;
    else
        *error = r->m_lastReadTimedOut ? "the plugin did not open in time" : "the plugin crashed while opening";
    return nullptr;
}

Remote::~Remote()
{
    leaveAudio();
    if (!m_io)
        return;
    auto* io = static_cast<BLPOpenIO>(m_io);
    if (life() == Life::Alive) {
        std::unique_lock<std::mutex> l(m_pipeLock);
        const int32_t tag = VLORVST_EXIT;
        const bool asked = BLPOPENIO_WriteData(io, &tag, 4) == 4;
        BLPOPENIO_CloseEx(io, asked ? 1 : 0, kCloseMs);
    } else {
        BLPOPENIO_CloseEx(io, 0, 0);
    }
}

void Remote::setEventSink(EventSink sink, void* user)
{
    std::lock_guard<std::mutex> g(m_eventLock);
    m_sink = sink;
    m_user = user;
}

bool Remote::readRaw(void* p, int size)
{
    auto* io = static_cast<BLPOpenIO>(m_io);
    m_lastReadTimedOut = false;
    char* c = static_cast<char*>(p);
    while (size > 0) {
        const int n = BLPOPENIO_ReadDataEx(io, c, size, m_timeoutMs);
        if (n <= 0) {
            // A timeout while the host still lives is a stuck plugin.
            m_lastReadTimedOut = n < 0 && hostAlive(m_pid);
            return false;
        }
        c += n;
        size -= n;
    }
    return true;
}

bool Remote::readBytes(std::string* s, int limit, bool* isNull)
{
    int32_t n = 0;
    if (!readRaw(&n, 4) || n < -1 || n > limit || (n == -1 && !isNull))
        return false;
    if (isNull)
        *isNull = n == -1;
    s->assign(size_t(std::max(n, 0)), '\0');
    return n <= 0 || readRaw(&(*s)[0], n);
}

bool Remote::readEvent()
{
    int32_t e[3];
    if (!readRaw(e, sizeof(e)))
        return false;
    std::lock_guard<std::mutex> g(m_eventLock);
    m_events.insert(m_events.end(), e, e + 3);
    return true;
}

void Remote::deliver()
{
    std::vector<int32_t> events;
    EventSink sink;
    void* user;
    {
        std::lock_guard<std::mutex> g(m_eventLock);
        events.swap(m_events);
        sink = m_sink;
        user = m_user;
    }
    for (size_t k = 0; sink && k + 2 < events.size(); k += 3)
        sink(user, events[k], events[k + 1], events[k + 2]);
}

int Remote::send(const vlorvst::Message& m)
{
    if (life() != Life::Alive)
        return -1;
    auto* io = static_cast<BLPOpenIO>(m_io);
    // Events of the time between commands first: they are no answer.
    while (BLPOPENIO_GetBytesReadAvailable(io) >= 4) {
        int32_t tag = 0;
        if (!readRaw(&tag, 4) || tag != VLORVST_CDAT || !readEvent()) {
            gone();
            return -1;
        }
    }
    if (BLPOPENIO_WriteData(io, m.data(), int(m.size())) != int(m.size())) {
        gone();
        return -1;
    }
    for (;;) {
        int32_t tag = 0;
        if (!readRaw(&tag, 4) || (tag == VLORVST_CDAT && !readEvent())) {
            gone(m_lastReadTimedOut);
            return -1;
        }
        if (tag != VLORVST_CDAT)
            return tag == VLORVST_OK ? 1 : 0;
    }
}

bool Remote::finish(std::unique_lock<std::mutex>& l, bool ok)
{
    l.unlock();
    deliver();
    return ok;
}

int32_t Remote::callInt(const vlorvst::Message& m, int32_t fallback)
{
    int32_t v = fallback;
    return call(m, [&v](Answer& a) { return a.i32(&v); }) ? v : fallback;
}

void Remote::pollEvents()
{
    std::unique_lock<std::mutex> l(m_pipeLock, std::try_to_lock);
    if (!l.owns_lock() || life() != Life::Alive)
        return;
    auto* io = static_cast<BLPOpenIO>(m_io);
    int available;
    while ((available = BLPOPENIO_GetBytesReadAvailable(io)) >= 4) {
        int32_t tag = 0;
        if (!readRaw(&tag, 4) || tag != VLORVST_CDAT || !readEvent()) {
            gone();
            break;
        }
    }
    // A host that ended between commands: seen without a command.
    if (available >= 0 && available < 4 && life() == Life::Alive && !hostAlive(m_pid))
        gone();
    finish(l, true);
}

void Remote::gone(bool timedOut)
{
    int expected = int(Life::Alive);
    m_life.compare_exchange_strong(expected, int(timedOut ? Life::Hung : Life::Crashed));
}

void Remote::terminate()
{
    gone(true);
    if (m_pid > 0)
        ::kill(m_pid, SIGKILL);
}

bool Remote::attachAudio(int maxSamples, int blockFrames, int sampleRate)
{
    std::lock_guard<std::mutex> g(m_audioLock);
    if (m_region && m_region->region.header()->maxSamples >= maxSamples) {
        m_region->spin.setBudget(vlorshm::SpinBudgetNs(blockFrames, sampleRate));
        return true;
    }
    auto audio = std::make_unique<Audio>();
    if (!audio->region.create(maxSamples))
        return false;
    if (m_region) {
        m_region->region.header()->quit.store(1);
        vlorshm::Ring(&m_region->region.header()->request, ++m_region->seq);
    }
    m_region.reset();
    const vlorvst::Message m =
        vlorvst::Message(VLORVST_SHM_ATTACH).i32(int32_t(getpid())).i32(audio->region.fd()).i32(maxSamples);
    int32_t unused = 0;
    if (!call(m, [&unused](Answer& a) { return a.i32(&unused); }) ||
        !audio->host.watch(audio->region.header()->hostPid.load()))
        return false;
    audio->spin.setBudget(vlorshm::SpinBudgetNs(blockFrames, sampleRate));
    m_region = std::move(audio);
    return true;
}

void Remote::leaveAudio()
{
    std::lock_guard<std::mutex> g(m_audioLock);
    if (!m_region)
        return;
    vlorshm::Header* h = m_region->region.header();
    h->quit.store(1);
    vlorshm::Ring(&h->request, ++m_region->seq);
    m_region.reset();
}

bool Remote::process(const float* in, float* out, int channels, int frames)
{
    std::lock_guard<std::mutex> g(m_audioLock);
    if (!m_region || life() != Life::Alive || channels <= 0 || frames < 0)
        return false;
    Audio* a = m_region.get();
    vlorshm::Header* h = a->region.header();
    const int run = std::max(1, h->maxSamples / channels);
    for (int done = 0; done < frames || (frames == 0 && done == 0);) {
        const int n = std::min(run, frames - done);
        const size_t bytes = size_t(channels) * size_t(n) * sizeof(float);
        h->channels = channels;
        h->frames = n;
        h->status = vlorshm::kFailed;
        h->numEvents = 0;
        h->chainLength = 0;
        if (bytes)
            std::memmove(vlorshm::InputOf(h), in + size_t(done) * size_t(channels), bytes);
        const long spin = a->spin.forGap(vlorshm::NowNs() - a->answeredAt);
        h->spin.store(spin > 0 ? 1 : 0, std::memory_order_relaxed);
        const uint32_t seq = ++a->seq;
        vlorshm::Ring(&h->request, seq);
        const vlorshm::Wait w = vlorshm::WaitFor(&h->reply, vlorshm::Until{seq, false}, spin, kSliceMs, m_timeoutMs,
                                                 [a] { return a->host.alive(); });
        a->answeredAt = vlorshm::NowNs();
        if (w != vlorshm::Wait::Rung) {
            gone(w == vlorshm::Wait::TimedOut);
            return false;
        }
        m_blocks.fetch_add(1);
        {
            std::lock_guard<std::mutex> e(m_eventLock);
            for (int k = 0; k < std::min<int>(h->numEvents, vlorshm::kMaxEvents); ++k)
                m_events.insert(m_events.end(), {h->events[k].type, h->events[k].width, h->events[k].height});
        }
        deliver();
        if (h->status != vlorshm::kDone)
            return false;
        if (bytes)
            std::memmove(out + size_t(done) * size_t(channels), vlorshm::OutputOf(h), bytes);
        done += std::max(n, 1);
    }
    return true;
}

void SetHostFolder(const char* folder)
{
    std::lock_guard<std::mutex> g(g_folderLock);
    g_folder = folder ? folder : "";
}

std::string HostCommand(const char* program, const char* flag, const std::vector<std::string>& arguments)
{
    std::string path;
    {
        std::lock_guard<std::mutex> g(g_folderLock);
        if (!g_folder.empty() && executable(g_folder + "/" + program))
            path = g_folder + "/" + program;
    }
    char dir[4096];
    for (auto get : {BLUTILS_GetHelpersDir, BLUTILS_GetResourceDir, BLUTILS_GetExecutableDir})
        if (path.empty() && get(dir, int(sizeof(dir))) && executable(std::string(dir) + "/" + program))
            path = std::string(dir) + "/" + program;
    if (const std::string installed = HostProgramsBesideLibrary();
        path.empty() && !installed.empty() && executable(installed + "/" + program))
        path = installed + "/" + program;
    std::string line;
    if (!path.empty()) {
        line = quoted(path);
    } else {
        // No host program installed: the application serves as its own.
        char self[4096];
        const ssize_t n = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
        if (n <= 0)
            return std::string();
        line = quoted(std::string(self, size_t(n))) + " " + flag;
    }
    for (const std::string& a : arguments)
        line += " " + quoted(a);
    return line;
}

} // namespace vlorfx
