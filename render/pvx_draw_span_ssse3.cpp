// SSSE3 leaves of the bilinear 4:2:0 spans.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)
#define PVX_X86_LEAF_INIT initDrawSpansSsse3
#include "render/pvx_draw_span_x86.h"
#endif
