// NEON leaves of the unchecked bilinear 4:2:0 spans (luma and chroma):
// unrotated, general and parallelogram (code in pvx_draw_span_neon.h).
#if defined(__ARM_NEON)

#include "render/pvx_draw_span_neon.h"

namespace pvx_draw {

void initDrawSpansNeon(DrawSpanTable *t) {
    fillFamily<false, false>(t->leaf[kSpanSemiplanar]);
    fillFamily<true, false>(t->leaf[kSpanPlanar]);
}

}  // namespace pvx_draw

#endif
