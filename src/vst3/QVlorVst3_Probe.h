#ifndef QVLORVST3_PROBE_H
#define QVLORVST3_PROBE_H
// One job of the VST3 host program, as a scan runs it, for tools that list
// or check a bundle without a catalog. The bundle's code runs in the child.

#include "QVlorAudioPluginsExport.h"
#include <QJsonObject>
#include <QString>

namespace QVlorVst3 {

// The probe's reply: "classes" (each with "cid", "name", "vendor",
// "subCategories", "version") and "truncated". False with the reason in
// *error when the bundle crashed, hung past timeoutMs or did not load.
QVLOR_PLUGINS_EXPORT bool ProbeBundle(const QString& bundle, int timeoutMs, QJsonObject* reply, QString* error);
// Whether the class opens in full (set up, start, process, stop).
QVLOR_PLUGINS_EXPORT bool VerifyClass(const QString& bundle, const QString& cid, int timeoutMs, QString* error);

} // namespace QVlorVst3

#endif
