#include "QVlorApplication.h"

#include "blutils.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
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

void QVlorApplication::applyTheme(int mode)
{
    setUiMode(mode);
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    // One style for both themes, so that only the colours differ.
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette p = QApplication::style()->standardPalette();
    if (mode == Dark) {
        const QColor window(0x2B, 0x2B, 0x2B), base(0x1E, 0x1E, 0x1E), text(0xE6, 0xE6, 0xE6);
        p.setColor(QPalette::Window, window);
        p.setColor(QPalette::WindowText, text);
        p.setColor(QPalette::Base, base);
        p.setColor(QPalette::AlternateBase, window);
        p.setColor(QPalette::Text, text);
        p.setColor(QPalette::Button, QColor(0x35, 0x35, 0x35));
        p.setColor(QPalette::ButtonText, text);
        p.setColor(QPalette::Highlight, QColor(0x3D, 0x7E, 0xD6));
        p.setColor(QPalette::HighlightedText, Qt::white);
        p.setColor(QPalette::ToolTipBase, base);
        p.setColor(QPalette::ToolTipText, text);
        p.setColor(QPalette::PlaceholderText, QColor(0x90, 0x90, 0x90));
        p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x80));
        p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x80));
        p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x80));
    }
    QApplication::setPalette(p);
}
