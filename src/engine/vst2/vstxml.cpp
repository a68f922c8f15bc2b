// Descriptor files: what the host program learned of a plugin, kept as XML so
// that the plugin need not be loaded again to be listed.
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

constexpr int kEncodeSize = 256;
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

extern "C" void _XMLEncode(const char* source, char* destination, int size)
{
    if (!source || !destination || size <= 0 || !*source)
        return;
    int o = 0;
    for (const char* p = source; *p && o < size - 1; ++p) {
        const char* rep = *p == '<' ? "&lt;" : *p == '>' ? "&gt;" : *p == '"' ? "&quot;" : *p == '&' ? "&amp;" : nullptr;
        if (rep) {
            const int n = std::snprintf(destination + o, size_t(size - o), "%s", rep);
            if (n >= size - o) {
                o = size - 1; // what snprintf could write stays; nothing more
                break;
            }
            o += n;
        } else {
            destination[o++] = *p;
        }
    }
    destination[o] = '\0';
}

extern "C" int _WriteVSTXML(const _VSTEFFECT* e, FILE* out)
{
    if (!e || !out)
        return 0;
    // One buffer for every encoded item, as the format has always been written.
    char enc[kEncodeSize] = "";
    std::fprintf(out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    std::fprintf(out, "<VLORVST>\n");
    std::fprintf(out, "\t<Filename>%s</Filename>\n", e->filename ? e->filename : "");
    std::fprintf(out, "\t<TimeStamp>%" PRId64 "</TimeStamp>\n", e->timestamp);
    std::fprintf(out, "\t<Category>%s</Category>\n", e->category == VSTEFFECT_CATEGORY_SHELL ? "shell" : "effect");
    std::fprintf(out, "\t<UniqueID>%d</UniqueID>\n", e->uniqueId);
    std::fprintf(out, "\n");

    if (e->category == VSTEFFECT_CATEGORY_SHELL) {
        if (e->vendor[0]) {
            _XMLEncode(e->vendor, enc, kEncodeSize);
            std::fprintf(out, "\t<VendorString>%s</VendorString>\n", enc);
        }
        for (int i = 0; i < e->u.shell.numShellEntries; ++i)
            std::fprintf(out, "\t<VSTPlugin id=\"%d\" name=\"%s\"/>\n", e->u.shell.shellEntries[i].id,
                         e->u.shell.shellEntries[i].name);
    } else {
        std::fprintf(out, "\t<VSTPluginDescription>\n");
        _XMLEncode(e->vendor, enc, kEncodeSize);
        std::fprintf(out, "\t\t<VendorString>%s</VendorString>\n", enc);
        _XMLEncode(e->product, enc, kEncodeSize);
        std::fprintf(out, "\t\t<ProductString>%s</ProductString>\n", enc);
        _XMLEncode(e->effectName, enc, kEncodeSize);
        std::fprintf(out, "\t\t<EffectName>%s</EffectName>\n", enc);
        std::fprintf(out, "\t\t<Flags>%d</Flags>\n", int(e->u.fx.flags));
        std::fprintf(out, "\t\t<Version>%d</Version>\n", e->u.fx.version);
        std::fprintf(out, "\t\t<UniqueID>%d</UniqueID>\n", e->uniqueId);
        std::fprintf(out, "\t\t<NumInputs>%d</NumInputs>\n", e->u.fx.numInputs);
        std::fprintf(out, "\t\t<NumOutputs>%d</NumOutputs>\n", e->u.fx.numOutputs);
        std::fprintf(out, "\t\t<NumParams>%d</NumParams>\n", e->numParams);
        std::fprintf(out, "\t</VSTPluginDescription>\n\n");

        std::fprintf(out, "\t<VSTPrograms>\n");
        if (e->numParams > 0 && e->defaultProgram) {
            std::fprintf(out, "\t\t<DefaultProgram>\n");
            for (int i = 0; i < e->numParams; ++i)
                std::fprintf(out, "\t\t\t<Param id=\"%d\" value=\"%g\" />\n", i, double(e->defaultProgram->values[i]));
            std::fprintf(out, "\t\t</DefaultProgram>\n");
        }
        for (int p = 0; e->numParams > 0 && p < e->numPrograms; ++p) {
            const ProgramRecord* prog = e->programs ? e->programs[p] : nullptr;
            if (!prog)
                continue;
            _XMLEncode(prog->name, enc, kEncodeSize);
            std::fprintf(out, "\t\t<Program name=\"%s\" id=\"%d\">\n", enc, p);
            for (int i = 0; i < e->numParams; ++i)
                std::fprintf(out, "\t\t\t<Param id=\"%d\" value=\"%g\" />\n", i, double(prog->values[i]));
            std::fprintf(out, "\t\t</Program>\n");
        }
        std::fprintf(out, "\t</VSTPrograms>\n\n");

        if (e->numParams > 0 && e->parameters) {
            std::fprintf(out, "\t<VSTPluginProperties>\n");
            std::fprintf(out, "\t\t<VSTParametersStructure>\n\n");
            for (int t = 0; t < e->numValueTypes; ++t) {
                const ValueType* vt = e->valueTypes ? e->valueTypes[t] : nullptr;
                if (!vt)
                    continue;
                _XMLEncode(vt->name, enc, kEncodeSize);
                std::fprintf(out, "\t\t\t<ValueType name=\"%s\">\n", enc);
                for (int k = 0; k < vt->count; ++k) {
                    _XMLEncode(vt->entries[k].name, enc, kEncodeSize);
                    std::fprintf(out, "\t\t\t\t<Entry name=\"%s\"", enc);
                    std::fprintf(out, " value=\"[%g, %g]\" />\n", double(vt->entries[k].low),
                                 double(vt->entries[k].high));
                }
                std::fprintf(out, "\t\t\t</ValueType>\n\n");
            }
            for (int i = 0; i < e->numParams; ++i) {
                const ParameterRecord& p = e->parameters[i];
                _XMLEncode(p.name, enc, kEncodeSize);
                std::fprintf(out, "\t\t\t<Param name=\"%s\" shortName=\"%s\" ", enc, enc);
                if (p.label[0]) {
                    _XMLEncode(p.label, enc, kEncodeSize);
                    std::fprintf(out, "label=\"%s\" ", enc);
                }
                if (p.kind == 1 && p.valueType) {
                    _XMLEncode(p.valueType->name, enc, kEncodeSize);
                    std::fprintf(out, "type=\"%s\" ", enc);
                }
                std::fprintf(out, "id=\"%d\" />\n", i);
            }
            std::fprintf(out, "\n");
            std::fprintf(out, "\t\t</VSTParametersStructure>\n");
            std::fprintf(out, "\t</VSTPluginProperties>\n\n");

            std::fprintf(out, "\t<VLORVSTPluginProperties>\n");
            std::fprintf(out, "\t\t<VLORVSTParametersStructure>\n");
            for (int i = 0; i < e->numParams; ++i) {
                const ParameterRecord& p = e->parameters[i];
                if (p.kind == 2) {
                    std::fprintf(out, "\t\t\t<Param id=\"%d\" kind=\"linear\" ", i);
                    std::fprintf(out, "minDisplayValue=\"%g\" ", double(p.minValue));
                    std::fprintf(out, "maxDisplayValue=\"%g\" ", double(p.maxValue));
                    std::fprintf(out, "/>\n");
                } else if (p.kind == 3) {
                    std::fprintf(out, "\t\t\t<Param id=\"%d\" kind=\"nonlinear\" ", i);
                    _XMLEncode(p.minDisplay, enc, kEncodeSize);
                    std::fprintf(out, "minDisplayValue=\"%s\" ", enc);
                    _XMLEncode(p.maxDisplay, enc, kEncodeSize);
                    std::fprintf(out, "maxDisplayValue=\"%s\" ", enc);
                    std::fprintf(out, "/>\n");
                }
            }
            std::fprintf(out, "\t\t</VLORVSTParametersStructure>\n");
            std::fprintf(out, "\t</VLORVSTPluginProperties>\n\n");
        }
    }
    std::fprintf(out, "</VLORVST>\n");
    return std::ferror(out) ? 0 : 1;
}

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
