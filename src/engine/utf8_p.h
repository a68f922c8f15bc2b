#ifndef UTF8_P_H
#define UTF8_P_H
// Plugins report names in whatever encoding they were built with; what the
// engines write for others to parse (descriptors, replies) must be UTF-8.

// Length of the well-formed UTF-8 sequence at p (1 to 4), or 0 for a byte
// that starts none. Overlong forms and surrogates count as malformed; a
// sequence cut by the terminating NUL too.
inline int Utf8SequenceLength(const unsigned char* p)
{
    const unsigned char c = p[0];
    if (c < 0x80)
        return 1;
    auto cont = [p](int i) { return (p[i] & 0xC0) == 0x80; };
    if (c >= 0xC2 && c <= 0xDF)
        return cont(1) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        if (!cont(1) || !cont(2))
            return 0;
        if ((c == 0xE0 && p[1] < 0xA0) || (c == 0xED && p[1] >= 0xA0))
            return 0;
        return 3;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        if (!cont(1) || !cont(2) || !cont(3))
            return 0;
        if ((c == 0xF0 && p[1] < 0x90) || (c == 0xF4 && p[1] >= 0x90))
            return 0;
        return 4;
    }
    return 0;
}

// The replacement character, for a byte that starts no sequence.
#define UTF8_REPLACEMENT "\xEF\xBF\xBD"

#include <cstddef>
#include <cstdint>
#include <string>

// UTF-16 as plugins give it, up to max units or a NUL, as UTF-8; a surrogate
// without its pair becomes U+FFFD.
inline std::string Utf16ToUtf8(const char16_t* text, size_t max = size_t(-1))
{
    std::string out;
    for (size_t i = 0; text && i < max && text[i]; ++i) {
        uint32_t c = uint16_t(text[i]);
        const uint32_t next = i + 1 < max ? uint16_t(text[i + 1]) : 0;
        if (c >= 0xD800 && c < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

// UTF-8 as a NUL-terminated UTF-16 text of at most max units, the NUL
// included; a byte that starts no sequence becomes U+FFFD, what does not fit
// is cut, never half a surrogate pair.
inline void Utf8ToUtf16(const char* text, char16_t* out, size_t max)
{
    if (!out || max == 0)
        return;
    size_t n = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); p && *p && n + 1 < max;) {
        const int length = Utf8SequenceLength(p);
        if (length == 0) {
            out[n++] = 0xFFFD;
            ++p;
            continue;
        }
        uint32_t c = length == 1 ? p[0] : p[0] & (0x7F >> length);
        for (int k = 1; k < length; ++k)
            c = (c << 6) | (p[k] & 0x3F);
        p += length;
        if (c >= 0x10000) {
            if (n + 2 >= max)
                break;
            c -= 0x10000;
            out[n++] = char16_t(0xD800 + (c >> 10));
            out[n++] = char16_t(0xDC00 + (c & 0x3FF));
        } else {
            out[n++] = char16_t(c);
        }
    }
    out[n] = 0;
}

#endif
