// Only what a signal handler may do: the record and the path are plain
// bytes set before any plugin runs, and the file is written with open,
// write and close.
#include "fxblame_p.h"
#include "fxisolation.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

thread_local const char* t_record = nullptr;
char g_path[4096];
std::atomic<bool> g_installed{false};
const int kFatal[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
struct sigaction g_previous[sizeof(kFatal) / sizeof(kFatal[0])];

void onFatal(int sig, siginfo_t*, void*)
{
    const char* record = t_record;
    if (record && g_path[0]) {
        const int fd = open(g_path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ssize_t ignored = write(fd, record, strlen(record));
            (void)ignored;
            close(fd);
        }
    }
    // What was there before takes the signal, sent again: a fault, an abort
    // and a raise alike end as they would have without us.
    for (size_t k = 0; k < sizeof(kFatal) / sizeof(kFatal[0]); ++k)
        if (kFatal[k] == sig)
            sigaction(sig, &g_previous[k], nullptr);
    raise(sig);
}

void install()
{
    if (g_installed.exchange(true))
        return;
    struct sigaction action {};
    action.sa_sigaction = onFatal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (size_t k = 0; k < sizeof(kFatal) / sizeof(kFatal[0]); ++k)
        sigaction(kFatal[k], &action, &g_previous[k]);
}

} // namespace

namespace vlorfx {

InPlugin::InPlugin(const char* record) : m_outer(t_record) { t_record = record; }
InPlugin::~InPlugin() { t_record = m_outer; }

} // namespace vlorfx

extern "C" void VLORFX_SetCrashRecordPath(const char* path)
{
    const size_t n = path ? strnlen(path, sizeof(g_path) - 1) : 0;
    // Written while no plugin runs: the editor names it once, at its start.
    memcpy(g_path, path ? path : "", n);
    g_path[n] = '\0';
    if (n > 0)
        install();
}
