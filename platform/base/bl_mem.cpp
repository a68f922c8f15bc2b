#include "blmem.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <cstring>
#include <mutex>
#include <string>

// An arena is a chain of chunks; allocations are carved from the newest chunk
// and nothing is freed before the whole descriptor goes.
struct BLMemDescrRec {
    struct Chunk {
        Chunk* next;
        size_t size;
        size_t used;
        alignas(std::max_align_t) unsigned char data[1];
    };
    std::string name;
    size_t chunkSize;
    size_t allocated = 0;
    Chunk* chunks = nullptr;
    std::mutex lock;
};

namespace {
constexpr size_t kAlign = alignof(std::max_align_t);
constexpr size_t kDefaultChunk = 4096;
} // namespace

extern "C" BLMemDescr BLMEM_CreateMemDescrEx(const char* name, size_t blockSize, int /*flags*/)
{
    auto* d = new (std::nothrow) BLMemDescrRec;
    if (!d)
        return nullptr;
    d->name = name ? name : "";
    d->chunkSize = blockSize > kDefaultChunk ? blockSize : kDefaultChunk;
    return d;
}

extern "C" void* BLMEM_NewEx(BLMemDescr d, size_t size, int /*flags*/)
{
    if (!d)
        return nullptr;
    const size_t need = (size + kAlign - 1) & ~(kAlign - 1);
    std::lock_guard<std::mutex> g(d->lock);
    BLMemDescrRec::Chunk* c = d->chunks;
    if (!c || c->size - c->used < need) {
        const size_t capacity = need > d->chunkSize ? need : d->chunkSize;
        c = static_cast<BLMemDescrRec::Chunk*>(std::malloc(offsetof(BLMemDescrRec::Chunk, data) + capacity));
        if (!c)
            return nullptr;
        c->size = capacity;
        c->used = 0;
        c->next = d->chunks;
        d->chunks = c;
    }
    void* p = c->data + c->used;
    c->used += need;
    d->allocated += size;
    std::memset(p, 0, size);
    return p;
}

extern "C" char* BLMEM_StrDup(BLMemDescr d, const char* text)
{
    if (!d || !text)
        return nullptr;
    const size_t n = std::strlen(text) + 1;
    char* p = static_cast<char*>(BLMEM_NewEx(d, n, 0));
    if (p)
        std::memcpy(p, text, n);
    return p;
}

extern "C" int BLMEM_DisposeMemDescr(BLMemDescr d)
{
    if (!d)
        return 0;
    for (BLMemDescrRec::Chunk* c = d->chunks; c;) {
        BLMemDescrRec::Chunk* next = c->next;
        std::free(c);
        c = next;
    }
    delete d;
    return 1;
}

extern "C" const char* BLMEM_GetName(BLMemDescr d) { return d ? d->name.c_str() : nullptr; }

extern "C" size_t BLMEM_GetAllocated(BLMemDescr d)
{
    if (!d)
        return 0;
    std::lock_guard<std::mutex> g(d->lock);
    return d->allocated;
}

extern "C" void* BLMEM_OverlapMemCopy(void* dst, const void* src, size_t size)
{
    if (!dst || !src)
        return dst;
    return std::memmove(dst, src, size);
}
