#pragma once
// Preview: the selection played through an effect dialog's mixer effect, in
// real time, on the machine's sound output.

#include <QIODevice>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

#include <vector>

namespace QVlorMixer {
class Effect;
}
class QAudioSink;

namespace vlorfx {

// Frames of audio pulled through a mixer effect block by block, as the
// playback mixer pulls them, and handed out as the sound output's bytes.
// After the input the effect's tail is played out of silence.
class PreviewStream : public QIODevice {
    Q_OBJECT
public:
    enum SampleKind { Float, Int16 };

    PreviewStream(QVector<float> input, int channels, QVlorMixer::Effect* effect, int blockFrames, SampleKind kind,
                  QObject* parent = nullptr);

    int bytesPerFrame() const;
    qint64 totalFrames() const { return m_inputFrames + m_tailFrames; }
    qint64 framesGiven() const { return m_at; }
    // Frames the effect gave nothing for, played dry instead.
    qint64 framesDry() const { return m_dry; }

    bool isSequential() const override { return true; }
    bool atEnd() const override { return m_at >= totalFrames(); }
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QVector<float> m_input;
    int m_channels;
    QPointer<QVlorMixer::Effect> m_effect;
    int m_blockFrames;
    SampleKind m_kind;
    qint64 m_inputFrames;
    qint64 m_tailFrames;
    qint64 m_at = 0;
    qint64 m_dry = 0;
    std::vector<float> m_in, m_out;
};

// One preview at a time on the default sound output.
class Previewer : public QObject {
    Q_OBJECT
public:
    explicit Previewer(QObject* parent = nullptr);
    ~Previewer() override;

    // Empty when audio of this shape can be played here, else why not.
    static QString unavailableReason(int sampleRate, int channels);

    bool isPlaying() const;
    bool start(QVector<float> input, int sampleRate, int channels, QVlorMixer::Effect* effect, QString* error);
    void stop();

signals:
    void finished();

private:
    QAudioSink* m_sink = nullptr;
    PreviewStream* m_stream = nullptr;
};

} // namespace vlorfx
