// The tool's pieces: BT.601 conversion against the standard's numbers, stored
// frames, YUV4MPEG2 headers, command-line refusals and lens tables.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "colour.h"
#include "frame.h"
#include "options.h"
#include "table_file.h"
#include "tests/support/test_random.h"
#include "tool_error.h"
#include "tool_test_util.h"
#include "yuv_stream.h"

using namespace parvex_tool;

namespace {

const Layout kYuv[] = {Layout::YUV420_PLANAR, Layout::YUV420_SEMIPLANAR, Layout::YVU420_SEMIPLANAR};

}  // namespace

// The published BT.601 matrices: JFIF's for the full range, and the studio
// one (R', G', B' in 0..1) for the limited range.
TEST(ToolColour, Bt601MatchesThePublishedMatrices) {
    std::mt19937_64 rng = pvx_test::makeRng(39);
    std::vector<std::array<double, 3>> colours = {{255, 255, 255}, {0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    for (int i = 0; i < 200; ++i) colours.push_back({double(rng() % 256), double(rng() % 256), double(rng() % 256)});
    for (const auto &c : colours) {
        const double r = c[0], g = c[1], b = c[2];
        double y, u, v;
        rgbToYuv(r, g, b, Range::Full, &y, &u, &v);
        EXPECT_NEAR(y, 0.299 * r + 0.587 * g + 0.114 * b, 1e-9);
        EXPECT_NEAR(u, 128 - 0.168736 * r - 0.331264 * g + 0.5 * b, 1e-3);
        EXPECT_NEAR(v, 128 + 0.5 * r - 0.418688 * g - 0.081312 * b, 1e-3);
        rgbToYuv(r, g, b, Range::Limited, &y, &u, &v);
        const double R = r / 255, G = g / 255, B = b / 255;
        EXPECT_NEAR(y, 16 + 65.481 * R + 128.553 * G + 24.966 * B, 1e-3);
        EXPECT_NEAR(u, 128 - 37.797 * R - 74.203 * G + 112.0 * B, 1e-3);
        EXPECT_NEAR(v, 128 + 112.0 * R - 93.786 * G - 18.214 * B, 1e-3);
    }
    uint8_t rgb[3];
    yuvToRgb(235, 128, 128, Range::Limited, rgb);
    EXPECT_EQ(rgb[0] + rgb[1] + rgb[2], 3 * 255);
    yuvToRgb(16, 128, 128, Range::Limited, rgb);
    EXPECT_EQ(rgb[0] + rgb[1] + rgb[2], 0);
    yuvToRgb(81, 90, 240, Range::Limited, rgb);  // red, rounded
    EXPECT_GE(rgb[0], 253);
    EXPECT_LE(rgb[1], 2);
    EXPECT_LE(rgb[2], 2);
    EXPECT_EQ(clampToByte(-3.0), 0);
    EXPECT_EQ(clampToByte(NAN), 0);
    EXPECT_EQ(clampToByte(255.7), 255);
    EXPECT_EQ(clampToByte(127.5), 128);
}

TEST(ToolColour, RgbRoundTripThroughEveryYuvLayoutIsClose) {
    // Flat 2x2 blocks keep the chroma exact, so only rounding remains.
    for (Range range : {Range::Full, Range::Limited}) {
        for (Layout layout : kYuv) {
            Frame rgb(Layout::RGB888, 322, 242), yuv, back;
            std::mt19937_64 rng = pvx_test::makeRng(40);
            for (int y = 0; y < 242; y += 2)
                for (int x = 0; x < 322; x += 2) {
                    const uint8_t c[3] = {static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng())};
                    for (int dy = 0; dy < 2; ++dy)
                        for (int dx = 0; dx < 2; ++dx) memcpy(rgb.row(0, y + dy) + 3 * (x + dx), c, 3);
                }
            convert(rgb, layout, range, &yuv);
            convert(yuv, Layout::RGB888, range, &back);
            int worst = 0;
            for (size_t i = 0; i < rgb.byteSize(); ++i) worst = std::max(worst, abs(rgb.data()[i] - back.data()[i]));
            EXPECT_LE(worst, range == Range::Full ? 3 : 4) << layoutName(layout) << " " << rangeName(range);
        }
    }
}

TEST(ToolFrame, StoredFramesPackWithoutPadding) {
    EXPECT_EQ(storedFrameSize(Layout::YUV420_PLANAR, 353, 289), 353u * 289 + 2u * 177 * 145);
    for (Layout layout : kYuv) {
        for (int w : {352, 353}) {
            const int h = w - 64;
            std::vector<uint8_t> stored(storedFrameSize(layout, w, h));
            std::mt19937_64 rng = pvx_test::makeRng(43);
            for (uint8_t &b : stored) b = static_cast<uint8_t>(rng());
            Frame f(layout, w, h);
            unpackStoredFrame(stored.data(), &f);
            // Row 5 of the luma starts 5 stored rows in; chroma follows the luma.
            EXPECT_EQ(memcmp(f.row(0, 5), stored.data() + 5 * w, static_cast<size_t>(w)), 0);
            EXPECT_EQ(f.row(1, 0)[0], stored[static_cast<size_t>(w) * h]);
            std::vector<uint8_t> again(stored.size());
            packStoredFrame(f, again.data());
            EXPECT_EQ(again, stored) << layoutName(layout) << " " << w;
        }
    }
}

TEST(ToolY4m, HeadersParseAndFormat) {
    Y4mHeader h = parseY4mHeader("YUV4MPEG2 W352 H288 F30000:1001 It A128:117 C420mpeg2 XYSCSS=420MPEG2");
    EXPECT_EQ(h.width, 352);
    EXPECT_EQ(h.height, 288);
    EXPECT_FALSE(h.fullRange);
    EXPECT_EQ(h.format(320, 240), "YUV4MPEG2 W320 H240 F30000:1001 It A128:117 C420mpeg2 XYSCSS=420MPEG2\n");
    h = parseY4mHeader("YUV4MPEG2 C420 H4 W6 XCOLORRANGE=FULL");
    EXPECT_EQ(h.width, 6);
    EXPECT_EQ(h.height, 4);
    EXPECT_TRUE(h.fullRange);
    EXPECT_EQ(h.format(6, 4), "YUV4MPEG2 W6 H4 C420 XCOLORRANGE=FULL\n");
    for (const char *tag : {"C420jpeg", "C420paldv"}) EXPECT_NO_THROW(parseY4mHeader(std::string("YUV4MPEG2 W2 H2 ") + tag));
    EXPECT_NO_THROW(parseY4mHeader("YUV4MPEG2 W2 H2"));

    struct Bad {
        const char *line, *message;
    } bad[] = {{"YUV4MPEG W2 H2", "not a YUV4MPEG2 stream"},
               {"YUV4MPEG2 W2", "no width or height"},
               {"YUV4MPEG2 W0 H2", "bad width \"W0\""},
               {"YUV4MPEG2 W2 Habc", "bad height \"Habc\""},
               {"YUV4MPEG2 W2 H2 C444", "colour space \"444\" is not supported"},
               {"YUV4MPEG2 W2 H2 Cmono", "is not supported"}};
    for (const Bad &b : bad) {
        try {
            parseY4mHeader(b.line);
            ADD_FAILURE() << b.line << " was accepted";
        } catch (const ToolError &e) {
            EXPECT_NE(std::string(e.what()).find(b.message), std::string::npos) << b.line << ": " << e.what();
        }
    }
}

TEST(ToolOptions, NumbersAndSizesParseStrictly) {
    double d = 0;
    EXPECT_TRUE(parseDouble("-0.25", &d));
    EXPECT_EQ(d, -0.25);
    EXPECT_TRUE(parseDouble("1e-3", &d));
    for (const char *bad : {"", " 1", "1 ", "1x", "nan", "inf", "-inf", "1e400", "0x"}) EXPECT_FALSE(parseDouble(bad, &d)) << bad;
    int i = 0;
    EXPECT_TRUE(parseInt("-12", &i));
    EXPECT_EQ(i, -12);
    for (const char *bad : {"", "1.5", "99999999999", "12a", " 3"}) EXPECT_FALSE(parseInt(bad, &i)) << bad;
    Size s;
    EXPECT_TRUE(parseSize("1920x1080", &s));
    EXPECT_EQ(s.width, 1920);
    EXPECT_EQ(s.height, 1080);
    EXPECT_TRUE(parseSize("640X480", &s));
    for (const char *bad : {"1920", "x1080", "1920x", "0x10", "10x0", "-5x5", "5x-5", "+5x5", "5x5x5", "axb"})
        EXPECT_FALSE(parseSize(bad, &s)) << bad;
}

TEST(ToolOptions, FillColoursParse) {
    struct Case {
        const char *text;
        FillColour::Kind kind;
        uint8_t rgb[3];
    } const good[] = {
        {"black", FillColour::Kind::Black, {0, 0, 0}},   {"none", FillColour::Kind::None, {0, 0, 0}},
        {"white", FillColour::Kind::Rgb, {255, 255, 255}}, {"gray", FillColour::Kind::Rgb, {128, 128, 128}},
        {"#FF8000", FillColour::Kind::Rgb, {255, 128, 0}}, {"0a0B0c", FillColour::Kind::Rgb, {10, 11, 12}},
        {"1,2,255", FillColour::Kind::Rgb, {1, 2, 255}},
    };
    for (const Case &c : good) {
        FillColour f;
        ASSERT_TRUE(parseFillColour(c.text, &f)) << c.text;
        EXPECT_EQ(c.kind, f.kind) << c.text;
        for (int i = 0; i < 3; ++i) EXPECT_EQ(c.rgb[i], f.rgb[i]) << c.text;
    }
    for (const char *bad : {"", "Black", "#12345", "#1234567", "1,2", "1,2,3,4", "1,,3", "-1,0,0", "x,0,0", "#GG0000"}) {
        FillColour f;
        EXPECT_FALSE(parseFillColour(bad, &f)) << bad;
    }
}

TEST(ToolTable, FilesParseWithCommentsAndRefuseFaults) {
    tool_test::TempDir dir;
    const std::string path = dir.file("t.txt");
    Lens lens;
    tool_test::writeFile(path, "# radii\n\n0 0\n0.5,0.48  # comma too\n  1.0\t0.9\r\n1.5 1.2");
    readTableFile(path, &lens);
    EXPECT_TRUE(lens.table);
    EXPECT_EQ(lens.outputRadii, (std::vector<double>{0, 0.5, 1.0, 1.5}));
    EXPECT_EQ(lens.sourceRadii, (std::vector<double>{0, 0.48, 0.9, 1.2}));

    std::string full;
    for (int i = 0; i < 256; ++i) full += std::to_string(i * 0.01) + " " + std::to_string(i * 0.009) + "\n";
    tool_test::writeFile(path, full);
    readTableFile(path, &lens);
    EXPECT_EQ(lens.outputRadii.size(), 256u);
    struct Bad {
        std::string text;
        const char *message;
    } bad[] = {{full + "2.57 2.3\n", "t.txt:257: more than 256 points"},
               {"0 0\n1\n", "t.txt:2: expected two numbers"},
               {"0 0\n1 -2\n", "t.txt:2: radii cannot be negative"},
               {"0 0\n0 1\n", "t.txt:2: output radii must rise"},
               {std::string("0 0\n1 1\0\n", 10), "t.txt:2: not a text file"},
               {"", "needs at least two points (it has 0)"}};
    for (const Bad &b : bad) {
        tool_test::writeFile(path, b.text);
        try {
            readTableFile(path, &lens);
            ADD_FAILURE() << b.message;
        } catch (const ToolError &e) {
            EXPECT_NE(std::string(e.what()).find(b.message), std::string::npos) << e.what();
        }
    }
}
