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
