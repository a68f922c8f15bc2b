#ifndef HOSTREPLY_P_H
#define HOSTREPLY_P_H
// What a host program's child answers: one JSON line on the descriptor
// HostChildTakeStdout kept, after whatever the plugin printed elsewhere.

#include "hostchild_p.h"
#include "utf8_p.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

// The descriptor replies go to; -1 until the child has taken it.
inline int& HostReplyFd()
{
    static int fd = -1;
    return fd;
}

// What a check child does first: it dies with its parent, and standard output
// becomes the reply's alone (run by hand, with no plugin log named, standard
// error stays for whoever runs it). 0, or the exit status when it cannot.
inline int HostReplyBegin()
{
    if (!HostChildDieWithParent())
        return 1;
    HostReplyFd() = HostChildTakeStdout(std::getenv("VLOR_PLUGIN_LOG") == nullptr);
    return HostReplyFd() < 0 ? 3 : 0;
}

// A JSON string of text; bytes that are not UTF-8 become the replacement
// character, as a reply must be UTF-8 to be read at all.
inline std::string HostJsonString(const char* text)
{
    std::string out = "\"";
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        switch (*p) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (*p < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", *p);
                out += buf;
            } else if (const int n = Utf8SequenceLength(p)) {
                out.append(reinterpret_cast<const char*>(p), size_t(n));
                p += n - 1;
            } else {
                out += UTF8_REPLACEMENT;
            }
        }
    }
    return out + "\"";
}

// A line before the reply, for a parent that follows a long job as it goes.
inline void HostReplyLine(const std::string& object)
{
    const std::string line = "\n" + object + "\n";
    for (size_t done = 0; done < line.size();) {
        const ssize_t n = write(HostReplyFd(), line.data() + done, line.size() - done);
        if (n < 0)
            break;
        done += size_t(n);
    }
}

// The reply is the last line of our output, and nothing follows it.
inline void HostReply(const std::string& object)
{
    const std::string line = "\n" + object + "\n";
    const char* p = line.data();
    size_t left = line.size();
    while (left > 0) {
        const ssize_t n = write(HostReplyFd(), p, left);
        if (n < 0)
            break;
        p += n;
        left -= size_t(n);
    }
    close(HostReplyFd());
    HostReplyFd() = -1;
}

inline int HostFail(const std::string& error)
{
    HostReply("{\"ok\":false,\"error\":" + HostJsonString(error.c_str()) + "}");
    return 1;
}

#endif
