#pragma once
// The audio of the reference editor's window: samples in memory, read and
// written with libsndfile, changed only through undoable steps.

#include <QObject>
#include <QString>
#include <QUndoStack>
#include <QVector>

namespace vlorfx {

class AudioDocument : public QObject {
    Q_OBJECT
public:
    explicit AudioDocument(QObject* parent = nullptr);

    bool load(const QString& path, QString* error);
    // In the file's own format when it can be written, else as 32-bit float WAV.
    bool save(const QString& path, QString* error);

    QString path() const { return m_path; }
    int channels() const { return m_channels; }
    int sampleRate() const { return m_rate; }
    qint64 frames() const { return m_channels > 0 ? m_samples.size() / m_channels : 0; }
    bool isEmpty() const { return frames() == 0; }
    bool isModified() const { return !m_undo.isClean(); }
    const QVector<float>& samples() const { return m_samples; }
    QUndoStack* undoStack() { return &m_undo; }

    // Frames [start, start + count) as interleaved samples.
    QVector<float> range(qint64 start, qint64 count) const;
    // One undoable step: the frames from start on become these.
    void replace(qint64 start, const QVector<float>& interleaved, const QString& label);

    // Writes frames [start, start + count) as a 32-bit float WAV file.
    bool writeRange(const QString& file, qint64 start, qint64 count, QString* error) const;
    // Reads a file the same shape as this audio; false if its shape differs.
    static bool readFile(const QString& file, int* channels, int* rate, QVector<float>* samples, QString* error);

signals:
    void changed();

private:
    friend class ReplaceCommand;
    void put(qint64 start, const QVector<float>& interleaved);

    QString m_path;
    int m_format = 0;
    int m_channels = 0;
    int m_rate = 0;
    QVector<float> m_samples;
    QUndoStack m_undo;
};

} // namespace vlorfx
