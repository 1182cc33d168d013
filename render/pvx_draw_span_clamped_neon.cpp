// NEON leaves of the clamped bilinear 4:2:0 spans, whose taps may
// leave the image: the leaves of pvx_draw_span_neon.h with every tap's
// column and row limited to the image in the registers.
#if defined(__ARM_NEON)

#include "render/pvx_draw_span_neon.h"

namespace pvx_draw {

void initClampedDrawSpansNeon(DrawSpanTable *t) {
    fillFamily<false, true>(t->clamped[kSpanSemiplanar]);
    fillFamily<true, true>(t->clamped[kSpanPlanar]);
}

}  // namespace pvx_draw

#endif
