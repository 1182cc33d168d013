// Row functions of the "UINT8", "UINT16" and "RGB888" bilinear members: one
// resampler and one vertical blend over the sample type and the channel
// count (channels of a pixel are weighted alike). The 7-bit groups of the
// 8-bit members are the resizer's leaves.
//
// The resampler runs four phases along the row: the left edge (positions
// before pixel 0's centre copy pixel 0), 8-output groups with 7-bit weights
// (enlarging only, while the outputs are below `safe`), the 15-bit middle,
// and the right edge (copies of the last pixel).
//
// The vertical blend of the 8-bit members uses 7-bit weights for the first
// dw - dw % 8 pixels and the 15-bit formula for the rest; "UINT16" uses the
// 15-bit formula for every pixel.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

// Image rows need not be aligned to the sample size: load and store through memcpy.
template <class T>
inline uint32_t load(const uint8_t *row, int64_t i) {
    T v;
    memcpy(&v, row + static_cast<int64_t>(sizeof(T)) * i, sizeof(T));
    return v;
}
template <class T>
inline void store(uint8_t *row, int64_t i, uint32_t v) {
    const T s = static_cast<T>(v);
    memcpy(row + static_cast<int64_t>(sizeof(T)) * i, &s, sizeof(T));
}

template <class T>
constexpr uint32_t kMaxSample = static_cast<T>(~static_cast<T>(0));

// Sample c of pixel i of a row.
template <class T, int C>
inline uint32_t sample(const uint8_t *row, int64_t i, int c) {
    return load<T>(row, i * C + c);
}

template <class T, int C>
inline void copyPixel(T *out, int32_t j, const uint8_t *row, int64_t i) {
    for (int c = 0; c < C; ++c) out[static_cast<ptrdiff_t>(j) * C + c] = static_cast<T>(sample<T, C>(row, i, c));
}

// Number of 8-output groups from output j: while j < safe and 8 outputs remain.
inline int32_t groupCount(int32_t j, int32_t dw, int32_t safe) {
    if (j >= safe || dw - j < 8) return 0;
    const int32_t bySafe = (safe - j + 7) / 8, byWidth = (dw - j) / 8;
    return bySafe < byWidth ? bySafe : byWidth;
}

// 7-bit groups of samples wider than a byte ("UINT16"), taps clamped to
// the last pixel; the 8-bit members use their leaves instead.
template <class T, int C>
void wideGroups7(T *out, const uint8_t *src, int64_t last, int32_t groups, int64_t x, int32_t step) {
    for (int32_t g = 0; g < groups; ++g) {
        const int64_t xg = x + 8 * static_cast<int64_t>(g) * step;
        const int32_t fo = static_cast<int32_t>(xg & 32767) >> 8;
        for (int32_t k = 0; k < 8; ++k) {
            const int32_t o = fo + ((128 + k * step) >> 8);
            const uint32_t w = static_cast<uint32_t>(o & 127);
            const int64_t i0 = (xg >> 15) + (o >> 7);
            const int64_t a = i0 < last ? i0 : last, b = i0 + 1 < last ? i0 + 1 : last;
            for (int c = 0; c < C; ++c) {
                const uint32_t v = (sample<T, C>(src, a, c) * (128 - w) + sample<T, C>(src, b, c) * w + 64) >> 7;
                *out++ = static_cast<T>(v > kMaxSample<T> ? kMaxSample<T> : v);
            }
        }
    }
}

template <class T, int C>
void resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0, int64_t step, int32_t safe,
                 pvx_ResizeGroupsFn groups7) {
    T *out = static_cast<T *>(line);
    const int64_t last = sw - 1;
    int32_t j = 0;
    int64_t x = x0;

    while (j < dw && x < 0) {
        copyPixel<T, C>(out, j++, src, 0);
        x += step;
    }

    // Enlarging only: 0 < step <= 32768, so every lane offset fits 16 bits.
    if (dw >= sw && step > 0) {
        const int32_t groups = groupCount(j, dw, safe);
        if (groups7 != nullptr && groups > 0)
            pvx_ImageProc2_runGroups7(groups7, C, reinterpret_cast<uint8_t *>(out + static_cast<ptrdiff_t>(j) * C),
                                      src, sw, groups, x, static_cast<int32_t>(step));
        else if (groups > 0)
            wideGroups7<T, C>(out + static_cast<ptrdiff_t>(j) * C, src, last, groups, x, static_cast<int32_t>(step));
        j += 8 * groups;
        x += 8 * groups * step;
    }

    const int64_t end = last * 32768;
    while (j < dw && x < end) {
        const int64_t i = x >> 15;
        const uint32_t f = static_cast<uint32_t>(x & 32767);
        // At most 65535 * 32768 + 16384: fits 32 unsigned bits.
        for (int c = 0; c < C; ++c)
            out[static_cast<ptrdiff_t>(j) * C + c] =
                static_cast<T>((sample<T, C>(src, i, c) * (32768 - f) + sample<T, C>(src, i + 1, c) * f + 16384) >> 15);
        ++j;
        x += step;
    }

    for (; j < dw; ++j) copyPixel<T, C>(out, j, src, last);
}

template <class T, int C, bool Grouped>
void blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f, pvx_ResizeBlend7Fn blend7) {
    const T *a = static_cast<const T *>(upper);
    const T *b = static_cast<const T *>(lower);
    const int64_t count = C * static_cast<int64_t>(dw);
    int64_t j = 0;
    if (Grouped) {
        // C * (dw - dw % 8) samples: whole groups of 8.
        const int64_t groups = C * static_cast<int64_t>(dw / 8);
        blend7(dst, reinterpret_cast<const uint8_t *>(a), reinterpret_cast<const uint8_t *>(b), groups, (f + 128) >> 8);
        j = 8 * groups;
    }
    const uint32_t uf = static_cast<uint32_t>(f);
    for (; j < count; ++j) store<T>(dst, j, (a[j] * (32768 - uf) + b[j] * uf + 16384) >> 15);
}

}  // namespace

void pvx_ImageProc2_Uint8_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0, int64_t step,
                                      int32_t safe, const pvx_ResizeLeaves *leaves) {
    resampleRow<uint8_t, 1>(line, src, sw, dw, x0, step, safe, leaves->uint8Groups);
}
void pvx_ImageProc2_Uint8_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                    const pvx_ResizeLeaves *leaves) {
    blendRows<uint8_t, 1, true>(dst, upper, lower, dw, f, leaves->blend7);
}

// "UINT16" has no 7-bit groups: the 15-bit middle and blend throughout.
void pvx_ImageProc2_Uint16_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0, int64_t step,
                                       int32_t safe, const pvx_ResizeLeaves * /*leaves*/) {
    resampleRow<uint16_t, 1>(line, src, sw, dw, x0, step, safe, nullptr);
}
void pvx_ImageProc2_Uint16_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves * /*leaves*/) {
    blendRows<uint16_t, 1, false>(dst, upper, lower, dw, f, nullptr);
}

void pvx_ImageProc2_Rgb888_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0, int64_t step,
                                       int32_t safe, const pvx_ResizeLeaves *leaves) {
    resampleRow<uint8_t, 3>(line, src, sw, dw, x0, step, safe, leaves->rgb888Groups);
}
void pvx_ImageProc2_Rgb888_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves) {
    blendRows<uint8_t, 3, true>(dst, upper, lower, dw, f, leaves->blend7);
}
