#ifndef BLIOUTILS_H
#define BLIOUTILS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Creates the folder and any missing parents; 1 if it exists afterwards. */
int BLIOUTILS_MakeDirectory(const char* path);

#ifdef __cplusplus
}
#endif
#endif
