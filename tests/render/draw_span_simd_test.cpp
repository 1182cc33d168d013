// Vector twins of the unrotated span against the scalar span: random spans
// (steps below, at and above one pixel, random fractions, odd starts,
// lengths that are not multiples of 16, missing rows and chroma), every
// twin this build and processor has, compared byte for byte with sentinels
// around the written runs. Every source row sits against a guard page (at
// the last column the scalar span reads, or before the first one), so a
// twin that reads one byte more than the scalar span crashes.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "render/pvx_draw_span.h"
#include "render/pvx_draw_walk.h"
#include "tests/support/test_random.h"

namespace {

using namespace pvx_draw;

// Rows 0..rows-1 of `pitch` = two pages each: one page of data, one guard
// page. With Side::End, column `edge` of every row is the last byte before
// a guard page; with Side::Start it is the first byte after one.
class RowGuardedPlane {
public:
    enum class Side { End, Start };
    RowGuardedPlane(int32_t rows, int32_t edge, Side side, std::mt19937_64 &rng) {
        page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_ = (2 * static_cast<size_t>(rows) + 1) * page_;
        void *m = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m == MAP_FAILED) abort();
        map_ = static_cast<uint8_t *>(m);
        for (int32_t r = 0; r < rows; ++r) {
            uint8_t *data = map_ + (2 * static_cast<size_t>(r) + 1) * page_;
            if (mprotect(data, page_, PROT_READ | PROT_WRITE) != 0) abort();
            for (size_t i = 0; i < page_; ++i) data[i] = static_cast<uint8_t>(rng());
        }
        // Column 0 of row 0; the edge column of every row sits at a page edge.
        const size_t first = page_;
        base_ = side == Side::Start ? map_ + first - edge : map_ + first + page_ - 1 - edge;
    }
    ~RowGuardedPlane() { munmap(map_, size_); }
    RowGuardedPlane(const RowGuardedPlane &) = delete;
    RowGuardedPlane &operator=(const RowGuardedPlane &) = delete;

    const uint8_t *base() const { return base_; }
    ptrdiff_t pitch() const { return static_cast<ptrdiff_t>(2 * page_); }

private:
    size_t page_ = 0, size_ = 0;
    uint8_t *map_ = nullptr;
    const uint8_t *base_ = nullptr;
};

// Columns (luma) or bytes (interleaved chroma) or samples (planar chroma)
// the scalar span reads, worked out from its rules: pixel k at 1/16
// position p16 reads luma x, x+1 and, at even destination x, chroma sample
// (p16 >> 1) >> 4 and the next one.
struct Reach {
    int32_t lumaLo = INT32_MAX, lumaHi = INT32_MIN, chromaLo = INT32_MAX, chromaHi = INT32_MIN;
};

Reach reachOf(const SpanArgs &a, int32_t chromaBytes) {
    Reach r;
    for (int32_t k = 0; k < a.n; ++k) {
        const int32_t group = wadd(a.sx, wmul(k & ~15, a.ux)) >> 11;
        const int32_t p16 = wadd(group, a.off16[k & 15]);
        r.lumaLo = std::min(r.lumaLo, p16 >> 4);
        r.lumaHi = std::max(r.lumaHi, (p16 >> 4) + 1);
        if (((a.dx + k) & 1) == 0) {
            const int32_t c = (p16 >> 1) >> 4;
            r.chromaLo = std::min(r.chromaLo, chromaBytes * c);
            r.chromaHi = std::max(r.chromaHi, chromaBytes * (c + 1) + chromaBytes - 1);
        }
    }
    return r;
}

// Destination rows of `width` bytes filled with a sentinel.
constexpr uint8_t kSentinel = 0x5A;

struct Dest {
    std::vector<uint8_t> y0, y1, c0, c1;
    explicit Dest(int32_t width)
        : y0(width, kSentinel), y1(width, kSentinel), c0(width, kSentinel), c1(width, kSentinel) {}
};

struct Case {
    bool planar;
    SpanArgs a;
    int32_t off16[16];
    bool row0, row1, chroma;
};

// Steps: a mix of the ranges that change how a group gathers.
int32_t randomStep(std::mt19937_64 &rng) {
    const int32_t special[] = {32768, 16384, 32767, 32769, 0, 1, 29000, 30719, 30720, 61439, 61440, 65535, -3000};
    switch (rng() % 4) {
        case 0: return special[rng() % (sizeof special / sizeof special[0])];
        case 1: return 1 + static_cast<int32_t>(rng() % 32768);            // below one pixel
        case 2: return 32768 + static_cast<int32_t>(rng() % 32768);        // one to two pixels
        default: return 24000 + static_cast<int32_t>(rng() % 20000);       // around one pixel
    }
}

Case randomCase(std::mt19937_64 &rng, bool planar) {
    Case c;
    c.planar = planar;
    SpanArgs &a = c.a;
    memset(&a, 0, sizeof a);
    a.ux = randomStep(rng);
    for (int i = 0; i < 16; ++i) c.off16[i] = static_cast<int32_t>((static_cast<int64_t>(a.ux >> 3) * i) >> 8);
    a.off16 = c.off16;
    const int32_t lengths[] = {1, 15, 16, 17, 31, 32, 33, 48, 64};
    a.n = rng() % 3 == 0 ? lengths[rng() % 9] : 1 + static_cast<int32_t>(rng() % 100);
    a.dx = static_cast<int32_t>(rng() % 40);
    // Far enough right that a backward step stays at column 0 or beyond.
    a.sx = (a.ux < 0 ? 200 * 32768 : 0) + static_cast<int32_t>(rng() % (60 * 32768));
    a.sy = static_cast<int32_t>(rng() % (3 * 32768));
    const int rows = static_cast<int>(rng() % 3);   // 0: both rows, 1: row y only, 2: row y+1 only
    c.row0 = rows != 2;
    c.row1 = rows != 1;
    c.chroma = c.row0 && rng() % 4 != 0;
    return c;
}

// Runs the scalar span, or the twin followed by the scalar rest, into `d`.
int32_t run(const Case &c, SpanTwin twin, const SrcPlanes &s, Dest &d) {
    SpanArgs a = c.a;
    a.src = &s;
    a.dy0 = c.row0 ? d.y0.data() : nullptr;
    a.dy1 = c.row1 ? d.y1.data() : nullptr;
    a.dc00 = a.dc01 = nullptr;
    if (c.chroma) {
        a.dc00 = d.c0.data();
        a.dc01 = c.planar ? d.c1.data() : d.c0.data() + 1;
    }
    int32_t done = 0;
    if (twin != nullptr) done = twin(a);
    if (done >= a.n) return done;
    const SpanArgs rest = done == 0 ? a : spanFrom(a, done);
    if (c.planar) {
        spanNoRot<LayoutYuv420Planar, kBilinear, false>(rest);
    } else {
        spanNoRot<LayoutYuv420Semiplanar, kBilinear, false>(rest);
    }
    return done;
}

std::string describe(const Case &c) {
    const SpanArgs &a = c.a;
    return std::string(c.planar ? "planar" : "semiplanar") + " n=" + std::to_string(a.n) + " dx=" +
           std::to_string(a.dx) + " sx=" + std::to_string(a.sx) + " sy=" + std::to_string(a.sy) +
           " ux=" + std::to_string(a.ux) + " rows=" + std::to_string(c.row0) + std::to_string(c.row1) +
           " chroma=" + std::to_string(c.chroma);
}

TEST(DrawSpanSimd, TwinsMatchTheScalarSpan) {
    const SpanTwins *const *twins = nullptr;
    const int32_t count = availableSpanTwins(&twins);
    if (count == 0) GTEST_SKIP() << "no vector twins on this target";
    std::mt19937_64 rng = pvx_test::makeRng(41);
    for (int32_t t = 0; t < count; ++t) {
        int32_t drawn = 0, spans = 0;
        for (int round = 0; round < pvx_test::rounds(3000); ++round) {
            const bool planar = round & 1;
            const Case c = randomCase(rng, planar);
            const SpanTwin twin = planar ? twins[t]->noRotPlanar : twins[t]->noRotSemiplanar;
            ASSERT_NE(nullptr, twin);
            const Reach reach = reachOf(c.a, planar ? 1 : 2);
            const auto side = rng() & 1 ? RowGuardedPlane::Side::End : RowGuardedPlane::Side::Start;
            const int32_t r = c.a.sy >> 15, cr = c.a.sy >> 16;
            RowGuardedPlane y(r + (c.row1 ? 3 : 2), side == RowGuardedPlane::Side::End ? reach.lumaHi : reach.lumaLo, side, rng);
            const bool chromaRead = c.chroma && reach.chromaLo <= reach.chromaHi;
            const int32_t cEdge = !chromaRead ? 0 : side == RowGuardedPlane::Side::End ? reach.chromaHi : reach.chromaLo;
            RowGuardedPlane u(cr + 2, cEdge, side, rng), v(cr + 2, cEdge, side, rng);
            SrcPlanes s;
            s.y = y.base();
            s.yPitch = y.pitch();
            s.c0 = u.base();
            s.c0Pitch = u.pitch();
            s.c1 = planar ? v.base() : u.base() + 1;
            s.c1Pitch = planar ? v.pitch() : u.pitch();
            s.w = s.h = s.cw = s.ch = 0;   // unused by the unchecked span

            const int32_t width = c.a.dx + c.a.n + 24;
            Dest want(width), got(width);
            run(c, nullptr, s, want);
            const int32_t done = run(c, twin, s, got);
            ASSERT_EQ(0, done % 16) << describe(c);
            ASSERT_LE(done, c.a.n) << describe(c);
            drawn += done > 0;
            ++spans;
            ASSERT_EQ(want.y0, got.y0) << twins[t]->isa << " " << describe(c);
            ASSERT_EQ(want.y1, got.y1) << twins[t]->isa << " " << describe(c);
            ASSERT_EQ(want.c0, got.c0) << twins[t]->isa << " " << describe(c);
            ASSERT_EQ(want.c1, got.c1) << twins[t]->isa << " " << describe(c);
            // The scalar reference writes only its own span.
            for (int32_t x = 0; x < width; ++x) {
                const bool in = x >= c.a.dx && x < c.a.dx + c.a.n;
                if (!in) {
                    ASSERT_EQ(kSentinel, want.y0[x]) << x;
                }
            }
        }
        // The sweep must exercise the twin, not only its refusals.
        EXPECT_GT(drawn, spans / 4) << twins[t]->isa;
    }
}

// The twin set chosen for this processor is one of the available ones.
TEST(DrawSpanSimd, BestIsTheFirstAvailable) {
    const SpanTwins *const *twins = nullptr;
    const int32_t count = availableSpanTwins(&twins);
    if (count == 0) {
        EXPECT_EQ(nullptr, bestSpanTwins());
    } else {
        EXPECT_EQ(twins[0], bestSpanTwins());
    }
}

}  // namespace
