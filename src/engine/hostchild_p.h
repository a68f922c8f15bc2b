#ifndef HOSTCHILD_P_H
#define HOSTCHILD_P_H
// What both host programs do before a plugin is loaded.

#include <csignal>
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

// Standard output becomes ours alone: the plugin's prints go to /dev/null, and
// so does its standard error unless keepStderr. The descriptor our replies go
// to, or -1.
inline int HostChildTakeStdout(bool keepStderr)
{
    const int out = dup(STDOUT_FILENO);
    const int devnull = open("/dev/null", O_WRONLY);
    if (out < 0 || devnull < 0 || dup2(devnull, STDOUT_FILENO) < 0)
        return -1;
    if (!keepStderr)
        dup2(devnull, STDERR_FILENO);
    close(devnull);
    fcntl(out, F_SETFD, FD_CLOEXEC);
    return out;
}

#endif
