// The import against OpenCV itself: a chart distorted with a known OpenCV
// model is corrected by the engine (lens and centre from the calibration
// file) and by cv::initUndistortRectifyMap + cv::remap with the matching new
// camera matrix (fx and fy divided by the lens's fill scale). Sample
// positions and pictures must agree.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "calib/calib_engine_mesh.h"
#include "calib/parvex_calib.h"
#include "parvex_distortion_correction.h"

namespace {

struct Case {
    const char *name;
    bool fisheye;
    double fx, fy, cx, cy;
    std::vector<double> dist;
    double maxPositionPx;   // largest sample-position difference allowed (source pixels)
    double minPsnr;         // dB
};

constexpr int kWidth = 1280, kHeight = 720;

std::string calibrationText(const Case &c) {
    cv::FileStorage fs("out.yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
    fs << "image_width" << kWidth << "image_height" << kHeight;
    if (c.fisheye) fs << "fisheye_model" << 1;
    fs << "camera_matrix" << (cv::Mat_<double>(3, 3) << c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1);
    fs << "distortion_coefficients" << cv::Mat(c.dist, true).reshape(1, 1);
    return fs.releaseAndGetString();
}

// A chart in undistorted coordinates (pixels at the calibration's focal
// length): a smooth grid of period 24 pixels.
uint8_t chart(double x, double y) {
    const double v = 127.5 + 110.0 * sin(2 * M_PI * x / 24.0) * sin(2 * M_PI * y / 24.0);
    return static_cast<uint8_t>(lround(std::min(255.0, std::max(0.0, v))));
}

// What the camera records: every pixel shows the chart at its undistorted
// position (OpenCV's iterative undistortion, run to convergence).
cv::Mat distortedChart(const Case &c, const cv::Mat &k, const cv::Mat &d) {
    std::vector<cv::Point2d> pixels;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) pixels.emplace_back(x, y);
    std::vector<cv::Point2d> normal;
    const cv::TermCriteria exact(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 200, 1e-12);
    if (c.fisheye) cv::fisheye::undistortPoints(pixels, normal, k, d, cv::noArray(), cv::noArray(), exact);
    else cv::undistortPoints(pixels, normal, k, d, cv::noArray(), cv::noArray(), exact);
    cv::Mat image(kHeight, kWidth, CV_8UC3);
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const uint8_t v = chart(normal[i].x * c.fx, normal[i].y * c.fy);
        image.at<cv::Vec3b>(i / kWidth, i % kWidth) = cv::Vec3b(v, v, v);
    }
    return image;
}

cv::Mat engineCorrect(const parvex_calib::EngineLens &lens, const cv::Mat &input) {
    parvex_DistortionCorrection_InitParam param = {};
    param.format = "RGB888";
    param.width = kWidth;
    param.height = kHeight;
    param.mode = lens.mode;
    if (lens.mode == 0) {
        for (int i = 0; i < 4; ++i) param.coef[i] = lens.coef[i];
    } else {
        param.num = static_cast<int32_t>(lens.xs.size());
        param.xs = lens.xs.data();
        param.ys = lens.ys.data();
    }
    std::vector<uint64_t> buffer((parvex_DistortionCorrection_getBufferSize(&param) + 7) / 8);
    parvex_DistortionCorrection h;
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_initialize(&h, buffer.data(), static_cast<int32_t>(buffer.size() * 8), &param));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setInputCenter(&h, lens.center_x, lens.center_y));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(&h));
    cv::Mat output(kHeight, kWidth, CV_8UC3, cv::Scalar::all(0));
    parvex_ImageData in = {kWidth, kHeight, {input.data, nullptr, nullptr}};
    parvex_ImageData out = {kWidth, kHeight, {output.data, nullptr, nullptr}};
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(&h, &out, &in));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_finalize(&h));
    return output;
}

class OpenCVAgreement : public ::testing::TestWithParam<Case> {};

TEST_P(OpenCVAgreement, SamplePositionsAndPicturesMatchOpenCVsUndistortion) {
    const Case &c = GetParam();
    const parvex_calib::EngineLens lens = parvex_calib::loadCalibrationText(calibrationText(c), c.name, kWidth, kHeight);
    const cv::Mat k = (cv::Mat_<double>(3, 3) << c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1);
    const cv::Mat d(c.dist, true);
    cv::Mat newK = k.clone();
    newK.at<double>(0, 0) /= lens.fill_scale;
    newK.at<double>(1, 1) /= lens.fill_scale;
    cv::Mat mapX, mapY;
    const cv::Size size(kWidth, kHeight);
    if (c.fisheye) cv::fisheye::initUndistortRectifyMap(k, d, cv::Mat(), newK, size, CV_32FC1, mapX, mapY);
    else cv::initUndistortRectifyMap(k, d, cv::Mat(), newK, size, CV_32FC1, mapX, mapY);

    // Positions: the engine's mesh, interpolated over each cell as the
    // renderer does, against OpenCV's map, where that lies inside the frame.
    const parvex_calib::detail::EngineMesh mesh = parvex_calib::detail::engineMesh(lens, kWidth, kHeight, c.name);
    cv::Mat valid(kHeight, kWidth, CV_8U, cv::Scalar(0));
    double maxPos = 0, sumPos = 0;
    long count = 0;
    for (int j = 0; j + 1 < mesh.numY; ++j) {
        for (int i = 0; i + 1 < mesh.numX; ++i) {
            const size_t v = static_cast<size_t>(j) * mesh.numX + i, w = v + mesh.numX;
            const int x0 = mesh.dstX[v], x1 = mesh.dstX[v + 1], y0 = mesh.dstY[v], y1 = mesh.dstY[w];
            for (int y = y0; y < y1 && y < kHeight; ++y) {
                for (int x = x0; x < x1 && x < kWidth; ++x) {
                    const double u = double(x - x0) / (x1 - x0), t = double(y - y0) / (y1 - y0);
                    const double px = (1 - t) * ((1 - u) * mesh.srcX[v] + u * mesh.srcX[v + 1]) +
                                      t * ((1 - u) * mesh.srcX[w] + u * mesh.srcX[w + 1]);
                    const double py = (1 - t) * ((1 - u) * mesh.srcY[v] + u * mesh.srcY[v + 1]) +
                                      t * ((1 - u) * mesh.srcY[w] + u * mesh.srcY[w + 1]);
                    const double qx = mapX.at<float>(y, x), qy = mapY.at<float>(y, x);
                    if (!(qx >= 1 && qy >= 1 && qx <= kWidth - 2 && qy <= kHeight - 2)) continue;
                    valid.at<uint8_t>(y, x) = 1;
                    const double e = hypot(px - qx, py - qy);
                    maxPos = std::max(maxPos, e);
                    sumPos += e * e;
                    ++count;
                }
            }
        }
    }
    ASSERT_GT(count, kWidth * kHeight / 2);
    const double rmsPos = sqrt(sumPos / count);

    const cv::Mat distorted = distortedChart(c, k, d);
    cv::Mat reference;
    cv::remap(distorted, reference, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    const cv::Mat ours = engineCorrect(lens, distorted);
    double sq = 0;
    long n = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            if (valid.at<uint8_t>(y, x)) {
                const double e = double(ours.at<cv::Vec3b>(y, x)[0]) - reference.at<cv::Vec3b>(y, x)[0];
                sq += e * e;
                ++n;
            }
    const double psnr = 10 * log10(255.0 * 255.0 / std::max(sq / n, 1e-12));
    printf("[ figures  ] %s: %s, fit error max %.3f / RMS %.3f px; positions vs OpenCV max %.3f / RMS %.3f px; "
           "PSNR %.2f dB over %.1f%% of the frame\n",
           c.name, lens.mode == 0 ? "coefficients" : "table", lens.fit_max_px, lens.fit_rms_px, maxPos, rmsPos,
           psnr, 100.0 * n / (kWidth * kHeight));
    EXPECT_LE(maxPos, c.maxPositionPx);
    EXPECT_GE(psnr, c.minPsnr);
    // The fit error the import reports is the same disagreement, in output
    // pixels (about the source's, scaled by the fill scale).
    EXPECT_NEAR(maxPos / lens.fill_scale, lens.fit_max_px, 0.1 + 0.1 * lens.fit_max_px);
}

INSTANTIATE_TEST_SUITE_P(
    Models, OpenCVAgreement,
    ::testing::Values(
        Case{"calibration_sample", false, 1000, 1001, 643.2, 355.7, {-0.28, 0.09, 2e-4, -1e-4, -0.012}, 0.6, 38},
        Case{"radial_only", false, 1000, 1000, 640.5, 359.5, {-0.25, 0.07, 0, 0, -0.01}, 0.35, 38},
        Case{"rational", false, 900, 900, 630, 365, {-0.2, 0.05, 0, 0, 0.01, 0.1, 0.02, 0.001}, 0.35, 38},
        Case{"pincushion", false, 1100, 1100, 640, 360, {0.12, 0.03, 0, 0, 0}, 0.35, 38},
        Case{"fisheye", true, 600, 600, 641, 358, {0.05, -0.01, 0.002, -0.0005}, 0.6, 36}),
    [](const ::testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });

}  // namespace

namespace {

struct ModelCase {
    const char *name;
    bool fisheye;
    std::vector<double> dist;
    double skew;
};

void PrintTo(const ModelCase &c, std::ostream *os) { *os << c.name; }

class ModelAgainstOpenCV : public ::testing::TestWithParam<ModelCase> {};

// The imported model, with every term it reads (tangential, rational,
// thin prism, tilt; fisheye with skew), samples where OpenCV does.
TEST_P(ModelAgainstOpenCV, SamplesWhereOpenCVDoes) {
    const ModelCase &c = GetParam();
    const double fx = 820, fy = 815, cx = 330.5, cy = 236.25, scale = 1.07;
    cv::FileStorage fs("out.yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
    fs << "image_width" << 640 << "image_height" << 480;
    if (c.fisheye) fs << "fisheye_model" << 1;
    const cv::Mat k = (cv::Mat_<double>(3, 3) << fx, c.skew, cx, 0, fy, cy, 0, 0, 1);
    fs << "camera_matrix" << k << "distortion_coefficients" << cv::Mat(c.dist, true);
    const parvex_calib::CameraModel m = parvex_calib::readCalibrationText(fs.releaseAndGetString(), c.name, 640, 480);

    // OpenCV's pinhole map; for the fisheye its point projection, since its
    // undistortion map leaves the skew out.
    const cv::Mat newK = (cv::Mat_<double>(3, 3) << fx / scale, 0, cx, 0, fy / scale, cy, 0, 0, 1);
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(k, cv::Mat(c.dist, true), cv::Mat(), newK, cv::Size(640, 480), CV_32FC1, mapX, mapY);
    std::vector<cv::Point2d> pixels, undistorted, projected;
    for (int y = 0; y < 480; y += 3)
        for (int x = 0; x < 640; x += 3) {
            pixels.emplace_back(x, y);
            undistorted.emplace_back((x - cx) * scale / fx, (y - cy) * scale / fy);
        }
    if (c.fisheye) cv::fisheye::distortPoints(undistorted, projected, k, cv::Mat(c.dist, true), c.skew / fx);
    double largest = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const int x = static_cast<int>(pixels[i].x), y = static_cast<int>(pixels[i].y);
        double sx = 0, sy = 0;
        ASSERT_TRUE(parvex_calib::modelSourcePosition(m, scale, x, y, &sx, &sy));
        // The map is single precision.
        const double qx = c.fisheye ? projected[i].x : mapX.at<float>(y, x);
        const double qy = c.fisheye ? projected[i].y : mapY.at<float>(y, x);
        largest = std::max(largest, hypot(sx - qx, sy - qy));
    }
    EXPECT_LT(largest, 2e-3) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Terms, ModelAgainstOpenCV,
    ::testing::Values(ModelCase{"four", false, {-0.2, 0.04, 0.001, -0.0005}, 0},
                      ModelCase{"five", false, {-0.2, 0.04, 0.001, -0.0005, -0.01}, 0},
                      ModelCase{"eight", false, {-0.2, 0.04, 0.001, -0.0005, -0.01, 0.05, 0.01, 0.002}, 0},
                      ModelCase{"twelve", false, {-0.2, 0.04, 0.001, -0.0005, -0.01, 0.05, 0.01, 0.002, 0.001, -0.0004, 0.0007, 0.0002}, 0},
                      ModelCase{"fourteen", false, {-0.2, 0.04, 0.001, -0.0005, -0.01, 0.05, 0.01, 0.002, 0.001, -0.0004, 0.0007, 0.0002, 0.01, -0.02}, 0},
                      ModelCase{"fisheye_skewed", true, {0.05, -0.01, 0.002, -0.0005}, 4.1}),
    [](const ::testing::TestParamInfo<ModelCase> &info) { return std::string(info.param.name); });

}  // namespace
