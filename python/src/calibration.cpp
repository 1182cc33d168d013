#include "calibration.h"

#include <pybind11/stl.h>

#include "calib/parvex_calib.h"

namespace py = pybind11;

namespace parvex_python {

namespace {

parvex_calib::Kind kindOf(const std::string &name) {
    if (name == "auto") return parvex_calib::Kind::Auto;
    if (name == "opencv") return parvex_calib::Kind::OpenCV;
    if (name == "opencv-fisheye") return parvex_calib::Kind::OpenCVFisheye;
    if (name == "android") return parvex_calib::Kind::Android;
    if (name == "lensfun") return parvex_calib::Kind::Lensfun;
    throw py::value_error("kind must be \"auto\", \"opencv\", \"opencv-fisheye\", \"android\" or \"lensfun\", not \"" +
                          name + "\"");
}

parvex_calib::Form formOf(const std::string &name) {
    if (name == "best") return parvex_calib::Form::Best;
    if (name == "k") return parvex_calib::Form::Coefficients;
    if (name == "table") return parvex_calib::Form::Table;
    throw py::value_error("form must be \"best\", \"k\" or \"table\", not \"" + name + "\"");
}

py::dict toDict(const parvex_calib::EngineLens &lens) {
    py::dict d;
    if (lens.mode == 1) {
        d["table"] = py::make_tuple(lens.xs, lens.ys);
    } else {
        d["k"] = py::make_tuple(lens.coef[0], lens.coef[1], lens.coef[2], lens.coef[3]);
    }
    if (lens.center_x >= 0 && lens.center_y >= 0) d["center"] = py::make_tuple(lens.center_x, lens.center_y);
    d["fit_max_px"] = lens.fit_max_px;
    d["fit_rms_px"] = lens.fit_rms_px;
    d["notes"] = lens.notes;
    d["source"] = lens.source;
    d["fill_scale"] = lens.fill_scale;
    return d;
}

// Reads `source` (a path, or text when `text` is set) into the engine's lens.
// Faults of the calibration come back as CalibrationError naming the file and field.
py::dict load(const std::string &source, bool text, const std::string &name, int32_t width, int32_t height,
              const std::string &kind, const std::string &form, const std::string &lens, double focalMm,
              double cropFactor) {
    parvex_calib::Options options;
    options.kind = kindOf(kind);
    options.form = formOf(form);
    options.lens = lens;
    options.focal_mm = focalMm;
    options.crop_factor = cropFactor;
    parvex_calib::EngineLens result;
    std::string fault;
    {
        py::gil_scoped_release release;
        try {
            result = text ? parvex_calib::loadCalibrationText(source, name, width, height, options)
                          : parvex_calib::loadCalibrationFile(source, width, height, options);
        } catch (const parvex_calib::Error &e) {
            fault = e.what();
            if (fault.empty()) fault = "unreadable calibration";
        }
    }
    if (!fault.empty()) {
        py::object error = py::module_::import("parvex._errors").attr("CalibrationError")(fault);
        PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(error.ptr())), error.ptr());
        throw py::error_already_set();
    }
    return toDict(result);
}

}  // namespace

void addCalibration(py::module_ &module) {
    module.def("load_calibration", &load, py::arg("source"), py::arg("text"), py::arg("name"), py::arg("width"),
               py::arg("height"), py::arg("kind") = "auto", py::arg("form") = "best", py::arg("lens") = "",
               py::arg("focal_mm") = 0.0, py::arg("crop_factor") = 0.0,
               "Reads a calibration into the engine's lens: a dict with k or table, center, fit_max_px, "
               "fit_rms_px, notes, source and fill_scale.");
}

}  // namespace parvex_python
