#include "QVlorApplication.h"

#include "blutils.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QFileInfo>
#include <QUrl>

#include <atomic>

namespace {
std::atomic<int> g_uiMode{QVlorApplication::Light};
}

QVlorApplication::QVlorApplication(int& argc, char** argv) : QApplication(argc, argv) {}

int QVlorApplication::buildStamp(int component, int kind) const
{
    return component == 1 && kind == 1 ? VLOR_BUILD_STAMP : 0;
}

QString QVlorApplication::applicationDataLocation()
{
    char dir[4096];
    return BLUTILS_GetDataDir(dir, sizeof(dir)) ? QString::fromUtf8(dir) : QString();
}

int QVlorApplication::uiMode() { return g_uiMode.load(); }

void QVlorApplication::setUiMode(int mode) { g_uiMode = mode; }

bool QVlorApplication::hasDesktop()
{
    const QString platform = QGuiApplication::platformName();
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()) || platform == QLatin1String("offscreen") ||
        platform == QLatin1String("minimal"))
        return false;
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

bool QVlorApplication::showExternalLocation(const QString& path)
{
    if (!hasDesktop() || path.isEmpty())
        return false;
    const QFileInfo info(path);
    // A file is shown by opening the folder that holds it.
    return QDesktopServices::openUrl(QUrl::fromLocalFile(info.isDir() ? info.absoluteFilePath() : info.absolutePath()));
}
