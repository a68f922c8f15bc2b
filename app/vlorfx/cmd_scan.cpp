// vlorfx scan: the search folders of both formats, the new plugins checked,
// and a short summary of both catalogs and the pair store.
#include "catalog.h"
#include "commands.h"
#include "QVlorPluginFormat.h"
#include "QVlorSetting.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorVst3_Manager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

const char* const kScanHelp =
    "usage: vlorfx scan [--vst2-path DIR]... [--vst3-path DIR]... [--lv2-path DIR]...\n"
    "                   [--no-vst2] [--no-vst3] [--no-lv2]\n"
    "                   [--parallel N] [--check-timeout SECONDS]\n"
    "\n"
    "Finds the plugins of both formats and checks every new one in a host\n"
    "program. VST2: the folders given are added to the catalog (at the first\n"
    "scan, beside the standard folders that exist, or those VST_PATH names,\n"
    "separated by ':'). A folder that is not searched (the root of the file\n"
    "system, one that cannot be read) is named after the summary. VST3: the standard roots (~/.vst3, /usr/lib/vst3, /usr/local/lib/vst3)\n"
    "and the folders given, which stay among the roots. LV2: LV2_PATH when set,\n"
    "else ~/.lv2, /usr/local/lib/lv2, /usr/lib/lv2 and the multiarch folder,\n"
    "and the folders given; each new or changed bundle is checked in a host\n"
    "program, an unchanged one passed by. Twins of one product are paired.\n"
    "Known plugins are not loaded again.\n"
    "\n"
    "Each plugin checked is named as it is (one updating line on a terminal),\n"
    "and the failures are listed with their reasons after the summary.\n"
    "  --quiet            the summary only\n"
    "  --parallel N       check up to N plugins at a time (default: one a core,\n"
    "                     at most 8; kept as the setting)\n"
    "  --check-timeout S  give each check S seconds (default 30; kept)\n"
    "\n"
    "example:\n"
    "  vlorfx scan --vst2-path ~/.vst --vst3-path ~/my-vst3\n";

bool addFolder(const char* arg, QStringList* folders)
{
    const QString dir = QString::fromLocal8Bit(arg);
    if (!QDir(dir).exists()) {
        std::fprintf(stderr, "vlorfx scan: no such folder: %s\n", arg);
        return false;
    }
    *folders << QDir(dir).absolutePath();
    return true;
}

// What a scan found in at most five lines; what failed is named after it.
void printSummary(const vlorfx::ScanSummary& s)
{
    std::printf("VST2: %d plugins in %d folders: %d enabled, %d failed, %d shells\n", s.found, s.folders, s.enabled,
                s.failed, int(s.shells.size()));
    std::printf("VST3: %d bundles, %d classes: %d enabled, %d failed, %d crashed\n", s.bundles, s.classes,
                s.classesEnabled, s.classesFailed, s.classesCrashed);
    if (s.lv2Bundles > 0 || s.lv2Plugins > 0)
        std::printf("LV2: %d bundles, %d plugins: %d on, %d off, %d failed, %d not effects\n", s.lv2Bundles,
                    s.lv2Plugins, s.lv2Usable, s.lv2Off, s.lv2Failed, s.lv2NotEffects);
    int pairs = 0;
    QStringList origins;
    for (auto it = s.pairsByOrigin.begin(); it != s.pairsByOrigin.end(); ++it) {
        pairs += it.value();
        // The rule that matched them, in words.
        static const QHash<QString, QString> words = {{QStringLiteral("compat"), QStringLiteral("by id")},
                                                      {QStringLiteral("fourcc"), QStringLiteral("by code")},
                                                      {QStringLiteral("heuristic"), QStringLiteral("by name")},
                                                      {QStringLiteral("manual"), QStringLiteral("by hand")}};
        origins << QStringLiteral("%1 %2").arg(it.value()).arg(words.value(it.key(), QStringLiteral("by ") + it.key()));
    }
    if (s.inThreeFormats > 0)
        origins << QStringLiteral("%1 in three formats").arg(s.inThreeFormats);
    std::printf("pairs: %d%s\n", pairs,
                origins.isEmpty() ? "" : qPrintable(QStringLiteral(" (%1)").arg(origins.join(QStringLiteral(", ")))));
    std::printf("time: %.1f s\n", s.milliseconds / 1000.0);
}

} // namespace

int cmdScan(int argc, char** argv)
{
    vlorfx::ScanOptions options;
    bool quiet = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kScanHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--vst2-path") && i + 1 < argc) {
            if (!addFolder(argv[++i], &options.vst2Folders))
                return 1;
        } else if (!std::strcmp(argv[i], "--vst3-path") && i + 1 < argc) {
            if (!addFolder(argv[++i], &options.vst3Roots))
                return 1;
        } else if (!std::strcmp(argv[i], "--lv2-path") && i + 1 < argc) {
            if (!addFolder(argv[++i], &options.lv2Folders))
                return 1;
        } else if (!std::strcmp(argv[i], "--no-lv2")) {
            options.lv2 = false;
        } else if (!std::strcmp(argv[i], "--no-vst2")) {
            options.vst2 = false;
        } else if (!std::strcmp(argv[i], "--no-vst3")) {
            options.vst3 = false;
        } else if (!std::strcmp(argv[i], "--quiet") || !std::strcmp(argv[i], "-q")) {
            quiet = true;
        } else if ((!std::strcmp(argv[i], "--parallel") || !std::strcmp(argv[i], "--check-timeout")) && i + 1 < argc) {
            const bool parallel = !std::strcmp(argv[i], "--parallel");
            char* end = nullptr;
            const long n = std::strtol(argv[++i], &end, 10);
            if (!end || *end || n < 1 || n > (parallel ? 64 : 3600)) {
                std::fprintf(stderr, "vlorfx scan: %s wants a number from 1 to %d\n", argv[i - 1], parallel ? 64 : 3600);
                return 2;
            }
            if (parallel) {
                QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kParallelChecksSettingKey),
                                                     int(n));
            } else {
                for (const QVlorAudioPlugins::PluginFormat* f : QVlorAudioPlugins::PluginFormats())
                    QVlorSetting::global().setForThisRun(QLatin1String(f->checkTimeoutSettingKey), int(n));
            }
        } else {
            std::fprintf(stderr, "vlorfx scan: unknown argument '%s'\n\n%s", argv[i], kScanHelp);
            return 2;
        }
    }
    // A first scan keeps the standard folders beside those given: a folder of
    // the user's own never stands for all of them.
    if (options.vst2 && vlorfx::catalogFolders().isEmpty())
        for (const QString& f : vlorfx::standardFolders())
            if (!options.vst2Folders.contains(f))
                options.vst2Folders.prepend(f);
    options.progress = quiet                    ? vlorfx::ScanOptions::Silent
                       : isatty(STDERR_FILENO) ? vlorfx::ScanOptions::OneLine
                                               : vlorfx::ScanOptions::Lines;
    const vlorfx::ScanSummary s = vlorfx::scan(options);
    // Asked of the managers' threads while they still run.
    const QStringList passedOver = vlorfx::foldersNotSearched(
        QVlorSetting::global().getStringList(QLatin1String(QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS)));
    QVlorAudioPlugins::AboutToQuit(); // saves both catalogs and the pairs now, to check them below
    printSummary(s);
    if (!passedOver.isEmpty()) {
        std::printf("folders not searched:\n");
        for (const QString& f : passedOver)
            std::printf("  %s\n", vlorfx::printable(f).constData());
    }
    if (!quiet && !s.failures.isEmpty()) {
        std::printf("failures:\n");
        for (const QString& f : s.failures)
            std::printf("  %s\n", vlorfx::printable(f).constData());
    }
    // What was found is only kept if it was saved: the next scan would redo it all.
    return vlorfx::reportSaveErrors("vlorfx scan") ? 1 : 0;
}
