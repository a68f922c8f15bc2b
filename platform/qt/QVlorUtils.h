#ifndef QVLORUTILS_H
#define QVLORUTILS_H
// Lists of floats in configuration strings: "[a,b,c]", as the platform's
// C side writes and reads them.

#include <QList>
#include <QString>

namespace QVlorUtils {
QString vec2str(const QList<float>& values);
}

namespace QVlor {
// The vector behind key in a configuration string ("key=[a,b]"); empty when
// there is none.
QList<float> getFloatVectorFromString(const QString& text, const QString& key);
} // namespace QVlor

#endif
