#ifndef LV2TRACK_P_H
#define LV2TRACK_P_H
// The LV2 instances that serve one track: one over all its channels, or one
// a channel when the plugin's main ports hold fewer (see channelsplit_p.h).
// The first instance is the one its owner configures and shows; the others
// follow its parameters before each block.

#include "lv2engine.h"
#include "../channelsplit_p.h"

#include "blstring.h"

#include <cstdlib>
#include <string>
#include <vector>

// A key's whole value in a configuration, however long (a state runs to
// megabytes); empty when absent.
inline std::string Lv2ConfigText(const char* config, const char* key)
{
    if (!BLSTRING_HasKeyInString(config, key))
        return std::string();
    for (size_t size = 4096; size <= (size_t(1) << 28); size *= 4) {
        std::vector<char> text(size);
        if (BLSTRING_GetStringValueFromString(config, key, "", text.data(), int(size)))
            return text.data();
    }
    return std::string();
}

class Lv2Track {
public:
    Lv2Track() = default;
    Lv2Track(const Lv2Track&) = delete;
    Lv2Track& operator=(const Lv2Track&) = delete;
    ~Lv2Track() { close(); }

    // Made and activated for a track of channels; false, with why, when the
    // plugin does not start or its ports serve no track.
    bool open(const char* uri, double sampleRate, int channels, int maxBlock, std::string* why)
    {
        close();
        m_channels = channels;
        m_followEvery = int(sampleRate) / kFollowsPerSecond;
        if (!add(uri, sampleRate, maxBlock, why))
            return false;
        int inputs = 0, outputs = 0;
        VLORLV2_GetBusChannels(first(), &inputs, &outputs);
        const ChannelPlan plan = PlanChannels(channels, inputs, outputs);
        if (plan.instances == 0) {
            *why = WhyNoChannelPlan(inputs, outputs);
            close();
            return false;
        }
        while (int(m_instances.size()) < plan.instances)
            if (!add(uri, sampleRate, maxBlock, why)) {
                close();
                return false;
            }
        for (_Lv2Instance* fx : m_instances)
            VLORLV2_Activate(fx);
        return true;
    }

    void close()
    {
        for (_Lv2Instance* fx : m_instances)
            VLORLV2_DestroyInstance(fx);
        m_instances.clear();
    }

    _Lv2Instance* first() const { return m_instances.empty() ? nullptr : m_instances.front(); }

    // A saved state on every instance; false when it does not read.
    bool setState(const char* state)
    {
        bool ok = !m_instances.empty();
        for (_Lv2Instance* fx : m_instances)
            ok = VLORLV2_SetState(fx, state) == 1 && ok;
        return ok;
    }

    // A configuration: lv2effect_state (a saved state in Base64), then
    // lv2effect_params ("[v0,v1,...]"); false when the state does not read.
    bool configure(const char* config)
    {
        if (BLSTRING_HasKeyInString(config, "lv2effect_state")) {
            int length = 0;
            void* bytes = BLSTRING_FromBase64(Lv2ConfigText(config, "lv2effect_state").c_str(), &length);
            const std::string state = bytes ? std::string(static_cast<const char*>(bytes), size_t(length)) : "";
            std::free(bytes);
            if (!setState(state.c_str()))
                return false;
        }
        const std::string params = Lv2ConfigText(config, "lv2effect_params");
        if (!params.empty()) {
            std::vector<float> values(size_t(VLORLV2_GetNumParams(first())));
            values.resize(
                size_t(BLSTRING_GetFloatVectorValuesFromString(params.c_str(), values.data(), int(values.size()))));
            setParams(values);
        }
        return true;
    }

    // Values for the first parameters, in order, on the first instance.
    void setParams(const std::vector<float>& values)
    {
        for (size_t i = 0; i < values.size(); ++i)
            VLORLV2_SetParam(first(), int(i), values[i]);
    }

    void reset()
    {
        for (_Lv2Instance* fx : m_instances) {
            VLORLV2_Deactivate(fx);
            VLORLV2_Activate(fx);
        }
    }

    bool process(const float* in, float* out, int channels, int frames)
    {
        if (m_instances.size() == 1)
            return VLORLV2_ProcessAudio(first(), in, out, channels, frames) == 1;
        if (m_instances.empty())
            return false;
        // Instances in host programs are asked over their pipes: the audio
        // thread follows them some times a second, not at every block.
        m_sinceFollow += frames;
        if (!VLORLV2_GetRemoteState(first()) || m_sinceFollow >= m_followEvery) {
            m_sinceFollow = 0;
            const int params = VLORLV2_GetNumParams(first());
            for (size_t k = 1; k < m_instances.size(); ++k)
                for (int i = 0; i < params; ++i)
                    VLORLV2_SetParam(m_instances[k], i, VLORLV2_GetParam(first(), i));
        }
        return m_splitter.process(in, out, channels, frames, [this](int k, const float* i, float* o, int n) {
            return VLORLV2_ProcessAudio(m_instances[size_t(k)], i, o, 1, n) == 1;
        });
    }

private:
    bool add(const char* uri, double sampleRate, int maxBlock, std::string* why)
    {
        char error[512] = "";
        _Lv2Instance* fx = VLORLV2_CreateInstance(uri, sampleRate, maxBlock, error, sizeof(error));
        if (!fx) {
            *why = error;
            return false;
        }
        m_instances.push_back(fx);
        return true;
    }

    std::vector<_Lv2Instance*> m_instances;
    ChannelSplitter m_splitter;
    int m_channels = 0;
    static constexpr int kFollowsPerSecond = 20;
    int m_followEvery = 0;
    int m_sinceFollow = 1 << 30; // the first block follows
};

#endif
