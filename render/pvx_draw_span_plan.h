// What a vector twin of the unrotated span works out before its groups:
// the span's row and weight constants and, per plane, the range of columns
// the scalar span reads, so that no vector load reaches outside them.
//
// Included by the twin files only. Everything here has internal linkage, so
// each twin file compiles its own copy with its own instruction-set flags.
#pragma once

#include <stdint.h>
#include <string.h>

#include "render/pvx_draw_span.h"

namespace pvx_draw {
namespace {

inline int32_t twinAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t twinMul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// 1/16 luma position of pixel k of the span, as the scalar span forms it.
inline int32_t noRotP16(const SpanArgs &a, int32_t k) {
    return twinAdd(twinAdd(a.sx, twinMul(k & ~15, a.ux)) >> 11, a.off16[k & 15]);
}

struct NoRotPlan {
    int32_t groups;               // whole 16-pixel groups to draw
    bool wideLuma;                // a group's luma taps reach past 16 bytes (at most 32)
    int32_t lumaLo, lumaHi;       // luma columns the span reads
    int32_t r, fy;                // luma rows r.. and vertical weight
    bool chroma;                  // chroma is drawn
    int32_t par;                  // chroma at the group's odd pixels
    int32_t chromaLo, chromaHi;   // chroma bytes (interleaved) or samples (planar) the span reads
    int32_t cr, cfy;              // chroma row and vertical weight
};

// False when the span does not suit the twin: no whole group, a backward
// step, or a group whose taps reach past 32 luma bytes or `chromaReach`
// chroma bytes (`pairBytes` bytes per chroma sample on the chroma row).
inline bool planNoRot(const SpanArgs &a, int32_t pairBytes, int32_t chromaReach, NoRotPlan *p) {
    p->groups = a.n >> 4;
    if (p->groups == 0 || a.ux < 0) return false;
    const int32_t last = a.off16[15];   // the largest offset: the step is not negative
    const int32_t lumaReach = ((15 + last) >> 4) + 1;
    if (lumaReach > 31) return false;
    p->wideLuma = lumaReach > 15;
    p->lumaLo = noRotP16(a, 0) >> 4;
    p->lumaHi = (noRotP16(a, a.n - 1) >> 4) + 1;
    p->r = a.sy >> 15;
    p->fy = (a.sy >> 11) & 15;

    p->par = a.dx & 1;
    const int32_t kc0 = p->par, kc1 = a.n - 1 - ((a.dx + a.n - 1) & 1);
    p->chroma = a.dc00 != nullptr && kc0 <= kc1;
    p->chromaLo = p->chromaHi = 0;
    p->cr = a.sy >> 16;
    p->cfy = (a.sy >> 12) & 15;
    if (p->chroma) {
        // Chroma sample of a pixel: its 1/16 position halved, >> 4. Within a
        // group it lies at most ((31 + last) >> 5) samples from G >> 5.
        if (pairBytes * (((31 + last) >> 5) + 1) + pairBytes - 1 > chromaReach) return false;
        p->chromaLo = pairBytes * (noRotP16(a, kc0) >> 5);
        p->chromaHi = pairBytes * ((noRotP16(a, kc1) >> 5) + 1) + pairBytes - 1;
    }
    return true;
}

// Whether the W bytes at column `base` lie in [lo, hi]; otherwise the twin
// copies the part that does into a zeroed block (`windowPart`), since the
// bytes outside are never used by a tap.
inline bool windowInside(int32_t base, int32_t width, int32_t lo, int32_t hi) {
    return base >= lo && base + width - 1 <= hi;
}
inline void windowPart(uint8_t *block, const uint8_t *row, int32_t base, int32_t width, int32_t lo, int32_t hi) {
    memset(block, 0, static_cast<size_t>(width));
    const int32_t b = base > lo ? base : lo, e = base + width - 1 < hi ? base + width - 1 : hi;
    if (e >= b) memcpy(block + (b - base), row + b, static_cast<size_t>(e - b + 1));
}

}  // namespace
}  // namespace pvx_draw
