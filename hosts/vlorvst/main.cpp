// vlorvst: loads one VST2 plugin away from the editor.
//   --true / --false        exit 1 / 0: proves the program runs and statuses arrive
//   --check FILE --id N     exit 0 if the plugin opens and can be described,
//                           7 if it is no effect the editor can use; a crash is a crash
//   --info FILE --id N      its descriptor on standard output
//   --fxinstance FILE --id N  serve one instance over standard input and output
// Whatever the plugin prints never reaches our output: fd 1 is moved aside
// before the plugin is loaded.
#include "aeffect_p.h"
#include "hostchild_p.h"
#include "savetarget_p.h"
#include "vlorvst_protocol.h"
#include "vsteffect_p.h"

#include "blio.h"
#include "blioutils.h"
#include "bllib.h"
#include "blutils.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

int g_out = -1; // our real standard output
std::mutex g_writeLock;

/* ---- raw I/O on our own descriptors -------------------------------------- */

bool writeAll(const void* data, size_t size)
{
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = write(g_out, p, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

// Commands arrive in small pieces (a tag, a few values, a block): one read
// takes as much of them as is there.
struct Input {
    std::vector<char> buffer = std::vector<char>(1 << 16);
    size_t pos = 0;
    size_t end = 0;
} g_in;

bool readAll(void* data, size_t size)
{
    char* p = static_cast<char*>(data);
    while (size > 0) {
        if (g_in.pos == g_in.end) {
            if (size >= g_in.buffer.size()) {
                const ssize_t n = read(STDIN_FILENO, p, size);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    return false;
                p += n;
                size -= size_t(n);
                continue;
            }
            const ssize_t n = read(STDIN_FILENO, g_in.buffer.data(), g_in.buffer.size());
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            g_in.pos = 0;
            g_in.end = size_t(n);
        }
        const size_t take = std::min(size, g_in.end - g_in.pos);
        std::memcpy(p, g_in.buffer.data() + g_in.pos, take);
        g_in.pos += take;
        p += take;
        size -= take;
    }
    return true;
}

// An answer, composed whole and written under the lock, so that an event
// from another thread of the plugin never lands inside it.
class Reply {
public:
    explicit Reply(int32_t tag = VLORVST_OK) { put(&tag, 4); }
    Reply& i32(int32_t v) { return put(&v, 4); }
    Reply& f32(float v) { return put(&v, 4); }
    Reply& str(const char* s)
    {
        const int32_t n = int32_t(strnlen(s, VLORVST_MAX_STRING - 1));
        i32(n);
        return put(s, size_t(n));
    }
    Reply& vec(const float* v, int32_t n)
    {
        i32(n);
        return put(v, size_t(n) * sizeof(float));
    }
    bool send() const
    {
        std::lock_guard<std::mutex> g(g_writeLock);
        return writeAll(m_bytes.data(), m_bytes.size());
    }

private:
    Reply& put(const void* p, size_t n)
    {
        const char* c = static_cast<const char*>(p);
        m_bytes.insert(m_bytes.end(), c, c + n);
        return *this;
    }
    std::vector<char> m_bytes;
};

bool fail() { return Reply(VLORVST_FAIL).send(); }
bool okOr(bool ok) { return ok ? Reply().send() : fail(); }

int hostCallback(void*, _VstEffectMessage* message)
{
    if (!message || message->type != VSTEFFECT_MESSAGE_RESIZE)
        return message ? 1 : -1;
    // The editor wants another size: the library hears of it at once.
    Reply(VLORVST_CDAT).i32(message->type).i32(message->width).i32(message->height).send();
    return 1;
}

/* ---- opening the plugin --------------------------------------------------- */

struct Plugin {
    _VSTEFFECT* record = nullptr;
    _VstEffectInstance* fx = nullptr;

    ~Plugin()
    {
        if (fx) {
            fx->DeactivateEngine(fx);
            fx->Destroy(fx);
        }
        if (record)
            AUDIOVST_DeletePlugin(record);
    }
    bool open(const char* file, int32_t id)
    {
        record = _CreateEffectRecord(file, id);
        if (!record || !AUDIOVST_LoadPlugin(record))
            return false;
        fx = aeffectCreateEffect(hostCallback, nullptr, record->entryPoint, id);
        return fx && fx->Check(fx);
    }
};

bool usableEffect(const _VSTEFFECT* r)
{
    if (r->category == VSTEFFECT_CATEGORY_SHELL)
        return true;
    const uint32_t f = r->u.fx.flags;
    return !(f & VSTEFFECT_FLAG_IS_SYNTH) && (f & VSTEFFECT_FLAG_CAN_REPLACING) && r->u.fx.numInputs > 0 &&
           r->u.fx.numOutputs > 0;
}

std::string cachePath(const char* file, int32_t id, int64_t stamp)
{
    char path[2048];
    return _CheckedDescriptionPath(file, id, stamp, path, sizeof(path)) ? std::string(path) : std::string();
}

bool writeDescriptor(const _VSTEFFECT* r, FILE* f) { return _WriteVSTXML(r, f) && std::fflush(f) == 0; }

int describe(const char* file, int32_t id, bool checkOnly)
{
    const int64_t stamp = BLIO_GetFileTimeStamp(file, 2);
    const std::string cache = cachePath(file, id, stamp);
    if (!checkOnly && !cache.empty()) {
        if (FILE* f = std::fopen(cache.c_str(), "rb")) {
            char buf[65536];
            size_t n;
            bool ok = true;
            while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
                ok = ok && writeAll(buf, n);
            std::fclose(f);
            std::remove(cache.c_str());
            return ok ? 0 : 1;
        }
    }

    Plugin p;
    if (!p.open(file, id))
        return checkOnly ? VLORVST_CHECK_UNSUPPORTED : 1;
    if (!_DescribeEffect(p.record, p.fx))
        return checkOnly ? VLORVST_CHECK_UNSUPPORTED : 1;
    p.record->timestamp = stamp;
    if (checkOnly) {
        if (!usableEffect(p.record))
            return VLORVST_CHECK_UNSUPPORTED;
        std::string target;
        std::string why;
        if (!cache.empty() && SaveTarget(cache, &target, &why)) {
            const std::string tmp = target + ".tmp" + std::to_string(getpid());
            if (FILE* f = std::fopen(tmp.c_str(), "w")) {
                const bool ok = writeDescriptor(p.record, f);
                std::fclose(f);
                if (!ok || std::rename(tmp.c_str(), target.c_str()) != 0)
                    std::remove(tmp.c_str());
            }
        }
        return VLORVST_CHECK_OK;
    }
    FILE* out = fdopen(dup(g_out), "w");
    const bool ok = out && writeDescriptor(p.record, out);
    if (out)
        std::fclose(out);
    return ok ? 0 : 1;
}

/* ---- serving an instance ------------------------------------------------- */

bool serve(_VstEffectInstance* fx)
{
    std::vector<float> in, out;
    char text[VLORVST_MAX_STRING];
    for (;;) {
        int32_t tag = 0;
        if (!readAll(&tag, 4))
            return true; // the library closed the pipe
        int32_t a = 0, b = 0;
        float f = 0;
        bool sent = true;
        switch (tag) {
        case VLORVST_CHECK:
            sent = okOr(fx->Check(fx));
            break;
        case VLORVST_NUM_PARAMS:
            sent = Reply().i32(fx->GetNumParams(fx)).send();
            break;
        case VLORVST_INITIAL_DELAY:
            sent = Reply().i32(fx->GetInitialDelay(fx)).send();
            break;
        case VLORVST_TAIL_SIZE:
            sent = Reply().i32(fx->GetTailSize(fx)).send();
            break;
        case VLORVST_NUM_PROGRAMS:
            sent = Reply().i32(fx->GetNumPrograms(fx)).send();
            break;
        case VLORVST_GET_PARAM:
            if (!readAll(&a, 4))
                return false;
            sent = fx->GetParameter(fx, a, &f) ? Reply().f32(f).send() : fail();
            break;
        case VLORVST_GET_PARAMS: {
            const int numParams = std::max(0, fx->GetNumParams(fx));
            std::vector<float> values(static_cast<size_t>(numParams));
            sent = fx->GetParameters(fx, values.data(), int(values.size()))
                       ? Reply().vec(values.data(), int32_t(values.size())).send()
                       : fail();
            break;
        }
        case VLORVST_SET_PARAM:
            if (!readAll(&a, 4) || !readAll(&f, 4))
                return false;
            sent = okOr(fx->SetParameter(fx, a, f));
            break;
        case VLORVST_SET_PARAMS: {
            if (!readAll(&a, 4) || a < 0 || a > VLORVST_MAX_SAMPLES)
                return false;
            std::vector<float> values(static_cast<size_t>(a));
            if (!readAll(values.data(), values.size() * sizeof(float)))
                return false;
            sent = okOr(fx->SetParameters(fx, values.data(), a));
            break;
        }
        case VLORVST_BYPASS:
            if (!readAll(&a, 4))
                return false;
            sent = okOr(fx->SetBypass(fx, a));
            break;
        case VLORVST_DISPLAY:
            if (!readAll(&a, 4))
                return false;
            sent = fx->GetCurrentDisplayValue(fx, a, text, sizeof(text)) ? Reply().str(text).send() : fail();
            break;
        case VLORVST_DISPLAY_VALUE:
            if (!readAll(&a, 4) || !readAll(&f, 4))
                return false;
            sent = fx->GetDisplayValue(fx, a, f, text, sizeof(text)) ? Reply().str(text).send() : fail();
            break;
        case VLORVST_STRING_PARAM:
        case VLORVST_SET_PROGRAM_NAME: {
            if (tag == VLORVST_STRING_PARAM && !readAll(&a, 4))
                return false;
            if (!readAll(&b, 4) || b < 0 || b >= VLORVST_MAX_STRING || !readAll(text, size_t(b)))
                return false;
            text[b] = '\0';
            sent = okOr(tag == VLORVST_STRING_PARAM ? fx->SetStringParameter(fx, a, text)
                                                    : fx->SetProgramName(fx, text));
            break;
        }
        case VLORVST_SET_PROGRAM:
            if (!readAll(&a, 4))
                return false;
            sent = okOr(fx->SetProgram(fx, a));
            break;
        case VLORVST_GET_PROGRAM:
            sent = fx->GetProgram(fx, &a) ? Reply().i32(a).send() : fail();
            break;
        case VLORVST_PROGRAM_NAME:
            sent = fx->GetProgramName(fx, text, sizeof(text)) ? Reply().str(text).send() : fail();
            break;
        case VLORVST_CAN_EDIT:
            sent = okOr(fx->CanEdit(fx));
            break;
        case VLORVST_EDITOR_SIZE:
            sent = fx->EditorGetSize(fx, &a, &b) ? Reply().i32(a).i32(b).send() : fail();
            break;
        case VLORVST_EDITOR_OPEN:
        case VLORVST_EDITOR_CLOSE: {
            uint64_t window = 0;
            if (!readAll(&window, 8))
                return false;
            void* w = reinterpret_cast<void*>(uintptr_t(window));
            sent = okOr(tag == VLORVST_EDITOR_OPEN ? fx->EditorOpen(fx, w) : fx->EditorClose(fx, w));
            break;
        }
        case VLORVST_EDITOR_IDLE:
            sent = okOr(fx->EditorIdle(fx));
            break;
        case VLORVST_ACTIVATE:
            if (!readAll(&a, 4) || !readAll(&b, 4))
                return false;
            sent = okOr(fx->ActivateEngine(fx, a, b));
            break;
        case VLORVST_START:
            sent = okOr(fx->StartEngine(fx));
            break;
        case VLORVST_STOP:
            sent = okOr(fx->StopEngine(fx));
            break;
        case VLORVST_DEACTIVATE:
            sent = okOr(fx->DeactivateEngine(fx));
            break;
        case VLORVST_PROCESS: {
            int32_t count = 0;
            if (!readAll(&a, 4) || !readAll(&b, 4) || !readAll(&count, 4))
                return false;
            // A block we cannot take leaves the stream out of step: better to end.
            if (a <= 0 || b < 0 || count < 0 || count > VLORVST_MAX_SAMPLES || (long long)a * b != count)
                return false;
            in.resize(size_t(count));
            out.resize(size_t(count) + 2);
            if (!readAll(in.data(), size_t(count) * sizeof(float)))
                return false;
            // The answer is built in place: tag and count ahead of the samples.
            int32_t* head = reinterpret_cast<int32_t*>(out.data());
            float* samples = out.data() + 2;
            std::fill(samples, samples + count, 0.0f);
            if (!fx->ProcessAudio(fx, in.data(), samples, a, b)) {
                sent = fail();
                break;
            }
            head[0] = VLORVST_OK;
            head[1] = count;
            std::lock_guard<std::mutex> g(g_writeLock);
            sent = writeAll(out.data(), (size_t(count) + 2) * sizeof(float));
            break;
        }
        case VLORVST_EXIT:
            Reply().send();
            return true;
        default:
            sent = fail();
            break;
        }
        if (!sent)
            return false;
    }
}

int usage()
{
    std::fprintf(stderr, "usage: vlorvst --true | --false | --check FILE --id N | --info FILE --id N | "
                         "--fxinstance FILE --id N\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (!HostChildDieWithParent())
        return 1;

    if (argc == 2 && !std::strcmp(argv[1], "--true"))
        return 1;
    if (argc == 2 && !std::strcmp(argv[1], "--false"))
        return 0;
    if (argc != 5 || std::strcmp(argv[3], "--id") != 0)
        return usage();
    const std::string mode = argv[1];
    const char* file = argv[2];
    const int32_t id = int32_t(std::strtol(argv[4], nullptr, 10));

    // Plugins talk on standard error too; the editor's terminal is not theirs.
    g_out = HostChildTakeStdout(std::getenv("VLORVST_STDERR") != nullptr);
    if (g_out < 0)
        return 3;
    AUDIOVST_Initialize();

    int status;
    if (mode == "--check") {
        status = describe(file, id, true);
    } else if (mode == "--info") {
        status = describe(file, id, false);
    } else if (mode == "--fxinstance") {
        Plugin p;
        if (!p.open(file, id)) {
            // The library's first "chck" finds the pipe closed.
            status = 1;
        } else {
            status = serve(p.fx) ? 0 : 1;
        }
    } else {
        return usage();
    }
    std::fflush(nullptr);
    // Plugins' static destructors have run with dlclose already; leave without more.
    _exit(status);
}
