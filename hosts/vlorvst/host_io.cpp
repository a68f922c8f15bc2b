// The host program's descriptors and answers, and its plugins.
#include "host_io.h"

#include "shmhost_p.h"

#include <unistd.h>

namespace vlorvsthost {

int g_out = -1;

namespace {
std::mutex g_writeLock;
vlorvst::BufferedInput g_in(STDIN_FILENO);
} // namespace

std::mutex& writeLock() { return g_writeLock; }

bool readIn(void* data, size_t size) { return g_in.readAll(data, size); }

bool writeOut(const void* data, size_t size) { return vlorvst::WriteAllFd(g_out, data, size); }

bool answer(const Message& m)
{
    std::lock_guard<std::mutex> g(g_writeLock);
    return writeOut(m.data(), m.size());
}

int onPluginMessage(void* hostData, _VstEffectMessage* message)
{
    if (!message || message->type != VSTEFFECT_MESSAGE_RESIZE)
        return message ? 1 : -1;
    // The editor wants another size: the library hears of it at once, with
    // the block when it asked during one.
    if (vlorshm::BlockServer::PostEvent(message->type, message->width, message->height))
        return 1;
    const int32_t place = int32_t(reinterpret_cast<intptr_t>(hostData));
    if (place > 0)
        answer(Message(VLORVST_GROUP_EVENT).i32(place - 1).i32(message->type).i32(message->width).i32(message->height));
    else
        answer(Message(VLORVST_CDAT).i32(message->type).i32(message->width).i32(message->height));
    return 1;
}

/* ---- opening the plugin --------------------------------------------------- */

Plugin::~Plugin()
{
    if (fx) {
        fx->DeactivateEngine(fx);
        fx->Destroy(fx);
    }
    if (record)
        AUDIOVST_DeletePlugin(record);
}

bool Plugin::open(const char* file, int32_t id, void* hostData)
{
    record = _CreateEffectRecord(file, id);
    if (!record || !AUDIOVST_LoadPlugin(record))
        return false;
    fx = aeffectCreateEffect(onPluginMessage, hostData, record->entryPoint, id);
    return fx && fx->Check(fx);
}

} // namespace vlorvsthost
