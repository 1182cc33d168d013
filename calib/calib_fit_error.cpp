// How far the engine's mesh for a converted lens strays from the camera
// model it came from, in output pixels.
#include <math.h>

#include <algorithm>

#include "calib/calib_engine_mesh.h"
#include "calib/calib_internal.h"

namespace parvex_calib {

namespace {

// Inverse of the model's local Jacobian (source pixels per output pixel):
// turns a source displacement into the output displacement it causes.
struct Local {
    double a = 1, b = 0, c = 0, d = 1;   // inverse Jacobian, row major
    // Length of the output displacement that source displacement (dx, dy) causes.
    double outputLength(double dx, double dy) const { return hypot(a * dx + b * dy, c * dx + d * dy); }
};

// The inverse Jacobian at output pixel (x, y); false where the model has
// no value or folds.
bool localInverse(const CameraModel &m, double g, double x, double y, Local *local) {
    double x0, y0, x1, y1, x2, y2, x3, y3;
    const double h = 0.5;
    if (!modelSourcePosition(m, g, x - h, y, &x0, &y0) || !modelSourcePosition(m, g, x + h, y, &x1, &y1) ||
        !modelSourcePosition(m, g, x, y - h, &x2, &y2) || !modelSourcePosition(m, g, x, y + h, &x3, &y3))
        return false;
    const double j00 = (x1 - x0) / (2 * h), j01 = (x3 - x2) / (2 * h);
    const double j10 = (y1 - y0) / (2 * h), j11 = (y3 - y2) / (2 * h);
    const double det = j00 * j11 - j01 * j10;
    if (!(fabs(det) > 1e-12) || !isfinite(det)) return false;
    local->a = j11 / det;
    local->b = -j01 / det;
    local->c = -j10 / det;
    local->d = j00 / det;
    return true;
}

bool insideFrame(const CameraModel &m, double x, double y) {
    return x >= 0 && y >= 0 && x <= m.width - 1 && y <= m.height - 1;
}

// True when output pixel (x, y) lies where the model is used: within the
// radius up to which its radial part keeps rising.
bool withinRisingRadius(const CameraModel &m, double g, double limit, double x, double y) {
    const double xu = (x - m.cx) * g / m.fx, yu = (y - m.cy) * g / m.fy;
    return xu * xu + yu * yu <= limit * limit;
}

}  // namespace

namespace detail {

double termSize(const CameraModel &full, const CameraModel &reduced, double g) {
    const double limit = risingLimit(full);
    const int step = std::max(2, std::max(full.width, full.height) / 240);
    double largest = 0;
    for (int y = 0; y < full.height; y += step) {
        for (int x = 0; x < full.width; x += step) {
            double ax, ay, bx, by;
            Local local;
            if (!withinRisingRadius(full, g, limit, x, y) || !modelSourcePosition(full, g, x, y, &ax, &ay) ||
                !insideFrame(full, ax, ay) || !modelSourcePosition(reduced, g, x, y, &bx, &by) ||
                !localInverse(full, g, x, y, &local))
                continue;
            largest = std::max(largest, local.outputLength(ax - bx, ay - by));
        }
    }
    return largest;
}

}  // namespace detail

FitError measureFitError(const EngineLens &lens, const CameraModel &m) {
    const detail::EngineMesh mesh = detail::engineMesh(lens, m.width, m.height, m.name);
    const double g = lens.fill_scale;
    const double limit = detail::risingLimit(m);
    FitError e;
    double sum = 0;
    for (int32_t j = 0; j + 1 < mesh.numY; ++j) {
        for (int32_t i = 0; i + 1 < mesh.numX; ++i) {
            const size_t v = static_cast<size_t>(j) * mesh.numX + i, w = v + mesh.numX;
            const int32_t x0 = mesh.dstX[v], x1 = mesh.dstX[v + 1], y0 = mesh.dstY[v], y1 = mesh.dstY[w];
            if (x1 <= x0 || y1 <= y0) continue;
            Local local;
            if (!localInverse(m, g, 0.5 * (x0 + x1), 0.5 * (y0 + y1), &local)) continue;
            for (int32_t y = y0; y < y1 && y < m.height; ++y) {
                const double t = static_cast<double>(y - y0) / (y1 - y0);
                // Source positions along the cell's left and right edges.
                const double lx = mesh.srcX[v] + t * (mesh.srcX[w] - mesh.srcX[v]);
                const double ly = mesh.srcY[v] + t * (mesh.srcY[w] - mesh.srcY[v]);
                const double rx = mesh.srcX[v + 1] + t * (mesh.srcX[w + 1] - mesh.srcX[v + 1]);
                const double ry = mesh.srcY[v + 1] + t * (mesh.srcY[w + 1] - mesh.srcY[v + 1]);
                for (int32_t x = x0; x < x1 && x < m.width; ++x) {
                    double qx, qy;
                    if (!withinRisingRadius(m, g, limit, x, y) || !modelSourcePosition(m, g, x, y, &qx, &qy) ||
                        !insideFrame(m, qx, qy))
                        continue;
                    const double u = static_cast<double>(x - x0) / (x1 - x0);
                    const double d = local.outputLength(lx + u * (rx - lx) - qx, ly + u * (ry - ly) - qy);
                    sum += d * d;
                    e.max_px = std::max(e.max_px, d);
                    ++e.pixels;
                }
            }
        }
    }
    e.rms_px = e.pixels ? sqrt(sum / e.pixels) : 0;
    return e;
}

}  // namespace parvex_calib
