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

namespace {

// One descriptor, section by section.
class DescriptorWriter {
public:
    explicit DescriptorWriter(FILE* out) : m_out(out) {}

    void header(const _VSTEFFECT* e)
    {
        std::fprintf(m_out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
        std::fprintf(m_out, "<VLORVST>\n");
        std::fputs("\t<Filename>", m_out);
        _WriteText(m_out, e->filename, false);
        std::fputs("</Filename>\n", m_out);
        std::fprintf(m_out, "\t<TimeStamp>%" PRId64 "</TimeStamp>\n", e->timestamp);
        std::fprintf(m_out, "\t<Category>%s</Category>\n", e->category == VSTEFFECT_CATEGORY_SHELL ? "shell" : "effect");
        std::fprintf(m_out, "\t<UniqueID>%d</UniqueID>\n", e->uniqueId);
        std::fprintf(m_out, "\n");
    }

    void shellEntries(const _VSTEFFECT* e)
    {
        if (e->vendor[0])
            element("\t", "VendorString", e->vendor);
        for (int i = 0; i < e->u.shell.numShellEntries; ++i) {
            std::fprintf(m_out, "\t<VSTPlugin id=\"%d\" name=\"", e->u.shell.shellEntries[i].id);
            _WriteName(m_out, e->u.shell.shellEntries[i].name);
            std::fputs("\"/>\n", m_out);
        }
    }

    void description(const _VSTEFFECT* e)
    {
        std::fprintf(m_out, "\t<VSTPluginDescription>\n");
        element("\t\t", "VendorString", e->vendor);
        element("\t\t", "ProductString", e->product);
        element("\t\t", "EffectName", e->effectName);
        std::fprintf(m_out, "\t\t<Flags>%d</Flags>\n", int(e->u.fx.flags));
        std::fprintf(m_out, "\t\t<Version>%d</Version>\n", e->u.fx.version);
        std::fprintf(m_out, "\t\t<UniqueID>%d</UniqueID>\n", e->uniqueId);
        std::fprintf(m_out, "\t\t<PlugCategory>%d</PlugCategory>\n", e->plugCategory);
        std::fprintf(m_out, "\t\t<NumInputs>%d</NumInputs>\n", e->u.fx.numInputs);
        std::fprintf(m_out, "\t\t<NumOutputs>%d</NumOutputs>\n", e->u.fx.numOutputs);
        std::fprintf(m_out, "\t\t<NumParams>%d</NumParams>\n", e->numParams);
        std::fprintf(m_out, "\t</VSTPluginDescription>\n\n");
    }

    void programs(const _VSTEFFECT* e)
    {
        std::fprintf(m_out, "\t<VSTPrograms>\n");
        if (e->numParams > 0 && e->defaultProgram) {
            std::fprintf(m_out, "\t\t<DefaultProgram>\n");
            values(e->defaultProgram->values, e->numParams);
            std::fprintf(m_out, "\t\t</DefaultProgram>\n");
        }
        for (int p = 0; e->numParams > 0 && p < e->numPrograms; ++p) {
            const ProgramRecord* prog = e->programs ? e->programs[p] : nullptr;
            if (!prog)
                continue;
            std::fputs("\t\t<Program name=\"", m_out);
            name(prog->name);
            std::fprintf(m_out, "\" id=\"%d\">\n", p);
            values(prog->values, e->numParams);
            std::fprintf(m_out, "\t\t</Program>\n");
        }
        std::fprintf(m_out, "\t</VSTPrograms>\n\n");
    }

    // The value types and the parameters that use them, as the plugin names them.
    void parameterStructure(const _VSTEFFECT* e)
    {
        std::fprintf(m_out, "\t<VSTPluginProperties>\n");
        std::fprintf(m_out, "\t\t<VSTParametersStructure>\n\n");
        for (int t = 0; t < e->numValueTypes; ++t)
            if (const ValueType* vt = e->valueTypes ? e->valueTypes[t] : nullptr)
                valueType(vt);
        for (int i = 0; i < e->numParams; ++i)
            parameter(e->parameters[i], i);
        std::fprintf(m_out, "\n");
        std::fprintf(m_out, "\t\t</VSTParametersStructure>\n");
        std::fprintf(m_out, "\t</VSTPluginProperties>\n\n");
    }

    // How each linear or nonlinear parameter maps to what it displays.
    void parameterKinds(const _VSTEFFECT* e)
    {
        std::fprintf(m_out, "\t<VLORVSTPluginProperties>\n");
        std::fprintf(m_out, "\t\t<VLORVSTParametersStructure>\n");
        for (int i = 0; i < e->numParams; ++i) {
            const ParameterRecord& p = e->parameters[i];
            if (p.kind == 2) {
                std::fprintf(m_out, "\t\t\t<Param id=\"%d\" kind=\"linear\" ", i);
                std::fprintf(m_out, "minDisplayValue=\"%g\" ", double(p.minValue));
                std::fprintf(m_out, "maxDisplayValue=\"%g\" ", double(p.maxValue));
                std::fprintf(m_out, "/>\n");
            } else if (p.kind == 3) {
                std::fprintf(m_out, "\t\t\t<Param id=\"%d\" kind=\"nonlinear\" ", i);
                attribute("minDisplayValue", p.minDisplay);
                attribute("maxDisplayValue", p.maxDisplay);
                std::fprintf(m_out, "/>\n");
            }
        }
        std::fprintf(m_out, "\t\t</VLORVSTParametersStructure>\n");
        std::fprintf(m_out, "\t</VLORVSTPluginProperties>\n\n");
    }

    int end()
    {
        std::fprintf(m_out, "</VLORVST>\n");
        return std::ferror(m_out) ? 0 : 1;
    }

private:
    // Every item once went through one shared buffer, so an empty item
    // repeats the one before it; readers of old files expect no less.
    void name(const char* text)
    {
        if (text && *text)
            m_last = text;
        _WriteName(m_out, m_last);
    }
    void element(const char* indent, const char* tag, const char* text)
    {
        std::fprintf(m_out, "%s<%s>", indent, tag);
        name(text);
        std::fprintf(m_out, "</%s>\n", tag);
    }
    void attribute(const char* key, const char* text)
    {
        std::fprintf(m_out, "%s=\"", key);
        name(text);
        std::fputs("\" ", m_out);
    }
    void values(const float* values, int count)
    {
        for (int i = 0; i < count; ++i)
            std::fprintf(m_out, "\t\t\t<Param id=\"%d\" value=\"%g\" />\n", i, double(values[i]));
    }
    void valueType(const ValueType* vt)
    {
        std::fputs("\t\t\t<ValueType name=\"", m_out);
        name(vt->name);
        std::fputs("\">\n", m_out);
        for (int k = 0; k < vt->count; ++k) {
            std::fputs("\t\t\t\t<Entry name=\"", m_out);
            name(vt->entries[k].name);
            std::fputs("\"", m_out);
            std::fprintf(m_out, " value=\"[%g, %g]\" />\n", double(vt->entries[k].low), double(vt->entries[k].high));
        }
        std::fprintf(m_out, "\t\t\t</ValueType>\n\n");
    }
    void parameter(const ParameterRecord& p, int index)
    {
        std::fputs("\t\t\t<Param ", m_out);
        attribute("name", p.name);
        attribute("shortName", p.name);
        if (p.label[0])
            attribute("label", p.label);
        if (p.kind == 1 && p.valueType)
            attribute("type", p.valueType->name);
        std::fprintf(m_out, "id=\"%d\" />\n", index);
    }

    FILE* m_out;
    const char* m_last = "";
};

} // namespace

extern "C" int _WriteVSTXML(const _VSTEFFECT* e, FILE* out)
{
    if (!e || !out)
        return 0;
    DescriptorWriter w(out);
    w.header(e);
    if (e->category == VSTEFFECT_CATEGORY_SHELL) {
        w.shellEntries(e);
    } else {
        w.description(e);
        w.programs(e);
        if (e->numParams > 0 && e->parameters) {
            w.parameterStructure(e);
            w.parameterKinds(e);
        }
    }
    return w.end();
}
