// 2:1 box shrink rows of every member. Output x of the leading part averages
// the 2x2 block at source columns 2x, 2x+1 of the row pair with rounding,
// (a + b + c + d + 2) >> 2 (the vector form's (s >> 2) + ((s >> 1) & 1) is
// the same value). When the destination is wider than sw >> 1 the outputs
// past the whole blocks take the two-row average of the last source column.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

// Interleaved 8-bit channels (UINT8, UINT88, RGB888).
template <int C>
void shrinkRow8(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t sw, int32_t dw) {
    const int32_t blocks = pvx_ImageProc2_halfBlocks(sw, dw);
    int32_t x = 0;
    for (; x < blocks; ++x) {
        const ptrdiff_t s = 2 * C * static_cast<ptrdiff_t>(x);
        uint8_t *d = dst + C * static_cast<ptrdiff_t>(x);
        for (int c = 0; c < C; ++c) d[c] = static_cast<uint8_t>((r0[s + c] + r0[s + C + c] + r1[s + c] + r1[s + C + c] + 2) >> 2);
    }
    const ptrdiff_t e = C * (static_cast<ptrdiff_t>(sw) - 1);
    for (; x < dw; ++x) {
        uint8_t *d = dst + C * static_cast<ptrdiff_t>(x);
        for (int c = 0; c < C; ++c) d[c] = static_cast<uint8_t>((r0[e + c] + r1[e + c] + 1) >> 1);
    }
}

inline uint32_t load16(const uint8_t *row, ptrdiff_t i) {
    uint16_t v;
    memcpy(&v, row + 2 * i, 2);
    return v;
}

inline int64_t load32(const uint8_t *row, ptrdiff_t i) {
    int32_t v;
    memcpy(&v, row + 4 * i, 4);
    return v;
}

}  // namespace

void pvx_ImageProc2_Uint8_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw, int32_t dw) {
    shrinkRow8<1>(dst, row0, row1, sw, dw);
}

void pvx_ImageProc2_Uint88_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw) {
    shrinkRow8<2>(dst, row0, row1, sw, dw);
}

void pvx_ImageProc2_Rgb888_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw) {
    shrinkRow8<3>(dst, row0, row1, sw, dw);
}

void pvx_ImageProc2_Uint16_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw) {
    const int32_t blocks = pvx_ImageProc2_halfBlocks(sw, dw);
    int32_t x = 0;
    for (; x < blocks; ++x) {
        const ptrdiff_t s = 2 * static_cast<ptrdiff_t>(x);
        const uint16_t v = static_cast<uint16_t>(
            (load16(row0, s) + load16(row0, s + 1) + load16(row1, s) + load16(row1, s + 1) + 2) >> 2);
        memcpy(dst + 2 * static_cast<ptrdiff_t>(x), &v, 2);
    }
    const ptrdiff_t e = static_cast<ptrdiff_t>(sw) - 1;
    for (; x < dw; ++x) {
        const uint16_t v = static_cast<uint16_t>((load16(row0, e) + load16(row1, e) + 1) >> 1);
        memcpy(dst + 2 * static_cast<ptrdiff_t>(x), &v, 2);
    }
}

void pvx_ImageProc2_Int32_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw, int32_t dw) {
    const int32_t blocks = pvx_ImageProc2_halfBlocks(sw, dw);
    int32_t x = 0;
    // Sums in 64 bits; the arithmetic shift floors, and the result lies
    // between the smallest and largest of the averaged values.
    for (; x < blocks; ++x) {
        const ptrdiff_t s = 2 * static_cast<ptrdiff_t>(x);
        const int32_t v = static_cast<int32_t>(
            (load32(row0, s) + load32(row0, s + 1) + load32(row1, s) + load32(row1, s + 1) + 2) >> 2);
        memcpy(dst + 4 * static_cast<ptrdiff_t>(x), &v, 4);
    }
    const ptrdiff_t e = static_cast<ptrdiff_t>(sw) - 1;
    for (; x < dw; ++x) {
        const int32_t v = static_cast<int32_t>((load32(row0, e) + load32(row1, e) + 1) >> 1);
        memcpy(dst + 4 * static_cast<ptrdiff_t>(x), &v, 4);
    }
}
