#include "errors.h"

#include <stdio.h>

#include <pybind11/pybind11.h>

#include "parvex_distortion_correction.h"

namespace py = pybind11;

namespace parvex_python {

std::string codeName(uint32_t code) {
    switch (code) {
    case PARVEX_OK: return "PARVEX_OK";
    case PARVEX_ERROR_PARAM: return "PARVEX_ERROR_PARAM";
    case PARVEX_ERROR_STATE: return "PARVEX_ERROR_STATE";
    case PARVEX_ERROR_IMAGE_FORMAT: return "PARVEX_ERROR_IMAGE_FORMAT";
    case PARVEX_ERROR_MALLOC: return "PARVEX_ERROR_MALLOC";
    }
    char text[16];
    snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
    return text;
}

void raiseError(uint32_t code, const std::string &call, const std::string &argument, const std::string &message) {
    py::object errors = py::module_::import("parvex._errors");
    py::object error = errors.attr("error_for")(code, codeName(code), call,
                                                argument.empty() ? py::object(py::none()) : py::str(argument), message);
    PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

void raiseParam(const std::string &call, const std::string &argument, const std::string &message) {
    raiseError(PARVEX_ERROR_PARAM, call, argument, message);
}

}  // namespace parvex_python
