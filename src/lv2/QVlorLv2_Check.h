#ifndef QVLORLV2_CHECK_H
#define QVLORLV2_CHECK_H
// The LV2 host program's jobs, for tools that check or list plugins without
// a catalog. The plugins' code runs in the child.

#include "QVlorAudioPluginsExport.h"
#include <QJsonObject>
#include <QString>

namespace QVlorLv2 {

// The check's report of one plugin: "uri", "name", "maker", "class",
// "audioInputs", "audioOutputs", "sideChainInputs", "parameters", "effect",
// "x11Ui", "latency", "changesAudio". False with the reason in *error when
// the plugin crashed, hung past timeoutMs, lacks a feature or gave invalid
// samples.
QVLOR_PLUGINS_EXPORT bool CheckPlugin(const QString& uri, int timeoutMs, QJsonObject* reply, QString* error);
// Every LV2 plugin of the machine, as "plugins": the same fields but the
// check's, and "missingFeature".
QVLOR_PLUGINS_EXPORT bool ListPlugins(int timeoutMs, QJsonObject* reply, QString* error);

} // namespace QVlorLv2

#endif
