// Records from the caller's public image records, size queries by name and
// the plausibility test of caller pitches.
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

TEST(ImageBridge, InitImageTakesPlanesByPlaneCount) {
    TestHeap heap;
    pvx_Image img;
    pvx_construct_Image(&img, heap.env());
    parvex_ImageData data = {321, 241, {g_y, g_u, g_v}};

    ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_TRUE(recordIs(img, 321, 241, PVX_FORMAT_RGB888, true));
    EXPECT_TRUE(planesAre(img, {g_y, nullptr, nullptr}, {963, 0, 0}));
    ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {g_y, g_u, nullptr}, {322, 322, 0}));
    ASSERT_EQ(pvx_IF_initImage(&img, &data, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_TRUE(recordIs(img, 321, 241, PVX_FORMAT_YUV420_PLANAR, true));
    EXPECT_TRUE(planesAre(img, {g_y, g_u, g_v}, {322, 161, 161}));

    // A null plane pointer still wraps caller memory: nothing from the heap.
    parvex_ImageData empty = {640, 480, {nullptr, nullptr, nullptr}};
    ASSERT_EQ(pvx_IF_initImage(&img, &empty, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_TRUE(recordIs(img, 640, 480, PVX_FORMAT_RGB888, true));
    EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {1920, 0, 0}));
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
}

// A refused fill leaves no pointers of an earlier frame behind.
TEST(ImageBridge, RefusedFillLeavesEmptyRecord) {
    pvx_Image img;
    pvx_construct_Image(&img, nullptr);
    parvex_ImageData good = {64, 48, {g_y, g_u, g_v}};
    parvex_ImageData negative = {-64, 48, {g_y, g_u, g_v}};
    parvex_ImageData huge = {INT32_MAX, 1, {g_y, g_u, g_v}};
    parvex_ImageDataEx goodEx = {64, 48, {g_y, g_u, g_v}, {64, 64, 64}};
    parvex_ImageDataEx negativeEx = {64, -1, {g_y, g_u, g_v}, {64, 64, 64}};

    // Each refusal follows a good fill and leaves an empty external record.
    auto refused = [&](pvx_Result r, const char *what) {
        EXPECT_EQ(r, PVX_ERROR_PARAM) << what;
        EXPECT_TRUE(recordIs(img, 0, 0, PVX_FORMAT_NONE, true)) << what;
        EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {0, 0, 0})) << what;
    };
    auto fill = [&](bool ex) {
        EXPECT_EQ(ex ? pvx_IF_initImageEx(&img, &goodEx, PVX_FORMAT_RGB888)
                     : pvx_IF_initImage(&img, &good, PVX_FORMAT_RGB888),
                  PVX_OK);
    };
    fill(false); refused(pvx_IF_initImage(&img, &negative, PVX_FORMAT_RGB888), "negative width");
    fill(false); refused(pvx_IF_initImage(&img, &huge, PVX_FORMAT_RGB888), "pitch beyond int32");
    fill(false); refused(pvx_IF_initImage(&img, nullptr, PVX_FORMAT_RGB888), "null record");
    fill(false); refused(pvx_IF_initImage(&img, &good, 68), "format 68");
    fill(true); refused(pvx_IF_initImageEx(&img, &negativeEx, PVX_FORMAT_RGB888), "negative height Ex");
    fill(true); refused(pvx_IF_initImageEx(&img, nullptr, PVX_FORMAT_RGB888), "null record Ex");
    EXPECT_EQ(pvx_IF_initImage(nullptr, &good, PVX_FORMAT_RGB888), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_IF_initImageEx(nullptr, &goodEx, PVX_FORMAT_RGB888), PVX_ERROR_PARAM);
}

TEST(ImageBridge, SizesByName) {
    EXPECT_EQ(pvx_IF_getImageSize(321, 241, "YUV420_PLANAR"), 322 * 242 + 2 * 161 * 121);
    EXPECT_EQ(pvx_IF_getImageSizeY(321, 241, "YUV420_PLANAR"), 322 * 242);
    EXPECT_EQ(pvx_IF_getImageSizeV(321, 241, "YUV420_PLANAR"), 161 * 121);
    EXPECT_EQ(pvx_IF_getImageSizeUV(1920, 1080, "YVU420_SEMIPLANAR"), 1920 * 540);
    // Unknown or differently cased names are "NONE", of size 0.
    EXPECT_EQ(pvx_IF_getImageSize(321, 241, "yuv420_planar"), 0);
    EXPECT_EQ(pvx_IF_getImageSize(321, 241, "NV21"), 0);
    EXPECT_EQ(pvx_IF_getImageSize(321, 241, nullptr), 0);
    EXPECT_EQ(pvx_IF_getImageSize(-1, 241, "RGB888"), 0);
}

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
        {"RGB888 wider", 100, 10, PVX_FORMAT_RGB888, {320, 0, 0}, {false, false, false}, 1},
        {"RGB888 null plane", 100, 10, PVX_FORMAT_RGB888, {300, 0, 0}, {true, false, false}, 0},
        {"semi tight", 321, 241, PVX_FORMAT_YUV420_SEMIPLANAR, {322, 322, -1}, {false, false, true}, 1},
        {"semi luma 321", 321, 241, PVX_FORMAT_YUV420_SEMIPLANAR, {321, 322, 0}, {false, false, false}, 0},
        {"semi chroma short", 320, 240, PVX_FORMAT_YUV420_SEMIPLANAR, {320, 319, 0}, {false, false, false}, 0},
        {"semi chroma null", 320, 240, PVX_FORMAT_YUV420_SEMIPLANAR, {320, 320, 0}, {false, true, false}, 0},
        {"planar tight", 321, 241, PVX_FORMAT_YUV420_PLANAR, {322, 161, 161}, {false, false, false}, 1},
        {"planar V short", 321, 241, PVX_FORMAT_YUV420_PLANAR, {322, 161, 160}, {false, false, false}, 0},
        {"planar V null", 321, 241, PVX_FORMAT_YUV420_PLANAR, {322, 161, 161}, {false, false, true}, 0},
        {"width 0", 0, 10, PVX_FORMAT_RGB888, {300, 0, 0}, {false, false, false}, 0},
        {"height 0", 10, 0, PVX_FORMAT_RGB888, {300, 0, 0}, {false, false, false}, 0},
        {"NONE", 10, 10, PVX_FORMAT_NONE, {300, 0, 0}, {false, false, false}, 0},
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
    EXPECT_EQ(pvx_IF_isAvailableImageEx(nullptr, PVX_FORMAT_RGB888), 0);
}

}  // namespace
