// Geometry settings: state rules, the order of argument and state tests,
// stored values and the recommended output size.
#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <limits>

#include "tests/engine/engine_fixture.h"

using pvx_test::coefficientParam;
using pvx_test::Engine;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

class Settings : public ::testing::Test {
protected:
    Settings() : e(coefficientParam("YUV420_SEMIPLANAR", 1920, 1080)) {}
    parvex_DistortionCorrection *h() { return e.handle(); }
    uint32_t start() { return parvex_DistortionCorrection_start(h()); }
    Engine e;
};

TEST_F(Settings, ZoomChecksItsValueBeforeTheState) {
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setZoomRatio(h(), 0.5));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setZoomRatio(h(), 1.0));
    ASSERT_EQ(PARVEX_OK, start());
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setZoomRatio(h(), 0.999));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(h(), 1.0));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(h(), 2.5));
    EXPECT_EQ(2.5, e.context()->zoom);
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setZoomRatio(h(), kNaN));
    EXPECT_EQ(2.5, e.context()->zoom);
}

TEST_F(Settings, StrengthIsAcceptedInBothStatesWithinItsRange) {
    struct {
        double value;
        uint32_t expected;
    } cases[] = {{0.0, PARVEX_OK},          {1.0, PARVEX_OK},          {0.5, PARVEX_OK},
                 {1.0000001, PARVEX_ERROR_PARAM}, {-0.01, PARVEX_ERROR_PARAM}, {1.01, PARVEX_ERROR_PARAM},
                 {-INFINITY, PARVEX_ERROR_PARAM}, {kNaN, PARVEX_ERROR_PARAM}};
    for (int started = 0; started < 2; ++started) {
        if (started) {
            ASSERT_EQ(PARVEX_OK, start());
        }
        for (const auto &c : cases) {
            EXPECT_EQ(c.expected, parvex_DistortionCorrection_setCorrectionStrength(h(), c.value)) << c.value;
            if (c.expected == PARVEX_OK) {
                double s = -1;
                EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_getCorrectionStrength(h(), &s));
                EXPECT_EQ(c.value, s);
            }
        }
    }
}

TEST_F(Settings, OutputSizeOnlyBeforeStart) {
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setOutputImageSize(h(), 0, 100));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setOutputImageSize(h(), 100, -3));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(h(), 7001, 333));
    EXPECT_EQ(7001, e.context()->out_width);
    EXPECT_EQ(3500.5, e.context()->out_center_x);
    EXPECT_EQ(166.5, e.context()->out_center_y);
    EXPECT_EQ(1920, e.context()->in_width) << "the input size is not touched";
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(h(), 1280, 720));
    ASSERT_EQ(PARVEX_OK, start());
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setOutputImageSize(h(), 1280, 720));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setOutputImageSize(h(), 0, 720))
        << "arguments are tested before the state";
}

TEST_F(Settings, InputCenterSetsBothCentresBeforeStart) {
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setInputCenter(h(), kNaN, 10));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_setInputCenter(h(), 10, kNaN));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setInputCenter(h(), 900.25, 500.5));
    EXPECT_EQ(900.25, e.context()->in_center_x);
    EXPECT_EQ(900.25, e.context()->out_center_x);
    EXPECT_EQ(500.5, e.context()->out_center_y);
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(h(), 1000, 800));
    EXPECT_EQ(500.0, e.context()->out_center_x) << "a later output size moves the output centre again";
    EXPECT_EQ(900.25, e.context()->in_center_x);
    ASSERT_EQ(PARVEX_OK, start());
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setInputCenter(h(), 1, 1));
}

TEST_F(Settings, CropOnlyAfterStartAndReadBack) {
    int32_t l = -1, t = -1, r = -1, b = -1;
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setCropRect(h(), 10, 10, 100, 100));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_getCropRect(h(), &l, &t, &r, &b));
    EXPECT_EQ(-1, l) << "nothing is written on failure";
    ASSERT_EQ(PARVEX_OK, start());
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_getCropRect(h(), &l, &t, &r, &b));
    EXPECT_EQ((std::array<int32_t, 4>{0, 0, 1920, 1080}), (std::array<int32_t, 4>{l, t, r, b}));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(h(), 500, 400, 20, 10)) << "no order check";
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_getCropRect(h(), &l, &t, &r, &b));
    EXPECT_EQ((std::array<int32_t, 4>{500, 400, 20, 10}), (std::array<int32_t, 4>{l, t, r, b}));
}

TEST_F(Settings, RecommendedSizeOfTheIdentityLens) {
    int32_t w = 0, hgt = 0;
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_getRecommendedOutputSize(h(), nullptr, &hgt));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_getRecommendedOutputSize(h(), &w, &hgt));
    // The searches end 2 pixels inside each edge: ex = 958, ey = 538, and
    // the shorter axis loses relatively more, so the width grows.
    EXPECT_EQ(1923, w);
    EXPECT_EQ(1080, hgt);
    EXPECT_EQ(1920, e.context()->out_width) << "nothing is stored";
}

TEST(FrameCalls, CheckRecordsBeforeStateAndSizesAfter) {
    Engine e(coefficientParam("RGB888", 320, 240));
    std::vector<uint8_t> a(320 * 240 * 3), b(320 * 240 * 3);
    parvex_ImageData in = {320, 240, {a.data(), nullptr, nullptr}};
    parvex_ImageData out = {320, 240, {b.data(), nullptr, nullptr}};
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_process(e.handle(), nullptr, &in));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_process(e.handle(), &out, nullptr));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_distort(nullptr, &out, &in));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_process(e.handle(), &out, &in));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_process(e.handle(), nullptr, &in));
    parvex_ImageData small = {318, 240, {b.data(), nullptr, nullptr}};
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_process(e.handle(), &small, &in));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_process(e.handle(), &out, &small));
    parvex_ImageData noPixels = {320, 240, {nullptr, nullptr, nullptr}};
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_process(e.handle(), &out, &noPixels));
}

}  // namespace
