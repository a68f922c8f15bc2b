#ifndef QVLORMIXER_H
#define QVLORMIXER_H
// The editor's playback mixer, as far as effects see it: the base class of a
// real-time effect, the mixer's own settings, and a chain that plays effects
// over audio block by block, as the playback engine does, into memory.

#include <QList>
#include <QObject>
#include <QString>

#include <vector>

namespace QVlorMixer {

// One real-time effect of the mixer. Audio is interleaved floats; process
// gives the frames it delivered, 0 when it could not.
class Effect : public QObject {
    Q_OBJECT
public:
    Effect(int sampleRate, unsigned int channels);
    ~Effect() override;

    virtual bool isOk() const;
    // In place: the output is the input's buffer.
    virtual int process(float* samples, int channels, int frames);
    virtual int process(float* input, float* output, int channels, int frames) = 0;
    virtual void reset();
    // Frames the effect still gives after its input ends.
    virtual int tailSize() const;
    virtual bool reconfigure(const QString& config);
    virtual unsigned int numChannels() const;
    virtual int sampleRate() const;
    // How many of the effects that follow it this one plays along in one
    // call (effects that share a process, say); 0 for none.
    virtual int joinable(const QList<Effect*>& following) const;
    // This effect and those joinable gave, over one block: the frames given,
    // 0 when they could not.
    virtual int processJoined(const QList<Effect*>& effects, float* input, float* output, int channels, int frames);

private:
    int m_sampleRate;
    unsigned int m_channels;
};

// The mixer application object: the rate and block size playback runs at.
class Mixer {
public:
    static Mixer& instance();
    int sampleRate() const { return m_sampleRate; }
    int bufferFrames() const { return m_bufferFrames; }
    void setSampleRate(int rate) { m_sampleRate = rate; }
    void setBufferFrames(int frames) { m_bufferFrames = frames; }

private:
    int m_sampleRate = 44100;
    int m_bufferFrames = 1024;
};

// Effects played in order over a stream, one block at a time. An effect
// that gives no audio for a block is passed over for that block: the rest
// of the chain keeps its pace. Effects that can play along with the one
// before them do so in one call.
class Chain {
public:
    explicit Chain(unsigned int channels, int blockFrames);
    void append(Effect* effect);
    // frames of interleaved input into output (the same size); the frames
    // each effect failed to give, summed over the blocks.
    long long render(const float* input, float* output, long long frames);
    const QList<Effect*>& effects() const { return m_effects; }

private:
    unsigned int m_channels;
    int m_blockFrames;
    QList<Effect*> m_effects;
    std::vector<float> m_a, m_b;
};

} // namespace QVlorMixer

#endif
