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
#include "shmhost_p.h"
#include "blsavetarget.h"
#include "vlorvst_wire.h"
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

/* ---- our own descriptors ------------------------------------------------- */

vlorvst::BufferedInput g_in(STDIN_FILENO);

bool readIn(void* data, size_t size) { return g_in.readAll(data, size); }

bool writeOut(const void* data, size_t size) { return vlorvst::WriteAllFd(g_out, data, size); }

using vlorvst::Message;

Message ok() { return Message(VLORVST_OK); }

// Written whole under the lock, so that an event from another thread of the
// plugin never lands inside an answer.
bool answer(const Message& m)
{
    std::lock_guard<std::mutex> g(g_writeLock);
    return writeOut(m.data(), m.size());
}

bool fail() { return answer(Message(VLORVST_FAIL)); }
bool okOr(bool done) { return done ? answer(ok()) : fail(); }

int onPluginMessage(void*, _VstEffectMessage* message)
{
    if (!message || message->type != VSTEFFECT_MESSAGE_RESIZE)
        return message ? 1 : -1;
    // The editor wants another size: the library hears of it at once, with
    // the block when it asked during one.
    if (vlorshm::BlockServer::PostEvent(message->type, message->width, message->height))
        return 1;
    answer(Message(VLORVST_CDAT).i32(message->type).i32(message->width).i32(message->height));
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
        fx = aeffectCreateEffect(onPluginMessage, nullptr, record->entryPoint, id);
        return fx && fx->Check(fx);
    }
};

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
                ok = ok && writeOut(buf, n);
            std::fclose(f);
            std::remove(cache.c_str());
            return ok ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
        }
    }

    Plugin p;
    if (!p.open(file, id) || !_DescribeEffect(p.record, p.fx))
        return checkOnly ? VLORVST_CHECK_UNSUPPORTED : VLORVST_STATUS_FAILED;
    p.record->timestamp = stamp;
    if (checkOnly) {
        if (_WhyNotUsableEffect(p.record))
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
    return ok ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
}

/* ---- serving an instance ------------------------------------------------- */

// What became of one command: answered, or the stream is out of step (a
// read or a write failed, a payload we cannot take), or it is another group's.
enum class Served { Next, End, NotMine };

Served outcome(bool sent) { return sent ? Served::Next : Served::End; }

// Queries and settings of parameters and programs.
Served serveParameters(_VstEffectInstance* fx, int32_t tag)
{
    int32_t a = 0;
    float f = 0;
    switch (tag) {
    case VLORVST_NUM_PARAMS:
        return outcome(answer(ok().i32(fx->GetNumParams(fx))));
    case VLORVST_INITIAL_DELAY:
        return outcome(answer(ok().i32(fx->GetInitialDelay(fx))));
    case VLORVST_TAIL_SIZE:
        return outcome(answer(ok().i32(fx->GetTailSize(fx))));
    case VLORVST_NUM_PROGRAMS:
        return outcome(answer(ok().i32(fx->GetNumPrograms(fx))));
    case VLORVST_GET_PARAM:
        if (!readIn(&a, 4))
            return Served::End;
        return outcome(fx->GetParameter(fx, a, &f) ? answer(ok().f32(f)) : fail());
    case VLORVST_GET_PARAMS: {
        std::vector<float> values(static_cast<size_t>(std::max(0, fx->GetNumParams(fx))));
        return outcome(fx->GetParameters(fx, values.data(), int(values.size()))
                           ? answer(ok().vec(values.data(), int32_t(values.size())))
                           : fail());
    }
    case VLORVST_SET_PARAM:
        if (!readIn(&a, 4) || !readIn(&f, 4))
            return Served::End;
        return outcome(okOr(fx->SetParameter(fx, a, f)));
    case VLORVST_SET_PARAMS: {
        if (!readIn(&a, 4) || a < 0 || a > VLORVST_MAX_SAMPLES)
            return Served::End;
        std::vector<float> values(static_cast<size_t>(a));
        if (!readIn(values.data(), values.size() * sizeof(float)))
            return Served::End;
        return outcome(okOr(fx->SetParameters(fx, values.data(), a)));
    }
    case VLORVST_BYPASS:
        if (!readIn(&a, 4))
            return Served::End;
        return outcome(okOr(fx->SetBypass(fx, a)));
    case VLORVST_SET_PROGRAM:
        if (!readIn(&a, 4))
            return Served::End;
        return outcome(okOr(fx->SetProgram(fx, a)));
    case VLORVST_GET_PROGRAM:
        return outcome(fx->GetProgram(fx, &a) ? answer(ok().i32(a)) : fail());
    default:
        return Served::NotMine;
    }
}

// The commands that carry or return text.
Served serveText(_VstEffectInstance* fx, int32_t tag)
{
    char text[VLORVST_MAX_STRING];
    int32_t a = 0, length = 0;
    float f = 0;
    switch (tag) {
    case VLORVST_DISPLAY:
        if (!readIn(&a, 4))
            return Served::End;
        return outcome(fx->GetCurrentDisplayValue(fx, a, text, sizeof(text)) ? answer(ok().str(text)) : fail());
    case VLORVST_DISPLAY_VALUE:
        if (!readIn(&a, 4) || !readIn(&f, 4))
            return Served::End;
        return outcome(fx->GetDisplayValue(fx, a, f, text, sizeof(text)) ? answer(ok().str(text)) : fail());
    case VLORVST_PROGRAM_NAME:
        return outcome(fx->GetProgramName(fx, text, sizeof(text)) ? answer(ok().str(text)) : fail());
    case VLORVST_STRING_PARAM:
    case VLORVST_SET_PROGRAM_NAME:
        if (tag == VLORVST_STRING_PARAM && !readIn(&a, 4))
            return Served::End;
        if (!readIn(&length, 4) || length < 0 || length >= VLORVST_MAX_STRING || !readIn(text, size_t(length)))
            return Served::End;
        text[length] = '\0';
        return outcome(okOr(tag == VLORVST_STRING_PARAM ? fx->SetStringParameter(fx, a, text)
                                                        : fx->SetProgramName(fx, text)));
    default:
        return Served::NotMine;
    }
}

// The plugin's own editor window.
Served serveEditor(_VstEffectInstance* fx, int32_t tag)
{
    int32_t w = 0, h = 0;
    uint64_t window = 0;
    switch (tag) {
    case VLORVST_CAN_EDIT:
        return outcome(okOr(fx->CanEdit(fx)));
    case VLORVST_EDITOR_SIZE:
        return outcome(fx->EditorGetSize(fx, &w, &h) ? answer(ok().i32(w).i32(h)) : fail());
    case VLORVST_EDITOR_OPEN:
    case VLORVST_EDITOR_CLOSE: {
        if (!readIn(&window, 8))
            return Served::End;
        void* handle = reinterpret_cast<void*>(uintptr_t(window));
        return outcome(
            okOr(tag == VLORVST_EDITOR_OPEN ? fx->EditorOpen(fx, handle) : fx->EditorClose(fx, handle)));
    }
    case VLORVST_EDITOR_IDLE:
        return outcome(okOr(fx->EditorIdle(fx)));
    default:
        return Served::NotMine;
    }
}

// The engine's states.
Served serveEngine(_VstEffectInstance* fx, int32_t tag)
{
    int32_t block = 0, rate = 0;
    switch (tag) {
    case VLORVST_CHECK:
        return outcome(okOr(fx->Check(fx)));
    case VLORVST_ACTIVATE:
        if (!readIn(&block, 4) || !readIn(&rate, 4))
            return Served::End;
        return outcome(okOr(fx->ActivateEngine(fx, block, rate)));
    case VLORVST_START:
        return outcome(okOr(fx->StartEngine(fx)));
    case VLORVST_STOP:
        return outcome(okOr(fx->StopEngine(fx)));
    case VLORVST_DEACTIVATE:
        return outcome(okOr(fx->DeactivateEngine(fx)));
    default:
        return Served::NotMine;
    }
}

// One block of audio: the buffers live as long as the instance, so that a
// block costs no allocation.
class AudioBlocks {
public:
    Served serve(_VstEffectInstance* fx)
    {
        int32_t channels = 0, frames = 0, count = 0;
        if (!readIn(&channels, 4) || !readIn(&frames, 4) || !readIn(&count, 4))
            return Served::End;
        // A block we cannot take leaves the stream out of step: better to end.
        if (channels <= 0 || frames < 0 || count < 0 || count > VLORVST_MAX_SAMPLES ||
            (long long)channels * frames != count)
            return Served::End;
        m_in.resize(size_t(count));
        m_out.resize(size_t(count) + 2);
        if (!readIn(m_in.data(), size_t(count) * sizeof(float)))
            return Served::End;
        // The answer is built in place: tag and count ahead of the samples.
        int32_t* head = reinterpret_cast<int32_t*>(m_out.data());
        float* samples = m_out.data() + 2;
        std::fill(samples, samples + count, 0.0f);
        if (!fx->ProcessAudio(fx, m_in.data(), samples, channels, frames))
            return outcome(fail());
        head[0] = VLORVST_OK;
        head[1] = count;
        std::lock_guard<std::mutex> g(g_writeLock);
        return outcome(writeOut(m_out.data(), (size_t(count) + 2) * sizeof(float)));
    }

private:
    std::vector<float> m_in, m_out;
};

// The library's region for the audio from now on.
Served attachShared(_VstEffectInstance* fx, vlorshm::BlockServer* server)
{
    int32_t pid = 0, fd = 0, samples = 0;
    if (!readIn(&pid, 4) || !readIn(&fd, 4) || !readIn(&samples, 4))
        return Served::End;
    if (!server->attach(pid, fd, samples))
        return outcome(fail());
    return outcome(answer(ok().i32(fx->GetNumParams(fx))));
}

// Serves one instance until the library says "exit" (true) or the stream
// breaks (false). A closed pipe is the library's end too.
bool serve(_VstEffectInstance* fx)
{
    AudioBlocks audio;
    vlorshm::BlockServer blocks(
        [fx](const float* in, float* out, int channels, int frames) {
            return fx->ProcessAudio(fx, in, out, channels, frames) != 0;
        },
        [fx](int index, float value) { fx->SetParameter(fx, index, value); });
    for (;;) {
        int32_t tag = 0;
        if (!readIn(&tag, 4))
            return true;
        blocks.applyChanges();
        if (tag == VLORVST_EXIT) {
            blocks.stop();
            answer(ok());
            return true;
        }
        if (tag == VLORVST_SHM_ATTACH) {
            if (attachShared(fx, &blocks) == Served::End)
                return false;
            continue;
        }
        Served served = tag == VLORVST_PROCESS ? audio.serve(fx) : serveParameters(fx, tag);
        for (auto group : {serveText, serveEditor, serveEngine})
            if (served == Served::NotMine)
                served = group(fx, tag);
        if (served == Served::NotMine)
            served = outcome(fail());
        if (served == Served::End)
            return false;
    }
}

int usage()
{
    std::fprintf(stderr, "usage: vlorvst --true | --false | --check FILE --id N | --info FILE --id N | "
                         "--fxinstance FILE --id N\n");
    return VLORVST_STATUS_USAGE;
}

} // namespace

int main(int argc, char** argv)
{
    if (!HostChildDieWithParent())
        return VLORVST_STATUS_FAILED;

    if (argc == 2 && !std::strcmp(argv[1], "--true"))
        return VLORVST_STATUS_TRUE;
    if (argc == 2 && !std::strcmp(argv[1], "--false"))
        return VLORVST_STATUS_FALSE;
    if (argc != 5 || std::strcmp(argv[3], "--id") != 0)
        return usage();
    const std::string mode = argv[1];
    const char* file = argv[2];
    const int32_t id = int32_t(std::strtol(argv[4], nullptr, 10));

    // Plugins talk on standard error too; the editor's terminal is not theirs.
    g_out = HostChildTakeStdout(std::getenv("VLORVST_STDERR") != nullptr);
    if (g_out < 0)
        return VLORVST_STATUS_NO_OUTPUT;
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
            status = VLORVST_STATUS_FAILED;
        } else {
            status = serve(p.fx) ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
        }
    } else {
        return usage();
    }
    std::fflush(nullptr);
    // Plugins' static destructors have run with dlclose already; leave without more.
    _exit(status);
}
