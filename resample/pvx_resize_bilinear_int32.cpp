// "INT32" bilinear member: 64-bit intermediate samples and the 15-bit
// formula computed in 64 bits, both horizontally (edges, middle) and
// vertically. There are no 7-bit groups: the weights keep the full Q15
// fraction for 32-bit samples.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

inline int64_t load32(const uint8_t *row, int64_t i) {
    int32_t v;
    memcpy(&v, row + 4 * i, 4);
    return v;
}

// Arithmetic right shift of the signed sum (floor), as the vector code does.
inline int64_t lerp15(int64_t a, int64_t b, int64_t f) { return (a * (32768 - f) + b * f + 16384) >> 15; }

}  // namespace

void pvx_ImageProc2_Int32_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                      int64_t step, int32_t /*safe*/, const pvx_ResizeLeaves * /*leaves*/) {
    int64_t *out = static_cast<int64_t *>(line);
    const int64_t last = sw - 1;
    int32_t j = 0;
    int64_t x = x0;

    const int64_t first = load32(src, 0);
    while (j < dw && x < 0) {
        out[j++] = first;
        x += step;
    }

    const int64_t end = last * 32768;
    while (j < dw && x < end) {
        const int64_t i = x >> 15;
        out[j++] = lerp15(load32(src, i), load32(src, i + 1), x & 32767);
        x += step;
    }

    const int64_t edge = load32(src, last);
    while (j < dw) out[j++] = edge;
}

void pvx_ImageProc2_Int32_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                    const pvx_ResizeLeaves * /*leaves*/) {
    const int64_t *a = static_cast<const int64_t *>(upper);
    const int64_t *b = static_cast<const int64_t *>(lower);
    for (int32_t j = 0; j < dw; ++j) {
        // A blend of two int32 values stays between them.
        const int32_t v = static_cast<int32_t>(lerp15(a[j], b[j], f));
        memcpy(dst + 4 * static_cast<ptrdiff_t>(j), &v, 4);
    }
}
