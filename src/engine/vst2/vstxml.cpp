// Reading descriptor files: what the host program learned of a plugin, kept
// as XML so that the plugin need not be loaded again to be listed.
#include "vsteffect_p.h"

#include "bldom.h"
#include "blioutils.h"
#include "blstring.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int kMaxItems = 100000; // a bound on what a descriptor may claim

void cut(char* dst, size_t size, const char* src) { std::snprintf(dst, size, "%s", src ? src : ""); }

const char* text(BLDOM dom, const char* path)
{
    return BLDOM_NodeTextContent(dom, BLDOM_FindNode(dom, "%s", path));
}

int intText(BLDOM dom, const char* path) { return int(std::strtoll(text(dom, path), nullptr, 10)); }

const char* attr(BLDOM dom, BLDOMNode node, const char* name)
{
    const char* v = BLDOM_NodeAttributeTextValue(dom, node, name);
    return v ? v : "";
}

std::vector<BLDOMNode> nodes(BLDOM dom, const char* path)
{
    const int n = BLDOM_FindNodes(dom, nullptr, 0, "%s", path);
    std::vector<BLDOMNode> out(size_t(n > 0 && n <= kMaxItems ? n : 0));
    if (!out.empty())
        BLDOM_FindNodes(dom, out.data(), int(out.size()), "%s", path);
    return out;
}

BLDOMNode _FindNodeWithId(BLDOM dom, const std::vector<BLDOMNode>& list, int id)
{
    if (list.empty())
        return nullptr;
    // Parameters are usually in order: one look each.
    if (size_t(id) < list.size() && std::atoi(attr(dom, list[size_t(id)], "id")) == id)
        return list[size_t(id)];
    for (BLDOMNode n : list)
        if (std::atoi(attr(dom, n, "id")) == id)
            return n;
    return nullptr;
}

void readValues(BLDOM dom, const std::vector<BLDOMNode>& params, float* values, int numParams)
{
    for (BLDOMNode n : params) {
        const long long id = std::strtoll(attr(dom, n, "id"), nullptr, 10);
        if (id >= 0 && id < numParams)
            values[id] = float(std::atof(attr(dom, n, "value")));
    }
}

ValueType* buildValueType(_VSTEFFECT* e, BLDOM dom, const char* name)
{
    char path[512];
    std::snprintf(path, sizeof(path),
                  "/VLORVST/VSTPluginProperties/VSTParametersStructure/ValueType[@name=\"%s\"]/Entry", name);
    // A name that cannot stand in the path language finds no entries.
    if (std::strchr(name, '"'))
        return nullptr;
    const std::vector<BLDOMNode> entries = nodes(dom, path);
    if (entries.empty())
        return nullptr;
    auto* vt = static_cast<ValueType*>(BLMEM_NewEx(e->memDescr, sizeof(ValueType), 0));
    vt->entries = static_cast<ValueTypeEntry*>(BLMEM_NewEx(e->memDescr, entries.size() * sizeof(ValueTypeEntry), 0));
    cut(vt->name, sizeof(vt->name), name);
    vt->count = int32_t(entries.size());
    for (size_t k = 0; k < entries.size(); ++k) {
        cut(vt->entries[k].name, sizeof(vt->entries[k].name), attr(dom, entries[k], "name"));
        float range[2] = {0, 0};
        BLSTRING_GetFloatVectorValuesFromString(attr(dom, entries[k], "value"), range, 2);
        vt->entries[k].low = range[0];
        vt->entries[k].high = range[1];
    }
    return vt;
}

void readParameter(_VSTEFFECT* e, BLDOM dom, BLDOMNode node, const std::vector<BLDOMNode>& extra, int i)
{
    ParameterRecord& p = e->parameters[i];
    cut(p.name, sizeof(p.name), attr(dom, node, "name"));
    cut(p.label, sizeof(p.label), attr(dom, node, "label"));
    const char* type = BLDOM_NodeAttributeTextValue(dom, node, "type");
    if (!type) {
        BLDOMNode x = _FindNodeWithId(dom, extra, i);
        if (!x)
            return;
        if (const char* label = BLDOM_NodeAttributeTextValue(dom, x, "label"))
            cut(p.label, sizeof(p.label), label);
        p.kind = std::strcmp(attr(dom, x, "kind"), "linear") == 0 ? 2 : 3;
        cut(p.minDisplay, sizeof(p.minDisplay), attr(dom, x, "minDisplayValue"));
        cut(p.maxDisplay, sizeof(p.maxDisplay), attr(dom, x, "maxDisplayValue"));
        if (p.kind == 2) {
            std::sscanf(p.minDisplay, "%f", &p.minValue);
            std::sscanf(p.maxDisplay, "%f", &p.maxValue);
        }
        return;
    }
    p.kind = 1;
    // A value type is shared by every parameter that names it.
    for (int k = 0; k < e->numValueTypes; ++k) {
        if (e->valueTypes[k] && std::strcmp(e->valueTypes[k]->name, type) == 0) {
            p.valueType = e->valueTypes[k];
            return;
        }
        if (!e->valueTypes[k]) {
            e->valueTypes[k] = buildValueType(e, dom, type);
            p.valueType = e->valueTypes[k];
            return;
        }
    }
}

void loadEffect(_VSTEFFECT* e, BLDOM dom)
{
    cut(e->vendor, sizeof(e->vendor), text(dom, "/VLORVST/VSTPluginDescription/VendorString"));
    cut(e->product, sizeof(e->product), text(dom, "/VLORVST/VSTPluginDescription/ProductString"));
    cut(e->effectName, sizeof(e->effectName), text(dom, "/VLORVST/VSTPluginDescription/EffectName"));
    e->u.fx.flags = uint32_t(intText(dom, "/VLORVST/VSTPluginDescription/Flags"));
    e->u.fx.version = intText(dom, "/VLORVST/VSTPluginDescription/Version");
    e->plugCategory = intText(dom, "/VLORVST/VSTPluginDescription/PlugCategory");
    e->u.fx.numInputs = intText(dom, "/VLORVST/VSTPluginDescription/NumInputs");
    e->u.fx.numOutputs = intText(dom, "/VLORVST/VSTPluginDescription/NumOutputs");

    const std::vector<BLDOMNode> types = nodes(dom, "/VLORVST/VSTPluginProperties/VSTParametersStructure/ValueType");
    e->numValueTypes = int32_t(types.size());
    e->valueTypes = types.empty()
                        ? nullptr
                        : static_cast<ValueType**>(BLMEM_NewEx(e->memDescr, types.size() * sizeof(ValueType*), 0));

    // The count of parameter nodes overrules the number written in NumParams.
    const std::vector<BLDOMNode> params = nodes(dom, "/VLORVST/VSTPluginProperties/VSTParametersStructure/Param");
    e->numParams = int32_t(params.size());
    e->parameters = nullptr;
    if (e->numParams > 0) {
        e->parameters =
            static_cast<ParameterRecord*>(BLMEM_NewEx(e->memDescr, params.size() * sizeof(ParameterRecord), 0));
        const std::vector<BLDOMNode> extra =
            nodes(dom, "/VLORVST/VLORVSTPluginProperties/VLORVSTParametersStructure/Param");
        for (int i = 0; i < e->numParams; ++i)
            if (BLDOMNode n = _FindNodeWithId(dom, params, i))
                readParameter(e, dom, n, extra, i);
    }

    auto newProgram = [e](const char* name, int32_t id) {
        auto* p = static_cast<ProgramRecord*>(BLMEM_NewEx(e->memDescr, sizeof(ProgramRecord), 0));
        cut(p->name, sizeof(p->name), name);
        p->id = id;
        p->values = static_cast<float*>(BLMEM_NewEx(e->memDescr, size_t(e->numParams) * sizeof(float) + 1, 0));
        return p;
    };
    e->defaultProgram = nullptr;
    if (BLDOM_FindNode(dom, "/VLORVST/VSTPrograms/DefaultProgram")) {
        e->defaultProgram = newProgram("default", -1);
        readValues(dom, nodes(dom, "/VLORVST/VSTPrograms/DefaultProgram/Param"), e->defaultProgram->values,
                   e->numParams);
    }
    const std::vector<BLDOMNode> programs = nodes(dom, "/VLORVST/VSTPrograms/Program");
    e->numPrograms = int32_t(programs.size());
    e->programs = programs.empty() ? nullptr
                                   : static_cast<ProgramRecord**>(
                                         BLMEM_NewEx(e->memDescr, programs.size() * sizeof(ProgramRecord*), 0));
    for (size_t k = 0; k < programs.size(); ++k) {
        const char* id = attr(dom, programs[k], "id");
        ProgramRecord* p = newProgram(attr(dom, programs[k], "name"), int32_t(std::atoi(id)));
        char path[128];
        std::snprintf(path, sizeof(path), "/VLORVST/VSTPrograms/Program[@id=%d]/Param", p->id);
        readValues(dom, nodes(dom, path), p->values, e->numParams);
        e->programs[k] = p;
    }
}

void loadShell(_VSTEFFECT* e, BLDOM dom)
{
    cut(e->vendor, sizeof(e->vendor), text(dom, "/VLORVST/VendorString"));
    const std::vector<BLDOMNode> entries = nodes(dom, "/VLORVST/VSTPlugin");
    e->u.shell.numShellEntries = int32_t(entries.size());
    e->u.shell.shellEntries =
        entries.empty() ? nullptr
                        : static_cast<ShellEntry*>(BLMEM_NewEx(e->memDescr, entries.size() * sizeof(ShellEntry), 0));
    for (size_t k = 0; k < entries.size(); ++k) {
        ShellEntry& s = e->u.shell.shellEntries[k];
        s.id = int32_t(std::strtoll(attr(dom, entries[k], "id"), nullptr, 10));
        cut(s.name, sizeof(s.name), attr(dom, entries[k], "name"));
        s.effect = nullptr;
    }
}

} // namespace

extern "C" int _LoadFromVSTXML(_VSTEFFECT* e, const char* path)
{
    if (!e || !path)
        return 0;
    BLDOM dom = BLDOM_CreateFromXMLFile(path);
    if (!dom)
        return 0;
    // A descriptor belongs to the path that wrote it: a moved plugin is a new one.
    if (!e->filename || BLIOUTILS_ComparePath(text(dom, "/VLORVST/Filename"), e->filename) != 0) {
        BLDOM_Destroy(dom);
        return 0;
    }
    MutexLock(e->lock);
    e->category = std::strcmp(text(dom, "/VLORVST/Category"), "shell") == 0 ? VSTEFFECT_CATEGORY_SHELL
                                                                           : VSTEFFECT_CATEGORY_EFFECT;
    e->timestamp = int64_t(std::strtoll(text(dom, "/VLORVST/TimeStamp"), nullptr, 10));
    e->uniqueId = int32_t(std::strtoll(text(dom, "/VLORVST/UniqueID"), nullptr, 10));
    if (e->category == VSTEFFECT_CATEGORY_SHELL)
        loadShell(e, dom);
    else
        loadEffect(e, dom);
    MutexUnlock(e->lock);
    BLDOM_Destroy(dom);
    return 1;
}
