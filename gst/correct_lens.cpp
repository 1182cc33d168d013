#include "correct_lens.h"

#include <exception>

#include "engine.h"
#include "parvex_calib.h"
#include "table_file.h"

namespace parvex_gst {

namespace {

bool loadCalibration(const std::string &path, bool coefficientsOnly, int32_t width, int32_t height, Lens *lens,
                     double *centerX, double *centerY, std::string *error) {
    try {
        parvex_calib::Options options;
        if (coefficientsOnly) options.form = parvex_calib::Form::Coefficients;
        const parvex_calib::EngineLens found = parvex_calib::loadCalibrationFile(path, width, height, options);
        lens->mode = found.mode;
        for (int i = 0; i < 4; ++i) lens->coef[i] = found.coef[i];
        lens->xs = found.xs;
        lens->ys = found.ys;
        *centerX = found.center_x;
        *centerY = found.center_y;
        return true;
    } catch (const std::exception &e) {
        *error = e.what();
        return false;
    }
}

}  // namespace

bool resolveLens(const LensSource &source, int32_t width, int32_t height, Lens *lens, double *centerX, double *centerY,
                 std::string *error, std::string *property) {
    *lens = Lens();
    *centerX = *centerY = -1;
    if (!source.calibration.empty()) {
        lens->property = *property = "calibration";
        return loadCalibration(source.calibration, source.coefficientsOnly, width, height, lens, centerX, centerY,
                               error);
    }
    if (!source.table.empty()) {
        lens->property = *property = "table";
        parvex_tool::Lens table;
        try {
            parvex_tool::readTableFile(source.table, &table);
        } catch (const std::exception &e) {
            *error = e.what();
            return false;
        }
        lens->mode = 1;
        lens->xs = table.outputRadii;
        lens->ys = table.sourceRadii;
        return true;
    }
    lens->property = *property = "k1..k4";
    for (int i = 0; i < 4; ++i) lens->coef[i] = source.coef[i];
    return true;
}

}  // namespace parvex_gst
