#include "engine_limits.h"

#include <stdio.h>

#include "tool_error.h"

namespace parvex_tool {

namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

std::string numberText(double v) {
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

}  // namespace

// The library's zoom-one window is 0.999999 < zoom < 1.000001.
bool zoomsPicture(double zoom) { return !(zoom > 0.999999 && zoom < 1.000001); }

// The library's mesh cell: a sixtieth of the longer side, even, 8 to 64
// pixels; the mesh has a vertex at every cell corner and on the far edges.
long long meshVertices(int width, int height) {
    int cell = (width > height ? width : height) / 60 & ~1;
    if (cell < 9) cell = 8;
    if (cell > 63) cell = 64;
    const long long nx = (static_cast<long long>(width) + cell - 1) / cell + 1;
    const long long ny = (static_cast<long long>(height) + cell - 1) / cell + 1;
    return nx * ny;
}

void checkOutputSize(int width, int height, const std::string &option) {
    if (meshVertices(width, height) <= kMaxMeshVertices) return;
    throw UsageError(option + " is larger than the library can correct (its mesh would need " +
                     std::to_string(meshVertices(width, height)) + " vertices, at most " +
                     std::to_string(kMaxMeshVertices) + ": about 8000x8000); frames would stay undrawn");
}

void checkZoomWithOutputSize(double zoom, int inWidth, int inHeight, int outWidth, int outHeight,
                             const std::string &outputOption) {
    if (!zoomsPicture(zoom) || (outWidth == inWidth && outHeight == inHeight)) return;
    throw UsageError("--zoom " + numberText(zoom) + " cannot be used with " + outputOption + " (the input is " + sizeText(inWidth, inHeight) +
                     "): the library zooms only when the output size equals the input size");
}

}  // namespace parvex_tool
