#include "border.h"

#include <stdint.h>

#include <string>

#include "tool_error.h"

namespace parvex_tool {

Border::Border(Engine *engine, bool distort, const FillColour &colour, Range range) {
    if (colour.kind == FillColour::Kind::None) return;
    const char *format = layoutName(engine->layout());
    const int w = engine->inputWidth(), h = engine->inputHeight();
    const int ow = engine->outputWidth(), oh = engine->outputHeight();
    const size_t bytes = parvex_BorderFill_probeSize(format, w, h, ow, oh);
    if (bytes == 0) throw ToolError("cannot find the border of a " + std::to_string(ow) + "x" + std::to_string(oh) + " output");
    std::vector<uint64_t> scratch((bytes + 7) / 8);
    int32_t count = 0;
    engine->checkFrameCall(parvex_BorderFill_probe(engine->handle(),
                                                   distort ? PARVEX_BORDER_FILL_DISTORT : PARVEX_BORDER_FILL_PROCESS,
                                                   format, w, h, ow, oh, scratch.data(), bytes, &count),
                           distort ? "distort" : "process");
    spans_.resize(static_cast<size_t>(count));
    if (parvex_BorderFill_init(&fill_, scratch.data(), spans_.data(), count) != PARVEX_OK)
        throw ToolError("the border probe gave no span list");
    const int full = range == Range::Full;
    colour_ = colour.kind == FillColour::Kind::Black
                  ? parvex_BorderFill_black(format, full)
                  : parvex_BorderFill_fromRgb(format, colour.rgb[0], colour.rgb[1], colour.rgb[2], full);
    active_ = count > 0;
}

void Border::fill(Frame *frame, bool inPlace) {
    if (!active_) return;
    const bool kept = fill_.keeps_destination && !inPlace;
    if (kept && frame->data() == filledBuffer_) return;
    const parvex_ImageData data = frame->imageData();
    if (parvex_BorderFill_apply(&fill_, &data, colour_) != PARVEX_OK)
        throw ToolError("a frame does not match the probed border");
    filledBuffer_ = kept ? frame->data() : nullptr;
}

double Border::undrawnShare() const {
    return fill_.frame_bytes > 0 ? static_cast<double>(fill_.undrawn_bytes) / fill_.frame_bytes : 0.0;
}

}  // namespace parvex_tool
