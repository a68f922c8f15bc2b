#ifndef QVLORCHECKVERDICT_P_H
#define QVLORCHECKVERDICT_P_H
// Failures of a check that are no verdict on the plugin: it is checked again.

#include <QString>

#include <csignal>

// Whether a check's failure is the user's skip: such a plugin is checked
// again at the next rescan.
inline bool IsSkippedByUser(const QString& reason) { return reason.startsWith(QLatin1String("skipped by the user")); }

// Signals a plugin does not raise by crashing (its faults are SIGSEGV,
// SIGBUS, SIGILL, SIGFPE, its abort() SIGABRT): someone ended the check.
inline bool IsSignalFromOutside(int signal)
{
    return signal == SIGKILL || signal == SIGTERM || signal == SIGINT || signal == SIGHUP || signal == SIGQUIT;
}

// Whether a check's failure is no verdict on the plugin: its child was killed
// from outside (not by our timeout). Such a plugin is checked again at the
// next scan.
inline bool IsEndedFromOutside(const QString& reason)
{
    return reason.startsWith(QLatin1String("the check was ended from outside"));
}

#endif
