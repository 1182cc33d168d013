// The bridge between the caller's public image records and pvx_Image, and
// the size queries by format name.
#include <string.h>

#include "image/pvx_image.h"
#include "parvex_distortion_correction.h"

namespace {

// A record that wraps caller memory never keeps the pointers of an earlier
// frame: when a fill is refused it is left as an empty external record.
pvx_Result refuse(pvx_Image *image, pvx_Result r) {
    pvx_ImagePlanes none;
    memset(&none, 0, sizeof(none));
    pvx_Image_initWithPitch(image, 0, 0, &none, PVX_FORMAT_NONE);
    return r;
}

// Binds `image` to the planes of a caller's record, plane p with the pitch
// `pitchOf(p)`; a pitch beyond int32 is refused.
template <typename Record, typename PitchOf>
pvx_Result wrap(pvx_Image *image, const Record *data, int32_t format, PitchOf pitchOf) {
    if (!image) return PVX_ERROR_PARAM;
    if (!data) return refuse(image, PVX_ERROR_PARAM);
    pvx_ImagePlanes planes;
    memset(&planes, 0, sizeof(planes));
    const int32_t count = pvx_Image_getPlaneCount(format);
    for (int32_t p = 0; p < count; ++p) {
        const int64_t pitch = pitchOf(p);
        if (pitch > INT32_MAX) return refuse(image, PVX_ERROR_PARAM);
        planes.dat[p] = data->dat[p];
        planes.pitch[p] = static_cast<int32_t>(pitch);
    }
    const pvx_Result r = pvx_Image_initWithPitch(image, data->width, data->height, &planes, format);
    return r == PVX_OK ? r : refuse(image, r);
}

int64_t sizeByName(int32_t width, int32_t height, const char *format, int32_t selector) {
    return pvx_Image_getSize(width, height, pvx_Image_getImageFormat(format), selector);
}

// Display resolutions behind pvx_IF_getPixelSize, smallest first.
struct Resolution {
    int32_t width, height;
};
constexpr Resolution kResolutions[] = {
    {160, 120},    // QQVGA
    {176, 144},    // QCIF
    {320, 240},    // QVGA
    {352, 288},    // CIF
    {400, 240},    // WQVGA
    {480, 320},    // HVGA
    {640, 480},    // VGA
    {800, 480},    // WVGA
    {854, 480},    // FWVGA
    {800, 600},    // SVGA
    {960, 540},    // qHD
    {960, 640},    // DVGA
    {1024, 768},   // XGA
    {1280, 720},   // HD
    {1280, 800},   // WXGA
    {1280, 1024},  // SXGA
    {1600, 900},   // HD+
    {1600, 1200},  // UXGA
    {1920, 1080},  // Full HD
    {1920, 1200},  // WUXGA
    {2560, 1440},  // QHD
    {2560, 1600},  // WQXGA
    {3840, 2160},  // 4K UHD
};
constexpr int32_t kResolutionCount = static_cast<int32_t>(sizeof(kResolutions) / sizeof(kResolutions[0]));
static_assert(kResolutionCount == 23, "23 display modes");

}  // namespace

// The caller's planes with tight pitches. A null plane pointer still gives
// an external record: wrapping caller memory never takes heap memory.
pvx_Result pvx_IF_initImage(pvx_Image *image, const parvex_ImageData *data, int32_t format) {
    return wrap(image, data, format, [data, format](int32_t p) {
        return pvx_Image_getPlaneSize(data->width, data->height, format, p).pitch;
    });
}

// Interleaved formats read pitch[0], semi-planar ones pitch[0..1], planar ones all three.
pvx_Result pvx_IF_initImageEx(pvx_Image *image, const parvex_ImageDataEx *data, int32_t format) {
    return wrap(image, data, format, [data](int32_t p) { return static_cast<int64_t>(data->pitch[p]); });
}

int64_t pvx_IF_getImageSize(int32_t width, int32_t height, const char *format) {
    return sizeByName(width, height, format, PVX_SIZE_IMAGE);
}
int64_t pvx_IF_getImageSizeY(int32_t width, int32_t height, const char *format) {
    return sizeByName(width, height, format, PVX_SIZE_Y);
}
int64_t pvx_IF_getImageSizeU(int32_t width, int32_t height, const char *format) {
    return sizeByName(width, height, format, PVX_SIZE_U);
}
int64_t pvx_IF_getImageSizeV(int32_t width, int32_t height, const char *format) {
    return sizeByName(width, height, format, PVX_SIZE_V);
}
int64_t pvx_IF_getImageSizeUV(int32_t width, int32_t height, const char *format) {
    return sizeByName(width, height, format, PVX_SIZE_UV);
}

int32_t pvx_IF_getPixelSize(int32_t mode) {
    if (mode < 0 || mode >= kResolutionCount) return 0;
    return kResolutions[mode].width * kResolutions[mode].height;
}

int32_t pvx_IF_isAvailableImage(void) { return 1; }

// Plausible when the size is at least 1 x 1, the format is known, and every
// plane the format has is set with a pitch at least the tight pitch of the
// size rule. Pitches of planes the format lacks are not read.
int32_t pvx_IF_isAvailableImageEx(const parvex_ImageDataEx *data, int32_t format) {
    if (!data || format < 1 || format >= PVX_FORMAT_COUNT) return 0;
    if (data->width < 1 || data->height < 1) return 0;
    const int32_t count = pvx_Image_getPlaneCount(format);
    for (int32_t p = 0; p < count; ++p) {
        const int64_t tight = pvx_Image_getPlaneSize(data->width, data->height, format, p).pitch;
        if (!data->dat[p] || data->pitch[p] < tight) return 0;
    }
    return 1;
}
