// Leaves of the resizer: the arithmetic of whole groups of 8 outputs, one
// table per resizer. The table is filled with the C references when the
// resizer is constructed or initialised, then the init function of each
// instruction set the processor offers (pvx_Cpu_flags) overwrites the
// entries it has. Every leaf gives its C reference's bytes exactly.
//
// A leaf sees whole groups only: the row loops around it (edges, tails,
// groups near the row's end) are shared code. A horizontal leaf may read
// up to PVX_RESIZE_LEAF_REACH bytes from the first byte of each group's
// base pixel (x >> 15) and nothing before it; the row loops hand groups that
// would read past the row a padded copy of the row's end instead.
//
// This header holds plain declarations only: the vector leaves are compiled
// with instruction-set flags of their own, so they must not instantiate
// inline code that the rest of the library shares.
#pragma once

#include <stdint.h>

enum : int32_t { PVX_RESIZE_LEAF_REACH = 32 };

// 7-bit horizontal groups of "UINT8" (1 channel) or "RGB888" (3 channels):
// group g starts at Q15 position xg = x + 8 g step (x >= 0, 0 < step <=
// 32768) of `src`; lane k (0 .. 7) takes o = ((xg & 32767) >> 8) + ((128 +
// k step) >> 8), pixel i = (xg >> 15) + (o >> 7) and its right neighbour,
// weight w = o & 127: (a (128 - w) + b w + 64) >> 7 per channel.
typedef void (*pvx_ResizeGroupsFn)(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step);

// "UINT88" 15-bit groups: output k of group g at Q15 position p = x + (8 g +
// k) step (0 < step < 65536), channel c: (s[2i + c] (32768 - f) + s[2i + 2 +
// c] f + 512) >> 10 with i = p >> 15, f = p & 32767 (16-bit x32 samples).
typedef void (*pvx_ResizeGroups88Fn)(uint16_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step);

// 7-bit vertical blend of 8 * groups bytes with weight w (0 .. 128):
// (a (128 - w) + b w + 64) >> 7.
typedef void (*pvx_ResizeBlend7Fn)(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t groups,
                                   int32_t w);

// "UINT88" vertical blend of 8 * groups x32 samples with weight w (0 ..
// 16384): min(255, (((a (16384 - w)) >> 15) + ((b w) >> 15) + 8) >> 4).
typedef void (*pvx_ResizeBlend88Fn)(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t groups,
                                    uint32_t w);

struct pvx_ResizeLeaves {
    pvx_ResizeGroupsFn uint8Groups;
    pvx_ResizeGroupsFn rgb888Groups;
    pvx_ResizeGroups88Fn uint88Groups;
    pvx_ResizeBlend7Fn blend7;      // "UINT8" and "RGB888" rows
    pvx_ResizeBlend88Fn blend88;
};

// C references, then the leaves of every instruction set pvx_Cpu_flags allows.
void pvx_ImageProc2_fillLeaves(pvx_ResizeLeaves *leaves);

// The C references alone, and a constant table of them.
void pvx_ImageProc2_initLeavesC(pvx_ResizeLeaves *leaves);
const pvx_ResizeLeaves *pvx_ImageProc2_referenceLeaves(void);

// Per instruction set: overwrite the entries that set has. Each is built only
// for its architecture and called only when the processor offers the set.
#if defined(__x86_64__) || defined(__i386__)
void pvx_ImageProc2_initLeavesSsse3(pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_initLeavesAvx2(pvx_ResizeLeaves *leaves);
#endif
#if defined(__ARM_NEON)
void pvx_ImageProc2_initLeavesNeon(pvx_ResizeLeaves *leaves);
#endif
