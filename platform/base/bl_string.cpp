#include "blstring.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <vector>

extern "C" char* BLSTRING_KeyToStr(const unsigned char* bytes, char* out, int n)
{
    if (!bytes || !out || n < 0)
        return nullptr;
    static const char digits[] = "0123456789abcdef";
    out[0] = '0';
    out[1] = 'x';
    for (int i = 0; i < n; ++i) {
        out[2 + 2 * i] = digits[bytes[i] >> 4];
        out[3 + 2 * i] = digits[bytes[i] & 15];
    }
    out[2 + 2 * n] = '\0';
    return out;
}

extern "C" int BLSTRING_CompareInsensitiveN(const char* a, const char* b, int n)
{
    if (!a || !b)
        return a == b ? 0 : (a ? 1 : -1);
    return n <= 0 ? 0 : strncasecmp(a, b, size_t(n));
}

extern "C" char* StripString(char* text)
{
    if (!text)
        return nullptr;
    size_t len = std::strlen(text);
    while (len > 0 && std::isspace(static_cast<unsigned char>(text[len - 1])))
        --len;
    text[len] = '\0';
    size_t start = 0;
    while (start < len && std::isspace(static_cast<unsigned char>(text[start])))
        ++start;
    if (start)
        std::memmove(text, text + start, len - start + 1);
    return text;
}

extern "C" char** BLSTRING_SplitCommandLine(const char* line)
{
    if (!line)
        return nullptr;
    std::vector<std::string> args;
    std::string cur;
    bool inWord = false;
    char quote = 0;
    for (const char* p = line; *p; ++p) {
        const char c = *p;
        if (quote == '"') {
            if (c == '\\' && (p[1] == '"' || p[1] == '\\'))
                cur += *++p;
            else if (c == '"')
                quote = 0;
            else
                cur += c;
        } else if (quote == '\'') {
            if (c == '\'')
                quote = 0;
            else
                cur += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
            inWord = true;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            if (inWord)
                args.push_back(cur);
            cur.clear();
            inWord = false;
        } else {
            cur += c;
            inWord = true;
        }
    }
    if (quote)
        return nullptr;
    if (inWord)
        args.push_back(cur);
    if (args.empty())
        return nullptr;

    // One block: the pointer table first, then the texts, so one free() releases it.
    size_t bytes = (args.size() + 1) * sizeof(char*);
    for (const auto& a : args)
        bytes += a.size() + 1;
    char** table = static_cast<char**>(std::malloc(bytes));
    if (!table)
        return nullptr;
    char* text = reinterpret_cast<char*>(table + args.size() + 1);
    for (size_t i = 0; i < args.size(); ++i) {
        table[i] = text;
        std::memcpy(text, args[i].c_str(), args[i].size() + 1);
        text += args[i].size() + 1;
    }
    table[args.size()] = nullptr;
    return table;
}

extern "C" int BLSTRING_GetFloatVectorValuesFromString(const char* text, float* values, int max)
{
    if (!text || !values || max <= 0)
        return 0;
    int count = 0;
    const char* p = text;
    while (*p && count < max) {
        while (*p && (std::isspace(static_cast<unsigned char>(*p)) || *p == '[' || *p == ']' || *p == ','))
            ++p;
        if (!*p)
            break;
        char* end = nullptr;
        const float v = std::strtof(p, &end);
        if (end == p)
            break;
        values[count++] = v;
        p = end;
    }
    return count;
}
