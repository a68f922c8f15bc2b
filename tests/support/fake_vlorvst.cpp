// A host program that misbehaves on purpose, for the client's tests:
//   fake_vlorvst events   answers OK, and after "chck" sends two events unasked
//   fake_vlorvst silent   reads commands and never answers
//   fake_vlorvst wrong    answers "get " with OK and a vector of the wrong size
//   fake_vlorvst stale    answers every command twice
#include "vlorvst_protocol.h"

#include <cstring>
#include <string>
#include <unistd.h>

namespace {

bool readAll(void* p, size_t n)
{
    char* c = static_cast<char*>(p);
    while (n) {
        const ssize_t r = read(0, c, n);
        if (r <= 0)
            return false;
        c += r;
        n -= size_t(r);
    }
    return true;
}

void put(const void* p, size_t n)
{
    if (write(1, p, n) != ssize_t(n))
        _exit(1);
}

void putInt(int32_t v) { put(&v, 4); }

// The payload after each tag, so that the stream stays in step.
size_t payloadSize(int32_t tag)
{
    switch (tag) {
    case VLORVST_GET_PARAM:
    case VLORVST_BYPASS:
    case VLORVST_DISPLAY:
    case VLORVST_SET_PROGRAM:
        return 4;
    case VLORVST_SET_PARAM:
    case VLORVST_DISPLAY_VALUE:
    case VLORVST_ACTIVATE:
    case VLORVST_EDITOR_OPEN:
    case VLORVST_EDITOR_CLOSE:
        return 8;
    default:
        return 0;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    for (;;) {
        int32_t tag = 0;
        if (!readAll(&tag, 4))
            return 0;
        char payload[16];
        if (!readAll(payload, payloadSize(tag)))
            return 0;
        if (mode == "silent")
            continue;
        if (tag == VLORVST_PROCESS) {
            int32_t head[3];
            if (!readAll(head, sizeof(head)))
                return 0;
            std::string samples(size_t(head[2]) * 4, '\0');
            if (!readAll(&samples[0], samples.size()))
                return 0;
            putInt(VLORVST_OK);
            putInt(head[2]);
            put(samples.data(), samples.size());
            continue;
        }
        if (mode == "wrong" && tag == VLORVST_GET_PARAMS) {
            putInt(VLORVST_OK);
            putInt(3);
            const float v[3] = {1, 2, 3};
            put(v, sizeof(v));
            continue;
        }
        const int answers = mode == "stale" ? 2 : 1;
        for (int k = 0; k < answers; ++k) {
            putInt(VLORVST_OK);
            if (tag == VLORVST_GET_PARAM) {
                const float v = 0.25f;
                put(&v, 4);
            }
        }
        if (mode == "events" && tag == VLORVST_CHECK) {
            for (int k = 1; k <= 2; ++k) {
                putInt(VLORVST_CDAT);
                putInt(0);
                putInt(100 * k);
                putInt(10 * k);
            }
        }
        if (tag == VLORVST_EXIT)
            return 0;
    }
}
