// NEON leaves of the three-bytes-a-pixel spans ("RGB888", "BGR888"):
// unrotated, general and parallelogram.
//
// Per pixel, each row's p0 and p1 (6 bytes) come in with one 8-byte load (a
// copy of 6 bytes at the right edge of the taps); vext moves p1 under p0,
// and widening multiply-accumulates weight them by (16 - fx, fx). The rows
// are blended in 16-bit lanes by (16 - fy, fy) and narrowed by a shift by 8
// (rounding for the unrotated and parallelogram kernels). When row y+1 reads
// the row below row y's taps, the middle row's sums serve both rows.
#if defined(__ARM_NEON)

#include <arm_neon.h>
#include <string.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

inline uint8x8_t sixBytes(const uint8_t *p, bool whole) {
    if (whole) return vld1_u8(p);
    uint8_t b[8] = {0};
    memcpy(b, p, 6);
    return vld1_u8(b);
}

// (16 - fx) * p0 + fx * p1 of a row `offset` bytes below the tap (lanes 0..2).
inline uint16x8_t rowSums(const Tap &t, ptrdiff_t offset) {
    const uint8x8_t v = sixBytes(t.p + offset, t.whole);
    const uint16x8_t h = vmull_u8(v, vdup_n_u8(static_cast<uint8_t>(16 - t.fx)));
    return vmlal_u8(h, vext_u8(v, v, 3), vdup_n_u8(static_cast<uint8_t>(t.fx)));
}

template <bool Round>
inline uint8x8_t blend(uint16x8_t top, uint16x8_t bottom, int32_t fy) {
    const uint16x8_t v = vmlaq_n_u16(vmulq_n_u16(top, static_cast<uint16_t>(16 - fy)), bottom, static_cast<uint16_t>(fy));
    return Round ? vrshrn_n_u16(v, 8) : vshrn_n_u16(v, 8);
}

struct RgbNeon {
    template <bool Round>
    static void drawGroup(uint8_t *d0, uint8_t *d1, const Tap *t0, const Tap *t1, ptrdiff_t pitch) {
        uint8_t b0[56], b1[56];
        for (int i = 0; i < 16; ++i) {
            const Tap &t = t0[i];
            if (d0 != nullptr || t1 == nullptr) {   // t0 are taps of a drawn row
                const uint16x8_t mid = rowSums(t, pitch);
                if (d0 != nullptr) vst1_u8(b0 + 3 * i, blend<Round>(rowSums(t, 0), mid, t.fy));
                if (d1 != nullptr && t1 == nullptr) vst1_u8(b1 + 3 * i, blend<Round>(mid, rowSums(t, 2 * pitch), t.fy));
            }
            if (d1 != nullptr && t1 != nullptr)
                vst1_u8(b1 + 3 * i, blend<Round>(rowSums(t1[i], 0), rowSums(t1[i], pitch), t1[i].fy));
        }
        if (d0 != nullptr) memcpy(d0, b0, 48);
        if (d1 != nullptr) memcpy(d1, b1, 48);
    }
};

}  // namespace

void initDrawSpansRgbNeon(DrawSpanTable *t) {
    t->leaf[kSpanRgb][kSpanGeneral] = rgbGroups<RgbNeon, kSpanGeneral>;
    t->leaf[kSpanRgb][kSpanParallel] = rgbGroups<RgbNeon, kSpanParallel>;
    t->leaf[kSpanRgb][kSpanNoRot] = rgbGroups<RgbNeon, kSpanNoRot>;
    t->clamped[kSpanRgb][kSpanGeneral] = rgbGroups<RgbNeon, kSpanGeneral, true>;
    t->clamped[kSpanRgb][kSpanParallel] = rgbGroups<RgbNeon, kSpanParallel, true>;
    t->clamped[kSpanRgb][kSpanNoRot] = rgbGroups<RgbNeon, kSpanNoRot, true>;
}

}  // namespace pvx_draw

#endif
