// PNG (libpng) and JPEG (libjpeg-turbo) files as 8-bit RGB pictures. The
// header is read first, so that the caller can check the size before the
// pixels are decoded.
#pragma once

#include <stdio.h>

#include <memory>
#include <string>

#include "frame.h"

namespace parvex_tool {

enum class ImageType { Png, Jpeg };

class ImageReader {
public:
    // Opens the file and reads its header; throws a ToolError for a missing
    // file or one that is not an image of that type.
    static std::unique_ptr<ImageReader> open(const std::string &path, ImageType type);
    virtual ~ImageReader() = default;

    int width() const { return width_; }
    int height() const { return height_; }
    // Decodes the pixels into `rgb` (allocated as RGB888). Throws on damaged
    // or truncated data.
    virtual void read(Frame *rgb) = 0;

protected:
    int width_ = 0, height_ = 0;
};

// Writes an RGB888 frame; `name` is used in messages.
void writePng(FILE *file, const Frame &rgb, const std::string &name);
void writeJpeg(FILE *file, const Frame &rgb, int quality, const std::string &name);

}  // namespace parvex_tool
