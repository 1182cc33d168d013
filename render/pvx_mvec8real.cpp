// Projective mapping of one point through a 3x3 double matrix.
#include "render/pvx_mvec8real.h"

#include <cmath>

pvx_Result pvx_Mvec8Real_trans2DReal(const pvx_Mvec8Real *matrix, double x, double y, double *outX, double *outY) {
    if (matrix == nullptr || outX == nullptr || outY == nullptr) return PVX_ERROR_PARAM;
    const double *m = matrix->m;
    const double w = m[6] * x + m[7] * y + m[8];
    // The point lies on (or beyond) the line at infinity: nothing written.
    if (w == 0.0 || !std::isfinite(w)) return PVX_ERROR_PARAM;
    *outX = (m[0] * x + m[1] * y + m[2]) / w;
    *outY = (m[3] * x + m[4] * y + m[5]) / w;
    return PVX_OK;
}
