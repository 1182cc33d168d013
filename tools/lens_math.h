// The engine's lens equations in double precision, for building a point
// table that undoes the engine's own distortion exactly.
#pragma once

#include "engine.h"

namespace parvex_tool {

// D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8.
double lensRatio(const Lens &lens, double r);

// The radius u with u * D(u) = t, on the rising branch that starts at 0
// (the last rising radius when t lies beyond it).
double lensUndistort(const Lens &lens, double t);

// Radius in the undistorted picture that `distort` samples for a pixel at
// `radius` pixels from the centre of a width x height frame (default centre
// and crop).
double distortionSourceRadius(const Lens &lens, int width, int height, double radius);

// A point-table lens (up to `points` points, normalised by half the frame
// diagonal) whose correction is the inverse of `distort` with `lens`.
Lens inverseOfDistortion(const Lens &lens, int width, int height, int points = 256);

}  // namespace parvex_tool
