// The resizer's leaves at every CPU level against their C references: each
// leaf on random groups, steps and weights with its reads fenced by guard
// pages at the reach leaves may use; the row functions around them (edges, groups
// near the row end, tails) on random geometries; whole resizes per format.
// bench/leaf_bench times each leaf against its C reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "resample/pvx_resize_internal.h"
#include "runtime/pvx_cpu.h"
#include "tests/resample/resize_test_util.h"
#include "tests/simd/simd_levels.h"

namespace {

using pvx_test::GuardedBuffer;

void fillRandom(uint8_t *p, size_t n, std::mt19937_64 &rng) {
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng());
}

pvx_ResizeLeaves leavesAt(uint32_t level) {
    ScopedCpuLevel scope(level);
    pvx_ResizeLeaves leaves;
    pvx_ImageProc2_fillLeaves(&leaves);
    return leaves;
}

// One horizontal leaf call: `groups` groups from x with `step`; the source
// holds exactly the bytes the leaf may read (reach from the last group's
// base pixel) between guard pages on the side drawn.
struct GroupCase {
    int32_t groups, step;
    int64_t x;
};

template <class Out, class Fn>
void checkGroups(const char *what, Fn ref, Fn leaf, int32_t pixelBytes, int32_t outPerGroup, int32_t maxStep,
                 std::mt19937_64 &rng) {
    for (int round = 0; round < pvx_test::rounds(600); ++round) {
        GroupCase c;
        c.groups = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 3 : 40));
        const int32_t steps[] = {1, 128, 21845, 32767, 32768, maxStep};
        c.step = rng() % 4 == 0 ? steps[rng() % 6] : 1 + static_cast<int32_t>(rng() % static_cast<uint64_t>(maxStep));
        c.x = static_cast<int64_t>(rng() % (8 * 32768));
        const int64_t lastBase = (c.x + 8 * static_cast<int64_t>(c.groups - 1) * c.step) >> 15;
        const size_t bytes = static_cast<size_t>(lastBase * pixelBytes + PVX_RESIZE_LEAF_REACH);
        const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
        GuardedBuffer src(bytes, side, 1);
        fillRandom(src.data(), bytes, rng);
        const size_t outBytes = static_cast<size_t>(c.groups) * outPerGroup * sizeof(Out);
        GuardedBuffer want(outBytes, GuardedBuffer::Side::End, 1), got(outBytes, GuardedBuffer::Side::End, 1);
        ref(reinterpret_cast<Out *>(want.data()), src.data(), c.groups, c.x, c.step);
        leaf(reinterpret_cast<Out *>(got.data()), src.data(), c.groups, c.x, c.step);
        ASSERT_EQ(0, memcmp(want.data(), got.data(), outBytes))
            << what << " groups=" << c.groups << " step=" << c.step << " x=" << c.x;
    }
}

TEST(ResizeLeaves, HorizontalGroupsMatchTheReference) {
    const pvx_ResizeLeaves *ref = pvx_ImageProc2_referenceLeaves();
    std::mt19937_64 rng = pvx_test::makeRng(31);
    for (uint32_t level : supportedCpuLevels()) {
        SCOPED_TRACE(cpuLevelName(level));
        const pvx_ResizeLeaves leaves = leavesAt(level);
        checkGroups<uint8_t>("UINT8", ref->uint8Groups, leaves.uint8Groups, 1, 8, 32768, rng);
        checkGroups<uint8_t>("RGB888", ref->rgb888Groups, leaves.rgb888Groups, 3, 24, 32768, rng);
        checkGroups<uint16_t>("UINT88", ref->uint88Groups, leaves.uint88Groups, 2, 16, 65535, rng);
    }
}

TEST(ResizeLeaves, BlendsMatchTheReference) {
    const pvx_ResizeLeaves *ref = pvx_ImageProc2_referenceLeaves();
    std::mt19937_64 rng = pvx_test::makeRng(32);
    for (uint32_t level : supportedCpuLevels()) {
        SCOPED_TRACE(cpuLevelName(level));
        const pvx_ResizeLeaves leaves = leavesAt(level);
        for (int round = 0; round < pvx_test::rounds(500); ++round) {
            const int64_t groups = 1 + static_cast<int64_t>(rng() % (rng() % 4 == 0 ? 5 : 120));
            const size_t n = 8 * static_cast<size_t>(groups);
            const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
            GuardedBuffer a(2 * n, side, 1), b(2 * n, side, 1);
            fillRandom(a.data(), 2 * n, rng);
            fillRandom(b.data(), 2 * n, rng);
            GuardedBuffer want(n, GuardedBuffer::Side::End, 1), got(n, GuardedBuffer::Side::End, 1);

            const int32_t w7s[] = {0, 1, 64, 127, 128};
            const int32_t w7 = rng() % 3 == 0 ? w7s[rng() % 5] : static_cast<int32_t>(rng() % 129);
            ref->blend7(want.data(), a.data(), b.data(), groups, w7);
            leaves.blend7(got.data(), a.data(), b.data(), groups, w7);
            ASSERT_EQ(0, memcmp(want.data(), got.data(), n)) << "blend7 groups=" << groups << " w=" << w7;

            // Any 16-bit samples, beyond the resampler's 0 .. 8160: the pack must clamp alike.
            const uint32_t w88s[] = {0, 1, 8192, 16383, 16384};
            const uint32_t w88 = rng() % 3 == 0 ? w88s[rng() % 5] : static_cast<uint32_t>(rng() % 16385);
            const auto *ua = reinterpret_cast<const uint16_t *>(a.data());
            const auto *ub = reinterpret_cast<const uint16_t *>(b.data());
            ref->blend88(want.data(), ua, ub, groups, w88);
            leaves.blend88(got.data(), ua, ub, groups, w88);
            ASSERT_EQ(0, memcmp(want.data(), got.data(), n)) << "blend88 groups=" << groups << " w=" << w88;
        }
    }
}

// Whole rows: the shared loops decide which groups read the row in place and
// which read a padded copy of its end. Rows end (or start) at a guard page.
TEST(ResizeLeaves, RowFunctionsMatchTheReferenceAtEveryLevel) {
    struct Member {
        const char *name;
        pvx_ResizeRowFn row;
        int32_t pixelBytes, lineBytes;
    } const members[] = {{"UINT8", pvx_ImageProc2_Uint8_resampleRow, 1, 1},
                         {"RGB888", pvx_ImageProc2_Rgb888_resampleRow, 3, 3},
                         {"UINT88", pvx_ImageProc2_Uint88_resampleRow, 2, 4}};
    const pvx_ResizeLeaves *ref = pvx_ImageProc2_referenceLeaves();
    std::mt19937_64 rng = pvx_test::makeRng(33);
    for (uint32_t level : supportedCpuLevels()) {
        SCOPED_TRACE(cpuLevelName(level));
        const pvx_ResizeLeaves leaves = leavesAt(level);
        for (const Member &m : members)
            for (int round = 0; round < pvx_test::rounds(500); ++round) {
                const int32_t sw = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 20 : 300));
                const int32_t dw = rng() % 4 ? sw + static_cast<int32_t>(rng() % (3 * static_cast<uint64_t>(sw) + 24))
                                             : 1 + static_cast<int32_t>(rng() % static_cast<uint64_t>(sw));
                pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);
                if (rng() % 3 == 0) {
                    // Any position and group limit: groups may run past the row's end.
                    g.x0 = static_cast<int64_t>(rng() % (static_cast<uint64_t>(sw) * 32768 + 65536)) - 32768;
                    g.safe = static_cast<int32_t>(rng() % (static_cast<uint64_t>(dw) + 9));
                }
                const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
                GuardedBuffer src(static_cast<size_t>(sw) * m.pixelBytes, side, 1);
                fillRandom(src.data(), src.size(), rng);
                const size_t line = static_cast<size_t>(dw) * m.lineBytes;
                GuardedBuffer want(line, GuardedBuffer::Side::End, 1), got(line, GuardedBuffer::Side::End, 1);
                m.row(want.data(), src.data(), sw, dw, g.x0, g.step, g.safe, ref);
                m.row(got.data(), src.data(), sw, dw, g.x0, g.step, g.safe, &leaves);
                ASSERT_EQ(0, memcmp(want.data(), got.data(), line))
                    << m.name << " sw=" << sw << " dw=" << dw << " x0=" << g.x0 << " safe=" << g.safe;
            }
    }
}

// Whole resizes (zoom-like enlargements, a reduction, the 2:1 path) of every
// format the engine resizes, at every level, against the plain C level.
TEST(ResizeLeaves, WholeImagesMatchAcrossLevels) {
    const int32_t formats[] = {PVX_FORMAT_UINT8, PVX_FORMAT_RGB888, PVX_FORMAT_YUV420_SEMIPLANAR,
                               PVX_FORMAT_YUV420_PLANAR};
    const int32_t sizes[][4] = {{128, 72, 192, 108}, {202, 58, 301, 87}, {66, 40, 47, 33}, {90, 64, 45, 32}};
    std::mt19937_64 rng = pvx_test::makeRng(34);
    const std::vector<uint32_t> levels = supportedCpuLevels();
    for (int32_t format : formats)
        for (const auto &s : sizes) {
            rt::TestImage src(s[0], s[1], format, 3);
            src.randomize(rng);
            std::vector<std::vector<uint8_t>> first;
            for (uint32_t level : levels) {
                ScopedCpuLevel scope(level);
                rt::TestEnv env;
                pvx_ImageProc2 proc;
                ASSERT_EQ(PVX_OK, pvx_construct_ImageProc2(&proc, env.env()));
                rt::TestImage dst(s[2], s[3], format, 5);
                ASSERT_EQ(PVX_OK, pvx_ImageProc2_resizeImage(&proc, &dst.img, &src.img));
                EXPECT_TRUE(dst.sentinelsIntact());
                for (int32_t p = 0; p < pvx_Image_getPlaneCount(format); ++p) {
                    if (level == levels[0]) {
                        first.push_back(dst.plane(p));
                    } else {
                        ASSERT_EQ(first[p], dst.plane(p)) << cpuLevelName(level) << " format " << format << " "
                                                          << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3];
                    }
                }
            }
        }
}

}  // namespace
