#include "lens_math.h"

#include <math.h>

#include <algorithm>

namespace parvex_tool {

namespace {

// The inverse ratio u(t) / t that `distort` scales by (1 at t = 0).
double inverseRatio(const Lens &lens, double t) { return t > 0 ? lensUndistort(lens, t) / t : 1.0; }

// Largest radius up to which r * D(r) keeps rising, sampled every 0.001.
double risingLimit(const Lens &lens) {
    double previous = 0;
    for (int i = 1; i <= 4000; ++i) {
        const double r = i / 1000.0, value = r * lensRatio(lens, r);
        if (!(value > previous)) return (i - 1) / 1000.0;
        previous = value;
    }
    return 4.0;
}

}  // namespace

double lensRatio(const Lens &lens, double r) {
    const double r2 = r * r, r4 = r2 * r2;
    return 1 + lens.coef[0] * r2 + lens.coef[1] * r4 + lens.coef[2] * r2 * r4 + lens.coef[3] * r4 * r4;
}

double lensUndistort(const Lens &lens, double t) {
    double lo = 0, hi = risingLimit(lens);
    if (hi * lensRatio(lens, hi) <= t) return hi;
    for (int i = 0; i < 80; ++i) {
        const double mid = 0.5 * (lo + hi);
        (mid * lensRatio(lens, mid) < t ? lo : hi) = mid;
    }
    return 0.5 * (lo + hi);
}

double distortionSourceRadius(const Lens &lens, int width, int height, double radius) {
    const double halfDiagonal = hypot(width, height) * 0.5;
    const double g1 = inverseRatio(lens, 1.0);
    const double k = (1.0 / halfDiagonal) / g1;
    // The scale of the nearer border (or of radius 1) keeps the frame filled.
    const double c = std::min({g1, inverseRatio(lens, k * width * 0.5), inverseRatio(lens, k * height * 0.5)});
    return radius * c * lensRatio(lens, radius * k * c);
}

Lens inverseOfDistortion(const Lens &lens, int width, int height, int points) {
    const double halfDiagonal = hypot(width, height) * 0.5;
    Lens table;
    table.table = true;
    // Output radii up to a little beyond the corners, so no pixel needs the
    // extrapolated point past the table.
    const double last = 1.02;
    for (int i = 0; i < points; ++i) {
        const double target = last * i / (points - 1) * halfDiagonal;
        // distortionSourceRadius rises with the radius for lenses whose
        // r * D(r) rises; find the distorted radius that maps to `target`.
        double lo = 0, hi = 4 * halfDiagonal;
        for (int n = 0; n < 80; ++n) {
            const double mid = 0.5 * (lo + hi);
            (distortionSourceRadius(lens, width, height, mid) < target ? lo : hi) = mid;
        }
        table.outputRadii.push_back(target / halfDiagonal);
        table.sourceRadii.push_back(0.5 * (lo + hi) / halfDiagonal);
    }
    return table;
}

}  // namespace parvex_tool
