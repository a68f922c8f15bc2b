// vlorfx categories: what the effects of the catalogs do, and how much of
// them the formats' own words and the name rules place.
#include "catalog.h"
#include "commands.h"

#include "QVlorPluginCategory.h"
#include "QVlorPluginFormat.h"

#include <QMap>

#include <cstdio>
#include <cstring>

namespace {

const char* const kHelp =
    "usage: vlorfx categories [--others]\n"
    "\n"
    "Prints, for the effects the plugin manager shows as usable, how many\n"
    "land in each category (Dynamics, EQ, ..., Other), then the share placed\n"
    "in a category other than Other by format (each form of a product counts\n"
    "for its format) and by maker. A product's category is the user's choice,\n"
    "else what its form in use declares, else its other forms, else its name.\n"
    "The last table shows how many forms their format's own words place,\n"
    "without the name rules. --others lists the products left in Other.\n";

struct Tally {
    int placed = 0;
    int all = 0;
    void add(bool isPlaced)
    {
        ++all;
        placed += isPlaced ? 1 : 0;
    }
};

bool Usable(const UnifiedFormatInfo& f) { return f.present && f.state != QLatin1String("failed") && f.state != QLatin1String("missing"); }

void PrintTally(const char* label, const QMap<QString, Tally>& tallies)
{
    std::printf("\n%s\n", label);
    for (auto it = tallies.constBegin(); it != tallies.constEnd(); ++it)
        std::printf("  %-28s %4d of %4d  %5.1f %%\n", qPrintable(it.key().isEmpty() ? QStringLiteral("(none)") : it.key()),
                    it.value().placed, it.value().all, it.value().all ? 100.0 * it.value().placed / it.value().all : 0.0);
}

} // namespace

int cmdCategories(int argc, char** argv)
{
    bool others = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (!std::strcmp(argv[i], "--others")) {
            others = true;
            continue;
        }
        std::fprintf(stderr, "vlorfx categories: unknown argument '%s'\n\n%s", argv[i], kHelp);
        return 2;
    }
    vlorfx::settle();
    QMap<QString, int> byCategory;
    QMap<QString, Tally> byFormat, byMaker, declared;
    QStringList leftOver;
    for (const UnifiedRow& r : vlorfx::pageRows()) {
        if (r.isShellHeader || r.isNewPathHeader || r.newSection != UpmNewSectionNone || r.category.isEmpty())
            continue;
        const bool placed = r.category != QLatin1String("Other");
        bool any = false;
        for (const auto& [info, badge] : {std::pair{&r.vst2, "VST2"}, {&r.vst3, "VST3"}, {&r.lv2, "LV2"}})
            if (Usable(*info)) {
                byFormat[QString::fromLatin1(badge)].add(placed);
                declared[QString::fromLatin1(badge)].add(!info->declared.isEmpty());
                any = true;
            }
        if (!any)
            continue;
        ++byCategory[r.category];
        byMaker[r.vendor].add(placed);
        if (!placed)
            leftOver << QStringLiteral("%1 (%2)").arg(r.name, r.vendor);
    }
    std::printf("products by category\n");
    for (QVlorAudioPlugins::PluginCategory c : QVlorAudioPlugins::PluginCategories())
        std::printf("  %-12s %4d\n", qPrintable(QVlorAudioPlugins::CategoryKey(c)),
                    byCategory.value(QVlorAudioPlugins::CategoryKey(c)));
    PrintTally("placed (not Other), by format", byFormat);
    PrintTally("placed (not Other), by maker", byMaker);
    PrintTally("placed by the format's own words alone, by format", declared);
    if (others) {
        std::printf("\nin Other\n");
        for (const QString& name : leftOver)
            std::printf("  %s\n", qPrintable(name));
    }
    return 0;
}
