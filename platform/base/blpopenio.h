#ifndef BLPOPENIO_H
#define BLPOPENIO_H
/* A child process with pipes to its standard input and output, started with
 * posix_spawn from a command line split like BLCORE_Spawn's (never a shell). */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLPOpenIORec* BLPOpenIO;

/* mode "rw": both pipes; "r": its output only (input from /dev/null). The
 * child's standard error is ours. Null when the line is bad or the program
 * cannot start. */
BLPOpenIO BLPOPENIO_Create(const char* mode, const char* command);
/* Waits up to timeoutMs (< 0: for ever) for data, then reads what is there, at
 * most size bytes. Bytes read; 0 at end of stream; -1 on a timeout or error. */
int BLPOPENIO_ReadDataEx(BLPOpenIO io, void* buffer, int size, int timeoutMs);
/* Writes all size bytes, waiting up to 5000 ms for room; size, or -1 when the
 * child is gone or does not read. Never raises SIGPIPE. */
int BLPOPENIO_WriteData(BLPOpenIO io, const void* buffer, int size);
/* Bytes that can be read without waiting; -1 for a null handle. */
int BLPOPENIO_GetBytesReadAvailable(BLPOpenIO io);
/* Closes the pipes and frees the handle. With wait set, gives the child up to
 * timeoutMs to end before it is killed; otherwise kills it at once. Returns
 * its exit status (128 + N for signal N), or -1 for a null handle. */
int BLPOPENIO_CloseEx(BLPOpenIO io, int wait, int timeoutMs);
/* The child's process id, 0 for null. */
int BLPOPENIO_GetPid(BLPOpenIO io);

#ifdef __cplusplus
}
#endif
#endif
