// Conversions between the engine formats. RGB and YUV meet through BT.601:
// "limited" is the video range (luma 16..235, chroma 16..240, what ffmpeg
// writes for yuv420p by default), "full" the JPEG range (0..255). Chroma is
// the mean of each 2x2 block going down, and shared by the block going up.
#pragma once

#include <stdint.h>

#include "frame.h"

namespace parvex_tool {

enum class Range { Limited, Full };

const char *rangeName(Range range);

// BT.601 of one pixel; used by convert() and by the tests as a model.
void rgbToYuv(double r, double g, double b, Range range, double *y, double *u, double *v);
void yuvToRgb(int y, int u, int v, Range range, uint8_t rgb[3]);
uint8_t clampToByte(double value);

// Converts `src` into `dst`, which is (re)allocated as `layout` at the same
// size. Within the RGB pair and within the YUV formats this only moves bytes.
void convert(const Frame &src, Layout layout, Range range, Frame *dst);

}  // namespace parvex_tool
