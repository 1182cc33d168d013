// Two settings the library accepts but cannot render right, which the tool
// refuses before it takes a work buffer: a zoom other than 1 with an output
// size other than the input size (the library zooms an input-size picture
// laid out for the output size, so part of the output comes from pixels that
// were never rendered), and an output whose correction mesh would need more
// vertices than the library lays out (above about 8000 x 8000: frames would
// stay undrawn). Bindings make the same checks.
#pragma once

#include <string>

namespace parvex_tool {

// True when the library takes `zoom` as a zoom other than 1 (its frames then
// render and scale instead of drawing straight into the output).
bool zoomsPicture(double zoom);

// Vertices of the correction mesh for an output of width x height, and the
// most the library lays out.
long long meshVertices(int width, int height);
constexpr long long kMaxMeshVertices = 16384;

// Throws a UsageError naming the options when the output size cannot be
// rendered right: `option` names where the size came from ("--output-size
// 9000x9000", "--output-size recommended (9000x9000)").
void checkOutputSize(int width, int height, const std::string &option);
// Throws a UsageError for a zoom other than 1 with an output size other than
// the input size.
void checkZoomWithOutputSize(double zoom, int inWidth, int inHeight, int outWidth, int outHeight,
                             const std::string &outputOption);

}  // namespace parvex_tool
