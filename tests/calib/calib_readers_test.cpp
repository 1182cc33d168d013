// The readers: what each kind of calibration file gives, placed on the
// frame, and the one-line refusals of bad files.
#include <gtest/gtest.h>
#include <math.h>

#include <fstream>

#include "calib/parvex_calib.h"

namespace {

using parvex_calib::CameraModel;
using parvex_calib::Kind;
using parvex_calib::Options;

const char kYaml5[] = R"(%YAML:1.0
---
image_width: 1920
image_height: 1080
camera_matrix: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 1400., 0., 955., 0., 1398., 545., 0., 0., 1. ]
distortion_coefficients: !!opencv-matrix
   rows: 5
   cols: 1
   dt: d
   data: [ -0.28, 0.09, 0.0008, -0.0005, -0.012 ]
)";

// As OpenCV's calibration sample writes it, with its other nodes and comments.
const char kSample[] = R"(%YAML:1.0
---
calibration_time: "Tue Nov 24 03:00:00 2026"
nframes: 2
image_width: 1280
image_height: 720
# flags:  +fix_principal_point
flags: 4
camera_matrix: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 1.0012e+03, 0., 6.395e+02, 0., 1.0009e+03, 3.595e+02, 0., 0., 1. ]
distortion_coefficients: !!opencv-matrix
   rows: 5
   cols: 1
   dt: d
   data: [ -2.8e-01, 9.0e-02, 2.0e-04, -1.0e-04, -1.2e-02 ]
avg_reprojection_error: 2.1e-01
per_view_reprojection_errors: !!opencv-matrix
   rows: 2
   cols: 1
   dt: f
   data: [ 2.0e-01, 2.2e-01 ]
)";

const char kXml8[] = R"(<?xml version="1.0"?>
<opencv_storage>
<cameraMatrix type_id="opencv-matrix"><rows>3</rows><cols>3</cols><dt>d</dt>
  <data>700. 0. 320. 0. 700. 240. 0. 0. 1.</data></cameraMatrix>
<distCoeffs type_id="opencv-matrix"><rows>1</rows><cols>8</cols><dt>d</dt>
  <data>-0.2 0.05 0 0 0.01 0.1 0.02 0.001</data></distCoeffs>
</opencv_storage>
)";

const char kFisheye[] = R"(%YAML:1.0
---
fisheye_model: 1
camera_matrix: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 600., 0., 640., 0., 600., 360., 0., 0., 1. ]
distortion_coefficients: !!opencv-matrix
   rows: 4
   cols: 1
   dt: d
   data: [ 0.05, -0.01, 0.002, -0.0005 ]
)";

// As ROS writes camera_info: no YAML header, plain maps of rows, cols and data.
const char kRos[] = R"(image_width: 640
image_height: 480
distortion_model: plumb_bob
camera_matrix:
  rows: 3
  cols: 3
  data: [500, 0, 319.5, 0, 500, 239.5, 0, 0, 1]
distortion_coefficients:
  rows: 1
  cols: 4
  data: [-0.1, 0.01, 0, 0]
)";

const char kAndroid[] = R"({
  "android.lens.intrinsicCalibration": [3000, 3010, 2010, 1505, 0.5],
  "android.lens.distortion": [0.11, -0.22, 0.033, 0.0004, -0.0005],
  "android.sensor.info.preCorrectionActiveArraySize": [0, 0, 4032, 3024]
})";

const char kLensfun[] = R"(<lensdatabase version="2">
  <lens>
    <maker>Maker</maker>
    <model>Zoom 10-30mm</model>
    <mount>M</mount>
    <cropfactor>1.5</cropfactor>
    <calibration>
      <distortion model="poly3" focal="10" k1="-0.03"/>
      <distortion model="poly3" focal="20" k1="-0.01"/>
      <distortion model="poly3" focal="30" k1="0.01"/>
    </calibration>
  </lens>
  <lens>
    <model>Prime 24mm</model>
    <cropfactor>1.0</cropfactor>
    <aspect-ratio>4:3</aspect-ratio>
    <calibration>
      <distortion model="ptlens" focal="24" a="0.01" b="-0.02" c="0.005"/>
    </calibration>
  </lens>
  <lens>
    <model>Two Point</model>
    <cropfactor>2</cropfactor>
    <calibration>
      <distortion model="poly5" focal="12" k1="-0.1" k2="0.02"/>
      <distortion model="poly5" focal="18" k1="-0.04" k2="0.01"/>
    </calibration>
  </lens>
</lensdatabase>
)";

struct ReadCase {
    const char *name;
    const char *text;
    int32_t width, height;
    Options options;
    CameraModel::Type type;
    const char *source;
    double fx, fy, cx, cy, skew;
    std::vector<double> d;   // leading coefficients in the model's order
};

Options lensfun(const char *lens, double focal, double crop = 0) {
    Options o;
    o.lens = lens;
    o.focal_mm = focal;
    o.crop_factor = crop;
    return o;
}

Options kind(Kind k) {
    Options o;
    o.kind = k;
    return o;
}

const double kDiag1080 = hypot(1920, 1080) * 0.5;

// Hermite interpolation at the middle of two segments reduces to the value
// (y2 + y3) / 2 + (tg2 - tg3) / 8.
const double kMid15 = (-0.03 + -0.01) / 2 + ((-0.01 - -0.03) - (0.01 - -0.03) * 0.5) / 8;

void PrintTo(const ReadCase &c, std::ostream *os) { *os << c.name; }

class Readers : public ::testing::TestWithParam<ReadCase> {};

TEST_P(Readers, GiveTheModelOnTheFrame) {
    const ReadCase &c = GetParam();
    const CameraModel m = parvex_calib::readCalibrationText(c.text, c.name, c.width, c.height, c.options);
    EXPECT_EQ(c.type, m.type);
    EXPECT_EQ(c.source, m.source);
    EXPECT_NEAR(c.fx, m.fx, 1e-9 * c.fx);
    EXPECT_NEAR(c.fy, m.fy, 1e-9 * c.fy);
    EXPECT_NEAR(c.cx, m.cx, 1e-9);
    EXPECT_NEAR(c.cy, m.cy, 1e-9);
    EXPECT_NEAR(c.skew, m.skew, 1e-12);
    for (size_t i = 0; i < c.d.size(); ++i) EXPECT_NEAR(c.d[i], m.d[i], 1e-12) << "coefficient " << i;
    EXPECT_EQ(c.width ? c.width : m.width, m.width);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Readers,
    ::testing::Values(
        ReadCase{"opencv_sample", kSample, 1280, 720, Options(), CameraModel::Type::Pinhole, "OpenCV", 1001.2, 1000.9,
                 639.5, 359.5, 0, {-0.28, 0.09, 0.0002, -0.0001, -0.012}},
        ReadCase{"yaml5", kYaml5, 1920, 1080, Options(), CameraModel::Type::Pinhole, "OpenCV", 1400, 1398, 955, 545, 0,
                 {-0.28, 0.09, 0.0008, -0.0005, -0.012, 0, 0, 0}},
        // Half the size: focal lengths halve, pixel centres stay centres.
        ReadCase{"yaml5_half", kYaml5, 960, 540, Options(), CameraModel::Type::Pinhole, "OpenCV", 700, 699, 477.25, 272.25, 0, {-0.28}},
        // 0 x 0: the calibration's own size.
        ReadCase{"yaml5_own", kYaml5, 0, 0, Options(), CameraModel::Type::Pinhole, "OpenCV", 1400, 1398, 955, 545, 0, {-0.28}},
        ReadCase{"xml8", kXml8, 640, 480, Options(), CameraModel::Type::Pinhole, "OpenCV", 700, 700, 320, 240, 0,
                 {-0.2, 0.05, 0, 0, 0.01, 0.1, 0.02, 0.001}},
        ReadCase{"fisheye_flag", kFisheye, 1280, 720, Options(), CameraModel::Type::Fisheye, "OpenCV fisheye", 600, 600, 640, 360, 0,
                 {0.05, -0.01, 0.002, -0.0005}},
        ReadCase{"fisheye_option", kRos, 640, 480, kind(Kind::OpenCVFisheye), CameraModel::Type::Fisheye,
                 "OpenCV fisheye", 500, 500, 319.5, 239.5, 0, {-0.1, 0.01, 0, 0}},
        ReadCase{"ros", kRos, 640, 480, Options(), CameraModel::Type::Pinhole, "OpenCV", 500, 500, 319.5, 239.5, 0, {-0.1, 0.01}},
        // Android: [k1 k2 k3 p1 p2] become OpenCV's k1 k2 p1 p2 k3; the 4:3
        // array is cropped to 16:9 in the middle and scaled by 1920/4032.
        ReadCase{"android", kAndroid, 1920, 1080, Options(), CameraModel::Type::Pinhole, "Android", 3000 * 1920.0 / 4032,
                 3010 * 1920.0 / 4032, (2010 + 0.5) * 1920.0 / 4032 - 0.5,
                 (1505 - (3024 - 1080 * 4032.0 / 1920) / 2 + 0.5) * 1920.0 / 4032 - 0.5, 0.5 * 1920.0 / 4032,
                 {0.11, -0.22, 0.0004, -0.0005, 0.033}},
        ReadCase{"lensfun_exact", kLensfun, 1920, 1080, lensfun("zoom 10-30MM", 20), CameraModel::Type::Lensfun, "Lensfun",
                 kDiag1080 / sqrt(3.25), kDiag1080 / sqrt(3.25), 959.5, 539.5, 0, {-0.01}},
        ReadCase{"lensfun_spline", kLensfun, 1920, 1080, lensfun("Maker Zoom 10-30mm", 15), CameraModel::Type::Lensfun,
                 "Lensfun", kDiag1080 / sqrt(3.25), kDiag1080 / sqrt(3.25), 959.5, 539.5, 0, {kMid15}},
        // Two calibrations only: the spline is the straight line between them.
        ReadCase{"lensfun_linear", kLensfun, 1920, 1080, lensfun("Two Point", 16), CameraModel::Type::Lensfun, "Lensfun",
                 kDiag1080 / sqrt(3.25), kDiag1080 / sqrt(3.25), 959.5, 539.5, 0, {-0.06, 0.04 / 3}},
        ReadCase{"lensfun_beyond", kLensfun, 1920, 1080, lensfun("Two Point", 50), CameraModel::Type::Lensfun, "Lensfun",
                 kDiag1080 / sqrt(3.25), kDiag1080 / sqrt(3.25), 959.5, 539.5, 0, {-0.04, 0.01}},
        // A 4:3 calibration: the unit is 3/5 of the half diagonal; a camera
        // of crop factor 2 against the lens's 1 doubles it.
        ReadCase{"lensfun_aspect_crop", kLensfun, 1600, 1200, lensfun("Prime 24mm", 24, 2.0), CameraModel::Type::Lensfun,
                 "Lensfun", 1000 * 0.6 * 2, 1000 * 0.6 * 2, 799.5, 599.5, 0, {0.01, -0.02, 0.005}}),
    [](const ::testing::TestParamInfo<ReadCase> &info) { return std::string(info.param.name); });

struct BadCase {
    const char *name;
    std::string text;
    Options options;
    const char *message;   // part of the error message after the file name
};

// `text` with every `from` replaced by `to`.
std::string replaced(std::string text, const std::string &from, const std::string &to) {
    EXPECT_NE(std::string::npos, text.find(from)) << from;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

void PrintTo(const BadCase &c, std::ostream *os) { *os << c.name; }

class Refusals : public ::testing::TestWithParam<BadCase> {};

TEST_P(Refusals, NameTheFileAndTheField) {
    const BadCase &c = GetParam();
    try {
        parvex_calib::loadCalibrationText(c.text, "cal.file", 1920, 1080, c.options);
        FAIL() << "accepted";
    } catch (const parvex_calib::Error &e) {
        const std::string message = e.what();
        EXPECT_EQ(0u, message.find("cal.file: ")) << message;
        EXPECT_NE(std::string::npos, message.find(c.message)) << message;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, Refusals,
    ::testing::Values(
        BadCase{"empty", "  \n", Options(), "empty file"},
        BadCase{"no_matrix", replaced(kYaml5, "camera_matrix", "camera_matrx"), Options(), "camera_matrix: missing"},
        BadCase{"no_coefficients", replaced(kXml8, "distCoeffs", "distortion"), Options(), "distortion_coefficients: missing"},
        BadCase{"matrix_3x2", replaced(replaced(kYaml5, "cols: 3", "cols: 2"), "1398., 545., 0., 0., 1.", "1398., 545."),
                Options(), "camera_matrix: is 3x2, expected 3x3"},
        BadCase{"count_mismatch", replaced(kYaml5, "rows: 5", "rows: 6"), Options(), "distortion_coefficients: says 6x1 but holds 5"},
        BadCase{"nan", replaced(kYaml5, "0.09", ".nan"), Options(), "distortion_coefficients: coefficient 2 is not a finite number"},
        BadCase{"centre_outside", replaced(kYaml5, "955.", "1955."), Options(), "camera_matrix: optical centre (1955, 545) lies outside"},
        BadCase{"not_a_camera_matrix", replaced(kYaml5, "0., 0., 1. ]", "0., 1., 1. ]"), Options(), "camera_matrix: is not a camera matrix"},
        BadCase{"zero_focal", replaced(kYaml5, "1400.", "0."), Options(), "focal lengths fx 0, fy 1398 must be positive"},
        BadCase{"fisheye_five", kYaml5, kind(Kind::OpenCVFisheye), "a fisheye calibration has 4 coefficients"},
        BadCase{"not_yaml", "%YAML:1.0\n---\ncamera_matrix: [1, 2\n", Options(), "not a readable OpenCV calibration"},
        BadCase{"other_xml", "<svg></svg>", Options(), "neither an OpenCV calibration"},
        BadCase{"android_missing", replaced(kAndroid, "android.lens.distortion", "android.lens.distortio"), Options(),
                "android.lens.distortion: missing"},
        BadCase{"android_short", replaced(kAndroid, ", 0.5]", "]"), Options(), "android.lens.intrinsicCalibration: must hold five numbers"},
        BadCase{"android_no_size", replaced(kAndroid, "preCorrectionActiveArraySize", "activeArraySize"), Options(),
                "android.sensor.info.preCorrectionActiveArraySize: missing"},
        BadCase{"lensfun_unknown_lens", kLensfun, lensfun("Nope", 20), "lens: no lens \"Nope\""},
        BadCase{"lensfun_no_focal", kLensfun, lensfun("Two Point", 0), "calibrated at several focal lengths (12, 18 mm)"},
        BadCase{"lensfun_bad_number", replaced(kLensfun, "k1=\"-0.01\"", "k1=\"abc\""), lensfun("Two Point", 12),
                "k1 \"abc\" is not a finite number"},
        BadCase{"lensfun_bad_model", replaced(kLensfun, "model=\"ptlens\"", "model=\"acm\""), lensfun("Prime 24mm", 24),
                "model \"acm\" is not one of poly3, poly5, ptlens"},
        BadCase{"lens_for_opencv", kYaml5, lensfun("Two Point", 12), "applies only to Lensfun"}),
    [](const ::testing::TestParamInfo<BadCase> &info) { return std::string(info.param.name); });

TEST(Files, MissingFileIsNamed) {
    try {
        parvex_calib::loadCalibrationFile("/nonexistent/cal.yml", 640, 480);
        FAIL() << "accepted";
    } catch (const parvex_calib::Error &e) {
        EXPECT_EQ(0u, std::string(e.what()).find("/nonexistent/cal.yml: cannot open"));
    }
}

TEST(Files, ScalingIsReported) {
    const CameraModel m = parvex_calib::readCalibrationText(kAndroid, "a.json", 1920, 1080);
    ASSERT_FALSE(m.notes.empty());
    EXPECT_NE(std::string::npos, m.notes[0].find("calibration made at 4032x3024, scaled by 0.47619"));
    EXPECT_NE(std::string::npos, m.notes[0].find("centred crop to 4032x2268"));
}

}  // namespace
