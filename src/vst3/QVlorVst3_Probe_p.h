#ifndef QVLORVST3_PROBE_P_H
#define QVLORVST3_PROBE_P_H
// Running the VST3 host program for one job and reading its one-line reply.

#include "QVlorHostProgram_p.h"

#include <QAtomicInt>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

namespace QVlorVst3 {

class CatalogClass;

extern const char* const K_SETTING_PROBE_TIMEOUT_S; // seconds, default 30

// The arguments behind the host's own for each job.
QStringList ProbeArguments(const QString& bundle);
QStringList VerifyArguments(const QString& bundle, const QString& cid);

// The host's reply, read as every host program's is.
using QVlorHostProgram::ParseHostReply;
// The effect classes of a probe's reply, as new and off; instruments and
// IDs that are malformed or already in taken are passed over.
QList<CatalogClass> ReplyClasses(const QJsonObject& reply, QSet<QString>* taken);

} // namespace QVlorVst3

// Whether path lies in one of the roots (both sides cleaned, compared with case).
bool __IsUnderScannedRoot(const QString& path, const QStringList& roots);

#endif
