// SSSE3 twins of the unrotated bilinear span (4:2:0 luma and chroma).
//
// A 16-pixel group's taps lie within 32 bytes of its first pixel's column,
// so each source row is loaded as one or two 16-byte windows and the taps
// are gathered with pshufb: a pair (p0, p1) per output, weighted by
// (16 - f, f) with pmaddubsw, then blended vertically in 16-bit lanes
// ((16 - fy) * h0 + fy * h1 + 128) >> 8 (at most 65408: unsigned 16 bits).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include <tmmintrin.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// 16 bytes of `row` from column `base`; bytes outside [lo, hi] are zero.
inline __m128i window(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    if (windowInside(base, 16, lo, hi)) return _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base));
    alignas(16) uint8_t block[16];
    windowPart(block, row, base, 16, lo, hi);
    return _mm_load_si128(reinterpret_cast<const __m128i *>(block));
}

// A 32-byte window as two registers; a gather mask in 0..31 picks from it.
struct Window2 {
    __m128i lo, hi;
};
inline Window2 window2(const uint8_t *row, int32_t base, int32_t lo, int32_t hi) {
    return Window2{window(row, base, lo, hi), window(row, base + 16, lo, hi)};
}

// Masks that split indices 0..31 between the two halves: the first keeps
// 0..15 (16..31 get the top bit and read as zero), the second 16..31.
struct Mask2 {
    __m128i lo, hi;
};
inline Mask2 split(__m128i m) {
    return Mask2{_mm_adds_epu8(m, _mm_set1_epi8(0x70)), _mm_sub_epi8(m, _mm_set1_epi8(16))};
}
inline __m128i gather(const Window2 &w, const Mask2 &m) {
    return _mm_or_si128(_mm_shuffle_epi8(w.lo, m.lo), _mm_shuffle_epi8(w.hi, m.hi));
}

// ((16 - fy) * h0 + fy * h1 + 128) >> 8 of two 8-lane halves, packed to bytes.
inline __m128i vertical(__m128i h0a, __m128i h0b, __m128i h1a, __m128i h1b, __m128i wy0, __m128i wy1) {
    const __m128i round = _mm_set1_epi16(128);
    const __m128i a = _mm_srli_epi16(
        _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(h0a, wy0), _mm_mullo_epi16(h1a, wy1)), round), 8);
    const __m128i b = _mm_srli_epi16(
        _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(h0b, wy0), _mm_mullo_epi16(h1b, wy1)), round), 8);
    return _mm_packus_epi16(a, b);
}

// Horizontal sums (16 - f) * p0 + f * p1 of one luma row of a group.
struct Row16 {
    __m128i a, b;   // pixels 0..7, 8..15
};

struct LumaGroup {
    __m128i pairs0, pairs1;   // gather masks (p0, p1) of pixels 0..7 and 8..15
    Mask2 wide0, wide1;       // the same split over two windows
    __m128i w0, w1;           // weights (16 - f, f)
};

inline LumaGroup lumaGroup(__m128i offLo, __m128i offHi, int32_t gf, bool wide) {
    const __m128i g = _mm_set1_epi16(static_cast<int16_t>(gf));
    const __m128i tLo = _mm_add_epi16(offLo, g), tHi = _mm_add_epi16(offHi, g);
    const __m128i idx = _mm_packus_epi16(_mm_srli_epi16(tLo, 4), _mm_srli_epi16(tHi, 4));
    const __m128i m15 = _mm_set1_epi16(15);
    const __m128i f = _mm_packus_epi16(_mm_and_si128(tLo, m15), _mm_and_si128(tHi, m15));
    const __m128i idx1 = _mm_add_epi8(idx, _mm_set1_epi8(1));
    const __m128i g16 = _mm_sub_epi8(_mm_set1_epi8(16), f);
    LumaGroup lg;
    lg.pairs0 = _mm_unpacklo_epi8(idx, idx1);
    lg.pairs1 = _mm_unpackhi_epi8(idx, idx1);
    if (wide) {
        lg.wide0 = split(lg.pairs0);
        lg.wide1 = split(lg.pairs1);
    }
    lg.w0 = _mm_unpacklo_epi8(g16, f);
    lg.w1 = _mm_unpackhi_epi8(g16, f);
    return lg;
}

template <bool Wide>
inline Row16 lumaRow(const uint8_t *row, int32_t base, const NoRotPlan &p, const LumaGroup &lg) {
    Row16 h;
    if constexpr (Wide) {
        const Window2 w = window2(row, base, p.lumaLo, p.lumaHi);
        h.a = _mm_maddubs_epi16(gather(w, lg.wide0), lg.w0);
        h.b = _mm_maddubs_epi16(gather(w, lg.wide1), lg.w1);
    } else {
        const __m128i w = window(row, base, p.lumaLo, p.lumaHi);
        h.a = _mm_maddubs_epi16(_mm_shuffle_epi8(w, lg.pairs0), lg.w0);
        h.b = _mm_maddubs_epi16(_mm_shuffle_epi8(w, lg.pairs1), lg.w1);
    }
    return h;
}

// Luma of the groups' rows y and y+1.
template <bool Wide>
inline void lumaGroupRows(const SpanArgs &a, const NoRotPlan &p, const LumaGroup &lg, int32_t base, int32_t k) {
    const SrcPlanes &s = *a.src;
    const __m128i wy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.fy)), wy1 = _mm_set1_epi16(static_cast<int16_t>(p.fy));
    const uint8_t *r1 = s.y + static_cast<ptrdiff_t>(p.r + 1) * s.yPitch;
    const Row16 h1 = lumaRow<Wide>(r1, base, p, lg);
    if (a.dy0 != nullptr) {
        const Row16 h0 = lumaRow<Wide>(r1 - s.yPitch, base, p, lg);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dy0 + a.dx + k), vertical(h0.a, h0.b, h1.a, h1.b, wy0, wy1));
    }
    if (a.dy1 != nullptr) {
        const Row16 h2 = lumaRow<Wide>(r1 + s.yPitch, base, p, lg);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dy1 + a.dx + k), vertical(h1.a, h1.b, h2.a, h2.b, wy0, wy1));
    }
}

// Offsets of a group's 16 pixels and of its 8 chroma pixels (odd or even
// ones) as 16-bit lanes.
struct Offsets {
    __m128i lo, hi, chroma;
};
inline Offsets offsets(const SpanArgs &a, int32_t par) {
    alignas(16) int16_t c[8];
    for (int32_t j = 0; j < 8; ++j) c[j] = static_cast<int16_t>(a.off16[par + 2 * j]);
    const __m128i *o = reinterpret_cast<const __m128i *>(a.off16);
    Offsets r;
    r.lo = _mm_packs_epi32(_mm_loadu_si128(o), _mm_loadu_si128(o + 1));
    r.hi = _mm_packs_epi32(_mm_loadu_si128(o + 2), _mm_loadu_si128(o + 3));
    r.chroma = _mm_load_si128(reinterpret_cast<const __m128i *>(c));
    return r;
}

// Chroma sample indices (from G >> 5) and weights of a group's 8 chroma
// pixels: ((G & 31) + offset) >> 1 in 1/16 chroma sample.
inline void chromaTaps(__m128i offC, int32_t g31, __m128i *idx, __m128i *f) {
    const __m128i rc = _mm_srli_epi16(_mm_add_epi16(offC, _mm_set1_epi16(static_cast<int16_t>(g31))), 1);
    *idx = _mm_packus_epi16(_mm_srli_epi16(rc, 4), _mm_setzero_si128());
    *f = _mm_packus_epi16(_mm_and_si128(rc, _mm_set1_epi16(15)), _mm_setzero_si128());
}

template <bool Wide>
int32_t noRotSemiplanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const __m128i cwy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.cfy)), cwy1 = _mm_set1_epi16(static_cast<int16_t>(p.cfy));
    const uint8_t *c0 = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch;
    const uint8_t *c1 = c0 + s.c0Pitch;
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t G = twinAdd(a.sx, twinMul(k, a.ux)) >> 11;
        lumaGroupRows<Wide>(a, p, lumaGroup(o.lo, o.hi, G & 15, Wide), G >> 4, k);
        if (!p.chroma) continue;
        // Output byte b is channel b & 1 of chroma pixel b >> 1: taps at
        // bytes 2 * idx + (b & 1) and two bytes further.
        __m128i idx, f;
        chromaTaps(o.chroma, G & 31, &idx, &f);
        const __m128i idx2 = _mm_unpacklo_epi8(idx, idx);
        const __m128i t0 = _mm_add_epi8(_mm_add_epi8(idx2, idx2), _mm_set1_epi16(0x0100));
        const __m128i t1 = _mm_add_epi8(t0, _mm_set1_epi8(2));
        const Mask2 m0 = split(_mm_unpacklo_epi8(t0, t1)), m1 = split(_mm_unpackhi_epi8(t0, t1));
        const __m128i f2 = _mm_unpacklo_epi8(f, f), g2 = _mm_sub_epi8(_mm_set1_epi8(16), f2);
        const __m128i w0 = _mm_unpacklo_epi8(g2, f2), w1 = _mm_unpackhi_epi8(g2, f2);
        const int32_t base = 2 * (G >> 5);
        const Window2 u0 = window2(c0, base, p.chromaLo, p.chromaHi), u1 = window2(c1, base, p.chromaLo, p.chromaHi);
        const __m128i out = vertical(_mm_maddubs_epi16(gather(u0, m0), w0), _mm_maddubs_epi16(gather(u0, m1), w1),
                                     _mm_maddubs_epi16(gather(u1, m0), w0), _mm_maddubs_epi16(gather(u1, m1), w1),
                                     cwy0, cwy1);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(a.dc00 + ((a.dx + k + p.par) >> 1) * 2), out);
    }
    return 16 * p.groups;
}

template <bool Wide>
int32_t noRotPlanar(const SpanArgs &a, const NoRotPlan &p) {
    const SrcPlanes &s = *a.src;
    const Offsets o = offsets(a, p.par);
    const __m128i cwy0 = _mm_set1_epi16(static_cast<int16_t>(16 - p.cfy)), cwy1 = _mm_set1_epi16(static_cast<int16_t>(p.cfy));
    const uint8_t *u0 = s.c0 + static_cast<ptrdiff_t>(p.cr) * s.c0Pitch, *u1 = u0 + s.c0Pitch;
    const uint8_t *v0 = s.c1 + static_cast<ptrdiff_t>(p.cr) * s.c1Pitch, *v1 = v0 + s.c1Pitch;
    for (int32_t g = 0; g < p.groups; ++g) {
        const int32_t k = 16 * g;
        const int32_t G = twinAdd(a.sx, twinMul(k, a.ux)) >> 11;
        lumaGroupRows<Wide>(a, p, lumaGroup(o.lo, o.hi, G & 15, Wide), G >> 4, k);
        if (!p.chroma) continue;
        __m128i idx, f;
        chromaTaps(o.chroma, G & 31, &idx, &f);
        const __m128i m = _mm_unpacklo_epi8(idx, _mm_add_epi8(idx, _mm_set1_epi8(1)));
        const __m128i w = _mm_unpacklo_epi8(_mm_sub_epi8(_mm_set1_epi8(16), f), f);
        const int32_t base = G >> 5;
        const auto taps = [&](const uint8_t *row) {
            return _mm_maddubs_epi16(_mm_shuffle_epi8(window(row, base, p.chromaLo, p.chromaHi), m), w);
        };
        const __m128i out = vertical(taps(u0), taps(v0), taps(u1), taps(v1), cwy0, cwy1);
        const ptrdiff_t co = (a.dx + k + p.par) >> 1;
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc00 + co), out);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(a.dc01 + co), _mm_unpackhi_epi64(out, out));
    }
    return 16 * p.groups;
}

}  // namespace

int32_t spanNoRotSemiplanarSsse3(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, 2, 31, &p)) return 0;
    return p.wideLuma ? noRotSemiplanar<true>(a, p) : noRotSemiplanar<false>(a, p);
}

int32_t spanNoRotPlanarSsse3(const SpanArgs &a) {
    NoRotPlan p;
    if (!planNoRot(a, 1, 15, &p)) return 0;
    return p.wideLuma ? noRotPlanar<true>(a, p) : noRotPlanar<false>(a, p);
}

}  // namespace pvx_draw

#endif
