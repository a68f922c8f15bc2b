#ifndef VLOR_HOSTPROGRAM_P_H
#define VLOR_HOSTPROGRAM_P_H
// The one rule by which a host program (vlorvst, vlorvst3) is usable: a
// regular file, or a link to one, that this process may execute. A folder
// or a plain data file of that name is no host.

#include <sys/stat.h>
#include <unistd.h>

inline bool HostProgramUsable(const char* path)
{
    struct stat st;
    return path && *path && ::stat(path, &st) == 0 && S_ISREG(st.st_mode) && ::access(path, X_OK) == 0;
}

#endif
