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

#endif
