#include "QVlorPluginCategory.h"

#include <QCoreApplication>
#include <QStringList>

namespace QVlorAudioPlugins {

namespace {

struct Named {
    PluginCategory category;
    const char* key;
};

const Named kNames[] = {
    {PluginCategory::Dynamics, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Dynamics")},
    {PluginCategory::EQ, QT_TRANSLATE_NOOP("QVlorPluginCategory", "EQ")},
    {PluginCategory::Filter, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Filter")},
    {PluginCategory::Reverb, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Reverb")},
    {PluginCategory::Delay, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Delay")},
    {PluginCategory::Modulation, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Modulation")},
    {PluginCategory::Distortion, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Distortion")},
    {PluginCategory::Pitch, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Pitch")},
    {PluginCategory::Spatial, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Spatial")},
    {PluginCategory::Analyzer, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Analyzer")},
    {PluginCategory::Restoration, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Restoration")},
    {PluginCategory::Utility, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Utility")},
    {PluginCategory::Other, QT_TRANSLATE_NOOP("QVlorPluginCategory", "Other")},
};

// A VST3 subcategory or an LV2 class label, lower case, and what it says.
// Words the formats use for more than one kind of effect ("Fx",
// "Mastering", "Simulator", "Spectral") are left to the name.
struct Declared {
    const char* word;
    PluginCategory category;
};

const Declared kDeclared[] = {
    // VST3 subcategories
    {"dynamics", PluginCategory::Dynamics},
    {"eq", PluginCategory::EQ},
    {"filter", PluginCategory::Filter},
    {"reverb", PluginCategory::Reverb},
    {"delay", PluginCategory::Delay},
    {"modulation", PluginCategory::Modulation},
    {"distortion", PluginCategory::Distortion},
    {"pitch shift", PluginCategory::Pitch},
    {"spatial", PluginCategory::Spatial},
    {"surround", PluginCategory::Spatial},
    {"up-downmix", PluginCategory::Spatial},
    {"ambisonics", PluginCategory::Spatial},
    {"analyzer", PluginCategory::Analyzer},
    {"restoration", PluginCategory::Restoration},
    {"tools", PluginCategory::Utility},
    // LV2 class labels not above
    {"amplifier", PluginCategory::Utility},
    {"compressor", PluginCategory::Dynamics},
    {"envelope", PluginCategory::Dynamics},
    {"expander", PluginCategory::Dynamics},
    {"gate", PluginCategory::Dynamics},
    {"limiter", PluginCategory::Dynamics},
    {"allpass", PluginCategory::Filter},
    {"bandpass", PluginCategory::Filter},
    {"comb", PluginCategory::Filter},
    {"highpass", PluginCategory::Filter},
    {"lowpass", PluginCategory::Filter},
    {"multiband", PluginCategory::EQ},
    {"parametric", PluginCategory::EQ},
    {"waveshaper", PluginCategory::Distortion},
    {"modulator", PluginCategory::Modulation},
    {"chorus", PluginCategory::Modulation},
    {"flanger", PluginCategory::Modulation},
    {"phaser", PluginCategory::Modulation},
    {"pitch", PluginCategory::Pitch},
    {"pitch shifter", PluginCategory::Pitch},
    {"analyser", PluginCategory::Analyzer},
    {"utility", PluginCategory::Utility},
    {"converter", PluginCategory::Utility},
    {"function", PluginCategory::Utility},
    {"mixer", PluginCategory::Utility},
};

// Words of a name, tried in this order: the first rule one word starts with
// wins, so that "Spectrum Analyzer" is no filter and "Tuner" no pitch effect.
struct NameRule {
    PluginCategory category;
    const char* starts; // words the name's word may begin with, space-separated
    const char* exact;  // short words that must stand alone
};

const NameRule kNameRules[] = {
    {PluginCategory::Analyzer, "analy scope oscillosc spectr meter tuner profiler vectorscope phasescope correlat",
     "info"},
    {PluginCategory::Restoration, "denois declick decrackl dehum deess restor repair surge", "noise hum"},
    {PluginCategory::Reverb, "reverb verb hall plate reflection impulse convol room", "ir"},
    {PluginCategory::Delay, "delay echo", ""},
    {PluginCategory::Dynamics,
     "comp limit gate expand dynamic transient leveler autogain maxim duck sidechain breather squash", "lim"},
    {PluginCategory::EQ, "equali equalis equaliz phono loudness", "eq geq peq"},
    {PluginCategory::Filter, "filter lowpass highpass bandpass notch crossover formant vowel wah", "lpf hpf"},
    {PluginCategory::Modulation, "chorus flang phaser tremolo vibrato ensemble rotary ringmod modulat", ""},
    {PluginCategory::Distortion, "distort drive overdrive satur fuzz tube crush waveshap clip decimat lofi", "sat amp"},
    {PluginCategory::Pitch, "pitch shifter harmoniz octave autotune", ""},
    {PluginCategory::Spatial, "stereo width wide spatial surround binaural imager crossfeed headphone", "pan ms head"},
    {PluginCategory::Utility, "gain volume trim utility invert mono router mixer splitter tester oscillator",
     "dc ab"},
};

// The words of a name: split at anything not a letter or digit, at a lower
// case letter followed by an upper case one, and between letters and digits.
QStringList NameWords(const QString& name)
{
    QStringList words;
    QString word;
    auto flush = [&] {
        if (!word.isEmpty())
            words << word.toLower();
        word.clear();
    };
    for (int i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        if (!c.isLetterOrNumber()) {
            flush();
            continue;
        }
        if (!word.isEmpty()) {
            const QChar prev = word.back();
            const bool caseTurn = prev.isLower() && c.isUpper();
            // "GEQ31", "EQ2": letters then digits; "ZaMultiComp": the upper
            // case letter that begins a word after a run of capitals.
            const bool digitTurn = prev.isDigit() != c.isDigit();
            const bool capsEnd = prev.isUpper() && c.isUpper() && i + 1 < name.size() && name.at(i + 1).isLower();
            if (caseTurn || digitTurn || capsEnd)
                flush();
        }
        word += c;
    }
    flush();
    return words;
}

bool Matches(const QStringList& words, const NameRule& rule)
{
    const QStringList starts = QString::fromLatin1(rule.starts).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QStringList exact = QString::fromLatin1(rule.exact).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString& w : words) {
        if (exact.contains(w))
            return true;
        for (const QString& s : starts)
            if (w.startsWith(s))
                return true;
    }
    return false;
}

PluginCategory FromDeclaredWord(const QString& word)
{
    const QString w = word.trimmed().toLower();
    for (const Declared& d : kDeclared)
        if (w == QLatin1String(d.word))
            return d.category;
    return PluginCategory::Other;
}

} // namespace

QList<PluginCategory> PluginCategories()
{
    QList<PluginCategory> all;
    for (const Named& n : kNames)
        all << n.category;
    return all;
}

QString CategoryKey(PluginCategory category)
{
    for (const Named& n : kNames)
        if (n.category == category)
            return QString::fromLatin1(n.key);
    return QStringLiteral("Other");
}

QString CategoryLabel(PluginCategory category)
{
    return QCoreApplication::translate("QVlorPluginCategory", CategoryKey(category).toLatin1().constData());
}

bool CategoryFromKey(const QString& key, PluginCategory* category)
{
    for (const Named& n : kNames)
        if (key == QLatin1String(n.key)) {
            if (category)
                *category = n.category;
            return true;
        }
    return false;
}

PluginCategory CategoryOfVst2(int plugCategory)
{
    switch (plugCategory) {
    case 3: // analysis
        return PluginCategory::Analyzer;
    case 5: // spacializer
    case 7: // surround
        return PluginCategory::Spatial;
    case 6: // room
        return PluginCategory::Reverb;
    case 8:
        return PluginCategory::Restoration;
    default: // unknown, "effect", mastering, offline, generators: nothing said
        return PluginCategory::Other;
    }
}

PluginCategory CategoryOfVst3(const QString& subCategories)
{
    // "Fx|Dynamics|Mono": the first word that says something.
    for (const QString& word : subCategories.split(QLatin1Char('|'), Qt::SkipEmptyParts)) {
        const PluginCategory c = FromDeclaredWord(word);
        if (c != PluginCategory::Other)
            return c;
    }
    return PluginCategory::Other;
}

PluginCategory CategoryOfLv2(const QString& classLabel) { return FromDeclaredWord(classLabel); }

PluginCategory CategoryByName(const QString& name)
{
    const QStringList words = NameWords(name);
    for (const NameRule& rule : kNameRules)
        if (Matches(words, rule))
            return rule.category;
    return PluginCategory::Other;
}

} // namespace QVlorAudioPlugins
