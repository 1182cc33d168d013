// parvex._parvex: the Python face of the library. Argument parsing and
// docstrings; the engine itself is driven by corrector.cpp.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string.h>

#include "arguments.h"
#include "calibration.h"
#include "corrector.h"
#include "engine_internals.h"
#include "errors.h"

namespace py = pybind11;
using namespace parvex_python;

namespace {

const char kCorrectorDoc[] = R"doc(Corrects (or applies) radial lens distortion in numpy frames.

Corrector(width, height, format="NV12", *, k=None, table=None, center=None,
          output_size=None, strength=1.0, zoom=1.0, crop=None, workers=None,
          fill="black", full_range=False)

width, height  input frame size (320..6144 x 240..6144; even for the YUV formats)
format         "NV12", "NV21", "I420" (arrays of shape (h * 3 // 2, w), as
               OpenCV lays them out), "RGB" or "BGR" (shape (h, w, 3), so a
               cv2.imread image goes straight in with "BGR"). The engine's
               names ("YUV420_SEMIPLANAR", "BGR888", ...) are accepted too.
k              (k1, k2, k3, k4) of D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8,
               r in units of half the frame diagonal; fewer than four are
               padded with zeros. Positive k1 corrects barrel distortion.
table          (xs, ys) instead of k: 2..256 output radii (rising) and the
               source radii they sample, in units of the distance from the
               output centre to a corner. process only.
center         optical centre (x, y) in input pixels (default: the middle).
output_size    (width, height), or "recommended" for a size whose corrected
               picture stays inside the input (default: the input size).
strength       0 (none) .. 1 (full correction).
zoom           >= 1: the centre 1/zoom of the corrected picture, scaled up.
               Needs output_size equal to the input size; not with "BGR".
crop           (left, top, right, bottom) in input pixels: correct as if the
               frame were this rectangle. With a table lens the crop uses
               the plain lens instead of the table.
workers        threads per frame, the calling one included (default: one per
               processor).
fill           what the pixels get that no input pixel maps to: "black"
               (default), a colour (r, g, b), or None to leave them as `out`
               held them (new arrays start zeroed).
full_range     YUV levels of the fill colour: False (default) for video range
               (black is Y 16), True for full range (Y 0).

The engine and its work buffer are set up once; each process()/distort()
call then corrects one frame with the GIL released, so correctors on
several threads run in parallel (calls on one corrector are serialised).
close(), or leaving a `with` block, stops the engine.

Errors are parvex.Error subclasses that carry the library's result code
(.code, .code_name), the call and the argument: ParamError (a ValueError)
for PARVEX_ERROR_PARAM and every refused argument, StateError for
PARVEX_ERROR_STATE (a closed corrector), FormatError, WorkBufferError.)doc";

const char kProcessDoc[] = R"doc(process(frame, out=None) -> numpy.ndarray

Corrects one frame and returns the corrected frame.

frame  uint8 array of the input shape (see input_shape). Rows may be padded
       (any row stride); other layouts (I420 views, reversed or gathered
       strides) are copied to a packed array first.
out    None (a new array is returned), or a writable uint8 array of the
       output shape that receives the frame without any allocation; pass
       `frame` itself to correct in place (output size = input size).)doc";

const char kDistortDoc[] = R"doc(distort(frame, out=None) -> numpy.ndarray

Applies the lens distortion instead of removing it (lenses given by k only;
positive k1 draws barrel distortion). Same arguments as process(). A later
process() call rebuilds the correction mesh by itself.)doc";

Lens readLens(const py::object &k, const py::object &table) {
    Lens lens;
    if (k.is_none() == table.is_none())
        raiseParam("Corrector", "k, table", "describe the lens by k=(k1, k2, k3, k4) or by table=(xs, ys), one of the two");
    if (!k.is_none()) {
        readDoubles(k, -4, "Corrector", "k", "a sequence of 1 to 4 numbers (k1, k2, k3, k4)", lens.k);
        return lens;
    }
    lens.table = true;
    if (!py::isinstance<py::sequence>(table) || py::len(table) != 2)
        raiseParam("Corrector", "table", "table must be a pair (xs, ys) of sequences of numbers");
    const py::sequence pair = py::reinterpret_borrow<py::sequence>(table);
    try {
        lens.xs = py::cast<std::vector<double>>(pair[0]);
        lens.ys = py::cast<std::vector<double>>(pair[1]);
    } catch (const py::cast_error &) {
        raiseParam("Corrector", "table", "table must be a pair (xs, ys) of sequences of numbers");
    }
    return lens;
}

Settings readSettings(int64_t width, int64_t height, const std::string &format, const py::object &k,
                      const py::object &table, const py::object &center, const py::object &outputSize,
                      double strength, double zoom, const py::object &crop, const py::object &workers,
                      const py::object &fill, bool fullRange) {
    Settings s;
    if (!parsePixelFormat(format, &s.format))
        raiseError(PARVEX_ERROR_IMAGE_FORMAT, "Corrector", "format",
                   "format \"" + format + "\" is not one of NV12, NV21, I420, RGB, BGR (or the engine's names)");
    const auto clampSize = [](int64_t v) { return static_cast<int32_t>(v < -1 ? -1 : v > 1000000 ? 1000000 : v); };
    s.width = clampSize(width);
    s.height = clampSize(height);
    s.lens = readLens(k, table);
    if (!center.is_none()) {
        readDoubles(center, 2, "Corrector", "center", "a pair (x, y) in input pixels", s.center);
        s.centerGiven = true;
    }
    if (py::isinstance<py::str>(outputSize)) {
        if (outputSize.cast<std::string>() != "recommended")
            raiseParam("Corrector", "output_size", "output_size must be (width, height), \"recommended\" or None");
        s.outputMode = OutputSize::Recommended;
    } else if (!outputSize.is_none()) {
        readInts(outputSize, 2, "Corrector", "output_size", "(width, height), \"recommended\" or None", s.output);
        s.outputMode = OutputSize::Given;
    }
    s.strength = strength;
    s.zoom = zoom;
    if (!crop.is_none()) {
        readInts(crop, 4, "Corrector", "crop", "four integers (left, top, right, bottom)", s.crop);
        s.cropGiven = true;
    }
    if (!workers.is_none()) {
        int32_t w = -1;
        const py::tuple one = py::make_tuple(workers);
        readInts(one, 1, "Corrector", "workers", "an integer from 1 to 16, or None", &w);
        if (w < 1 || w > maxWorkers())
            raiseParam("Corrector", "workers", "workers " + std::to_string(w) + " is outside 1.." + std::to_string(maxWorkers()));
        s.workers = w;
    }
    const char *engineName = engineFormatName(s.format);
    if (py::isinstance<py::str>(fill)) {
        if (fill.cast<std::string>() != "black")
            raiseParam("Corrector", "fill", "fill must be \"black\", a colour (r, g, b) or None");
        const parvex_BorderColour c = parvex_BorderFill_black(engineName, fullRange);
        memcpy(s.fillColour, c.c, 3);
        s.fill = true;
    } else if (!fill.is_none()) {
        int32_t rgb[3];
        readInts(fill, 3, "Corrector", "fill", "\"black\", a colour (r, g, b) of 0..255 or None", rgb);
        for (int i = 0; i < 3; ++i)
            if (rgb[i] < 0 || rgb[i] > 255) raiseParam("Corrector", "fill", "fill colour levels must be 0..255");
        const parvex_BorderColour c = parvex_BorderFill_fromRgb(engineName, static_cast<uint8_t>(rgb[0]),
                                                                static_cast<uint8_t>(rgb[1]), static_cast<uint8_t>(rgb[2]), fullRange);
        memcpy(s.fillColour, c.c, 3);
        s.fill = true;
    }
    return s;
}

py::tuple shapeTuple(const FrameShape &shape) {
    py::tuple t(shape.ndim);
    for (int i = 0; i < shape.ndim; ++i) t[i] = shape.dims[i];
    return t;
}

}  // namespace

PYBIND11_MODULE(_parvex, m) {
    // The docstrings carry their own signatures, in Python terms.
    py::options options;
    options.disable_function_signatures();
    m.doc() = "The compiled core of the parvex module (see help(parvex)).";
    m.attr("version") = parvex_DistortionCorrection_getVersion();

    py::class_<Corrector>(m, "Corrector", kCorrectorDoc)
        .def(py::init([](int64_t width, int64_t height, const std::string &format, py::object k, py::object table,
                         py::object center, py::object outputSize, double strength, double zoom, py::object crop,
                         py::object workers, py::object fill, bool fullRange) {
                 return new Corrector(readSettings(width, height, format, k, table, center, outputSize, strength, zoom,
                                                   crop, workers, fill, fullRange));
             }),
             py::arg("width"), py::arg("height"), py::arg("format") = "NV12", py::kw_only(), py::arg("k") = py::none(),
             py::arg("table") = py::none(), py::arg("center") = py::none(), py::arg("output_size") = py::none(),
             py::arg("strength") = 1.0, py::arg("zoom") = 1.0, py::arg("crop") = py::none(),
             py::arg("workers") = py::none(), py::arg("fill") = "black", py::arg("full_range") = false,
             "Sets the engine up (see the class description); raises ParamError, FormatError or\n"
             "WorkBufferError naming the argument at fault.")
        .def("process", &Corrector::process, py::arg("frame"), py::arg("out") = py::none(), kProcessDoc)
        .def("distort", &Corrector::distort, py::arg("frame"), py::arg("out") = py::none(), kDistortDoc)
        .def("close", &Corrector::close, "close()\n\nStops the engine; every later frame call raises StateError. Idempotent.")
        .def_property_readonly("closed", &Corrector::closed, "True after close().")
        .def_property("strength", &Corrector::strength, &Corrector::setStrength,
                      "Correction strength 0..1; setting it rebuilds the mesh at once.")
        .def_property("zoom", &Corrector::zoom, &Corrector::setZoom,
                      "Zoom ratio >= 1, applied from the next frame.")
        .def_property("crop", &Corrector::crop, &Corrector::setCrop,
                      "Crop rectangle (left, top, right, bottom) in input pixels; None resets it to the whole frame.")
        .def_property_readonly("recommended_output_size", &Corrector::recommendedOutputSize,
                               "(width, height) whose corrected picture stays inside the input, for this lens and centre.")
        .def_property_readonly("width", [](Corrector &c) { return c.settings().width; }, "Input width.")
        .def_property_readonly("height", [](Corrector &c) { return c.settings().height; }, "Input height.")
        .def_property_readonly("format", [](Corrector &c) { return shortFormatName(c.settings().format); },
                               "\"NV12\", \"NV21\", \"I420\", \"RGB\" or \"BGR\".")
        .def_property_readonly("engine_format", [](Corrector &c) { return engineFormatName(c.settings().format); },
                               "The library's name of the format (\"YUV420_SEMIPLANAR\", ...).")
        .def_property_readonly("output_size",
                               [](Corrector &c) {
                                   const Settings s = c.settings();
                                   return py::make_tuple(s.output[0], s.output[1]);
                               },
                               "(width, height) of the frames process() writes.")
        .def_property_readonly("input_shape", [](Corrector &c) { return shapeTuple(c.inputShape()); },
                               "Shape of the frames process() takes.")
        .def_property_readonly("output_shape", [](Corrector &c) { return shapeTuple(c.outputShape()); },
                               "Shape of the frames process() returns.")
        .def_property_readonly("k",
                               [](Corrector &c) -> py::object {
                                   const Settings s = c.settings();
                                   if (s.lens.table) return py::none();
                                   return py::make_tuple(s.lens.k[0], s.lens.k[1], s.lens.k[2], s.lens.k[3]);
                               },
                               "(k1, k2, k3, k4), or None for a table lens.")
        .def_property_readonly("table",
                               [](Corrector &c) -> py::object {
                                   const Settings s = c.settings();
                                   if (!s.lens.table) return py::none();
                                   return py::make_tuple(s.lens.xs, s.lens.ys);
                               },
                               "(xs, ys) of a table lens, or None.")
        .def_property_readonly("center",
                               [](Corrector &c) -> py::object {
                                   const Settings s = c.settings();
                                   if (!s.centerGiven) return py::make_tuple(s.width * 0.5, s.height * 0.5);
                                   return py::make_tuple(s.center[0], s.center[1]);
                               },
                               "Optical centre (x, y) in input pixels.")
        .def_property_readonly("engine_seconds", &Corrector::engineSeconds,
                               "Seconds spent inside the library's frame calls so far (the rest of a "
                               "process() call is the binding's own time).")
        .def_property_readonly("fill",
                               [](Corrector &c) -> py::object {
                                   const Settings s = c.settings();
                                   if (!s.fill) return py::none();
                                   return py::make_tuple(s.fillColour[0], s.fillColour[1], s.fillColour[2]);
                               },
                               "Fill colour in the format's own terms ((R, G, B) or (Y, U, V)), or None.")
        .def_property_readonly("workers",
                               [](Corrector &c) -> py::object {
                                   const Settings s = c.settings();
                                   if (s.workers > 0) return py::int_(s.workers);
                                   return py::none();
                               },
                               "Threads per frame, or None for one per processor.");

    m.attr("MAX_WORKERS") = maxWorkers();
    addCalibration(m);
}
