// Evaluation of the imported camera models: OpenCV's pinhole model (radial,
// rational, tangential, thin-prism and tilt terms), OpenCV's fisheye model
// and Lensfun's radial polynomials.
#include <math.h>
#include <stdio.h>

#include <algorithm>

#include "calib/calib_internal.h"

namespace parvex_calib {
namespace detail {

namespace {

using Type = CameraModel::Type;
using LensfunModel = CameraModel::LensfunModel;

// Radii are sampled this finely when looking for a fold, up to kMaxRadius
// (84 degrees off axis for a pinhole camera).
constexpr double kRadiusStep = 0.0005;
constexpr double kMaxRadius = 10.0;

// OpenCV's tilted-sensor projection for angles tauX, tauY (the last two of
// fourteen coefficients): the distorted point is rotated and reprojected.
void tilt(double tauX, double tauY, double *x, double *y) {
    const double cX = cos(tauX), sX = sin(tauX), cY = cos(tauY), sY = sin(tauY);
    // rotY * rotX
    const double r[3][3] = {{cY, sY * sX, -sY * cX}, {0, cX, sX}, {sY, -cY * sX, cY * cX}};
    // projZ * rotXY, projZ = [r22 0 -r02; 0 r22 -r12; 0 0 1]
    const double px = r[2][2] * r[0][0] - r[0][2] * r[2][0];
    const double pxy = r[2][2] * r[0][1] - r[0][2] * r[2][1];
    const double pxz = r[2][2] * r[0][2] - r[0][2] * r[2][2];
    const double py = r[2][2] * r[1][0] - r[1][2] * r[2][0];
    const double pyy = r[2][2] * r[1][1] - r[1][2] * r[2][1];
    const double pyz = r[2][2] * r[1][2] - r[1][2] * r[2][2];
    const double vx = px * *x + pxy * *y + pxz;
    const double vy = py * *x + pyy * *y + pyz;
    const double vz = r[2][0] * *x + r[2][1] * *y + r[2][2];
    const double inv = vz != 0 ? 1.0 / vz : 1.0;
    *x = vx * inv;
    *y = vy * inv;
}

bool hasTilt(const CameraModel &m) { return m.type == Type::Pinhole && (m.d[12] != 0 || m.d[13] != 0); }

double pinholeRadial(const double *d, double r2) {
    const double r4 = r2 * r2, r6 = r4 * r2;
    const double num = 1 + d[0] * r2 + d[1] * r4 + d[4] * r6;
    const double den = 1 + d[5] * r2 + d[6] * r4 + d[7] * r6;
    return num / den;
}

double fisheyeRatio(const double *d, double rho) {
    if (rho < 1e-10) return 1.0;
    const double t = atan(rho), t2 = t * t, t4 = t2 * t2;
    const double td = t * (1 + d[0] * t2 + d[1] * t4 + d[2] * t4 * t2 + d[3] * t4 * t4);
    return td / rho;
}

double lensfunRatio(const CameraModel &m, double rho) {
    const double *d = m.d;
    switch (m.lensfun) {
        case LensfunModel::Poly3: return 1 - d[0] + d[0] * rho * rho;
        case LensfunModel::Poly5: return 1 + d[0] * rho * rho + d[1] * rho * rho * rho * rho;
        case LensfunModel::PTLens: return d[0] * rho * rho * rho + d[1] * rho * rho + d[2] * rho + 1 - d[0] - d[1] - d[2];
    }
    return 1.0;
}

}  // namespace

[[noreturn]] void fail(const std::string &name, const std::string &field, const std::string &what) {
    throw Error(name + ": " + (field.empty() ? std::string() : field + ": ") + what);
}

std::string number(double value, int digits) {
    char text[64];
    snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

double radialRatio(const CameraModel &m, double rho) {
    switch (m.type) {
        case Type::Pinhole: return pinholeRadial(m.d, rho * rho);
        case Type::Fisheye: return fisheyeRatio(m.d, rho);
        case Type::Lensfun: return lensfunRatio(m, rho);
    }
    return 1.0;
}

bool distortNormalized(const CameraModel &m, double x, double y, double *xd, double *yd) {
    if (m.type == Type::Pinhole) {
        const double *d = m.d;
        const double r2 = x * x + y * y, r4 = r2 * r2;
        const double radial = pinholeRadial(d, r2);
        double px = x * radial + 2 * d[2] * x * y + d[3] * (r2 + 2 * x * x) + d[8] * r2 + d[9] * r4;
        double py = y * radial + d[2] * (r2 + 2 * y * y) + 2 * d[3] * x * y + d[10] * r2 + d[11] * r4;
        if (hasTilt(m)) tilt(m.d[12], m.d[13], &px, &py);
        *xd = px;
        *yd = py;
    } else {
        const double ratio = radialRatio(m, hypot(x, y));
        *xd = x * ratio;
        *yd = y * ratio;
    }
    return isfinite(*xd) && isfinite(*yd);
}

double risingLimit(const CameraModel &m) {
    double previous = 0;
    for (int i = 1;; ++i) {
        const double rho = i * kRadiusStep;
        if (rho > kMaxRadius) return kMaxRadius;
        const double value = rho * radialRatio(m, rho);
        if (!(value > previous)) return (i - 1) * kRadiusStep;
        previous = value;
    }
}

double undistortRadius(const CameraModel &m, double rhoD) {
    double lo = 0, hi = risingLimit(m);
    if (!(hi * radialRatio(m, hi) > rhoD)) return hi;
    for (int i = 0; i < 100; ++i) {
        const double mid = 0.5 * (lo + hi);
        (mid * radialRatio(m, mid) < rhoD ? lo : hi) = mid;
    }
    return 0.5 * (lo + hi);
}

double radialFocal(const CameraModel &m) { return sqrt(2.0 / (1.0 / (m.fx * m.fx) + 1.0 / (m.fy * m.fy))); }

double exactFillScale(const CameraModel &m) {
    const double half = hypot(m.width, m.height) * 0.5, f = radialFocal(m);
    // The engine's undistorted/distorted ratio at a source radius s (in
    // half diagonals).
    auto ratio = [&](double s) {
        const double rhoD = s * half / f;
        if (rhoD < 1e-12) return 1.0;
        return undistortRadius(m, rhoD) / rhoD;
    };
    const double mx = std::min(m.cx, m.width - m.cx), my = std::min(m.cy, m.height - m.cy);
    return std::min({ratio(1.0), ratio(mx / half), ratio(my / half)});
}

void validateModel(const CameraModel &m, const std::string &field) {
    const double k[5] = {m.fx, m.fy, m.cx, m.cy, m.skew};
    for (double v : k)
        if (!isfinite(v)) fail(m.name, field, "holds a value that is not a finite number");
    for (int i = 0; i < 14; ++i)
        if (!isfinite(m.d[i])) fail(m.name, "distortion coefficient " + std::to_string(i + 1), "is not a finite number");
    if (!(m.fx > 0) || !(m.fy > 0))
        fail(m.name, field, "focal lengths fx " + number(m.fx) + ", fy " + number(m.fy) + " must be positive");
    if (m.cx < 0 || m.cy < 0 || m.cx > m.width || m.cy > m.height)
        fail(m.name, field,
             "optical centre (" + number(m.cx) + ", " + number(m.cy) + ") lies outside the " +
                 std::to_string(m.width) + "x" + std::to_string(m.height) + " frame");
}

void scaleToFrame(CameraModel *m, double calibWidth, double calibHeight) {
    const double w = m->width, h = m->height;
    if (calibWidth == w && calibHeight == h) return;
    const double s = std::max(w / calibWidth, h / calibHeight);
    // The frame shows the middle of the calibration image: offsets of the
    // crop in calibration pixels (zero along the axis that fits exactly).
    const double offX = (calibWidth - w / s) * 0.5, offY = (calibHeight - h / s) * 0.5;
    m->cx = (m->cx - offX + 0.5) * s - 0.5;
    m->cy = (m->cy - offY + 0.5) * s - 0.5;
    m->fx *= s;
    m->fy *= s;
    m->skew *= s;
    std::string note = "calibration made at " + number(calibWidth) + "x" + number(calibHeight) + ", scaled by " +
                       number(s) + " to the " + number(w) + "x" + number(h) + " frame";
    if (offX > 1e-9 || offY > 1e-9)
        note += " after a centred crop to " + number(w / s) + "x" + number(h / s) + " (its aspect ratio differs)";
    m->notes.push_back(note);
}

}  // namespace detail

bool modelSourcePosition(const CameraModel &m, double fillScale, double x, double y, double *sx, double *sy) {
    // The ideal output camera: the calibrated one with its focal lengths
    // divided by the fill scale, no skew, same centre.
    const double xu = (x - m.cx) * fillScale / m.fx, yu = (y - m.cy) * fillScale / m.fy;
    double xd = 0, yd = 0;
    if (!detail::distortNormalized(m, xu, yu, &xd, &yd)) return false;
    *sx = m.fx * xd + m.skew * yd + m.cx;
    *sy = m.fy * yd + m.cy;
    return true;
}

}  // namespace parvex_calib
