// SSSE3 leaves of the bilinear 4:2:0 spans (luma and chroma): unrotated,
// general and parallelogram.
//
// A 16-pixel group's taps lie within 32 bytes of its first pixel's column,
// so each source row is loaded as one or two 16-byte windows and the taps
// are gathered with pshufb: a pair (p0, p1) per output, weighted by
// (16 - f, f) with pmaddubsw, then blended vertically in 16-bit lanes
// ((16 - fy) * h0 + fy * h1 + 128) >> 8 (at most 65408: unsigned 16 bits).
//
// The leaves' code, shared by the file of the unchecked leaves
// (pvx_draw_span_ssse3.cpp) and that of the clamped ones
// (pvx_draw_span_clamped_ssse3.cpp): each compiles only its own
// instantiations, so that neither crowds the other out of the compiler's
// inlining. Included only by files built for this instruction set.
#pragma once

#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)
// g++ 12 cannot follow that the per-row sums picked for a lane (rows 0 ..
// spread + 1) are exactly the rows the loops before fill.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <tmmintrin.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// 16 bytes of `row` from column `base`; bytes outside [lo, hi] are zero.
inline __m128i window(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    if (windowInside(base, 16, lo, hi)) return _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base));
    if (hi - lo >= 15) {
        int32_t start, shift;
        if (!windowSlide(base, lo, hi, &start, &shift)) return _mm_setzero_si128();
        return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(row + start)),
                                _mm_loadu_si128(reinterpret_cast<const __m128i *>(kSlide + 16 + shift)));
    }
    alignas(16) uint8_t block[16];
    windowPart(block, row, base, 16, lo, hi);
    return _mm_load_si128(reinterpret_cast<const __m128i *>(block));
}

// A 32-byte window as two registers; a gather mask in 0..31 picks from it.
struct Window2 {
    __m128i lo, hi;
};
inline Window2 window2(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    return Window2{window(row, base, lo, hi), window(row, base + 16, lo, hi)};
}

// Masks that split indices 0..31 between the two halves: the first keeps
// 0..15 (16..31 get the top bit and read as zero), the second 16..31.
struct Mask2 {
    __m128i lo, hi;
};
inline Mask2 split(__m128i m) {
    return Mask2{_mm_adds_epu8(m, _mm_set1_epi8(0x70)), _mm_sub_epi8(m, _mm_set1_epi8(16))};
}
inline __m128i gather(const Window2 &w, const Mask2 &m) {
    return _mm_or_si128(_mm_shuffle_epi8(w.lo, m.lo), _mm_shuffle_epi8(w.hi, m.hi));
}

// Clamped spans: 1/16 positions relative to 16 * base limited to the image
// and moved to 16 * e.clampedBase (see EdgeClamp).
template <bool Clamp>
inline __m128i clampPositions(__m128i t, const EdgeClamp &e) {
    if constexpr (!Clamp) {
        (void)e;
        return t;
    } else {
        return _mm_min_epi16(_mm_max_epi16(_mm_add_epi16(t, _mm_set1_epi16(e.shift)), _mm_set1_epi16(e.lo)),
                             _mm_set1_epi16(e.hi));
    }
}
// The window column of a group whose positions are relative to `base`.
template <bool Clamp>
inline int32_t windowBase(int32_t base, const EdgeClamp &e) {
    return Clamp ? e.clampedBase : base;
}

// ((16 - fy) * h0 + fy * h1 + 128) >> 8 of two 8-lane halves, packed to bytes.
inline __m128i vertical(__m128i h0a, __m128i h0b, __m128i h1a, __m128i h1b, __m128i wy0, __m128i wy1) {
    const __m128i round = _mm_set1_epi16(128);
    const __m128i a =
        _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(h0a, wy0), _mm_mullo_epi16(h1a, wy1)), round), 8);
    const __m128i b =
        _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(h0b, wy0), _mm_mullo_epi16(h1b, wy1)), round), 8);
    return _mm_packus_epi16(a, b);
}

// Horizontal sums (16 - f) * p0 + f * p1 of one luma row of a group.
struct Row16 {
    __m128i a, b;  // pixels 0..7, 8..15
};

struct LumaGroup {
    __m128i pairs0, pairs1;  // gather masks (p0, p1) of pixels 0..7 and 8..15
    Mask2 wide0, wide1;      // the same split over two windows
    __m128i w0, w1;          // weights (16 - f, f)
};

// From the 1/16 positions of the 16 pixels relative to 16 * base column.
inline LumaGroup lumaGroupAt(__m128i tLo, __m128i tHi, bool wide) {
    const __m128i idx = _mm_packus_epi16(_mm_srli_epi16(tLo, 4), _mm_srli_epi16(tHi, 4));
    const __m128i m15 = _mm_set1_epi16(15);
    const __m128i f = _mm_packus_epi16(_mm_and_si128(tLo, m15), _mm_and_si128(tHi, m15));
    const __m128i idx1 = _mm_add_epi8(idx, _mm_set1_epi8(1));
    const __m128i g16 = _mm_sub_epi8(_mm_set1_epi8(16), f);
    LumaGroup lg;
    lg.pairs0 = _mm_unpacklo_epi8(idx, idx1);
    lg.pairs1 = _mm_unpackhi_epi8(idx, idx1);
    if (wide) {
        lg.wide0 = split(lg.pairs0);
        lg.wide1 = split(lg.pairs1);
    }
    lg.w0 = _mm_unpacklo_epi8(g16, f);
    lg.w1 = _mm_unpackhi_epi8(g16, f);
    return lg;
}
template <bool Clamp>
inline LumaGroup lumaGroup(__m128i offLo, __m128i offHi, int32_t gf, bool wide, const EdgeClamp &e) {
    const __m128i g = _mm_set1_epi16(static_cast<int16_t>(gf));
    return lumaGroupAt(clampPositions<Clamp>(_mm_add_epi16(offLo, g), e),
                       clampPositions<Clamp>(_mm_add_epi16(offHi, g), e), wide);
}

template <bool Wide>
inline Row16 lumaRow(const uint8_t *row, int32_t base, int32_t lo, int32_t hi, const LumaGroup &lg) {
    Row16 h;
    if constexpr (Wide) {
        const Window2 w = window2(row, base, lo, hi);
        h.a = _mm_maddubs_epi16(gather(w, lg.wide0), lg.w0);
        h.b = _mm_maddubs_epi16(gather(w, lg.wide1), lg.w1);
    } else {
        const __m128i w = window(row, base, lo, hi);
        h.a = _mm_maddubs_epi16(_mm_shuffle_epi8(w, lg.pairs0), lg.w0);
        h.b = _mm_maddubs_epi16(_mm_shuffle_epi8(w, lg.pairs1), lg.w1);
    }
    return h;
}

// Luma of the groups' rows y and y+1.
// Rows r, r + 1, r + 2 (clamped spans: the plan's rows, limited to the image).
template <bool Wide, bool Clamp>
inline void lumaGroupRows(const SpanArgs &a, const NoRotPlan &p, const LumaGroup &lg, int32_t base, int32_t k) {
    const SrcPlanes &s = *a.src;
    const uint8_t *r1 = s.y + static_cast<ptrdiff_t>(Clamp ? p.rows[1] : p.r + 1) * s.yPitch;
    const uint8_t *r0 = Clamp ? s.y + static_cast<ptrdiff_t>(p.rows[0]) * s.yPitch : r1 - s.yPitch;
    const uint8_t *r2 = Clamp ? s.y + static_cast<ptrdiff_t>(p.rows[2]) * s.yPitch : r1 + s.yPitch;
    const __m128i wy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.fy)),
                  wy1 = _mm_set1_epi16(static_cast<int16_t>(p.fy));
    const Row16 h1 = lumaRow<Wide>(r1, base, p.lumaLo, p.lumaHi, lg);
    if (a.dy0 != nullptr) {
        const Row16 h0 = lumaRow<Wide>(r0, base, p.lumaLo, p.lumaHi, lg);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dy0 + a.dx + k), vertical(h0.a, h0.b, h1.a, h1.b, wy0, wy1));
    }
    if (a.dy1 != nullptr) {
        const Row16 h2 = lumaRow<Wide>(r2, base, p.lumaLo, p.lumaHi, lg);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dy1 + a.dx + k), vertical(h1.a, h1.b, h2.a, h2.b, wy0, wy1));
    }
}

// Offsets of a group's 16 pixels and of its 8 chroma pixels (odd or even
// ones) as 16-bit lanes.
struct Offsets {
    __m128i lo, hi, chroma;
};
inline Offsets offsets(const SpanArgs &a, int32_t par) {
    alignas(16) int16_t c[8];
    for (int32_t j = 0; j < 8; ++j) c[j] = static_cast<int16_t>(a.off16[par + 2 * j]);
    const __m128i *o = reinterpret_cast<const __m128i *>(a.off16);
    Offsets r;
    r.lo = _mm_packs_epi32(_mm_loadu_si128(o), _mm_loadu_si128(o + 1));
    r.hi = _mm_packs_epi32(_mm_loadu_si128(o + 2), _mm_loadu_si128(o + 3));
    r.chroma = _mm_load_si128(reinterpret_cast<const __m128i *>(c));
    return r;
}

// Chroma sample indices (from G >> 5, clamped: from e.clampedBase) and
// weights of a group's 8 chroma pixels: ((G & 31) + offset) >> 1 in 1/16
// chroma sample.
template <bool Clamp>
inline void chromaTaps(__m128i offC, int32_t g31, const EdgeClamp &e, __m128i *idx, __m128i *f) {
    const __m128i rc = clampPositions<Clamp>(
        _mm_srli_epi16(_mm_add_epi16(offC, _mm_set1_epi16(static_cast<int16_t>(g31))), 1), e);
    *idx = _mm_packus_epi16(_mm_srli_epi16(rc, 4), _mm_setzero_si128());
    *f = _mm_packus_epi16(_mm_and_si128(rc, _mm_set1_epi16(15)), _mm_setzero_si128());
}

template <bool Wide, bool Clamp>
int32_t noRotSemiplanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const __m128i cwy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.cfy)),
                  cwy1 = _mm_set1_epi16(static_cast<int16_t>(p.cfy));
    const uint8_t *c0 = s.c0 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c0Pitch;
    const uint8_t *c1 = Clamp ? s.c0 + static_cast<ptrdiff_t>(p.crows[1]) * s.c0Pitch : c0 + s.c0Pitch;
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        EdgeClamp e{}, ec{};
        if constexpr (Clamp) e = edgeClamp(G >> 4, s.w);
        lumaGroupRows<Wide, Clamp>(a, p, lumaGroup<Clamp>(o.lo, o.hi, G & 15, Wide, e), windowBase<Clamp>(G >> 4, e), k);
        if (!p.chroma) return;
        // Output byte b is channel b & 1 of chroma pixel b >> 1: taps at
        // bytes 2 * idx + (b & 1) and two bytes further.
        if constexpr (Clamp) ec = edgeClamp(G >> 5, s.cw);
        __m128i idx, f;
        chromaTaps<Clamp>(o.chroma, G & 31, ec, &idx, &f);
        const __m128i idx2 = _mm_unpacklo_epi8(idx, idx);
        const __m128i t0 = _mm_add_epi8(_mm_add_epi8(idx2, idx2), _mm_set1_epi16(0x0100));
        const __m128i t1 = _mm_add_epi8(t0, _mm_set1_epi8(2));
        const Mask2 m0 = split(_mm_unpacklo_epi8(t0, t1)), m1 = split(_mm_unpackhi_epi8(t0, t1));
        const __m128i f2 = _mm_unpacklo_epi8(f, f), g2 = _mm_sub_epi8(_mm_set1_epi8(16), f2);
        const __m128i w0 = _mm_unpacklo_epi8(g2, f2), w1 = _mm_unpackhi_epi8(g2, f2);
        const int32_t base = 2 * windowBase<Clamp>(G >> 5, ec);
        const Window2 u0 = window2(c0, base, p.chromaLo, p.chromaHi), u1 = window2(c1, base, p.chromaLo, p.chromaHi);
        const __m128i out =
            vertical(_mm_maddubs_epi16(gather(u0, m0), w0), _mm_maddubs_epi16(gather(u0, m1), w1),
                     _mm_maddubs_epi16(gather(u1, m0), w0), _mm_maddubs_epi16(gather(u1, m1), w1), cwy0, cwy1);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dc00 + ((a.dx + k + p.par) >> 1) * 2), out);
    });
}

template <bool Wide, bool Clamp>
int32_t noRotPlanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const __m128i cwy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.cfy)),
                  cwy1 = _mm_set1_epi16(static_cast<int16_t>(p.cfy));
    const uint8_t *u0 = s.c0 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c0Pitch;
    const uint8_t *u1 = Clamp ? s.c0 + static_cast<ptrdiff_t>(p.crows[1]) * s.c0Pitch : u0 + s.c0Pitch;
    const uint8_t *v0 = s.c1 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c1Pitch;
    const uint8_t *v1 = Clamp ? s.c1 + static_cast<ptrdiff_t>(p.crows[1]) * s.c1Pitch : v0 + s.c1Pitch;
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        EdgeClamp e{}, ec{};
        if constexpr (Clamp) e = edgeClamp(G >> 4, s.w);
        lumaGroupRows<Wide, Clamp>(a, p, lumaGroup<Clamp>(o.lo, o.hi, G & 15, Wide, e), windowBase<Clamp>(G >> 4, e), k);
        if (!p.chroma) return;
        if constexpr (Clamp) ec = edgeClamp(G >> 5, s.cw);
        __m128i idx, f;
        chromaTaps<Clamp>(o.chroma, G & 31, ec, &idx, &f);
        const __m128i m = _mm_unpacklo_epi8(idx, _mm_add_epi8(idx, _mm_set1_epi8(1)));
        const __m128i w = _mm_unpacklo_epi8(_mm_sub_epi8(_mm_set1_epi8(16), f), f);
        const int32_t base = windowBase<Clamp>(G >> 5, ec);
        const auto taps = [&](const uint8_t *row) {
            return _mm_maddubs_epi16(_mm_shuffle_epi8(window(row, base, p.chromaLo, p.chromaHi), m), w);
        };
        const __m128i out = vertical(taps(u0), taps(v0), taps(u1), taps(v1), cwy0, cwy1);
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc00 + co), out);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc01 + co), _mm_unpackhi_epi64(out, out));
    });
}

// ---------------------------------------------------------------------------
// General and parallelogram spans: per-lane positions, rows and weights.

// 1/16 positions of lanes relative to 16 * (p0 >> 15): H + i*uh + ((l + i*ul) >> 11).
inline __m128i rel16(__m128i ih, __m128i il, int32_t p0) {
    const __m128i h = _mm_set1_epi16(static_cast<int16_t>((p0 >> 11) & 15));
    const __m128i l = _mm_set1_epi16(static_cast<int16_t>(p0 & 2047));
    return _mm_add_epi16(_mm_add_epi16(h, ih), _mm_srli_epi16(_mm_add_epi16(l, il), 11));
}

inline __m128i select(__m128i m, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b));
}

// Per lane, h[from + rr] where rr (0 .. spread) is the lane's row.
inline __m128i pick(const __m128i *h, __m128i rr, int32_t from, int32_t spread) {
    __m128i r = h[from];
    for (int32_t j = 1; j <= spread; ++j)
        r = select(_mm_cmpgt_epi16(rr, _mm_set1_epi16(static_cast<int16_t>(j - 1))), h[from + j], r);
    return r;
}

// ((16 - fy) * top + fy * bottom [+ 128]) >> 8 with per-lane weights.
template <bool Round>
inline __m128i verticalLanes(__m128i top, __m128i bottom, __m128i fy) {
    __m128i v = _mm_add_epi16(_mm_mullo_epi16(top, _mm_sub_epi16(_mm_set1_epi16(16), fy)), _mm_mullo_epi16(bottom, fy));
    if constexpr (Round) v = _mm_add_epi16(v, _mm_set1_epi16(128));
    return _mm_srli_epi16(v, 8);
}

// The same over the rows' sums of one half of the pixels.
inline __m128i pickRow(__m128i (*h)[2], int half, __m128i rr, int32_t from, int32_t spread) {
    __m128i r = h[from][half];
    for (int32_t j = 1; j <= spread; ++j)
        r = select(_mm_cmpgt_epi16(rr, _mm_set1_epi16(static_cast<int16_t>(j - 1))), h[from + j][half], r);
    return r;
}

struct LinearVectors {
    __m128i xh[2], xl[2], yh[2], yl[2], cxh, cxl, cyh, cyl;
};
// i * uh and i * ul of the 16 luma lanes and of the 8 chroma lanes (i = par + 2j).
inline LinearVectors linearVectors(const LinearPlan &p) {
    const __m128i lanes[2] = {_mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7), _mm_setr_epi16(8, 9, 10, 11, 12, 13, 14, 15)};
    const __m128i chroma =
        _mm_add_epi16(_mm_setr_epi16(0, 2, 4, 6, 8, 10, 12, 14), _mm_set1_epi16(static_cast<int16_t>(p.par)));
    const __m128i xh = _mm_set1_epi16(static_cast<int16_t>(p.uxh)), xl = _mm_set1_epi16(static_cast<int16_t>(p.uxl));
    const __m128i yh = _mm_set1_epi16(static_cast<int16_t>(p.uyh)), yl = _mm_set1_epi16(static_cast<int16_t>(p.uyl));
    LinearVectors v;
    for (int h = 0; h < 2; ++h) {
        v.xh[h] = _mm_mullo_epi16(lanes[h], xh);
        v.xl[h] = _mm_mullo_epi16(lanes[h], xl);
        v.yh[h] = _mm_mullo_epi16(lanes[h], yh);
        v.yl[h] = _mm_mullo_epi16(lanes[h], yl);
    }
    v.cxh = _mm_mullo_epi16(chroma, xh);
    v.cxl = _mm_mullo_epi16(chroma, xl);
    v.cyh = _mm_mullo_epi16(chroma, yh);
    v.cyl = _mm_mullo_epi16(chroma, yl);
    return v;
}

// The luma rows of one set of 16 positions (X0, Y0) + i * (ux, uy).
struct RowSet {
    LumaGroup lg;
    int32_t base;    // column of the windows: X0 >> 15
    int32_t row;     // first source row of the lanes
    int32_t spread;  // lane rows are row .. row + spread
    __m128i rr[2];   // lane rows from `row`
    __m128i fy[2];
};

template <bool Wide, bool Clamp>
inline RowSet rowSet(const LinearVectors &v, int32_t x0, int32_t y0, int32_t low, int32_t spread, int32_t w) {
    RowSet s;
    s.spread = spread;
    EdgeClamp e{};
    if constexpr (Clamp) e = edgeClamp(x0 >> 15, w);
    s.lg = lumaGroupAt(clampPositions<Clamp>(rel16(v.xh[0], v.xl[0], x0), e),
                       clampPositions<Clamp>(rel16(v.xh[1], v.xl[1], x0), e), Wide);
    s.base = windowBase<Clamp>(x0 >> 15, e);
    s.row = (y0 >> 15) + low;
    const __m128i m15 = _mm_set1_epi16(15), lowV = _mm_set1_epi16(static_cast<int16_t>(low));
    for (int h = 0; h < 2; ++h) {
        const __m128i q = rel16(v.yh[h], v.yl[h], y0);
        s.rr[h] = _mm_sub_epi16(_mm_srai_epi16(q, 4), lowV);
        s.fy[h] = _mm_and_si128(q, m15);
    }
    return s;
}

// Horizontal sums of rows s.row + j for j in [j0, j1] (clamped: rows limited to the image).
template <bool Wide, bool Clamp>
inline void rowSums(const SrcPlanes &src, const RowSet &s, int32_t j0, int32_t j1, int32_t lo, int32_t hi,
                    __m128i (*h)[2]) {
    for (int32_t j = j0; j <= j1; ++j) {
        const ptrdiff_t r = rowIn<Clamp>(s.row + j, src.h);
        const Row16 r16 = lumaRow<Wide>(src.y + r * src.yPitch, s.base, lo, hi, s.lg);
        h[j][0] = r16.a;
        h[j][1] = r16.b;
    }
}

// 16 luma outputs from the sums, rows from `from` (0: the lanes' own rows; 1: one lower).
template <bool Round>
inline void lumaStore(uint8_t *d, __m128i (*h)[2], const RowSet &s, int32_t from) {
    __m128i out[2];
    for (int half = 0; half < 2; ++half)
        out[half] = verticalLanes<Round>(pickRow(h, half, s.rr[half], from, s.spread),
                                         pickRow(h, half, s.rr[half], from + 1, s.spread), s.fy[half]);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm_packus_epi16(out[0], out[1]));
}

// Chroma of a group's 8 chroma pixels: taps from X0 >> 16, rows from `row`.
struct ChromaSet {
    __m128i idx, f;  // sample index and weight per chroma pixel (bytes 0..7)
    int32_t base;    // chroma column X0 >> 16
    int32_t row, spread;
    __m128i rr, fy;  // per chroma pixel (16-bit lanes)
};

template <bool Clamp>
inline ChromaSet chromaSet(const LinearVectors &v, int32_t x0, int32_t y0, int32_t low, int32_t spread, int32_t cw) {
    ChromaSet c;
    const int32_t odd = 16 * ((y0 >> 15) & 1);
    c.spread = spread;
    EdgeClamp e{};
    if constexpr (Clamp) e = edgeClamp(x0 >> 16, cw);
    const __m128i cx = clampPositions<Clamp>(
        _mm_srli_epi16(
            _mm_add_epi16(rel16(v.cxh, v.cxl, x0), _mm_set1_epi16(static_cast<int16_t>(16 * ((x0 >> 15) & 1)))), 1),
        e);
    c.idx = _mm_packus_epi16(_mm_srli_epi16(cx, 4), _mm_setzero_si128());
    c.f = _mm_packus_epi16(_mm_and_si128(cx, _mm_set1_epi16(15)), _mm_setzero_si128());
    c.base = windowBase<Clamp>(x0 >> 16, e);
    const __m128i cy =
        _mm_srai_epi16(_mm_add_epi16(rel16(v.cyh, v.cyl, y0), _mm_set1_epi16(static_cast<int16_t>(odd))), 1);
    c.row = (y0 >> 16) + low;
    c.rr = _mm_sub_epi16(_mm_srai_epi16(cy, 4), _mm_set1_epi16(static_cast<int16_t>(low)));
    c.fy = _mm_and_si128(cy, _mm_set1_epi16(15));
    return c;
}

template <bool Wide, bool Round, bool Planar, bool Clamp>
int32_t linearSpan(const SpanArgs &a, const LinearPlan &p) {
    const SrcPlanes &s = *a.src;
    const LinearVectors v = linearVectors(p);
    __m128i h[kMaxRowSpread + 3][2];
    return forEachLinearGroup(a, p, [&](const LinearGroup &q) {
        const int32_t k = q.k, x0 = q.x0, y0 = q.y0, x1 = q.x1, y1 = q.y1;
        const int32_t low0 = q.low0, spread0 = q.spread0, low1 = q.low1, spread1 = q.spread1;
        uint8_t *d0 = q.d0, *d1 = q.d1;
        if (p.shared) {
            // Row y+1 reads the rows below with the same weights.
            const RowSet r0 = rowSet<Wide, Clamp>(v, x0, y0, low0, spread0, s.w);
            rowSums<Wide, Clamp>(s, r0, d0 != nullptr ? 0 : 1, r0.spread + (d1 != nullptr ? 2 : 1), p.lumaLo, p.lumaHi, h);
            if (d0 != nullptr) lumaStore<Round>(d0, h, r0, 0);
            if (d1 != nullptr) lumaStore<Round>(d1, h, r0, 1);
        } else {
            if (d0 != nullptr) {
                const RowSet r0 = rowSet<Wide, Clamp>(v, x0, y0, low0, spread0, s.w);
                rowSums<Wide, Clamp>(s, r0, 0, r0.spread + 1, p.lumaLo, p.lumaHi, h);
                lumaStore<Round>(d0, h, r0, 0);
            }
            if (q.own1) {
                const RowSet r1 = rowSet<Wide, Clamp>(v, x1, y1, low1, spread1, s.w);
                rowSums<Wide, Clamp>(s, r1, 0, r1.spread + 1, p.lumaLo, p.lumaHi, h);
                lumaStore<Round>(d1, h, r1, 0);
            }
        }
        if (!p.chroma) return;
        const ChromaSet c = chromaSet<Clamp>(v, x0, y0, q.clow, q.cspread, s.cw);
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        if constexpr (Planar) {
            const __m128i m = _mm_unpacklo_epi8(c.idx, _mm_add_epi8(c.idx, _mm_set1_epi8(1)));
            const __m128i w = _mm_unpacklo_epi8(_mm_sub_epi8(_mm_set1_epi8(16), c.f), c.f);
            __m128i u[kMaxRowSpread + 2], vv[kMaxRowSpread + 2];
            for (int32_t j = 0; j <= c.spread + 1; ++j) {
                const ptrdiff_t rj = rowIn<Clamp>(c.row + j, s.ch);
                u[j] = _mm_maddubs_epi16(
                    _mm_shuffle_epi8(window(s.c0 + rj * s.c0Pitch, c.base, p.chromaLo, p.chromaHi), m), w);
                vv[j] = _mm_maddubs_epi16(
                    _mm_shuffle_epi8(window(s.c1 + rj * s.c1Pitch, c.base, p.chromaLo, p.chromaHi), m), w);
            }
            const __m128i ou = verticalLanes<Round>(pick(u, c.rr, 0, c.spread), pick(u, c.rr, 1, c.spread), c.fy);
            const __m128i ov = verticalLanes<Round>(pick(vv, c.rr, 0, c.spread), pick(vv, c.rr, 1, c.spread), c.fy);
            const __m128i out = _mm_packus_epi16(ou, ov);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc00 + co), out);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc01 + co), _mm_unpackhi_epi64(out, out));
        } else {
            // Output byte b is channel b & 1 of chroma pixel b >> 1.
            const __m128i idx2 = _mm_unpacklo_epi8(c.idx, c.idx);
            const __m128i t0 = _mm_add_epi8(_mm_add_epi8(idx2, idx2), _mm_set1_epi16(0x0100));
            const __m128i t1 = _mm_add_epi8(t0, _mm_set1_epi8(2));
            const Mask2 m0 = split(_mm_unpacklo_epi8(t0, t1)), m1 = split(_mm_unpackhi_epi8(t0, t1));
            const __m128i f2 = _mm_unpacklo_epi8(c.f, c.f), g2 = _mm_sub_epi8(_mm_set1_epi8(16), f2);
            const __m128i w0 = _mm_unpacklo_epi8(g2, f2), w1 = _mm_unpackhi_epi8(g2, f2);
            __m128i lo[kMaxRowSpread + 2], hi[kMaxRowSpread + 2];
            for (int32_t j = 0; j <= c.spread + 1; ++j) {
                const Window2 win =
                    window2(s.c0 + static_cast<ptrdiff_t>(rowIn<Clamp>(c.row + j, s.ch)) * s.c0Pitch, 2 * c.base,
                            p.chromaLo, p.chromaHi);
                lo[j] = _mm_maddubs_epi16(gather(win, m0), w0);
                hi[j] = _mm_maddubs_epi16(gather(win, m1), w1);
            }
            const __m128i rrLo = _mm_unpacklo_epi16(c.rr, c.rr), rrHi = _mm_unpackhi_epi16(c.rr, c.rr);
            const __m128i fyLo = _mm_unpacklo_epi16(c.fy, c.fy), fyHi = _mm_unpackhi_epi16(c.fy, c.fy);
            const __m128i oLo = verticalLanes<Round>(pick(lo, rrLo, 0, c.spread), pick(lo, rrLo, 1, c.spread), fyLo);
            const __m128i oHi = verticalLanes<Round>(pick(hi, rrHi, 0, c.spread), pick(hi, rrHi, 1, c.spread), fyHi);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dc00 + 2 * co), _mm_packus_epi16(oLo, oHi));
        }
    });
}

template <bool Round, bool Planar, bool Clamp>
int32_t linearLeaf(const SpanArgs &a) {
    LinearPlan p;
    if (!planLinear<Clamp>(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    return p.wideLuma ? linearSpan<true, Round, Planar, Clamp>(a, p) : linearSpan<false, Round, Planar, Clamp>(a, p);
}

template <bool Planar, bool Clamp>
int32_t noRotLeaf(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot<Clamp>(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    if constexpr (Planar) {
        return p.wideLuma ? noRotPlanar<true, Clamp>(a, p) : noRotPlanar<false, Clamp>(a, p);
    } else {
        return p.wideLuma ? noRotSemiplanar<true, Clamp>(a, p) : noRotSemiplanar<false, Clamp>(a, p);
    }
}

// The leaves of one family, unchecked or clamped.
template <bool Planar, bool Clamp>
void fillFamily(SpanLeaf *slots) {
    slots[kSpanGeneral] = linearLeaf<false, Planar, Clamp>;
    slots[kSpanParallel] = linearLeaf<true, Planar, Clamp>;
    slots[kSpanNoRot] = noRotLeaf<Planar, Clamp>;
}

}  // namespace
}  // namespace pvx_draw

#endif
