#include "colour.h"

#include <math.h>
#include <string.h>

namespace parvex_tool {

namespace {

// Where the chroma of a 4:2:0 frame lives: plane and byte offsets of U and V
// within a chroma row, and the step between neighbouring samples.
struct ChromaPlaces {
    int uPlane, vPlane;
    int uOffset, vOffset;
    int step;
};

ChromaPlaces chromaPlaces(Layout layout) {
    switch (layout) {
    case Layout::YUV420_PLANAR: return {1, 2, 0, 0, 1};
    case Layout::YUV420_SEMIPLANAR: return {1, 1, 0, 1, 2};
    default: return {1, 1, 1, 0, 2};  // YVU420_SEMIPLANAR: V first
    }
}

void copyYuvToYuv(const Frame &src, Frame *dst) {
    for (int y = 0; y < src.rows(0); ++y) memcpy(dst->row(0, y), src.row(0, y), src.pitch(0));
    const ChromaPlaces s = chromaPlaces(src.layout()), d = chromaPlaces(dst->layout());
    const int cw = (src.width() + 1) / 2, ch = src.rows(1);
    for (int y = 0; y < ch; ++y) {
        const uint8_t *su = src.row(s.uPlane, y) + s.uOffset, *sv = src.row(s.vPlane, y) + s.vOffset;
        uint8_t *du = dst->row(d.uPlane, y) + d.uOffset, *dv = dst->row(d.vPlane, y) + d.vOffset;
        for (int x = 0; x < cw; ++x) {
            du[x * d.step] = su[x * s.step];
            dv[x * d.step] = sv[x * s.step];
        }
    }
}

void swapRgb(const Frame &src, Frame *dst) {
    for (int y = 0; y < src.height(); ++y) {
        const uint8_t *s = src.row(0, y);
        uint8_t *d = dst->row(0, y);
        for (int x = 0; x < src.width(); ++x) {
            d[3 * x] = s[3 * x + 2];
            d[3 * x + 1] = s[3 * x + 1];
            d[3 * x + 2] = s[3 * x];
        }
    }
}

void rgbToYuvFrame(const Frame &src, Range range, Frame *dst) {
    const bool bgr = src.layout() == Layout::BGR888;
    const int ri = bgr ? 2 : 0, bi = bgr ? 0 : 2;
    const int w = src.width(), h = src.height();
    for (int y = 0; y < h; ++y) {
        const uint8_t *s = src.row(0, y);
        uint8_t *d = dst->row(0, y);
        for (int x = 0; x < w; ++x) {
            double yy, u, v;
            rgbToYuv(s[3 * x + ri], s[3 * x + 1], s[3 * x + bi], range, &yy, &u, &v);
            d[x] = clampToByte(yy);
        }
    }
    const ChromaPlaces c = chromaPlaces(dst->layout());
    for (int cy = 0; cy < (h + 1) / 2; ++cy) {
        uint8_t *du = dst->row(c.uPlane, cy) + c.uOffset, *dv = dst->row(c.vPlane, cy) + c.vOffset;
        for (int cx = 0; cx < (w + 1) / 2; ++cx) {
            // Mean of the block's pixels that exist (an odd edge has fewer).
            double r = 0, g = 0, b = 0;
            int n = 0;
            for (int y = 2 * cy; y < 2 * cy + 2 && y < h; ++y) {
                const uint8_t *s = src.row(0, y);
                for (int x = 2 * cx; x < 2 * cx + 2 && x < w; ++x) {
                    r += s[3 * x + ri];
                    g += s[3 * x + 1];
                    b += s[3 * x + bi];
                    ++n;
                }
            }
            double yy, u, v;
            rgbToYuv(r / n, g / n, b / n, range, &yy, &u, &v);
            du[cx * c.step] = clampToByte(u);
            dv[cx * c.step] = clampToByte(v);
        }
    }
    dst->fillPadding();
}

void yuvToRgbFrame(const Frame &src, Range range, Frame *dst) {
    const bool bgr = dst->layout() == Layout::BGR888;
    const int ri = bgr ? 2 : 0, bi = bgr ? 0 : 2;
    const ChromaPlaces c = chromaPlaces(src.layout());
    for (int y = 0; y < src.height(); ++y) {
        const uint8_t *sy = src.row(0, y);
        const uint8_t *su = src.row(c.uPlane, y / 2) + c.uOffset, *sv = src.row(c.vPlane, y / 2) + c.vOffset;
        uint8_t *d = dst->row(0, y);
        for (int x = 0; x < src.width(); ++x) {
            uint8_t rgb[3];
            yuvToRgb(sy[x], su[(x / 2) * c.step], sv[(x / 2) * c.step], range, rgb);
            d[3 * x + ri] = rgb[0];
            d[3 * x + 1] = rgb[1];
            d[3 * x + bi] = rgb[2];
        }
    }
}

}  // namespace

const char *rangeName(Range range) { return range == Range::Full ? "full" : "limited"; }

uint8_t clampToByte(double value) {
    if (!(value > 0.0)) return 0;
    if (value >= 255.0) return 255;
    return static_cast<uint8_t>(value + 0.5);
}

// BT.601: Kr = 0.299, Kb = 0.114.
void rgbToYuv(double r, double g, double b, Range range, double *y, double *u, double *v) {
    const double luma = 0.299 * r + 0.587 * g + 0.114 * b;
    const double cb = (b - luma) / 1.772, cr = (r - luma) / 1.402;
    if (range == Range::Full) {
        *y = luma;
        *u = 128.0 + cb;
        *v = 128.0 + cr;
    } else {
        *y = 16.0 + luma * (219.0 / 255.0);
        *u = 128.0 + cb * (224.0 / 255.0);
        *v = 128.0 + cr * (224.0 / 255.0);
    }
}

void yuvToRgb(int y, int u, int v, Range range, uint8_t rgb[3]) {
    double luma = y, cb = u - 128, cr = v - 128;
    if (range == Range::Limited) {
        luma = (y - 16) * (255.0 / 219.0);
        cb *= 255.0 / 224.0;
        cr *= 255.0 / 224.0;
    }
    const double r = luma + 1.402 * cr;
    const double b = luma + 1.772 * cb;
    const double g = (luma - 0.299 * r - 0.114 * b) / 0.587;
    rgb[0] = clampToByte(r);
    rgb[1] = clampToByte(g);
    rgb[2] = clampToByte(b);
}

void convert(const Frame &src, Layout layout, Range range, Frame *dst) {
    dst->allocate(layout, src.width(), src.height());
    const Layout from = src.layout();
    if (from == layout) {
        memcpy(dst->data(), src.data(), src.byteSize());
    } else if (!isYuv(from) && !isYuv(layout)) {
        swapRgb(src, dst);
    } else if (isYuv(from) && isYuv(layout)) {
        copyYuvToYuv(src, dst);
    } else if (isYuv(layout)) {
        rgbToYuvFrame(src, range, dst);
    } else {
        yuvToRgbFrame(src, range, dst);
    }
}

}  // namespace parvex_tool
