// The LV2 forms' place in the families. LV2 metadata names no VST2 id or
// VST3 class, so the evidence is the product's name and maker, and it counts
// only where it is unique on both sides, as for the older formats' heuristic.
//
// What makes two forms one product, from the makers' packages on this
// system: the name and the maker normalised (blanks and case), and then
//  - a format word at the end of the maker is the format's, not the maker's:
//    "LSP LV2" and "LSP VST" are one maker, "lsp";
//  - a name that begins with its maker's name carries it as a prefix the
//    other format's name may lack: "LSP Compressor Stereo" is "Compressor
//    Stereo" of "lsp".
//  - a VST2 name comes cut: the format keeps it in a field of 32 bytes, so a
//    longer one ends at 31 characters or a blank before ("Multiband Dynamic
//    Processor Lef" is LSP's "Multiband Dynamic Processor LeftRight x8"). A
//    VST2 name of 30 characters or more is taken as the beginning of the other
//    format's, when exactly one name of the maker begins so on each side.
// A channel word ("Mono", "Stereo") is part of the product: a maker that
// ships both ships two products, and one that names only one form's channels
// is left alone rather than guessed at.
#include "QVlorPluginMatcher.h"
#include "QVlorPluginFormat.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace {

using Key = std::pair<QString, QString>;
using Form = QVlorPluginPairs::Entry;

// A product on the older formats' side: a family, or a lone plugin or class.
struct Product {
    QString pairId; // empty for a lone form
    qint64 vst2 = 0;
    QString vst3;
    bool enabled = false;
};

// The shortest VST2 name that may have been cut by its field.
constexpr qsizetype kCutVst2Name = 30;

QString withoutFormatWord(const QString& maker)
{
    for (const char* word : {" lv2", " vst3", " vst2", " vst"})
        if (maker.endsWith(QLatin1String(word)) && maker.size() > qsizetype(strlen(word)))
            return maker.chopped(qsizetype(strlen(word)));
    return maker;
}

// The family's, or the lone form's, format for a new family with an LV2 form.
QString activeFormatFor(const Product& p, bool lv2Enabled, const QStringList& order)
{
    const QString older = p.vst3.isEmpty() ? QVlorAudioPlugins::Vst2Token() : QVlorAudioPlugins::Vst3Token();
    if (p.enabled != lv2Enabled)
        return p.enabled ? older : QVlorAudioPlugins::Lv2Token();
    for (const QString& f : order)
        if (f == older || f == QVlorAudioPlugins::Lv2Token())
            return f;
    return older;
}

} // namespace

std::pair<QString, QString> QVlorPluginMatcher::productKey(const QString& name, const QString& maker)
{
    const QString m = withoutFormatWord(normalizeKey(maker));
    QString n = normalizeKey(name);
    if (!m.isEmpty() && n.startsWith(m + QLatin1Char(' ')))
        n = n.mid(m.size() + 1);
    return {n, m};
}

namespace {

// The products of the older formats by key: families without an LV2 form by
// their VST3 class's name where they have one, then the lone forms. Keys of
// VST2 names that may have been cut are named in *cutKeys.
QHash<Key, QList<Product>> olderProducts(const QList<QVlorPluginMatcher::Vst2Item>& vst2,
                                         const QList<QVlorPluginMatcher::Vst3Item>& vst3,
                                         const QVlorPluginPairs& pairs, QSet<QString>* heldLv2, QSet<Key>* cutKeys)
{
    QHash<qint64, const QVlorPluginMatcher::Vst2Item*> byId;
    for (const QVlorPluginMatcher::Vst2Item& a : vst2)
        if (a.uniqueId != 0)
            byId.insert(a.uniqueId, &a);
    QHash<QString, const QVlorPluginMatcher::Vst3Item*> byCid;
    for (const QVlorPluginMatcher::Vst3Item& b : vst3)
        byCid.insert(b.cid, &b);
    QHash<Key, QList<Product>> products;
    auto addVst2Keyed = [&](const QVlorPluginMatcher::Vst2Item& a, const Product& p) {
        const Key key = QVlorPluginMatcher::productKey(a.name, a.vendor);
        products[key].append(p);
        if (key.first.size() >= kCutVst2Name)
            cutKeys->insert(key);
    };
    QSet<qint64> held2;
    QSet<QString> held3;
    for (const Form& e : pairs.entries()) {
        held2.insert(e.vst2);
        held3.insert(e.vst3);
        heldLv2->insert(e.lv2);
        const QVlorPluginMatcher::Vst3Item* b = byCid.value(e.vst3);
        const QVlorPluginMatcher::Vst2Item* a = byId.value(e.vst2);
        if (!e.lv2.isEmpty() || (!a && !b))
            continue;
        const Product p{e.pairId, e.vst2, e.vst3, (a && a->enabled) || (b && b->enabled)};
        if (b)
            products[QVlorPluginMatcher::productKey(b->name, b->vendor)].append(p);
        else
            addVst2Keyed(*a, p);
    }
    for (const QVlorPluginMatcher::Vst3Item& b : vst3)
        if (!held3.contains(b.cid))
            products[QVlorPluginMatcher::productKey(b.name, b.vendor)].append({QString(), 0, b.cid, b.enabled});
    for (const QVlorPluginMatcher::Vst2Item& a : vst2)
        if (a.uniqueId != 0 && !held2.contains(a.uniqueId))
            addVst2Keyed(a, {QString(), a.uniqueId, QString(), a.enabled});
    return products;
}

void join(QVlorPluginPairs& pairs, const Product& p, const QVlorPluginMatcher::Lv2Item& l, const QStringList& order)
{
    if (!p.pairId.isEmpty())
        pairs.addLv2Form(p.pairId, l.uri);
    else
        pairs.addFamily(p.vst2, p.vst3, l.uri, QStringLiteral("heuristic"), activeFormatFor(p, l.enabled, order));
}

// Whether the cut VST2 name of cut begins the name of full, of one maker.
bool begins(const Key& cut, const Key& full)
{
    return cut.second == full.second && full.first.size() > cut.first.size() && full.first.startsWith(cut.first);
}

} // namespace

void QVlorPluginMatcher::matchLv2(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3,
                                  const QList<Lv2Item>& lv2, QVlorPluginPairs& pairs, const QStringList& formatOrder)
{
    QSet<QString> heldLv2;
    QSet<Key> cutKeys;
    const QHash<Key, QList<Product>> products = olderProducts(vst2, vst3, pairs, &heldLv2, &cutKeys);
    QHash<Key, int> lv2Counts;
    QList<std::pair<const Lv2Item*, Key>> free;
    for (const Lv2Item& l : lv2)
        if (!heldLv2.contains(l.uri)) {
            free.append({&l, productKey(l.name, l.maker)});
            ++lv2Counts[free.last().second];
        }
    // Equal keys prove nothing unless each is unique on its side.
    QList<std::pair<const Lv2Item*, Key>> unmatched;
    for (const auto& [l, key] : std::as_const(free)) {
        const QList<Product> candidates = products.value(key);
        if (lv2Counts.value(key) == 1 && candidates.size() == 1)
            join(pairs, candidates.first(), *l, formatOrder);
        else if (!products.contains(key))
            unmatched.append({l, key});
    }
    // Then the cut VST2 names, by their beginning, unique both ways.
    for (const Key& cut : std::as_const(cutKeys)) {
        if (products.value(cut).size() != 1)
            continue;
        const std::pair<const Lv2Item*, Key>* only = nullptr;
        int found = 0;
        for (const auto& item : std::as_const(unmatched))
            if (begins(cut, item.second) && ++found == 1)
                only = &item;
        if (found != 1)
            continue;
        const int cutsBeginning = int(std::count_if(cutKeys.begin(), cutKeys.end(),
                                                    [&](const Key& k) { return begins(k, only->second); }));
        if (cutsBeginning == 1)
            join(pairs, products.value(cut).first(), *only->first, formatOrder);
    }
}
