// Helpers of the resizer tests: images whose planes sit right before a guard
// page with sentinel-filled padding between rows, a work-area environment,
// and slow reference models of the resize, one output at a time (no row
// cache, phases or incremental positions).
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "image/pvx_image.h"
#include "resample/pvx_imageproc2.h"
#include "runtime/pvx_heap2.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/guarded_image.h"
#include "tests/support/test_env.h"
#include "tests/support/test_random.h"

namespace rt {

using pvx_test::GuardedBuffer;

using pvx_test::TestEnv;

// A resizer on a work area of its own.
struct Resizer {
    explicit Resizer(size_t heap = 4u << 20) : env(heap) { EXPECT_EQ(pvx_construct_ImageProc2(&proc, env.env()), PVX_OK); }
    ~Resizer() { pvx_destruct_ImageProc2(&proc); }
    TestEnv env;
    pvx_ImageProc2 proc;
};

// An external image with each plane in its own guarded buffer: the last row
// of a plane ends at the guard page, rows are `pad` bytes longer than their
// pixels, and the padding holds a sentinel.
struct TestImage : pvx_test::GuardedImage {
    TestImage(int32_t w, int32_t h, int32_t format, int32_t pad = 0)
        : GuardedImage(w, h, format, pad, 0, GuardedImage::Pitch::Extent) {}
    bool sentinelsIntact() const { return guardsIntact(true); }
};

// ---- Reference models -------------------------------------------------

enum Kind { U8, U16, I32, U88, RGB };

struct KindInfo {
    Kind kind;
    int32_t format;
    int32_t channels;
    int32_t bytes;   // per sample
    const char *name;
};

inline const KindInfo &info(Kind k) {
    static const KindInfo table[] = {
        {U8, PVX_FORMAT_UINT8, 1, 1, "UINT8"},    {U16, PVX_FORMAT_UINT16, 1, 2, "UINT16"},
        {I32, PVX_FORMAT_INT32, 1, 4, "INT32"},   {U88, PVX_FORMAT_UINT88, 2, 1, "UINT88"},
        {RGB, PVX_FORMAT_RGB888, 3, 1, "RGB888"},
    };
    return table[k];
}

// Samples of plane 0 (w * h * channels values), from and to bytes.
inline std::vector<int64_t> samples(Kind k, const std::vector<uint8_t> &bytes) {
    const KindInfo &ki = info(k);
    std::vector<int64_t> out(bytes.size() / ki.bytes);
    for (size_t i = 0; i < out.size(); ++i) {
        if (ki.bytes == 1) out[i] = bytes[i];
        if (ki.bytes == 2) { uint16_t v; memcpy(&v, &bytes[2 * i], 2); out[i] = v; }
        if (ki.bytes == 4) { int32_t v; memcpy(&v, &bytes[4 * i], 4); out[i] = v; }
    }
    return out;
}

inline int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }
inline int64_t floorMod(int64_t a, int64_t b) { return a - floorDiv(a, b) * b; }

// Counts of model events worth knowing about (for the coverage of a sweep).
struct ModelStats {
    int64_t groupOutputs = 0;      // outputs made by 7-bit horizontal groups
    int64_t lastTapAtEnd = 0;      // group lanes whose right tap would be pixel sw (weight 0)
    int64_t badLanes = 0;          // lanes that would need a pixel outside the row with weight > 0
};

// Horizontal resample of one row of sw pixels into dw outputs (intermediate samples).
inline std::vector<int64_t> modelRow(Kind k, const int64_t *s, int32_t sw, int32_t dw, ModelStats *stats) {
    const int32_t C = info(k).channels;
    const int64_t step = static_cast<int64_t>(sw) * 32768 / dw;
    const int64_t x0 = (static_cast<int64_t>(sw) - dw) * 32768 / (2 * static_cast<int64_t>(dw));
    const int64_t end = (static_cast<int64_t>(sw) - 1) * 32768;
    std::vector<int64_t> out(static_cast<size_t>(dw) * C);
    auto px = [&](int64_t i, int c) { return s[i * C + c]; };

    if (k == U88) {
        const int64_t xs = x0 >= 32768 ? x0 / 32768 * 32768 : 0;
        for (int32_t j = 0; j < dw; ++j) {
            const int64_t x = xs + j * step;
            for (int c = 0; c < C; ++c) {
                if (x < end) {
                    const int64_t i = x / 32768, f = x % 32768;
                    out[j * C + c] = (px(i, c) * (32768 - f) + px(i + 1, c) * f + 512) / 1024;
                } else {
                    out[j * C + c] = px(sw - 1, c) * 32;
                }
            }
        }
        return out;
    }

    const int64_t maxv = k == U16 ? 65535 : 255;
    // Group starts: from the first output at or right of pixel 0's centre,
    // 8 at a time while the start is below safe (enlarging only).
    std::vector<int32_t> groupStart(dw, -1);
    if (k != I32 && dw >= sw) {
        const int64_t safe = static_cast<int64_t>(dw) - (step > 0 ? 262144 / step : dw);
        int32_t g = 0;
        while (g < dw && x0 + g * step < 0) ++g;
        for (; g < safe; g += 8) {
            EXPECT_LE(g + 8, dw) << "an 8-wide group below safe runs past the row";
            for (int32_t k2 = 0; k2 < 8 && g + k2 < dw; ++k2) groupStart[g + k2] = g;
        }
    }
    for (int32_t j = 0; j < dw; ++j) {
        const int64_t x = x0 + j * step;
        for (int c = 0; c < C; ++c) {
            int64_t v;
            if (x < 0) {
                v = px(0, c);
            } else if (groupStart[j] >= 0) {
                const int64_t xg = x0 + groupStart[j] * step;
                const int64_t lane = j - groupStart[j];
                const int64_t o = (xg % 32768) / 256 + (128 + lane * step) / 256;
                const int64_t i = xg / 32768 + o / 128, w = o % 128;
                EXPECT_LT(i, sw);
                int64_t b = 0;
                if (i + 1 < sw) {
                    b = px(i + 1, c);
                } else if (c == 0) {
                    if (w == 0) ++stats->lastTapAtEnd; else ++stats->badLanes;
                }
                v = std::min<int64_t>((px(i, c) * (128 - w) + b * w + 64) / 128, maxv);
                if (c == 0) ++stats->groupOutputs;
            } else if (x < end) {
                const int64_t i = x / 32768, f = x % 32768;
                v = floorDiv(px(i, c) * (32768 - f) + px(i + 1, c) * f + 16384, 32768);
            } else {
                v = px(sw - 1, c);
            }
            out[j * C + c] = v;
        }
    }
    return out;
}

// Whole bilinear resize of samples (sw x sh) to dw x dh.
inline std::vector<int64_t> modelBilinear(Kind k, const std::vector<int64_t> &src, int32_t sw, int32_t sh,
                                          int32_t dw, int32_t dh, ModelStats *stats = nullptr) {
    ModelStats local;
    if (!stats) stats = &local;
    const int32_t C = info(k).channels;
    std::vector<int64_t> out(static_cast<size_t>(dw) * dh * C);
    for (int32_t y = 0; y < dh; ++y) {
        const int64_t ys = ((2 * static_cast<int64_t>(y) + 1) * sh - dh) * 32768 / (2 * static_cast<int64_t>(dh));
        int64_t y0 = ys < 0 ? 0 : ys / 32768;
        int64_t y1 = ys < -32768 ? 0 : floorDiv(ys, 32768) + 1;
        y0 = std::min<int64_t>(y0, sh - 1);
        y1 = std::min<int64_t>(y1, sh - 1);
        const int64_t f = floorMod(ys, 32768);
        const std::vector<int64_t> up = modelRow(k, &src[y0 * sw * C], sw, dw, stats);
        const std::vector<int64_t> lo = modelRow(k, &src[y1 * sw * C], sw, dw, stats);
        for (int32_t j = 0; j < dw; ++j) {
            for (int c = 0; c < C; ++c) {
                const int64_t u = up[j * C + c], l = lo[j * C + c];
                int64_t v;
                if (k == U88) {
                    const int64_t w = (f + 1) / 2;
                    v = std::min<int64_t>(((u * (16384 - w)) / 32768 + (l * w) / 32768 + 8) / 16, 255);
                } else if ((k == U8 || k == RGB) && j < dw - dw % 8) {
                    const int64_t w = (f + 128) / 256;
                    v = std::min<int64_t>((u * (128 - w) + l * w + 64) / 128, 255);
                } else {
                    v = floorDiv(u * (32768 - f) + l * f + 16384, 32768);
                }
                out[(static_cast<size_t>(y) * dw + j) * C + c] = v;
            }
        }
    }
    return out;
}

// 2:1 box shrink of samples.
inline std::vector<int64_t> modelBox(Kind k, const std::vector<int64_t> &src, int32_t sw, int32_t sh, int32_t dw,
                                     int32_t dh) {
    const int32_t C = info(k).channels;
    std::vector<int64_t> out(static_cast<size_t>(dw) * dh * C);
    auto px = [&](int64_t r, int64_t i, int c) { return src[(r * sw + i) * C + c]; };
    const int32_t e = dw - (sw >> 1);
    for (int32_t y = 0; y < dh; ++y) {
        const int64_t r0 = std::min(2 * y, sh - 1), r1 = std::min(2 * y + 1, sh - 1);
        for (int32_t x = 0; x < dw; ++x) {
            for (int c = 0; c < C; ++c) {
                int64_t v;
                if (x < dw - std::max(e, 0)) {
                    v = floorDiv(px(r0, 2 * x, c) + px(r0, 2 * x + 1, c) + px(r1, 2 * x, c) + px(r1, 2 * x + 1, c) + 2, 4);
                } else {
                    v = floorDiv(px(r0, sw - 1, c) + px(r1, sw - 1, c) + 1, 2);
                }
                out[(static_cast<size_t>(y) * dw + x) * C + c] = v;
            }
        }
    }
    return out;
}

// Index of the first difference, or -1.
inline int64_t firstDiff(const std::vector<int64_t> &a, const std::vector<int64_t> &b) {
    if (a.size() != b.size()) return 0;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i]) return static_cast<int64_t>(i);
    return -1;
}

}  // namespace rt
