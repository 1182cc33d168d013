// SSSE3 leaves of the three-bytes-a-pixel spans ("RGB888", "BGR888"):
// unrotated, general and parallelogram, with the arithmetic of
// pvx_draw_rgb_ssse3.h.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include "render/pvx_draw_rgb_ssse3.h"

namespace pvx_draw {

void initDrawSpansRgbSsse3(DrawSpanTable *t) {
    t->leaf[kSpanRgb][kSpanGeneral] = rgbGroups<rgb_ssse3::Arith, kSpanGeneral>;
    t->leaf[kSpanRgb][kSpanParallel] = rgbGroups<rgb_ssse3::Arith, kSpanParallel>;
    t->leaf[kSpanRgb][kSpanNoRot] = rgbGroups<rgb_ssse3::Arith, kSpanNoRot>;
    t->clamped[kSpanRgb][kSpanGeneral] = rgbGroups<rgb_ssse3::Arith, kSpanGeneral, true>;
    t->clamped[kSpanRgb][kSpanParallel] = rgbGroups<rgb_ssse3::Arith, kSpanParallel, true>;
    t->clamped[kSpanRgb][kSpanNoRot] = rgbGroups<rgb_ssse3::Arith, kSpanNoRot, true>;
}

}  // namespace pvx_draw

#endif
