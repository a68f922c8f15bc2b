#include "QVlorVst3_Probe.h"
#include "QVlorVst3_Probe_p.h"

#include "QVlorCheckVerdict_p.h"
#include "QVlorPluginFormat.h"
#include "QVlorHostProgram_p.h"

#include "QVlorVst3_Catalog.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QProcess>

#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace QVlorVst3 {

const char* const K_SETTING_PROBE_TIMEOUT_S = QVlorAudioPlugins::kVst3Format.checkTimeoutSettingKey;

QStringList ProbeArguments(const QString& bundle) { return {QStringLiteral("--probe"), bundle}; }

QStringList VerifyArguments(const QString& bundle, const QString& cid)
{
    return {QStringLiteral("--verify"), bundle, QStringLiteral("--cid"), cid};
}

bool ProbeBundle(const QString& bundle, int timeoutMs, QJsonObject* reply, QString* error)
{
    QString program;
    QStringList arguments;
    QVlorHostProgram::Vst3(&program, &arguments);
    return __RunHostProcess(program, arguments + ProbeArguments(bundle), timeoutMs, reply, error);
}

bool VerifyClass(const QString& bundle, const QString& cid, int timeoutMs, QString* error)
{
    QString program;
    QStringList arguments;
    QVlorHostProgram::Vst3(&program, &arguments);
    QJsonObject reply;
    return __RunHostProcess(program, arguments + VerifyArguments(bundle, cid), timeoutMs, &reply, error);
}

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

QList<CatalogClass> ReplyClasses(const QJsonObject& reply, QSet<QString>* taken)
{
    QList<CatalogClass> classes;
    for (const QJsonValue& v : reply.value(QStringLiteral("classes")).toArray()) {
        const QJsonObject o = v.toObject();
        const QString subCategories = o.value(QStringLiteral("subCategories")).toString();
        // The system hosts effects; an instrument that is also an effect stays.
        if (subCategories.contains(QLatin1String("Instrument")) && !subCategories.contains(QLatin1String("Fx")))
            continue;
        const QString cid = o.value(QStringLiteral("cid")).toString();
        // A class is known by its ID alone: one that is not 32 hexadecimal digits could never be found again.
        static const QRegularExpression kCid(QStringLiteral("^[0-9A-F]{32}$"));
        if (!kCid.match(cid).hasMatch() || taken->contains(cid))
            continue;
        taken->insert(cid);
        CatalogClass c(cid, o.value(QStringLiteral("name")).toString(), o.value(QStringLiteral("vendor")).toString(),
                       subCategories, o.value(QStringLiteral("version")).toString());
        c.setState(CatalogClass::New);
        c.setEnabled(false);
        classes.append(c);
    }
    return classes;
}

} // namespace QVlorVst3

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
    const bool parsed = QVlorVst3::ParseHostReply(process.readAllStandardOutput(), &object);
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

bool __IsUnderScannedRoot(const QString& path, const QStringList& roots)
{
    const QString cleaned = QDir::cleanPath(path);
    for (const QString& root : roots) {
        const QString r = QDir::cleanPath(root);
        if (cleaned == r || cleaned.startsWith(r + QLatin1Char('/')))
            return true;
    }
    return false;
}
