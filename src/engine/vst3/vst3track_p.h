#ifndef VST3TRACK_P_H
#define VST3TRACK_P_H
// The VST3 instances that serve one track: one over all its channels, or one
// a channel when the plugin's buses hold fewer (see channelsplit_p.h). The
// first instance is the one its owner configures and shows; the others follow
// its parameters before each block.

#include "vst3engine.h"
#include "../channelsplit_p.h"

#include <string>
#include <vector>

class Vst3Track {
public:
    Vst3Track() = default;
    Vst3Track(const Vst3Track&) = delete;
    Vst3Track& operator=(const Vst3Track&) = delete;
    ~Vst3Track() { close(); }

    // Made and started for a track of channels; false, with why, when the
    // plugin does not start or its buses serve no track.
    bool open(const char* path, const char* uid, int sampleRate, int channels, bool offline, std::string* why)
    {
        close();
        m_channels = channels;
        m_followEvery = sampleRate / kFollowsPerSecond;
        _Vst3Instance* first = make(path, uid, sampleRate, channels, offline);
        if (!first) {
            *why = "the effect did not start";
            return false;
        }
        m_instances.push_back(first);
        int inputs = 0, outputs = 0;
        VLORVST3_GetBusChannels(first, &inputs, &outputs);
        const ChannelPlan plan = PlanChannels(channels, inputs, outputs);
        if (plan.instances == 0) {
            *why = WhyNoChannelPlan(inputs, outputs);
            close();
            return false;
        }
        if (plan.instances == 1)
            return true;
        // One a channel: the first is made again for one channel, as the others.
        close();
        m_channels = channels;
        for (int k = 0; k < plan.instances; ++k) {
            _Vst3Instance* h = make(path, uid, sampleRate, 1, offline);
            if (!h) {
                *why = "the effect did not start";
                close();
                return false;
            }
            m_instances.push_back(h);
        }
        return true;
    }

    void close()
    {
        for (_Vst3Instance* h : m_instances) {
            VLORVST3_StopEngine(h);
            VLORVST3_DestroyInstance(h);
        }
        m_instances.clear();
        m_values.clear();
    }

    // The owner's power calls: every instance, or none.
    bool start()
    {
        bool ok = !m_instances.empty();
        for (_Vst3Instance* h : m_instances)
            ok = VLORVST3_StartEngine(h) == 1 && ok;
        return ok;
    }
    bool stop()
    {
        bool ok = !m_instances.empty();
        for (_Vst3Instance* h : m_instances)
            ok = VLORVST3_StopEngine(h) == 1 && ok;
        return ok;
    }
    bool setBypass(bool on)
    {
        bool ok = !m_instances.empty();
        for (_Vst3Instance* h : m_instances)
            ok = VLORVST3_SetBypass(h, on ? 1 : 0) == 1 && ok;
        return ok;
    }

    _Vst3Instance* first() const { return m_instances.empty() ? nullptr : m_instances.front(); }
    bool split() const { return m_instances.size() > 1; }

    // A state or parameters given to the first reach every instance.
    bool setConfig(const char* config, bool reconfigure)
    {
        bool ok = !m_instances.empty();
        for (_Vst3Instance* h : m_instances)
            ok = VLORVST3_SetConfigEx(h, config, reconfigure) && ok;
        return ok;
    }
    void reset()
    {
        for (_Vst3Instance* h : m_instances)
            VLORVST3_Reset(h);
    }

    bool process(const float* in, float* out, int channels, int frames)
    {
        if (!split())
            return VLORVST3_ProcessAudio(first(), in, out, channels, frames) == 1;
        // Instances in host programs are asked over their pipes: the audio
        // thread follows them some times a second, not at every block.
        m_sinceFollow += frames;
        if (!VLORVST3_GetRemoteState(first()) || m_sinceFollow >= m_followEvery) {
            m_sinceFollow = 0;
            followFirst();
        }
        return m_splitter.process(in, out, channels, frames, [this](int k, const float* mono, float* monoOut, int n) {
            return VLORVST3_ProcessAudio(m_instances[size_t(k)], mono, monoOut, 1, n) == 1;
        });
    }

private:
    static _Vst3Instance* make(const char* path, const char* uid, int sampleRate, int channels, bool offline)
    {
        _Vst3Instance* h = VLORVST3_CreateInstance(path, uid);
        if (!h)
            return nullptr;
        VLORVST3_SetAudioFormat(h, sampleRate, channels);
        VLORVST3_SetOffline(h, offline ? 1 : 0);
        if (VLORVST3_StartEngine(h) != 1) {
            VLORVST3_DestroyInstance(h);
            return nullptr;
        }
        return h;
    }

    // What the user changed on the first (its editor, the panel) is copied
    // to the others before the block that plays it.
    void followFirst()
    {
        _Vst3Instance* lead = first();
        const int n = VLORVST3_GetNumParams(lead);
        m_values.resize(size_t(n > 0 ? n : 0), -1.0);
        for (int i = 0; i < n; ++i) {
            Vst3ParamInfo info;
            if (!VLORVST3_GetParamInfo(lead, i, &info))
                continue;
            const double v = VLORVST3_GetParamNormalized(lead, info.id);
            if (v == m_values[size_t(i)])
                continue;
            m_values[size_t(i)] = v;
            for (size_t k = 1; k < m_instances.size(); ++k)
                VLORVST3_SetParamNormalized(m_instances[k], info.id, v);
        }
    }

    std::vector<_Vst3Instance*> m_instances;
    std::vector<double> m_values; // of the first's parameters, as last copied
    ChannelSplitter m_splitter;
    int m_channels = 0;
    static constexpr int kFollowsPerSecond = 20;
    int m_followEvery = 0;
    int m_sinceFollow = 1 << 30; // the first block follows
};

#endif
