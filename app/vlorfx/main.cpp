// vlorfx: the reference editor on the command line. It starts the library the
// way the editor does and offers the library's work as commands.
#include "commands.h"

#include "QVlorAudioPlugins.h"

#include "bldebug.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Command {
    const char* name;
    int (*run)(int, char**);
    const char* help;
};

const Command kCommands[] = {
    {"demo", cmdDemo, "run a real plugin over a generated signal and report what it did"},
    {"apply", cmdApply, "apply a VST2 effect to an audio file (apply --help)"},
    {"scan", cmdScan, "find the plugins of the search folders and check the new ones (scan --help)"},
    {"list", cmdList, "print the plugin catalog (list --help)"},
    {"classes", cmdClasses, "list the effect classes of a VST3 bundle, loaded here"},
    {"probe", cmdProbe, "list (and verify) the effect classes of a VST3 bundle in a host process (probe --help)"},
};

void usage(FILE* out)
{
    std::fprintf(out, "usage: vlorfx [--data DIR] COMMAND [ARGS]\n\n"
                      "  --data DIR  the application's data folder for this run (settings, descriptors)\n\n"
                      "commands:\n");
    for (const Command& c : kCommands)
        std::fprintf(out, "  %-8s %s\n", c.name, c.help);
}

// Progress of the library's threads is for developers: shown with VLORFX_VERBOSE.
void messageHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    static const bool verbose = std::getenv("VLORFX_VERBOSE") != nullptr;
    if (type == QtInfoMsg || type == QtDebugMsg) {
        if (!verbose)
            return;
    }
    std::fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

extern "C" int VLORVST3_HostMain(int argc, char** argv);

int main(int argc, char** argv)
{
    // The data folder is settled before the library reads anything from it.
    if (argc > 2 && !std::strcmp(argv[1], "--data")) {
        setenv("VLOR_DATA_PATH", argv[2], 1);
        argv[2] = argv[0];
        argv += 2;
        argc -= 2;
    }
    // Without a VST3 host program installed, the library starts us as one.
    if (argc > 1 && !std::strcmp(argv[1], "--vst3")) {
        argv[1] = argv[0];
        return VLORVST3_HostMain(argc - 1, argv + 1);
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
        QCoreApplication app(argc, argv);
        QVlorAudioPlugins::Initialize();
        const int status = c.run(argc - 2, argv + 2);
        QVlorAudioPlugins::Finalize();
        return status;
    }
    std::fprintf(stderr, "vlorfx: unknown command '%s'\n", argv[1]);
    usage(stderr);
    return 2;
}
