#ifndef BLIO_H
#define BLIO_H
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 1 if path names an existing file or folder */
int BLIO_Exists(const char* path);
/* kind 0: status change, 1: last access, 2: last modification; nanoseconds
 * since the epoch, 0 when the file cannot be read */
int64_t BLIO_GetFileTimeStamp(const char* path, int kind);
/* fopen with the usual modes; null on failure */
FILE* BLIO_Open(const char* path, const char* mode);
int BLIO_Close(FILE* file);
/* creates the folder and its parents; 1 if it exists afterwards */
int BLIO_MakeDirs(const char* path);

#ifdef __cplusplus
}
#endif
#endif
