// SSSE3 leaves of the three-bytes-a-pixel spans ("RGB888", "BGR888"):
// unrotated, general and parallelogram.
//
// Each pixel's 2x2 neighbourhood is two runs of 6 bytes (p0 and p1 of a
// row, three channels each), fetched per pixel with one 8-byte load (two
// smaller ones at the right edge of the taps, so that nothing past the last
// tap is read). Two pixels share a register: pshufb pairs each channel's
// p0 and p1, pmaddubsw weights them by (16 - fx, fx), and the two rows are
// blended in 16-bit lanes by (16 - fy, fy).
#if (defined(__x86_64__) || defined(__i386__)) && defined(__SSSE3__)

#include <string.h>
#include <tmmintrin.h>

#include "render/pvx_draw_span_plan.h"

namespace pvx_draw {
namespace {

// p0 and p1 of a row from `p`; the two bytes above them are not used.
inline int64_t sixBytes(const uint8_t *p, bool whole) {
    uint64_t v = 0;
    if (whole) {
        memcpy(&v, p, 8);
    } else {
        uint32_t a;
        uint16_t b;
        memcpy(&a, p, 4);
        memcpy(&b, p + 4, 2);
        v = a | static_cast<uint64_t>(b) << 32;
    }
    return static_cast<int64_t>(v);
}

// One pixel's taps on one output row: the top row at its column, the
// weights, and whether 8 bytes may be loaded there.
struct Tap {
    const uint8_t *p;
    int32_t fx, fy;
    bool whole;
};

// 6 output bytes of two pixels (8 written).
template <bool Round>
inline void twoPixels(uint8_t *out, const Tap &a, const Tap &b, ptrdiff_t pitch) {
    const __m128i pairs = _mm_setr_epi8(0, 3, 1, 4, 2, 5, 8, 11, 9, 12, 10, 13, -128, -128, -128, -128);
    const __m128i top = _mm_set_epi64x(sixBytes(b.p, b.whole), sixBytes(a.p, a.whole));
    const __m128i bottom = _mm_set_epi64x(sixBytes(b.p + pitch, b.whole), sixBytes(a.p + pitch, a.whole));
    const int16_t wa = static_cast<int16_t>((16 - a.fx) | a.fx << 8), wb = static_cast<int16_t>((16 - b.fx) | b.fx << 8);
    const __m128i wx = _mm_setr_epi16(wa, wa, wa, wb, wb, wb, 0, 0);
    const __m128i t = _mm_maddubs_epi16(_mm_shuffle_epi8(top, pairs), wx);
    const __m128i u = _mm_maddubs_epi16(_mm_shuffle_epi8(bottom, pairs), wx);
    const int16_t fa = static_cast<int16_t>(a.fy), fb = static_cast<int16_t>(b.fy);
    const __m128i fy = _mm_setr_epi16(fa, fa, fa, fb, fb, fb, 0, 0);
    __m128i v = _mm_add_epi16(_mm_mullo_epi16(t, _mm_sub_epi16(_mm_set1_epi16(16), fy)), _mm_mullo_epi16(u, fy));
    if constexpr (Round) v = _mm_add_epi16(v, _mm_set1_epi16(128));
    v = _mm_srli_epi16(v, 8);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out), _mm_packus_epi16(v, v));
}

template <bool Round>
inline void drawGroup(uint8_t *d, const Tap *taps, ptrdiff_t pitch) {
    alignas(16) uint8_t block[56];
    for (int i = 0; i < 16; i += 2) twoPixels<Round>(block + 3 * i, taps[i], taps[i + 1], pitch);
    memcpy(d, block, 48);
}

// Column just past the taps of a row whose pixels sit at x and x + (n-1)*ux.
inline int64_t lastTapColumn(int64_t x, int64_t last) { return ((x > x + last ? x : x + last) >> 15) + 1; }

template <int K>
int32_t rgbLeaf(const SpanArgs &a) {
    constexpr bool kRound = K != kSpanGeneral;
    const int32_t groups = a.n >> 4;
    if (groups == 0) return 0;
    const SrcPlanes &s = *a.src;
    // An 8-byte load at column x reads to byte 3x + 7: inside the taps
    // while x + 2 is still a tap column.
    int64_t hi = INT64_MIN;
    if constexpr (K == kSpanNoRot) {
        const int32_t p0 = noRotP16(a, 0) >> 4, p1 = noRotP16(a, a.n - 1) >> 4;
        hi = (p0 > p1 ? p0 : p1) + 1;
    } else {
        const int64_t last = static_cast<int64_t>(a.n - 1) * a.ux;
        if (a.dy0 != nullptr) hi = lastTapColumn(a.sx, last);
        if (a.dy1 != nullptr) {
            const int64_t h1 = lastTapColumn(static_cast<int64_t>(a.sx) + a.hx, last);
            hi = hi > h1 ? hi : h1;
        }
    }
    Tap taps[16];
    for (int32_t g = 0; g < groups; ++g) {
        const int32_t k = 16 * g;
        for (int row = 0; row < 2; ++row) {
            uint8_t *d = row == 0 ? a.dy0 : a.dy1;
            if (d == nullptr) continue;
            if constexpr (K == kSpanNoRot) {
                const int32_t group = laneAdd(a.sx, laneMul(k, a.ux)) >> 11;
                const int32_t r = (a.sy >> 15) + row, fy = (a.sy >> 11) & 15;
                const uint8_t *base = s.y + static_cast<ptrdiff_t>(r) * s.yPitch;
                for (int i = 0; i < 16; ++i) {
                    const int32_t p16 = laneAdd(group, a.off16[i]);
                    const int32_t x = p16 >> 4;
                    taps[i] = Tap{base + static_cast<ptrdiff_t>(x) * 3, p16 & 15, fy, x + 2 <= hi};
                }
            } else {
                int32_t px = laneAdd(a.sx, laneMul(k, a.ux)), py = laneAdd(a.sy, laneMul(k, a.uy));
                if (row == 1) {
                    px = laneAdd(px, a.hx);
                    py = laneAdd(py, a.hy);
                }
                for (int i = 0; i < 16; ++i, px = laneAdd(px, a.ux), py = laneAdd(py, a.uy)) {
                    const int32_t x = px >> 15;
                    taps[i] = Tap{s.y + static_cast<ptrdiff_t>(py >> 15) * s.yPitch + static_cast<ptrdiff_t>(x) * 3,
                                  (px >> 11) & 15, (py >> 11) & 15, x + 2 <= hi};
                }
            }
            drawGroup<kRound>(d + static_cast<ptrdiff_t>(a.dx + k) * 3, taps, s.yPitch);
        }
    }
    return 16 * groups;
}

}  // namespace

void initDrawSpansRgbSsse3(DrawSpanTable *t) {
    t->leaf[kSpanRgb][kSpanGeneral] = rgbLeaf<kSpanGeneral>;
    t->leaf[kSpanRgb][kSpanParallel] = rgbLeaf<kSpanParallel>;
    t->leaf[kSpanRgb][kSpanNoRot] = rgbLeaf<kSpanNoRot>;
}

}  // namespace pvx_draw

#endif
