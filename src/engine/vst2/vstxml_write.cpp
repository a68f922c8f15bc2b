// Writing descriptor files. The host program writes them for "--info" and
// the engine for its own folder of descriptors; the format is fixed by the
// readers of files written long ago.
#include "vsteffect_p.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {
constexpr int kEncodeSize = 256;
}

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

