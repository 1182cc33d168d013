// NEON leaves of the bilinear 4:2:0 spans (luma and chroma): unrotated,
// general and parallelogram.
//
// A 16-pixel group's taps lie within 32 bytes of its first pixel's column:
// each source row is loaded as a 16- or 32-byte table and the taps are
// gathered with vtbl, weighted by (16 - f, f) with widening multiplies,
// blended vertically in 16-bit lanes and narrowed by a rounding shift by 8.
//
// The leaves' code, shared by the file of the unchecked leaves
// (pvx_draw_span_neon.cpp) and that of the clamped ones
// (pvx_draw_span_clamped_neon.cpp): each compiles only its own
// instantiations, so that neither crowds the other out of the compiler's
// inlining. Included only by files built for this instruction set.
#pragma once

#if defined(__ARM_NEON)
// g++ 12 cannot follow that the per-row sums picked for a lane (rows 0 ..
// spread + 1) are exactly the rows the loops before fill.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <arm_neon.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// 16 bytes of `row` from column `base`; bytes outside [lo, hi] are zero.
inline uint8x16_t window(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    if (windowInside(base, 16, lo, hi)) return vld1q_u8(row + base);
    if (hi - lo >= 15) {
        int32_t start, shift;
        if (!windowSlide(base, lo, hi, &start, &shift)) return vdupq_n_u8(0);
        const uint8x16_t v = vld1q_u8(row + start), m = vld1q_u8(kSlide + 16 + shift);
        uint8x8x2_t t;
        t.val[0] = vget_low_u8(v);
        t.val[1] = vget_high_u8(v);
        return vcombine_u8(vtbl2_u8(t, vget_low_u8(m)), vtbl2_u8(t, vget_high_u8(m)));
    }
    uint8_t block[16];
    windowPart(block, row, base, 16, lo, hi);
    return vld1q_u8(block);
}
inline uint8x8x2_t table16(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    const uint8x16_t w = window(row, base, lo, hi);
    uint8x8x2_t t;
    t.val[0] = vget_low_u8(w);
    t.val[1] = vget_high_u8(w);
    return t;
}
inline uint8x8x4_t table32(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    const uint8x16_t a = window(row, base, lo, hi), b = window(row, base + 16, lo, hi);
    uint8x8x4_t t;
    t.val[0] = vget_low_u8(a);
    t.val[1] = vget_high_u8(a);
    t.val[2] = vget_low_u8(b);
    t.val[3] = vget_high_u8(b);
    return t;
}

// (16 - f) * p0 + f * p1 of one table.
inline uint16x8_t taps(const uint8x8x2_t &t, uint8x8_t i0, uint8x8_t i1, uint8x8_t g, uint8x8_t f) {
    return vmlal_u8(vmull_u8(vtbl2_u8(t, i0), g), vtbl2_u8(t, i1), f);
}
inline uint16x8_t taps(const uint8x8x4_t &t, uint8x8_t i0, uint8x8_t i1, uint8x8_t g, uint8x8_t f) {
    return vmlal_u8(vmull_u8(vtbl4_u8(t, i0), g), vtbl4_u8(t, i1), f);
}

// Clamped spans: 1/16 positions relative to 16 * base limited to the image
// and moved to 16 * e.clampedBase (see EdgeClamp).
template <bool Clamp>
inline uint16x8_t clampPositions(uint16x8_t t, const EdgeClamp &e) {
    if constexpr (!Clamp) {
        (void)e;
        return t;
    } else {
        const int16x8_t v = vaddq_s16(vreinterpretq_s16_u16(t), vdupq_n_s16(e.shift));
        return vreinterpretq_u16_s16(vminq_s16(vmaxq_s16(v, vdupq_n_s16(e.lo)), vdupq_n_s16(e.hi)));
    }
}
// The window column of a group whose positions are relative to `base`.
template <bool Clamp>
inline int32_t windowBase(int32_t base, const EdgeClamp &e) {
    return Clamp ? e.clampedBase : base;
}

// ((16 - fy) * h0 + fy * h1 + 128) >> 8; at most 65408, so 16 bits hold it.
inline uint8x8_t vertical(uint16x8_t h0, uint16x8_t h1, uint16x8_t wy0, uint16x8_t wy1) {
    return vrshrn_n_u16(vmlaq_u16(vmulq_u16(h0, wy0), h1, wy1), 8);
}

struct LumaGroup {
    uint8x8_t i0[2], i1[2], g[2], f[2];  // pixels 0..7 and 8..15
};

// From the 1/16 positions of the 16 pixels relative to 16 * base column.
inline LumaGroup lumaGroupAt(uint16x8_t tLo, uint16x8_t tHi) {
    const uint16x8_t m15 = vdupq_n_u16(15);
    const uint16x8_t t[2] = {tLo, tHi};
    LumaGroup lg;
    for (int h = 0; h < 2; ++h) {
        lg.i0[h] = vmovn_u16(vshrq_n_u16(t[h], 4));
        lg.i1[h] = vadd_u8(lg.i0[h], vdup_n_u8(1));
        lg.f[h] = vmovn_u16(vandq_u16(t[h], m15));
        lg.g[h] = vsub_u8(vdup_n_u8(16), lg.f[h]);
    }
    return lg;
}
template <bool Clamp>
inline LumaGroup lumaGroup(uint16x8_t offLo, uint16x8_t offHi, int32_t gf, const EdgeClamp &e) {
    const uint16x8_t v = vdupq_n_u16(static_cast<uint16_t>(gf));
    return lumaGroupAt(clampPositions<Clamp>(vaddq_u16(offLo, v), e), clampPositions<Clamp>(vaddq_u16(offHi, v), e));
}

struct Row16 {
    uint16x8_t h[2];
};

template <bool Wide>
inline Row16 lumaRow(const uint8_t *row, int32_t base, int32_t lo, int32_t hi, const LumaGroup &lg) {
    Row16 r;
    if constexpr (Wide) {
        const uint8x8x4_t t = table32(row, base, lo, hi);
        for (int h = 0; h < 2; ++h) r.h[h] = taps(t, lg.i0[h], lg.i1[h], lg.g[h], lg.f[h]);
    } else {
        const uint8x8x2_t t = table16(row, base, lo, hi);
        for (int h = 0; h < 2; ++h) r.h[h] = taps(t, lg.i0[h], lg.i1[h], lg.g[h], lg.f[h]);
    }
    return r;
}

// Rows r, r + 1, r + 2 (clamped spans: the plan's rows, limited to the image).
template <bool Wide, bool Clamp>
inline void lumaGroupRows(const SpanArgs &a, const NoRotPlan &p, const LumaGroup &lg, int32_t base, int32_t k) {
    const SrcPlanes &s = *a.src;
    const uint8_t *r1 = s.y + static_cast<ptrdiff_t>(Clamp ? p.rows[1] : p.r + 1) * s.yPitch;
    const uint8_t *r0 = Clamp ? s.y + static_cast<ptrdiff_t>(p.rows[0]) * s.yPitch : r1 - s.yPitch;
    const uint8_t *r2 = Clamp ? s.y + static_cast<ptrdiff_t>(p.rows[2]) * s.yPitch : r1 + s.yPitch;
    const uint16x8_t wy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.fy)),
                     wy1 = vdupq_n_u16(static_cast<uint16_t>(p.fy));
    const Row16 h1 = lumaRow<Wide>(r1, base, p.lumaLo, p.lumaHi, lg);
    if (a.dy0 != nullptr) {
        const Row16 h0 = lumaRow<Wide>(r0, base, p.lumaLo, p.lumaHi, lg);
        vst1q_u8(a.dy0 + a.dx + k,
                 vcombine_u8(vertical(h0.h[0], h1.h[0], wy0, wy1), vertical(h0.h[1], h1.h[1], wy0, wy1)));
    }
    if (a.dy1 != nullptr) {
        const Row16 h2 = lumaRow<Wide>(r2, base, p.lumaLo, p.lumaHi, lg);
        vst1q_u8(a.dy1 + a.dx + k,
                 vcombine_u8(vertical(h1.h[0], h2.h[0], wy0, wy1), vertical(h1.h[1], h2.h[1], wy0, wy1)));
    }
}

struct Offsets {
    uint16x8_t lo, hi, chroma;
};
inline Offsets offsets(const SpanArgs &a, int32_t par) {
    uint16_t c[8];
    for (int32_t j = 0; j < 8; ++j) c[j] = static_cast<uint16_t>(a.off16[par + 2 * j]);
    const uint32_t *o = reinterpret_cast<const uint32_t *>(a.off16);
    Offsets r;
    r.lo = vcombine_u16(vmovn_u32(vld1q_u32(o)), vmovn_u32(vld1q_u32(o + 4)));
    r.hi = vcombine_u16(vmovn_u32(vld1q_u32(o + 8)), vmovn_u32(vld1q_u32(o + 12)));
    r.chroma = vld1q_u16(c);
    return r;
}

// Chroma sample indices (from G >> 5, clamped: from e.clampedBase) and
// weights of a group's 8 chroma pixels: ((G & 31) + offset) >> 1 in 1/16
// chroma sample.
template <bool Clamp>
inline void chromaTaps(uint16x8_t offC, int32_t g31, const EdgeClamp &e, uint8x8_t *idx, uint8x8_t *f) {
    const uint16x8_t rc =
        clampPositions<Clamp>(vshrq_n_u16(vaddq_u16(offC, vdupq_n_u16(static_cast<uint16_t>(g31))), 1), e);
    *idx = vmovn_u16(vshrq_n_u16(rc, 4));
    *f = vmovn_u16(vandq_u16(rc, vdupq_n_u16(15)));
}

template <bool Wide, bool Clamp>
int32_t noRotSemiplanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const uint16x8_t cwy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.cfy)),
                     cwy1 = vdupq_n_u16(static_cast<uint16_t>(p.cfy));
    const uint8_t *c0 = s.c0 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c0Pitch;
    const uint8_t *c1 = Clamp ? s.c0 + static_cast<ptrdiff_t>(p.crows[1]) * s.c0Pitch : c0 + s.c0Pitch;
    const uint8x8_t alternate = vreinterpret_u8_u16(vdup_n_u16(0x0100));  // 0, 1, 0, 1, ...
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        EdgeClamp e{}, ec{};
        if constexpr (Clamp) e = edgeClamp(G >> 4, s.w);
        lumaGroupRows<Wide, Clamp>(a, p, lumaGroup<Clamp>(o.lo, o.hi, G & 15, e), windowBase<Clamp>(G >> 4, e), k);
        if (!p.chroma) return;
        // Output byte b is channel b & 1 of chroma pixel b >> 1: taps at
        // bytes 2 * idx + (b & 1) and two bytes further.
        if constexpr (Clamp) ec = edgeClamp(G >> 5, s.cw);
        uint8x8_t idx, f;
        chromaTaps<Clamp>(o.chroma, G & 31, ec, &idx, &f);
        const uint8x8x2_t i2 = vzip_u8(idx, idx), f2 = vzip_u8(f, f);
        const int32_t base = 2 * windowBase<Clamp>(G >> 5, ec);
        const uint8x8x4_t t0 = table32(c0, base, p.chromaLo, p.chromaHi),
                          t1 = table32(c1, base, p.chromaLo, p.chromaHi);
        uint8x8_t out[2];
        for (int h = 0; h < 2; ++h) {
            const uint8x8_t b0 = vadd_u8(vshl_n_u8(i2.val[h], 1), alternate), b1 = vadd_u8(b0, vdup_n_u8(2));
            const uint8x8_t w = vsub_u8(vdup_n_u8(16), f2.val[h]);
            out[h] = vertical(taps(t0, b0, b1, w, f2.val[h]), taps(t1, b0, b1, w, f2.val[h]), cwy0, cwy1);
        }
        vst1q_u8(a.dc00 + ((a.dx + k + p.par) >> 1) * 2, vcombine_u8(out[0], out[1]));
    });
}

template <bool Wide, bool Clamp>
int32_t noRotPlanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const uint16x8_t cwy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.cfy)),
                     cwy1 = vdupq_n_u16(static_cast<uint16_t>(p.cfy));
    const uint8_t *u0 = s.c0 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c0Pitch;
    const uint8_t *u1 = Clamp ? s.c0 + static_cast<ptrdiff_t>(p.crows[1]) * s.c0Pitch : u0 + s.c0Pitch;
    const uint8_t *v0 = s.c1 + static_cast<ptrdiff_t>(Clamp ? p.crows[0] : p.cr) * s.c1Pitch;
    const uint8_t *v1 = Clamp ? s.c1 + static_cast<ptrdiff_t>(p.crows[1]) * s.c1Pitch : v0 + s.c1Pitch;
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        EdgeClamp e{}, ec{};
        if constexpr (Clamp) e = edgeClamp(G >> 4, s.w);
        lumaGroupRows<Wide, Clamp>(a, p, lumaGroup<Clamp>(o.lo, o.hi, G & 15, e), windowBase<Clamp>(G >> 4, e), k);
        if (!p.chroma) return;
        if constexpr (Clamp) ec = edgeClamp(G >> 5, s.cw);
        uint8x8_t idx, f;
        chromaTaps<Clamp>(o.chroma, G & 31, ec, &idx, &f);
        const uint8x8_t idx1 = vadd_u8(idx, vdup_n_u8(1)), w = vsub_u8(vdup_n_u8(16), f);
        const int32_t base = windowBase<Clamp>(G >> 5, ec);
        const auto blend = [&](const uint8_t *r0, const uint8_t *r1) {
            return vertical(taps(table16(r0, base, p.chromaLo, p.chromaHi), idx, idx1, w, f),
                            taps(table16(r1, base, p.chromaLo, p.chromaHi), idx, idx1, w, f), cwy0, cwy1);
        };
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        vst1_u8(a.dc00 + co, blend(u0, u1));
        vst1_u8(a.dc01 + co, blend(v0, v1));
    });
}

// ---------------------------------------------------------------------------
// General and parallelogram spans: per-lane positions, rows and weights.

// 1/16 positions of lanes relative to 16 * (p0 >> 15): H + i*uh + ((l + i*ul) >> 11).
inline int16x8_t rel16(int16x8_t ih, int16x8_t il, int32_t p0) {
    const int16x8_t h = vdupq_n_s16(static_cast<int16_t>((p0 >> 11) & 15));
    const int16x8_t l = vdupq_n_s16(static_cast<int16_t>(p0 & 2047));
    return vaddq_s16(vaddq_s16(h, ih), vshrq_n_s16(vaddq_s16(l, il), 11));
}

// Per lane, h[from + rr] where rr (0 .. spread) is the lane's row.
inline uint16x8_t pick(const uint16x8_t *h, int16x8_t rr, int32_t from, int32_t spread) {
    uint16x8_t r = h[from];
    for (int32_t j = 1; j <= spread; ++j)
        r = vbslq_u16(vcgtq_s16(rr, vdupq_n_s16(static_cast<int16_t>(j - 1))), h[from + j], r);
    return r;
}

// ((16 - fy) * top + fy * bottom [+ 128]) >> 8 with per-lane weights.
template <bool Round>
inline uint8x8_t verticalLanes(uint16x8_t top, uint16x8_t bottom, uint16x8_t fy) {
    const uint16x8_t v = vmlaq_u16(vmulq_u16(top, vsubq_u16(vdupq_n_u16(16), fy)), bottom, fy);
    if constexpr (Round) {
        return vrshrn_n_u16(v, 8);
    } else {
        return vshrn_n_u16(v, 8);
    }
}

// The same over the rows' sums of one half of the pixels.
inline uint16x8_t pickRow(uint16x8_t (*h)[2], int half, int16x8_t rr, int32_t from, int32_t spread) {
    uint16x8_t r = h[from][half];
    for (int32_t j = 1; j <= spread; ++j)
        r = vbslq_u16(vcgtq_s16(rr, vdupq_n_s16(static_cast<int16_t>(j - 1))), h[from + j][half], r);
    return r;
}

struct LinearVectors {
    int16x8_t xh[2], xl[2], yh[2], yl[2], cxh, cxl, cyh, cyl;
};
// i * uh and i * ul of the 16 luma lanes and of the 8 chroma lanes (i = par + 2j).
inline LinearVectors linearVectors(const LinearPlan &p) {
    const int16_t order[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const int16x8_t lanes[2] = {vld1q_s16(order), vld1q_s16(order + 8)};
    const int16x8_t chroma = vaddq_s16(vshlq_n_s16(lanes[0], 1), vdupq_n_s16(static_cast<int16_t>(p.par)));
    const int16x8_t xh = vdupq_n_s16(static_cast<int16_t>(p.uxh)), xl = vdupq_n_s16(static_cast<int16_t>(p.uxl));
    const int16x8_t yh = vdupq_n_s16(static_cast<int16_t>(p.uyh)), yl = vdupq_n_s16(static_cast<int16_t>(p.uyl));
    LinearVectors v;
    for (int h = 0; h < 2; ++h) {
        v.xh[h] = vmulq_s16(lanes[h], xh);
        v.xl[h] = vmulq_s16(lanes[h], xl);
        v.yh[h] = vmulq_s16(lanes[h], yh);
        v.yl[h] = vmulq_s16(lanes[h], yl);
    }
    v.cxh = vmulq_s16(chroma, xh);
    v.cxl = vmulq_s16(chroma, xl);
    v.cyh = vmulq_s16(chroma, yh);
    v.cyl = vmulq_s16(chroma, yl);
    return v;
}

// The luma rows of one set of 16 positions (X0, Y0) + i * (ux, uy).
struct RowSet {
    LumaGroup lg;
    int32_t base;     // column of the windows: X0 >> 15
    int32_t row;      // first source row of the lanes
    int32_t spread;   // lane rows are row .. row + spread
    int16x8_t rr[2];  // lane rows from `row`
    uint16x8_t fy[2];
};

template <bool Clamp>
inline RowSet rowSet(const LinearVectors &v, int32_t x0, int32_t y0, int32_t low, int32_t spread, int32_t w) {
    RowSet s;
    s.spread = spread;
    EdgeClamp e{};
    if constexpr (Clamp) e = edgeClamp(x0 >> 15, w);
    s.lg = lumaGroupAt(clampPositions<Clamp>(vreinterpretq_u16_s16(rel16(v.xh[0], v.xl[0], x0)), e),
                       clampPositions<Clamp>(vreinterpretq_u16_s16(rel16(v.xh[1], v.xl[1], x0)), e));
    s.base = windowBase<Clamp>(x0 >> 15, e);
    s.row = (y0 >> 15) + low;
    for (int h = 0; h < 2; ++h) {
        const int16x8_t q = rel16(v.yh[h], v.yl[h], y0);
        s.rr[h] = vsubq_s16(vshrq_n_s16(q, 4), vdupq_n_s16(static_cast<int16_t>(low)));
        s.fy[h] = vandq_u16(vreinterpretq_u16_s16(q), vdupq_n_u16(15));
    }
    return s;
}

// Horizontal sums of rows s.row + j for j in [j0, j1] (clamped: rows limited to the image).
template <bool Wide, bool Clamp>
inline void rowSums(const SrcPlanes &src, const RowSet &s, int32_t j0, int32_t j1, int32_t lo, int32_t hi,
                    uint16x8_t (*h)[2]) {
    for (int32_t j = j0; j <= j1; ++j) {
        const ptrdiff_t row = rowIn<Clamp>(s.row + j, src.h);
        const Row16 r = lumaRow<Wide>(src.y + row * src.yPitch, s.base, lo, hi, s.lg);
        h[j][0] = r.h[0];
        h[j][1] = r.h[1];
    }
}

// 16 luma outputs from the sums, rows from `from` (0: the lanes' own rows; 1: one lower).
template <bool Round>
inline void lumaStore(uint8_t *d, uint16x8_t (*h)[2], const RowSet &s, int32_t from) {
    uint8x8_t out[2];
    for (int half = 0; half < 2; ++half)
        out[half] = verticalLanes<Round>(pickRow(h, half, s.rr[half], from, s.spread),
                                         pickRow(h, half, s.rr[half], from + 1, s.spread), s.fy[half]);
    vst1q_u8(d, vcombine_u8(out[0], out[1]));
}

// Chroma of a group's 8 chroma pixels: taps from X0 >> 16, rows from `row`.
struct ChromaSet {
    uint8x8_t idx, f;  // sample index and weight per chroma pixel
    int32_t base;      // chroma column X0 >> 16
    int32_t row, spread;
    int16x8_t rr;  // per chroma pixel
    uint16x8_t fy;
};

template <bool Clamp>
inline ChromaSet chromaSet(const LinearVectors &v, int32_t x0, int32_t y0, int32_t low, int32_t spread, int32_t cw) {
    ChromaSet c;
    const int32_t odd = 16 * ((y0 >> 15) & 1);
    c.spread = spread;
    EdgeClamp e{};
    if constexpr (Clamp) e = edgeClamp(x0 >> 16, cw);
    const int16x8_t cx = vreinterpretq_s16_u16(clampPositions<Clamp>(
        vreinterpretq_u16_s16(vshrq_n_s16(
            vaddq_s16(rel16(v.cxh, v.cxl, x0), vdupq_n_s16(static_cast<int16_t>(16 * ((x0 >> 15) & 1)))), 1)),
        e));
    c.idx = vmovn_u16(vreinterpretq_u16_s16(vshrq_n_s16(cx, 4)));
    c.f = vmovn_u16(vandq_u16(vreinterpretq_u16_s16(cx), vdupq_n_u16(15)));
    c.base = windowBase<Clamp>(x0 >> 16, e);
    const int16x8_t cy = vshrq_n_s16(vaddq_s16(rel16(v.cyh, v.cyl, y0), vdupq_n_s16(static_cast<int16_t>(odd))), 1);
    c.row = (y0 >> 16) + low;
    c.rr = vsubq_s16(vshrq_n_s16(cy, 4), vdupq_n_s16(static_cast<int16_t>(low)));
    c.fy = vandq_u16(vreinterpretq_u16_s16(cy), vdupq_n_u16(15));
    return c;
}

template <bool Wide, bool Round, bool Planar, bool Clamp>
int32_t linearSpan(const SpanArgs &a, const LinearPlan &p) {
    const SrcPlanes &s = *a.src;
    const LinearVectors v = linearVectors(p);
    uint16x8_t h[kMaxRowSpread + 3][2];
    return forEachLinearGroup(a, p, [&](const LinearGroup &q) {
        const int32_t k = q.k, x0 = q.x0, y0 = q.y0, x1 = q.x1, y1 = q.y1;
        const int32_t low0 = q.low0, spread0 = q.spread0, low1 = q.low1, spread1 = q.spread1;
        uint8_t *d0 = q.d0, *d1 = q.d1;
        if (p.shared) {
            // Row y+1 reads the rows below with the same weights.
            const RowSet r0 = rowSet<Clamp>(v, x0, y0, low0, spread0, s.w);
            rowSums<Wide, Clamp>(s, r0, d0 != nullptr ? 0 : 1, r0.spread + (d1 != nullptr ? 2 : 1), p.lumaLo, p.lumaHi, h);
            if (d0 != nullptr) lumaStore<Round>(d0, h, r0, 0);
            if (d1 != nullptr) lumaStore<Round>(d1, h, r0, 1);
        } else {
            if (d0 != nullptr) {
                const RowSet r0 = rowSet<Clamp>(v, x0, y0, low0, spread0, s.w);
                rowSums<Wide, Clamp>(s, r0, 0, r0.spread + 1, p.lumaLo, p.lumaHi, h);
                lumaStore<Round>(d0, h, r0, 0);
            }
            if (q.own1) {
                const RowSet r1 = rowSet<Clamp>(v, x1, y1, low1, spread1, s.w);
                rowSums<Wide, Clamp>(s, r1, 0, r1.spread + 1, p.lumaLo, p.lumaHi, h);
                lumaStore<Round>(d1, h, r1, 0);
            }
        }
        if (!p.chroma) return;
        const ChromaSet c = chromaSet<Clamp>(v, x0, y0, q.clow, q.cspread, s.cw);
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        if constexpr (Planar) {
            const uint8x8_t idx1 = vadd_u8(c.idx, vdup_n_u8(1)), w = vsub_u8(vdup_n_u8(16), c.f);
            uint16x8_t u[kMaxRowSpread + 2], vv[kMaxRowSpread + 2];
            for (int32_t j = 0; j <= c.spread + 1; ++j) {
                const ptrdiff_t rj = rowIn<Clamp>(c.row + j, s.ch);
                u[j] = taps(table16(s.c0 + rj * s.c0Pitch, c.base, p.chromaLo, p.chromaHi), c.idx, idx1, w, c.f);
                vv[j] = taps(table16(s.c1 + rj * s.c1Pitch, c.base, p.chromaLo, p.chromaHi), c.idx, idx1, w, c.f);
            }
            vst1_u8(a.dc00 + co, verticalLanes<Round>(pick(u, c.rr, 0, c.spread), pick(u, c.rr, 1, c.spread), c.fy));
            vst1_u8(a.dc01 + co, verticalLanes<Round>(pick(vv, c.rr, 0, c.spread), pick(vv, c.rr, 1, c.spread), c.fy));
        } else {
            // Output byte b is channel b & 1 of chroma pixel b >> 1.
            const uint8x8x2_t i2 = vzip_u8(c.idx, c.idx), f2 = vzip_u8(c.f, c.f);
            const uint8x8_t alternate = vreinterpret_u8_u16(vdup_n_u16(0x0100));  // 0, 1, 0, 1, ...
            uint8x8_t b0[2], b1[2], wg[2];
            for (int half = 0; half < 2; ++half) {
                b0[half] = vadd_u8(vshl_n_u8(i2.val[half], 1), alternate);
                b1[half] = vadd_u8(b0[half], vdup_n_u8(2));
                wg[half] = vsub_u8(vdup_n_u8(16), f2.val[half]);
            }
            uint16x8_t hc[2][kMaxRowSpread + 2];
            for (int32_t j = 0; j <= c.spread + 1; ++j) {
                const uint8x8x4_t t =
                    table32(s.c0 + static_cast<ptrdiff_t>(rowIn<Clamp>(c.row + j, s.ch)) * s.c0Pitch, 2 * c.base,
                            p.chromaLo, p.chromaHi);
                for (int half = 0; half < 2; ++half) hc[half][j] = taps(t, b0[half], b1[half], wg[half], f2.val[half]);
            }
            const int16x8x2_t rr = vzipq_s16(c.rr, c.rr);
            const uint16x8x2_t fy = vzipq_u16(c.fy, c.fy);
            uint8x8_t out[2];
            for (int half = 0; half < 2; ++half)
                out[half] = verticalLanes<Round>(pick(hc[half], rr.val[half], 0, c.spread),
                                                 pick(hc[half], rr.val[half], 1, c.spread), fy.val[half]);
            vst1q_u8(a.dc00 + 2 * co, vcombine_u8(out[0], out[1]));
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
