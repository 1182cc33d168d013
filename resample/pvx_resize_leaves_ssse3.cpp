// SSSE3 leaves of the resizer. Horizontal 7-bit groups gather each lane's
// tap pair (a, b) with pshufb from a window at the group's base pixel and
// weigh it with pmaddubsw: a (128 - w) + b w = a (127 - w) + b w + a keeps
// both weights in signed bytes. (s + 64) >> 7 is pmulhrsw by 256.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include <stddef.h>
#include <string.h>
#include <tmmintrin.h>

#include "resample/pvx_resize_leaves.h"

namespace {

inline __m128i load16(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

// Lane offsets (128 + k step) >> 8 of the 8 lanes, in 16-bit lanes (k step
// needs more than 16 bits).
inline __m128i laneOffsets(int32_t step) {
    const auto lane = [step](int32_t k) { return static_cast<int16_t>((128 + k * step) >> 8); };
    return _mm_setr_epi16(lane(0), lane(1), lane(2), lane(3), lane(4), lane(5), lane(6), lane(7));
}

// (ab . (127 - w, w) + a + 64) >> 7 for 8 interleaved tap pairs.
inline __m128i weigh(__m128i ab, __m128i weights) {
    const __m128i s = _mm_add_epi16(_mm_maddubs_epi16(ab, weights), _mm_and_si128(ab, _mm_set1_epi16(0xFF)));
    return _mm_mulhrs_epi16(s, _mm_set1_epi16(256));
}

// Byte pairs (q, q + 1) and weights (127 - w, w) of the 8 lanes of the group at xg.
struct Taps {
    __m128i q, pairs, weights;
};
inline Taps groupTaps(__m128i lanes, int64_t xg) {
    const __m128i o = _mm_add_epi16(lanes, _mm_set1_epi16(static_cast<int16_t>((xg & 32767) >> 8)));
    const __m128i q = _mm_srli_epi16(o, 7), w = _mm_and_si128(o, _mm_set1_epi16(127));
    Taps t;
    t.q = q;
    t.pairs = _mm_add_epi16(_mm_mullo_epi16(q, _mm_set1_epi16(257)), _mm_set1_epi16(256));
    t.weights = _mm_add_epi16(_mm_mullo_epi16(w, _mm_set1_epi16(255)), _mm_set1_epi16(127));
    return t;
}

void uint8Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m128i lanes = laneOffsets(step);
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const Taps t = groupTaps(lanes, x);
        const __m128i v = weigh(_mm_shuffle_epi8(load16(src + (x >> 15)), t.pairs), t.weights);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 8 * static_cast<ptrdiff_t>(g)), _mm_packus_epi16(v, v));
    }
}

// Bytes idx (0 .. 31) of the 32-byte window (lo, hi).
inline __m128i gather32(__m128i lo, __m128i hi, __m128i idx) {
    return _mm_or_si128(_mm_shuffle_epi8(lo, _mm_adds_epu8(idx, _mm_set1_epi8(0x70))),
                        _mm_shuffle_epi8(hi, _mm_sub_epi8(idx, _mm_set1_epi8(16))));
}

// "RGB888": sample j (0 .. 23) of a group is channel j % 3 of lane j / 3.
// Per block of 8 samples: which lane each byte pair takes, the channel
// offsets of the pair's taps (c, c + 3), and the lane's weight bytes.
void rgb888Groups(uint8_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m128i lanes = laneOffsets(step);
    const __m128i laneOf[3] = {_mm_setr_epi8(0, 0, 0, 0, 0, 0, 2, 2, 2, 2, 2, 2, 4, 4, 4, 4),
                               _mm_setr_epi8(4, 4, 6, 6, 6, 6, 6, 6, 8, 8, 8, 8, 8, 8, 10, 10),
                               _mm_setr_epi8(10, 10, 10, 10, 12, 12, 12, 12, 12, 12, 14, 14, 14, 14, 14, 14)};
    const __m128i tapOf[3] = {_mm_setr_epi8(0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4),
                              _mm_setr_epi8(2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3),
                              _mm_setr_epi8(1, 4, 2, 5, 0, 3, 1, 4, 2, 5, 0, 3, 1, 4, 2, 5)};
    const __m128i weightOf[3] = {_mm_setr_epi8(0, 1, 0, 1, 0, 1, 2, 3, 2, 3, 2, 3, 4, 5, 4, 5),
                                 _mm_setr_epi8(4, 5, 6, 7, 6, 7, 6, 7, 8, 9, 8, 9, 8, 9, 10, 11),
                                 _mm_setr_epi8(10, 11, 10, 11, 12, 13, 12, 13, 12, 13, 14, 15, 14, 15, 14, 15)};
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8_t *p = src + 3 * (x >> 15);
        const __m128i lo = load16(p), hi = load16(p + 16);
        const Taps t = groupTaps(lanes, x);
        const __m128i q3 = _mm_mullo_epi16(t.q, _mm_set1_epi16(3));   // lane's first byte, low byte of each lane
        __m128i v[3];
        for (int r = 0; r < 3; ++r) {
            const __m128i idx = _mm_add_epi8(_mm_shuffle_epi8(q3, laneOf[r]), tapOf[r]);
            v[r] = weigh(gather32(lo, hi, idx), _mm_shuffle_epi8(t.weights, weightOf[r]));
        }
        uint8_t *o = out + 24 * static_cast<ptrdiff_t>(g);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o), _mm_packus_epi16(v[0], v[1]));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(o + 16), _mm_packus_epi16(v[2], v[2]));
    }
}

// Weights 0 and 128 pick one row; between them both weights fit signed
// bytes: pmaddubsw of interleaved (upper, lower) with (128 - w, w).
void blend7(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t groups, int32_t w) {
    const int64_t n = 8 * groups;
    if (w == 0 || w == 128) {
        memcpy(dst, w == 0 ? upper : lower, static_cast<size_t>(n));
        return;
    }
    const __m128i weights = _mm_set1_epi16(static_cast<int16_t>((128 - w) | (w << 8)));
    const __m128i r = _mm_set1_epi16(256);
    int64_t j = 0;
    for (; j + 16 <= n; j += 16) {
        const __m128i a = load16(upper + j), b = load16(lower + j);
        const __m128i lo = _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), weights), r);
        const __m128i hi = _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_unpackhi_epi8(a, b), weights), r);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(lo, hi));
    }
    if (j < n) {
        const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(upper + j));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(lower + j));
        const __m128i v = _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), weights), r);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
}

// (a * (16384 - w)) >> 15 is the high half of a * 2 * (16384 - w), and
// 2 * (16384 - w) and 2 * w fit 16 unsigned bits. The sum is at most 32767,
// so + 8 >> 4 stays exact in unsigned lanes; packus clamps to 255.
void blend88(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t groups, uint32_t w) {
    const __m128i wa = _mm_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * (16384 - w))));
    const __m128i wb = _mm_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * w)));
    const auto blend = [&](const uint16_t *a, const uint16_t *b) {
        const __m128i s = _mm_add_epi16(_mm_mulhi_epu16(load16(a), wa), _mm_mulhi_epu16(load16(b), wb));
        return _mm_srli_epi16(_mm_add_epi16(s, _mm_set1_epi16(8)), 4);
    };
    const int64_t n = 8 * groups;
    int64_t j = 0;
    for (; j + 16 <= n; j += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + j),
                         _mm_packus_epi16(blend(upper + j, lower + j), blend(upper + j + 8, lower + j + 8)));
    if (j < n) {
        const __m128i v = blend(upper + j, lower + j);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
}

// "UINT88": output k of a group lies at rel = frac + k * step from the
// group's base pixel: taps at bytes t = 2 * (rel >> 15) and t + 2 (channel
// 0), t + 1 and t + 3 (channel 1) of the 32-byte window. A sample is
// p0 * (32768 - f) + p1 * f = p0 * (32767 - f) + p1 * f + p0: pmaddwd of
// (p0, p1) with (32767 - f, f), both below 32768, plus p0; + 512 >> 10 is
// at most 8160.
void uint88Groups(uint16_t *out, const uint8_t *src, int32_t groups, int64_t x, int32_t step) {
    const __m128i k0 = _mm_setr_epi32(0, step, 2 * step, 3 * step),
                  k1 = _mm_setr_epi32(4 * step, 5 * step, 6 * step, 7 * step);
    const __m128i spread = _mm_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12);
    const __m128i order = _mm_setr_epi8(0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3);
    const __m128i m15 = _mm_set1_epi32(32767), low16 = _mm_set1_epi32(0xFFFF), round = _mm_set1_epi32(512);
    const __m128i zero = _mm_setzero_si128();
    for (int32_t g = 0; g < groups; ++g, x += 8 * static_cast<int64_t>(step)) {
        const uint8_t *p = src + 2 * (x >> 15);
        const __m128i lo = load16(p), hi = load16(p + 16);
        const __m128i frac = _mm_set1_epi32(static_cast<int32_t>(x & 32767));
        for (int h = 0; h < 2; ++h) {
            const __m128i rel = _mm_add_epi32(frac, h == 0 ? k0 : k1);
            const __m128i t = _mm_slli_epi32(_mm_srli_epi32(rel, 15), 1);
            const __m128i f = _mm_and_si128(rel, m15);
            const __m128i w = _mm_or_si128(_mm_sub_epi32(m15, f), _mm_slli_epi32(f, 16));
            const __m128i taps = gather32(lo, hi, _mm_add_epi8(_mm_shuffle_epi8(t, spread), order));
            const __m128i a = _mm_unpacklo_epi8(taps, zero), b = _mm_unpackhi_epi8(taps, zero);
            const __m128i ra = _mm_srli_epi32(
                _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(a, _mm_unpacklo_epi32(w, w)), _mm_and_si128(a, low16)),
                              round),
                10);
            const __m128i rb = _mm_srli_epi32(
                _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(b, _mm_unpackhi_epi32(w, w)), _mm_and_si128(b, low16)),
                              round),
                10);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16 * static_cast<ptrdiff_t>(g) + 8 * h),
                             _mm_packs_epi32(ra, rb));
        }
    }
}

}  // namespace

void pvx_ImageProc2_initLeavesSsse3(pvx_ResizeLeaves *leaves) {
    leaves->uint8Groups = uint8Groups;
    leaves->rgb888Groups = rgb888Groups;
    leaves->uint88Groups = uint88Groups;
    leaves->blend7 = blend7;
    leaves->blend88 = blend88;
}

#endif
