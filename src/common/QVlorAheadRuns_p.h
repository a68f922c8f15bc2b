#ifndef QVLORAHEADRUNS_P_H
#define QVLORAHEADRUNS_P_H
// Checks of plugins in child processes, run ahead of their turn and up to a
// number at a time. A manager's thread hands over, in the order its loop will
// want them, the runs that loop is going to need; when the loop reaches one,
// it takes the outcome (waiting for it if it is not in yet) and applies it
// itself. So the catalog changes in exactly the order of a one-at-a-time
// scan, only sooner. A run owns nothing but its child: it must not touch the
// catalog.

#include <QAtomicInt>
#include <QHash>
#include <QList>
#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class QVlorAheadRuns {
public:
    // What a run is told to stop for; it ends its child and says so.
    enum Stop { Go = 0, SkippedByUser = 1, Cancelled = 2 };
    using Run = std::function<void(const QAtomicInt* stop)>;

    struct Running {
        QString key;
        QString label;
        qint64 sinceMs; // on QDateTime's clock
    };

    QVlorAheadRuns() = default;
    ~QVlorAheadRuns();
    QVlorAheadRuns(const QVlorAheadRuns&) = delete;
    QVlorAheadRuns& operator=(const QVlorAheadRuns&) = delete;

    // How many children at most; read at each start.
    void setParallel(int count);
    int parallel() const;

    // Queues a run under key (a key queued or done already is left alone).
    void submit(const QString& key, const QString& label, Run run);
    bool has(const QString& key) const;
    // Waits until the run under key has ended and forgets it: true if it
    // ran to an outcome, false if it was never submitted or a cancel
    // dropped or ended it.
    bool take(const QString& key);
    // submit and take: a run the loop needs now, still under the limit and
    // still skippable.
    bool runNow(const QString& key, const QString& label, Run run);

    // Queued runs are dropped, running ones told to stop.
    void cancel();
    // The running run of key or label is told to stop now: true if one was.
    bool skip(const QString& keyOrLabel);
    QList<Running> running() const;
    // Runs queued or finished that nobody took (a loop that ended early).
    void forgetUntaken();
    // Cancels, and waits for the runs told to stop; nothing starts after it.
    void close();

private:
    struct Job {
        QString key;
        QString label;
        Run run;
        std::shared_ptr<QAtomicInt> stop = std::make_shared<QAtomicInt>(Go);
        enum { Queued, Started, Ended, Dropped } state = Queued;
        qint64 sinceMs = 0;
    };
    void work();
    void startWorkersLocked();

    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<Job>> m_queue;
    QHash<QString, std::shared_ptr<Job>> m_jobs;
    std::vector<std::thread> m_workers;
    int m_parallel = 1;
    int m_busy = 0;
    bool m_closing = false;
};

#endif
