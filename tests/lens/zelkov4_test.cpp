// Lens model: tables against a slow double-precision model (root finding of
// r*D(r) = t), lookups, point mapping and the whole-image mapping.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "image/pvx_image.h"
#include "lens/pvx_zelkov4.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"
#include "tests/support/guarded_image.h"
#include "tests/support/test_env.h"
#include "tests/support/test_random.h"

namespace {

constexpr int kNum = 2048;

using Arena = pvx_test::TestEnv;

struct Model {
    explicit Model(pvx_Env *env, const float *k) {
        pvx_construct_Zelkov4DistortionCorrection(&lens, env);
        result = pvx_Zelkov4DistortionCorrection_setParam4(&lens, k);
    }
    ~Model() { pvx_destruct_Zelkov4DistortionCorrection(&lens); }
    const float *inv() const { return lens.table; }
    const float *fwd() const { return lens.table + kNum; }
    pvx_Zelkov4DistortionCorrection lens;
    pvx_Result result;
};

// ---- slow model, all in double from the float coefficients ----

double ratioD(const float *k, double r) {
    const double s = r * r;
    return 1.0 + k[0] * s + k[1] * s * s + k[2] * s * s * s + k[3] * s * s * s * s;
}
double distorted(const float *k, double r) { return r * ratioD(k, r); }
double slope(const float *k, double r) {
    const double s = r * r;
    return 1.0 + 3.0 * k[0] * s + 5.0 * k[1] * s * s + 7.0 * k[2] * s * s * s + 9.0 * k[3] * s * s * s * s;
}

double curvature(const float *k, double r) {
    const double s = r * r;
    return r * (6.0 * k[0] + 20.0 * k[1] * s + 42.0 * k[2] * s * s + 72.0 * k[3] * s * s * s);
}

struct Reference {
    int m = 1;   // one past the last sample where r*D(r) still rises
    int c = kNum;  // first target without a bracket
    std::vector<double> u;  // undistorted radius of target j (j < c)
};

// Smallest undistorted radius for every target j/1000 (the target rounded
// to float like the table's), by bisection inside the first rising sample
// segment that brackets it.
Reference solve(const float *k) {
    Reference ref;
    std::vector<double> f(kNum);
    for (int i = 0; i < kNum; ++i) {
        f[i] = distorted(k, i / 1000.0);
        if (i > 0 && f[i] > f[i - 1]) ref.m = i + 1;
    }
    ref.u.assign(kNum, 0.0);
    for (int j = 1; j < kNum; ++j) {
        const double t = static_cast<float>(j) / 1000.0f;
        int s = 0;
        for (; s < ref.m && s <= kNum - 2; ++s)
            if (f[s] <= t && t < f[s + 1]) break;
        if (!(s < ref.m && s <= kNum - 2)) {
            ref.c = j;
            break;
        }
        double lo = s / 1000.0, hi = (s + 1) / 1000.0;
        for (int it = 0; it < 80; ++it) {
            const double mid = 0.5 * (lo + hi);
            (distorted(k, mid) <= t ? lo : hi) = mid;
        }
        ref.u[j] = 0.5 * (lo + hi);
    }
    return ref;
}

struct Family {
    const char *name;
    float k[4];
    bool monotone;   // r*D(r) rises over the whole table
};

const Family kFamilies[] = {
    {"barrel", {-0.08f, 0.01f, 0.0f, 0.0f}, true},
    {"pincushion", {0.1f, 0.02f, 0.0f, 0.0f}, true},
    {"moustache", {-0.12f, 0.06f, -0.004f, 0.0002f}, true},
    {"strong_barrel", {-0.3f, 0.0f, 0.0f, 0.0f}, false},
    {"dip_and_rise", {-0.5f, 0.1f, 0.0f, 0.0f}, false},
};

class Zelkov4Family : public ::testing::TestWithParam<Family> {};

TEST_P(Zelkov4Family, TablesMatchSlowModel) {
    const Family &fam = GetParam();
    Arena arena;
    Model model(arena.env(), fam.k);
    ASSERT_EQ(model.result, PVX_OK);
    ASSERT_NE(model.lens.table, nullptr);
    ASSERT_EQ(model.lens.num, kNum);
    const Reference ref = solve(fam.k);
    if (fam.monotone) {
        EXPECT_EQ(ref.m, kNum) << "family chosen to be monotone";
    }

    // Forward: D held at the last rising sample.
    EXPECT_EQ(model.fwd()[0], 1.0f);
    for (int i = 1; i < kNum; ++i) {
        const double want = ratioD(fam.k, std::min(i, ref.m - 1) / 1000.0);
        ASSERT_NEAR(model.fwd()[i], want, 1e-6 * std::fabs(want)) << fam.name << " fwd[" << i << "]";
    }

    // Inverse: the valid count, the ratios, and the held tail. The float
    // build may decide a target lying right on a sample one way or the other.
    const float *inv = model.inv();
    EXPECT_EQ(inv[0], 1.0f);
    int c = kNum;
    for (int j = 2; j < kNum && c == kNum; ++j) {
        if (inv[j] != inv[j - 1]) continue;
        bool tail = true;
        for (int q = j; q < kNum; ++q) tail = tail && inv[q] == inv[j - 1];
        if (tail) c = j;
    }
    EXPECT_LE(std::abs(c - ref.c), 1) << fam.name;
    const int valid = std::min(c, ref.c);
    double maxErr = 0.0;
    for (int j = 1; j < valid; ++j) {
        const double t = static_cast<float>(j) / 1000.0f;
        const double uTab = static_cast<double>(inv[j]) * t;
        const double err = std::fabs(uTab - ref.u[j]);
        // The right bracket keeps the radius within its sample segment;
        // where the curve is not flat the interpolation is far closer.
        ASSERT_LE(err, 0.00101) << fam.name << " inv[" << j << "]";
        // Linear interpolation of the inverse: h^2/8 * |u''| with h = 0.001,
        // u'' = -F''/F'^3, plus float rounding.
        const double f1 = slope(fam.k, ref.u[j]);
        if (f1 >= 0.25) {
            const double tol = 1e-6 + 2.0e-7 * std::fabs(curvature(fam.k, ref.u[j])) / (f1 * f1 * f1);
            ASSERT_LE(err, tol) << fam.name << " inv[" << j << "]";
            maxErr = std::max(maxErr, err);
        }
    }
    std::printf("[ measured ] %s: %d/%d targets inverted, max undistorted-radius error %.3g\n", fam.name,
                c, kNum, maxErr);
    for (int j = c; j < kNum; ++j) ASSERT_EQ(inv[j], inv[c - 1]) << fam.name << " held inv[" << j << "]";
}

TEST_P(Zelkov4Family, LookupsInvertEachOther) {
    const Family &fam = GetParam();
    Arena arena;
    Model model(arena.env(), fam.k);
    const Reference ref = solve(fam.k);
    // Stay on the first rising branch, inside both tables, away from a turn.
    double rMax = std::min(2.04, (ref.m - 1) / 1000.0 - 0.02);
    while (distorted(fam.k, rMax) > std::min(2.04, distorted(fam.k, (ref.m - 1) / 1000.0) - 0.002)) rMax -= 0.001;
    double maxR = 0.0, maxT = 0.0;
    for (double r = 0.0; r <= rMax; r += 0.0001371) {
        const double f1 = slope(fam.k, r);
        if (f1 < 0.25) break;   // near the turn of the first branch
        // Both lookups interpolate ratios linearly; their error grows with
        // the curvature of the inverse (as for the table itself).
        const double tol = 2e-6 + 2.0e-7 * std::fabs(curvature(fam.k, r)) / (f1 * f1 * f1);
        const float rf = static_cast<float>(r);
        const double t = rf * static_cast<double>(pvx_Zelkov4DistortionCorrection_getf(&model.lens, rf));
        const float tf = static_cast<float>(t);
        const double back = tf * static_cast<double>(pvx_Zelkov4DistortionCorrection_getinv(&model.lens, tf));
        maxR = std::max(maxR, std::fabs(back - rf));
        ASSERT_NEAR(back, rf, tol) << fam.name << " r=" << r;

        const double u = tf * static_cast<double>(pvx_Zelkov4DistortionCorrection_getinv(&model.lens, tf));
        const float uf = static_cast<float>(u);
        const double again = uf * static_cast<double>(pvx_Zelkov4DistortionCorrection_getf(&model.lens, uf));
        maxT = std::max(maxT, std::fabs(again - tf));
        ASSERT_NEAR(again, tf, tol) << fam.name << " t=" << t;
    }
    std::printf("[ measured ] %s: round trip r->t->r max error %.3g, t->r->t %.3g (up to r=%.3f)\n", fam.name,
                maxR, maxT, rMax);
}

INSTANTIATE_TEST_SUITE_P(Families, Zelkov4Family, ::testing::ValuesIn(kFamilies),
                         [](const ::testing::TestParamInfo<Family> &info) { return std::string(info.param.name); });

TEST(Zelkov4, ZeroCoefficientsGiveTheIdentity) {
    const float k[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    Arena arena;
    Model model(arena.env(), k);
    for (int i = 0; i < 2 * kNum; ++i) ASSERT_EQ(model.lens.table[i], 1.0f) << i;
    for (float r : {0.0f, 0.0005f, 0.3337f, 1.0f, 2.0469f, 2.5f})
        EXPECT_EQ(pvx_Zelkov4DistortionCorrection_getinv(&model.lens, r), 1.0f) << r;
}

TEST(Zelkov4, GetRoundsTheDoublePolynomialOnce) {
    auto rng = pvx_test::makeRng(41);
    std::uniform_real_distribution<float> coef(-0.5f, 0.5f);
    std::uniform_real_distribution<float> rad(0.0f, 3.0f);
    Arena arena;
    for (int round = 0; round < pvx_test::rounds(200); ++round) {
        const float k[4] = {coef(rng), coef(rng), coef(rng) * 0.1f, coef(rng) * 0.01f};
        Model model(arena.env(), k);
        for (int n = 0; n < 50; ++n) {
            const float r = rad(rng);
            const double rd = r, r2 = rd * rd, r4 = r2 * r2;
            const double v = 1.0 + r2 * k[0] + r4 * k[1] + r2 * r4 * k[2] + r4 * r4 * k[3];
            const float want = static_cast<float>(v);
            const float got = pvx_Zelkov4DistortionCorrection_get(&model.lens, r);
            uint32_t a, b;
            std::memcpy(&a, &want, 4);
            std::memcpy(&b, &got, 4);
            ASSERT_EQ(a, b) << "r=" << r << " k=" << k[0] << "," << k[1] << "," << k[2] << "," << k[3];
        }
    }
}

TEST(Zelkov4, HostileArgumentsDoNotCrash) {
    const float k[4] = {-0.3f, 0.05f, 0.0f, 0.0f};
    Arena arena;
    Model model(arena.env(), k);
    const pvx_Zelkov4DistortionCorrection *l = &model.lens;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    for (float a : {nan, inf, -inf, -1.0f, 1.0e30f, -1.0e30f, 3.4e38f, -0.0f, 1e-45f, -0.0004f}) {
        volatile float sink = pvx_Zelkov4DistortionCorrection_get(l, a);
        sink = pvx_Zelkov4DistortionCorrection_getf(l, a);
        sink = pvx_Zelkov4DistortionCorrection_getinv(l, a);
        (void)sink;
    }
    EXPECT_TRUE(std::isnan(pvx_Zelkov4DistortionCorrection_getf(l, nan)));
    // A small negative radius stays on the first segment (truncation to 0).
    const float *fwd = model.fwd();
    const float p = -0.0004f * 1000.0f;
    EXPECT_EQ(pvx_Zelkov4DistortionCorrection_getf(l, -0.0004f), p * fwd[1] + (1.0f - p) * fwd[0]);

    const double dn = std::numeric_limits<double>::quiet_NaN();
    const double di = std::numeric_limits<double>::infinity();
    for (double v : {dn, di, -di, 1e300, -1e300, 0.0}) {
        double ox, oy;
        EXPECT_EQ(pvx_Zelkov4DistortionCorrection_dcforward(l, &ox, &oy, v, 3.0, 640, 480, 1.0 / 400), PVX_OK);
        EXPECT_EQ(pvx_Zelkov4DistortionCorrection_dcbackward(l, &ox, &oy, 3.0, v, 640, 480, 1.0 / 400), PVX_OK);
        EXPECT_EQ(pvx_Zelkov4DistortionCorrection_dcforward(l, &ox, &oy, 1.0, 2.0, v, v, v), PVX_OK);
        EXPECT_EQ(pvx_Zelkov4DistortionCorrection_dcbackward(l, &ox, &oy, 1.0, 2.0, 1.0, 1.0, v), PVX_OK);
    }
}

TEST(Zelkov4, TableAllocationFailure) {
    Arena arena(8 * 1024);
    pvx_Zelkov4DistortionCorrection lens;
    pvx_construct_Zelkov4DistortionCorrection(&lens, arena.env());
    const float k[4] = {-0.1f, 0.0f, 0.0f, 0.0f};
    EXPECT_EQ(pvx_Zelkov4DistortionCorrection_setParam4(&lens, k), PVX_ERROR_SYSTEM);
    EXPECT_EQ(lens.table, nullptr);
    // Queries on the table-less model answer the identity instead of reading null.
    EXPECT_EQ(pvx_Zelkov4DistortionCorrection_getf(&lens, 0.5f), 1.0f);
    EXPECT_EQ(pvx_Zelkov4DistortionCorrection_getinv(&lens, 0.5f), 1.0f);
    EXPECT_EQ(pvx_destruct_Zelkov4DistortionCorrection(&lens), PVX_OK);
    EXPECT_EQ(arena.used(), 0u);
}

// FNV-1a over the bit patterns of both tables.
uint64_t tableChecksum(const float *t) {
    uint64_t h = 1469598103934665603ull;
    for (int i = 0; i < 2 * kNum; ++i) {
        uint32_t bits;
        std::memcpy(&bits, &t[i], 4);
        for (int b = 0; b < 4; ++b) {
            h ^= (bits >> (8 * b)) & 0xFFu;
            h *= 1099511628211ull;
        }
    }
    return h;
}

TEST(Zelkov4, TablesAreBitIdenticalAcrossTargets) {
    // Checksums recorded on x86-64; any target must reproduce them exactly.
    struct Case {
        float k[4];
        uint64_t sum;
    };
    const Case cases[] = {
        {{-0.08f, 0.01f, 0.002f, -0.0003f}, 0xba2a995ba1ee06deull},
        {{-0.3f, 0.0f, 0.0f, 0.0f}, 0x8e911b9a60fb6f65ull},
        {{0.1f, 0.02f, 0.0f, 0.0f}, 0x2bded5471d441f3bull},
    };
    Arena arena;
    for (const Case &c : cases) {
        Model model(arena.env(), c.k);
        EXPECT_EQ(tableChecksum(model.lens.table), c.sum) << std::hex << tableChecksum(model.lens.table);
    }
}

// ---- point mapping ----

TEST(Zelkov4, PointMappingRoundTrip) {
    const float k[4] = {-0.08f, 0.01f, 0.0f, 0.0f};
    Arena arena;
    Model model(arena.env(), k);
    const double w = 641, h = 481, scale = 1.0 / 400.5;
    double maxErr = 0.0;
    for (double y = 0; y < h; y += 37)
        for (double x = 0; x < w; x += 29) {
            double ux, uy, bx, by;
            ASSERT_EQ(pvx_Zelkov4DistortionCorrection_dcforward(&model.lens, &ux, &uy, x, y, w, h, scale), PVX_OK);
            ASSERT_EQ(pvx_Zelkov4DistortionCorrection_dcbackward(&model.lens, &bx, &by, ux, uy, w, h, scale), PVX_OK);
            maxErr = std::max(maxErr, std::max(std::fabs(bx - x), std::fabs(by - y)));
        }
    // Table error ~1e-6 of the normalised radius, i.e. well below 0.01 pixel.
    EXPECT_LT(maxErr, 0.01);
    // The centre of the pixel grid is fixed.
    double ox, oy;
    pvx_Zelkov4DistortionCorrection_dcforward(&model.lens, &ox, &oy, 320, 240, w, h, scale);
    EXPECT_EQ(ox, 320.0);
    EXPECT_EQ(oy, 240.0);
}

// ---- whole-image mapping ----

using TestImage = pvx_test::GuardedImage;

// Ramp images sample back their own coordinate: the output value at each
// pixel is the source position the model chose, checked against the slow
// model's undistorted radius. Pincushion sources move inward; barrel ones
// move outward, onto the last sample interval and past the edge.
class Zelkov4Process : public ::testing::TestWithParam<Family> {};

TEST_P(Zelkov4Process, FollowsTheSlowModel) {
    const float *k = GetParam().k;
    Arena arena(1024 * 1024);
    Model model(arena.env(), k);
    const int32_t w = 200, h = 150;
    TestImage rampX(w, h, PVX_FORMAT_UINT8), rampY(w, h, PVX_FORMAT_UINT8), outX(w, h, PVX_FORMAT_UINT8),
        outY(w, h, PVX_FORMAT_UINT8);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            rampX.row(0, y)[x] = static_cast<uint8_t>(x);
            rampY.row(0, y)[x] = static_cast<uint8_t>(y);
        }
    ASSERT_EQ(pvx_Zelkov4DistortionCorrection_process(&model.lens, &rampX.img, &outX.img), PVX_OK);
    ASSERT_EQ(pvx_Zelkov4DistortionCorrection_process(&model.lens, &rampY.img, &outY.img), PVX_OK);
    const double cx = (w - 1) * 0.5, cy = (h - 1) * 0.5, half = 0.5 * std::hypot(w, h);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const double dx = x - cx, dy = y - cy, t = std::hypot(dx, dy) / half;
            double lo = 0.0, hi = 2.0 * t;   // r*D(r) rises past 2t for both lenses
            for (int it = 0; it < 60; ++it) {
                const double mid = 0.5 * (lo + hi);
                (distorted(k, mid) <= t ? lo : hi) = mid;
            }
            const double g = t > 0 ? lo / t : 1.0;
            const double sx = std::min(std::max(cx + dx * g, 0.0), w - 1.0);
            const double sy = std::min(std::max(cy + dy * g, 0.0), h - 1.0);
            ASSERT_NEAR(outX.row(0, y)[x], sx, 0.51) << x << "," << y;
            ASSERT_NEAR(outY.row(0, y)[x], sy, 0.51) << x << "," << y;
        }
}

INSTANTIATE_TEST_SUITE_P(Lenses, Zelkov4Process, ::testing::Values(kFamilies[0], kFamilies[1]),
                         [](const ::testing::TestParamInfo<Family> &i) { return std::string(i.param.name); });

}  // namespace
