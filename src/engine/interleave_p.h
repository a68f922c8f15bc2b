#ifndef INTERLEAVE_P_H
#define INTERLEAVE_P_H
// Moving audio between the editor's interleaved frames and a plugin's
// separate channel buffers. Stereo is the common case: buffers that cannot
// alias let the compiler vectorise these loops.

inline void deinterleave2(const float* __restrict in, float* __restrict l, float* __restrict r, int frames)
{
    for (int f = 0; f < frames; ++f) {
        l[f] = in[2 * f];
        r[f] = in[2 * f + 1];
    }
}

inline void interleave2(const float* __restrict l, const float* __restrict r, float* __restrict out, int frames)
{
    for (int f = 0; f < frames; ++f) {
        out[2 * f] = l[f];
        out[2 * f + 1] = r[f];
    }
}

#endif
