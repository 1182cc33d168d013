// The demo's geometric check: the chart's grid crossings located in a
// corrected frame against the same crossings in the chart itself, and a
// picture of the displacements.
#pragma once

#include <vector>

#include "border.h"
#include "chart.h"
#include "frame.h"

namespace parvex_tool {

struct CrossingError {
    std::vector<Point> reference;  // located in the chart
    std::vector<Point> located;    // located in the corrected frame
    double median = 0.0, largest = 0.0;  // distances in pixels
};

// Locates every crossing of `chart` (a YUV frame of the chart) to a
// fraction of a pixel, then the same crossing in `corrected`, starting from
// where it is in the chart. Crossings near the frame's edge or the border
// that `border` fills are left out.
CrossingError measureCrossings(const Frame &chart, const Frame &corrected, const Border &border);

// `rgb` dimmed to grey with each displacement drawn as an arrow `scale`
// times its length, green below 0.25 px, yellow below 0.5 px, red above.
Frame drawDisplacements(const Frame &rgb, const CrossingError &error, double scale);

}  // namespace parvex_tool
