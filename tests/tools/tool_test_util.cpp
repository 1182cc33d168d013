#include "tool_test_util.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <png.h>

#include "parvex_border_fill.h"
#include "parvex_distortion_correction.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/test_random.h"
#include "yuv_stream.h"

namespace tool_test {

TempDir::TempDir() {
    char name[] = "/tmp/parvex-tool-test-XXXXXX";
    if (!mkdtemp(name)) abort();
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::list() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool fileExists(const std::string &path) { return std::filesystem::exists(path); }

RunResult runTool(const std::string &args, const std::string &stdinPath) {
    static TempDir captures;
    const std::string out = captures.file("stdout"), err = captures.file("stderr");
    const std::string command = std::string(PARVEX_TOOL_PATH) + " " + args + " < " +
                                (stdinPath.empty() ? std::string("/dev/null") : stdinPath) + " > " + out + " 2> " + err;
    const int status = std::system(command.c_str());
    RunResult r;
    r.status = (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    r.out = readFile(out);
    r.err = readFile(err);
    return r;
}

void writePngFile(const std::string &path, int width, int height, const std::vector<uint8_t> &rgb) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    ASSERT_TRUE(png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 3 * width, nullptr)) << image.message;
}

bool readPngFile(const std::string &path, int *width, int *height, std::vector<uint8_t> *rgb) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    rgb->assign(PNG_IMAGE_SIZE(image), 0);
    if (!png_image_finish_read(&image, nullptr, rgb->data(), 0, nullptr)) return false;
    *width = static_cast<int>(image.width);
    *height = static_cast<int>(image.height);
    return true;
}

Frame patternFrame(Layout layout, int width, int height, uint64_t stream) {
    Frame f(layout, width, height);
    std::mt19937_64 rng = pvx_test::makeRng(stream);
    for (int p = 0; p < parvex_tool::planeCount(layout); ++p) {
        const int pitch = static_cast<int>(f.pitch(p)), rows = f.rows(p);
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < pitch; ++x) {
                int v = (x * 255) / std::max(1, pitch - 1) / 2 + (y * 255) / std::max(1, rows - 1) / 4;
                if (((x / 16) + (y / 16)) & 1) v += 60;
                f.row(p, y)[x] = static_cast<uint8_t>((v + static_cast<int>(rng() % 24)) & 255);
            }
    }
    return f;
}

std::string pictureBytes(const Frame &frame) {
    if (!parvex_tool::isYuv(frame.layout())) return std::string(frame.data(), frame.data() + frame.byteSize());
    std::string s(parvex_tool::storedFrameSize(frame.layout(), frame.width(), frame.height()), '\0');
    parvex_tool::packStoredFrame(frame, reinterpret_cast<uint8_t *>(&s[0]));
    return s;
}

Frame fromStored(Layout layout, int width, int height, const std::string &bytes) {
    Frame f(layout, width, height);
    EXPECT_EQ(bytes.size(), parvex_tool::storedFrameSize(layout, width, height));
    parvex_tool::unpackStoredFrame(reinterpret_cast<const uint8_t *>(bytes.data()), &f);
    f.fillPadding();
    return f;
}

namespace {

// A frame copied into a buffer that ends at a guard page.
struct GuardedFrame {
    explicit GuardedFrame(const Frame &f) : buffer(f.byteSize()) {
        memcpy(buffer.data(), f.data(), f.byteSize());
        memset(&data, 0, sizeof data);
        data.width = f.width();
        data.height = f.height();
        for (int p = 0; p < parvex_tool::planeCount(f.layout()); ++p) data.dat[p] = buffer.data() + (f.plane(p) - f.data());
    }
    void copyTo(Frame *f) const { memcpy(f->data(), buffer.data(), f->byteSize()); }
    pvx_test::GuardedBuffer buffer;
    parvex_ImageData data;
};

}  // namespace

std::vector<Frame> libraryOutput(const Settings &s, const std::vector<Frame> &inputs) {
    std::vector<Frame> outputs;
    if (inputs.empty()) return outputs;
    const int w = inputs[0].width(), h = inputs[0].height();
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = parvex_tool::layoutName(s.format);
    param.width = w;
    param.height = h;
    if (!s.xs.empty()) {
        param.mode = 1;
        param.num = static_cast<int32_t>(s.xs.size());
        param.xs = s.xs.data();
        param.ys = s.ys.data();
    } else {
        for (int k = 0; k < 4; ++k) param.coef[k] = s.coef[k];
    }
    const int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
    pvx_test::GuardedBuffer work(static_cast<size_t>(size), pvx_test::GuardedBuffer::Side::End, 8);
    parvex_DistortionCorrection h_;
    EXPECT_EQ(parvex_DistortionCorrection_initialize(&h_, work.data(), size, &param), PARVEX_OK);
    if (s.center[0] >= 0) {
        EXPECT_EQ(parvex_DistortionCorrection_setInputCenter(&h_, s.center[0], s.center[1]), PARVEX_OK);
    }
    int ow = w, oh = h;
    if (s.recommended) {
        int32_t rw = 0, rh = 0;
        EXPECT_EQ(parvex_DistortionCorrection_getRecommendedOutputSize(&h_, &rw, &rh), PARVEX_OK);
        ow = rw;
        oh = rh;
        EXPECT_EQ(parvex_DistortionCorrection_setOutputImageSize(&h_, ow, oh), PARVEX_OK);
    } else if (s.outSize[0] > 0) {
        ow = s.outSize[0];
        oh = s.outSize[1];
        EXPECT_EQ(parvex_DistortionCorrection_setOutputImageSize(&h_, ow, oh), PARVEX_OK);
    }
    if (s.strength >= 0) {
        EXPECT_EQ(parvex_DistortionCorrection_setCorrectionStrength(&h_, s.strength), PARVEX_OK);
    }
    EXPECT_EQ(parvex_DistortionCorrection_start(&h_), PARVEX_OK);
    if (s.zoom > 0) {
        EXPECT_EQ(parvex_DistortionCorrection_setZoomRatio(&h_, s.zoom), PARVEX_OK);
    }
    if (s.cropSet) {
        EXPECT_EQ(parvex_DistortionCorrection_setCropRect(&h_, s.crop[0], s.crop[1], s.crop[2], s.crop[3]), PARVEX_OK);
    }
    std::vector<parvex_BorderSpan> spans;
    parvex_BorderFill fill{};
    if (s.fillBorder) {
        const size_t bytes = parvex_BorderFill_probeSize(param.format, w, h, ow, oh);
        std::vector<uint64_t> scratch(bytes / 8);
        int32_t count = 0;
        EXPECT_EQ(parvex_BorderFill_probe(&h_, s.distort ? PARVEX_BORDER_FILL_DISTORT : PARVEX_BORDER_FILL_PROCESS,
                                          param.format, w, h, ow, oh, scratch.data(), bytes, &count),
                  PARVEX_OK);
        spans.resize(static_cast<size_t>(count) + 1);
        EXPECT_EQ(parvex_BorderFill_init(&fill, scratch.data(), spans.data(), count), PARVEX_OK);
    }
    const parvex_BorderColour black = parvex_BorderFill_black(param.format, 0);
    for (const Frame &in : inputs) {
        GuardedFrame src(in);
        Frame out(s.format, ow, oh);
        if (s.inPlace) {
            EXPECT_EQ(parvex_DistortionCorrection_process(&h_, &src.data, &src.data), PARVEX_OK);
            if (s.fillBorder) {
                EXPECT_EQ(parvex_BorderFill_apply(&fill, &src.data, black), PARVEX_OK);
            }
            src.copyTo(&out);
        } else {
            GuardedFrame dst(out);
            const uint32_t code = s.distort ? parvex_DistortionCorrection_distort(&h_, &dst.data, &src.data)
                                            : parvex_DistortionCorrection_process(&h_, &dst.data, &src.data);
            EXPECT_EQ(code, PARVEX_OK);
            if (s.fillBorder) {
                EXPECT_EQ(parvex_BorderFill_apply(&fill, &dst.data, black), PARVEX_OK);
            }
            dst.copyTo(&out);
        }
        outputs.push_back(out);
    }
    EXPECT_EQ(parvex_DistortionCorrection_finalize(&h_), PARVEX_OK);
    return outputs;
}

}  // namespace tool_test
