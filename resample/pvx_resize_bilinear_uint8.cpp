// "UINT8" bilinear member: horizontal resampler and vertical blend.
//
// The resampler runs four phases along the row: the left edge (positions
// before pixel 0's centre copy pixel 0), 8-output groups with 7-bit weights
// (enlarging only, while the outputs are below `safe`), the 15-bit middle,
// and the right edge (copies of the last pixel). The groups are written as
// the vector code computes them, lane by lane.
#include "resample/pvx_resize_internal.h"

namespace {

inline uint8_t sat8(int32_t v) { return static_cast<uint8_t>(v > 255 ? 255 : v); }

}  // namespace

void pvx_ImageProc2_Uint8_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                      int64_t step, int32_t safe) {
    uint8_t *out = static_cast<uint8_t *>(line);
    const int64_t last = sw - 1;
    int32_t j = 0;
    int64_t x = x0;

    while (j < dw && x < 0) {
        out[j++] = src[0];
        x += step;
    }

    if (dw >= sw) {
        // step <= 32768 here, so every lane offset fits 16 bits.
        const int32_t step32 = static_cast<int32_t>(step);
        int64_t base = x >> 15;
        while (j < safe && dw - j >= 8) {
            const int32_t frac = static_cast<int32_t>(x & 32767);
            const int32_t fo = frac >> 8;
            for (int32_t k = 0; k < 8; ++k) {
                const int32_t o = fo + ((128 + k * step32) >> 8);
                const int32_t w = o & 127;
                int64_t i0 = base + (o >> 7);
                // The last lane can land exactly on the last pixel with weight 0;
                // its right tap is then not needed, so clamp it into the row.
                int64_t i1 = i0 + 1;
                if (i0 > last) i0 = last;
                if (i1 > last) i1 = last;
                out[j + k] = sat8((src[i0] * (128 - w) + src[i1] * w + 64) >> 7);
            }
            base += (frac + 8 * step) >> 15;
            x += 8 * step;
            j += 8;
        }
    }

    const int64_t end = last * 32768;
    while (j < dw && x < end) {
        const int64_t i = x >> 15;
        const int32_t f = static_cast<int32_t>(x & 32767);
        out[j++] = static_cast<uint8_t>((src[i] * (32768 - f) + src[i + 1] * f + 16384) >> 15);
        x += step;
    }

    const uint8_t edge = src[last];
    while (j < dw) out[j++] = edge;
}

void pvx_ImageProc2_Uint8_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f) {
    const uint8_t *a = static_cast<const uint8_t *>(upper);
    const uint8_t *b = static_cast<const uint8_t *>(lower);
    const int32_t grouped = dw - dw % 8;
    const int32_t w = (f + 128) >> 8;
    int32_t j = 0;
    for (; j < grouped; ++j) dst[j] = sat8((a[j] * (128 - w) + b[j] * w + 64) >> 7);
    for (; j < dw; ++j) dst[j] = static_cast<uint8_t>((a[j] * (32768 - f) + b[j] * f + 16384) >> 15);
}
