// A host program that misbehaves on purpose, for the client's tests:
//   fake_vlorvst events   answers OK, and after "chck" sends two events unasked
//   fake_vlorvst silent   reads commands and never answers
//   fake_vlorvst wrong    answers "get " with OK and a vector of the wrong size
//   fake_vlorvst stale    answers every command twice
// None of them maps a shared region: "shma" fails, the audio stays on the pipe.
#include "vlorvst_wire.h"

#include <string>
#include <unistd.h>

namespace {

using vlorvst::Message;

bool readAll(void* p, size_t n)
{
    return vlorvst::ReadAll([](void* q, size_t k) { return vlorvst::FdRead(STDIN_FILENO, q, k); }, p, n);
}

void put(const Message& m)
{
    if (!vlorvst::WriteAllFd(STDOUT_FILENO, m.data(), m.size()))
        _exit(1);
}

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
    case VLORVST_SHM_ATTACH:
        return 12;
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
            put(Message(VLORVST_OK).vec(reinterpret_cast<const float*>(samples.data()), head[2]));
            continue;
        }
        if (tag == VLORVST_SHM_ATTACH) {
            put(Message(VLORVST_FAIL));
            continue;
        }
        if (mode == "wrong" && tag == VLORVST_GET_PARAMS) {
            const float v[3] = {1, 2, 3};
            put(Message(VLORVST_OK).vec(v, 3));
            continue;
        }
        const int answers = mode == "stale" ? 2 : 1;
        for (int k = 0; k < answers; ++k)
            put(tag == VLORVST_GET_PARAM ? Message(VLORVST_OK).f32(0.25f) : Message(VLORVST_OK));
        if (mode == "events" && tag == VLORVST_CHECK) {
            for (int k = 1; k <= 2; ++k)
                put(Message(VLORVST_CDAT).i32(0).i32(100 * k).i32(10 * k));
        }
        if (tag == VLORVST_EXIT)
            return 0;
    }
}
