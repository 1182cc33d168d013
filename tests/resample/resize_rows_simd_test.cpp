// Vector twins of the resizer's row loops against the scalar loops: the
// "UINT8" resampler with and without its group twin over random row sizes,
// positions, steps (below and at one pixel) and group limits, the "UINT88"
// resampler with and without its middle twin (enlarging and shrinking), the
// vertical blends of "UINT8", "RGB888" and "UINT88" over random widths and
// fractions. Sources and lines end (or start) at a guard page; destinations
// carry a sentinel tail that must stay intact. Bytes must match exactly.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "resample/pvx_resize_internal.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/test_random.h"

namespace {

using pvx_test::GuardedBuffer;

constexpr uint8_t kSentinel = 0xC3;

std::vector<const pvx_ResizeTwins *> twinSets() {
    const pvx_ResizeTwins *const *list = nullptr;
    const int32_t n = pvx_ImageProc2_availableTwins(&list);
    return std::vector<const pvx_ResizeTwins *>(list, list + n);
}

void fillRandom(uint8_t *p, size_t n, std::mt19937_64 &rng) {
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng());
}

TEST(ResizeRowsSimd, Uint8ResamplerGroupsMatchTheScalarGroups) {
    const auto sets = twinSets();
    if (sets.empty()) GTEST_SKIP() << "no vector twins on this target";
    std::mt19937_64 rng = pvx_test::makeRng(7);
    for (const pvx_ResizeTwins *t : sets) {
        ASSERT_NE(nullptr, t->groups8);
        for (int round = 0; round < pvx_test::rounds(4000); ++round) {
            const int32_t sw = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 16 : 300));
            const int32_t dw = sw + static_cast<int32_t>(rng() % (7 * static_cast<uint64_t>(sw) + 24));
            int64_t x0, step;
            int32_t safe;
            if (rng() % 2 == 0) {
                const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);
                x0 = g.x0;
                step = g.step;
                safe = g.safe;
            } else {
                // Any position, step up to one pixel and group limit: the
                // groups clamp their taps into the row.
                step = rng() % 4 == 0 ? 32768 : 1 + static_cast<int64_t>(rng() % 32768);
                x0 = static_cast<int64_t>(rng() % (static_cast<uint64_t>(sw) * 32768 + 65536)) - 32768;
                safe = static_cast<int32_t>(rng() % (static_cast<uint64_t>(dw) + 9));
            }
            const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
            GuardedBuffer src(static_cast<size_t>(sw), side, 1);
            fillRandom(src.data(), src.size(), rng);
            GuardedBuffer want(static_cast<size_t>(dw), GuardedBuffer::Side::End, 1);
            GuardedBuffer got(static_cast<size_t>(dw), GuardedBuffer::Side::End, 1);
            pvx_ImageProc2_Uint8_resampleRow(want.data(), src.data(), sw, dw, x0, step, safe, nullptr);
            pvx_ImageProc2_Uint8_resampleRow(got.data(), src.data(), sw, dw, x0, step, safe, t);
            for (int32_t j = 0; j < dw; ++j)
                ASSERT_EQ(want.data()[j], got.data()[j]) << t->isa << " sw=" << sw << " dw=" << dw << " x0=" << x0
                                                         << " step=" << step << " safe=" << safe << " at " << j;
        }
    }
}

TEST(ResizeRowsSimd, Uint88ResamplerMatchesTheScalarResampler) {
    const auto sets = twinSets();
    if (sets.empty()) GTEST_SKIP() << "no vector twins on this target";
    std::mt19937_64 rng = pvx_test::makeRng(9);
    for (const pvx_ResizeTwins *t : sets) {
        ASSERT_NE(nullptr, t->middle88);
        for (int round = 0; round < pvx_test::rounds(4000); ++round) {
            const int32_t sw = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 20 : 300));
            // Enlarging and shrinking, including the steps where the group
            // windows widen (7/8 pixel) and where the twin gives up (2 pixels).
            const int32_t dw = rng() % 2 ? sw + static_cast<int32_t>(rng() % (3 * static_cast<uint64_t>(sw) + 24))
                                         : 1 + static_cast<int32_t>(rng() % static_cast<uint64_t>(sw));
            const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);
            int64_t x0 = g.x0, step = g.step;
            if (rng() % 3 == 0) {
                const int64_t steps[] = {28086, 28087, 32768, 65535, 65536, 1 + static_cast<int64_t>(rng() % 70000)};
                step = steps[rng() % 6];
                x0 = static_cast<int64_t>(rng() % (static_cast<uint64_t>(sw) * 32768 + 32768));
            }
            const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
            GuardedBuffer src(2 * static_cast<size_t>(sw), side, 1);
            fillRandom(src.data(), src.size(), rng);
            GuardedBuffer want(4 * static_cast<size_t>(dw), GuardedBuffer::Side::End, 2);
            GuardedBuffer got(4 * static_cast<size_t>(dw), GuardedBuffer::Side::End, 2);
            pvx_ImageProc2_Uint88_resampleRow(want.data(), src.data(), sw, dw, x0, step, g.safe, nullptr);
            pvx_ImageProc2_Uint88_resampleRow(got.data(), src.data(), sw, dw, x0, step, g.safe, t);
            for (size_t j = 0; j < want.size(); ++j)
                ASSERT_EQ(want.data()[j], got.data()[j])
                    << t->isa << " sw=" << sw << " dw=" << dw << " x0=" << x0 << " step=" << step << " at byte " << j;
        }
    }
}

struct BlendMember {
    const char *name;
    pvx_ResizeBlendFn fn;
    int32_t lineBytes, pixelBytes;
};

const BlendMember kBlends[] = {
    {"UINT8", pvx_ImageProc2_Uint8_blendRows, 1, 1},
    {"RGB888", pvx_ImageProc2_Rgb888_blendRows, 3, 3},
    {"UINT88", pvx_ImageProc2_Uint88_blendRows, 4, 2},
};

TEST(ResizeRowsSimd, VerticalBlendsMatchTheScalarBlends) {
    const auto sets = twinSets();
    if (sets.empty()) GTEST_SKIP() << "no vector twins on this target";
    std::mt19937_64 rng = pvx_test::makeRng(8);
    for (const pvx_ResizeTwins *t : sets)
        for (const BlendMember &m : kBlends)
            for (int round = 0; round < pvx_test::rounds(2000); ++round) {
                const int32_t dw = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 24 : 400));
                const int32_t fractions[] = {0, 1, 127, 128, 255, 16383, 16384, 32512, 32640, 32767};
                const int32_t f = rng() % 3 == 0 ? fractions[rng() % 10] : static_cast<int32_t>(rng() % 32768);
                const size_t line = static_cast<size_t>(dw) * m.lineBytes, row = static_cast<size_t>(dw) * m.pixelBytes;
                const auto side = rng() % 2 ? GuardedBuffer::Side::End : GuardedBuffer::Side::Start;
                GuardedBuffer upper(line, side, 2), lower(line, side, 2);
                fillRandom(upper.data(), line, rng);
                fillRandom(lower.data(), line, rng);
                if (m.lineBytes == 4 && rng() % 2 == 0) {
                    // The resampler's x32 samples: 0 .. 8160.
                    uint16_t *a = reinterpret_cast<uint16_t *>(upper.data()),
                             *b = reinterpret_cast<uint16_t *>(lower.data());
                    for (size_t i = 0; i < line / 2; ++i) {
                        a[i] = static_cast<uint16_t>(rng() % 8161);
                        b[i] = static_cast<uint16_t>(rng() % 8161);
                    }
                }
                std::vector<uint8_t> want(row + 32, kSentinel), got(row + 32, kSentinel);
                m.fn(want.data(), upper.data(), lower.data(), dw, f, nullptr);
                m.fn(got.data(), upper.data(), lower.data(), dw, f, t);
                for (size_t j = 0; j < want.size(); ++j)
                    ASSERT_EQ(want[j], got[j]) << t->isa << " " << m.name << " dw=" << dw << " f=" << f << " at " << j;
                for (size_t j = row; j < want.size(); ++j) ASSERT_EQ(kSentinel, got[j]) << j;
            }
}

// The bands use the first set of the list.
TEST(ResizeRowsSimd, BestIsTheFirstAvailable) {
    const auto sets = twinSets();
    EXPECT_EQ(sets.empty() ? nullptr : sets[0], pvx_ImageProc2_bestTwins());
}

}  // namespace
