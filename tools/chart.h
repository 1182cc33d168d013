// The demo's test chart: a checkerboard with grid lines through the centre,
// concentric rings, colour patches, a grey ramp, groups of one- and two-pixel
// lines and lines of small block glyphs.
#pragma once

#include <string>
#include <vector>

#include "frame.h"

namespace parvex_tool {

// An RGB888 chart of any size (laid out for 1920x1080, scaled by height).
Frame drawChart(int width, int height);

// Where the chart's grid lines cross, in pixel-centre coordinates (a
// two-pixel line between pixels k-1 and k is centred at k - 0.5).
struct Point {
    double x, y;
};
std::vector<Point> chartCrossings(int width, int height);

// Draws `text` in the 5x7 block font, each glyph pixel `scale` pixels wide,
// with its top-left corner at (x, y); unknown characters are blank.
void drawText(Frame *rgb, int x, int y, int scale, const std::string &text, const uint8_t colour[3]);

}  // namespace parvex_tool
