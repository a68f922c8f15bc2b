// vlorfx: the reference editor on the command line. It starts the library the
// way the editor does and offers the library's work as commands.
#include "commands.h"
#include "catalog.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"
#include "QVlorFxWidget.h"
#include "QVlorPairKeybindings.h"
#include "QVlorVst3_Manager.h"
#include "QVlorSetting.h"
#include "QVlorVst_Manager.h"

#include "bldebug.h"

#include <QAction>
#include <QHash>
#include <QKeySequence>
#include <QMenu>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <sys/stat.h>

namespace {

struct Command {
    const char* name;
    int (*run)(int, char**);
    const char* help;
    // Shows windows: a display is used when there is one.
    bool windows = false;
};

const Command kCommands[] = {
    {"demo", cmdDemo, "scan, pick an effect found in both formats, apply it to a test signal"},
    {"scan", cmdScan, "find the plugins of the search folders and check the new ones"},
    {"list", cmdList, "print the catalog: one line per product, both formats side by side"},
    {"enable", cmdEnable, "switch a plugin on (checked first when it needs to be)"},
    {"disable", cmdDisable, "switch a plugin off"},
    {"recheck", cmdRecheck, "check a plugin again, as if it were new"},
    {"apply", cmdApply, "apply a VST2 or VST3 effect to an audio file"},
    {"classes", cmdClasses, "list the effect classes of a VST3 bundle, loaded in this process"},
    {"probe", cmdProbe, "list (and verify) the effect classes of a VST3 bundle in a host process"},
    {"preset", cmdPreset, "list, save, load, export and import the presets of an effect of any format"},
    {"categories", cmdCategories, "what the effects do: the share each format and maker has in a category"},
    {"menu", cmdMenu, "print the Plugins menu as the editor gets it: vendors, entries, action ids"},
    {"open", cmdOpen, "show an effect's own editor or its parameter panel in a window", true},
    {"gui", nullptr, "the reference editor: open audio, pick, try and apply effects, undo, manage plugins", true},
    {"prefs", cmdPrefs, "show the plugin manager page: both formats in one tree, filter, switches, badges", true},
};

void usage(FILE* out)
{
    std::fprintf(out, "usage: vlorfx [--data DIR] [--verbose] COMMAND [ARGS]\n"
                      "       vlorfx --help | --version\n\n"
                      "Finds VST2 and VST3 effect plugins, keeps a catalog of them, pairs the\n"
                      "products that exist in both formats and applies effects to audio files.\n"
                      "New plugins are checked in host programs, so one that crashes or hangs\n"
                      "cannot take vlorfx down.\n\n"
                      "  --data DIR  the data folder of this run (catalogs, settings, descriptors);\n"
                      "              by default the application's own\n"
                      "  --verbose   show what plugins print and the library's progress; otherwise\n"
                      "              plugins' output is kept in plugins.log in the data folder\n\n"
                      "commands:\n");
    for (const Command& c : kCommands)
        std::fprintf(out, "  %-8s %s\n", c.name, c.help);
    std::fprintf(out, "\nEach command tells more with --help. For example:\n"
                      "  vlorfx scan --vst2-path ~/my-plugins && vlorfx list\n");
}

// The command a typing slip most likely meant: within two edits, or one the
// word begins; none when nothing is that close.
const char* nearestCommand(const char* typed)
{
    const std::string word = typed;
    const char* best = nullptr;
    size_t bestDistance = 3;
    for (const Command& c : kCommands) {
        const std::string name = c.name;
        std::vector<size_t> row(name.size() + 1);
        for (size_t j = 0; j <= name.size(); ++j)
            row[j] = j;
        for (size_t i = 1; i <= word.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i;
            for (size_t j = 1; j <= name.size(); ++j) {
                const size_t up = row[j];
                row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (word[i - 1] == name[j - 1] ? 0 : 1)});
                diagonal = up;
            }
        }
        const size_t distance = word.size() >= 2 && name.compare(0, word.size(), word) == 0 ? 1 : row[name.size()];
        if (distance < bestDistance) {
            bestDistance = distance;
            best = c.name;
        }
    }
    return best;
}

// Progress of the library's threads is for developers: shown with VLORFX_VERBOSE.
void messageHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    static const bool verbose = std::getenv("VLORFX_VERBOSE") != nullptr;
    // Qt's own remarks on the environment (a runtime folder, a display) are not the user's business either.
    if (type == QtInfoMsg || type == QtDebugMsg || message.startsWith(QLatin1String("QStandardPaths:"))) {
        if (!verbose)
            return;
    }
    std::fprintf(stderr, "%s\n", qPrintable(message));
}

// The editor without windows: no main menu unless a command asks for one, no
// audio in front, and it tells the user of plugins new to it on standard
// error. Shortcuts come from the settings store, as the editor keeps them.
class HeadlessHost : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>& names) override
    {
        if (std::getenv("VLORFX_VERBOSE"))
            std::fprintf(stderr, "new plugins: %s\n", qPrintable(QStringList(names).join(QStringLiteral(", "))));
    }
    QMenu* mainMenu() override { return menu; }
    void registerAction(QAction* action, const QString& id, const QString&, const QString&) override
    {
        ids.insert(action, id);
        const QString stored = QVlorSetting::global().getString(QVlorAudioPlugins::ShortcutSettingKey(id));
        if (!stored.isEmpty())
            action->setShortcut(QKeySequence(stored));
    }
    void registerQuickOpen(int, QAction*, const QString&, const QString&, const QString&, const QString&,
                           const QString&) override
    {
    }
    void unregisterAction(QAction* action) override { ids.remove(action); }
    void unregisterQuickOpen(QAction*) override {}
    QVlorAudio currentAudio() override { return audio; }
    // Never offered: no command opens an effect from the menu.
    void presentEffectWidget(QVlorFxWidget* widget, QAction*, const QString&, const QString&) override { delete widget; }

    QMenu* menu = nullptr;
    QVlorAudio audio;
    QHash<QAction*, QString> ids;
};

HeadlessHost* s_host = nullptr;

// The library comes up and goes down as in the editor.
int runWithLibrary(const Command& c, int argc, char** argv)
{
    // Commands without windows need no display; one that is set but out of
    // reach must stop none of them: the window's command says so itself.
    if (!c.windows)
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    else if (!vlorfx::displayReachable())
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QVlorApplication app(argc, argv);
    QVlorAudioPlugins::Initialize();
    HeadlessHost host;
    s_host = &host;
    QVlorAudioPlugins::UI::install(&host);
    const QString crashed = QVlorAudioPlugins::vst3Manager()->consumeCrashSentinel();
    if (!crashed.isEmpty())
        std::fprintf(stderr, "Last run crashed while opening %s\n", vlorfx::printable(crashed).constData());
    if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager())
        vst2->loadCatalog();
    int status = c.run(argc - 2, argv + 2);
    QVlorAudioPlugins::AboutToQuit();
    if (vlorfx::reportSaveErrors("vlorfx") && status == 0)
        status = 1;
    QVlorAudioPlugins::UI::uninstall(&host);
    delete host.menu;
    s_host = nullptr;
    QVlorAudioPlugins::Finalize();
    return status;
}

} // namespace

namespace vlorfx {

QMenu* giveMainMenu()
{
    if (!s_host)
        return nullptr;
    if (!s_host->menu)
        s_host->menu = new QMenu(QStringLiteral("Main"));
    return s_host->menu;
}

QString actionId(QAction* action) { return s_host ? s_host->ids.value(action) : QString(); }

void setFrontAudio(const QVlorAudio& audio)
{
    if (s_host)
        s_host->audio = audio;
}

} // namespace vlorfx

extern "C" int VLORVST3_HostMain(int argc, char** argv);
extern "C" int VLORLV2_HostMain(int argc, char** argv);

namespace {

// --verbose, before or after --data: what plugins print and the library's
// progress, on standard error for once.
void takeVerbose(int& argc, char**& argv)
{
    if (argc < 2 || std::strcmp(argv[1], "--verbose") != 0)
        return;
    setenv("VLORFX_VERBOSE", "1", 1);
    setenv("VLOR_PLUGIN_LOG", "-", 1);
    argv[1] = argv[0];
    ++argv;
    --argc;
}

} // namespace

int main(int argc, char** argv)
{
    // A file size limit makes a write fail, which is reported, rather than end the program.
    std::signal(SIGXFSZ, SIG_IGN);
    // Each line reaches a pipe as it is printed, not at the end.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc > 1 && !std::strcmp(argv[1], "--version")) {
        std::printf("vlorfx %s\n", VLOR_VERSION);
        return 0;
    }
    if (argc == 2 && !std::strcmp(argv[1], "--data")) {
        std::fprintf(stderr, "vlorfx: --data needs a folder\n\n");
        usage(stderr);
        return 2;
    }
    takeVerbose(argc, argv);
    // The data folder is settled before the library reads anything from it.
    if (argc > 2 && !std::strcmp(argv[1], "--data")) {
        // A mistyped folder must not grow a tree of new folders: its parent is there.
        const std::string data = argv[2];
        const size_t slash = data.find_last_of('/', data.find_last_not_of('/'));
        const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : data.substr(0, slash);
        struct stat st;
        if (data.empty() || stat(parent.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            std::fprintf(stderr, "vlorfx: --data %s: the folder %s does not exist\n", data.c_str(), parent.c_str());
            return 2;
        }
        setenv("VLOR_DATA_PATH", argv[2], 1);
        argv[2] = argv[0];
        argv += 2;
        argc -= 2;
    }
    takeVerbose(argc, argv);
    // Without a VST3 host program installed, the library starts us as one.
    if (argc > 1 && !std::strcmp(argv[1], "--vst3")) {
        argv[1] = argv[0];
        return VLORVST3_HostMain(argc - 1, argv + 1);
    }
    if (argc > 1 && !std::strcmp(argv[1], "--lv2")) {
        argv[1] = argv[0];
        return VLORLV2_HostMain(argc - 1, argv + 1);
    }
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& c : kCommands) {
        if (std::strcmp(argv[1], c.name) != 0)
            continue;
        qInstallMessageHandler(messageHandler);
        if (!std::getenv("VLORFX_VERBOSE"))
            BLDEBUG_SetStderrEnabled(0);
        // The editor with windows is its own host; every other command shares one without.
        return c.run ? runWithLibrary(c, argc, argv) : runGui(argc, argv);
    }
    const char* nearest = nearestCommand(argv[1]);
    if (nearest)
        std::fprintf(stderr, "vlorfx: unknown command '%s'; did you mean '%s'?\n", argv[1], nearest);
    else
        std::fprintf(stderr, "vlorfx: unknown command '%s'\n", argv[1]);
    std::fprintf(stderr, "'vlorfx --help' lists the commands.\n");
    return 2;
}
