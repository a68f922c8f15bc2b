#ifndef QVLORVST3_PROBE_P_H
#define QVLORVST3_PROBE_P_H
// Running the VST3 host program for one job and reading its one-line reply.

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

// The JSON object on the last line of a host's output that is not blank;
// false when there is no such line or it holds no object.
bool ParseHostReply(const QByteArray& output, QJsonObject* reply);
// The effect classes of a probe's reply, as new and off; instruments and
// IDs that are malformed or already in taken are passed over.
QList<CatalogClass> ReplyClasses(const QJsonObject& reply, QSet<QString>* taken);

} // namespace QVlorVst3

// True only for a clean run whose reply says "ok". output gets the reply
// whenever it parsed, also on failure; errorText the failure's text.
// A run under way when *quitting becomes set gets two more seconds, then is
// killed and fails with "cancelled". One whose *stop becomes set is killed at
// once and fails with "skipped by the user" (1) or "cancelled" (2).
bool __RunHostProcess(const QString& program, const QStringList& arguments, int timeoutMs, QJsonObject* output,
                      QString* errorText, const QAtomicInt* quitting = nullptr, const QAtomicInt* stop = nullptr);
// Whether path lies in one of the roots (both sides cleaned, compared with case).
bool __IsUnderScannedRoot(const QString& path, const QStringList& roots);

#endif
