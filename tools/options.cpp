#include "options.h"

#include <ctype.h>
#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "calibration.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

// Which options each command takes.
enum OptionBit : unsigned {
    kLens = 1u << 0,       // --k1..--k4
    kTable = 1u << 1,
    kFormat = 1u << 2,
    kGeometry = 1u << 3,   // --strength --zoom --crop --center --output-size --in-place
    kSizeOpt = 1u << 4,
    kFileOpts = 1u << 5,   // --range --quality
    kQuiet = 1u << 6,
    kFill = 1u << 7,       // --fill
    kCalibration = 1u << 8, // --calibration --kind --lens --focal --crop-factor --form
};

unsigned allowedFor(const std::string &command) {
    if (command == "correct") return kLens | kTable | kFormat | kGeometry | kSizeOpt | kFileOpts | kQuiet | kFill | kCalibration;
    if (command == "distort") return kLens | kTable | kFormat | kGeometry | kSizeOpt | kFileOpts | kQuiet | kFill;
    if (command == "lens") return kTable | kSizeOpt | kCalibration;
    if (command == "demo") return kLens;
    if (command == "info") return kFormat | kSizeOpt;
    return 0;
}

std::vector<std::string> splitCommas(const std::string &text) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        parts.push_back(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos) return parts;
        start = comma + 1;
    }
}

[[noreturn]] void badValue(const std::string &option, const std::string &value, const std::string &expected) {
    throw UsageError(option + ": \"" + value + "\" is not " + expected);
}

}  // namespace

bool parseDouble(const std::string &text, double *value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    char *end = nullptr;
    errno = 0;
    const double v = strtod(text.c_str(), &end);
    if (*end != '\0' || errno == ERANGE || !isfinite(v)) return false;
    *value = v;
    return true;
}

bool parseInt(const std::string &text, int *value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    char *end = nullptr;
    errno = 0;
    const long v = strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE || v < -2147483647L || v > 2147483647L) return false;
    *value = static_cast<int>(v);
    return true;
}

bool parseSize(const std::string &text, Size *size) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    Size s;
    if (!parseInt(text.substr(0, x), &s.width) || !parseInt(text.substr(x + 1), &s.height)) return false;
    if (text[0] == '+' || text[x + 1] == '+' || s.width < 1 || s.height < 1) return false;
    *size = s;
    return true;
}

bool parseFillColour(const std::string &text, FillColour *colour) {
    struct Named {
        const char *name;
        uint8_t rgb[3];
    };
    static const Named kNamed[] = {{"white", {255, 255, 255}}, {"grey", {128, 128, 128}}, {"gray", {128, 128, 128}},
                                   {"red", {255, 0, 0}},       {"green", {0, 255, 0}},    {"blue", {0, 0, 255}}};
    FillColour c;
    if (text == "black") {
        *colour = c;
        return true;
    }
    if (text == "none") {
        c.kind = FillColour::Kind::None;
        *colour = c;
        return true;
    }
    c.kind = FillColour::Kind::Rgb;
    for (const Named &n : kNamed)
        if (text == n.name) {
            for (int i = 0; i < 3; ++i) c.rgb[i] = n.rgb[i];
            *colour = c;
            return true;
        }
    const std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
    if (hex.size() == 6 && hex.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        const unsigned long v = std::stoul(hex, nullptr, 16);
        for (int i = 0; i < 3; ++i) c.rgb[i] = static_cast<uint8_t>(v >> (16 - 8 * i));
        *colour = c;
        return true;
    }
    int parts[3];
    size_t start = 0;
    for (int i = 0; i < 3; ++i) {
        const size_t comma = text.find(',', start);
        if ((i < 2) != (comma != std::string::npos)) return false;
        if (!parseInt(text.substr(start, comma - start), &parts[i]) || parts[i] < 0 || parts[i] > 255) return false;
        c.rgb[i] = static_cast<uint8_t>(parts[i]);
        start = comma + 1;
    }
    *colour = c;
    return true;
}

Options parseOptions(int argc, char **argv) {
    Options o;
    if (argc < 2) {
        o.command = "help";
        return o;
    }
    o.command = argv[1];
    if (o.command == "--help" || o.command == "-h" || o.command == "help") {
        o.command = "help";
        return o;
    }
    const unsigned allowed = allowedFor(o.command);
    if (allowed == 0) throw UsageError("unknown command \"" + o.command + "\" (try parvex --help)");

    for (int i = 2; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            o.command = "help";
            return o;
        }
        if (arg.size() < 2 || arg[0] != '-' || arg[1] != '-') {
            o.files.push_back(arg);  // "-" (a stream) lands here too
            continue;
        }
        std::string value;
        bool inlineValue = false;
        const size_t eq = arg.find('=');
        if (eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            inlineValue = true;
        }
        // The option's bit and whether it takes a value.
        unsigned bit = 0;
        bool takesValue = true;
        if (arg == "--k1" || arg == "--k2" || arg == "--k3" || arg == "--k4") bit = kLens;
        else if (arg == "--table") bit = kTable;
        else if (arg == "--format") bit = kFormat;
        else if (arg == "--strength" || arg == "--zoom" || arg == "--crop" || arg == "--center" ||
                 arg == "--output-size") bit = kGeometry;
        else if (arg == "--in-place") { bit = kGeometry; takesValue = false; }
        else if (arg == "--size") bit = kSizeOpt;
        else if (arg == "--range" || arg == "--quality") bit = kFileOpts;
        else if (arg == "--quiet") { bit = kQuiet; takesValue = false; }
        else if (arg == "--fill") bit = kFill;
        else if (arg == "--calibration" || arg == "--kind" || arg == "--lens" || arg == "--focal" ||
                 arg == "--crop-factor" || arg == "--form") bit = kCalibration;
        else throw UsageError("unknown option " + arg + " (try parvex --help)");
        if (!(allowed & bit)) throw UsageError(arg + " does not apply to \"" + o.command + "\"");
        if (!takesValue) {
            if (inlineValue) throw UsageError(arg + " takes no value");
        } else if (!inlineValue) {
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            value = argv[++i];
        }

        if (bit == kLens) {
            const int k = arg[3] - '1';
            if (!parseDouble(value, &o.coef[k])) badValue(arg, value, "a number");
            o.coefGiven[k] = true;
        } else if (arg == "--table") {
            if (value.empty()) throw UsageError("--table needs a file name");
            o.tableFile = value;
        } else if (arg == "--format") {
            if (!parseLayout(value, &o.format))
                badValue(arg, value, "a format the engine takes (RGB888, BGR888, YUV420_PLANAR, YUV420_SEMIPLANAR, YVU420_SEMIPLANAR)");
            o.formatGiven = true;
        } else if (arg == "--strength") {
            if (!parseDouble(value, &o.strength) || o.strength < 0.0 || o.strength > 1.0)
                badValue(arg, value, "a strength from 0 to 1");
            o.strengthGiven = true;
        } else if (arg == "--zoom") {
            if (!parseDouble(value, &o.zoom) || o.zoom < 1.0) badValue(arg, value, "a zoom ratio of at least 1");
            o.zoomGiven = true;
        } else if (arg == "--crop") {
            const std::vector<std::string> parts = splitCommas(value);
            if (parts.size() != 4) badValue(arg, value, "four numbers L,T,R,B");
            for (int k = 0; k < 4; ++k)
                if (!parseInt(parts[k], &o.crop[k]) || o.crop[k] < 0) badValue(arg, value, "four pixel positions L,T,R,B");
            if (o.crop[2] <= o.crop[0] || o.crop[3] <= o.crop[1])
                badValue(arg, value, "a rectangle (right must exceed left and bottom must exceed top)");
            o.cropGiven = true;
        } else if (arg == "--center") {
            const std::vector<std::string> parts = splitCommas(value);
            if (parts.size() != 2 || !parseDouble(parts[0], &o.center[0]) || !parseDouble(parts[1], &o.center[1]) ||
                o.center[0] < 0.0 || o.center[1] < 0.0)
                badValue(arg, value, "a position X,Y in input pixels");
            o.centerGiven = true;
        } else if (arg == "--output-size") {
            if (value == "recommended") {
                o.outputRecommended = true;
            } else if (!parseSize(value, &o.outputSize)) {
                badValue(arg, value, "a size WxH or \"recommended\"");
            }
            o.outputSizeGiven = true;
        } else if (arg == "--in-place") {
            o.inPlace = true;
        } else if (arg == "--size") {
            if (!parseSize(value, &o.size)) badValue(arg, value, "a size WxH");
            o.sizeGiven = true;
        } else if (arg == "--range") {
            if (value == "limited" || value == "tv") o.range = Range::Limited;
            else if (value == "full" || value == "pc") o.range = Range::Full;
            else badValue(arg, value, "\"limited\" or \"full\"");
            o.rangeGiven = true;
        } else if (arg == "--quality") {
            if (!parseInt(value, &o.quality) || o.quality < 1 || o.quality > 100) badValue(arg, value, "a JPEG quality from 1 to 100");
        } else if (arg == "--quiet") {
            o.quiet = true;
        } else if (arg == "--fill") {
            if (!parseFillColour(value, &o.fill))
                badValue(arg, value, "a colour (black, none, white, grey, red, green, blue, #RRGGBB or R,G,B)");
        } else if (bit == kCalibration) {
            parseCalibrationOption(arg, value, &o);
        }
    }

    if (o.command == "lens") {
        if (o.files.size() != 1) throw UsageError("lens takes one calibration file");
        if (!o.calibrationFile.empty()) throw UsageError("lens takes the calibration file as its argument, not with --calibration");
        o.calibrationFile = o.files[0];
        return o;
    }
    if (!o.calibrationFile.empty() && (o.anyCoef() || !o.tableFile.empty()))
        throw UsageError("--calibration describes the lens; leave out --k1..--k4 and --table");
    if (o.calibrationFile.empty() && (!o.lensName.empty() || o.focal > 0 || o.cropFactor > 0 || !o.calibrationKind.empty() || !o.lensForm.empty()))
        throw UsageError("--kind, --lens, --focal, --crop-factor and --form go with --calibration FILE");
    if (!o.tableFile.empty() && o.anyCoef()) throw UsageError("--table and --k1..--k4 describe the lens two ways; give one");
    if (o.inPlace && o.outputSizeGiven) {
        if (o.outputRecommended)
            throw UsageError("--in-place writes into the input picture, so --output-size recommended (a different size) cannot be used with it");
    }
    if (o.command == "demo") {
        if (o.files.size() > 1) throw UsageError("demo takes at most one file (the PNG to write)");
    } else if (o.command == "info") {
        if (!o.files.empty()) throw UsageError("info takes no files");
    } else if (o.files.size() != 2) {
        throw UsageError(o.command + " needs an input and an output (IN OUT; \"-\" for a YUV4MPEG2 stream)");
    }
    return o;
}

}  // namespace parvex_tool
