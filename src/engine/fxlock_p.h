#ifndef VLOR_FXLOCK_P_H
#define VLOR_FXLOCK_P_H
// A filter's lock, held for a scope: the creation and the end of its
// instances never overlap.
#include "blmutex.h"

class FxLocked {
public:
    explicit FxLocked(Mutex lock) : m_lock(lock) { MutexLock(m_lock); }
    ~FxLocked() { MutexUnlock(m_lock); }
    FxLocked(const FxLocked&) = delete;
    FxLocked& operator=(const FxLocked&) = delete;

private:
    Mutex m_lock;
};

#endif
