// The image record: size, format, up to three planes with their pitches,
// and the allocator of memory the record owns.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "image/pvx_image_format.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

struct parvex_ImageData;
struct parvex_ImageDataEx;

struct pvx_Image {
    int32_t width;
    int32_t height;
    int32_t format;
    int32_t external;     // non-zero: the planes belong to someone else
    uint8_t *dat[3];      // plane starts; null for a plane the format lacks
    int32_t pitch[3];     // bytes from one row of a plane to the next
    pvx_Env *env;         // allocator of owned memory
};

// Plane description for pvx_Image_initWithPitch: the first N entries of each
// array are read, N being the format's plane count.
struct pvx_ImagePlanes {
    void *dat[3];
    int32_t pitch[3];
};

pvx_Result pvx_construct_Image(pvx_Image *image, pvx_Env *env);
pvx_Result pvx_destruct_Image(pvx_Image *image);

// `data` null: the record owns its memory. One-plane formats: the plane
// address. Two or three planes: an array of that many plane addresses.
pvx_Result pvx_Image_init(pvx_Image *image, int32_t width, int32_t height, void *data, int32_t format);
// `planes` null: owned memory, as above.
pvx_Result pvx_Image_initWithPitch(pvx_Image *image, int32_t width, int32_t height,
                                   const pvx_ImagePlanes *planes, int32_t format);

// Row r of plane p, with the offset computed in ptrdiff_t.
inline uint8_t *pvx_Image_row(const pvx_Image *image, int32_t plane, int32_t row) {
    return image->dat[plane] + static_cast<ptrdiff_t>(row) * image->pitch[plane];
}

// Views (no copy). Failures return an error and leave `sub` unchanged.
pvx_Result pvx_Image_initSubImage(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                  int32_t width, int32_t height);
pvx_Result pvx_Image_initSubImageY(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height);
pvx_Result pvx_Image_initSubImageU(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height);
pvx_Result pvx_Image_initSubImageV(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                   int32_t width, int32_t height);
pvx_Result pvx_Image_initSubImageUV(pvx_Image *sub, const pvx_Image *parent, int32_t x, int32_t y,
                                    int32_t width, int32_t height);

pvx_Result pvx_Image_copy(pvx_Image *dst, const pvx_Image *src);
// Copies the width x height rectangle at (sx, sy) of src to (dx, dy) of dst.
pvx_Result pvx_Image_partialCopy(pvx_Image *dst, const pvx_Image *src, int32_t dx, int32_t dy,
                                 int32_t sx, int32_t sy, int32_t width, int32_t height);

// Records from the caller's public image records.
pvx_Result pvx_IF_initImage(pvx_Image *image, const parvex_ImageData *data, int32_t format);
pvx_Result pvx_IF_initImageEx(pvx_Image *image, const parvex_ImageDataEx *data, int32_t format);
int64_t pvx_IF_getImageSize(int32_t width, int32_t height, const char *format);
int64_t pvx_IF_getImageSizeY(int32_t width, int32_t height, const char *format);
int64_t pvx_IF_getImageSizeU(int32_t width, int32_t height, const char *format);
int64_t pvx_IF_getImageSizeV(int32_t width, int32_t height, const char *format);
int64_t pvx_IF_getImageSizeUV(int32_t width, int32_t height, const char *format);
int32_t pvx_IF_getPixelSize(int32_t mode);
int32_t pvx_IF_isAvailableImage(void);
// Plausibility of a caller's pitches: each read pitch at least the tight one.
int32_t pvx_IF_isAvailableImageEx(const parvex_ImageDataEx *data, int32_t format);
