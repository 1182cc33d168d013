// One engine of the parvexcorrect element: the work buffer, the set-up calls
// in the order the library wants them, the settings that change while the
// engine runs, and the frame call. Every refused call is reported with the
// element property that caused it, so that the element can name it and go
// back to the value that worked.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "parvex_border_fill.h"
#include "parvex_distortion_correction.h"

namespace parvex_gst {

// The lens as the engine takes it.
struct Lens {
    int32_t mode = 0;  // 0: coefficients, 1: table
    double coef[4] = {0, 0, 0, 0};
    std::vector<double> xs, ys;
    std::string property = "k1";  // the property that described it, for messages
};

// Everything that fixes an engine; a change to any of it builds a new one,
// except zoom, crop and (for coefficient lenses) strength.
struct EngineSetup {
    const char *format = "RGB888";  // the engine's format name
    int32_t width = 0, height = 0;  // input
    int32_t outWidth = 0, outHeight = 0;
    Lens lens;
    double centerX = -1, centerY = -1;  // negative: the picture's centre
    double strength = 1.0;
    double zoom = 1.0;
    bool cropSet = false;
    int32_t crop[4] = {0, 0, 0, 0};
    bool distort = false;
    bool fill = true;  // paint the pixels the engine leaves undrawn
    parvex_BorderColour fillColour = {{0, 0, 0}};
};

// A call the engine refused: its result code, the call and the property.
struct Refusal {
    uint32_t code = PARVEX_OK;
    std::string call;
    std::string property;
    explicit operator bool() const { return code != PARVEX_OK; }
};

// More than this many mesh vertices cannot be laid out for an output.
bool outputMeshFits(int32_t width, int32_t height);

class Engine {
public:
    // Builds and starts an engine; null with *refusal filled in on failure
    // (nothing is left running then).
    static std::unique_ptr<Engine> create(const EngineSetup &setup, Refusal *refusal);
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    const EngineSetup &setup() const { return setup_; }

    // Run-time settings; each returns the refusal (empty on success) and
    // keeps the previous value when refused.
    Refusal setZoom(double zoom);
    Refusal setCrop(bool set, const int32_t crop[4]);
    Refusal setStrength(double strength);  // coefficient lenses only

    // Corrects (or distorts) one frame; the property named on refusal is
    // the one that made the frame call fail (zoom for BGR, mode for tables).
    Refusal run(const parvex_ImageDataEx &output, const parvex_ImageDataEx &input);

private:
    explicit Engine(const EngineSetup &setup) : setup_(setup) {}
    Refusal configure();
    Refusal applyCrop(bool set, const int32_t crop[4]);
    // Finds the undrawn pixels of the present settings (two probe frames).
    Refusal probeBorder(const std::string &property);

    EngineSetup setup_;
    std::unique_ptr<uint64_t[]> buffer_;
    parvex_DistortionCorrection handle_{};
    bool initialized_ = false;
    std::vector<parvex_BorderSpan> spans_;
    parvex_BorderFill border_{};
};

// The size the library recommends for this set-up's lens and centre (the
// output size of `setup` is ignored).
Refusal recommendedOutputSize(const EngineSetup &setup, int32_t *width, int32_t *height);

}  // namespace parvex_gst
