// Android camera metadata as JSON: android.lens.intrinsicCalibration
// [fx, fy, cx, cy, s] and android.lens.distortion [k1, k2, k3, p1, p2] in
// pixels of the pre-correction active array, whose size comes from
// android.sensor.info.preCorrectionActiveArraySize.
//
// The distortion maps an undistorted point, normalised by the focal lengths
// as in OpenCV, to the point to sample; it is OpenCV's five-coefficient
// model with the two tangential terms moved to the end.
#include <math.h>

#include <nlohmann/json.hpp>

#include "calib/calib_internal.h"

namespace parvex_calib {
namespace detail {

namespace {

using nlohmann::json;

const char kIntrinsics[] = "android.lens.intrinsicCalibration";
const char kDistortion[] = "android.lens.distortion";
const char kArraySize[] = "android.sensor.info.preCorrectionActiveArraySize";

// The numbers of `field`: a plain array, or an object holding it under
// "value" or "data" (as some metadata dumps nest them).
std::vector<double> numbers(const json &root, const char *field, const std::string &name) {
    if (!root.contains(field)) fail(name, field, "missing");
    const json *node = &root.at(field);
    if (node->is_object()) {
        if (node->contains("value")) node = &node->at("value");
        else if (node->contains("data")) node = &node->at("data");
    }
    if (!node->is_array()) fail(name, field, "is not an array of numbers");
    std::vector<double> values;
    for (const json &v : *node) {
        if (!v.is_number()) fail(name, field, "element " + std::to_string(values.size() + 1) + " is not a number");
        values.push_back(v.get<double>());
        if (!isfinite(values.back())) fail(name, field, "element " + std::to_string(values.size()) + " is not finite");
    }
    return values;
}

// Width and height of the pre-correction active array: an array
// [left, top, width, height] (as the camera metadata stores it) or an
// object with left/top/right/bottom or width/height.
void arraySize(const json &root, const std::string &name, double *w, double *h) {
    if (!root.contains(kArraySize)) fail(name, kArraySize, "missing (the intrinsics are in its pixels)");
    const json &node = root.at(kArraySize);
    auto get = [&](const char *key) {
        if (!node.contains(key) || !node.at(key).is_number()) fail(name, kArraySize, std::string("has no number \"") + key + "\"");
        return node.at(key).get<double>();
    };
    if (node.is_object()) {
        if (node.contains("width")) {
            *w = get("width");
            *h = get("height");
        } else {
            *w = get("right") - get("left");
            *h = get("bottom") - get("top");
        }
    } else {
        const std::vector<double> v = numbers(root, kArraySize, name);
        if (v.size() != 4) fail(name, kArraySize, "must hold four numbers (left, top, width, height)");
        *w = v[2];
        *h = v[3];
    }
    if (!(*w >= 1 && *h >= 1 && *w < 1e6 && *h < 1e6))
        fail(name, kArraySize, "size " + number(*w) + "x" + number(*h) + " is not a picture size");
}

}  // namespace

CameraModel readAndroid(const std::string &text, const std::string &name, int32_t width, int32_t height) {
    json root;
    try {
        root = json::parse(text);
    } catch (const json::parse_error &e) {
        fail(name, "", std::string("not valid JSON (") + e.what() + ")");
    }
    if (!root.is_object()) fail(name, "", "not a JSON object of camera metadata");

    const std::vector<double> k = numbers(root, kIntrinsics, name);
    if (k.size() != 5) fail(name, kIntrinsics, "must hold five numbers [fx, fy, cx, cy, s], not " + std::to_string(k.size()));
    if (!root.contains(kDistortion) && root.contains("android.lens.radialDistortion"))
        fail(name, kDistortion, "missing (android.lens.radialDistortion, its deprecated predecessor, uses another "
                                "model and is not read)");
    const std::vector<double> d = numbers(root, kDistortion, name);
    if (d.size() != 5) fail(name, kDistortion, "must hold five numbers [k1, k2, k3, p1, p2], not " + std::to_string(d.size()));
    double aw = 0, ah = 0;
    arraySize(root, name, &aw, &ah);

    CameraModel m;
    m.type = CameraModel::Type::Pinhole;
    m.source = "Android";
    m.name = name;
    m.width = width;
    m.height = height;
    m.fx = k[0];
    m.fy = k[1];
    m.cx = k[2];
    m.cy = k[3];
    m.skew = k[4];
    // OpenCV order: k1 k2 p1 p2 k3.
    m.d[0] = d[0];
    m.d[1] = d[1];
    m.d[2] = d[3];
    m.d[3] = d[4];
    m.d[4] = d[2];
    if (!(m.cx >= 0 && m.cy >= 0 && m.cx <= aw && m.cy <= ah))
        fail(name, kIntrinsics, "optical centre (" + number(m.cx) + ", " + number(m.cy) + ") lies outside the " +
                                    number(aw) + "x" + number(ah) + " active array");
    if (width == 0 && height == 0) {
        m.width = static_cast<int32_t>(aw);
        m.height = static_cast<int32_t>(ah);
    }
    scaleToFrame(&m, aw, ah);
    validateModel(m, kIntrinsics);
    return m;
}

}  // namespace detail
}  // namespace parvex_calib
