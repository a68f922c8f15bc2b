#include "QVlorMixer.h"

#include <algorithm>
#include <cstring>

namespace QVlorMixer {

Effect::Effect(int sampleRate, unsigned int channels) : m_sampleRate(sampleRate), m_channels(channels) {}
Effect::~Effect() = default;
bool Effect::isOk() const { return true; }
int Effect::process(float* samples, int channels, int frames) { return process(samples, samples, channels, frames); }
void Effect::reset() {}
int Effect::tailSize() const { return 0; }
bool Effect::reconfigure(const QString&) { return false; }
unsigned int Effect::numChannels() const { return m_channels; }
int Effect::sampleRate() const { return m_sampleRate; }
int Effect::joinable(const QList<Effect*>&) const { return 0; }
int Effect::processJoined(const QList<Effect*>&, float*, float*, int, int) { return 0; }

Mixer& Mixer::instance()
{
    static Mixer mixer;
    return mixer;
}

Chain::Chain(unsigned int channels, int blockFrames)
    : m_channels(channels), m_blockFrames(std::max(1, blockFrames)),
      m_a(size_t(m_blockFrames) * channels), m_b(size_t(m_blockFrames) * channels)
{
}

void Chain::append(Effect* effect) { m_effects.append(effect); }

long long Chain::render(const float* input, float* output, long long frames)
{
    long long missed = 0;
    for (long long at = 0; at < frames; at += m_blockFrames) {
        const int n = int(std::min<long long>(m_blockFrames, frames - at));
        const size_t samples = size_t(n) * m_channels;
        std::memcpy(m_a.data(), input + at * m_channels, samples * sizeof(float));
        for (int k = 0; k < m_effects.size(); ++k) {
            Effect* e = m_effects[k];
            const int along = std::min(e->joinable(m_effects.mid(k + 1)), int(m_effects.size()) - k - 1);
            const int got = along > 0 ? e->processJoined(m_effects.mid(k, along + 1), m_a.data(), m_b.data(),
                                                         int(m_channels), n)
                                      : e->process(m_a.data(), m_b.data(), int(m_channels), n);
            if (got == n)
                std::swap(m_a, m_b);
            else
                missed += (long long)n * (along + 1);
            k += std::max(along, 0);
        }
        std::memcpy(output + at * m_channels, m_a.data(), samples * sizeof(float));
    }
    return missed;
}

} // namespace QVlorMixer
