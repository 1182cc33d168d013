// The shared loop around the horizontal leaves: which groups of a row read
// the row in place and which read a padded copy of its end.
//
// A leaf may read PVX_RESIZE_LEAF_REACH bytes from each group's base pixel.
// Groups whose reach fits the row get the row itself, in one call; the few
// near the row's end get a block holding the pixels from their base on,
// with the last pixel repeated past the row's end. Taps past the last pixel
// stand for the last pixel in the resampler, so the copy gives the same
// bytes as the row would.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

// Calls run(base, firstGroup, count, x) for the groups of the row, where
// `base` points at the row or at a padded copy and x is group firstGroup's
// position relative to `base`.
template <class Run>
void runOverRow(const uint8_t *src, int32_t sw, int32_t pixelBytes, int32_t groups, int64_t x, int64_t step,
                Run run) {
    const int64_t rowBytes = static_cast<int64_t>(sw) * pixelBytes;
    const int64_t last = static_cast<int64_t>(sw) - 1;
    const int64_t groupStep = 8 * step;
    int32_t g = 0;
    if (rowBytes >= PVX_RESIZE_LEAF_REACH) {
        // Group g is in place while its base pixel is at most maxBase:
        // x + g * groupStep < (maxBase + 1) * 32768.
        const int64_t maxBase = (rowBytes - PVX_RESIZE_LEAF_REACH) / pixelBytes;
        const int64_t room = (maxBase + 1) * 32768 - x;
        int64_t inPlace = room <= 0 ? 0 : (room + groupStep - 1) / groupStep;
        if (inPlace > groups) inPlace = groups;
        if (inPlace > 0) run(src, 0, static_cast<int32_t>(inPlace), x);
        g = static_cast<int32_t>(inPlace);
    }

    uint8_t block[4 * PVX_RESIZE_LEAF_REACH];
    const int64_t blockPixels = static_cast<int64_t>(sizeof block) / pixelBytes;
    const int64_t maxOffset = (blockPixels * pixelBytes - PVX_RESIZE_LEAF_REACH) / pixelBytes;
    while (g < groups) {
        const int64_t xg = x + g * groupStep;
        const int64_t b = xg >> 15;
        for (int64_t i = 0; i < blockPixels; ++i) {
            const int64_t p = b + i < last ? b + i : last;
            memcpy(block + i * pixelBytes, src + p * pixelBytes, static_cast<size_t>(pixelBytes));
        }
        int32_t count = 1;
        while (g + count < groups && ((xg + count * groupStep) >> 15) - b <= maxOffset) ++count;
        run(block, g, count, xg - b * 32768);
        g += count;
    }
}

}  // namespace

void pvx_ImageProc2_runGroups7(pvx_ResizeGroupsFn leaf, int32_t channels, uint8_t *out, const uint8_t *src,
                               int32_t sw, int32_t groups, int64_t x, int32_t step) {
    runOverRow(src, sw, channels, groups, x, step, [&](const uint8_t *base, int32_t first, int32_t count, int64_t xr) {
        leaf(out + static_cast<ptrdiff_t>(first) * 8 * channels, base, count, xr, step);
    });
}

void pvx_ImageProc2_runGroups88(pvx_ResizeGroups88Fn leaf, uint16_t *out, const uint8_t *src, int32_t sw,
                                int32_t groups, int64_t x, int32_t step) {
    runOverRow(src, sw, 2, groups, x, step, [&](const uint8_t *base, int32_t first, int32_t count, int64_t xr) {
        leaf(out + static_cast<ptrdiff_t>(first) * 16, base, count, xr, step);
    });
}
