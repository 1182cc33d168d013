#include "lens/pvx_grid_build.h"

#include <math.h>

#include "runtime/pvx_convert.h"
#include "runtime/pvx_raw_double.h"

namespace {

// Destination position of vertex (i, j): multiples of the cell, the last
// column and row on the output's right and bottom edges.
inline int32_t vertexPosition(int32_t index, int32_t cell, int32_t limit) {
    const int64_t p = static_cast<int64_t>(index) * cell;
    return p < limit ? static_cast<int32_t>(p) : limit;
}

inline double cropDiagonal(const int32_t *crop) {
    return pvx_RawDouble_hypot(static_cast<double>(crop[2]) - crop[0], static_cast<double>(crop[3]) - crop[1]);
}

// Distance from the centre to the nearer border of [0, size].
inline double nearerBorder(double center, int32_t size) {
    const double far = size - center;
    return center <= far ? center : far;
}

typedef float (*Ratio)(const pvx_Zelkov4DistortionCorrection *lens, float r);

// The least of a table's ratio at radius 1 and at the nearer output borders
// (k converts pixels to radius); the mesh is scaled by it so that the
// nearer output border stays filled.
float borderRatio(Ratio ratio, const pvx_Zelkov4DistortionCorrection *lens, const pvx_GridGeometry *g, float k) {
    float least = ratio(lens, 1.0f);
    const float rx = ratio(lens, pvx_toFloat(nearerBorder(g->outCenterX, g->outWidth) * k));
    if (rx < least) least = rx;
    const float ry = ratio(lens, pvx_toFloat(nearerBorder(g->outCenterY, g->outHeight) * k));
    if (ry < least) least = ry;
    return least;
}

// Writes every vertex row by row: its destination (x, y) and the source
// position that `source(x, y, &sx, &sy)` gives for it.
template <typename Source>
void fillLattice(pvx_Renderer2_Params *params, const pvx_GridGeometry *g, int32_t cell, Source source) {
    int32_t v = 0;
    for (int32_t j = 0; j < params->numY; ++j) {
        const int32_t y = vertexPosition(j, cell, g->outHeight);
        for (int32_t i = 0; i < params->numX; ++i, ++v) {
            const int32_t x = vertexPosition(i, cell, g->outWidth);
            params->dstX[v] = x;
            params->dstY[v] = y;
            source(x, y, &params->srcX[v], &params->srcY[v]);
        }
    }
}

}  // namespace

int32_t pvx_Grid_cellSize(int32_t outWidth, int32_t outHeight) {
    int32_t c = (outWidth > outHeight ? outWidth : outHeight) / 60;
    c &= ~1;
    if (c < 9) c = 8;
    if (c > 63) c = 64;
    return c;
}

bool pvx_Grid_isFillable(const pvx_Renderer2_Params *params) {
    return params->numX >= 1 && params->numY >= 1 &&
           static_cast<int64_t>(params->numX) * params->numY <= PVX_RENDERER2_MAX_VERTICES && params->srcX &&
           params->srcY && params->dstX && params->dstY;
}

void pvx_Grid_fillModel(pvx_Renderer2_Params *params, const pvx_Zelkov4DistortionCorrection *lens,
                        const pvx_GridGeometry *g, int32_t cell) {
    if (!pvx_Grid_isFillable(params)) return;
    const double W = g->inWidth, H = g->inHeight;
    const double inDiagonal = pvx_RawDouble_hypot(W, H);
    const double q = inDiagonal / cropDiagonal(g->crop);
    const float k = pvx_toFloat(1.0 / (q * inDiagonal * 0.5));

    const float gmin = borderRatio(pvx_Zelkov4DistortionCorrection_get, lens, g, k);

    const double bx = q * (g->inCenterX - g->crop[0]);
    const double by = q * (g->inCenterY - g->crop[1]);
    const float s = pvx_toFloat(g->strength);
    const double maxX = W - 1, maxY = H - 1;

    fillLattice(params, g, cell, [&](int32_t x, int32_t y, double *outX, double *outY) {
        const double dx = static_cast<double>(static_cast<float>(x)) - g->outCenterX;
        const double dy = static_cast<double>(static_cast<float>(y)) - g->outCenterY;
        const float rho = pvx_toFloat(pvx_RawDouble_hypot(dx, dy) * k * gmin);
        const float gi = pvx_Zelkov4DistortionCorrection_getinv(lens, rho);
        const float f = 1.0f - (1.0f - gmin * gi) * s;
        double sx = bx + dx * f;
        double sy = by + dy * f;
        if (sx <= 0) sx = 0;
        if (sx > maxX) sx = maxX;
        if (sy <= 0) sy = 0;
        if (sy > maxY) sy = maxY;
        *outX = sx;
        *outY = sy;
    });
}

void pvx_Grid_fillTable(pvx_Renderer2_Params *params, const pvx_GridGeometry *g, int32_t cell, const double *xs,
                        const double *ys, int32_t count) {
    if (!pvx_Grid_isFillable(params)) return;
    const double ocx = g->outCenterX, ocy = g->outCenterY;
    const double unit = pvx_RawDouble_hypot(ocx, ocy);
    // Keys are searched from the second point; the search stops at the last
    // point so that radii beyond the table extrapolate its last segment.
    const int32_t lastPoint = count - 1 >= 1 ? count - 1 : 1;

    fillLattice(params, g, cell, [&](int32_t x, int32_t y, double *outX, double *outY) {
        const double dx = x - ocx;
        const double dy = y - ocy;
        const double rn = hypot(dx, dy) / unit;
        int32_t m = 1;
        while (m < lastPoint && xs[m] < rn) ++m;
        double sx = ocx, sy = ocy;
        if (!(rn < 0.00001)) {
            const double t = (rn - xs[m - 1]) / (xs[m] - xs[m - 1]);
            const double r = ys[m - 1] + t * (ys[m] - ys[m - 1]);
            sx = ocx + dx * r / rn;
            sy = ocy + dy * r / rn;
        }
        *outX = sx;
        *outY = sy;
    });
}

void pvx_Grid_fillForward(pvx_Renderer2_Params *params, const pvx_Zelkov4DistortionCorrection *lens,
                          const pvx_GridGeometry *g, int32_t cell) {
    if (!pvx_Grid_isFillable(params)) return;
    const double inDiagonal = pvx_RawDouble_hypot(g->inWidth, g->inHeight);
    const double scale = inDiagonal / cropDiagonal(g->crop);
    const float g1 = pvx_Zelkov4DistortionCorrection_getinv(lens, 1.0f);
    const float k = pvx_toFloat((1.0 / (scale * inDiagonal * 0.5)) / g1);

    const float c = borderRatio(pvx_Zelkov4DistortionCorrection_getinv, lens, g, k);

    const double ax = scale * (g->inCenterX - g->crop[0]);
    const double ay = scale * (g->inCenterY - g->crop[1]);
    const float s = pvx_toFloat(g->strength);
    const double maxX = g->inWidth - 1, maxY = g->inHeight - 1;

    fillLattice(params, g, cell, [&](int32_t x, int32_t y, double *outX, double *outY) {
        const double dx = x - g->outCenterX;
        const double dy = y - g->outCenterY;
        const double r = pvx_RawDouble_hypot(dx, dy);
        const float f = pvx_Zelkov4DistortionCorrection_get(lens, pvx_toFloat(r * k * c));
        const float m = 1.0f - (1.0f - c * f) * s;
        double sx = ax + dx * m;
        double sy = ay + dy * m;
        if (sx > maxX) sx = maxX;
        if (sx <= 0) sx = 0;
        if (sy > maxY) sy = maxY;
        if (sy <= 0) sy = 0;
        *outX = sx;
        *outY = sy;
    });
}
