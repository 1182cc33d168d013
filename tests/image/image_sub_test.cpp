// Sub-image views and single-plane views.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include <vector>

#include "image/pvx_image.h"
#include "tests/image/image_test_util.h"

namespace {

using pvx_image_test::planesAre;
using pvx_image_test::recordIs;
using pvx_image_test::TestHeap;

uint8_t g_pixels[16];

// A parent of 16 x 8 pixels over one buffer, with pitches that tell the
// planes apart (every plane fits its rows at these pitches).
struct Parent {
    std::vector<uint8_t> mem = std::vector<uint8_t>(3 * 4096);
    pvx_Image img;
    explicit Parent(int32_t format, int32_t width = 16, int32_t height = 8) {
        pvx_construct_Image(&img, nullptr);
        pvx_ImagePlanes desc = {{&mem[0], &mem[4096], &mem[8192]}, {200, 120, 130}};
        EXPECT_EQ(pvx_Image_initWithPitch(&img, width, height, &desc, format), PVX_OK);
    }
    ptrdiff_t offset(const uint8_t *p, int plane) const { return p - img.dat[plane]; }
};

pvx_Image fresh(pvx_Env *env = nullptr) {
    pvx_Image s;
    pvx_construct_Image(&s, env);
    return s;
}

// Byte column of pixel x = 5 and x = 3 in plane 0, by pixel size.
struct ColumnCase {
    std::initializer_list<int32_t> formats;
    ptrdiff_t at5, at3;
};

TEST(SubImage, PlaneZeroColumnByFormat) {
    const ColumnCase cases[] = {
        {{1, 41, 61}, 10, 6},
        {{2, 30, 59}, 15, 9},
        {{4, 15, 58}, 20, 12},
        {{16, 21}, 8, 4},   // starts at the pixel pair (4,5) / (2,3)
        {{26, 36, 57}, 5, 3},
        {{45, 48}, 6, 3},                   // x + x / 4
        {{60}, 60, 36},
    };
    for (const ColumnCase &c : cases) {
        for (int32_t f : c.formats) {
            Parent parent(f);
            for (int32_t y : {0, 3}) {
                pvx_Image sub = fresh();
                ASSERT_EQ(pvx_Image_initSubImage(&sub, &parent.img, 5, y, 4, 2), PVX_OK) << f;
                EXPECT_EQ(parent.offset(sub.dat[0], 0), y * 200 + c.at5) << "format " << f;
                ASSERT_EQ(pvx_Image_initSubImage(&sub, &parent.img, 3, y, 4, 2), PVX_OK) << f;
                EXPECT_EQ(parent.offset(sub.dat[0], 0), y * 200 + c.at3) << "format " << f;
                EXPECT_TRUE(recordIs(sub, 4, 2, f, true));
                EXPECT_EQ(sub.pitch[0], 200);
            }
        }
    }
}

TEST(SubImage, ChromaOffsets) {
    struct Case {
        int32_t format, x, y;
        ptrdiff_t c1, c2;   // byte offsets into planes 1 and 2 (-1: no plane)
    };
    const Case cases[] = {
        {26, 6, 4, 2 * 120 + 3, 2 * 130 + 3},   // 4:2:0 planar: x / 2, y / 2
        {27, 6, 4, 2 * 120 + 6, -1},            // 4:2:0 semi-planar: x & ~1, y / 2
        {24, 5, 3, 3 * 120 + 2, 3 * 130 + 2},   // 4:2:2 planar: x / 2, y
        {25, 5, 3, 3 * 120 + 4, -1},            // 4:2:2 semi-planar: x & ~1, y
        {36, 5, 3, 3 * 120 + 5, 3 * 130 + 5},   // 4:4:4 planar: x, y
    };
    for (const Case &c : cases) {
        Parent parent(c.format);
        pvx_Image sub = fresh();
        ASSERT_EQ(pvx_Image_initSubImage(&sub, &parent.img, c.x, c.y, 2, 2), PVX_OK);
        const pvx_Image &p = parent.img;
        EXPECT_TRUE(planesAre(sub, {p.dat[0] + c.y * 200 + c.x, p.dat[1] + c.c1, c.c2 < 0 ? nullptr : p.dat[2] + c.c2},
                              {200, 120, c.c2 < 0 ? 0 : 130}))
            << c.format << " at " << c.x << "," << c.y;
    }
}

TEST(SubImage, EveryCheckFailsWithSubUnchanged) {
    struct Case {
        const char *what;
        int32_t format, x, y, w, h;
        void (*spoil)(pvx_Image *);
        pvx_Result expect;
    };
    auto none = [](pvx_Image *) {};
    const Case cases[] = {
        {"x < 0", 26, -1, 0, 2, 2, none, PVX_ERROR_PARAM},
        {"x + w > width", 26, 15, 0, 2, 2, none, PVX_ERROR_PARAM},
        {"w < 0", 26, 4, 0, -1, 2, none, PVX_ERROR_PARAM},
        {"y + h > height", 26, 0, 7, 2, 2, none, PVX_ERROR_PARAM},
        {"x + w overflows", 26, INT32_MAX, 0, 1, 1, none, PVX_ERROR_PARAM},
        {"dat[0] null", 26, 0, 0, 2, 2, [](pvx_Image *p) { p->dat[0] = nullptr; }, PVX_ERROR_PARAM},
        {"pitch[0] < 0", 2, 0, 0, 2, 2, [](pvx_Image *p) { p->pitch[0] = -48; }, PVX_ERROR_PARAM},
        {"planar dat[1] null", 26, 0, 0, 2, 2, [](pvx_Image *p) { p->dat[1] = nullptr; }, PVX_ERROR_PARAM},
        {"planar pitch[1] 0", 36, 0, 0, 2, 2, [](pvx_Image *p) { p->pitch[1] = 0; }, PVX_ERROR_PARAM},
        {"semi dat[1] null", 27, 0, 0, 2, 2, [](pvx_Image *p) { p->dat[1] = nullptr; }, PVX_ERROR_PARAM},
        {"YUV9 dat[1] null", 66, 0, 0, 2, 2, [](pvx_Image *p) { p->dat[1] = nullptr; }, PVX_ERROR_PARAM},
        {"NONE", 0, 0, 0, 2, 2, [](pvx_Image *p) { p->dat[0] = g_pixels; p->pitch[0] = 1; }, PVX_ERROR_FORMAT},
        {"YUV9_44_UV", 66, 0, 0, 2, 2, none, PVX_ERROR_FORMAT},
        {"format 68", 2, 0, 0, 2, 2, [](pvx_Image *p) { p->format = 68; }, PVX_ERROR_FORMAT},
        // Bounds come before planes, planes before the format.
        {"bounds first", 0, -1, 0, 2, 2, none, PVX_ERROR_PARAM},
        {"planes before format", 0, 0, 0, 2, 2, none, PVX_ERROR_PARAM},
    };
    int32_t marker;
    for (const Case &c : cases) {
        Parent parent(c.format);
        c.spoil(&parent.img);
        pvx_Image sub;
        memset(&sub, 0x3C, sizeof(sub));
        sub.external = 1;
        sub.env = reinterpret_cast<pvx_Env *>(&marker);
        const pvx_Image before = sub;
        EXPECT_EQ(pvx_Image_initSubImage(&sub, &parent.img, c.x, c.y, c.w, c.h), c.expect) << c.what;
        EXPECT_EQ(memcmp(&sub, &before, sizeof(sub)), 0) << c.what;
    }
}

TEST(SubImage, ViewsNeverFreeTheParent) {
    TestHeap heap;
    pvx_Image parent = fresh(heap.env());
    ASSERT_EQ(pvx_Image_init(&parent, 64, 32, nullptr, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    const uint32_t used = heap.used();

    // A view keeps the sub-record's own environment.
    TestHeap other;
    pvx_Image sub = fresh(other.env());
    ASSERT_EQ(pvx_Image_initSubImage(&sub, &parent, 2, 2, 8, 8), PVX_OK);
    EXPECT_EQ(sub.env, other.env());
    EXPECT_EQ(pvx_Image_init(&sub, 0, 0, nullptr, PVX_FORMAT_NONE), PVX_OK);
    ASSERT_EQ(pvx_Image_initSubImage(&sub, &parent, 2, 2, 8, 8), PVX_OK);
    EXPECT_EQ(pvx_destruct_Image(&sub), PVX_OK);
    EXPECT_EQ(heap.used(), used);

    // A sub-record that owned a block gives it back to its own heap.
    pvx_Image owner = fresh(heap.env());
    ASSERT_EQ(pvx_Image_init(&owner, 16, 16, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_GT(heap.used(), used);
    ASSERT_EQ(pvx_Image_initSubImage(&owner, &parent, 0, 0, 4, 4), PVX_OK);
    EXPECT_EQ(heap.used(), used);
    EXPECT_NE(owner.external, 0);

    // A record cannot become a view of the block it owns; it stays as it was.
    const pvx_Image before = parent;
    EXPECT_EQ(pvx_Image_initSubImage(&parent, &parent, 2, 2, 4, 4), PVX_ERROR_PARAM);
    pvx_Image view = fresh();
    ASSERT_EQ(pvx_Image_initSubImage(&view, &parent, 2, 2, 4, 4), PVX_OK);
    EXPECT_EQ(pvx_Image_initSubImage(&parent, &view, 0, 0, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_initSubImageY(&parent, &view, 0, 0, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_initSubImageUV(&parent, &view, 0, 0, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(memcmp(&parent, &before, sizeof(parent)), 0);

    // An external record may be narrowed in place.
    ASSERT_EQ(pvx_Image_initSubImage(&view, &view, 2, 2, 2, 2), PVX_OK);
    EXPECT_EQ(view.dat[0], parent.dat[0] + 4 * 64 + 4);
    EXPECT_EQ(view.dat[1], parent.dat[1] + 2 * 64 + 4);

    EXPECT_EQ(pvx_destruct_Image(&parent), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(heap.intact());
}

// ---- single-plane views ------------------------------------------------------

// The chroma view covers exactly the chroma samples of the luma rectangle:
// from the sample of its first pixel to the sample of its last.
TEST(PlaneView, ChromaViewCoversLumaRectangle) {
    struct Fmt { int32_t format; int sx, sy; pvx_Result (*fn)(pvx_Image *, const pvx_Image *, int32_t, int32_t, int32_t, int32_t); int32_t bpp; };
    const Fmt fmts[] = {{26, 1, 1, pvx_Image_initSubImageU, 1}, {24, 1, 0, pvx_Image_initSubImageV, 1},
                        {27, 1, 1, pvx_Image_initSubImageUV, 2}, {25, 1, 0, pvx_Image_initSubImageUV, 2},
                        {36, 0, 0, pvx_Image_initSubImageU, 1}};
    for (const Fmt &f : fmts) {
        Parent parent(f.format, 7, 5);
        const int plane = f.fn == pvx_Image_initSubImageV ? 2 : 1;
        for (int32_t x = 0; x < 7; ++x) {
            for (int32_t w = 1; x + w <= 7; ++w) {
                for (int32_t y = 0; y < 5; ++y) {
                    for (int32_t h = 1; y + h <= 5; ++h) {
                        pvx_Image sub = fresh();
                        ASSERT_EQ(f.fn(&sub, &parent.img, x, y, w, h), PVX_OK);
                        const int32_t cx0 = x >> f.sx, cx1 = (x + w - 1) >> f.sx;
                        const int32_t cy0 = y >> f.sy, cy1 = (y + h - 1) >> f.sy;
                        const ptrdiff_t expect = cy0 * parent.img.pitch[plane] + cx0 * f.bpp;
                        ASSERT_EQ(parent.offset(sub.dat[0], plane), expect) << f.format << " " << x << "," << y;
                        ASSERT_EQ(sub.width, cx1 - cx0 + 1) << f.format << " " << x << "+" << w;
                        ASSERT_EQ(sub.height, cy1 - cy0 + 1) << f.format << " " << y << "+" << h;
                    }
                }
            }
        }
    }
}

// Offsets that no real plane can reach are refused where ptrdiff_t is 32
// bits, instead of overflowing.
TEST(SubImage, UnaddressableOffsetsRefused) {
    if (sizeof(ptrdiff_t) != 4) GTEST_SKIP() << "offsets up to 2^62 fit a 64-bit ptrdiff_t";
    pvx_Image parent = fresh();
    pvx_ImagePlanes desc = {{g_pixels, g_pixels, g_pixels}, {1 << 20, 1 << 20, 1 << 20}};
    ASSERT_EQ(pvx_Image_initWithPitch(&parent, 1 << 20, 1 << 20, &desc, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    pvx_Image sub = fresh();
    EXPECT_EQ(pvx_Image_initSubImage(&sub, &parent, 0, 1 << 12, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_initSubImageY(&sub, &parent, 0, 1 << 12, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_initSubImageU(&sub, &parent, 0, 1 << 13, 2, 2), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_Image_initWithPitch(&parent, INT32_MAX, 4, &desc, PVX_FORMAT_LAB), PVX_OK);
    EXPECT_EQ(pvx_Image_initSubImage(&sub, &parent, INT32_MAX / 2, 0, 2, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(sub.dat[0], nullptr);
}

}  // namespace
