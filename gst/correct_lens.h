// Where the element's lens comes from: a calibration file (any kind the
// calibration module reads), a table file, or the k1..k4 properties, in that
// order of precedence.
#pragma once

#include <stdint.h>

#include <string>

#include "correct_engine.h"

namespace parvex_gst {

struct LensSource {
    double coef[4] = {0, 0, 0, 0};
    std::string table;        // file of "OUT SRC" lines
    std::string calibration;  // calibration file
    // The engine applies strength and crop to coefficient lenses only, so a
    // calibration is then converted to coefficients rather than a table.
    bool coefficientsOnly = false;
};

// The lens for frames of width x height and the centre the calibration
// gives (negative when it gives none). False with `error` (naming the file)
// and `property` set when a file cannot be used.
bool resolveLens(const LensSource &source, int32_t width, int32_t height, Lens *lens, double *centerX, double *centerY,
                 std::string *error, std::string *property);

}  // namespace parvex_gst
