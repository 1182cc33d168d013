// Frame sources and sinks over the file kinds the tool reads and writes.
#pragma once

#include <memory>
#include <string>

#include "frame.h"
#include "image_file.h"
#include "output_file.h"
#include "yuv_stream.h"

namespace parvex_tool {

enum class FileKind { Png, Jpeg, RawI420, RawNv12, RawNv21, Y4m };

// From the file name ("-" is a Y4M stream); throws a UsageError.
FileKind fileKind(const std::string &path, const char *role);
Layout storedLayout(FileKind kind);
bool isRaw(FileKind kind);
bool isPicture(FileKind kind);

class FrameSource {
public:
    virtual ~FrameSource() = default;
    int width() const { return width_; }
    int height() const { return height_; }
    Layout layout() const { return layout_; }
    // Number of frames when known in advance, else -1.
    virtual long long frameCount() const { return -1; }
    // The stream header of a Y4M source, else null.
    virtual const Y4mHeader *y4mHeader() const { return nullptr; }
    // The next frame in the source's layout; false at the end.
    virtual bool next(Frame *frame) = 0;

protected:
    int width_ = 0, height_ = 0;
    Layout layout_ = Layout::RGB888;
};

// Opens the input and reads its header. `rawSize` is used for raw files.
std::unique_ptr<FrameSource> openSource(const std::string &path, FileKind kind, int rawWidth, int rawHeight);

class FrameSink {
public:
    virtual ~FrameSink() = default;
    Layout layout() const { return layout_; }
    virtual void write(const Frame &frame) = 0;
    // Completes the output (renames a file into place).
    virtual void finish() = 0;

protected:
    Layout layout_ = Layout::RGB888;
};

// `y4m` gives the tags of a Y4M output (null: a default header).
std::unique_ptr<FrameSink> openSink(const std::string &path, FileKind kind, int width, int height,
                                    const Y4mHeader *y4m, bool fullRange, int jpegQuality);

}  // namespace parvex_tool
