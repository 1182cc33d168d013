// The C reference of the draw kernels' arithmetic: fixed-point helpers,
// the pixel layouts of the format families, bilinear and nearest sampling,
// and the spans (one row pair of a cell each) that every vector leaf must
// match byte for byte.
//
// Positions are Q15 (source pixels times 32768). A bilinear tap uses the
// pixel (v >> 15) and the 4-bit weight (v >> 11) & 15. The parallelogram
// and unrotated kernels narrow with a rounding shift by 8; the general
// kernel truncates. Every position sum is done in wrapping 32-bit
// arithmetic, which is what a 32-bit vector lane computes.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "image/pvx_image.h"
#include "render/pvx_draw_span.h"
#include "runtime/pvx_convert.h"

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


}  // namespace pvx_draw
