// A slow, independent model of the correction: the source position of every
// output pixel from the lens equation solved in double precision (not from
// tables, not per vertex), and bilinear sampling in double precision.
#pragma once

#include <math.h>
#include <stdint.h>

#include <algorithm>

namespace pvx_test {

struct LensSetup {
    int32_t inWidth = 640, inHeight = 480;
    int32_t outWidth = 640, outHeight = 480;
    double inCenterX = 320, inCenterY = 240;
    double outCenterX = 320, outCenterY = 240;
    int32_t crop[4] = {0, 0, 640, 480};
    double strength = 1.0;
    double k[4] = {0, 0, 0, 0};

    double D(double r) const {
        const double r2 = r * r;
        return 1 + k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2 + k[3] * r2 * r2 * r2 * r2;
    }

    // The undistorted radius u with u * D(u) = t (the lens is monotone over
    // the radii the tests use).
    double undistort(double t) const {
        double lo = 0, hi = 3;
        for (int i = 0; i < 60; ++i) {
            const double mid = 0.5 * (lo + hi);
            (mid * D(mid) < t ? lo : hi) = mid;
        }
        return 0.5 * (lo + hi);
    }

    // The source position of an output point (x, y) of the correction, as a
    // function of (x, y, &sx, &sy); what does not depend on the point is
    // worked out once.
    auto correctionSource() const {
        const double diagonal = hypot(inWidth, inHeight);
        const double q = diagonal / hypot(double(crop[2]) - crop[0], double(crop[3]) - crop[1]);
        const double kn = 1 / (q * diagonal * 0.5);
        const double mx = std::min(outCenterX, outWidth - outCenterX);
        const double my = std::min(outCenterY, outHeight - outCenterY);
        const double gmin = std::min(D(1.0), std::min(D(mx * kn), D(my * kn)));
        const double bx = q * (inCenterX - crop[0]), by = q * (inCenterY - crop[1]);
        const LensSetup lens = *this;
        return [=](double x, double y, double *sx, double *sy) {
            const double dx = x - lens.outCenterX, dy = y - lens.outCenterY;
            const double rho = hypot(dx, dy) * kn * gmin;
            const double ratio = rho > 0 ? lens.undistort(rho) / rho : 1.0;
            const double f = 1 - (1 - gmin * ratio) * lens.strength;
            *sx = bx + dx * f;
            *sy = by + dy * f;
        };
    }

    // The same for the distortion (the forward model).
    auto distortionSource() const {
        const double diagonal = hypot(inWidth, inHeight);
        const double scale = diagonal / hypot(double(crop[2]) - crop[0], double(crop[3]) - crop[1]);
        const double g1 = undistort(1.0);
        const double kn = (1 / (scale * diagonal * 0.5)) / g1;
        const double mx = std::min(outCenterX, outWidth - outCenterX);
        const double my = std::min(outCenterY, outHeight - outCenterY);
        auto g = [&](double t) { return t > 0 ? undistort(t) / t : 1.0; };
        const double c = std::min(g(1.0), std::min(g(kn * mx), g(kn * my)));
        const double bx = scale * (inCenterX - crop[0]), by = scale * (inCenterY - crop[1]);
        const LensSetup lens = *this;
        return [=](double x, double y, double *sx, double *sy) {
            const double dx = x - lens.outCenterX, dy = y - lens.outCenterY;
            const double m = 1 - (1 - c * lens.D(hypot(dx, dy) * kn * c)) * lens.strength;
            *sx = bx + dx * m;
            *sy = by + dy * m;
        };
    }
};

// Bilinear sample of a channel at (x, y), in samples of that channel; the
// edge is replicated.
template <typename Fetch>
double sampleBilinear(Fetch fetch, int32_t width, int32_t height, double x, double y) {
    x = std::min(std::max(x, 0.0), width - 1.0);
    y = std::min(std::max(y, 0.0), height - 1.0);
    const int32_t x0 = static_cast<int32_t>(x), y0 = static_cast<int32_t>(y);
    const int32_t x1 = std::min(x0 + 1, width - 1), y1 = std::min(y0 + 1, height - 1);
    const double fx = x - x0, fy = y - y0;
    const double top = fetch(x0, y0) * (1 - fx) + fetch(x1, y0) * fx;
    const double bottom = fetch(x0, y1) * (1 - fx) + fetch(x1, y1) * fx;
    return top * (1 - fy) + bottom * fy;
}

}  // namespace pvx_test
