#include "presets.h"
#include "lv2.h"
#include "text.h"

#include "QVlorPluginFormat.h"

#include "audiovst.h"
#include "lv2engine.h"
#include "vst3engine.h"

#include <QJsonObject>

#include <cctype>
#include <vector>

namespace vlorfx {

namespace {

bool openVst3(const PluginChoice& c, std::string* cid, std::string* name, std::string* vendor, std::string* error)
{
    std::vector<Vst3ClassRecord> classes(64);
    const int n = VLORVST3_ListClasses(c.bundle.c_str(), classes.data(), int(classes.size()));
    if (n < 0) {
        *error = c.bundle + " is not a VST3 bundle that loads here";
        return false;
    }
    *cid = c.cid;
    for (char& ch : *cid)
        ch = char(std::toupper(static_cast<unsigned char>(ch)));
    if (cid->empty() && n == 1)
        *cid = classes[0].uid;
    for (int k = 0; k < n; ++k)
        if (*cid == classes[size_t(k)].uid) {
            *name = classes[size_t(k)].name;
            *vendor = classes[size_t(k)].vendor;
            return true;
        }
    *error = cid->empty() ? c.bundle + " holds several effects; choose one with --cid" : "no effect class " + *cid + " in " + c.bundle;
    return false;
}

} // namespace

OpenedPlugin::~OpenedPlugin()
{
    m_target.reset();
    VLORVST3_DestroyInstance(m_vst3);
    VLORLV2_DestroyInstance(m_lv2);
}

bool OpenedPlugin::open(const PluginChoice& choice, std::string* error)
{
    m_choice = choice;
    if (!choice.bundle.empty()) {
        std::string vendor;
        if (!openVst3(choice, &m_choice.cid, &m_name, &vendor, error))
            return false;
        m_vst3 = VLORVST3_CreateInstance(choice.bundle.c_str(), m_choice.cid.c_str());
        if (!m_vst3 || !VLORVST3_StartEngine(m_vst3)) {
            *error = "the effect " + m_choice.cid + " did not start";
            return false;
        }
        VLORVST3_SetAudioFormat(m_vst3, 44100, 2);
        m_target = std::make_unique<QVlorAudioPlugins::Vst3PresetTarget>(
            m_vst3, QString::fromStdString(m_choice.cid), QString::fromStdString(m_name), QString::fromStdString(vendor));
        return true;
    }
    if (!choice.lv2.empty()) {
        QJsonObject report;
        QString why;
        if (!CheckLv2(choice.lv2.c_str(), &report, &why)) {
            *error = choice.lv2 + ": " + why.toStdString();
            return false;
        }
        char text[512] = "";
        VLORLV2_Initialize();
        m_lv2 = VLORLV2_CreateInstance(choice.lv2.c_str(), 44100, 64, text, sizeof(text));
        if (!m_lv2) {
            *error = choice.lv2 + ": " + text;
            return false;
        }
        m_name = report.value(QStringLiteral("name")).toString().toStdString();
        m_target = std::make_unique<QVlorAudioPlugins::Lv2PresetTarget>(m_lv2, QString::fromStdString(choice.lv2),
                                                                       QString::fromStdString(m_name));
        return true;
    }
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(choice.vst2.c_str(), choice.id, false);
    if (!e || !AUDIOVST_IsEffect(e)) {
        *error = choice.vst2 + " is no VST2 effect that could be checked here";
        return false;
    }
    m_name = AUDIOVST_GetDisplayName(e);
    m_hash = AUDIOVST_GetHash(e);
    m_target = std::make_unique<QVlorAudioPlugins::Vst2PresetTarget>(
        e, nullptr,
        QVlorAudioPlugins::Vst2RowIdentity(qint64(int32_t(AUDIOVST_GetUniqueID(e))), QString::fromUtf8(AUDIOVST_GetHash(e)),
                                           choice.id));
    return true;
}

void OpenedPlugin::settle() const
{
    if (!m_vst3)
        return;
    std::vector<float> silence(2 * 64, 0.0f);
    VLORVST3_ProcessAudio(m_vst3, silence.data(), silence.data(), 2, 64);
}

std::string OpenedPlugin::filterSettings() const
{
    settle();
    if (m_vst3)
        return "vst3effect_uid=" + vlorfx::quoted(m_choice.cid) + ",vst3effect_path=" + vlorfx::quoted(m_choice.bundle) + "," +
               m_target->state().toStdString();
    if (m_lv2)
        return "lv2effect_uri=" + vlorfx::quoted(m_choice.lv2) + ",lv2effect_state=" +
               vlorfx::quoted(m_target->state().toUtf8().toBase64().toStdString());
    return "vsteffect_hash=" + vlorfx::quoted(m_hash) + ",vsteffect_filename=" + vlorfx::quoted(m_choice.vst2) +
           ",params=" + m_target->state().toStdString();
}

bool LoadNamedPreset(OpenedPlugin& plugin, const std::string& name, QStringList* unmatched, std::string* error)
{
    QVlorAudioPlugins::Preset user;
    QString factory;
    QVlorAudioPlugins::PresetTarget& target = *plugin.target();
    if (!QVlorAudioPlugins::FindPreset(target, QString::fromStdString(name), &user, &factory)) {
        *error = "no preset named '" + name + "' for " + plugin.name() + " (vlorfx preset list shows them)";
        return false;
    }
    if (!factory.isEmpty()) {
        if (target.loadFactoryPreset(factory))
            return true;
        *error = "the factory preset '" + name + "' cannot be loaded";
        return false;
    }
    QString why;
    if (QVlorAudioPlugins::ApplyPreset(user, target, unmatched, &why))
        return true;
    *error = why.toStdString();
    return false;
}

} // namespace vlorfx
