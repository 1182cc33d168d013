// Top-level resize: the equal-size copy, the format dispatch, multi-plane
// formats plane by plane, scratch failure, and the memory a
// resize takes against the size query.
#include <stdlib.h>

#include "tests/resample/resize_test_util.h"

#include "resample/pvx_resize_internal.h"

namespace {

using namespace rt;

typedef pvx_Result (*Entry)(pvx_ImageProc2 *, pvx_Image *, const pvx_Image *);
const Entry kEntries[] = {pvx_ImageProc2_resizeImage, pvx_ImageProc2_resizeImageBilinear};

TEST(ResizeDispatch, EqualSizeCopiesOrRefusesOtherFormat) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(700);
    // Any format the copy knows, including ones the resize itself refuses.
    for (int32_t format : {PVX_FORMAT_UINT8, PVX_FORMAT_RGB888, PVX_FORMAT_BGR888, PVX_FORMAT_YUV420_SEMIPLANAR,
                           PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_FLOAT}) {
        for (Entry e : kEntries) {
            TestImage src(13, 7, format, 1), dst(13, 7, format, 3);
            src.randomize(rng);
            ASSERT_EQ(e(&rz.proc, &dst.img, &src.img), PVX_OK) << format;
            for (int32_t p = 0; p < pvx_Image_getPlaneCount(format); ++p) EXPECT_EQ(dst.plane(p), src.plane(p));
            EXPECT_TRUE(dst.sentinelsIntact());
        }
    }
    TestImage src(13, 7, PVX_FORMAT_RGB888), dst(13, 7, PVX_FORMAT_BGR888);
    src.randomize(rng);
    dst.fillPixels(9);
    for (Entry e : kEntries) EXPECT_EQ(e(&rz.proc, &dst.img, &src.img), PVX_ERROR_FORMAT);
    EXPECT_EQ(dst.plane(0), std::vector<uint8_t>(13 * 7 * 3, 9));
}

TEST(ResizeDispatch, RefusedFormatsWriteNothing) {
    // "BGR888" has RGB888's pixel size but is refused: the dispatch tests the value 2 alone.
    Resizer rz;
    const int32_t refused[] = {PVX_FORMAT_BGR888, PVX_FORMAT_HSV, PVX_FORMAT_LAB, PVX_FORMAT_FLOAT,
                               PVX_FORMAT_RGB161616, PVX_FORMAT_INT16, PVX_FORMAT_RGB565,
                               PVX_FORMAT_YUV422_SEMIPLANAR, PVX_FORMAT_YVU422_SEMIPLANAR, PVX_FORMAT_YUV444_PLANAR,
                               PVX_FORMAT_YUV422_YUYV, 4 /* BGRA8888 */, 37 /* BAYER8_RGGB */};
    for (int32_t format : refused) {
        for (Entry e : kEntries) {
            for (int32_t dw : {9, 5}) {   // bilinear and half sizes
                TestImage src(10, 6, format), dst(dw, 3, format, 1);
                dst.fillPixels(0x33);
                const uint32_t used = rz.env.used();
                EXPECT_EQ(e(&rz.proc, &dst.img, &src.img), PVX_ERROR_FORMAT) << format;
                EXPECT_EQ(rz.env.used(), used);
                for (int32_t p = 0; p < pvx_Image_getPlaneCount(format); ++p)
                    for (uint8_t v : dst.plane(p)) ASSERT_EQ(v, 0x33);
                EXPECT_TRUE(dst.sentinelsIntact());
            }
        }
    }
    TestImage src(10, 6, PVX_FORMAT_RGB888), dst(9, 3, PVX_FORMAT_RGB888);
    EXPECT_EQ(pvx_ImageProc2_resizeImage(&rz.proc, &dst.img, &src.img), PVX_OK);
}

TEST(ResizeDispatch, MultiPlaneFormatsResizePlaneByPlane) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(702);
    const int32_t formats[] = {PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_YUV420_SEMIPLANAR, PVX_FORMAT_YVU420_SEMIPLANAR};
    for (int i = 0; i < pvx_test::rounds(48); ++i) {
        const int32_t format = formats[i % 3];
        const Entry e = kEntries[(i / 3) % 2];
        const int32_t sw = 2 + static_cast<int32_t>(rng() % 40), sh = 2 + static_cast<int32_t>(rng() % 30);
        int32_t dw, dh;
        if (i % 4 == 0) {   // half sizes
            dw = (sw >> 1) + static_cast<int32_t>(rng() % 3) - 1;
            dh = (sh >> 1) + static_cast<int32_t>(rng() % 3) - 1;
            dw = std::max(dw, 1);
            dh = std::max(dh, 1);
        } else {
            dw = 1 + static_cast<int32_t>(rng() % 70);
            dh = 1 + static_cast<int32_t>(rng() % 50);
        }
        if (dw == sw && dh == sh) ++dh;
        TestImage src(sw, sh, format, 1), dst(dw, dh, format, 2);
        src.randomize(rng);
        const uint32_t used = rz.env.used();
        ASSERT_EQ(e(&rz.proc, &dst.img, &src.img), PVX_OK);
        EXPECT_EQ(rz.env.used(), used);
        EXPECT_TRUE(dst.sentinelsIntact());

        // Each plane resized on its own, by the path chosen for the whole image
        // (the chroma planes alone may sit on the other side of the half test).
        const bool half = e == pvx_ImageProc2_resizeImage && std::abs(dw - (sw >> 1)) <= 1 &&
                          std::abs(dh - (sh >> 1)) <= 1;
        const bool planar = format == PVX_FORMAT_YUV420_PLANAR;
        const int32_t cw = (sw + 1) / 2, ch = (sh + 1) / 2, cdw = (dw + 1) / 2, cdh = (dh + 1) / 2;
        struct PlaneCase {
            int32_t plane, w, h, dw, dh;
            Kind kind;
        } cases[3] = {{0, sw, sh, dw, dh, U8}, {1, cw, ch, cdw, cdh, planar ? U8 : U88}, {2, cw, ch, cdw, cdh, U8}};
        for (int32_t c = 0; c < (planar ? 3 : 2); ++c) {
            const PlaneCase &pc = cases[c];
            const std::vector<int64_t> s = samples(pc.kind, src.plane(pc.plane));
            const std::vector<int64_t> want = half ? modelBox(pc.kind, s, pc.w, pc.h, pc.dw, pc.dh)
                                                   : modelBilinear(pc.kind, s, pc.w, pc.h, pc.dw, pc.dh);
            EXPECT_EQ(firstDiff(want, samples(pc.kind, dst.plane(pc.plane))), -1)
                << "format " << format << " plane " << pc.plane << " " << sw << "x" << sh << " -> " << dw << "x" << dh
                << (half ? " half" : "");
        }
    }
}

TEST(ResizeDispatch, HalfDecisionIsTakenOnTheWholeImage) {
    // 6x24 -> 2x14 is not a half resize, though its chroma plane alone
    // (3x12 -> 1x7) would be: the chroma is resized bilinearly.
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(704);
    TestImage src(6, 24, PVX_FORMAT_YUV420_SEMIPLANAR), dst(2, 14, PVX_FORMAT_YUV420_SEMIPLANAR);
    src.randomize(rng);
    ASSERT_EQ(pvx_ImageProc2_resizeImage(&rz.proc, &dst.img, &src.img), PVX_OK);
    const std::vector<int64_t> uv = samples(U88, src.plane(1));
    EXPECT_EQ(firstDiff(modelBilinear(U88, uv, 3, 12, 1, 7), samples(U88, dst.plane(1))), -1);
    EXPECT_NE(firstDiff(modelBox(U88, uv, 3, 12, 1, 7), samples(U88, dst.plane(1))), -1);
}

TEST(ResizeDispatch, ScratchFailureWritesNothing) {
    // A heap too small for dw * 2 bytes: out of memory, and an untouched destination.
    Resizer rz(2048);
    TestImage src(100, 10, PVX_FORMAT_UINT8), dst(1500, 20, PVX_FORMAT_UINT8, 1);
    dst.fillPixels(0x77);
    EXPECT_EQ(pvx_ImageProc2_resizeImageBilinear(&rz.proc, &dst.img, &src.img), PVX_ERROR_NOMEM);
    for (uint8_t v : dst.plane(0)) ASSERT_EQ(v, 0x77);
    EXPECT_TRUE(dst.sentinelsIntact());
    EXPECT_EQ(rz.env.used(), 0u);

    // Multi-plane: failure on Y returns at once, nothing written.
    TestImage ysrc(100, 10, PVX_FORMAT_YUV420_SEMIPLANAR), ydst(1500, 20, PVX_FORMAT_YUV420_SEMIPLANAR);
    ydst.fillPixels(0x77);
    EXPECT_EQ(pvx_ImageProc2_resizeImage(&rz.proc, &ydst.img, &ysrc.img), PVX_ERROR_NOMEM);
    for (int32_t p = 0; p < 2; ++p)
        for (uint8_t v : ydst.plane(p)) ASSERT_EQ(v, 0x77);
}

TEST(ResizeDispatch, ChromaScratchFailureAfterLuma) {
    // Y needs 2 * 300 bytes, the interleaved chroma 8 * 150: a heap in between
    // resizes Y, then runs out of memory on the chroma pass.
    Resizer rz(1024);
    std::mt19937_64 rng = pvx_test::makeRng(703);
    TestImage src(40, 10, PVX_FORMAT_YUV420_SEMIPLANAR), dst(300, 20, PVX_FORMAT_YUV420_SEMIPLANAR);
    src.randomize(rng);
    dst.fillPixels(0x77);
    EXPECT_EQ(pvx_ImageProc2_resizeImage(&rz.proc, &dst.img, &src.img), PVX_ERROR_NOMEM);
    EXPECT_EQ(firstDiff(modelBilinear(U8, samples(U8, src.plane(0)), 40, 10, 300, 20), samples(U8, dst.plane(0))), -1);
    for (uint8_t v : dst.plane(1)) ASSERT_EQ(v, 0x77);
    EXPECT_EQ(rz.env.used(), 0u);
}

TEST(ResizeObject, BufferSizeQueriesMatchHeapUse) {
    // The heap's high-water mark during a resize equals the query.
    for (int32_t format : {PVX_FORMAT_UINT8, PVX_FORMAT_UINT16, PVX_FORMAT_INT32, PVX_FORMAT_UINT88,
                           PVX_FORMAT_RGB888, PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_YUV420_SEMIPLANAR}) {
        Resizer rz;
        TestImage src(30, 10, format), dst(57, 21, format);
        ASSERT_EQ(pvx_ImageProc2_resizeImage(&rz.proc, &dst.img, &src.img), PVX_OK);
        EXPECT_EQ(pvx_Heap2_getMaxUsedSize(&rz.env.env()->heap),
                  static_cast<uint32_t>(pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(57, format, 0)))
            << format;
        if (format == PVX_FORMAT_INT32) {
            EXPECT_EQ(pvx_ImageProc2_getBufferSizeForResizeImage(&rz.proc, 57),
                      pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(57, format, 0));
        }
    }
}

}  // namespace
