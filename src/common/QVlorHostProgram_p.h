#ifndef QVLORHOSTPROGRAM_P_H
#define QVLORHOSTPROGRAM_P_H
// Where the library finds its host programs.

#include <QAtomicInt>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace QVlorHostProgram {

// Whether a host program at path can be started: the engine's rule.
bool Usable(const QString& path);

// The VST3 host: vlorvst3 beside the application when usable, or else the
// application itself, told so by "--vst3".
void Vst3(QString* program, QStringList* arguments);
// The LV2 host: vlorlv2 beside the application when usable, or else the
// application itself, told so by "--lv2".
void Lv2(QString* program, QStringList* arguments);

// The JSON object on the last line of a host's output that is not blank;
// false when there is no such line or it holds no object.
bool ParseHostReply(const QByteArray& output, QJsonObject* reply);

} // namespace QVlorHostProgram

// True only for a clean run whose reply says "ok". output gets the reply
// whenever it parsed, also on failure; errorText the failure's text.
// A run under way when *quitting becomes set gets two more seconds, then is
// killed and fails with "cancelled". One whose *stop becomes set is killed at
// once and fails with "skipped by the user" (1) or "cancelled" (2).
bool __RunHostProcess(const QString& program, const QStringList& arguments, int timeoutMs, QJsonObject* output,
                      QString* errorText, const QAtomicInt* quitting = nullptr, const QAtomicInt* stop = nullptr);

#endif
