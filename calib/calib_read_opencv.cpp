// OpenCV calibrations as cv::FileStorage writes them (YAML, XML or JSON):
// the camera matrix and the distortion coefficients under the names of
// OpenCV's calibration samples, GStreamer's cameracalibrate or ROS.
#include <math.h>

#include <opencv2/core.hpp>

#include "calib/calib_internal.h"

namespace parvex_calib {
namespace detail {

namespace {

const char *const kMatrixNames[] = {"camera_matrix", "cameraMatrix", "K"};
const char *const kDistortionNames[] = {"distortion_coefficients", "distCoeffs", "dist_coeffs", "D"};

struct Values {
    std::string field;            // the node's name, for messages
    std::vector<double> numbers;  // row by row
    int rows = 0, cols = 0;
};

double readNumber(const cv::FileNode &node, const std::string &name, const std::string &field) {
    if (!node.isReal() && !node.isInt()) fail(name, field, "holds something that is not a number");
    return static_cast<double>(node);
}

// The numbers of a matrix node: an OpenCV matrix, a map with rows, cols and
// data (as ROS writes), a sequence, or a sequence of rows.
Values readMatrix(const cv::FileNode &node, const std::string &name, const std::string &field) {
    Values v;
    v.field = field;
    if (node.isMap()) {
        const cv::FileNode data = node["data"];
        if (data.empty()) fail(name, field, "is a map without \"data\"");
        if (!node["dt"].empty()) {
            const int rows = node["rows"].empty() ? -1 : static_cast<int>(node["rows"]);
            const int cols = node["cols"].empty() ? -1 : static_cast<int>(node["cols"]);
            if (rows >= 0 && cols >= 0 && data.isSeq() && static_cast<size_t>(rows) * cols != data.size())
                fail(name, field, "says " + std::to_string(rows) + "x" + std::to_string(cols) + " but holds " +
                                      std::to_string(data.size()) + " numbers");
            cv::Mat m;
            try {
                node >> m;
            } catch (const cv::Exception &e) {
                fail(name, field, std::string("is not a readable matrix (") + e.err + ")");
            }
            if (m.channels() != 1) fail(name, field, "has more than one channel");
            m.convertTo(m, CV_64F);
            v.rows = m.rows;
            v.cols = m.cols;
            for (int r = 0; r < m.rows; ++r)
                for (int c = 0; c < m.cols; ++c) v.numbers.push_back(m.at<double>(r, c));
            return v;
        }
        if (!data.isSeq()) fail(name, field, "\"data\" is not a sequence");
        for (const cv::FileNode &n : data) v.numbers.push_back(readNumber(n, name, field));
        v.rows = node["rows"].empty() ? 1 : static_cast<int>(node["rows"]);
        v.cols = node["cols"].empty() ? static_cast<int>(v.numbers.size()) : static_cast<int>(node["cols"]);
        if (static_cast<size_t>(v.rows) * static_cast<size_t>(v.cols) != v.numbers.size())
            fail(name, field, "says " + std::to_string(v.rows) + "x" + std::to_string(v.cols) + " but holds " +
                                  std::to_string(v.numbers.size()) + " numbers");
        return v;
    }
    if (node.isSeq()) {
        for (const cv::FileNode &n : node) {
            if (n.isSeq()) {
                int count = 0;
                for (const cv::FileNode &e : n) {
                    v.numbers.push_back(readNumber(e, name, field));
                    ++count;
                }
                if (v.rows > 0 && count != v.cols) fail(name, field, "has rows of different lengths");
                v.cols = count;
                ++v.rows;
            } else {
                if (v.rows > 1) fail(name, field, "mixes numbers and rows");
                v.numbers.push_back(readNumber(n, name, field));
                v.rows = 1;
                v.cols = static_cast<int>(v.numbers.size());
            }
        }
        return v;
    }
    fail(name, field, "is not a matrix or a list of numbers");
}

// The first of `names` present at the top level; empty field when none is.
template <size_t N>
Values findMatrix(const cv::FileStorage &fs, const char *const (&names)[N], const std::string &name) {
    for (const char *n : names) {
        const cv::FileNode node = fs[n];
        if (!node.empty()) return readMatrix(node, name, n);
    }
    return Values();
}

template <size_t N>
std::string nameList(const char *const (&names)[N]) {
    std::string text;
    for (size_t i = 0; i < N; ++i) text += (i ? (i + 1 == N ? " or " : ", ") : "") + std::string(names[i]);
    return text;
}

// image_width/image_height, or a two-number imageSize/image_size.
bool readCalibrationSize(const cv::FileStorage &fs, const std::string &name, double *w, double *h) {
    const cv::FileNode iw = fs["image_width"], ih = fs["image_height"];
    if (!iw.empty() || !ih.empty()) {
        if (iw.empty() || ih.empty()) fail(name, iw.empty() ? "image_width" : "image_height", "missing (the other is given)");
        *w = readNumber(iw, name, "image_width");
        *h = readNumber(ih, name, "image_height");
    } else {
        const char *field = !fs["imageSize"].empty() ? "imageSize" : !fs["image_size"].empty() ? "image_size" : nullptr;
        if (!field) return false;
        const Values v = readMatrix(fs[field], name, field);
        if (v.numbers.size() != 2) fail(name, field, "must hold two numbers (width, height)");
        *w = v.numbers[0];
        *h = v.numbers[1];
    }
    if (!(*w >= 1 && *h >= 1 && *w < 1e6 && *h < 1e6))
        fail(name, "image_width/image_height", "calibration size " + number(*w) + "x" + number(*h) + " is not a picture size");
    return true;
}

// True when the file says its model is OpenCV's fisheye model.
bool saysFisheye(const cv::FileStorage &fs) {
    const cv::FileNode flag = fs["fisheye_model"];
    if (!flag.empty() && (flag.isInt() || flag.isReal()) && static_cast<double>(flag) != 0) return true;
    for (const char *key : {"distortion_model", "model", "camera_model"}) {
        const cv::FileNode n = fs[key];
        if (!n.empty() && n.isString()) {
            const std::string s = n.string();
            if (s == "fisheye" || s == "equidistant" || s == "kannala_brandt" || s == "OPENCV_FISHEYE") return true;
        }
    }
    return false;
}

}  // namespace

CameraModel readOpenCV(const std::string &text, const std::string &name, int32_t width, int32_t height,
                       bool fisheye) {
    // OpenCV's YAML reader wants its "%YAML:1.0" header, which YAML written
    // by other tools (ROS camera_info files) leaves out.
    const size_t first = text.find_first_not_of(" \t\r\n");
    const bool bareYaml = first != std::string::npos && text[first] != '%' && text[first] != '<' && text[first] != '{';
    const std::string storage = bareYaml ? "%YAML:1.0\n---\n" + text : text;
    cv::FileStorage fs;
    try {
        fs.open(storage, cv::FileStorage::READ | cv::FileStorage::MEMORY);
    } catch (const cv::Exception &e) {
        fail(name, "", "not a readable OpenCV calibration (" + e.err + ")");
    }
    if (!fs.isOpened()) fail(name, "", "not a readable OpenCV calibration");

    const Values k = findMatrix(fs, kMatrixNames, name);
    if (k.field.empty()) fail(name, "camera_matrix", "missing (looked for " + nameList(kMatrixNames) + ")");
    if (k.numbers.size() != 9 || !((k.rows == 3 && k.cols == 3) || k.rows == 1 || k.cols == 1))
        fail(name, k.field, "is " + std::to_string(k.rows) + "x" + std::to_string(k.cols) + ", expected 3x3");
    const Values d = findMatrix(fs, kDistortionNames, name);
    if (d.field.empty()) fail(name, "distortion_coefficients", "missing (looked for " + nameList(kDistortionNames) + ")");
    if (d.rows != 1 && d.cols != 1) fail(name, d.field, "must be one row or one column, not " +
                                                            std::to_string(d.rows) + "x" + std::to_string(d.cols));

    CameraModel m;
    m.name = name;
    m.width = width;
    m.height = height;
    fisheye = fisheye || saysFisheye(fs);
    m.type = fisheye ? CameraModel::Type::Fisheye : CameraModel::Type::Pinhole;
    m.source = fisheye ? "OpenCV fisheye" : "OpenCV";
    const size_t n = d.numbers.size();
    if (fisheye) {
        if (n != 4) fail(name, d.field, "a fisheye calibration has 4 coefficients, this one " + std::to_string(n));
    } else if (n != 4 && n != 5 && n != 8 && n != 12 && n != 14) {
        fail(name, d.field, "has " + std::to_string(n) + " coefficients; OpenCV uses 4, 5, 8, 12 or 14");
    }
    for (size_t i = 0; i < n; ++i) {
        if (!isfinite(d.numbers[i])) fail(name, d.field, "coefficient " + std::to_string(i + 1) + " is not a finite number");
        m.d[i] = d.numbers[i];
    }
    const std::vector<double> &a = k.numbers;
    for (size_t i = 0; i < 9; ++i)
        if (!isfinite(a[i])) fail(name, k.field, "element " + std::to_string(i + 1) + " is not a finite number");
    if (a[3] != 0 || a[6] != 0 || a[7] != 0 || a[8] != 1)
        fail(name, k.field, "is not a camera matrix (its rows must be fx s cx / 0 fy cy / 0 0 1)");
    m.fx = a[0];
    m.fy = a[4];
    m.cx = a[2];
    m.cy = a[5];
    if (fisheye) {
        m.skew = a[1];
    } else if (a[1] != 0) {
        // OpenCV's projection and undistortion read fx, fy, cx and cy only.
        m.notes.push_back("camera matrix skew " + number(a[1]) + " ignored, as OpenCV ignores it");
    }

    double cw = width, ch = height;
    const bool sized = readCalibrationSize(fs, name, &cw, &ch);
    if (width == 0 && height == 0) {
        if (!sized) fail(name, "image_width/image_height", "missing; the frame size must be given");
        m.width = static_cast<int32_t>(cw);
        m.height = static_cast<int32_t>(ch);
        if (m.width != cw || m.height != ch) fail(name, "image_width/image_height", "not whole numbers");
    }
    if (sized) {
        if (!(m.cx >= 0 && m.cy >= 0 && m.cx <= cw && m.cy <= ch))
            fail(name, k.field, "optical centre (" + number(m.cx) + ", " + number(m.cy) + ") lies outside the " +
                                    number(cw) + "x" + number(ch) + " calibration image");
        scaleToFrame(&m, cw, ch);
    } else {
        m.notes.push_back("no image size in the calibration; taken to be the " + std::to_string(width) + "x" +
                          std::to_string(height) + " frame's");
    }
    validateModel(m, k.field);
    return m;
}

}  // namespace detail
}  // namespace parvex_calib
