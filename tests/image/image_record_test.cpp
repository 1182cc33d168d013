// The image record: construction, owned memory and external planes.
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include "image/pvx_image.h"
#include "tests/image/image_test_util.h"

namespace {

using pvx_image_test::planesAre;
using pvx_image_test::recordIs;
using pvx_image_test::TestHeap;

// Heap bytes of a block for an n-byte request: header of 8, multiples of 16.
uint32_t blockBytes(int64_t n) { return static_cast<uint32_t>(n + 8 <= 16 ? 16 : (n + 8 + 15) / 16 * 16); }

// A record constructed over a guarded heap.
class ImageRecord : public ::testing::Test {
protected:
    ImageRecord() { pvx_construct_Image(&img, heap.env()); }
    TestHeap heap;
    pvx_Image img;
};

TEST_F(ImageRecord, OwnedMemoryLayoutAndHeapUse) {
    ASSERT_EQ(pvx_Image_init(&img, 321, 241, nullptr, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_TRUE(recordIs(img, 321, 241, 26, false));
    // Planes one after another in one block.
    EXPECT_TRUE(planesAre(img, {img.dat[0], img.dat[0] + 322 * 242, img.dat[0] + 322 * 242 + 161 * 121},
                          {322, 161, 161}));
    const int64_t size = 322 * 242 + 2 * 161 * 121;
    EXPECT_EQ(heap.used(), blockBytes(size));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(img.dat[0]) % 16, 0u);
    memset(img.dat[0], 0x11, static_cast<size_t>(size));   // the whole block is writable
    EXPECT_TRUE(heap.intact());

    // Single-plane formats leave planes 1 and 2 null.
    ASSERT_EQ(pvx_Image_init(&img, 7, 5, nullptr, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_TRUE(planesAre(img, {img.dat[0], nullptr, nullptr}, {21, 0, 0}));
    EXPECT_EQ(heap.used(), blockBytes(105));

    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(heap.intact());
}

TEST_F(ImageRecord, SameByteSizeKeepsBlockOtherSizeReallocates) {
    ASSERT_EQ(pvx_Image_init(&img, 64, 48, nullptr, PVX_FORMAT_RGB888), PVX_OK);
    uint8_t *const block = img.dat[0];
    const uint32_t used = heap.used();
    const uint32_t maxUsed = pvx_Heap2_getMaxUsedSize(&heap.env()->heap);
    // A kept block keeps its bytes; a freed one would carry the heap's links.
    for (int i = 0; i < 9216; ++i) block[i] = static_cast<uint8_t>(i * 7 + 1);
    auto intact = [&] {
        for (int i = 0; i < 9216; ++i) {
            if (block[i] != static_cast<uint8_t>(i * 7 + 1)) return false;
        }
        return true;
    };

    // 48 x 64 RGB888, 96 x 32 RGB888, 96 x 48 UINT16 (9216 bytes each, other shape or format).
    struct Shape { int32_t w, h, f; };
    for (const Shape s : {Shape{48, 64, 2}, Shape{96, 32, 2}, Shape{96, 48, 61}, Shape{64, 48, 2}}) {
        ASSERT_EQ(pvx_Image_init(&img, s.w, s.h, nullptr, s.f), PVX_OK);
        EXPECT_EQ(img.dat[0], block) << s.w << "x" << s.h;
        EXPECT_TRUE(recordIs(img, s.w, s.h, s.f, false));
        EXPECT_EQ(heap.used(), used);
        EXPECT_TRUE(intact()) << s.w << "x" << s.h;
    }
    // A 4:2:0 image of the same byte size keeps it as well, planes re-laid.
    ASSERT_EQ(pvx_Image_init(&img, 96, 64, nullptr, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    EXPECT_EQ(img.dat[0], block);
    EXPECT_EQ(img.dat[1], block + 96 * 64);
    EXPECT_TRUE(intact());
    // Nothing was allocated meanwhile.
    EXPECT_EQ(pvx_Heap2_getMaxUsedSize(&heap.env()->heap), maxUsed);

    // A different size gives the old block back and takes one of the new size.
    ASSERT_EQ(pvx_Image_init(&img, 65, 48, nullptr, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_EQ(heap.used(), blockBytes(65 * 48 * 3));
    ASSERT_EQ(pvx_Image_init(&img, 10, 10, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_EQ(heap.used(), blockBytes(100));
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(heap.intact());
}

TEST(ImageRecordSmallHeap, AllocationFailureReleasesOldBlock) {
    TestHeap heap(64 * 1024);
    pvx_Image img;
    pvx_construct_Image(&img, heap.env());
    ASSERT_EQ(pvx_Image_init(&img, 100, 100, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_GT(heap.used(), 0u);
    EXPECT_EQ(pvx_Image_init(&img, 1000, 1000, nullptr, PVX_FORMAT_UINT8), PVX_ERROR_NOMEM);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(recordIs(img, 0, 0, PVX_FORMAT_UINT8, false));
    EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {0, 0, 0}));
    // Sizes beyond what any heap can hold fail the same way.
    EXPECT_EQ(pvx_Image_init(&img, 60000, 60000, nullptr, PVX_FORMAT_LAB), PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_Image_init(&img, INT32_MAX, INT32_MAX, nullptr, PVX_FORMAT_UINT8), PVX_ERROR_NOMEM);
    // The record still works afterwards.
    ASSERT_EQ(pvx_Image_init(&img, 10, 10, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(heap.intact());

    // Without an environment nothing can be allocated.
    pvx_Image bare;
    pvx_construct_Image(&bare, nullptr);
    EXPECT_EQ(pvx_Image_init(&bare, 4, 4, nullptr, PVX_FORMAT_UINT8), PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_Image_init(&bare, 0, 4, nullptr, PVX_FORMAT_UINT8), PVX_OK);
}

TEST_F(ImageRecord, InvalidArgumentsLeaveRecordUnchanged) {
    ASSERT_EQ(pvx_Image_init(&img, 8, 8, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    const pvx_Image before = img;
    uint8_t pixels[64];
    struct Case { int32_t w, h, f; };
    for (const Case c : {Case{-1, 8, 57}, Case{8, -1, 57}, Case{8, 8, 68}, Case{8, 8, -1},
                         Case{INT32_MIN, 8, 57}, Case{INT32_MAX, 1, PVX_FORMAT_LAB},
                         Case{INT32_MAX, 1, PVX_FORMAT_RGB888}}) {
        EXPECT_EQ(pvx_Image_init(&img, c.w, c.h, nullptr, c.f), PVX_ERROR_PARAM) << c.w << " " << c.h << " " << c.f;
        EXPECT_EQ(pvx_Image_init(&img, c.w, c.h, pixels, c.f), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Image_initWithPitch(&img, c.w, c.h, nullptr, c.f), PVX_ERROR_PARAM);
        EXPECT_EQ(memcmp(&img, &before, sizeof(img)), 0);
    }
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

TEST_F(ImageRecord, ExternalPlanes) {
    ASSERT_EQ(pvx_Image_init(&img, 32, 32, nullptr, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_GT(heap.used(), 0u);

    // One plane: the address itself, with the tight pitch. The owned block goes.
    uint8_t rgb[7 * 3 * 5];
    ASSERT_EQ(pvx_Image_init(&img, 7, 5, rgb, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(recordIs(img, 7, 5, PVX_FORMAT_RGB888, true));
    EXPECT_TRUE(planesAre(img, {rgb, nullptr, nullptr}, {21, 0, 0}));

    // Two and three planes: an array of plane addresses, tight pitches.
    uint8_t y[6 * 4], uv[6 * 2], u[3 * 2], v[3 * 2];
    void *semi[2] = {y, uv};
    ASSERT_EQ(pvx_Image_init(&img, 5, 3, semi, PVX_FORMAT_YVU420_SEMIPLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {y, uv, nullptr}, {6, 6, 0}));
    void *planar[3] = {y, u, v};
    ASSERT_EQ(pvx_Image_init(&img, 5, 3, planar, PVX_FORMAT_YUV420_PLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {y, u, v}, {6, 3, 3}));

    // Explicit pitches: only the planes of the format are taken.
    pvx_ImagePlanes desc = {{y, uv, u}, {100, 200, 300}};
    ASSERT_EQ(pvx_Image_initWithPitch(&img, 5, 3, &desc, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {y, uv, nullptr}, {100, 200, 0}));
    ASSERT_EQ(pvx_Image_initWithPitch(&img, 5, 3, &desc, PVX_FORMAT_YUV422_PLANAR), PVX_OK);
    EXPECT_TRUE(planesAre(img, {y, uv, u}, {100, 200, 300}));

    // Re-initializing an external record as owned does not free the caller's memory.
    ASSERT_EQ(pvx_Image_init(&img, 4, 4, nullptr, PVX_FORMAT_UINT8), PVX_OK);
    EXPECT_EQ(img.external, 0);
    EXPECT_NE(img.dat[0], y);
    EXPECT_EQ(heap.used(), blockBytes(16));
    // Destroying an external record frees nothing.
    ASSERT_EQ(pvx_Image_init(&img, 7, 5, rgb, PVX_FORMAT_RGB888), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_EQ(pvx_destruct_Image(&img), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_TRUE(planesAre(img, {nullptr, nullptr, nullptr}, {0, 0, 0}));
    EXPECT_TRUE(heap.intact());
}

}  // namespace
