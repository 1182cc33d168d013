// The border-fill helper against the shipped library: the spans it finds are
// exactly the bytes whose value depends on the destination's old contents,
// the fill writes only them with the colour in the format's byte order, and
// row pitches and the zoom path come out clean (the tool's tests cover the
// in-place call).
#include "parvex_border_fill.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/test_random.h"

namespace {

struct Engine {
    std::vector<uint64_t> buffer;
    parvex_DistortionCorrection handle{};
    // A table lens that samples `magnify` times farther out than it draws:
    // above 1 it pulls the picture in and leaves a border.
    Engine(const char *format, int w, int h, double magnify, int ow = 0, int oh = 0) {
        static const double xs[3] = {0.0, 1.0, 2.0};
        const double ys[3] = {0.0, magnify, 2.0 * magnify};
        parvex_DistortionCorrection_InitParam param{};
        param.format = format;
        param.width = w;
        param.height = h;
        param.mode = 1;
        param.num = 3;
        param.xs = xs;
        param.ys = ys;
        buffer.resize(static_cast<size_t>(parvex_DistortionCorrection_getBufferSize(&param)) / 8 + 1);
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_initialize(&handle, buffer.data(),
                                                                   static_cast<int32_t>(buffer.size() * 8), &param));
        if (ow) {
            EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(&handle, ow, oh));
        }
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(&handle));
    }
    ~Engine() { parvex_DistortionCorrection_finalize(&handle); }
};

// A tight frame of the helper's layout.
struct Frame {
    std::vector<uint8_t> bytes;
    parvex_ImageData data{};
    Frame(const char *format, int w, int h, uint8_t value) {
        const int32_t f = parvex_BorderFill_formatOf_(format);
        bytes.assign(static_cast<size_t>(parvex_BorderFill_frameBytes_(f, w, h)), value);
        parvex_BorderFill_wrap_(f, w, h, bytes.data(), &data);
    }
};

// The border of an engine's present settings (fill points into spans).
struct Probed {
    std::vector<parvex_BorderSpan> spans;
    parvex_BorderFill fill{};
    Probed(Engine &e, const char *format, int w, int h, int ow, int oh) {
        std::vector<uint64_t> scratch(parvex_BorderFill_probeSize(format, w, h, ow, oh) / 8);
        int32_t count = -1;
        EXPECT_EQ(PARVEX_OK, parvex_BorderFill_probe(&e.handle, PARVEX_BORDER_FILL_PROCESS, format, w, h, ow, oh,
                                                     scratch.data(), scratch.size() * 8, &count));
        spans.resize(static_cast<size_t>(count) + 1);
        EXPECT_EQ(PARVEX_OK, parvex_BorderFill_init(&fill, scratch.data(), spans.data(), count));
        EXPECT_EQ(count, fill.count);
    }
    Probed(const Probed &) = delete;
};

void randomise(std::vector<uint8_t> &bytes, std::mt19937_64 &rng) {
    for (auto &b : bytes) b = static_cast<uint8_t>(rng());
}

const char *const kFormats[] = {"RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR", "YVU420_SEMIPLANAR"};

// Odd output sizes check the 4:2:0 rounding.
class BorderFill : public ::testing::TestWithParam<const char *> {};

TEST_P(BorderFill, FillsExactlyTheBytesTheEngineLeavesAlone) {
    const char *format = GetParam();
    const int w = 322, h = 242, ow = 301, oh = 213;
    auto rng = pvx_test::makeRng(1);
    Engine e(format, w, h, 1.3, ow, oh);
    const Probed p(e, format, w, h, ow, oh);
    ASSERT_GT(p.fill.count, 0);
    EXPECT_EQ(1, p.fill.keeps_destination);  // zoom 1: the border is never written

    // Independent model: with one random source, a byte is undrawn when its
    // value changes with the destination's old contents.
    Frame in(format, w, h, 0), a(format, ow, oh, 0x5a), b(format, ow, oh, 0xa5);
    randomise(in.bytes, rng);
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(&e.handle, &a.data, &in.data));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(&e.handle, &b.data, &in.data));
    const parvex_BorderColour colour = {{11, 22, 33}};
    uint8_t pattern[3][3];
    for (int pl = 0; pl < 3; ++pl) parvex_BorderFill_pattern_(p.fill.format, pl, colour, pattern[pl]);
    const std::vector<uint8_t> before = a.bytes;
    ASSERT_EQ(PARVEX_OK, parvex_BorderFill_apply(&p.fill, &a.data, colour));

    int64_t undrawn = 0;
    for (int pl = 0; pl < 3; ++pl) {
        parvex_BorderPlane_ geo;
        if (!parvex_BorderFill_plane_(p.fill.format, ow, oh, pl, &geo)) break;
        const size_t base = static_cast<size_t>(static_cast<uint8_t *>(a.data.dat[pl]) - a.bytes.data());
        for (int64_t y = 0; y < geo.picture_rows; ++y)
            for (int64_t x = 0; x < geo.row_bytes; ++x) {
                const size_t i = base + static_cast<size_t>(y * geo.pitch + x);
                if (before[i] != b.bytes[i]) {
                    ++undrawn;
                    ASSERT_EQ(pattern[pl][x % geo.sample_bytes], a.bytes[i]) << "plane " << pl << " at " << x << "," << y;
                } else {
                    ASSERT_EQ(b.bytes[i], a.bytes[i]) << "plane " << pl << " at " << x << "," << y;
                }
            }
    }
    EXPECT_EQ(undrawn, p.fill.undrawn_bytes);
    EXPECT_LT(p.fill.undrawn_bytes, p.fill.frame_bytes);
}

// A frame with 7 spare bytes after every row of every plane gets the same
// picture bytes as a tight one, and its spare bytes stay as they were.
TEST_P(BorderFill, PitchedFramesGetTheSameBorder) {
    const char *format = GetParam();
    const int w = 320, h = 240;
    Engine e(format, w, h, 1.3);
    const Probed p(e, format, w, h, w, h);
    const parvex_BorderColour grey = parvex_BorderFill_fromRgb(format, 128, 128, 128, 0);
    Frame tight(format, w, h, 0x77);
    ASSERT_EQ(PARVEX_OK, parvex_BorderFill_apply(&p.fill, &tight.data, grey));
    parvex_ImageDataEx ex{};
    ex.width = w;
    ex.height = h;
    std::vector<uint8_t> pitched;
    size_t offsets[3] = {0, 0, 0};
    parvex_BorderPlane_ geo[3];
    for (int pl = 0; pl < 3; ++pl) {
        if (!parvex_BorderFill_plane_(p.fill.format, w, h, pl, &geo[pl])) break;
        ex.pitch[pl] = static_cast<int32_t>(geo[pl].pitch + 7);
        offsets[pl] = pitched.size();
        pitched.resize(pitched.size() + static_cast<size_t>(ex.pitch[pl] * geo[pl].rows), 0x77);
    }
    for (int pl = 0; pl < 3; ++pl)
        if (ex.pitch[pl]) ex.dat[pl] = pitched.data() + offsets[pl];
    ASSERT_EQ(PARVEX_OK, parvex_BorderFill_applyEx(&p.fill, &ex, grey));
    for (int pl = 0; pl < 3 && ex.pitch[pl]; ++pl)
        for (int64_t y = 0; y < geo[pl].rows; ++y)
            for (int64_t x = 0; x < ex.pitch[pl]; ++x) {
                const uint8_t got = pitched[offsets[pl] + static_cast<size_t>(y * ex.pitch[pl] + x)];
                const uint8_t *t = static_cast<uint8_t *>(tight.data.dat[pl]);
                const uint8_t want = x < geo[pl].pitch ? t[y * geo[pl].pitch + x] : 0x77;
                ASSERT_EQ(want, got) << "plane " << pl << " at " << x << "," << y;
            }
}

INSTANTIATE_TEST_SUITE_P(Formats, BorderFill, ::testing::ValuesIn(kFormats));

// At zoom 1.1 the engine scales its own intermediate picture, whose undrawn
// part holds whatever an earlier in-place call left there; after the fill
// the output no longer depends on it.
TEST(BorderFillZoom, OutputDoesNotDependOnStaleData) {
    const char *format = "YUV420_SEMIPLANAR";
    const int w = 320, h = 240;
    auto rng = pvx_test::makeRng(3);
    Engine e(format, w, h, 1.3);
    Frame src(format, w, h, 0);
    randomise(src.bytes, rng);
    std::vector<uint8_t> results[2];
    for (int round = 0; round < 2; ++round) {
        Frame stale(format, w, h, round ? 255 : 0);
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(&e.handle, 1.0));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(&e.handle, &stale.data, &stale.data));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(&e.handle, 1.1));
        const Probed p(e, format, w, h, w, h);
        EXPECT_GT(p.fill.count, 0);
        EXPECT_EQ(0, p.fill.keeps_destination);
        Frame out(format, w, h, 0);
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(&e.handle, &out.data, &src.data));
        ASSERT_EQ(PARVEX_OK, parvex_BorderFill_apply(&p.fill, &out.data, parvex_BorderFill_black(format, 1)));
        results[round] = out.bytes;
    }
    EXPECT_EQ(results[0], results[1]);
}

TEST(BorderFillColour, Bt601LevelsAndBlack) {
    struct Case {
        const char *format;
        uint8_t r, g, b;
        int full;
        uint8_t want[3];
    } const cases[] = {
        {"YUV420_SEMIPLANAR", 0, 0, 0, 0, {16, 128, 128}},
        {"YUV420_PLANAR", 255, 255, 255, 0, {235, 128, 128}},
        {"YVU420_SEMIPLANAR", 255, 255, 255, 1, {255, 128, 128}},
        {"YUV420_SEMIPLANAR", 255, 0, 0, 0, {81, 90, 240}},
        {"YUV420_SEMIPLANAR", 0, 0, 255, 1, {29, 255, 107}},
        {"RGB888", 1, 2, 3, 0, {1, 2, 3}},
    };
    for (const Case &c : cases) {
        const parvex_BorderColour got = parvex_BorderFill_fromRgb(c.format, c.r, c.g, c.b, c.full);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(c.want[i], got.c[i]) << c.format << " " << int(c.r) << "," << int(c.g);
    }
    EXPECT_EQ(16, parvex_BorderFill_black("YUV420_PLANAR", 0).c[0]);
    EXPECT_EQ(0, parvex_BorderFill_black("YUV420_PLANAR", 1).c[0]);
    EXPECT_EQ(128, parvex_BorderFill_black("YVU420_SEMIPLANAR", 1).c[2]);
    EXPECT_EQ(0, parvex_BorderFill_black("BGR888", 0).c[1]);
}

TEST(BorderFillErrors, RefusalsNameTheirCause) {
    const char *format = "YUV420_PLANAR";
    const int w = 320, h = 240;
    Engine e(format, w, h, 1.3);
    EXPECT_EQ(0u, parvex_BorderFill_probeSize("NV12", w, h, w, h));
    EXPECT_EQ(0u, parvex_BorderFill_probeSize(format, w, 0, w, h));
    const size_t n = parvex_BorderFill_probeSize(format, w, h, w, h);
    std::vector<uint64_t> scratch(parvex_BorderFill_probeSize(format, w, h, w + 2, h) / 8);
    int32_t count = 0;
    EXPECT_EQ(PARVEX_ERROR_IMAGE_FORMAT,
              parvex_BorderFill_probe(&e.handle, 0, "yuv420_planar", w, h, w, h, scratch.data(), n, &count));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_BorderFill_probe(&e.handle, 0, format, w, h, w, h, scratch.data(), n - 1, &count));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_BorderFill_probe(&e.handle, 2, format, w, h, w, h, scratch.data(), n, &count));
    // A size the engine was not set up for is the engine's refusal.
    EXPECT_EQ(PARVEX_ERROR_STATE,
              parvex_BorderFill_probe(&e.handle, 0, format, w, h, w + 2, h, scratch.data(), scratch.size() * 8, &count));
    parvex_BorderFill fill;
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_BorderFill_init(&fill, scratch.data(), nullptr, 0));  // no finished probe

    ASSERT_EQ(PARVEX_OK, parvex_BorderFill_probe(&e.handle, 0, format, w, h, w, h, scratch.data(), n, &count));
    ASSERT_GT(count, 1);
    std::vector<parvex_BorderSpan> spans(static_cast<size_t>(count));
    EXPECT_EQ(PARVEX_ERROR_MALLOC, parvex_BorderFill_init(&fill, scratch.data(), spans.data(), count - 1));
    EXPECT_EQ(count, fill.count);
    ASSERT_EQ(PARVEX_OK, parvex_BorderFill_init(&fill, scratch.data(), spans.data(), count));
    Frame other(format, w, h + 2, 0);
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_BorderFill_apply(&fill, &other.data, parvex_BorderFill_black(format, 0)));
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_BorderFill_apply(&fill, nullptr, parvex_BorderFill_black(format, 0)));
}

}  // namespace
