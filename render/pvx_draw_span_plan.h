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

// ---------------------------------------------------------------------------
// Clamped spans: every tap's column and row limited to the image, as the
// clamping reference does it.
//
// Rows: the leaves read row r and r + 1 of each lane from rows loaded per
// group; loading clamp(r) for each row index gives every lane its clamped
// pair.
//
// Columns: a tap pair (x, x + 1) clamped into [0, w - 1] repeats the edge
// sample, and (16 - f) * p + f * p = 16 * p; so clamping the 1/16 position
// into [0, 16 * (w - 1)] gives the same sums, its column being in the image
// and its weight 0 wherever the reference's pair collapses. The second tap
// of a pair at column w - 1 lies outside the image: the windows hold it as
// zero, weighted by 0.

template <bool Clamp>
inline int32_t rowIn(int32_t r, int32_t h) {
    if constexpr (Clamp) {
        return r < 0 ? 0 : (r > h - 1 ? h - 1 : r);
    } else {
        (void)h;
        return r;
    }
}
inline int32_t clampTo(int64_t v, int32_t lo, int32_t hi) {
    return static_cast<int32_t>(v < lo ? lo : (v > hi ? hi : v));
}

// The clamp of 16-bit lanes holding 1/16 positions relative to 16 * `base`
// (at most 32 columns on): t becomes min(max(t + shift, lo), hi), relative
// to 16 * `clampedBase`, the base column limited to the image. Far outside
// the image the shift and limits saturate at 64 columns, which changes no
// result, as every clamped position lies within [0, t].
struct EdgeClamp {
    int32_t clampedBase;
    int16_t shift, lo, hi;
};
inline EdgeClamp edgeClamp(int32_t base, int32_t w) {
    EdgeClamp e;
    e.clampedBase = clampTo(base, 0, w - 1);
    const int64_t below = e.clampedBase, above = static_cast<int64_t>(w) - 1 - e.clampedBase;
    e.shift = static_cast<int16_t>(16 * clampTo(static_cast<int64_t>(base) - e.clampedBase, -64, 64));
    e.lo = static_cast<int16_t>(-16 * clampTo(below, 0, 64));
    e.hi = static_cast<int16_t>(16 * clampTo(above, 0, 64));
    return e;
}

// A clamped span's byte range [lo, hi] of a row of `bytes` bytes, widened
// to 16 bytes inside the row where it is narrower: its windows then load
// whole registers instead of copying. The bytes added are the image's and
// no tap reads them.
inline void widenInRow(int32_t bytes, int32_t *lo, int32_t *hi) {
    if (*hi - *lo >= 15) return;
    *lo = *hi - 15 < *lo ? (*hi - 15 > 0 ? *hi - 15 : 0) : *lo;
    *hi = *lo + 15 > *hi ? (*lo + 15 < bytes - 1 ? *lo + 15 : bytes - 1) : *hi;
}

// Whether a linear position and its last pixel stay clear of 32-bit wrap
// along a span: the lanes of a group then see the positions the reference
// sees, in order.
inline bool runFits(int64_t start, int64_t steps, int64_t step) {
    const int64_t end = start + steps * step;
    return end >= INT32_MIN && end <= INT32_MAX;
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
    int32_t rows[3];             // clamped spans: rows r, r + 1, r + 2 limited to the image
    bool chroma;                 // chroma is drawn
    int32_t par;                 // chroma at the group's odd pixels
    int32_t chromaLo, chromaHi;  // chroma bytes (interleaved) or samples (planar) the span reads
    int32_t cr, cfy;             // chroma row and vertical weight
    int32_t crows[2];            // clamped spans: chroma rows cr, cr + 1 limited to the image
};

// False when the span does not suit the leaf: no whole group, a backward
// step, or a group whose taps reach past 32 luma bytes or `chromaReach`
// chroma bytes (`pairBytes` bytes per chroma sample on the chroma row). A
// clamped span's ranges and rows are limited to the image.
template <bool Clamp = false>
inline bool planNoRot(const SpanArgs &a, int32_t pairBytes, int32_t chromaReach, NoRotPlan *p) {
    p->groups = a.n >> 4;
    if (p->groups == 0 || a.ux < 0) return false;
    if (Clamp && !runFits(a.sx, a.n - 1, a.ux)) return false;
    const int32_t last = a.off16[15];  // the largest offset: the step is not negative
    const int32_t lumaReach = ((15 + last) >> 4) + 1;
    if (lumaReach > 31) return false;
    p->wideLuma = lumaReach > 15;
    p->lumaLo = noRotP16(a, 0) >> 4;
    p->lumaHi = (noRotP16(a, a.n - 1) >> 4) + 1;
    p->r = a.sy >> 15;
    p->fy = (a.sy >> 11) & 15;
    const SrcPlanes &s = *a.src;
    if (Clamp) {
        p->lumaLo = clampTo(p->lumaLo, 0, s.w - 1);
        p->lumaHi = clampTo(p->lumaHi, 0, s.w - 1);
        widenInRow(s.w, &p->lumaLo, &p->lumaHi);
    }
    if (Clamp)
        for (int32_t j = 0; j < 3; ++j) p->rows[j] = rowIn<Clamp>(p->r + j, s.h);

    p->par = a.dx & 1;
    const int32_t kc0 = p->par, kc1 = a.n - 1 - ((a.dx + a.n - 1) & 1);
    p->chroma = a.dc00 != nullptr && kc0 <= kc1;
    p->chromaLo = p->chromaHi = 0;
    p->cr = a.sy >> 16;
    p->cfy = (a.sy >> 12) & 15;
    if (Clamp) {
        p->crows[0] = rowIn<Clamp>(p->cr, s.ch);
        p->crows[1] = rowIn<Clamp>(p->cr + 1, s.ch);
    }
    if (p->chroma) {
        // Chroma sample of a pixel: its 1/16 position halved, >> 4. Within a
        // group it lies at most ((31 + last) >> 5) samples from G >> 5.
        if (pairBytes * (((31 + last) >> 5) + 1) + pairBytes - 1 > chromaReach) return false;
        int32_t c0 = noRotP16(a, kc0) >> 5, c1 = (noRotP16(a, kc1) >> 5) + 1;
        if (Clamp) {
            c0 = clampTo(c0, 0, s.cw - 1);
            c1 = clampTo(c1, 0, s.cw - 1);
        }
        p->chromaLo = pairBytes * c0;
        p->chromaHi = pairBytes * c1 + pairBytes - 1;
        if (Clamp) widenInRow(pairBytes * s.cw, &p->chromaLo, &p->chromaHi);
    }
    return true;
}

// ---------------------------------------------------------------------------
// General and parallelogram spans: pixel i of a group at Q15 (X0 + i*ux,
// Y0 + i*uy). With X0 = 2048 * H + l (l < 2048) and ux = 2048 * uh + ul,
// X >> 11 = H + i*uh + ((l + i*ul) >> 11), where l + i*ul < 32768 for i < 16:
// 16-bit lanes give the 1/16 positions exactly, relative to X0 >> 15.

// Rows a group may span (lane rows differing by at most this) in the leaves.
constexpr int32_t kMaxRowSpread = 4;

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
// step along x, steps too large for a group's taps to fit the windows. A
// clamped span's ranges are limited to the image, and its positions must
// not wrap.
template <bool Clamp = false>
inline bool planLinear(const SpanArgs &a, int32_t pairBytes, int32_t chromaReach, LinearPlan *p) {
    p->groups = a.n >> 4;
    if (p->groups == 0 || a.ux < 0 || a.ux > 65536 || a.uy < -65536 || a.uy > 65536) return false;
    if (a.dy0 == nullptr && a.dy1 == nullptr) return false;
    if (Clamp && !(runFits(a.sx, a.n - 1, a.ux) && runFits(a.sy, a.n - 1, a.uy) &&
                   runFits(static_cast<int64_t>(a.sx) + a.hx, a.n - 1, a.ux) &&
                   runFits(static_cast<int64_t>(a.sy) + a.hy, a.n - 1, a.uy) &&
                   runFits(a.sx, 1, a.hx) && runFits(a.sy, 1, a.hy)))
        return false;
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
    const SrcPlanes &s = *a.src;
    p->lumaLo = Clamp ? clampTo(lo, 0, s.w - 1) : static_cast<int32_t>(lo);
    p->lumaHi = Clamp ? clampTo(hi, 0, s.w - 1) : static_cast<int32_t>(hi);
    if (Clamp) widenInRow(s.w, &p->lumaLo, &p->lumaHi);

    p->par = a.dx & 1;
    const int32_t kc0 = p->par, kc1 = a.n - 1 - ((a.dx + a.n - 1) & 1);
    p->chroma = a.dc00 != nullptr && kc0 <= kc1;
    p->chromaLo = p->chromaHi = 0;
    if (p->chroma) {
        // Chroma column (X >> 12) >> 4; within a group at most
        // (16 + reach16) >> 5 columns from X0 >> 16.
        if (pairBytes * (((16 + reach16) >> 5) + 1) + pairBytes - 1 > chromaReach) return false;
        int64_t c0 = (a.sx + static_cast<int64_t>(kc0) * a.ux) >> 16;
        int64_t c1 = ((a.sx + static_cast<int64_t>(kc1) * a.ux) >> 16) + 1;
        if (Clamp) {
            c0 = clampTo(c0, 0, s.cw - 1);
            c1 = clampTo(c1, 0, s.cw - 1);
        }
        p->chromaLo = static_cast<int32_t>(pairBytes * c0);
        p->chromaHi = static_cast<int32_t>(pairBytes * c1 + pairBytes - 1);
        if (Clamp) widenInRow(pairBytes * s.cw, &p->chromaLo, &p->chromaHi);
    }
    return true;
}

// ---------------------------------------------------------------------------
// Destination prefetch. In a whole frame a leaf's stores miss the cache
// more than its loads do (the source rows are prefetched as they are
// read), and a store that misses holds up the later ones while its line is
// read in: so each group first starts fetching the bytes that the same
// group of the row pair two pairs below will store. Prefetches never
// fault; the addresses are formed as integers, so they may lie outside the
// destination.
//
// The helpers are always inlined: g++ takes a function whose only effect is
// a prefetch for one without effects and drops calls to it that it has not
// inlined yet.
#define PVX_PREFETCH_INLINE inline __attribute__((always_inline))

PVX_PREFETCH_INLINE void prefetchAt(uintptr_t at) { __builtin_prefetch(reinterpret_cast<const void *>(at)); }

// Destination pitch (the distance of rows y and y+1), or 0 for a span of
// one row, which has no pair below.
PVX_PREFETCH_INLINE uintptr_t destPitch(const SpanArgs &a) {
    if (a.dy0 == nullptr || a.dy1 == nullptr) return 0;
    return reinterpret_cast<uintptr_t>(a.dy1) - reinterpret_cast<uintptr_t>(a.dy0);
}

// Bytes [o, o + bytes) (at most 64) of luma rows y and y+1 two row pairs
// below.
PVX_PREFETCH_INLINE void prefetchDestBelow(const SpanArgs &a, ptrdiff_t o, int32_t bytes) {
    const uintptr_t pitch = destPitch(a);
    if (pitch == 0) return;
    const uintptr_t at = reinterpret_cast<uintptr_t>(a.dy0) + static_cast<uintptr_t>(o) + 4 * pitch;
    prefetchAt(at);
    prefetchAt(at + static_cast<uintptr_t>(bytes - 1));
    prefetchAt(at + pitch);
    prefetchAt(at + pitch + static_cast<uintptr_t>(bytes - 1));
}

// Bytes [co, co + bytes) of the 4:2:0 chroma rows two row pairs below
// (channel 1 too when planar). The chroma pitch is taken as the luma pitch
// (interleaved) or half of it (planar), as camera frames lay out their
// planes; a wrong guess only fetches lines that go unused.
template <bool Planar>
PVX_PREFETCH_INLINE void prefetchChromaBelow(const SpanArgs &a, ptrdiff_t co, int32_t bytes) {
    const uintptr_t pitch = Planar ? destPitch(a) / 2 : destPitch(a);
    if (pitch == 0) return;
    const uintptr_t at = static_cast<uintptr_t>(co) + 2 * pitch, last = at + static_cast<uintptr_t>(bytes - 1);
    prefetchAt(reinterpret_cast<uintptr_t>(a.dc00) + at);
    prefetchAt(reinterpret_cast<uintptr_t>(a.dc00) + last);
    if constexpr (Planar) {
        prefetchAt(reinterpret_cast<uintptr_t>(a.dc01) + at);
        prefetchAt(reinterpret_cast<uintptr_t>(a.dc01) + last);
    }
}

// ---------------------------------------------------------------------------
// The group loops shared by every instruction set: a leaf supplies only the
// arithmetic of one 16-pixel group.

// Unrotated: group k (a multiple of 16) starts at 1/16 position G.
template <class Draw>
inline int32_t forEachNoRotGroup(const SpanArgs &a, const NoRotPlan &p, Draw &&draw) {
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        draw(k, laneAdd(a.sx, laneMul(k, a.ux)) >> 11);
    }
    return 16 * p.groups;
}

// General and parallelogram: one group as the loop hands it to a leaf.
struct LinearGroup {
    int32_t k;               // first pixel of the group in the span
    int32_t x0, y0, x1, y1;  // Q15 position of that pixel on rows y and y+1
    uint8_t *d0, *d1;        // luma destinations of the group, or null
    bool own1;               // row y+1 has taps of its own (not the rows below row y's)
    int32_t low0, spread0;   // lane rows of row y: low0 .. low0 + spread0 from y0 >> 15
    int32_t low1, spread1;   // the same for row y+1 when it has its own taps
    int32_t clow, cspread;   // chroma rows, from y0 >> 16
};

// Positions and the lane-row checks; a group whose rows spread too far ends
// the leaf's part of the span (the C reference draws the rest). Returns the
// pixels drawn.
template <class Draw>
inline int32_t forEachLinearGroup(const SpanArgs &a, const LinearPlan &p, Draw &&draw) {
    for (int32_t g = 0; g < p.groups; ++g) {
        LinearGroup q;
        q.k = 16 * g;
        q.x0 = laneAdd(a.sx, laneMul(q.k, a.ux));
        q.y0 = laneAdd(a.sy, laneMul(q.k, a.uy));
        q.x1 = laneAdd(q.x0, a.hx);
        q.y1 = laneAdd(q.y0, a.hy);
        q.own1 = !p.shared && a.dy1 != nullptr;
        q.low0 = q.spread0 = q.low1 = q.spread1 = q.clow = q.cspread = 0;
        if (!laneRows(q.y0, a.uy, &q.low0, &q.spread0) || (q.own1 && !laneRows(q.y1, a.uy, &q.low1, &q.spread1)) ||
            (p.chroma && !chromaRows(p.par, q.y0, a.uy, &q.clow, &q.cspread)))
            return q.k;
        q.d0 = a.dy0 != nullptr ? a.dy0 + a.dx + q.k : nullptr;
        q.d1 = a.dy1 != nullptr ? a.dy1 + a.dx + q.k : nullptr;
        draw(q);
    }
    return 16 * p.groups;
}


// ---------------------------------------------------------------------------
// Three-bytes-a-pixel spans: per pixel, its top-left tap and weights; the
// group loop hands 16 of them (and those of row y+1 when it has taps of its
// own) to the instruction set's arithmetic, `Arith::drawGroup<Round>(d0,
// d1, t0, t1, pitch)`.
//
// Clamped spans: a tap pair whose column leaves [0, w - 2] collapses onto
// one edge column in the reference, (16 - f) * p + f * p = 16 * p; the same
// sum comes from the pair inside the image that ends or starts there,
// weighted (0, 16) or (16, 0). Rows alike, (0, 16) or (16, 0) on the last
// or first two rows. So every tap lies in the image with its pair; row y+1
// takes taps of its own where rows are clamped (they collapse differently).

// One pixel's taps: its top-left tap in the source, weights, and whether 8
// bytes may be loaded there.
struct Tap {
    const uint8_t *p;
    int32_t fx, fy;
    bool whole;
};

// Column just past the taps of a row whose pixels sit at x and x + (n-1)*ux.
inline int64_t lastTapColumn(int64_t x, int64_t last) { return ((x > x + last ? x : x + last) >> 15) + 1; }

// Columns [*lo, *hi] of the taps a span reads on row y (`set0`) and on row
// y+1 where that row has taps of its own (`own1`).
inline void spanTapColumns(const SpanArgs &a, bool set0, bool own1, int64_t *lo, int64_t *hi) {
    const int64_t last = static_cast<int64_t>(a.n - 1) * a.ux;
    *lo = INT64_MAX;
    *hi = INT64_MIN;
    if (set0) {
        *lo = a.sx >> 15;
        *hi = lastTapColumn(a.sx, last);
    }
    if (own1) {
        const int64_t x1 = static_cast<int64_t>(a.sx) + a.hx;
        *lo = *lo < (x1 >> 15) ? *lo : (x1 >> 15);
        const int64_t h1 = lastTapColumn(x1, last);
        *hi = *hi > h1 ? *hi : h1;
    }
}

// A pair's first tap index and weight (x, f) moved into [0, size - 2] with
// the same clamped sum.
inline void pairIn(int32_t size, int32_t *x, int32_t *f) {
    const int32_t v = *x, top = size - 2;
    *f = v < 0 ? 0 : (v > top ? 16 : *f);
    *x = v < 0 ? 0 : (v > top ? top : v);
}

// The tap of a pixel at column x, row r with weights fx, fy (clamped:
// the column, and the row unless the caller has done it).
template <bool Clamp, bool ClampRow = Clamp>
inline Tap tapAt(const SrcPlanes &s, int32_t x, int32_t r, int32_t fx, int32_t fy, int64_t hi) {
    if constexpr (Clamp) pairIn(s.w, &x, &fx);
    if constexpr (ClampRow) pairIn(s.h, &r, &fy);
    return Tap{s.y + static_cast<ptrdiff_t>(r) * s.yPitch + static_cast<ptrdiff_t>(x) * 3, fx, fy, x + 2 <= hi};
}

// Taps of 16 pixels at (px, py) + i * (ux, uy).
template <bool Clamp>
inline void linearTaps(const SpanArgs &a, int32_t px, int32_t py, int64_t hi, Tap *t) {
    const SrcPlanes &s = *a.src;
    for (int i = 0; i < 16; ++i, px = laneAdd(px, a.ux), py = laneAdd(py, a.uy))
        t[i] = tapAt<Clamp>(s, px >> 15, py >> 15, (px >> 11) & 15, (py >> 11) & 15, hi);
}

template <class Arith, int K, bool Clamp = false>
int32_t rgbGroups(const SpanArgs &a) {
    constexpr bool kRound = K != kSpanGeneral;
    const int32_t groups = a.n >> 4;
    if (groups == 0) return 0;
    const SrcPlanes &s = *a.src;
    if (Clamp && (s.w < 2 || s.h < 2)) return 0;
    // Row y+1 reads the rows below row y's taps unless it has its own; a
    // clamped span takes its own unless all rows r .. r + 2 of row y's taps
    // are in the image.
    bool rowsInside = true;
    if constexpr (Clamp) {
        const int64_t y0 = a.sy, y1 = y0 + static_cast<int64_t>(a.n - 1) * a.uy;
        rowsInside = runFits(a.sy, a.n - 1, a.uy) && (y0 < y1 ? y0 : y1) >= 0 && ((y0 < y1 ? y1 : y0) >> 15) + 2 <= s.h - 1;
    }
    const bool own1 = a.dy1 != nullptr && (!rowsInside || (K != kSpanNoRot && !(a.hx == 0 && a.hy == 32768)));
    // An 8-byte load at column x reads to byte 3x + 7: inside the taps
    // while x + 2 is still a tap column (clamped: an image column).
    int64_t hi = INT64_MIN;
    if constexpr (Clamp) {
        hi = s.w - 1;
    } else if constexpr (K == kSpanNoRot) {
        const int32_t p0 = noRotP16(a, 0) >> 4, p1 = noRotP16(a, a.n - 1) >> 4;
        hi = (p0 > p1 ? p0 : p1) + 1;
    } else {
        const int64_t last = static_cast<int64_t>(a.n - 1) * a.ux;
        if (a.dy0 != nullptr || !own1) hi = lastTapColumn(a.sx, last);
        if (own1) {
            const int64_t h1 = lastTapColumn(static_cast<int64_t>(a.sx) + a.hx, last);
            hi = hi > h1 ? hi : h1;
        }
    }
    // Unrotated: rows r (row y) and r + 1 (row y+1, own taps) and their
    // weight, clamped once for the span.
    int32_t r0 = a.sy >> 15, r1 = r0 + 1, fy0 = (a.sy >> 11) & 15, fy1 = fy0;
    if (Clamp) {
        pairIn(s.h, &r0, &fy0);
        pairIn(s.h, &r1, &fy1);
    }
    Tap t0[16], t1[16];
    for (int32_t g = 0; g < groups; ++g) {
        const int32_t k = 16 * g;
        if constexpr (K == kSpanNoRot) {
            const int32_t group = laneAdd(a.sx, laneMul(k, a.ux)) >> 11;
            for (int i = 0; i < 16; ++i) {
                const int32_t p16 = laneAdd(group, a.off16[i]);
                t0[i] = tapAt<Clamp, false>(s, p16 >> 4, r0, p16 & 15, fy0, hi);
                if (own1) t1[i] = tapAt<Clamp, false>(s, p16 >> 4, r1, p16 & 15, fy1, hi);
            }
        } else {
            const int32_t px = laneAdd(a.sx, laneMul(k, a.ux)), py = laneAdd(a.sy, laneMul(k, a.uy));
            linearTaps<Clamp>(a, px, py, hi, t0);
            if (own1) linearTaps<Clamp>(a, laneAdd(px, a.hx), laneAdd(py, a.hy), hi, t1);
        }
        const ptrdiff_t o = static_cast<ptrdiff_t>(a.dx + k) * 3;
        uint8_t *d0 = a.dy0 != nullptr ? a.dy0 + o : nullptr, *d1 = a.dy1 != nullptr ? a.dy1 + o : nullptr;
        Arith::template drawGroup<kRound>(d0, d1, t0, own1 ? t1 : nullptr, s.yPitch);
    }
    return 16 * groups;
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
