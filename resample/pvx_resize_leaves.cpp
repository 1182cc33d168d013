// C references of the resizer's leaves, and the filling of a leaf table
// for the running processor.
#include "resample/pvx_resize_leaves.h"

#include <stddef.h>

#include "runtime/pvx_cpu.h"

namespace {

template <int C>
void groups7(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    for (int32_t g = 0; g < groups; ++g) {
        const int64_t xg = x + 8 * static_cast<int64_t>(g) * step;
        const uint8_t *row = src + C * (xg >> 15);
        const int32_t fo = static_cast<int32_t>(xg & 32767) >> 8;
        for (int32_t k = 0; k < 8; ++k) {
            const int32_t o = fo + ((128 + k * step) >> 8);
            const uint32_t w = static_cast<uint32_t>(o & 127);
            const uint8_t *p = row + C * (o >> 7);
            for (int c = 0; c < C; ++c)
                *out++ = static_cast<uint8_t>((p[c] * (128 - w) + p[C + c] * w + 64) >> 7);
        }
    }
}

void groups88(uint16_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    for (int64_t j = 0; j < 8 * static_cast<int64_t>(groups); ++j) {
        const int64_t p = x + j * step;
        const uint8_t *s = src + 2 * (p >> 15);
        const uint32_t f = static_cast<uint32_t>(p & 32767);
        out[2 * j] = static_cast<uint16_t>((s[0] * (32768 - f) + s[2] * f + 512) >> 10);
        out[2 * j + 1] = static_cast<uint16_t>((s[1] * (32768 - f) + s[3] * f + 512) >> 10);
    }
}

// At most 255 * 128 + 64 >> 7 = 255: no saturation needed.
void blend7(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t groups, int32_t w) {
    const uint32_t wa = static_cast<uint32_t>(128 - w), wb = static_cast<uint32_t>(w);
    for (int64_t j = 0; j < 8 * groups; ++j) dst[j] = static_cast<uint8_t>((upper[j] * wa + lower[j] * wb + 64) >> 7);
}

void blend88(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t groups, uint32_t w) {
    for (int64_t j = 0; j < 8 * groups; ++j) {
        const uint32_t v = (((upper[j] * (16384 - w)) >> 15) + ((lower[j] * w) >> 15) + 8) >> 4;
        dst[j] = static_cast<uint8_t>(v > 255 ? 255 : v);
    }
}

const pvx_ResizeLeaves kReference = {groups7<1>, groups7<3>, groups88, blend7, blend88};

}  // namespace

const pvx_ResizeLeaves *pvx_ImageProc2_referenceLeaves(void) { return &kReference; }

void pvx_ImageProc2_initLeavesC(pvx_ResizeLeaves *leaves) {
    *leaves = kReference;
}

void pvx_ImageProc2_fillLeaves(pvx_ResizeLeaves *leaves) {
    pvx_ImageProc2_initLeavesC(leaves);
    const uint32_t flags = pvx_Cpu_flags();
    (void)flags;
#if defined(__x86_64__) || defined(__i386__)
    if (flags & PVX_CPU_SSSE3) pvx_ImageProc2_initLeavesSsse3(leaves);
    if (flags & PVX_CPU_AVX2) pvx_ImageProc2_initLeavesAvx2(leaves);
#endif
#if defined(__ARM_NEON)
    if (flags & PVX_CPU_NEON) pvx_ImageProc2_initLeavesNeon(leaves);
#endif
}
