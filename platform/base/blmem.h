#ifndef BLMEM_H
#define BLMEM_H
/* Memory descriptors: named arenas. Everything allocated from a descriptor is
 * freed at once when the descriptor is disposed. */
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLMemDescrRec* BLMemDescr;

/* name is kept for diagnostics; blockSize is a hint for the first chunk (0: default);
 * flags are reserved. */
BLMemDescr BLMEM_CreateMemDescrEx(const char* name, size_t blockSize, int flags);
/* size zeroed bytes, aligned for any type; null on failure or a null descriptor */
void* BLMEM_NewEx(BLMemDescr descr, size_t size, int flags);
/* duplicate of text inside the descriptor */
char* BLMEM_StrDup(BLMemDescr descr, const char* text);
/* frees the descriptor and everything allocated from it; 1, or 0 for null */
int BLMEM_DisposeMemDescr(BLMemDescr descr);
const char* BLMEM_GetName(BLMemDescr descr);
/* number of bytes handed out by the descriptor so far */
size_t BLMEM_GetAllocated(BLMemDescr descr);
/* memmove: the regions may overlap */
void* BLMEM_OverlapMemCopy(void* dst, const void* src, size_t size);

#ifdef __cplusplus
}
#endif
#endif
