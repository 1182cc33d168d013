// Render dispatch: formats and modes, the cell bounds test and
// classification (through counting kernels swapped into the slots), the same
// bytes over the parallel layer, the task executor and the caller, and the
// matrix entry point.
#include <gtest/gtest.h>

#include <math.h>

#include <vector>

#include "render/pvx_renderer2.h"
#include "render/pvx_renderer2_internal.h"
#include "render/pvx_renderer2_kernels.h"
#include "runtime/pvx_pel.h"
#include "tests/render/render_test_util.h"
#include "tests/support/test_env.h"
#include "tests/support/test_random.h"

namespace {

using rt::Image;

using pvx_test::TestEnv;

struct Renderer {
    explicit Renderer(TestEnv &env) { EXPECT_EQ(PVX_OK, pvx_construct_Renderer2(&r, env.heap())); }
    ~Renderer() { pvx_destruct_Renderer2(&r); }
    pvx_Renderer2 r;
};

struct Lattice {
    Lattice(TestEnv &env, int32_t w, int32_t h, int32_t cw, int32_t ch) {
        EXPECT_EQ(PVX_OK, pvx_construct_Renderer2_Params(&p, env.heap()));
        const int32_t rect[4] = {0, 0, w, h};
        EXPECT_EQ(PVX_OK, pvx_Renderer2_Params_initWithGridSize(&p, rect, cw, ch));
    }
    ~Lattice() { pvx_destruct_Renderer2_Params(&p); }
    int32_t count() const { return p.numX * p.numY; }
    // Source = f(destination) at every vertex.
    template <class F>
    void map(F f) {
        for (int32_t i = 0; i < count(); ++i) f(double(p.dstX[i]), double(p.dstY[i]), &p.srcX[i], &p.srcY[i]);
    }
    pvx_Renderer2_Params p;
};

// ---------------------------------------------------------------------------
// Counting kernels

struct Call {
    int slot;
    double corners[8];
    int32_t rect[4];
    int32_t bc;
};
std::vector<Call> g_calls;
pvx_Result record(int slot, const pvx_Renderer2_DrawArg *a) {
    Call c;
    c.slot = slot;
    for (int i = 0; i < 8; ++i) c.corners[i] = a->corners[i];
    for (int i = 0; i < 4; ++i) c.rect[i] = a->cellRect[i];
    c.bc = a->boundaryCheck;
    g_calls.push_back(c);
    return PVX_OK;
}
pvx_Result countRect(const pvx_Renderer2_DrawArg *a) { return record(0, a); }
pvx_Result countParallel(const pvx_Renderer2_DrawArg *a) { return record(1, a); }
pvx_Result countNoRot(const pvx_Renderer2_DrawArg *a) { return record(2, a); }

void resetCounts() {
    g_calls.clear();
}

// Renders once for the destination (so the kernel choice is cached), then
// swaps the counting kernels into the slots.
void swapInCounters(pvx_Renderer2 *r, const Image &dst, const Image &src, const pvx_Renderer2_Params *p) {
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(r, dst.image(), src.image(), p));
    r->drawRect = countRect;
    r->drawRectParallel = countParallel;
    r->drawRectNoRot = countNoRot;
    resetCounts();
}

// ---------------------------------------------------------------------------

// Which formats and modes render, and which are refused before anything
// is drawn (modes outside 0-3 only for the 4:2:0 formats; 4:2:0 planar has
// no nearest-neighbour mode).
TEST(Renderer2, SupportedFormatsAndModes) {
    const struct {
        int32_t format, mode;
        bool ok;
    } cases[] = {
        {PVX_FORMAT_BGR888, 9, true},              {PVX_FORMAT_YUV422_YVYU, 3, true},
        {PVX_FORMAT_YUV422_PLANAR, 1, true},       {PVX_FORMAT_YUV420_PLANAR, 3, true},
        {PVX_FORMAT_YUV420_PLANAR, 2, false},      {PVX_FORMAT_YUV420_PLANAR, -1, false},
        {PVX_FORMAT_YUV420_SEMIPLANAR, 2, true},   {PVX_FORMAT_YVU420_SEMIPLANAR, 100, false},
        {PVX_FORMAT_RGB565, 0, false},             {PVX_FORMAT_YUV422_SEMIPLANAR, 0, false},
    };
    TestEnv env;
    Lattice L(env, 16, 16, 8, 8);
    for (const auto &c : cases) {
        Renderer R(env);
        pvx_Renderer2_initWithPel(&R.r, nullptr);
        R.r.mode = c.mode;
        Image src(c.format, 16, 16), dst(c.format, 16, 16);
        src.fill(9);
        dst.fill(1);
        for (int again = 0; again < 2; ++again) {   // the choice is cached per destination
            EXPECT_EQ(c.ok ? PVX_OK : PVX_ERROR_FORMAT, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p))
                << c.format << " mode " << c.mode;
        }
        EXPECT_EQ(c.ok ? 9 : 1, dst.luma(3, 3)) << c.format << " mode " << c.mode;
    }
    // A mode the destination has no kernels for is refused by setMode too.
    Renderer R(env);
    pvx_Renderer2_initWithPel(&R.r, nullptr);
    Image ps(PVX_FORMAT_YUV420_PLANAR, 16, 16), pd(PVX_FORMAT_YUV420_PLANAR, 16, 16);
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, pd.image(), ps.image(), &L.p));
    EXPECT_EQ(PVX_ERROR_FORMAT, pvx_Renderer2_setMode(&R.r, 2));
    EXPECT_EQ(PVX_ERROR_PARAM, pvx_Renderer2_bandTask(nullptr, nullptr));
}

// Copy mode on the identity lattice copies the picture: each row pair's luma
// rows and its chroma row come from where the cell's corners say.
TEST(Renderer2, CopyModeCopiesThePicture) {
    TestEnv env;
    std::mt19937_64 rng = pvx_test::makeRng(12);
    Lattice L(env, 64, 48, 16, 16);
    for (int32_t format : {PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_YUV420_SEMIPLANAR}) {
        Renderer R(env);
        pvx_Renderer2_initWithPel(&R.r, nullptr);
        R.r.mode = PVX_RENDERER2_MODE_COPY;
        Image src(format, 64, 48), dst(format, 64, 48, 2);
        src.fillRandom(rng);
        dst.fill(0);
        ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
        EXPECT_EQ(src.bytes(), dst.bytes()) << format;
        EXPECT_TRUE(dst.bandIntact());
    }
}

// ---------------------------------------------------------------------------
// Cells

TEST(Renderer2, BoundsTest) {
    TestEnv env;
    Renderer R(env);
    pvx_Renderer2_initWithPel(&R.r, nullptr);
    std::mt19937_64 rng = pvx_test::makeRng(3);
    Image src(PVX_FORMAT_UINT8, 32, 24), dst(PVX_FORMAT_UINT8, 32, 24);
    src.fillRandom(rng);
    Lattice L(env, 32, 24, 32, 24);   // one cell; identity: TR and BR at x = width, BL and BR at y = height

    // boundaryCheck 0: a corner exactly at x = width (or y = height) is
    // inside, so the cell is drawn.
    dst.fill(0);
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
    EXPECT_EQ(src.bytes(), dst.bytes());
    // Just beyond: skipped, pixels keep their values.
    for (double *v : {&L.p.srcX[1], &L.p.srcY[2], &L.p.srcX[3]}) {
        const double keep = *v;
        *v += 0.001;
        dst.fill(77);
        ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
        EXPECT_EQ(std::vector<uint8_t>(32 * 24, 77), dst.bytes());
        *v = keep;
    }
    L.p.srcX[0] = -0.001;
    dst.fill(77);
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
    EXPECT_EQ(77, dst.luma(5, 5));
    L.p.srcX[0] = NAN;
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
    EXPECT_EQ(77, dst.luma(5, 5));

    // With the check on, one corner inside is enough ...
    swapInCounters(&R.r, dst, src, &L.p);
    pvx_Renderer2_setBoundaryCheck(&R.r, 1);
    const double far[][8] = {
        {-5, -5, 1e6 - 1, -5, -5, 1e6, 10, 10},                // BR inside
        {NAN, 0, 40, 0, 0, 30, 31.5, 23.5},                    // NaN corner, BR inside
        {-1e300, -1e300, -1e300, 3, 4, 5, -7, 8},              // BL inside (huge negative values allowed)
        {16777215.9, 0, 40, 0, 0, 30, 31.5, 23.5},             // just below 2^24
    };
    for (const auto &c : far) {
        for (int i = 0; i < 4; ++i) {   // vertices 0..3 are TL, TR, BL, BR
            L.p.srcX[i] = c[2 * i];
            L.p.srcY[i] = c[2 * i + 1];
        }
        resetCounts();
        ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
        EXPECT_EQ(1u, g_calls.size()) << c[0];
    }
    // ... but no corner inside, or any coordinate at 2^24 or beyond, skips.
    const double skipped[][8] = {
        {-5, -5, 40, -5, -5, 30, 40, 30},                       // none inside
        {NAN, NAN, NAN, NAN, NAN, NAN, NAN, NAN},
        {16777216.0, 0, 1, 1, 2, 2, 3, 3},                      // at 2^24
        {1, 1, 2, 2, 3, 3, 4, INFINITY},
    };
    for (const auto &c : skipped) {
        for (int i = 0; i < 4; ++i) {
            L.p.srcX[i] = c[2 * i];
            L.p.srcY[i] = c[2 * i + 1];
        }
        resetCounts();
        ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
        EXPECT_EQ(0u, g_calls.size()) << c[0];
    }
    // Empty destination boxes are skipped whatever the source.
    L.map([](double x, double y, double *sx, double *sy) { *sx = x, *sy = y; });
    L.p.dstX[3] = L.p.dstX[0];
    resetCounts();
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
    EXPECT_EQ(0u, g_calls.size());
}

TEST(Renderer2, Classification) {
    TestEnv env;
    Renderer R(env);
    pvx_Renderer2_initWithPel(&R.r, nullptr);
    Image src(PVX_FORMAT_UINT8, 200, 200), dst(PVX_FORMAT_UINT8, 64, 32);
    Lattice L(env, 64, 32, 64, 32);   // one 64 x 32 cell: the scale s is 64
    swapInCounters(&R.r, dst, src, &L.p);
    pvx_Renderer2_setBoundaryCheck(&R.r, 1);
    struct Case {
        const char *name;
        double c[8];   // TL, TR, BL, BR
        int slot;
    };
    const double r = 0.1, cs = cos(r), sn = sin(r);
    const Case cases[] = {
        {"unrotated", {10, 10, 74, 10, 10, 42, 74, 42}, 2},
        {"scaled", {10, 10, 50.5, 10, 10, 60, 50.5, 60}, 2},
        {"horizontal shear", {10, 10, 74, 10, 20, 42, 84, 42}, 2},
        {"rotated", {50, 50, 50 + 64 * cs, 50 + 64 * sn, 50 - 32 * sn, 50 + 32 * cs, 50 + 64 * cs - 32 * sn,
                     50 + 64 * sn + 32 * cs},
         1},
        {"vertical shear", {10, 10, 74, 12, 10, 42, 74, 44}, 1},
        {"slope below the threshold", {10, 10, 74, 10.2, 10, 42, 74, 42.2}, 2},   // 0.2 * 128 / 64 = 0.4
        {"slope at the threshold", {10, 10, 74, 10.25, 10, 42, 74, 42.25}, 1},   // exactly 0.5
        {"twisted x", {10, 10, 74, 10, 10, 42, 74.3, 42}, 0},
        {"twist x at the threshold", {10, 10, 74, 10, 10, 42, 74.25, 42}, 0},
        {"twist x below", {10, 10, 74, 10, 10, 42, 74.2, 42}, 2},
        {"twisted y", {10, 10, 74, 10, 10, 42, 74, 41.7}, 0},
        {"NaN corner", {10, 10, 74, 10, 10, 42, NAN, 42}, 0},
        {"NaN slope", {10, 10, 74, NAN, 10, 42, 74, 42}, 0},
        {"infinite twist", {10, 10, 74, 10, -INFINITY, 42, 74, 42}, 0},
    };
    for (const Case &k : cases) {
        for (int i = 0; i < 4; ++i) {
            L.p.srcX[i] = k.c[2 * i];
            L.p.srcY[i] = k.c[2 * i + 1];
        }
        resetCounts();
        ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &L.p));
        ASSERT_EQ(1u, g_calls.size()) << k.name;
        EXPECT_EQ(k.slot, g_calls[0].slot) << k.name;
    }
    // The scale is the larger of the top width and the left height.
    Lattice T(env, 32, 64, 32, 64);
    for (int i = 0; i < 4; ++i) {
        T.p.srcX[i] = T.p.dstX[i] + 10;
        T.p.srcY[i] = T.p.dstY[i] + 10;
    }
    T.p.srcX[3] += 0.2;   // 0.2 * 128 / 64 = 0.4: still unrotated
    resetCounts();
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &T.p));
    ASSERT_EQ(1u, g_calls.size());
    EXPECT_EQ(2, g_calls[0].slot);
    // Thresholds of zero (constructed, not initialised): every cell is general.
    R.r.twistThreshold = R.r.rotationThreshold = 0;
    resetCounts();
    ASSERT_EQ(PVX_OK, pvx_Renderer2_render(&R.r, dst.image(), src.image(), &T.p));
    EXPECT_EQ(0, g_calls[0].slot);
}

// ---------------------------------------------------------------------------
// Matrix entry points

TEST(Renderer2, MatrixEntryPoints) {
    TestEnv env;
    Renderer R(env);
    pvx_Renderer2_initWithPel(&R.r, nullptr);
    std::mt19937_64 rng = pvx_test::makeRng(11);
    Image src(PVX_FORMAT_YUV420_SEMIPLANAR, 96, 64), dst(PVX_FORMAT_YUV420_SEMIPLANAR, 96, 64, 2);
    src.fillRandom(rng);
    const int32_t identity[6] = {32768, 0, 0, 0, 32768, 0};

    dst.fill(0);
    ASSERT_EQ(PVX_OK, pvx_Renderer2_renderWithMvec6F32(&R.r, dst.image(), src.image(), identity));
    EXPECT_EQ(src.bytes(), dst.bytes());

    // A shift by (4, 2) source pixels: cells whose corners leave the source
    // are skipped.
    const int32_t shift[6] = {32768, 0, 4 * 32768, 0, 32768, 2 * 32768};
    dst.fill(200);
    ASSERT_EQ(PVX_OK, pvx_Renderer2_renderWithMvec6F32(&R.r, dst.image(), src.image(), shift));
    for (int32_t y = 0; y < 64; ++y)
        for (int32_t x = 0; x < 96; ++x) {
            if (x < 88 && y < 56) {
                ASSERT_EQ(src.luma(x + 4, y + 2), dst.luma(x, y)) << x << "," << y;
            } else if (x >= 96 - 8 && y >= 64 - 8) {
                ASSERT_EQ(200, dst.luma(x, y)) << x << "," << y;
            }
        }

    // A matrix that sends a vertex to infinity fails in the mapping.
    pvx_Mvec8Real bad = {{1, 0, 0, 0, 1, 0, 0, 0, 0}};
    EXPECT_NE(PVX_OK, pvx_Renderer2_renderWithMvec8Real(&R.r, dst.image(), src.image(), &bad));
}

}  // namespace
