#include "blstring.h"

#include <cctype>
#include <cstdint>
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

namespace {

// Finds key in a key=value list; the raw value (quotes and brackets kept) in *value.
bool findItem(const char* list, const char* key, std::string* value)
{
    if (!list || !key || !*key)
        return false;
    const size_t keyLen = std::strlen(key);
    const char* p = list;
    while (*p) {
        while (*p == ',' || std::isspace(static_cast<unsigned char>(*p)))
            ++p;
        const char* start = p;
        bool quoted = false;
        int depth = 0;
        for (; *p; ++p) {
            if (quoted) {
                if (*p == '\\' && p[1])
                    ++p;
                else if (*p == '"')
                    quoted = false;
            } else if (*p == '"') {
                quoted = true;
            } else if (*p == '[') {
                ++depth;
            } else if (*p == ']' && depth > 0) {
                --depth;
            } else if (*p == ',' && depth == 0) {
                break;
            }
        }
        std::string item(start, size_t(p - start));
        const size_t eq = item.find('=');
        if (eq != std::string::npos) {
            std::string name = item.substr(0, eq);
            while (!name.empty() && std::isspace(static_cast<unsigned char>(name.back())))
                name.pop_back();
            if (name.size() == keyLen && name == key) {
                std::string v = item.substr(eq + 1);
                const size_t a = v.find_first_not_of(" \t");
                const size_t b = v.find_last_not_of(" \t");
                *value = a == std::string::npos ? std::string() : v.substr(a, b - a + 1);
                return true;
            }
        }
    }
    return false;
}

std::string unquote(const std::string& v)
{
    if (v.size() < 2 || v.front() != '"' || v.back() != '"')
        return v;
    std::string out;
    for (size_t i = 1; i + 1 < v.size(); ++i) {
        if (v[i] == '\\' && i + 2 < v.size() && (v[i + 1] == '"' || v[i + 1] == '\\'))
            ++i;
        out += v[i];
    }
    return out;
}

} // namespace

extern "C" int BLSTRING_GetStringValueFromString(const char* list, const char* key, const char* defaultValue,
                                                 char* buffer, int bufferSize)
{
    std::string v;
    const bool found = findItem(list, key, &v);
    const std::string text = found ? unquote(v) : (defaultValue ? defaultValue : "");
    if (buffer && bufferSize > 0)
        std::snprintf(buffer, size_t(bufferSize), "%s", text.c_str());
    return found && buffer && bufferSize > 0 && text.size() < size_t(bufferSize) ? 1 : 0;
}

extern "C" int BLSTRING_GetIntegerValueFromString(const char* list, const char* key, int defaultValue)
{
    std::string v;
    if (!findItem(list, key, &v))
        return defaultValue;
    v = unquote(v);
    char* end = nullptr;
    const long n = std::strtol(v.c_str(), &end, 10);
    return end != v.c_str() ? int(n) : defaultValue;
}

extern "C" int BLSTRING_GetBooleanValueFromString(const char* list, const char* key, int defaultValue)
{
    std::string v;
    if (!findItem(list, key, &v))
        return defaultValue;
    v = unquote(v);
    for (char& c : v)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (v == "1" || v == "true" || v == "yes" || v == "on")
        return 1;
    if (v == "0" || v == "false" || v == "no" || v == "off")
        return 0;
    return defaultValue;
}

extern "C" float BLSTRING_GetFloatValueFromString(const char* list, const char* key, float defaultValue)
{
    std::string v;
    if (!findItem(list, key, &v))
        return defaultValue;
    v = unquote(v);
    char* end = nullptr;
    const float f = std::strtof(v.c_str(), &end);
    return end != v.c_str() ? f : defaultValue;
}

extern "C" int BLSTRING_HasKeyInString(const char* list, const char* key)
{
    std::string v;
    return findItem(list, key, &v) ? 1 : 0;
}

extern "C" int BLSTRING_GetVectorSizeFromString(const char* text)
{
    if (!text)
        return 0;
    int count = 0;
    const char* p = text;
    for (;;) {
        while (*p && (std::isspace(static_cast<unsigned char>(*p)) || *p == '[' || *p == ']' || *p == ','))
            ++p;
        if (!*p)
            return count;
        char* end = nullptr;
        std::strtof(p, &end);
        if (end == p)
            return count;
        ++count;
        p = end;
    }
}

extern "C" int BLSTRING_FloatVectorToString(const float* values, int count, char* out, int size)
{
    if ((!values && count > 0) || count < 0 || !out || size <= 0)
        return -1;
    std::string s = "[";
    char num[32];
    for (int i = 0; i < count; ++i) {
        std::snprintf(num, sizeof(num), "%.9g", double(values[i]));
        s += (i ? "," : "") + std::string(num);
    }
    s += "]";
    if (s.size() + 1 > size_t(size))
        return -1;
    std::memcpy(out, s.c_str(), s.size() + 1);
    return int(s.size());
}

namespace {
const char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
int b64Value(unsigned char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}
} // namespace

extern "C" char* BLSTRING_ToBase64(const void* data, int length)
{
    if ((!data && length > 0) || length < 0)
        return nullptr;
    const unsigned char* p = static_cast<const unsigned char*>(data);
    const size_t outLen = (size_t(length) + 2) / 3 * 4;
    char* out = static_cast<char*>(std::malloc(outLen + 1));
    if (!out)
        return nullptr;
    size_t o = 0;
    for (int i = 0; i < length; i += 3) {
        const uint32_t b = uint32_t(p[i]) << 16 | (i + 1 < length ? uint32_t(p[i + 1]) << 8 : 0) |
                           (i + 2 < length ? uint32_t(p[i + 2]) : 0);
        out[o++] = kB64[(b >> 18) & 63];
        out[o++] = kB64[(b >> 12) & 63];
        out[o++] = i + 1 < length ? kB64[(b >> 6) & 63] : '=';
        out[o++] = i + 2 < length ? kB64[b & 63] : '=';
    }
    out[o] = '\0';
    return out;
}

extern "C" void* BLSTRING_FromBase64(const char* text, int* outputLength)
{
    if (!text)
        return nullptr;
    std::vector<unsigned char> out;
    uint32_t acc = 0;
    int bits = 0;
    bool ended = false;
    for (const char* p = text; *p; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (std::isspace(c))
            continue;
        if (c == '=') {
            ended = true;
            continue;
        }
        const int v = b64Value(c);
        if (v < 0 || ended)
            return nullptr;
        acc = (acc << 6) | uint32_t(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<unsigned char>((acc >> bits) & 0xff));
        }
    }
    void* buffer = std::malloc(out.size() ? out.size() : 1);
    if (!buffer)
        return nullptr;
    if (!out.empty())
        std::memcpy(buffer, out.data(), out.size());
    if (outputLength)
        *outputLength = int(out.size());
    return buffer;
}
