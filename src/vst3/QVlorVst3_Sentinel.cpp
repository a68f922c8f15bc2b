// The crash sentinel: the file that names what is being opened in this
// process, written before an open and cleared after it, so that a start
// after a crash blames the right plugin.
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Manager_p.h"
#include "QVlorDataFile_p.h"

#include <QFile>
#include <QMutex>
#include <QThread>

namespace QVlorVst3 {

namespace {

// The sentinel's path for the static functions, which the widgets call
// without a manager at hand.
QMutex s_sentinelLock;
QString s_sentinelPath;

QString sentinelPath()
{
    QMutexLocker l(&s_sentinelLock);
    return s_sentinelPath;
}

// The text of the sentinel; empty when it cannot be read.
QString readSentinel(const QString& path)
{
    QByteArray bytes;
    ReadPlainFile(path, &bytes, 64 * 1024);
    return QString::fromUtf8(bytes);
}

void writeSentinel(const QString& path, const QString& text) { WriteFileAtomically(path, text.toUtf8()); }

} // namespace

void RememberSentinelPath(const QString& path)
{
    QMutexLocker l(&s_sentinelLock);
    s_sentinelPath = path;
}

QString Manager::SetOpeningSentinel(const QString& format, const QString& id, const QString& name)
{
    const QString path = sentinelPath();
    if (path.isEmpty())
        return QString();
    const QString previous = readSentinel(path);
    writeSentinel(path, QStringLiteral("%1|%2|%3").arg(format, id, name));
    return previous;
}

void Manager::ClearOpeningSentinel(const QString& previous)
{
    const QString path = sentinelPath();
    if (path.isEmpty())
        return;
    if (previous.isEmpty())
        QFile::remove(path);
    else
        writeSentinel(path, previous);
}

QString Manager::consumeCrashSentinel()
{
    if (d->thread && QThread::currentThread() != d->thread.data() && d->thread->isRunning()) {
        QString name;
        QMetaObject::invokeMethod(this, [this, &name] { name = consumeCrashSentinel(); }, Qt::BlockingQueuedConnection);
        return name;
    }
    if (d->sentinelPath.isEmpty() || !QFile::exists(d->sentinelPath))
        return QString();
    const QString text = readSentinel(d->sentinelPath);
    // A start blames a plugin at most once.
    QFile::remove(d->sentinelPath);
    QStringList parts = text.split(QLatin1Char('|'), Qt::KeepEmptyParts);
    if (parts.size() < 3)
        return QString();
    const QString format = parts.takeFirst();
    const QString key = parts.takeFirst();
    const QString name = parts.join(QLatin1Char('|'));
    if (format == QLatin1String("vst3")) {
        if (CatalogClass* c = d->catalog.findClass(key)) {
            c->setState(CatalogClass::Crashed);
            const CatalogClass crashed = *c;
            d->publishChange();
            emit pluginStateChanged(crashed);
            emit catalogChanged();
        }
    } else if (format == QLatin1String("vst2") && d->vst2Failed) {
        d->vst2Failed(key.toLongLong(nullptr, 10));
    }
    return name;
}

} // namespace QVlorVst3
