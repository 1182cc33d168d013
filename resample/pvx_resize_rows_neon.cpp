// NEON twins of the resizer's row loops: the "UINT8" 8-output groups (vtbl
// gathers from a 16-byte window of the row, rounding narrowing shift by 7)
// and the 7-bit and "UINT88" vertical blends.
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

void pvx_ImageProc2_groups8Neon(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x,
                                int64_t step) {
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
        const uint16x8_t q = vaddq_u16(vshrq_n_u16(o, 7), vdupq_n_u16(static_cast<uint16_t>(base - s0)));
        const uint8x8_t i0 = vmovn_u16(vminq_u16(q, lim));
        const uint8x8_t i1 = vmovn_u16(vminq_u16(vaddq_u16(q, vdupq_n_u16(1)), lim));
        const uint8x8_t w = vmovn_u16(vandq_u16(o, vdupq_n_u16(127)));
        const uint16x8_t v = vmlal_u8(vmull_u8(vtbl2_u8(t, i0), vsub_u8(vdup_n_u8(128), w)), vtbl2_u8(t, i1), w);
        vst1_u8(out + 8 * static_cast<ptrdiff_t>(g), vrshrn_n_u16(v, 7));
    }
}

// (a * (128 - w) + b * w + 64) >> 7: at most 255, a rounding narrowing shift.
int64_t pvx_ImageProc2_blend7Neon(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count,
                                  int32_t w) {
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

#endif
