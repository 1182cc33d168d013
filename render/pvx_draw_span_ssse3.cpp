// SSSE3 leaves of the unchecked bilinear 4:2:0 spans (luma and chroma):
// unrotated, general and parallelogram (code in pvx_draw_span_ssse3.h).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include "render/pvx_draw_span_ssse3.h"

namespace pvx_draw {

void initDrawSpansSsse3(DrawSpanTable *t) {
    fillFamily<false, false>(t->leaf[kSpanSemiplanar]);
    fillFamily<true, false>(t->leaf[kSpanPlanar]);
}

}  // namespace pvx_draw

#endif
