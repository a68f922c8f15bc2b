// Serving instances: one per program, or the instances of a group on one
// pipe. The commands are those of vlorvst_protocol.h.
#include "host_io.h"

#include "shmhost_p.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>
#include <unistd.h>

namespace vlorvsthost {

namespace {

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
        std::lock_guard<std::mutex> g(writeLock());
        return outcome(writeOut(m_out.data(), (size_t(count) + 2) * sizeof(float)));
    }

private:
    std::vector<float> m_in, m_out;
};

// An instance with what serves it.
struct Instance {
    Plugin plugin;
    AudioBlocks audio;
    std::unique_ptr<vlorshm::BlockServer> blocks;

    explicit Instance(const vlorshm::BlockServer::Chained& chained = nullptr)
    {
        blocks.reset(new vlorshm::BlockServer(
            [this](const float* in, float* out, int channels, int frames) {
                return plugin.fx->ProcessAudio(plugin.fx, in, out, channels, frames) != 0;
            },
            [this](int index, float value) { plugin.fx->SetParameter(plugin.fx, index, value); }));
        blocks->setChained(chained);
    }
    ~Instance() { blocks.reset(); }
};

// The library's region for the audio from now on.
Served attachShared(Instance* in)
{
    int32_t pid = 0, fd = 0, samples = 0;
    if (!readIn(&pid, 4) || !readIn(&fd, 4) || !readIn(&samples, 4))
        return Served::End;
    if (!in->blocks->attach(pid, fd, samples))
        return outcome(fail());
    return outcome(answer(ok().i32(in->plugin.fx->GetNumParams(in->plugin.fx))));
}

// One command of one instance; "exit" is its caller's.
Served serveCommand(Instance* in, int32_t tag)
{
    _VstEffectInstance* fx = in->plugin.fx;
    in->blocks->applyChanges();
    if (tag == VLORVST_SHM_ATTACH)
        return attachShared(in);
    Served served = tag == VLORVST_PROCESS ? in->audio.serve(fx) : serveParameters(fx, tag);
    for (auto group : {serveText, serveEditor, serveEngine})
        if (served == Served::NotMine)
            served = group(fx, tag);
    if (served == Served::NotMine)
        served = outcome(fail());
    return served;
}

using Group = std::map<int32_t, std::unique_ptr<Instance>>;

// "gnew": the plugin opened at a new place, or a failure.
Served openInGroup(Group* group, int32_t* next)
{
    char file[4096];
    int32_t length = 0, id = 0;
    if (!readIn(&length, 4) || length < 0 || length >= int32_t(sizeof(file)) || !readIn(file, size_t(length)) ||
        !readIn(&id, 4))
        return Served::End;
    file[length] = '\0';
    const int32_t place = (*next)++;
    std::unique_ptr<Instance> in(new Instance([group](int at, float* samples, int channels, int frames) {
        auto it = group->find(at);
        return it != group->end() && it->second->blocks->processInPlace(samples, channels, frames);
    }));
    if (!in->plugin.open(file, id, reinterpret_cast<void*>(intptr_t(place) + 1)))
        return outcome(fail());
    (*group)[place] = std::move(in);
    return outcome(answer(ok().i32(place).i32(int32_t(getpid()))));
}

// "gsel" and a place: the command after it is that instance's.
Served serveSelected(Group* group)
{
    int32_t place = 0, tag = 0;
    if (!readIn(&place, 4) || !readIn(&tag, 4))
        return Served::End;
    auto it = group->find(place);
    if (it == group->end()) {
        // An instance we do not have: its command's payload cannot be told
        // apart from the next command, so the stream is out of step.
        return tag == VLORVST_EXIT ? outcome(fail()) : Served::End;
    }
    if (tag == VLORVST_EXIT) {
        group->erase(it);
        return outcome(answer(ok()));
    }
    return serveCommand(it->second.get(), tag);
}

} // namespace

bool serve(_VstEffectInstance* fx)
{
    Instance in;
    in.plugin.fx = fx;
    // The plugin is the caller's: the audio thread ends before we let it go.
    auto leave = [&in](bool result) {
        in.blocks->stop();
        in.plugin.fx = nullptr;
        return result;
    };
    for (;;) {
        int32_t tag = 0;
        if (!readIn(&tag, 4))
            return leave(true);
        if (tag == VLORVST_EXIT) {
            leave(true);
            answer(ok());
            return true;
        }
        if (serveCommand(&in, tag) == Served::End)
            return leave(false);
    }
}

bool serveGroup()
{
    Group group;
    int32_t next = 0;
    for (;;) {
        int32_t tag = 0;
        if (!readIn(&tag, 4))
            return true;
        Served served;
        if (tag == VLORVST_EXIT) {
            // Each ends its audio thread before any plugin goes.
            for (auto& in : group)
                in.second->blocks->stop();
            group.clear();
            answer(ok());
            return true;
        }
        if (tag == VLORVST_GROUP_NEW)
            served = openInGroup(&group, &next);
        else if (tag == VLORVST_GROUP_SELECT)
            served = serveSelected(&group);
        else
            served = outcome(fail());
        if (served == Served::End)
            return false;
    }
}

} // namespace vlorvsthost
