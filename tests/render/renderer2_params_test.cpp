// Vertex lattice: layout rules, limits, builders, copy, clamping and
// projective mapping.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "render/pvx_mvec8real.h"
#include "render/pvx_renderer2_params.h"
#include "runtime/pvx_heap2.h"
#include "tests/support/test_env.h"

namespace {

using HeapArea = pvx_test::TestEnv;

struct Lattice {
    explicit Lattice(pvx_Heap2 *heap) { EXPECT_EQ(pvx_construct_Renderer2_Params(&p, heap), PVX_OK); }
    ~Lattice() { pvx_destruct_Renderer2_Params(&p); }
    pvx_Renderer2_Params p;
};

const int kOwner = 0;   // any non-null owner

// Which of the four arrays (srcX, srcY, dstX, dstY) a store holds.
template <typename Store>
std::string arrays(const Store &s) {
    std::string held;
    for (const void *a : {static_cast<const void *>(s.srcX), static_cast<const void *>(s.srcY),
                          static_cast<const void *>(s.dstX), static_cast<const void *>(s.dstY)})
        held += a != nullptr ? '1' : '0';
    return held;
}

// The coordinates one axis of a lattice must have: lo, lo+cell, ... below
// hi, then hi itself.
std::vector<int64_t> axis(int64_t lo, int64_t hi, int64_t cell) {
    std::vector<int64_t> v;
    for (int64_t a = lo; a < hi; a += cell) v.push_back(a);
    v.push_back(hi);
    return v;
}

// Checks counts, row-major order and identity source positions.
void expectLayout(const pvx_Renderer2_Params &p, const int32_t *rect, int32_t cw, int32_t ch) {
    const std::vector<int64_t> xs = axis(rect[0], rect[2], cw);
    const std::vector<int64_t> ys = axis(rect[1], rect[3], ch);
    ASSERT_EQ(p.numX, static_cast<int32_t>(xs.size()));
    ASSERT_EQ(p.numY, static_cast<int32_t>(ys.size()));
    EXPECT_EQ(p.cellWidth, cw);
    EXPECT_EQ(p.cellHeight, ch);
    for (int q = 0; q < 4; ++q) EXPECT_EQ(p.rect[q], rect[q]);
    for (size_t j = 0; j < ys.size(); ++j)
        for (size_t i = 0; i < xs.size(); ++i) {
            const size_t k = j * xs.size() + i;
            ASSERT_EQ(p.dstX[k], xs[i]) << i << "," << j;
            ASSERT_EQ(p.dstY[k], ys[j]) << i << "," << j;
            ASSERT_EQ(p.srcX[k], static_cast<double>(xs[i]));
            ASSERT_EQ(p.srcY[k], static_cast<double>(ys[j]));
        }
}

TEST(Renderer2Params, LayoutOverAssortedRectangles) {
    struct Case {
        int32_t rect[4];
        int32_t cw, ch;
    };
    const Case cases[] = {
        {{0, 0, 1920, 1080}, 32, 32},  {{0, 0, 640, 480}, 10, 10},   {{5, 7, 101, 59}, 16, 8},
        {{-40, -30, 40, 30}, 24, 9},   {{0, 0, 64, 64}, 64, 64},     {{0, 0, 65, 63}, 64, 64},
        {{10, 10, 10, 10}, 8, 8},      {{0, 0, 7, 300}, 8, 8},       {{100, 0, 95, 20}, 8, 8},
        {{0, 0, 1, 1}, 1000, 1000},    {{3, 3, 4000, 9}, 4000, 8},
    };
    HeapArea area;
    for (const Case &c : cases) {
        Lattice l(area.heap());
        ASSERT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, c.rect, c.cw, c.ch), PVX_OK)
            << c.rect[0] << "," << c.rect[1] << "," << c.rect[2] << "," << c.rect[3];
        expectLayout(l.p, c.rect, c.cw, c.ch);
    }
    EXPECT_EQ(area.used(), 0u);
}

TEST(Renderer2Params, VertexLimit) {
    HeapArea area;
    Lattice l(area.heap());
    const int32_t exact[4] = {0, 0, 127 * 8, 127 * 8};   // 128 x 128
    ASSERT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, exact, 8, 8), PVX_OK);
    EXPECT_EQ(l.p.numX * l.p.numY, 16384);
    const uint32_t used = area.used();
    double *const keep = l.p.srcX;
    const int32_t over[4] = {0, 0, 144 * 8, 112 * 8};    // 145 x 113 = 16385
    EXPECT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, over, 8, 8), PVX_ERROR_PARAM);
    // The counts are stored, the old arrays stay.
    EXPECT_EQ(l.p.numX, 145);
    EXPECT_EQ(l.p.numY, 113);
    EXPECT_EQ(l.p.srcX, keep);
    EXPECT_EQ(area.used(), used);
}

TEST(Renderer2Params, HostileRectanglesNeverOverflow) {
    HeapArea area;
    Lattice l(area.heap());
    const int32_t lo = std::numeric_limits<int32_t>::min(), hi = std::numeric_limits<int32_t>::max();
    const int32_t whole[4] = {lo, lo, hi, hi};
    EXPECT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, whole, 8, 8), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, whole, hi, hi), PVX_OK);   // 4 x 4
    expectLayout(l.p, whole, hi, hi);
    const int32_t nearTop[4] = {1, hi - 20, hi, hi};   // x + cell would pass INT32_MAX
    ASSERT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, nearTop, hi, 8), PVX_OK);
    expectLayout(l.p, nearTop, hi, 8);
    // Reversed by a cell or more: no vertex count fits, refused.
    const int32_t reversed[4] = {hi, hi, lo, lo};
    EXPECT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, reversed, 8, 8), PVX_ERROR_PARAM);
    const int32_t reversed2[4] = {100, 0, 84, 20};
    EXPECT_EQ(pvx_Renderer2_Params_initWithGridSize(&l.p, reversed2, 8, 8), PVX_ERROR_PARAM);
    // Builders deriving the cell from a side that does not fit: refused.
    EXPECT_EQ(pvx_Renderer2_Params_initRect(&l.p, &kOwner, whole, 1), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_Renderer2_Params_initRect(&l.p, &kOwner, whole, 2), PVX_OK);   // cell 2^31-16: 3 x 3
    expectLayout(l.p, whole, 2147483632, 2147483632);
    EXPECT_EQ(pvx_Renderer2_Params_init(&l.p, &kOwner, -50, 40, 1), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Renderer2_Params_initVertical(&l.p, &kOwner, hi, hi, 1), PVX_OK);
    EXPECT_EQ(l.p.numX * l.p.numY, 4);
}

// Cells derived from a divisor of the shorter side: a multiple of 16, at
// least 8; a divisor below 2 gives one cell over the whole rectangle.
TEST(Renderer2Params, CellRulesOfTheBuilders) {
    HeapArea area;
    Lattice l(area.heap());
    const int32_t rect[4] = {0, 0, 100, 60}, hd[4] = {0, 0, 1920, 1080}, offset[4] = {10, 20, 330, 260};
    const int32_t vga[4] = {0, 0, 640, 480};
    ASSERT_EQ(pvx_Renderer2_Params_initRect(&l.p, &kOwner, rect, 0), PVX_OK);
    expectLayout(l.p, rect, 100, 60);
    ASSERT_EQ(pvx_Renderer2_Params_initRect(&l.p, &kOwner, rect, 4), PVX_OK);   // 15 -> 0 -> 8
    expectLayout(l.p, rect, 8, 8);
    ASSERT_EQ(pvx_Renderer2_Params_initRect(&l.p, &kOwner, offset, 3), PVX_OK);   // 240 / 3 = 80
    expectLayout(l.p, offset, 80, 80);
    ASSERT_EQ(pvx_Renderer2_Params_init(&l.p, &kOwner, 1920, 1080, 60), PVX_OK);   // 18 -> 16
    expectLayout(l.p, hd, 16, 16);
    ASSERT_EQ(pvx_Renderer2_Params_initVertical(&l.p, &kOwner, 640, 480, 4), PVX_OK);   // one column of 112-row bands
    expectLayout(l.p, vga, 640, 112);
    EXPECT_EQ(pvx_Renderer2_Params_initVertical(&l.p, &kOwner, 7, 480, 4), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_Renderer2_Params_initRectWithSize(&l.p, &kOwner, offset, 12), PVX_OK);
    expectLayout(l.p, offset, 12, 12);
}

TEST(Renderer2Params, GridWrapperTakesItsVertexCounts) {
    HeapArea area;
    pvx_Renderer2_GridWrapper g;
    ASSERT_EQ(pvx_construct_Renderer2_GridWrapper(&g, area.heap()), PVX_OK);
    EXPECT_EQ(pvx_Renderer2_GridWrapper_init(&g, 3, -1), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Renderer2_GridWrapper_init(&g, 0, 2), PVX_OK);   // an empty lattice
    ASSERT_EQ(pvx_Renderer2_GridWrapper_init(&g, 3, 2), PVX_OK);
    EXPECT_EQ(arrays(g), "1111");
    EXPECT_EQ(pvx_destruct_Renderer2_GridWrapper(&g), PVX_OK);
    EXPECT_EQ(area.used(), 0u);
}

TEST(Renderer2Params, AllocationFailureKeepsWhatWasObtained) {
    // 32 x 32 vertices: 8 KiB + 8 KiB + 4 KiB + 4 KiB; the heap holds about 22 KiB.
    HeapArea area(22 * 1024);
    Lattice l(area.heap());
    EXPECT_EQ(pvx_Renderer2_Params_initWithSize(&l.p, &kOwner, 31 * 8, 31 * 8, 8), PVX_ERROR_NOMEM);
    EXPECT_EQ(arrays(l.p), "1110");
    EXPECT_EQ(pvx_destruct_Renderer2_Params(&l.p), PVX_OK);
    EXPECT_EQ(area.used(), 0u);
    // No heap at all: nothing can be allocated.
    pvx_Renderer2_Params bare;
    pvx_construct_Renderer2_Params(&bare, nullptr);
    EXPECT_EQ(pvx_Renderer2_Params_initWithSize(&bare, &kOwner, 64, 64, 8), PVX_ERROR_NOMEM);
}

TEST(Renderer2Params, CopyRebuildsADifferentShape) {
    HeapArea area;
    Lattice a(area.heap()), b(area.heap()), empty(area.heap());
    const int32_t rect[4] = {16, 8, 400, 300};
    ASSERT_EQ(pvx_Renderer2_Params_initWithGridSize(&a.p, rect, 24, 40), PVX_OK);
    ASSERT_EQ(pvx_Renderer2_Params_initWithSize(&b.p, &kOwner, 64, 64, 8), PVX_OK);
    for (int k = 0; k < a.p.numX * a.p.numY; ++k) a.p.srcX[k] = 1000.0 + k;
    ASSERT_EQ(pvx_Renderer2_Params_copy(&b.p, &a.p), PVX_OK);
    for (int k = 0; k < a.p.numX * a.p.numY; ++k) {
        ASSERT_EQ(b.p.srcX[k], 1000.0 + k);
        b.p.srcX[k] = b.p.dstX[k];
    }
    expectLayout(b.p, rect, 24, 40);
    EXPECT_EQ(pvx_Renderer2_Params_copy(&b.p, &empty.p), PVX_ERROR_PARAM);
}

void expectMapped(const pvx_Renderer2_Params &p, int k, double x, double y) {
    EXPECT_DOUBLE_EQ(p.srcX[k], x) << k;
    EXPECT_DOUBLE_EQ(p.srcY[k], y) << k;
}

TEST(Renderer2Params, SetMvec8Real) {
    HeapArea area;
    Lattice l(area.heap());
    ASSERT_EQ(pvx_Renderer2_Params_initWithSize(&l.p, &kOwner, 1920, 1080, 64), PVX_OK);
    const int n = l.p.numX * l.p.numY;

    const pvx_Mvec8Real identity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
    for (int k = 0; k < n; ++k) l.p.srcX[k] = l.p.srcY[k] = -1.0;
    ASSERT_EQ(pvx_Renderer2_Params_setMvec8Real(&l.p, &identity), PVX_OK);
    for (int k = 0; k < n; ++k) expectMapped(l.p, k, l.p.dstX[k], l.p.dstY[k]);

    const pvx_Mvec8Real shift = {{1, 0, 12.25, 0, 1, -7.5, 0, 0, 1}};
    ASSERT_EQ(pvx_Renderer2_Params_setMvec8Real(&l.p, &shift), PVX_OK);
    for (int k = 0; k < n; ++k) expectMapped(l.p, k, l.p.dstX[k] + 12.25, l.p.dstY[k] - 7.5);

    // w = 1 + x/1920: the right edge is halved, the left one untouched.
    const pvx_Mvec8Real persp = {{1, 0, 0, 0, 1, 0, 1.0 / 1920, 0, 1}};
    ASSERT_EQ(pvx_Renderer2_Params_setMvec8Real(&l.p, &persp), PVX_OK);
    expectMapped(l.p, 0, 0.0, 0.0);
    expectMapped(l.p, 30, 960.0, 0.0);
    expectMapped(l.p, 17 * 31 + 30, 960.0, 540.0);
    expectMapped(l.p, 17 * 31, 0.0, 1080.0);
    expectMapped(l.p, 31 + 15, 960.0 / 1.5, 64.0 / 1.5);

    // w = y - 64 vanishes on the second row: the walk stops at its first vertex.
    for (int k = 0; k < n; ++k) l.p.srcX[k] = l.p.srcY[k] = -1.0;
    const pvx_Mvec8Real horizon = {{1, 0, 0, 0, 1, 0, 0, 1, -64}};
    EXPECT_EQ(pvx_Renderer2_Params_setMvec8Real(&l.p, &horizon), PVX_ERROR_PARAM);
    for (int k = 0; k < l.p.numX; ++k) expectMapped(l.p, k, l.p.dstX[k] / -64.0, 0.0);
    for (int k = l.p.numX; k < n; ++k) expectMapped(l.p, k, -1.0, -1.0);

}

}  // namespace
