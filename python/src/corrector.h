// One lens-correction engine behind a Python object: the work buffer, the
// settings (replayed in the library's order whenever the engine is rebuilt)
// and the frame calls. Calls on one engine never overlap: a mutex guards the
// handle, and code that holds it never touches Python objects, so frame
// calls can run with the GIL released.
#pragma once

#include <stdint.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "frame_layout.h"
#include "parvex_border_fill.h"
#include "parvex_distortion_correction.h"

namespace parvex_python {

namespace py = pybind11;

struct Lens {
    bool table = false;
    double k[4] = {0, 0, 0, 0};
    std::vector<double> xs, ys;  // the table: output radii (rising), source radii
};

enum class OutputSize { Input, Given, Recommended };

struct Settings {
    PixelFormat format = PixelFormat::NV12;
    int32_t width = 0, height = 0;
    Lens lens;
    bool centerGiven = false;
    double center[2] = {0, 0};
    OutputSize outputMode = OutputSize::Input;
    int32_t output[2] = {0, 0};  // resolved by the build when Input or Recommended
    double strength = 1.0;
    double zoom = 1.0;
    bool cropGiven = false;
    int32_t crop[4] = {0, 0, 0, 0};
    int32_t workers = 0;  // 0: one per processor
    bool fill = false;    // fill the pixels the engine leaves undrawn
    uint8_t fillColour[3] = {0, 0, 0};  // in the format's own terms (R,G,B or Y,U,V)
};

// Checks every argument and their combinations before any work buffer is
// taken; raises ParamError / FormatError naming the arguments.
void validateSettings(const Settings &s);

class Corrector {
public:
    explicit Corrector(const Settings &settings);
    ~Corrector();
    Corrector(const Corrector &) = delete;
    Corrector &operator=(const Corrector &) = delete;

    py::array process(py::object frame, py::object out) { return frameCall(false, frame, out); }
    py::array distort(py::object frame, py::object out) { return frameCall(true, frame, out); }
    void close();
    bool closed();

    double strength();
    void setStrength(double strength);
    double zoom();
    void setZoom(double zoom);
    py::tuple crop();
    void setCrop(py::object crop);

    // Copies of the settings as they stand (output size resolved).
    Settings settings();
    // Seconds spent inside the library's frame calls, all calls together.
    double engineSeconds();
    py::tuple recommendedOutputSize();
    FrameShape inputShape();
    FrameShape outputShape();

private:
    struct Failure {
        uint32_t code = PARVEX_OK;
        std::string call, argument, message;
    };

    py::array frameCall(bool distort, py::object frame, py::object out);
    // Initializes the engine over the buffer and applies `settings_`. Runs
    // under the mutex without the GIL; on failure the engine is finalized.
    Failure build();
    void finalizeEngine();
    [[noreturn]] void raise(const Failure &failure);

    // Finds, once per settings and direction, which output bytes the engine
    // leaves undrawn; false with `failure` set when the probe fails.
    bool ensureBorder(bool distort, Failure *failure);

    struct Border {
        bool probed = false;
        std::vector<parvex_BorderSpan> spans;
        parvex_BorderFill fill{};
    };

    std::mutex mutex_;
    Border borders_[2];  // process, distort
    Settings settings_;
    int32_t recommended_[2] = {0, 0};
    std::unique_ptr<void, void (*)(void *)> buffer_;
    int32_t bufferSize_ = 0;
    parvex_DistortionCorrection handle_{};
    bool open_ = false;
    bool distortMesh_ = false;
    double engineSeconds_ = 0;  // the last frame call was a distort, which leaves its own mesh
};

}  // namespace parvex_python
