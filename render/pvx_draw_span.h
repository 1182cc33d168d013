// The span record of the draw kernels and the dispatch table of their
// vector leaves.
//
// A span is one row pair of a cell from its first drawn pixel. The C
// reference spans live in pvx_draw_reference.h; a vector leaf draws a
// leading part of a span (whole 16-pixel groups) and returns how many pixels
// it drew, and the reference draws the rest. Leaves reproduce the reference
// arithmetic byte for byte and read only where its taps lie (see SpanLeaf).
//
// This header holds plain records and declarations only: the leaves are
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

// A leaf of a span: draws the span's leading whole 16-pixel groups and
// returns how many pixels it drew (a multiple of 16; 0 when the span does
// not suit it); the C reference of the span draws the rest. The plain C
// entry of a slot is the reference itself, which draws the whole span and
// returns n. Vector leaves of the unrotated kind read no byte outside the
// reference's taps on each row; those of the general and parallelogram
// kinds read inside the rectangle of columns and rows that bounds the
// reference's taps (inside the source, as the span is unchecked).
//
// Clamped leaves serve spans whose taps may leave the source: like the
// clamping reference, every tap's column and row is limited to the image
// (the edge repeated), in the vector registers. They read inside the
// rectangle that bounds the clamped taps, which lies in the source.
typedef int32_t (*SpanLeaf)(const SpanArgs &a);

// Slots of the dispatch table: pixel layout family (interleaved and planar
// 4:2:0 chroma, three bytes a pixel) and kernel kind of the bilinear spans,
// once for the unchecked spans (`leaf`) and once for the clamped ones.
enum SpanFamily : int { kSpanSemiplanar = 0, kSpanPlanar = 1, kSpanRgb = 2, kSpanFamilyCount = 3 };
enum SpanKind : int { kSpanGeneral = 0, kSpanParallel = 1, kSpanNoRot = 2, kSpanKindCount = 3 };

struct DrawSpanTable {
    SpanLeaf leaf[kSpanFamilyCount][kSpanKindCount];
    SpanLeaf clamped[kSpanFamilyCount][kSpanKindCount];
};

// Fills `t` for the features `cpuFlags` (pvx_cpu.h bits): the C references
// first, then every instruction set the flags allow overwrites the slots it
// has leaves for, lowest set first.
void fillDrawSpanTable(DrawSpanTable *t, uint32_t cpuFlags);

// The library's table, filled from pvx_Cpu_flags() when a renderer is
// initialised (the C references until then).
void initDrawSpans();
SpanLeaf drawSpanLeaf(SpanFamily family, SpanKind kind);
SpanLeaf drawClampedSpanLeaf(SpanFamily family, SpanKind kind);

// Per instruction set: overwrite the slots that set has leaves for.
void initDrawSpansSsse3(DrawSpanTable *t);
void initClampedDrawSpansSsse3(DrawSpanTable *t);
void initDrawSpansRgbSsse3(DrawSpanTable *t);
void initDrawSpansAvx2(DrawSpanTable *t);
void initDrawSpansRgbAvx2(DrawSpanTable *t);
void initDrawSpansAvx512Vbmi(DrawSpanTable *t);
void initDrawSpansRgbAvx512Vbmi(DrawSpanTable *t);
void initDrawSpansNeon(DrawSpanTable *t);
void initClampedDrawSpansNeon(DrawSpanTable *t);
void initDrawSpansRgbNeon(DrawSpanTable *t);

}  // namespace pvx_draw
