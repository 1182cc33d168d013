// Lenses from calibration files (OpenCV, Android, Lensfun) for the parvex
// tool: the options that select them, the lens they give the engine, and
// the lens command that prints a conversion.
#pragma once

#include <string>

#include "engine.h"
#include "options.h"

namespace parvex_tool {

// Stores one of --calibration --kind --lens --focal --crop-factor --form;
// throws a UsageError for a malformed value.
void parseCalibrationOption(const std::string &option, const std::string &value, Options *options);

// The engine lens and optical centre that --calibration gives for frames of
// width x height. Prints what the conversion did and its fit error to
// standard error unless `quiet`. Throws a ToolError for a bad file.
Lens lensFromCalibration(const Options &options, int width, int height, double center[2], bool quiet);

// parvex lens FILE [--size WxH] [--table OUT.txt]
int runLens(const Options &options);

}  // namespace parvex_tool
