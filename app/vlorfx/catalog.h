#pragma once
// The catalog work that several commands share: starting the VST2 manager as
// the editor does, scanning, and the summary of what the catalog holds.

#include "QVlorVst_Manager.h"

#include <QStringList>

#include <functional>

namespace vlorfx {

struct ScanSummary {
    int folders = 0;
    int found = 0;
    int enabled = 0;
    int failed = 0;
    QStringList shells; // "name (children: a, b)"
    double milliseconds = 0; // the manager's work: the scan and the checks of new plugins
};

// Runs the event loop until done() or the time is up; false on a time out.
bool waitFor(const std::function<bool()>& done, int timeoutMs);

// Loads the catalog on the manager's thread and waits for it.
void loadCatalog(QVlorVst::Manager& manager);
// The folders of the catalog as the manager's thread sees them now.
QStringList catalogFolders(QVlorVst::Manager& manager);
// Adds the folders, scans, enables what is new; progress on a terminal.
ScanSummary scan(QVlorVst::Manager& manager, const QStringList& folders, bool progress);
// Stops the manager's thread and saves.
void finish(QVlorVst::Manager& manager);
ScanSummary summarize(const QList<QVlorVst::Path>& paths);
// The standard folders of VST2 plugins on Linux that exist here.
QStringList standardFolders();

} // namespace vlorfx
