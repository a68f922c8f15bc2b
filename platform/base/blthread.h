#ifndef BLTHREAD_H
#define BLTHREAD_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*BLThreadFunction)(void* argument);
/* How an application with an event loop runs a function on its main thread:
 * it must run it there and return once it has run. */
typedef void (*BLThreadDispatcher)(BLThreadFunction function, void* argument);

/* Runs the function on the main thread and returns when it has run; from the
 * main thread itself it runs at once. Without a dispatcher the main thread
 * must call BLTHREAD_ProcessPendingCalls while it waits for other threads. */
int BLTHREAD_RunInMainThread(BLThreadFunction function, void* argument);
/* The process's first thread is the main thread until this says otherwise. */
void BLTHREAD_SetMainThread(void);
int BLTHREAD_IsMainThread(void);
void BLTHREAD_SetMainThreadDispatcher(BLThreadDispatcher dispatcher);
/* On the main thread: runs what other threads asked for, waiting up to
 * waitMs for a first request (0: only what is there). The number run. */
int BLTHREAD_ProcessPendingCalls(int waitMs);

#ifdef __cplusplus
}
#endif
#endif
