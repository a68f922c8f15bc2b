#include "blio.h"

#include <cerrno>
#include <string>
#include <sys/stat.h>

extern "C" int BLIO_Exists(const char* path)
{
    struct stat st;
    return path && *path && stat(path, &st) == 0 ? 1 : 0;
}

extern "C" int64_t BLIO_GetFileTimeStamp(const char* path, int kind)
{
    struct stat st;
    if (!path || stat(path, &st) != 0)
        return 0;
    const timespec& t = kind == 0 ? st.st_ctim : kind == 1 ? st.st_atim : st.st_mtim;
    return int64_t(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

extern "C" FILE* BLIO_Open(const char* path, const char* mode)
{
    if (!path || !*path || !mode)
        return nullptr;
    return std::fopen(path, mode);
}

extern "C" int BLIO_Close(FILE* file) { return file && std::fclose(file) == 0 ? 1 : 0; }

extern "C" int BLIO_MakeDirs(const char* path)
{
    if (!path || !*path)
        return 0;
    std::string p(path);
    for (size_t i = 1; i <= p.size(); ++i) {
        if (i == p.size() || p[i] == '/') {
            const std::string part = p.substr(0, i);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
                return 0;
        }
    }
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? 1 : 0;
}

#include "blioutils.h"

extern "C" int BLIOUTILS_MakeDirectory(const char* path) { return BLIO_MakeDirs(path); }

#include <cstring>
#include <vector>

namespace {
std::string cleanPath(const char* path)
{
    std::vector<std::string> parts;
    const bool absolute = path[0] == '/';
    std::string cur;
    for (const char* p = path;; ++p) {
        if (*p == '/' || *p == '\0') {
            if (cur == "..") {
                if (!parts.empty() && parts.back() != "..")
                    parts.pop_back();
                else if (!absolute)
                    parts.push_back(cur);
            } else if (!cur.empty() && cur != ".") {
                parts.push_back(cur);
            }
            cur.clear();
            if (*p == '\0')
                break;
        } else {
            cur += *p;
        }
    }
    std::string out = absolute ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i)
        out += (i ? "/" : "") + parts[i];
    return out;
}
} // namespace

extern "C" int BLIOUTILS_ComparePath(const char* a, const char* b)
{
    if (!a || !b)
        return a == b ? 0 : (a ? 1 : -1);
    return std::strcmp(cleanPath(a).c_str(), cleanPath(b).c_str());
}
