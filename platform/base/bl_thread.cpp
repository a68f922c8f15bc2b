#include "blthread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

struct Call {
    BLThreadFunction function;
    void* argument;
    bool done = false;
};

std::mutex g_lock;
std::condition_variable g_queued;
std::condition_variable g_finished;
std::deque<Call*> g_queue;
// 0: the process's first thread, whose id is the process id.
std::atomic<pid_t> g_main{0};
std::atomic<BLThreadDispatcher> g_dispatcher{nullptr};

} // namespace

extern "C" void BLTHREAD_SetMainThread(void) { g_main = gettid(); }

extern "C" int BLTHREAD_IsMainThread(void)
{
    const pid_t main = g_main.load();
    return gettid() == (main ? main : getpid()) ? 1 : 0;
}

extern "C" void BLTHREAD_SetMainThreadDispatcher(BLThreadDispatcher dispatcher) { g_dispatcher = dispatcher; }

extern "C" int BLTHREAD_RunInMainThread(BLThreadFunction function, void* argument)
{
    if (!function)
        return 0;
    if (BLTHREAD_IsMainThread()) {
        function(argument);
        return 1;
    }
    if (BLThreadDispatcher dispatcher = g_dispatcher.load()) {
        dispatcher(function, argument);
        return 1;
    }
    Call call{function, argument};
    std::unique_lock<std::mutex> g(g_lock);
    g_queue.push_back(&call);
    g_queued.notify_all();
    g_finished.wait(g, [&] { return call.done; });
    return 1;
}

extern "C" int BLTHREAD_ProcessPendingCalls(int waitMs)
{
    if (!BLTHREAD_IsMainThread())
        return 0;
    int ran = 0;
    std::unique_lock<std::mutex> g(g_lock);
    if (g_queue.empty() && waitMs > 0)
        g_queued.wait_for(g, std::chrono::milliseconds(waitMs), [] { return !g_queue.empty(); });
    while (!g_queue.empty()) {
        Call* call = g_queue.front();
        g_queue.pop_front();
        g.unlock();
        call->function(call->argument);
        g.lock();
        call->done = true;
        ++ran;
        g_finished.notify_all();
    }
    return ran;
}
