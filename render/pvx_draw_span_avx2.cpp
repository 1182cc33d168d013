// AVX2 leaves of the bilinear 4:2:0 spans (luma, interleaved and planar
// chroma): general, parallelogram and unrotated.
//
// A 16-pixel group is split across the two 128-bit lanes: lane 0 takes
// pixels 0..7, lane 1 pixels 8..15, each with a 16-byte window of its own
// that starts at its first pixel's column (eight pixels at most two source
// pixels apart reach 16 bytes, so no group needs a second window) and rows
// of its own (eight pixels spread over fewer rows than sixteen). One
// vpshufb gathers the (p0, p1) pairs of all 16 pixels of a source row,
// vpmaddubsw weights them by (16 - fx, fx), and each pixel blends its own
// two rows in 16-bit lanes: 16 * top + fy * (bottom - top) [+ 128], >> 8,
// which wraps in 16 bits to the exact sum (at most 65408).
//
// Chroma: interleaved, lane 0 holds chroma pixels 0..3 and lane 1 4..7
// (both channels, taps two bytes apart); planar, lane 0 the U plane and
// lane 1 the V plane of all 8 chroma pixels, from one window each.
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

// Rows the 8 pixels of one lane may spread over (beyond their first).
constexpr int32_t kLaneSpread = 2;

// Spans whose taps lie within fewer than 8 columns go to the leaf that the
// table held before these (the SSSE3 one, which loads such rows in parts).
// Every table filled at this level holds the same ones, so the stores only
// ever write the same values.
std::atomic<SpanLeaf> g_narrow[2][kSpanKindCount];

inline int32_t narrowLeaf(SpanFamily family, SpanKind kind, const SpanArgs &a) {
    return g_narrow[family][kind].load(std::memory_order_relaxed)(a);
}

// A 16-bit value per lane: `a` in lane 0, `b` in lane 1.
inline __m256i perLane16(int32_t a, int32_t b) {
    return _mm256_inserti128_si256(_mm256_set1_epi16(static_cast<int16_t>(a)), _mm_set1_epi16(static_cast<int16_t>(b)),
                                   1);
}

// The rows one set of taps reads: per lane the first row, the column of
// its window, the plane's pitch and the last row index it may load (rows
// beyond a lane's own taps repeat its last one; no pixel picks them). A
// window is 16 bytes from its column, or, on a span that reads fewer
// columns, 8 bytes from there and the 8 bytes that end at the span's last
// column (`tail` bytes further on).
struct LaneRows {
    const uint8_t *row[2];
    ptrdiff_t pitch[2];
    int32_t base[2];
    int32_t last[2];
    bool split;
    int32_t tail;
};

inline const uint8_t *rowAt(const LaneRows &r, int lane, int32_t j) {
    return r.row[lane] + static_cast<ptrdiff_t>(j < r.last[lane] ? j : r.last[lane]) * r.pitch[lane];
}

// Starts fetching both lanes' windows `ahead` rows below row j: the row
// pairs below read them next. Prefetches never fault; the address is formed
// as an integer, so it may lie outside the plane.
inline void prefetchRows(const LaneRows &r, int32_t j) {
    for (int lane = 0; lane < 2; ++lane) {
        const uintptr_t p = reinterpret_cast<uintptr_t>(r.row[lane]) +
                            static_cast<uintptr_t>(static_cast<ptrdiff_t>(j) * r.pitch[lane] + r.base[lane]);
        _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
    }
}
// Rows ahead of the last row read: luma advances two rows a row pair, chroma one.
constexpr int32_t kLumaAhead = 6, kChromaAhead = 3;

// Row j of both lanes' windows.
inline __m128i splitWindow(const uint8_t *p, int32_t tail) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p + tail)));
}
inline __m256i window(const LaneRows &r, int32_t j) {
    const uint8_t *p0 = rowAt(r, 0, j) + r.base[0], *p1 = rowAt(r, 1, j) + r.base[1];
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
    int32_t spread;  // the larger lane spread
};

// Whether the leaves' windows fit the columns [lo, hi] a span reads (at
// least 8 of them): the windows then never leave them.
inline bool windowsFit(int32_t lo, int32_t hi) { return hi - lo >= 7; }

// Pairs (idx, idx + step) and weights (16 - f, f) from 16-bit indices and
// weights (8 per lane) relative to the lanes' first columns `base` (not
// left of the first column `lo` the span reads). A window that would reach
// past the last column `hi` starts 16 bytes before it instead (the lane's
// taps end there), the indices moved to match. On a span of fewer than 16
// columns the window is split: indices from `lo`, those past its first 8
// bytes moved to the 8 bytes that end at `hi`.
inline void pairsOf(__m256i idx, __m256i f, int8_t step, const int32_t *base, int32_t lo, int32_t hi, TapSet *t) {
    const bool split = hi - lo < 15;
    const int32_t start = split ? lo : hi - 15;
    int32_t shift[2];
    for (int lane = 0; lane < 2; ++lane) {
        shift[lane] = base[lane] > start || split ? base[lane] - start : 0;
        t->rows.base[lane] = base[lane] - shift[lane];
    }
    t->rows.split = split;
    t->rows.tail = hi - 7 - lo;
    idx = _mm256_add_epi16(idx, perLane16(shift[0], shift[1]));
    const __m256i ib = _mm256_packus_epi16(idx, idx), fb = _mm256_packus_epi16(f, f);
    t->pairs = _mm256_unpacklo_epi8(ib, _mm256_add_epi8(ib, _mm256_set1_epi8(step)));
    if (split) {
        const __m256i past = _mm256_cmpgt_epi8(t->pairs, _mm256_set1_epi8(7));
        t->pairs = _mm256_add_epi8(t->pairs, _mm256_and_si256(past, _mm256_set1_epi8(static_cast<char>(15 - (hi - lo)))));
    }
    t->wx = _mm256_unpacklo_epi8(_mm256_sub_epi8(_mm256_set1_epi8(16), fb), fb);
}

// Horizontal sums of the 16 outputs on row j of each lane.
inline __m256i sums(const TapSet &t, int32_t j) {
    return _mm256_maddubs_epi16(_mm256_shuffle_epi8(window(t.rows, j), t.pairs), t.wx);
}

// Per output word, its rows from + rr and from + rr + 1 of `h`, blended.
template <bool Round, int Spread>
inline __m256i blend(const __m256i *h, const TapSet &t, int32_t from) {
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
inline __m128i narrow(__m256i w) {
    const __m256i b = _mm256_packus_epi16(w, w);
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(b, _MM_SHUFFLE(3, 1, 2, 0)));
}
inline void store16(uint8_t *d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(d), v); }

// Luma of rows y and y+1 from one set, row y+1 taking the rows below row
// y's (either destination may be absent).
template <bool Round, int Spread>
inline void drawLumaPair(const TapSet &t, uint8_t *d0, uint8_t *d1) {
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
inline void lumaPair(const TapSet &t, uint8_t *d0, uint8_t *d1) {
    switch (t.spread) {
        case 0: drawLumaPair<Round, 0>(t, d0, d1); break;
        case 1: drawLumaPair<Round, 1>(t, d0, d1); break;
        default: drawLumaPair<Round, 2>(t, d0, d1); break;
    }
}

// Chroma: 16 output words from rows 0 .. spread + 1 of the set.
template <bool Round, int Spread>
inline __m256i chromaWords(const TapSet &t) {
    __m256i h[Spread + 2];
    for (int32_t j = 0; j <= Spread + 1; ++j) h[j] = sums(t, j);
    prefetchRows(t.rows, Spread + 1 + kChromaAhead);
    return blend<Round, Spread>(h, t, 0);
}

template <bool Round, bool Planar>
inline void drawChroma(const SpanArgs &a, const TapSet &t, int32_t k, int32_t par) {
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

// First row and spread of the rows r0 .. r1 (either order); false past the limit.
inline bool laneSpan(int32_t r0, int32_t r1, int32_t *low, int32_t *spread) {
    *low = r0 < r1 ? r0 : r1;
    *spread = r0 < r1 ? r1 - r0 : r0 - r1;
    return *spread <= kLaneSpread;
}

// ---------------------------------------------------------------------------
// General and parallelogram spans. Positions of a lane's pixels: Q15
// (X + i*ux, Y + i*uy) from its first pixel (X, Y); in 16-bit words, the
// 1/16 position relative to 16 * (X >> 15) is H + i*uh + ((l + i*ul) >> 11)
// (see pvx_draw_span_plan.h).

struct StepWords {
    __m256i xh, xl, yh, yl;        // luma: i * uh, i * ul for i = 0..7 in each lane
    __m256i sxh, sxl, syh, syl;    // interleaved chroma: i = 0, 0, 2, 2, 4, 4, 6, 6
    __m256i pxh, pxl, pyh, pyl;    // planar chroma: i = 0, 2, .., 14
};
inline StepWords stepWords(const LinearPlan &p) {
    const __m256i luma = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i semi = _mm256_setr_epi16(0, 0, 2, 2, 4, 4, 6, 6, 0, 0, 2, 2, 4, 4, 6, 6);
    const __m256i planar = _mm256_setr_epi16(0, 2, 4, 6, 8, 10, 12, 14, 0, 2, 4, 6, 8, 10, 12, 14);
    const __m256i xh = _mm256_set1_epi16(static_cast<int16_t>(p.uxh)), xl = _mm256_set1_epi16(static_cast<int16_t>(p.uxl));
    const __m256i yh = _mm256_set1_epi16(static_cast<int16_t>(p.uyh)), yl = _mm256_set1_epi16(static_cast<int16_t>(p.uyl));
    StepWords s;
    s.xh = _mm256_mullo_epi16(luma, xh);
    s.xl = _mm256_mullo_epi16(luma, xl);
    s.yh = _mm256_mullo_epi16(luma, yh);
    s.yl = _mm256_mullo_epi16(luma, yl);
    s.sxh = _mm256_mullo_epi16(semi, xh);
    s.sxl = _mm256_mullo_epi16(semi, xl);
    s.syh = _mm256_mullo_epi16(semi, yh);
    s.syl = _mm256_mullo_epi16(semi, yl);
    s.pxh = _mm256_mullo_epi16(planar, xh);
    s.pxl = _mm256_mullo_epi16(planar, xl);
    s.pyh = _mm256_mullo_epi16(planar, yh);
    s.pyl = _mm256_mullo_epi16(planar, yl);
    return s;
}

// The spread a set's rows are blended over: the larger lane's, at least
// one, so that the rows of sloped spans, whose lanes change between one
// row and two from group to group, take one path (a lane of one row reads
// its last row again; no pixel picks it).
inline int32_t minimumSpread(const int32_t *spread) {
    const int32_t s = spread[0] > spread[1] ? spread[0] : spread[1];
    return s > 1 ? s : 1;
}

// 1/16 positions of the lanes' words from their first pixels' Q15 positions p0, p1.
inline __m256i rel16(__m256i ih, __m256i il, int32_t p0, int32_t p1) {
    const __m256i h = perLane16((p0 >> 11) & 15, (p1 >> 11) & 15), l = perLane16(p0 & 2047, p1 & 2047);
    return _mm256_add_epi16(_mm256_add_epi16(h, ih), _mm256_srli_epi16(_mm256_add_epi16(l, il), 11));
}

// Luma taps of 16 pixels from (x, y) on; rows read to spread + `below`.
inline bool lumaSet(const SrcPlanes &s, const StepWords &v, const SpanArgs &a, const LinearPlan &p, int32_t x,
                    int32_t y, int32_t below, TapSet *t) {
    int32_t xs[2], ys[2], low[2], spread[2], base[2];
    for (int lane = 0; lane < 2; ++lane) {
        xs[lane] = laneAdd(x, laneMul(8 * lane, a.ux));
        ys[lane] = laneAdd(y, laneMul(8 * lane, a.uy));
        if (!laneSpan(ys[lane] >> 15, laneAdd(ys[lane], laneMul(7, a.uy)) >> 15, &low[lane], &spread[lane]))
            return false;
        t->rows.row[lane] = s.y + static_cast<ptrdiff_t>(low[lane]) * s.yPitch;
        t->rows.pitch[lane] = s.yPitch;
        base[lane] = xs[lane] >> 15;
        t->rows.last[lane] = spread[lane] + below;
    }
    t->spread = minimumSpread(spread);
    const __m256i tx = rel16(v.xh, v.xl, xs[0], xs[1]);
    const __m256i ty = rel16(v.yh, v.yl, ys[0], ys[1]);
    const __m256i m15 = _mm256_set1_epi16(15);
    pairsOf(_mm256_srli_epi16(tx, 4), _mm256_and_si256(tx, m15), 1, base, p.lumaLo, p.lumaHi, t);
    t->rr = _mm256_sub_epi16(_mm256_srai_epi16(ty, 4), perLane16(low[0] - (ys[0] >> 15), low[1] - (ys[1] >> 15)));
    t->fy = _mm256_and_si256(ty, m15);
    return true;
}

// Chroma taps of the group's 8 chroma pixels (lanes par, par + 2, ...) from
// the group's first pixel at (x, y): 1/16 chroma positions (X >> 12, Y >> 12).
template <bool Planar>
inline bool chromaSet(const SrcPlanes &s, const StepWords &v, const SpanArgs &a, const LinearPlan &p, int32_t x,
                      int32_t y, TapSet *t) {
    // Planar: both lanes hold the same 8 pixels; interleaved: 4 each.
    const int32_t par = p.par;
    int32_t xs[2], ys[2], low[2], spread[2], base[2];
    for (int lane = 0; lane < 2; ++lane) {
        const int32_t i0 = Planar ? par : par + 8 * lane;
        xs[lane] = laneAdd(x, laneMul(i0, a.ux));
        ys[lane] = laneAdd(y, laneMul(i0, a.uy));
        if (!laneSpan(ys[lane] >> 16, laneAdd(ys[lane], laneMul(Planar ? 14 : 6, a.uy)) >> 16, &low[lane],
                      &spread[lane]))
            return false;
        base[lane] = Planar ? xs[lane] >> 16 : 2 * (xs[lane] >> 16);
        t->rows.last[lane] = spread[lane] + 1;
    }
    t->rows.row[0] = s.c0 + static_cast<ptrdiff_t>(low[0]) * s.c0Pitch;
    t->rows.pitch[0] = s.c0Pitch;
    t->rows.row[1] = (Planar ? s.c1 : s.c0) + static_cast<ptrdiff_t>(low[1]) * (Planar ? s.c1Pitch : s.c0Pitch);
    t->rows.pitch[1] = Planar ? s.c1Pitch : s.c0Pitch;
    t->spread = minimumSpread(spread);
    const __m256i oddX = perLane16(16 * ((xs[0] >> 15) & 1), 16 * ((xs[1] >> 15) & 1));
    const __m256i oddY = perLane16(16 * ((ys[0] >> 15) & 1), 16 * ((ys[1] >> 15) & 1));
    const __m256i cx = _mm256_srli_epi16(
        _mm256_add_epi16(rel16(Planar ? v.pxh : v.sxh, Planar ? v.pxl : v.sxl, xs[0], xs[1]), oddX), 1);
    const __m256i cy = _mm256_srai_epi16(
        _mm256_add_epi16(rel16(Planar ? v.pyh : v.syh, Planar ? v.pyl : v.syl, ys[0], ys[1]), oddY), 1);
    const __m256i m15 = _mm256_set1_epi16(15);
    __m256i idx = _mm256_srli_epi16(cx, 4);
    if constexpr (!Planar) {
        // Word 2j + c is channel c of chroma pixel j: byte 2 * column + c.
        idx = _mm256_add_epi16(_mm256_add_epi16(idx, idx), _mm256_set1_epi32(0x00010000));
    }
    pairsOf(idx, _mm256_and_si256(cx, m15), Planar ? 1 : 2, base, p.chromaLo, p.chromaHi, t);
    t->rr = _mm256_sub_epi16(_mm256_srai_epi16(cy, 4), perLane16(low[0] - (ys[0] >> 16), low[1] - (ys[1] >> 16)));
    t->fy = _mm256_and_si256(cy, m15);
    return true;
}

template <bool Round, bool Planar>
int32_t linearLeaf(const SpanArgs &a) {
    LinearPlan p;
    if (!planLinear(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    if (!windowsFit(p.lumaLo, p.lumaHi) || (p.chroma && !windowsFit(p.chromaLo, p.chromaHi)))
        return narrowLeaf(Planar ? kSpanPlanar : kSpanSemiplanar, Round ? kSpanParallel : kSpanGeneral, a);
    const SrcPlanes &s = *a.src;
    const StepWords v = stepWords(p);
    const bool own1 = !p.shared && a.dy1 != nullptr;
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t x0 = laneAdd(a.sx, laneMul(k, a.ux)), y0 = laneAdd(a.sy, laneMul(k, a.uy));
        uint8_t *d0 = a.dy0 != nullptr ? a.dy0 + a.dx + k : nullptr;
        uint8_t *d1 = a.dy1 != nullptr ? a.dy1 + a.dx + k : nullptr;
        TapSet t0, t1, tc;
        // Row y+1 reads the rows below row y's taps unless it has its own.
        const bool set0 = d0 != nullptr || !own1;
        if (set0 && !lumaSet(s, v, a, p, x0, y0, !own1 && d1 != nullptr ? 2 : 1, &t0)) return k;
        if (own1 && !lumaSet(s, v, a, p, laneAdd(x0, a.hx), laneAdd(y0, a.hy), 1, &t1)) return k;
        if (p.chroma && !chromaSet<Planar>(s, v, a, p, x0, y0, &tc)) return k;
        if (!own1) {
            lumaPair<Round>(t0, d0, d1);
        } else {
            if (d0 != nullptr) lumaPair<Round>(t0, d0, nullptr);
            lumaPair<Round>(t1, d1, nullptr);
        }
        if (p.chroma) drawChroma<Round, Planar>(a, tc, k, p.par);
    }
    return 16 * p.groups;
}

// ---------------------------------------------------------------------------
// Unrotated spans: pixel k at 1/16 position G + off16[k & 15] on the span's
// one row. A lane's positions relative to its first pixel's are the offset
// table's differences, fixed for the span.

struct NoRotWords {
    __m256i luma;    // off16[8L + i] - off16[8L]
    __m256i chroma;  // interleaved: off16[par + 8L + 2(w/2)] - off16[par + 8L]; planar: off16[par + 2w] - off16[par]
};

// 8 32-bit values as 16-bit words, a then b in each lane's order: lane 0
// a0..a3 b0..b3 -> words 0..7 a0..a7, 8..15 b0..b7.
inline __m256i words16(__m256i a, __m256i b) {
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), _MM_SHUFFLE(3, 1, 2, 0));
}

template <bool Planar>
inline bool noRotWords(const SpanArgs &a, int32_t par, NoRotWords *w) {
    const int32_t *o = a.off16;
    // A lane's pixels must lie within its 16-byte windows: luma taps to
    // byte (15 + d) >> 4 plus one; chroma to sample (31 + d) >> 5 plus one.
    const int32_t dl = o[7] - o[0] > o[15] - o[8] ? o[7] - o[0] : o[15] - o[8];
    if (((15 + dl) >> 4) + 1 > 15) return false;
    if constexpr (Planar) {
        if (((31 + o[par + 14] - o[par]) >> 5) + 1 > 15) return false;
    } else {
        const int32_t dc = o[par + 6] - o[par] > o[par + 14] - o[par + 8] ? o[par + 6] - o[par] : o[par + 14] - o[par + 8];
        if (2 * ((31 + dc) >> 5) + 3 > 15) return false;
    }
    const __m256i o0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(o));
    const __m256i o1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(o + 8));
    w->luma = words16(_mm256_sub_epi32(o0, _mm256_set1_epi32(o[0])), _mm256_sub_epi32(o1, _mm256_set1_epi32(o[8])));
    const __m256i p = _mm256_set1_epi32(par);
    if constexpr (Planar) {
        // off16[par + 2i], i = 0..7: four from each half.
        const __m256i idx = _mm256_add_epi32(_mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6), p);
        const __m256i c = _mm256_sub_epi32(_mm256_blend_epi32(_mm256_permutevar8x32_epi32(o0, idx),
                                                              _mm256_permutevar8x32_epi32(o1, idx), 0xF0),
                                           _mm256_set1_epi32(o[par]));
        w->chroma = _mm256_permute4x64_epi64(_mm256_packs_epi32(c, c), _MM_SHUFFLE(2, 0, 2, 0));
    } else {
        const __m256i idx = _mm256_add_epi32(_mm256_setr_epi32(0, 0, 2, 2, 4, 4, 6, 6), p);
        w->chroma = words16(_mm256_sub_epi32(_mm256_permutevar8x32_epi32(o0, idx), _mm256_set1_epi32(o[par])),
                            _mm256_sub_epi32(_mm256_permutevar8x32_epi32(o1, idx), _mm256_set1_epi32(o[par + 8])));
    }
    return true;
}

template <bool Planar>
int32_t noRotLeaf(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, Planar ? 1 : 2, Planar ? 15 : 31, &p)) return 0;
    if (!windowsFit(p.lumaLo, p.lumaHi) || (p.chroma && !windowsFit(p.chromaLo, p.chromaHi)))
        return narrowLeaf(Planar ? kSpanPlanar : kSpanSemiplanar, kSpanNoRot, a);
    NoRotWords w;
    if (!noRotWords<Planar>(a, p.par, &w)) return 0;
    const SrcPlanes &s = *a.src;
    const __m256i m15 = _mm256_set1_epi16(15);
    // Every pixel on rows r, r + 1 (and r + 2 for row y+1) with one weight.
    TapSet tl;
    tl.spread = 0;
    tl.rr = _mm256_setzero_si256();
    tl.fy = _mm256_set1_epi16(static_cast<int16_t>(p.fy));
    for (int lane = 0; lane < 2; ++lane) {
        tl.rows.row[lane] = s.y + static_cast<ptrdiff_t>(p.r) * s.yPitch;
        tl.rows.pitch[lane] = s.yPitch;
        tl.rows.last[lane] = a.dy1 != nullptr ? 2 : 1;
    }
    TapSet tc;
    tc.spread = 0;
    tc.rr = _mm256_setzero_si256();
    tc.fy = _mm256_set1_epi16(static_cast<int16_t>(p.cfy));
    tc.rows.row[0] = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch;
    tc.rows.pitch[0] = s.c0Pitch;
    tc.rows.row[1] = Planar ? s.c1 + static_cast<ptrdiff_t>(p.cr) * s.c1Pitch : tc.rows.row[0];
    tc.rows.pitch[1] = Planar ? s.c1Pitch : s.c0Pitch;
    tc.rows.last[0] = tc.rows.last[1] = 1;
    const __m256i channel = _mm256_set1_epi32(0x00010000);
    return forEachNoRotGroup(a, p, [&](int32_t k, int32_t G) {
        const int32_t g0 = laneAdd(G, a.off16[0]), g1 = laneAdd(G, a.off16[8]);
        const int32_t base[2] = {g0 >> 4, g1 >> 4};
        const __m256i tx = _mm256_add_epi16(w.luma, perLane16(g0 & 15, g1 & 15));
        pairsOf(_mm256_srli_epi16(tx, 4), _mm256_and_si256(tx, m15), 1, base, p.lumaLo, p.lumaHi, &tl);
        lumaPair<true>(tl, a.dy0 != nullptr ? a.dy0 + a.dx + k : nullptr,
                       a.dy1 != nullptr ? a.dy1 + a.dx + k : nullptr);
        if (!p.chroma) return;
        const int32_t c0 = laneAdd(G, a.off16[p.par]), c1 = Planar ? c0 : laneAdd(G, a.off16[p.par + 8]);
        const __m256i cx = _mm256_srli_epi16(_mm256_add_epi16(w.chroma, perLane16(c0 & 31, c1 & 31)), 1);
        __m256i idx = _mm256_srli_epi16(cx, 4);
        if constexpr (!Planar) idx = _mm256_add_epi16(_mm256_add_epi16(idx, idx), channel);
        const int32_t cbase[2] = {Planar ? c0 >> 5 : 2 * (c0 >> 5), Planar ? c0 >> 5 : 2 * (c1 >> 5)};
        pairsOf(idx, _mm256_and_si256(cx, m15), Planar ? 1 : 2, cbase, p.chromaLo, p.chromaHi, &tc);
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
