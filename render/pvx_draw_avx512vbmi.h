// Small helpers shared by the AVX-512 VBMI span leaves. Included only by
// files built with the AVX-512 VBMI flags; internal linkage, so each leaf
// file keeps its own copy.
#pragma once

#include <immintrin.h>
#include <stdint.h>

namespace pvx_draw {
namespace {

// Bits t in [a, b] of a 64-bit mask (empty when the range misses 0..63).
inline uint64_t rangeBits(int32_t a, int32_t b) {
    if (a < 0) a = 0;
    if (b > 63) b = 63;
    if (b < a) return 0;
    return (~0ull >> (63 - (b - a))) << a;
}

// One aligned 64-byte table row.
inline __m512i load64(const uint8_t *p) { return _mm512_load_si512(reinterpret_cast<const void *>(p)); }

// The even bytes of a 64-byte register.
constexpr __mmask64 kEven = 0x5555555555555555ull;

}  // namespace
}  // namespace pvx_draw
