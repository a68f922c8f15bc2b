#ifndef BLIOUTILS_H
#define BLIOUTILS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Creates the folder and any missing parents; 1 if it exists afterwards. */
int BLIOUTILS_MakeDirectory(const char* path);
/* 0 when both name the same path once "." and ".." parts and repeated or
 * trailing slashes are taken out (without asking the file system); otherwise
 * as strcmp of the cleaned paths. */
int BLIOUTILS_ComparePath(const char* a, const char* b);

#ifdef __cplusplus
}
#endif
#endif
