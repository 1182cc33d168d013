// Image copy, and partial copy (which the engine does not use) against a
// reference of the bytes each aligned rectangle covers.
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "image/pvx_image.h"
#include "tests/image/image_test_util.h"
#include "tests/support/test_random.h"

namespace {

using pvx_image_test::GuardedImage;
using GuardedPlane = pvx_test::GuardedImage::Plane;
using pvx_image_test::TestHeap;

// Snapshot of every byte of every plane of a guarded image.
std::vector<std::vector<uint8_t>> snapshot(const GuardedImage &g) {
    std::vector<std::vector<uint8_t>> out;
    for (const GuardedPlane &p : g.planes) {
        out.emplace_back(p.buf ? std::vector<uint8_t>(p.start, p.start + p.bytes) : std::vector<uint8_t>());
    }
    return out;
}

uint8_t at(const pvx_Image &img, int plane, int64_t row, int64_t byte) {
    return img.dat[plane][row * img.pitch[plane] + byte];
}

// Every byte of dst's planes: within the first rows[p] rows and bytes[p]
// bytes of a row it holds src's byte, elsewhere the byte it held before.
void expectCopied(const GuardedImage &dst, const pvx_Image &src, const std::vector<std::vector<uint8_t>> &before,
                  const int64_t bytes[3], const int64_t rows[3], const char *what) {
    for (int p = 0; p < 3; ++p) {
        for (int64_t i = 0; i < dst.planes[p].bytes; ++i) {
            const int64_t r = i / dst.img.pitch[p], b = i % dst.img.pitch[p];
            const uint8_t expect = (r < rows[p] && b < bytes[p]) ? at(src, p, r, b) : before[p][i];
            ASSERT_EQ(dst.planes[p].start[i], expect) << what << " plane " << p << " row " << r << " byte " << b;
        }
    }
}

// Every format, odd and even sizes, differing pitches: each plane's rows of
// the copy extent arrive, nothing else is written.
TEST(ImageCopy, EveryFormatBetweenDifferentPitches) {
    auto rng = pvx_test::makeRng(2);
    std::uniform_int_distribution<int32_t> size(1, 23), pad(0, 9);
    for (int32_t f = 1; f < 68; ++f) {
        for (int round = 0; round < pvx_test::rounds(4); ++round) {
            const int32_t w = size(rng), h = size(rng);
            GuardedImage src(w, h, f, pad(rng), round & 1 ? 8 : 0);
            GuardedImage dst(w, h, f, pad(rng), round & 1 ? 8 : 0);
            src.fill(rng);
            dst.fill(rng);
            const auto before = snapshot(dst);
            ASSERT_EQ(pvx_Image_copy(&dst.img, &src.img), PVX_OK) << f;
            ASSERT_TRUE(dst.guardsIntact());
            int64_t bytes[3], rows[3];
            for (int p = 0; p < 3; ++p) {
                const pvx_PlaneSize e = pvx_Image_getPlaneExtent(w, h, f, p);
                bytes[p] = e.pitch;
                rows[p] = e.rows;
            }
            SCOPED_TRACE(::testing::Message() << w << "x" << h);
            expectCopied(dst, src.img, before, bytes, rows, pvx_Image_getImageFormatStr(f));
        }
    }
}

TEST(ImageCopy, OwnedDestinationTakesSourceShape) {
    TestHeap heap;
    auto rng = pvx_test::makeRng(3);
    GuardedImage src(33, 17, PVX_FORMAT_YUV420_PLANAR, 5);
    src.fill(rng);
    pvx_Image dst;
    pvx_construct_Image(&dst, heap.env());
    ASSERT_EQ(pvx_Image_copy(&dst, &src.img), PVX_OK);
    EXPECT_TRUE(pvx_image_test::recordIs(dst, 33, 17, 26, false));
    EXPECT_EQ(dst.pitch[0], 34);
    EXPECT_EQ(dst.pitch[1], 17);
    for (int p = 0; p < 3; ++p) {
        const pvx_PlaneSize e = pvx_Image_getPlaneExtent(33, 17, 26, p);
        for (int64_t r = 0; r < e.rows; ++r) {
            ASSERT_EQ(memcmp(pvx_Image_row(&dst, p, static_cast<int32_t>(r)), pvx_Image_row(&src.img, p, static_cast<int32_t>(r)),
                             static_cast<size_t>(e.pitch)), 0);
        }
    }
    uint8_t *const block = dst.dat[0];
    const uint32_t used = heap.used();
    ASSERT_EQ(pvx_Image_copy(&dst, &src.img), PVX_OK);
    EXPECT_EQ(dst.dat[0], block);
    EXPECT_EQ(heap.used(), used);

    EXPECT_EQ(pvx_destruct_Image(&dst), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

TEST(ImageCopy, SameRecordOrSharedFirstPlaneCopiesNothing) {
    TestHeap heap;
    pvx_Image owner;
    pvx_construct_Image(&owner, heap.env());
    ASSERT_EQ(pvx_Image_init(&owner, 16, 16, nullptr, PVX_FORMAT_YUV420_SEMIPLANAR), PVX_OK);
    const pvx_Image ownerBefore = owner;
    EXPECT_EQ(pvx_Image_copy(&owner, &owner), PVX_OK);

    // A view at the origin shares dat[0]: OK both ways, and neither record
    // is re-shaped (the owner keeps 16 x 16 although the view is 8 x 4).
    pvx_Image view;
    pvx_construct_Image(&view, nullptr);
    ASSERT_EQ(pvx_Image_initSubImage(&view, &owner, 0, 0, 8, 4), PVX_OK);
    const pvx_Image viewBefore = view;
    EXPECT_EQ(pvx_Image_copy(&owner, &view), PVX_OK);
    EXPECT_EQ(memcmp(&owner, &ownerBefore, sizeof(owner)), 0);
    EXPECT_EQ(pvx_Image_copy(&view, &owner), PVX_OK);
    EXPECT_EQ(memcmp(&view, &viewBefore, sizeof(view)), 0);

    // A source that lives elsewhere in the owner's block would be freed by
    // re-shaping the owner: refused.
    ASSERT_EQ(pvx_Image_initSubImage(&view, &owner, 2, 2, 8, 4), PVX_OK);
    EXPECT_EQ(pvx_Image_copy(&owner, &view), PVX_ERROR_PARAM);
    EXPECT_EQ(memcmp(&owner, &ownerBefore, sizeof(owner)), 0);
    EXPECT_EQ(pvx_destruct_Image(&owner), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

TEST(ImageCopy, RefusedBeforeAnyPixelIsWritten) {
    struct Case {
        const char *what;
        void (*spoilSrc)(pvx_Image *);
        void (*spoilDst)(pvx_Image *);
    };
    auto none = [](pvx_Image *) {};
    const Case cases[] = {
        {"src dat[0] null", [](pvx_Image *p) { p->dat[0] = nullptr; }, none},
        {"src width 0", [](pvx_Image *p) { p->width = 0; }, none},
        {"src format 0", [](pvx_Image *p) { p->format = 0; }, none},
        {"src dat[1] null", [](pvx_Image *p) { p->dat[1] = nullptr; }, none},
        {"dst width", none, [](pvx_Image *p) { p->width = 7; }},
        {"dst format", none, [](pvx_Image *p) { p->format = PVX_FORMAT_YUV422_PLANAR; }},
        {"dst dat[0] null", none, [](pvx_Image *p) { p->dat[0] = nullptr; }},
        {"dst dat[1] null", none, [](pvx_Image *p) { p->dat[1] = nullptr; }},
    };
    for (const Case &c : cases) {
        GuardedImage src(8, 8, PVX_FORMAT_YUV420_PLANAR, 0, 8);
        GuardedImage dst(8, 8, PVX_FORMAT_YUV420_PLANAR, 0, 8);
        src.fill([] { return 1; });
        const auto before = snapshot(dst);
        c.spoilSrc(&src.img);
        c.spoilDst(&dst.img);
        const pvx_Image dstRecord = dst.img;
        EXPECT_EQ(pvx_Image_copy(&dst.img, &src.img), PVX_ERROR_PARAM) << c.what;
        EXPECT_EQ(snapshot(dst), before) << c.what;
        EXPECT_EQ(memcmp(&dst.img, &dstRecord, sizeof(dstRecord)), 0) << c.what;
    }
    // Two empty records share a null dat[0]: nothing to do.
    pvx_Image a, b;
    pvx_construct_Image(&a, nullptr);
    pvx_construct_Image(&b, nullptr);
    EXPECT_EQ(pvx_Image_copy(&a, &b), PVX_OK);
}

// ---- partial copy ------------------------------------------------------------

// Reference for an aligned rectangle: a byte of plane p at (row r, byte b)
// belongs to the unit of pixels it stores; it is copied when that unit's
// first pixel lies inside the rectangle.
struct Rect { int32_t dx, dy, sx, sy, w, h; };

void expectPartial(const GuardedImage &dst, const std::vector<std::vector<uint8_t>> &before,
                   const std::vector<std::vector<uint8_t>> &srcBytes, const pvx_Image &src, const Rect &rc,
                   const char *what) {
    const pvx_FormatLayout *layout = pvx_Image_getFormatLayout(src.format);
    for (int p = 0; p < 3; ++p) {
        const pvx_PlaneLayout &pl = layout->plane[p];
        if (pl.bytes == 0) continue;
        for (int64_t i = 0; i < dst.planes[p].bytes; ++i) {
            const int64_t r = i / dst.img.pitch[p], b = i % dst.img.pitch[p];
            // First pixel of this byte's unit, in destination coordinates.
            const int64_t px = b / pl.bytes << pl.xshift, py = r / pl.rows << pl.yshift;
            const bool inside = px >= rc.dx && px < rc.dx + rc.w && py >= rc.dy && py < rc.dy + rc.h &&
                                b < pvx_Image_getPlaneExtent(dst.img.width, dst.img.height, src.format, p).pitch;
            uint8_t expect = before[p][i];
            if (inside) {
                const int64_t sr = r - (rc.dy >> pl.yshift) * pl.rows + (rc.sy >> pl.yshift) * pl.rows;
                const int64_t sb = b - (rc.dx >> pl.xshift) * pl.bytes + (rc.sx >> pl.xshift) * pl.bytes;
                expect = srcBytes[p][sr * src.pitch[p] + sb];
            }
            ASSERT_EQ(dst.planes[p].start[i], expect) << what << " plane " << p << " row " << r << " byte " << b;
        }
    }
}

TEST(ImagePartialCopy, AlignedRectanglesAgainstReference) {
    auto rng = pvx_test::makeRng(4);
    const int32_t formats[] = {PVX_FORMAT_UINT8, PVX_FORMAT_RGB888, PVX_FORMAT_LAB, PVX_FORMAT_YUV422_YUYV,
                               PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_YUV420_SEMIPLANAR, PVX_FORMAT_YVU422_SEMIPLANAR,
                               PVX_FORMAT_YUV422_PLANAR, PVX_FORMAT_YUV444_PLANAR, PVX_FORMAT_BAYER10_M8L2PACKED_RGGB,
                               PVX_FORMAT_YUV9_44_UV};
    for (int32_t f : formats) {
        const pvx_FormatLayout *layout = pvx_Image_getFormatLayout(f);
        const int32_t ax = 1 << layout->xalign, ay = 1 << layout->yalign;
        for (int round = 0; round < pvx_test::rounds(40); ++round) {
            const int32_t sw = 8 + static_cast<int32_t>(rng() % 20), sh = 8 + static_cast<int32_t>(rng() % 12);
            const int32_t dw = 8 + static_cast<int32_t>(rng() % 20), dh = 8 + static_cast<int32_t>(rng() % 12);
            GuardedImage src(sw, sh, f, static_cast<int32_t>(rng() % 5), 0);
            GuardedImage dst(dw, dh, f, static_cast<int32_t>(rng() % 5), 8);
            src.fill(rng);
            dst.fill(rng);
            Rect rc;
            rc.w = static_cast<int32_t>(rng() % ((sw < dw ? sw : dw) / ax + 1)) * ax;
            rc.h = static_cast<int32_t>(rng() % ((sh < dh ? sh : dh) / ay + 1)) * ay;
            rc.sx = static_cast<int32_t>(rng() % ((sw - rc.w) / ax + 1)) * ax;
            rc.sy = static_cast<int32_t>(rng() % ((sh - rc.h) / ay + 1)) * ay;
            rc.dx = static_cast<int32_t>(rng() % ((dw - rc.w) / ax + 1)) * ax;
            rc.dy = static_cast<int32_t>(rng() % ((dh - rc.h) / ay + 1)) * ay;
            const auto before = snapshot(dst);
            const auto srcBytes = snapshot(src);
            ASSERT_EQ(pvx_Image_partialCopy(&dst.img, &src.img, rc.dx, rc.dy, rc.sx, rc.sy, rc.w, rc.h), PVX_OK)
                << pvx_Image_getImageFormatStr(f);
            ASSERT_TRUE(dst.guardsIntact());
            expectPartial(dst, before, srcBytes, src.img, rc, pvx_Image_getImageFormatStr(f));
        }
    }
}

// Rectangles off the format's alignment grid, outside either image or with
// negative sizes are refused, and the destination keeps every byte.
TEST(ImagePartialCopy, RefusedRectangles) {
    struct Case { Rect rc; pvx_Result expect; };
    const Case cases[] = {
        {{2, 2, 4, 4, 2, 2}, PVX_OK},            {{1, 2, 4, 4, 2, 2}, PVX_ERROR_PARAM},
        {{2, 1, 4, 4, 2, 2}, PVX_ERROR_PARAM},   {{2, 2, 3, 4, 2, 2}, PVX_ERROR_PARAM},
        {{2, 2, 4, 3, 2, 2}, PVX_ERROR_PARAM},   {{2, 2, 4, 4, 3, 2}, PVX_ERROR_PARAM},
        {{2, 2, 4, 4, 2, 3}, PVX_ERROR_PARAM},   {{2, 2, 4, 4, -2, 2}, PVX_ERROR_PARAM},
        {{2, 2, 10, 4, 2, 2}, PVX_ERROR_PARAM},  {{10, 2, 4, 4, 2, 2}, PVX_ERROR_PARAM},
    };
    for (const Case &c : cases) {
        GuardedImage src(10, 10, PVX_FORMAT_YUV420_PLANAR, 0, 0);
        GuardedImage dst(10, 10, PVX_FORMAT_YUV420_PLANAR, 0, 8);
        src.fill([] { return 1; });
        const auto before = snapshot(dst);
        const Rect &r = c.rc;
        EXPECT_EQ(pvx_Image_partialCopy(&dst.img, &src.img, r.dx, r.dy, r.sx, r.sy, r.w, r.h), c.expect)
            << r.dx << "," << r.dy << " " << r.sx << "," << r.sy << " " << r.w << "x" << r.h;
        if (c.expect != PVX_OK) {
            EXPECT_EQ(snapshot(dst), before);
        }
    }
}

// Records describing more than the address space are refused where
// ptrdiff_t is 32 bits, before any byte is touched.
TEST(ImageCopy, UnaddressableRecordsRefused) {
    if (sizeof(ptrdiff_t) != 4) GTEST_SKIP() << "needs a 32-bit address space";
    GuardedImage small(4, 4, PVX_FORMAT_UINT8);
    pvx_Image huge;
    pvx_construct_Image(&huge, nullptr);
    pvx_ImagePlanes desc = {{small.img.dat[0], nullptr, nullptr}, {1 << 20, 0, 0}};
    ASSERT_EQ(pvx_Image_initWithPitch(&huge, 4, 1 << 12, &desc, PVX_FORMAT_UINT8), PVX_OK);
    pvx_Image dst;
    pvx_construct_Image(&dst, nullptr);
    dst.external = 1;
    EXPECT_EQ(pvx_Image_copy(&dst, &huge), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_partialCopy(&small.img, &huge, 0, 0, 0, 2048, 4, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Image_partialCopy(&huge, &small.img, 0, 2048, 0, 0, 4, 2), PVX_ERROR_PARAM);
    // Negative pitches count by their size.
    huge.pitch[0] = -(1 << 20);
    EXPECT_EQ(pvx_Image_partialCopy(&small.img, &huge, 0, 0, 0, 2048, 4, 2), PVX_ERROR_PARAM);
}

}  // namespace
