// Pixel copies between image records, plane by plane and row by row, each
// side stepping by its own pitch.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "image/pvx_image.h"
#include "image/pvx_image_internal.h"

namespace {

bool knownFormat(int32_t format) { return format >= 1 && format < PVX_FORMAT_COUNT; }

// Plane pointers 1 and 2 for the planes the format has.
bool chromaPlanesSet(const pvx_Image *image) {
    const int32_t count = pvx_Image_getPlaneCount(image->format);
    for (int32_t p = 1; p < count; ++p) {
        if (!image->dat[p]) return false;
    }
    return true;
}

// The bytes a plane copy reaches, from the plane start: `rows` rows of
// `rowBytes` bytes starting at row `firstRow`, byte `firstByte`. They must be
// addressable, so that every offset below fits a ptrdiff_t (32 bits on Arm).
bool addressable(int64_t firstRow, int64_t rows, int32_t pitch, int64_t firstByte, int64_t rowBytes) {
    const int64_t step = pitch < 0 ? -static_cast<int64_t>(pitch) : pitch;
    const int64_t lastRow = firstRow + (rows > 0 ? rows - 1 : 0);
    const int64_t reach = lastRow * step + firstByte + rowBytes;   // below 2^63: every term is below 2^62
    return reach <= static_cast<int64_t>(PTRDIFF_MAX);
}

bool planesAddressable(const pvx_Image *image, int32_t width, int32_t height) {
    const int32_t count = pvx_Image_getPlaneCount(image->format);
    for (int32_t p = 0; p < count; ++p) {
        const pvx_PlaneSize e = pvx_Image_getPlaneExtent(width, height, image->format, p);
        if (!addressable(0, e.rows, image->pitch[p], 0, e.pitch)) return false;
    }
    return true;
}

// Copies `rows` rows of `rowBytes` bytes. Rows are moved, not copied, and
// walked from the far end when the destination lies after the source, so
// that a rectangle moved within one plane arrives intact.
void copyRows(uint8_t *dst, int32_t dstPitch, const uint8_t *src, int32_t srcPitch, int64_t rowBytes,
              int64_t rows) {
    const bool backwards = reinterpret_cast<uintptr_t>(dst) > reinterpret_cast<uintptr_t>(src);
    for (int64_t i = 0; i < rows; ++i) {
        const int64_t r = backwards ? rows - 1 - i : i;
        memmove(dst + static_cast<ptrdiff_t>(r) * dstPitch, src + static_cast<ptrdiff_t>(r) * srcPitch,
                static_cast<size_t>(rowBytes));
    }
}

}  // namespace

pvx_Result pvx_Image_copy(pvx_Image *dst, const pvx_Image *src) {
    if (!dst || !src) return PVX_ERROR_PARAM;
    if (dst == src || dst->dat[0] == src->dat[0]) return PVX_OK;
    if (!src->dat[0] || src->width < 1 || src->height < 1 || !knownFormat(src->format) || !chromaPlanesSet(src)) {
        return PVX_ERROR_PARAM;
    }
    if (!planesAddressable(src, src->width, src->height)) return PVX_ERROR_PARAM;
    const int32_t count = pvx_Image_getPlaneCount(src->format);

    if (dst->external) {
        if (dst->width != src->width || dst->height != src->height || dst->format != src->format ||
            !dst->dat[0] || !chromaPlanesSet(dst) || !planesAddressable(dst, src->width, src->height)) {
            return PVX_ERROR_PARAM;
        }
    } else {
        // Re-initializing may free the destination's block; a source that
        // lives in that block would be read after the free.
        for (int32_t p = 0; p < count; ++p) {
            if (pvx_Image_ownsAddress(dst, src->dat[p])) return PVX_ERROR_PARAM;
        }
        const pvx_Result r = pvx_Image_init(dst, src->width, src->height, nullptr, src->format);
        if (r != PVX_OK) return r;
    }

    for (int32_t p = 0; p < count; ++p) {
        const pvx_PlaneSize extent = pvx_Image_getPlaneExtent(src->width, src->height, src->format, p);
        copyRows(dst->dat[p], dst->pitch[p], src->dat[p], src->pitch[p], extent.pitch, extent.rows);
    }
    return PVX_OK;
}

// Rectangle rules: nothing is clipped; the rectangle must lie inside both
// images. Positions must be multiples of the format's alignment unit (2
// across and down for 4:2:0, 4 across for the packed Bayer formats...), and
// so must the width and height, except where the rectangle runs to the right
// (bottom) edge of both images: there the last, partly used unit is copied
// whole, as pvx_Image_copy does, so a copy of the whole image equals
// pvx_Image_copy.
pvx_Result pvx_Image_partialCopy(pvx_Image *dst, const pvx_Image *src, int32_t dx, int32_t dy, int32_t sx,
                                 int32_t sy, int32_t width, int32_t height) {
    if (!dst || !src) return PVX_ERROR_PARAM;
    if (!src->dat[0] || !knownFormat(src->format) || !chromaPlanesSet(src)) return PVX_ERROR_PARAM;
    if (!dst->dat[0] || !knownFormat(dst->format) || !chromaPlanesSet(dst)) return PVX_ERROR_PARAM;
    if (dst->format != src->format) return PVX_ERROR_FORMAT;

    if (width < 0 || height < 0 || sx < 0 || sy < 0 || dx < 0 || dy < 0) return PVX_ERROR_PARAM;
    const int64_t sx1 = static_cast<int64_t>(sx) + width, sy1 = static_cast<int64_t>(sy) + height;
    const int64_t dx1 = static_cast<int64_t>(dx) + width, dy1 = static_cast<int64_t>(dy) + height;
    if (sx1 > src->width || sy1 > src->height || dx1 > dst->width || dy1 > dst->height) return PVX_ERROR_PARAM;

    const pvx_FormatLayout *layout = pvx_Image_getFormatLayout(src->format);
    const int32_t xmask = (1 << layout->xalign) - 1, ymask = (1 << layout->yalign) - 1;
    if (((sx | dx) & xmask) != 0 || ((sy | dy) & ymask) != 0) return PVX_ERROR_PARAM;
    const bool rightEdge = sx1 == src->width && dx1 == dst->width;
    const bool bottomEdge = sy1 == src->height && dy1 == dst->height;
    if (((width & xmask) != 0 && !rightEdge) || ((height & ymask) != 0 && !bottomEdge)) return PVX_ERROR_PARAM;

    // Aligned positions fall on whole units of every plane.
    const int32_t count = pvx_Image_getPlaneCount(src->format);
    for (int32_t p = 0; p < count; ++p) {
        const pvx_PlaneLayout &pl = layout->plane[p];
        const pvx_PlaneSize e = pvx_Image_getPlaneExtent(width, height, src->format, p);
        if (!addressable(static_cast<int64_t>(sy >> pl.yshift) * pl.rows, e.rows, src->pitch[p],
                         static_cast<int64_t>(sx >> pl.xshift) * pl.bytes, e.pitch) ||
            !addressable(static_cast<int64_t>(dy >> pl.yshift) * pl.rows, e.rows, dst->pitch[p],
                         static_cast<int64_t>(dx >> pl.xshift) * pl.bytes, e.pitch)) {
            return PVX_ERROR_PARAM;
        }
    }
    if (width == 0 || height == 0) return PVX_OK;

    for (int32_t p = 0; p < count; ++p) {
        const pvx_PlaneLayout &pl = layout->plane[p];
        const pvx_PlaneSize extent = pvx_Image_getPlaneExtent(width, height, src->format, p);
        const ptrdiff_t srcAt = static_cast<ptrdiff_t>(sy >> pl.yshift) * pl.rows * src->pitch[p] +
                                static_cast<ptrdiff_t>(sx >> pl.xshift) * pl.bytes;
        const ptrdiff_t dstAt = static_cast<ptrdiff_t>(dy >> pl.yshift) * pl.rows * dst->pitch[p] +
                                static_cast<ptrdiff_t>(dx >> pl.xshift) * pl.bytes;
        copyRows(dst->dat[p] + dstAt, dst->pitch[p], src->dat[p] + srcAt, src->pitch[p], extent.pitch, extent.rows);
    }
    return PVX_OK;
}
