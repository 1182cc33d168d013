// AVX2 build of the 128-bit x86 leaves: the same arithmetic in the VEX
// encodings (three-operand forms, no register copies).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__AVX2__)
#define PVX_X86_LEAF_INIT initDrawSpansAvx2
#include "render/pvx_draw_span_x86.h"
#endif
