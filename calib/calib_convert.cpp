// Conversion of a camera model to the engine's lens: the optical centre,
// and either four coefficients fitted by least squares or a table of radii
// sampled from the model, whichever strays less from the model.
#include <math.h>

#include <algorithm>
#include <array>

#include <opencv2/core.hpp>

#include "calib/calib_internal.h"
#include "lens/pvx_grid_build.h"

namespace parvex_calib {

namespace {

using detail::number;

// Distance from the optical centre to the farthest corner of the frame.
double farthestCorner(const CameraModel &m) {
    return std::max({hypot(m.cx, m.cy), hypot(m.width - m.cx, m.cy), hypot(m.cx, m.height - m.cy),
                     hypot(m.width - m.cx, m.height - m.cy)});
}

// Points in an engine table. The engine appends one extrapolated point of
// its own after the last one, and with 256 points that point overwrites the
// first key, so one slot is left for it.
constexpr int kTablePoints = 255;

// The engine's correction: for a source radius s (in half diagonals), the
// output radius is s * D(s) / gmin. The model gives, for the same output
// pixel, s * T(s) / g with T the undistorted over distorted radius and g its
// own fill scale. The fit makes D proportional to T, with the factor free
// (the engine's gmin absorbs it), over the output pixels whose source lies
// inside the frame: one row (s^3, s^5, s^7, s^9, -s T) . (k1..k4, c) = -s a
// pixel, on a grid over the frame.
struct FitRows {
    cv::Mat a, b;
};

FitRows fitRows(const CameraModel &m, double g) {
    const double half = hypot(m.width, m.height) * 0.5, f = detail::radialFocal(m);
    const double limit = detail::risingLimit(m);
    const int step = std::max(1, std::max(m.width, m.height) / 200);
    std::vector<double> rows;
    std::vector<double> rhs;
    for (int y = 0; y <= m.height; y += step) {
        for (int x = 0; x <= m.width; x += step) {
            const double rhoU = hypot(x - m.cx, y - m.cy) * g / f;
            if (rhoU > limit || rhoU == 0) continue;
            const double ratio = detail::radialRatio(m, rhoU);
            const double s = f * rhoU * ratio / half;
            // Pixels whose source lies outside the frame show nothing of it.
            const double sx = m.cx + (x - m.cx) * g * ratio, sy = m.cy + (y - m.cy) * g * ratio;
            if (sx < 0 || sy < 0 || sx > m.width - 1 || sy > m.height - 1) continue;
            const double s2 = s * s;
            rows.insert(rows.end(), {s * s2, s * s2 * s2, s * s2 * s2 * s2, s * s2 * s2 * s2 * s2, -s / ratio});
            rhs.push_back(-s);
        }
    }
    FitRows r;
    const int n = static_cast<int>(rhs.size());
    if (n >= 5) {
        r.a = cv::Mat(n, 5, CV_64F, rows.data()).clone();
        r.b = cv::Mat(n, 1, CV_64F, rhs.data()).clone();
    }
    return r;
}

// Least squares with a weight per row; false when the system is singular.
bool solveWeighted(const FitRows &rows, const cv::Mat &weights, double coef[4], cv::Mat *residual) {
    cv::Mat a = rows.a.clone(), b = rows.b.clone(), x;
    for (int i = 0; i < a.rows; ++i) {
        const double w = sqrt(weights.at<double>(i));
        a.row(i) *= w;
        b.at<double>(i) *= w;
    }
    if (!cv::solve(a, b, x, cv::DECOMP_QR)) return false;
    for (int i = 0; i < 4; ++i) coef[i] = x.at<double>(i);
    *residual = cv::abs(rows.a * x - rows.b);
    return true;
}

// Two candidate fits: plain least squares (smallest RMS), and Lawson's
// reweighting towards the smallest largest deviation.
std::vector<std::array<double, 4>> coefficientFits(const CameraModel &m, double g) {
    std::vector<std::array<double, 4>> fits;
    const FitRows rows = fitRows(m, g);
    if (rows.a.empty()) return {{0, 0, 0, 0}};
    cv::Mat weights(rows.a.rows, 1, CV_64F, cv::Scalar(1.0)), residual;
    std::array<double, 4> coef = {0, 0, 0, 0};
    if (!solveWeighted(rows, weights, coef.data(), &residual)) return {{0, 0, 0, 0}};
    fits.push_back(coef);
    constexpr int kLawsonRounds = 30;
    for (int round = 0; round < kLawsonRounds; ++round) {
        weights = weights.mul(residual);
        const double total = cv::sum(weights)[0];
        if (!(total > 0)) break;
        weights /= total;
        if (!solveWeighted(rows, weights, coef.data(), &residual)) break;
    }
    fits.push_back(coef);
    return fits;
}

// Output radii from the centre to the farthest corner (and a little more),
// in the engine's unit, the distance from the centre to the top-left
// corner; the values are the model's source radii in the same unit.
void buildTable(const CameraModel &m, double g, std::vector<double> *xs, std::vector<double> *ys) {
    const double unit = hypot(m.cx, m.cy), f = detail::radialFocal(m);
    const double limit = detail::risingLimit(m);
    const double far = farthestCorner(m);
    const double last = far / unit * 1.001;
    xs->clear();
    ys->clear();
    for (int i = 0; i < kTablePoints; ++i) {
        const double key = last * i / (kTablePoints - 1);
        const double rhoU = std::min(key * unit * g / f, limit);
        xs->push_back(key);
        ys->push_back(f * rhoU * detail::radialRatio(m, rhoU) / unit);
    }
}

// True when every vertex on the border of the engine's lattice samples
// inside the frame (the engine skips a table lens's cells with a corner
// outside it, while it clamps a coefficient lens's vertices).
bool borderVerticesInside(const CameraModel &m, double g) {
    const double f = detail::radialFocal(m);
    const int32_t cell = pvx_Grid_cellSize(m.width, m.height);
    auto inside = [&](int32_t x, int32_t y) {
        const double dx = x - m.cx, dy = y - m.cy;
        const double ratio = detail::radialRatio(m, hypot(dx, dy) * g / f);
        const double sx = m.cx + dx * g * ratio, sy = m.cy + dy * g * ratio;
        // A margin for the table's interpolation between its points.
        const double margin = 0.05;
        return sx >= margin && sy >= margin && sx <= m.width - margin && sy <= m.height - margin;
    };
    for (int32_t x = 0;; x += cell) {
        const int32_t vx = std::min(x, m.width);
        if (!inside(vx, 0) || !inside(vx, m.height)) return false;
        if (vx == m.width) break;
    }
    for (int32_t y = 0;; y += cell) {
        const int32_t vy = std::min(y, m.height);
        if (!inside(0, vy) || !inside(m.width, vy)) return false;
        if (vy == m.height) break;
    }
    return true;
}

// The table's fill scale: the model's own, lowered where needed until the
// border vertices sample inside the frame, so that no border cell is left
// undrawn.
double tableFillScale(const CameraModel &m, double g) {
    if (borderVerticesInside(m, g)) return g;
    double lo = g * 0.5, hi = g;
    if (!borderVerticesInside(m, lo)) return g;
    for (int i = 0; i < 50; ++i) {
        const double mid = 0.5 * (lo + hi);
        (borderVerticesInside(m, mid) ? lo : hi) = mid;
    }
    return lo;
}

// The terms the engine's radial model leaves out, each with the largest
// displacement it causes over the frame.
void noteDroppedTerms(const CameraModel &m, double g, std::vector<std::string> *notes) {
    auto report = [&](const std::string &what, CameraModel reduced) {
        notes->push_back(what + " dropped: up to " + number(detail::termSize(m, reduced, g), 3) + " px");
    };
    if (m.type == CameraModel::Type::Pinhole) {
        if (m.d[2] != 0 || m.d[3] != 0) {
            CameraModel r = m;
            r.d[2] = r.d[3] = 0;
            report("tangential terms p1 " + number(m.d[2]) + ", p2 " + number(m.d[3]), r);
        }
        if (m.d[8] != 0 || m.d[9] != 0 || m.d[10] != 0 || m.d[11] != 0) {
            CameraModel r = m;
            r.d[8] = r.d[9] = r.d[10] = r.d[11] = 0;
            report("thin-prism terms s1..s4", r);
        }
        if (m.d[12] != 0 || m.d[13] != 0) {
            CameraModel r = m;
            r.d[12] = r.d[13] = 0;
            report("sensor tilt tauX " + number(m.d[12]) + ", tauY " + number(m.d[13]), r);
        }
    }
    if (m.skew != 0) {
        CameraModel r = m;
        r.skew = 0;
        report("skew " + number(m.skew), r);
    }
    if (m.fx != m.fy) {
        CameraModel r = m;
        r.fx = r.fy = detail::radialFocal(m);
        report("unequal focal lengths fx " + number(m.fx) + ", fy " + number(m.fy) + " (radial model uses " +
                   number(r.fx) + ")",
               r);
    }
}

std::string fitText(const EngineLens &lens) {
    return "max " + number(lens.fit_max_px, 3) + " px, RMS " + number(lens.fit_rms_px, 3) + " px";
}

}  // namespace

EngineLens convertCameraModel(const CameraModel &m, Form form) {
    const double g = detail::exactFillScale(m);
    if (!(g > 1e-3 && g < 1e3))
        detail::fail(m.name, "distortion coefficients", "the model gives no usable picture scale (" + number(g) + ")");
    EngineLens base;
    base.center_x = m.cx;
    base.center_y = m.cy;
    base.source = m.source;
    base.fill_scale = g;
    base.notes = m.notes;
    noteDroppedTerms(m, g, &base.notes);
    const double f = detail::radialFocal(m), limit = detail::risingLimit(m);
    const double far = farthestCorner(m);
    if (limit * f / g < far)
        base.notes.push_back("the model's radial part turns back " + number(limit * f / g, 5) +
                             " px from the centre (the frame reaches " + number(far, 5) +
                             " px); output beyond it is not a picture of the scene");

    EngineLens coefficients = base, table = base;
    int64_t compared = 0;   // output pixels whose source lies in the frame
    if (form != Form::Table) {
        coefficients.mode = 0;
        coefficients.fit_max_px = INFINITY;
        for (const std::array<double, 4> &fit : coefficientFits(m, g)) {
            EngineLens candidate = coefficients;
            for (int i = 0; i < 4; ++i) candidate.coef[i] = fit[i];
            const FitError e = measureFitError(candidate, m);
            if (!(e.max_px < coefficients.fit_max_px)) continue;
            coefficients = candidate;
            compared = e.pixels;
            coefficients.fit_max_px = e.max_px;
            coefficients.fit_rms_px = e.rms_px;
        }
    }
    if (form != Form::Coefficients) {
        table.mode = 1;
        table.fill_scale = tableFillScale(m, g);
        if (g / table.fill_scale > 1.001)
            table.notes.push_back("table output scaled by " + number(g / table.fill_scale, 5) +
                                  " so that the frame's border cells sample inside the frame");
        buildTable(m, table.fill_scale, &table.xs, &table.ys);
        const FitError e = measureFitError(table, m);
        compared = std::max(compared, e.pixels);
        table.fit_max_px = e.max_px;
        table.fit_rms_px = e.rms_px;
    }
    // A model that folds back close to the centre, or sends the frame
    // outside itself, leaves too little to compare: not a usable lens.
    if (compared < static_cast<int64_t>(m.width) * m.height / 4)
        detail::fail(m.name, "distortion coefficients",
                     "the model maps only " + number(100.0 * compared / (static_cast<double>(m.width) * m.height), 3) +
                         "% of the frame's pixels inside it (its radial part turns back " + number(limit * f / g, 4) +
                         " px from the centre); not a usable lens");
    if (form == Form::Coefficients) return coefficients;
    if (form == Form::Table) return table;
    const bool tableWins = table.fit_max_px < coefficients.fit_max_px;
    EngineLens &best = tableWins ? table : coefficients;
    best.notes.push_back(std::string(tableWins ? "table" : "coefficients") + " chosen: " + fitText(best) + " (" +
                         (tableWins ? "coefficients" : "table") + ": " + fitText(tableWins ? coefficients : table) + ")");
    return best;
}

}  // namespace parvex_calib
