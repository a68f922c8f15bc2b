#include "QVlorJsonReader_p.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <cstring>

namespace QVlorJson {

namespace {

// Deeper than any file of ours; QJsonDocument's own limit is higher, and
// the fallback reads what lies between.
constexpr size_t kMaxDepth = 256;

template<typename T>
bool exactly(double d, T* out)
{
    // The range check in doubles: 2^63 itself is not a qint64.
    constexpr double limit = double(std::numeric_limits<T>::max()) + 1.0;
    if (!std::isfinite(d) || d < -limit || d >= limit)
        return false;
    const T t = T(d);
    if (double(t) != d)
        return false;
    *out = t;
    return true;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

void appendUtf8(std::string* out, unsigned int u)
{
    if (u < 0x80) {
        out->push_back(char(u));
    } else if (u < 0x800) {
        out->push_back(char(0xC0 | (u >> 6)));
        out->push_back(char(0x80 | (u & 0x3F)));
    } else {
        out->push_back(char(0xE0 | (u >> 12)));
        out->push_back(char(0x80 | ((u >> 6) & 0x3F)));
        out->push_back(char(0x80 | (u & 0x3F)));
    }
}

bool isNonCharacter(unsigned int u) { return (u >= 0xFDD0 && u <= 0xFDEF) || (u & 0xFFFE) == 0xFFFE; }

// The length of the well-formed UTF-8 sequence at p (its lead byte >= 0x80),
// 0 if it is not one, or encodes a surrogate or a non-character.
int utf8Sequence(const unsigned char* p, const unsigned char* end)
{
    const unsigned char lead = p[0];
    int length;
    unsigned int u;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        u = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        u = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        u = lead & 0x07;
    } else {
        return 0;
    }
    if (end - p < length)
        return 0;
    for (int i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        u = (u << 6) | (p[i] & 0x3F);
    }
    const unsigned int least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    if (u < least || u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF) || isNonCharacter(u))
        return 0;
    return length;
}

} // namespace

qint64 Scalar::toInteger(qint64 fallback) const
{
    qint64 n;
    if (kind == Integer)
        return integer;
    if (kind == Double && exactly(number, &n))
        return n;
    return fallback;
}

int Scalar::toInt(int fallback) const
{
    int n;
    if (kind == Integer)
        return qint64(int(integer)) == integer ? int(integer) : fallback;
    if (kind == Double && exactly(number, &n))
        return n;
    return fallback;
}

Reader::Reader(const char* begin, const char* end) : m_at(begin), m_end(end) {}

bool Reader::fail()
{
    m_failed = true;
    m_at = m_end;
    return false;
}

void Reader::skipSpace()
{
    while (m_at < m_end && (*m_at == ' ' || *m_at == '\n' || *m_at == '\r' || *m_at == '\t'))
        ++m_at;
}

bool Reader::atEnd()
{
    skipSpace();
    return !m_failed && m_at == m_end;
}

bool Reader::literal(std::string_view word)
{
    if (size_t(m_end - m_at) < word.size() || std::memcmp(m_at, word.data(), word.size()) != 0)
        return fail();
    m_at += word.size();
    return true;
}

bool Reader::beginObject()
{
    skipSpace();
    if (m_failed || m_at == m_end || *m_at != '{' || m_started.size() >= kMaxDepth)
        return fail();
    ++m_at;
    m_started.push_back(false);
    return true;
}

bool Reader::beginArray()
{
    skipSpace();
    if (m_failed || m_at == m_end || *m_at != '[' || m_started.size() >= kMaxDepth)
        return fail();
    ++m_at;
    m_started.push_back(false);
    return true;
}

// At a container's close or before its next item: false at the close.
bool Reader::leaveContainer(char close)
{
    skipSpace();
    if (m_failed || m_at == m_end || m_started.empty())
        return fail();
    if (*m_at == close) {
        ++m_at;
        m_started.pop_back();
        return false;
    }
    if (m_started.back()) {
        if (*m_at != ',')
            return fail();
        ++m_at;
        skipSpace();
    }
    m_started.back() = true;
    return true;
}

bool Reader::nextMember(std::string* key)
{
    if (!leaveContainer('}'))
        return false;
    bool ascii;
    if (m_at == m_end || *m_at != '"' || !readStringBytes(key, &ascii))
        return fail();
    skipSpace();
    if (m_at == m_end || *m_at != ':')
        return fail();
    ++m_at;
    return true;
}

bool Reader::nextElement() { return leaveContainer(']'); }

Scalar::Kind Reader::peek()
{
    skipSpace();
    if (m_at == m_end)
        return Scalar::Null;
    switch (*m_at) {
    case '{':
        return Scalar::Object;
    case '[':
        return Scalar::Array;
    case '"':
        return Scalar::String;
    case 't':
    case 'f':
        return Scalar::Bool;
    case 'n':
        return Scalar::Null;
    default:
        return Scalar::Integer;
    }
}

bool Reader::readStringBytes(std::string* utf8, bool* ascii)
{
    utf8->clear();
    *ascii = true;
    if (m_at == m_end || *m_at != '"')
        return fail();
    ++m_at;
    for (;;) {
        // Runs of plain characters are copied at once.
        const char* run = m_at;
        while (m_at < m_end && static_cast<unsigned char>(*m_at) >= 0x20 && static_cast<unsigned char>(*m_at) < 0x80 &&
               *m_at != '"' && *m_at != '\\')
            ++m_at;
        utf8->append(run, size_t(m_at - run));
        if (m_at == m_end)
            return fail();
        const unsigned char c = static_cast<unsigned char>(*m_at);
        if (c == '"') {
            ++m_at;
            return true;
        }
        if (c < 0x20)
            return fail();
        if (c >= 0x80) {
            const int n = utf8Sequence(reinterpret_cast<const unsigned char*>(m_at),
                                       reinterpret_cast<const unsigned char*>(m_end));
            if (n == 0)
                return fail();
            utf8->append(m_at, size_t(n));
            m_at += n;
            *ascii = false;
            continue;
        }
        // An escape.
        if (m_end - m_at < 2)
            return fail();
        const char e = m_at[1];
        m_at += 2;
        switch (e) {
        case '"':
        case '\\':
        case '/':
            utf8->push_back(e);
            break;
        case 'b':
            utf8->push_back('\b');
            break;
        case 'f':
            utf8->push_back('\f');
            break;
        case 'n':
            utf8->push_back('\n');
            break;
        case 'r':
            utf8->push_back('\r');
            break;
        case 't':
            utf8->push_back('\t');
            break;
        case 'u': {
            if (m_end - m_at < 4)
                return fail();
            unsigned int u = 0;
            for (int i = 0; i < 4; ++i) {
                const int h = hexValue(m_at[i]);
                if (h < 0)
                    return fail();
                u = (u << 4) | unsigned(h);
            }
            m_at += 4;
            // Surrogates, paired or not, are left to the fallback.
            if ((u >= 0xD800 && u <= 0xDFFF) || isNonCharacter(u))
                return fail();
            appendUtf8(utf8, u);
            if (u >= 0x80)
                *ascii = false;
            break;
        }
        default:
            return fail();
        }
    }
}

bool Reader::readString(QString* text)
{
    skipSpace();
    bool ascii;
    if (!readStringBytes(&m_scratch, &ascii))
        return false;
    *text = ascii ? QString::fromLatin1(m_scratch.data(), qsizetype(m_scratch.size()))
                  : QString::fromUtf8(m_scratch.data(), qsizetype(m_scratch.size()));
    return true;
}

bool Reader::readNumber(Scalar* value)
{
    // The strict grammar; anything looser goes to the fallback.
    const char* start = m_at;
    const char* p = m_at;
    auto digits = [&] {
        const char* from = p;
        while (p < m_end && *p >= '0' && *p <= '9')
            ++p;
        return p > from;
    };
    if (p < m_end && *p == '-')
        ++p;
    if (p < m_end && *p == '0')
        ++p;
    else if (!digits())
        return fail();
    bool isInteger = true;
    if (p < m_end && *p == '.') {
        ++p;
        isInteger = false;
        if (!digits())
            return fail();
    }
    if (p < m_end && (*p == 'e' || *p == 'E')) {
        ++p;
        isInteger = false;
        if (p < m_end && (*p == '+' || *p == '-'))
            ++p;
        if (!digits())
            return fail();
    }
    m_at = p;
    if (isInteger) {
        qint64 n = 0;
        const auto [end, error] = std::from_chars(start, p, n);
        if (error == std::errc() && end == p) {
            value->kind = Scalar::Integer;
            value->integer = n;
            return true;
        }
    }
    double d = 0;
    const auto [end, error] = std::from_chars(start, p, d);
    if (error != std::errc() || end != p || !std::isfinite(d))
        return fail();
    value->kind = Scalar::Double;
    value->number = d;
    return true;
}

bool Reader::readScalar(Scalar* value)
{
    *value = Scalar();
    switch (peek()) {
    case Scalar::Object:
        value->kind = Scalar::Object;
        return skipValue();
    case Scalar::Array:
        value->kind = Scalar::Array;
        return skipValue();
    case Scalar::String:
        value->kind = Scalar::String;
        return readString(&value->text);
    case Scalar::Bool:
        value->kind = Scalar::Bool;
        value->boolean = *m_at == 't';
        return literal(value->boolean ? "true" : "false");
    case Scalar::Null:
        return literal("null");
    default:
        return readNumber(value);
    }
}

bool Reader::skipValue()
{
    switch (peek()) {
    case Scalar::Object: {
        if (!beginObject())
            return false;
        std::string key;
        while (nextMember(&key))
            if (!skipValue())
                return false;
        return !m_failed;
    }
    case Scalar::Array:
        if (!beginArray())
            return false;
        while (nextElement())
            if (!skipValue())
                return false;
        return !m_failed;
    default: {
        Scalar ignored;
        return readScalar(&ignored);
    }
    }
}

} // namespace QVlorJson
