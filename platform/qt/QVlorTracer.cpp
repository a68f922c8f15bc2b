#include "QVlorTracer.h"

Q_LOGGING_CATEGORY(vlorTrace, "vlor.trace", QtWarningMsg)

namespace QVlor {

Tracer::Tracer(const QString& tag) : m_stream(&m_text) { m_stream.noquote() << tag; }

Tracer::~Tracer() { qCDebug(vlorTrace).noquote() << m_text; }

} // namespace QVlor
