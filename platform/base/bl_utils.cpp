#include "blutils.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {
char* copyOut(const std::string& s, char* out, int size)
{
    if (!out || size <= 0 || s.size() + 1 > size_t(size))
        return nullptr;
    std::memcpy(out, s.c_str(), s.size() + 1);
    return out;
}

std::string stripSlash(std::string s)
{
    while (s.size() > 1 && s.back() == '/')
        s.pop_back();
    return s;
}
} // namespace

extern "C" char* BLUTILS_GetDataDir(char* out, int size)
{
    const char* env = std::getenv("VLOR_DATA_PATH");
    if (env && *env)
        return copyOut(stripSlash(env), out, size);
    const char* xdg = std::getenv("XDG_DATA_HOME");
    std::string base;
    if (xdg && *xdg == '/') {
        base = xdg;
    } else {
        const char* home = std::getenv("HOME");
        base = std::string(home && *home ? home : "/tmp") + "/.local/share";
    }
    return copyOut(stripSlash(base) + "/vloraudio", out, size);
}

extern "C" char* BLUTILS_GetExecutableDir(char* out, int size)
{
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        return nullptr;
    buf[n] = '\0';
    std::string s(buf);
    const size_t slash = s.rfind('/');
    return copyOut(slash == 0 ? "/" : s.substr(0, slash), out, size);
}

extern "C" char* BLUTILS_GetHelpersDir(char* out, int size)
{
    const char* env = std::getenv("VLOR_HELPERS_PATH");
    if (env && *env)
        return copyOut(stripSlash(env), out, size);
    return BLUTILS_GetExecutableDir(out, size);
}

extern "C" char* BLUTILS_GetResourceDir(char* out, int size)
{
    char exe[4096];
    if (!BLUTILS_GetExecutableDir(exe, sizeof(exe)))
        return nullptr;
    return copyOut(std::string(exe) + "/../share/vloraudio", out, size);
}

extern "C" int BLENV_GetEnvValue(const char* name, char* out, int size)
{
    if (out && size > 0)
        out[0] = '\0';
    const char* v = name ? std::getenv(name) : nullptr;
    if (!v)
        return 0;
    if (out && size > 0)
        std::snprintf(out, size_t(size), "%s", v);
    return 1;
}

// Descriptors and catalogs are always kept: a process of the application
// that finds no "VLOR_DATA_PATH" gets the data folder there.
__attribute__((constructor)) static void setDataPathOnLoad()
{
    if (std::getenv("VLOR_DATA_PATH"))
        return;
    char dir[4096];
    if (BLUTILS_GetDataDir(dir, sizeof(dir)))
        setenv("VLOR_DATA_PATH", dir, 0);
}
