// Projective mapping of single points.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "render/pvx_mvec8real.h"

namespace {

TEST(Mvec8Real, MapsPointsProjectively) {
    struct Case {
        pvx_Mvec8Real m;
        double x, y, wantX, wantY;
    };
    const Case cases[] = {
        {{{1, 0, 0, 0, 1, 0, 0, 0, 1}}, 12.5, -3.0, 12.5, -3.0},          // identity
        {{{1, 0, 5.5, 0, 1, -3, 0, 0, 1}}, 10.0, 20.0, 15.5, 17.0},       // translation
        {{{0, -1, 0, 1, 0, 0, 0, 0, 1}}, 3.0, 4.0, -4.0, 3.0},            // quarter turn
        {{{2, 0, 0, 0, 2, 0, 0, 0, 2}}, 7.0, 9.0, 7.0, 9.0},              // homogeneous scale is no scale
        {{{1, 0, 0, 0, 1, 0, 0.001, 0, 1}}, 1000.0, 64.0, 500.0, 32.0},   // w = 1 + x/1000 = 2
        {{{1, 2, 3, 4, 5, 6, 0.5, 0.25, 1}}, 2.0, 4.0, 13.0 / 3.0, 34.0 / 3.0},  // w = 3
    };
    for (const Case &c : cases) {
        double ox = 0, oy = 0;
        ASSERT_EQ(pvx_Mvec8Real_trans2DReal(&c.m, c.x, c.y, &ox, &oy), PVX_OK);
        EXPECT_DOUBLE_EQ(ox, c.wantX);
        EXPECT_DOUBLE_EQ(oy, c.wantY);
    }
}

TEST(Mvec8Real, PointsAtInfinityFailAndWriteNothing) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const pvx_Mvec8Real onLine = {{1, 0, 0, 0, 1, 0, 0, 1, -64}};   // w = y - 64
    const pvx_Mvec8Real infW = {{1, 0, 0, 0, 1, 0, 0, 0, inf}};
    const pvx_Mvec8Real nanW = {{1, 0, 0, 0, 1, 0, nan, 0, 1}};
    double ox = 123.0, oy = 456.0;
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&onLine, 5.0, 64.0, &ox, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&infW, 5.0, 6.0, &ox, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&nanW, 5.0, 6.0, &ox, &oy), PVX_ERROR_PARAM);
    const pvx_Mvec8Real id = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
    // A NaN coordinate makes w NaN even for the identity (0 * NaN).
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&id, nan, 6.0, &ox, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&id, 1e308, 6.0, &ox, &oy), PVX_OK);   // w = 1 exactly
    ox = 123.0;
    oy = 456.0;
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&onLine, 5.0, 64.0, &ox, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(ox, 123.0);
    EXPECT_EQ(oy, 456.0);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(nullptr, 0, 0, &ox, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&id, 0, 0, nullptr, &oy), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Mvec8Real_trans2DReal(&id, 0, 0, &ox, nullptr), PVX_ERROR_PARAM);
}

}  // namespace
