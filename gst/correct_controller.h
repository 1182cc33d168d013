// The element's settings and its engine, without GStreamer objects: builds
// the engine when the settings or the frames' format change, applies zoom,
// crop and strength to the running engine, and turns every refusal into a
// report that names the property and puts that property back to the value
// the engine last took, so that frames keep flowing.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "correct_engine.h"
#include "correct_lens.h"

namespace parvex_gst {

struct Settings {
    LensSource lens;
    double centerX = -1, centerY = -1;  // negative: the calibration's centre, else the picture's
    double strength = 1.0;
    double zoom = 1.0;
    bool cropSet = false;
    int32_t crop[4] = {0, 0, 0, 0};  // left, top, right, bottom in input pixels
    bool distort = false;
    int32_t outWidth = 0, outHeight = 0;  // both positive: this output size
    bool recommended = false;             // the library's recommended output size
    std::string fill = "black";
};

struct Report {
    std::string property;
    std::string message;
};

// The frames the engine works on.
struct FrameShape {
    const char *format = nullptr;  // the engine's format name
    int32_t width = 0, height = 0, outWidth = 0, outHeight = 0;
    bool fullRange = false;  // YUV levels 0..255 rather than 16..235
};

// The fill property: "black" (in the frame's range), "none" or an RGB
// colour as 0xRRGGBB or #RRGGBB. False when the text is none of these.
bool parseFill(const std::string &text, const char *format, bool fullRange, bool *fill, parvex_BorderColour *colour);

class Controller {
public:
    Settings &wanted() { return wanted_; }
    // A setting that only a new engine takes has changed.
    void rebuildLater() { rebuild_ = true; }
    // New caps: the next frame builds a new engine.
    void setShape(const FrameShape &shape);

    // The output size for input frames of width x height in `format`.
    void outputSize(const char *format, int32_t width, int32_t height, int32_t *outWidth, int32_t *outHeight,
                    std::vector<Report> *reports);

    // Brings the engine up to the wanted settings; false (with a report)
    // when no engine can run these frames at all.
    bool prepare(std::vector<Report> *reports);
    // One frame; false (with a report) when the engine refuses it even with
    // the settings that worked before.
    bool run(const parvex_ImageDataEx &output, const parvex_ImageDataEx &input, std::vector<Report> *reports);

    const Engine *engine() const { return engine_.get(); }

private:
    bool build(std::vector<Report> *reports);
    bool revert(const std::string &property);
    void applyRunTime(std::vector<Report> *reports);
    EngineSetup setupFor(const Lens &lens, double cx, double cy) const;

    Settings wanted_, accepted_;
    FrameShape shape_;
    bool rebuild_ = true;
    std::unique_ptr<Engine> engine_;
};

}  // namespace parvex_gst
