#pragma once
// The catalog work that several commands share, on the managers that the
// library's wiring brought up: scanning both formats and summing up what the
// catalogs and the pair store hold.

#include "QVlorLv2_Manager.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "QVlorUnifiedRows.h"

#include <QMap>
#include <QStringList>

namespace vlorfx {

struct ScanOptions {
    QStringList vst2Folders; // added to the VST2 catalog before the scan
    QStringList vst3Roots;   // added to the custom VST3 roots
    QStringList lv2Folders;  // added to the custom LV2 folders
    bool vst2 = true;
    bool vst3 = true;
    bool lv2 = true;
    // Off, one updating line (a terminal), or a line per plugin checked.
    enum Progress { Silent, OneLine, Lines } progress = Silent;
};

struct ScanSummary {
    int folders = 0;
    int found = 0;
    int enabled = 0;
    int failed = 0;
    QStringList shells; // "name (children: a, b)"
    int bundles = 0;
    int classes = 0;
    int classesEnabled = 0;
    int classesFailed = 0;
    int classesCrashed = 0;
    int bundlesFailed = 0;
    QMap<QString, int> pairsByOrigin; // products in several formats, by the rule that found them
    int inThreeFormats = 0;
    int lv2Bundles = 0;
    int lv2Plugins = 0;
    int lv2Usable = 0;
    int lv2Off = 0;
    int lv2Failed = 0; // failed or crashed
    int lv2NotEffects = 0;
    QStringList failures; // "what: why", of both formats
    double milliseconds = 0; // the managers' work: scans, probes, checks and verifications
};

// Waits until both managers have done everything queued so far.
void settle();
// VST2 first finds its files; VST3 then scans and decides its new classes
// while their VST2 twins are still new, so that a product new in both formats
// comes up in VST3; last the VST2 plugins are checked, and each one that
// comes up pairs with its twin.
ScanSummary scan(const ScanOptions& options);
ScanSummary summarize();
// The standard folders of VST2 plugins on Linux that exist here, or those
// VST_PATH names.
QStringList standardFolders();
// Folders of the catalogs that a scan passes over, each with why: the root
// of the file system (switched off), one that cannot be read. vst3Roots: the
// VST3 folders of the user's.
QStringList foldersNotSearched(const QStringList& vst3Roots);
// The VST2 catalog as its manager's thread holds it now.
QList<QVlorVst::Path> vst2Paths();
// The rows of the plugin manager, composed from the managers' copies as the page composes them.
QList<UnifiedRow> pageRows();
// The folders of the VST2 catalog as its manager's thread sees them now.
QStringList catalogFolders();
// One vocabulary for the state of a plugin of either format: "on", "off",
// "new", "failed", "crashed", "missing", "verifying".
QString stateWord(const QVlorVst::Plugin& plugin);
QString stateWord(const QVlorVst3::CatalogClass& c);
QString stateWord(const QVlorLv2::Catalog& catalog, const QVlorLv2::CatalogPlugin& p);

// Tells, once each, which file of the catalogs and the pairs could not be
// saved and why; true when one could not.
bool reportSaveErrors(const char* who);

} // namespace vlorfx
