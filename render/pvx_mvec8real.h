// A 3x3 projective matrix in double precision (row-major, nine entries).
#pragma once

#include "runtime/pvx_result.h"

struct pvx_Mvec8Real {
    double m[9];
};

// (x, y, 1) -> (x', y') = ((m0 x + m1 y + m2) / w, (m3 x + m4 y + m5) / w),
// w = m6 x + m7 y + m8. Fails with PVX_ERROR_PARAM when w is 0 or not finite
// (the point maps to infinity).
pvx_Result pvx_Mvec8Real_trans2DReal(const pvx_Mvec8Real *matrix, double x, double y, double *outX, double *outY);
