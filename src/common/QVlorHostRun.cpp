// Running a host program for one job and reading its one-line reply: the
// same for every format's host program.
#include "QVlorHostProgram_p.h"

#include "QVlorCheckVerdict_p.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>

#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace QVlorHostProgram {

bool ParseHostReply(const QByteArray& output, QJsonObject* reply)
{
    // The reply is the last line that is not blank; the plugin may have talked before it.
    int end = output.size();
    while (end > 0) {
        const int start = output.lastIndexOf('\n', end - 1) + 1;
        const QByteArray line = output.mid(start, end - start).trimmed();
        if (!line.isEmpty()) {
            // Bytes that are not UTF-8 are read as U+FFFD rather than losing
            // the whole reply, so a host of another build still gets through.
            const QJsonDocument doc = QJsonDocument::fromJson(QString::fromUtf8(line).toUtf8());
            if (!doc.isObject())
                return false;
            *reply = doc.object();
            return true;
        }
        end = start - 1;
    }
    return false;
}

} // namespace QVlorHostProgram

namespace {
constexpr int kQuitGraceMs = 2000;
constexpr int kQuitSliceMs = 50;
} // namespace

bool __RunHostProcess(const QString& program, const QStringList& arguments, int timeoutMs, QJsonObject* output,
                      QString* errorText, const QAtomicInt* quitting, const QAtomicInt* stop)
{
    auto fail = [errorText](const QString& text) {
        if (errorText)
            *errorText = text;
        return false;
    };
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    // The host leads a process group of its own, which ends with it: what a
    // plugin forks must not outlive the job.
    process.setChildProcessModifier([] { setpgid(0, 0); });
    process.start(QIODevice::ReadWrite);
    const qint64 group = process.processId();
    auto endGroup = [group] {
        if (group > 0)
            ::kill(pid_t(-group), SIGKILL);
    };
    // A start that failed shows up here too, as a wait that fails. While the
    // application quits, the child gets a short grace and no more.
    QElapsedTimer clock;
    clock.start();
    qint64 deadline = timeoutMs;
    bool finished = false;
    bool quit = false;
    int stopped = 0;
    const bool watched = quitting || stop;
    while (!finished && process.state() != QProcess::NotRunning) {
        if (stop && (stopped = stop->loadAcquire()) != 0)
            break;
        if (!quit && quitting && quitting->loadAcquire()) {
            quit = true;
            deadline = qMin(deadline, clock.elapsed() + kQuitGraceMs);
        }
        const qint64 left = deadline - clock.elapsed();
        if (left <= 0)
            break;
        finished = process.waitForFinished(int(qMin<qint64>(left, watched ? kQuitSliceMs : left)));
    }
    finished = finished || (process.state() == QProcess::NotRunning && process.error() != QProcess::FailedToStart);
    if (!finished && stopped != 0) {
        endGroup();
        process.kill();
        process.waitForFinished(2000);
        return fail(stopped == 1 ? QStringLiteral("skipped by the user (checked again at the next rescan)")
                                : QStringLiteral("cancelled"));
    }
    if (!finished) {
        if (quit) {
            endGroup();
            process.kill();
            process.waitForFinished(2000);
            return fail(QStringLiteral("cancelled"));
        }
        const bool hung = process.error() == QProcess::Timedout || process.state() != QProcess::NotRunning;
        endGroup();
        process.kill();
        process.waitForFinished(2000);
        // A host that hangs is named by what the user can act on.
        if (hung)
            return fail(QStringLiteral("did not answer within %1 s").arg((timeoutMs + 999) / 1000));
        return fail(QStringLiteral("probe timeout"));
    }
    endGroup();
    QJsonObject object;
    const bool parsed = QVlorHostProgram::ParseHostReply(process.readAllStandardOutput(), &object);
    const bool normalExit = process.exitStatus() == QProcess::NormalExit;
    // Killed by someone else (the user, the system short of memory): the
    // bundle has said nothing about itself, and is probed again.
    if (!normalExit && !parsed && IsSignalFromOutside(process.exitCode()))
        return fail(QStringLiteral("the check was ended from outside (signal %1; checked again at the next scan)")
                        .arg(process.exitCode()));
    if (!parsed) {
        if (normalExit && process.exitCode() == 0)
            return fail(QStringLiteral("probe produced no parseable output"));
        if (!normalExit)
            return fail(QStringLiteral("probe crashed"));
        return fail(QStringLiteral("probe exited with code %1").arg(process.exitCode()));
    }
    if (output)
        *output = object;
    if (normalExit && process.exitCode() == 0) {
        if (object.value(QStringLiteral("ok")).toBool(false))
            return true;
        return fail(object.value(QStringLiteral("error")).toString(QStringLiteral("probe reported failure")));
    }
    // A crash after the reply was written is a failure that keeps the reply's own text.
    return fail(object.value(QStringLiteral("error")).toString(QStringLiteral("probe process failed")));
}
