// Views of a rectangle of another image, and views of a single plane of a
// planar or semi-planar image as an image of its own. Nothing is copied:
// the view's planes point into the parent's and keep its pitches.
#include <stddef.h>
#include <string.h>

#include "image/pvx_image.h"
#include "image/pvx_image_internal.h"

namespace {

bool rectInside(const pvx_Image *parent, int32_t x, int32_t y, int32_t width, int32_t height) {
    const int64_t x1 = static_cast<int64_t>(x) + width;
    const int64_t y1 = static_cast<int64_t>(y) + height;
    return x >= 0 && y >= 0 && x1 <= parent->width && height >= 0 && height <= parent->height &&
           width >= 0 && width <= parent->width && y1 <= parent->height;
}

// The planes that the parent's format has must be present.
bool planesPresent(const pvx_Image *parent) {
    if (!parent->dat[0] || parent->pitch[0] < 1) return false;
    const int32_t count = pvx_Image_getPlaneCount(parent->format);
    for (int32_t p = 1; p < count; ++p) {
        if (!parent->dat[p] || parent->pitch[p] < 1) return false;
    }
    return true;
}

// Byte offset of pixel column x in plane 0; -1 for a format that cannot be viewed.
int64_t plane0Column(int32_t format, int32_t x) {
    const int64_t px = x;
    switch (format) {
    case 1: case 41: case 42: case 43: case 44: case 49: case 50: case 51: case 52:
    case 53: case 54: case 55: case 56: case 61: case 64: case 65:
        return 2 * px;
    case 2: case 3: case 30: case 31: case 32: case 33: case 34: case 35: case 59:
        return 3 * px;
    case 4: case 5: case 6: case 7: case 8: case 9: case 10: case 11: case 12: case 13:
    case 14: case 15: case 58: case 63:
        return 4 * px;
    case 16: case 17: case 18: case 19: case 20: case 21: case 22: case 23:
        return (2 * px) & ~int64_t{3};   // never inside a pixel pair
    case 24: case 25: case 26: case 27: case 28: case 29: case 36:
    case 37: case 38: case 39: case 40: case 57:
        return px;
    case 45: case 46: case 47: case 48:
        return px + px / 4;                            // five bytes per four pixels
    case 60:
        return 12 * px;
    case 62:
        return 6 * px;
    default:
        return -1;                                     // 0, 66, 67 and unknown values
    }
}

// Byte offset of (row, byte) in a plane; false when it would not fit a
// ptrdiff_t (32 bits on Arm), which no real plane can reach.
bool planeOffset(int64_t row, int32_t pitch, int64_t byte, ptrdiff_t *out) {
    const int64_t at = row * pitch + byte;   // row < 2^31, 1 <= pitch < 2^31, byte < 2^35
    if (at > static_cast<int64_t>(PTRDIFF_MAX)) return false;
    *out = static_cast<ptrdiff_t>(at);
    return true;
}

// A view of a width x height rectangle at (x, y) needs both records, the
// rectangle inside the parent and the parent's planes; a plane view also
// needs a rectangle of at least one pixel.
bool viewable(const pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y, int32_t width, int32_t height,
              int32_t minSide) {
    return sub && parent && rectInside(parent, x, y, width, height) && width >= minSide && height >= minSide &&
           planesPresent(parent);
}

// An external view of `format` and the given size, without planes yet.
pvx_Image emptyView(int32_t width, int32_t height, int32_t format) {
    pvx_Image view;
    memset(&view, 0, sizeof(view));
    view.width = width;
    view.height = height;
    view.format = format;
    view.external = 1;
    return view;
}

// Puts `view` into `sub`, giving back a block that `sub` owned. A view of
// that very block is refused: it would be left pointing at freed memory.
pvx_Result bindView(pvx_Image *sub, const pvx_Image &view) {
    for (int32_t p = 0; p < 3; ++p) {
        if (pvx_Image_ownsAddress(sub, view.dat[p])) return PVX_ERROR_PARAM;
    }
    const pvx_Result r = pvx_Image_releaseOwned(sub);
    if (r != PVX_OK) return r;
    pvx_Env *env = sub->env;
    *sub = view;
    sub->env = env;
    return PVX_OK;
}

bool acceptsY(int32_t f) { return (f >= 24 && f <= 29) || f == 36; }
bool acceptsPlanarChroma(int32_t f) { return pvx_Image_isYuvPlanar(f); }
bool acceptsInterleavedChroma(int32_t f) { return pvx_Image_isYuvSemiplanar(f) || pvx_Image_isYvuSemiplanar(f); }

// View of plane `plane` as a "UINT8" (one byte a sample) or "UINT88" (two)
// image. The rectangle is scaled down where the plane is subsampled and
// rounded outwards, so that the chroma view covers every pixel of the
// requested rectangle: luma columns 1..2 of 4:2:0 give chroma columns 0..1.
pvx_Result planeView(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y, int32_t width,
                     int32_t height, int32_t plane, bool (*accepts)(int32_t)) {
    if (!viewable(sub, parent, x, y, width, height, 1)) return PVX_ERROR_PARAM;
    if (!accepts(parent->format)) return PVX_ERROR_FORMAT;

    const pvx_PlaneLayout &pl = pvx_Image_getFormatLayout(parent->format)->plane[plane];
    const int32_t x0 = x >> pl.xshift;
    const int32_t y0 = y >> pl.yshift;
    const int32_t x1 = static_cast<int32_t>((static_cast<int64_t>(x) + width + (1 << pl.xshift) - 1) >> pl.xshift);
    const int32_t y1 = static_cast<int32_t>((static_cast<int64_t>(y) + height + (1 << pl.yshift) - 1) >> pl.yshift);
    ptrdiff_t at;
    if (!planeOffset(y0, parent->pitch[plane], static_cast<int64_t>(x0) * pl.bytes, &at)) return PVX_ERROR_PARAM;

    pvx_Image view = emptyView(x1 - x0, y1 - y0, pl.bytes == 2 ? PVX_FORMAT_UINT88 : PVX_FORMAT_UINT8);
    view.pitch[0] = parent->pitch[plane];
    view.dat[0] = parent->dat[plane] + at;
    return bindView(sub, view);
}

}  // namespace

pvx_Result pvx_Image_initSubImage(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                  int32_t width, int32_t height) {
    if (!viewable(sub, parent, x, y, width, height, 0)) return PVX_ERROR_PARAM;
    const int64_t column = plane0Column(parent->format, x);
    if (column < 0) return PVX_ERROR_FORMAT;
    // Plane starts of the view; chroma columns and rows are scaled down where
    // the plane is subsampled, and an interleaved chroma plane starts at a
    // whole U,V pair.
    const pvx_FormatLayout *layout = pvx_Image_getFormatLayout(parent->format);
    ptrdiff_t at[3] = {0, 0, 0};
    if (!planeOffset(y, parent->pitch[0], column, &at[0])) return PVX_ERROR_PARAM;
    for (int32_t p = 1; p < 3; ++p) {
        const pvx_PlaneLayout &pl = layout->plane[p];
        if (pl.bytes != 0 &&
            !planeOffset(y >> pl.yshift, parent->pitch[p], static_cast<int64_t>(x >> pl.xshift) * pl.bytes, &at[p])) {
            return PVX_ERROR_PARAM;
        }
    }

    pvx_Image view = emptyView(width, height, parent->format);
    for (int32_t p = 0; p < 3; ++p) {
        if (layout->plane[p].bytes == 0) continue;
        view.pitch[p] = parent->pitch[p];
        view.dat[p] = parent->dat[p] + at[p];
    }
    return bindView(sub, view);
}

pvx_Result pvx_Image_initSubImageY(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height) {
    return planeView(sub, parent, x, y, width, height, 0, acceptsY);
}

pvx_Result pvx_Image_initSubImageU(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height) {
    return planeView(sub, parent, x, y, width, height, 1, acceptsPlanarChroma);
}

pvx_Result pvx_Image_initSubImageV(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height) {
    return planeView(sub, parent, x, y, width, height, 2, acceptsPlanarChroma);
}

pvx_Result pvx_Image_initSubImageUV(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                    int32_t width, int32_t height) {
    return planeView(sub, parent, x, y, width, height, 1, acceptsInterleavedChroma);
}
