#ifndef BLMUTEX_H
#define BLMUTEX_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLMutex* Mutex;

Mutex MutexInit(void);
Mutex MutexRecursiveInit(void);
/* 1 on success, 0 for null */
int MutexLock(Mutex m);
int MutexTryLock(Mutex m);
int MutexUnlock(Mutex m);
int MutexDestroy(Mutex m);

#ifdef __cplusplus
}
#endif
#endif
