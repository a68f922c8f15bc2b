#pragma once
// Presets on the command line: a plugin of any format opened in this process
// as a preset target, and a preset turned into the editor's filter settings.

#include "QVlorPresetTargets.h"

#include <memory>
#include <string>

namespace vlorfx {

// Which plugin: one of the three given.
struct PluginChoice {
    std::string vst2; // a file
    int id = 0;       // in a shell
    std::string bundle, cid; // VST3
    std::string lv2;  // a URI
};

class OpenedPlugin {
public:
    OpenedPlugin() = default;
    ~OpenedPlugin();
    OpenedPlugin(const OpenedPlugin&) = delete;
    OpenedPlugin& operator=(const OpenedPlugin&) = delete;

    // Checks an LV2 plugin in the host program first; a VST2 plugin is not
    // run at all (its record holds its parameters and programs).
    bool open(const PluginChoice& choice, std::string* error);
    QVlorAudioPlugins::PresetTarget* target() const { return m_target.get(); }
    // The filter's settings for the plugin as it is now (the preset loaded):
    // "KEY=VALUE,..." after the plugin's own keys.
    std::string filterSettings() const;
    std::string name() const { return m_name; }
    // A VST3 processor hears values set on the controller in a block: one of
    // silence before its state is read.
    void settle() const;

private:
    PluginChoice m_choice;
    std::string m_name, m_hash;
    _Vst3Instance* m_vst3 = nullptr;
    _Lv2Instance* m_lv2 = nullptr;
    std::unique_ptr<QVlorAudioPlugins::PresetTarget> m_target;
};

// A preset by name loaded into the plugin: the user's, else the factory's.
// unmatched: the preset's parameters the plugin has none of.
bool LoadNamedPreset(OpenedPlugin& plugin, const std::string& name, QStringList* unmatched, std::string* error);

} // namespace vlorfx
