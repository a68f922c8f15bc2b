#ifndef QVLORHOSTPROGRAM_P_H
#define QVLORHOSTPROGRAM_P_H
// Where the library finds its host programs.

#include <QString>
#include <QStringList>

namespace QVlorHostProgram {

// Whether a host program at path can be started: the engine's rule.
bool Usable(const QString& path);

// The VST3 host: vlorvst3 beside the application when usable, or else the
// application itself, told so by "--vst3".
void Vst3(QString* program, QStringList* arguments);

} // namespace QVlorHostProgram

#endif
