#include "catalog.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QThread>

#include <cstdio>
#include <unistd.h>

namespace vlorfx {

bool waitFor(const std::function<bool()>& done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}

// Runs a function on the manager's thread after everything queued before it.
static void onManagerThread(QVlorVst::Manager& manager, const std::function<void()>& f)
{
    QMetaObject::invokeMethod(&manager, f, Qt::BlockingQueuedConnection);
}

void loadCatalog(QVlorVst::Manager& manager)
{
    manager.loadCatalog();
    onManagerThread(manager, [] {});
}

QStringList catalogFolders(QVlorVst::Manager& manager)
{
    QStringList folders;
    QMetaObject::Connection c = QObject::connect(&manager, &QVlorVst::Manager::paths, &manager, [&folders](const QList<QVlorVst::Path>& paths) {
            for (const QVlorVst::Path& p : paths)
                folders << p.absolutePath();
        },
        Qt::DirectConnection);
    manager.getPaths();
    onManagerThread(manager, [] {});
    QObject::disconnect(c);
    return folders;
}

QStringList standardFolders()
{
    const QString home = QDir::homePath();
    QStringList out;
    for (const QString& f : {home + "/.vst", home + "/.lxvst", QStringLiteral("/usr/lib/vst"),
                             QStringLiteral("/usr/lib/lxvst"), QStringLiteral("/usr/local/lib/vst"),
                             QStringLiteral("/usr/local/lib/lxvst")})
        if (QDir(f).exists())
            out << f;
    return out;
}

ScanSummary scan(QVlorVst::Manager& manager, const QStringList& folders, bool progress)
{
    for (const QString& f : folders)
        manager.addPath(f);
    int scansEnded = 0;
    QList<QMetaObject::Connection> connections;
    connections << QObject::connect(&manager, &QVlorVst::Manager::endScan, &manager, [&scansEnded](bool) { ++scansEnded; },
                                    Qt::DirectConnection);
    if (progress)
        connections << QObject::connect(&manager, &QVlorVst::Manager::progressScan, &manager, [&scansEnded](int n, int total) {
                std::fprintf(stderr, "\r%s %d/%d   ", scansEnded == 0 ? "scanning" : "checking new plugins", n, total);
                std::fflush(stderr);
            },
            Qt::DirectConnection);
    QElapsedTimer timer;
    timer.start();
    manager.updatePlugins(true, false);
    manager.enableNewPlugins();
    onManagerThread(manager, [] {});
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    if (progress)
        std::fprintf(stderr, "\r%60s\r", "");
    for (const auto& c : connections)
        QObject::disconnect(c);
    ScanSummary summary = summarize(manager.pathsCopy());
    summary.milliseconds = ms;
    return summary;
}

void finish(QVlorVst::Manager& manager)
{
    manager.aboutToQuit();
    manager.saveCatalog();
}

ScanSummary summarize(const QList<QVlorVst::Path>& paths)
{
    ScanSummary s;
    for (const QVlorVst::Path& path : paths) {
        if (!path.isValid())
            continue;
        ++s.folders;
        for (const QVlorVst::Plugin& p : path.plugins()) {
            ++s.found;
            if (p.isFailed())
                ++s.failed;
            if (p.isShell()) {
                QStringList children;
                for (const QVlorVst::Plugin& c : p.plugins()) {
                    children << c.name();
                    s.enabled += c.isEnabled() ? 1 : 0;
                }
                s.shells << QStringLiteral("%1 (%2)").arg(p.filename(), children.join(QStringLiteral(", ")));
            } else if (p.isEnabled()) {
                ++s.enabled;
            }
        }
    }
    return s;
}

} // namespace vlorfx
