#ifndef QVLORMANAGERCORE_P_H
#define QVLORMANAGERCORE_P_H
// What the catalog managers of both formats share: their own thread, the
// hop onto it, the commit of a change, and the coalesced save.

#include "QVlorAheadRuns_p.h"
#include "QVlorCheckVerdict_p.h"
#include "QVlorPluginFormat.h"
#include "QVlorRunningCheck.h"
#include "QVlorSetting.h"

#include <QAtomicInt>
#include <QMetaObject>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>
#include <QTimer>

#include <limits>
#include <utility>

// How many plugins are checked at a time, in children of their own: one per
// core by default, at most 8 (a setting; 1 checks one at a time).
constexpr const char* K_SETTING_PARALLEL_CHECKS = QVlorAudioPlugins::kParallelChecksSettingKey;
inline int DefaultParallelChecks() { return qBound(1, QThread::idealThreadCount(), 8); }
inline int ParallelChecks()
{
    return qBound(1, QVlorSetting::global().getInt(QLatin1String(K_SETTING_PARALLEL_CHECKS), DefaultParallelChecks()), 64);
}

// A timeout setting in seconds, 30 by default: one edited by hand must neither
// overflow into "wait forever" nor give no time at all.
inline int TimeoutSecondsSetting(const char* key)
{
    return qBound(1, QVlorSetting::global().getInt(QLatin1String(key), 30), std::numeric_limits<int>::max() / 1000);
}


// A change is on disk a moment after it is made, so that a crash of the
// editor loses no choice; the changes of a batch share one write.
constexpr int kSaveDelayMs = 200;

// The plumbing under a manager's Data. Manager is the QObject with the
// signals; Data, which derives from this, has publish() (the working state
// copied out for other threads) and dropCancelledWork() (the marks a dropped
// piece of work would have settled, taken back).
template <typename Manager, typename Data> class ManagerCore {
public:
    Manager* q = nullptr;
    QPointer<QThread> thread;
    QTimer* saveTimer = nullptr; // the manager's child, on its thread
    mutable QMutex publishLock;  // guards the published copies, the pending marks and saveError
    QString saveError;
    QAtomicInt cancelled{0};
    // One more at each cancel: work posted before it is dropped when its
    // turn comes, so that a cancel or a quit never waits behind a queue of children.
    QAtomicInt cancelGeneration{0};
    QAtomicInt scanning{0};
    QAtomicInt changed{0};
    // Children of checks run ahead of their turn; results applied by the thread.
    mutable QVlorAheadRuns ahead;
    // The cancel generation the posted piece of work under way began in (-1
    // for none): a cancel since then starts no more children for it.
    QAtomicInt workGeneration{-1};
    // The children running now, by the plugins they check.
    QList<QVlorRunningCheck> runningChecks() const
    {
        QList<QVlorRunningCheck> checks;
        for (const QVlorAheadRuns::Running& r : ahead.running())
            checks.append({r.label, r.sinceMs});
        return checks;
    }
    bool cancelledSinceWorkBegan() const
    {
        const int began = workGeneration.loadAcquire();
        return began >= 0 && began != cancelGeneration.loadAcquire();
    }

    // On another thread than the manager's, while that one still runs: work must be posted.
    bool awayFromThread() const { return thread && QThread::currentThread() != thread.data() && !thread->isFinished(); }

    // Called away from the manager's thread, a slot posts itself there and
    // returns: true when the call has been posted.
    template <typename F> bool post(F&& call) const
    {
        if (!awayFromThread())
            return false;
        QMetaObject::invokeMethod(q, std::forward<F>(call), Qt::QueuedConnection);
        return true;
    }

    // post, for work that may start a child (a scan, a check, a probe): a
    // cancel that comes before its turn drops it.
    template <typename F> bool postWork(F&& call)
    {
        if (!awayFromThread())
            return false;
        const int at = cancelGeneration.loadAcquire();
        QMetaObject::invokeMethod(
            q,
            [this, at, call = std::forward<F>(call)]() mutable {
                if (at != cancelGeneration.loadAcquire()) {
                    static_cast<Data*>(this)->dropCancelledWork();
                } else {
                    workGeneration.storeRelease(at);
                    call();
                    workGeneration.storeRelease(-1);
                }
            },
            Qt::QueuedConnection);
        return true;
    }

    void cancel()
    {
        cancelled.storeRelease(1);
        cancelGeneration.fetchAndAddOrdered(1);
        ahead.cancel();
    }

    // A persistent change: the save becomes due.
    void markChanged()
    {
        changed.storeRelease(1);
        scheduleSave();
    }
    // Other threads see the working state as it is now.
    void show()
    {
        static_cast<Data*>(this)->publish();
        emit q->catalogChanged();
    }
    // A persistent change, published; the caller emits what it was.
    void publishChange()
    {
        markChanged();
        static_cast<Data*>(this)->publish();
    }
    // A persistent change, published and told as such.
    void commit()
    {
        publishChange();
        emit q->catalogChanged();
    }

    // The outcome of a save, for saveError(); a failed save leaves the change
    // due, and a new reason for it is told once by saveFailed.
    bool recordSave(bool ok, const QString& error)
    {
        bool news = false;
        {
            QMutexLocker l(&publishLock);
            news = !ok && saveError != error;
            saveError = ok ? QString() : error;
        }
        if (ok)
            changed.storeRelease(0);
        if (news)
            emit q->saveFailed(error);
        return ok;
    }
    QString lastSaveError() const
    {
        QMutexLocker l(&publishLock);
        return saveError;
    }

    // Moves the manager to a new thread of that name, with its save timer, and starts it.
    template <typename Save> void startThread(const QString& name, Save save)
    {
        thread = new QThread;
        saveTimer = new QTimer(q);
        saveTimer->setSingleShot(true);
        saveTimer->setInterval(kSaveDelayMs);
        QObject::connect(saveTimer, &QTimer::timeout, q, save);
        QObject::connect(q, &Manager::catalogChanged, q, [this] { scheduleSave(); });
        q->moveToThread(thread.data());
        thread->setObjectName(name);
        thread->start(QThread::InheritPriority);
        QObject::connect(thread.data(), &QThread::finished, thread.data(), &QObject::deleteLater);
    }

    // What other processes save is looked for twice a second on the
    // manager's thread: a choice made elsewhere shows here within a second.
    template <typename Look> void startLookingAtDisk(Look look)
    {
        diskLook = new QTimer(q);
        diskLook->setInterval(500);
        QObject::connect(diskLook, &QTimer::timeout, q, look);
        QMetaObject::invokeMethod(diskLook, qOverload<>(&QTimer::start), Qt::QueuedConnection);
    }
    // A timer is stopped only where it lives: on the manager's thread, before it ends.
    void stopLookingAtDisk()
    {
        if (!awayFromThread() && diskLook)
            diskLook->stop();
    }
    QTimer* diskLook = nullptr;

    // On the manager's own thread: a save still due is made now, and the
    // timer stopped where it lives.
    template <typename Save> void saveIfDue(Save save)
    {
        if (awayFromThread() || !thread || thread->isFinished() || !saveTimer || !saveTimer->isActive())
            return;
        saveTimer->stop();
        save();
    }

    // The manager's aboutToQuit: on its own thread it ends the loop; from any
    // other it cancels the work under way, lets the thread end and waits for
    // it. True when the thread was ended from outside, so that the caller saves last.
    bool endThread()
    {
        if (!thread || thread->isFinished())
            return false;
        if (QThread::currentThread() == thread.data()) {
            thread->quit();
            return false;
        }
        cancel();
        QThread* t = thread.data();
        if (t->isRunning())
            QMetaObject::invokeMethod(q, [this] { q->aboutToQuit(); }, Qt::BlockingQueuedConnection);
        if (t->isRunning())
            t->wait();
        thread.clear();
        return true;
    }

private:
    // Makes the save due, from any thread: on the manager's thread at once,
    // from another through its queue. After the thread has ended the quit saves.
    void scheduleSave()
    {
        QTimer* timer = saveTimer;
        if (!timer || !thread || thread->isFinished())
            return;
        auto start = [timer] {
            if (!timer->isActive())
                timer->start();
        };
        if (QThread::currentThread() == thread.data())
            start();
        else
            QMetaObject::invokeMethod(timer, start, Qt::QueuedConnection);
    }
};

#endif
