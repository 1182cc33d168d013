// Span leaves against their C references at every CPU level: random spans
// (steps below, at and above one pixel, slopes, random fractions, odd
// starts, lengths that are not multiples of 16, missing rows and chroma),
// compared byte for byte with sentinels around the written runs. Every
// source row sits against a guard page (after the last column the
// reference's taps reach, or before the first), rows outside the taps' range
// are not mapped, so a leaf that reads outside the taps' rectangle crashes.
// Clamped leaves get small images and spans that straddle an edge, a corner
// or lie wholly outside, the image's own rows and columns guarded alike.
// bench/leaf_bench times each leaf against its reference.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "render/pvx_draw_reference.h"
#include "render/pvx_draw_span.h"
#include "runtime/pvx_cpu.h"
#include "tests/simd/simd_levels.h"
#include "tests/support/test_random.h"

namespace {

using namespace pvx_draw;

const char *const kKindNames[] = {"general", "parallelogram", "unrotated"};

// Rows 0..rows-1 of `pitch` = two pages each: one page of data, one guard
// page; rows before `firstRow` are not accessible at all. With Side::End,
// column `edge` of every row is the last byte before a guard page; with
// Side::Start it is the first byte after one.
class RowGuardedPlane {
public:
    enum class Side { End, Start };
    RowGuardedPlane(int32_t firstRow, int32_t rows, int32_t edge, Side side, std::mt19937_64 &rng) {
        page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_ = (2 * static_cast<size_t>(rows) + 3) * page_;   // the row after the last is a guard too
        void *m = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m == MAP_FAILED) abort();
        map_ = static_cast<uint8_t *>(m);
        for (int32_t r = firstRow; r < rows; ++r) {
            uint8_t *data = map_ + (2 * static_cast<size_t>(r) + 1) * page_;
            if (mprotect(data, page_, PROT_READ | PROT_WRITE) != 0) abort();
            for (size_t i = 0; i < page_; ++i) data[i] = static_cast<uint8_t>(rng());
        }
        // Column 0 of row 0; the edge column of every row sits at a page edge.
        base_ = side == Side::Start ? map_ + page_ - edge : map_ + 2 * page_ - 1 - edge;
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

// The rectangle of columns and rows that the scalar span's taps cover, for
// luma and for chroma (columns in bytes: two per interleaved sample),
// worked out from the spans' rules.
struct Box {
    int32_t x0 = INT32_MAX, x1 = INT32_MIN, y0 = INT32_MAX, y1 = INT32_MIN;
    void add(int32_t x, int32_t y, int32_t w, int32_t h) {
        x0 = std::min(x0, x);
        x1 = std::max(x1, x + w - 1);
        y0 = std::min(y0, y);
        y1 = std::max(y1, y + h - 1);
    }
    bool empty() const { return x0 > x1; }
};

struct Case {
    SpanKind kind;
    bool planar, rgb;
    SpanArgs a;
    int32_t off16[16];
    bool row0, row1, chroma;
};

void reachOf(const Case &c, Box *luma, Box *chroma) {
    const SpanArgs &a = c.a;
    const int32_t cb = c.planar ? 1 : 2;  // bytes of a chroma sample on its row
    const int32_t px = c.rgb ? 3 : 1;      // bytes of a luma pixel
    for (int32_t k = 0; k < a.n; ++k) {
        const bool even = ((a.dx + k) & 1) == 0;
        if (c.kind == kSpanNoRot) {
            const int32_t p16 = wadd(wadd(a.sx, wmul(k & ~15, a.ux)) >> 11, a.off16[k & 15]);
            const int32_t r = a.sy >> 15;
            if (c.row0) luma->add(px * (p16 >> 4), r, 2 * px, 2);
            if (c.row1) luma->add(px * (p16 >> 4), r + 1, 2 * px, 2);
            if (c.chroma && even) chroma->add(cb * ((p16 >> 1) >> 4), a.sy >> 16, 2 * cb, 2);
        } else {
            const int32_t x = wadd(a.sx, wmul(k, a.ux)), y = wadd(a.sy, wmul(k, a.uy));
            if (c.row0) luma->add(px * (x >> 15), y >> 15, 2 * px, 2);
            if (c.row1) luma->add(px * (wadd(x, a.hx) >> 15), wadd(y, a.hy) >> 15, 2 * px, 2);
            if (c.chroma && even) chroma->add(cb * ((x >> 12) >> 4), (y >> 12) >> 4, 2 * cb, 2);
        }
    }
}

// Destination rows of `width` bytes filled with a sentinel.
constexpr uint8_t kSentinel = 0x5A;

struct Dest {
    std::vector<uint8_t> y0, y1, c0, c1;
    explicit Dest(int32_t width)
        : y0(width, kSentinel), y1(width, kSentinel), c0(width, kSentinel), c1(width, kSentinel) {}
};

// Steps along a row: a mix of the ranges that change how a group gathers.
int32_t randomStep(std::mt19937_64 &rng) {
    const int32_t special[] = {32768, 16384, 32767, 32769, 0, 1, 29000, 30719, 30720, 61439, 61440, 65535, -3000};
    switch (rng() % 4) {
        case 0:
            return special[rng() % (sizeof special / sizeof special[0])];
        case 1:
            return 1 + static_cast<int32_t>(rng() % 32768);  // below one pixel
        case 2:
            return 32768 + static_cast<int32_t>(rng() % 32768);  // one to two pixels
        default:
            return 24000 + static_cast<int32_t>(rng() % 20000);  // around one pixel
    }
}

// Vertical steps along a row: level, gentle and steep slopes either way.
int32_t randomSlope(std::mt19937_64 &rng) {
    switch (rng() % 4) {
        case 0:
            return 0;
        case 1:
            return static_cast<int32_t>(rng() % 2001) - 1000;
        case 2:
            return static_cast<int32_t>(rng() % 8001) - 4000;
        default:
            return static_cast<int32_t>(rng() % 20001) - 10000;
    }
}

// A clamped span on an image of w x h: the case's steps and rows, its start
// moved so that the span leaves the image over an edge or a corner, or lies
// wholly (or far) outside it, or its positions wrap at 32 bits.
void straddle(std::mt19937_64 &rng, int32_t w, int32_t h, Case *c) {
    SpanArgs &a = c->a;
    const int64_t along = static_cast<int64_t>(a.n) * a.ux;   // Q15 length of the span along x
    const auto pick = [&](int32_t size, int64_t reach) -> int64_t {
        const int64_t q = static_cast<int64_t>(size) << 15;
        switch (rng() % 7) {
            case 6:  // at the ends of 32-bit positions, where the span's sums wrap
                return (rng() % 2 ? INT32_MAX - static_cast<int64_t>(rng() % 0x200000)
                                  : INT32_MIN + static_cast<int64_t>(rng() % 0x200000));
            case 0:  // starting before the first column or row
                return -static_cast<int64_t>(rng() % (3 * 32768)) - (reach > 0 ? static_cast<int64_t>(rng() % (reach / 2 + 1)) : 0);
            case 1:  // reaching past the last
                return q - reach / 2 - static_cast<int64_t>(rng() % (3 * 32768));
            case 2:  // near the last, fractions that hit the edge pair
                return q - 32768 * static_cast<int64_t>(1 + rng() % 2) + static_cast<int64_t>(rng() % 32768);
            case 3:  // wholly beyond either end
                return rng() % 2 ? -reach - 32768 * static_cast<int64_t>(2 + rng() % 40) : q + 32768 * static_cast<int64_t>(rng() % 40);
            case 4:  // far out, thousands of pixels
                return (rng() % 2 ? -1 : 1) * 32768 * static_cast<int64_t>(1000 + rng() % 30000);
            default:  // inside
                return static_cast<int64_t>(rng() % static_cast<uint64_t>(q));
        }
    };
    a.sx = static_cast<int32_t>(pick(w, along));
    a.sy = static_cast<int32_t>(pick(h, static_cast<int64_t>(a.n) * a.uy));
}

Case randomCase(std::mt19937_64 &rng, SpanKind kind, SpanFamily family) {
    Case c;
    c.kind = kind;
    c.planar = family == kSpanPlanar;
    c.rgb = family == kSpanRgb;
    SpanArgs &a = c.a;
    memset(&a, 0, sizeof a);
    a.ux = randomStep(rng);
    for (int i = 0; i < 16; ++i) c.off16[i] = static_cast<int32_t>((static_cast<int64_t>(a.ux >> 3) * i) >> 8);
    a.off16 = c.off16;
    const int32_t lengths[] = {1, 15, 16, 17, 31, 32, 33, 48, 64};
    a.n = rng() % 3 == 0 ? lengths[rng() % 9] : 1 + static_cast<int32_t>(rng() % 100);
    a.dx = static_cast<int32_t>(rng() % 40);
    a.hy = 32768;
    if (kind != kSpanNoRot) {
        a.uy = randomSlope(rng);
        if (rng() % 2 == 0) {  // row y+1 mapped through the lattice (otherwise the row below)
            a.hx = static_cast<int32_t>(rng() % 40001) - 20000;
            a.hy = 20000 + static_cast<int32_t>(rng() % 25000);
        }
    }
    // Far enough right and down that backward steps stay at row and column 0 or beyond.
    a.sx = (a.ux < 0 ? 200 * 32768 : 0) + 32768 + static_cast<int32_t>(rng() % (60 * 32768));
    a.sy = std::max(0, -(a.n - 1) * a.uy) + static_cast<int32_t>(rng() % (3 * 32768));
    const int rows = static_cast<int>(rng() % 3);  // 0: both rows, 1: row y only, 2: row y+1 only
    c.row0 = rows != 2;
    c.row1 = rows != 1;
    c.chroma = !c.rgb && c.row0 && rng() % 4 != 0;
    return c;
}

DrawSpanTable tableAt(uint32_t level) {
    ScopedCpuLevel scope(level);
    DrawSpanTable t;
    fillDrawSpanTable(&t, pvx_Cpu_flags());
    return t;
}

// The leaf, then the reference for what the leaf left; returns what the leaf drew.
int32_t draw(SpanLeaf leaf, SpanLeaf reference, const SpanArgs &a) {
    const int32_t done = leaf(a);
    if (done < a.n) reference(linearFrom(a, done));   // unrotated spans have uy 0
    return done;
}

int32_t run(const Case &c, SpanLeaf leaf, SpanLeaf reference, const SrcPlanes &s, Dest &d) {
    SpanArgs a = c.a;
    a.src = &s;
    a.dy0 = c.row0 ? d.y0.data() : nullptr;
    a.dy1 = c.row1 ? d.y1.data() : nullptr;
    a.dc00 = a.dc01 = nullptr;
    if (c.chroma) {
        a.dc00 = d.c0.data();
        a.dc01 = c.planar ? d.c1.data() : d.c0.data() + 1;
    }
    return draw(leaf, reference, a);
}

std::string describe(const Case &c) {
    const SpanArgs &a = c.a;
    return std::string(kKindNames[c.kind]) + (c.rgb ? " rgb" : c.planar ? " planar" : " semiplanar") + " n=" + std::to_string(a.n) +
           " dx=" + std::to_string(a.dx) + " sx=" + std::to_string(a.sx) + " sy=" + std::to_string(a.sy) +
           " ux=" + std::to_string(a.ux) + " uy=" + std::to_string(a.uy) + " hx=" + std::to_string(a.hx) +
           " hy=" + std::to_string(a.hy) + " rows=" + std::to_string(c.row0) + std::to_string(c.row1) +
           " chroma=" + std::to_string(c.chroma);
}

// Guarded source planes of one case: around the taps' rectangle (unchecked
// spans) or the image (clamped spans).
struct Source {
    std::unique_ptr<RowGuardedPlane> y, u, v;
    SrcPlanes s;
    Source(const Case &c, bool clamped, int32_t w, int32_t h, std::mt19937_64 &rng) {
        const auto side = rng() & 1 ? RowGuardedPlane::Side::End : RowGuardedPlane::Side::Start;
        const bool end = side == RowGuardedPlane::Side::End;
        const int32_t px = c.rgb ? 3 : 1, cb = c.planar ? 1 : 2;
        const int32_t cw = w / 2 + (w & 1), ch = h / 2 + (h & 1);
        Box luma, chroma;
        if (clamped) {
            luma.add(0, 0, px * w, h);
            if (c.chroma) chroma.add(0, 0, cb * cw, ch);
        } else {
            reachOf(c, &luma, &chroma);
        }
        y.reset(new RowGuardedPlane(luma.y0, luma.y1 + 1, end ? luma.x1 : luma.x0, side, rng));
        const bool chromaRead = !chroma.empty();
        const int32_t cEdge = !chromaRead ? 0 : end ? chroma.x1 : chroma.x0;
        const int32_t cFirst = chromaRead ? chroma.y0 : 0, cRows = chromaRead ? chroma.y1 + 1 : 1;
        u.reset(new RowGuardedPlane(cFirst, cRows, cEdge, side, rng));
        v.reset(new RowGuardedPlane(cFirst, cRows, cEdge, side, rng));
        s.y = y->base();
        s.yPitch = y->pitch();
        s.c0 = u->base();
        s.c0Pitch = u->pitch();
        s.c1 = c.planar ? v->base() : u->base() + 1;
        s.c1Pitch = c.planar ? v->pitch() : u->pitch();
        s.w = w, s.h = h, s.cw = cw, s.ch = ch;   // unused by the unchecked spans
    }
};

class SpanLeaves : public ::testing::TestWithParam<SpanKind> {};

TEST_P(SpanLeaves, MatchTheReferenceAtEveryLevel) {
    const SpanKind kind = GetParam();
    const DrawSpanTable ref = tableAt(PVX_CPU_LEVEL_C);
    for (uint32_t level : supportedCpuLevels()) {
        if (level == PVX_CPU_LEVEL_C) continue;
        const DrawSpanTable t = tableAt(level);
        for (const bool clamped : {false, true}) {
            std::mt19937_64 rng = pvx_test::makeRng(41 + kind + 8 * clamped);
            int32_t drawn = 0, spans = 0;
            for (int round = 0; round < pvx_test::rounds(1200); ++round) {
                const SpanFamily family = static_cast<SpanFamily>(round % kSpanFamilyCount);
                Case c = randomCase(rng, kind, family);
                // Clamped: images from one pixel to a few groups, mostly a few rows.
                const int32_t w = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 8 : 90));
                const int32_t h = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 3 : 12));
                if (clamped) straddle(rng, w, h, &c);
                const Source src(c, clamped, w, h, rng);

                const int32_t px = c.rgb ? 3 : 1;
                const int32_t width = px * (c.a.dx + c.a.n + 24);
                const SpanLeaf reference = clamped ? ref.clamped[family][kind] : ref.leaf[family][kind];
                const SpanLeaf leaf = clamped ? t.clamped[family][kind] : t.leaf[family][kind];
                const std::string what = std::string(cpuLevelName(level)) + (clamped ? " clamped " : " ") + describe(c) +
                                         " image " + std::to_string(w) + "x" + std::to_string(h);
                Dest want(width), got(width);
                ASSERT_EQ(c.a.n, run(c, reference, reference, src.s, want));
                const int32_t done = run(c, leaf, reference, src.s, got);
                ASSERT_TRUE(done % 16 == 0 || done == c.a.n) << what;   // a C slot draws it all
                ASSERT_LE(done, c.a.n) << what;
                drawn += done > 0;
                ++spans;
                const std::vector<uint8_t> *wv[4] = {&want.y0, &want.y1, &want.c0, &want.c1};
                const std::vector<uint8_t> *gv[4] = {&got.y0, &got.y1, &got.c0, &got.c1};
                for (int i = 0; i < 4; ++i) ASSERT_TRUE(*wv[i] == *gv[i]) << what << " buffer " << i;
                for (int32_t x = 0; x < width; ++x)   // the reference writes only its own span
                    if (x < px * c.a.dx || x >= px * (c.a.dx + c.a.n)) {
                        ASSERT_EQ(kSentinel, want.y0[x]) << x;
                    }
            }
            // The sweep must exercise the leaf, not only its refusals.
            EXPECT_GT(drawn, spans / (clamped ? 5 : 4)) << cpuLevelName(level) << (clamped ? " clamped" : "");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SpanLeaves, ::testing::Values(kSpanNoRot, kSpanGeneral, kSpanParallel),
                         [](const ::testing::TestParamInfo<SpanKind> &i) {
                             return std::string(i.param == kSpanNoRot     ? "Unrotated"
                                                : i.param == kSpanGeneral ? "General"
                                                                          : "Parallelogram");
                         });

}  // namespace
