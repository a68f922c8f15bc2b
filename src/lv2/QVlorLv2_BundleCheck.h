#ifndef QVLORLV2_BUNDLECHECK_H
#define QVLORLV2_BUNDLECHECK_H
// The check of one LV2 bundle in the host program: its plugins in turn in a
// child, each given the timeout; one that crashes or hangs is named by the
// child's last word, the child's successor goes on after it.

#include <QAtomicInt>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>

namespace QVlorLv2 {

struct BundleCheck {
    // One report a plugin (see CheckPlugin; "effect" false for one that is
    // none, "crashed" true for one that took its child down).
    QList<QJsonObject> reports;
    // Why the bundle as a whole could not be read; empty when it was.
    QString error;
    // Cut short by the stop flag: the reports are partial.
    bool stopped = false;
};

// Checks the bundle at path; perPluginMs bounds each plugin's check. A
// non-zero *stop ends the child (1: skipped by the user, 2: cancelled).
// onChecking hears each plugin's URI as its check begins (from this thread).
// With `only`, the plugin of that URI alone is checked.
BundleCheck CheckBundle(const QString& path, int perPluginMs, const QAtomicInt* stop = nullptr,
                        const std::function<void(const QString&)>& onChecking = {}, const QString& only = {});

} // namespace QVlorLv2

#endif
