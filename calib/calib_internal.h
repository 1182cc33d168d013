// Pieces shared by the readers, the conversion and the fit measurement.
#pragma once

#include <string>

#include "calib/parvex_calib.h"

namespace parvex_calib {
namespace detail {

// Throws an Error "NAME: FIELD: WHAT" (the field is left out when empty).
[[noreturn]] void fail(const std::string &name, const std::string &field, const std::string &what);

// Short decimal text of a number (up to `digits` significant digits).
std::string number(double value, int digits = 6);

// ---- model evaluation ----

// Distorts a point given in the model's undistorted normalised coordinates.
// False when the model has no value there (a fisheye beyond 90 degrees, a
// non-finite result).
bool distortNormalized(const CameraModel &model, double x, double y, double *xd, double *yd);

// The same with only the radially symmetric terms: distorted radius over
// undistorted radius at undistorted radius `rho`.
double radialRatio(const CameraModel &model, double rho);

// Largest undistorted radius up to which the distorted radius keeps rising
// (the model folds back beyond it); capped at a large radius.
double risingLimit(const CameraModel &model);

// Undistorted radius whose distorted radius is `rhoD`, on the rising branch
// (the rising limit when `rhoD` lies beyond its distorted radius).
double undistortRadius(const CameraModel &model, double rhoD);

// One focal length in pixels for the radial part, from fx and fy.
double radialFocal(const CameraModel &model);

// The fill scale the engine's own rule gives the exact radial model: the
// least undistorted/distorted ratio at radius 1 (half the diagonal) and at
// the nearer border along each axis.
double exactFillScale(const CameraModel &model);

// Checks the model's numbers (finite, positive focal lengths, centre inside
// the frame); `field` names the camera matrix in messages.
void validateModel(const CameraModel &model, const std::string &field);

// Places a calibration made at calibWidth x calibHeight on the model's
// frame: a centred crop to the frame's aspect ratio, then a uniform scale.
void scaleToFrame(CameraModel *model, double calibWidth, double calibHeight);

// Largest displacement, in output pixels over the frame, between `full` and
// `reduced` (the same model with some terms left out) at fill scale g.
double termSize(const CameraModel &full, const CameraModel &reduced, double g);

// ---- readers (text already in memory) ----
CameraModel readOpenCV(const std::string &text, const std::string &name, int32_t width, int32_t height,
                       bool fisheye);
CameraModel readAndroid(const std::string &text, const std::string &name, int32_t width, int32_t height);
CameraModel readLensfun(const std::string &text, const std::string &name, int32_t width, int32_t height,
                        const Options &options);

}  // namespace detail
}  // namespace parvex_calib
