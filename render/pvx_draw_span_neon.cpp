// NEON twins of the unrotated bilinear span (4:2:0 luma and chroma).
//
// A 16-pixel group's taps lie within 32 bytes of its first pixel's column:
// each source row is loaded as a 16- or 32-byte table and the taps are
// gathered with vtbl, weighted by (16 - f, f) with widening multiplies,
// blended vertically in 16-bit lanes and narrowed by a rounding shift by 8.
#if defined(__ARM_NEON)

#include <arm_neon.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// 16 bytes of `row` from column `base`; bytes outside [lo, hi] are zero.
inline uint8x16_t window(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    if (windowInside(base, 16, lo, hi)) return vld1q_u8(row + base);
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

// ((16 - fy) * h0 + fy * h1 + 128) >> 8; at most 65408, so 16 bits hold it.
inline uint8x8_t vertical(uint16x8_t h0, uint16x8_t h1, uint16x8_t wy0, uint16x8_t wy1) {
    return vrshrn_n_u16(vmlaq_u16(vmulq_u16(h0, wy0), h1, wy1), 8);
}

struct LumaGroup {
    uint8x8_t i0[2], i1[2], g[2], f[2];   // pixels 0..7 and 8..15
};

inline LumaGroup lumaGroup(uint16x8_t offLo, uint16x8_t offHi, int32_t gf) {
    const uint16x8_t v = vdupq_n_u16(static_cast<uint16_t>(gf)), m15 = vdupq_n_u16(15);
    const uint16x8_t t[2] = {vaddq_u16(offLo, v), vaddq_u16(offHi, v)};
    LumaGroup lg;
    for (int h = 0; h < 2; ++h) {
        lg.i0[h] = vmovn_u16(vshrq_n_u16(t[h], 4));
        lg.i1[h] = vadd_u8(lg.i0[h], vdup_n_u8(1));
        lg.f[h] = vmovn_u16(vandq_u16(t[h], m15));
        lg.g[h] = vsub_u8(vdup_n_u8(16), lg.f[h]);
    }
    return lg;
}

struct Row16 {
    uint16x8_t h[2];
};

template <bool Wide>
inline Row16 lumaRow(const uint8_t *row, int32_t base, const NoRotPlan &p, const LumaGroup &lg) {
    Row16 r;
    if constexpr (Wide) {
        const uint8x8x4_t t = table32(row, base, p.lumaLo, p.lumaHi);
        for (int h = 0; h < 2; ++h) r.h[h] = taps(t, lg.i0[h], lg.i1[h], lg.g[h], lg.f[h]);
    } else {
        const uint8x8x2_t t = table16(row, base, p.lumaLo, p.lumaHi);
        for (int h = 0; h < 2; ++h) r.h[h] = taps(t, lg.i0[h], lg.i1[h], lg.g[h], lg.f[h]);
    }
    return r;
}

template <bool Wide>
inline void lumaGroupRows(const SpanArgs &a, const NoRotPlan &p, const LumaGroup &lg, int32_t base, int32_t k) {
    const SrcPlanes &s = *a.src;
    const uint16x8_t wy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.fy)), wy1 = vdupq_n_u16(static_cast<uint16_t>(p.fy));
    const uint8_t *r1 = s.y + static_cast<ptrdiff_t>(p.r + 1) * s.yPitch;
    const Row16 h1 = lumaRow<Wide>(r1, base, p, lg);
    if (a.dy0 != nullptr) {
        const Row16 h0 = lumaRow<Wide>(r1 - s.yPitch, base, p, lg);
        vst1q_u8(a.dy0 + a.dx + k, vcombine_u8(vertical(h0.h[0], h1.h[0], wy0, wy1), vertical(h0.h[1], h1.h[1], wy0, wy1)));
    }
    if (a.dy1 != nullptr) {
        const Row16 h2 = lumaRow<Wide>(r1 + s.yPitch, base, p, lg);
        vst1q_u8(a.dy1 + a.dx + k, vcombine_u8(vertical(h1.h[0], h2.h[0], wy0, wy1), vertical(h1.h[1], h2.h[1], wy0, wy1)));
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

// Chroma sample indices (from G >> 5) and weights of a group's 8 chroma
// pixels: ((G & 31) + offset) >> 1 in 1/16 chroma sample.
inline void chromaTaps(uint16x8_t offC, int32_t g31, uint8x8_t *idx, uint8x8_t *f) {
    const uint16x8_t rc = vshrq_n_u16(vaddq_u16(offC, vdupq_n_u16(static_cast<uint16_t>(g31))), 1);
    *idx = vmovn_u16(vshrq_n_u16(rc, 4));
    *f = vmovn_u16(vandq_u16(rc, vdupq_n_u16(15)));
}

template <bool Wide>
int32_t noRotSemiplanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const uint16x8_t cwy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.cfy)), cwy1 = vdupq_n_u16(static_cast<uint16_t>(p.cfy));
    const uint8_t *c0 = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch;
    const uint8_t *c1 = c0 + s.c0Pitch;
    const uint8x8_t alternate = vreinterpret_u8_u16(vdup_n_u16(0x0100));   // 0, 1, 0, 1, ...
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t G = twinAdd(a.sx, twinMul(k, a.ux)) >> 11;
        lumaGroupRows<Wide>(a, p, lumaGroup(o.lo, o.hi, G & 15), G >> 4, k);
        if (!p.chroma) continue;
        // Output byte b is channel b & 1 of chroma pixel b >> 1: taps at
        // bytes 2 * idx + (b & 1) and two bytes further.
        uint8x8_t idx, f;
        chromaTaps(o.chroma, G & 31, &idx, &f);
        const uint8x8x2_t i2 = vzip_u8(idx, idx), f2 = vzip_u8(f, f);
        const int32_t base = 2 * (G >> 5);
        const uint8x8x4_t t0 = table32(c0, base, p.chromaLo, p.chromaHi), t1 = table32(c1, base, p.chromaLo, p.chromaHi);
        uint8x8_t out[2];
        for (int h = 0; h < 2; ++h) {
            const uint8x8_t b0 = vadd_u8(vshl_n_u8(i2.val[h], 1), alternate), b1 = vadd_u8(b0, vdup_n_u8(2));
            const uint8x8_t w = vsub_u8(vdup_n_u8(16), f2.val[h]);
            out[h] = vertical(taps(t0, b0, b1, w, f2.val[h]), taps(t1, b0, b1, w, f2.val[h]), cwy0, cwy1);
        }
        vst1q_u8(a.dc00 + ((a.dx + k + p.par) >> 1) * 2, vcombine_u8(out[0], out[1]));
    }
    return 16 * p.groups;
}

template <bool Wide>
int32_t noRotPlanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const uint16x8_t cwy0 = vdupq_n_u16(static_cast<uint16_t>(16 - p.cfy)), cwy1 = vdupq_n_u16(static_cast<uint16_t>(p.cfy));
    const uint8_t *u0 = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch, *u1 = u0 + s.c0Pitch;
    const uint8_t *v0 = s.c1 + static_cast<ptrdiff_t>(p.cr) * s.c1Pitch, *v1 = v0 + s.c1Pitch;
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t G = twinAdd(a.sx, twinMul(k, a.ux)) >> 11;
        lumaGroupRows<Wide>(a, p, lumaGroup(o.lo, o.hi, G & 15), G >> 4, k);
        if (!p.chroma) continue;
        uint8x8_t idx, f;
        chromaTaps(o.chroma, G & 31, &idx, &f);
        const uint8x8_t idx1 = vadd_u8(idx, vdup_n_u8(1)), w = vsub_u8(vdup_n_u8(16), f);
        const int32_t base = G >> 5;
        const auto blend = [&](const uint8_t *r0, const uint8_t *r1) {
            return vertical(taps(table16(r0, base, p.chromaLo, p.chromaHi), idx, idx1, w, f),
                            taps(table16(r1, base, p.chromaLo, p.chromaHi), idx, idx1, w, f), cwy0, cwy1);
        };
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        vst1_u8(a.dc00 + co, blend(u0, u1));
        vst1_u8(a.dc01 + co, blend(v0, v1));
    }
    return 16 * p.groups;
}

}  // namespace

int32_t spanNoRotSemiplanarNeon(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, 2, 31, &p)) return 0;
    return p.wideLuma ? noRotSemiplanar<true>(a, p) : noRotSemiplanar<false>(a, p);
}

int32_t spanNoRotPlanarNeon(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, 1, 15, &p)) return 0;
    return p.wideLuma ? noRotPlanar<true>(a, p) : noRotPlanar<false>(a, p);
}

}  // namespace pvx_draw

#endif
