// "UINT88" bilinear member: two interleaved 8-bit channels, positions
// counted in two-byte pixels. The resampler starts at the whole part of x0
// (0 when x0 < 32768), so it has no left-edge phase, and fills 16-bit
// samples carrying 5 fraction bits (pixel value x 32). The vertical blend
// works on a 16384 scale with one precision for every byte.
#include "resample/pvx_resize_internal.h"

void pvx_ImageProc2_Uint88_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t /*safe*/, const pvx_ResizeLeaves *leaves) {
    uint16_t *out = static_cast<uint16_t *>(line);
    const int64_t last = sw - 1;
    int64_t x = x0 >= 32768 ? (x0 >> 15) * 32768 : 0;
    int32_t j = 0;

    const int64_t end = last * 32768;
    // Groups of 8 while all 8 positions lie before the last pixel: group g
    // qualifies while x + (8 g + 7) step < end.
    if (step > 0 && step < 65536 && x + 7 * step < end) {
        int64_t groups = (end - x - 7 * step + 8 * step - 1) / (8 * step);
        if (groups > dw / 8) groups = dw / 8;
        pvx_ImageProc2_runGroups88(leaves->uint88Groups, out, src, sw, static_cast<int32_t>(groups), x,
                                   static_cast<int32_t>(step));
        j = static_cast<int32_t>(8 * groups);
        x += j * step;
    }
    while (j < dw && x < end) {
        const uint8_t *p = src + 2 * (x >> 15);
        const uint32_t f = static_cast<uint32_t>(x & 32767);
        // Q15 blend scaled down to x32, rounded: at most 255 * 32.
        out[2 * j] = static_cast<uint16_t>((p[0] * (32768 - f) + p[2] * f + 512) >> 10);
        out[2 * j + 1] = static_cast<uint16_t>((p[1] * (32768 - f) + p[3] * f + 512) >> 10);
        x += step;
        ++j;
    }

    const uint16_t e0 = static_cast<uint16_t>(src[2 * last] * 32);
    const uint16_t e1 = static_cast<uint16_t>(src[2 * last + 1] * 32);
    for (; j < dw; ++j) {
        out[2 * j] = e0;
        out[2 * j + 1] = e1;
    }
}

void pvx_ImageProc2_Uint88_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves) {
    const uint16_t *a = static_cast<const uint16_t *>(upper);
    const uint16_t *b = static_cast<const uint16_t *>(lower);
    const uint32_t w = static_cast<uint32_t>(f + 1) >> 1;
    const int64_t bytes = 2 * static_cast<int64_t>(dw);
    leaves->blend88(dst, a, b, bytes / 8, w);
    int64_t j = bytes - bytes % 8;
    for (; j < bytes; ++j) {
        const uint32_t v = (((a[j] * (16384 - w)) >> 15) + ((b[j] * w) >> 15) + 8) >> 4;
        dst[j] = static_cast<uint8_t>(v > 255 ? 255 : v);
    }
}
