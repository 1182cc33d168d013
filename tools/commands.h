// The parvex commands. Each returns the process exit code or throws a
// ToolError (exit 1) / UsageError (exit 2).
#pragma once

#include "engine.h"
#include "options.h"

namespace parvex_tool {

extern const char kUsage[];

int runDemo(const Options &options);
int runConvert(const Options &options);  // correct and distort
int runInfo(const Options &options);

// The lens of --k1..--k4 / --table, or the default barrel lens.
Lens lensFromOptions(const Options &options);
// Positive k1 corrects barrel distortion (and makes distort draw it).
constexpr double kDefaultK1 = 0.2, kDefaultK2 = 0.05;

}  // namespace parvex_tool
