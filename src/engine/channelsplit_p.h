#ifndef CHANNELSPLIT_P_H
#define CHANNELSPLIT_P_H
// A track's channels through an effect. An effect with as many inputs and
// outputs as the track has channels (or more) runs once over all of them; one
// with fewer (a mono effect on a stereo track, a stereo one on six channels)
// runs one instance per channel, each given its channel alone and giving its
// first output back, with the same parameters and state on every instance.
// Without this the adapters would feed the first channels and leave the rest
// untouched: a stereo track would come out with a silent right channel.

#include <string>
#include <vector>

struct ChannelPlan {
    int instances = 0;    // 0: the effect cannot serve the track
    int channelsEach = 0; // the track's channels, or 1 each
};

inline ChannelPlan PlanChannels(int trackChannels, int inputs, int outputs)
{
    if (trackChannels < 1 || inputs < 1 || outputs < 1)
        return {};
    if (inputs >= trackChannels && outputs >= trackChannels)
        return {1, trackChannels};
    return {trackChannels, 1};
}

// Why an effect cannot serve any track, for the user.
inline std::string WhyNoChannelPlan(int inputs, int outputs)
{
    if (inputs < 1 && outputs < 1)
        return "the effect has no audio inputs or outputs";
    return inputs < 1 ? "the effect has no audio input (an instrument or a generator)"
                      : "the effect has no audio output";
}

// Runs one instance per channel over interleaved blocks. in and out may be
// one buffer: channel k is read before it is written.
class ChannelSplitter {
public:
    // run(k, monoIn, monoOut, frames): instance k over its channel; false
    // when it gave nothing, which fails the block.
    template <typename Run> bool process(const float* in, float* out, int channels, int frames, Run run)
    {
        if (channels < 1 || frames < 1)
            return frames == 0;
        m_in.resize(size_t(frames));
        m_out.resize(size_t(frames));
        for (int k = 0; k < channels; ++k) {
            for (int f = 0; f < frames; ++f)
                m_in[size_t(f)] = in[size_t(f) * size_t(channels) + size_t(k)];
            if (!run(k, m_in.data(), m_out.data(), frames))
                return false;
            for (int f = 0; f < frames; ++f)
                out[size_t(f) * size_t(channels) + size_t(k)] = m_out[size_t(f)];
        }
        return true;
    }

private:
    std::vector<float> m_in, m_out;
};

#endif
