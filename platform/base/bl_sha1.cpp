#include "blsha1.h"

#include <algorithm>
#include <cstring>

namespace {

inline uint32_t rol(uint32_t v, int n) { return (v << n) | (v >> (32 - n)); }

void processBlock(SHA1Context* ctx, const uint8_t* p)
{
    uint32_t w[80];
    for (int i = 0; i < 16; ++i)
        w[i] = uint32_t(p[4 * i]) << 24 | uint32_t(p[4 * i + 1]) << 16 | uint32_t(p[4 * i + 2]) << 8 | p[4 * i + 3];
    for (int i = 16; i < 80; ++i)
        w[i] = rol(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);

    uint32_t a = ctx->state[0], b = ctx->state[1], c = ctx->state[2], d = ctx->state[3], e = ctx->state[4];
    for (int i = 0; i < 80; ++i) {
        uint32_t f, k;
        if (i < 20) {
            f = (b & c) | (~b & d);
            k = 0x5A827999;
        } else if (i < 40) {
            f = b ^ c ^ d;
            k = 0x6ED9EBA1;
        } else if (i < 60) {
            f = (b & c) | (b & d) | (c & d);
            k = 0x8F1BBCDC;
        } else {
            f = b ^ c ^ d;
            k = 0xCA62C1D6;
        }
        const uint32_t t = rol(a, 5) + f + e + k + w[i];
        e = d;
        d = c;
        c = rol(b, 30);
        b = a;
        a = t;
    }
    ctx->state[0] += a;
    ctx->state[1] += b;
    ctx->state[2] += c;
    ctx->state[3] += d;
    ctx->state[4] += e;
}

} // namespace

extern "C" void fSHA1Reset(SHA1Context* ctx)
{
    if (!ctx)
        return;
    static const uint32_t init[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    std::memcpy(ctx->state, init, sizeof(init));
    ctx->length = 0;
    ctx->used = 0;
    ctx->computed = 0;
}

extern "C" void fSHA1Input(SHA1Context* ctx, const void* data, size_t size)
{
    if (!ctx || ctx->computed || (!data && size))
        return;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    ctx->length += size;
    while (size > 0) {
        const size_t take = std::min<size_t>(64 - ctx->used, size);
        std::memcpy(ctx->block + ctx->used, p, take);
        ctx->used += uint32_t(take);
        p += take;
        size -= take;
        if (ctx->used == 64) {
            processBlock(ctx, ctx->block);
            ctx->used = 0;
        }
    }
}

extern "C" void fSHA1Result(SHA1Context* ctx, uint8_t digest[SHA1HashSize])
{
    if (!ctx || !digest)
        return;
    if (!ctx->computed) {
        const uint64_t bits = ctx->length * 8;
        ctx->block[ctx->used++] = 0x80;
        if (ctx->used > 56) {
            std::memset(ctx->block + ctx->used, 0, 64 - ctx->used);
            processBlock(ctx, ctx->block);
            ctx->used = 0;
        }
        std::memset(ctx->block + ctx->used, 0, 56 - ctx->used);
        for (int i = 0; i < 8; ++i)
            ctx->block[56 + i] = uint8_t(bits >> (56 - 8 * i));
        processBlock(ctx, ctx->block);
        ctx->computed = 1;
    }
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 4; ++j)
            digest[4 * i + j] = uint8_t(ctx->state[i] >> (24 - 8 * j));
}

extern "C" int BLSHA1_GetHash(const void* data, size_t size, uint8_t out[SHA1HashSize])
{
    if ((!data && size) || !out)
        return 0;
    SHA1Context ctx;
    fSHA1Reset(&ctx);
    fSHA1Input(&ctx, data, size);
    fSHA1Result(&ctx, out);
    return 1;
}
