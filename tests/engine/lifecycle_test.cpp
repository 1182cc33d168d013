// Buffer size, initialize's order of checks, the lens description as
// stored, and finalize.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "image/pvx_image_format.h"
#include "tests/engine/engine_fixture.h"

using pvx_test::coefficientParam;
using pvx_test::Engine;
using pvx_test::GuardedBuffer;
using pvx_test::tableParam;

namespace {

const int32_t kContext = 859552;

// Hostile sizes saturate instead of overflowing; exactly the reported size
// is enough for the largest frame (the fixture's buffer ends at a guard page).
TEST(BufferSize, SaturatesAndSuffices) {
    auto param = coefficientParam("RGB888", 2000000000, 2000000000);
    EXPECT_EQ(INT32_MAX, parvex_DistortionCorrection_getBufferSize(&param));
    EXPECT_EQ(0, parvex_DistortionCorrection_getBufferSize(nullptr));
    Engine e(coefficientParam("BGR888", 6144, 6144, -0.1));
    ASSERT_EQ(PARVEX_OK, e.status());
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
}

struct InitCase {
    const char *name;
    int32_t width, height;
    int32_t bufferSize;   // 0: getBufferSize
    uint32_t expected;
    bool pointerSet;      // p left pointing at the buffer
};

class InitializeChecks : public ::testing::TestWithParam<InitCase> {};

TEST_P(InitializeChecks, ReportArgumentsThenBufferThenHeap) {
    const InitCase c = GetParam();
    auto param = coefficientParam("YUV420_SEMIPLANAR", c.width, c.height);
    const int32_t size = c.bufferSize ? c.bufferSize : parvex_DistortionCorrection_getBufferSize(&param);
    GuardedBuffer buffer(static_cast<size_t>(size));
    parvex_DistortionCorrection h;
    h.p = &h;   // initialize must clear it first
    EXPECT_EQ(c.expected, parvex_DistortionCorrection_initialize(&h, buffer.data(), size, &param));
    if (c.expected == PARVEX_ERROR_PARAM) {
        EXPECT_EQ(&h, h.p) << "argument errors come before the handle is touched";
    } else {
        EXPECT_EQ(c.pointerSet ? static_cast<void *>(buffer.data()) : nullptr, h.p);
    }
    if (h.p == buffer.data() && c.expected == PARVEX_OK) parvex_DistortionCorrection_finalize(&h);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, InitializeChecks,
    ::testing::Values(InitCase{"width319", 319, 480, 0, PARVEX_ERROR_PARAM, false},
                      InitCase{"width6145", 6145, 480, 0, PARVEX_ERROR_PARAM, false},
                      InitCase{"height239", 640, 239, 0, PARVEX_ERROR_PARAM, false},
                      InitCase{"height6145", 640, 6145, 0, PARVEX_ERROR_PARAM, false},
                      InitCase{"widthBeforeBuffer", 319, 480, 100, PARVEX_ERROR_PARAM, false},
                      InitCase{"hugeNegativeWidth", INT32_MIN, 480, 0, PARVEX_ERROR_PARAM, false},
                      InitCase{"bufferOfOneByte", 640, 480, 1, PARVEX_ERROR_MALLOC, false},
                      InitCase{"bufferOneShort", 640, 480, kContext - 1, PARVEX_ERROR_MALLOC, false},
                      InitCase{"bufferExactlyContext", 640, 480, kContext, PARVEX_ERROR_MALLOC, false},
                      InitCase{"heapTooSmallForTables", 640, 480, kContext + 4096, PARVEX_ERROR_MALLOC, true},
                      InitCase{"smallest", 320, 240, 0, PARVEX_OK, true},
                      InitCase{"largest", 6144, 6144, 0, PARVEX_OK, true}),
    [](const ::testing::TestParamInfo<InitCase> &i) { return std::string(i.param.name); });

TEST(Initialize, NullArgumentsAreParamErrors) {
    auto param = coefficientParam("RGB888", 640, 480);
    GuardedBuffer buffer(1 << 20);
    parvex_DistortionCorrection h;
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_initialize(nullptr, buffer.data(), 1 << 20, &param));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_initialize(&h, nullptr, 1 << 20, &param));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_initialize(&h, buffer.data(), -1, &param));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_initialize(&h, buffer.data() + 4, 1 << 20, &param))
        << "a misaligned buffer cannot hold the context";
}

// Names the engine does not take, exactly as written (what a refused
// handle then does is Robustness' part).
TEST(Initialize, OtherFormatNamesAreFormatErrors) {
    for (const char *name : {"YUV422_PLANAR", "UINT8", "NONE", "nv12", "yuv420_semiplanar", "", "RGB888 "}) {
        Engine e(coefficientParam(name, 640, 480));
        EXPECT_EQ(PARVEX_ERROR_IMAGE_FORMAT, e.status()) << '"' << name << '"';
        EXPECT_EQ(0u, e.context()->state) << name;
    }
}

TEST(Initialize, TooManyOrMissingPointsAreParamErrors) {
    std::vector<double> xs(257, 1.0), ys(257, 1.0);
    Engine tooMany(tableParam("RGB888", 640, 480, xs, ys));
    EXPECT_EQ(PARVEX_ERROR_PARAM, tooMany.status());

    auto missing = tableParam("RGB888", 640, 480, xs, ys);
    missing.num = 4;
    missing.xs = nullptr;
    Engine nullTable(missing);
    EXPECT_EQ(PARVEX_ERROR_PARAM, nullTable.status());
}

TEST(Initialize, FullTableOverlaysTheSecondArrayAndZoom) {
    std::vector<double> xs(256), ys(256);
    for (int i = 0; i < 256; ++i) {
        xs[i] = i / 128.0;
        ys[i] = i / 130.0;
    }
    Engine e(tableParam("YUV420_SEMIPLANAR", 640, 480, xs, ys));
    ASSERT_EQ(PARVEX_OK, e.status());
    const pvx_EngineContext *c = e.context();
    EXPECT_DOUBLE_EQ(ys[255] + 100 * (ys[255] - ys[254]), c->table_xs[0]);
    EXPECT_DOUBLE_EQ(ys[255] + 100 * (xs[255] - xs[254]), c->zoom);
    EXPECT_EQ(xs[1], c->table_xs[1]);
    EXPECT_EQ(ys[255], c->table_ys[255]);
}

TEST(Finalize, ZeroesTheContextAndAllowsReuse) {
    auto param = coefficientParam("YVU420_SEMIPLANAR", 640, 480, -0.1);
    const int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
    GuardedBuffer buffer(static_cast<size_t>(size));
    parvex_DistortionCorrection h;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_initialize(&h, buffer.data(), size, &param));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(&h));
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_finalize(&h));
        EXPECT_EQ(nullptr, h.p);
        std::vector<uint8_t> zero(kContext, 0);
        EXPECT_EQ(0, memcmp(zero.data(), buffer.data(), kContext)) << "round " << round;
    }
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_finalize(&h));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_finalize(nullptr));
}

}  // namespace
