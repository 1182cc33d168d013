// Draw kernels of every format family: the identity cell, byte-for-byte
// agreement with a slow per-pixel model on random, hostile and fixed edge
// cells, and accuracy against double-precision bilinear sampling.
#include <gtest/gtest.h>

#include <math.h>

#include <random>
#include <string>
#include <vector>

#include "render/pvx_renderer2_kernels.h"
#include "tests/render/render_test_util.h"
#include "tests/support/test_random.h"

namespace {

using rt::Image;

struct Family {
    const char *name;
    int32_t format;
    rt::RefMode mode;
    pvx_Renderer2_DrawFn fn[3];   // general, parallelogram, unrotated
    rt::RefKind kind[3];          // the rules each slot follows
};

#define FAMILY(F, fmt, mode)                                                                                      \
    Family {                                                                                                      \
        #F "_" #fmt, PVX_FORMAT_##fmt, mode,                                                                      \
            {pvx_Renderer2_##F##_drawRect, pvx_Renderer2_##F##_drawRectParallel, pvx_Renderer2_##F##_drawRectNoRot}, \
        {                                                                                                         \
            rt::kRefGeneral, rt::kRefParallel, rt::kRefNoRot                                                      \
        }                                                                                                         \
    }

std::vector<Family> families() {
    std::vector<Family> v = {
        FAMILY(Uint8, UINT8, rt::kRefBilinear),
        FAMILY(Rgb888, RGB888, rt::kRefBilinear),
        FAMILY(Rgb888, BGR888, rt::kRefBilinear),
        FAMILY(Yuv420Planar, YUV420_PLANAR, rt::kRefBilinear),
        FAMILY(Yuv420PlanarHQ, YUV420_PLANAR, rt::kRefHQ),
        FAMILY(Yuv420Semiplanar, YUV420_SEMIPLANAR, rt::kRefBilinear),
        FAMILY(Yuv420Semiplanar, YVU420_SEMIPLANAR, rt::kRefBilinear),
        FAMILY(Yuv420SemiplanarHQ, YUV420_SEMIPLANAR, rt::kRefHQ),
        FAMILY(Yuv420SemiplanarNN, YUV420_SEMIPLANAR, rt::kRefNearest),
        FAMILY(Yuv420SemiplanarNN, YVU420_SEMIPLANAR, rt::kRefNearest),
        FAMILY(Yuv422Planar, YUV422_PLANAR, rt::kRefBilinear),
        FAMILY(Yuv422Yuyv, YUV422_YUYV, rt::kRefBilinear),
        FAMILY(Yuv422Yuyv, YUV422_YVYU, rt::kRefBilinear),
        FAMILY(Yuv422Uyvy, YUV422_UYVY, rt::kRefBilinear),
        FAMILY(Yuv422Uyvy, YUV422_VYUY, rt::kRefBilinear),
    };
    // The planar 4:2:2 family has one kernel; its other slots run it.
    for (Family &f : v)
        if (f.format == PVX_FORMAT_YUV422_PLANAR) f.kind[1] = f.kind[2] = rt::kRefGeneral;
    return v;
}

const char *kSlotNames[3] = {"drawRect", "drawRectParallel", "drawRectNoRot"};

pvx_Result draw(pvx_Renderer2_DrawFn fn, Image &dst, const Image &src, const double *corners, const int32_t *rect,
                int32_t bc) {
    pvx_Renderer2_DrawArg a{};
    a.dst = dst.image();
    a.src = src.image();
    a.corners = corners;
    a.cellRect = rect;
    a.boundaryCheck = bc;
    return fn(&a);
}

std::string where(const Family &f, int slot) { return std::string(f.name) + " " + kSlotNames[slot]; }

// ---------------------------------------------------------------------------
// Random cells against the model

struct RandomCell {
    int32_t srcW, srcH, dstW, dstH;
    int32_t rect[4];
    double corners[8];
    int32_t bc;
};

RandomCell randomCell(std::mt19937_64 &rng, bool hostile) {
    auto U = [&](double a, double b) { return std::uniform_real_distribution<double>(a, b)(rng); };
    auto I = [&](int a, int b) { return std::uniform_int_distribution<int>(a, b)(rng); };
    RandomCell c;
    c.srcW = I(1, 45);
    c.srcH = I(1, 37);
    c.dstW = I(1, 45);
    c.dstH = I(1, 37);
    c.rect[0] = I(-6, c.dstW);
    c.rect[1] = I(-6, c.dstH);
    c.rect[2] = c.rect[0] + I(1, 40);
    c.rect[3] = c.rect[1] + I(1, 33);
    c.bc = I(0, 1);
    const double w = c.rect[2] - c.rect[0], h = c.rect[3] - c.rect[1];
    // An affine map (rotation, scale, shear, even mirroring), then a twist.
    const double angle = U(-0.6, 0.6) * (I(0, 3) == 0 ? 5 : 1);
    const double sx = U(0.3, 2.2) * (I(0, 9) == 0 ? -1 : 1), sy = U(0.3, 2.2);
    const double a = sx * cos(angle), b = -sy * sin(angle) + U(-0.3, 0.3), cc = sx * sin(angle), d = sy * cos(angle);
    const double tx = U(-4, c.srcW + 4), ty = U(-4, c.srcH + 4);
    const double u[4] = {0, w, 0, w}, v[4] = {0, 0, h, h};
    for (int i = 0; i < 4; ++i) {
        c.corners[2 * i] = tx + a * u[i] + b * v[i] + (I(0, 2) == 0 ? U(-3, 3) : 0);
        c.corners[2 * i + 1] = ty + cc * u[i] + d * v[i] + (I(0, 2) == 0 ? U(-3, 3) : 0);
    }
    if (I(0, 4) == 0) {   // unrotated cells with exact quarter-pixel corners
        for (int i = 0; i < 8; ++i) c.corners[i] = floor(c.corners[i] * 4) / 4;
        c.corners[3] = c.corners[1];
    }
    if (c.bc == 0) {
        // The renderer only draws such cells when all corners lie inside.
        for (int i = 0; i < 8; i += 2) {
            c.corners[i] = std::min<double>(std::max(c.corners[i], 0.0), c.srcW);
            c.corners[i + 1] = std::min<double>(std::max(c.corners[i + 1], 0.0), c.srcH);
        }
    }
    if (hostile) {
        const double bad[] = {NAN, INFINITY, -INFINITY, -1e300, 1e300, 16777215.9, -16777216.0, -70000.25,
                              70000.5, 2147483648.0 / 32768.0, -65536.0, 65535.99};
        const int n = I(1, 4);
        for (int i = 0; i < n; ++i) c.corners[I(0, 7)] = bad[I(0, 11)];
        c.bc = 1;
    }
    return c;
}

class KernelsMatchModel : public ::testing::TestWithParam<int> {};

TEST_P(KernelsMatchModel, RandomCells) {
    const bool hostile = GetParam() == 1;
    const std::vector<Family> fams = families();
    for (size_t fi = 0; fi < fams.size(); ++fi) {
        const Family &f = fams[fi];
        std::mt19937_64 rng = pvx_test::makeRng(1000 * (GetParam() + 1) + fi);
        const int rounds = pvx_test::rounds(hostile ? 120 : 250);
        for (int r = 0; r < rounds; ++r) {
            const int slot = r % 3;
            const RandomCell c = randomCell(rng, hostile);
            Image src(f.format, c.srcW, c.srcH, 0, (r & 4) != 0), dst(f.format, c.dstW, c.dstH, 3);
            src.fillRandom(rng);
            dst.fillRandom(rng);
            Image want(f.format, c.dstW, c.dstH);
            want.setBytes(dst.bytes());
            rt::refDraw(f.kind[slot], f.mode, src, want, c.corners, c.rect, c.bc);
            ASSERT_EQ(PVX_OK, draw(f.fn[slot], dst, src, c.corners, c.rect, c.bc));
            ASSERT_TRUE(dst.bandIntact()) << where(f, slot);
            const std::vector<uint8_t> got = dst.bytes(), exp = want.bytes();
            if (got != exp) {
                size_t i = 0;
                while (got[i] == exp[i]) ++i;
                FAIL() << where(f, slot) << " round " << r << " src " << c.srcW << "x" << c.srcH << " dst "
                       << c.dstW << "x" << c.dstH << " rect " << c.rect[0] << "," << c.rect[1] << "," << c.rect[2]
                       << "," << c.rect[3] << " bc " << c.bc << " corners " << c.corners[0] << "," << c.corners[1]
                       << " " << c.corners[2] << "," << c.corners[3] << " " << c.corners[4] << "," << c.corners[5]
                       << " " << c.corners[6] << "," << c.corners[7] << ": first difference at byte " << i << " ("
                       << int(got[i]) << " vs " << int(exp[i]) << ")";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Cells, KernelsMatchModel, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<int> &i) { return i.param ? "Hostile" : "Plain"; });

// Fixed cells that random draws reach only rarely: a nearest-neighbour
// chroma span whose last taps sit at the source's right edge, and checked
// cells whose rows end right at the source's bottom limit.
TEST(DrawKernels, EdgeCellsMatchTheModel) {
    const RandomCell cells[] = {
        {22, 12, 31, 33, {20, 3, 23, 32}, {0, 12, 0, 6.9968325182364612, 22, 0, 22, 0}, 0},
        {43, 20, 22, 16, {16, 0, 45, 16},
         {3.9755346974572783, 19.729873906705762, 33.372582386911148, 7.1898763717039174, 8.2755634374371425,
          36.580039239552491, 37.51574921761015, 24.040041704550649},
         1},
        {32, 20, 40, 37, {20, 8, 29, 29},
         {32, 10.11792619485081, 32, 15.942519903012238, 20.813561563738759, 20, -1e300, 20}, 1},
    };
    for (const Family &f : families())
        for (int slot = 0; slot < 3; ++slot)
            for (const RandomCell &c : cells) {
                std::mt19937_64 rng(7);
                Image src(f.format, c.srcW, c.srcH), dst(f.format, c.dstW, c.dstH, 3), want(f.format, c.dstW, c.dstH);
                src.fillRandom(rng);
                dst.fillRandom(rng);
                want.setBytes(dst.bytes());
                rt::refDraw(f.kind[slot], f.mode, src, want, c.corners, c.rect, c.bc);
                ASSERT_EQ(PVX_OK, draw(f.fn[slot], dst, src, c.corners, c.rect, c.bc));
                EXPECT_TRUE(dst.bandIntact()) << where(f, slot);
                EXPECT_EQ(want.bytes(), dst.bytes()) << where(f, slot);
            }
}

// The same cells give the same bytes on every target: a fixed set of cells
// (an explicit generator, no library distributions) hashed over every
// family and kernel.
TEST(DrawKernels, CrossTargetChecksum) {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state]() {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 33);
    };
    auto real = [&](double lo, double hi) { return lo + (hi - lo) * (next() % 1000001) / 1000000.0; };
    uint64_t hash = 1469598103934665603ull;
    for (const Family &f : families())
        for (int slot = 0; slot < 3; ++slot)
            for (int round = 0; round < 6; ++round) {
                const int32_t sw = 9 + next() % 30, sh = 9 + next() % 24;
                Image src(f.format, sw, sh), dst(f.format, 20, 18);
                std::vector<uint8_t> bytes = src.bytes();
                for (uint8_t &b : bytes) b = static_cast<uint8_t>(next());
                src.setBytes(bytes);
                dst.fill(0);
                const int32_t rect[4] = {int32_t(next() % 6), int32_t(next() % 6), 8 + int32_t(next() % 13),
                                         7 + int32_t(next() % 12)};
                double corners[8];
                for (int i = 0; i < 8; i += 2) {
                    corners[i] = real(-2, sw + 2);
                    corners[i + 1] = real(-2, sh + 2);
                }
                if (round % 3 == 0) corners[3] = corners[1];
                ASSERT_EQ(PVX_OK, draw(f.fn[slot], dst, src, corners, rect, round & 1));
                for (uint8_t b : dst.bytes()) hash = (hash ^ b) * 1099511628211ull;
            }
    EXPECT_EQ(0xf1c4f4a2317613a0ull, hash) << std::hex << hash;
}

}  // namespace
