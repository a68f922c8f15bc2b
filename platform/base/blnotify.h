#ifndef BLNOTIFY_H
#define BLNOTIFY_H
/* Process-wide events. A handler answers 0 when it took the event (the walk
 * stops there) and anything else to pass it on. */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLNotifyEvent {
    void* sender;
    int flags;
    int code;
    void* a;
    void* b;
} BLNotifyEvent;

typedef int (*BLNotifyHandler)(void* user, const BLNotifyEvent* event);

/* Handlers run newest first. Adding the same pair twice adds it once. */
int BLNOTIFY_AddDefaultHandler(BLNotifyHandler handler, void* user);
int BLNOTIFY_RemoveDefaultHandler(BLNotifyHandler handler, void* user);
/* Runs the handlers on the calling thread. 0 when a handler took the event,
 * 1 when none did. */
int BLNOTIFY_SendEvent(void* sender, int flags, int code, void* a, void* b);

#ifdef __cplusplus
}
#endif
#endif
