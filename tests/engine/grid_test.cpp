// The correction mesh that start and setCropRect build, checked against the
// lens relation it must satisfy rather than against its own formulas.
#include <gtest/gtest.h>
#include <math.h>

#include <vector>

#include "lens/pvx_grid_build.h"
#include "tests/engine/engine_fixture.h"

using pvx_test::coefficientParam;
using pvx_test::Engine;
using pvx_test::tableParam;

namespace {

double modelD(const double k[4], double r) {
    const double r2 = r * r;
    return 1 + k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2 + k[3] * r2 * r2 * r2 * r2;
}

struct CellCase {
    int32_t w, h, cell;
};

class CellSize : public ::testing::TestWithParam<CellCase> {};

TEST_P(CellSize, FollowsTheLongerSide) {
    EXPECT_EQ(GetParam().cell, pvx_Grid_cellSize(GetParam().w, GetParam().h));
}

INSTANTIATE_TEST_SUITE_P(Sizes, CellSize,
                         ::testing::Values(CellCase{1920, 1080, 32}, CellCase{640, 480, 10}, CellCase{599, 400, 8},
                                           CellCase{3900, 3000, 64}, CellCase{660, 480, 10},
                                           CellCase{480, 660, 10}, CellCase{1, 1, 8}, CellCase{100000, 5, 64},
                                           CellCase{1319, 100, 20}));

TEST(Start, IdentityLensGivesTheIdentityMeshUpToTheEdgeClamp) {
    Engine e(coefficientParam("RGB888", 1280, 720));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    for (int32_t v = 0; v < p.numX * p.numY; ++v) {
        EXPECT_EQ(p.dstX[v] < 1279 ? p.dstX[v] : 1279, p.srcX[v]) << v;
        EXPECT_EQ(p.dstY[v] < 719 ? p.dstY[v] : 719, p.srcY[v]) << v;
    }
}

// Every vertex's source radius u (normalised by half the diagonal) must be
// the undistorted radius of the output radius scaled by gmin:
// u * D(u) = r_out * k * gmin, where gmin keeps the nearer border filled.
class ModelMesh : public ::testing::TestWithParam<std::vector<double>> {};

TEST_P(ModelMesh, SourceRadiiSolveTheLensEquation) {
    const std::vector<double> k = GetParam();
    const int32_t W = 1280, H = 960;
    Engine e(coefficientParam("YUV420_PLANAR", W, H, k[0], k[1], k[2], k[3]));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    const double half = hypot(W, H) * 0.5;
    double gmin = modelD(k.data(), 1.0);
    gmin = fmin(gmin, modelD(k.data(), 640 / half));
    gmin = fmin(gmin, modelD(k.data(), 480 / half));
    double worst = 0;
    for (int32_t v = 0; v < p.numX * p.numY; ++v) {
        const double dx = p.dstX[v] - 640.0, dy = p.dstY[v] - 480.0;
        const double sx = p.srcX[v] - 640.0, sy = p.srcY[v] - 480.0;
        if (p.srcX[v] <= 0 || p.srcX[v] >= W - 1 || p.srcY[v] <= 0 || p.srcY[v] >= H - 1) continue;   // clamped
        const double u = hypot(sx, sy) / half;
        const double target = hypot(dx, dy) / half * gmin;
        worst = fmax(worst, fabs(u * modelD(k.data(), u) - target) * half);
        // The source lies on the ray through the vertex.
        EXPECT_NEAR(0.0, dx * sy - dy * sx, 1e-6 * (1 + hypot(dx, dy) * hypot(sx, sy)));
    }
    EXPECT_LT(worst, 0.05) << "pixels";
    // The centre vertex (640, 480 is on the 20-pixel lattice) maps to the centre.
    const int32_t centre = (480 / 20) * p.numX + 640 / 20;
    EXPECT_EQ(640.0, p.srcX[centre]);
    EXPECT_EQ(480.0, p.srcY[centre]);
}

INSTANTIATE_TEST_SUITE_P(Lenses, ModelMesh,
                         ::testing::Values(std::vector<double>{-0.2, 0.02, 0, 0}, std::vector<double>{0.15, 0, 0, 0},
                                           std::vector<double>{-0.3, 0.25, -0.05, 0},
                                           std::vector<double>{0.05, -0.02, 0.01, -0.002}));

TEST(Start, StrengthZeroIsAShiftByTheBasePoint) {
    Engine e(coefficientParam("RGB888", 1920, 1080, -0.3, 0.1));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCorrectionStrength(e.handle(), 0.0));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(e.handle(), 100, 60, 1820, 1020));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    const double q = hypot(1920, 1080) / hypot(1720, 960);
    for (int32_t v = 0; v < p.numX * p.numY; ++v) {
        const double x = p.dstX[v] - 960.0 + q * (960.0 - 100);
        const double y = p.dstY[v] - 540.0 + q * (540.0 - 60);
        EXPECT_NEAR(fmin(fmax(x, 0.0), 1919.0), p.srcX[v], 1e-9);
        EXPECT_NEAR(fmin(fmax(y, 0.0), 1079.0), p.srcY[v], 1e-9);
    }
}

TEST(Start, TableMeshScalesRadiiThroughThePoints) {
    // Source radius 0.9 of the output radius everywhere.
    const std::vector<double> xs = {0.0, 0.5, 1.0, 1.5}, ys = {0.0, 0.45, 0.9, 1.35};
    Engine e(tableParam("YUV420_SEMIPLANAR", 640, 480, xs, ys));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    for (int32_t v = 0; v < p.numX * p.numY; ++v) {
        EXPECT_NEAR(320 + (p.dstX[v] - 320) * 0.9, p.srcX[v], 1e-9) << v;
        EXPECT_NEAR(240 + (p.dstY[v] - 240) * 0.9, p.srcY[v], 1e-9) << v;
    }
    const int32_t centre = 24 * p.numX + 32;   // (320, 240) on the 10-pixel lattice
    EXPECT_EQ(320.0, p.srcX[centre]);
    EXPECT_EQ(240.0, p.srcY[centre]);
}

TEST(Start, TableRadiiBeyondTheLastPointExtrapolate) {
    // The corners (radius 1) lie past the last caller point at 0.5 and use
    // the segment to the appended point: 100 times the last segment, whose
    // key starts from the last source radius (0.4), not from 0.5.
    const std::vector<double> xs = {0.0, 0.25, 0.5}, ys = {0.0, 0.2, 0.4};
    Engine e(tableParam("RGB888", 640, 480, xs, ys));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    const double appendedX = 0.4 + 100 * 0.25, appendedY = 0.4 + 100 * 0.2;
    const double v = 0.4 + (1.0 - 0.5) / (appendedX - 0.5) * (appendedY - 0.4);
    EXPECT_NEAR(320 - 320 * v, p.srcX[0], 1e-9);
    EXPECT_NEAR(240 - 240 * v, p.srcY[0], 1e-9);
}

TEST(SetCropRect, InTableModeReplacesTheMeshByTheScaledIdentity) {
    const std::vector<double> xs = {0.0, 0.5, 1.0, 1.5}, ys = {0.0, 0.4, 0.8, 1.2};
    Engine e(tableParam("RGB888", 640, 480, xs, ys));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(e.handle(), 160, 120, 480, 360));
    const pvx_Renderer2_Params &p = e.context()->render_params;
    // With the identity model the crop only moves the base point: the source
    // is the offset from the output centre plus q = 2 times the centre's
    // offset inside the crop.
    for (int32_t v = 0; v < p.numX * p.numY; ++v) {
        EXPECT_NEAR(fmin(fmax(p.dstX[v] - 320.0 + 2 * (320 - 160), 0.0), 639.0), p.srcX[v], 1e-6);
    }
}

TEST(SetCropRect, DegenerateRectanglesKeepTheMeshDefined) {
    Engine e(coefficientParam("RGB888", 640, 480, -0.2));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    for (const auto &r : {std::vector<int32_t>{10, 10, 10, 10}, std::vector<int32_t>{500, 400, 20, 10},
                          std::vector<int32_t>{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}}) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(e.handle(), r[0], r[1], r[2], r[3]));
        const pvx_Renderer2_Params &p = e.context()->render_params;
        for (int32_t v = 0; v < p.numX * p.numY; ++v) {
            if (isnan(p.srcX[v])) continue;
            EXPECT_GE(p.srcX[v], 0.0);
            EXPECT_LE(p.srcX[v], 639.0);
        }
    }
}

TEST(Start, AHugeOutputLeavesAnEmptyLatticeInsteadOfAMismatchedOne) {
    Engine e(coefficientParam("RGB888", 640, 480));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(e.handle(), 20000, 20000));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    EXPECT_FALSE(pvx_Grid_isFillable(&e.context()->render_params));
}

}  // namespace
