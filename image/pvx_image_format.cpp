// The 68 pixel formats: names, plane layout rows, predicates and the size
// rule from which every pitch, row count and plane size follows.
#include "image/pvx_image_format.h"

#include <string.h>

namespace {

// Layout rows, 16 bytes each: three planes of (bytes, xshift, rows, yshift),
// then 0, xalign, 0, yalign.
#define PVX_NONE_PLANE {0, 0, 0, 0}
#define PVX_ROW1(b, xs, r, ys, xa, ya) \
    {{{b, xs, r, ys}, PVX_NONE_PLANE, PVX_NONE_PLANE}, 0, xa, 0, ya}

constexpr pvx_FormatLayout kNone = {{PVX_NONE_PLANE, PVX_NONE_PLANE, PVX_NONE_PLANE}, 0, 0, 0, 0};
constexpr pvx_FormatLayout kBytes2 = PVX_ROW1(2, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kBytes3 = PVX_ROW1(3, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kBytes4 = PVX_ROW1(4, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kYuv422Interleaved = PVX_ROW1(4, 1, 1, 0, 1, 0);
constexpr pvx_FormatLayout kYuv422Planar = {{{1, 0, 1, 0}, {1, 1, 1, 0}, {1, 1, 1, 0}}, 0, 1, 0, 0};
constexpr pvx_FormatLayout kYuv422Semiplanar = {{{1, 0, 1, 0}, {2, 1, 1, 0}, PVX_NONE_PLANE}, 0, 1, 0, 0};
constexpr pvx_FormatLayout kYuv420Planar = {{{1, 0, 1, 0}, {1, 1, 1, 1}, {1, 1, 1, 1}}, 0, 1, 0, 1};
constexpr pvx_FormatLayout kYuv420Semiplanar = {{{1, 0, 1, 0}, {2, 1, 1, 1}, PVX_NONE_PLANE}, 0, 1, 0, 1};
constexpr pvx_FormatLayout kYuv444Planar = {{{1, 0, 1, 0}, {1, 0, 1, 0}, {1, 0, 1, 0}}, 0, 0, 0, 0};
constexpr pvx_FormatLayout kBytes1 = PVX_ROW1(1, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kBayer10Packed = PVX_ROW1(5, 2, 1, 0, 2, 0);
constexpr pvx_FormatLayout kLab = PVX_ROW1(12, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kRgb161616 = PVX_ROW1(6, 0, 1, 0, 0, 0);
constexpr pvx_FormatLayout kYuv9 = {{{1, 0, 1, 0}, {2, 2, 1, 2}, PVX_NONE_PLANE}, 0, 2, 0, 2};

#undef PVX_ROW1
#undef PVX_NONE_PLANE

constexpr pvx_FormatLayout kLayouts[PVX_FORMAT_COUNT] = {
    kNone,                                                        // 0 NONE
    kBytes2,                                                      // 1 RGB565
    kBytes3, kBytes3,                                             // 2, 3 RGB888, BGR888
    kBytes4, kBytes4, kBytes4, kBytes4, kBytes4, kBytes4,         // 4-9 32-bit RGBA orders
    kBytes4, kBytes4, kBytes4, kBytes4, kBytes4, kBytes4,         // 10-15
    kYuv422Interleaved, kYuv422Interleaved, kYuv422Interleaved,   // 16-18
    kYuv422Interleaved, kYuv422Interleaved, kYuv422Interleaved,   // 19-21
    kYuv422Interleaved, kYuv422Interleaved,                       // 22, 23
    kYuv422Planar,                                                // 24 YUV422_PLANAR
    kYuv422Semiplanar,                                            // 25 YUV422_SEMIPLANAR
    kYuv420Planar,                                                // 26 YUV420_PLANAR
    kYuv420Semiplanar,                                            // 27 YUV420_SEMIPLANAR
    kYuv422Semiplanar,                                            // 28 YVU422_SEMIPLANAR
    kYuv420Semiplanar,                                            // 29 YVU420_SEMIPLANAR
    kBytes3, kBytes3, kBytes3, kBytes3, kBytes3, kBytes3,         // 30-35 YUV444 interleaved
    kYuv444Planar,                                                // 36 YUV444_PLANAR
    kBytes1, kBytes1, kBytes1, kBytes1,                           // 37-40 BAYER8
    kBytes2, kBytes2, kBytes2, kBytes2,                           // 41-44 BAYER10_UNPACKED
    kBayer10Packed, kBayer10Packed, kBayer10Packed, kBayer10Packed,  // 45-48 BAYER10_M8L2PACKED
    kBytes2, kBytes2, kBytes2, kBytes2,                           // 49-52 BAYER12_UNPACKED
    kBytes2, kBytes2, kBytes2, kBytes2,                           // 53-56 BAYER16
    kBytes1,                                                      // 57 UINT8
    kBytes4,                                                      // 58 INT32
    kBytes3,                                                      // 59 HSV
    kLab,                                                         // 60 LAB
    kBytes2,                                                      // 61 UINT16
    kRgb161616,                                                   // 62 RGB161616
    kBytes4,                                                      // 63 FLOAT
    kBytes2,                                                      // 64 UINT88
    kBytes2,                                                      // 65 INT16
    kYuv9, kYuv9,                                                 // 66, 67 YUV9_44_UV, YUV9_44_VU
};

static_assert(sizeof(pvx_FormatLayout) == 16, "a layout row is 16 bytes");

const char *const kNames[PVX_FORMAT_COUNT] = {
    "NONE",
    "RGB565",
    "RGB888", "BGR888",
    "BGRA8888", "BRGA8888", "GBRA8888", "GRBA8888", "RBGA8888", "RGBA8888",
    "ABGR8888", "ABRG8888", "AGBR8888", "AGRB8888", "ARBG8888", "ARGB8888",
    "YUV422_YUYV", "YUV422_YVYU", "YUV422_YYUV", "YUV422_YYVU",
    "YUV422_VYUY", "YUV422_UYVY", "YUV422_VUYY", "YUV422_UVYY",
    "YUV422_PLANAR", "YUV422_SEMIPLANAR", "YUV420_PLANAR", "YUV420_SEMIPLANAR",
    "YVU422_SEMIPLANAR", "YVU420_SEMIPLANAR",
    "YUV444_YUV", "YUV444_YVU", "YUV444_UYV", "YUV444_VYU", "YUV444_UVY", "YUV444_VUY",
    "YUV444_PLANAR",
    "BAYER8_RGGB", "BAYER8_GRBG", "BAYER8_GBRG", "BAYER8_BGGR",
    "BAYER10_UNPACKED_RGGB", "BAYER10_UNPACKED_GRBG", "BAYER10_UNPACKED_GBRG", "BAYER10_UNPACKED_BGGR",
    "BAYER10_M8L2PACKED_RGGB", "BAYER10_M8L2PACKED_GRBG", "BAYER10_M8L2PACKED_GBRG",
    "BAYER10_M8L2PACKED_BGGR",
    "BAYER12_UNPACKED_RGGB", "BAYER12_UNPACKED_GRBG", "BAYER12_UNPACKED_GBRG", "BAYER12_UNPACKED_BGGR",
    "BAYER16_RGGB", "BAYER16_GRBG", "BAYER16_GBRG", "BAYER16_BGGR",
    "UINT8", "INT32", "HSV", "LAB", "UINT16", "RGB161616", "FLOAT", "UINT88", "INT16",
    "YUV9_44_UV", "YUV9_44_VU",
};

bool validFormat(int32_t format) { return format >= 0 && format < PVX_FORMAT_COUNT; }

// Products of the size rule can exceed 63 bits (a LAB image of 2^31 x 2^31
// pixels); they saturate instead of wrapping.
int64_t mulSat(int64_t a, int64_t b) {
    if (a == 0 || b == 0) return 0;
    if (a > INT64_MAX / b) return INT64_MAX;
    return a * b;
}

int64_t addSat(int64_t a, int64_t b) { return a > INT64_MAX - b ? INT64_MAX : a + b; }

}  // namespace

const pvx_FormatLayout *pvx_Image_getFormatLayout(int32_t format) {
    return validFormat(format) ? &kLayouts[format] : &kLayouts[0];
}

int32_t pvx_Image_getPlaneCount(int32_t format) {
    const pvx_FormatLayout *layout = pvx_Image_getFormatLayout(format);
    int32_t count = 0;
    for (int p = 0; p < 3; ++p) {
        if (layout->plane[p].bytes != 0) ++count;
    }
    return count;
}

pvx_PlaneSize pvx_Image_getPlaneSize(int32_t width, int32_t height, int32_t format, int32_t plane) {
    pvx_PlaneSize out = {0, 0, 0};
    if (width < 0 || height < 0 || !validFormat(format) || plane < 0 || plane > 2) return out;
    const pvx_FormatLayout &layout = kLayouts[format];
    const pvx_PlaneLayout &pl = layout.plane[plane];
    if (pl.bytes == 0) return out;
    // Every row of the table has xalign >= xshift and yalign >= yshift.
    const int64_t ux = (static_cast<int64_t>(width) + (int64_t{1} << layout.xalign) - 1) >> layout.xalign;
    const int64_t uy = (static_cast<int64_t>(height) + (int64_t{1} << layout.yalign) - 1) >> layout.yalign;
    out.pitch = (ux * pl.bytes) << (layout.xalign - pl.xshift);
    out.rows = (uy * pl.rows) << (layout.yalign - pl.yshift);
    out.size = mulSat(out.pitch, out.rows);
    return out;
}

pvx_PlaneSize pvx_Image_getPlaneExtent(int32_t width, int32_t height, int32_t format, int32_t plane) {
    pvx_PlaneSize out = {0, 0, 0};
    if (width < 0 || height < 0 || !validFormat(format) || plane < 0 || plane > 2) return out;
    const pvx_PlaneLayout &pl = kLayouts[format].plane[plane];
    if (pl.bytes == 0) return out;
    out.pitch = ((static_cast<int64_t>(width) + (int64_t{1} << pl.xshift) - 1) >> pl.xshift) * pl.bytes;
    out.rows = ((static_cast<int64_t>(height) + (int64_t{1} << pl.yshift) - 1) >> pl.yshift) * pl.rows;
    out.size = mulSat(out.pitch, out.rows);
    return out;
}

int64_t pvx_Image_getSize(int32_t width, int32_t height, int32_t format, int32_t selector) {
    if (width < 0 || height < 0 || !validFormat(format)) return 0;
    switch (selector) {
    case PVX_SIZE_IMAGE: {
        int64_t total = 0;
        for (int32_t p = 0; p < 3; ++p) total = addSat(total, pvx_Image_getPlaneSize(width, height, format, p).size);
        return total;
    }
    case PVX_SIZE_PLANES:
        return pvx_Image_getPlaneCount(format);
    case PVX_SIZE_UV: case PVX_SIZE_UV_PITCH: case PVX_SIZE_UV_ROWS: {
        // The chroma planes: plane 1 of a semi-planar format, planes 1 and
        // 2 of a planar one (their sum, measured by plane 1's pitch and rows).
        const pvx_PlaneSize p1 = pvx_Image_getPlaneSize(width, height, format, 1);
        if (selector == PVX_SIZE_UV_PITCH) return p1.pitch;
        if (selector == PVX_SIZE_UV_ROWS) return p1.rows;
        return addSat(p1.size, pvx_Image_getPlaneSize(width, height, format, 2).size);
    }
    default:
        break;
    }
    if (selector < PVX_SIZE_Y || selector > PVX_SIZE_V_ROWS) return 0;
    const int32_t plane = (selector - PVX_SIZE_Y) / 3;
    const pvx_PlaneSize ps = pvx_Image_getPlaneSize(width, height, format, plane);
    switch ((selector - PVX_SIZE_Y) % 3) {
    case 0: return ps.size;
    case 1: return ps.pitch;
    default: return ps.rows;
    }
}

int32_t pvx_Image_getImageFormat(const char *name) {
    if (!name) return PVX_FORMAT_NONE;
    for (int32_t f = 0; f < PVX_FORMAT_COUNT; ++f) {
        if (strcmp(name, kNames[f]) == 0) return f;
    }
    return PVX_FORMAT_NONE;
}

const char *pvx_Image_getImageFormatStr(int32_t format) {
    // Negative values are no format either.
    return validFormat(format) ? kNames[format] : "(unknown)";
}

bool pvx_Image_isRgb(int32_t f) { return f >= 1 && f <= 3; }
bool pvx_Image_isUint8888(int32_t f) { return f >= 4 && f <= 15; }
bool pvx_Image_isYuv(int32_t f) { return f >= 16 && f <= 36; }
bool pvx_Image_isYuv422Interleaved(int32_t f) { return f >= 16 && f <= 23; }
bool pvx_Image_isYuv422(int32_t f) { return f >= 16 && f <= 25; }
bool pvx_Image_isYvu422(int32_t f) { return f == 28; }
bool pvx_Image_isYuv420(int32_t f) { return f == 26 || f == 27; }
bool pvx_Image_isYvu420(int32_t f) { return f == 29; }
bool pvx_Image_isYuv444Interleaved(int32_t f) { return f >= 30 && f <= 35; }
bool pvx_Image_isYuv444(int32_t f) { return f >= 30 && f <= 36; }
bool pvx_Image_isYuvPlanar(int32_t f) { return f == 24 || f == 26 || f == 36; }
bool pvx_Image_isYuvSemiplanar(int32_t f) { return f == 25 || f == 27; }
bool pvx_Image_isYvuSemiplanar(int32_t f) { return f == 28 || f == 29; }
bool pvx_Image_isBayer8(int32_t f) { return f >= 37 && f <= 40; }
