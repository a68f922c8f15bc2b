#include "QVlorUtils.h"

#include "blstring.h"

#include <vector>

namespace QVlorUtils {

QString vec2str(const QList<float>& values)
{
    std::vector<char> text(size_t(values.size()) * 24 + 8);
    BLSTRING_FloatVectorToString(values.constData(), int(values.size()), text.data(), int(text.size()));
    return QString::fromLatin1(text.data());
}

} // namespace QVlorUtils

namespace QVlor {

QList<float> getFloatVectorFromString(const QString& text, const QString& key)
{
    const QByteArray config = text.toUtf8();
    const QByteArray name = key.toUtf8();
    std::vector<char> value(size_t(config.size()) + 1);
    if (!BLSTRING_GetStringValueFromString(config.constData(), name.constData(), "", value.data(), int(value.size())) ||
        !value[0])
        return {};
    const int n = BLSTRING_GetVectorSizeFromString(value.data());
    if (n <= 0)
        return {};
    QList<float> out(n);
    BLSTRING_GetFloatVectorValuesFromString(value.data(), out.data(), n);
    return out;
}

} // namespace QVlor
