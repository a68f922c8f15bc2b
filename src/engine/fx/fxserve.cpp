// The instance mode of the VST3 and LV2 host programs: one thread reads the
// commands and gives the editor its time, one serves the blocks. Their
// answers and the plugin's events leave through one lock, each message in
// one write.
#include "fxserve_p.h"

#include "../hostchild_p.h"
#include "../shmhost_p.h"

#include <memory>
#include <mutex>
#include <poll.h>

namespace vlorfx {

namespace {

std::mutex g_outLock;
int g_out = -1;

constexpr int kIdleMs = 16;

bool write(const vlorvst::Message& m)
{
    std::lock_guard<std::mutex> g(g_outLock);
    return g_out >= 0 && vlorvst::WriteAllFd(g_out, m.data(), m.size());
}

bool answerFail()
{
    return write(vlorvst::Message(VLORVST_FAIL));
}

// A command the loop answers itself; false when it is none of them.
bool common(int32_t tag, Request& in, vlorshm::BlockServer& server, bool* ok)
{
    if (tag != VLORVST_SHM_ATTACH)
        return false;
    int32_t pid = 0, fd = -1, samples = 0;
    *ok = in.i32(&pid) && in.i32(&fd) && in.i32(&samples);
    if (*ok) {
        const bool attached = server.attach(pid, fd, samples);
        *ok = attached ? write(vlorvst::Message(VLORVST_OK).i32(0)) : answerFail();
    }
    return true;
}

} // namespace

bool Request::str(std::string* s, int limit)
{
    int32_t n = 0;
    if (!i32(&n) || n < 0 || n > limit)
        return false;
    s->assign(size_t(n), '\0');
    return n == 0 || m_in.readAll(&(*s)[0], size_t(n));
}

void PutBlob(vlorvst::Message& m, const char* data, int32_t size)
{
    if (!data) {
        m.i32(-1);
        return;
    }
    m.i32(size).bytes(data, size_t(size));
}

void PostEvent(int event, int a, int b)
{
    if (vlorshm::BlockServer::PostEvent(event, a, b))
        return;
    write(vlorvst::Message(VLORVST_CDAT).i32(event).i32(a).i32(b));
}

int Serve(Plugin* plugin, const std::string& failure)
{
    if (!HostChildDieWithParent())
        return VLORVST_STATUS_FAILED;
    g_out = HostChildTakeStdout(false);
    if (g_out < 0)
        return VLORVST_STATUS_NO_OUTPUT;
    if (!plugin) {
        write(vlorvst::Message(VLORVST_FAIL).str(failure.c_str()));
        return VLORVST_STATUS_FAILED;
    }
    vlorshm::BlockServer server(
        [plugin](const float* in, float* out, int channels, int frames) {
            return plugin->process(in, out, channels, frames);
        },
        [](int, float) {});
    if (!write(vlorvst::Message(VLORVST_OK).i32(int32_t(getpid()))))
        return VLORVST_STATUS_FAILED;
    vlorvst::BufferedInput input(STDIN_FILENO);
    Request request(input);
    long long idledAt = 0;
    for (;;) {
        // The editor draws and answers its user between commands, and at
        // its pace even while commands keep coming.
        if (plugin->editorOpen()) {
            const long long now = vlorshm::NowNs();
            if (now - idledAt >= kIdleMs * 1000000LL) {
                plugin->idle();
                idledAt = now;
            }
            pollfd p{STDIN_FILENO, POLLIN, 0};
            if (!input.buffered() && poll(&p, 1, kIdleMs) == 0)
                continue;
        }
        int32_t tag = 0;
        if (!input.readAll(&tag, 4))
            break;
        if (tag == VLORVST_EXIT) {
            write(vlorvst::Message(VLORVST_OK));
            server.stop();
            return VLORVST_STATUS_OK;
        }
        bool ok = true;
        if (common(tag, request, server, &ok)) {
            if (!ok)
                break;
            continue;
        }
        vlorvst::Message answer(VLORVST_OK);
        if (!(plugin->command(tag, request, answer) ? write(answer) : answerFail()))
            break;
    }
    server.stop();
    return VLORVST_STATUS_FAILED;
}

} // namespace vlorfx
