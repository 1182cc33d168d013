// What a vector leaf of a span works out before its groups: the span's row
// and weight constants (unrotated) or the split steps (general and
// parallelogram), and per plane the range of columns the scalar span reads,
// so that no vector load reaches outside them; then the windows that load
// a row's bytes within that range.
//
// Included by the leaf files only. Everything here has internal linkage, so
// each leaf file compiles its own copy with its own instruction-set flags.
#pragma once

#include <stdint.h>
#include <string.h>

#include "render/pvx_draw_span.h"

namespace pvx_draw {
namespace {

inline int32_t laneAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t laneMul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// 1/16 luma position of pixel k of the span, as the scalar span forms it.
inline int32_t noRotP16(const SpanArgs &a, int32_t k) {
    return laneAdd(laneAdd(a.sx, laneMul(k & ~15, a.ux)) >> 11, a.off16[k & 15]);
}

struct NoRotPlan {
    int32_t groups;              // whole 16-pixel groups to draw
    bool wideLuma;               // a group's luma taps reach past 16 bytes (at most 32)
    int32_t lumaLo, lumaHi;      // luma columns the span reads
    int32_t r, fy;               // luma rows r.. and vertical weight
    bool chroma;                 // chroma is drawn
    int32_t par;                 // chroma at the group's odd pixels
    int32_t chromaLo, chromaHi;  // chroma bytes (interleaved) or samples (planar) the span reads
    int32_t cr, cfy;             // chroma row and vertical weight
};

// False when the span does not suit the leaf: no whole group, a backward
// step, or a group whose taps reach past 32 luma bytes or `chromaReach`
// chroma bytes (`pairBytes` bytes per chroma sample on the chroma row).
inline bool planNoRot(const SpanArgs &a, int32_t pairBytes, int32_t chromaReach, NoRotPlan *p) {
    p->groups = a.n >> 4;
    if (p->groups == 0 || a.ux < 0) return false;
    const int32_t last = a.off16[15];  // the largest offset: the step is not negative
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

// ---------------------------------------------------------------------------
// General and parallelogram spans: pixel i of a group at Q15 (X0 + i*ux,
// Y0 + i*uy). With X0 = 2048 * H + l (l < 2048) and ux = 2048 * uh + ul,
// X >> 11 = H + i*uh + ((l + i*ul) >> 11), where l + i*ul < 32768 for i < 16:
// 16-bit lanes give the 1/16 positions exactly, relative to X0 >> 15.

// Rows a group may span (lane rows differing by at most this) in the leaves.
constexpr int32_t kMaxRowSpread = 2;

struct LinearPlan {
    int32_t groups;              // whole 16-pixel groups in the span
    bool wideLuma;               // a group's luma taps reach past 16 bytes (at most 32)
    bool shared;                 // row y+1 reads the rows below with row y's weights (hx 0, hy one row)
    int32_t lumaLo, lumaHi;      // columns bounding the luma taps of the drawn rows
    bool chroma;                 // chroma is drawn
    int32_t par;                 // chroma at the group's odd pixels
    int32_t chromaLo, chromaHi;  // chroma bytes (interleaved) or samples (planar) bounding the taps
    int32_t uxh, uxl, uyh, uyl;  // the steps split: u = 2048 * uh + ul, 0 <= ul < 2048
};

// Row of lane i relative to the group's first row, from the 1/16 position.
inline int32_t laneRow16(int32_t y0, int32_t i, int32_t uy) {
    const int32_t uh = uy >> 11, ul = uy & 2047;
    return ((y0 >> 11) & 15) + i * uh + (((y0 & 2047) + i * ul) >> 11);
}

// First row (from Y0 >> 15) and spread of the rows of a group's 16 lanes;
// false when they spread too far.
inline bool laneRows(int32_t y0, int32_t uy, int32_t *low, int32_t *spread) {
    const int32_t last = laneRow16(y0, 15, uy) >> 4;  // lane 0 is at row 0
    *low = last < 0 ? last : 0;
    *spread = last < 0 ? -last : last;
    return *spread <= kMaxRowSpread;
}

// The same for the chroma rows ((Y >> 12) >> 4, from Y0 >> 16) of the
// group's 8 chroma pixels, lanes par, par + 2, ...
inline bool chromaRows(int32_t par, int32_t y0, int32_t uy, int32_t *low, int32_t *spread) {
    const int32_t odd = 16 * ((y0 >> 15) & 1);
    const int32_t first = ((odd + laneRow16(y0, par, uy)) >> 1) >> 4;
    const int32_t last = ((odd + laneRow16(y0, par + 14, uy)) >> 1) >> 4;
    *low = first < last ? first : last;
    *spread = first < last ? last - first : first - last;
    return *spread <= kMaxRowSpread;
}

// False when the span does not suit the leaf: no whole group, a backward
// step along x, steps too large for a group's taps to fit the windows.
inline bool planLinear(const SpanArgs &a, int32_t pairBytes, int32_t chromaReach, LinearPlan *p) {
    p->groups = a.n >> 4;
    if (p->groups == 0 || a.ux < 0 || a.ux > 65536 || a.uy < -65536 || a.uy > 65536) return false;
    if (a.dy0 == nullptr && a.dy1 == nullptr) return false;
    const int32_t uxh = a.ux >> 11, uxl = a.ux & 2047;
    p->uxh = uxh;
    p->uxl = uxl;
    p->uyh = a.uy >> 11;
    p->uyl = a.uy & 2047;
    // Largest 1/16 offset of a lane from its group's first column.
    const int32_t reach16 = 15 + 15 * uxh + ((2047 + 15 * uxl) >> 11);
    const int32_t lumaReach = (reach16 >> 4) + 1;
    if (lumaReach > 31) return false;
    p->wideLuma = lumaReach > 15;
    p->shared = a.hx == 0 && a.hy == 32768;

    // Column bounds over the drawn rows (the sums fit: the span is inside).
    const int64_t last = static_cast<int64_t>(a.n - 1) * a.ux;
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    if (a.dy0 != nullptr) {
        lo = a.sx >> 15;
        hi = ((a.sx + last) >> 15) + 1;
    }
    if (a.dy1 != nullptr) {
        const int64_t x1 = static_cast<int64_t>(a.sx) + a.hx;
        lo = lo < (x1 >> 15) ? lo : (x1 >> 15);
        hi = hi > ((x1 + last) >> 15) + 1 ? hi : ((x1 + last) >> 15) + 1;
    }
    p->lumaLo = static_cast<int32_t>(lo);
    p->lumaHi = static_cast<int32_t>(hi);

    p->par = a.dx & 1;
    const int32_t kc0 = p->par, kc1 = a.n - 1 - ((a.dx + a.n - 1) & 1);
    p->chroma = a.dc00 != nullptr && kc0 <= kc1;
    p->chromaLo = p->chromaHi = 0;
    if (p->chroma) {
        // Chroma column (X >> 12) >> 4; within a group at most
        // (16 + reach16) >> 5 columns from X0 >> 16.
        if (pairBytes * (((16 + reach16) >> 5) + 1) + pairBytes - 1 > chromaReach) return false;
        p->chromaLo = pairBytes * ((a.sx + static_cast<int64_t>(kc0) * a.ux) >> 16);
        p->chromaHi = pairBytes * (((a.sx + static_cast<int64_t>(kc1) * a.ux) >> 16) + 1) + pairBytes - 1;
    }
    return true;
}

// Whether the W bytes at column `base` lie in [lo, hi]. Otherwise, when
// [lo, hi] holds 16 bytes, the leaf loads the 16 bytes of [lo, hi] nearest
// to the window and moves them into place with a byte shuffle whose indices
// come from kSlide (16 + shift onwards; 0x80 selects zero); else it copies
// the part inside into a zeroed block (`windowPart`). The bytes outside are
// never used by a tap.
// clang-format off
alignas(16) constexpr uint8_t kSlide[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
// clang-format on

// Start of the 16 loaded bytes for a window at `base` that leaves [lo, hi]
// (hi - lo >= 15), and the shift from it: window byte o is loaded byte
// o + *shift. False when no byte of the window lies in [lo, hi].
inline bool windowSlide(int32_t base, int32_t lo, int32_t hi, int32_t *start, int32_t *shift) {
    *start = base < lo ? lo : hi - 15;
    *shift = base - *start;
    return *shift > -16 && *shift < 16;
}
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
