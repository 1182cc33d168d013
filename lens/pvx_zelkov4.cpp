// Radial lens model: coefficients, the forward/inverse tables and the
// single-radius queries. All table arithmetic is float32 on purpose: the
// tables must come out bit-identical on every target.
#include "lens/pvx_zelkov4.h"

#include <cmath>
#include "runtime/pvx_convert.h"
#include "runtime/pvx_raw_double.h"
#include "runtime/pvx_record.h"

namespace {

constexpr int32_t kTableSize = 2048;

// D(r) in T (float for the tables, double for the single-radius query):
// r^2 and r^4 first, then summed left to right.
template <typename T>
T ratio(const float *k, T r) {
    const T r2 = r * r;
    const T r4 = r2 * r2;
    return T(1) + r2 * T(k[0]) + r4 * T(k[1]) + r2 * r4 * T(k[2]) + r4 * r4 * T(k[3]);
}

// Frees the table through the environment; the pointer is cleared only when
// the heap accepts the free.
void releaseTable(pvx_Zelkov4DistortionCorrection *lens) {
    if (lens->table != nullptr && !pvx_failed(pvx_Env_free(lens->env, lens->table))) lens->table = nullptr;
}

// Interpolated lookup in one table of `num` samples spaced 0.001 apart.
float lookup(const float *t, int32_t num, float a) {
    const float p = a * 1000.0f;
    // Truncation toward zero, guarded: NaN gives 0, +inf and huge values
    // reach the last entry, negative radii stay on the first segment.
    int32_t i = pvx_toInt32(static_cast<double>(p));
    if (i >= num - 1) return t[num - 1];
    if (i < 0) i = 0;
    const float f = p - static_cast<float>(i);
    return f * t[i + 1] + (1.0f - f) * t[i];
}

}  // namespace

pvx_Result pvx_construct_Zelkov4DistortionCorrection(pvx_Zelkov4DistortionCorrection *lens, pvx_Env *env) {
    return pvx_Record_construct(lens, env);
}

pvx_Result pvx_destruct_Zelkov4DistortionCorrection(pvx_Zelkov4DistortionCorrection *lens) {
    if (lens == nullptr) return PVX_ERROR_PARAM;
    releaseTable(lens);
    lens->num = 0;
    for (float &k : lens->param) k = 0.0f;
    lens->table = nullptr;
    return PVX_OK;
}

pvx_Result pvx_Zelkov4DistortionCorrection_setParam4(pvx_Zelkov4DistortionCorrection *lens, const float *coef) {
    if (lens == nullptr || coef == nullptr) return PVX_ERROR_PARAM;
    const int32_t num = kTableSize;
    lens->num = num;
    for (int32_t q = 0; q < 4; ++q) lens->param[q] = coef[q];
    const float *k = lens->param;

    releaseTable(lens);
    lens->table = nullptr;
    float *table = static_cast<float *>(pvx_Env_malloc(lens->env, static_cast<size_t>(num) * 2 * sizeof(float)));
    if (table == nullptr) {
        // Nothing to look up: leave the object as if never parameterised.
        lens->num = 0;
        return PVX_ERROR_SYSTEM;
    }
    lens->table = table;
    float *inv = table;
    float *fwd = table + num;

    // Forward pass: distorted radius r*D(r) per sample; m is one past the
    // last index where it still rises.
    int32_t m = 1;
    for (int32_t i = 0; i < num; ++i) {
        inv[i] = -1.0f;
        const float r = static_cast<float>(i) / 1000.0f;
        fwd[i] = r * ratio(k, r);
        if (i > 0 && fwd[i] > fwd[i - 1]) m = i + 1;
    }
    inv[0] = 0.0f;

    // Inverse pass: undistorted radius of each distorted target, by linear
    // interpolation inside the first bracketing segment. The search stops at
    // the last segment of the table, so a target above fwd[num-1] counts as
    // not bracketed. c is the count of targets that could be inverted.
    int32_t c = num;
    for (int32_t j = 1; j < num; ++j) {
        const float t = static_cast<float>(j) / 1000.0f;
        float dHi = 1.0e30f;
        float dLo = 1.0e30f;
        int32_t kLo = -1;
        int32_t kHi = -1;
        for (int32_t s = 0; s < m && s <= num - 2; ++s) {
            const float a = fwd[s];
            const float b = fwd[s + 1];
            if (a <= t && t < b) {
                // Each end is weighted by the distance to the other one.
                dHi = std::fabs(b - t);
                dLo = std::fabs(a - t);
                kLo = s;
                kHi = s + 1;
                break;
            }
        }
        inv[j] = (dHi * static_cast<float>(kLo) + dLo * static_cast<float>(kHi)) / (dLo + dHi) / 1000.0f;
        if (kLo < 0) {
            c = j;
            break;
        }
    }

    inv[0] = 1.0f;
    fwd[0] = 1.0f;

    // Ratio pass. The forward ratio is held at its last rising sample. The
    // inverse divides by the target radius itself (float(i)/1000, which is
    // also float(i*0.001) rounded from double for every i here), so an
    // identity model gives exactly 1.0 everywhere.
    for (int32_t i = 1; i < num; ++i) {
        const int32_t e = i < m - 1 ? i : m - 1;
        fwd[i] = ratio(k, static_cast<float>(e) / 1000.0f);
        if (i < c) {
            inv[i] = inv[i] / (static_cast<float>(i) / 1000.0f);
        } else {
            inv[i] = inv[c - 1];
        }
    }
    return PVX_OK;
}

float pvx_Zelkov4DistortionCorrection_get(const pvx_Zelkov4DistortionCorrection *lens, float r) {
    if (lens == nullptr) return 1.0f;
    return static_cast<float>(ratio(lens->param, static_cast<double>(r)));
}

float pvx_Zelkov4DistortionCorrection_getf(const pvx_Zelkov4DistortionCorrection *lens, float r) {
    if (lens == nullptr || lens->table == nullptr || lens->num < 2) return 1.0f;
    return lookup(lens->table + lens->num, lens->num, r);
}

float pvx_Zelkov4DistortionCorrection_getinv(const pvx_Zelkov4DistortionCorrection *lens, float t) {
    if (lens == nullptr || lens->table == nullptr || lens->num < 2) return 1.0f;
    return lookup(lens->table, lens->num, t);
}

namespace {

// Vertical scale at horizontal position x: 1 - |x - cx| * vslope / cx,
// floored at 0.8 and rounded to float. A zero slope disables it outright
// (also for a one-pixel-wide image, where cx is 0).
float verticalScale(const pvx_Zelkov4DistortionCorrection *lens, double x, double cx) {
    if (lens->vslope == 0.0f) return 1.0f;
    const double s = 1.0 - std::fabs(x - cx) * static_cast<double>(lens->vslope) / cx;
    return s <= 0.8 ? 0.8f : static_cast<float>(s);
}

// Maps (x, y) about the image centre. Forward: scaled by the forward ratio,
// then squeezed vertically. Backward: the squeeze undone first, then scaled
// by the inverse ratio.
pvx_Result mapPoint(const pvx_Zelkov4DistortionCorrection *lens, double *outX, double *outY, double x, double y,
                    double width, double height, double scale, bool forward) {
    if (lens == nullptr || outX == nullptr || outY == nullptr) return PVX_ERROR_PARAM;
    const double cx = (width - 1.0) * 0.5;
    const double cy = (height - 1.0) * 0.5;
    const double dx = x - cx;
    const float sv = verticalScale(lens, x, cx);
    const double dy = forward ? y - cy : (cy + (y - cy) / static_cast<double>(sv)) - cy;
    const float r = static_cast<float>(pvx_RawDouble_hypot(dx, dy) * scale);
    const double g = forward ? pvx_Zelkov4DistortionCorrection_getf(lens, r)
                             : pvx_Zelkov4DistortionCorrection_getinv(lens, r);
    *outX = cx + dx * g;
    *outY = forward ? cy + ((cy + dy * g) - cy) * static_cast<double>(sv) : cy + dy * g;
    return PVX_OK;
}

}  // namespace

pvx_Result pvx_Zelkov4DistortionCorrection_dcforward(const pvx_Zelkov4DistortionCorrection *lens, double *outX,
                                                     double *outY, double x, double y, double width,
                                                     double height, double scale) {
    return mapPoint(lens, outX, outY, x, y, width, height, scale, true);
}

pvx_Result pvx_Zelkov4DistortionCorrection_dcbackward(const pvx_Zelkov4DistortionCorrection *lens, double *outX,
                                                      double *outY, double x, double y, double width,
                                                      double height, double scale) {
    return mapPoint(lens, outX, outY, x, y, width, height, scale, false);
}

pvx_Result pvx_Zelkov4DistortionCorrection_getPos(void) { return PVX_OK; }
