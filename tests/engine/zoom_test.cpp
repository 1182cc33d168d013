// The zoom path: the corrected input-size picture's centred, even-aligned
// part scaled into the destination.
#include <gtest/gtest.h>

#include "image/pvx_image.h"
#include "resample/pvx_imageproc2.h"
#include "tests/engine/engine_fixture.h"
#include "tests/engine/frame_images.h"

using pvx_test::coefficientParam;
using pvx_test::Engine;
using pvx_test::Frame;

namespace {

void fillPattern(Frame &f) {
    f.fill([](int p, int32_t x, int32_t y) { return static_cast<uint8_t>((x * 7 + y * 13 + p * 50) ^ (x / 5)); });
}

pvx_Image wrap(const Frame &f, int32_t format) {
    pvx_Image image;
    pvx_construct_Image(&image, nullptr);
    const parvex_ImageDataEx d = f.dataEx();
    pvx_IF_initImageEx(&image, &d, format);
    return image;
}

struct ZoomCase {
    const char *format;
    int32_t format_value;
    int32_t width, height;
    double zoom;
    int32_t outWidth, outHeight;
    int32_t partX, partY, partW, partH;   // worked out by hand
};

class ZoomPath : public ::testing::TestWithParam<ZoomCase> {};

// The engine's output must equal the resize of the same part of the picture
// that the engine renders at zoom one.
TEST_P(ZoomPath, ResizesTheCentredPartOfTheCorrectedPicture) {
    const ZoomCase c = GetParam();
    Engine e(coefficientParam(c.format, c.width, c.height, -0.2, 0.03));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(e.handle(), c.outWidth, c.outHeight));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    Frame in(c.format_value, c.width, c.height), out(c.format_value, c.outWidth, c.outHeight);
    fillPattern(in);
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), c.zoom));
    const parvex_ImageData d = out.data(), s = in.data();
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s));
    EXPECT_TRUE(out.bandsIntact());

    // The engine's own render of the whole picture, left in its intermediate image.
    pvx_Image &work = e.context()->work_image;
    ASSERT_EQ(c.width, work.width);
    pvx_Image part, expected;
    pvx_construct_Image(&part, nullptr);
    ASSERT_EQ(PVX_OK, pvx_Image_initSubImage(&part, &work, c.partX, c.partY, c.partW, c.partH));
    Frame model(c.format_value, c.outWidth, c.outHeight);
    expected = wrap(model, c.format_value);
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, &e.context()->env);
    ASSERT_EQ(PVX_OK, pvx_ImageProc2_resizeImage(&proc, &expected, &part));
    pvx_destruct_ImageProc2(&proc);
    EXPECT_TRUE(model.samePixels(out));
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ZoomPath,
    ::testing::Values(ZoomCase{"YUV420_SEMIPLANAR", PVX_FORMAT_YUV420_SEMIPLANAR, 1920, 1080, 2.0, 1920, 1080, 480, 270, 960, 540},
                      ZoomCase{"YUV420_PLANAR", PVX_FORMAT_YUV420_PLANAR, 1000, 750, 1.5, 1000, 750, 168, 126, 666, 500},
                      ZoomCase{"RGB888", PVX_FORMAT_RGB888, 1000, 750, 1.5, 640, 480, 168, 126, 666, 500},
                      ZoomCase{"YVU420_SEMIPLANAR", PVX_FORMAT_YVU420_SEMIPLANAR, 640, 480, 1.000001, 640, 480, 0, 0, 640, 480}));

TEST(Zoom, BgrIsRefusedByTheResizeButRgbIsNot) {
    for (const char *format : {"BGR888", "RGB888"}) {
        const int32_t value = pvx_Image_getImageFormat(format);
        Engine e(coefficientParam(format, 640, 480, -0.2));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
        Frame in(value, 640, 480), out(value, 640, 480);
        fillPattern(in);
        const parvex_ImageData d = out.data(), s = in.data();
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s)) << format;
        // Zoom 1.5 keeps a smaller part, so the resize really scales (an
        // equal-size resize is a plain copy, which takes any format).
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), 1.5));
        EXPECT_EQ(value == PVX_FORMAT_BGR888 ? PARVEX_ERROR_IMAGE_FORMAT : PARVEX_OK,
                  parvex_DistortionCorrection_process(e.handle(), &d, &s)) << format;
        EXPECT_TRUE(out.bandsIntact());
    }
}

TEST(Zoom, TheIntermediateBlockIsKeptFromFrameToFrame) {
    Engine e(coefficientParam("YUV420_PLANAR", 640, 480, -0.2));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), 1.25));
    Frame in(PVX_FORMAT_YUV420_PLANAR, 640, 480), out(PVX_FORMAT_YUV420_PLANAR, 640, 480);
    const parvex_ImageData d = out.data(), s = in.data();
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s));
    const uint8_t *block = e.context()->work_image.dat[0];
    const uint32_t used = pvx_Heap2_getUsedSize(&e.context()->env.heap);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s));
    EXPECT_EQ(block, e.context()->work_image.dat[0]);
    EXPECT_EQ(used, pvx_Heap2_getUsedSize(&e.context()->env.heap)) << "nothing is allocated per frame";
}

}  // namespace
