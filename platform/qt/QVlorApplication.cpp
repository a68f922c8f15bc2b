#include "QVlorApplication.h"

#include "blutils.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

#include <atomic>

namespace {
std::atomic<int> g_uiMode{QVlorApplication::Headless};
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

QVlorApplication::UiMode QVlorApplication::uiMode() { return UiMode(g_uiMode.load()); }

void QVlorApplication::setUiMode(UiMode mode) { g_uiMode = mode; }

bool QVlorApplication::showExternalLocation(const QString& path)
{
    if (uiMode() != Gui || path.isEmpty())
        return false;
    const QFileInfo info(path);
    // A file is shown by opening the folder that holds it.
    return QDesktopServices::openUrl(QUrl::fromLocalFile(info.isDir() ? info.absoluteFilePath() : info.absolutePath()));
}
