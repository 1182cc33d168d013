// The image record: owned memory from the heap, external planes, records
// filled from the caller's public image records, and the refusals that leave
// a record as it was (or empty, for a frame's records).
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include "image/pvx_image.h"
#include "parvex_distortion_correction.h"
#include "tests/image/image_test_util.h"

namespace {

using pvx_image_test::planesAre;
using pvx_image_test::recordIs;
using pvx_image_test::TestHeap;

uint8_t g_y[4096], g_u[4096], g_v[4096];

// Heap bytes of a block for an n-byte request: header of 8, multiples of 16.
uint32_t blockBytes(int64_t n) { return static_cast<uint32_t>(n + 8 <= 16 ? 16 : (n + 8 + 15) / 16 * 16); }

// Planes of an owned image lie one after another in one block; a new shape
// of the same byte size keeps the block (and its bytes), another size swaps
// it, and a failed allocation leaves an empty record and nothing in use.
TEST(ImageRecord, OwnedMemoryFromTheHeap) {
    TestHeap heap(64 * 1024);
    pvx_Image img;
    pvx_construct_Image(&img, heap.env());
    ASSERT_EQ(pvx_Image_init(&img, 61, 41, nullptr, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_TRUE(recordIs(img, 61, 41, PVX_FORMAT_YUV420_PLANAR, false));
    EXPECT_TRUE(planesAre(img, {img.dat[0], img.dat[0] + 62 * 42, img.dat[0] + 62 * 42 + 31 * 21}, {62, 31, 31}));
    EXPECT_EQ(heap.used(), blockBytes(62 * 42 + 2 * 31 * 21));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(img.dat[0]) % 16, 0u);

    ASSERT_EQ(pvx_Image_init(&img, 64, 48, nullptr, PVX_FORMAT_RGB888), PVX_OK);
    uint8_t *const block = img.dat[0];
    for (int i = 0; i < 9216; ++i) block[i] = static_cast<uint8_t>(i * 7 + 1);
    // 9216 bytes each: another shape, another format, 4:2:0 with its planes re-laid.
    struct Shape { int32_t w, h, f; };
    for (const Shape s : {Shape{96, 32, 2}, Shape{96, 48, 61}, Shape{96, 64, PVX_FORMAT_YUV420_SEMIPLANAR}}) {
        ASSERT_EQ(pvx_Image_init(&img, s.w, s.h, nullptr, s.f), PVX_OK);
        EXPECT_EQ(img.dat[0], block) << s.w << "x" << s.h;
        EXPECT_EQ(heap.used(), blockBytes(9216));
    }
    EXPECT_EQ(img.dat[1], block + 96 * 64);
    for (int i = 0; i < 9216; ++i) ASSERT_EQ(block[i], static_cast<uint8_t>(i * 7 + 1)) << i;
    ASSERT_EQ(pvx_Image_init(&img, 10, 10, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_EQ(heap.used(), blockBytes(100));

    EXPECT_EQ(pvx_Image_init(&img, 1000, 1000, nullptr, PVX_FORMAT_UINT8), PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_Image_init(&img, INT32_MAX, INT32_MAX, nullptr, PVX_FORMAT_UINT8), PVX_ERROR_NOMEM);
    EXPECT_TRUE(recordIs(img, 0, 0, PVX_FORMAT_UINT8, false));
    EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {0, 0, 0}));
    EXPECT_EQ(heap.used(), 0u);
    ASSERT_EQ(pvx_Image_init(&img, 0, 4, nullptr, PVX_FORMAT_UINT8), PVX_OK);   // nothing to allocate
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_TRUE(heap.intact());
}

// External planes take tight pitches (or the given ones, for the planes of
// the format only); the caller's memory is never given to the heap.
TEST(ImageRecord, ExternalPlanes) {
    TestHeap heap;
    pvx_Image img;
    pvx_construct_Image(&img, heap.env());
    ASSERT_EQ(pvx_Image_init(&img, 32, 32, nullptr, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    void *semi[2] = {g_y, g_u};
    ASSERT_EQ(pvx_Image_init(&img, 5, 3, semi, PVX_FORMAT_YVU420_SEMIPLANAR), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(recordIs(img, 5, 3, PVX_FORMAT_YVU420_SEMIPLANAR, true));
    EXPECT_TRUE(planesAre(img, {g_y, g_u, nullptr}, {6, 6, 0}));
    pvx_ImagePlanes desc = {{g_y, g_u, g_v}, {100, 200, 300}};
    ASSERT_EQ(pvx_Image_initWithPitch(&img, 5, 3, &desc, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {g_y, g_u, nullptr}, {100, 200, 0}));
    ASSERT_EQ(pvx_Image_init(&img, 4, 4, nullptr, PVX_FORMAT_UINT8), PVX_OK);   // owned again
    EXPECT_EQ(heap.used(), blockBytes(16));
    ASSERT_EQ(pvx_Image_init(&img, 7, 5, g_y, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_TRUE(planesAre(img, {g_y, nullptr, nullptr}, {21, 0, 0}));
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

TEST(ImageRecord, InvalidArgumentsLeaveTheRecordUnchanged) {
    TestHeap heap;
    pvx_Image img;
    pvx_construct_Image(&img, heap.env());
    ASSERT_EQ(pvx_Image_init(&img, 8, 8, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    const pvx_Image before = img;
    struct Case { int32_t w, h, f; };
    for (const Case c : {Case{-1, 8, 57}, Case{8, -1, 57}, Case{8, 8, 68}, Case{8, 8, -1},
                         Case{INT32_MAX, 1, PVX_FORMAT_LAB}, Case{INT32_MAX, 1, PVX_FORMAT_RGB888}}) {
        EXPECT_EQ(pvx_Image_init(&img, c.w, c.h, nullptr, c.f), PVX_ERROR_PARAM) << c.w << " " << c.h << " " << c.f;
        EXPECT_EQ(pvx_Image_init(&img, c.w, c.h, g_y, c.f), PVX_ERROR_PARAM);
        EXPECT_EQ(memcmp(&img, &before, sizeof(img)), 0);
    }
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
}

// A frame's records take as many planes as the format has; a refused fill
// leaves an empty record, so no pointer of an earlier frame survives.
TEST(ImageBridge, FramesFillRecordsOrLeaveThemEmpty) {
    pvx_Image img;
    pvx_construct_Image(&img, nullptr);
    parvex_ImageData data = {321, 241, {g_y, g_u, g_v}};
    ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_TRUE(planesAre(img, {g_y, nullptr, nullptr}, {963, 0, 0}));
    ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_TRUE(recordIs(img, 321, 241, PVX_FORMAT_YUV420_PLANAR, true));
    EXPECT_TRUE(planesAre(img, {g_y, g_u, g_v}, {322, 161, 161}));
    parvex_ImageDataEx ex = {100, 50, {g_y, g_u, g_v}, {128, 256, 512}};
    ASSERT_EQ(pvx_IF_initImageEx(&img, &ex, PVX_FORMAT_YVU420_SEMIPLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {g_y, g_u, nullptr}, {128, 256, 0}));

    parvex_ImageData negative = {-64, 48, {g_y, g_u, g_v}}, huge = {INT32_MAX, 1, {g_y, g_u, g_v}};
    parvex_ImageDataEx negativeEx = {64, -1, {g_y, g_u, g_v}, {64, 64, 64}};
    for (int k = 0; k < 5; ++k) {
        ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_RGB888), PVX_OK);
        const pvx_Result r = k == 0   ? pvx_IF_initImage(&img, &negative, PVX_FORMAT_RGB888)
                             : k == 1 ? pvx_IF_initImage(&img, &huge, PVX_FORMAT_RGB888)
                             : k == 2 ? pvx_IF_initImage(&img, &data, 68)
                             : k == 3 ? pvx_IF_initImageEx(&img, &negativeEx, PVX_FORMAT_RGB888)
                                      : pvx_IF_initImageEx(&img, nullptr, PVX_FORMAT_RGB888);
        EXPECT_EQ(r, PVX_ERROR_PARAM) << k;
        EXPECT_TRUE(recordIs(img, 0, 0, PVX_FORMAT_NONE, true)) << k;
        EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {0, 0, 0})) << k;
    }
    EXPECT_EQ(pvx_IF_getImageSizeV(321, 241, "YUV420_PLANAR"), 161 * 121);
    EXPECT_EQ(pvx_IF_getImageSize(321, 241, "yuv420_planar"), 0);   // names match exactly
}

// Caller pitches are plausible when every plane of the format is present and
// at least as wide as its row.
TEST(ImageBridge, PlausibleCallerPitches) {
    struct Case {
        const char *what;
        int32_t w, h, format;
        int32_t pitch[3];
        bool nullPlane[3];
        int32_t expect;
    };
    const Case cases[] = {
        {"RGB888 tight", 100, 10, PVX_FORMAT_RGB888, {300, -7, -7}, {false, true, true}, 1},
        {"RGB888 one short", 100, 10, PVX_FORMAT_RGB888, {299, 0, 0}, {false, false, false}, 0},
        {"RGB888 null plane", 100, 10, PVX_FORMAT_RGB888, {300, 0, 0}, {true, false, false}, 0},
        {"semi tight", 321, 241, PVX_FORMAT_YUV420_SEMIPLANAR, {322, 322, -1}, {false, false, true}, 1},
        {"semi luma 321", 321, 241, PVX_FORMAT_YUV420_SEMIPLANAR, {321, 322, 0}, {false, false, false}, 0},
        {"semi chroma null", 320, 240, PVX_FORMAT_YUV420_SEMIPLANAR, {320, 320, 0}, {false, true, false}, 0},
        {"planar tight", 321, 241, PVX_FORMAT_YUV420_PLANAR, {322, 161, 161}, {false, false, false}, 1},
        {"planar V short", 321, 241, PVX_FORMAT_YUV420_PLANAR, {322, 161, 160}, {false, false, false}, 0},
        {"width 0", 0, 10, PVX_FORMAT_RGB888, {300, 0, 0}, {false, false, false}, 0},
        {"format 68", 10, 10, 68, {300, 0, 0}, {false, false, false}, 0},
    };
    for (const Case &c : cases) {
        parvex_ImageDataEx data;
        data.width = c.w;
        data.height = c.h;
        uint8_t *planes[3] = {g_y, g_u, g_v};
        for (int p = 0; p < 3; ++p) {
            data.dat[p] = c.nullPlane[p] ? nullptr : planes[p];
            data.pitch[p] = c.pitch[p];
        }
        EXPECT_EQ(pvx_IF_isAvailableImageEx(&data, c.format), c.expect) << c.what;
    }
}

}  // namespace
