// Fuzzes the tool's input readers: the first byte picks a reader, the rest is
// the file it reads (a YUV4MPEG2 stream, a raw frame file of a size taken
// from the input, a lens table, a PNG or a JPEG picture). A reader may refuse
// the file with a ToolError; anything else (a crash, another exception, a
// picture of a size it did not announce) is a finding.
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "engine.h"
#include "frame.h"
#include "image_file.h"
#include "table_file.h"
#include "tool_error.h"
#include "yuv_stream.h"

using namespace parvex_tool;

namespace {

// The bytes as a file with a path, in memory.
class MemoryFile {
public:
    MemoryFile(const uint8_t *data, size_t size) : fd_(memfd_create("reader_fuzz", 0)) {
        if (fd_ < 0 || (size > 0 && write(fd_, data, size) != static_cast<ssize_t>(size))) abort();
        lseek(fd_, 0, SEEK_SET);
    }
    ~MemoryFile() { close(fd_); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    FILE *open() const { return fopen(path().c_str(), "rb"); }

private:
    int fd_;
};

const Layout kLayouts[] = {Layout::RGB888, Layout::BGR888, Layout::YUV420_PLANAR, Layout::YUV420_SEMIPLANAR,
                           Layout::YVU420_SEMIPLANAR};

// The tool hands a stream's or picture's size to the engine, which refuses
// sizes outside its limits, before it reads any pixels.
bool engineTakes(int width, int height) {
    return width >= kMinWidth && width <= kMaxWidth && height >= kMinHeight && height <= kMaxHeight;
}

void readY4m(const MemoryFile &file) {
    FILE *f = file.open();
    if (!f) abort();
    Y4mReader reader(f, "fuzz.y4m");
    if (!engineTakes(reader.header().width, reader.header().height)) return;
    Frame frame;
    for (int n = 0; n < 4 && reader.next(&frame); ++n) {
        if (frame.width() != reader.header().width || frame.height() != reader.header().height) abort();
    }
}

void readRaw(const MemoryFile &file, const uint8_t *data, size_t size) {
    if (size < 3) return;
    const Layout layout = kLayouts[data[0] % 5];
    const int width = 320 + data[1] % 64, height = 240 + data[2] % 32;
    RawReader reader(file.path(), layout, width, height);
    Frame frame;
    while (reader.next(&frame)) {
        if (frame.width() != width || frame.height() != height) abort();
    }
}

void readPicture(const MemoryFile &file, ImageType type) {
    auto reader = ImageReader::open(file.path(), type);
    if (!engineTakes(reader->width(), reader->height())) return;
    Frame rgb;
    reader->read(&rgb);
    if (rgb.width() != reader->width() || rgb.height() != reader->height()) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    const int which = data[0] % 5;
    const MemoryFile file(data + 1, size - 1);
    try {
        switch (which) {
        case 0: readY4m(file); break;
        case 1: readRaw(file, data + 1, size - 1); break;
        case 2: {
            Lens lens;
            readTableFile(file.path(), &lens);
            if (lens.outputRadii.size() != lens.sourceRadii.size() || lens.outputRadii.size() > kMaxTablePoints) abort();
            break;
        }
        case 3: readPicture(file, ImageType::Png); break;
        default: readPicture(file, ImageType::Jpeg); break;
        }
    } catch (const ToolError &) {
        // A refusal with a message is the expected answer to a bad file.
    }
    return 0;
}
