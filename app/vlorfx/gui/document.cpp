#include "document.h"

#include "audio_errors.h"

#include <QFile>
#include <QUndoCommand>

#include <sndfile.h>

namespace vlorfx {

class ReplaceCommand : public QUndoCommand {
public:
    ReplaceCommand(AudioDocument* doc, qint64 start, QVector<float> before, QVector<float> after, const QString& label)
        : QUndoCommand(label), m_doc(doc), m_start(start), m_before(std::move(before)), m_after(std::move(after))
    {
    }
    void redo() override { m_doc->put(m_start, m_after); }
    void undo() override { m_doc->put(m_start, m_before); }

private:
    AudioDocument* m_doc;
    qint64 m_start;
    QVector<float> m_before;
    QVector<float> m_after;
};

AudioDocument::AudioDocument(QObject* parent) : QObject(parent) {}

bool AudioDocument::readFile(const QString& file, int* channels, int* rate, QVector<float>* samples, QString* error)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(QFile::encodeName(file).constData(), SFM_READ, &info);
    if (!f) {
        *error = QString::fromStdString(audio::ReadErrorText(QFile::encodeName(file).toStdString()));
        return false;
    }
    if (info.channels <= 0 || info.frames < 0 || info.frames > (qint64(1) << 31) / info.channels) {
        sf_close(f);
        *error = QObject::tr("%1 is too long or has no channels").arg(file);
        return false;
    }
    samples->resize(qsizetype(info.frames * info.channels));
    const sf_count_t read = sf_readf_float(f, samples->data(), info.frames);
    sf_close(f);
    samples->resize(qsizetype(read * info.channels));
    *channels = info.channels;
    *rate = info.samplerate;
    return true;
}

bool AudioDocument::load(const QString& path, QString* error)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!f) {
        *error = QString::fromStdString(audio::ReadErrorText(QFile::encodeName(path).toStdString()));
        return false;
    }
    sf_close(f);
    QVector<float> samples;
    int channels = 0, rate = 0;
    if (!readFile(path, &channels, &rate, &samples, error))
        return false;
    m_path = path;
    m_format = info.format;
    m_channels = channels;
    m_rate = rate;
    m_samples = std::move(samples);
    m_undo.clear();
    emit changed();
    return true;
}

bool AudioDocument::save(const QString& path, QString* error)
{
    SF_INFO info{};
    info.channels = m_channels;
    info.samplerate = m_rate;
    info.format = m_format;
    if (!sf_format_check(&info)) {
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    }
    // Written beside, then moved over: a failure leaves the old file whole.
    const QString temporary = path + QStringLiteral(".saving");
    SNDFILE* f = sf_open(QFile::encodeName(temporary).constData(), SFM_WRITE, &info);
    if (!f) {
        *error = QString::fromStdString(audio::WriteErrorText(QFile::encodeName(path).toStdString()));
        return false;
    }
    // Whole numbers clip at full scale, as the format asks; no wrap-around.
    sf_command(f, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const sf_count_t written = sf_writef_float(f, m_samples.constData(), frames());
    const int closed = sf_close(f);
    if (written != frames() || closed != 0) {
        QFile::remove(temporary);
        *error = tr("%1 could not be written whole").arg(path);
        return false;
    }
    QFile::remove(path);
    if (!QFile::rename(temporary, path)) {
        QFile::remove(temporary);
        *error = tr("%1 cannot be replaced").arg(path);
        return false;
    }
    m_path = path;
    m_format = info.format;
    m_undo.setClean();
    emit changed();
    return true;
}

QVector<float> AudioDocument::range(qint64 start, qint64 count) const
{
    return m_samples.mid(qsizetype(start * m_channels), qsizetype(count * m_channels));
}

void AudioDocument::replace(qint64 start, const QVector<float>& interleaved, const QString& label)
{
    const qint64 count = interleaved.size() / std::max(1, m_channels);
    m_undo.push(new ReplaceCommand(this, start, range(start, count), interleaved, label));
}

void AudioDocument::put(qint64 start, const QVector<float>& interleaved)
{
    const qsizetype at = qsizetype(start * m_channels);
    for (qsizetype i = 0; i < interleaved.size() && at + i < m_samples.size(); ++i)
        m_samples[at + i] = interleaved.at(i);
    emit changed();
}

bool AudioDocument::writeRange(const QString& file, qint64 start, qint64 count, QString* error) const
{
    SF_INFO info{};
    info.channels = m_channels;
    info.samplerate = m_rate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* f = sf_open(QFile::encodeName(file).constData(), SFM_WRITE, &info);
    if (!f) {
        *error = QString::fromStdString(audio::WriteErrorText(QFile::encodeName(file).toStdString()));
        return false;
    }
    const QVector<float> part = range(start, count);
    const sf_count_t written = sf_writef_float(f, part.constData(), count);
    sf_close(f);
    if (written != count) {
        *error = tr("%1 could not be written whole").arg(file);
        return false;
    }
    return true;
}

} // namespace vlorfx
