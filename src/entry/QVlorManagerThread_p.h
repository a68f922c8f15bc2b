#ifndef QVLORMANAGERTHREAD_P_H
#define QVLORMANAGERTHREAD_P_H
// The life of a catalog manager's own thread, the same for both formats.

#include <QAtomicInt>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>
#include <QTimer>

// A change is on disk a moment after it is made, so that a crash of the
// editor loses no choice; the changes of a batch share one write.
constexpr int kSaveDelayMs = 200;

// The manager's save, run kSaveDelayMs after a change unless already due. The
// timer is the manager's child and goes to its thread with it.
template <typename Save> QTimer* MakeSaveTimer(QObject* manager, Save&& save)
{
    auto* timer = new QTimer(manager);
    timer->setSingleShot(true);
    timer->setInterval(kSaveDelayMs);
    QObject::connect(timer, &QTimer::timeout, manager, std::forward<Save>(save));
    return timer;
}

// Makes the save due, from any thread: on the manager's thread at once, from
// another through its queue. After the thread has ended the quit saves.
inline void ScheduleSave(QTimer* timer, const QPointer<QThread>& thread)
{
    if (!timer || !thread || thread->isFinished())
        return;
    if (QThread::currentThread() == thread.data()) {
        if (!timer->isActive())
            timer->start();
        return;
    }
    QMetaObject::invokeMethod(timer, [timer] {
        if (!timer->isActive())
            timer->start();
    }, Qt::QueuedConnection);
}

// On the manager's thread as it ends: a save still due is made now, and the
// timer stopped where it lives.
template <typename Save> void SaveBeforeTheEnd(QTimer* timer, Save&& save)
{
    if (!timer || !timer->isActive())
        return;
    timer->stop();
    save();
}

// Moves the manager to a new thread of that name and starts it.
inline void StartManagerThread(QObject* manager, QPointer<QThread>* thread, const QString& name)
{
    manager->moveToThread(thread->data());
    (*thread)->setObjectName(name);
    (*thread)->start(QThread::InheritPriority);
    QObject::connect(thread->data(), &QThread::finished, thread->data(), &QObject::deleteLater);
}

// The manager's aboutToQuit: on its own thread it ends the loop; from any
// other it cancels the work under way, lets the thread end and waits for it.
// True when the thread was ended from outside, so that the caller saves last.
template <typename Manager> bool EndManagerThread(Manager* manager, QPointer<QThread>* thread)
{
    if (!*thread || (*thread)->isFinished())
        return false;
    if (QThread::currentThread() == thread->data()) {
        (*thread)->quit();
        return false;
    }
    manager->cancel();
    QThread* t = thread->data();
    if (t->isRunning())
        QMetaObject::invokeMethod(manager, [manager] { manager->aboutToQuit(); }, Qt::BlockingQueuedConnection);
    if (t->isRunning())
        t->wait();
    thread->clear();
    return true;
}

// Posts work to the manager's thread unless a cancel, which starts a new
// generation, comes before its turn: then drop runs instead, at once. So a
// cancel or a quit never waits behind a queue of children.
template <typename F, typename Drop>
void PostUnlessCancelled(QObject* manager, const QAtomicInt& generation, F&& call, Drop&& drop)
{
    const int at = generation.loadAcquire();
    QMetaObject::invokeMethod(
        manager,
        [&generation, at, call = std::forward<F>(call), drop = std::forward<Drop>(drop)]() mutable {
            if (at != generation.loadAcquire())
                drop();
            else
                call();
        },
        Qt::QueuedConnection);
}

#endif
