#include "preview.h"

#include "QVlorMixer.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <cstring>

#ifdef VLORFX_HAVE_MULTIMEDIA
#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QMediaDevices>
#endif

namespace vlorfx {

namespace {

// A reverb that claims a tail of minutes should not keep the preview going.
constexpr int kMaxTailSeconds = 10;

} // namespace

PreviewStream::PreviewStream(QVector<float> input, int channels, QVlorMixer::Effect* effect, int blockFrames,
                             SampleKind kind, QObject* parent)
    : QIODevice(parent), m_input(std::move(input)), m_channels(std::max(1, channels)), m_effect(effect),
      m_blockFrames(std::max(1, blockFrames)), m_kind(kind)
{
    m_inputFrames = m_input.size() / m_channels;
    m_tailFrames = 0;
    if (effect)
        m_tailFrames = std::clamp<qint64>(effect->tailSize(), 0, qint64(kMaxTailSeconds) * std::max(1, effect->sampleRate()));
    m_in.resize(size_t(m_blockFrames) * m_channels);
    m_out.resize(m_in.size());
    // Unbuffered: the sound output reads exactly what the effect has made,
    // and the end is where the effect's tail ends.
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

int PreviewStream::bytesPerFrame() const
{
    return m_channels * (m_kind == Float ? int(sizeof(float)) : int(sizeof(qint16)));
}

qint64 PreviewStream::bytesAvailable() const
{
    return (totalFrames() - m_at) * bytesPerFrame() + QIODevice::bytesAvailable();
}

qint64 PreviewStream::readData(char* data, qint64 maxSize)
{
    const int frameBytes = bytesPerFrame();
    qint64 wanted = std::min(maxSize / frameBytes, totalFrames() - m_at);
    qint64 written = 0;
    while (wanted > 0) {
        const int n = int(std::min<qint64>(wanted, m_blockFrames));
        const size_t samples = size_t(n) * m_channels;
        // Input while there is some, silence for the tail.
        const qint64 fromInput = std::clamp<qint64>(m_inputFrames - m_at, 0, n);
        std::fill(m_in.begin(), m_in.begin() + qptrdiff(samples), 0.0f);
        if (fromInput > 0)
            std::memcpy(m_in.data(), m_input.constData() + m_at * m_channels, size_t(fromInput) * m_channels * sizeof(float));
        const float* played = m_in.data();
        // As the mixer does: an effect that gives nothing for a block (it
        // crashed, or was never started) is passed over, and the audio plays dry.
        if (m_effect && m_effect->process(m_in.data(), m_out.data(), m_channels, n) == n)
            played = m_out.data();
        else
            m_dry += n;
        if (m_kind == Float) {
            std::memcpy(data + written, played, samples * sizeof(float));
        } else {
            auto* out = reinterpret_cast<qint16*>(data + written);
            for (size_t i = 0; i < samples; ++i)
                out[i] = qint16(std::lround(std::clamp(played[i], -1.0f, 1.0f) * 32767.0f));
        }
        written += qint64(n) * frameBytes;
        m_at += n;
        wanted -= n;
    }
    return written;
}

Previewer::Previewer(QObject* parent) : QObject(parent) {}

Previewer::~Previewer() { stop(); }

#ifdef VLORFX_HAVE_MULTIMEDIA

namespace {

bool pickFormat(const QAudioDevice& device, int sampleRate, int channels, QAudioFormat* format)
{
    format->setSampleRate(sampleRate);
    format->setChannelCount(channels);
    for (QAudioFormat::SampleFormat kind : {QAudioFormat::Float, QAudioFormat::Int16}) {
        format->setSampleFormat(kind);
        if (device.isFormatSupported(*format))
            return true;
    }
    return false;
}

} // namespace

QString Previewer::unavailableReason(int sampleRate, int channels)
{
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull())
        return QCoreApplication::translate("vlorfx::Previewer", "Preview needs a sound output; this machine has none");
    QAudioFormat format;
    if (sampleRate > 0 && channels > 0 && !pickFormat(device, sampleRate, channels, &format))
        return QCoreApplication::translate("vlorfx::Previewer", "%1 cannot play %2 channels at %3 Hz")
            .arg(device.description())
            .arg(channels)
            .arg(sampleRate);
    return QString();
}

bool Previewer::isPlaying() const { return m_sink != nullptr; }

bool Previewer::start(QVector<float> input, int sampleRate, int channels, QVlorMixer::Effect* effect, QString* error)
{
    stop();
    const QString reason = unavailableReason(sampleRate, channels);
    if (!reason.isEmpty()) {
        *error = reason;
        return false;
    }
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    QAudioFormat format;
    pickFormat(device, sampleRate, channels, &format);
    m_stream = new PreviewStream(std::move(input), channels, effect, QVlorMixer::Mixer::instance().bufferFrames(),
                                 format.sampleFormat() == QAudioFormat::Float ? PreviewStream::Float : PreviewStream::Int16,
                                 this);
    m_sink = new QAudioSink(device, format);
    connect(m_sink, &QAudioSink::stateChanged, this, [this](QAudio::State state) {
        // Idle with the stream drained is the end; idle before it is an underrun.
        if (state == QAudio::StoppedState || (state == QAudio::IdleState && m_stream && m_stream->atEnd())) {
            QMetaObject::invokeMethod(this, [this] {
                if (m_sink) {
                    stop();
                    emit finished();
                }
            }, Qt::QueuedConnection);
        }
    });
    m_sink->start(m_stream);
    if (m_sink->error() != QAudio::NoError) {
        *error = QCoreApplication::translate("vlorfx::Previewer", "The sound output did not start");
        stop();
        return false;
    }
    return true;
}

void Previewer::stop()
{
    if (m_sink) {
        QAudioSink* sink = m_sink;
        m_sink = nullptr;
        sink->disconnect(this);
        sink->stop();
        // Never from the sink's own signal (its end is handed over queued), so
        // it can go now, before the stream it reads.
        delete sink;
    }
    delete m_stream;
    m_stream = nullptr;
}

#else

QString Previewer::unavailableReason(int, int)
{
    return QCoreApplication::translate("vlorfx::Previewer",
                                       "Preview needs a sound output; this build of vlorfx plays no sound");
}

bool Previewer::isPlaying() const { return false; }

bool Previewer::start(QVector<float>, int, int, QVlorMixer::Effect*, QString* error)
{
    *error = unavailableReason(0, 0);
    return false;
}

void Previewer::stop() {}

#endif

} // namespace vlorfx
