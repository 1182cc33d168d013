// Lens tables in text files: one point per line, the normalised output
// radius and then the normalised source radius (1.0 is the distance from
// the output centre to a corner). Blank lines and '#' comments are skipped.
#pragma once

#include <string>

#include "engine.h"

namespace parvex_tool {

constexpr int kMaxTablePoints = 256;

// Reads the table into `lens` (table mode); throws a ToolError that names
// the file and line of the first fault.
void readTableFile(const std::string &path, Lens *lens);

}  // namespace parvex_tool
