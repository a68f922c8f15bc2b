#include "QVlorHostProgram_p.h"
#include "QVlorPluginFormat.h"

#include "../engine/hostprogram_p.h"

#include <QCoreApplication>
#include <QFile>

namespace QVlorHostProgram {

bool Usable(const QString& path) { return HostProgramUsable(QFile::encodeName(path).constData()); }

void Vst3(QString* program, QStringList* arguments)
{
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1Char('/') +
                           QLatin1String(QVlorAudioPlugins::kVst3Format.hostProgram);
    if (Usable(beside)) {
        *program = beside;
        arguments->clear();
    } else {
        *program = QCoreApplication::applicationFilePath();
        *arguments = {QStringLiteral("--vst3")};
    }
}

} // namespace QVlorHostProgram
