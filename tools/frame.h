// Pictures as the engine sees them: one of the five formats it accepts, with
// planes tightly packed by the library's size rule (4:2:0 luma planes are
// rounded up to even width and height).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "parvex_distortion_correction.h"

namespace parvex_tool {

enum class Layout { RGB888, BGR888, YUV420_PLANAR, YUV420_SEMIPLANAR, YVU420_SEMIPLANAR };

// The engine's format name ("YUV420_SEMIPLANAR", ...).
const char *layoutName(Layout layout);
// Accepts the five names in any letter case; false for anything else.
bool parseLayout(const std::string &text, Layout *layout);
bool isYuv(Layout layout);
int planeCount(Layout layout);

// The numbers on the engine's size limits, for messages.
constexpr int kMinWidth = 320, kMaxWidth = 6144, kMinHeight = 240, kMaxHeight = 6144;

class Frame {
public:
    Frame() = default;
    Frame(Layout layout, int width, int height) { allocate(layout, width, height); }

    // Sizes the planes for `layout` at width x height (keeps the memory when
    // the byte size is unchanged). Contents are unspecified afterwards.
    void allocate(Layout layout, int width, int height);

    Layout layout() const { return layout_; }
    int width() const { return width_; }
    int height() const { return height_; }
    bool empty() const { return bytes_.empty(); }

    uint8_t *plane(int p) { return bytes_.data() + offset_[p]; }
    const uint8_t *plane(int p) const { return bytes_.data() + offset_[p]; }
    size_t pitch(int p) const { return pitch_[p]; }
    int rows(int p) const { return rows_[p]; }
    uint8_t *row(int p, int y) { return plane(p) + static_cast<size_t>(y) * pitch_[p]; }
    const uint8_t *row(int p, int y) const { return plane(p) + static_cast<size_t>(y) * pitch_[p]; }

    size_t byteSize() const { return bytes_.size(); }
    uint8_t *data() { return bytes_.data(); }
    const uint8_t *data() const { return bytes_.data(); }

    // The public record for the frame calls; the frame must outlive it.
    parvex_ImageData imageData();

    // Copies the last real row and column of each plane into the padding that
    // the even rounding of an odd-sized 4:2:0 picture adds.
    void fillPadding();

private:
    Layout layout_ = Layout::RGB888;
    int width_ = 0, height_ = 0;
    size_t offset_[3] = {0, 0, 0};
    size_t pitch_[3] = {0, 0, 0};
    int rows_[3] = {0, 0, 0};
    std::vector<uint8_t> bytes_;
};

}  // namespace parvex_tool
