// The cell walks shared by every family of draw kernels: one per kernel
// kind (general quadrilateral, parallelogram, unrotated, plain copy),
// templated over the pixel layout of a format family.
//
// Each kernel is a per-cell set-up (fixed-point corners, steps, the boundary
// trimming, the destination clip) plus, per row pair, a span (SpanArgs)
// that is drawn unchecked when its taps are provably inside the source
// (pvx_draw_inside.h) and clamped otherwise. A bilinear span of the 4:2:0
// and three-bytes-a-pixel families, unchecked or clamped, goes through the
// dispatch table (pvx_draw_span.h): a vector leaf draws its whole 16-pixel
// groups and the C reference (pvx_draw_reference.h) the rest.
//
// Memory safety: a tap never reads outside the source. The cell test of the
// renderer admits corners at x = width and y = height, the second row of a
// pair reads one source row lower and the 2x2 neighbourhood reads x+1 and
// row+1, so taps near the far edges would leave the image. Spans that are
// not provably inside clamp every tap's row and column into the image (the
// edge is replicated). Writes are clipped to the destination, positions
// staying those of the cell.
//
// Rows are drawn in pairs y, y+1 from y0 while y < y1, so a cell of odd
// height also writes the row at y1 (when that row lies in the destination).
// Lattices whose interior cells have odd heights therefore overlap by that
// row with the cell below; the engine's lattices only have an odd height in
// the last cell row, whose y1 is the image's bottom edge.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "image/pvx_image.h"
#include "render/pvx_draw_inside.h"
#include "render/pvx_draw_reference.h"
#include "render/pvx_draw_span.h"
#include "render/pvx_renderer2.h"
#include "runtime/pvx_result.h"

namespace pvx_draw {

// ---------------------------------------------------------------------------
// Boundary trimming, solved in closed form.
//
// The trimming advances a row pair's first x by 2 while a test holds
// and then pulls its last x back by 2 while another holds. Along a row the
// tested positions are linear in x, and each test fails exactly inside a
// band, so the loops' results are the smallest m >= 0 at which all of a set
// of linear constraints lo <= A + m*B <= hi hold. Solving them directly
// keeps cells of any width cheap.

struct MRange {
    int64_t lo, hi;   // m in [lo, hi]; hi < lo: none
};
inline void mAtLeast(MRange *r, int64_t a, int64_t b, int64_t bound) {   // a + m*b >= bound
    if (b > 0) {
        r->lo = max64(r->lo, ceilDiv(bound - a, b));
    } else if (b < 0) {
        r->hi = min64(r->hi, floorDiv(a - bound, -b));
    } else if (a < bound) {
        r->hi = -1;
    }
}
inline void mAtMost(MRange *r, int64_t a, int64_t b, int64_t bound) {   // a + m*b <= bound
    if (b > 0) {
        r->hi = min64(r->hi, floorDiv(bound - a, b));
    } else if (b < 0) {
        r->lo = max64(r->lo, ceilDiv(a - bound, -b));
    } else if (a > bound) {
        r->hi = -1;
    }
}

// Drawn range [first, last] of a row of w pixels whose row-y position at
// pixel j is (sx + j*ux, sy + j*uy). `Symmetric` tests all four limits at
// both ends; otherwise the start is not tested against lx and the end not
// for a negative x, as the general and unrotated kernels do it. False: no
// pixel is left.
template <bool Symmetric>
bool trimRow(int64_t w, int64_t sx, int64_t sy, int64_t ux, int64_t uy, int64_t lx, int64_t ly, int64_t *first,
             int64_t *last) {
    MRange s{0, (w - 1) / 2};   // start j = 2m
    mAtLeast(&s, sx, 2 * ux, 0);
    if (Symmetric) mAtMost(&s, sx, 2 * ux, lx);
    mAtLeast(&s, sy, 2 * uy, 0);
    mAtMost(&s, sy, 2 * uy, ly);
    if (s.hi < s.lo) return false;
    const int64_t j = 2 * s.lo;
    const int64_t ex = sx + (w - 1) * ux, ey = sy + (w - 1) * uy;
    MRange e{0, (w - 1 - j) / 2};   // end w-1-2m, not below j
    if (Symmetric) mAtLeast(&e, ex, -2 * ux, 0);
    mAtMost(&e, ex, -2 * ux, lx);
    mAtLeast(&e, ey, -2 * uy, 0);
    mAtMost(&e, ey, -2 * uy, ly);
    if (e.hi < e.lo) return false;
    *first = j;
    *last = w - 1 - 2 * e.lo;
    return true;
}

// ---------------------------------------------------------------------------
// Cell set-up shared by the kernels.

struct Cell {
    SrcPlanes s;
    DstPlanes d;
    int64_t x0, y0, w, h;
    int32_t tlx, tly, blx, bly;   // Q15 corners that every kernel uses
    int32_t dsx0, dsy0;           // row-start advance per row pair
    int64_t pBegin, pEnd;         // row pairs that touch the destination
    int64_t cBegin, cEnd;         // pixel columns (from x0) inside the destination, inclusive
};

// Cells wider or taller than this are not drawn: no lattice over a 32-bit
// image has them, and the bound keeps every set-up product within 64 bits.
constexpr int64_t kMaxCellExtent = static_cast<int64_t>(1) << 30;

// The cell's origin and its Q15 left-edge corners with their advance per
// row pair (c->w and c->h already set, both at least 1).
inline void cellCorners(const double *k, const int32_t *rect, Cell *c) {
    c->x0 = rect[0];
    c->y0 = rect[1];
    c->tlx = toQ15(k[0]);
    c->tly = toQ15(k[1]);
    c->blx = toQ15(k[4]);
    c->bly = toQ15(k[5]);
    c->dsx0 = sat32(2 * (static_cast<int64_t>(c->blx) - c->tlx) / c->h);
    c->dsy0 = sat32(2 * (static_cast<int64_t>(c->bly) - c->tly) / c->h);
}

// Fills `c` and returns PVX_OK with *draw set when there is something to
// draw. Both images must be of the family's formats and carry its planes.
template <class L>
pvx_Result prepareCell(const pvx_Renderer2_DrawArg *arg, Cell *c, bool *draw) {
    *draw = false;
    if (arg == nullptr || arg->dst == nullptr || arg->src == nullptr || arg->corners == nullptr ||
        arg->cellRect == nullptr)
        return PVX_ERROR_PARAM;
    const pvx_Image *src = arg->src, *dst = arg->dst;
    if (!L::accepts(src->format) || !L::accepts(dst->format)) return PVX_ERROR_FORMAT;
    uint8_t *sy, *sc0, *sc1;
    if (!bindPlanes<L>(src, &sy, &sc0, &sc1, &c->s.yPitch, &c->s.c0Pitch, &c->s.c1Pitch)) return PVX_ERROR_PARAM;
    if (!bindPlanes<L>(dst, &c->d.y, &c->d.c0, &c->d.c1, &c->d.yPitch, &c->d.c0Pitch, &c->d.c1Pitch))
        return PVX_ERROR_PARAM;
    c->s.y = sy;
    c->s.c0 = sc0;
    c->s.c1 = sc1;
    c->s.w = src->width;
    c->s.h = src->height;
    c->s.cw = src->width / 2 + (src->width & 1);
    c->s.ch = L::kChroma == kChroma420 ? src->height / 2 + (src->height & 1) : src->height;
    c->d.w = dst->width;
    c->d.h = dst->height;
    if (c->s.w < 1 || c->s.h < 1 || c->d.w < 1 || c->d.h < 1) return PVX_OK;

    const int32_t *rect = arg->cellRect;
    c->w = static_cast<int64_t>(rect[2]) - rect[0];
    c->h = static_cast<int64_t>(rect[3]) - rect[1];
    if (c->w < 1 || c->h < 1) return PVX_OK;
    if (c->w > kMaxCellExtent || c->h > kMaxCellExtent) return PVX_ERROR_PARAM;
    cellCorners(arg->corners, rect, c);

    // Row pairs y0 + 2p with a row inside [0, dst height) and y0 + 2p < y1.
    const int64_t yEnd = min64(rect[3], c->d.h);
    c->pBegin = c->y0 >= -1 ? 0 : (-1 - c->y0 + 1) / 2;
    c->pEnd = yEnd > c->y0 ? (yEnd - c->y0 + 1) / 2 : 0;
    c->cBegin = max64(0, -c->x0);
    c->cEnd = min64(c->w - 1, static_cast<int64_t>(c->d.w) - 1 - c->x0);
    if (c->pBegin >= c->pEnd || c->cBegin > c->cEnd) return PVX_OK;
    *draw = true;
    return PVX_OK;
}

// Destination rows and chroma of row pair p.
template <class L>
void pairDestinations(const Cell &c, int64_t p, SpanArgs *a) {
    const int64_t y = c.y0 + 2 * p;
    const bool row0 = y >= 0 && y < c.d.h, row1 = y + 1 >= 0 && y + 1 < c.d.h;
    a->dy0 = row0 ? c.d.y + static_cast<ptrdiff_t>(y) * c.d.yPitch : nullptr;
    a->dy1 = row1 ? c.d.y + static_cast<ptrdiff_t>(y + 1) * c.d.yPitch : nullptr;
    a->dc00 = a->dc01 = a->dc10 = a->dc11 = nullptr;
    if constexpr (L::kChroma == kChroma420) {
        if (row0) {
            a->dc00 = c.d.c0 + static_cast<ptrdiff_t>(y >> 1) * c.d.c0Pitch;
            a->dc01 = c.d.c1 + static_cast<ptrdiff_t>(y >> 1) * c.d.c1Pitch;
        }
    } else if constexpr (L::kChroma != kNoChroma) {
        if (row0) {
            a->dc00 = c.d.c0 + static_cast<ptrdiff_t>(y) * c.d.c0Pitch;
            a->dc01 = c.d.c1 + static_cast<ptrdiff_t>(y) * c.d.c1Pitch;
        }
        if (row1) {
            a->dc10 = c.d.c0 + static_cast<ptrdiff_t>(y + 1) * c.d.c0Pitch;
            a->dc11 = c.d.c1 + static_cast<ptrdiff_t>(y + 1) * c.d.c1Pitch;
        }
    }
}

// ---------------------------------------------------------------------------
// Steps and positions of the three sampling kernels (described below),
// shared by the walk and by the proof that a whole cell lies inside.

struct CellSteps {
    int64_t uxT = 0, uyT = 0, dux = 0, duy = 0;   // general: Q31 top-edge steps, their change per pair
    int32_t ux = 0, uy = 0;                       // parallelogram and unrotated: Q15 steps
    int32_t hx = 0, hy = 32768;                   // Q15 offset of row y+1 from row y
    int32_t off16[16] = {0};                      // unrotated: offsets of a 16-pixel group
};

template <int K>
void cellSteps(const double *k, const Cell &c, CellSteps *s) {
    if constexpr (K == kGeneral) {
        s->uxT = stepQ31(k[2] - k[0], c.w);
        s->uyT = stepQ31(k[3] - k[1], c.w);
        s->dux = 2 * (stepQ31(k[6] - k[4], c.w) - s->uxT) / c.h;
        s->duy = 2 * (stepQ31(k[7] - k[5], c.w) - s->uyT) / c.h;
    } else {
        s->ux = stepQ15(k[2] - k[0], c.w);
        if constexpr (K == kParallel) {
            s->uy = stepQ15(k[3] - k[1], c.w);
            s->hx = sat32((static_cast<int64_t>(c.blx) - c.tlx) / c.h);
            s->hy = sat32((static_cast<int64_t>(c.bly) - c.tly) / c.h);
        } else {
            for (int i = 0; i < 16; ++i)
                s->off16[i] = static_cast<int32_t>((static_cast<int64_t>(s->ux >> 3) * i) >> 8);
        }
    }
}

// Row-start position, along-row steps and chroma offsets of row pair p.
struct PairPositions {
    int32_t sx, sy, ux, uy, cox, coy;
};

template <int K>
PairPositions pairPositions(const Cell &c, const CellSteps &s, int64_t p) {
    PairPositions r;
    r.sx = wadd(c.tlx, wmul(p, c.dsx0));
    r.sy = wadd(c.tly, wmul(p, c.dsy0));
    r.ux = s.ux;
    r.uy = s.uy;
    if constexpr (K == kGeneral) {
        r.ux = q31ToQ15(s.uxT + p * s.dux);
        r.uy = q31ToQ15(s.uyT + p * s.duy);
    }
    if constexpr (K == kNoRot) {
        r.cox = ((r.ux >> 1) + 0x4000) >> 11;
        r.coy = (c.dsy0 >> 2) + 0x4000;
    } else {
        // Half a step, half a row (a quarter of the pair advance) and
        // half a pixel: the centre of the pixel's 2x2 block, rounded
        // up so that >> 16 picks the nearest chroma sample.
        r.cox = (r.ux >> 1) + (c.dsx0 >> 2) + 0x4000;
        r.coy = (r.uy >> 1) + (c.dsy0 >> 2) + 0x4000;
    }
    return r;
}

// Whether every span the kernel of kind K can draw for a cell (corners,
// cellRect) reads inside a source of srcW x srcH: each row pair's whole
// row with both rows and its chroma, of which a drawn span (clipped to the
// destination, without boundary trimming) is a part. A cell that passes
// may skip the per-span proofs.
template <class L, int Mode, int K>
bool cellInside(const double *corners, const int32_t *rect, int32_t srcW, int32_t srcH) {
    Cell c;
    c.w = static_cast<int64_t>(rect[2]) - rect[0];
    c.h = static_cast<int64_t>(rect[3]) - rect[1];
    if (c.w < 1 || c.h < 1 || c.w > kMaxCellExtent || c.h > kMaxCellExtent || srcW < 1 || srcH < 1) return false;
    cellCorners(corners, rect, &c);
    c.s.w = srcW;
    c.s.h = srcH;
    c.s.cw = srcW / 2 + (srcW & 1);
    c.s.ch = L::kChroma == kChroma420 ? srcH / 2 + (srcH & 1) : srcH;
    CellSteps st;
    cellSteps<K>(corners, c, &st);
    uint8_t row = 0;   // stands for every destination row: all are present
    SpanArgs a;
    a.dy0 = a.dy1 = a.dc00 = a.dc01 = a.dc10 = a.dc11 = &row;
    a.dx = 0;
    a.n = static_cast<int32_t>(c.w);
    a.off16 = st.off16;
    a.hx = st.hx;
    a.hy = st.hy;
    a.src = &c.s;
    for (int64_t p = 0; p < (c.h + 1) / 2; ++p) {
        const PairPositions pp = pairPositions<K>(c, st, p);
        a.sx = pp.sx;
        a.sy = pp.sy;
        a.ux = pp.ux;
        a.uy = pp.uy;
        a.cox = pp.cox;
        a.coy = pp.coy;
        const bool inside = K == kNoRot ? noRotSpanInside<L, Mode>(a) : linearSpanInside<L, Mode>(a);
        if (!inside) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The three sampling kernels.
//
// General: row starts from the left edge (TL advanced per pair by
// 2*(BL - TL)/h), along-row steps interpolated between the top and the
// bottom edge in Q31, changing per pair; row y+1 is the source row below
// row y; truncating weights; trimming against (w - 2, h - 2) pixels, start
// and end tested differently (the start not against the right limit, the
// end not for a negative x), on purpose.
//
// Parallelogram: the same row starts, constant along-row steps from the top
// edge ((TR - TL) * 32768 / w, truncated); row y+1 is mapped through the
// lattice (its start is the row start plus (BL - TL)/h), which is exact for
// every parallelogram, rotated or scaled; rounding weights; symmetric
// trimming against (w - 2, h - 2) pixels.
//
// Unrotated: the same row starts, the step (TR.x - TL.x) * 32768 / w, one
// source row per pair, 16-pixel groups with the offset table; rounding
// weights; trimming against (w - 1, h - 2) pixels, asymmetric.
template <class L, int Mode, int K>
pvx_Result drawCell(const pvx_Renderer2_DrawArg *arg) {
    Cell c;
    bool draw = false;
    const pvx_Result r = prepareCell<L>(arg, &c, &draw);
    if (r != PVX_OK || !draw) return r;
    CellSteps st;
    cellSteps<K>(arg->corners, c, &st);
    // Limits of the trimming.
    const int64_t lx = K == kNoRot ? (static_cast<int64_t>(c.s.w) - 1) * 32768 : static_cast<int64_t>(c.s.w) * 32768 - 0x10000;
    const int64_t ly = static_cast<int64_t>(c.s.h) * 32768 - 0x10000;

    SpanArgs a;
    a.src = &c.s;
    a.off16 = st.off16;
    a.hx = st.hx;
    a.hy = st.hy;
    // A cell its plan found inside the source needs no per-span proof.
    const bool interior = arg->interior != 0 && arg->boundaryCheck == 0;
    // The leaves of the unchecked and the clamped span, from the table
    // filled at start.
    SpanLeaf leaf = nullptr, clampedLeaf = nullptr;
    if constexpr (Mode == kBilinear && L::kChroma == kChroma420 && L::kYStride == 1) {
        constexpr SpanFamily kFamily = L::kPlanes == kTwoPlanes ? kSpanSemiplanar : kSpanPlanar;
        leaf = drawSpanLeaf(kFamily, static_cast<SpanKind>(K));
        clampedLeaf = drawClampedSpanLeaf(kFamily, static_cast<SpanKind>(K));
    } else if constexpr (Mode == kBilinear && L::kYStride == 3 && L::kChannels == 3) {
        leaf = drawSpanLeaf(kSpanRgb, static_cast<SpanKind>(K));
        clampedLeaf = drawClampedSpanLeaf(kSpanRgb, static_cast<SpanKind>(K));
    }
    for (int64_t p = c.pBegin; p < c.pEnd; ++p) {
        const PairPositions pp = pairPositions<K>(c, st, p);
        const int32_t sx = pp.sx, sy = pp.sy, ux = pp.ux, uy = pp.uy;
        a.cox = pp.cox;
        a.coy = pp.coy;
        int64_t first = 0, last = c.w - 1;
        if (arg->boundaryCheck != 0 &&
            !trimRow<K == kParallel>(c.w, sx, sy, ux, uy, lx, ly, &first, &last))
            continue;
        first = max64(first, c.cBegin);
        last = min64(last, c.cEnd);
        if (first > last) continue;
        pairDestinations<L>(c, p, &a);
        a.dx = static_cast<int32_t>(c.x0 + first);
        a.n = static_cast<int32_t>(last - first + 1);
        a.sx = wadd(sx, wmul(first, ux));
        a.sy = wadd(sy, wmul(first, uy));
        a.ux = ux;
        a.uy = uy;
        if constexpr (K == kNoRot) {
            if (interior || noRotSpanInside<L, Mode>(a)) {
                const int32_t done = leaf != nullptr ? leaf(a) : 0;
                if (done < a.n) spanNoRot<L, Mode, false>(done == 0 ? a : spanFrom(a, done));
            } else {
                const int32_t done = clampedLeaf != nullptr && a.n >= 16 ? clampedLeaf(a) : 0;
                if (done < a.n) spanNoRot<L, Mode, true>(done == 0 ? a : spanFrom(a, done));
            }
        } else {
            constexpr bool kRound = K == kParallel;
            if (interior || linearSpanInside<L, Mode>(a)) {
                const int32_t done = leaf != nullptr ? leaf(a) : 0;
                if (done < a.n) spanLinear<L, Mode, kRound, false>(done == 0 ? a : linearFrom(a, done));
            } else {
                const int32_t done = clampedLeaf != nullptr && a.n >= 16 ? clampedLeaf(a) : 0;
                if (done < a.n) spanLinear<L, Mode, kRound, true>(done == 0 ? a : linearFrom(a, done));
            }
        }
    }
    return PVX_OK;
}

// ---------------------------------------------------------------------------
// Plain copy (4:2:0 families): per row pair, x1 - x0 luma bytes from source
// row sy >> 15 at column sx >> 15 (and the row below for y+1), the left
// edge's position advancing per pair as in the other kernels; the pair's
// chroma row from chroma row sy >> 16 at sample sx >> 16. Chroma is written
// for every even destination x of the cell, so a cell of odd width also
// writes the chroma of its last pixel. No resampling and no trimming:
// columns and rows outside the source are clamped (the edge is repeated).

// Copies n samples of `Bytes` bytes from source sample column c of a row of
// w samples, clamping the columns when the run leaves the row.
template <int Bytes>
inline void copyRun(uint8_t *d, const uint8_t *srow, int64_t c, int64_t n, int32_t w) {
    if (c >= 0 && c + n - 1 <= w - 1) {
        memcpy(d, srow + c * Bytes, static_cast<size_t>(n) * Bytes);
        return;
    }
    for (int64_t i = 0; i < n; ++i) {
        const int64_t v = c + i;
        const int64_t cc = v < 0 ? 0 : (v > w - 1 ? w - 1 : v);
        for (int b = 0; b < Bytes; ++b) d[i * Bytes + b] = srow[cc * Bytes + b];
    }
}

template <class L>
pvx_Result drawMemcpy(const pvx_Renderer2_DrawArg *arg) {
    static_assert(L::kChroma == kChroma420 && L::kYStride == 1, "plain copy serves the 4:2:0 families");
    Cell c;
    bool draw = false;
    const pvx_Result r = prepareCell<L>(arg, &c, &draw);
    if (r != PVX_OK || !draw) return r;
    const int64_t n = c.cEnd - c.cBegin + 1;
    // Chroma columns of the even destination x in [x0 + cBegin, x0 + cEnd].
    const int64_t cc0 = ceilDiv(c.x0 + c.cBegin, 2), cc1 = floorDiv(c.x0 + c.cEnd, 2);
    const int64_t chromaBase = floorDiv(c.x0, 2);
    SpanArgs a;
    for (int64_t p = c.pBegin; p < c.pEnd; ++p) {
        const int32_t sx = wadd(c.tlx, wmul(p, c.dsx0)), sy = wadd(c.tly, wmul(p, c.dsy0));
        pairDestinations<L>(c, p, &a);
        const int32_t sr = sy >> 15;
        const int64_t col = static_cast<int64_t>(sx >> 15) + c.cBegin;
        const int64_t dx = c.x0 + c.cBegin;
        if (a.dy0)
            copyRun<1>(a.dy0 + dx, c.s.y + static_cast<ptrdiff_t>(clampIndex(sr, c.s.h - 1)) * c.s.yPitch, col, n, c.s.w);
        if (a.dy1)
            copyRun<1>(a.dy1 + dx, c.s.y + static_cast<ptrdiff_t>(clampIndex(sr + 1, c.s.h - 1)) * c.s.yPitch, col, n,
                       c.s.w);
        if (a.dc00 == nullptr || cc0 > cc1) continue;
        const int32_t cr = clampIndex(sy >> 16, c.s.ch - 1);
        const int64_t ccol = static_cast<int64_t>(sx >> 16) + (cc0 - chromaBase);
        if constexpr (L::kCStride == 2) {
            copyRun<2>(a.dc00 + cc0 * 2, c.s.c0 + static_cast<ptrdiff_t>(cr) * c.s.c0Pitch, ccol, cc1 - cc0 + 1, c.s.cw);
        } else {
            copyRun<1>(a.dc00 + cc0, c.s.c0 + static_cast<ptrdiff_t>(cr) * c.s.c0Pitch, ccol, cc1 - cc0 + 1, c.s.cw);
            copyRun<1>(a.dc01 + cc0, c.s.c1 + static_cast<ptrdiff_t>(cr) * c.s.c1Pitch, ccol, cc1 - cc0 + 1, c.s.cw);
        }
    }
    return PVX_OK;
}

}  // namespace pvx_draw
