// vlorfx classes: the effect classes of a VST3 bundle, loaded in this process.
#include "commands.h"

#include "vst3engine.h"

#include <cstdio>
#include <cstring>
#include <vector>

int cmdClasses(int argc, char** argv)
{
    if (argc != 1 || !std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h")) {
        std::fprintf(argc == 1 ? stdout : stderr,
                     "usage: vlorfx classes BUNDLE\n\nLists the effect classes of a VST3 bundle. The bundle is loaded "
                     "in this process.\n");
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
