// Format names and the size rule, against a model of the planes
// written per family of formats.
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "image/pvx_image_format.h"

namespace {

// Every name reads back as its format, and no two formats share a name.
TEST(ImageFormatNames, RoundTrip) {
    std::set<std::string> names;
    for (int32_t f = 0; f < 68; ++f) {
        const std::string name = pvx_Image_getImageFormatStr(f);   // a copy: matched by content
        EXPECT_EQ(pvx_Image_getImageFormat(name.c_str()), f) << name;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 68u);
}

// Each family predicate accepts exactly its run of format values, checked
// one past either end and outside the table. The runs are uneven on
// purpose: YUV422_SEMIPLANAR (25) counts as 4:2:2, YVU422_SEMIPLANAR (28)
// only as its own family.
TEST(ImageFormatFamilies, PredicatesCoverTheirRuns) {
    struct Family { const char *name; bool (*is)(int32_t); std::set<int32_t> members; };
    auto run = [](int32_t lo, int32_t hi) {
        std::set<int32_t> s;
        for (int32_t f = lo; f <= hi; ++f) s.insert(f);
        return s;
    };
    const Family families[] = {
        {"rgb", pvx_Image_isRgb, run(1, 3)},
        {"uint8888", pvx_Image_isUint8888, run(4, 15)},
        {"yuv", pvx_Image_isYuv, run(16, 36)},
        {"yuv422 interleaved", pvx_Image_isYuv422Interleaved, run(16, 23)},
        {"yuv422", pvx_Image_isYuv422, run(16, 25)},
        {"yvu422", pvx_Image_isYvu422, {28}},
        {"yuv420", pvx_Image_isYuv420, {26, 27}},
        {"yvu420", pvx_Image_isYvu420, {29}},
        {"yuv444 interleaved", pvx_Image_isYuv444Interleaved, run(30, 35)},
        {"yuv444", pvx_Image_isYuv444, run(30, 36)},
        {"yuv planar", pvx_Image_isYuvPlanar, {24, 26, 36}},
        {"yuv semiplanar", pvx_Image_isYuvSemiplanar, {25, 27}},
        {"yvu semiplanar", pvx_Image_isYvuSemiplanar, {28, 29}},
        {"bayer8", pvx_Image_isBayer8, run(37, 40)},
    };
    for (const Family &fam : families) {
        for (int32_t f = -1; f <= 68; ++f) EXPECT_EQ(fam.is(f), fam.members.count(f) == 1) << fam.name << " " << f;
    }
}

TEST(ImageFormatNames, UnknownValuesAndTexts) {
    for (int32_t f : {68, 69, 1000, INT32_MAX, -1, INT32_MIN}) {
        EXPECT_STREQ(pvx_Image_getImageFormatStr(f), "(unknown)") << f;
    }
    EXPECT_EQ(pvx_Image_getImageFormat(nullptr), 0);
    for (const char *name : {"", "yuv420_planar", "Yuv420_Planar", "YUV420_PLANAR ", " YUV420_PLANAR",
                             "YUV420_PLANA", "YUV420_PLANARX", "(unknown)", "rgb888"}) {
        EXPECT_EQ(pvx_Image_getImageFormat(name), 0) << '"' << name << '"';
    }
    EXPECT_EQ(pvx_Image_getImageFormat("YUV420_PLANAR"), 26);
}

// ---- size rule ---------------------------------------------------------------

// An independent model of the planes, written per family of formats from
// what the formats are (not from the layout table).
enum class Kind { None, Packed, Yuv422Pair, Planar422, Semi422, Planar420, Semi420, Planar444, Bayer10Packed, Yuv9 };
struct Model {
    Kind kind;
    int64_t bpp;   // Packed: bytes per pixel
};

Model modelOf(int32_t f) {
    const std::string n = pvx_Image_getImageFormatStr(f);
    auto starts = [&](const char *p) { return n.rfind(p, 0) == 0; };
    if (n == "NONE") return {Kind::None, 0};
    if (n == "YUV422_PLANAR") return {Kind::Planar422, 0};
    if (n == "YUV422_SEMIPLANAR" || n == "YVU422_SEMIPLANAR") return {Kind::Semi422, 0};
    if (n == "YUV420_PLANAR") return {Kind::Planar420, 0};
    if (n == "YUV420_SEMIPLANAR" || n == "YVU420_SEMIPLANAR") return {Kind::Semi420, 0};
    if (n == "YUV444_PLANAR") return {Kind::Planar444, 0};
    if (starts("YUV422_")) return {Kind::Yuv422Pair, 0};
    if (starts("YUV444_")) return {Kind::Packed, 3};
    if (starts("BAYER10_M8L2PACKED")) return {Kind::Bayer10Packed, 0};
    if (starts("BAYER8") || n == "UINT8") return {Kind::Packed, 1};
    if (starts("BAYER") || n == "RGB565" || n == "UINT16" || n == "UINT88" || n == "INT16") return {Kind::Packed, 2};
    if (n == "RGB888" || n == "BGR888" || n == "HSV") return {Kind::Packed, 3};
    if (n.size() == 8 && n.substr(4) == "8888") return {Kind::Packed, 4};
    if (n == "INT32" || n == "FLOAT") return {Kind::Packed, 4};
    if (n == "LAB") return {Kind::Packed, 12};
    if (n == "RGB161616") return {Kind::Packed, 6};
    if (starts("YUV9_44")) return {Kind::Yuv9, 0};
    ADD_FAILURE() << "no model for " << n;
    return {Kind::None, 0};
}

int64_t up(int64_t v, int64_t m) { return (v + m - 1) / m * m; }

// Planes as (pitch, rows); count returned.
int modelPlanes(int32_t f, int64_t w, int64_t h, int64_t pitch[3], int64_t rows[3]) {
    const Model m = modelOf(f);
    const int64_t W2 = up(w, 2), H2 = up(h, 2), W4 = up(w, 4), H4 = up(h, 4);
    auto set = [&](int i, int64_t p, int64_t r) { pitch[i] = p; rows[i] = r; };
    switch (m.kind) {
    case Kind::None: return 0;
    case Kind::Packed: set(0, w * m.bpp, h); return 1;
    case Kind::Yuv422Pair: set(0, W2 * 2, h); return 1;
    case Kind::Planar422: set(0, W2, h); set(1, W2 / 2, h); set(2, W2 / 2, h); return 3;
    case Kind::Semi422: set(0, W2, h); set(1, W2, h); return 2;
    case Kind::Planar420: set(0, W2, H2); set(1, W2 / 2, H2 / 2); set(2, W2 / 2, H2 / 2); return 3;
    case Kind::Semi420: set(0, W2, H2); set(1, W2, H2 / 2); return 2;
    case Kind::Planar444: set(0, w, h); set(1, w, h); set(2, w, h); return 3;
    case Kind::Bayer10Packed: set(0, W4 / 4 * 5, h); return 1;
    case Kind::Yuv9: set(0, W4, H4); set(1, W4 / 4 * 2, H4 / 4); return 2;
    }
    return 0;
}

TEST(ImageSizeRule, EveryFormatAgainstModel) {
    const int32_t sizes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 320, 321, 1919, 6144};
    for (int32_t f = 0; f < 68; ++f) {
        for (int32_t w : sizes) {
            for (int32_t h : sizes) {
                int64_t pitch[3] = {0, 0, 0}, rows[3] = {0, 0, 0};
                const int count = modelPlanes(f, w, h, pitch, rows);
                int64_t total = 0;
                for (int p = 0; p < 3; ++p) {
                    SCOPED_TRACE(::testing::Message() << pvx_Image_getImageFormatStr(f) << " " << w << "x" << h << " plane " << p);
                    EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_Y + 3 * p), pitch[p] * rows[p]);
                    EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_Y_PITCH + 3 * p), pitch[p]);
                    EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_Y_ROWS + 3 * p), rows[p]);
                    const pvx_PlaneSize ps = pvx_Image_getPlaneSize(w, h, f, p);
                    EXPECT_EQ(ps.pitch, pitch[p]);
                    EXPECT_EQ(ps.rows, rows[p]);
                    EXPECT_EQ(ps.size, pitch[p] * rows[p]);
                    total += pitch[p] * rows[p];
                }
                EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_IMAGE), total) << pvx_Image_getImageFormatStr(f);
                EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_PLANES), count) << pvx_Image_getImageFormatStr(f);
                EXPECT_EQ(pvx_Image_getPlaneCount(f), count) << pvx_Image_getImageFormatStr(f);
                // Chroma: plane 1 of semi-planar, planes 1 + 2 of planar.
                EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_UV), pitch[1] * rows[1] + pitch[2] * rows[2]);
                EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_UV_PITCH), pitch[1]);
                EXPECT_EQ(pvx_Image_getSize(w, h, f, PVX_SIZE_UV_ROWS), rows[1]);
            }
        }
    }
}

// Extent of a copied row: no alignment rounding.
TEST(ImageSizeRule, CopyExtent) {
    struct Case { int32_t f, w, h, plane; int64_t rowBytes, rows; };
    const Case cases[] = {
        {27, 321, 241, 0, 321, 241}, {27, 321, 241, 1, 322, 121}, {26, 321, 241, 1, 161, 121},
        {26, 321, 241, 2, 161, 121}, {16, 5, 3, 0, 12, 3},        {45, 9, 2, 0, 15, 2},
        {2, 7, 3, 0, 21, 3},         {66, 5, 5, 0, 5, 5},          {66, 5, 5, 1, 4, 2},
        {2, 7, 3, 1, 0, 0},          {24, 3, 3, 1, 2, 3},          {36, 3, 3, 2, 3, 3},
        {2, 7, 0, 0, 21, 0},         {2, 0, 3, 0, 0, 3},           // no rows, no columns
    };
    for (const Case &c : cases) {
        const pvx_PlaneSize e = pvx_Image_getPlaneExtent(c.w, c.h, c.f, c.plane);
        EXPECT_EQ(e.pitch, c.rowBytes) << c.f << " plane " << c.plane;
        EXPECT_EQ(e.rows, c.rows) << c.f << " plane " << c.plane;
    }
}

TEST(ImageSizeRule, RefusedArguments) {
    for (int32_t sel = 0; sel <= 13; ++sel) {
        EXPECT_EQ(pvx_Image_getSize(-1, 10, 2, sel), 0) << sel;
        EXPECT_EQ(pvx_Image_getSize(10, 10, 68, sel), 0) << sel;
        EXPECT_EQ(pvx_Image_getSize(INT32_MIN, INT32_MIN, 26, sel), 0) << sel;
    }
    EXPECT_EQ(pvx_Image_getSize(10, 10, 2, 14), 0);
    EXPECT_EQ(pvx_Image_getSize(10, 10, 2, -1), 0);
    EXPECT_EQ(pvx_Image_getSize(10, 10, 67, PVX_SIZE_IMAGE), 12 * 12 + 6 * 3);
    EXPECT_EQ(pvx_Image_getSize(0, 0, 26, PVX_SIZE_PLANES), 3);
}

TEST(ImageSizeRule, LargestSizesDoNotOverflow) {
    const int64_t M = INT32_MAX;
    // 4:2:0 at the largest size still fits: even-rounded 2^31 squared.
    const int64_t even = M + 1;
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 26, PVX_SIZE_Y), even * even);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 26, PVX_SIZE_IMAGE), even * even + even * even / 2);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 60, PVX_SIZE_Y_PITCH), 12 * M);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, 1, 60, PVX_SIZE_Y), 12 * M);
    // LAB at 2^31 x 2^31 exceeds 63 bits: saturates.
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 60, PVX_SIZE_Y), INT64_MAX);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 60, PVX_SIZE_IMAGE), INT64_MAX);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 62, PVX_SIZE_IMAGE), INT64_MAX);
    EXPECT_EQ(pvx_Image_getSize(INT32_MAX, INT32_MAX, 36, PVX_SIZE_UV), 2 * M * M);
    EXPECT_GT(pvx_Image_getSize(INT32_MAX, INT32_MAX, 67, PVX_SIZE_IMAGE), 0);
    for (int32_t f = 0; f < 68; ++f) {
        for (int32_t sel = 0; sel <= 13; ++sel) EXPECT_GE(pvx_Image_getSize(INT32_MAX, INT32_MAX, f, sel), 0);
    }
}

}  // namespace
