#include "QVlorVst3_Probe_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>

namespace QVlorVst3 {

const char* const K_SETTING_PROBE_TIMEOUT_S = "vloraudio.plugins.vst3_probe_timeout_s";

QStringList ProbeArguments(const QString& bundle) { return {QStringLiteral("--probe"), bundle}; }

QStringList VerifyArguments(const QString& bundle, const QString& cid)
{
    return {QStringLiteral("--verify"), bundle, QStringLiteral("--cid"), cid};
}

void DefaultHostProgram(QString* program, QStringList* arguments)
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/vlorvst3");
    if (QFileInfo(beside).isExecutable()) {
        *program = beside;
        arguments->clear();
    } else {
        *program = QCoreApplication::applicationFilePath();
        *arguments = {QStringLiteral("--vst3")};
    }
}

bool ParseHostReply(const QByteArray& output, QJsonObject* reply)
{
    // The reply is the last line that is not blank; the plugin may have talked before it.
    int end = output.size();
    while (end > 0) {
        const int start = output.lastIndexOf('\n', end - 1) + 1;
        const QByteArray line = output.mid(start, end - start).trimmed();
        if (!line.isEmpty()) {
            const QJsonDocument doc = QJsonDocument::fromJson(line);
            if (!doc.isObject())
                return false;
            *reply = doc.object();
            return true;
        }
        end = start - 1;
    }
    return false;
}

} // namespace QVlorVst3

bool __RunHostProcess(const QString& program, const QStringList& arguments, int timeoutMs, QJsonObject* output,
                      QString* errorText)
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
    process.start(QIODevice::ReadWrite);
    // A start that failed shows up here too, as a wait that fails.
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(2000);
        return fail(QStringLiteral("probe timeout"));
    }
    QJsonObject object;
    const bool parsed = QVlorVst3::ParseHostReply(process.readAllStandardOutput(), &object);
    const bool normalExit = process.exitStatus() == QProcess::NormalExit;
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
