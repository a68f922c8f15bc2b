// vlorfx classes: the effect classes of a VST3 bundle, loaded in this process.
#include "commands.h"
#include "lv2.h"

#include "vst3engine.h"
#include "QVlorVst3_Probe.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>
#include <cstring>
#include <vector>

int cmdClasses(int argc, char** argv)
{
    if (argc != 1 || !std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h")) {
        std::fprintf(argc == 1 ? stdout : stderr,
                     "usage: vlorfx classes BUNDLE\n\nLists the effect classes of a VST3 bundle. The bundle is loaded "
                     "in this process.\n\nexample:\n  vlorfx classes /usr/lib/vst3/ZamComp.vst3\n");
        return argc == 1 ? 0 : 2;
    }
    VLORVST3_Initialize();
    std::vector<Vst3ClassRecord> records(256);
    const int n = VLORVST3_ListClasses(argv[0], records.data(), int(records.size()));
    if (n < 0) {
        std::fprintf(stderr, "vlorfx classes: %s is not a VST3 bundle that loads here\n", argv[0]);
        return 1;
    }
    for (int i = 0; i < n; ++i) {
        const Vst3ClassRecord& r = records[size_t(i)];
        std::printf("%s  %-28s %-20s %-28s %s\n", r.uid, r.name, r.vendor, r.subCategories, r.version);
    }
    return 0;
}

// vlorfx probe: the same listing as the library's scan gets it, from a child
// host process, so that a bundle that crashes or hangs cannot take us along.
int cmdProbe(int argc, char** argv)
{
    if (argc >= 1 && !std::strcmp(argv[0], "--lv2"))
        return vlorfx::probeLv2(argc - 1, argv + 1);
    bool verify = false;
    if (argc == 2 && !std::strcmp(argv[0], "--verify")) {
        verify = true;
        ++argv;
        --argc;
    }
    if (argc != 1 || !std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h")) {
        std::fprintf(argc == 1 ? stdout : stderr,
                     "usage: vlorfx probe [--verify] BUNDLE\n\nLists the effect classes of a VST3 bundle, loaded in a "
                     "host process of its own.\n  --verify  also open each class in full (set up, start, process, "
                     "stop) and report the outcome\n\nexample:\n  vlorfx probe --verify /usr/lib/vst3/ZamComp.vst3\n");
        return argc == 1 ? 0 : 2;
    }
    const int timeoutMs = 30000;
    const QString bundle = QString::fromLocal8Bit(argv[0]);
    QJsonObject reply;
    QString error;
    if (!QVlorVst3::ProbeBundle(bundle, timeoutMs, &reply, &error)) {
        std::fprintf(stderr, "vlorfx probe: %s: %s\n", argv[0], qPrintable(error));
        return 1;
    }
    int failures = 0;
    for (const QJsonValue& v : reply.value(QStringLiteral("classes")).toArray()) {
        const QJsonObject c = v.toObject();
        const QString cid = c.value(QStringLiteral("cid")).toString();
        std::printf("%s  %-28s %-20s %-28s %s", qPrintable(cid), qPrintable(c.value(QStringLiteral("name")).toString()),
                    qPrintable(c.value(QStringLiteral("vendor")).toString()),
                    qPrintable(c.value(QStringLiteral("subCategories")).toString()),
                    qPrintable(c.value(QStringLiteral("version")).toString()));
        if (verify) {
            if (QVlorVst3::VerifyClass(bundle, cid, timeoutMs, &error)) {
                std::printf("  verified");
            } else {
                std::printf("  FAILED: %s", qPrintable(error));
                ++failures;
            }
        }
        std::printf("\n");
    }
    if (reply.value(QStringLiteral("truncated")).toBool())
        std::printf("(more classes than the host lists)\n");
    return failures ? 1 : 0;
}
