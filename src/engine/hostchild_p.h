#ifndef HOSTCHILD_P_H
#define HOSTCHILD_P_H
// What both host programs do before a plugin is loaded.

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

// The host never outlives the editor that started it; false when the editor
// is gone already.
inline bool HostChildDieWithParent()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == 1)
        return false;
    signal(SIGPIPE, SIG_IGN);
    return true;
}

// Where what plugins print goes: the file that "VLOR_PLUGIN_LOG" names (the
// library names one in its data folder), standard error for "-" (whoever
// asked to see it), nowhere without it.
inline int HostChildOpenPluginLog()
{
    const char* log = std::getenv("VLOR_PLUGIN_LOG");
    if (log && !std::strcmp(log, "-"))
        return dup(STDERR_FILENO);
    const int fd = log && *log ? open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
    return fd >= 0 ? fd : open("/dev/null", O_WRONLY | O_CLOEXEC);
}

// Standard output becomes ours alone: the plugin's prints go to the plugin
// log, and so does its standard error unless keepStderr. The descriptor our
// replies go to, or -1.
inline int HostChildTakeStdout(bool keepStderr)
{
    const int out = dup(STDOUT_FILENO);
    const int sink = HostChildOpenPluginLog();
    if (out < 0 || sink < 0 || dup2(sink, STDOUT_FILENO) < 0)
        return -1;
    if (!keepStderr)
        dup2(sink, STDERR_FILENO);
    close(sink);
    fcntl(out, F_SETFD, FD_CLOEXEC);
    return out;
}

#endif
