// The parvexcorrect element in GstHarness: every format against the parvex
// tool, byte for byte (a border filled black); caps changes; refused and
// run-time properties; frames stored bottom up; an empty stream.
#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tool_test_util.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Odd sizes: GStreamer pads every row to 4 bytes, and 4:2:0 chroma rounds up.
constexpr int kWidth = 323, kHeight = 241;

std::string capsText(const char *format, int width = kWidth, int height = kHeight) {
    return std::string("video/x-raw,format=") + format + ",width=" + std::to_string(width) +
           ",height=" + std::to_string(height) + ",framerate=30/1";
}

// One videotestsrc frame (a test card with its moving ball part) in `caps`.
GstBuffer *testFrame(const std::string &caps, const char *pattern = "smpte") {
    GstHarness *h = gst_harness_new_parse(
        (std::string("videotestsrc pattern=") + pattern + " ! capsfilter caps=\"" + caps + "\"").c_str());
    gst_harness_play(h);
    GstBuffer *buffer = gst_harness_pull(h);
    gst_harness_teardown(h);
    return buffer;
}

GstVideoInfo videoInfo(const std::string &caps) {
    GstCaps *c = gst_caps_from_string(caps.c_str());
    GstVideoInfo info;
    gst_video_info_from_caps(&info, c);
    gst_caps_unref(c);
    return info;
}

// The picture rows of every plane, without the row padding.
Bytes tightBytes(GstBuffer *buffer, const GstVideoInfo &info) {
    GstVideoFrame frame;
    Bytes bytes;
    if (!gst_video_frame_map(&frame, const_cast<GstVideoInfo *>(&info), buffer, GST_MAP_READ)) return bytes;
    for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&frame); ++p) {
        // Plane p starts with component p in each of the five formats.
        const int rowBytes = GST_VIDEO_FRAME_COMP_WIDTH(&frame, p) * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, p);
        const auto *data = static_cast<const uint8_t *>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p));
        const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
        for (int y = 0; y < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, p); ++y)
            bytes.insert(bytes.end(), data + y * stride, data + y * stride + rowBytes);
    }
    gst_video_frame_unmap(&frame);
    return bytes;
}

Bytes tightBytes(GstBuffer *buffer, const std::string &caps) { return tightBytes(buffer, videoInfo(caps)); }

// What the harness's sink received, in the caps it was given.
Bytes pulled(GstHarness *h, GstBuffer *out) {
    if (!out) return Bytes();
    GstCaps *caps = gst_pad_get_current_caps(h->sinkpad);
    GstVideoInfo info;
    gst_video_info_from_caps(&info, caps);
    gst_caps_unref(caps);
    Bytes bytes = tightBytes(out, info);
    gst_buffer_unref(out);
    return bytes;
}

// Runs `buffer` through a new parvexcorrect with `properties` (as in a
// gst-launch line) and returns the output's picture bytes.
Bytes correct(GstBuffer *buffer, const std::string &caps, const std::string &properties) {
    GstHarness *h = gst_harness_new_parse(("parvexcorrect " + properties).c_str());
    gst_harness_set_src_caps_str(h, caps.c_str());
    Bytes bytes = pulled(h, gst_harness_push_and_pull(h, gst_buffer_copy_deep(buffer)));
    gst_harness_teardown(h);
    return bytes;
}

void swapRedBlue(Bytes *rgb) {
    for (size_t i = 0; i + 2 < rgb->size(); i += 3) std::swap((*rgb)[i], (*rgb)[i + 2]);
}

// The tool's output for the same picture: raw 4:2:0 files as they are, RGB
// and BGR through a PNG (the tool turns RGB pictures into BGR888 and back).
Bytes toolOutput(const char *format, Bytes input, const std::string &options) {
    tool_test::TempDir dir;
    const std::string f = format;
    std::string in, out, args = options;
    if (f == "RGB" || f == "BGR") {
        if (f == "BGR") swapRedBlue(&input);
        in = dir.file("in.png"), out = dir.file("out.png");
        tool_test::writePngFile(in, kWidth, kHeight, input);
        if (f == "BGR") args += " --format BGR888";
    } else {
        const std::string ext = f == "NV12" ? ".nv12" : f == "NV21" ? ".nv21" : ".yuv";
        in = dir.file("in" + ext), out = dir.file("out" + ext);
        tool_test::writeFile(in, std::string(input.begin(), input.end()));
        args += " --size " + std::to_string(kWidth) + "x" + std::to_string(kHeight);
        args += f == "NV12" ? " --format YUV420_SEMIPLANAR" : f == "NV21" ? " --format YVU420_SEMIPLANAR" : "";
    }
    const tool_test::RunResult run = tool_test::runTool("correct " + in + " " + out + " --quiet " + args);
    EXPECT_EQ(run.status, 0) << run.err;
    Bytes result;
    if (f == "RGB" || f == "BGR") {
        int w = 0, h = 0;
        EXPECT_TRUE(tool_test::readPngFile(out, &w, &h, &result));
        if (f == "BGR") swapRedBlue(&result);
    } else {
        const std::string text = tool_test::readFile(out);
        result.assign(text.begin(), text.end());
    }
    return result;
}

// Error messages the element posted, joined.
std::string postedErrors(GstBus *bus) {
    std::string all;
    while (GstMessage *m = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR)) {
        GError *error = nullptr;
        gchar *debug = nullptr;
        gst_message_parse_error(m, &error, &debug);
        all += std::string(error->message) + " [" + (debug ? debug : "") + "]\n";
        g_error_free(error);
        g_free(debug);
        gst_message_unref(m);
    }
    return all;
}

// A harness whose element posts on `bus`.
struct Element {
    GstHarness *h;
    GstElement *element;  // inside the harness's bin
    GstBus *bus = gst_bus_new();
    Element(const std::string &properties, const std::string &caps) {
        h = gst_harness_new_parse(("parvexcorrect name=pc " + properties).c_str());
        element = gst_bin_get_by_name(GST_BIN(h->element), "pc");
        gst_element_set_bus(h->element, bus);
        gst_harness_set_src_caps_str(h, caps.c_str());
    }
    ~Element() {
        gst_object_unref(element);
        gst_harness_teardown(h);
        gst_object_unref(bus);
    }
    Bytes push(GstBuffer *in) { return pulled(h, gst_harness_push_and_pull(h, gst_buffer_copy_deep(in))); }
    void set(const char *name, const char *value) { gst_util_set_object_arg(G_OBJECT(element), name, value); }
};

class Formats : public ::testing::TestWithParam<const char *> {};

TEST_P(Formats, EqualTheToolByteForByte) {
    const std::string caps = capsText(GetParam());
    GstBuffer *in = testFrame(caps);
    const Bytes tool = toolOutput(GetParam(), tightBytes(in, caps), "--k1 0.2 --k2 0.05 --strength 0.8");
    EXPECT_EQ(correct(in, caps, "k1=0.2 k2=0.05 strength=0.8"), tool);
    // The engine scales no BGR888 frames.
    const std::string zoom = std::string(GetParam()) == "BGR" ? "1" : "1.2";
    EXPECT_EQ(correct(in, caps, "k1=-0.15 zoom=" + zoom),
              toolOutput(GetParam(), tightBytes(in, caps), "--k1 -0.15 --zoom " + zoom));
    // Other output sizes: given, and the library's recommendation.
    EXPECT_EQ(correct(in, caps, "k1=0.2 output-width=400 output-height=300"),
              toolOutput(GetParam(), tightBytes(in, caps), "--k1 0.2 --output-size 400x300"));
    EXPECT_EQ(correct(in, caps, "k1=0.2 output-size=recommended"),
              toolOutput(GetParam(), tightBytes(in, caps), "--k1 0.2 --output-size recommended"));
    // A table that leaves a border, which both fill with black.
    tool_test::TempDir dir;
    tool_test::writeFile(dir.file("lens.txt"), "0 0\n0.5 0.6\n1 1.3\n");
    EXPECT_EQ(correct(in, caps, "table=" + dir.file("lens.txt")),
              toolOutput(GetParam(), tightBytes(in, caps), "--table " + dir.file("lens.txt")));
    gst_buffer_unref(in);
}

INSTANTIATE_TEST_SUITE_P(All, Formats, ::testing::Values("NV12", "NV21", "I420", "RGB", "BGR"));

// A calibration file gives the same lens and centre to both.
TEST(ParvexCorrect, CalibrationFileEqualsTheTool) {
    tool_test::TempDir dir;
    const std::string file = dir.file("camera.yml");
    tool_test::writeFile(file,
                         "%YAML:1.0\n---\nimage_width: 322\nimage_height: 242\n"
                         "cameraMatrix: !!opencv-matrix\n   rows: 3\n   cols: 3\n   dt: d\n"
                         "   data: [ 250., 0., 150., 0., 250., 125., 0., 0., 1. ]\n"
                         "distCoeffs: !!opencv-matrix\n   rows: 1\n   cols: 5\n   dt: d\n"
                         "   data: [ -0.25, 0.08, 0., 0., -0.01 ]\n");
    const std::string caps = capsText("NV12");
    GstBuffer *in = testFrame(caps);
    const Bytes element = correct(in, caps, "calibration=" + file);
    EXPECT_EQ(element, toolOutput("NV12", tightBytes(in, caps), "--calibration " + file));
    EXPECT_NE(element, tightBytes(in, caps));
    // Strength reaches coefficient lenses only: both convert the calibration
    // to coefficients then, the element also when the strength changes later.
    const Bytes half = toolOutput("NV12", tightBytes(in, caps), "--calibration " + file + " --strength 0.5");
    EXPECT_EQ(correct(in, caps, "calibration=" + file + " strength=0.5"), half);
    Element e("calibration=" + file, caps);
    EXPECT_EQ(e.push(in), element);
    e.set("strength", "0.5");
    EXPECT_EQ(e.push(in), half);
    EXPECT_EQ(postedErrors(e.bus), "");
    gst_buffer_unref(in);
}

TEST(ParvexCorrect, CapsChangeMidStreamBuildsANewEngine) {
    const std::string first = capsText("NV12"), second = capsText("I420", 480, 320);
    GstBuffer *a = testFrame(first), *b = testFrame(second);
    Element e("k1=0.2", first);
    EXPECT_EQ(e.push(a), correct(a, first, "k1=0.2"));
    gst_harness_set_src_caps_str(e.h, second.c_str());
    EXPECT_EQ(e.push(b), correct(b, second, "k1=0.2"));
    gst_harness_set_src_caps_str(e.h, first.c_str());
    EXPECT_EQ(e.push(a), correct(a, first, "k1=0.2"));
    EXPECT_EQ(postedErrors(e.bus), "");
    gst_buffer_unref(a);
    gst_buffer_unref(b);
}

TEST(ParvexCorrect, RunTimePropertiesApplyToTheNextFrame) {
    const std::string caps = capsText("NV12");
    GstBuffer *in = testFrame(caps);
    Element e("k1=0.2", caps);
    EXPECT_EQ(e.push(in), correct(in, caps, "k1=0.2"));
    const char *changes[][2] = {{"strength", "0.5"}, {"zoom", "1.5"},      {"crop", "16,8,300,230"},
                                {"k2", "0.1"},       {"fill", "0xff0000"}, {"mode", "distort"}};
    std::string all = "k1=0.2";
    for (const auto &c : changes) {
        e.set(c[0], c[1]);
        all += std::string(" ") + c[0] + "=" + c[1];
        EXPECT_EQ(e.push(in), correct(in, caps, all)) << all;
    }
    EXPECT_EQ(postedErrors(e.bus), "");
    gst_buffer_unref(in);
}

TEST(ParvexCorrect, RefusedValuesNameCodeAndPropertyAndKeepTheLastGoodOne) {
    tool_test::TempDir dir;
    tool_test::writeFile(dir.file("lens.txt"), "0 0\n0.5 0.45\n1 0.9\n");
    struct Case {
        const char *format, *start, *property, *value, *expected[2];
    } cases[] = {
        {"NV12", "k1=0.2", "strength", "1.5", {"PARVEX_ERROR_PARAM", "strength"}},
        {"NV12", "k1=0.2", "zoom", "0.5", {"PARVEX_ERROR_PARAM", "zoom"}},
        {"BGR", "k1=0.2", "zoom", "2", {"PARVEX_ERROR_IMAGE_FORMAT", "zoom"}},
        {"NV12", "k1=0.2 output-width=400 output-height=300", "zoom", "2", {"zoom", "output-width/output-height"}},
        {"NV12", "k1=0.2 output-height=9000", "output-width", "9000", {"output-width/output-height", "mesh"}},
        {"NV12", "table=LENS", "mode", "distort", {"PARVEX_ERROR_PARAM", "mode"}},
        {"I420", "k1=0.2", "table", "/nonexistent/lens.txt", {"table", "/nonexistent/lens.txt"}},
        {"I420", "k1=0.2", "crop", "0,0,900,100", {"crop", "inside"}},
        {"I420", "k1=0.2", "fill", "purple", {"fill", "purple"}},
    };
    for (const Case &c : cases) {
        std::string start = c.start;
        if (start == "table=LENS") start = "table=" + dir.file("lens.txt");
        const std::string caps = capsText(c.format);
        GstBuffer *in = testFrame(caps);
        const Bytes good = correct(in, caps, start);
        Element e(start, caps);
        e.set(c.property, c.value);
        const Bytes out = e.push(in);
        const std::string errors = postedErrors(e.bus);
        for (const char *text : c.expected) EXPECT_NE(errors.find(text), std::string::npos) << errors;
        // The element carries on with the value that worked.
        EXPECT_EQ(out, good) << c.property << "=" << c.value;
        EXPECT_EQ(e.push(in), out);
        EXPECT_EQ(postedErrors(e.bus), "");
        gst_buffer_unref(in);
    }
}

// A frame whose GstVideoMeta stores the rows bottom up (negative strides):
// the element copies it once and corrects it like the same picture top down.
TEST(ParvexCorrect, BottomUpFramesAreCopiedNotRefused) {
    for (const char *format : {"I420", "RGB"}) {
        const std::string caps = capsText(format);
        GstBuffer *in = testFrame(caps);
        GstVideoInfo info = videoInfo(caps);
        GstBuffer *flipped = gst_buffer_copy_deep(in);
        gsize offsets[GST_VIDEO_MAX_PLANES];
        gint strides[GST_VIDEO_MAX_PLANES];
        for (guint p = 0; p < GST_VIDEO_INFO_N_PLANES(&info); ++p) {
            const gint rows = GST_VIDEO_INFO_COMP_HEIGHT(&info, p);
            offsets[p] = GST_VIDEO_INFO_PLANE_OFFSET(&info, p) + (rows - 1) * GST_VIDEO_INFO_PLANE_STRIDE(&info, p);
            strides[p] = -GST_VIDEO_INFO_PLANE_STRIDE(&info, p);
        }
        gst_buffer_add_video_meta_full(flipped, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info), kWidth,
                                       kHeight, GST_VIDEO_INFO_N_PLANES(&info), offsets, strides);
        Element e("k1=0.2", caps);
        const Bytes fromFlipped = e.push(flipped);
        // The picture the meta describes (upside down), stored top down.
        GstBuffer *plain = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
        GstVideoFrame src, dst;
        ASSERT_TRUE(gst_video_frame_map(&src, &info, flipped, GST_MAP_READ));
        ASSERT_TRUE(gst_video_frame_map(&dst, &info, plain, GST_MAP_WRITE));
        gst_video_frame_copy(&dst, &src);
        gst_video_frame_unmap(&src);
        gst_video_frame_unmap(&dst);
        EXPECT_EQ(fromFlipped, correct(plain, caps, "k1=0.2")) << format;
        EXPECT_EQ(postedErrors(e.bus), "");
        gst_buffer_unref(plain);
        gst_buffer_unref(flipped);
        gst_buffer_unref(in);
    }
}

TEST(ParvexCorrect, EosWithoutBuffers) {
    GstElement *pipeline = gst_parse_launch(
        "videotestsrc num-buffers=0 ! video/x-raw,format=NV12,width=640,height=480 ! parvexcorrect k1=0.2 ! fakesink",
        nullptr);
    ASSERT_NE(pipeline, nullptr);
    GstBus *bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstMessage *m = gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND,
                                               static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(GST_MESSAGE_TYPE(m), GST_MESSAGE_EOS);
    gst_message_unref(m);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
}

}  // namespace

int main(int argc, char **argv) {
    // Scan in this process: under the sanitizers the plugin resolves the
    // sanitizer runtime from this program, which the scanner helper lacks.
    g_setenv("GST_REGISTRY_FORK", "no", TRUE);
    gst_init(&argc, &argv);
    gst_registry_scan_path(gst_registry_get(), PARVEX_GST_PLUGIN_DIR);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
