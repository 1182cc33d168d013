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

    // Fills the undrawn pixels of an output frame of the engine.
    void fill(Frame *frame) const;

    // Share of the output's bytes that the library leaves undrawn.
    double undrawnShare() const;
    // The undrawn byte spans (count 0 with --fill none).
    const parvex_BorderFill &spans() const { return fill_; }

private:
    std::vector<parvex_BorderSpan> spans_;
    parvex_BorderFill fill_{};
    parvex_BorderColour colour_{};
    bool active_ = false;
};

}  // namespace parvex_tool
