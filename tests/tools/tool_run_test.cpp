// The parvex tool run as a program: its outputs against the library's own
// output for the same pixels and settings, its streams, and its refusals.
#include <stdio.h>
#include <string.h>

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "colour.h"
#include "frame.h"
#include "image_file.h"
#include "parvex_distortion_correction.h"
#include "tool_test_util.h"

using namespace tool_test;

namespace {

constexpr int kW = 400, kH = 300;

// An RGB test picture written as in.png; returns its pixels.
Frame writeInputPng(const TempDir &dir, uint64_t stream, const std::string &name = "in.png", int w = kW, int h = kH) {
    Frame p = patternFrame(Layout::RGB888, w, h, stream);
    writePngFile(dir.file(name), w, h, std::vector<uint8_t>(p.data(), p.data() + p.byteSize()));
    return p;
}

// The PNG's RGB bytes.
std::string pngBytes(const std::string &path) {
    int w = 0, h = 0;
    std::vector<uint8_t> rgb;
    EXPECT_TRUE(readPngFile(path, &w, &h, &rgb)) << path;
    return std::string(rgb.begin(), rgb.end());
}

std::string y4mStream(const std::string &header, const std::vector<Frame> &frames) {
    std::string s = header + "\n";
    for (const Frame &f : frames) s += "FRAME\n" + pictureBytes(f);
    return s;
}

// Splits a YUV4MPEG2 stream into its header line and frames.
bool splitY4m(const std::string &s, std::string *header, std::vector<std::string> *frames, size_t frameBytes) {
    size_t nl = s.find('\n');
    if (nl == std::string::npos) return false;
    *header = s.substr(0, nl);
    size_t at = nl + 1;
    frames->clear();
    while (at < s.size()) {
        if (s.compare(at, 6, "FRAME\n") != 0) return false;
        at += 6;
        if (s.size() - at < frameBytes) return false;
        frames->push_back(s.substr(at, frameBytes));
        at += frameBytes;
    }
    return true;
}

size_t storedSize(int w, int h) {
    return static_cast<size_t>(w) * h + 2 * static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2);
}

}  // namespace

TEST(ToolRun, HelpAndNoArgumentsPrintUsage) {
    for (const char *args : {"", "correct --help"}) {
        const RunResult r = runTool(args);
        EXPECT_EQ(r.status, 0) << args;
        EXPECT_NE(r.out.find("usage: parvex demo"), std::string::npos) << args;
        EXPECT_NE(r.out.find("--output-size WxH | recommended"), std::string::npos) << args;
    }
}

TEST(ToolRun, DemoWritesTheSheetAndArrowsAndPrintsTimeAndCornerError) {
    TempDir dir;
    const RunResult r = runTool("demo " + dir.file("demo.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"demo-arrows.png", "demo.png"}));
    int w = 0, h = 0, aw = 0, ah = 0;
    std::vector<uint8_t> rgb, arrows;
    ASSERT_TRUE(readPngFile(dir.file("demo.png"), &w, &h, &rgb));
    ASSERT_TRUE(readPngFile(dir.file("demo-arrows.png"), &aw, &ah, &arrows));
    EXPECT_EQ(std::vector<int>({w, h, aw, ah}), std::vector<int>({2880, 540, 1920, 1080}));
    std::smatch m;
    ASSERT_TRUE(std::regex_search(r.out, m, std::regex("process time: [0-9]+\\.[0-9]+ ms per frame \\(median of 15\\), "
                                                       "border fill [0-9.]+ ms; corner error: median ([0-9.]+) px,\\s+"
                                                       "largest ([0-9.]+) px \\(([0-9]+) grid crossings")))
        << r.out;
    // The correction undoes the distortion to a fraction of a pixel.
    EXPECT_LT(std::stod(m[1].str()), 0.25) << r.out;
    EXPECT_LT(std::stod(m[2].str()), 1.0) << r.out;
    EXPECT_GT(std::stoi(m[3].str()), 60) << r.out;
    EXPECT_EQ(r.out.find("PSNR"), std::string::npos) << r.out;
    // The first two panels differ (the lens moved the pixels); the corrected
    // panel's border above and below the chart's green patch is black.
    int differ = 0, black = 0;
    for (int y = 0; y < 540; ++y)
        for (int x = 0; x < 960; ++x) {
            const uint8_t *p = &rgb[(static_cast<size_t>(y) * w + x) * 3], *c = p + 1920 * 3;
            differ += p[0] != p[960 * 3];
            black += c[0] == 0 && c[1] == 0 && c[2] == 0;
            ASSERT_FALSE((y < 12 || y >= 528) && c[1] > c[0] + 40 && c[1] > c[2] + 40) << "green at " << x << "," << y;
        }
    EXPECT_GT(differ, 100000) << differ;
    EXPECT_GT(black, 5000);
}

// A picture corrected with a lens table that samples beyond the input's
// edge: the border is black by default, in place too, and --fill picks
// another colour without touching the drawn pixels.
TEST(ToolRun, PincushionBorderIsFilled) {
    TempDir dir;
    const Frame in = writeInputPng(dir, 4);
    writeFile(dir.file("pin.txt"), "0 0\n0.5 0.6\n1.0 1.3\n1.2 1.6\n");
    Settings s;
    s.xs = {0.0, 0.5, 1.0, 1.2};
    s.ys = {0.0, 0.6, 1.3, 1.6};
    const std::string lens = "correct --table " + dir.file("pin.txt") + " " + dir.file("in.png") + " ";
    ASSERT_EQ(runTool(lens + dir.file("black.png")).status, 0);
    ASSERT_EQ(runTool(lens + dir.file("inplace.png") + " --in-place").status, 0);
    ASSERT_EQ(runTool(lens + dir.file("red.png") + " --fill 255,0,0").status, 0);
    ASSERT_EQ(runTool(lens + dir.file("none.png") + " --fill none").status, 0);
    const std::string black = pngBytes(dir.file("black.png")), red = pngBytes(dir.file("red.png"));
    EXPECT_TRUE(black == pictureBytes(libraryOutput(s, {in})[0]));
    EXPECT_TRUE(pngBytes(dir.file("inplace.png")) == black);
    s.fillBorder = false;
    EXPECT_TRUE(pngBytes(dir.file("none.png")) == pictureBytes(libraryOutput(s, {in})[0]));
    // The corner pixel's source lies far outside; it is in the border.
    EXPECT_EQ(black.substr(0, 3), std::string(3, '\0'));
    size_t border = 0;
    for (size_t i = 0; i < black.size(); i += 3) {
        const bool same = red.compare(i, 3, black, i, 3) == 0;
        ASSERT_TRUE(same || red.compare(i, 3, "\xff\0\0", 3) == 0) << "pixel " << i / 3;
        border += !same;
    }
    EXPECT_GT(border, black.size() / 3 / 10);
}

// One run of "correct"/"distort" on a PNG per case, against the library's
// output for the same pixels and settings.
struct PngCase {
    const char *name;
    std::string args;
    Settings settings;
};

class ToolPng : public ::testing::TestWithParam<PngCase> {};

TEST_P(ToolPng, OutputEqualsTheLibrarysOwn) {
    const PngCase &c = GetParam();
    TempDir dir;
    const Frame in = writeInputPng(dir, 1);
    if (!c.settings.xs.empty()) {
        std::string table = "# output radius, source radius\n";
        for (size_t i = 0; i < c.settings.xs.size(); ++i) {
            char line[64];
            snprintf(line, sizeof line, "%.17g %.17g\n", c.settings.xs[i], c.settings.ys[i]);
            table += line;
        }
        writeFile(dir.file("lens.txt"), table);
    }
    std::string args = c.args;
    const size_t at = args.find("@DIR@");
    if (at != std::string::npos) args.replace(at, 5, dir.path());
    const RunResult r = runTool(args + " " + dir.file("in.png") + " " + dir.file("out.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<Frame> expected = libraryOutput(c.settings, {in});
    // The BGR888 reference holds the PNG's RGB bytes (see below).
    EXPECT_TRUE(pngBytes(dir.file("out.png")) == pictureBytes(expected[0]));
    EXPECT_NE(r.err.find(std::string(c.settings.distort ? "distorted" : "corrected") + " 400x300 -> " +
                         std::to_string(expected[0].width()) + "x" + std::to_string(expected[0].height())),
              std::string::npos)
        << r.err;
}

Settings coefs(double k1, double k2 = 0, double k3 = 0, double k4 = 0) {
    Settings s;
    s.coef[0] = k1;
    s.coef[1] = k2;
    s.coef[2] = k3;
    s.coef[3] = k4;
    return s;
}

std::vector<PngCase> pngCases() {
    std::vector<PngCase> cases;
    cases.push_back({"defaultLens", "correct", coefs(0.2, 0.05)});
    Settings s = coefs(0.1);
    s.strength = 0.6;
    s.center[0] = 180;
    s.center[1] = 140.5;
    cases.push_back({"strengthAndCentre", "correct --k1 0.1 --strength 0.6 --center 180,140.5", s});
    s = coefs(-0.3);
    s.zoom = 1.5;
    cases.push_back({"zoom", "correct --k1 -0.3 --zoom 1.5", s});
    s = coefs(-0.2);
    s.cropSet = true;
    s.crop[0] = 20;
    s.crop[1] = 10;
    s.crop[2] = 380;
    s.crop[3] = 290;
    cases.push_back({"crop", "correct --k1 -0.2 --crop 20,10,380,290", s});
    s = coefs(-0.2);
    s.outSize[0] = 352;
    s.outSize[1] = 288;
    s.center[0] = 150;
    s.center[1] = 160;
    cases.push_back({"outputSizeAfterCentre", "correct --output-size 352x288 --k1 -0.2 --center 150,160", s});
    s = coefs(-0.2);
    s.inPlace = true;
    cases.push_back({"inPlace", "correct --k1 -0.2 --in-place", s});
    s = coefs(-0.2, 0.05);
    s.distort = true;
    cases.push_back({"distort", "distort --k1 -0.2 --k2 0.05", s});
    s = Settings();
    s.xs = {0.0, 0.25, 0.5, 0.75, 1.0, 1.2};
    s.ys = {0.0, 0.24, 0.46, 0.66, 0.83, 0.95};
    cases.push_back({"table", "correct --table @DIR@/lens.txt", s});
    s = coefs(-0.2);
    s.format = Layout::BGR888;
    cases.push_back({"bgrAtZoomOne", "correct --k1 -0.2 --format BGR888", s});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Settings, ToolPng, ::testing::ValuesIn(pngCases()),
                         [](const ::testing::TestParamInfo<PngCase> &info) { return std::string(info.param.name); });

// The BGR888 case above hands the RGB pixels to the library as BGR888 for
// the reference, while the tool swaps them there and back; the two agree
// because the engine treats the three channels alike.

TEST(ToolRun, JpegInAndOut) {
    TempDir dir;
    writeInputPng(dir, 3);
    RunResult r = runTool("correct --k1 -0.1 --quality 90 " + dir.file("in.png") + " " + dir.file("mid.JPG"));
    ASSERT_EQ(r.status, 0) << r.err;
    // The JPEG decodes to the input size; correcting it matches the library on the decoded pixels.
    std::unique_ptr<parvex_tool::ImageReader> reader =
        parvex_tool::ImageReader::open(dir.file("mid.JPG"), parvex_tool::ImageType::Jpeg);
    ASSERT_EQ(reader->width(), kW);
    ASSERT_EQ(reader->height(), kH);
    parvex_tool::Frame decoded;
    reader->read(&decoded);
    r = runTool("correct --k1 -0.1 " + dir.file("mid.JPG") + " " + dir.file("out.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(pngBytes(dir.file("out.png")) == pictureBytes(libraryOutput(coefs(-0.1), {decoded})[0]));
}

TEST(ToolRun, Y4mStreamRoundTripsThroughCorrect) {
    TempDir dir;
    struct Case {
        int w, h;
        const char *tags, *extra;
        int ow, oh;
    } cases[] = {{352, 288, "F30000:1001 It A1:1 C420mpeg2 XYSCSS=420MPEG2", "", 352, 288},
                 {353, 289, "F25:1 C420paldv", "", 353, 289},
                 {352, 288, "F24:1", " --output-size 320x240", 320, 240},
                 {352, 288, "C420jpeg F25:1 XCOLORRANGE=FULL", " --zoom 1.3", 352, 288}};
    for (const Case &c : cases) {
        std::vector<Frame> frames;
        for (int n = 0; n < 3; ++n)  // with the padding of an odd size as the tool makes it
            frames.push_back(fromStored(Layout::YUV420_PLANAR, c.w, c.h,
                                        pictureBytes(patternFrame(Layout::YUV420_PLANAR, c.w, c.h, 10 + n))));
        const std::string header = "YUV4MPEG2 W" + std::to_string(c.w) + " H" + std::to_string(c.h) + " " + c.tags;
        writeFile(dir.file("in.y4m"), y4mStream(header, frames));
        const RunResult r = runTool(std::string("correct --k1 -0.22") + c.extra + " - -", dir.file("in.y4m"));
        ASSERT_EQ(r.status, 0) << r.err;
        std::string outHeader;
        std::vector<std::string> outFrames;
        ASSERT_TRUE(splitY4m(r.out, &outHeader, &outFrames, storedSize(c.ow, c.oh))) << c.tags;
        EXPECT_EQ(outHeader, "YUV4MPEG2 W" + std::to_string(c.ow) + " H" + std::to_string(c.oh) + " " + c.tags);
        ASSERT_EQ(outFrames.size(), 3u);
        Settings s = coefs(-0.22);
        s.format = Layout::YUV420_PLANAR;
        if (c.ow != c.w) {
            s.outSize[0] = c.ow;
            s.outSize[1] = c.oh;
        }
        if (strstr(c.extra, "zoom")) s.zoom = 1.3;
        const std::vector<Frame> expected = libraryOutput(s, frames);
        for (int n = 0; n < 3; ++n) EXPECT_TRUE(outFrames[n] == pictureBytes(expected[n])) << c.tags << " frame " << n;
        EXPECT_NE(r.err.find("3 frames"), std::string::npos) << r.err;
    }
    // A .y4m file to a .y4m file gives the same bytes as the pipe.
    const RunResult piped = runTool("correct --quiet --k1 -0.22 - -", dir.file("in.y4m"));
    const RunResult r = runTool("correct --quiet --k1 -0.22 " + dir.file("in.y4m") + " " + dir.file("out.y4m"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(dir.file("out.y4m")), piped.out);
    EXPECT_EQ(r.err, "");
}

TEST(ToolRun, RawFramesWithSize) {
    TempDir dir;
    struct Case {
        const char *ext;
        Layout format;
    } cases[] = {{"nv12", Layout::YUV420_SEMIPLANAR}, {"nv21", Layout::YVU420_SEMIPLANAR}, {"yuv", Layout::YUV420_PLANAR}};
    for (const Case &c : cases) {
        std::vector<Frame> frames;
        std::string bytes;
        for (int n = 0; n < 2; ++n) {
            frames.push_back(patternFrame(c.format, 320, 240, 20 + n));
            bytes += pictureBytes(frames.back());
        }
        const std::string in = dir.file(std::string("in.") + c.ext), out = dir.file(std::string("out.") + c.ext);
        writeFile(in, bytes);
        const RunResult r = runTool("correct --k1 0.12 --size 320x240 " + in + " " + out);
        ASSERT_EQ(r.status, 0) << r.err;
        Settings s = coefs(0.12);
        s.format = c.format;
        const std::vector<Frame> expected = libraryOutput(s, frames);
        EXPECT_TRUE(readFile(out) == pictureBytes(expected[0]) + pictureBytes(expected[1])) << c.ext;
    }
}

// Refusals: the message, a non-zero exit and nothing left in the directory
// but the inputs.
struct ErrorCase {
    ErrorCase(const char *n, std::string a, int s, std::string m, std::string in = std::string())
        : name(n), args(std::move(a)), status(s), message(std::move(m)), stdinFile(std::move(in)) {}
    const char *name;
    std::string args;  // @DIR@ is the directory
    int status;
    std::string message;    // @DIR@ likewise
    std::string stdinFile;  // in the directory, or empty
};

class ToolErrors : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(ToolErrors, RefusesWithMessageAndLeavesNoOutput) {
    const ErrorCase &c = GetParam();
    TempDir dir;
    writeInputPng(dir, 4);
    writeInputPng(dir, 5, "tiny.png", 100, 80);
    {
        const std::string png = readFile(dir.file("in.png"));
        writeFile(dir.file("cut.png"), png.substr(0, png.size() / 2));
    }
    {
        writeFile(dir.file("two.nv12"), std::string(320 * 240 * 3, '\x10'));
        writeFile(dir.file("odd.nv12"), std::string(320 * 240 * 3 / 2 + 5, '\x10'));
    }
    writeFile(dir.file("garbage.txt"), "0 0\n0.5 0.45\nhello world\n");
    writeFile(dir.file("one.txt"), "# a single point\n0.5 0.5\n");
    {
        const std::string jpg = dir.file("good.jpg");
        ASSERT_EQ(runTool("correct --quiet " + dir.file("in.png") + " " + jpg).status, 0);
        const std::string bytes = readFile(jpg);
        writeFile(dir.file("cut.jpg"), bytes.substr(0, bytes.size() / 2));
    }
    const std::vector<std::string> before = dir.list();

    std::string args = c.args;
    for (size_t at; (at = args.find("@DIR@")) != std::string::npos;) args.replace(at, 5, dir.path());
    std::string message = c.message;
    for (size_t at; (at = message.find("@DIR@")) != std::string::npos;) message.replace(at, 5, dir.path());
    const RunResult r = runTool(args, c.stdinFile.empty() ? std::string() : dir.file(c.stdinFile));
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.err.find(message), std::string::npos) << "stderr: " << r.err << "\nexpected: " << message;
    EXPECT_EQ(r.err.compare(0, 8, "parvex: "), 0) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(dir.list(), before);
}

std::vector<ErrorCase> errorCases() {
    const std::string in = "@DIR@/in.png", out = " @DIR@/out.png";
    return {
        {"missingFile", "correct @DIR@/nope.png" + out, 1, "cannot open @DIR@/nope.png: No such file or directory"},
        {"truncatedPng", "correct @DIR@/cut.png" + out, 1, "cut.png: damaged PNG data"},
        {"truncatedJpeg", "correct @DIR@/cut.jpg" + out, 1, "cut.jpg: damaged JPEG data (Premature end of JPEG file)"},
        {"emptyStdin", "correct - @DIR@/out.y4m", 1, "standard input: empty input (no YUV4MPEG2 header)"},
        {"rawWithoutSize", "correct @DIR@/two.nv12 @DIR@/out.nv12", 2, "raw input @DIR@/two.nv12 needs --size WxH"},
        {"rawWrongSize", "correct --size 320x240 @DIR@/odd.nv12 @DIR@/out.nv12", 1,
         "115205 bytes is not a whole number of 320x240 YUV420_SEMIPLANAR frames (115200 bytes each)"},
        {"rawIntoPng", "correct --size 320x240 @DIR@/two.nv12" + out, 2, "holds one picture, but @DIR@/two.nv12 has 2 frames"},
        {"k1NotANumber", "correct --k1 abc " + in + out, 2, "--k1: \"abc\" is not a number"},
        {"zoomBelowOne", "correct --zoom 0.5 " + in + out, 2, "--zoom: \"0.5\" is not a zoom ratio of at least 1"},
        {"cropUpsideDown", "correct --crop 50,50,10,10 " + in + out, 2, "right must exceed left"},
        {"cropOutside", "correct --crop 0,0,401,300 " + in + out, 2, "reaches outside the 400x300 input"},
        {"unknownOption", "correct --bogus 1 " + in + out, 2, "unknown option --bogus"},
        {"unknownCommand", "corect " + in + out, 2, "unknown command \"corect\""},
        {"unknownExtension", "correct " + in + " @DIR@/out.bmp", 2, "cannot tell the kind of the output"},
        {"tableGarbage", "correct --table @DIR@/garbage.txt " + in + out, 1,
         "garbage.txt:3: expected two numbers (output radius, source radius)"},
        {"tableAndCoefficients", "correct --table @DIR@/one.txt --k1 0.1 " + in + out, 2, "give one"},
        {"distortWithTable", "distort --table @DIR@/one.txt " + in + out, 2, "distort needs a lens given by --k1..--k4"},
        {"inPlaceOtherSize", "correct --in-place --output-size 320x240 " + in + out, 2,
         "--in-place needs the output size to equal the input size (400x300, not 320x240)"},
        {"pictureTooSmall", "correct @DIR@/tiny.png" + out, 1,
         "initialize: PARVEX_ERROR_PARAM (0x80000001): a null pointer or a value out of range (the picture is 100x80"},
        {"bgrZoom", "correct --format BGR888 --zoom 1.5 " + in + out, 1,
         "process: PARVEX_ERROR_IMAGE_FORMAT (0x80000010): the engine does not accept this image format here"},
    };
}

INSTANTIATE_TEST_SUITE_P(Cases, ToolErrors, ::testing::ValuesIn(errorCases()),
                         [](const ::testing::TestParamInfo<ErrorCase> &info) { return std::string(info.param.name); });

TEST(ToolRun, StreamErrorStopsWithAMessageAfterTheGoodFrames) {
    TempDir dir;
    const Frame f = patternFrame(Layout::YUV420_PLANAR, 320, 240, 7);
    const std::string stream = y4mStream("YUV4MPEG2 W320 H240 F25:1", {f, f, f});
    writeFile(dir.file("cut.y4m"), stream.substr(0, stream.size() - 10));
    const RunResult r = runTool("correct --quiet - -", dir.file("cut.y4m"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("truncated YUV4MPEG2 stream (frame 3"), std::string::npos) << r.err;
    std::string header;
    std::vector<std::string> frames;
    ASSERT_TRUE(splitY4m(r.out, &header, &frames, storedSize(320, 240)));
    EXPECT_EQ(frames.size(), 2u);
}
