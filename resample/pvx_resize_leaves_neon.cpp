// NEON leaves of the resizer (32-bit Arm and AArch64). Horizontal groups
// gather their taps with vtbl from a window at the group's base pixel,
// weigh them with widening multiply-accumulates and narrow with a rounding
// shift by 7 (7-bit groups) or 10 ("UINT88").
#if defined(__ARM_NEON)

#include <arm_neon.h>
#include <stddef.h>

#include "resample/pvx_resize_leaves.h"

namespace {

inline uint16x8_t laneOffsets(int32_t step) {
    uint16_t lane[8];
    for (int32_t k = 0; k < 8; ++k) lane[k] = static_cast<uint16_t>((128 + k * step) >> 8);
    return vld1q_u16(lane);
}

// The 32 bytes from p as a vtbl4 table.
inline uint8x8x4_t window32(const uint8_t *p) {
    const uint8x16_t lo = vld1q_u8(p), hi = vld1q_u8(p + 16);
    uint8x8x4_t t;
    t.val[0] = vget_low_u8(lo);
    t.val[1] = vget_high_u8(lo);
    t.val[2] = vget_low_u8(hi);
    t.val[3] = vget_high_u8(hi);
    return t;
}

void uint8Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const uint16x8_t lanes = laneOffsets(step);
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8x16_t v = vld1q_u8(src + (x >> 15));
        uint8x8x2_t t;
        t.val[0] = vget_low_u8(v);
        t.val[1] = vget_high_u8(v);
        const uint16x8_t o = vaddq_u16(lanes, vdupq_n_u16(static_cast<uint16_t>((x & 32767) >> 8)));
        const uint8x8_t i0 = vmovn_u16(vshrq_n_u16(o, 7));
        const uint8x8_t w = vmovn_u16(vandq_u16(o, vdupq_n_u16(127)));
        const uint16x8_t s =
            vmlal_u8(vmull_u8(vtbl2_u8(t, i0), vsub_u8(vdup_n_u8(128), w)), vtbl2_u8(t, vadd_u8(i0, vdup_n_u8(1))), w);
        vst1_u8(out + 8 * static_cast<ptrdiff_t>(g), vrshrn_n_u16(s, 7));
    }
}

// "RGB888": sample j (0 .. 23) of a group is channel j % 3 of lane j / 3;
// per block of 8 samples, the lane of each sample and its channel.
void rgb888Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    static const uint8_t kLane[3][8] = {{0, 0, 0, 1, 1, 1, 2, 2}, {2, 3, 3, 3, 4, 4, 4, 5}, {5, 5, 6, 6, 6, 7, 7, 7}};
    static const uint8_t kChannel[3][8] = {{0, 1, 2, 0, 1, 2, 0, 1}, {2, 0, 1, 2, 0, 1, 2, 0}, {1, 2, 0, 1, 2, 0, 1, 2}};
    uint8x8_t laneOf[3], channelOf[3];
    for (int r = 0; r < 3; ++r) {
        laneOf[r] = vld1_u8(kLane[r]);
        channelOf[r] = vld1_u8(kChannel[r]);
    }
    const uint16x8_t lanes = laneOffsets(step);
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8x8x4_t t = window32(src + 3 * (x >> 15));
        const uint16x8_t o = vaddq_u16(lanes, vdupq_n_u16(static_cast<uint16_t>((x & 32767) >> 8)));
        const uint8x8_t q3 = vmovn_u16(vmulq_n_u16(vshrq_n_u16(o, 7), 3));
        const uint8x8_t w = vmovn_u16(vandq_u16(o, vdupq_n_u16(127)));
        uint8_t *dst = out + 24 * static_cast<ptrdiff_t>(g);
        for (int r = 0; r < 3; ++r) {
            const uint8x8_t i0 = vadd_u8(vtbl1_u8(q3, laneOf[r]), channelOf[r]);
            const uint8x8_t wr = vtbl1_u8(w, laneOf[r]);
            const uint16x8_t s = vmlal_u8(vmull_u8(vtbl4_u8(t, i0), vsub_u8(vdup_n_u8(128), wr)),
                                          vtbl4_u8(t, vadd_u8(i0, vdup_n_u8(3))), wr);
            vst1_u8(dst + 8 * r, vrshrn_n_u16(s, 7));
        }
    }
}

// (a * (128 - w) + b * w + 64) >> 7: at most 255, a rounding narrowing shift.
void blend7(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t groups, int32_t w) {
    const int64_t n = 8 * groups;
    const uint8x8_t wa = vdup_n_u8(static_cast<uint8_t>(128 - w)), wb = vdup_n_u8(static_cast<uint8_t>(w));
    int64_t j = 0;
    for (; j + 16 <= n; j += 16) {
        const uint8x16_t a = vld1q_u8(upper + j), b = vld1q_u8(lower + j);
        const uint8x8_t lo = vrshrn_n_u16(vmlal_u8(vmull_u8(vget_low_u8(a), wa), vget_low_u8(b), wb), 7);
        const uint8x8_t hi = vrshrn_n_u16(vmlal_u8(vmull_u8(vget_high_u8(a), wa), vget_high_u8(b), wb), 7);
        vst1q_u8(dst + j, vcombine_u8(lo, hi));
    }
    if (j < n) vst1_u8(dst + j, vrshrn_n_u16(vmlal_u8(vmull_u8(vld1_u8(upper + j), wa), vld1_u8(lower + j), wb), 7));
}

// Each product shifted by 15 fits 16 bits (at most 32767 together); the
// sum + 8 >> 4 is narrowed with saturation to 255.
void blend88(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t groups, uint32_t w) {
    const uint16x4_t wa = vdup_n_u16(static_cast<uint16_t>(16384 - w)), wb = vdup_n_u16(static_cast<uint16_t>(w));
    for (int64_t j = 0; j < 8 * groups; j += 8) {
        const uint16x8_t a = vld1q_u16(upper + j), b = vld1q_u16(lower + j);
        const uint16x8_t ta = vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(a), wa), 15),
                                           vshrn_n_u32(vmull_u16(vget_high_u16(a), wa), 15));
        const uint16x8_t tb = vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(b), wb), 15),
                                           vshrn_n_u32(vmull_u16(vget_high_u16(b), wb), 15));
        vst1_u8(dst + j, vqrshrn_n_u16(vaddq_u16(ta, tb), 4));
    }
}

// "UINT88": output k of a group lies at rel = frac + k * step from the
// group's base pixel: taps at bytes t = 2 * (rel >> 15) and t + 2 (channel
// 0), t + 1 and t + 3 (channel 1) of the 32-byte window, weighted by
// 32768 - f and f in 32-bit lanes and narrowed by a rounding shift by 10
// (at most 8160).
void uint88Groups(uint16_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const uint32_t s32 = static_cast<uint32_t>(step);
    const uint32_t kk[8] = {0, s32, 2 * s32, 3 * s32, 4 * s32, 5 * s32, 6 * s32, 7 * s32};
    const uint32x4_t k0 = vld1q_u32(kk), k1 = vld1q_u32(kk + 4);
    const uint8x8_t alternate = vreinterpret_u8_u16(vdup_n_u16(0x0100));   // 0, 1, 0, 1, ...
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8x8x4_t table = window32(src + 2 * (x >> 15));
        const uint32x4_t frac = vdupq_n_u32(static_cast<uint32_t>(x & 32767));
        const uint32x4_t rel0 = vaddq_u32(frac, k0), rel1 = vaddq_u32(frac, k1);
        const uint16x8_t i = vcombine_u16(vmovn_u32(vshrq_n_u32(rel0, 15)), vmovn_u32(vshrq_n_u32(rel1, 15)));
        const uint8x8_t t = vshl_n_u8(vmovn_u16(i), 1);
        const uint16x8_t f = vcombine_u16(vmovn_u32(vandq_u32(rel0, vdupq_n_u32(32767))),
                                          vmovn_u32(vandq_u32(rel1, vdupq_n_u32(32767))));
        const uint16x8_t gw = vsubq_u16(vdupq_n_u16(32768), f);
        const uint8x8x2_t t2 = vzip_u8(t, t);
        const uint16x8x2_t f2 = vzipq_u16(f, f), g2 = vzipq_u16(gw, gw);
        for (int h = 0; h < 2; ++h) {
            const uint8x8_t i0 = vadd_u8(t2.val[h], alternate);
            const uint16x8_t p0 = vmovl_u8(vtbl4_u8(table, i0));
            const uint16x8_t p1 = vmovl_u8(vtbl4_u8(table, vadd_u8(i0, vdup_n_u8(2))));
            const uint32x4_t lo = vmlal_u16(vmull_u16(vget_low_u16(p0), vget_low_u16(g2.val[h])), vget_low_u16(p1),
                                            vget_low_u16(f2.val[h]));
            const uint32x4_t hi = vmlal_u16(vmull_u16(vget_high_u16(p0), vget_high_u16(g2.val[h])), vget_high_u16(p1),
                                            vget_high_u16(f2.val[h]));
            vst1q_u16(out + 16 * static_cast<ptrdiff_t>(g) + 8 * h,
                      vcombine_u16(vrshrn_n_u32(lo, 10), vrshrn_n_u32(hi, 10)));
        }
    }
}

}  // namespace

void pvx_ImageProc2_initLeavesNeon(pvx_ResizeLeaves *leaves) {
    leaves->uint8Groups = uint8Groups;
    leaves->rgb888Groups = rgb888Groups;
    leaves->uint88Groups = uint88Groups;
    leaves->blend7 = blend7;
    leaves->blend88 = blend88;
}

#endif
