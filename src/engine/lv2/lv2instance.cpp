// An LV2 instance: made with the features the engine offers, its ports
// connected to buffers of its own, and run on interleaved audio.
#include "lv2instance_p.h"
#include "lv2remote_p.h"

#include "fxblame_p.h"
#include "fxisolation.h"
#include "lv2engine_testing.h"
#include "../interleave_p.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/parameters/parameters.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace vlorlv2 {

namespace {

Port::Kind kindOf(const LilvPlugin* plugin, const LilvPort* port, const Nodes& n)
{
    if (lilv_port_is_a(plugin, port, n.audioPort))
        return Port::Audio;
    if (lilv_port_is_a(plugin, port, n.controlPort))
        return Port::Control;
    if (lilv_port_is_a(plugin, port, n.cvPort))
        return Port::CV;
    if (lilv_port_is_a(plugin, port, n.atomPort))
        return Port::Atom;
    return Port::Other;
}

// What plugins print through the log feature goes where their own prints
// go: standard output, which the library sends to the plugin log.
int logPrintf(LV2_Log_Handle, LV2_URID, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int n = std::vfprintf(stdout, format, args);
    va_end(args);
    return n;
}

int logVprintf(LV2_Log_Handle, LV2_URID, const char* format, va_list args) { return std::vfprintf(stdout, format, args); }

LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data)
{
    auto* worker = static_cast<_Lv2Instance*>(handle)->worker;
    return worker ? worker->schedule(size, data) : LV2_WORKER_ERR_UNKNOWN;
}

// Paths in state are kept as they are: state stays on this machine.
char* absoluteToAbstract(LV2_State_Map_Path_Handle, const char* path) { return strdup(path); }
char* abstractToAbsolute(LV2_State_Map_Path_Handle, const char* path) { return strdup(path); }

char* makePathIn(LV2_State_Make_Path_Handle handle, const char* path)
{
    auto* instance = static_cast<_Lv2Instance*>(handle);
    if (instance->directory.empty()) {
        char made[] = "/tmp/vlorlv2-XXXXXX";
        if (!mkdtemp(made))
            return nullptr;
        instance->directory = made;
    }
    const std::string full = instance->directory + "/" + (path ? path : "");
    // The folders of a relative path are made, as the feature promises.
    for (size_t slash = instance->directory.size() + 1; (slash = full.find('/', slash)) != std::string::npos; ++slash)
        mkdir(full.substr(0, slash).c_str(), 0700);
    return strdup(full.c_str());
}

void freePathOf(LV2_State_Free_Path_Handle, char* path) { std::free(path); }

// The bytes an atom port asks for (rsz:minimumSize), or the engine's size when more.
size_t atomBytes(const LilvPlugin* plugin, const LilvPort* port)
{
    size_t bytes = kAtomBufferBytes;
    if (LilvNode* minimum = lilv_port_get(plugin, port, WorldNodes().bufferSize)) {
        if (lilv_node_is_int(minimum) && lilv_node_as_int(minimum) > 0)
            bytes = std::max(bytes, size_t(lilv_node_as_int(minimum)));
        lilv_node_free(minimum);
    }
    return (bytes + 7) / 8 * 8;
}

void readPort(_Lv2Instance* instance, const LilvPort* port, const float* mins, const float* maxs,
              const float* defaults, Port* p)
{
    if (p->kind == Port::Audio || p->kind == Port::CV || p->kind == Port::Other) {
        // A port of a kind the engine does not know still gets memory: a
        // plugin may write to it whatever it declares it to be.
        p->samples.assign(size_t(instance->maxBlock) * (p->kind == Port::Other ? 4 : 1), 0.0f);
    } else if (p->kind == Port::Atom) {
        p->atoms.assign(atomBytes(instance->plugin, port) / sizeof(uint64_t), 0);
    } else if (p->kind == Port::Control) {
        const float lo = std::isfinite(mins[p->index]) ? mins[p->index] : 0.0f;
        const float hi = std::isfinite(maxs[p->index]) ? std::max(lo, maxs[p->index]) : std::max(lo, 1.0f);
        const float def = std::isfinite(defaults[p->index]) ? defaults[p->index] : lo;
        p->minimum = lo;
        p->maximum = hi;
        p->defaultValue = std::clamp(def, lo, hi);
        p->value = p->defaultValue;
    }
}

// The run length of a plugin that requires one (bufsz:fixedBlockLength or
// powerOf2BlockLength): a power of two, at most maxBlock and at most 1024, as
// it is also the latency the gathering adds; 0 for a plugin that does not.
int fixedBlockOf(const LilvPlugin* plugin, int maxBlock)
{
    bool needs = false;
    LilvNodes* required = lilv_plugin_get_required_features(plugin);
    LILV_FOREACH (nodes, i, required) {
        const char* uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        needs = needs || !std::strcmp(uri, LV2_BUF_SIZE__fixedBlockLength) ||
                !std::strcmp(uri, LV2_BUF_SIZE__powerOf2BlockLength);
    }
    lilv_nodes_free(required);
    if (!needs)
        return 0;
    int block = 1;
    while (block * 2 <= std::min(maxBlock, 1024))
        block *= 2;
    return block;
}

} // namespace

void MakePorts(_Lv2Instance* instance)
{
    const LilvPlugin* plugin = instance->plugin;
    const Nodes& n = WorldNodes();
    const uint32_t count = lilv_plugin_get_num_ports(plugin);
    std::vector<float> mins(count), maxs(count), defaults(count);
    lilv_plugin_get_port_ranges_float(plugin, mins.data(), maxs.data(), defaults.data());
    instance->ports.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
        Port& p = instance->ports[i];
        p.index = i;
        p.kind = kindOf(plugin, port, n);
        p.input = lilv_port_is_a(plugin, port, n.inputPort);
        p.sideChain = p.input && lilv_port_has_property(plugin, port, n.sideChain);
        readPort(instance, port, mins.data(), maxs.data(), defaults.data(), &p);
        if (p.kind == Port::Audio)
            (p.input ? (p.sideChain ? instance->sideInputs : instance->mainInputs) : instance->mainOutputs)
                .push_back(int(i));
    }
    for (uint32_t i = 0; i < count; ++i) {
        const Port& p = instance->ports[i];
        if (p.input && (p.kind == Port::CV || p.sideChain))
            instance->silentInputs.push_back(int(i));
        if (p.kind == Port::Atom)
            instance->atomPorts.push_back(int(i));
    }
    // The port that reports latency, by its property or its designation.
    if (lilv_plugin_has_latency(plugin)) {
        const uint32_t latency = lilv_plugin_get_latency_port_index(plugin);
        if (latency < count && instance->ports[latency].kind == Port::Control)
            instance->latencyPort = int(latency);
    }
}

void ConnectPorts(_Lv2Instance* instance)
{
    instance->silence.assign(instance->silentInputs.empty() ? 0 : size_t(instance->maxBlock), 0.0f);
    for (Port& p : instance->ports) {
        void* buffer = nullptr;
        const bool silent = p.input && (p.kind == Port::CV || p.sideChain);
        if (silent && p.kind != Port::Control)
            buffer = instance->silence.data();
        else if (p.kind == Port::Control)
            buffer = &p.value;
        else if (p.kind == Port::Audio || p.kind == Port::CV || p.kind == Port::Other)
            buffer = p.samples.data();
        else if (p.kind == Port::Atom)
            buffer = p.atoms.data();
        lilv_instance_connect_port(instance->instance, p.index, buffer);
    }
}

void MakeFeatures(_Lv2Instance* d)
{
    d->maxBlockOption = d->fixedBlock > 0 ? d->fixedBlock : d->maxBlock;
    d->minBlockOption = d->fixedBlock > 0 ? d->fixedBlock : 1;
    size_t largest = kAtomBufferBytes;
    for (const Port& p : d->ports)
        largest = std::max(largest, p.atoms.size() * sizeof(uint64_t));
    d->sequenceSizeOption = int32_t(largest);
    d->sampleRateOption = float(d->sampleRate);
    const LV2_URID intType = MapUri(LV2_ATOM__Int), floatType = MapUri(LV2_ATOM__Float);
    d->options[0] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_BUF_SIZE__minBlockLength), sizeof(int32_t), intType,
                     &d->minBlockOption};
    d->options[1] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t), intType,
                     &d->maxBlockOption};
    d->options[2] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_BUF_SIZE__nominalBlockLength), sizeof(int32_t), intType,
                     &d->maxBlockOption};
    d->options[3] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_BUF_SIZE__sequenceSize), sizeof(int32_t), intType,
                     &d->sequenceSizeOption};
    d->options[4] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_PARAMETERS__sampleRate), sizeof(float), floatType,
                     &d->sampleRateOption};
    d->options[5] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
    d->schedule = {d, scheduleWork};
    d->log = {d, logPrintf, logVprintf};
    d->makePath = {d, makePathIn};
    d->mapPath = {d, absoluteToAbstract, abstractToAbsolute};
    d->freePath = {d, freePathOf};
    const LV2_Feature features[] = {
        {LV2_URID__map, UridMap()},
        {LV2_URID__unmap, UridUnmap()},
        {LV2_OPTIONS__options, d->options},
        {LV2_BUF_SIZE__boundedBlockLength, nullptr},
        {LV2_WORKER__schedule, &d->schedule},
        {LV2_LOG__log, &d->log},
        {LV2_STATE__makePath, &d->makePath},
        {LV2_STATE__mapPath, &d->mapPath},
        {LV2_STATE__freePath, &d->freePath},
    };
    size_t i = 0;
    for (; i < sizeof(features) / sizeof(features[0]); ++i) {
        d->features[i] = features[i];
        d->featureList[i] = &d->features[i];
    }
    d->featureList[i] = nullptr;
}

void RunOnce(_Lv2Instance* d, int frames)
{
    static const LV2_URID sequence = MapUri(LV2_ATOM__Sequence), chunk = MapUri(LV2_ATOM__Chunk);
    for (int at : d->atomPorts) {
        Port& p = d->ports[size_t(at)];
        auto* seq = reinterpret_cast<LV2_Atom_Sequence*>(p.atoms.data());
        if (p.input) {
            // An empty sequence each block: nothing of ours to tell the plugin yet.
            seq->atom.size = sizeof(LV2_Atom_Sequence_Body);
            seq->atom.type = sequence;
            seq->body.unit = 0;
            seq->body.pad = 0;
        } else {
            // The whole buffer is the plugin's to fill.
            seq->atom.size = uint32_t(p.atoms.size() * sizeof(uint64_t) - sizeof(LV2_Atom));
            seq->atom.type = chunk;
        }
    }
    TakeFromUi(d);
    lilv_instance_run(d->instance, uint32_t(frames));
    if (d->worker)
        d->worker->deliver();
    ForwardToUi(d);
}

} // namespace vlorlv2

using namespace vlorlv2;

namespace {

_Lv2Instance* failWith(_Lv2Instance* instance, char* error, int size, const std::string& why)
{
    CopyText(error, size, why.c_str());
    delete instance;
    return nullptr;
}

} // namespace

extern "C" _Lv2Instance* VLORLV2_CreateInstance(const char* uri, double sampleRate, int maxBlock, char* error,
                                                int errorSize)
{
    return VLORLV2_CreateInstanceEx(uri, sampleRate, maxBlock, -1, error, errorSize);
}

extern "C" _Lv2Instance* VLORLV2_CreateInstanceEx(const char* uri, double sampleRate, int maxBlock, int where,
                                                  char* error, int errorSize)
{
    CopyText(error, errorSize, "");
    if (!uri || sampleRate <= 0 || maxBlock <= 0)
        return failWith(nullptr, error, errorSize, "bad arguments");
    if (where > 0 || (where < 0 && VLORFX_RunsInOwnProcess("lv2", uri)))
        return CreateRemote(uri, sampleRate, maxBlock, error, errorSize);
    return CreateLocal(uri, sampleRate, maxBlock, error, errorSize);
}

_Lv2Instance* vlorlv2::CreateLocal(const char* uri, double sampleRate, int maxBlock, char* error, int errorSize)
{
    CopyText(error, errorSize, "");
    if (!uri || sampleRate <= 0 || maxBlock <= 0)
        return failWith(nullptr, error, errorSize, "bad arguments");
    auto* d = new _Lv2Instance;
    d->uri = uri;
    d->sampleRate = sampleRate;
    d->maxBlock = maxBlock;
    std::lock_guard<std::mutex> l(WorldLock());
    d->plugin = FindPlugin(uri);
    if (!d->plugin)
        return failWith(d, error, errorSize, World() ? "no LV2 plugin has this URI" : "the LV2 engine is not started");
    const std::string missing = MissingFeature(d->plugin);
    if (!missing.empty())
        return failWith(d, error, errorSize, "the plugin requires a feature this host does not offer: " + missing);
    d->fixedBlock = fixedBlockOf(d->plugin, maxBlock);
    LilvNode* name = lilv_plugin_get_name(d->plugin);
    d->blame = std::string("lv2|") + uri + "|" + (name ? lilv_node_as_string(name) : uri);
    lilv_node_free(name);
    MakePorts(d);
    MakeParams(d);
    MakeFeatures(d);
    {
        const vlorfx::InPlugin inPlugin(d->blame.c_str());
        d->instance = lilv_plugin_instantiate(d->plugin, sampleRate, d->featureList);
    }
    if (!d->instance)
        return failWith(d, error, errorSize, "the plugin refused to start (instantiate failed)");
    ConnectPorts(d);
    if (const auto* iface = static_cast<const LV2_Worker_Interface*>(
            lilv_instance_get_extension_data(d->instance, LV2_WORKER__interface));
        iface && iface->work)
        d->worker = new Worker(iface, lilv_instance_get_handle(d->instance));
    d->stateInterface =
        static_cast<const LV2_State_Interface*>(lilv_instance_get_extension_data(d->instance, LV2_STATE__interface));
    return d;
}

extern "C" int VLORLV2_DestroyInstance(_Lv2Instance* d)
{
    if (!d)
        return 0;
    if (d->remote)
        return DestroyRemote(d);
    EndUi(d);
    VLORLV2_Deactivate(d);
    delete d->worker;
    if (d->instance) {
        // Freeing may unload the plugin's library, which lilv keeps in the world's list.
        std::lock_guard<std::mutex> l(WorldLock());
        lilv_instance_free(d->instance);
    }
    if (!d->directory.empty())
        rmdir(d->directory.c_str());
    delete d;
    return 1;
}

extern "C" int VLORLV2_Activate(_Lv2Instance* d)
{
    LV2_REMOTE(d, activate(d));
    if (!d)
        return 0;
    if (!d->active) {
        lilv_instance_activate(d->instance);
        // A run gathered before is not heard after.
        d->gathered = 0;
        d->heldOutputs.assign(d->fixedBlock > 0 ? d->mainOutputs.size() : 0, std::vector<float>(size_t(d->fixedBlock)));
    }
    d->active = true;
    return 1;
}

extern "C" int VLORLV2_Deactivate(_Lv2Instance* d)
{
    LV2_REMOTE(d, deactivate(d));
    if (!d)
        return 0;
    if (d->active)
        lilv_instance_deactivate(d->instance);
    d->active = false;
    return 1;
}

extern "C" int VLORLV2_GetBusChannels(_Lv2Instance* d, int* inputs, int* outputs)
{
    LV2_REMOTE(d, busChannels(d, inputs, outputs));
    if (!d)
        return 0;
    if (inputs)
        *inputs = int(d->mainInputs.size());
    if (outputs)
        *outputs = int(d->mainOutputs.size());
    return 1;
}

extern "C" int VLORLV2_GetLatency(_Lv2Instance* d)
{
    LV2_REMOTE(d, latency(d));
    if (!d)
        return 0;
    if (d->latencyPort < 0)
        return d->fixedBlock;
    const float frames = d->ports[size_t(d->latencyPort)].value;
    return (std::isfinite(frames) && frames > 0 ? int(std::lround(frames)) : 0) + d->fixedBlock;
}

namespace {

// Runs of the plugin's one length, gathered from blocks of any length: each
// block's frames go in where the gathering stands and its output is the last
// run's at the same place, one run late.
void processGathered(_Lv2Instance* d, const float* input, float* output, int channels, int frames)
{
    const size_t ins = d->mainInputs.size(), outs = d->mainOutputs.size(), ch = size_t(channels);
    for (int done = 0; done < frames;) {
        const int n = std::min(d->fixedBlock - d->gathered, frames - done);
        const size_t at = size_t(d->gathered);
        const float* in = input + size_t(done) * ch;
        // The input is read whole before the output is written: they may be one array.
        for (size_t k = 0; k < ins; ++k) {
            float* to = d->ports[size_t(d->mainInputs[k])].samples.data() + at;
            for (int f = 0; f < n; ++f)
                to[f] = k < ch ? in[size_t(f) * ch + k] : 0.0f;
        }
        float* out = output + size_t(done) * ch;
        for (size_t c = 0; c < ch; ++c) {
            const float* from = c < outs ? d->heldOutputs[c].data() + at : nullptr;
            for (int f = 0; f < n; ++f)
                out[size_t(f) * ch + c] = from ? from[f] : 0.0f;
        }
        d->gathered += n;
        done += n;
        if (d->gathered < d->fixedBlock)
            continue;
        if (!d->silence.empty())
            std::fill_n(d->silence.begin(), d->fixedBlock, 0.0f);
        RunOnce(d, d->fixedBlock);
        for (size_t k = 0; k < outs; ++k)
            std::copy_n(d->ports[size_t(d->mainOutputs[k])].samples.begin(), d->fixedBlock, d->heldOutputs[k].begin());
        d->gathered = 0;
    }
}

} // namespace

extern "C" int VLORLV2_ProcessAudio(_Lv2Instance* d, const float* input, float* output, int channels, int frames)
{
    LV2_REMOTE(d, process(d, input, output, channels, frames));
    if (!d || !d->active || !input || !output || channels <= 0 || frames < 0)
        return 0;
    const vlorfx::InPlugin inPlugin(d->blame.c_str());
    if (d->fixedBlock > 0) {
        processGathered(d, input, output, channels, frames);
        return 1;
    }
    const size_t ins = d->mainInputs.size(), outs = d->mainOutputs.size();
    for (int done = 0; done < frames;) {
        const int n = std::min(d->maxBlock, frames - done);
        const float* in = input + size_t(done) * size_t(channels);
        if (channels == 2 && ins == 2) {
            deinterleave2(in, d->ports[size_t(d->mainInputs[0])].samples.data(),
                          d->ports[size_t(d->mainInputs[1])].samples.data(), n);
        } else {
            for (size_t k = 0; k < ins; ++k) {
                float* to = d->ports[size_t(d->mainInputs[k])].samples.data();
                for (int f = 0; f < n; ++f)
                    to[f] = int(k) < channels ? in[size_t(f) * size_t(channels) + k] : 0.0f;
            }
        }
        // Side chains and CV inputs hear silence; a plugin may have written
        // into its inputs, so they are cleared at every block.
        if (!d->silence.empty())
            std::fill_n(d->silence.begin(), n, 0.0f);
        RunOnce(d, n);
        float* out = output + size_t(done) * size_t(channels);
        if (channels == 2 && outs >= 2) {
            interleave2(d->ports[size_t(d->mainOutputs[0])].samples.data(),
                        d->ports[size_t(d->mainOutputs[1])].samples.data(), out, n);
            done += n;
            continue;
        }
        for (int c = 0; c < channels; ++c) {
            const float* from = size_t(c) < outs ? d->ports[size_t(d->mainOutputs[size_t(c)])].samples.data() : nullptr;
            for (int f = 0; f < n; ++f)
                out[size_t(f) * size_t(channels) + size_t(c)] = from ? from[f] : 0.0f;
        }
        done += n;
    }
    return 1;
}

extern "C" float* VLORLV2_TestingAudioBuffer(_Lv2Instance* d, int output, int k)
{
    if (!d)
        return nullptr;
    const std::vector<int>& ports = output ? d->mainOutputs : d->mainInputs;
    return k >= 0 && size_t(k) < ports.size() ? d->ports[size_t(ports[size_t(k)])].samples.data() : nullptr;
}

extern "C" void VLORLV2_TestingRunBare(_Lv2Instance* d, int frames) { lilv_instance_run(d->instance, uint32_t(frames)); }
