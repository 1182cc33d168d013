// Proofs that a span's taps all lie inside the source, worked out from the
// span's two ends: a span that passes runs the unchecked reference (or a
// vector leaf); any other span clamps every tap into the image.
#pragma once

#include <stdint.h>

#include "render/pvx_draw_reference.h"

namespace pvx_draw {

// ---------------------------------------------------------------------------
// Whether every tap of a span lies inside the source. Each index below is a
// non-decreasing function of a position that is linear along the span, so
// the two ends bound it; each sum must also stay clear of 32-bit wrap-around
// for the unchecked loop to compute what the check computed.

struct Iv {
    int64_t lo, hi;
};
inline Iv ivOf(int64_t a, int64_t b) { return a < b ? Iv{a, b} : Iv{b, a}; }
inline Iv ivAdd(Iv v, int64_t c) { return Iv{v.lo + c, v.hi + c}; }
inline Iv ivShr(Iv v, int s) { return Iv{v.lo >> s, v.hi >> s}; }
inline bool ivFits(Iv v) { return fits32(v.lo) && fits32(v.hi); }
// Taps idx .. idx + extra all within [0, max].
inline bool ivTaps(Iv idx, int64_t max, int64_t extra) { return idx.lo >= 0 && idx.hi + extra <= max; }

template <int Mode>
inline bool lumaInsideQ15(Iv x, Iv y, const SrcPlanes &s) {
    if constexpr (Mode == kNearest) {
        const Iv xn = ivAdd(x, 0x4000), yn = ivAdd(y, 0x4000);
        return ivFits(xn) && ivFits(yn) && ivTaps(ivShr(xn, 15), s.w - 1, 0) && ivTaps(ivShr(yn, 15), s.h - 1, 0);
    } else {
        return ivTaps(ivShr(x, 15), s.w - 1, 1) && ivTaps(ivShr(y, 15), s.h - 1, 1);
    }
}

template <class L, int Mode>
bool linearSpanInside(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    const int64_t n1 = a.n - 1;
    const Iv x = ivOf(a.sx, a.sx + n1 * a.ux), y = ivOf(a.sy, a.sy + n1 * a.uy);
    if (!ivFits(x) || !ivFits(y)) return false;
    if (a.dy0 && !lumaInsideQ15<Mode>(x, y, s)) return false;
    const Iv x1 = ivAdd(x, a.hx), y1 = ivAdd(y, a.hy);
    if (!ivFits(x1) || !ivFits(y1)) return false;
    if (a.dy1 && !lumaInsideQ15<Mode>(x1, y1, s)) return false;
    if constexpr (L::kChroma == kChroma420) {
        if (a.dc00 == nullptr) return true;
        if constexpr (Mode == kBilinear) {
            return ivTaps(ivShr(x, 16), s.cw - 1, 1) && ivTaps(ivShr(y, 16), s.ch - 1, 1);
        } else {
            const Iv xc = ivAdd(x, a.cox), yc = ivAdd(y, a.coy);
            if (!ivFits(xc) || !ivFits(yc)) return false;
            if constexpr (Mode == kHQ) {
                return ivTaps(ivShr(ivAdd(ivShr(xc, 12), -8), 4), s.cw - 1, 1) &&
                       ivTaps(ivShr(ivAdd(ivShr(yc, 12), -8), 4), s.ch - 1, 1);
            } else {
                return ivTaps(ivShr(xc, 16), s.cw - 1, 0) && ivTaps(ivShr(yc, 16), s.ch - 1, 0);
            }
        }
    } else if constexpr (L::kChroma == kChroma422Row) {
        if (a.dc00 && !(ivTaps(ivShr(x, 16), s.cw - 1, 1) && ivTaps(ivShr(y, 15), s.ch - 1, 1))) return false;
        if (a.dc10 && !(ivTaps(ivShr(x1, 16), s.cw - 1, 1) && ivTaps(ivShr(y1, 15), s.ch - 1, 1))) return false;
        return true;
    } else {
        return true;   // no chroma, or chroma that is always clamped
    }
}

// Unrotated: the 1/16 position p16 of pixel k lies within
// [(X >> 11) - 2, X >> 11] of its exact position X = sx + k * ux.
template <class L, int Mode>
bool noRotSpanInside(const SpanArgs &a) {
    const SrcPlanes &s = *a.src;
    const Iv x = ivOf(a.sx, a.sx + static_cast<int64_t>(a.n - 1) * a.ux);
    if (!ivFits(x)) return false;
    const Iv p = Iv{(x.lo >> 11) - 2, x.hi >> 11};
    const int64_t lastRow = a.dy1 ? 1 : 0;
    if constexpr (Mode == kNearest) {
        if (!fits32(static_cast<int64_t>(a.sy) + 0x4000)) return false;
        const int64_t r = (static_cast<int64_t>(a.sy) + 0x4000) >> 15;
        if (!ivTaps(ivShr(ivAdd(p, 8), 4), s.w - 1, 0) || r < 0 || r + lastRow > s.h - 1) return false;
    } else {
        const int64_t r = a.sy >> 15;
        if (!ivTaps(ivShr(p, 4), s.w - 1, 1) || r < 0 || r + lastRow + 1 > s.h - 1) return false;
    }
    if constexpr (L::kChroma == kChroma420) {
        if (a.dc00 == nullptr) return true;
        if constexpr (Mode == kBilinear) {
            const int64_t cr = a.sy >> 16;
            return ivTaps(ivShr(ivShr(p, 1), 4), s.cw - 1, 1) && cr >= 0 && cr + 1 <= s.ch - 1;
        } else {
            const int64_t vy = static_cast<int64_t>(a.sy) + a.coy;
            if (!fits32(vy)) return false;
            const Iv pc = ivAdd(p, a.cox);
            if constexpr (Mode == kHQ) {
                const int64_t cr = ((vy >> 12) - 8) >> 4;
                return ivTaps(ivShr(ivAdd(ivShr(pc, 1), -8), 4), s.cw - 1, 1) && cr >= 0 && cr + 1 <= s.ch - 1;
            } else {
                const int64_t cr = vy >> 16;
                return ivTaps(ivShr(pc, 5), s.cw - 1, 0) && cr >= 0 && cr <= s.ch - 1;
            }
        }
    } else if constexpr (L::kChroma == kChroma422Row) {
        return ivTaps(ivShr(ivShr(p, 1), 4), s.cw - 1, 1);   // rows as the luma
    } else {
        return true;
    }
}


}  // namespace pvx_draw
