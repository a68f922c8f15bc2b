// The crash sentinel at a start: the plugin it names is marked crashed, in
// this catalog or, through the setter, in the VST2 one.
#include "QVlorVst3_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorVst3_Manager_p.h"
#include "QVlorPluginOpening.h"

#include <QThread>

namespace QVlorVst3 {

QString Manager::SetOpeningSentinel(const QString& format, const QString& id, const QString& name)
{
    return QVlorAudioPlugins::SetOpeningSentinel(format, id, name);
}

void Manager::ClearOpeningSentinel(const QString& previous) { QVlorAudioPlugins::ClearOpeningSentinel(previous); }

QString Manager::consumeCrashSentinel()
{
    if (d->thread && QThread::currentThread() != d->thread.data() && d->thread->isRunning()) {
        QString name;
        QMetaObject::invokeMethod(this, [this, &name] { name = consumeCrashSentinel(); }, Qt::BlockingQueuedConnection);
        return name;
    }
    const QString text = QVlorAudioPlugins::TakeOpeningSentinel(d->sentinelPath);
    if (text.isEmpty())
        return QString();
    QStringList parts = text.split(QLatin1Char('|'), Qt::KeepEmptyParts);
    if (parts.size() < 3)
        return QString();
    const QString format = parts.takeFirst();
    const QString key = parts.takeFirst();
    const QString name = parts.join(QLatin1Char('|'));
    if (format == QVlorAudioPlugins::Vst3Token()) {
        if (CatalogClass* c = d->store.live.findClass(key)) {
            c->setState(CatalogClass::Crashed);
            const CatalogClass crashed = *c;
            d->publishChange();
            emit pluginStateChanged(crashed);
            emit catalogChanged();
        }
    } else if (format == QVlorAudioPlugins::Vst2Token()) {
        d->pairHooks.markVst2Crashed(key.toLongLong(nullptr, 10));
    } else if (d->otherFailed) {
        d->otherFailed(format, key);
    }
    return name;
}

} // namespace QVlorVst3
