// The library's engine behind a small RAII class: work buffer, initialize,
// settings, start, frame calls and finalize. Every failing call throws a
// ToolError naming the call and the library's result code.
#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include "frame.h"
#include "parvex_distortion_correction.h"

namespace parvex_tool {

// The lens: four coefficients (mode 0) or a table of radii (mode 1).
struct Lens {
    double coef[4] = {0.0, 0.0, 0.0, 0.0};
    bool table = false;
    std::vector<double> outputRadii;  // the table's xs, ascending
    std::vector<double> sourceRadii;  // the table's ys
};

// The work-buffer size that the library asks for (no checks; may be <= 0).
int32_t engineBufferSize(Layout layout, int width, int height);

class Engine {
public:
    Engine(Layout layout, int width, int height, const Lens &lens);
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    Layout layout() const { return layout_; }
    int inputWidth() const { return width_; }
    int inputHeight() const { return height_; }
    int outputWidth() const { return outWidth_; }
    int outputHeight() const { return outHeight_; }

    // Before start.
    void setOutputSize(int width, int height);
    void setCenter(double x, double y);
    void recommendedOutputSize(int *width, int *height);
    void setStrength(double strength);
    // Builds the correction mesh (again, after a distort).
    void start();
    // After start.
    void setZoom(double zoom);
    void setCrop(int left, int top, int right, int bottom);

    // Frame calls. The frames must have the engine's format; `input` is
    // const in meaning (the library does not write it unless it is `output`).
    void process(Frame *output, Frame *input);
    void distort(Frame *output, Frame *input);

    // For helpers that make frame calls of their own on the same handle
    // (the border probe): the handle, and the frame calls' error report.
    parvex_DistortionCorrection *handle() { return &handle_; }
    void checkFrameCall(uint32_t code, const char *call) const;

private:
    Layout layout_;
    int width_, height_, outWidth_, outHeight_;
    bool tableLens_;
    std::unique_ptr<uint64_t[]> buffer_;
    parvex_DistortionCorrection handle_{};
    bool initialized_ = false;
};

}  // namespace parvex_tool
