#ifndef VLOR_HOSTPROGRAM_P_H
#define VLOR_HOSTPROGRAM_P_H
// The one rule by which a host program (vlorvst, vlorvst3) is usable: a
// regular file, or a link to one, that this process may execute. A folder
// or a plain data file of that name is no host.

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#ifndef VLOR_LIB_TO_HOSTS
#define VLOR_LIB_TO_HOSTS "../libexec/qtvloraudioplugins"
#endif

inline bool HostProgramUsable(const char* path)
{
    struct stat st;
    return path && *path && ::stat(path, &st) == 0 && S_ISREG(st.st_mode) && ::access(path, X_OK) == 0;
}

// Where an installed library keeps its host programs: a folder found from
// the library's own file (dladdr), not a path fixed at the build, so that a
// prefix can move. Empty where there is no such folder, as in the build tree,
// whose binaries sit beside the programs that use them. Of internal linkage,
// so that its anchor lies in the very file (library or program) that asks.
static inline std::string HostProgramsBesideLibrary()
{
    static const char anchor = 0;
    static const std::string folder = [] {
        Dl_info info{};
        if (!::dladdr(&anchor, &info) || !info.dli_fname)
            return std::string();
        const std::string library = info.dli_fname;
        const size_t slash = library.rfind('/');
        if (slash == std::string::npos)
            return std::string();
        const std::string candidate = library.substr(0, slash) + "/" VLOR_LIB_TO_HOSTS;
        struct stat st;
        return ::stat(candidate.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? candidate : std::string();
    }();
    return folder;
}

#endif
