// AVX2 leaves of the resizer: the SSSE3 arithmetic on two groups at once,
// one group per 128-bit half (vpshufb gathers within each half, so each
// half loads its own group's window), and 32 bytes a step in the blends.
// An odd last group takes the 128-bit form.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__AVX2__)

#include <immintrin.h>
#include <stddef.h>
#include <string.h>

#include "resample/pvx_resize_leaves.h"

namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
inline __m256i load32(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
// Two 16-byte windows, one per half.
inline __m256i load2x16(const uint8_t *lo, const uint8_t *hi) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load16(lo)), load16(hi), 1);
}

// Lane offsets (128 + k step) >> 8 of the 8 lanes in both halves.
inline __m256i laneOffsets(int32_t step) {
    const auto lane = [step](int32_t k) { return static_cast<int16_t>((128 + k * step) >> 8); };
    return _mm256_broadcastsi128_si256(
        _mm_setr_epi16(lane(0), lane(1), lane(2), lane(3), lane(4), lane(5), lane(6), lane(7)));
}

// (ab . (127 - w, w) + a + 64) >> 7 for interleaved tap pairs.
inline __m256i weigh(__m256i ab, __m256i weights) {
    const __m256i s =
        _mm256_add_epi16(_mm256_maddubs_epi16(ab, weights), _mm256_and_si256(ab, _mm256_set1_epi16(0xFF)));
    return _mm256_mulhrs_epi16(s, _mm256_set1_epi16(256));
}
inline __m128i weigh(__m128i ab, __m128i weights) {
    const __m128i s = _mm_add_epi16(_mm_maddubs_epi16(ab, weights), _mm_and_si128(ab, _mm_set1_epi16(0xFF)));
    return _mm_mulhrs_epi16(s, _mm_set1_epi16(256));
}

// Lane offsets plus each half's group fraction: (q, q + 1) byte pairs,
// (127 - w, w) weights and q of every lane.
struct Taps {
    __m256i q, pairs, weights;
};
inline Taps groupTaps(__m256i lanes, int64_t x0, int64_t x1) {
    const __m256i fo = _mm256_inserti128_si256(_mm256_set1_epi16(static_cast<int16_t>((x0 & 32767) >> 8)),
                                               _mm_set1_epi16(static_cast<int16_t>((x1 & 32767) >> 8)), 1);
    const __m256i o = _mm256_add_epi16(lanes, fo);
    const __m256i q = _mm256_srli_epi16(o, 7), w = _mm256_and_si256(o, _mm256_set1_epi16(127));
    Taps t;
    t.q = q;
    t.pairs = _mm256_add_epi16(_mm256_mullo_epi16(q, _mm256_set1_epi16(257)), _mm256_set1_epi16(256));
    t.weights = _mm256_add_epi16(_mm256_mullo_epi16(w, _mm256_set1_epi16(255)), _mm256_set1_epi16(127));
    return t;
}

void uint8Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m256i lanes = laneOffsets(step);
    const int64_t groupStep = 8 * static_cast<int64_t>(step);
    int32_t g = 0;
    for (; g + 2 <= groups; g += 2, x += 2 * groupStep) {
        const int64_t x1 = x + groupStep;
        const Taps t = groupTaps(lanes, x, x1);
        const __m256i v = weigh(_mm256_shuffle_epi8(load2x16(src + (x >> 15), src + (x1 >> 15)), t.pairs), t.weights);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 8 * static_cast<ptrdiff_t>(g)),
                         _mm256_castsi256_si128(packed));
    }
    if (g < groups) {
        const Taps t = groupTaps(lanes, x, x);
        const __m128i v = weigh(_mm_shuffle_epi8(load16(src + (x >> 15)), _mm256_castsi256_si128(t.pairs)),
                                _mm256_castsi256_si128(t.weights));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 8 * static_cast<ptrdiff_t>(g)), _mm_packus_epi16(v, v));
    }
}

// Bytes idx (0 .. 31) of each half's 32-byte window (lo, hi).
inline __m256i gather32(__m256i lo, __m256i hi, __m256i idx) {
    return _mm256_or_si256(_mm256_shuffle_epi8(lo, _mm256_adds_epu8(idx, _mm256_set1_epi8(0x70))),
                           _mm256_shuffle_epi8(hi, _mm256_sub_epi8(idx, _mm256_set1_epi8(16))));
}

// "RGB888": sample j (0 .. 23) of a group is channel j % 3 of lane j / 3.
// Per block of 8 samples: which lane each byte pair takes, the channel
// offsets of the pair's taps (c, c + 3), and the lane's weight bytes.
const int8_t kLaneOf[3][16] = {{0, 0, 0, 0, 0, 0, 2, 2, 2, 2, 2, 2, 4, 4, 4, 4},
                               {4, 4, 6, 6, 6, 6, 6, 6, 8, 8, 8, 8, 8, 8, 10, 10},
                               {10, 10, 10, 10, 12, 12, 12, 12, 12, 12, 14, 14, 14, 14, 14, 14}};
const int8_t kTapOf[3][16] = {{0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4},
                              {2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3},
                              {1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5}};
const int8_t kWeightOf[3][16] = {{0, 1, 0, 1, 0, 1, 2, 3, 2, 3, 2, 3, 4, 5, 4, 5},
                                 {4, 5, 6, 7, 6, 7, 6, 7, 8, 9, 8, 9, 8, 9, 10, 11},
                                 {10, 11, 10, 11, 12, 13, 12, 13, 12, 13, 14, 15, 14, 15, 14, 15}};

inline __m256i both(const int8_t *table) { return _mm256_broadcastsi128_si256(load16(table)); }

void rgb888Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m256i lanes = laneOffsets(step);
    __m256i laneOf[3], tapOf[3], weightOf[3];
    for (int r = 0; r < 3; ++r) {
        laneOf[r] = both(kLaneOf[r]);
        tapOf[r] = both(kTapOf[r]);
        weightOf[r] = both(kWeightOf[r]);
    }
    const int64_t groupStep = 8 * static_cast<int64_t>(step);
    // An odd last group runs as a pair with itself and stores one half.
    for (int32_t g = 0; g < groups; g += 2, x += 2 * groupStep) {
        const bool pair = g + 1 < groups;
        const int64_t x1 = pair ? x + groupStep : x;
        const uint8_t *p0 = src + 3 * (x >> 15), *p1 = src + 3 * (x1 >> 15);
        const __m256i lo = load2x16(p0, p1), hi = load2x16(p0 + 16, p1 + 16);
        const Taps t = groupTaps(lanes, x, x1);
        const __m256i q3 = _mm256_mullo_epi16(t.q, _mm256_set1_epi16(3));
        __m256i v[3];
        for (int r = 0; r < 3; ++r) {
            const __m256i idx = _mm256_add_epi8(_mm256_shuffle_epi8(q3, laneOf[r]), tapOf[r]);
            v[r] = weigh(gather32(lo, hi, idx), _mm256_shuffle_epi8(t.weights, weightOf[r]));
        }
        const __m256i first = _mm256_packus_epi16(v[0], v[1]), last = _mm256_packus_epi16(v[2], v[2]);
        uint8_t *o = out + 24 * static_cast<ptrdiff_t>(g);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o), _mm256_castsi256_si128(first));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(o + 16), _mm256_castsi256_si128(last));
        if (pair) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(o + 24), _mm256_extracti128_si256(first, 1));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(o + 40), _mm256_extracti128_si256(last, 1));
        }
    }
}

// Weights 0 and 128 pick one row; between them both weights fit signed
// bytes: vpmaddubsw of interleaved (upper, lower) with (128 - w, w).
void blend7(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t groups, int32_t w) {
    const int64_t n = 8 * groups;
    if (w == 0 || w == 128) {
        memcpy(dst, w == 0 ? upper : lower, static_cast<size_t>(n));
        return;
    }
    const __m256i weights = _mm256_set1_epi16(static_cast<int16_t>((128 - w) | (w << 8)));
    const __m256i r = _mm256_set1_epi16(256);
    int64_t j = 0;
    for (; j + 32 <= n; j += 32) {
        const __m256i a = load32(upper + j), b = load32(lower + j);
        const __m256i lo = _mm256_mulhrs_epi16(_mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), weights), r);
        const __m256i hi = _mm256_mulhrs_epi16(_mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), weights), r);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + j), _mm256_packus_epi16(lo, hi));
    }
    const __m128i w128 = _mm256_castsi256_si128(weights), r128 = _mm256_castsi256_si128(r);
    for (; j < n; j += 8) {
        const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(upper + j));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(lower + j));
        const __m128i v = _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), w128), r128);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
}

// As the SSSE3 form: high halves of a * 2 (16384 - w) and b * 2 w, + 8 >> 4,
// clamped to 255 by the pack.
void blend88(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t groups, uint32_t w) {
    const __m256i wa = _mm256_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * (16384 - w))));
    const __m256i wb = _mm256_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * w)));
    const __m256i round = _mm256_set1_epi16(8);
    const auto blend = [&](const uint16_t *a, const uint16_t *b) {
        const __m256i s = _mm256_add_epi16(_mm256_mulhi_epu16(load32(a), wa), _mm256_mulhi_epu16(load32(b), wb));
        return _mm256_srli_epi16(_mm256_add_epi16(s, round), 4);
    };
    const int64_t n = 8 * groups;
    int64_t j = 0;
    for (; j + 32 <= n; j += 32) {
        const __m256i v = _mm256_packus_epi16(blend(upper + j, lower + j), blend(upper + j + 16, lower + j + 16));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + j), _mm256_permute4x64_epi64(v, 0xD8));
    }
    const __m128i wa128 = _mm256_castsi256_si128(wa), wb128 = _mm256_castsi256_si128(wb);
    for (; j < n; j += 8) {
        const __m128i s = _mm_add_epi16(_mm_mulhi_epu16(load16(upper + j), wa128), _mm_mulhi_epu16(load16(lower + j), wb128));
        const __m128i v = _mm_srli_epi16(_mm_add_epi16(s, _mm256_castsi256_si128(round)), 4);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
}

// "UINT88": one group per step, outputs 0 .. 3 in the low half and 4 .. 7
// in the high half, both reading the group's 32-byte window; taps and
// weights as in the SSSE3 form.
void uint88Groups(uint16_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m256i k = _mm256_setr_epi32(0, step, 2 * step, 3 * step, 4 * step, 5 * step, 6 * step, 7 * step);
    const __m256i spread = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12));
    const __m256i order = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3));
    const __m256i m15 = _mm256_set1_epi32(32767), low16 = _mm256_set1_epi32(0xFFFF), round = _mm256_set1_epi32(512);
    const __m256i zero = _mm256_setzero_si256();
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8_t *p = src + 2 * (x >> 15);
        const __m256i lo = _mm256_broadcastsi128_si256(load16(p)), hi = _mm256_broadcastsi128_si256(load16(p + 16));
        const __m256i rel = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(x & 32767)), k);
        const __m256i t = _mm256_slli_epi32(_mm256_srli_epi32(rel, 15), 1);
        const __m256i f = _mm256_and_si256(rel, m15);
        const __m256i w = _mm256_or_si256(_mm256_sub_epi32(m15, f), _mm256_slli_epi32(f, 16));
        const __m256i taps = gather32(lo, hi, _mm256_add_epi8(_mm256_shuffle_epi8(t, spread), order));
        const __m256i a = _mm256_unpacklo_epi8(taps, zero), b = _mm256_unpackhi_epi8(taps, zero);
        const __m256i ra = _mm256_srli_epi32(
            _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(a, _mm256_unpacklo_epi32(w, w)),
                                              _mm256_and_si256(a, low16)),
                             round),
            10);
        const __m256i rb = _mm256_srli_epi32(
            _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(b, _mm256_unpackhi_epi32(w, w)),
                                              _mm256_and_si256(b, low16)),
                             round),
            10);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + 16 * static_cast<ptrdiff_t>(g)),
                            _mm256_packs_epi32(ra, rb));
    }
}

}  // namespace

void pvx_ImageProc2_initLeavesAvx2(pvx_ResizeLeaves *leaves) {
    leaves->uint8Groups = uint8Groups;
    leaves->rgb888Groups = rgb888Groups;
    leaves->uint88Groups = uint88Groups;
    leaves->blend7 = blend7;
    leaves->blend88 = blend88;
}

#endif
