#ifndef BLSAVETARGET_H
#define BLSAVETARGET_H
// Where a file of ours may be written. A save replaces its file by renaming a
// new one over it, which would replace whatever stands there: a device node
// or a pipe that a link points to included. Only a regular file, or nothing,
// is ever replaced.

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// True when path may be saved, with *target the file to replace: path itself,
// or for a link the file at its end, so that the link stays. False, with the
// reason in *why, for a folder, a device, a pipe, a socket, or a link to one.
inline bool SaveTarget(const std::string& path, std::string* target, std::string* why, int depth = 0)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) {
        if (errno == ENOENT) {
            *target = path;
            return true;
        }
        *why = std::strerror(errno);
        return false;
    }
    if (S_ISREG(st.st_mode)) {
        *target = path;
        return true;
    }
    if (S_ISLNK(st.st_mode) && depth < 16) {
        char link[PATH_MAX];
        const ssize_t n = readlink(path.c_str(), link, sizeof(link) - 1);
        if (n < 0) {
            *why = std::strerror(errno);
            return false;
        }
        link[n] = '\0';
        std::string next = link;
        if (next.empty() || next[0] != '/') {
            const size_t slash = path.rfind('/');
            next = (slash == std::string::npos ? std::string(".") : path.substr(0, slash)) + "/" + next;
        }
        return SaveTarget(next, target, why, depth + 1);
    }
    *why = S_ISDIR(st.st_mode)    ? "a folder stands in its place"
           : S_ISLNK(st.st_mode)  ? "too many links"
           : S_ISFIFO(st.st_mode) ? "a pipe stands in its place"
           : S_ISSOCK(st.st_mode) ? "a socket stands in its place"
                                  : "a device stands in its place";
    return false;
}

#endif
