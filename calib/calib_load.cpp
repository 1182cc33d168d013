// Reading and converting in one step.
#include "calib/parvex_calib.h"

namespace parvex_calib {

EngineLens loadCalibrationFile(const std::string &path, int32_t width, int32_t height, const Options &options) {
    return convertCameraModel(readCalibrationFile(path, width, height, options), options.form);
}

EngineLens loadCalibrationText(const std::string &text, const std::string &name, int32_t width, int32_t height,
                               const Options &options) {
    return convertCameraModel(readCalibrationText(text, name, width, height, options), options.form);
}

}  // namespace parvex_calib
