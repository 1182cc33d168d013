#include "image_file.h"

#include <errno.h>
#include <setjmp.h>
#include <string.h>

#include <png.h>
#include <jpeglib.h>
#include <jerror.h>

#include "tool_error.h"

namespace parvex_tool {

namespace {

// Pictures beyond this are refused before their pixels are allocated; the
// engine itself takes at most 6144 on a side.
constexpr png_uint_32 kMaxSide = 65535;

FILE *openInput(const std::string &path) {
    FILE *file = fopen(path.c_str(), "rb");
    if (!file) throw ToolError("cannot open " + path + ": " + strerror(errno));
    return file;
}

void checkSide(const std::string &path, unsigned long width, unsigned long height) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide)
        throw ToolError(path + ": a picture of " + std::to_string(width) + "x" + std::to_string(height) +
                        " cannot be processed");
}

// ---- PNG, through libpng's simplified interface (it reports errors in the
// image record instead of jumping).

class PngReader : public ImageReader {
public:
    PngReader(const std::string &path) : path_(path) {
        file_ = openInput(path);
        memset(&image_, 0, sizeof image_);
        image_.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_stdio(&image_, file_)) fail("not a readable PNG file");
        checkSide(path_, image_.width, image_.height);
        width_ = static_cast<int>(image_.width);
        height_ = static_cast<int>(image_.height);
    }
    ~PngReader() override {
        png_image_free(&image_);
        fclose(file_);
    }

    void read(Frame *rgb) override {
        rgb->allocate(Layout::RGB888, width_, height_);
        image_.format = PNG_FORMAT_RGB;
        png_color black = {0, 0, 0};
        const png_int_32 stride = static_cast<png_int_32>(rgb->pitch(0));
        if (!png_image_finish_read(&image_, &black, rgb->data(), stride, nullptr)) fail("damaged PNG data");
    }

private:
    [[noreturn]] void fail(const char *what) {
        std::string message = path_ + ": " + what;
        if (image_.message[0]) message += std::string(" (") + image_.message + ")";
        throw ToolError(message);
    }
    std::string path_;
    FILE *file_ = nullptr;
    png_image image_;
};

// ---- JPEG. libjpeg reports errors through a callback that must not return;
// it jumps back into the two small functions below, which hold no C++
// objects, so no destructor is skipped.

struct JpegErrors {
    jpeg_error_mgr manager;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpegErrorExit(j_common_ptr info) {
    JpegErrors *errors = reinterpret_cast<JpegErrors *>(info->err);
    (*info->err->format_message)(info, errors->message);
    longjmp(errors->jump, 1);
}

// Warnings about corrupt data are passed over (decoders show such pictures),
// but a file that ends early is an error: its picture would be half grey.
void jpegEmitMessage(j_common_ptr info, int level) {
    if (level >= 0) return;
    if (info->err->msg_code == JWRN_JPEG_EOF) jpegErrorExit(info);
}

struct JpegDecoder {
    jpeg_decompress_struct info;
    JpegErrors errors;
    bool created;
};

bool jpegReadHeader(JpegDecoder *d, FILE *file) {
    d->info.err = jpeg_std_error(&d->errors.manager);
    d->errors.manager.error_exit = jpegErrorExit;
    d->errors.manager.emit_message = jpegEmitMessage;
    if (setjmp(d->errors.jump)) return false;
    jpeg_create_decompress(&d->info);
    d->created = true;
    jpeg_stdio_src(&d->info, file);
    jpeg_read_header(&d->info, TRUE);
    d->info.out_color_space = JCS_RGB;
    return true;
}

bool jpegDecode(JpegDecoder *d, uint8_t *pixels, size_t pitch) {
    if (setjmp(d->errors.jump)) return false;
    jpeg_start_decompress(&d->info);
    if (d->info.output_components != 3) {
        snprintf(d->errors.message, sizeof d->errors.message, "cannot convert to RGB");
        return false;
    }
    while (d->info.output_scanline < d->info.output_height) {
        JSAMPROW row = pixels + static_cast<size_t>(d->info.output_scanline) * pitch;
        jpeg_read_scanlines(&d->info, &row, 1);
    }
    jpeg_finish_decompress(&d->info);
    return true;
}

class JpegReader : public ImageReader {
public:
    JpegReader(const std::string &path) : path_(path), decoder_(new JpegDecoder()) {
        file_ = openInput(path);
        memset(decoder_.get(), 0, sizeof(JpegDecoder));
        if (!jpegReadHeader(decoder_.get(), file_)) fail("not a readable JPEG file");
        checkSide(path_, decoder_->info.image_width, decoder_->info.image_height);
        width_ = static_cast<int>(decoder_->info.image_width);
        height_ = static_cast<int>(decoder_->info.image_height);
    }
    ~JpegReader() override {
        if (decoder_->created) jpeg_destroy_decompress(&decoder_->info);
        fclose(file_);
    }

    void read(Frame *rgb) override {
        rgb->allocate(Layout::RGB888, width_, height_);
        if (!jpegDecode(decoder_.get(), rgb->data(), rgb->pitch(0))) fail("damaged JPEG data");
        if (static_cast<int>(decoder_->info.output_width) != width_ ||
            static_cast<int>(decoder_->info.output_height) != height_)
            throw ToolError(path_ + ": the decoded size differs from the header");
    }

private:
    [[noreturn]] void fail(const char *what) {
        std::string message = path_ + ": " + what;
        if (decoder_->errors.message[0]) message += std::string(" (") + decoder_->errors.message + ")";
        throw ToolError(message);
    }
    std::string path_;
    FILE *file_ = nullptr;
    std::unique_ptr<JpegDecoder> decoder_;
};

struct JpegEncoder {
    jpeg_compress_struct info;
    JpegErrors errors;
    bool created;
};

bool jpegEncode(JpegEncoder *e, FILE *file, const uint8_t *pixels, size_t pitch, int width, int height,
                int quality) {
    e->info.err = jpeg_std_error(&e->errors.manager);
    e->errors.manager.error_exit = jpegErrorExit;
    if (setjmp(e->errors.jump)) return false;
    jpeg_create_compress(&e->info);
    e->created = true;
    jpeg_stdio_dest(&e->info, file);
    e->info.image_width = static_cast<JDIMENSION>(width);
    e->info.image_height = static_cast<JDIMENSION>(height);
    e->info.input_components = 3;
    e->info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&e->info);
    jpeg_set_quality(&e->info, quality, TRUE);
    jpeg_start_compress(&e->info, TRUE);
    while (e->info.next_scanline < e->info.image_height) {
        JSAMPROW row = const_cast<uint8_t *>(pixels) + static_cast<size_t>(e->info.next_scanline) * pitch;
        jpeg_write_scanlines(&e->info, &row, 1);
    }
    jpeg_finish_compress(&e->info);
    return true;
}

}  // namespace

std::unique_ptr<ImageReader> ImageReader::open(const std::string &path, ImageType type) {
    if (type == ImageType::Png) return std::unique_ptr<ImageReader>(new PngReader(path));
    return std::unique_ptr<ImageReader>(new JpegReader(path));
}

void writePng(FILE *file, const Frame &rgb, const std::string &name) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(rgb.width());
    image.height = static_cast<png_uint_32>(rgb.height());
    image.format = PNG_FORMAT_RGB;
    const png_int_32 stride = static_cast<png_int_32>(rgb.pitch(0));
    if (!png_image_write_to_stdio(&image, file, 0, rgb.data(), stride, nullptr)) {
        const std::string message = name + ": cannot write the PNG file (" + image.message + ")";
        png_image_free(&image);
        throw ToolError(message);
    }
}

void writeJpeg(FILE *file, const Frame &rgb, int quality, const std::string &name) {
    std::unique_ptr<JpegEncoder> encoder(new JpegEncoder());
    memset(encoder.get(), 0, sizeof(JpegEncoder));
    const bool ok = jpegEncode(encoder.get(), file, rgb.data(), rgb.pitch(0), rgb.width(), rgb.height(), quality);
    if (encoder->created) jpeg_destroy_compress(&encoder->info);
    if (!ok) throw ToolError(name + ": cannot write the JPEG file (" + encoder->errors.message + ")");
}

}  // namespace parvex_tool
