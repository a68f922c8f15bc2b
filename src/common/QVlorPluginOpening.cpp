#include "QVlorPluginOpening.h"

#include "QVlorDataFile_p.h"
#include "QVlorSetting.h"

#include "QVlorRemoteFault_p.h"

#include "fxisolation.h"

#include <QFile>
#include <QGuiApplication>
#include <QWidget>
#include <QMutex>

namespace QVlorAudioPlugins {

namespace {

// The widgets open plugins with no manager at hand, so the path is kept here.
QMutex s_sentinelLock;
QString s_sentinelPath;

QString readSentinel(const QString& path)
{
    QByteArray bytes;
    ReadPlainFile(path, &bytes, 64 * 1024);
    return QString::fromUtf8(bytes);
}

void writeSentinel(const QString& path, const QString& text) { WriteFileAtomically(path, text.toUtf8()); }

} // namespace

void SetOpeningSentinelPath(const QString& path)
{
    QMutexLocker l(&s_sentinelLock);
    s_sentinelPath = path;
    // A crash inside a plugin's call, not only in its opening, names it there.
    VLORFX_SetCrashRecordPath(QFile::encodeName(path).constData());
}

QString OpeningSentinelPath()
{
    QMutexLocker l(&s_sentinelLock);
    return s_sentinelPath;
}

QString SetOpeningSentinel(const QString& format, const QString& id, const QString& name)
{
    const QString path = OpeningSentinelPath();
    if (path.isEmpty())
        return QString();
    const QString previous = readSentinel(path);
    writeSentinel(path, QStringLiteral("%1|%2|%3").arg(format, id, name));
    return previous;
}

void ClearOpeningSentinel(const QString& previous)
{
    const QString path = OpeningSentinelPath();
    if (path.isEmpty())
        return;
    if (previous.isEmpty())
        QFile::remove(path);
    else
        writeSentinel(path, previous);
}

QString TakeOpeningSentinel(const QString& path)
{
    if (path.isEmpty() || !QFile::exists(path))
        return QString();
    const QString text = readSentinel(path);
    QFile::remove(path);
    // The plugin that took the editor down runs apart from now on, where
    // the isolation setting says so.
    const QStringList parts = text.split(QLatin1Char('|'));
    if (parts.size() >= 3)
        MarkCrashed(parts[0], parts[1]);
    return text;
}

bool CanEmbedEditors() { return QGuiApplication::platformName() == QLatin1String("xcb"); }

bool PluginEditorsWanted()
{
    return CanEmbedEditors() && !QVlorSetting::global().getBool(QLatin1String(kFallbackEditorSettingKey), false);
}

void NameOwnEditor(QWidget* window, const QString& plugin)
{
    window->setAccessibleName(QCoreApplication::translate("QVlorAudioPlugins", "%1, the plugin's own editor").arg(plugin));
    window->setAccessibleDescription(QCoreApplication::translate(
        "QVlorAudioPlugins", "The plugin draws this editor itself and a screen reader may not read it; with "
                             "generated editors chosen, each parameter is a named slider"));
}

} // namespace QVlorAudioPlugins
