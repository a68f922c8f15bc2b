#ifndef QVLORVST3_HOSTRUNS_P_H
#define QVLORVST3_HOSTRUNS_P_H
// The VST3 manager's children: each probe or verification of a bundle runs
// in the host program, as many at once as the limit allows, and its outcome
// waits until the manager's thread takes it in its turn.

#include "QVlorAheadRuns_p.h"
#include "QVlorVst3_Catalog.h"

#include <QAtomicInt>
#include <QHash>
#include <QJsonObject>
#include <QMutex>
#include <QStringList>

#include <functional>

namespace QVlorVst3 {

class HostRuns {
public:
    // cancelled tells whether the piece of work under way was cancelled
    // since it began: it then starts no more children.
    HostRuns(QVlorAheadRuns& ahead, std::function<bool()> cancelled) : m_ahead(ahead), m_cancelled(std::move(cancelled))
    {
    }

    // The host program; empty: the one beside the application.
    void setProgram(const QString& path, const QStringList& arguments);

    // The job starts as soon as the limit allows; its outcome waits for run.
    void runAhead(const QStringList& job, const QString& label) const;
    // One job; the reply and the failure's text as the child gives them. A
    // job handed ahead is waited for; any other runs now. label names the
    // plugin to whoever would skip it.
    bool run(const QStringList& job, QJsonObject* reply, QString* errorText, const QString& label) const;

    // The application quits: the child under way gets a short grace.
    void quit() { m_quitting.storeRelease(1); }
    // A run that failed only because the application quits under it, or the
    // user cancelled it: what it was about is left as it was, not marked failed.
    static bool CutShort(const QString& errorText) { return errorText == QLatin1String("cancelled"); }

    // The moduleinfo compatibility list of the bundle, and whether it has moduleinfo at all.
    static void ReadModuleInfo(CatalogBundle* bundle);
    // The bundle's time and size on disk, by which a changed bundle is known.
    static void StoreFileStamp(CatalogBundle* bundle);

private:
    struct Outcome {
        bool ok = false;
        QJsonObject reply;
        QString error;
    };
    QVlorAheadRuns& m_ahead;
    std::function<bool()> m_cancelled;
    QAtomicInt m_quitting{0};
    // Set on the manager's thread, read by the children's starts.
    QString m_program;
    QStringList m_arguments;
    mutable QMutex m_outcomesLock;
    mutable QHash<QString, Outcome> m_outcomes; // by job
};

} // namespace QVlorVst3

#endif
