#include "QVlorHostProgram_p.h"

#include "../engine/hostprogram_p.h"

#include <QCoreApplication>
#include <QFile>

namespace QVlorHostProgram {

bool Usable(const QString& path) { return HostProgramUsable(QFile::encodeName(path).constData()); }

void Vst3(QString* program, QStringList* arguments)
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/vlorvst3");
    if (Usable(beside)) {
        *program = beside;
        arguments->clear();
    } else {
        *program = QCoreApplication::applicationFilePath();
        *arguments = {QStringLiteral("--vst3")};
    }
}

} // namespace QVlorHostProgram
