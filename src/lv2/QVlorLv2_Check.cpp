#include "QVlorLv2_Check.h"

#include "QVlorHostProgram_p.h"

namespace QVlorLv2 {

namespace {

// The runner's words, which name the VST3 probe, said of a check.
QString checkWords(const QString& error)
{
    if (error == QLatin1String("probe crashed"))
        return QStringLiteral("the plugin crashed during its check");
    if (error == QLatin1String("probe timeout"))
        return QStringLiteral("the check did not end in time");
    if (error == QLatin1String("probe produced no parseable output"))
        return QStringLiteral("the check gave no answer");
    if (error.startsWith(QLatin1String("probe exited with code ")))
        return QStringLiteral("the check ended with code ") + error.mid(23);
    return error;
}

bool run(const QStringList& job, int timeoutMs, QJsonObject* reply, QString* error)
{
    QString program;
    QStringList arguments;
    QVlorHostProgram::Lv2(&program, &arguments);
    const bool ok = __RunHostProcess(program, arguments + job, timeoutMs, reply, error);
    if (!ok && error)
        *error = checkWords(*error);
    return ok;
}

} // namespace

bool CheckPlugin(const QString& uri, int timeoutMs, QJsonObject* reply, QString* error)
{
    return run({QStringLiteral("--check"), uri}, timeoutMs, reply, error);
}

bool ListPlugins(int timeoutMs, QJsonObject* reply, QString* error)
{
    return run({QStringLiteral("--list")}, timeoutMs, reply, error);
}

} // namespace QVlorLv2
