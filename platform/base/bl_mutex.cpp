#include "blmutex.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

// The owner is tracked so that an unlock from a thread that does not hold the
// mutex is refused instead of corrupting it: some callers release a lock on an
// error path that their caller releases again.
struct BLMutex {
    bool recursive = false;
    std::mutex m;
    std::condition_variable freed;
    std::thread::id owner;
    int depth = 0;
};

namespace {
Mutex make(bool recursive)
{
    auto* m = new (std::nothrow) BLMutex;
    if (m)
        m->recursive = recursive;
    return m;
}
} // namespace

extern "C" Mutex MutexInit(void) { return make(false); }
extern "C" Mutex MutexRecursiveInit(void) { return make(true); }

extern "C" int MutexLock(Mutex m)
{
    if (!m)
        return 0;
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> g(m->m);
    if (m->depth > 0 && m->owner == self && m->recursive) {
        ++m->depth;
        return 1;
    }
    // A plain mutex taken twice by one thread waits for ever, as any mutex would.
    m->freed.wait(g, [m] { return m->depth == 0; });
    m->owner = self;
    m->depth = 1;
    return 1;
}

extern "C" int MutexTryLock(Mutex m)
{
    if (!m)
        return 0;
    const auto self = std::this_thread::get_id();
    std::lock_guard<std::mutex> g(m->m);
    if (m->depth > 0) {
        if (m->recursive && m->owner == self) {
            ++m->depth;
            return 1;
        }
        return 0;
    }
    m->owner = self;
    m->depth = 1;
    return 1;
}

extern "C" int MutexUnlock(Mutex m)
{
    if (!m)
        return 0;
    std::unique_lock<std::mutex> g(m->m);
    if (m->depth == 0 || m->owner != std::this_thread::get_id())
        return 0;
    if (--m->depth == 0) {
        m->owner = std::thread::id();
        // Notified under the lock: a waiter that wins may destroy the mutex
        // as soon as we let go of it.
        m->freed.notify_one();
    }
    return 1;
}

extern "C" int MutexDestroy(Mutex m)
{
    delete m;
    return m ? 1 : 0;
}
