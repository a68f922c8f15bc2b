// What a plugin tells of itself, gathered in the host program and written to
// its descriptor. The kind of each parameter is found from the texts it shows
// across its range: numbers on a straight line are linear, other numbers are
// nonlinear, and a handful of words are an enumeration.
#include "aeffect_p.h"
#include "vsteffect_p.h"

#include "blio.h"
#include "blsettings.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

enum {
    kEffGetParamLabel = 6,
    kEffGetParamDisplay = 7,
    kEffGetParamName = 8,
    kEffGetProgramNameIndexed = 29,
    kEffGetPlugCategory = 35,
    kEffGetEffectName = 45,
    kEffGetVendorString = 47,
    kEffGetProductString = 48,
    kEffShellGetNextPlugin = 70,
};
constexpr int kShellCategory = 10;
constexpr int kSamples = 11;         // points of the range looked at for words
constexpr int kNumericSamples = 5;   // and for numbers
constexpr int kMaxEnumEntries = 16;  // more distinct words than this are not an enumeration
constexpr int kMaxShellEntries = 4096;
constexpr int kMaxParams = 10000;
constexpr int kMaxPrograms = 1024;

void cut(char* dst, size_t size, const std::string& src) { std::snprintf(dst, size, "%s", src.c_str()); }

std::string getString(AEffect* e, int opcode, int index)
{
    char buf[512];
    std::memset(buf, 0, sizeof(buf));
    e->dispatcher(e, opcode, index, 0, buf, 0);
    buf[sizeof(buf) - 1] = '\0';
    return buf;
}

std::string trim(const std::string& s)
{
    const size_t a = s.find_first_not_of(" \t\r\n");
    if (a == std::string::npos)
        return std::string();
    const size_t b = s.find_last_not_of(" \t\r\n");
    return s.substr(a, b - a + 1);
}

// The number a display text starts with; false when it starts with none.
bool leadingNumber(const std::string& s, double* v)
{
    const char* p = s.c_str();
    char* end = nullptr;
    *v = std::strtod(p, &end);
    return end != p && std::isfinite(*v);
}

// The texts a parameter shows at n points of its range, evenly spread; the
// parameter is put back as it was.
std::vector<std::string> sampleTexts(AEffect* e, int index, int n)
{
    const float saved = e->getParameter(e, index);
    std::vector<std::string> texts(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
        e->setParameter(e, index, float(k) / float(n - 1));
        texts[size_t(k)] = trim(getString(e, kEffGetParamDisplay, index));
    }
    e->setParameter(e, index, saved);
    return texts;
}

void classify(_VSTEFFECT* rec, AEffect* e, int index, ParameterRecord* p, std::vector<std::string>* typeNames)
{
    // Setting a parameter can be costly (some plugins rebuild filters or load
    // files): numbers are judged from five points, and only words, which may
    // be an enumeration, are looked at closely.
    std::vector<std::string> texts = sampleTexts(e, index, kNumericSamples);
    std::vector<double> numbers(texts.size());
    bool numeric = true, empty = true;
    for (size_t k = 0; k < texts.size(); ++k) {
        numeric = numeric && leadingNumber(texts[k], &numbers[k]);
        empty = empty && texts[k].empty();
    }
    if (empty)
        return; // kind 0: nothing to show

    if (numeric) {
        const double lo = numbers.front(), hi = numbers.back();
        const double span = std::fabs(hi - lo);
        const int n = int(numbers.size());
        double worst = 0;
        for (int k = 0; k < n; ++k)
            worst = std::fmax(worst, std::fabs(numbers[size_t(k)] - (lo + (hi - lo) * k / (n - 1))));
        // Display texts are rounded: allow a little more than their last digit.
        if (span > 0 && worst <= 0.01 * span + 1e-3 * std::fmax(std::fabs(lo), std::fabs(hi))) {
            p->kind = 2;
            p->minValue = float(lo);
            p->maxValue = float(hi);
        } else {
            p->kind = 3;
        }
        cut(p->minDisplay, sizeof(p->minDisplay), texts.front());
        cut(p->maxDisplay, sizeof(p->maxDisplay), texts.back());
        return;
    }
    texts = sampleTexts(e, index, kSamples);

    // Runs of the same word; a word that comes back after another is no enumeration.
    struct Run {
        std::string text;
        int first, last;
    };
    std::vector<Run> runs;
    bool recurs = false;
    for (int k = 0; k < kSamples && !recurs; ++k) {
        if (!runs.empty() && runs.back().text == texts[size_t(k)]) {
            runs.back().last = k;
            continue;
        }
        for (const Run& r : runs)
            recurs = recurs || r.text == texts[size_t(k)];
        runs.push_back({texts[size_t(k)], k, k});
    }
    if (recurs || runs.size() < 2 || runs.size() > size_t(kMaxEnumEntries)) {
        p->kind = 3;
        cut(p->minDisplay, sizeof(p->minDisplay), texts.front());
        cut(p->maxDisplay, sizeof(p->maxDisplay), texts.back());
        return;
    }
    // Parameters showing the same words share one value type, named by them.
    std::string name;
    for (const Run& r : runs)
        name += (name.empty() ? "" : "|") + r.text;
    name = name.substr(0, VSTEFFECT_STRING_SIZE - 1);
    p->kind = 1;
    for (size_t t = 0; t < typeNames->size(); ++t)
        if ((*typeNames)[t] == name)
            p->valueType = rec->valueTypes[t];
    if (p->valueType)
        return;
    auto* vt = static_cast<ValueType*>(BLMEM_NewEx(rec->memDescr, sizeof(ValueType), 0));
    cut(vt->name, sizeof(vt->name), name);
    vt->count = int32_t(runs.size());
    vt->entries = static_cast<ValueTypeEntry*>(BLMEM_NewEx(rec->memDescr, runs.size() * sizeof(ValueTypeEntry), 0));
    const double step = 1.0 / (kSamples - 1);
    for (size_t r = 0; r < runs.size(); ++r) {
        cut(vt->entries[r].name, sizeof(vt->entries[r].name), runs[r].text);
        // Borders half-way between the samples, so the entries cover 0 to 1 without a gap.
        vt->entries[r].low = r == 0 ? 0.0f : float((runs[r].first - 0.5) * step);
        vt->entries[r].high = r + 1 == runs.size() ? 1.0f : float((runs[r].last + 0.5) * step);
    }
    rec->valueTypes[typeNames->size()] = vt;
    typeNames->push_back(name);
    p->valueType = vt;
}

ProgramRecord* readProgram(_VSTEFFECT* rec, AEffect* e, const std::string& name, int32_t id)
{
    auto* p = static_cast<ProgramRecord*>(BLMEM_NewEx(rec->memDescr, sizeof(ProgramRecord), 0));
    cut(p->name, sizeof(p->name), name);
    p->id = id;
    p->values = static_cast<float*>(BLMEM_NewEx(rec->memDescr, size_t(rec->numParams) * sizeof(float) + 1, 0));
    for (int i = 0; i < rec->numParams; ++i)
        p->values[i] = e->getParameter(e, i);
    return p;
}

} // namespace

extern "C" int _DescribeEffect(_VSTEFFECT* rec, void* instance)
{
    auto* fx = static_cast<_VstEffectInstance*>(instance);
    AEffect* e = aeffectGetAEffect(fx);
    if (!rec || !e)
        return 0;
    rec->uniqueId = e->uniqueID;
    cut(rec->vendor, sizeof(rec->vendor), getString(e, kEffGetVendorString, 0));

    rec->plugCategory = int32_t(e->dispatcher(e, kEffGetPlugCategory, 0, 0, nullptr, 0));
    if (rec->plugCategory == kShellCategory) {
        rec->category = VSTEFFECT_CATEGORY_SHELL;
        std::vector<ShellEntry> entries;
        char name[512];
        for (int n = 0; n < kMaxShellEntries; ++n) {
            std::memset(name, 0, sizeof(name));
            const int32_t id = int32_t(e->dispatcher(e, kEffShellGetNextPlugin, 0, 0, name, 0));
            if (id == 0)
                break;
            ShellEntry s{};
            s.id = id;
            name[sizeof(name) - 1] = '\0';
            cut(s.name, sizeof(s.name), name);
            entries.push_back(s);
        }
        rec->u.shell.numShellEntries = int32_t(entries.size());
        rec->u.shell.shellEntries =
            static_cast<ShellEntry*>(BLMEM_NewEx(rec->memDescr, entries.size() * sizeof(ShellEntry) + 1, 0));
        for (size_t k = 0; k < entries.size(); ++k)
            rec->u.shell.shellEntries[k] = entries[k];
        return 1;
    }

    rec->category = VSTEFFECT_CATEGORY_EFFECT;
    cut(rec->product, sizeof(rec->product), getString(e, kEffGetProductString, 0));
    cut(rec->effectName, sizeof(rec->effectName), getString(e, kEffGetEffectName, 0));
    rec->u.fx.flags = uint32_t(uint64_t(e->flags) & 0xffffffffu);
    rec->u.fx.version = e->version;
    rec->u.fx.numInputs = e->numInputs;
    rec->u.fx.numOutputs = e->numOutputs;
    rec->numParams = e->numParams > 0 ? (e->numParams < kMaxParams ? e->numParams : kMaxParams) : 0;

    rec->parameters =
        static_cast<ParameterRecord*>(BLMEM_NewEx(rec->memDescr, size_t(rec->numParams) * sizeof(ParameterRecord) + 1, 0));
    rec->valueTypes = static_cast<ValueType**>(BLMEM_NewEx(rec->memDescr, size_t(rec->numParams) * sizeof(ValueType*) + 1, 0));
    std::vector<std::string> typeNames;
    for (int i = 0; i < rec->numParams; ++i) {
        ParameterRecord* p = &rec->parameters[i];
        cut(p->name, sizeof(p->name), trim(getString(e, kEffGetParamName, i)));
        cut(p->label, sizeof(p->label), trim(getString(e, kEffGetParamLabel, i)));
        classify(rec, e, i, p, &typeNames);
    }
    rec->numValueTypes = int32_t(typeNames.size());

    // The values at open are the default program; each built-in program is
    // read by switching to it, and the plugin is put back as it was.
    rec->defaultProgram = readProgram(rec, e, "default", -1);
    const int numPrograms = e->numPrograms > 0 ? (e->numPrograms < kMaxPrograms ? e->numPrograms : kMaxPrograms) : 0;
    rec->numPrograms = numPrograms;
    rec->programs =
        static_cast<ProgramRecord**>(BLMEM_NewEx(rec->memDescr, size_t(numPrograms) * sizeof(ProgramRecord*) + 1, 0));
    int current = 0;
    fx->GetProgram(fx, &current);
    for (int k = 0; k < numPrograms; ++k) {
        // Switching programs can be costly: the current one is read as it stands.
        if (k != current)
            fx->SetProgram(fx, k);
        char name[32];
        std::string programName = fx->GetProgramName(fx, name, sizeof(name)) ? name : "";
        if (programName.empty())
            programName = getString(e, kEffGetProgramNameIndexed, k);
        rec->programs[k] = readProgram(rec, e, trim(programName), k);
    }
    if (numPrograms > 1)
        fx->SetProgram(fx, current);
    if (rec->numParams > 0)
        fx->SetParameters(fx, rec->defaultProgram->values, rec->numParams);
    return 1;
}

extern "C" const char* _WhyNotUsableEffect(const _VSTEFFECT* e)
{
    if (e->category == VSTEFFECT_CATEGORY_SHELL)
        return nullptr;
    const uint32_t flags = e->u.fx.flags;
    if (flags & VSTEFFECT_FLAG_IS_SYNTH)
        return "an instrument, not an effect";
    if (!(flags & VSTEFFECT_FLAG_CAN_REPLACING) || e->u.fx.numInputs < 1 || e->u.fx.numOutputs < 1)
        return "cannot process audio in place";
    return nullptr;
}

// Whether a resolution would check: what it keeps of a plugin says so.
extern "C" int AUDIOVST_WouldCheck(const char* filename, int id)
{
    char hash[VSTEFFECT_HASH_SIZE];
    if (!filename || !*filename || !_ComputeHash(filename, id, hash))
        return 1;
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(hash, g);
    char stored[4096];
    if (!BLSETTINGS_GetStringEx(0, stored, sizeof(stored), "%s.%s=[]", g, "filename") ||
        std::strcmp(stored, filename) != 0 || BLSETTINGS_GetBoolEx(0, "%s.%s=[0]", g, "force_recheck"))
        return 1;
    char path[1024];
    if (!_GetVSTXMLPath(hash, path, sizeof(path)) || !BLIO_Exists(path))
        return 1;
    const int64_t checked = BLSETTINGS_GetInt64Ex(0, "%s.%s=[0]", g, "timestamp");
    return checked == 0 || checked != BLIO_GetFileTimeStamp(filename, 2) ? 1 : 0;
}
