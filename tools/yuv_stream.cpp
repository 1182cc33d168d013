#include "yuv_stream.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "tool_error.h"

namespace parvex_tool {

namespace {

constexpr size_t kMaxLine = 4096;
constexpr int kMaxStreamSide = 65535;

// Bytes per stored chroma row: interleaved pairs or one planar plane.
size_t storedChromaPitch(Layout layout, int width) {
    const size_t cw = (static_cast<size_t>(width) + 1) / 2;
    return layout == Layout::YUV420_PLANAR ? cw : 2 * cw;
}

bool parsePositive(const std::string &text, int *value) {
    if (text.empty() || text.size() > 9) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    *value = atoi(text.c_str());
    return *value > 0;
}

}  // namespace

size_t storedFrameSize(Layout layout, int width, int height) {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    const size_t ch = (static_cast<size_t>(height) + 1) / 2;
    const size_t chroma = storedChromaPitch(layout, width) * ch;
    return luma + (layout == Layout::YUV420_PLANAR ? 2 * chroma : chroma);
}

void unpackStoredFrame(const uint8_t *stored, Frame *frame) {
    const int w = frame->width(), h = frame->height(), ch = (h + 1) / 2;
    for (int y = 0; y < h; ++y, stored += w) memcpy(frame->row(0, y), stored, static_cast<size_t>(w));
    const size_t cp = storedChromaPitch(frame->layout(), w);
    for (int p = 1; p < planeCount(frame->layout()); ++p)
        for (int y = 0; y < ch; ++y, stored += cp) memcpy(frame->row(p, y), stored, cp);
    frame->fillPadding();
}

void packStoredFrame(const Frame &frame, uint8_t *stored) {
    const int w = frame.width(), h = frame.height(), ch = (h + 1) / 2;
    for (int y = 0; y < h; ++y, stored += w) memcpy(stored, frame.row(0, y), static_cast<size_t>(w));
    const size_t cp = storedChromaPitch(frame.layout(), w);
    for (int p = 1; p < planeCount(frame.layout()); ++p)
        for (int y = 0; y < ch; ++y, stored += cp) memcpy(stored, frame.row(p, y), cp);
}

size_t readFully(FILE *file, uint8_t *data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const size_t n = fread(data + done, 1, size - done, file);
        if (n == 0) break;
        done += n;
    }
    return done;
}

// ---- raw frames

RawReader::RawReader(const std::string &path, Layout layout, int width, int height)
    : path_(path), layout_(layout), width_(width), height_(height) {
    file_ = fopen(path.c_str(), "rb");
    if (!file_) throw ToolError("cannot open " + path + ": " + strerror(errno));
    struct stat info;
    if (fstat(fileno(file_), &info) != 0 || !S_ISREG(info.st_mode)) {
        fclose(file_);
        throw ToolError(path + ": raw input must be a regular file");
    }
    const size_t frameSize = storedFrameSize(layout, width, height);
    const unsigned long long bytes = static_cast<unsigned long long>(info.st_size);
    const std::string what = std::to_string(width) + "x" + std::to_string(height) + " " + layoutName(layout) +
                             " frames (" + std::to_string(frameSize) + " bytes each)";
    if (bytes == 0 || bytes % frameSize != 0) {
        fclose(file_);
        throw ToolError(path + ": " + std::to_string(bytes) + " bytes is not a whole number of " + what +
                        "; check --size");
    }
    frames_ = static_cast<long long>(bytes / frameSize);
    stored_.resize(frameSize);
}

RawReader::~RawReader() { fclose(file_); }

bool RawReader::next(Frame *frame) {
    if (done_ == frames_) return false;
    if (readFully(file_, stored_.data(), stored_.size()) != stored_.size())
        throw ToolError(path_ + ": truncated at frame " + std::to_string(done_ + 1) + " (did the file change?)");
    frame->allocate(layout_, width_, height_);
    unpackStoredFrame(stored_.data(), frame);
    ++done_;
    return true;
}

// ---- YUV4MPEG2

std::string Y4mHeader::format(int w, int h) const {
    std::string line = "YUV4MPEG2 W" + std::to_string(w) + " H" + std::to_string(h);
    for (const std::string &tag : tags) line += " " + tag;
    return line + "\n";
}

Y4mHeader parseY4mHeader(const std::string &line) {
    static const char kMagic[] = "YUV4MPEG2";
    if (line.compare(0, strlen(kMagic), kMagic) != 0 || (line.size() > strlen(kMagic) && line[strlen(kMagic)] != ' '))
        throw ToolError("not a YUV4MPEG2 stream (the header does not start with \"YUV4MPEG2 \")");
    Y4mHeader header;
    size_t pos = strlen(kMagic);
    while (pos < line.size()) {
        while (pos < line.size() && line[pos] == ' ') ++pos;
        if (pos == line.size()) break;
        size_t end = line.find(' ', pos);
        if (end == std::string::npos) end = line.size();
        const std::string tag = line.substr(pos, end - pos);
        pos = end;
        const std::string value = tag.substr(1);
        switch (tag[0]) {
        case 'W':
            if (!parsePositive(value, &header.width) || header.width > kMaxStreamSide)
                throw ToolError("YUV4MPEG2 header: bad width \"" + tag + "\"");
            break;
        case 'H':
            if (!parsePositive(value, &header.height) || header.height > kMaxStreamSide)
                throw ToolError("YUV4MPEG2 header: bad height \"" + tag + "\"");
            break;
        case 'C':
            // Every 4:2:0 chroma siting stores the same bytes.
            if (value != "420jpeg" && value != "420mpeg2" && value != "420paldv" && value != "420")
                throw ToolError("YUV4MPEG2 colour space \"" + value +
                                "\" is not supported (only 4:2:0 with 8 bits: C420jpeg, C420mpeg2, C420paldv, C420)");
            header.tags.push_back(tag);
            break;
        default:
            if (tag == "XCOLORRANGE=FULL") header.fullRange = true;
            header.tags.push_back(tag);
            break;
        }
    }
    if (header.width == 0 || header.height == 0) throw ToolError("YUV4MPEG2 header: no width or height");
    return header;
}

FILE *openY4mInput(const std::string &path) {
    if (path == "-") return stdin;
    FILE *file = fopen(path.c_str(), "rb");
    if (!file) throw ToolError("cannot open " + path + ": " + strerror(errno));
    return file;
}

Y4mReader::Y4mReader(FILE *file, const std::string &name) : file_(file), owned_(file != stdin), name_(name) {
    std::string line;
    try {
        if (!readLine(&line, "header")) throw ToolError(name_ + ": empty input (no YUV4MPEG2 header)");
        header_ = parseY4mHeader(line);
    } catch (const ToolError &e) {
        if (owned_) fclose(file_);
        const std::string message = e.what();
        if (message.compare(0, name_.size(), name_) == 0) throw;
        throw ToolError(name_ + ": " + message);
    }
}

Y4mReader::~Y4mReader() {
    if (owned_) fclose(file_);
}

// Reads one line without its newline. False when the stream ends before its
// first byte; a line cut off by the end of the stream is an error.
bool Y4mReader::readLine(std::string *line, const char *what) {
    line->clear();
    for (;;) {
        const int c = getc(file_);
        if (c == EOF) {
            if (ferror(file_)) throw ToolError(name_ + ": read error: " + strerror(errno));
            if (line->empty()) return false;
            throw ToolError(name_ + ": truncated YUV4MPEG2 stream (the " + std::string(what) + " line has no end)");
        }
        if (c == '\n') return true;
        if (line->size() >= kMaxLine)
            throw ToolError(name_ + ": bad YUV4MPEG2 stream (the " + std::string(what) + " line is too long)");
        line->push_back(static_cast<char>(c));
    }
}

bool Y4mReader::next(Frame *frame) {
    std::string line;
    if (!readLine(&line, "FRAME")) return false;
    ++frames_;
    if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' '))
        throw ToolError(name_ + ": bad YUV4MPEG2 stream (frame " + std::to_string(frames_) +
                        " does not start with FRAME)");
    // Sized at the first frame, once the caller has had its say on the header's size.
    stored_.resize(storedFrameSize(Layout::YUV420_PLANAR, header_.width, header_.height));
    const size_t got = readFully(file_, stored_.data(), stored_.size());
    if (got != stored_.size()) {
        if (ferror(file_)) throw ToolError(name_ + ": read error: " + strerror(errno));
        throw ToolError(name_ + ": truncated YUV4MPEG2 stream (frame " + std::to_string(frames_) + " has " +
                        std::to_string(got) + " of " + std::to_string(stored_.size()) + " bytes)");
    }
    frame->allocate(Layout::YUV420_PLANAR, header_.width, header_.height);
    unpackStoredFrame(stored_.data(), frame);
    return true;
}

Y4mWriter::Y4mWriter(OutputFile *out, const Y4mHeader &header, int width, int height)
    : out_(out), header_(header.format(width, height)) {
    stored_.resize(storedFrameSize(Layout::YUV420_PLANAR, width, height));
}

void Y4mWriter::write(const Frame &frame) {
    // The header goes out with the first frame, so a stream that fails before
    // any frame leaves nothing on a pipe.
    if (!started_) {
        out_->write(header_.data(), header_.size());
        started_ = true;
    }
    static const char kFrame[] = "FRAME\n";
    out_->write(kFrame, sizeof kFrame - 1);
    packStoredFrame(frame, stored_.data());
    out_->write(stored_.data(), stored_.size());
}

}  // namespace parvex_tool
