#include "frame_layout.h"

#include <limits.h>
#include <strings.h>

namespace parvex_python {

namespace {

struct FormatName {
    const char *name;
    PixelFormat format;
};

const FormatName kNames[] = {
    {"NV12", PixelFormat::NV12}, {"YUV420_SEMIPLANAR", PixelFormat::NV12},
    {"NV21", PixelFormat::NV21}, {"YVU420_SEMIPLANAR", PixelFormat::NV21},
    {"I420", PixelFormat::I420}, {"YUV420_PLANAR", PixelFormat::I420},
    {"RGB", PixelFormat::RGB},   {"RGB888", PixelFormat::RGB},
    {"BGR", PixelFormat::BGR},   {"BGR888", PixelFormat::BGR},
};

bool fitsPitch(ptrdiff_t pitch) { return pitch > 0 && pitch <= INT32_MAX; }

}  // namespace

bool parsePixelFormat(const std::string &text, PixelFormat *format) {
    for (const FormatName &n : kNames) {
        if (strcasecmp(text.c_str(), n.name) == 0) {
            *format = n.format;
            return true;
        }
    }
    return false;
}

const char *engineFormatName(PixelFormat format) {
    switch (format) {
    case PixelFormat::NV12: return "YUV420_SEMIPLANAR";
    case PixelFormat::NV21: return "YVU420_SEMIPLANAR";
    case PixelFormat::I420: return "YUV420_PLANAR";
    case PixelFormat::RGB: return "RGB888";
    case PixelFormat::BGR: return "BGR888";
    }
    return "?";
}

const char *shortFormatName(PixelFormat format) {
    switch (format) {
    case PixelFormat::NV12: return "NV12";
    case PixelFormat::NV21: return "NV21";
    case PixelFormat::I420: return "I420";
    case PixelFormat::RGB: return "RGB";
    case PixelFormat::BGR: return "BGR";
    }
    return "?";
}

bool isYuv(PixelFormat format) { return format != PixelFormat::RGB && format != PixelFormat::BGR; }

FrameShape frameShape(PixelFormat format, int width, int height) {
    if (isYuv(format)) return FrameShape{2, {static_cast<ptrdiff_t>(height) * 3 / 2, width, 0}};
    return FrameShape{3, {height, width, 3}};
}

std::string shapeText(const FrameShape &shape) {
    std::string text = "(";
    for (int i = 0; i < shape.ndim; ++i) {
        if (i) text += ", ";
        text += std::to_string(shape.dims[i]);
    }
    return text + ")";
}

bool describeFrame(PixelFormat format, int width, int height, const ArrayGeometry &array,
                   parvex_ImageDataEx *record) {
    *record = parvex_ImageDataEx{};
    record->width = width;
    record->height = height;
    const ptrdiff_t rowStride = array.strides[0];
    if (!isYuv(format)) {
        // (h, w, 3): pixels packed within a row, rows at any forward pitch.
        if (array.strides[2] != 1 || array.strides[1] != 3 || rowStride < 3 * static_cast<ptrdiff_t>(width) ||
            !fitsPitch(rowStride))
            return false;
        record->dat[0] = array.data;
        record->pitch[0] = static_cast<int32_t>(rowStride);
        return true;
    }
    if (array.strides[1] != 1 || rowStride < width || !fitsPitch(rowStride)) return false;
    uint8_t *chroma = array.data + rowStride * height;
    record->dat[0] = array.data;
    record->pitch[0] = static_cast<int32_t>(rowStride);
    if (format != PixelFormat::I420) {
        // The interleaved chroma rows are array rows below the luma.
        record->dat[1] = chroma;
        record->pitch[1] = static_cast<int32_t>(rowStride);
        return true;
    }
    // I420 packs two half-width chroma rows into each array row, so only a
    // packed array has a single pitch per chroma plane.
    if (rowStride != width) return false;
    const ptrdiff_t half = width / 2;
    record->dat[1] = chroma;
    record->dat[2] = chroma + half * (height / 2);
    record->pitch[1] = record->pitch[2] = static_cast<int32_t>(half);
    return true;
}

void byteExtent(const ArrayGeometry &array, const uint8_t **begin, const uint8_t **end) {
    const uint8_t *lo = array.data, *hi = array.data;
    for (int i = 0; i < array.ndim; ++i) {
        if (array.shape[i] == 0) {
            *begin = *end = array.data;
            return;
        }
        const ptrdiff_t reach = (array.shape[i] - 1) * array.strides[i];
        if (reach < 0) lo += reach;
        else hi += reach;
    }
    *begin = lo;
    *end = hi + 1;
}

}  // namespace parvex_python
