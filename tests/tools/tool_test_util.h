// Helpers for running the parvex tool in tests: a temporary directory, the
// tool run through the shell, PNG files through libpng, test pictures and
// the library's own output for given settings, worked out by calling the
// public API directly. Pictures are the tool's frames, whose stored form is
// checked on its own in tool_parts_test.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "frame.h"

namespace tool_test {

using parvex_tool::Frame;
using parvex_tool::Layout;

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Names of the entries (hidden ones included), sorted.
    std::vector<std::string> list() const;

private:
    std::string path_;
};

struct RunResult {
    int status = -1;  // exit code, or -1 when the tool did not exit normally
    std::string out, err;
};

// Runs "parvex ARGS" with `stdinPath` (or /dev/null) on standard input.
RunResult runTool(const std::string &args, const std::string &stdinPath = std::string());

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &bytes);
bool fileExists(const std::string &path);

void writePngFile(const std::string &path, int width, int height, const std::vector<uint8_t> &rgb);
// False when libpng cannot read it.
bool readPngFile(const std::string &path, int *width, int *height, std::vector<uint8_t> *rgb);

// A picture of the given layout filled with gradients, edges and seeded noise.
Frame patternFrame(Layout layout, int width, int height, uint64_t stream);
// The picture's bytes: RGB rows, or a 4:2:0 frame as stored in a file.
std::string pictureBytes(const Frame &frame);
// A 4:2:0 frame from its stored form, padding filled as the tool fills it.
Frame fromStored(Layout layout, int width, int height, const std::string &bytes);

struct Settings {
    Layout format = Layout::RGB888;
    double coef[4] = {0, 0, 0, 0};
    std::vector<double> xs, ys;  // a table lens when not empty
    double strength = -1;        // < 0: not set
    double zoom = 0;             // 0: not set
    int crop[4] = {0, 0, 0, 0};
    bool cropSet = false;
    double center[2] = {-1, -1};  // < 0: not set
    int outSize[2] = {0, 0};      // 0: not set
    bool recommended = false;
    bool inPlace = false;
    bool distort = false;
    // The border the library leaves undrawn is filled as the tool fills it
    // by default: black, in the video range for the YUV formats.
    bool fillBorder = true;
};

// The library's output for each input frame, with the settings applied in
// the order the library wants them. Work buffer and images sit before
// guard pages. Fails the current test on any error code.
std::vector<Frame> libraryOutput(const Settings &settings, const std::vector<Frame> &inputs);

}  // namespace tool_test
