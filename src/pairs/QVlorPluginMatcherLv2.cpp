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
// A channel word ("Mono", "Stereo") is part of the product: a maker that
// ships both ships two products, and one that names only one form's channels
// is left alone rather than guessed at.
#include "QVlorPluginMatcher.h"
#include "QVlorPluginFormat.h"

#include <QHash>

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

void QVlorPluginMatcher::matchLv2(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3,
                                  const QList<Lv2Item>& lv2, QVlorPluginPairs& pairs, const QStringList& formatOrder)
{
    // The products of the older formats by key: families without an LV2 form
    // by their VST3 class's name where they have one, then the lone forms.
    QHash<qint64, const Vst2Item*> byId;
    for (const Vst2Item& a : vst2)
        if (a.uniqueId != 0)
            byId.insert(a.uniqueId, &a);
    QHash<QString, const Vst3Item*> byCid;
    for (const Vst3Item& b : vst3)
        byCid.insert(b.cid, &b);
    QHash<Key, QList<Product>> products;
    QSet<qint64> held2;
    QSet<QString> held3, heldLv2;
    for (const Form& e : pairs.entries()) {
        held2.insert(e.vst2);
        held3.insert(e.vst3);
        heldLv2.insert(e.lv2);
        const Vst3Item* b = byCid.value(e.vst3);
        const Vst2Item* a = byId.value(e.vst2);
        if (!e.lv2.isEmpty() || (!a && !b))
            continue;
        const Key key = b ? productKey(b->name, b->vendor) : productKey(a->name, a->vendor);
        products[key].append({e.pairId, e.vst2, e.vst3, (a && a->enabled) || (b && b->enabled)});
    }
    for (const Vst3Item& b : vst3)
        if (!held3.contains(b.cid))
            products[productKey(b.name, b.vendor)].append({QString(), 0, b.cid, b.enabled});
    for (const Vst2Item& a : vst2)
        if (a.uniqueId != 0 && !held2.contains(a.uniqueId))
            products[productKey(a.name, a.vendor)].append({QString(), a.uniqueId, QString(), a.enabled});
    QHash<Key, int> lv2Counts;
    for (const Lv2Item& l : lv2)
        if (!heldLv2.contains(l.uri))
            ++lv2Counts[productKey(l.name, l.maker)];

    for (const Lv2Item& l : lv2) {
        if (heldLv2.contains(l.uri))
            continue;
        const Key key = productKey(l.name, l.maker);
        const QList<Product> candidates = products.value(key);
        // Equal keys prove nothing unless each is unique on its side.
        if (lv2Counts.value(key) != 1 || candidates.size() != 1)
            continue;
        const Product& p = candidates.first();
        if (!p.pairId.isEmpty())
            pairs.addLv2Form(p.pairId, l.uri);
        else
            pairs.addFamily(p.vst2, p.vst3, l.uri, QStringLiteral("heuristic"),
                            activeFormatFor(p, l.enabled, formatOrder));
    }
}
