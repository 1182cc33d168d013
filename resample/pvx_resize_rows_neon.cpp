// NEON twins of the resizer's row loops: the "UINT8" 8-output groups (vtbl
// gathers from a 16-byte window of the row, rounding narrowing shift by 7),
// the "UINT88" middle phase and the 7-bit and "UINT88" vertical blends.
#if defined(__ARM_NEON)

#include <stddef.h>
#include <arm_neon.h>
#include <string.h>

#include "resample/pvx_resize_twins.h"

namespace {

// The 16 bytes of a row of `sw` pixels from pixel s0; a row shorter than 16
// bytes is copied into a zeroed block instead of read past its end.
inline uint8x8x2_t rowTable(const uint8_t *src, int32_t sw, int64_t s0) {
    uint8x16_t v;
    if (sw >= 16) {
        v = vld1q_u8(src + s0);
    } else {
        uint8_t block[16] = {0};
        memcpy(block, src, static_cast<size_t>(sw));
        v = vld1q_u8(block);
    }
    uint8x8x2_t t;
    t.val[0] = vget_low_u8(v);
    t.val[1] = vget_high_u8(v);
    return t;
}

}  // namespace

void pvx_ImageProc2_groups8Neon(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x, int64_t step) {
    const int64_t last = sw - 1;
    const int32_t step32 = static_cast<int32_t>(step);
    uint16_t lane[8];
    for (int32_t k = 0; k < 8; ++k) lane[k] = static_cast<uint16_t>((128 + k * step32) >> 8);
    const uint16x8_t lanes = vld1q_u16(lane);
    for (int32_t g = 0; g < groups; ++g) {
        const int64_t xg = x + 8 * static_cast<int64_t>(g) * step;
        const int64_t base = xg >> 15;
        // Lane taps lie in base .. base + 8, clamped to the last pixel: the
        // window starts at base, or ends at the last pixel near the row end.
        const int64_t s0 = sw < 16 ? 0 : (base + 15 > last ? last - 15 : base);
        const uint8x8x2_t t = rowTable(src, sw, s0);
        const int64_t top = last - s0;
        const uint16x8_t lim = vdupq_n_u16(static_cast<uint16_t>(top < 255 ? top : 255));
        const uint16x8_t o = vaddq_u16(lanes, vdupq_n_u16(static_cast<uint16_t>((xg & 32767) >> 8)));
        // Past the row end every tap is the last pixel: any offset beyond it will do.
        const int64_t shift = base - s0 < 255 ? base - s0 : 255;
        const uint16x8_t q = vaddq_u16(vshrq_n_u16(o, 7), vdupq_n_u16(static_cast<uint16_t>(shift)));
        const uint8x8_t i0 = vmovn_u16(vminq_u16(q, lim));
        const uint8x8_t i1 = vmovn_u16(vminq_u16(vaddq_u16(q, vdupq_n_u16(1)), lim));
        const uint8x8_t w = vmovn_u16(vandq_u16(o, vdupq_n_u16(127)));
        const uint16x8_t v = vmlal_u8(vmull_u8(vtbl2_u8(t, i0), vsub_u8(vdup_n_u8(128), w)), vtbl2_u8(t, i1), w);
        vst1_u8(out + 8 * static_cast<ptrdiff_t>(g), vrshrn_n_u16(v, 7));
    }
}

// (a * (128 - w) + b * w + 64) >> 7: at most 255, a rounding narrowing shift.
int64_t pvx_ImageProc2_blend7Neon(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count, int32_t w) {
    const int64_t n = count - count % 8;
    const uint8x8_t wa = vdup_n_u8(static_cast<uint8_t>(128 - w)), wb = vdup_n_u8(static_cast<uint8_t>(w));
    int64_t j = 0;
    for (; j + 16 <= n; j += 16) {
        const uint8x16_t a = vld1q_u8(upper + j), b = vld1q_u8(lower + j);
        const uint8x8_t lo = vrshrn_n_u16(vmlal_u8(vmull_u8(vget_low_u8(a), wa), vget_low_u8(b), wb), 7);
        const uint8x8_t hi = vrshrn_n_u16(vmlal_u8(vmull_u8(vget_high_u8(a), wa), vget_high_u8(b), wb), 7);
        vst1q_u8(dst + j, vcombine_u8(lo, hi));
    }
    if (j < n) vst1_u8(dst + j, vrshrn_n_u16(vmlal_u8(vmull_u8(vld1_u8(upper + j), wa), vld1_u8(lower + j), wb), 7));
    return n;
}

// Each product shifted by 15 fits 16 bits (at most 32767 together); the
// sum + 8 >> 4 is narrowed with saturation to 255.
int64_t pvx_ImageProc2_blend88Neon(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t count,
                                   uint32_t w) {
    const int64_t n = count - count % 8;
    const uint16x4_t wa = vdup_n_u16(static_cast<uint16_t>(16384 - w)), wb = vdup_n_u16(static_cast<uint16_t>(w));
    for (int64_t j = 0; j < n; j += 8) {
        const uint16x8_t a = vld1q_u16(upper + j), b = vld1q_u16(lower + j);
        const uint16x8_t ta = vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(a), wa), 15),
                                           vshrn_n_u32(vmull_u16(vget_high_u16(a), wa), 15));
        const uint16x8_t tb = vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(b), wb), 15),
                                           vshrn_n_u32(vmull_u16(vget_high_u16(b), wb), 15));
        vst1_u8(dst + j, vqrshrn_n_u16(vaddq_u16(ta, tb), 4));
    }
    return n;
}

// Eight "UINT88" outputs (16 samples) at a time. Output k of a group lies at
// rel = frac + k * step from the group's base pixel: taps at bytes
// t = 2 * (rel >> 15) and t + 2 (channel 0), t + 1 and t + 3 (channel 1) of
// a window of the row, weighted by 32768 - f and f in 32-bit lanes and
// narrowed by a rounding shift by 10 (at most 8160).
int32_t pvx_ImageProc2_middle88Neon(uint16_t *out, const uint8_t *src, int32_t sw, int32_t count, int64_t x,
                                    int64_t step) {
    const int64_t end = static_cast<int64_t>(sw - 1) * 32768, rowBytes = 2 * static_cast<int64_t>(sw);
    // The 8th output's taps reach byte 2 * ((32767 + 7 * step) >> 15) + 3 of the window.
    if (step < 0 || 7 * step + 32767 >= 15 * 32768) return 0;
    const bool wide = 7 * step + 32767 >= 7 * 32768;
    const int64_t width = wide ? 32 : 16;
    if (rowBytes < width) return 0;
    const uint32_t s32 = static_cast<uint32_t>(step);
    const uint32_t kk[8] = {0, s32, 2 * s32, 3 * s32, 4 * s32, 5 * s32, 6 * s32, 7 * s32};
    const uint32x4_t k0 = vld1q_u32(kk), k1 = vld1q_u32(kk + 4);
    const uint8x8_t alternate = vreinterpret_u8_u16(vdup_n_u16(0x0100));  // 0, 1, 0, 1, ...
    int32_t done = 0;
    while (done + 8 <= count && x + 7 * step < end) {
        const int64_t base = x >> 15;
        int64_t start = 2 * base;
        if (start + width > rowBytes) start = rowBytes - width;
        const uint8x16_t v0 = vld1q_u8(src + start), v1 = wide ? vld1q_u8(src + start + 16) : vdupq_n_u8(0);
        uint8x8x4_t table;
        table.val[0] = vget_low_u8(v0);
        table.val[1] = vget_high_u8(v0);
        table.val[2] = vget_low_u8(v1);
        table.val[3] = vget_high_u8(v1);
        const uint32x4_t frac = vdupq_n_u32(static_cast<uint32_t>(x & 32767));
        const uint32x4_t rel[2] = {vaddq_u32(frac, k0), vaddq_u32(frac, k1)};
        const uint16x8_t i = vcombine_u16(vmovn_u32(vshrq_n_u32(rel[0], 15)), vmovn_u32(vshrq_n_u32(rel[1], 15)));
        const uint8x8_t t = vadd_u8(vshl_n_u8(vmovn_u16(i), 1), vdup_n_u8(static_cast<uint8_t>(2 * base - start)));
        const uint16x8_t f = vcombine_u16(vmovn_u32(vandq_u32(rel[0], vdupq_n_u32(32767))),
                                          vmovn_u32(vandq_u32(rel[1], vdupq_n_u32(32767))));
        const uint16x8_t g = vsubq_u16(vdupq_n_u16(32768), f);
        const uint8x8x2_t t2 = vzip_u8(t, t);
        const uint16x8x2_t f2 = vzipq_u16(f, f), g2 = vzipq_u16(g, g);
        for (int h = 0; h < 2; ++h) {
            const uint8x8_t i0 = vadd_u8(t2.val[h], alternate);
            const uint16x8_t p0 = vmovl_u8(vtbl4_u8(table, i0));
            const uint16x8_t p1 = vmovl_u8(vtbl4_u8(table, vadd_u8(i0, vdup_n_u8(2))));
            const uint32x4_t lo = vmlal_u16(vmull_u16(vget_low_u16(p0), vget_low_u16(g2.val[h])), vget_low_u16(p1),
                                            vget_low_u16(f2.val[h]));
            const uint32x4_t hi = vmlal_u16(vmull_u16(vget_high_u16(p0), vget_high_u16(g2.val[h])), vget_high_u16(p1),
                                            vget_high_u16(f2.val[h]));
            vst1q_u16(out + 2 * (static_cast<ptrdiff_t>(done) + 4 * h),
                      vcombine_u16(vrshrn_n_u32(lo, 10), vrshrn_n_u32(hi, 10)));
        }
        done += 8;
        x += 8 * step;
    }
    return done;
}

#endif
