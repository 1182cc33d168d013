#include "media.h"

#include <ctype.h>

#include <vector>

#include "tool_error.h"

namespace parvex_tool {

namespace {

std::string lowerExtension(const std::string &path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
    std::string ext = path.substr(dot + 1);
    for (char &c : ext) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return ext;
}

class PictureSource : public FrameSource {
public:
    PictureSource(const std::string &path, ImageType type) : reader_(ImageReader::open(path, type)) {
        width_ = reader_->width();
        height_ = reader_->height();
        layout_ = Layout::RGB888;
    }
    long long frameCount() const override { return 1; }
    bool next(Frame *frame) override {
        if (done_) return false;
        reader_->read(frame);
        done_ = true;
        return true;
    }

private:
    std::unique_ptr<ImageReader> reader_;
    bool done_ = false;
};

class RawSource : public FrameSource {
public:
    RawSource(const std::string &path, Layout layout, int width, int height) : reader_(path, layout, width, height) {
        width_ = width;
        height_ = height;
        layout_ = layout;
    }
    long long frameCount() const override { return reader_.frameCount(); }
    bool next(Frame *frame) override { return reader_.next(frame); }

private:
    RawReader reader_;
};

class Y4mSource : public FrameSource {
public:
    Y4mSource(const std::string &path)
        : reader_(openY4mInput(path), path == "-" ? std::string("standard input") : path) {
        width_ = reader_.header().width;
        height_ = reader_.header().height;
        layout_ = Layout::YUV420_PLANAR;
    }
    const Y4mHeader *y4mHeader() const override { return &reader_.header(); }
    bool next(Frame *frame) override { return reader_.next(frame); }

private:
    Y4mReader reader_;
};

class PictureSink : public FrameSink {
public:
    PictureSink(const std::string &path, ImageType type, int quality) : out_(path), type_(type), quality_(quality) {
        layout_ = Layout::RGB888;
    }
    void write(const Frame &frame) override {
        if (written_)
            throw ToolError(out_.name() + " holds one picture, but the input has more frames (write .yuv, .nv12, .nv21, .y4m or -)");
        if (type_ == ImageType::Png) writePng(out_.file(), frame, out_.name());
        else writeJpeg(out_.file(), frame, quality_, out_.name());
        written_ = true;
    }
    void finish() override { out_.commit(); }

private:
    OutputFile out_;
    ImageType type_;
    int quality_;
    bool written_ = false;
};

class RawSink : public FrameSink {
public:
    RawSink(const std::string &path, Layout layout, int width, int height) : out_(path) {
        layout_ = layout;
        stored_.resize(storedFrameSize(layout, width, height));
    }
    void write(const Frame &frame) override {
        packStoredFrame(frame, stored_.data());
        out_.write(stored_.data(), stored_.size());
    }
    void finish() override { out_.commit(); }

private:
    OutputFile out_;
    std::vector<uint8_t> stored_;
};

class Y4mSink : public FrameSink {
public:
    Y4mSink(const std::string &path, const Y4mHeader &header, int width, int height)
        : out_(path), writer_(&out_, header, width, height) {
        layout_ = Layout::YUV420_PLANAR;
    }
    void write(const Frame &frame) override { writer_.write(frame); }
    void finish() override { out_.commit(); }

private:
    OutputFile out_;
    Y4mWriter writer_;
};

}  // namespace

FileKind fileKind(const std::string &path, const char *role) {
    if (path == "-") return FileKind::Y4m;
    const std::string ext = lowerExtension(path);
    if (ext == "png") return FileKind::Png;
    if (ext == "jpg" || ext == "jpeg") return FileKind::Jpeg;
    if (ext == "yuv") return FileKind::RawI420;
    if (ext == "nv12") return FileKind::RawNv12;
    if (ext == "nv21") return FileKind::RawNv21;
    if (ext == "y4m") return FileKind::Y4m;
    throw UsageError(std::string("cannot tell the kind of the ") + role + " \"" + path +
                     "\" from its name (use .png, .jpg, .jpeg, .yuv, .nv12, .nv21, .y4m or -)");
}

Layout storedLayout(FileKind kind) {
    switch (kind) {
    case FileKind::Png:
    case FileKind::Jpeg: return Layout::RGB888;
    case FileKind::RawNv12: return Layout::YUV420_SEMIPLANAR;
    case FileKind::RawNv21: return Layout::YVU420_SEMIPLANAR;
    default: return Layout::YUV420_PLANAR;
    }
}

bool isRaw(FileKind kind) {
    return kind == FileKind::RawI420 || kind == FileKind::RawNv12 || kind == FileKind::RawNv21;
}

bool isPicture(FileKind kind) { return kind == FileKind::Png || kind == FileKind::Jpeg; }

std::unique_ptr<FrameSource> openSource(const std::string &path, FileKind kind, int rawWidth, int rawHeight) {
    switch (kind) {
    case FileKind::Png: return std::unique_ptr<FrameSource>(new PictureSource(path, ImageType::Png));
    case FileKind::Jpeg: return std::unique_ptr<FrameSource>(new PictureSource(path, ImageType::Jpeg));
    case FileKind::Y4m: return std::unique_ptr<FrameSource>(new Y4mSource(path));
    default: return std::unique_ptr<FrameSource>(new RawSource(path, storedLayout(kind), rawWidth, rawHeight));
    }
}

std::unique_ptr<FrameSink> openSink(const std::string &path, FileKind kind, int width, int height,
                                    const Y4mHeader *y4m, bool fullRange, int jpegQuality) {
    switch (kind) {
    case FileKind::Png: return std::unique_ptr<FrameSink>(new PictureSink(path, ImageType::Png, jpegQuality));
    case FileKind::Jpeg: return std::unique_ptr<FrameSink>(new PictureSink(path, ImageType::Jpeg, jpegQuality));
    case FileKind::Y4m: {
        Y4mHeader header;
        if (y4m) {
            header = *y4m;
        } else {
            header.tags = {"F25:1", "Ip", "A1:1", "C420jpeg"};
            if (fullRange) header.tags.push_back("XCOLORRANGE=FULL");
        }
        return std::unique_ptr<FrameSink>(new Y4mSink(path, header, width, height));
    }
    default: return std::unique_ptr<FrameSink>(new RawSink(path, storedLayout(kind), width, height));
    }
}

}  // namespace parvex_tool
