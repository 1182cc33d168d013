// The image record: construction, destruction, and binding a record either
// to memory of its own (one heap block holding every plane) or to planes
// that belong to someone else.
#include "image/pvx_image.h"

#include <string.h>

#include "image/pvx_image_internal.h"
#include "runtime/pvx_record.h"

namespace {

bool validArgs(const pvx_Image *image, int32_t width, int32_t height, int32_t format) {
    return image && width >= 0 && height >= 0 && format >= 0 && format < PVX_FORMAT_COUNT;
}

// Tight pitches of the size rule; false when one does not fit a record's int32.
bool tightPitches(int32_t width, int32_t height, int32_t format, int32_t pitch[3]) {
    for (int32_t p = 0; p < 3; ++p) {
        const int64_t tight = pvx_Image_getPlaneSize(width, height, format, p).pitch;
        if (tight > INT32_MAX) return false;
        pitch[p] = static_cast<int32_t>(tight);
    }
    return true;
}

void describe(pvx_Image *image, int32_t width, int32_t height, int32_t format, int32_t external) {
    image->width = width;
    image->height = height;
    image->format = format;
    image->external = external;
}

}  // namespace

int64_t pvx_Image_ownedSize(const pvx_Image *image) {
    if (!image->dat[0] || image->external) return 0;
    return pvx_Image_getSize(image->width, image->height, image->format, PVX_SIZE_IMAGE);
}

bool pvx_Image_ownsAddress(const pvx_Image *image, const void *p) {
    const int64_t size = pvx_Image_ownedSize(image);
    if (size <= 0 || !p) return false;
    const uintptr_t start = reinterpret_cast<uintptr_t>(image->dat[0]);
    const uintptr_t at = reinterpret_cast<uintptr_t>(p);
    return at >= start && at - start < static_cast<uint64_t>(size);
}

pvx_Result pvx_Image_releaseOwned(pvx_Image *image) {
    if (!image->dat[0] || image->external) return PVX_OK;
    const pvx_Result r = pvx_Env_free(image->env, image->dat[0]);
    if (r != PVX_OK) return r;   // the pointer stays while the block is not given back
    image->dat[0] = image->dat[1] = image->dat[2] = nullptr;
    return PVX_OK;
}

pvx_Result pvx_construct_Image(pvx_Image *image, pvx_Env *env) { return pvx_Record_construct(image, env); }

pvx_Result pvx_destruct_Image(pvx_Image *image) {
    if (!image) return PVX_ERROR_PARAM;
    if (image->dat[0]) {
        const pvx_Result r = pvx_Image_init(image, 0, 0, nullptr, PVX_FORMAT_NONE);
        if (r != PVX_OK) return r;
    }
    pvx_Record_clear(image);
    return PVX_OK;
}

pvx_Result pvx_Image_init(pvx_Image *image, int32_t width, int32_t height, void *data, int32_t format) {
    if (!validArgs(image, width, height, format)) return PVX_ERROR_PARAM;
    if (!data) return pvx_Image_initWithPitch(image, width, height, nullptr, format);

    pvx_ImagePlanes planes;
    memset(&planes, 0, sizeof(planes));
    if (!tightPitches(width, height, format, planes.pitch)) return PVX_ERROR_PARAM;
    const int32_t count = pvx_Image_getPlaneCount(format);
    if (count == 1) {
        planes.dat[0] = data;
    } else {
        void *const *list = static_cast<void *const *>(data);
        for (int32_t p = 0; p < count; ++p) planes.dat[p] = list[p];
    }
    return pvx_Image_initWithPitch(image, width, height, &planes, format);
}

pvx_Result pvx_Image_initWithPitch(pvx_Image *image, int32_t width, int32_t height,
                                   const pvx_ImagePlanes *planes, int32_t format) {
    if (!validArgs(image, width, height, format)) return PVX_ERROR_PARAM;

    if (planes) {
        const pvx_Result r = pvx_Image_releaseOwned(image);
        if (r != PVX_OK) return r;
        const int32_t count = pvx_Image_getPlaneCount(format);
        describe(image, width, height, format, 1);
        for (int32_t p = 0; p < 3; ++p) {
            image->dat[p] = p < count ? static_cast<uint8_t *>(planes->dat[p]) : nullptr;
            image->pitch[p] = p < count ? planes->pitch[p] : 0;
        }
        return PVX_OK;
    }

    int32_t pitch[3];
    if (!tightPitches(width, height, format, pitch)) return PVX_ERROR_PARAM;
    const int64_t oldSize = pvx_Image_ownedSize(image);
    const int64_t newSize = pvx_Image_getSize(width, height, format, PVX_SIZE_IMAGE);

    uint8_t *block = oldSize > 0 ? image->dat[0] : nullptr;
    if (newSize != oldSize) {
        const pvx_Result r = pvx_Image_releaseOwned(image);
        if (r != PVX_OK) return r;
        block = nullptr;
        if (newSize > 0) {
            // Heap block sizes are 32-bit words; anything near that cannot be had.
            const bool representable = static_cast<uint64_t>(newSize) <= SIZE_MAX &&
                                       static_cast<uint64_t>(newSize) <= UINT32_MAX - 64u;
            if (representable) {
                block = static_cast<uint8_t *>(pvx_Env_malloc(image->env, static_cast<size_t>(newSize)));
            }
            if (!block) {
                // Left empty: the old block is already gone.
                describe(image, 0, 0, format, 0);
                memset(image->dat, 0, sizeof(image->dat));
                memset(image->pitch, 0, sizeof(image->pitch));
                return PVX_ERROR_NOMEM;
            }
        }
    }

    describe(image, width, height, format, 0);
    // Planes one after another in the block, each with its tight pitch.
    uint8_t *next = block;
    for (int32_t p = 0; p < 3; ++p) {
        const pvx_PlaneSize ps = pvx_Image_getPlaneSize(width, height, format, p);
        image->pitch[p] = pitch[p];
        image->dat[p] = (block && ps.pitch > 0) ? next : nullptr;
        if (block) next += ps.size;
    }
    return PVX_OK;
}
