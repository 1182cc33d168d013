// SSSE3 leaves of the clamped bilinear 4:2:0 spans, whose taps may
// leave the image: the leaves of pvx_draw_span_ssse3.h with every tap's
// column and row limited to the image in the registers.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include "render/pvx_draw_span_ssse3.h"

namespace pvx_draw {

void initClampedDrawSpansSsse3(DrawSpanTable *t) {
    fillFamily<false, true>(t->clamped[kSpanSemiplanar]);
    fillFamily<true, true>(t->clamped[kSpanPlanar]);
}

}  // namespace pvx_draw

#endif
