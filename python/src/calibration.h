// Calibration files and Android metadata, read by the calibration module and
// handed to Python as a plain dict.
#pragma once

#include <pybind11/pybind11.h>

namespace parvex_python {

void addCalibration(pybind11::module_ &module);

}  // namespace parvex_python
