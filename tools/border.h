// The border a lens leaves: the output pixels that the library does not
// draw (their source lies outside the input). They are the same in every
// frame, so they are found once for the engine's settings and only they are
// filled after each frame, in place or not.
#pragma once

#include <vector>

#include "colour.h"
#include "engine.h"
#include "options.h"
#include "parvex_border_fill.h"

namespace parvex_tool {

class Border {
public:
    // Probes the started `engine` with its present settings: two frames
    // through process (or distort). `range` picks the YUV levels.
    Border(Engine *engine, bool distort, const FillColour &colour, Range range);

    // Fills the undrawn pixels of an output frame of the engine, after the
    // frame call. When the library never writes them, an output buffer that
    // was filled before and is not also the input is left alone.
    void fill(Frame *frame, bool inPlace);

    // Share of the output's bytes that the library leaves undrawn.
    double undrawnShare() const;
    // The undrawn byte spans (count 0 with --fill none).
    const parvex_BorderFill &spans() const { return fill_; }

private:
    std::vector<parvex_BorderSpan> spans_;
    parvex_BorderFill fill_{};
    parvex_BorderColour colour_{};
    bool active_ = false;
    const uint8_t *filledBuffer_ = nullptr;  // the output buffer whose border is in place
};

}  // namespace parvex_tool
