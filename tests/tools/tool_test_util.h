// Helpers for running the parvex tool in tests: a temporary directory, the
// tool run through the shell, PNG files through libpng, pictures in the
// engine formats and the library's own output for given settings, worked
// out by calling the public API directly.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace tool_test {

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

// A picture in one of the engine formats, planes tight by the size rule.
struct Picture {
    std::string format;
    int width = 0, height = 0;
    int planes = 0;
    int pitch[3] = {0, 0, 0};
    int rows[3] = {0, 0, 0};
    std::vector<uint8_t> plane[3];

    bool operator==(const Picture &o) const { return difference(o).empty(); }
    // Empty when the pictures agree, else where they first differ.
    std::string difference(const Picture &o) const;
};

Picture makePicture(const std::string &format, int width, int height);
// Fills every plane with a mix of gradients, edges and seeded noise.
void fillPattern(Picture *picture, uint64_t stream);

// A 4:2:0 picture as stored in a raw file or a YUV4MPEG2 frame (no padding).
std::string toStored(const Picture &picture);
Picture fromStored(const std::string &format, int width, int height, const std::string &bytes);

// RGB888 pixels <-> picture.
Picture rgbPicture(int width, int height, const std::vector<uint8_t> &rgb);
std::vector<uint8_t> rgbBytes(const Picture &picture);

struct Settings {
    std::string format = "RGB888";
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
// the order the library wants them. Work buffer and images sit between
// guard pages. Fails the current test on any error code.
std::vector<Picture> libraryOutput(const Settings &settings, const std::vector<Picture> &inputs);

}  // namespace tool_test
