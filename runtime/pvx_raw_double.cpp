// The library's own double elementary functions: polynomial exp2 and log2,
// sqrt built from the two, and hypot from sqrt. Every step is a plain IEEE
// double operation, so the results are the same bits on every target.
#include "runtime/pvx_raw_double.h"

#include <stdint.h>
#include <string.h>

namespace {

inline uint64_t bitsOf(double v) {
    uint64_t b;
    memcpy(&b, &v, sizeof b);
    return b;
}

inline double fromBits(uint64_t b) {
    double v;
    memcpy(&v, &b, sizeof v);
    return v;
}

inline double absOf(double v) { return fromBits(bitsOf(v) & 0x7FFFFFFFFFFFFFFFull); }

// The biased exponent field of a double's bits.
inline uint32_t exponentOf(uint64_t b) { return static_cast<uint32_t>(b >> 52) & 0x7FFu; }

// c[0] x^(N-1) + ... + c[N-1] by Horner's rule, highest coefficient first.
template <int N>
double horner(const double (&c)[N], double x) {
    double p = c[0];
    for (int i = 1; i < N; ++i) p = c[i] + x * p;
    return p;
}

const uint64_t kQuietNaN = 0xFFF8000000000000ull;
const uint64_t kInfinity = 0x7FF0000000000000ull;

}  // namespace

double pvx_RawDouble_hypot(double x, double y) {
    const double inf = fromBits(kInfinity);
    if (x == inf || x == -inf) return inf;
    if (y == inf || y == -inf) return inf;
    if (x == 0.0 && y == 0.0) return 0.0;
    double t, s;
    if (absOf(x) < absOf(y)) {
        t = x / y;
        s = absOf(y);
    } else {
        t = y / x;
        s = absOf(x);
    }
    return s * pvx_RawDouble_sqrt(1.0 + t * t);
}

double pvx_RawDouble_sqrt(double v) { return pvx_RawDouble_exp2(pvx_RawDouble_log2(v) * 0.5); }

double pvx_RawDouble_exp2(double x) {
    if (x <= -1075.0) return 0.0;
    if (x <= -1074.0) return fromBits(1);  // smallest subnormal
    if (x >= 1024.0) return fromBits(kInfinity);
    if (x != x) return x;  // NaN passes through
    // x lies in (-1074, 1024): the conversion is in range.
    int32_t n = static_cast<int32_t>(x);
    if (static_cast<double>(n) > x) n -= 1;
    uint64_t b;
    if (n + 1023 >= 1) {
        b = static_cast<uint64_t>(n + 1023) << 52;
    } else {
        b = 1ull << (n + 1074);
    }
    const double p2 = fromBits(b);
    if (x == static_cast<double>(n)) return p2;
    const double f = x - static_cast<double>(n);
    static constexpr double kExp2[] = {
        1.0006697217452461e-8,  9.433920362359275e-8, 1.3318412101751585e-6, 1.5243996624121435e-5,
        0.00015404004101871477, 0.0013333541706066724, 0.00961812946262613,   0.05550410862015973,
        0.24022650696198009,    0.6931471805598729,    1.0000000000000002,
    };
    return p2 * horner(kExp2, f);
}

double pvx_RawDouble_log2(double v) {
    uint64_t b = bitsOf(v);
    const bool negative = (b >> 63) != 0;
    uint32_t biased = exponentOf(b);
    if (biased == 0x7FFu) {
        // Infinity or NaN: as it is, but a negative one becomes a quiet NaN.
        return negative ? fromBits(b | 0x0008000000000000ull) : v;
    }
    if ((b & 0x7FFFFFFFFFFFFFFFull) == 0) return fromBits(0xFFF0000000000000ull);
    if (negative) return fromBits(kQuietNaN);
    int32_t e = 0;
    if (biased == 0) {
        // Subnormal: scale by 2^54 (exact) to bring it into the normal range.
        b = bitsOf(v * 18014398509481984.0);
        biased = exponentOf(b);
        e = -54;
    }
    e += static_cast<int32_t>(biased) - 1023;
    uint64_t mb = (b & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull;
    const uint32_t hi = static_cast<uint32_t>(mb >> 32);
    const uint32_t lo = static_cast<uint32_t>(mb);
    if (hi >= 0x3FF6A09Fu || (hi == 0x3FF6A09Eu && lo >= 0x667F3BCDu)) {
        // m >= sqrt(2): halve it so that m lies in [sqrt(2)/2, sqrt(2)).
        mb -= 0x0010000000000000ull;
        e += 1;
    }
    const double m = fromBits(mb);
    const double s = (m - 1.0) / (m + 1.0);
    const double z = s * s;
    static constexpr double kLog2[] = {
        0.2136777781712274,  0.22091114554609512, 0.2623344309522164, 0.3205985333399848,
        0.41219858585711044, 0.5770780163454408,  0.9617966939259899, 2.8853900817779268,
    };
    return static_cast<double>(e) + s * horner(kLog2, z);
}
