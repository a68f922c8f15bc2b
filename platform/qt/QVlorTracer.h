#ifndef QVLORTRACER_H
#define QVLORTRACER_H

#include <QDebug>
#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(vlorTrace)

namespace QVlor {

// A debug stream for developers, one line per tracer, under a tag:
//   QVlor::Tracer("QVlorVst::Manager:") << "-- => will check plugin" << file;
// Lines go to the "vlor.trace" logging category (debug level).
class Tracer {
public:
    explicit Tracer(const QString& tag);
    ~Tracer();
    template <typename T> Tracer& operator<<(const T& value)
    {
        m_stream << value;
        return *this;
    }

private:
    QString m_text;
    QDebug m_stream;
};

} // namespace QVlor

#endif
