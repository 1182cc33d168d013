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

TEST(RawDouble, HypotSpecialValues) {
    EXPECT_EQ(bitsOf(pvx_RawDouble_hypot(0.0, 0.0)), bitsOf(0.0));
    EXPECT_EQ(bitsOf(pvx_RawDouble_hypot(-0.0, -0.0)), bitsOf(0.0));
    EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(3.0, 4.0), 5.0), 4u);
    EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(-4.0, 3.0), 5.0), 4u);
    // An infinity wins over a NaN in either place; a NaN otherwise propagates.
    for (double inf : {kInf, -kInf}) {
        EXPECT_EQ(pvx_RawDouble_hypot(inf, kNaN), kInf);
        EXPECT_EQ(pvx_RawDouble_hypot(kNaN, inf), kInf);
        EXPECT_EQ(pvx_RawDouble_hypot(inf, 1.0), kInf);
        EXPECT_EQ(pvx_RawDouble_hypot(0.0, inf), kInf);
    }
    EXPECT_TRUE(std::isnan(pvx_RawDouble_hypot(kNaN, 1.0)));
    EXPECT_TRUE(std::isnan(pvx_RawDouble_hypot(1.0, kNaN)));
    EXPECT_TRUE(std::isnan(pvx_RawDouble_hypot(kNaN, 0.0)));
    // One zero argument: the other's magnitude.
    EXPECT_EQ(pvx_RawDouble_hypot(0.0, -7.25), 7.25);
    EXPECT_EQ(pvx_RawDouble_hypot(-1e-300, 0.0), 1e-300);
    // No intermediate overflow or underflow.
    EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(1e300, 1e300), std::hypot(1e300, 1e300)), 8u);
    EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(3e-310, 4e-310), std::hypot(3e-310, 4e-310)), 8u);
    EXPECT_LE(ulpDistance(pvx_RawDouble_hypot(DBL_MAX / 2, DBL_MAX / 4), std::hypot(DBL_MAX / 2, DBL_MAX / 4)),
              8u);
}

TEST(RawDouble, Exp2SpecialValues) {
    // Integers are exact powers of two, through the whole subnormal range.
    for (int n = -1074; n <= 1023; ++n) {
        ASSERT_EQ(bitsOf(pvx_RawDouble_exp2(n)), bitsOf(std::ldexp(1.0, n))) << "n=" << n;
    }
    EXPECT_EQ(pvx_RawDouble_exp2(-0.0), 1.0);
    EXPECT_EQ(pvx_RawDouble_exp2(1024.0), kInf);
    EXPECT_EQ(pvx_RawDouble_exp2(1e308), kInf);
    EXPECT_EQ(pvx_RawDouble_exp2(kInf), kInf);
    EXPECT_EQ(bitsOf(pvx_RawDouble_exp2(-1075.0)), bitsOf(0.0));
    EXPECT_EQ(bitsOf(pvx_RawDouble_exp2(-1e308)), bitsOf(0.0));
    EXPECT_EQ(bitsOf(pvx_RawDouble_exp2(-kInf)), bitsOf(0.0));
    EXPECT_EQ(pvx_RawDouble_exp2(-1074.5), kMinSub);
    EXPECT_EQ(pvx_RawDouble_exp2(std::nextafter(-1075.0, 0.0)), kMinSub);
    EXPECT_EQ(pvx_RawDouble_exp2(-1074.0), kMinSub);
    EXPECT_EQ(pvx_RawDouble_exp2(-1073.0), 2 * kMinSub);
    EXPECT_TRUE(std::isnan(pvx_RawDouble_exp2(kNaN)));
    // Just below the overflow threshold: finite.
    const double below = std::nextafter(1024.0, 0.0);
    EXPECT_TRUE(std::isfinite(pvx_RawDouble_exp2(below)));
    EXPECT_LE(ulpDistance(pvx_RawDouble_exp2(below), std::exp2(below)), 4u);
    // Half-integers are sqrt(2) times the power.
    for (int n : {-1060, -1030, -1022, -500, -1, 0, 1, 52, 700, 1022}) {
        double want = std::ldexp(1.4142135623730951, n);
        EXPECT_LE(ulpDistance(pvx_RawDouble_exp2(n + 0.5), want), 4u) << "n=" << n;
    }
}

TEST(RawDouble, Log2SpecialValues) {
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(1.0)), bitsOf(0.0));
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(-1.0)), 0xFFF8000000000000ull);
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(-DBL_MAX)), 0xFFF8000000000000ull);
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(-kMinSub)), 0xFFF8000000000000ull);
    EXPECT_EQ(pvx_RawDouble_log2(0.0), -kInf);
    EXPECT_EQ(pvx_RawDouble_log2(-0.0), -kInf);
    EXPECT_EQ(pvx_RawDouble_log2(kInf), kInf);
    // Infinities and NaNs come back as they are; a negative one gets the
    // quiet bit.
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(-kInf)), 0xFFF8000000000000ull);
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(fromBits(0x7FF8000000000123ull))), 0x7FF8000000000123ull);
    EXPECT_EQ(bitsOf(pvx_RawDouble_log2(fromBits(0xFFF0000000000001ull))), 0xFFF8000000000001ull);
    // Powers of two are exact, subnormal ones included.
    for (int n = -1074; n <= 1023; ++n) {
        ASSERT_EQ(pvx_RawDouble_log2(std::ldexp(1.0, n)), static_cast<double>(n)) << "n=" << n;
    }
    EXPECT_EQ(pvx_RawDouble_log2(kMinSub), -1074.0);
    EXPECT_EQ(pvx_RawDouble_log2(DBL_MIN), -1022.0);
    EXPECT_LE(ulpDistance(pvx_RawDouble_log2(DBL_MAX), std::log2(DBL_MAX)), 2u);
    // Subnormals with many mantissa bits.
    for (uint64_t b : {0x000FFFFFFFFFFFFFull, 0x0000000000000003ull, 0x0000123456789ABCull, 0x0008000000000001ull}) {
        double v = fromBits(b);
        EXPECT_LE(ulpDistance(pvx_RawDouble_log2(v), std::log2(v)), 2u) << std::hexfloat << v;
    }
    // Either side of sqrt(2), where the mantissa is halved.
    const double r2 = fromBits(0x3FF6A09E667F3BCDull);
    for (double v : {std::nextafter(r2, 0.0), r2, std::nextafter(r2, 2.0), r2 * 8, r2 / 8}) {
        EXPECT_LE(ulpDistance(pvx_RawDouble_log2(v), std::log2(v)), 3u) << std::hexfloat << v;
    }
}

TEST(RawDouble, SqrtSpecialValues) {
    EXPECT_EQ(bitsOf(pvx_RawDouble_sqrt(0.0)), bitsOf(0.0));
    EXPECT_EQ(pvx_RawDouble_sqrt(kInf), kInf);
    EXPECT_TRUE(std::isnan(pvx_RawDouble_sqrt(-1.0)));
    EXPECT_TRUE(std::isnan(pvx_RawDouble_sqrt(kNaN)));
    // Even powers of two go through exact log2 and exp2.
    for (int n = -537; n <= 511; ++n) {
        ASSERT_EQ(pvx_RawDouble_sqrt(std::ldexp(1.0, 2 * n)), std::ldexp(1.0, n)) << "n=" << n;
    }
    EXPECT_EQ(pvx_RawDouble_sqrt(4.0), 2.0);
    EXPECT_LE(ulpDistance(pvx_RawDouble_sqrt(2.0), 1.4142135623730951), 4u);
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
