#include "text.h"

#include <sys/stat.h>

namespace vlorfx {

QByteArray printable(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u != 0x7f && (u < 0x80 || u > 0x9f)) {
            out += c;
            continue;
        }
        switch (u) {
        case '\n': out += QLatin1String("\\n"); break;
        case '\r': out += QLatin1String("\\r"); break;
        case '\t': out += QLatin1String("\\t"); break;
        case 0x1b: out += QLatin1String("\\e"); break;
        default: out += QStringLiteral("\\x%1").arg(unsigned(u), 2, 16, QLatin1Char('0'));
        }
    }
    return out.toUtf8();
}

bool sameFile(const std::string& a, const std::string& b)
{
    struct stat sa, sb;
    return a == b || (::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
                      sa.st_ino == sb.st_ino);
}

} // namespace vlorfx
