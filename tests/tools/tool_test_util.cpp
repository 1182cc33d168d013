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

std::string Picture::difference(const Picture &o) const {
    if (format != o.format || width != o.width || height != o.height)
        return format + " " + std::to_string(width) + "x" + std::to_string(height) + " against " + o.format + " " +
               std::to_string(o.width) + "x" + std::to_string(o.height);
    // Only the pixels count: the padding of an odd 4:2:0 luma plane is not part of the picture.
    const bool rgb = format == "RGB888" || format == "BGR888";
    for (int p = 0; p < planes; ++p) {
        const int bytes = p == 0 ? (rgb ? 3 * width : width) : pitch[p];
        const int n = p == 0 ? height : rows[p];
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < bytes; ++x) {
                const int a = plane[p][static_cast<size_t>(y) * pitch[p] + x];
                const int b = o.plane[p][static_cast<size_t>(y) * o.pitch[p] + x];
                if (a != b)
                    return "plane " + std::to_string(p) + " row " + std::to_string(y) + " byte " + std::to_string(x) +
                           ": " + std::to_string(a) + " against " + std::to_string(b);
            }
    }
    return std::string();
}

Picture makePicture(const std::string &format, int width, int height) {
    Picture p;
    p.format = format;
    p.width = width;
    p.height = height;
    const int ew = (width + 1) & ~1, eh = (height + 1) & ~1;
    if (format == "RGB888" || format == "BGR888") {
        p.planes = 1;
        p.pitch[0] = 3 * width;
        p.rows[0] = height;
    } else if (format == "YUV420_PLANAR") {
        p.planes = 3;
        p.pitch[0] = ew;
        p.rows[0] = eh;
        p.pitch[1] = p.pitch[2] = ew / 2;
        p.rows[1] = p.rows[2] = eh / 2;
    } else {
        p.planes = 2;
        p.pitch[0] = ew;
        p.rows[0] = eh;
        p.pitch[1] = ew;
        p.rows[1] = eh / 2;
    }
    for (int i = 0; i < p.planes; ++i) p.plane[i].assign(static_cast<size_t>(p.pitch[i]) * p.rows[i], 0);
    return p;
}

void fillPattern(Picture *picture, uint64_t stream) {
    std::mt19937_64 rng = pvx_test::makeRng(stream);
    for (int p = 0; p < picture->planes; ++p) {
        for (int y = 0; y < picture->rows[p]; ++y) {
            for (int x = 0; x < picture->pitch[p]; ++x) {
                int v = (x * 255) / std::max(1, picture->pitch[p] - 1) / 2 + (y * 255) / std::max(1, picture->rows[p] - 1) / 4;
                if (((x / 16) + (y / 16)) & 1) v += 60;
                v += static_cast<int>(rng() % 24);
                picture->plane[p][static_cast<size_t>(y) * picture->pitch[p] + x] = static_cast<uint8_t>(v & 255);
            }
        }
    }
}

std::string toStored(const Picture &picture) {
    std::string s;
    for (int y = 0; y < picture.height; ++y)
        s.append(reinterpret_cast<const char *>(picture.plane[0].data()) + static_cast<size_t>(y) * picture.pitch[0],
                 static_cast<size_t>(picture.width));
    for (int p = 1; p < picture.planes; ++p)
        s.append(reinterpret_cast<const char *>(picture.plane[p].data()), picture.plane[p].size());
    return s;
}

Picture fromStored(const std::string &format, int width, int height, const std::string &bytes) {
    Picture p = makePicture(format, width, height);
    size_t at = 0;
    for (int y = 0; y < height; ++y, at += static_cast<size_t>(width)) {
        uint8_t *row = p.plane[0].data() + static_cast<size_t>(y) * p.pitch[0];
        memcpy(row, bytes.data() + at, static_cast<size_t>(width));
        if (width & 1) row[width] = row[width - 1];
    }
    if (height & 1) memcpy(p.plane[0].data() + static_cast<size_t>(height) * p.pitch[0],
                           p.plane[0].data() + static_cast<size_t>(height - 1) * p.pitch[0], static_cast<size_t>(p.pitch[0]));
    for (int i = 1; i < p.planes; ++i) {
        memcpy(p.plane[i].data(), bytes.data() + at, p.plane[i].size());
        at += p.plane[i].size();
    }
    EXPECT_EQ(at, bytes.size());
    return p;
}

Picture rgbPicture(int width, int height, const std::vector<uint8_t> &rgb) {
    Picture p = makePicture("RGB888", width, height);
    p.plane[0] = rgb;
    return p;
}

std::vector<uint8_t> rgbBytes(const Picture &picture) { return picture.plane[0]; }

namespace {

// A picture copied into one guarded block, planes back to back.
struct GuardedPicture {
    explicit GuardedPicture(const Picture &p) : buffer(total(p)) {
        uint8_t *at = buffer.data();
        memset(&data, 0, sizeof data);
        data.width = p.width;
        data.height = p.height;
        for (int i = 0; i < p.planes; ++i) {
            memcpy(at, p.plane[i].data(), p.plane[i].size());
            data.dat[i] = at;
            at += p.plane[i].size();
        }
    }
    static size_t total(const Picture &p) {
        size_t n = 0;
        for (int i = 0; i < p.planes; ++i) n += p.plane[i].size();
        return n;
    }
    void copyTo(Picture *p) const {
        const uint8_t *at = buffer.data();
        for (int i = 0; i < p->planes; ++i) {
            memcpy(p->plane[i].data(), at, p->plane[i].size());
            at += p->plane[i].size();
        }
    }
    pvx_test::GuardedBuffer buffer;
    parvex_ImageData data;
};

}  // namespace

std::vector<Picture> libraryOutput(const Settings &s, const std::vector<Picture> &inputs) {
    std::vector<Picture> outputs;
    if (inputs.empty()) return outputs;
    const int w = inputs[0].width, h = inputs[0].height;
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = s.format.c_str();
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
    for (const Picture &in : inputs) {
        GuardedPicture src(in);
        Picture out = makePicture(s.format, ow, oh);
        if (s.inPlace) {
            EXPECT_EQ(parvex_DistortionCorrection_process(&h_, &src.data, &src.data), PARVEX_OK);
            if (s.fillBorder) {
                EXPECT_EQ(parvex_BorderFill_apply(&fill, &src.data, black), PARVEX_OK);
            }
            src.copyTo(&out);
        } else {
            GuardedPicture dst(out);
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
