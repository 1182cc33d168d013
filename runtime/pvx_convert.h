// Guarded conversions from floating point to integers. A plain cast of a
// NaN, an infinity or an out-of-range value is undefined behaviour; these
// give a defined result instead (NaN -> 0, out of range -> the nearest
// representable value) and are exact in range.
#pragma once

#include <stdint.h>

inline int32_t pvx_toInt32(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

inline int64_t pvx_toInt64(double v) {
    if (!(v == v)) return 0;
    if (v >= 9223372036854775807.0) return INT64_MAX;
    if (v <= -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(v);
}

// Narrowing to single precision with IEEE round-to-nearest semantics, also
// for values beyond the float range (which become +-FLT_MAX or +-infinity
// as the hardware would round them) instead of an out-of-range conversion.
inline float pvx_toFloat(double v) {
    const double kFloatMax = 3.4028234663852886e38;       // FLT_MAX
    const double kOverflow = 3.4028235677973366e38;       // FLT_MAX + half an ulp: rounds to infinity
    if (v >= -kFloatMax && v <= kFloatMax) return static_cast<float>(v);
    if (!(v == v)) return static_cast<float>(v);          // NaN converts as it is
    const float inf = __builtin_inff();
    const float big = 3.40282347e38f;
    if (v > 0) return v >= kOverflow ? inf : big;
    return v <= -kOverflow ? -inf : -big;
}
