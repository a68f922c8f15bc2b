#ifndef BLCORE_H
#define BLCORE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Status of a child killed by signal N: 128 + N, as shells report it. */
#define BLCORE_SPAWN_SIGNALED(sig) (128 + (sig))
/* The program could not be started at all. */
#define BLCORE_SPAWN_FAILED 127

/* Formats a command line, splits it into arguments (quotes group), starts the
 * program with posix_spawn (never a shell) and waits for it. Returns its exit
 * status; 128 + N when signal N ended it (the spawn timeout ends it with
 * SIGKILL); 127 when it could not start; -1 for a bad or empty line. */
int BLCORE_Spawn(const char* format, ...) __attribute__((format(printf, 1, 2)));
/* How long BLCORE_Spawn waits before it kills the child; returns the old value.
 * Default 120000 ms; 0 or less waits for ever. */
int BLCORE_SetSpawnTimeout(int milliseconds);
/* Whether the last BLCORE_Spawn of the calling thread was killed at the
 * timeout; 1 or 0. */
int BLCORE_LastSpawnTimedOut(void);
/* The application quits: from now on every child waited for by BLCORE_Spawn
 * is killed if it runs past graceMs from now (or from an earlier call whose
 * grace ends sooner), until BLCORE_AbortSpawns(-1) ends this. */
void BLCORE_AbortSpawns(int graceMs);
/* Whether the last BLCORE_Spawn of the calling thread was killed by
 * BLCORE_AbortSpawns; 1 or 0. */
int BLCORE_LastSpawnAborted(void);

#ifdef __cplusplus
}
#endif
#endif
