// Frames as numpy arrays: the five engine formats under their OpenCV-style
// names, the array shape each one takes, and how an array's memory maps onto
// the library's image record with row pitches.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "parvex_distortion_correction.h"

namespace parvex_python {

enum class PixelFormat { NV12, NV21, I420, RGB, BGR };

// Accepts "NV12", "NV21", "I420", "RGB", "BGR", "RGB888", "BGR888" and the
// engine's names ("YUV420_SEMIPLANAR", ...), in any letter case.
bool parsePixelFormat(const std::string &text, PixelFormat *format);
const char *engineFormatName(PixelFormat format);  // "YUV420_SEMIPLANAR", ...
const char *shortFormatName(PixelFormat format);   // "NV12", ...
bool isYuv(PixelFormat format);

// The array shape of a width x height frame: (h * 3 / 2, w) for the 4:2:0
// formats, as OpenCV lays them out; (h, w, 3) for RGB and BGR.
struct FrameShape {
    int ndim;
    ptrdiff_t dims[3];
};
FrameShape frameShape(PixelFormat format, int width, int height);
std::string shapeText(const FrameShape &shape);

// An array's geometry as numpy reports it (bytes for strides).
struct ArrayGeometry {
    uint8_t *data;
    int ndim;
    ptrdiff_t shape[3];
    ptrdiff_t strides[3];
};

// Fills `record` with the planes of an array of the right shape when its
// strides can be described by one row pitch per plane (rows may be padded;
// pixels and planes must be packed as the format lays them out). False when
// only a packed copy can be handed to the library.
bool describeFrame(PixelFormat format, int width, int height, const ArrayGeometry &array,
                   parvex_ImageDataEx *record);

// Lowest and one-past-highest byte an array touches.
void byteExtent(const ArrayGeometry &array, const uint8_t **begin, const uint8_t **end);

}  // namespace parvex_python
