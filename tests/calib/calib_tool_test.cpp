// parvex lens and parvex correct --calibration, run as a user would.
#include <gtest/gtest.h>

#include "tests/tools/tool_test_util.h"

namespace {

using tool_test::fileExists;
using tool_test::readFile;
using tool_test::runTool;
using tool_test::TempDir;
using tool_test::writeFile;

const char kCalibration[] = R"(%YAML:1.0
---
image_width: 1280
image_height: 960
camera_matrix: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 1000., 0., 641.5, 0., 1000., 478.25, 0., 0., 1. ]
distortion_coefficients: !!opencv-matrix
   rows: 1
   cols: 5
   dt: d
   data: [ -0.25, 0.07, 0.0002, -0.0001, -0.01 ]
)";

const char kAndroid[] = R"({"android.lens.intrinsicCalibration": [1500, 1500, 1010, 760, 0],
 "android.lens.distortion": [0.08, -0.02, 0, 0, 0],
 "android.sensor.info.preCorrectionActiveArraySize": [0, 0, 2016, 1512]})";

const char kLensfun[] = R"(<lensdatabase><lens><model>Wide 12mm</model><cropfactor>1.5</cropfactor>
<calibration><distortion model="ptlens" focal="12" a="0.01" b="-0.03" c="0.005"/>
<distortion model="ptlens" focal="18" a="0.005" b="-0.01" c="0.002"/></calibration></lens></lensdatabase>)";

class Tool : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir.file("cam.yml"), kCalibration);
        writeFile(dir.file("phone.json"), kAndroid);
        writeFile(dir.file("lenses.xml"), kLensfun);
        writeFile(dir.file("in.yuv"),
                  tool_test::pictureBytes(tool_test::patternFrame(tool_test::Layout::YUV420_PLANAR, 640, 480, 1)));
    }
    std::string f(const std::string &name) const { return dir.file(name); }
    TempDir dir;
};

struct LensRun {
    const char *args;     // after "lens "; files are in the test's directory
    const char *printed;  // part of standard output
};

TEST_F(Tool, LensPrintsTheConversionForEveryKind) {
    const LensRun runs[] = {
        {"cam.yml", "fit error: max "},
        {"cam.yml --size 640x480", "scaled by 0.5 to the 640x480 frame"},
        {"cam.yml --form coefficients", "options: --k1 "},
        {"cam.yml", "tangential terms p1 0.0002, p2 -0.0001 dropped: up to "},
        {"phone.json --size 1920x1080", "Android calibration"},
        {"lenses.xml --size 1920x1080 --focal 15", "interpolated between 12 and 18 mm"},
        {"lenses.xml --size 1920x1080 --focal 12 --form table", "options: --table OUT.txt --center 959.5,539.5"},
    };
    for (const LensRun &r : runs) {
        const std::string args = std::string(r.args);
        const tool_test::RunResult result = runTool("lens " + f(args.substr(0, args.find(' '))) +
                                                    (args.find(' ') == std::string::npos ? "" : args.substr(args.find(' '))));
        EXPECT_EQ(0, result.status) << r.args << "\n" << result.err;
        EXPECT_NE(std::string::npos, result.out.find(r.printed)) << r.args << "\n" << result.out;
    }
}

// The table that lens writes, with the centre it prints, gives the same
// frame as correct --calibration.
TEST_F(Tool, WrittenTableReproducesTheCorrection) {
    const tool_test::RunResult lens = runTool("lens " + f("cam.yml") + " --size 640x480 --table " + f("t.txt"));
    ASSERT_EQ(0, lens.status) << lens.err;
    const size_t at = lens.out.find("--center ");
    ASSERT_NE(std::string::npos, at);
    const std::string center = lens.out.substr(at + 9, lens.out.find_first_of(" \n", at + 9) - at - 9);
    const tool_test::RunResult a = runTool("correct " + f("in.yuv") + " " + f("a.yuv") + " --size 640x480 --quiet --table " +
                                           f("t.txt") + " --center " + center);
    const tool_test::RunResult b = runTool("correct " + f("in.yuv") + " " + f("b.yuv") + " --size 640x480 --calibration " +
                                           f("cam.yml") + " --form table");
    ASSERT_EQ(0, a.status) << a.err;
    ASSERT_EQ(0, b.status) << b.err;
    EXPECT_NE(std::string::npos, b.err.find("fit error: max ")) << b.err;
    EXPECT_TRUE(readFile(f("a.yuv")) == readFile(f("b.yuv")));
}

TEST_F(Tool, StrengthTakesTheCoefficientForm) {
    const tool_test::RunResult r = runTool("correct " + f("in.yuv") + " " + f("s.yuv") + " --size 640x480 --calibration " +
                                           f("cam.yml") + " --strength 0.5");
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("over the frame, coefficients)")) << r.err;
    EXPECT_EQ(2, runTool("correct " + f("in.yuv") + " " + f("t.yuv") + " --size 640x480 --calibration " + f("cam.yml") +
                         " --strength 0.5 --form table").status);
}

struct BadRun {
    const char *file;     // written into the test's directory
    std::string content;
    const char *options;
    const char *message;  // part of standard error, after the file's path
};

TEST_F(Tool, BadCalibrationsLeaveNoOutput) {
    const BadRun runs[] = {
        {"nan.yml", std::string(kCalibration).replace(std::string(kCalibration).find("0.07"), 4, ".nan"), "",
         "distortion_coefficients: coefficient 2 is not a finite number"},
        {"missing.json", "{\"android.lens.distortion\": [0,0,0,0,0]}", "", "android.lens.intrinsicCalibration: missing"},
        {"lenses.xml", kLensfun, "", "focal: Wide 12mm is calibrated at several focal lengths (12, 18 mm); give one with --focal MM"},
        {"lenses.xml", kLensfun, " --lens Tele", "lens: no lens \"Tele\""},
    };
    for (const BadRun &r : runs) {
        writeFile(f(r.file), r.content);
        const tool_test::RunResult result = runTool("correct " + f("in.yuv") + " " + f("out.yuv") +
                                                    " --size 640x480 --calibration " + f(r.file) + r.options);
        EXPECT_EQ(1, result.status) << r.file;
        EXPECT_NE(std::string::npos, result.err.find(f(r.file) + ": " + r.message)) << result.err;
        EXPECT_FALSE(fileExists(f("out.yuv"))) << r.file;
    }
    const tool_test::RunResult usage = runTool("correct " + f("in.yuv") + " " + f("out.yuv") +
                                               " --size 640x480 --calibration " + f("cam.yml") + " --k1 0.1");
    EXPECT_EQ(2, usage.status);
    EXPECT_FALSE(fileExists(f("out.yuv")));
}

}  // namespace
