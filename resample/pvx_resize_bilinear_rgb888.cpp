// "RGB888" bilinear member: the "UINT8" member on three interleaved
// channels. Intermediate lines hold 3-byte pixels; the 8-output groups (of
// pixels) use 7-bit weights, horizontally when enlarging and vertically for
// the first dw - dw % 8 pixels of a row; the rest uses the 15-bit formula
// per channel.
#include "resample/pvx_resize_internal.h"

namespace {

inline uint8_t sat8(int32_t v) { return static_cast<uint8_t>(v > 255 ? 255 : v); }

inline void copyPixel(uint8_t *d, const uint8_t *s) {
    d[0] = s[0];
    d[1] = s[1];
    d[2] = s[2];
}

}  // namespace

void pvx_ImageProc2_Rgb888_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t safe) {
    uint8_t *out = static_cast<uint8_t *>(line);
    const int64_t last = sw - 1;
    int32_t j = 0;
    int64_t x = x0;

    while (j < dw && x < 0) {
        copyPixel(out + 3 * static_cast<ptrdiff_t>(j++), src);
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
                const int32_t w = o & 127;
                int64_t i0 = base + (o >> 7);
                int64_t i1 = i0 + 1;   // clamped as in the "UINT8" member (weight 0 there)
                if (i0 > last) i0 = last;
                if (i1 > last) i1 = last;
                const uint8_t *a = src + 3 * i0;
                const uint8_t *b = src + 3 * i1;
                uint8_t *d = out + 3 * (static_cast<ptrdiff_t>(j) + k);
                for (int32_t c = 0; c < 3; ++c) d[c] = sat8((a[c] * (128 - w) + b[c] * w + 64) >> 7);
            }
            base += (frac + 8 * step) >> 15;
            x += 8 * step;
            j += 8;
        }
    }

    const int64_t end = last * 32768;
    while (j < dw && x < end) {
        const uint8_t *p = src + 3 * (x >> 15);
        const int32_t f = static_cast<int32_t>(x & 32767);
        uint8_t *d = out + 3 * static_cast<ptrdiff_t>(j++);
        for (int32_t c = 0; c < 3; ++c) d[c] = static_cast<uint8_t>((p[c] * (32768 - f) + p[c + 3] * f + 16384) >> 15);
        x += step;
    }

    const uint8_t *edge = src + 3 * last;
    for (; j < dw; ++j) copyPixel(out + 3 * static_cast<ptrdiff_t>(j), edge);
}

void pvx_ImageProc2_Rgb888_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f) {
    const uint8_t *a = static_cast<const uint8_t *>(upper);
    const uint8_t *b = static_cast<const uint8_t *>(lower);
    const int64_t grouped = 3 * static_cast<int64_t>(dw - dw % 8);
    const int64_t bytes = 3 * static_cast<int64_t>(dw);
    const int32_t w = (f + 128) >> 8;
    int64_t j = 0;
    for (; j < grouped; ++j) dst[j] = sat8((a[j] * (128 - w) + b[j] * w + 64) >> 7);
    for (; j < bytes; ++j) dst[j] = static_cast<uint8_t>((a[j] * (32768 - f) + b[j] * f + 16384) >> 15);
}
