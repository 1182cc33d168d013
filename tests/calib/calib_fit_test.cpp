// The fit error against models worked out independently, and what the
// conversion achieves for typical lenses.
#include <gtest/gtest.h>
#include <math.h>

#include "calib/parvex_calib.h"

namespace {

using parvex_calib::CameraModel;
using parvex_calib::EngineLens;
using parvex_calib::Form;

CameraModel pinhole(int32_t w, int32_t h, double f, double cx, double cy, std::vector<double> d = {}) {
    CameraModel m;
    m.name = "model";
    m.source = "OpenCV";
    m.width = w;
    m.height = h;
    m.fx = m.fy = f;
    m.cx = cx;
    m.cy = cy;
    for (size_t i = 0; i < d.size(); ++i) m.d[i] = d[i];
    return m;
}

// A table lens that samples every output pixel where it lies (the engine's
// unit: centre to top-left corner).
EngineLens identityTable(const CameraModel &m, double fillScale) {
    EngineLens lens;
    lens.mode = 1;
    lens.center_x = m.cx;
    lens.center_y = m.cy;
    lens.fill_scale = fillScale;
    for (int i = 0; i < 32; ++i) {
        lens.xs.push_back(i * 0.05);
        lens.ys.push_back(i * 0.05);
    }
    return lens;
}

struct ScaleCase {
    int32_t w, h;
    double cx, cy, scale;
};

class FitErrorOfAScale : public ::testing::TestWithParam<ScaleCase> {};

// A distortion-free camera at fill scale s asks for source c + (p - c) s;
// an identity mesh samples p. Worked out per pixel: the output displacement
// is |p - c| (s - 1) / s, over the pixels whose source lies in the frame.
TEST_P(FitErrorOfAScale, MatchesTheClosedForm) {
    const ScaleCase &c = GetParam();
    const CameraModel m = pinhole(c.w, c.h, 1000, c.cx, c.cy);
    double largest = 0, sum = 0;
    int64_t count = 0;
    for (int y = 0; y < c.h; ++y)
        for (int x = 0; x < c.w; ++x) {
            const double sx = c.cx + (x - c.cx) * c.scale, sy = c.cy + (y - c.cy) * c.scale;
            if (sx < 0 || sy < 0 || sx > c.w - 1 || sy > c.h - 1) continue;
            const double e = hypot(x - c.cx, y - c.cy) * fabs(c.scale - 1) / c.scale;
            largest = std::max(largest, e);
            sum += e * e;
            ++count;
        }
    const parvex_calib::FitError e = parvex_calib::measureFitError(identityTable(m, c.scale), m);
    EXPECT_EQ(count, e.pixels);
    EXPECT_NEAR(largest, e.max_px, 1e-6 + 1e-6 * largest);
    EXPECT_NEAR(sqrt(sum / count), e.rms_px, 1e-6 + 1e-6 * largest);
}

INSTANTIATE_TEST_SUITE_P(Scales, FitErrorOfAScale,
                         ::testing::Values(ScaleCase{640, 480, 320, 240, 1.0}, ScaleCase{640, 480, 320, 240, 1.01},
                                           ScaleCase{640, 480, 300.5, 250.25, 0.98},
                                           ScaleCase{1280, 720, 639.5, 359.5, 1.002}));

struct LensCase {
    const char *name;
    CameraModel model;
    double coefficientsMax;   // px, largest fit error allowed for the coefficient form
    double tableMax;
};

void PrintTo(const LensCase &c, std::ostream *os) { *os << c.name; }

class Conversion : public ::testing::TestWithParam<LensCase> {};

TEST_P(Conversion, FitsWithinBoundsAndPicksTheSmallerError) {
    const LensCase &c = GetParam();
    const EngineLens coefficients = parvex_calib::convertCameraModel(c.model, Form::Coefficients);
    const EngineLens table = parvex_calib::convertCameraModel(c.model, Form::Table);
    const EngineLens best = parvex_calib::convertCameraModel(c.model, Form::Best);
    printf("[ figures  ] %s: coefficients max %.3f / RMS %.3f px, table max %.3f / RMS %.3f px\n", c.name,
           coefficients.fit_max_px, coefficients.fit_rms_px, table.fit_max_px, table.fit_rms_px);
    EXPECT_EQ(0, coefficients.mode);
    EXPECT_EQ(1, table.mode);
    EXPECT_LE(coefficients.fit_max_px, c.coefficientsMax);
    EXPECT_LE(table.fit_max_px, c.tableMax);
    EXPECT_EQ(table.fit_max_px < coefficients.fit_max_px ? 1 : 0, best.mode);
    EXPECT_EQ(std::min(table.fit_max_px, coefficients.fit_max_px), best.fit_max_px);
    // The reported error is the measured one.
    const parvex_calib::FitError again = parvex_calib::measureFitError(best, c.model);
    EXPECT_EQ(again.max_px, best.fit_max_px);
    EXPECT_EQ(c.model.cx, best.center_x);
    EXPECT_LE(table.xs.size(), 255u);
}

CameraModel lensfunModel(CameraModel::LensfunModel type, std::vector<double> d) {
    CameraModel m = pinhole(1920, 1080, hypot(1920, 1080) * 0.5 / sqrt(3.25), 959.5, 539.5, d);
    m.type = CameraModel::Type::Lensfun;
    m.lensfun = type;
    return m;
}

CameraModel fisheye() {
    CameraModel m = pinhole(1280, 720, 600, 641, 358, {0.05, -0.01, 0.002, -0.0005});
    m.type = CameraModel::Type::Fisheye;
    return m;
}

INSTANTIATE_TEST_SUITE_P(
    Lenses, Conversion,
    ::testing::Values(LensCase{"mild_barrel", pinhole(1920, 1080, 1500, 960, 540, {-0.12, 0.03}), 1.2, 0.15},
                      LensCase{"strong_barrel", pinhole(1920, 1080, 1000, 955, 545, {-0.3, 0.1, 0, 0, -0.02}), 1.5, 0.6},
                      LensCase{"pincushion", pinhole(1280, 720, 1100, 640, 360, {0.12, 0.03}), 1.2, 0.1},
                      LensCase{"lensfun_ptlens", lensfunModel(CameraModel::LensfunModel::PTLens, {0.01, -0.03, 0.005}), 1.2, 0.1},
                      LensCase{"lensfun_poly3", lensfunModel(CameraModel::LensfunModel::Poly3, {-0.02}), 1.2, 0.1},
                      LensCase{"fisheye", fisheye(), 2.0, 0.3}),
    [](const ::testing::TestParamInfo<LensCase> &info) { return std::string(info.param.name); });

// Terms the radial model cannot express are reported with their size: a
// tangential p1 moves a point by fx (2 p1 x y) along x and p1 (r^2 + 2 y^2)
// along y, largest in the corners.
TEST(DroppedTerms, TangentialSizeIsReported) {
    const double p1 = 0.001;
    const CameraModel m = pinhole(1280, 720, 1000, 640, 360, {0, 0, p1, 0});
    const EngineLens lens = parvex_calib::convertCameraModel(m, Form::Table);
    const double x = 0.64 * lens.fill_scale, y = 0.36 * lens.fill_scale;
    const double corner = 1000 * hypot(2 * p1 * x * y, p1 * (x * x + y * y + 2 * y * y)) / lens.fill_scale;
    bool found = false;
    for (const std::string &note : lens.notes) {
        if (note.find("tangential terms p1 0.001, p2 0 dropped: up to ") != 0) continue;
        found = true;
        const double size = atof(note.c_str() + note.find("up to ") + 6);
        EXPECT_NEAR(corner, size, 0.1 * corner) << note;
    }
    EXPECT_TRUE(found);
}

}  // namespace
