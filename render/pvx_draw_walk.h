// The walks shared by every family of draw kernels: one per kernel kind
// (general quadrilateral, parallelogram, unrotated, plain copy), templated
// over the pixel layout of a format family.
//
// Each kernel is a per-cell set-up (fixed-point corners, steps, the boundary
// trimming, the destination clip, the choice between the checked and the
// unchecked loop) plus a per-row-pair span function that takes a plain
// SpanArgs record. A vector twin of a span (pvx_draw_span.h; bilinear 4:2:0
// unchecked spans) draws the span's leading 16-pixel groups and the scalar
// span the rest; it reproduces the span's arithmetic exactly, which is why
// every position sum below is done in wrapping 32-bit arithmetic (what a
// 32-bit lane does).
//
// Positions are Q15 (source pixels times 32768). A bilinear tap uses the
// pixel (v >> 15) and the 4-bit weight (v >> 11) & 15. The vector kernels
// (parallelogram, unrotated) narrow with a rounding shift by 8; the general
// kernel truncates.
//
// Memory safety: a tap never reads outside the source. The cell test of the
// renderer admits corners at x = width and y = height, the second row of a
// pair reads one source row lower and the 2x2 neighbourhood reads x+1 and
// row+1, so taps near the far edges would leave the image. Every span first
// decides, from its two end positions, whether all its taps are provably
// inside; only then does it run unchecked, otherwise every tap's row and
// column are clamped into the image (the edge is replicated). Writes are
// clipped to the destination, positions staying those of the cell.
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
#include "render/pvx_draw_span.h"
#include "render/pvx_renderer2.h"
#include "runtime/pvx_convert.h"
#include "runtime/pvx_result.h"

namespace pvx_draw {

// ---------------------------------------------------------------------------
// Integer helpers

// Wrapping 32-bit sums and products: defined for every input, and what a
// 32-bit vector lane computes.
inline int32_t wadd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t wmul(int64_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

inline int32_t sat32(int64_t v) {
    return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v));
}
inline bool fits32(int64_t v) { return v >= INT32_MIN && v <= INT32_MAX; }

inline int64_t min64(int64_t a, int64_t b) { return a < b ? a : b; }
inline int64_t max64(int64_t a, int64_t b) { return a > b ? a : b; }

// Floor and ceiling of a / b for b > 0.
inline int64_t floorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
inline int64_t ceilDiv(int64_t a, int64_t b) { return -floorDiv(-a, b); }

inline int32_t clampIndex(int32_t v, int32_t hi) { return v < 0 ? 0 : (v > hi ? hi : v); }

// Source coordinate in Q15, truncated toward zero (NaN gives 0, out of range
// saturates).
inline int32_t toQ15(double v) { return pvx_toInt32(v * 32768.0); }

// Per-pixel step in Q15 from an edge of `length` source pixels over `w`
// destination pixels, truncated toward zero.
inline int32_t stepQ15(double length, int64_t w) {
    return w >= 1 ? pvx_toInt32(length * 32768.0 / static_cast<double>(w)) : 0;
}

// The general kernel's steps are kept in Q31. Beyond 2^48 a step means
// nothing (positions are 32-bit Q15), and the bound keeps the per-pair
// changes and their sums far from 64-bit overflow.
inline int64_t stepQ31(double length, int64_t w) {
    if (w < 1) return 0;
    const int64_t v = pvx_toInt64(length * 2147483648.0 / static_cast<double>(w));
    const int64_t lim = static_cast<int64_t>(1) << 48;
    return v > lim ? lim : (v < -lim ? -lim : v);
}
// Q31 to Q15 by dropping 16 bits; a negative step is first raised by
// 0x10000 so that the drop goes toward zero.
inline int32_t q31ToQ15(int64_t v) { return sat32((v < 0 ? v + 0x10000 : v) >> 16); }

// ---------------------------------------------------------------------------
// Pixel layouts of the format families

enum ChromaKind : int {
    kNoChroma = 0,
    kChroma420 = 1,          // half width, half height: one chroma row per row pair
    kChroma422Row = 2,       // half width, full height, bilinear per row
    kChroma422Nearest = 3,   // half width, full height, nearest sample (planar 4:2:2)
};

enum PlaneModel : int { kOnePlane = 0, kTwoPlanes = 1, kThreePlanes = 2 };

enum Sampling : int {
    kBilinear = 0,   // bilinear luma and chroma (chroma at half the luma position)
    kHQ = 1,         // bilinear luma, chroma at the centre of its 2x2 luma block
    kNearest = 2,    // nearest luma and chroma samples
};

enum Kind : int { kGeneral = 0, kParallel = 1, kNoRot = 2 };

// Luma (or the pixel's channels): kYStride bytes a pixel, kChannels bytes
// sampled alike, starting kYOffset bytes into the row. Chroma: kCStride
// bytes a sample, channels 0 and 1 at kC0 and kC1 (in their plane).
struct LayoutUint8 {
    static constexpr int kYStride = 1, kYOffset = 0, kChannels = 1;
    static constexpr int kChroma = kNoChroma, kPlanes = kOnePlane, kCStride = 1, kC0 = 0, kC1 = 0;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_UINT8; }
};
struct LayoutRgb888 {
    static constexpr int kYStride = 3, kYOffset = 0, kChannels = 3;
    static constexpr int kChroma = kNoChroma, kPlanes = kOnePlane, kCStride = 1, kC0 = 0, kC1 = 0;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_RGB888 || f == PVX_FORMAT_BGR888; }
};
struct LayoutYuv420Planar {
    static constexpr int kYStride = 1, kYOffset = 0, kChannels = 1;
    static constexpr int kChroma = kChroma420, kPlanes = kThreePlanes, kCStride = 1, kC0 = 0, kC1 = 0;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_YUV420_PLANAR; }
};
struct LayoutYuv420Semiplanar {
    static constexpr int kYStride = 1, kYOffset = 0, kChannels = 1;
    static constexpr int kChroma = kChroma420, kPlanes = kTwoPlanes, kCStride = 2, kC0 = 0, kC1 = 1;
    static bool accepts(int32_t f) {
        return f == PVX_FORMAT_YUV420_SEMIPLANAR || f == PVX_FORMAT_YVU420_SEMIPLANAR;
    }
};
struct LayoutYuv422Planar {
    static constexpr int kYStride = 1, kYOffset = 0, kChannels = 1;
    static constexpr int kChroma = kChroma422Nearest, kPlanes = kThreePlanes, kCStride = 1, kC0 = 0, kC1 = 0;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_YUV422_PLANAR; }
};
// Y0 U Y1 V (and Y0 V Y1 U): luma first.
struct LayoutYuyv {
    static constexpr int kYStride = 2, kYOffset = 0, kChannels = 1;
    static constexpr int kChroma = kChroma422Row, kPlanes = kOnePlane, kCStride = 4, kC0 = 1, kC1 = 3;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_YUV422_YUYV || f == PVX_FORMAT_YUV422_YVYU; }
};
// U Y0 V Y1 (and V Y0 U Y1): chroma first.
struct LayoutUyvy {
    static constexpr int kYStride = 2, kYOffset = 1, kChannels = 1;
    static constexpr int kChroma = kChroma422Row, kPlanes = kOnePlane, kCStride = 4, kC0 = 0, kC1 = 2;
    static bool accepts(int32_t f) { return f == PVX_FORMAT_YUV422_UYVY || f == PVX_FORMAT_YUV422_VYUY; }
};

struct DstPlanes {
    uint8_t *y;
    uint8_t *c0;
    uint8_t *c1;
    ptrdiff_t yPitch, c0Pitch, c1Pitch;
    int32_t w, h;
};

// Plane starts of an image in layout L; false when a plane is missing.
template <class L>
bool bindPlanes(const pvx_Image *im, uint8_t **y, uint8_t **c0, uint8_t **c1, ptrdiff_t *yp, ptrdiff_t *c0p,
                ptrdiff_t *c1p) {
    uint8_t *p0 = im->dat[0];
    if (p0 == nullptr) return false;
    *y = p0 + L::kYOffset;
    *yp = im->pitch[0];
    *c0 = *c1 = nullptr;
    *c0p = *c1p = 0;
    if constexpr (L::kChroma == kNoChroma) {
        return true;
    } else if constexpr (L::kPlanes == kOnePlane) {
        *c0 = p0 + L::kC0;
        *c1 = p0 + L::kC1;
        *c0p = *c1p = im->pitch[0];
        return true;
    } else if constexpr (L::kPlanes == kTwoPlanes) {
        if (im->dat[1] == nullptr) return false;
        *c0 = im->dat[1] + L::kC0;
        *c1 = im->dat[1] + L::kC1;
        *c0p = *c1p = im->pitch[1];
        return true;
    } else {
        if (im->dat[1] == nullptr || im->dat[2] == nullptr) return false;
        *c0 = im->dat[1];
        *c1 = im->dat[2];
        *c0p = im->pitch[1];
        *c1p = im->pitch[2];
        return true;
    }
}

// ---------------------------------------------------------------------------
// Sampling

// 2x2 weighting with 4-bit weights. Rounded: the vector kernels' rounding
// narrowing shift (255*16*16 + 128 >> 8 is 255, so the saturation never
// bites). Truncated: the general kernel's formula.
template <bool Round>
inline uint8_t weigh(int32_t p00, int32_t p01, int32_t p10, int32_t p11, int32_t fx, int32_t fy) {
    if constexpr (Round) {
        return static_cast<uint8_t>(
            ((16 - fy) * ((16 - fx) * p00 + fx * p01) + fy * ((16 - fx) * p10 + fx * p11) + 128) >> 8);
    } else {
        return static_cast<uint8_t>(((fx * p11 + (16 - fx) * p10) * fy + (fx * p01 + (16 - fx) * p00) * (16 - fy)) >> 8);
    }
}

// Bilinear sample of the 2x2 neighbourhood at column x, row r (weights fx,
// fy) of a plane of w x h samples, `Stride` bytes a sample, `Channels` bytes
// weighted alike.
template <int Stride, int Channels, bool Clamp, bool Round>
inline void bilinear(uint8_t *d, const uint8_t *base, ptrdiff_t pitch, int32_t w, int32_t h, int32_t x,
                     int32_t r, int32_t fx, int32_t fy) {
    int32_t xa = x, xb = x + 1, ra = r, rb = r + 1;
    if constexpr (Clamp) {
        xa = clampIndex(xa, w - 1);
        xb = clampIndex(xb, w - 1);
        ra = clampIndex(ra, h - 1);
        rb = clampIndex(rb, h - 1);
    }
    const uint8_t *r0 = base + static_cast<ptrdiff_t>(ra) * pitch;
    const uint8_t *r1 = base + static_cast<ptrdiff_t>(rb) * pitch;
    const ptrdiff_t oa = static_cast<ptrdiff_t>(xa) * Stride, ob = static_cast<ptrdiff_t>(xb) * Stride;
    for (int c = 0; c < Channels; ++c) d[c] = weigh<Round>(r0[oa + c], r0[ob + c], r1[oa + c], r1[ob + c], fx, fy);
}

template <int Stride, int Channels, bool Clamp>
inline void nearest(uint8_t *d, const uint8_t *base, ptrdiff_t pitch, int32_t w, int32_t h, int32_t x, int32_t r) {
    if constexpr (Clamp) {
        x = clampIndex(x, w - 1);
        r = clampIndex(r, h - 1);
    }
    const uint8_t *p = base + static_cast<ptrdiff_t>(r) * pitch + static_cast<ptrdiff_t>(x) * Stride;
    for (int c = 0; c < Channels; ++c) d[c] = p[c];
}

// ---------------------------------------------------------------------------
// Span: one row pair of a cell, from its first drawn pixel, in plain values
// (SpanArgs, in render/pvx_draw_span.h).

// Luma (all channels) of one pixel from its Q15 position.
template <class L, int Mode, bool Clamp, bool Round>
inline void lumaAtQ15(uint8_t *d, const SrcPlanes &s, int32_t px, int32_t py) {
    if constexpr (Mode == kNearest) {
        nearest<L::kYStride, L::kChannels, Clamp>(d, s.y, s.yPitch, s.w, s.h, wadd(px, 0x4000) >> 15,
                                                  wadd(py, 0x4000) >> 15);
    } else {
        bilinear<L::kYStride, L::kChannels, Clamp, Round>(d, s.y, s.yPitch, s.w, s.h, px >> 15, py >> 15,
                                                          (px >> 11) & 15, (py >> 11) & 15);
    }
}

// Both chroma channels, bilinear at chroma column cx16 >> 4, row r with
// weights cx16 & 15 and fy.
template <class L, bool Clamp, bool Round>
inline void chromaBilinear(uint8_t *d0, uint8_t *d1, const SrcPlanes &s, int32_t cx16, int32_t r, int32_t fy) {
    bilinear<L::kCStride, 1, Clamp, Round>(d0, s.c0, s.c0Pitch, s.cw, s.ch, cx16 >> 4, r, cx16 & 15, fy);
    bilinear<L::kCStride, 1, Clamp, Round>(d1, s.c1, s.c1Pitch, s.cw, s.ch, cx16 >> 4, r, cx16 & 15, fy);
}
template <class L, bool Clamp>
inline void chromaNearest(uint8_t *d0, uint8_t *d1, const SrcPlanes &s, int32_t cx, int32_t r) {
    nearest<L::kCStride, 1, Clamp>(d0, s.c0, s.c0Pitch, s.cw, s.ch, cx, r);
    nearest<L::kCStride, 1, Clamp>(d1, s.c1, s.c1Pitch, s.cw, s.ch, cx, r);
}

// General and parallelogram spans: every pixel has its own Q15 position,
// (sx, sy) + k * (ux, uy) on row y and that plus (hx, hy) on row y+1.
//
// Chroma of a 4:2:0 pair (written at even destination x, from row y):
//  - bilinear mode: at half the luma position, (sx >> 12) and (sy >> 12) in
//    1/16 chroma sample: exact for centred chroma at unit scale;
//  - high quality: at the centre of the 2x2 luma block, (sx, sy) + (cox,
//    coy) where the offsets hold half a step, half a row and half a pixel;
//    that position halved is the nearest chroma sample, and the sample is
//    taken half a chroma sample back from it, which is the true position
//    for centred chroma, weights from the fraction in chroma samples;
//  - nearest: the chroma sample nearest to the block centre.
// 4:2:2 interleaved chroma: per row, at half that row's luma position,
// vertically as the luma. Planar 4:2:2: the nearest sample as the general
// kernel of that family states it.
template <class L, int Mode, bool Round, bool Clamp>
void spanLinear(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    int32_t sx = a.sx, sy = a.sy;
    for (int32_t k = 0; k < a.n; ++k, sx = wadd(sx, a.ux), sy = wadd(sy, a.uy)) {
        const int32_t xa = a.dx + k;
        const ptrdiff_t yo = static_cast<ptrdiff_t>(xa) * L::kYStride;
        const int32_t tx = wadd(sx, a.hx), ty = wadd(sy, a.hy);
        if (a.dy0) lumaAtQ15<L, Mode, Clamp, Round>(a.dy0 + yo, s, sx, sy);
        if (a.dy1) lumaAtQ15<L, Mode, Clamp, Round>(a.dy1 + yo, s, tx, ty);
        if constexpr (L::kChroma != kNoChroma) {
            if ((xa & 1) != 0) continue;
            const ptrdiff_t co = static_cast<ptrdiff_t>(xa >> 1) * L::kCStride;
            if constexpr (L::kChroma == kChroma420) {
                if (a.dc00 == nullptr) continue;
                if constexpr (Mode == kNearest) {
                    chromaNearest<L, Clamp>(a.dc00 + co, a.dc01 + co, s, wadd(sx, a.cox) >> 16, wadd(sy, a.coy) >> 16);
                } else {
                    int32_t cx16, cy16;
                    if constexpr (Mode == kHQ) {
                        cx16 = (wadd(sx, a.cox) >> 12) - 8;
                        cy16 = (wadd(sy, a.coy) >> 12) - 8;
                    } else {
                        cx16 = sx >> 12;
                        cy16 = sy >> 12;
                    }
                    chromaBilinear<L, Clamp, Round>(a.dc00 + co, a.dc01 + co, s, cx16, cy16 >> 4, cy16 & 15);
                }
            } else if constexpr (L::kChroma == kChroma422Row) {
                if (a.dc00) chromaBilinear<L, Clamp, Round>(a.dc00 + co, a.dc01 + co, s, sx >> 12, sy >> 15, (sy >> 11) & 15);
                if (a.dc10) chromaBilinear<L, Clamp, Round>(a.dc10 + co, a.dc11 + co, s, tx >> 12, ty >> 15, (ty >> 11) & 15);
            } else {
                // Column of the luma sample right of the position, limited to
                // the last luma column, halved; row rounded, limited to
                // height - 2, the pair's second row one below. The limits
                // keep the taps inside except for a one-row image, which the
                // final clamp covers.
                int32_t cx = sx < 0 ? 0 : (sx >> 15) + 1;
                cx = (cx > s.w - 1 ? s.w - 1 : cx) >> 1;
                const int32_t t = wadd(sy, 16384);
                int32_t cy = t < 32768 ? 0 : t >> 15;
                if (cy > s.h - 2) cy = s.h - 2;
                const int32_t cy0 = clampIndex(cy, s.ch - 1), cy1 = clampIndex(cy + 1, s.ch - 1);
                if (a.dc00) {
                    a.dc00[co] = s.c0[static_cast<ptrdiff_t>(cy0) * s.c0Pitch + cx];
                    a.dc01[co] = s.c1[static_cast<ptrdiff_t>(cy0) * s.c1Pitch + cx];
                }
                if (a.dc10) {
                    a.dc10[co] = s.c0[static_cast<ptrdiff_t>(cy1) * s.c0Pitch + cx];
                    a.dc11[co] = s.c1[static_cast<ptrdiff_t>(cy1) * s.c1Pitch + cx];
                }
            }
        }
    }
}

// Unrotated span: one source row position sy for the pair; 16 pixels per
// group, pixel k at 1/16 position p16 = ((sx + (k & ~15) * ux) >> 11) +
// off16[k & 15], the leftover pixels of the last group alike. Row y+1 reads
// one source row lower with the same weights. Chroma as in spanLinear, from
// p16: bilinear at p16 >> 1 (1/16 chroma sample); high quality at the
// centred position ((p16 + cox) >> 1) - 8, cox being half a step plus half a
// pixel in 1/16 pixel; nearest at (p16 + cox) >> 5. Vertically: sy >> 12,
// ((sy + coy) >> 12) - 8, (sy + coy) >> 16, coy being a quarter of the pair
// advance plus half a pixel.
template <class L, int Mode, bool Clamp>
void spanNoRot(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    const int32_t sy = a.sy;
    const int32_t r = Mode == kNearest ? wadd(sy, 0x4000) >> 15 : sy >> 15;
    const int32_t fy = (sy >> 11) & 15;
    int32_t cr = 0, cfy = 0;
    if constexpr (Mode == kBilinear) {
        cr = sy >> 16;
        cfy = (sy >> 12) & 15;
    } else if constexpr (Mode == kHQ) {
        const int32_t c16 = (wadd(sy, a.coy) >> 12) - 8;
        cr = c16 >> 4;
        cfy = c16 & 15;
    } else {
        cr = wadd(sy, a.coy) >> 16;
    }
    int32_t group = 0;
    for (int32_t k = 0; k < a.n; ++k) {
        const int32_t i = k & 15;
        if (i == 0) group = wadd(a.sx, wmul(k, a.ux)) >> 11;
        const int32_t p16 = wadd(group, a.off16[i]);
        const int32_t xa = a.dx + k;
        const ptrdiff_t yo = static_cast<ptrdiff_t>(xa) * L::kYStride;
        if constexpr (Mode == kNearest) {
            const int32_t x = wadd(p16, 8) >> 4;
            if (a.dy0) nearest<L::kYStride, L::kChannels, Clamp>(a.dy0 + yo, s.y, s.yPitch, s.w, s.h, x, r);
            if (a.dy1) nearest<L::kYStride, L::kChannels, Clamp>(a.dy1 + yo, s.y, s.yPitch, s.w, s.h, x, r + 1);
        } else {
            const int32_t x = p16 >> 4, fx = p16 & 15;
            if (a.dy0) bilinear<L::kYStride, L::kChannels, Clamp, true>(a.dy0 + yo, s.y, s.yPitch, s.w, s.h, x, r, fx, fy);
            if (a.dy1)
                bilinear<L::kYStride, L::kChannels, Clamp, true>(a.dy1 + yo, s.y, s.yPitch, s.w, s.h, x, r + 1, fx, fy);
        }
        if constexpr (L::kChroma != kNoChroma) {
            if ((xa & 1) != 0) continue;
            const ptrdiff_t co = static_cast<ptrdiff_t>(xa >> 1) * L::kCStride;
            if constexpr (L::kChroma == kChroma420) {
                if (a.dc00 == nullptr) continue;
                if constexpr (Mode == kNearest) {
                    chromaNearest<L, Clamp>(a.dc00 + co, a.dc01 + co, s, wadd(p16, a.cox) >> 5, cr);
                } else {
                    const int32_t c16 = Mode == kHQ ? (wadd(p16, a.cox) >> 1) - 8 : p16 >> 1;
                    chromaBilinear<L, Clamp, true>(a.dc00 + co, a.dc01 + co, s, c16, cr, cfy);
                }
            } else if constexpr (L::kChroma == kChroma422Row) {
                if (a.dc00) chromaBilinear<L, Clamp, true>(a.dc00 + co, a.dc01 + co, s, p16 >> 1, r, fy);
                if (a.dc10) chromaBilinear<L, Clamp, true>(a.dc10 + co, a.dc11 + co, s, p16 >> 1, r + 1, fy);
            }
        }
    }
}

// The rest of an unrotated span from pixel k (a multiple of 16, where a
// group starts): the group positions stay those of the whole span, as the
// sums wrap alike.
inline SpanArgs spanFrom(const SpanArgs &a, int32_t k) {
    SpanArgs b = a;
    b.dx = a.dx + k;
    b.n = a.n - k;
    b.sx = wadd(a.sx, wmul(k, a.ux));
    return b;
}

// The rest of a general or parallelogram span from pixel k.
inline SpanArgs linearFrom(const SpanArgs &a, int32_t k) {
    SpanArgs b = a;
    b.dx = a.dx + k;
    b.n = a.n - k;
    b.sx = wadd(a.sx, wmul(k, a.ux));
    b.sy = wadd(a.sy, wmul(k, a.uy));
    return b;
}

// ---------------------------------------------------------------------------
// Whether every tap of a span lies inside the source. Each index below is a
// non-decreasing function of a position that is linear along the span, so
// the two ends bound it; each sum must also stay clear of 32-bit wrap-around
// for the unchecked loop to compute what the check computed.

struct Iv {
    int64_t lo, hi;
};
inline Iv ivOf(int64_t a, int64_t b) { return a < b ? Iv{a, b} : Iv{b, a}; }
inline Iv ivAdd(Iv v, int64_t c) { return Iv{v.lo + c, v.hi + c}; }
inline Iv ivShr(Iv v, int s) { return Iv{v.lo >> s, v.hi >> s}; }
inline bool ivFits(Iv v) { return fits32(v.lo) && fits32(v.hi); }
// Taps idx .. idx + extra all within [0, max].
inline bool ivTaps(Iv idx, int64_t max, int64_t extra) { return idx.lo >= 0 && idx.hi + extra <= max; }

template <int Mode>
inline bool lumaInsideQ15(Iv x, Iv y, const SrcPlanes &s) {
    if constexpr (Mode == kNearest) {
        const Iv xn = ivAdd(x, 0x4000), yn = ivAdd(y, 0x4000);
        return ivFits(xn) && ivFits(yn) && ivTaps(ivShr(xn, 15), s.w - 1, 0) && ivTaps(ivShr(yn, 15), s.h - 1, 0);
    } else {
        return ivTaps(ivShr(x, 15), s.w - 1, 1) && ivTaps(ivShr(y, 15), s.h - 1, 1);
    }
}

template <class L, int Mode>
bool linearSpanInside(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    const int64_t n1 = a.n - 1;
    const Iv x = ivOf(a.sx, a.sx + n1 * a.ux), y = ivOf(a.sy, a.sy + n1 * a.uy);
    if (!ivFits(x) || !ivFits(y)) return false;
    if (a.dy0 && !lumaInsideQ15<Mode>(x, y, s)) return false;
    const Iv x1 = ivAdd(x, a.hx), y1 = ivAdd(y, a.hy);
    if (!ivFits(x1) || !ivFits(y1)) return false;
    if (a.dy1 && !lumaInsideQ15<Mode>(x1, y1, s)) return false;
    if constexpr (L::kChroma == kChroma420) {
        if (a.dc00 == nullptr) return true;
        if constexpr (Mode == kBilinear) {
            return ivTaps(ivShr(x, 16), s.cw - 1, 1) && ivTaps(ivShr(y, 16), s.ch - 1, 1);
        } else {
            const Iv xc = ivAdd(x, a.cox), yc = ivAdd(y, a.coy);
            if (!ivFits(xc) || !ivFits(yc)) return false;
            if constexpr (Mode == kHQ) {
                return ivTaps(ivShr(ivAdd(ivShr(xc, 12), -8), 4), s.cw - 1, 1) &&
                       ivTaps(ivShr(ivAdd(ivShr(yc, 12), -8), 4), s.ch - 1, 1);
            } else {
                return ivTaps(ivShr(xc, 16), s.cw - 1, 0) && ivTaps(ivShr(yc, 16), s.ch - 1, 0);
            }
        }
    } else if constexpr (L::kChroma == kChroma422Row) {
        if (a.dc00 && !(ivTaps(ivShr(x, 16), s.cw - 1, 1) && ivTaps(ivShr(y, 15), s.ch - 1, 1))) return false;
        if (a.dc10 && !(ivTaps(ivShr(x1, 16), s.cw - 1, 1) && ivTaps(ivShr(y1, 15), s.ch - 1, 1))) return false;
        return true;
    } else {
        return true;   // no chroma, or chroma that is always clamped
    }
}

// Unrotated: the 1/16 position p16 of pixel k lies within
// [(X >> 11) - 2, X >> 11] of its exact position X = sx + k * ux.
template <class L, int Mode>
bool noRotSpanInside(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    const Iv x = ivOf(a.sx, a.sx + static_cast<int64_t>(a.n - 1) * a.ux);
    if (!ivFits(x)) return false;
    const Iv p = Iv{(x.lo >> 11) - 2, x.hi >> 11};
    const int64_t lastRow = a.dy1 ? 1 : 0;
    if constexpr (Mode == kNearest) {
        if (!fits32(static_cast<int64_t>(a.sy) + 0x4000)) return false;
        const int64_t r = (static_cast<int64_t>(a.sy) + 0x4000) >> 15;
        if (!ivTaps(ivShr(ivAdd(p, 8), 4), s.w - 1, 0) || r < 0 || r + lastRow > s.h - 1) return false;
    } else {
        const int64_t r = a.sy >> 15;
        if (!ivTaps(ivShr(p, 4), s.w - 1, 1) || r < 0 || r + lastRow + 1 > s.h - 1) return false;
    }
    if constexpr (L::kChroma == kChroma420) {
        if (a.dc00 == nullptr) return true;
        if constexpr (Mode == kBilinear) {
            const int64_t cr = a.sy >> 16;
            return ivTaps(ivShr(ivShr(p, 1), 4), s.cw - 1, 1) && cr >= 0 && cr + 1 <= s.ch - 1;
        } else {
            const int64_t vy = static_cast<int64_t>(a.sy) + a.coy;
            if (!fits32(vy)) return false;
            const Iv pc = ivAdd(p, a.cox);
            if constexpr (Mode == kHQ) {
                const int64_t cr = ((vy >> 12) - 8) >> 4;
                return ivTaps(ivShr(ivAdd(ivShr(pc, 1), -8), 4), s.cw - 1, 1) && cr >= 0 && cr + 1 <= s.ch - 1;
            } else {
                const int64_t cr = vy >> 16;
                return ivTaps(ivShr(pc, 5), s.cw - 1, 0) && cr >= 0 && cr <= s.ch - 1;
            }
        }
    } else if constexpr (L::kChroma == kChroma422Row) {
        return ivTaps(ivShr(ivShr(p, 1), 4), s.cw - 1, 1);   // rows as the luma
    } else {
        return true;
    }
}

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
    c->x0 = rect[0];
    c->y0 = rect[1];
    c->w = static_cast<int64_t>(rect[2]) - rect[0];
    c->h = static_cast<int64_t>(rect[3]) - rect[1];
    if (c->w < 1 || c->h < 1) return PVX_OK;
    if (c->w > kMaxCellExtent || c->h > kMaxCellExtent) return PVX_ERROR_PARAM;

    // Row pairs y0 + 2p with a row inside [0, dst height) and y0 + 2p < y1.
    const int64_t yEnd = min64(rect[3], c->d.h);
    c->pBegin = c->y0 >= -1 ? 0 : (-1 - c->y0 + 1) / 2;
    c->pEnd = yEnd > c->y0 ? (yEnd - c->y0 + 1) / 2 : 0;
    c->cBegin = max64(0, -c->x0);
    c->cEnd = min64(c->w - 1, static_cast<int64_t>(c->d.w) - 1 - c->x0);
    if (c->pBegin >= c->pEnd || c->cBegin > c->cEnd) return PVX_OK;

    const double *k = arg->corners;
    c->tlx = toQ15(k[0]);
    c->tly = toQ15(k[1]);
    c->blx = toQ15(k[4]);
    c->bly = toQ15(k[5]);
    c->dsx0 = sat32(2 * (static_cast<int64_t>(c->blx) - c->tlx) / c->h);
    c->dsy0 = sat32(2 * (static_cast<int64_t>(c->bly) - c->tly) / c->h);
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
    const double *k = arg->corners;

    int64_t uxT = 0, uyT = 0, dux = 0, duy = 0;
    int32_t ux = 0, uy = 0, hx = 0, hy = 32768;
    int32_t off16[16] = {0};
    if constexpr (K == kGeneral) {
        uxT = stepQ31(k[2] - k[0], c.w);
        uyT = stepQ31(k[3] - k[1], c.w);
        dux = 2 * (stepQ31(k[6] - k[4], c.w) - uxT) / c.h;
        duy = 2 * (stepQ31(k[7] - k[5], c.w) - uyT) / c.h;
    } else {
        ux = stepQ15(k[2] - k[0], c.w);
        if constexpr (K == kParallel) {
            uy = stepQ15(k[3] - k[1], c.w);
            hx = sat32((static_cast<int64_t>(c.blx) - c.tlx) / c.h);
            hy = sat32((static_cast<int64_t>(c.bly) - c.tly) / c.h);
        } else {
            for (int i = 0; i < 16; ++i) off16[i] = static_cast<int32_t>((static_cast<int64_t>(ux >> 3) * i) >> 8);
        }
    }
    // Limits of the trimming.
    const int64_t lx = K == kNoRot ? (static_cast<int64_t>(c.s.w) - 1) * 32768 : static_cast<int64_t>(c.s.w) * 32768 - 0x10000;
    const int64_t ly = static_cast<int64_t>(c.s.h) * 32768 - 0x10000;

    SpanArgs a;
    a.src = &c.s;
    a.off16 = off16;
    a.hx = hx;
    a.hy = hy;
    a.cox = a.coy = 0;
    if constexpr (K == kNoRot) {
        a.cox = ((ux >> 1) + 0x4000) >> 11;
        a.coy = (c.dsy0 >> 2) + 0x4000;
    }
    // The vector twin of the unchecked span, chosen once per cell.
    SpanTwin twin = nullptr;
    if constexpr (Mode == kBilinear && L::kChroma == kChroma420 && L::kYStride == 1) {
        if (const SpanTwins *t = bestSpanTwins()) {
            constexpr bool kSemi = L::kPlanes == kTwoPlanes;
            if constexpr (K == kNoRot) twin = kSemi ? t->noRotSemiplanar : t->noRotPlanar;
            if constexpr (K == kGeneral) twin = kSemi ? t->generalSemiplanar : t->generalPlanar;
            if constexpr (K == kParallel) twin = kSemi ? t->parallelSemiplanar : t->parallelPlanar;
        }
    }
    for (int64_t p = c.pBegin; p < c.pEnd; ++p) {
        const int32_t sx = wadd(c.tlx, wmul(p, c.dsx0)), sy = wadd(c.tly, wmul(p, c.dsy0));
        if constexpr (K == kGeneral) {
            ux = q31ToQ15(uxT + p * dux);
            uy = q31ToQ15(uyT + p * duy);
        }
        if constexpr (K != kNoRot) {
            // Half a step, half a row (a quarter of the pair advance) and
            // half a pixel: the centre of the pixel's 2x2 block, rounded
            // up so that >> 16 picks the nearest chroma sample.
            a.cox = (ux >> 1) + (c.dsx0 >> 2) + 0x4000;
            a.coy = (uy >> 1) + (c.dsy0 >> 2) + 0x4000;
        }
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
            if (noRotSpanInside<L, Mode>(a)) {
                const int32_t done = twin != nullptr ? twin(a) : 0;
                if (done < a.n) spanNoRot<L, Mode, false>(done == 0 ? a : spanFrom(a, done));
            } else {
                spanNoRot<L, Mode, true>(a);
            }
        } else {
            constexpr bool kRound = K == kParallel;
            if (linearSpanInside<L, Mode>(a)) {
                const int32_t done = twin != nullptr ? twin(a) : 0;
                if (done < a.n) spanLinear<L, Mode, kRound, false>(done == 0 ? a : linearFrom(a, done));
            } else {
                spanLinear<L, Mode, kRound, true>(a);
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
