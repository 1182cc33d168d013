// AVX-512 VBMI leaves of the bilinear 4:2:0 spans (luma and chroma,
// interleaved and planar chroma): general, parallelogram and unrotated.
//
// A group is 32 pixels (16 at a span's end, or where 32 lanes would spread
// over too many rows). Its lanes' positions are one add from fixed lane
// offsets; from them one register of per-pixel bytes (column, weights, row)
// per 16 lanes is formed, and vpermi2b spreads those bytes into the gather
// indices and weights of the (p0, p1) pairs of all 32 pixels at once. Each
// source row the group touches is a 128-byte window (planar chroma: 64
// bytes of U beside 64 of V), loaded with byte masks that keep it inside
// the span's taps; one vpermi2b gathers the pairs, pmaddubsw weights them
// by (16 - fx, fx), and each lane blends its own rows by (16 - fy, fy).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__AVX512VBMI__) && defined(__AVX512BW__)

// g++ 12 takes the deliberately undefined source operand inside its
// AVX-512 intrinsic headers for an uninitialised variable.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include "render/pvx_draw_avx512vbmi.h"
#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// Rows the lanes of a group may spread over in these leaves.
constexpr int32_t kSpreadMax = 6;

// Byte tables for vpermi2b over the per-pixel bytes of 32 lanes (lane i at
// bytes 4i: column, 4i+1: fx, 4i+2: row, 4i+3: fy). Byte b of a pair
// register belongs to output word b / 2 and is its p0 (even b) or p1.
struct Tables {
    // Luma: word i is pixel i.
    alignas(64) uint8_t lumaCol[64], lumaAdd[64];
    // Interleaved chroma: word 2j + c is channel c of chroma pixel j, lane
    // 2j (plus the parity); taps at byte 2 * column + c and two further.
    alignas(64) uint8_t semiCol[64], semiAdd[64];
    // Planar chroma: words 0..15 U, 16..31 V of chroma pixel j; V taps sit
    // 64 bytes on (the second window).
    alignas(64) uint8_t planarCol[64], planarAdd[64];
};
constexpr Tables makeTables() {
    Tables t{};
    for (int b = 0; b < 64; ++b) {
        const int w = b / 2, e = b & 1;
        t.lumaCol[b] = static_cast<uint8_t>(4 * w);
        t.lumaAdd[b] = static_cast<uint8_t>(e);
        t.semiCol[b] = static_cast<uint8_t>(4 * 2 * (w / 2));
        t.semiAdd[b] = static_cast<uint8_t>((w & 1) + 2 * e);
        t.planarCol[b] = static_cast<uint8_t>(4 * 2 * (w & 15));
        t.planarAdd[b] = static_cast<uint8_t>(e + (w >= 16 ? 64 : 0));
    }
    return t;
}
constexpr Tables kTables = makeTables();

// 32 lanes of 32-bit values.
struct Lanes {
    __m512i lo, hi;
};
inline Lanes plus(const Lanes &l, int32_t v) {
    const __m512i b = _mm512_set1_epi32(v);
    return Lanes{_mm512_add_epi32(l.lo, b), _mm512_add_epi32(l.hi, b)};
}

// What the gathers of one set of lanes need: pair indices, weights (16 - f,
// f) per pair, and per output word its weight fy and row from `row`.
struct Gather {
    __m512i idx, wx, fy, rr;
    int32_t base;         // first column (byte or sample) of the windows
    int32_t row, spread;  // lane rows are row .. row + spread
};

// Per-pixel bytes: column (already scaled), fx, row from `row`, fy.
inline __m512i pixelBytes(__m512i col, __m512i fx, __m512i rr, __m512i fy) {
    return _mm512_or_si512(_mm512_or_si512(col, _mm512_slli_epi32(fx, 8)),
                           _mm512_or_si512(_mm512_slli_epi32(rr, 16), _mm512_slli_epi32(fy, 24)));
}

// Spreads the per-pixel bytes of 32 lanes (lo, hi) into a Gather with the
// tables `col` (byte 4 * lane per pair byte; plus `shift`) and `add`.
inline void spread(__m512i lo, __m512i hi, const uint8_t *col, const uint8_t *add, int32_t shift, Gather *g) {
    const __m512i c = _mm512_add_epi8(load64(col), _mm512_set1_epi8(static_cast<char>(shift)));
    g->idx = _mm512_add_epi8(_mm512_permutex2var_epi8(lo, c, hi), load64(add));
    const __m512i one = _mm512_set1_epi8(1);
    const __m512i fx = _mm512_permutex2var_epi8(lo, _mm512_add_epi8(c, one), hi);
    g->wx = _mm512_mask_sub_epi8(fx, kEven, _mm512_set1_epi8(16), fx);
    const __m512i two = _mm512_add_epi8(one, one);
    g->rr = _mm512_maskz_permutex2var_epi8(kEven, lo, _mm512_add_epi8(c, two), hi);
    g->fy = _mm512_maskz_permutex2var_epi8(kEven, lo, _mm512_add_epi8(c, _mm512_add_epi8(two, one)), hi);
}

// Rows of lanes whose first and last rows are r0 and r1; false when they spread too far.
inline bool rows(int32_t r0, int32_t r1, Gather *g) {
    g->row = r0 < r1 ? r0 : r1;
    g->spread = r0 < r1 ? r1 - r0 : r0 - r1;
    return g->spread <= kSpreadMax;
}

// Clamped spans: lane positions limited to [0, top] (top: the last column
// or chroma sample at weight 0), which gives the clamping reference's sums
// (see EdgeClamp); `top` below 2^31.
template <bool Clamp>
inline __m512i clampLanes(__m512i x, int32_t top) {
    if constexpr (Clamp) {
        return _mm512_min_epi32(_mm512_max_epi32(x, _mm512_setzero_si512()), _mm512_set1_epi32(top));
    } else {
        (void)top;
        return x;
    }
}
template <bool Clamp>
inline int32_t clampLane(int32_t x, int32_t top) {
    return Clamp ? (x < 0 ? 0 : (x > top ? top : x)) : x;
}

// Luma of lanes at (x, y); x0, y0 lane 0, yLast the last lane drawn; `top`
// the last column in Q15 (clamped spans).
template <bool Clamp>
inline bool lumaGather(const Lanes &x, const Lanes &y, int32_t x0, int32_t y0, int32_t yLast, int32_t top,
                       Gather *g) {
    if (!rows(y0 >> 15, yLast >> 15, g)) return false;
    g->base = clampLane<Clamp>(x0, top) >> 15;
    const __m512i m15 = _mm512_set1_epi32(15), c0 = _mm512_set1_epi32(g->base), r0 = _mm512_set1_epi32(g->row);
    __m512i b[2];
    const __m512i *xs[2] = {&x.lo, &x.hi}, *ys[2] = {&y.lo, &y.hi};
    for (int h = 0; h < 2; ++h) {
        const __m512i xh = clampLanes<Clamp>(*xs[h], top);
        const __m512i col = _mm512_sub_epi32(_mm512_srai_epi32(xh, 15), c0);
        const __m512i fx = _mm512_and_si512(_mm512_srai_epi32(xh, 11), m15);
        const __m512i rr = _mm512_sub_epi32(_mm512_srai_epi32(*ys[h], 15), r0);
        const __m512i fy = _mm512_and_si512(_mm512_srai_epi32(*ys[h], 11), m15);
        b[h] = pixelBytes(col, fx, rr, fy);
    }
    spread(b[0], b[1], kTables.lumaCol, kTables.lumaAdd, 0, g);
    return true;
}

// Chroma of the lanes par, par + 2, ... at (x, y) (1/16 chroma positions
// X >> 12, Y >> 12); xc, yc lane par, yLast the last chroma lane drawn;
// `top` the last chroma sample, X at 2^16 a sample (clamped spans).
template <bool Planar, bool Clamp>
inline bool chromaGather(const Lanes &x, const Lanes &y, int32_t par, int32_t xc, int32_t yc, int32_t yLast,
                         int32_t top, Gather *g) {
    if (!rows(yc >> 16, yLast >> 16, g)) return false;
    const int32_t c0 = clampLane<Clamp>(xc, top) >> 16;
    g->base = Planar ? c0 : 2 * c0;
    const __m512i m15 = _mm512_set1_epi32(15), c0v = _mm512_set1_epi32(c0), r0 = _mm512_set1_epi32(g->row);
    __m512i b[2];
    const __m512i *xs[2] = {&x.lo, &x.hi}, *ys[2] = {&y.lo, &y.hi};
    for (int h = 0; h < 2; ++h) {
        const __m512i xh = clampLanes<Clamp>(*xs[h], top);
        __m512i col = _mm512_sub_epi32(_mm512_srai_epi32(xh, 16), c0v);
        if (!Planar) col = _mm512_add_epi32(col, col);
        const __m512i fx = _mm512_and_si512(_mm512_srai_epi32(xh, 12), m15);
        const __m512i rr = _mm512_sub_epi32(_mm512_srai_epi32(*ys[h], 16), r0);
        const __m512i fy = _mm512_and_si512(_mm512_srai_epi32(*ys[h], 12), m15);
        b[h] = pixelBytes(col, fx, rr, fy);
    }
    if constexpr (Planar) {
        spread(b[0], b[1], kTables.planarCol, kTables.planarAdd, 4 * par, g);
    } else {
        spread(b[0], b[1], kTables.semiCol, kTables.semiAdd, 4 * par, g);
    }
    return true;
}

// The 128 bytes of a row from byte `base`, zero outside bytes [lo, hi].
struct Window {
    __m512i a, b;
};
// Masks of the two 64-byte halves of a window from byte `base` that keep
// it inside bytes [lo, hi]; the same for every row of a group.
struct WindowMasks {
    uint64_t m0, m1;
};
inline WindowMasks windowMasks(int32_t base, int32_t lo, int32_t hi) {
    return WindowMasks{rangeBits(lo - base, hi - base), rangeBits(lo - base - 64, hi - base - 64)};
}
// The 64 bytes at row + at under mask m; the address is only formed when a
// byte of it is inside the taps, so it lies inside the plane.
inline __m512i part(const uint8_t *row, ptrdiff_t at, uint64_t m) {
    return m != 0 ? _mm512_maskz_loadu_epi8(m, row + at) : _mm512_setzero_si512();
}
inline Window window(const uint8_t *row, int32_t base, const WindowMasks &m) {
    return Window{part(row, base, m.m0), part(row, static_cast<ptrdiff_t>(base) + 64, m.m1)};
}
// Starts fetching 128 bytes from byte `at` of row `row` of a plane: the
// row pairs below read them next. Prefetches never fault; the address is
// formed as an integer, so it may lie outside the plane.
inline void prefetch(const uint8_t *plane, ptrdiff_t pitch, int32_t row, int32_t at) {
    const uintptr_t p = reinterpret_cast<uintptr_t>(plane) + static_cast<uintptr_t>(row * pitch + at);
    _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char *>(p + 64), _MM_HINT_T0);
}
// Rows ahead of the last row read: luma advances two rows a row pair, chroma one.
constexpr int32_t kLumaAhead = 4, kChromaAhead = 2;

inline __m512i sums(const Window &w, const Gather &g) {
    return _mm512_maddubs_epi16(_mm512_permutex2var_epi8(w.a, g.idx, w.b), g.wx);
}

// ((16 - fy) * top + fy * bottom [+ 128]) >> 8 per word, the lanes of row j
// taking rows from + j and from + j + 1 of `s`.
template <bool Round>
inline __m512i blendRows(const __m512i *s, const Gather &g, int32_t from) {
    __m512i top = s[from], bottom = s[from + 1];
    for (int32_t j = 1; j <= g.spread; ++j) {
        const __mmask32 m = _mm512_cmpeq_epi16_mask(g.rr, _mm512_set1_epi16(static_cast<int16_t>(j)));
        top = _mm512_mask_mov_epi16(top, m, s[from + j]);
        bottom = _mm512_mask_mov_epi16(bottom, m, s[from + j + 1]);
    }
    __m512i v = _mm512_add_epi16(_mm512_mullo_epi16(top, _mm512_sub_epi16(_mm512_set1_epi16(16), g.fy)),
                                 _mm512_mullo_epi16(bottom, g.fy));
    if constexpr (Round) v = _mm512_add_epi16(v, _mm512_set1_epi16(128));
    return _mm512_srli_epi16(v, 8);
}

// Stores the first `bytes` (16 or 32) bytes of the words narrowed.
inline void storeBytes(uint8_t *d, __m512i words, int32_t bytes) {
    const __m256i b = _mm512_cvtepi16_epi8(words);
    if (bytes == 32) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), b);
    } else {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm256_castsi256_si128(b));
    }
}

// Rows g.row + j of the lanes (clamped spans: limited to the image).
template <bool Round, bool Clamp>
inline void drawLuma(const SrcPlanes &s, const LinearPlan &p, const Gather &g, uint8_t *d0, uint8_t *d1,
                     int32_t width) {
    __m512i h[kSpreadMax + 3];
    const int32_t j0 = d0 != nullptr ? 0 : 1, j1 = g.spread + (d1 != nullptr ? 2 : 1);
    const WindowMasks m = windowMasks(g.base, p.lumaLo, p.lumaHi);
    for (int32_t j = j0; j <= j1; ++j)
        h[j] = sums(window(s.y + static_cast<ptrdiff_t>(rowIn<Clamp>(g.row + j, s.h)) * s.yPitch, g.base, m), g);
    // Both rows of the pair when this set draws both; otherwise the set of
    // the other row fetches the other one.
    prefetch(s.y, s.yPitch, g.row + j1 + kLumaAhead, g.base);
    if (d0 != nullptr && d1 != nullptr) prefetch(s.y, s.yPitch, g.row + j1 + kLumaAhead - 1, g.base);
    if (d0 != nullptr) storeBytes(d0, blendRows<Round>(h, g, 0), width);
    if (d1 != nullptr) storeBytes(d1, blendRows<Round>(h, g, 1), width);
}

template <bool Round, bool Planar, bool Clamp>
inline void drawChroma(const SpanArgs &a, const LinearPlan &p, const Gather &g, int32_t k, int32_t width) {
    const SrcPlanes &s = *a.src;
    __m512i h[kSpreadMax + 2];
    const WindowMasks m = windowMasks(g.base, p.chromaLo, p.chromaHi);
    for (int32_t j = 0; j <= g.spread + 1; ++j) {
        const ptrdiff_t r = rowIn<Clamp>(g.row + j, s.ch);
        if constexpr (Planar) {
            // U beside V: the first half's mask for both planes.
            h[j] = sums(Window{part(s.c0 + r * s.c0Pitch, g.base, m.m0), part(s.c1 + r * s.c1Pitch, g.base, m.m0)}, g);
        } else {
            h[j] = sums(window(s.c0 + r * s.c0Pitch, g.base, m), g);
        }
    }
    const int32_t ahead = g.row + g.spread + 1 + kChromaAhead;
    prefetch(s.c0, s.c0Pitch, ahead, g.base);
    if constexpr (Planar) prefetch(s.c1, s.c1Pitch, ahead, g.base);
    const __m512i out = blendRows<Round>(h, g, 0);
    const ptrdiff_t co = (a.dx + k + p.par) >> 1;
    if constexpr (Planar) {
        // Words 0..15 U, 16..31 V: width / 2 of each.
        const __m256i b = _mm512_cvtepi16_epi8(out);
        const __m128i u = _mm256_castsi256_si128(b), v = _mm256_extracti128_si256(b, 1);
        if (width == 32) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dc00 + co), u);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dc01 + co), v);
        } else {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc00 + co), u);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc01 + co), v);
        }
    } else {
        storeBytes(a.dc00 + 2 * co, out, width);
    }
}

// i * u of lanes 0..31.
inline Lanes laneTimes(int32_t u) {
    const __m512i iota = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512i uv = _mm512_set1_epi32(u);
    const __m512i lo = _mm512_mullo_epi32(iota, uv);
    return Lanes{lo, _mm512_add_epi32(lo, _mm512_set1_epi32(laneMul(16, u)))};
}

// Positions of a group's lanes: Q15 (x, y) of the 32 lanes; lane 0, the
// last lane drawn, the first chroma lane (the parity's) and the last.
struct GroupPos {
    Lanes x, y;
    int32_t x0, y0, yLast, xc, yc, ycLast;
};

// One group of `width` pixels from pixel k; false when its lanes spread
// over too many rows (nothing drawn then).
// Last luma column and chroma sample as lane positions (Q15 and 2^16 a
// sample) of the clamped spans; 0 for the unchecked ones.
struct Tops {
    int32_t luma, chroma;
};

template <bool Round, bool Planar, bool Clamp>
inline bool group(const SpanArgs &a, const LinearPlan &p, const GroupPos &q, const Tops &top, int32_t k,
                  int32_t width) {
    const SrcPlanes &s = *a.src;
    const bool own1 = !p.shared && a.dy1 != nullptr;
    Gather g0, g1, gc;
    if ((!own1 || a.dy0 != nullptr) && !lumaGather<Clamp>(q.x, q.y, q.x0, q.y0, q.yLast, top.luma, &g0)) return false;
    if (own1 && !lumaGather<Clamp>(plus(q.x, a.hx), plus(q.y, a.hy), laneAdd(q.x0, a.hx), laneAdd(q.y0, a.hy),
                                   laneAdd(q.yLast, a.hy), top.luma, &g1))
        return false;
    if (p.chroma && !chromaGather<Planar, Clamp>(q.x, q.y, p.par, q.xc, q.yc, q.ycLast, top.chroma, &gc))
        return false;
    uint8_t *d0 = a.dy0 != nullptr ? a.dy0 + a.dx + k : nullptr;
    uint8_t *d1 = a.dy1 != nullptr ? a.dy1 + a.dx + k : nullptr;
    if (!own1) {
        drawLuma<Round, Clamp>(s, p, g0, d0, d1, width);
    } else {
        if (d0 != nullptr) drawLuma<Round, Clamp>(s, p, g0, d0, nullptr, width);
        drawLuma<Round, Clamp>(s, p, g1, d1, nullptr, width);
    }
    if (p.chroma) drawChroma<Round, Planar, Clamp>(a, p, gc, k, width);
    return true;
}

// The lane limits of a clamped span; false when the image is too wide for
// Q15 lanes.
template <bool Clamp>
inline bool topsOf(const SrcPlanes &s, Tops *t) {
    t->luma = t->chroma = 0;
    if constexpr (Clamp) {
        if (s.w > 32768) return false;
        t->luma = (s.w - 1) << 15;
        t->chroma = (s.cw - 1) << 16;
    }
    return true;
}

// Groups of 32 pixels while they fit, else 16; a group whose lanes spread
// too far is retried as 16, then ends the leaf's part. `at(k, width, &q)`
// gives the positions of the group at pixel k.
template <bool Round, bool Planar, bool Clamp, class At>
inline int32_t groups(const SpanArgs &a, const LinearPlan &p, const Tops &top, At &&at) {
    int32_t k = 0;
    bool narrow = false;  // the last try of 32 lanes spread too far
    GroupPos q;
    while (a.n - k >= 16) {
        const int32_t width = a.n - k >= 32 && !narrow ? 32 : 16;
        at(k, width, &q);
        if (group<Round, Planar, Clamp>(a, p, q, top, k, width)) {
            k += width;
            narrow = false;
        } else if (width == 16) {
            break;
        } else {
            narrow = true;
        }
    }
    return k;
}

template <bool Round, bool Planar, bool Clamp>
int32_t linearLeaf(const SpanArgs &a) {
    LinearPlan p;
    Tops top;
    if (!topsOf<Clamp>(*a.src, &top) || !planLinear<Clamp>(a, Planar ? 1 : 2, 127, &p)) return 0;
    const Lanes ux = laneTimes(a.ux), uy = laneTimes(a.uy);
    return groups<Round, Planar, Clamp>(a, p, top, [&](int32_t k, int32_t width, GroupPos *q) {
        q->x0 = laneAdd(a.sx, laneMul(k, a.ux));
        q->y0 = laneAdd(a.sy, laneMul(k, a.uy));
        q->yLast = laneAdd(q->y0, laneMul(width - 1, a.uy));
        q->x = plus(ux, q->x0);
        q->y = plus(uy, q->y0);
        q->xc = laneAdd(q->x0, laneMul(p.par, a.ux));
        q->yc = laneAdd(q->y0, laneMul(p.par, a.uy));
        q->ycLast = laneAdd(q->yc, laneMul(width - 2, a.uy));
    });
}

// Unrotated: pixel k at 1/16 position p16 (from the group's position and
// the offset table) becomes the Q15 lane p16 << 11, so that the linear
// arithmetic above reads the same columns and weights; every lane sits on
// row sy. Clamped spans first limit p16 to two pixels beyond the image,
// which changes no clamped tap, so that the lanes stay within 32 bits.
template <bool Planar, bool Clamp>
int32_t noRotLeaf(const SpanArgs &a) {
    NoRotPlan np;
    Tops top;
    if (!topsOf<Clamp>(*a.src, &top) || !planNoRot<Clamp>(a, Planar ? 1 : 2, 127, &np)) return 0;
    // Keep p16 << 11 within 32 bits.
    if (!Clamp && (noRotP16(a, 0) < 0 || noRotP16(a, a.n - 1) >= (1 << 19))) return 0;
    const int32_t lo16 = -32, hi16 = 16 * a.src->w + 32;
    const auto lane = [&](int32_t p16) { return (Clamp ? (p16 < lo16 ? lo16 : (p16 > hi16 ? hi16 : p16)) : p16) * 2048; };
    LinearPlan p;
    p.shared = true;
    p.lumaLo = np.lumaLo;
    p.lumaHi = np.lumaHi;
    p.chroma = np.chroma;
    p.par = np.par;
    p.chromaLo = np.chromaLo;
    p.chromaHi = np.chromaHi;
    const __m512i off = _mm512_loadu_si512(reinterpret_cast<const void *>(a.off16));
    const __m512i y = _mm512_set1_epi32(a.sy);
    const __m512i lo16v = _mm512_set1_epi32(lo16), hi16v = _mm512_set1_epi32(hi16);
    const auto lanes = [&](int32_t g) {
        __m512i v = _mm512_add_epi32(off, _mm512_set1_epi32(g));
        if constexpr (Clamp) v = _mm512_min_epi32(_mm512_max_epi32(v, lo16v), hi16v);
        return _mm512_slli_epi32(v, 11);
    };
    return groups<true, Planar, Clamp>(a, p, top, [&](int32_t k, int32_t width, GroupPos *q) {
        const int32_t g0 = laneAdd(a.sx, laneMul(k, a.ux)) >> 11;
        const int32_t g1 = laneAdd(a.sx, laneMul(k + 16, a.ux)) >> 11;
        q->x.lo = lanes(g0);
        q->x.hi = lanes(g1);
        q->y = Lanes{y, y};
        q->x0 = lane(g0 + a.off16[0]);
        q->xc = lane(g0 + a.off16[p.par]);
        q->y0 = q->yLast = q->yc = q->ycLast = a.sy;
        (void)width;
    });
}

// The leaves of one family, unchecked or clamped.
template <bool Planar, bool Clamp>
void fillFamily(SpanLeaf *slots) {
    slots[kSpanGeneral] = linearLeaf<false, Planar, Clamp>;
    slots[kSpanParallel] = linearLeaf<true, Planar, Clamp>;
    slots[kSpanNoRot] = noRotLeaf<Planar, Clamp>;
}

}  // namespace

void initDrawSpansAvx512Vbmi(DrawSpanTable *t) {
    fillFamily<false, false>(t->leaf[kSpanSemiplanar]);
    fillFamily<true, false>(t->leaf[kSpanPlanar]);
    fillFamily<false, true>(t->clamped[kSpanSemiplanar]);
    fillFamily<true, true>(t->clamped[kSpanPlanar]);
}

}  // namespace pvx_draw

#endif
