#include "bldebug.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

namespace {
std::mutex g_lock;
BLDebugLogCallback g_callback = nullptr;
void* g_user = nullptr;
std::atomic<int> g_stderr{1};
} // namespace

extern "C" int BLDEBUG_Error(int code, const char* format, ...)
{
    if (!format)
        return 0;
    char buf[2048];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(buf, sizeof(buf), format, ap);
    va_end(ap);
    // Messages may carry their own newline; the log wants lines without it.
    std::string msg(buf);
    while (!msg.empty() && msg.back() == '\n')
        msg.pop_back();
    if (g_stderr.load())
        std::fprintf(stderr, "%s\n", msg.c_str());
    std::lock_guard<std::mutex> g(g_lock);
    if (g_callback)
        g_callback(g_user, code, msg.c_str());
    return 0;
}

extern "C" void BLDEBUG_SetLogCallback(BLDebugLogCallback callback, void* user)
{
    std::lock_guard<std::mutex> g(g_lock);
    g_callback = callback;
    g_user = user;
}

extern "C" int BLDEBUG_SetStderrEnabled(int enabled) { return g_stderr.exchange(enabled ? 1 : 0); }
