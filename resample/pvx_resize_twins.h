// Vector twins of the resizer's inner row loops.
//
// A band picks one set of twins when it starts and hands it to its row
// functions; a null set or a null entry runs the scalar loop. Twins give the
// scalar loops' bytes exactly and read only inside the rows they are given.
//
// This header holds plain declarations only: the twins are compiled with
// instruction-set flags of their own, so they must not instantiate inline
// code that the rest of the library shares.
#pragma once

#include <stdint.h>

// "UINT8" 8-output groups: `groups` groups of 8 outputs into out[0 ..),
// group g sampling from Q15 position x + 8 * g * step (x >= 0, 0 < step <=
// 32768) of the row of `sw` pixels, with 7-bit weights.
typedef void (*pvx_ResizeGroups8Fn)(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x,
                                    int64_t step);
// 7-bit vertical blend of 8-bit samples with weight w (0 .. 128); blends the
// first count - count % 8 samples and returns their number.
typedef int64_t (*pvx_ResizeBlend7Fn)(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count,
                                      int32_t w);
// "UINT88" vertical blend of x32 samples with weight w (0 .. 16384 on a
// 16384 scale); blends the first count - count % 8 samples and returns their
// number.
typedef int64_t (*pvx_ResizeBlend88Fn)(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t count,
                                       uint32_t w);

// "UINT88" middle phase: outputs of x32 samples into out[0 ..) at Q15
// positions x, x + step, ... (x >= 0), 8 at a time while 8 of the `count`
// outputs remain and the 8th position lies before the last pixel of the row
// of `sw` pixels; returns the number of outputs done (a multiple of 8).
typedef int32_t (*pvx_ResizeMiddle88Fn)(uint16_t *out, const uint8_t *src, int32_t sw, int32_t count, int64_t x,
                                        int64_t step);

struct pvx_ResizeTwins {
    const char *isa;
    pvx_ResizeGroups8Fn groups8;
    pvx_ResizeBlend7Fn blend7;
    pvx_ResizeBlend88Fn blend88;
    pvx_ResizeMiddle88Fn middle88;
};

// Twins built in and usable on this processor, best first; returns their
// number (0: scalar only). The list is a constant table.
int32_t pvx_ImageProc2_availableTwins(const pvx_ResizeTwins *const **list);

// The best twins for this processor, or null.
const pvx_ResizeTwins *pvx_ImageProc2_bestTwins();

#if defined(__x86_64__) || defined(__i386__)
void pvx_ImageProc2_groups8Ssse3(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x, int64_t step);
int64_t pvx_ImageProc2_blend7Ssse3(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count, int32_t w);
int64_t pvx_ImageProc2_blend88Ssse3(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t count,
                                    uint32_t w);
int32_t pvx_ImageProc2_middle88Ssse3(uint16_t *out, const uint8_t *src, int32_t sw, int32_t count, int64_t x,
                                     int64_t step);
#endif
#if defined(__ARM_NEON)
void pvx_ImageProc2_groups8Neon(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x, int64_t step);
int64_t pvx_ImageProc2_blend7Neon(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count, int32_t w);
int64_t pvx_ImageProc2_blend88Neon(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t count,
                                   uint32_t w);
int32_t pvx_ImageProc2_middle88Neon(uint16_t *out, const uint8_t *src, int32_t sw, int32_t count, int64_t x,
                                    int64_t step);
#endif
