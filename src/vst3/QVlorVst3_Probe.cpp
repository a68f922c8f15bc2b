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
