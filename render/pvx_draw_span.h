// The span record of the draw kernels and their vector twins.
//
// A span is one row pair of a cell from its first drawn pixel. The scalar
// spans live in pvx_draw_walk.h; a vector twin draws a leading part of a
// span (whole 16-pixel groups) and returns how many pixels it drew, and the
// scalar span draws the rest. Twins reproduce the scalar arithmetic byte for
// byte and read only where the scalar span's taps lie (see SpanTwin).
//
// This header holds plain records and declarations only: the twins are
// compiled with instruction-set flags of their own, so they must not
// instantiate inline code that the rest of the library shares.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace pvx_draw {

// Source planes: luma of w x h pixels, chroma of cw x ch samples.
struct SrcPlanes {
    const uint8_t *y;
    const uint8_t *c0;
    const uint8_t *c1;
    ptrdiff_t yPitch, c0Pitch, c1Pitch;
    int32_t w, h, cw, ch;
};

struct SpanArgs {
    uint8_t *dy0, *dy1;    // luma rows y and y+1 at column 0; null: row not written
    uint8_t *dc00, *dc01;  // chroma of row y (4:2:0: of the pair), channels 0 and 1, column 0; null: none
    uint8_t *dc10, *dc11;  // chroma of row y+1 (4:2:2 layouts)
    int32_t dx;            // destination x of the first pixel
    int32_t n;             // pixels, at least 1
    int32_t sx, sy;        // Q15 source position of the first pixel on row y
    int32_t ux, uy;        // Q15 steps per pixel (unrotated: uy is 0)
    int32_t hx, hy;        // Q15 offset of row y+1 from row y
    int32_t cox, coy;      // chroma centring offsets (high-quality and nearest chroma)
    const int32_t *off16;  // unrotated: offsets i*step of a 16-pixel group, in 1/16 pixel
    const SrcPlanes *src;
};

// A twin of a span: draws the first pixels of the span (a multiple of 16)
// and returns their count; 0 when the span does not suit it. The unrotated
// twins read no byte outside the scalar span's taps on each row; the
// general and parallelogram twins read inside the rectangle of columns and
// rows that bounds the scalar span's taps (inside the source, as the span
// is unchecked).
typedef int32_t (*SpanTwin)(const SpanArgs &a);

// The twins of one instruction set; null where it has none.
struct SpanTwins {
    const char *isa;
    SpanTwin noRotSemiplanar;    // unrotated bilinear span, interleaved 4:2:0 chroma, unchecked
    SpanTwin noRotPlanar;        // unrotated bilinear span, planar 4:2:0 chroma, unchecked
    SpanTwin generalSemiplanar;  // general (truncating) bilinear span, interleaved chroma, unchecked
    SpanTwin generalPlanar;
    SpanTwin parallelSemiplanar;  // parallelogram (rounding) bilinear span, interleaved chroma, unchecked
    SpanTwin parallelPlanar;
};

// Twins built in and usable on this processor, best first; returns their
// number (0: scalar only). The list is a constant table.
int32_t availableSpanTwins(const SpanTwins *const **list);

// The best twins for this processor, or null.
const SpanTwins *bestSpanTwins();

#if defined(__x86_64__) || defined(__i386__)
int32_t spanNoRotSemiplanarSsse3(const SpanArgs &a);
int32_t spanNoRotPlanarSsse3(const SpanArgs &a);
int32_t spanGeneralSemiplanarSsse3(const SpanArgs &a);
int32_t spanGeneralPlanarSsse3(const SpanArgs &a);
int32_t spanParallelSemiplanarSsse3(const SpanArgs &a);
int32_t spanParallelPlanarSsse3(const SpanArgs &a);
#endif
#if defined(__ARM_NEON)
int32_t spanNoRotSemiplanarNeon(const SpanArgs &a);
int32_t spanNoRotPlanarNeon(const SpanArgs &a);
int32_t spanGeneralSemiplanarNeon(const SpanArgs &a);
int32_t spanGeneralPlanarNeon(const SpanArgs &a);
int32_t spanParallelSemiplanarNeon(const SpanArgs &a);
int32_t spanParallelPlanarNeon(const SpanArgs &a);
#endif

}  // namespace pvx_draw
