#include "blnotify.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace {
std::mutex g_lock;
std::vector<std::pair<BLNotifyHandler, void*>> g_handlers;
} // namespace

extern "C" int BLNOTIFY_AddDefaultHandler(BLNotifyHandler handler, void* user)
{
    if (!handler)
        return 0;
    std::lock_guard<std::mutex> g(g_lock);
    const auto entry = std::make_pair(handler, user);
    if (std::find(g_handlers.begin(), g_handlers.end(), entry) == g_handlers.end())
        g_handlers.push_back(entry);
    return 1;
}

extern "C" int BLNOTIFY_RemoveDefaultHandler(BLNotifyHandler handler, void* user)
{
    std::lock_guard<std::mutex> g(g_lock);
    const auto it = std::find(g_handlers.begin(), g_handlers.end(), std::make_pair(handler, user));
    if (it == g_handlers.end())
        return 0;
    g_handlers.erase(it);
    return 1;
}

extern "C" int BLNOTIFY_SendEvent(void* sender, int flags, int code, void* a, void* b)
{
    // The handlers run without the lock, on a copy: a handler may add or
    // remove handlers, or send events of its own.
    std::vector<std::pair<BLNotifyHandler, void*>> handlers;
    {
        std::lock_guard<std::mutex> g(g_lock);
        handlers = g_handlers;
    }
    const BLNotifyEvent event{sender, flags, code, a, b};
    for (auto it = handlers.rbegin(); it != handlers.rend(); ++it)
        if (it->first(it->second, &event) == 0)
            return 0;
    return 1;
}
