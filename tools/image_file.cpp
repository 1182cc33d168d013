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

// An input file closed with its owner, also when the owner's constructor throws.
struct InputFile {
    explicit InputFile(const std::string &path) : file(fopen(path.c_str(), "rb")) {
        if (!file) throw ToolError("cannot open " + path + ": " + strerror(errno));
    }
    ~InputFile() { fclose(file); }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    FILE *file;
};

void checkSide(const std::string &path, unsigned long width, unsigned long height) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide)
        throw ToolError(path + ": a picture of " + std::to_string(width) + "x" + std::to_string(height) +
                        " cannot be processed");
}

// ---- PNG, through libpng's simplified interface (it reports errors in the
// image record instead of jumping).

class PngReader : public ImageReader {
public:
    PngReader(const std::string &path) : path_(path), file_(path) {
        if (!png_image_begin_read_from_stdio(&image_.image, file_.file)) fail("not a readable PNG file");
        checkSide(path_, image_.image.width, image_.image.height);
        width_ = static_cast<int>(image_.image.width);
        height_ = static_cast<int>(image_.image.height);
    }
    void read(Frame *rgb) override {
        rgb->allocate(Layout::RGB888, width_, height_);
        image_.image.format = PNG_FORMAT_RGB;
        png_color black = {0, 0, 0};
        const png_int_32 stride = static_cast<png_int_32>(rgb->pitch(0));
        if (!png_image_finish_read(&image_.image, &black, rgb->data(), stride, nullptr)) fail("damaged PNG data");
    }

private:
    [[noreturn]] void fail(const char *what) {
        std::string message = path_ + ": " + what;
        if (image_.image.message[0]) message += std::string(" (") + image_.image.message + ")";
        throw ToolError(message);
    }
    struct Image {
        Image() {
            memset(&image, 0, sizeof image);
            image.version = PNG_IMAGE_VERSION;
        }
        ~Image() { png_image_free(&image); }
        png_image image;
    };
    std::string path_;
    InputFile file_;
    Image image_;
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

// Owns a decoder (zeroed, not yet created) and destroys it.
struct JpegDecoderHolder {
    JpegDecoderHolder() : decoder(new JpegDecoder()) { memset(decoder.get(), 0, sizeof(JpegDecoder)); }
    ~JpegDecoderHolder() {
        if (decoder->created) jpeg_destroy_decompress(&decoder->info);
    }
    std::unique_ptr<JpegDecoder> decoder;
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
    JpegReader(const std::string &path) : path_(path), file_(path) {
        if (!jpegReadHeader(decoder(), file_.file)) fail("not a readable JPEG file");
        checkSide(path_, decoder()->info.image_width, decoder()->info.image_height);
        width_ = static_cast<int>(decoder()->info.image_width);
        height_ = static_cast<int>(decoder()->info.image_height);
    }

    void read(Frame *rgb) override {
        rgb->allocate(Layout::RGB888, width_, height_);
        if (!jpegDecode(decoder(), rgb->data(), rgb->pitch(0))) fail("damaged JPEG data");
        if (static_cast<int>(decoder()->info.output_width) != width_ ||
            static_cast<int>(decoder()->info.output_height) != height_)
            throw ToolError(path_ + ": the decoded size differs from the header");
    }

private:
    [[noreturn]] void fail(const char *what) {
        std::string message = path_ + ": " + what;
        if (decoder()->errors.message[0]) message += std::string(" (") + decoder()->errors.message + ")";
        throw ToolError(message);
    }
    JpegDecoder *decoder() { return holder_.decoder.get(); }
    std::string path_;
    InputFile file_;  // outlives the decoder, which reads from it
    JpegDecoderHolder holder_;
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
