#ifndef QVLORSAMPLES_P_H
#define QVLORSAMPLES_P_H
// What a plugin gives the mixer is played at once: a sample that is no number
// would reach the speakers as a full-scale click, or silence the whole mix
// downstream of it.

#include <QDebug>
#include <QString>

#include <algorithm>
#include <cmath>

// Silences frames*channels samples when any of them is not a finite number;
// the first time for an effect (*told false) it says so, by the effect's name.
inline void SilenceNonFiniteBlock(float* samples, int count, const QString& effect, bool* told)
{
    if (!samples || count <= 0 || std::all_of(samples, samples + count, [](float v) { return std::isfinite(v); }))
        return;
    std::fill(samples, samples + count, 0.0f);
    if (!*told)
        qWarning().noquote() << effect
                             << "gave samples that are not numbers (NaN or infinity); such blocks are silenced";
    *told = true;
}

#endif
