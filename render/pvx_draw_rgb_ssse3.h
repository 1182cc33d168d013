// The SSSE3 arithmetic of the three-bytes-a-pixel spans ("RGB888",
// "BGR888"), for rgbGroups (pvx_draw_span_plan.h): per pixel, the 2x2
// neighbourhood is two runs of 6 bytes (p0 and p1 of a row, three channels
// each), fetched with one 8-byte load (a copy of 6 bytes at the right edge
// of the taps, so that nothing past the last tap is read). Two pixels share
// a register: pshufb pairs each channel's p0 and p1, pmaddubsw weights them
// by (16 - fx, fx), and the rows are blended in 16-bit lanes by (16 - fy,
// fy). When row y+1 reads the row below row y's taps (unrotated, general),
// the middle row's sums serve both rows.
//
// Included by leaf files built with SSSE3 or a later set (the AVX2 leaves
// hand it the spans their windows do not fit); internal linkage, so each
// includer compiles its own copy with its own flags.
#pragma once

#include <string.h>
#include <tmmintrin.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {
namespace rgb_ssse3 {

// p0 and p1 of a row (bytes 0..5) from `p`; bytes 6 and 7 are not used.
inline __m128i sixBytes(const uint8_t *p, bool whole) {
    if (whole) return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
    alignas(8) uint8_t b[8] = {0};
    memcpy(b, p, 6);
    return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(b));
}

// Horizontal sums of two pixels on the row `offset` bytes below their taps:
// words 0..2 the first pixel's channels, 4..6 the second's.
inline __m128i rowSums(const Tap &a, const Tap &b, ptrdiff_t offset, __m128i wx) {
    const __m128i pairs = _mm_setr_epi8(0, 3, 1, 4, 2, 5, -128, -128, 8, 11, 9, 12, 10, 13, -128, -128);
    const __m128i v = _mm_unpacklo_epi64(sixBytes(a.p + offset, a.whole), sixBytes(b.p + offset, b.whole));
    return _mm_maddubs_epi16(_mm_shuffle_epi8(v, pairs), wx);
}
inline __m128i twoWords(int32_t a, int32_t b) {
    return _mm_unpacklo_epi64(_mm_set1_epi16(static_cast<int16_t>(a)), _mm_set1_epi16(static_cast<int16_t>(b)));
}
template <bool Round>
inline __m128i blend(__m128i top, __m128i bottom, __m128i fy) {
    __m128i v = _mm_add_epi16(_mm_mullo_epi16(top, _mm_sub_epi16(_mm_set1_epi16(16), fy)), _mm_mullo_epi16(bottom, fy));
    if constexpr (Round) v = _mm_add_epi16(v, _mm_set1_epi16(128));
    return _mm_srli_epi16(v, 8);
}
// Four pixels' words (two registers of two) to 12 bytes at `out` (16 written).
inline void store12(uint8_t *out, __m128i ab, __m128i cd) {
    const __m128i compact = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -128, -128, -128, -128);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm_shuffle_epi8(_mm_packus_epi16(ab, cd), compact));
}

// 16 pixels of row y from `t0` and, with `t1` null, of row y+1 from the
// rows below the same taps (d1); with `t1`, row y+1 from its own taps.
struct Arith {
template <bool Round>
static void drawGroup(uint8_t *d0, uint8_t *d1, const Tap *t0, const Tap *t1, ptrdiff_t pitch) {
    alignas(16) uint8_t b0[64], b1[64];
    for (int q = 0; q < 16; q += 4) {
        __m128i o0[2] = {_mm_setzero_si128(), _mm_setzero_si128()}, o1[2] = {o0[0], o0[0]};
        for (int h = 0; h < 2; ++h) {
            const Tap &a = t0[q + 2 * h], &b = t0[q + 2 * h + 1];
            const __m128i wx = twoWords((16 - a.fx) | a.fx << 8, (16 - b.fx) | b.fx << 8);
            const __m128i fy = twoWords(a.fy, b.fy);
            if (d0 != nullptr || t1 == nullptr) {   // t0 are taps of a drawn row
                const __m128i mid = rowSums(a, b, pitch, wx);
                if (d0 != nullptr) o0[h] = blend<Round>(rowSums(a, b, 0, wx), mid, fy);
                if (d1 != nullptr && t1 == nullptr) o1[h] = blend<Round>(mid, rowSums(a, b, 2 * pitch, wx), fy);
            }
            if (d1 != nullptr && t1 != nullptr) {
                const Tap &c = t1[q + 2 * h], &e = t1[q + 2 * h + 1];
                const __m128i wx1 = twoWords((16 - c.fx) | c.fx << 8, (16 - e.fx) | e.fx << 8);
                o1[h] = blend<Round>(rowSums(c, e, 0, wx1), rowSums(c, e, pitch, wx1), twoWords(c.fy, e.fy));
            }
        }
        if (d0 != nullptr) store12(b0 + 3 * q, o0[0], o0[1]);
        if (d1 != nullptr) store12(b1 + 3 * q, o1[0], o1[1]);
    }
    if (d0 != nullptr) memcpy(d0, b0, 48);
    if (d1 != nullptr) memcpy(d1, b1, 48);
}
};

}  // namespace rgb_ssse3
}  // namespace
}  // namespace pvx_draw
