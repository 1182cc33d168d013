// Raw 4:2:0 frames and YUV4MPEG2 streams. In a file a frame is stored
// without padding: luma width x height, then each chroma plane (or the
// interleaved chroma plane) at half size rounded up.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "frame.h"
#include "output_file.h"

namespace parvex_tool {

// Bytes of one stored frame of a 4:2:0 layout.
size_t storedFrameSize(Layout layout, int width, int height);
// Between the stored form and a Frame of the same layout.
void unpackStoredFrame(const uint8_t *stored, Frame *frame);
void packStoredFrame(const Frame &frame, uint8_t *stored);

// Reads `size` bytes; returns the number read (short only at end of file).
size_t readFully(FILE *file, uint8_t *data, size_t size);

// Raw frames of a known size in a regular file.
class RawReader {
public:
    RawReader(const std::string &path, Layout layout, int width, int height);
    ~RawReader();
    RawReader(const RawReader &) = delete;
    RawReader &operator=(const RawReader &) = delete;

    long long frameCount() const { return frames_; }
    // Reads the next frame into `frame`; false after the last one.
    bool next(Frame *frame);

private:
    std::string path_;
    Layout layout_;
    int width_, height_;
    FILE *file_ = nullptr;
    long long frames_ = 0, done_ = 0;
    std::vector<uint8_t> stored_;
};

// The stream header: its tags in order, W and H kept apart.
struct Y4mHeader {
    int width = 0, height = 0;
    std::vector<std::string> tags;  // every tag but W and H, as written ("F25:1", "C420jpeg", ...)
    bool fullRange = false;         // an XCOLORRANGE=FULL tag

    // The header line (with its newline) for a stream of the given size.
    std::string format(int width, int height) const;
};

// Parses a header line (without its newline); throws a ToolError.
Y4mHeader parseY4mHeader(const std::string &line);

class Y4mReader {
public:
    // `file` is read from its present position; `name` is used in messages.
    Y4mReader(FILE *file, const std::string &name);
    ~Y4mReader();
    Y4mReader(const Y4mReader &) = delete;
    Y4mReader &operator=(const Y4mReader &) = delete;

    const Y4mHeader &header() const { return header_; }
    // Reads the next frame as YUV420_PLANAR; false at a clean end of stream.
    bool next(Frame *frame);

private:
    bool readLine(std::string *line, const char *what);
    FILE *file_;
    bool owned_;
    std::string name_;
    Y4mHeader header_;
    long long frames_ = 0;
    std::vector<uint8_t> stored_;
};

// Opens `path` ("-": standard input) for a Y4mReader, which closes it.
FILE *openY4mInput(const std::string &path);

class Y4mWriter {
public:
    Y4mWriter(OutputFile *out, const Y4mHeader &header, int width, int height);
    void write(const Frame &frame);  // YUV420_PLANAR

private:
    OutputFile *out_;
    std::string header_;
    bool started_ = false;
    std::vector<uint8_t> stored_;
};

}  // namespace parvex_tool
