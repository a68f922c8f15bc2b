#include "QVlorHostProgram_p.h"
#include "QVlorPluginFormat.h"

#include "../engine/hostprogram_p.h"

#include <QCoreApplication>
#include <QFile>

namespace QVlorHostProgram {

bool Usable(const QString& path) { return HostProgramUsable(QFile::encodeName(path).constData()); }

namespace {

// The host program named beside the application when usable, else the one
// in the installed library's libexec folder, or else the application itself,
// told which host to be by flag.
void beside(const char* name, const char* flag, QString* program, QStringList* arguments)
{
    QString path = QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(name);
    // An installed library's own programs, where the application has none beside it.
    const std::string installed = HostProgramsBesideLibrary();
    if (!Usable(path) && !installed.empty())
        path = QFile::decodeName(installed.c_str()) + QLatin1Char('/') + QLatin1String(name);
    if (Usable(path)) {
        *program = path;
        arguments->clear();
    } else {
        *program = QCoreApplication::applicationFilePath();
        *arguments = {QLatin1String(flag)};
    }
}

} // namespace

void Vst3(QString* program, QStringList* arguments)
{
    beside(QVlorAudioPlugins::kVst3Format.hostProgram, "--vst3", program, arguments);
}

void Lv2(QString* program, QStringList* arguments) { beside("vlorlv2", "--lv2", program, arguments); }

} // namespace QVlorHostProgram
