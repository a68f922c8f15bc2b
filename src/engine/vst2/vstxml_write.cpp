// Writing descriptor files. The host program writes them for "--info" and
// the engine for its own folder of descriptors; the format is fixed by the
// readers of files written long ago.
#include "vsteffect_p.h"

#include "../utf8_p.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {
// The escape of one byte, or null when it stands for itself. Tab, line feed
// and carriage return go as character references: a parser folds them to a
// space (attributes) or a line feed (text), and a name that holds one would
// then no longer match the plugin it came from.
const char* _Escape(char c)
{
    switch (c) {
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '&': return "&amp;";
    case '\t': return "&#9;";
    case '\n': return "&#10;";
    case '\r': return "&#13;";
    default: return nullptr;
    }
}

// Writes text as XML character data, whatever its length. Names a plugin
// reports (repair true) may hold any bytes: a byte that is not UTF-8 becomes
// U+FFFD and a control character that XML cannot hold at all becomes "?", so
// that the file stays readable. The plugin's path is written as it is: it
// must compare equal to the file when read back.
void _WriteText(FILE* out, const char* text, bool repair)
{
    if (!text)
        return;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    while (*p) {
        if (const char* rep = _Escape(char(*p))) {
            std::fputs(rep, out);
            ++p;
            continue;
        }
        if (*p < 0x20) {
            std::fputc(repair ? '?' : int(*p), out);
            ++p;
            continue;
        }
        const int n = repair ? Utf8SequenceLength(p) : 1;
        if (n == 0) {
            std::fputs(UTF8_REPLACEMENT, out);
            ++p;
            continue;
        }
        std::fwrite(p, 1, size_t(n), out);
        p += n;
    }
}

void _WriteName(FILE* out, const char* text) { _WriteText(out, text, true); }
} // namespace

extern "C" void _XMLEncode(const char* source, char* destination, int size)
{
    if (!source || !destination || size <= 0 || !*source)
        return;
    int o = 0;
    for (const char* p = source; *p && o < size - 1; ++p) {
        if (const char* rep = _Escape(*p)) {
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
    // Every item once went through one shared buffer, so an empty item
    // repeats the one before it; readers of old files expect no less.
    const char* last = "";
    auto name = [&](const char* text) {
        if (text && *text)
            last = text;
        _WriteName(out, last);
    };
    std::fprintf(out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    std::fprintf(out, "<VLORVST>\n");
    std::fputs("\t<Filename>", out);
    _WriteText(out, e->filename, false);
    std::fputs("</Filename>\n", out);
    std::fprintf(out, "\t<TimeStamp>%" PRId64 "</TimeStamp>\n", e->timestamp);
    std::fprintf(out, "\t<Category>%s</Category>\n", e->category == VSTEFFECT_CATEGORY_SHELL ? "shell" : "effect");
    std::fprintf(out, "\t<UniqueID>%d</UniqueID>\n", e->uniqueId);
    std::fprintf(out, "\n");

    if (e->category == VSTEFFECT_CATEGORY_SHELL) {
        if (e->vendor[0]) {
            std::fputs("\t<VendorString>", out);
            name(e->vendor);
            std::fputs("</VendorString>\n", out);
        }
        for (int i = 0; i < e->u.shell.numShellEntries; ++i) {
            std::fprintf(out, "\t<VSTPlugin id=\"%d\" name=\"", e->u.shell.shellEntries[i].id);
            _WriteName(out, e->u.shell.shellEntries[i].name);
            std::fputs("\"/>\n", out);
        }
    } else {
        std::fprintf(out, "\t<VSTPluginDescription>\n");
        std::fputs("\t\t<VendorString>", out);
        name(e->vendor);
        std::fputs("</VendorString>\n", out);
        std::fputs("\t\t<ProductString>", out);
        name(e->product);
        std::fputs("</ProductString>\n", out);
        std::fputs("\t\t<EffectName>", out);
        name(e->effectName);
        std::fputs("</EffectName>\n", out);
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
            std::fputs("\t\t<Program name=\"", out);
            name(prog->name);
            std::fprintf(out, "\" id=\"%d\">\n", p);
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
                std::fputs("\t\t\t<ValueType name=\"", out);
                name(vt->name);
                std::fputs("\">\n", out);
                for (int k = 0; k < vt->count; ++k) {
                    std::fputs("\t\t\t\t<Entry name=\"", out);
                    name(vt->entries[k].name);
                    std::fputs("\"", out);
                    std::fprintf(out, " value=\"[%g, %g]\" />\n", double(vt->entries[k].low),
                                 double(vt->entries[k].high));
                }
                std::fprintf(out, "\t\t\t</ValueType>\n\n");
            }
            for (int i = 0; i < e->numParams; ++i) {
                const ParameterRecord& p = e->parameters[i];
                std::fputs("\t\t\t<Param name=\"", out);
                name(p.name);
                std::fputs("\" shortName=\"", out);
                name(p.name);
                std::fputs("\" ", out);
                if (p.label[0]) {
                    std::fputs("label=\"", out);
                    name(p.label);
                    std::fputs("\" ", out);
                }
                if (p.kind == 1 && p.valueType) {
                    std::fputs("type=\"", out);
                    name(p.valueType->name);
                    std::fputs("\" ", out);
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
                    std::fputs("minDisplayValue=\"", out);
                    name(p.minDisplay);
                    std::fputs("\" ", out);
                    std::fputs("maxDisplayValue=\"", out);
                    name(p.maxDisplay);
                    std::fputs("\" ", out);
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

