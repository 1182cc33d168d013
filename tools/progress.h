// Frames-per-second report on standard error: a line rewritten in place on
// a terminal (a line every few seconds otherwise), then a summary.
#pragma once

#include <chrono>
#include <string>

namespace parvex_tool {

class Progress {
public:
    explicit Progress(bool quiet);
    // One frame done, of which `processSeconds` were spent in the library
    // and `fillSeconds` filling the border it left.
    void frameDone(double processSeconds, double fillSeconds = 0.0);
    // The summary line; `what` says what was done ("corrected").
    void finish(const std::string &what);
    long long frames() const { return frames_; }

private:
    double elapsed() const;
    bool quiet_, terminal_;
    std::chrono::steady_clock::time_point start_;
    double lastReport_ = 0.0, processTotal_ = 0.0, fillTotal_ = 0.0;
    long long frames_ = 0;
    bool lineOpen_ = false;
};

}  // namespace parvex_tool
