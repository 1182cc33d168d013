// "UINT16" bilinear member: the "UINT8" resampler on 16-bit samples (same
// phases and 7-bit groups), with a vertical blend that uses the 15-bit
// formula for every pixel.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

// Image rows need not be 2-byte aligned: load and store through memcpy.
inline uint32_t load16(const uint8_t *row, int64_t i) {
    uint16_t v;
    memcpy(&v, row + 2 * i, 2);
    return v;
}

inline void store16(uint8_t *row, int32_t i, uint32_t v) {
    const uint16_t s = static_cast<uint16_t>(v);
    memcpy(row + 2 * static_cast<ptrdiff_t>(i), &s, 2);
}

inline uint16_t sat16(uint32_t v) { return static_cast<uint16_t>(v > 65535 ? 65535 : v); }

}  // namespace

void pvx_ImageProc2_Uint16_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t safe) {
    uint16_t *out = static_cast<uint16_t *>(line);
    const int64_t last = sw - 1;
    int32_t j = 0;
    int64_t x = x0;

    const uint16_t first = static_cast<uint16_t>(load16(src, 0));
    while (j < dw && x < 0) {
        out[j++] = first;
        x += step;
    }

    if (dw >= sw) {
        const int32_t step32 = static_cast<int32_t>(step);
        int64_t base = x >> 15;
        while (j < safe && dw - j >= 8) {
            const int32_t frac = static_cast<int32_t>(x & 32767);
            const int32_t fo = frac >> 8;
            for (int32_t k = 0; k < 8; ++k) {
                const int32_t o = fo + ((128 + k * step32) >> 8);
                const uint32_t w = static_cast<uint32_t>(o & 127);
                int64_t i0 = base + (o >> 7);
                int64_t i1 = i0 + 1;   // clamped as in the "UINT8" member (weight 0 there)
                if (i0 > last) i0 = last;
                if (i1 > last) i1 = last;
                out[j + k] = sat16((load16(src, i0) * (128 - w) + load16(src, i1) * w + 64) >> 7);
            }
            base += (frac + 8 * step) >> 15;
            x += 8 * step;
            j += 8;
        }
    }

    const int64_t end = last * 32768;
    while (j < dw && x < end) {
        const int64_t i = x >> 15;
        const uint32_t f = static_cast<uint32_t>(x & 32767);
        // At most 65535 * 32768 + 16384: fits 32 unsigned bits.
        out[j++] = static_cast<uint16_t>((load16(src, i) * (32768 - f) + load16(src, i + 1) * f + 16384) >> 15);
        x += step;
    }

    const uint16_t edge = static_cast<uint16_t>(load16(src, last));
    while (j < dw) out[j++] = edge;
}

void pvx_ImageProc2_Uint16_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f) {
    const uint16_t *a = static_cast<const uint16_t *>(upper);
    const uint16_t *b = static_cast<const uint16_t *>(lower);
    const uint32_t uf = static_cast<uint32_t>(f);
    for (int32_t j = 0; j < dw; ++j) store16(dst, j, (a[j] * (32768 - uf) + b[j] * uf + 16384) >> 15);
}
