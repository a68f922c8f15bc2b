#ifndef BLSHA1_H
#define BLSHA1_H
/* SHA-1 over bytes. The streaming trio keeps the classic names; BLSHA1_GetHash
 * is the one-shot form. */
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SHA1Context {
    uint32_t state[5];
    uint64_t length; /* bytes fed so far */
    uint8_t block[64];
    uint32_t used; /* bytes waiting in block */
    int computed;
} SHA1Context;

#define SHA1HashSize 20

void fSHA1Reset(SHA1Context* ctx);
void fSHA1Input(SHA1Context* ctx, const void* data, size_t size);
/* Writes the 20-byte digest; the context must be reset before it is fed again. */
void fSHA1Result(SHA1Context* ctx, uint8_t digest[SHA1HashSize]);

/* digest of size bytes of data into out[20]; 1 on success, 0 on null arguments */
int BLSHA1_GetHash(const void* data, size_t size, uint8_t out[SHA1HashSize]);

#ifdef __cplusplus
}
#endif
#endif
