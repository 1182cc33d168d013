// AVX-512 VBMI leaves of the three-bytes-a-pixel spans ("RGB888",
// "BGR888"): unrotated, and the clamped general and parallelogram spans
// (the unchecked ones of those kinds are the AVX2 leaf's).
//
// The 16 pixels of a group read columns within 32 of the group's first
// column (steps of at most two pixels), so each source row the group
// touches is one 128-byte window, loaded with byte masks that keep it
// inside the span's taps. One vpermi2b per 32 channels gathers the (p0, p1)
// byte pairs of every channel from the window, pmaddubsw weights them by
// (16 - fx, fx), and the rows are blended per lane by (16 - fy, fy), each
// lane taking the window of its own row. Per group the lane positions are
// one add away from the last group's, and the indices and weights of all 48
// channels come from one register of per-pixel bytes through vpermb. Each
// group prefetches the source rows below and the destination of the row
// pair two pairs below.
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

// Rows a group's lanes may spread over in this leaf.
constexpr int32_t kRgbMaxSpread = 6;

// Per-channel index tables (channel k = 3 * pixel + colour; word k of a
// pair register). kPairIdx: bytes 2k and 2k+1 of the first 32 channels (A)
// and of channels 32..63 (B, only 32..47 used) pick byte 4 * pixel of the
// per-pixel register; kPairAdd adds the colour and, for p1, 3.
struct PairTables {
    alignas(64) uint8_t idxA[64], idxB[64], addA[64], addB[64];
    alignas(64) uint8_t fxA[64], fxB[64], fyA[64], fyB[64], rrA[64], rrB[64];
};
constexpr PairTables makeTables() {
    PairTables t{};
    for (int b = 0; b < 64; ++b) {
        for (int half = 0; half < 2; ++half) {
            const int k = 32 * half + b / 2;  // channel of pair byte b
            const int pixel = (k / 3) & 15;
            const uint8_t col = static_cast<uint8_t>(4 * pixel);
            const uint8_t add = static_cast<uint8_t>(k % 3 + (b & 1 ? 3 : 0));
            (half ? t.idxB : t.idxA)[b] = col;
            (half ? t.addB : t.addA)[b] = add;
            (half ? t.fxB : t.fxA)[b] = static_cast<uint8_t>(col + 1);
            (half ? t.rrB : t.rrA)[b] = static_cast<uint8_t>(col + 2);
            (half ? t.fyB : t.fyA)[b] = static_cast<uint8_t>(col + 3);
        }
    }
    return t;
}
constexpr PairTables kTables = makeTables();

// Gather indices, weights and lane rows of the 48 channels of one row set,
// from the per-pixel bytes (4i: 3 * column, 4i+1: fx, 4i+2: row, 4i+3: fy).
struct Channels {
    __m512i idx[2], wx[2], fy[2], rr[2];
};
inline Channels channels(__m512i perPixel) {
    Channels c;
    const __m512i idxT[2] = {load64(kTables.idxA), load64(kTables.idxB)};
    const __m512i addT[2] = {load64(kTables.addA), load64(kTables.addB)};
    const __m512i fxT[2] = {load64(kTables.fxA), load64(kTables.fxB)};
    const __m512i fyT[2] = {load64(kTables.fyA), load64(kTables.fyB)};
    const __m512i rrT[2] = {load64(kTables.rrA), load64(kTables.rrB)};
    const __m512i sixteen = _mm512_set1_epi8(16);
    for (int h = 0; h < 2; ++h) {
        c.idx[h] = _mm512_add_epi8(_mm512_permutexvar_epi8(idxT[h], perPixel), addT[h]);
        const __m512i fx = _mm512_permutexvar_epi8(fxT[h], perPixel);
        c.wx[h] = _mm512_mask_sub_epi8(fx, kEven, sixteen, fx);  // (16 - fx, fx)
        c.fy[h] = _mm512_maskz_permutexvar_epi8(kEven, fyT[h], perPixel);
        c.rr[h] = _mm512_maskz_permutexvar_epi8(kEven, rrT[h], perPixel);
    }
    return c;
}

// One row set: 16 pixels at (X, Y) lanes; its first row and spread.
struct RowSet {
    Channels ch;
    int32_t c0;              // first pixel's column: the windows start at byte 3 * c0
    int32_t row, spread;     // lane rows are row .. row + spread
};

inline __m512i perPixelBytes(__m512i col3, __m512i fx, __m512i rr, __m512i fy) {
    return _mm512_or_si512(_mm512_or_si512(col3, _mm512_slli_epi32(fx, 8)),
                           _mm512_or_si512(_mm512_slli_epi32(rr, 16), _mm512_slli_epi32(fy, 24)));
}

// Clamped spans: lane positions limited to [0, top], `top` the last column
// at weight 0, which gives the clamping reference's sums (see EdgeClamp).
inline __m512i clampLanes(__m512i x, int32_t top) {
    return _mm512_min_epi32(_mm512_max_epi32(x, _mm512_setzero_si512()), _mm512_set1_epi32(top));
}

// The row set of a clamped general or parallelogram span; false when the
// lanes spread over too many rows.
inline bool clampedRowSet(__m512i x, __m512i y, int32_t x0, int32_t y0, int32_t y15, int32_t top, RowSet *s) {
    const int32_t r0 = y0 >> 15, r15 = y15 >> 15;
    s->row = r0 < r15 ? r0 : r15;
    s->spread = r0 < r15 ? r15 - r0 : r0 - r15;
    if (s->spread > kRgbMaxSpread) return false;
    x = clampLanes(x, top);
    x0 = x0 < 0 ? 0 : (x0 > top ? top : x0);
    s->c0 = x0 >> 15;
    const __m512i m15 = _mm512_set1_epi32(15);
    const __m512i col = _mm512_sub_epi32(_mm512_srai_epi32(x, 15), _mm512_set1_epi32(s->c0));
    const __m512i col3 = _mm512_add_epi32(col, _mm512_add_epi32(col, col));
    const __m512i fx = _mm512_and_si512(_mm512_srai_epi32(x, 11), m15);
    const __m512i rr = _mm512_sub_epi32(_mm512_srai_epi32(y, 15), _mm512_set1_epi32(s->row));
    const __m512i fy = _mm512_and_si512(_mm512_srai_epi32(y, 11), m15);
    s->ch = channels(perPixelBytes(col3, fx, rr, fy));
    return true;
}

// The unrotated row set: lanes at 1/16 positions p16 on row r with weight fy.
inline RowSet noRotRowSet(__m512i p16, int32_t r, int32_t fy) {
    RowSet s;
    s.row = r;
    s.spread = 0;
    s.c0 = _mm_cvtsi128_si32(_mm512_castsi512_si128(p16)) >> 4;
    const __m512i col = _mm512_sub_epi32(_mm512_srai_epi32(p16, 4), _mm512_set1_epi32(s.c0));
    const __m512i col3 = _mm512_add_epi32(col, _mm512_add_epi32(col, col));
    const __m512i fx = _mm512_and_si512(p16, _mm512_set1_epi32(15));
    s.ch = channels(perPixelBytes(col3, fx, _mm512_setzero_si512(), _mm512_set1_epi32(fy)));
    return s;
}

// Horizontal sums (16 - fx) * p0 + fx * p1 of the 48 channels on source row
// s.row + j, the window kept inside bytes [lo, hi] of the row.
struct Sums {
    __m512i h[2];
};
template <bool Clamp>
inline Sums rowSums(const SrcPlanes &src, const RowSet &s, int32_t j, int32_t lo, int32_t hi) {
    const uint8_t *p = src.y + static_cast<ptrdiff_t>(rowIn<Clamp>(s.row + j, src.h)) * src.yPitch +
                       static_cast<ptrdiff_t>(3) * s.c0;
    const int32_t a = lo - 3 * s.c0, b = hi - 3 * s.c0;
    const __m512i w0 = _mm512_maskz_loadu_epi8(rangeBits(a, b), p);
    const uint64_t m1 = rangeBits(a - 64, b - 64);
    const __m512i w1 = m1 != 0 ? _mm512_maskz_loadu_epi8(m1, p + 64) : _mm512_setzero_si512();
    Sums r;
    for (int h = 0; h < 2; ++h)
        r.h[h] = _mm512_maddubs_epi16(_mm512_permutex2var_epi8(w0, s.ch.idx[h], w1), s.ch.wx[h]);
    return r;
}

// Starts fetching the 128 bytes from byte 3 * c0 of the row kAhead rows
// below the last row of `s` read: the row pairs below read them next.
// Prefetches never fault; the address is formed as an integer, so it may
// lie outside the plane.
constexpr ptrdiff_t kAhead = 8;
inline void prefetchBelow(const SrcPlanes &src, const RowSet &s, int32_t lastRow) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(src.y) +
                         static_cast<uintptr_t>((s.row + lastRow + kAhead) * src.yPitch + 3 * static_cast<ptrdiff_t>(s.c0));
    _mm_prefetch(reinterpret_cast<const char *>(at), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char *>(at + 64), _MM_HINT_T0);
}

// 16 pixels (48 bytes) of one destination row from the sums of rows
// from + j (top) and from + j + 1 (bottom) for the lanes of row j.
template <bool Round>
inline void store48(uint8_t *d, const Sums *sums, const RowSet &s, int32_t from) {
    __m512i out[2];
    for (int h = 0; h < 2; ++h) {
        __m512i top = sums[from].h[h], bottom = sums[from + 1].h[h];
        for (int32_t j = 1; j <= s.spread; ++j) {
            const __mmask32 m = _mm512_cmpeq_epi16_mask(s.ch.rr[h], _mm512_set1_epi16(static_cast<int16_t>(j)));
            top = _mm512_mask_mov_epi16(top, m, sums[from + j].h[h]);
            bottom = _mm512_mask_mov_epi16(bottom, m, sums[from + j + 1].h[h]);
        }
        const __m512i fy = s.ch.fy[h];
        __m512i v = _mm512_add_epi16(_mm512_mullo_epi16(top, _mm512_sub_epi16(_mm512_set1_epi16(16), fy)),
                                     _mm512_mullo_epi16(bottom, fy));
        if constexpr (Round) v = _mm512_add_epi16(v, _mm512_set1_epi16(128));
        out[h] = _mm512_srli_epi16(v, 8);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), _mm512_cvtepi16_epi8(out[0]));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 32), _mm256_castsi256_si128(_mm512_cvtepi16_epi8(out[1])));
}

// Clamped spans: the columns the taps read limited to the image; false
// when the image is too wide for Q15 lanes.
template <bool Clamp>
inline bool tapBytes(const SrcPlanes &src, int64_t lo, int64_t hi, int32_t *loB, int32_t *hiB, int32_t *top) {
    *top = 0;
    if constexpr (Clamp) {
        if (src.w > 32768) return false;
        *top = (src.w - 1) << 15;
        lo = lo < 0 ? 0 : (lo > src.w - 1 ? src.w - 1 : lo);
        hi = hi < 0 ? 0 : (hi > src.w - 1 ? src.w - 1 : hi);
    }
    *loB = static_cast<int32_t>(3 * lo);
    *hiB = static_cast<int32_t>(3 * hi + 2);
    return true;
}

// Clamped general and parallelogram spans (the unchecked ones are the AVX2
// leaf's).
template <int K>
int32_t rgbLinearClamped(const SpanArgs &a) {
    constexpr bool kRound = K != kSpanGeneral;
    const int32_t groups = a.n >> 4;
    if (groups == 0 || a.ux < 0 || a.ux > 65536 || a.uy < -65536 || a.uy > 65536) return 0;
    if (a.dy0 == nullptr && a.dy1 == nullptr) return 0;
    if (!(runFits(a.sx, a.n - 1, a.ux) && runFits(a.sy, a.n - 1, a.uy) &&
                   runFits(static_cast<int64_t>(a.sx) + a.hx, a.n - 1, a.ux) &&
                   runFits(static_cast<int64_t>(a.sy) + a.hy, a.n - 1, a.uy) && runFits(a.sx, 1, a.hx) &&
                   runFits(a.sy, 1, a.hy)))
        return 0;
    const SrcPlanes &src = *a.src;
    const bool own1 = a.dy1 != nullptr && !(a.hx == 0 && a.hy == 32768);
    const bool set0 = a.dy0 != nullptr || !own1;  // row y's taps are read

    // Bytes of the taps' columns over the row sets read.
    int64_t lo, hi;
    spanTapColumns(a, set0, own1, &lo, &hi);
    int32_t loB, hiB, top;
    if (!tapBytes<true>(src, lo, hi, &loB, &hiB, &top)) return 0;

    const __m512i iota = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512i stepX = _mm512_set1_epi32(laneMul(16, a.ux)), stepY = _mm512_set1_epi32(laneMul(16, a.uy));
    __m512i x = _mm512_add_epi32(_mm512_set1_epi32(a.sx), _mm512_mullo_epi32(iota, _mm512_set1_epi32(a.ux)));
    __m512i y = _mm512_add_epi32(_mm512_set1_epi32(a.sy), _mm512_mullo_epi32(iota, _mm512_set1_epi32(a.uy)));
    const __m512i hx = _mm512_set1_epi32(a.hx), hy = _mm512_set1_epi32(a.hy);
    const int32_t reach15y = laneMul(15, a.uy);

    Sums sums[kRgbMaxSpread + 3];
    int32_t x0 = a.sx, y0 = a.sy;
    for (int32_t g = 0; g < groups; ++g) {
        const int32_t k = 16 * g;
        const ptrdiff_t o = static_cast<ptrdiff_t>(a.dx + k) * 3;
        prefetchDestBelow(a, o, 48);
        if (!own1) {
            // Row y+1 reads the rows below row y's taps with the same weights.
            RowSet s;
            if (!clampedRowSet(x, y, x0, y0, laneAdd(y0, reach15y), top, &s)) return k;
            const int32_t j0 = a.dy0 != nullptr ? 0 : 1, j1 = s.spread + (a.dy1 != nullptr ? 2 : 1);
            for (int32_t j = j0; j <= j1; ++j) sums[j] = rowSums<true>(src, s, j, loB, hiB);
            prefetchBelow(src, s, j1);
            prefetchBelow(src, s, j1 - 1);
            if (a.dy0 != nullptr) store48<kRound>(a.dy0 + o, sums, s, 0);
            if (a.dy1 != nullptr) store48<kRound>(a.dy1 + o, sums, s, 1);
        } else {
            RowSet s0, s1;
            const int32_t x1 = laneAdd(x0, a.hx), y1 = laneAdd(y0, a.hy);
            if ((a.dy0 != nullptr && !clampedRowSet(x, y, x0, y0, laneAdd(y0, reach15y), top, &s0)) ||
                !clampedRowSet(_mm512_add_epi32(x, hx), _mm512_add_epi32(y, hy), x1, y1, laneAdd(y1, reach15y), top,
                               &s1))
                return k;
            if (a.dy0 != nullptr) {
                for (int32_t j = 0; j <= s0.spread + 1; ++j) sums[j] = rowSums<true>(src, s0, j, loB, hiB);
                prefetchBelow(src, s0, s0.spread + 1);
                store48<kRound>(a.dy0 + o, sums, s0, 0);
            }
            for (int32_t j = 0; j <= s1.spread + 1; ++j) sums[j] = rowSums<true>(src, s1, j, loB, hiB);
            prefetchBelow(src, s1, s1.spread + 1);
            store48<kRound>(a.dy1 + o, sums, s1, 0);
        }
        x = _mm512_add_epi32(x, stepX);
        y = _mm512_add_epi32(y, stepY);
        x0 = laneAdd(x0, laneMul(16, a.ux));
        y0 = laneAdd(y0, laneMul(16, a.uy));
    }
    return 16 * groups;
}

// Unrotated: every pixel reads rows r and r + 1 (row y+1: r + 1 and r + 2)
// at the 1/16 positions the offset table gives (clamped spans: limited to
// [0, 16 * (w - 1)]).
template <bool Clamp>
int32_t rgbNoRot(const SpanArgs &a) {
    const int32_t groups = a.n >> 4;
    if (groups == 0 || a.ux < 0 || a.ux > 65536) return 0;
    if (Clamp && !runFits(a.sx, a.n - 1, a.ux)) return 0;
    const SrcPlanes &src = *a.src;
    const int32_t p0 = noRotP16(a, 0) >> 4, p1 = noRotP16(a, a.n - 1) >> 4;
    int32_t loB, hiB, top;
    if (!tapBytes<Clamp>(src, p0, (p0 > p1 ? p0 : p1) + 1, &loB, &hiB, &top)) return 0;
    const __m512i top16 = _mm512_set1_epi32(16 * (src.w - 1));
    const int32_t r = a.sy >> 15, fy = (a.sy >> 11) & 15;
    const __m512i off = _mm512_loadu_si512(reinterpret_cast<const void *>(a.off16));
    Sums sums[3];
    for (int32_t g = 0; g < groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t base = laneAdd(a.sx, laneMul(k, a.ux)) >> 11;
        __m512i p16 = _mm512_add_epi32(off, _mm512_set1_epi32(base));
        if constexpr (Clamp) p16 = _mm512_min_epi32(_mm512_max_epi32(p16, _mm512_setzero_si512()), top16);
        const RowSet s = noRotRowSet(p16, r, fy);
        const ptrdiff_t o = static_cast<ptrdiff_t>(a.dx + k) * 3;
        prefetchDestBelow(a, o, 48);
        for (int32_t j = a.dy0 != nullptr ? 0 : 1; j <= (a.dy1 != nullptr ? 2 : 1); ++j)
            sums[j] = rowSums<Clamp>(src, s, j, loB, hiB);
        prefetchBelow(src, s, 2);
        prefetchBelow(src, s, 1);
        if (a.dy0 != nullptr) store48<true>(a.dy0 + o, sums, s, 0);
        if (a.dy1 != nullptr) store48<true>(a.dy1 + o, sums, s, 1);
    }
    return 16 * groups;
}

}  // namespace

// The unchecked general and parallelogram spans stay with the AVX2 leaf,
// which draws whole frames faster (see fillDrawSpanTable).
void initDrawSpansRgbAvx512Vbmi(DrawSpanTable *t) {
    t->leaf[kSpanRgb][kSpanNoRot] = rgbNoRot<false>;
    t->clamped[kSpanRgb][kSpanGeneral] = rgbLinearClamped<kSpanGeneral>;
    t->clamped[kSpanRgb][kSpanParallel] = rgbLinearClamped<kSpanParallel>;
    t->clamped[kSpanRgb][kSpanNoRot] = rgbNoRot<true>;
}

}  // namespace pvx_draw

#endif
