#ifndef QVLORDISPLAYTEXT_P_H
#define QVLORDISPLAYTEXT_P_H
// A plugin names itself: a name of thousands of characters, or one letter
// under ten thousand combining marks, would cost seconds at every paint of a
// row and of a menu. Shown names are cut to what a person can read; the whole
// text stays where it is kept, for tooltips and searches.

#include <QString>
#include <QTextBoundaryFinder>

// At most this many characters as the reader counts them (grapheme clusters).
constexpr int kDisplayTextClusters = 120;
// A cluster longer than this (in UTF-16 units) is cut: the longest emoji
// sequences stay whole, a heap of combining marks does not.
constexpr int kDisplayClusterUnits = 32;

// text cut at a cluster boundary with "…" behind it, and *cut true; text
// itself when it is short enough.
inline QString CutForDisplay(const QString& text, bool* cut = nullptr)
{
    if (cut)
        *cut = false;
    if (text.size() <= kDisplayTextClusters)
        return text;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    QString out;
    int clusters = 0;
    qsizetype start = 0;
    bool shortened = false;
    for (qsizetype end = finder.toNextBoundary(); end > 0; end = finder.toNextBoundary()) {
        if (clusters++ == kDisplayTextClusters) {
            shortened = true;
            break;
        }
        qsizetype length = end - start;
        if (length > kDisplayClusterUnits) {
            length = kDisplayClusterUnits;
            // Never half a surrogate pair.
            if (text.at(start + length - 1).isHighSurrogate())
                --length;
            shortened = true;
        }
        out += QStringView(text).mid(start, length);
        start = end;
    }
    if (!shortened)
        return text;
    if (cut)
        *cut = true;
    return out + QChar(0x2026);
}

#endif
