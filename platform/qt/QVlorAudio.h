#ifndef QVLORAUDIO_H
#define QVLORAUDIO_H

#include <QString>

// The audio of one of the editor's windows, as a value: what the library
// asks of it before it offers an effect on it.
class QVlorAudio {
public:
    QVlorAudio() = default;
    QVlorAudio(const QString& fileName, int channels, int sampleRate, qint64 frames, bool editable = true)
        : m_fileName(fileName), m_channels(channels), m_sampleRate(sampleRate), m_frames(frames), m_editable(editable)
    {
    }

    QString fileName() const { return m_fileName; }
    int numChannels() const { return m_channels; }
    int sampleRate() const { return m_sampleRate; }
    qint64 numFrames() const { return m_frames; }
    bool isReady() const { return m_channels > 0 && m_sampleRate > 0; }
    bool isEmpty() const { return m_frames <= 0; }
    bool isEditable() const { return m_editable; }
    bool isRecording() const { return m_recording; }
    void setRecording(bool on) { m_recording = on; }

private:
    QString m_fileName;
    int m_channels = 0;
    int m_sampleRate = 0;
    qint64 m_frames = 0;
    bool m_editable = false;
    bool m_recording = false;
};

#endif
