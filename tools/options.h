// The command line of parvex: a command, its file arguments and options.
#pragma once

#include <string>
#include <vector>

#include "colour.h"
#include "frame.h"

namespace parvex_tool {

// The --fill colour: black in the frame's range, an RGB colour, or none
// (the undrawn pixels keep whatever the output buffer held).
struct FillColour {
    enum class Kind { Black, Rgb, None };
    Kind kind = Kind::Black;
    uint8_t rgb[3] = {0, 0, 0};
};

// "black", "none", "white", "grey"/"gray", "red", "green", "blue",
// "#RRGGBB" / "RRGGBB" or "R,G,B" (0..255 each); false for anything else.
bool parseFillColour(const std::string &text, FillColour *colour);

struct Size {
    int width = 0, height = 0;
};

struct Options {
    std::string command;                 // "demo", "correct", "distort", "info", "lens" or "help"
    std::vector<std::string> files;      // positional arguments

    bool coefGiven[4] = {false, false, false, false};
    double coef[4] = {0.0, 0.0, 0.0, 0.0};
    std::string tableFile;

    bool formatGiven = false;
    Layout format = Layout::RGB888;
    bool strengthGiven = false;
    double strength = 1.0;
    bool zoomGiven = false;
    double zoom = 1.0;
    bool cropGiven = false;
    int crop[4] = {0, 0, 0, 0};          // left, top, right, bottom
    bool centerGiven = false;
    double center[2] = {0.0, 0.0};
    bool sizeGiven = false;
    Size size;                           // raw input size, or the size for info
    bool outputSizeGiven = false;
    bool outputRecommended = false;
    Size outputSize;
    bool inPlace = false;
    bool rangeGiven = false;
    Range range = Range::Limited;
    int quality = 95;
    FillColour fill;                     // --fill
    bool quiet = false;

    // Calibration import (correct, lens).
    std::string calibrationFile;         // --calibration FILE (the file argument of "lens")
    std::string calibrationKind;         // --kind: opencv, fisheye, android, lensfun ("" detects)
    std::string lensName;                // --lens NAME (Lensfun)
    double focal = 0.0;                  // --focal MM (Lensfun)
    double cropFactor = 0.0;             // --crop-factor F (Lensfun)
    std::string lensForm;                // --form: best, coefficients, table

    bool anyCoef() const { return coefGiven[0] || coefGiven[1] || coefGiven[2] || coefGiven[3]; }
};

// Parses argv; throws a UsageError for anything malformed or misplaced.
Options parseOptions(int argc, char **argv);

// Strict number parsers (whole text, finite values); false when malformed.
bool parseDouble(const std::string &text, double *value);
bool parseInt(const std::string &text, int *value);
bool parseSize(const std::string &text, Size *size);

}  // namespace parvex_tool
