// SSSE3 twins of the resizer's row loops: the "UINT8" 8-output groups
// (pshufb gathers from a 16-byte window of the row), the "UINT88" middle
// phase (pshufb gathers, pmaddwd) and the 7-bit and "UINT88" vertical
// blends (16-bit lanes).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include <stddef.h>
#include <string.h>
#include <tmmintrin.h>

#include "resample/pvx_resize_twins.h"

namespace {

// The 16 bytes of a row of `sw` pixels from pixel s0; a row shorter than 16
// bytes is copied into a zeroed block instead of read past its end.
inline __m128i rowWindow(const uint8_t *src, int32_t sw, int64_t s0) {
    if (sw >= 16) return _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + s0));
    alignas(16) uint8_t block[16] = {0};
    memcpy(block, src, static_cast<size_t>(sw));
    return _mm_load_si128(reinterpret_cast<const __m128i *>(block));
}

}  // namespace

void pvx_ImageProc2_groups8Ssse3(uint8_t *out, const uint8_t *src, int32_t sw, int32_t groups, int64_t x,
                                 int64_t step) {
    const int64_t last = sw - 1;
    const int32_t step32 = static_cast<int32_t>(step);
    alignas(16) int16_t lane[8];
    for (int32_t k = 0; k < 8; ++k) lane[k] = static_cast<int16_t>((128 + k * step32) >> 8);
    const __m128i lanes = _mm_load_si128(reinterpret_cast<const __m128i *>(lane));
    const __m128i m127 = _mm_set1_epi16(127), one = _mm_set1_epi16(1), zeroHigh = _mm_set1_epi16(-32768);
    const __m128i w128 = _mm_set1_epi16(128), round = _mm_set1_epi16(64);
    for (int32_t g = 0; g < groups; ++g) {
        const int64_t xg = x + 8 * static_cast<int64_t>(g) * step;
        const int64_t base = xg >> 15;
        // Lane taps lie in base .. base + 8, clamped to the last pixel: the
        // window starts at base, or ends at the last pixel near the row end.
        const int64_t s0 = sw < 16 ? 0 : (base + 15 > last ? last - 15 : base);
        const __m128i win = rowWindow(src, sw, s0);
        const int64_t top = last - s0;
        // Past the row end every tap is the last pixel: any offset beyond it will do.
        const __m128i d = _mm_set1_epi16(static_cast<int16_t>(base - s0 < 255 ? base - s0 : 255));
        const __m128i lim = _mm_set1_epi16(static_cast<int16_t>(top < 32767 ? top : 32767));
        const __m128i o = _mm_add_epi16(lanes, _mm_set1_epi16(static_cast<int16_t>((xg & 32767) >> 8)));
        const __m128i q = _mm_add_epi16(_mm_srli_epi16(o, 7), d);
        const __m128i w = _mm_and_si128(o, m127);
        const __m128i i0 = _mm_min_epi16(q, lim), i1 = _mm_min_epi16(_mm_add_epi16(q, one), lim);
        // Index in the low byte, top bit in the high byte: 16-bit samples.
        const __m128i a = _mm_shuffle_epi8(win, _mm_or_si128(i0, zeroHigh));
        const __m128i b = _mm_shuffle_epi8(win, _mm_or_si128(i1, zeroHigh));
        const __m128i v = _mm_srli_epi16(
            _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, _mm_sub_epi16(w128, w)), _mm_mullo_epi16(b, w)), round), 7);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 8 * static_cast<ptrdiff_t>(g)), _mm_packus_epi16(v, v));
    }
}

// (a * (128 - w) + b * w + 64) >> 7 at most 32704: signed 16-bit lanes.
int64_t pvx_ImageProc2_blend7Ssse3(uint8_t *dst, const uint8_t *upper, const uint8_t *lower, int64_t count, int32_t w) {
    const int64_t n = count - count % 8;
    const __m128i wa = _mm_set1_epi16(static_cast<int16_t>(128 - w)), wb = _mm_set1_epi16(static_cast<int16_t>(w));
    const __m128i zero = _mm_setzero_si128(), round = _mm_set1_epi16(64);
    const auto blend = [&](__m128i a, __m128i b) {
        return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, wa), _mm_mullo_epi16(b, wb)), round), 7);
    };
    int64_t j = 0;
    for (; j + 16 <= n; j += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(upper + j));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lower + j));
        const __m128i lo = blend(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        const __m128i hi = blend(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(lo, hi));
    }
    if (j < n) {
        const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(upper + j));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(lower + j));
        const __m128i v = blend(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
    return n;
}

// (a * (16384 - w)) >> 15 is the high half of a * 2 * (16384 - w), and
// 2 * (16384 - w) and 2 * w fit 16 unsigned bits. The sum is at most 32767,
// so + 8 >> 4 stays exact in unsigned lanes; packus clamps to 255.
int64_t pvx_ImageProc2_blend88Ssse3(uint8_t *dst, const uint16_t *upper, const uint16_t *lower, int64_t count,
                                    uint32_t w) {
    const int64_t n = count - count % 8;
    const __m128i wa = _mm_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * (16384 - w))));
    const __m128i wb = _mm_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(2 * w)));
    const __m128i round = _mm_set1_epi16(8);
    const auto blend = [&](const uint16_t *a, const uint16_t *b) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b));
        return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mulhi_epu16(va, wa), _mm_mulhi_epu16(vb, wb)), round), 4);
    };
    int64_t j = 0;
    for (; j + 16 <= n; j += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + j),
                         _mm_packus_epi16(blend(upper + j, lower + j), blend(upper + j + 8, lower + j + 8)));
    if (j < n) {
        const __m128i v = blend(upper + j, lower + j);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + j), _mm_packus_epi16(v, v));
    }
    return n;
}

// Eight "UINT88" outputs (16 samples) at a time. Output k of a group lies at
// rel = frac + k * step from the group's base pixel: taps at bytes
// t = 2 * (rel >> 15) and t + 2 (channel 0), t + 1 and t + 3 (channel 1) of
// a window of the row. A sample is p0 * (32768 - f) + p1 * f = p0 * (32767 -
// f) + p1 * f + p0: pmaddwd of (p0, p1) with (32767 - f, f), both below
// 32768, plus p0; + 512 >> 10 is at most 8160.
int32_t pvx_ImageProc2_middle88Ssse3(uint16_t *out, const uint8_t *src, int32_t sw, int32_t count, int64_t x,
                                     int64_t step) {
    const int64_t end = static_cast<int64_t>(sw - 1) * 32768, rowBytes = 2 * static_cast<int64_t>(sw);
    // The 8th output's taps reach byte 2 * ((32767 + 7 * step) >> 15) + 3 of the window.
    if (step < 0 || 7 * step + 32767 >= 15 * 32768) return 0;
    const bool wide = 7 * step + 32767 >= 7 * 32768;
    const int64_t width = wide ? 32 : 16;
    if (rowBytes < width) return 0;
    const int32_t s32 = static_cast<int32_t>(step);
    const __m128i k0 = _mm_setr_epi32(0, s32, 2 * s32, 3 * s32),
                  k1 = _mm_setr_epi32(4 * s32, 5 * s32, 6 * s32, 7 * s32);
    const __m128i spread = _mm_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12);
    const __m128i order = _mm_setr_epi8(0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3, 0, 2, 1, 3);
    const __m128i m15 = _mm_set1_epi32(32767), low16 = _mm_set1_epi32(0xFFFF), round = _mm_set1_epi32(512);
    const __m128i zero = _mm_setzero_si128();
    int32_t done = 0;
    while (done + 8 <= count && x + 7 * step < end) {
        const int64_t base = x >> 15;
        int64_t start = 2 * base;
        if (start + width > rowBytes) start = rowBytes - width;
        const __m128i w0 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + start));
        const __m128i w1 = wide ? _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + start + 16)) : zero;
        const __m128i frac = _mm_set1_epi32(static_cast<int32_t>(x & 32767));
        const __m128i shift = _mm_set1_epi32(static_cast<int32_t>(2 * base - start));
        for (int h = 0; h < 2; ++h) {
            const __m128i rel = _mm_add_epi32(frac, h == 0 ? k0 : k1);
            const __m128i t = _mm_add_epi32(_mm_slli_epi32(_mm_srli_epi32(rel, 15), 1), shift);
            const __m128i f = _mm_and_si128(rel, m15);
            const __m128i w = _mm_or_si128(_mm_sub_epi32(m15, f), _mm_slli_epi32(f, 16));
            const __m128i m = _mm_add_epi8(_mm_shuffle_epi8(t, spread), order);
            __m128i taps;
            if (wide) {
                const __m128i lo = _mm_shuffle_epi8(w0, _mm_adds_epu8(m, _mm_set1_epi8(0x70)));
                taps = _mm_or_si128(lo, _mm_shuffle_epi8(w1, _mm_sub_epi8(m, _mm_set1_epi8(16))));
            } else {
                taps = _mm_shuffle_epi8(w0, m);
            }
            const __m128i a = _mm_unpacklo_epi8(taps, zero), b = _mm_unpackhi_epi8(taps, zero);
            const __m128i ra = _mm_srli_epi32(
                _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(a, _mm_unpacklo_epi32(w, w)), _mm_and_si128(a, low16)),
                              round),
                10);
            const __m128i rb = _mm_srli_epi32(
                _mm_add_epi32(_mm_add_epi32(_mm_madd_epi16(b, _mm_unpackhi_epi32(w, w)), _mm_and_si128(b, low16)),
                              round),
                10);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2 * (static_cast<ptrdiff_t>(done) + 4 * h)),
                             _mm_packs_epi32(ra, rb));
        }
        done += 8;
        x += 8 * step;
    }
    return done;
}

#endif
