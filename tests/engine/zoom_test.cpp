// The zoom path: the corrected input-size picture's centred, even-aligned
// part scaled into the destination, drawing only the cells the resize reads.
#include <math.h>

#include <gtest/gtest.h>

#include "image/pvx_image.h"
#include "render/pvx_renderer2.h"
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

// The zoom path draws only the cells its resize reads; the frame must still
// be the resize of a render of the whole lattice. Two frames run with
// different sources, so a cell that should have been drawn but was not
// would leave the first frame's pixels behind.
struct PartialRenderCase {
    const char *format;
    int32_t width, height, outWidth, outHeight;
    double zoom;
    int32_t crop[4];   // right 0: the default crop
    bool distort;
    int32_t part[4];   // the centred part (x, y, width, height), worked out by hand
};

class ZoomPartialRender : public ::testing::TestWithParam<PartialRenderCase> {};

TEST_P(ZoomPartialRender, EqualsTheResizeOfTheWholeRender) {
    const PartialRenderCase c = GetParam();
    const int32_t format = pvx_Image_getImageFormat(c.format);
    Engine e(coefficientParam(c.format, c.width, c.height, -0.25, 0.04));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(e.handle(), c.outWidth, c.outHeight));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    if (c.crop[2] != 0) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(e.handle(), c.crop[0], c.crop[1], c.crop[2], c.crop[3]));
    }
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), c.zoom));
    const auto frame = c.distort ? parvex_DistortionCorrection_distort : parvex_DistortionCorrection_process;

    Frame first(format, c.width, c.height), in(format, c.width, c.height), out(format, c.outWidth, c.outHeight);
    first.fillConstant(3);
    fillPattern(in);
    const parvex_ImageData d = out.data(), s0 = first.data(), s = in.data();
    ASSERT_EQ(PARVEX_OK, frame(e.handle(), &d, &s0));
    ASSERT_EQ(PARVEX_OK, frame(e.handle(), &d, &s));

    // The model starts from the engine's intermediate image, so pixels that
    // no cell writes agree, and renders every cell over it.
    pvx_EngineContext *ctx = e.context();
    Frame full(format, c.width, c.height), model(format, c.outWidth, c.outHeight);
    pvx_Image fullImage = wrap(full, format), source = wrap(in, format), expected = wrap(model, format);
    ASSERT_EQ(PVX_OK, pvx_Image_copy(&fullImage, &ctx->work_image));
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&ctx->renderer, &fullImage, &source, &ctx->render_params));
    pvx_Image part;
    pvx_construct_Image(&part, nullptr);
    ASSERT_EQ(PVX_OK, pvx_Image_initSubImage(&part, &fullImage, c.part[0], c.part[1], c.part[2], c.part[3]));
    ASSERT_EQ(PVX_OK, pvx_ImageProc2_resizeImage(&ctx->imgproc, &expected, &part));
    EXPECT_TRUE(model.samePixels(out));
}

INSTANTIATE_TEST_SUITE_P(
    FormatsZoomsCropsAndSizes, ZoomPartialRender,
    ::testing::Values(
        PartialRenderCase{"YUV420_SEMIPLANAR", 640, 480, 640, 480, 1.5, {0, 0, 0, 0}, false, {108, 80, 426, 320}},
        PartialRenderCase{"YVU420_SEMIPLANAR", 640, 480, 640, 480, 2.0, {40, 30, 600, 450}, false, {160, 120, 320, 240}},
        PartialRenderCase{"YUV420_PLANAR", 720, 480, 720, 480, 1.3, {0, 0, 0, 0}, true, {84, 56, 554, 368}},
        PartialRenderCase{"YUV420_PLANAR", 640, 480, 800, 600, 3.7, {100, 20, 500, 460}, false, {234, 176, 172, 130}},
        PartialRenderCase{"YUV420_SEMIPLANAR", 640, 480, 480, 360, 1.01, {0, 0, 0, 0}, false, {4, 4, 634, 474}},
        PartialRenderCase{"YVU420_SEMIPLANAR", 640, 480, 640, 480, 1.000001, {0, 0, 0, 0}, false, {0, 0, 640, 480}},
        PartialRenderCase{"YUV420_SEMIPLANAR", 1920, 1080, 1920, 1080, 2.0, {0, 0, 0, 0}, false, {480, 270, 960, 540}},
        PartialRenderCase{"RGB888", 641, 479, 641, 479, 1.5, {0, 0, 0, 0}, false, {108, 80, 426, 318}},
        PartialRenderCase{"RGB888", 500, 400, 333, 251, 1.7, {10, 10, 490, 390}, true, {104, 84, 294, 234}}));

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
