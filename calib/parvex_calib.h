// Calibration import: OpenCV (pinhole and fisheye), Android camera metadata
// and Lensfun lenses, converted to what the engine takes (four coefficients
// or a table of radii, plus the optical centre), with the fit error of the
// conversion measured over the frame.
//
// This module sits beside the library: it links OpenCV core, nlohmann-json
// and pugixml, and reports faults by throwing parvex_calib::Error.
#pragma once

#include <stdint.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace parvex_calib {

enum class Kind { Auto, OpenCV, OpenCVFisheye, Android, Lensfun };
enum class Form { Best, Coefficients, Table };

struct Options {
    Kind kind = Kind::Auto;   // Auto: detected from the content
    Form form = Form::Best;   // Best: whichever fits better by the measured error
    std::string lens;         // Lensfun: lens model name
    double focal_mm = 0;      // Lensfun: focal length
    double crop_factor = 0;   // Lensfun: crop factor of the camera that took the frames (0: the calibration's)
};

struct EngineLens {                 // what to hand to the engine
    int32_t mode = 0;               // InitParam.mode: 0 coefficients, 1 table
    double coef[4] = {0, 0, 0, 0};  // InitParam.coef when mode == 0
    std::vector<double> xs, ys;     // InitParam.xs/ys (num = size, 255: the engine appends a point) when mode == 1
    double center_x = -1, center_y = -1;  // for setInputCenter (input pixels)
    double fit_max_px = 0, fit_rms_px = 0; // fit error over the frame, output pixels
    std::vector<std::string> notes;        // dropped terms with their size in px, rescaling applied, ...
    std::string source;                    // "OpenCV", "OpenCV fisheye", "Android", "Lensfun"
    // Output scale of the correction: an output pixel at distance d from the
    // centre shows what an ideal camera with focal lengths fx / fill_scale,
    // fy / fill_scale would see there (OpenCV: the new camera matrix is the
    // camera matrix with fx and fy divided by fill_scale, same centre).
    double fill_scale = 1;
};

struct Error : std::runtime_error { using std::runtime_error::runtime_error; };  // message names the file and the field

// A calibration file of any kind (OpenCV YAML/XML, Android JSON, Lensfun XML) for frames of width x height.
EngineLens loadCalibrationFile(const std::string &path, int32_t width, int32_t height, const Options &options = {});
// The same from text already in memory (`name` is used in messages), e.g. a JSON dump of Android metadata.
EngineLens loadCalibrationText(const std::string &text, const std::string &name, int32_t width, int32_t height,
                               const Options &options = {});

// ---- The pieces behind the two calls above ----

// A camera model as its calibration describes it, placed on the frame
// (camera matrix already scaled to width x height).
struct CameraModel {
    enum class Type { Pinhole, Fisheye, Lensfun };
    Type type = Type::Pinhole;
    std::string source;          // "OpenCV", "OpenCV fisheye", "Android", "Lensfun"
    std::string name;            // file name (or the name given with the text), for messages
    int32_t width = 0, height = 0;
    // Pixel = (fx * x + skew * y + cx, fy * y + cy) for a distorted point
    // (x, y) in normalised coordinates. Lensfun: fx = fy = the unit radius
    // in pixels, centre at the middle of the frame.
    double fx = 0, fy = 0, cx = 0, cy = 0, skew = 0;
    // Pinhole: k1 k2 p1 p2 k3 k4 k5 k6 s1 s2 s3 s4 taux tauy (OpenCV's order, unused ones 0).
    // Fisheye: k1 k2 k3 k4 on the angle. Lensfun: poly3 k1 / poly5 k1 k2 / ptlens a b c.
    double d[14] = {};
    enum class LensfunModel { Poly3, Poly5, PTLens };
    LensfunModel lensfun = LensfunModel::Poly3;
    std::vector<std::string> notes;  // what was done to place the calibration on the frame
};

struct FitError {
    double max_px = 0, rms_px = 0;   // output pixels
    int64_t pixels = 0;              // output pixels compared (those whose source lies inside the frame)
};

// Reads a calibration (kind from `options.kind`, or detected) for frames of
// width x height; 0 x 0 takes the size the calibration was made at (OpenCV
// image_width/image_height, Android's active array; Lensfun has none).
CameraModel readCalibrationFile(const std::string &path, int32_t width, int32_t height, const Options &options = {});
CameraModel readCalibrationText(const std::string &text, const std::string &name, int32_t width, int32_t height,
                                const Options &options = {});

// Converts a model to the engine's lens in the requested form (Best: the
// form with the smaller largest fit error), with its fit error and notes.
// Throws an Error for a model that gives no usable picture.
EngineLens convertCameraModel(const CameraModel &model, Form form = Form::Best);

// Where the model samples the frame for output pixel (x, y) when the output
// scale is `fill_scale` (see EngineLens). False when the model gives no
// finite position there.
bool modelSourcePosition(const CameraModel &model, double fill_scale, double x, double y, double *sx, double *sy);

// Largest and RMS distance, in output pixels, between where the engine's
// mesh for `lens` samples each output pixel of the frame and where `model`
// says it should (at the lens's fill scale), over the pixels whose source
// lies inside the frame and within the radius up to which the model's radial
// part keeps rising. Within a cell the mesh is interpolated bilinearly
// between its corners, as the renderer does. The engine runs at its defaults: output size equal
// to the input size, strength 1, no crop, centre set to the lens's centre.
FitError measureFitError(const EngineLens &lens, const CameraModel &model);

}  // namespace parvex_calib
