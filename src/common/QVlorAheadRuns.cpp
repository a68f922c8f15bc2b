#include "QVlorAheadRuns_p.h"

#include <QDateTime>

#include <algorithm>

QVlorAheadRuns::~QVlorAheadRuns() { close(); }

void QVlorAheadRuns::close()
{
    cancel();
    std::vector<std::thread> workers;
    {
        std::lock_guard<std::mutex> l(m_lock);
        m_closing = true;
        workers.swap(m_workers);
    }
    m_changed.notify_all();
    for (std::thread& t : workers)
        t.join();
}

void QVlorAheadRuns::setParallel(int count)
{
    {
        std::lock_guard<std::mutex> l(m_lock);
        m_parallel = std::clamp(count, 1, 64);
        startWorkersLocked();
    }
    m_changed.notify_all();
}

int QVlorAheadRuns::parallel() const
{
    std::lock_guard<std::mutex> l(m_lock);
    return m_parallel;
}

// Threads are made as the limit asks and kept; the limit alone says how many work.
void QVlorAheadRuns::startWorkersLocked()
{
    while (int(m_workers.size()) < m_parallel && !m_closing)
        m_workers.emplace_back([this] { work(); });
}

void QVlorAheadRuns::submit(const QString& key, const QString& label, Run run)
{
    {
        std::lock_guard<std::mutex> l(m_lock);
        if (m_jobs.contains(key) || m_closing)
            return;
        auto job = std::make_shared<Job>();
        job->key = key;
        job->label = label;
        job->run = std::move(run);
        m_jobs.insert(key, job);
        m_queue.push_back(job);
        startWorkersLocked();
    }
    m_changed.notify_all();
}

bool QVlorAheadRuns::has(const QString& key) const
{
    std::lock_guard<std::mutex> l(m_lock);
    return m_jobs.contains(key);
}

bool QVlorAheadRuns::take(const QString& key)
{
    std::unique_lock<std::mutex> l(m_lock);
    const std::shared_ptr<Job> job = m_jobs.value(key);
    if (!job)
        return false;
    m_changed.wait(l, [&] { return job->state == Job::Ended || job->state == Job::Dropped; });
    m_jobs.remove(key);
    // A run a cancel ended has nothing to say either.
    return job->state == Job::Ended && job->stop->loadAcquire() != Cancelled;
}

bool QVlorAheadRuns::runNow(const QString& key, const QString& label, Run run)
{
    submit(key, label, std::move(run));
    return take(key);
}

void QVlorAheadRuns::cancel()
{
    {
        std::lock_guard<std::mutex> l(m_lock);
        for (const std::shared_ptr<Job>& job : m_queue)
            job->state = Job::Dropped;
        m_queue.clear();
        for (const std::shared_ptr<Job>& job : std::as_const(m_jobs))
            if (job->state == Job::Started)
                job->stop->storeRelease(Cancelled);
    }
    m_changed.notify_all();
}

bool QVlorAheadRuns::skip(const QString& keyOrLabel)
{
    std::lock_guard<std::mutex> l(m_lock);
    for (const std::shared_ptr<Job>& job : std::as_const(m_jobs))
        if (job->state == Job::Started && (job->key == keyOrLabel || job->label == keyOrLabel)) {
            job->stop->storeRelease(SkippedByUser);
            return true;
        }
    return false;
}

QList<QVlorAheadRuns::Running> QVlorAheadRuns::running() const
{
    std::lock_guard<std::mutex> l(m_lock);
    QList<Running> list;
    for (const std::shared_ptr<Job>& job : std::as_const(m_jobs))
        if (job->state == Job::Started)
            list.append({job->key, job->label, job->sinceMs});
    std::sort(list.begin(), list.end(), [](const Running& a, const Running& b) { return a.sinceMs < b.sinceMs; });
    return list;
}

void QVlorAheadRuns::forgetUntaken()
{
    {
        std::lock_guard<std::mutex> l(m_lock);
        for (const std::shared_ptr<Job>& job : m_queue)
            job->state = Job::Dropped;
        m_queue.clear();
        // A run under way ends on its own; nobody waits for it.
        for (auto it = m_jobs.begin(); it != m_jobs.end();)
            it = it.value()->state == Job::Started ? std::next(it) : m_jobs.erase(it);
    }
    m_changed.notify_all();
}

void QVlorAheadRuns::work()
{
    std::unique_lock<std::mutex> l(m_lock);
    for (;;) {
        m_changed.wait(l, [&] { return m_closing || (!m_queue.empty() && m_busy < m_parallel); });
        if (m_closing)
            return;
        std::shared_ptr<Job> job = m_queue.front();
        m_queue.pop_front();
        job->state = Job::Started;
        job->sinceMs = QDateTime::currentMSecsSinceEpoch();
        ++m_busy;
        l.unlock();
        job->run(job->stop.get());
        l.lock();
        --m_busy;
        job->state = Job::Ended;
        // One that nobody will take (forgotten while it ran) goes now.
        if (m_jobs.value(job->key) != job)
            job.reset();
        m_changed.notify_all();
    }
}
