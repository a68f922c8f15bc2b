#include "QVlorVst3_HostRuns_p.h"

#include "QVlorHostProgram_p.h"
#include "QVlorManagerCore_p.h"
#include "QVlorVst3_ModuleInfo.h"
#include "QVlorVst3_Probe_p.h"

#include <QDateTime>
#include <QDebug>
#include <QFileInfo>

namespace QVlorVst3 {

namespace {
QString JobKey(const QStringList& job) { return job.join(QChar(0x1f)); }
} // namespace

void HostRuns::setProgram(const QString& path, const QStringList& arguments)
{
    m_program = path;
    m_arguments = arguments;
}

void HostRuns::runAhead(const QStringList& job, const QString& label) const
{
    QString program = m_program;
    QStringList arguments = m_arguments;
    if (program.isEmpty())
        QVlorHostProgram::Vst3(&program, &arguments);
    const int seconds = TimeoutSecondsSetting(K_SETTING_PROBE_TIMEOUT_S);
    const QString key = JobKey(job);
    m_ahead.submit(key, label, [this, key, job, program, arguments, seconds](const QAtomicInt* stop) {
        qInfo().noquote() << "QVlorVst3::Manager: host run:" << job.join(QLatin1Char(' '));
        Outcome outcome;
        outcome.ok = __RunHostProcess(program, arguments + job, seconds * 1000, &outcome.reply, &outcome.error,
                                      &m_quitting, stop);
        QMutexLocker l(&m_outcomesLock);
        m_outcomes.insert(key, outcome);
    });
}

bool HostRuns::run(const QStringList& job, QJsonObject* reply, QString* errorText, const QString& label) const
{
    const QString key = JobKey(job);
    // After a cancel, the work that was under way starts nothing more.
    if (!m_cancelled())
        runAhead(job, label);
    const bool ran = m_ahead.take(key) && !m_cancelled();
    Outcome outcome;
    {
        QMutexLocker l(&m_outcomesLock);
        outcome = m_outcomes.take(key);
    }
    if (!ran)
        outcome.error = QStringLiteral("cancelled");
    if (reply)
        *reply = outcome.reply;
    if (errorText)
        *errorText = outcome.error;
    return ran && outcome.ok;
}

void HostRuns::ReadModuleInfo(CatalogBundle* bundle)
{
    QList<ModuleInfo::CompatEntry> compat;
    bundle->setModuleinfoFound(ModuleInfo::read(bundle->path(), nullptr, &compat, nullptr));
    bundle->compat().clear();
    for (const ModuleInfo::CompatEntry& e : compat)
        bundle->compat().append({e.newCid, e.oldCids});
}

void HostRuns::StoreFileStamp(CatalogBundle* bundle)
{
    const QFileInfo info(bundle->path());
    bundle->setMtimeSecs(info.lastModified().toSecsSinceEpoch());
    bundle->setSizeBytes(info.size());
}

} // namespace QVlorVst3
