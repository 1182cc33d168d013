// Pixel formats: the 68-value enumeration, their names, the plane layout
// table and the size rule that every image-handling routine uses.
#pragma once

#include <stdint.h>

enum pvx_ImageFormat : int32_t {
    PVX_FORMAT_NONE = 0,
    PVX_FORMAT_RGB565 = 1,
    PVX_FORMAT_RGB888 = 2,
    PVX_FORMAT_BGR888 = 3,
    PVX_FORMAT_YUV422_YUYV = 16,
    PVX_FORMAT_YUV422_YVYU = 17,
    PVX_FORMAT_YUV422_VYUY = 20,
    PVX_FORMAT_YUV422_UYVY = 21,
    PVX_FORMAT_YUV422_PLANAR = 24,
    PVX_FORMAT_YUV422_SEMIPLANAR = 25,
    PVX_FORMAT_YUV420_PLANAR = 26,
    PVX_FORMAT_YUV420_SEMIPLANAR = 27,
    PVX_FORMAT_YVU422_SEMIPLANAR = 28,
    PVX_FORMAT_YVU420_SEMIPLANAR = 29,
    PVX_FORMAT_YUV444_PLANAR = 36,
    PVX_FORMAT_BAYER10_M8L2PACKED_RGGB = 45,
    PVX_FORMAT_UINT8 = 57,
    PVX_FORMAT_INT32 = 58,
    PVX_FORMAT_HSV = 59,
    PVX_FORMAT_LAB = 60,
    PVX_FORMAT_UINT16 = 61,
    PVX_FORMAT_RGB161616 = 62,
    PVX_FORMAT_FLOAT = 63,
    PVX_FORMAT_UINT88 = 64,
    PVX_FORMAT_INT16 = 65,
    PVX_FORMAT_YUV9_44_UV = 66,
    PVX_FORMAT_YUV9_44_VU = 67,
    PVX_FORMAT_COUNT = 68,
};

// One plane of a format: a block of 2^xshift pixels across takes `bytes`
// bytes, a block of 2^yshift image rows takes `rows` plane rows.
struct pvx_PlaneLayout {
    uint8_t bytes, xshift, rows, yshift;
};

// The 16-byte layout row of a format: planes 0..2, then 0, xalign, 0, yalign.
struct pvx_FormatLayout {
    pvx_PlaneLayout plane[3];
    uint8_t zero12, xalign, zero14, yalign;
};

// Layout row of a format; formats outside 0..67 get the all-zero row of NONE.
const pvx_FormatLayout *pvx_Image_getFormatLayout(int32_t format);
// Number of planes (0 .. 3) of a format.
int32_t pvx_Image_getPlaneCount(int32_t format);

// Tight pitch, row count and byte size of plane p after the alignment
// rounding of the size rule; all 0 for a plane the format lacks. Computed in
// 64 bits so that no size overflows.
struct pvx_PlaneSize {
    int64_t pitch;
    int64_t rows;
    int64_t size;
};
pvx_PlaneSize pvx_Image_getPlaneSize(int32_t width, int32_t height, int32_t format, int32_t plane);

// Bytes of one row of plane p and its row count without the alignment
// rounding (what a copy moves): ceil(width / 2^xshift) * bytes, ceil(height / 2^yshift) * rows.
pvx_PlaneSize pvx_Image_getPlaneExtent(int32_t width, int32_t height, int32_t format, int32_t plane);

// Selectors of pvx_Image_getSize.
enum : int32_t {
    PVX_SIZE_IMAGE = 0,       // sum of the plane sizes
    PVX_SIZE_PLANES = 1,      // number of planes
    PVX_SIZE_Y = 2, PVX_SIZE_Y_PITCH = 3, PVX_SIZE_Y_ROWS = 4,
    PVX_SIZE_U = 5, PVX_SIZE_U_PITCH = 6, PVX_SIZE_U_ROWS = 7,
    PVX_SIZE_V = 8, PVX_SIZE_V_PITCH = 9, PVX_SIZE_V_ROWS = 10,
    PVX_SIZE_UV = 11, PVX_SIZE_UV_PITCH = 12, PVX_SIZE_UV_ROWS = 13,
};
// 0 for a negative size, a format above 67 or an unknown selector.
int64_t pvx_Image_getSize(int32_t width, int32_t height, int32_t format, int32_t selector);

int32_t pvx_Image_getImageFormat(const char *name);   // 0 for no match or null
const char *pvx_Image_getImageFormatStr(int32_t format);   // "(unknown)" for 68 and above

bool pvx_Image_isRgb(int32_t format);
bool pvx_Image_isUint8888(int32_t format);
bool pvx_Image_isYuv(int32_t format);
bool pvx_Image_isYuv422Interleaved(int32_t format);
bool pvx_Image_isYuv422(int32_t format);
bool pvx_Image_isYvu422(int32_t format);
bool pvx_Image_isYuv420(int32_t format);
bool pvx_Image_isYvu420(int32_t format);
bool pvx_Image_isYuv444Interleaved(int32_t format);
bool pvx_Image_isYuv444(int32_t format);
bool pvx_Image_isYuvPlanar(int32_t format);
bool pvx_Image_isYuvSemiplanar(int32_t format);
bool pvx_Image_isYvuSemiplanar(int32_t format);
bool pvx_Image_isBayer8(int32_t format);
