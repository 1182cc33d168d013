// AVX2 leaves of the bilinear 4:2:0 spans (luma, interleaved and planar
// chroma): general, parallelogram and unrotated.
//
// A 16-pixel group is split across the two 128-bit lanes: lane 0 takes
// pixels 0..7, lane 1 pixels 8..15, each with a 16-byte window of its own
// that starts at its first pixel's column (eight pixels at most two source
// pixels apart reach 16 bytes, so no group needs a second window) and with
// rows of its own. One vpshufb gathers the (p0, p1) pairs of all 16 pixels
// of a source row, vpmaddubsw weights them by (16 - fx, fx), and each pixel
// blends its own two rows in 16-bit lanes: 16 * top + fy * (bottom - top)
// [+ 128], >> 8, which wraps in 16 bits to the exact sum (at most 65408).
// Chroma: interleaved, lane 0 holds chroma pixels 0..3 and lane 1 4..7
// (both channels, taps two bytes apart); planar, lane 0 the U plane and
// lane 1 the V plane of all 8 chroma pixels.
//
// The windows never leave the span's taps: a window that would pass the
// span's last column ends there instead, spans of 8 to 15 columns load two
// 8-byte halves, narrower ones go to the SSSE3 leaves; a lane's rows are
// bounded per span (SpanRows). Positions, window columns and rows are
// formed in 32-bit vectors; the general and parallelogram leaves set up two
// groups before drawing either, so that their loads are in flight
// together, and the source rows ten row pairs below are prefetched.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__AVX2__)

// g++ takes the rows a blend never reads (row 0 when row y is not drawn)
// for uninitialised values.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <atomic>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// Every helper is inlined into the group loops: a call would spill every
// vector register (and clear their upper halves).
#define PVX_INLINE inline __attribute__((always_inline))
#define PVX_ALWAYS_INLINE __attribute__((always_inline))

// Rows the pixels of one lane may spread over (beyond their first).
constexpr int32_t kLaneSpread = 2;

// Spans whose taps lie within fewer than 8 columns, or whose lanes may
// spread over more rows than these leaves blend, go to the leaf that the
// table held before these (the SSSE3 one, which loads such rows in parts
// and takes steeper spans; the C reference when the flags lack SSSE3).
// Tables are filled from the processor's levels, so the stores keep
// writing the same leaves.
std::atomic<SpanLeaf> g_narrow[2][kSpanKindCount];

PVX_INLINE int32_t narrowLeaf(SpanFamily family, SpanKind kind, const SpanArgs &a) {
    return g_narrow[family][kind].load(std::memory_order_relaxed)(a);
}

// The rows one set of taps reads: per lane the first row, the column of
// its window and the plane's pitch. A window is 16 bytes from its column,
// or, on a span that reads fewer columns, 8 bytes from there and the 8
// bytes that end at the span's last column (`tail` bytes further on).
struct LaneRows {
    const uint8_t *row[2];
    ptrdiff_t pitch[2];
    int32_t base[2];
    bool split;
    int32_t tail;
};


// Starts fetching both lanes' windows on row j (rows below the ones read:
// the row pairs below read them next), and the line after lane 1's, which
// the cell to the right reads. Prefetches never fault; the address is
// formed as an integer, so it may lie outside the plane.
PVX_INLINE void prefetchRows(const LaneRows &r, int32_t j) {
    uintptr_t p[2];
    for (int lane = 0; lane < 2; ++lane) {
        p[lane] = reinterpret_cast<uintptr_t>(r.row[lane]) +
                  static_cast<uintptr_t>(static_cast<ptrdiff_t>(j) * r.pitch[lane] + r.base[lane]);
        _mm_prefetch(reinterpret_cast<const char *>(p[lane]), _MM_HINT_T0);
    }
    _mm_prefetch(reinterpret_cast<const char *>(p[1] + 64), _MM_HINT_T0);
}
// Rows ahead of the last row read: luma advances two rows a row pair, chroma
// one. Ten row pairs ahead measured fastest on whole frames (fewer leave the
// loads waiting on memory; the lattice's cells are 32 rows tall).
constexpr int32_t kLumaAhead = 20, kChromaAhead = 10;

// Row j of both lanes' windows.
PVX_INLINE __m128i splitWindow(const uint8_t *p, int32_t tail) {
    // movq, then movhps into the upper half.
    const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
    return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(low), reinterpret_cast<const double *>(p + tail)));
}
PVX_INLINE __m256i window(const LaneRows &r, int32_t j) {
    const uint8_t *p0 = r.row[0] + j * r.pitch[0] + r.base[0];
    const uint8_t *p1 = r.row[1] + j * r.pitch[1] + r.base[1];
    if (r.split)
        return _mm256_inserti128_si256(_mm256_castsi128_si256(splitWindow(p0, r.tail)), splitWindow(p1, r.tail), 1);
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p0))),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i *>(p1)), 1);
}

// One set of 16 outputs: gather pairs and weights per lane, and per output
// word its row (from the lane's first) and vertical weight.
struct TapSet {
    __m256i pairs, wx, rr, fy;
    LaneRows rows;
    int32_t spread;  // rows blended: a lane's pixels lie on its rows 0 .. spread
};

// Whether the leaves' windows fit the columns [lo, hi] a span reads (at
// least 8 of them): the windows then never leave them.
PVX_INLINE bool windowsFit(int32_t lo, int32_t hi) { return hi - lo >= 7; }

// Pairs (idx, idx + step) and weights (16 - f, f) from 16-bit indices and
// weights (8 per lane) relative to the lanes' window columns `base` (a
// 32-bit value per lane). On a span of fewer than 16 columns the windows
// are split: indices from the span's first column `lo`, those past the
// first 8 bytes moved to the 8 bytes that end at its last column `hi`.
PVX_INLINE void pairsOf(__m256i idx, __m256i f, int8_t step, __m256i base, int32_t lo, int32_t hi, TapSet *t) {
    const bool split = hi - lo < 15;
    t->rows.base[0] = _mm256_cvtsi256_si32(base);
    t->rows.base[1] = _mm256_extract_epi32(base, 4);
    t->rows.split = split;
    t->rows.tail = hi - 7 - lo;
    const __m256i ib = _mm256_packus_epi16(idx, idx), fb = _mm256_packus_epi16(f, f);
    t->pairs = _mm256_unpacklo_epi8(ib, _mm256_add_epi8(ib, _mm256_set1_epi8(step)));
    if (split) {
        const __m256i past = _mm256_cmpgt_epi8(t->pairs, _mm256_set1_epi8(7));
        t->pairs = _mm256_add_epi8(t->pairs, _mm256_and_si256(past, _mm256_set1_epi8(static_cast<char>(15 - (hi - lo)))));
    }
    t->wx = _mm256_unpacklo_epi8(_mm256_sub_epi8(_mm256_set1_epi8(16), fb), fb);
}

// The column of a lane's window: from its first tap column `first`, moved
// left so that the window ends at the span's last column `hi` at the
// latest (the lane's taps end there); `lo` for split windows.
PVX_INLINE __m256i windowBase(__m256i first, int32_t lo, int32_t hi) {
    if (hi - lo < 15) return _mm256_set1_epi32(lo);
    return _mm256_min_epi32(first, _mm256_set1_epi32(hi - 15));
}

// 32-bit values of pixels 0..3, 8..11 (a) and 4..7, 12..15 (b) as the 16
// words of pixels 0..15 (each lane's 8 pixels in its half).
PVX_INLINE __m256i pixelWords(__m256i a, __m256i b) { return _mm256_packs_epi32(a, b); }

// Luma taps of 16 pixels from their 1/16 positions (a, b as above).
PVX_INLINE void lumaTaps(__m256i a, __m256i b, int32_t lo, int32_t hi, TapSet *t) {
    const __m256i base = windowBase(_mm256_srai_epi32(_mm256_shuffle_epi32(a, 0), 4), lo, hi);
    const __m256i b16 = _mm256_slli_epi32(base, 4);
    const __m256i rel = pixelWords(_mm256_sub_epi32(a, b16), _mm256_sub_epi32(b, b16));
    pairsOf(_mm256_srli_epi16(rel, 4), _mm256_and_si256(rel, _mm256_set1_epi16(15)), 1, base, lo, hi, t);
}

// Rows of a span: its pixels' rows lie in [r0, r1], and the rows of a lane
// of it within `spread` rows (at most r1 - r0). A lane's first row is its
// lowest pixel row, moved up when needed so that its rows end at r1: its
// windows then read rows r0 .. r1 + 1 (+ 1 for the pair's second row)
// only, the rows of the span's taps, with no limit per row.
struct SpanRows {
    int32_t last;    // r1 - spread: the latest first row of a lane
    int32_t spread;
};

// Rows of the 32-bit pixel rows `r` whose lanes' first and last pixels are
// in `first`, `last` (each the same across a lane).
PVX_INLINE void laneRows(__m256i r, __m256i first, __m256i last, const SpanRows &sr, const uint8_t *p0,
                         ptrdiff_t pitch0, const uint8_t *p1, ptrdiff_t pitch1, __m256i *rr, TapSet *t) {
    const __m256i low = _mm256_min_epi32(_mm256_min_epi32(first, last), _mm256_set1_epi32(sr.last));
    *rr = _mm256_sub_epi32(r, low);
    t->rows.row[0] = p0 + static_cast<ptrdiff_t>(_mm256_cvtsi256_si32(low)) * pitch0;
    t->rows.row[1] = p1 + static_cast<ptrdiff_t>(_mm256_extract_epi32(low, 4)) * pitch1;
    t->rows.pitch[0] = pitch0;
    t->rows.pitch[1] = pitch1;
    t->spread = sr.spread;
}

// Luma rows of 16 pixels from their Q15 rows (a, b as above).
PVX_INLINE void lumaRows(__m256i ya, __m256i yb, const SrcPlanes &s, const SpanRows &sr, TapSet *t) {
    const __m256i ra = _mm256_srai_epi32(ya, 15), rb = _mm256_srai_epi32(yb, 15);
    const __m256i m15 = _mm256_set1_epi32(15);
    __m256i rra, rrb;
    laneRows(ra, _mm256_shuffle_epi32(ra, 0), _mm256_shuffle_epi32(rb, 0xFF), sr, s.y, s.yPitch, s.y, s.yPitch, &rra, t);
    rrb = _mm256_sub_epi32(rb, _mm256_sub_epi32(ra, rra));
    t->rr = pixelWords(rra, rrb);
    t->fy = pixelWords(_mm256_and_si256(_mm256_srai_epi32(ya, 11), m15), _mm256_and_si256(_mm256_srai_epi32(yb, 11), m15));
}

// 32-bit values of the 8 chroma pixels (4 a lane) as 16 words. Interleaved:
// each pixel's value twice (its two channels); planar: all 8 in each lane
// (U in lane 0, V in lane 1).
template <bool Planar>
PVX_INLINE __m256i chromaWords16(__m256i v) {
    if constexpr (Planar) {
        return _mm256_permute4x64_epi64(_mm256_packs_epi32(v, v), _MM_SHUFFLE(2, 0, 2, 0));
    } else {
        return _mm256_or_si256(v, _mm256_slli_epi32(v, 16));
    }
}

// Chroma taps of the 8 chroma pixels from their 1/16 chroma positions.
template <bool Planar>
PVX_INLINE void chromaTaps(__m256i c16, int32_t lo, int32_t hi, TapSet *t) {
    const __m256i col = _mm256_srai_epi32(c16, 4);
    const __m256i f = chromaWords16<Planar>(_mm256_and_si256(c16, _mm256_set1_epi32(15)));
    if constexpr (Planar) {
        const __m256i base = windowBase(_mm256_broadcastd_epi32(_mm256_castsi256_si128(col)), lo, hi);
        pairsOf(chromaWords16<true>(_mm256_sub_epi32(col, base)), f, 1, base, lo, hi, t);
    } else {
        // Word 2j + c is channel c of chroma pixel j: byte 2 * column + c.
        const __m256i col2 = _mm256_add_epi32(col, col);
        const __m256i base = windowBase(_mm256_shuffle_epi32(col2, 0), lo, hi);
        const __m256i idx = _mm256_add_epi32(chromaWords16<false>(_mm256_sub_epi32(col2, base)), _mm256_set1_epi32(0x00010000));
        pairsOf(idx, f, 2, base, lo, hi, t);
    }
}

// Chroma rows of the 8 chroma pixels from their Q15 rows (chroma row y >> 16).
template <bool Planar>
PVX_INLINE void chromaRows(__m256i y, const SrcPlanes &s, const SpanRows &sr, TapSet *t) {
    const __m256i r = _mm256_srai_epi32(y, 16);
    __m256i first, last, rr;
    if constexpr (Planar) {
        first = _mm256_broadcastd_epi32(_mm256_castsi256_si128(r));
        last = _mm256_permutevar8x32_epi32(r, _mm256_set1_epi32(7));
    } else {
        first = _mm256_shuffle_epi32(r, 0);
        last = _mm256_shuffle_epi32(r, 0xFF);
    }
    laneRows(r, first, last, sr, s.c0, s.c0Pitch, Planar ? s.c1 : s.c0, Planar ? s.c1Pitch : s.c0Pitch, &rr, t);
    t->rr = chromaWords16<Planar>(rr);
    t->fy = chromaWords16<Planar>(_mm256_and_si256(_mm256_srai_epi32(y, 12), _mm256_set1_epi32(15)));
}

// Horizontal sums of the 16 outputs on row j of each lane.
PVX_INLINE __m256i sums(const TapSet &t, int32_t j) {
    return _mm256_maddubs_epi16(_mm256_shuffle_epi8(window(t.rows, j), t.pairs), t.wx);
}

// Per output word, its rows from + rr and from + rr + 1 of `h`, blended.
template <bool Round, int Spread>
PVX_INLINE __m256i blend(const __m256i *h, const TapSet &t, int32_t from) {
    __m256i top = h[from], bottom = h[from + 1];
    for (int32_t j = 1; j <= Spread; ++j) {
        const __m256i m = _mm256_cmpgt_epi16(t.rr, _mm256_set1_epi16(static_cast<int16_t>(j - 1)));
        top = _mm256_blendv_epi8(top, h[from + j], m);
        bottom = _mm256_blendv_epi8(bottom, h[from + j + 1], m);
    }
    __m256i v = _mm256_add_epi16(_mm256_slli_epi16(top, 4), _mm256_mullo_epi16(_mm256_sub_epi16(bottom, top), t.fy));
    if constexpr (Round) v = _mm256_add_epi16(v, _mm256_set1_epi16(128));
    return _mm256_srli_epi16(v, 8);
}

// 16 words (pixels 0..7 in lane 0, 8..15 in lane 1) narrowed to 16 bytes.
PVX_INLINE __m128i narrow(__m256i w) {
    const __m256i b = _mm256_packus_epi16(w, w);
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(b, _MM_SHUFFLE(3, 1, 2, 0)));
}
PVX_INLINE void store16(uint8_t *d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(d), v); }

// Luma of rows y and y+1 from one set, row y+1 taking the rows below row
// y's (either destination may be absent).
template <bool Round, int Spread>
PVX_INLINE void drawLumaPair(const TapSet &t, uint8_t *d0, uint8_t *d1) {
    __m256i h[Spread + 3];
    if (d0 != nullptr) h[0] = sums(t, 0);
    for (int32_t j = 1; j <= Spread + 1; ++j) h[j] = sums(t, j);
    if (d1 != nullptr) h[Spread + 2] = sums(t, Spread + 2);
    prefetchRows(t.rows, Spread + 2 + kLumaAhead);
    if (d0 != nullptr && d1 != nullptr) {
        const __m256i b = _mm256_packus_epi16(blend<Round, Spread>(h, t, 0), blend<Round, Spread>(h, t, 1));
        const __m256i o = _mm256_permute4x64_epi64(b, _MM_SHUFFLE(3, 1, 2, 0));
        store16(d0, _mm256_castsi256_si128(o));
        store16(d1, _mm256_extracti128_si256(o, 1));
    } else if (d0 != nullptr) {
        store16(d0, narrow(blend<Round, Spread>(h, t, 0)));
    } else {
        store16(d1, narrow(blend<Round, Spread>(h, t, 1)));
    }
}

template <bool Round>
PVX_INLINE void lumaPair(const TapSet &t, uint8_t *d0, uint8_t *d1) {
    switch (t.spread) {
        case 0: drawLumaPair<Round, 0>(t, d0, d1); break;
        case 1: drawLumaPair<Round, 1>(t, d0, d1); break;
        default: drawLumaPair<Round, 2>(t, d0, d1); break;
    }
}

// Chroma: 16 output words from rows 0 .. spread + 1 of the set.
template <bool Round, int Spread>
PVX_INLINE __m256i chromaWords(const TapSet &t) {
    __m256i h[Spread + 2];
    for (int32_t j = 0; j <= Spread + 1; ++j) h[j] = sums(t, j);
    prefetchRows(t.rows, Spread + 1 + kChromaAhead);
    return blend<Round, Spread>(h, t, 0);
}

template <bool Round, bool Planar>
PVX_INLINE void drawChroma(const SpanArgs &a, const TapSet &t, int32_t k, int32_t par) {
    __m256i w;
    switch (t.spread) {
        case 0: w = chromaWords<Round, 0>(t); break;
        case 1: w = chromaWords<Round, 1>(t); break;
        default: w = chromaWords<Round, 2>(t); break;
    }
    const ptrdiff_t co = (a.dx + k + par) >> 1;
    if constexpr (Planar) {
        // U words in lane 0, V words in lane 1.
        const __m256i b = _mm256_packus_epi16(w, w);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc00 + co), _mm256_castsi256_si128(b));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc01 + co), _mm256_extracti128_si256(b, 1));
    } else {
        store16(a.dc00 + 2 * co, narrow(w));
    }
}

// ---------------------------------------------------------------------------
// General and parallelogram spans: pixel i of a group at Q15 (X + i*ux,
// Y + i*uy) from its first pixel (X, Y).

// i * u of pixels 0..3, 8..11 (a) and 4..7, 12..15 (b), and of the chroma
// pixels par + 2j, j = 0..7 (c).
struct LaneSteps {
    __m256i a, b, c;
};
PVX_INLINE LaneSteps laneSteps(int32_t u, int32_t par) {
    // i * u for i = 0..7, then the rest by adds: a = (m0..3, m0..3 + 8u),
    // b = (m4..7, m4..7 + 8u), c = 2m + par * u.
    const __m256i m = _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(u));
    const __m256i u8 = _mm256_set1_epi32(laneMul(8, u));
    const __m256i lo = _mm256_permute2x128_si256(m, m, 0x00), hi = _mm256_permute2x128_si256(m, m, 0x11);
    const __m256i upper = _mm256_setr_epi32(0, 0, 0, 0, -1, -1, -1, -1);
    return LaneSteps{_mm256_add_epi32(lo, _mm256_and_si256(u8, upper)), _mm256_add_epi32(hi, _mm256_and_si256(u8, upper)),
                     _mm256_add_epi32(_mm256_add_epi32(m, m), _mm256_set1_epi32(laneMul(par, u)))};
}

// Luma taps and rows of 16 pixels from (x, y).
PVX_INLINE void lumaSet(const SrcPlanes &s, const LinearPlan &p, const LaneSteps &ux, const LaneSteps &uy,
                        const SpanRows &sr, int32_t x, int32_t y, TapSet *t) {
    const __m256i xv = _mm256_set1_epi32(x), yv = _mm256_set1_epi32(y);
    lumaRows(_mm256_add_epi32(yv, uy.a), _mm256_add_epi32(yv, uy.b), s, sr, t);
    lumaTaps(_mm256_srai_epi32(_mm256_add_epi32(xv, ux.a), 11), _mm256_srai_epi32(_mm256_add_epi32(xv, ux.b), 11),
             p.lumaLo, p.lumaHi, t);
}

template <bool Planar>
PVX_INLINE void chromaSet(const SrcPlanes &s, const LinearPlan &p, const LaneSteps &ux, const LaneSteps &uy,
                          const SpanRows &sr, int32_t x, int32_t y, TapSet *t) {
    chromaRows<Planar>(_mm256_add_epi32(_mm256_set1_epi32(y), uy.c), s, sr, t);
    chromaTaps<Planar>(_mm256_srai_epi32(_mm256_add_epi32(_mm256_set1_epi32(x), ux.c), 12), p.chromaLo, p.chromaHi, t);
}

// Rows of a span whose pixels at Q15 rows y + i*uy (i from i0 to i1) fall
// on rows y >> shift; a lane covers `laneSteps` steps. False when a lane
// may spread over more rows than the leaves blend.
inline bool spanRows(int32_t y, int32_t uy, int32_t i0, int32_t i1, int32_t shift, int32_t laneSteps, SpanRows *sr) {
    const int64_t ya = (static_cast<int64_t>(y) + static_cast<int64_t>(i0) * uy) >> shift;
    const int64_t yb = (static_cast<int64_t>(y) + static_cast<int64_t>(i1) * uy) >> shift;
    const int64_t r0 = ya < yb ? ya : yb, r1 = ya < yb ? yb : ya;
    // Rows a lane may cross: its steps' extent, in rows, rounded up.
    const int64_t extent = static_cast<int64_t>(laneSteps) * (uy < 0 ? -static_cast<int64_t>(uy) : uy);
    const int64_t reach = (extent + (static_cast<int64_t>(1) << shift) - 1) >> shift;
    if (reach > kLaneSpread) return false;
    sr->spread = static_cast<int32_t>(reach < r1 - r0 ? reach : r1 - r0);
    sr->last = static_cast<int32_t>(r1 - sr->spread);
    return true;
}

template <bool Round, bool Planar>
int32_t linearLeaf(const SpanArgs &a) {
    LinearPlan p;
    if (!planLinear(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    // Row y+1 reads the rows below row y's taps unless it has its own.
    const bool own1 = !p.shared && a.dy1 != nullptr;
    const bool set0 = a.dy0 != nullptr || !own1;
    SpanRows rows0{0, 0}, rows1{0, 0}, rowsC{0, 0};
    // Spans narrower than the windows or steeper than the lanes' rows allow
    // go to the leaves below.
    if (!windowsFit(p.lumaLo, p.lumaHi) || (p.chroma && !windowsFit(p.chromaLo, p.chromaHi)) ||
        (set0 && !spanRows(a.sy, a.uy, 0, a.n - 1, 15, 7, &rows0)) ||
        (own1 && !spanRows(laneAdd(a.sy, a.hy), a.uy, 0, a.n - 1, 15, 7, &rows1)) ||
        (p.chroma && !spanRows(a.sy, a.uy, p.par, a.n - 1 - ((a.dx + a.n - 1) & 1), 16, Planar ? 14 : 6, &rowsC)))
        return narrowLeaf(Planar ? kSpanPlanar : kSpanSemiplanar, Round ? kSpanParallel : kSpanGeneral, a);
    const SrcPlanes &s = *a.src;
    const LaneSteps ux = laneSteps(a.ux, p.par), uy = laneSteps(a.uy, p.par);
    // Two groups are set up before either is drawn: their chains of
    // positions, addresses, loads and blends are then in flight together.
    struct Group {
        TapSet t0, t1, tc;
        int32_t k;
    };
    const auto prepare = [&](int32_t g, Group *q) PVX_ALWAYS_INLINE {
        const int32_t k = 16 * g;
        const int32_t x0 = laneAdd(a.sx, laneMul(k, a.ux)), y0 = laneAdd(a.sy, laneMul(k, a.uy));
        q->k = k;
        if (set0) lumaSet(s, p, ux, uy, rows0, x0, y0, &q->t0);
        if (own1) lumaSet(s, p, ux, uy, rows1, laneAdd(x0, a.hx), laneAdd(y0, a.hy), &q->t1);
        if (p.chroma) chromaSet<Planar>(s, p, ux, uy, rowsC, x0, y0, &q->tc);
    };
    const auto draw = [&](const Group &q) PVX_ALWAYS_INLINE {
        uint8_t *d0 = a.dy0 != nullptr ? a.dy0 + a.dx + q.k : nullptr;
        uint8_t *d1 = a.dy1 != nullptr ? a.dy1 + a.dx + q.k : nullptr;
        if (!own1) {
            lumaPair<Round>(q.t0, d0, d1);
        } else {
            if (d0 != nullptr) lumaPair<Round>(q.t0, d0, nullptr);
            lumaPair<Round>(q.t1, d1, nullptr);
        }
        if (p.chroma) drawChroma<Round, Planar>(a, q.tc, q.k, p.par);
    };
    Group first, second;
    for (int32_t g = 0; g < p.groups; g += 2) {
        prepare(g, &first);
        if (g + 1 < p.groups) prepare(g + 1, &second);
        draw(first);
        if (g + 1 < p.groups) draw(second);
    }
    return 16 * p.groups;
}

// ---------------------------------------------------------------------------
// Unrotated spans: pixel k at 1/16 position G + off16[k & 15] on the span's
// one row.

template <bool Planar>
int32_t noRotLeaf(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    if (!windowsFit(p.lumaLo, p.lumaHi) || (p.chroma && !windowsFit(p.chromaLo, p.chromaHi)))
        return narrowLeaf(Planar ? kSpanPlanar : kSpanSemiplanar, kSpanNoRot, a);
    const int32_t *o = a.off16;
    // A lane's taps must lie within its 16-byte window: luma to byte
    // (15 + d) >> 4 plus one past its first pixel's column, chroma to sample
    // (31 + d) >> 5 plus one (d: the offsets' spread over the lane).
    const int32_t par = p.par;
    const int32_t dl = o[7] - o[0] > o[15] - o[8] ? o[7] - o[0] : o[15] - o[8];
    if (((15 + dl) >> 4) + 1 > 15) return 0;
    if constexpr (Planar) {
        if (((31 + o[par + 14] - o[par]) >> 5) + 1 > 15) return 0;
    } else {
        const int32_t dc = o[par + 6] - o[par] > o[par + 14] - o[par + 8] ? o[par + 6] - o[par] : o[par + 14] - o[par + 8];
        if (2 * ((31 + dc) >> 5) + 3 > 15) return 0;
    }
    const SrcPlanes &s = *a.src;
    const __m256i o0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(o));
    const __m256i o1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(o + 8));
    const __m256i offA = _mm256_permute2x128_si256(o0, o1, 0x20), offB = _mm256_permute2x128_si256(o0, o1, 0x31);
    const __m256i cidx = _mm256_add_epi32(_mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6), _mm256_set1_epi32(par));
    const __m256i offC = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(o0, cidx), _mm256_permutevar8x32_epi32(o1, cidx), 0xF0);
    // Every pixel on rows r, r + 1 (and r + 2 for row y+1) with one weight.
    TapSet tl, tc;
    tl.spread = tc.spread = 0;
    tl.rr = tc.rr = _mm256_setzero_si256();
    tl.fy = _mm256_set1_epi16(static_cast<int16_t>(p.fy));
    tc.fy = _mm256_set1_epi16(static_cast<int16_t>(p.cfy));
    tl.rows.row[0] = tl.rows.row[1] = s.y + static_cast<ptrdiff_t>(p.r) * s.yPitch;
    tl.rows.pitch[0] = tl.rows.pitch[1] = s.yPitch;
    tc.rows.row[0] = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch;
    tc.rows.pitch[0] = s.c0Pitch;
    tc.rows.row[1] = Planar ? s.c1 + static_cast<ptrdiff_t>(p.cr) * s.c1Pitch : tc.rows.row[0];
    tc.rows.pitch[1] = Planar ? s.c1Pitch : s.c0Pitch;
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        const __m256i g = _mm256_set1_epi32(G);
        lumaTaps(_mm256_add_epi32(g, offA), _mm256_add_epi32(g, offB), p.lumaLo, p.lumaHi, &tl);
        lumaPair<true>(tl, a.dy0 != nullptr ? a.dy0 + a.dx + k : nullptr,
                       a.dy1 != nullptr ? a.dy1 + a.dx + k : nullptr);
        if (!p.chroma) return;
        chromaTaps<Planar>(_mm256_srai_epi32(_mm256_add_epi32(g, offC), 1), p.chromaLo, p.chromaHi, &tc);
        drawChroma<true, Planar>(a, tc, k, p.par);
    });
}

int32_t leafGeneralSemiplanar(const SpanArgs &a) { return linearLeaf<false, false>(a); }
int32_t leafGeneralPlanar(const SpanArgs &a) { return linearLeaf<false, true>(a); }
int32_t leafParallelSemiplanar(const SpanArgs &a) { return linearLeaf<true, false>(a); }
int32_t leafParallelPlanar(const SpanArgs &a) { return linearLeaf<true, true>(a); }
int32_t leafNoRotSemiplanar(const SpanArgs &a) { return noRotLeaf<false>(a); }
int32_t leafNoRotPlanar(const SpanArgs &a) { return noRotLeaf<true>(a); }

}  // namespace

void initDrawSpansAvx2(DrawSpanTable *t) {
    for (int f = 0; f < 2; ++f)
        for (int k = 0; k < kSpanKindCount; ++k) g_narrow[f][k].store(t->leaf[f][k], std::memory_order_relaxed);
    t->leaf[kSpanSemiplanar][kSpanGeneral] = leafGeneralSemiplanar;
    t->leaf[kSpanSemiplanar][kSpanParallel] = leafParallelSemiplanar;
    t->leaf[kSpanSemiplanar][kSpanNoRot] = leafNoRotSemiplanar;
    t->leaf[kSpanPlanar][kSpanGeneral] = leafGeneralPlanar;
    t->leaf[kSpanPlanar][kSpanParallel] = leafParallelPlanar;
    t->leaf[kSpanPlanar][kSpanNoRot] = leafNoRotPlanar;
}

}  // namespace pvx_draw

#endif
