// AVX2 leaves of the three-bytes-a-pixel spans ("RGB888", "BGR888"):
// unrotated, general and parallelogram.
//
// The 48 channels of a 16-pixel group are six runs of 8 channels, one run
// per 128-bit lane of three registers (channels 0..15, 16..31, 32..47). A
// run touches at most four pixels, and with steps below 4/3 pixel their
// taps on one source row lie within 16 bytes: each lane loads its own
// 16-byte window of the row, and one vpshufb per register picks the (p0,
// p1) byte pairs of its channels, which pmaddubsw weights by (16 - fx, fx).
// The rows are blended per channel by (16 - fy, fy), each channel taking
// the rows of its own pixel. Per group, the pixels' columns and weights are
// worked out in the 16 words of one register and spread to the channels by
// vpshufb from a copy holding one byte per pixel; the indices serve every
// source row the group reads. Steps of 4/3 to 2 pixels take two windows a
// lane; what the windows do not fit (longer steps, steep slopes, narrow
// spans) goes to the SSSE3 arithmetic. The leaves prefetch the source rows
// and the destination rows that the row pairs below will touch: in a frame,
// stores that miss the cache otherwise stall the leaf more than its
// arithmetic.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__AVX2__)

#include <immintrin.h>

#include "render/pvx_draw_rgb_ssse3.h"
#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// Largest step along a row (Q15) for 16-byte windows: two steps stay
// within 3 columns and three within 4, which keeps every lane's taps inside
// its 16 bytes. Up to two pixels, a lane reads 32 bytes: two windows, each
// picked by its own vpshufb.
constexpr int32_t kMaxStep = 43690;
constexpr int32_t kMaxWideStep = 65536;
// Rows a group's lanes may spread over in this leaf.
constexpr int32_t kMaxSpread = 3;

// Shuffle tables. Lane j (0..5) holds channels 8j..8j+7 (channel k is
// colour k % 3 of pixel k / 3), two bytes each (p0, p1) before weighting and
// one word after. A lane's window starts at its first channel's p0, or at
// the next pixel's first byte when that pixel sits on the same column
// (whichever is lower): `first`, `firstAdd` and `next` pick those per lane.
struct Tables {
    alignas(32) uint8_t pix[3][32];    // pixel of each pair byte
    alignas(32) uint8_t add[3][32];    // colour + 3 for the right-hand tap
    alignas(32) uint8_t lane[3][32];   // lane of each byte (index into the starts)
    alignas(32) uint8_t word[3][32];   // pixel of each channel word, high byte zeroed
    alignas(32) uint8_t even16[32];    // 16 at even bytes: weights (16 - fx, fx)
    alignas(16) uint8_t first[16], firstAdd[16], next[16];
};
constexpr Tables makeTables() {
    Tables t{};
    for (int m = 0; m < 3; ++m) {
        for (int b = 0; b < 32; ++b) {
            const int j = 2 * m + b / 16, bb = b & 15;
            const int ch = 8 * j + bb / 2;
            t.pix[m][b] = static_cast<uint8_t>(ch / 3);
            t.add[m][b] = static_cast<uint8_t>(ch % 3 + (bb & 1 ? 3 : 0));
            t.lane[m][b] = static_cast<uint8_t>(j);
            t.word[m][b] = bb & 1 ? 0x80 : static_cast<uint8_t>(ch / 3);
        }
    }
    for (int b = 0; b < 32; ++b) t.even16[b] = b & 1 ? 0 : 16;
    for (int b = 0; b < 16; ++b) t.first[b] = t.next[b] = 0x80;
    for (int j = 0; j < 6; ++j) {
        const int ch = 8 * j, p = ch / 3;
        t.first[j] = static_cast<uint8_t>(p);
        t.firstAdd[j] = static_cast<uint8_t>(ch % 3);
        t.next[j] = static_cast<uint8_t>(ch % 3 == 0 ? p : p + 1);
    }
    return t;
}
constexpr Tables kT = makeTables();

inline __m256i load32(const uint8_t *p) { return _mm256_load_si256(reinterpret_cast<const __m256i *>(p)); }
inline __m128i load16(const uint8_t *p) { return _mm_load_si128(reinterpret_cast<const __m128i *>(p)); }

// One row set: 16 pixels of one destination row, their per-channel window
// indices, weights and lane rows, and where each lane's window starts.
struct RowSet {
    __m256i idx[3], wx[3], fy[3], rr[3];
    __m256i idxHi[3];     // 32-byte windows: indices into the second 16 bytes
    const uint8_t *row;   // first source row of the set, at the group's first column
    int32_t start[6];     // window of lane j: bytes row + start[j] ..+15
    int32_t spread;       // lane rows are 0 .. spread from `row`
};

// Bytes of the 16 pixels' words `v` (0..255) in both lanes of a register.
inline __m256i pixelBytes(__m256i v) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x88); }

// Window indices and horizontal weights from the pixels' 1/16 positions
// `xr` (words, relative to the first pixel's column); windows of W bytes
// start by byte `clampEnd` past that column (the last byte that may be
// read, less W - 1).
template <int W>
inline void columns(__m256i xr, int32_t clampEnd, RowSet *s) {
    const __m256i col = _mm256_srli_epi16(xr, 4);
    const __m256i col3 = _mm256_add_epi16(col, _mm256_add_epi16(col, col));
    const __m256i colB = pixelBytes(col3);
    const __m256i fxB = pixelBytes(_mm256_and_si256(xr, _mm256_set1_epi16(15)));
    const __m128i colX = _mm256_castsi256_si128(colB);
    const __m128i firstB = _mm_add_epi8(_mm_shuffle_epi8(colX, load16(kT.first)), load16(kT.firstAdd));
    __m128i st = _mm_min_epi8(firstB, _mm_shuffle_epi8(colX, load16(kT.next)));
    const int32_t c = clampEnd < -128 ? -128 : (clampEnd > 127 ? 127 : clampEnd);
    st = _mm_min_epi8(st, _mm_set1_epi8(static_cast<char>(c)));
    alignas(16) int8_t starts[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(starts), st);
    for (int j = 0; j < 6; ++j) s->start[j] = starts[j];
    const __m256i stB = _mm256_broadcastsi128_si256(st);
    for (int m = 0; m < 3; ++m) {
        const __m256i at = _mm256_add_epi8(_mm256_shuffle_epi8(colB, load32(kT.pix[m])), load32(kT.add[m]));
        s->idx[m] = _mm256_sub_epi8(at, _mm256_shuffle_epi8(stB, load32(kT.lane[m])));
        if constexpr (W == 32) {
            // Index i < 16 reads the first window, i - 16 the second: each
            // vpshufb zeroes the bytes whose index has bit 7 set.
            s->idxHi[m] = _mm256_add_epi8(s->idx[m], _mm256_set1_epi8(-16));
            s->idx[m] = _mm256_add_epi8(s->idx[m], _mm256_set1_epi8(0x70));
        }
        s->wx[m] = _mm256_abs_epi8(_mm256_sub_epi8(load32(kT.even16), _mm256_shuffle_epi8(fxB, load32(kT.pix[m]))));
    }
}

// Per-channel words of the pixels' words `v` (0..255).
inline void channelWords(__m256i v, __m256i *out) {
    const __m256i b = pixelBytes(v);
    for (int m = 0; m < 3; ++m) out[m] = _mm256_shuffle_epi8(b, load32(kT.word[m]));
}

// The 16-byte windows of lanes 2m and 2m + 1, `at` bytes past their starts.
inline __m256i windows(const uint8_t *row, const RowSet &s, int m, int at) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + s.start[2 * m] + at));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + s.start[2 * m + 1] + at));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

// Horizontal sums of the 16 channels of register m on source row `row`.
template <int W>
inline __m256i rowSums(const uint8_t *row, const RowSet &s, int m) {
    __m256i pairs = _mm256_shuffle_epi8(windows(row, s, m, 0), s.idx[m]);
    if constexpr (W == 32) pairs = _mm256_or_si256(pairs, _mm256_shuffle_epi8(windows(row, s, m, 16), s.idxHi[m]));
    return _mm256_maddubs_epi16(pairs, s.wx[m]);
}

// Starts fetching the bytes of the row kAhead rows below `row` that a
// group reads: the row pairs below read them soon. Prefetches never fault;
// the address is formed as an integer, so it may lie outside the plane.
constexpr ptrdiff_t kAhead = 8;
inline void prefetchBelow(const uint8_t *row, ptrdiff_t pitch) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(row) + static_cast<uintptr_t>(kAhead * pitch);
    _mm_prefetch(reinterpret_cast<const char *>(at), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char *>(at + 63), _MM_HINT_T0);
}

// One register of a destination row from the sums of the rows: each
// channel blends sums[j] (top) and sums[j + 1] (bottom), j its lane row
// (sel[j - 1] marks lane row j).
template <int Spread, bool Round>
inline __m256i vertical(const __m256i *sums, const __m256i *sel, __m256i fy) {
    __m256i top = sums[0], bottom = sums[1];
    for (int j = 1; j <= Spread; ++j) {
        top = _mm256_blendv_epi8(top, sums[j], sel[j - 1]);
        bottom = _mm256_blendv_epi8(bottom, sums[j + 1], sel[j - 1]);
    }
    // top * (16 - fy) + bottom * fy, in wrapping 16-bit lanes.
    __m256i v = _mm256_add_epi16(_mm256_slli_epi16(top, 4), _mm256_mullo_epi16(_mm256_sub_epi16(bottom, top), fy));
    if constexpr (Round) v = _mm256_add_epi16(v, _mm256_set1_epi16(128));
    return _mm256_srli_epi16(v, 8);
}

// 16 pixels (48 bytes) from their channels' words.
inline void store48(uint8_t *d, const __m256i *out) {
    const __m256i first = _mm256_permute4x64_epi64(_mm256_packus_epi16(out[0], out[1]), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), first);
    const __m128i last = _mm_packus_epi16(_mm256_castsi256_si128(out[2]), _mm256_extracti128_si256(out[2], 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 32), last);
}

// The rows of a set with lanes on rows 0 .. Spread: destination d0 from
// rows 0 .. Spread + 1 and, when d1 is given, d1 from the rows one below
// with the same weights (rows 1 .. Spread + 2). Either may be null.
template <int Spread, bool Round, int W>
inline void drawSet(uint8_t *d0, uint8_t *d1, const RowSet &s, ptrdiff_t pitch) {
    const __m256i zero = _mm256_setzero_si256();
    __m256i out0[3] = {zero, zero, zero}, out1[3] = {zero, zero, zero};
    for (int m = 0; m < 3; ++m) {
        __m256i sums[Spread + 3], sel[Spread + 1];
        sums[0] = sums[Spread + 2] = zero;   // rows not read
        for (int j = 1; j <= Spread; ++j)
            sel[j - 1] = _mm256_cmpeq_epi16(s.rr[m], _mm256_set1_epi16(static_cast<int16_t>(j)));
        if (d0 != nullptr) sums[0] = rowSums<W>(s.row, s, m);
        for (int j = 1; j <= Spread + 1; ++j) sums[j] = rowSums<W>(s.row + j * pitch, s, m);
        if (d1 != nullptr) sums[Spread + 2] = rowSums<W>(s.row + (Spread + 2) * pitch, s, m);
        if (d0 != nullptr) out0[m] = vertical<Spread, Round>(sums, sel, s.fy[m]);
        if (d1 != nullptr) out1[m] = vertical<Spread, Round>(sums + 1, sel, s.fy[m]);
    }
    const int32_t last = Spread + (d1 != nullptr ? 2 : 1);
    prefetchBelow(s.row + last * pitch, pitch);
    prefetchBelow(s.row + (last - 1) * pitch, pitch);
    if (d0 != nullptr) store48(d0, out0);
    if (d1 != nullptr) store48(d1, out1);
}

template <bool Round, int W>
inline void drawSetAnySpread(uint8_t *d0, uint8_t *d1, const RowSet &s, ptrdiff_t pitch) {
    static_assert(kMaxSpread == 3, "one case per spread");
    switch (s.spread) {
        case 0: drawSet<0, Round, W>(d0, d1, s, pitch); break;
        case 1: drawSet<1, Round, W>(d0, d1, s, pitch); break;
        case 2: drawSet<2, Round, W>(d0, d1, s, pitch); break;
        default: drawSet<3, Round, W>(d0, d1, s, pitch); break;
    }
}

// Steps of a general or parallelogram span split for 16-bit lanes:
// pixel i of a group at Q15 X is at 1/16 position (X >> 11) + i * uh +
// ((X & 2047) + i * ul) >> 11.
struct Steps {
    __m256i xh, xl, yh, yl;
};
inline Steps splitSteps(int32_t ux, int32_t uy) {
    const __m256i iota = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const auto times = [&](int32_t v) { return _mm256_mullo_epi16(iota, _mm256_set1_epi16(static_cast<int16_t>(v))); };
    return Steps{times(ux >> 11), times(ux & 2047), times(uy >> 11), times(uy & 2047)};
}
// 1/16 positions of the 16 pixels from Q15 v, relative to (v >> 15) * 16.
inline __m256i relative16(int32_t v, __m256i h, __m256i l) {
    const __m256i frac = _mm256_srli_epi16(_mm256_add_epi16(_mm256_set1_epi16(static_cast<int16_t>(v & 2047)), l), 11);
    return _mm256_add_epi16(_mm256_set1_epi16(static_cast<int16_t>((v >> 11) & 15)), _mm256_add_epi16(h, frac));
}

// The row set of 16 pixels at Q15 (x, y) + i * (ux, uy); false when their
// rows spread too far.
template <int W>
inline bool linearSet(const SpanArgs &a, const Steps &k, int32_t x, int32_t y, int32_t hiB, RowSet *s) {
    int32_t low, spread;
    if (!laneRows(y, a.uy, &low, &spread) || spread > kMaxSpread) return false;
    s->spread = spread;
    const int32_t c0 = x >> 15;
    columns<W>(relative16(x, k.xh, k.xl), hiB - (W - 1) - 3 * c0, s);
    const __m256i yr = relative16(y, k.yh, k.yl);
    channelWords(_mm256_sub_epi16(_mm256_srai_epi16(yr, 4), _mm256_set1_epi16(static_cast<int16_t>(low))), s->rr);
    channelWords(_mm256_and_si256(yr, _mm256_set1_epi16(15)), s->fy);
    const SrcPlanes &src = *a.src;
    s->row = src.y + static_cast<ptrdiff_t>((y >> 15) + low) * src.yPitch + static_cast<ptrdiff_t>(3) * c0;
    return true;
}

// The groups of a general or parallelogram span with W-byte windows, up to
// the first whose rows spread too far; `hiB` is the last byte the taps
// reach on a row.
template <int K, int W>
int32_t rgbLinearGroups(const SpanArgs &a, int32_t hiB) {
    constexpr bool kRound = K != kSpanGeneral;
    const int32_t groups = a.n >> 4;
    const ptrdiff_t pitch = a.src->yPitch;
    const bool own1 = a.dy1 != nullptr && !(a.hx == 0 && a.hy == 32768);
    const Steps k = splitSteps(a.ux, a.uy);
    int32_t x0 = a.sx, y0 = a.sy;
    for (int32_t g = 0; g < groups; ++g, x0 = laneAdd(x0, laneMul(16, a.ux)), y0 = laneAdd(y0, laneMul(16, a.uy))) {
        const ptrdiff_t o = static_cast<ptrdiff_t>(a.dx + 16 * g) * 3;
        prefetchDestBelow(a, o, 48);
        if (!own1) {
            // Row y+1 reads the rows below row y's taps with the same weights.
            RowSet s;
            if (!linearSet<W>(a, k, x0, y0, hiB, &s)) return 16 * g;
            drawSetAnySpread<kRound, W>(a.dy0 != nullptr ? a.dy0 + o : nullptr, a.dy1 != nullptr ? a.dy1 + o : nullptr,
                                        s, pitch);
        } else {
            // Both sets are checked before either row is drawn.
            RowSet s1;
            if (!linearSet<W>(a, k, laneAdd(x0, a.hx), laneAdd(y0, a.hy), hiB, &s1)) return 16 * g;
            if (a.dy0 != nullptr) {
                RowSet s0;
                if (!linearSet<W>(a, k, x0, y0, hiB, &s0)) return 16 * g;
                drawSetAnySpread<kRound, W>(a.dy0 + o, nullptr, s0, pitch);
            }
            drawSetAnySpread<kRound, W>(a.dy1 + o, nullptr, s1, pitch);
        }
    }
    return 16 * groups;
}

// General and parallelogram: the groups the windows fit, up to the first
// whose rows spread too far; 0 when the span's steps do not fit them.
template <int K>
int32_t rgbLinearWindows(const SpanArgs &a) {
    const int32_t groups = a.n >> 4;
    if (groups == 0 || a.ux < 0 || a.ux > kMaxWideStep || a.uy < -32768 || a.uy > 32768) return 0;
    if (a.dy0 == nullptr && a.dy1 == nullptr) return 0;
    const bool own1 = a.dy1 != nullptr && !(a.hx == 0 && a.hy == 32768);
    const bool set0 = a.dy0 != nullptr || !own1;  // row y's taps are read

    // Bytes of the taps' columns over the row sets read.
    int64_t lo, hi;
    spanTapColumns(a, set0, own1, &lo, &hi);
    const int32_t loB = static_cast<int32_t>(3 * lo), hiB = static_cast<int32_t>(3 * hi + 2);
    if (hiB - loB < 15) return 0;   // narrower than one window

    if (a.ux <= kMaxStep) return rgbLinearGroups<K, 16>(a, hiB);
    if (hiB - loB < 31) return 0;   // narrower than two windows
    return rgbLinearGroups<K, 32>(a, hiB);
}

// Whether each pixel's taps meet the next pixel's (their 1/16 positions at
// most 32 apart, so no column between them goes unread), within a group and
// on to the next group: a window reaching past its lane's taps then reads
// taps of the span only, every lane reads at most 24 bytes and a group
// spans at most 31 columns.
inline bool noRotTapsJoin(const SpanArgs &a) {
    const int32_t *off = a.off16;
    for (int i = 0; i < 15; ++i)
        if (off[i + 1] < off[i] || off[i + 1] - off[i] > 32) return false;
    return ((16 * static_cast<int64_t>(a.ux)) >> 11) + 1 + off[0] - off[15] <= 32;
}

// Whether 16-byte windows fit: (at any fraction of the group's position)
// two steps from a lane's first pixel stay within 3 columns and three
// within 4, and the group spans at most 20 columns.
inline bool noRotNarrow(const int32_t *off) {
    const auto cols = [&](int i, int j) { return (15 + off[j] - off[i]) >> 4; };
    return cols(0, 2) <= 3 && cols(5, 7) <= 3 && cols(8, 10) <= 3 && cols(13, 15) <= 3 && cols(2, 5) <= 4 &&
           cols(10, 13) <= 4 && off[15] - off[0] <= 320;
}

// Unrotated groups with W-byte windows: every pixel reads rows r and r + 1
// (row y+1: r + 1 and r + 2) at the 1/16 positions the offset table gives;
// `hiB` is the last byte the taps reach.
template <int W>
int32_t rgbNoRotGroups(const SpanArgs &a, int32_t hiB) {
    const int32_t groups = a.n >> 4;
    const SrcPlanes &src = *a.src;
    const int32_t fy = (a.sy >> 11) & 15;
    const uint8_t *row = src.y + static_cast<ptrdiff_t>(a.sy >> 15) * src.yPitch;
    const __m256i offLo = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a.off16));
    const __m256i offHi = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a.off16 + 8));
    const __m256i off = _mm256_permute4x64_epi64(_mm256_packs_epi32(offLo, offHi), 0xD8);
    RowSet s;
    s.spread = 0;
    for (int m = 0; m < 3; ++m) s.fy[m] = _mm256_set1_epi16(static_cast<int16_t>(fy));
    for (int32_t g = 0; g < groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t group = laneAdd(a.sx, laneMul(k, a.ux)) >> 11;
        const int32_t c0 = laneAdd(group, a.off16[0]) >> 4;
        columns<W>(_mm256_add_epi16(_mm256_set1_epi16(static_cast<int16_t>(laneAdd(group, -16 * c0))), off),
                   hiB - (W - 1) - 3 * c0, &s);
        s.row = row + static_cast<ptrdiff_t>(3) * c0;
        const ptrdiff_t o = static_cast<ptrdiff_t>(a.dx + k) * 3;
        prefetchDestBelow(a, o, 48);
        drawSet<0, true, W>(a.dy0 != nullptr ? a.dy0 + o : nullptr, a.dy1 != nullptr ? a.dy1 + o : nullptr, s,
                            src.yPitch);
    }
    return 16 * groups;
}

// Unrotated: the groups the windows fit; 0 when the offsets do not fit them.
int32_t rgbNoRotWindows(const SpanArgs &a) {
    if ((a.n >> 4) == 0 || a.ux < 0 || !noRotTapsJoin(a)) return 0;
    const int32_t p0 = noRotP16(a, 0) >> 4, p1 = noRotP16(a, a.n - 1) >> 4;
    const int32_t hiB = 3 * ((p0 > p1 ? p0 : p1) + 1) + 2;
    if (hiB - 3 * p0 >= 15 && noRotNarrow(a.off16)) return rgbNoRotGroups<16>(a, hiB);
    if (hiB - 3 * p0 >= 31) return rgbNoRotGroups<32>(a, hiB);
    return 0;   // narrower than the windows
}

// The span from pixel k (a multiple of 16) on: the positions of its groups
// are those of the whole span, as the sums wrap alike (unrotated spans have
// uy 0).
inline SpanArgs restOfSpan(const SpanArgs &a, int32_t k) {
    SpanArgs b = a;
    b.dx = a.dx + k;
    b.n = a.n - k;
    b.sx = laneAdd(a.sx, laneMul(k, a.ux));
    b.sy = laneAdd(a.sy, laneMul(k, a.uy));
    return b;
}

// The window leaves, and the SSSE3 arithmetic for the groups they leave
// (steps beyond 4/3 pixel, as when the output is smaller than the source,
// steep slopes), which would otherwise fall to the C reference.
template <int K>
int32_t rgbLeaf(const SpanArgs &a) {
    int32_t done;
    if constexpr (K == kSpanNoRot) {
        done = rgbNoRotWindows(a);
    } else {
        done = rgbLinearWindows<K>(a);
    }
    if (done == 16 * (a.n >> 4)) return done;
    return done + rgbGroups<rgb_ssse3::Arith, K>(restOfSpan(a, done));
}

}  // namespace

void initDrawSpansRgbAvx2(DrawSpanTable *t) {
    t->leaf[kSpanRgb][kSpanGeneral] = rgbLeaf<kSpanGeneral>;
    t->leaf[kSpanRgb][kSpanParallel] = rgbLeaf<kSpanParallel>;
    t->leaf[kSpanRgb][kSpanNoRot] = rgbLeaf<kSpanNoRot>;
}

}  // namespace pvx_draw

#endif
