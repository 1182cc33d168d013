// Test images for the renderer: planes in guarded buffers, the destination
// with a sentinel-filled band around every plane, format descriptions, and a
// slow per-pixel model of every draw kernel written from the kernel rules.
#pragma once

#include <math.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "image/pvx_image.h"
#include "render/pvx_renderer2.h"
#include "tests/support/guarded_image.h"

namespace rt {

// ---------------------------------------------------------------------------
// Formats

enum ChromaShape { kNone, k420, k422Row, k422Planar };

struct FormatInfo {
    int32_t format;
    const char *name;
    int planes;
    int lumaStride, lumaOffset, channels;   // plane 0
    ChromaShape chroma;
    int c0Plane, c1Plane, cStride, c0Offset, c1Offset;
};

inline const FormatInfo &formatInfo(int32_t f) {
    static const FormatInfo table[] = {
        {PVX_FORMAT_UINT8, "UINT8", 1, 1, 0, 1, kNone, 0, 0, 0, 0, 0},
        {PVX_FORMAT_RGB888, "RGB888", 1, 3, 0, 3, kNone, 0, 0, 0, 0, 0},
        {PVX_FORMAT_BGR888, "BGR888", 1, 3, 0, 3, kNone, 0, 0, 0, 0, 0},
        {PVX_FORMAT_YUV420_PLANAR, "YUV420_PLANAR", 3, 1, 0, 1, k420, 1, 2, 1, 0, 0},
        {PVX_FORMAT_YUV420_SEMIPLANAR, "YUV420_SEMIPLANAR", 2, 1, 0, 1, k420, 1, 1, 2, 0, 1},
        {PVX_FORMAT_YVU420_SEMIPLANAR, "YVU420_SEMIPLANAR", 2, 1, 0, 1, k420, 1, 1, 2, 1, 0},
        {PVX_FORMAT_YUV422_PLANAR, "YUV422_PLANAR", 3, 1, 0, 1, k422Planar, 1, 2, 1, 0, 0},
        {PVX_FORMAT_YUV422_YUYV, "YUV422_YUYV", 1, 2, 0, 1, k422Row, 0, 0, 4, 1, 3},
        {PVX_FORMAT_YUV422_YVYU, "YUV422_YVYU", 1, 2, 0, 1, k422Row, 0, 0, 4, 3, 1},
        {PVX_FORMAT_YUV422_UYVY, "YUV422_UYVY", 1, 2, 1, 1, k422Row, 0, 0, 4, 0, 2},
        {PVX_FORMAT_YUV422_VYUY, "YUV422_VYUY", 1, 2, 1, 1, k422Row, 0, 0, 4, 2, 0},
    };
    for (const FormatInfo &i : table)
        if (i.format == f) return i;
    return table[0];
}

inline int32_t chromaWidth(const FormatInfo &fi, int32_t w) { return fi.chroma == kNone ? 0 : (w + 1) / 2; }
inline int32_t chromaHeight(const FormatInfo &fi, int32_t h) {
    return fi.chroma == kNone ? 0 : (fi.chroma == k420 ? (h + 1) / 2 : h);
}

// ---------------------------------------------------------------------------
// Images

// An image of a format in the table above whose planes are guarded images:
// `pad` sentinel bytes (and rows) around every plane; `guardAtStart` puts the
// first byte of each plane right after a guard page, otherwise a tight image
// ends at one.
class Image : public pvx_test::GuardedImage {
public:
    Image(int32_t format, int32_t width, int32_t height, int32_t pad = 0, bool guardAtStart = false)
        : GuardedImage(width, height, format, 2 * pad,
                       int64_t(pad) * (pvx_Image_getPlaneExtent(width, height, format, 0).pitch + 2 * pad) + pad,
                       Pitch::Extent, guardAtStart ? pvx_test::GuardedBuffer::Side::Start : pvx_test::GuardedBuffer::Side::End),
          fi_(formatInfo(format)) {}

    pvx_Image *image() { return &img; }
    const pvx_Image *image() const { return &img; }
    const FormatInfo &info() const { return fi_; }
    int32_t width() const { return img.width; }
    int32_t height() const { return img.height; }
    int32_t chromaW() const { return chromaWidth(fi_, img.width); }
    int32_t chromaH() const { return chromaHeight(fi_, img.height); }

    uint8_t &luma(int32_t x, int32_t y, int ch = 0) const { return row(0, y)[x * fi_.lumaStride + fi_.lumaOffset + ch]; }
    uint8_t &chroma(int k, int32_t x, int32_t y) const {
        return row(k ? fi_.c1Plane : fi_.c0Plane, y)[x * fi_.cStride + (k ? fi_.c1Offset : fi_.c0Offset)];
    }
    // Clamped reads (edge replicated), as the kernels define taps outside.
    uint8_t lumaAt(int64_t x, int64_t y, int ch) const {
        return luma(static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(x, 0), img.width - 1)),
                    static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(y, 0), img.height - 1)), ch);
    }
    uint8_t chromaAt(int k, int64_t x, int64_t y) const {
        return chroma(k, static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(x, 0), chromaW() - 1)),
                      static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(y, 0), chromaH() - 1)));
    }

    // Every plane's bytes (rows of the image), for comparisons.
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> v;
        for (int p = 0; p < fi_.planes; ++p) {
            const std::vector<uint8_t> b = plane(p);
            v.insert(v.end(), b.begin(), b.end());
        }
        return v;
    }
    void setBytes(const std::vector<uint8_t> &v) {
        size_t i = 0;
        fillPixelsWith([&] { return v[i++]; });
    }
    void fill(uint8_t value) { fillPixels(value); }
    template <class Rng> void fillRandom(Rng &rng) {
        std::uniform_int_distribution<int> d(0, 255);
        fillPixelsWith([&] { return static_cast<uint8_t>(d(rng)); });
    }
    // Fills luma channel c with f(c, x, y) and chroma k with f(3 + k, x, y);
    // 4:2:0 chroma sits at the centre of the luma it covers, 4:2:2 chroma
    // with the even luma samples.
    template <class F>
    void fillWith(F f) {
        for (int32_t y = 0; y < img.height; ++y)
            for (int32_t x = 0; x < img.width; ++x)
                for (int c = 0; c < fi_.channels; ++c) luma(x, y, c) = f(c, double(x), double(y));
        const double half = fi_.chroma == k420 ? 0.5 : 0.0;
        for (int32_t y = 0; y < chromaH(); ++y)
            for (int32_t x = 0; x < chromaW(); ++x)
                for (int k = 0; k < 2; ++k)
                    chroma(k, x, y) = f(3 + k, 2 * x + half, fi_.chroma == k420 ? 2 * y + half : double(y));
    }

    // The sentinel band around every plane is untouched.
    bool bandIntact() const { return guardsIntact(true); }

private:
    FormatInfo fi_;
};

// ---------------------------------------------------------------------------
// Slow model of the draw kernels, pixel by pixel from the rules.

enum RefKind { kRefGeneral, kRefParallel, kRefNoRot };
enum RefMode { kRefBilinear, kRefHQ, kRefNearest };

inline int32_t refQ15(double v) {
    if (v != v) return 0;
    const double s = v * 32768.0;
    if (s >= 2147483647.0) return INT32_MAX;
    if (s <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(s);
}
inline int32_t refWrap(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
inline int32_t refSat(int64_t v) {
    return static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(v, INT32_MIN), INT32_MAX));
}
inline int64_t refQ31(double d, int64_t w) {
    const double s = d * 2147483648.0 / static_cast<double>(w);
    if (s != s) return 0;
    const double lim = 281474976710656.0;   // 2^48
    if (s >= lim) return static_cast<int64_t>(lim);
    if (s <= -lim) return -static_cast<int64_t>(lim);
    return static_cast<int64_t>(s);
}
inline int32_t refTrunc(double v) {
    if (v != v) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// 4-bit bilinear weighting, rounded (vector kernels) or truncated (general).
inline uint8_t refWeigh(int a, int b, int c, int d, int fx, int fy, bool round) {
    const int v = (16 - fy) * ((16 - fx) * a + fx * b) + fy * ((16 - fx) * c + fx * d);
    return static_cast<uint8_t>((v + (round ? 128 : 0)) >> 8);
}

struct RefSampler {
    const Image &s;
    bool round;
    uint8_t luma(int32_t px, int32_t py, int ch, bool nearest) const {
        if (nearest) return s.lumaAt(refWrap(int64_t(px) + 0x4000) >> 15, refWrap(int64_t(py) + 0x4000) >> 15, ch);
        const int32_t x = px >> 15, y = py >> 15, fx = (px >> 11) & 15, fy = (py >> 11) & 15;
        return refWeigh(s.lumaAt(x, y, ch), s.lumaAt(int64_t(x) + 1, y, ch), s.lumaAt(x, int64_t(y) + 1, ch),
                        s.lumaAt(int64_t(x) + 1, int64_t(y) + 1, ch), fx, fy, round);
    }
    // Chroma k at column cx16 / 16 (1/16 sample), row r with weight fy.
    uint8_t chroma(int k, int32_t cx16, int32_t r, int fy) const {
        const int32_t x = cx16 >> 4, fx = cx16 & 15;
        return refWeigh(s.chromaAt(k, x, r), s.chromaAt(k, int64_t(x) + 1, r), s.chromaAt(k, x, int64_t(r) + 1),
                        s.chromaAt(k, int64_t(x) + 1, int64_t(r) + 1), fx, fy, round);
    }
};

// Draws one cell into `d` as the kernel of kind `kind` and sampling `mode`
// must: set-up, the trimming loops step by step, clip, then every pixel alone.
inline void refDraw(RefKind kind, RefMode mode, const Image &s, Image &d, const double *c, const int32_t *rect,
                    int bc) {
    const FormatInfo &fi = s.info();
    const int64_t x0 = rect[0], y0 = rect[1], w = int64_t(rect[2]) - rect[0], h = int64_t(rect[3]) - rect[1];
    if (w < 1 || h < 1 || s.width() < 1 || s.height() < 1) return;
    const int32_t tlx = refQ15(c[0]), tly = refQ15(c[1]), blx = refQ15(c[4]), bly = refQ15(c[5]);
    const int32_t dsx0 = refSat(2 * (int64_t(blx) - tlx) / h), dsy0 = refSat(2 * (int64_t(bly) - tly) / h);
    const bool round = kind != kRefGeneral, nearest = mode == kRefNearest;
    RefSampler S{s, round};
    int32_t ux = 0, uy = 0, hx = 0, hy = 32768;
    int64_t uxT = 0, uyT = 0, dux = 0, duy = 0;
    int32_t off16[16];
    if (kind == kRefGeneral) {
        uxT = refQ31(c[2] - c[0], w);
        uyT = refQ31(c[3] - c[1], w);
        dux = 2 * (refQ31(c[6] - c[4], w) - uxT) / h;
        duy = 2 * (refQ31(c[7] - c[5], w) - uyT) / h;
    } else {
        ux = refTrunc((c[2] - c[0]) * 32768.0 / double(w));
        if (kind == kRefParallel) {
            uy = refTrunc((c[3] - c[1]) * 32768.0 / double(w));
            hx = refSat((int64_t(blx) - tlx) / h);
            hy = refSat((int64_t(bly) - tly) / h);
        }
        for (int i = 0; i < 16; ++i) off16[i] = int32_t((int64_t(ux >> 3) * i) >> 8);
    }
    const int64_t LX = kind == kRefNoRot ? (int64_t(s.width()) - 1) * 32768 : int64_t(s.width()) * 32768 - 0x10000;
    const int64_t LY = int64_t(s.height()) * 32768 - 0x10000;
    const int32_t DW = d.width(), DH = d.height();
    auto q15of31 = [](int64_t v) { return refSat((v < 0 ? v + 0x10000 : v) >> 16); };

    for (int64_t p = 0; 2 * p < h; ++p) {
        const int64_t y = y0 + 2 * p;
        const int32_t SX = refWrap(tlx + p * int64_t(dsx0)), SY = refWrap(tly + p * int64_t(dsy0));
        if (kind == kRefGeneral) {
            ux = q15of31(uxT + p * dux);
            uy = q15of31(uyT + p * duy);
        }
        auto px = [&](int64_t j) { return SX + j * ux; };   // exact, for the trimming tests
        auto py = [&](int64_t j) { return SY + j * uy; };
        int64_t xs = 0, xe = w - 1;
        if (bc) {
            const bool sym = kind == kRefParallel;
            while (xs <= w - 1 && (px(xs) < 0 || py(xs) < 0 || py(xs) > LY || (sym && px(xs) > LX))) xs += 2;
            while (xe >= xs && (py(xe) < 0 || px(xe) > LX || py(xe) > LY || (sym && px(xe) < 0))) xe -= 2;
            if (xs > xe) continue;
        }
        const int64_t ja = std::max<int64_t>(xs, -x0), jb = std::min<int64_t>(xe, DW - 1 - x0);
        const int32_t coxL = (ux >> 1) + (dsx0 >> 2) + 0x4000, coyL = (uy >> 1) + (dsy0 >> 2) + 0x4000;
        const int32_t coxN = ((ux >> 1) + 0x4000) >> 11, coyN = (dsy0 >> 2) + 0x4000;
        for (int64_t j = ja; j <= jb; ++j) {
            const int32_t xa = int32_t(x0 + j);
            const bool even = (xa & 1) == 0;
            for (int t = 0; t < 2; ++t) {
                const int64_t yr = y + t;
                if (yr < 0 || yr >= DH) continue;
                if (kind == kRefNoRot) {
                    const int64_t kk = j - ja;
                    const int32_t g = refWrap(SX + (ja + (kk & ~int64_t(15))) * ux) >> 11;
                    const int32_t p16 = refWrap(int64_t(g) + off16[kk & 15]);
                    int32_t row, x, fx = p16 & 15, fy = (SY >> 11) & 15;
                    if (nearest) {
                        row = (refWrap(int64_t(SY) + 0x4000) >> 15) + t;
                        x = refWrap(int64_t(p16) + 8) >> 4;
                    } else {
                        row = (SY >> 15) + t;
                        x = p16 >> 4;
                    }
                    for (int ch = 0; ch < fi.channels; ++ch)
                        d.luma(xa, int32_t(yr), ch) =
                            nearest ? s.lumaAt(x, row, ch)
                                    : refWeigh(s.lumaAt(x, row, ch), s.lumaAt(int64_t(x) + 1, row, ch),
                                               s.lumaAt(x, int64_t(row) + 1, ch),
                                               s.lumaAt(int64_t(x) + 1, int64_t(row) + 1, ch), fx, fy, true);
                    if (!even) continue;
                    if (fi.chroma == k420 && t == 0) {
                        for (int k = 0; k < 2; ++k) {
                            uint8_t v;
                            if (mode == kRefBilinear) {
                                v = S.chroma(k, p16 >> 1, SY >> 16, (SY >> 12) & 15);
                            } else if (mode == kRefHQ) {
                                const int32_t cy16 = (refWrap(int64_t(SY) + coyN) >> 12) - 8;
                                v = S.chroma(k, (refWrap(int64_t(p16) + coxN) >> 1) - 8, cy16 >> 4, cy16 & 15);
                            } else {
                                v = s.chromaAt(k, refWrap(int64_t(p16) + coxN) >> 5, refWrap(int64_t(SY) + coyN) >> 16);
                            }
                            d.chroma(k, xa >> 1, int32_t(yr >> 1)) = v;
                        }
                    } else if (fi.chroma == k422Row) {
                        for (int k = 0; k < 2; ++k) d.chroma(k, xa >> 1, int32_t(yr)) = S.chroma(k, p16 >> 1, row, fy);
                    }
                } else {
                    const int32_t sx = refWrap(SX + j * ux), sy = refWrap(SY + j * uy);
                    const int32_t tx = refWrap(int64_t(sx) + t * int64_t(hx)), ty = refWrap(int64_t(sy) + t * int64_t(hy));
                    for (int ch = 0; ch < fi.channels; ++ch) d.luma(xa, int32_t(yr), ch) = S.luma(tx, ty, ch, nearest);
                    if (!even) continue;
                    if (fi.chroma == k420 && t == 0) {
                        for (int k = 0; k < 2; ++k) {
                            uint8_t v;
                            if (mode == kRefBilinear) {
                                v = S.chroma(k, sx >> 12, sy >> 16, (sy >> 12) & 15);
                            } else if (mode == kRefHQ) {
                                const int32_t cx16 = (refWrap(int64_t(sx) + coxL) >> 12) - 8;
                                const int32_t cy16 = (refWrap(int64_t(sy) + coyL) >> 12) - 8;
                                v = S.chroma(k, cx16, cy16 >> 4, cy16 & 15);
                            } else {
                                v = s.chromaAt(k, refWrap(int64_t(sx) + coxL) >> 16, refWrap(int64_t(sy) + coyL) >> 16);
                            }
                            d.chroma(k, xa >> 1, int32_t(yr >> 1)) = v;
                        }
                    } else if (fi.chroma == k422Row) {
                        for (int k = 0; k < 2; ++k)
                            d.chroma(k, xa >> 1, int32_t(yr)) = S.chroma(k, tx >> 12, ty >> 15, (ty >> 11) & 15);
                    } else if (fi.chroma == k422Planar) {
                        // Nearest chroma: column of the luma sample right of
                        // the position (limited, halved), row rounded, the
                        // pair's second row one below.
                        int32_t cx = sx < 0 ? 0 : (sx >> 15) + 1;
                        cx = std::min(cx, s.width() - 1) >> 1;
                        const int32_t r = refWrap(int64_t(sy) + 16384);
                        int32_t cy = r < 32768 ? 0 : r >> 15;
                        cy = std::min(cy, s.height() - 2) + t;
                        for (int k = 0; k < 2; ++k) d.chroma(k, xa >> 1, int32_t(yr)) = s.chromaAt(k, cx, cy);
                    }
                }
            }
        }
    }
}

}  // namespace rt
