#ifndef LV2INSTANCE_P_H
#define LV2INSTANCE_P_H
// One LV2 instance: its ports and their buffers, the features it was made
// with, and the worker that runs its slow work off the audio thread.

#include "lv2world_p.h"

#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <atomic>
#include <semaphore.h>
#include <string>
#include <thread>
#include <vector>

namespace vlorlv2 {

// A byte queue of one writer and one reader, neither of which waits: the
// audio thread's side never takes a lock.
class Ring {
public:
    explicit Ring(size_t size) : m_data(size) {}
    // A message of size bytes; false when it does not fit now.
    bool write(const void* data, uint32_t size) { return write(data, size, nullptr, 0); }
    // One message of two parts (a header and its body), written whole or not at all.
    bool write(const void* head, uint32_t headSize, const void* body, uint32_t bodySize);
    // The next message into out; false when there is none.
    bool read(std::vector<char>* out);

private:
    void put(size_t at, const void* data, size_t size);
    void get(size_t at, void* data, size_t size) const;
    std::vector<char> m_data;
    std::atomic<size_t> m_read{0}, m_write{0}; // ever-growing; positions are taken modulo the size
};

// The worker extension: requests from run() go to a thread of their own,
// responses come back to the end of the next run.
class Worker {
public:
    Worker(const LV2_Worker_Interface* iface, LV2_Handle handle);
    ~Worker();
    // From the plugin's run: queued for the thread.
    LV2_Worker_Status schedule(uint32_t size, const void* data);
    // At the end of a run: every response handed to the plugin, then end_run.
    void deliver();

private:
    void loop();
    const LV2_Worker_Interface* m_iface;
    LV2_Handle m_handle;
    Ring m_requests{1 << 16}, m_responses{1 << 16};
    sem_t m_wake;
    std::atomic<bool> m_quit{false};
    std::thread m_thread;
    std::vector<char> m_message; // the audio side's, reused
};

struct Port {
    enum Kind { Audio, Control, CV, Atom, Other };
    uint32_t index = 0;
    Kind kind = Other;
    bool input = false;
    bool sideChain = false;
    float value = 0;             // a control port's
    float minimum = 0, maximum = 1, defaultValue = 0;
    std::vector<float> samples;  // an audio or CV port's
    std::vector<uint64_t> atoms; // an atom port's sequence, 8-byte aligned
};

// The plugin's own editor, when one is open (see lv2ui.cpp).
struct Ui;

// The editor's traffic with the plugin: atoms it sends to an input port, and
// the atoms of the plugin's output ports on their way to it. Control ports
// need no queue: a float is written and read whole.
struct UiQueues {
    Ring toPlugin{1 << 16}, toUi{1 << 16};
    std::atomic<bool> listening{false}; // whether the audio side forwards outputs
    std::vector<char> message;          // the audio side's, reused
};

// A control port's value between threads: whole, without a lock.
inline float LoadValue(const Port& p)
{
    float v;
    __atomic_load(&p.value, &v, __ATOMIC_RELAXED);
    return v;
}
inline void StoreValue(Port& p, float v) { __atomic_store(&p.value, &v, __ATOMIC_RELAXED); }

struct ScalePoint {
    float value;
    std::string label;
};

struct Param {
    int port; // the position in ports
    Lv2ParamInfo info;
    std::vector<ScalePoint> points;
};

} // namespace vlorlv2

struct _Lv2Instance {
    std::string uri;
    // Set when the plugin runs in a host program (lv2remote.cpp): every
    // call then goes there, and the fields below stay unused.
    struct Lv2RemoteSide* remote = nullptr;
    // "lv2|URI|name": what a crash inside one of its calls here is told as.
    std::string blame;
    const LilvPlugin* plugin = nullptr;
    LilvInstance* instance = nullptr;
    double sampleRate = 44100;
    int maxBlock = 0;
    bool active = false;

    std::vector<vlorlv2::Port> ports;
    std::vector<int> mainInputs, mainOutputs, sideInputs; // positions in ports
    // What each block readies, listed once: a run touches no other port.
    std::vector<int> silentInputs; // side chains and CV inputs
    // The one buffer they all hear: cleared once a block, however many there are.
    std::vector<float> silence;
    std::vector<int> atomPorts;
    std::vector<vlorlv2::Param> params;
    int latencyPort = -1;

    // For a plugin that needs runs of one length: that length, the frames
    // gathered towards the next run, and the outputs of the last run, heard
    // one run late. 0 for every other plugin, whose runs follow the blocks.
    int fixedBlock = 0;
    int gathered = 0;
    std::vector<std::vector<float>> heldOutputs;

    // What the features point at; the instance never moves once made.
    int32_t minBlockOption = 1, maxBlockOption = 0, sequenceSizeOption = 0;
    float sampleRateOption = 0;
    LV2_Options_Option options[6]{};
    LV2_Worker_Schedule schedule{};
    LV2_Log_Log log{};
    LV2_State_Make_Path makePath{};
    LV2_State_Map_Path mapPath{};
    LV2_State_Free_Path freePath{};
    std::string directory; // where makePath puts the plugin's files
    LV2_Feature features[10]{};
    const LV2_Feature* featureList[11]{};

    const LV2_State_Interface* stateInterface = nullptr;
    vlorlv2::Worker* worker = nullptr;
    vlorlv2::Ui* ui = nullptr;
    std::atomic<vlorlv2::UiQueues*> uiQueues{nullptr}; // made with the editor, kept until the instance ends
};

namespace vlorlv2 {

_Lv2Instance* CreateLocal(const char* uri, double sampleRate, int maxBlock, char* error, int errorSize);
_Lv2Instance* CreateRemote(const char* uri, double sampleRate, int maxBlock, char* error, int errorSize);
int DestroyRemote(_Lv2Instance* instance);

// The bytes of an atom port's buffer.
constexpr size_t kAtomBufferBytes = 32768;

// The ports of a plugin read and their buffers made; the parameters listed. Under WorldLock.
void MakePorts(_Lv2Instance* instance);
// The parameters: every control input, with its name, unit, range and labelled values. Under WorldLock.
void MakeParams(_Lv2Instance* instance);
// The port of a parameter's symbol; null for any other.
Port* ControlInput(_Lv2Instance* instance, const char* symbol);
// Every port connected to its buffer.
void ConnectPorts(_Lv2Instance* instance);
// The features handed to instantiate.
void MakeFeatures(_Lv2Instance* instance);
// One run of frames (at most maxBlock): atom buffers readied, the plugin run,
// the worker's responses delivered, the latency read.
void RunOnce(_Lv2Instance* instance, int frames);
// Audio side of the editor's queues: its atoms into the input sequences
// (after they are cleared), and the output sequences' events out to it.
void TakeFromUi(_Lv2Instance* instance);
void ForwardToUi(_Lv2Instance* instance);
// The editor closed and its queues freed; before the instance ends.
void EndUi(_Lv2Instance* instance);

} // namespace vlorlv2

#endif
