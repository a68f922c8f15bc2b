// A bundle's check, read line by line as the child writes it: each plugin's
// "checking" line starts its clock, its report ends it.
#include "QVlorLv2_BundleCheck.h"

#include "QVlorHostProgram_p.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>

#include <csignal>
#include <unistd.h>

namespace QVlorLv2 {

namespace {

constexpr int kSliceMs = 50;

enum class Ending { Done, Crashed, Hung, Stopped, Unreadable };

struct ChildRun {
    QString checking;    // the plugin the child was checking when it ended, if any
    QJsonObject record;  // what its metadata says of it
    Ending ending = Ending::Unreadable;
};

void endChild(QProcess* process)
{
    if (process->processId() > 0)
        ::kill(pid_t(-process->processId()), SIGKILL);
    process->kill();
    process->waitForFinished(2000);
}

// Takes what the child wrote: reports into *check; false at its last line.
bool takeLines(QProcess* process, ChildRun* run, BundleCheck* check, QElapsedTimer* clock,
               const std::function<void(const QString&)>& onChecking)
{
    while (process->canReadLine()) {
        const QJsonObject o = QJsonDocument::fromJson(process->readLine().trimmed()).object();
        if (o.contains(QStringLiteral("checking"))) {
            run->checking = o.value(QStringLiteral("checking")).toString();
            run->record = o.value(QStringLiteral("record")).toObject();
            clock->restart();
            if (onChecking)
                onChecking(run->checking);
        } else if (o.contains(QStringLiteral("plugin"))) {
            check->reports.append(o.value(QStringLiteral("plugin")).toObject());
            run->checking.clear();
            clock->restart();
        } else if (o.contains(QStringLiteral("ok"))) {
            run->ending = o.value(QStringLiteral("ok")).toBool() ? Ending::Done : Ending::Unreadable;
            if (run->ending == Ending::Unreadable)
                check->error = o.value(QStringLiteral("error")).toString();
            return false;
        }
    }
    return true;
}

// One child from the plugin after `after` (all, when empty), or of `only`.
ChildRun runChild(const QString& path, const QString& after, const QString& only, int perPluginMs,
                  const QAtomicInt* stop, BundleCheck* check, const std::function<void(const QString&)>& onChecking)
{
    QString program;
    QStringList arguments;
    QVlorHostProgram::Lv2(&program, &arguments);
    arguments << QStringLiteral("--check-bundle") << path;
    if (!after.isEmpty())
        arguments << QStringLiteral("--after") << after;
    if (!only.isEmpty())
        arguments << QStringLiteral("--only") << only;
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardErrorFile(QProcess::nullDevice());
    // Its own process group, which ends with it: what a plugin forks goes too.
    process.setChildProcessModifier([] { setpgid(0, 0); });
    process.start(QIODevice::ReadOnly);
    ChildRun run;
    QElapsedTimer clock;
    clock.start();
    for (bool going = true; going;) {
        if (stop && stop->loadAcquire() != 0) {
            endChild(&process);
            run.ending = Ending::Stopped;
            return run;
        }
        const bool running = process.state() != QProcess::NotRunning;
        if (running)
            process.waitForReadyRead(kSliceMs);
        going = takeLines(&process, &run, check, &clock, onChecking) && running;
        if (going && clock.elapsed() > perPluginMs) {
            endChild(&process);
            run.ending = Ending::Hung;
            return run;
        }
    }
    // Its last line said how it went; without one, it died on the way.
    if (run.ending == Ending::Done)
        process.waitForFinished(2000);
    else if (check->error.isEmpty())
        run.ending = Ending::Crashed;
    return run;
}

} // namespace

BundleCheck CheckBundle(const QString& path, int perPluginMs, const QAtomicInt* stop,
                        const std::function<void(const QString&)>& onChecking, const QString& only)
{
    BundleCheck check;
    QString after;
    // Each round goes on after the plugin that ended the one before; the
    // URIs only grow, so the rounds end.
    for (;;) {
        const ChildRun run = runChild(path, after, only, perPluginMs, stop, &check, onChecking);
        if (run.ending == Ending::Done)
            return check;
        if (run.ending == Ending::Stopped) {
            check.stopped = true;
            return check;
        }
        if (run.checking.isEmpty()) {
            if (check.error.isEmpty())
                check.error = run.ending == Ending::Hung ? QStringLiteral("the bundle's check did not end in time")
                                                         : QStringLiteral("the bundle's check ended without an answer");
            return check;
        }
        check.error.clear();
        QJsonObject culprit = run.record;
        culprit.insert(QStringLiteral("uri"), run.checking);
        culprit.insert(QStringLiteral("ok"), false);
        if (run.ending == Ending::Hung) {
            culprit.insert(QStringLiteral("error"),
                           QStringLiteral("its check did not end within %1 s").arg((perPluginMs + 999) / 1000));
        } else {
            culprit.insert(QStringLiteral("crashed"), true);
            culprit.insert(QStringLiteral("error"), QStringLiteral("the plugin crashed during its check"));
        }
        check.reports.append(culprit);
        if (!only.isEmpty())
            return check;
        after = run.checking;
    }
}

} // namespace QVlorLv2
