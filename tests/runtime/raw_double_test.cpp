// The library's own exp2/log2/sqrt/hypot: special values, exactness where
// the construction is exact, error against the C library over random
// arguments, and bit-identical results on every target.
#include "runtime/pvx_raw_double.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cctype>
#include <limits>
#include <string>

#include "tests/support/test_random.h"

namespace {

uint64_t bitsOf(double v) {
    uint64_t b;
    memcpy(&b, &v, sizeof b);
    return b;
}

double fromBits(uint64_t b) {
    double v;
    memcpy(&v, &b, sizeof v);
    return v;
}

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kMinSub = fromBits(1);  // 4.9406564584124654e-324

// Distance in units in the last place: doubles ordered as integers.
uint64_t ulpDistance(double a, double b) {
    auto ordered = [](double v) {
        int64_t i;
        memcpy(&i, &v, sizeof i);
        return i < 0 ? std::numeric_limits<int64_t>::min() - i : i;
    };
    int64_t x = ordered(a), y = ordered(b);
    return x > y ? static_cast<uint64_t>(x) - static_cast<uint64_t>(y)
                 : static_cast<uint64_t>(y) - static_cast<uint64_t>(x);
}

// ---- special values -----------------------------------------------------------

// Exact answers: zeros, infinities, NaNs (an infinity wins over a NaN in
// hypot), one zero argument of hypot, and the edges of exp2's range.
TEST(RawDouble, SpecialValues) {
    const double qnanNeg = fromBits(0xFFF8000000000000ull);
    const struct {
        char fn;   // e exp2, l log2, s sqrt, h hypot
        double x, y, want;
    } cases[] = {
        {'h', 0.0, 0.0, 0.0},       {'h', -0.0, -0.0, 0.0},   {'h', kInf, kNaN, kInf},  {'h', kNaN, -kInf, kInf},
        {'h', -kInf, 1.0, kInf},    {'h', 0.0, kInf, kInf},   {'h', 0.0, -7.25, 7.25},  {'h', -1e-300, 0.0, 1e-300},
        {'h', kNaN, 1.0, kNaN},     {'h', 1.0, kNaN, kNaN},   {'h', kNaN, 0.0, kNaN},
        {'e', -0.0, 0, 1.0},        {'e', 1024.0, 0, kInf},   {'e', 1e308, 0, kInf},    {'e', kInf, 0, kInf},
        {'e', -1075.0, 0, 0.0},     {'e', -1e308, 0, 0.0},    {'e', -kInf, 0, 0.0},     {'e', -1074.5, 0, kMinSub},
        {'e', std::nextafter(-1075.0, 0.0), 0, kMinSub},      {'e', -1073.0, 0, 2 * kMinSub}, {'e', kNaN, 0, kNaN},
        {'l', 1.0, 0, 0.0},         {'l', -1.0, 0, qnanNeg},  {'l', -DBL_MAX, 0, qnanNeg}, {'l', -kMinSub, 0, qnanNeg},
        {'l', 0.0, 0, -kInf},       {'l', -0.0, 0, -kInf},    {'l', kInf, 0, kInf},     {'l', -kInf, 0, qnanNeg},
        {'l', fromBits(0x7FF8000000000123ull), 0, fromBits(0x7FF8000000000123ull)},
        {'l', fromBits(0xFFF0000000000001ull), 0, fromBits(0xFFF8000000000001ull)},
        {'s', 0.0, 0, 0.0},         {'s', kInf, 0, kInf},     {'s', -1.0, 0, kNaN},     {'s', kNaN, 0, kNaN},
        {'s', 4.0, 0, 2.0},
    };
    for (const auto &c : cases) {
        const double got = c.fn == 'e' ? pvx_RawDouble_exp2(c.x)
                           : c.fn == 'l' ? pvx_RawDouble_log2(c.x)
                           : c.fn == 's' ? pvx_RawDouble_sqrt(c.x)
                                         : pvx_RawDouble_hypot(c.x, c.y);
        const bool anyNan = std::isnan(c.want) && c.fn != 'l';   // log2 keeps the payload
        EXPECT_EQ(anyNan ? std::isnan(got) : bitsOf(got) == bitsOf(c.want), true) << c.fn << " " << c.x << " " << c.y;
    }
    // No intermediate overflow or underflow in hypot.
    for (double v : {1e300, 3e-310, DBL_MAX / 4})
        EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(2 * v, v), std::hypot(2 * v, v)), 8u) << v;
}

// Powers of two are exact through the whole subnormal range: exp2 of an
// integer, log2 of a power, sqrt of an even power.
TEST(RawDouble, PowersOfTwoAreExact) {
    for (int n = -1074; n <= 1023; ++n) {
        ASSERT_EQ(bitsOf(pvx_RawDouble_exp2(n)), bitsOf(std::ldexp(1.0, n))) << "n=" << n;
        ASSERT_EQ(pvx_RawDouble_log2(std::ldexp(1.0, n)), static_cast<double>(n)) << "n=" << n;
        if (n % 2 == 0) {
            ASSERT_EQ(pvx_RawDouble_sqrt(std::ldexp(1.0, n)), std::ldexp(1.0, n / 2)) << "n=" << n;
        }
    }
    // Either side of sqrt(2), where log2 halves the mantissa.
    const double r2 = fromBits(0x3FF6A09E667F3BCDull);
    for (double v : {std::nextafter(r2, 0.0), r2, std::nextafter(r2, 2.0), r2 * 8, r2 / 8})
        EXPECT_LE(ulpDistance(pvx_RawDouble_log2(v), std::log2(v)), 3u) << std::hexfloat << v;
}

// ---- error against the C library ----------------------------------------------

enum class Fn { Exp2, Log2, Sqrt, Hypot };

// Arguments drawn uniformly from [lo, hi], or (`exponents`) with a uniform
// mantissa and an exponent in [lo, hi], subnormal below -1022; hypot draws
// both arguments so, the second with a random sign in the exponent case.
struct Sweep {
    const char *name;
    Fn fn;
    bool exponents;
    double lo, hi;
    uint64_t bound;  // ULPs; the measured worst case with some room
};

double uniform(std::mt19937_64 &rng, double lo, double hi) {
    return lo + (hi - lo) * (static_cast<double>(rng() >> 11) * 0x1p-53);
}

double draw(std::mt19937_64 &rng, const Sweep &s) {
    if (!s.exponents) return uniform(rng, s.lo, s.hi);
    const int lo = static_cast<int>(s.lo), hi = static_cast<int>(s.hi);
    const int e = lo + static_cast<int>(rng() % static_cast<uint64_t>(hi - lo + 1));
    const double v = std::ldexp(uniform(rng, 1.0, 2.0), e);
    return s.fn == Fn::Hypot && (rng() & 1) ? -v : v;
}

double ours(Fn fn, double x, double y) {
    switch (fn) {
    case Fn::Exp2: return pvx_RawDouble_exp2(x);
    case Fn::Log2: return pvx_RawDouble_log2(x);
    case Fn::Sqrt: return pvx_RawDouble_sqrt(x);
    default: return pvx_RawDouble_hypot(x, y);
    }
}

double libc(Fn fn, double x, double y) {
    switch (fn) {
    case Fn::Exp2: return std::exp2(x);
    case Fn::Log2: return std::log2(x);
    case Fn::Sqrt: return std::sqrt(x);
    default: return std::hypot(x, y);
    }
}

class RawDoubleError : public ::testing::TestWithParam<int> {};

const Sweep kSweeps[] = {
    {"exp2 x in [-1, 1]", Fn::Exp2, false, -1, 1, 4},
    {"exp2 normal results", Fn::Exp2, false, -1022, 1024, 4},
    {"exp2 subnormal results", Fn::Exp2, false, -1075, -1022, 3},
    {"log2 v in [0.5, 2]", Fn::Log2, false, 0.5, 2, 4},
    {"log2 v near 1", Fn::Log2, false, 0.999, 1.001, 4},
    {"log2 all normals", Fn::Log2, true, -1022, 1023, 3},
    {"log2 subnormals", Fn::Log2, true, -1074, -1023, 2},
    {"sqrt v in [2^-8, 2^8]", Fn::Sqrt, true, -8, 7, 6},
    {"sqrt v in [2^-64, 2^64]", Fn::Sqrt, true, -64, 63, 24},
    // log2's absolute error grows with the exponent and exp2 turns it into
    // relative error: about 180 ulp at the ends of the range.
    {"sqrt all normals", Fn::Sqrt, true, -1022, 1023, 256},
    {"hypot pixel range", Fn::Hypot, false, -8192, 8192, 8},
    {"hypot unit range", Fn::Hypot, false, -2, 2, 8},
    {"hypot wide magnitudes", Fn::Hypot, true, -1000, 1000, 8},
};

TEST_P(RawDoubleError, WithinBoundOfLibrary) {
    const Sweep &s = kSweeps[GetParam()];
    auto rng = pvx_test::makeRng(static_cast<uint64_t>(GetParam()));
    const int n = pvx_test::rounds(1000000);
    uint64_t worst = 0;
    double worstX = 0, worstY = 0;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        const double x = draw(rng, s);
        const double y = s.fn == Fn::Hypot ? draw(rng, s) : 0.0;
        const uint64_t d = ulpDistance(ours(s.fn, x, y), libc(s.fn, x, y));
        sum += static_cast<double>(d);
        if (d > worst) {
            worst = d;
            worstX = x;
            worstY = y;
        }
    }
    printf("[ ulp      ] %-26s worst %3llu ulp (mean %.3f) over %d at x=%.17g y=%.17g\n", s.name,
           static_cast<unsigned long long>(worst), sum / n, n, worstX, worstY);
    EXPECT_LE(worst, s.bound) << s.name << " at x=" << worstX << " y=" << worstY;
}

INSTANTIATE_TEST_SUITE_P(Sweeps, RawDoubleError,
                         ::testing::Range(0, static_cast<int>(sizeof kSweeps / sizeof kSweeps[0])),
                         [](const ::testing::TestParamInfo<int> &info) {
                             std::string name = kSweeps[info.param].name;
                             for (char &c : name) {
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             }
                             return name;
                         });

// ---- the same bits on every target ------------------------------------------------

// Fixed-seed LCG and FNV-1a over result bit patterns. Arguments are built
// from integer bits only, so every target sees the same arguments; any NaN
// result hashes as one value (its payload is not part of the contract).
struct Lcg {
    uint64_t s = 0x2545F4914F6CDD1Dull;
    uint64_t next() {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return s;
    }
    // Random bits in the mantissa, exponent from [lo, hi], given sign.
    double make(int lo, int hi, bool allowNegative) {
        uint64_t r = next();
        uint64_t e = static_cast<uint64_t>(lo + static_cast<int>((r >> 52) % static_cast<uint64_t>(hi - lo + 1)));
        uint64_t sign = allowNegative ? (r >> 51) & 1 : 0;
        return fromBits((sign << 63) | (e << 52) | (next() >> 12));
    }
};

struct Fnv {
    uint64_t h = 0xCBF29CE484222325ull;
    void add(double v) {
        uint64_t b = std::isnan(v) ? 0x7FF8000000000000ull : bitsOf(v);
        for (int i = 0; i < 8; ++i) {
            h ^= (b >> (8 * i)) & 0xFF;
            h *= 0x100000001B3ull;
        }
    }
};

TEST(RawDouble, SameBitsOnEveryTarget) {
    const int n = 100000;
    Fnv hExp2, hLog2, hSqrt, hHypot;
    Lcg lcg;
    for (int i = 0; i < n; ++i) {
        // exp2: |x| from tiny up to 2048 (biased exponents 0x3C0..0x40A), so
        // both overflow ends, subnormal results and the plain range appear.
        hExp2.add(pvx_RawDouble_exp2(lcg.make(0x3C0, 0x40A, true)));
        // log2 and sqrt: any finite double, negative ones and subnormals too.
        hLog2.add(pvx_RawDouble_log2(lcg.make(0, 0x7FE, true)));
        hSqrt.add(pvx_RawDouble_sqrt(lcg.make(0, 0x7FE, false)));
        double x = lcg.make(0x300, 0x4FF, true);
        double y = lcg.make(0x300, 0x4FF, true);
        hHypot.add(pvx_RawDouble_hypot(x, y));
    }
    printf("[ checksum ] exp2 0x%016llX log2 0x%016llX sqrt 0x%016llX hypot 0x%016llX\n",
           static_cast<unsigned long long>(hExp2.h), static_cast<unsigned long long>(hLog2.h),
           static_cast<unsigned long long>(hSqrt.h), static_cast<unsigned long long>(hHypot.h));
    // Taken from an x86-64 run; the Arm run must agree bit for bit.
    EXPECT_EQ(hExp2.h, 0x344540766879E0A4ull);
    EXPECT_EQ(hLog2.h, 0x0E71C3449D8D699Dull);
    EXPECT_EQ(hSqrt.h, 0x8AAE6355C56C4021ull);
    EXPECT_EQ(hHypot.h, 0xE3A89D2F63F0117Dull);
}

}  // namespace
