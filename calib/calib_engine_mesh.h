// The mesh the engine builds for a lens, computed by the engine's own lens
// model and grid construction at the engine's default settings.
#pragma once

#include <stdint.h>

#include <vector>

#include "calib/parvex_calib.h"

namespace parvex_calib {
namespace detail {

struct EngineMesh {
    int32_t numX = 0, numY = 0;
    std::vector<int32_t> dstX, dstY;   // per vertex, row by row
    std::vector<double> srcX, srcY;
    double fillScale = 1;              // coefficient lenses: the engine's fill factor
};

// Mesh for frames of width x height with the lens's centre; throws an Error
// naming `name` when the engine could not lay it out.
EngineMesh engineMesh(const EngineLens &lens, int32_t width, int32_t height, const std::string &name);

// The table the engine ends up holding: the caller's points and the
// extrapolated point it appends.
void engineTablePoints(const EngineLens &lens, std::vector<double> *xs, std::vector<double> *ys);

}  // namespace detail
}  // namespace parvex_calib
