#ifndef QVLORPLUGINCATEGORY_H
#define QVLORPLUGINCATEGORY_H
// What an effect does, in one vocabulary for every format: what the format
// declares where it says something useful, a table of words in the name where
// it does not, and the user's own choice above both.

#include "QVlorAudioPluginsExport.h"
#include <QList>
#include <QString>

namespace QVlorAudioPlugins {

enum class PluginCategory {
    Dynamics,
    EQ,
    Filter,
    Reverb,
    Delay,
    Modulation,
    Distortion,
    Pitch,
    Spatial,
    Analyzer,
    Restoration,
    Utility,
    Other,
};

// Every category, in the order menus and the page show them; Other last.
QVLOR_PLUGINS_EXPORT QList<PluginCategory> PluginCategories();
// The category's key, also its English name: "Dynamics", "EQ", ...
QVLOR_PLUGINS_EXPORT QString CategoryKey(PluginCategory category);
// The category's name for a person, translated.
QVLOR_PLUGINS_EXPORT QString CategoryLabel(PluginCategory category);
// A key back to its category; false for a text that names none.
QVLOR_PLUGINS_EXPORT bool CategoryFromKey(const QString& key, PluginCategory* category);

// What each format declares, or Other where it leaves it vague: a VST2
// plugin category (the numbers of its ABI), a VST3 class's subcategories
// ("Fx|Reverb"), an LV2 class's label ("Compressor", "Reverb").
QVLOR_PLUGINS_EXPORT PluginCategory CategoryOfVst2(int plugCategory);
QVLOR_PLUGINS_EXPORT PluginCategory CategoryOfVst3(const QString& subCategories);
QVLOR_PLUGINS_EXPORT PluginCategory CategoryOfLv2(const QString& classLabel);
// The words of a name ("ZamComp", "LSP Graphic Equalizer x16"); Other when none tells.
QVLOR_PLUGINS_EXPORT PluginCategory CategoryByName(const QString& name);

} // namespace QVlorAudioPlugins

#endif
