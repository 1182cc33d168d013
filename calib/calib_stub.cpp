// Placeholder bodies until the readers and the conversion land.
#include "calib/parvex_calib.h"

namespace parvex_calib {

CameraModel readCalibrationFile(const std::string &path, int32_t, int32_t, const Options &) {
    throw Error(path + ": calibration import is not available yet");
}

CameraModel readCalibrationText(const std::string &, const std::string &name, int32_t, int32_t, const Options &) {
    throw Error(name + ": calibration import is not available yet");
}

EngineLens convertCameraModel(const CameraModel &model, Form) {
    throw Error(model.name + ": calibration import is not available yet");
}

bool modelSourcePosition(const CameraModel &, double, double, double, double *, double *) { return false; }

FitError measureFitError(const EngineLens &, const CameraModel &) { return FitError(); }

}  // namespace parvex_calib
