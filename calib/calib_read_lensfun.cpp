// Lensfun database entries: the <distortion> calibrations of one <lens>
// (poly3, poly5 or ptlens), picked or interpolated for a focal length.
//
// Lensfun measures radii in units of half the shorter side of the
// calibration frame (the lens's aspect-ratio, 3:2 when absent). A frame of
// another aspect ratio keeps the sensor's diagonal, which is what the crop
// factor describes; a camera of another crop factor scales the unit by the
// ratio of the two crop factors.
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cctype>
#include <map>

#include <pugixml.hpp>

#include "calib/calib_internal.h"

namespace parvex_calib {
namespace detail {

namespace {

using LensfunModel = CameraModel::LensfunModel;

struct Entry {
    double focal = 0;
    LensfunModel model = LensfunModel::Poly3;
    double terms[3] = {0, 0, 0};
};

std::string folded(const std::string &s) {
    std::string out;
    bool space = false;
    for (char c : s) {
        if (isspace(static_cast<unsigned char>(c))) {
            space = !out.empty();
            continue;
        }
        if (space) out += ' ';
        space = false;
        out += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

bool parseNumber(const char *text, double *value) {
    while (isspace(static_cast<unsigned char>(*text))) ++text;
    if (!*text) return false;
    char *end = nullptr;
    const double v = strtod(text, &end);
    while (isspace(static_cast<unsigned char>(*end))) ++end;
    if (*end || !isfinite(v)) return false;
    *value = v;
    return true;
}

std::string lensName(const pugi::xml_node &lens) {
    const std::string maker = lens.child_value("maker"), model = lens.child_value("model");
    return maker.empty() ? model : maker + " " + model;
}

bool matches(const pugi::xml_node &lens, const std::string &wanted) {
    for (pugi::xml_node m : lens.children("model"))
        if (folded(m.child_value()) == wanted) return true;
    for (pugi::xml_node maker : lens.children("maker"))
        for (pugi::xml_node m : lens.children("model"))
            if (folded(std::string(maker.child_value()) + " " + m.child_value()) == wanted) return true;
    return false;
}

std::vector<Entry> distortionEntries(const pugi::xml_node &lens, const std::string &name) {
    std::vector<Entry> entries;
    for (pugi::xml_node cal : lens.children("calibration")) {
        for (pugi::xml_node d : cal.children("distortion")) {
            const std::string where = "distortion focal=\"" + std::string(d.attribute("focal").value()) + "\" of " + lensName(lens);
            Entry e;
            if (!parseNumber(d.attribute("focal").value(), &e.focal) || !(e.focal > 0))
                fail(name, where, "focal is not a positive number");
            const std::string model = d.attribute("model").value();
            const char *const *keys;
            static const char *const kPoly[] = {"k1", "k2", nullptr};
            static const char *const kPTLens[] = {"a", "b", "c"};
            if (model == "poly3") { e.model = LensfunModel::Poly3; keys = kPoly; }
            else if (model == "poly5") { e.model = LensfunModel::Poly5; keys = kPoly; }
            else if (model == "ptlens") { e.model = LensfunModel::PTLens; keys = kPTLens; }
            else if (model == "none") continue;
            else fail(name, where, "model \"" + model + "\" is not one of poly3, poly5, ptlens");
            for (int i = 0; i < 3 && keys[i]; ++i) {
                const pugi::xml_attribute a = d.attribute(keys[i]);
                if (a && !parseNumber(a.value(), &e.terms[i]))
                    fail(name, where, std::string(keys[i]) + " \"" + a.value() + "\" is not a finite number");
            }
            entries.push_back(e);
        }
    }
    return entries;
}

// Lensfun's interpolation between calibrations: a cubic Hermite spline
// through the two neighbours of the focal length, with tangents from the
// next ones out (one-sided where there is none).
double hermite(const double *y1, double y2, double y3, const double *y4, double t) {
    const double tg2 = y1 ? (y3 - *y1) * 0.5 : y3 - y2;
    const double tg3 = y4 ? (*y4 - y2) * 0.5 : y3 - y2;
    const double t2 = t * t, t3 = t2 * t;
    return (2 * t3 - 3 * t2 + 1) * y2 + (t3 - 2 * t2 + t) * tg2 + (-2 * t3 + 3 * t2) * y3 + (t3 - t2) * tg3;
}

double aspectRatio(const pugi::xml_node &lens, const std::string &name) {
    pugi::xml_node node = lens.child("aspect-ratio");
    if (!node) node = lens.child("calibration").child("aspect-ratio");
    if (!node) return 1.5;
    const std::string text = node.child_value();
    double a = 0, b = 1;
    const size_t colon = text.find(':');
    const bool ok = colon == std::string::npos ? parseNumber(text.c_str(), &a)
                                               : parseNumber(text.substr(0, colon).c_str(), &a) &&
                                                     parseNumber(text.substr(colon + 1).c_str(), &b);
    if (!ok || !(a > 0) || !(b > 0)) fail(name, "aspect-ratio of " + lensName(lens), "\"" + text + "\" is not a ratio");
    const double r = a / b;
    return r < 1 ? 1 / r : r;
}

}  // namespace

CameraModel readLensfun(const std::string &text, const std::string &name, int32_t width, int32_t height,
                        const Options &options) {
    if (width == 0 && height == 0) fail(name, "", "a Lensfun calibration has no image size; the frame size must be given");
    pugi::xml_document doc;
    const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
    if (!parsed) fail(name, "", std::string("not valid XML (") + parsed.description() + " at byte " +
                                    std::to_string(parsed.offset) + ")");
    const pugi::xml_node root = doc.child("lensdatabase");
    if (!root) fail(name, "", "not a Lensfun database (no <lensdatabase>)");

    std::vector<pugi::xml_node> lenses;
    for (pugi::xml_node lens : root.children("lens"))
        if (!distortionEntries(lens, name).empty()) lenses.push_back(lens);
    if (lenses.empty()) fail(name, "lens", "no <lens> with a <distortion> calibration");
    std::string available;
    for (size_t i = 0; i < lenses.size() && i < 8; ++i) available += (i ? "; " : "") + lensName(lenses[i]);
    if (lenses.size() > 8) available += "; ...";

    pugi::xml_node lens;
    if (options.lens.empty()) {
        if (lenses.size() > 1) fail(name, "lens", "the file describes several lenses; pick one with --lens NAME (" + available + ")");
        lens = lenses[0];
    } else {
        const std::string wanted = folded(options.lens);
        for (const pugi::xml_node &l : lenses)
            if (matches(l, wanted)) {
                lens = l;
                break;
            }
        if (!lens) fail(name, "lens", "no lens \"" + options.lens + "\" with a distortion calibration (" + available + ")");
    }

    std::vector<Entry> entries = distortionEntries(lens, name);
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.focal < b.focal; });
    std::string focals;
    for (size_t i = 0; i < entries.size(); ++i)
        if (i == 0 || entries[i].focal != entries[i - 1].focal) focals += (focals.empty() ? "" : ", ") + number(entries[i].focal);

    double focal = options.focal_mm;
    if (!(focal > 0)) {
        if (entries.front().focal != entries.back().focal)
            fail(name, "focal", lensName(lens) + " is calibrated at several focal lengths (" + focals +
                                    " mm); give one with --focal MM");
        focal = entries.front().focal;
    }
    // The model of the nearest calibration decides; entries of other models
    // do not take part.
    const Entry *nearest = &entries[0];
    for (const Entry &e : entries)
        if (fabs(e.focal - focal) < fabs(nearest->focal - focal)) nearest = &e;
    std::vector<Entry> same;
    for (const Entry &e : entries)
        if (e.model == nearest->model && (same.empty() || same.back().focal != e.focal)) same.push_back(e);

    Entry chosen = *nearest;
    chosen.focal = focal;
    std::string how;
    size_t upper = 0;
    while (upper < same.size() && same[upper].focal < focal) ++upper;
    if (upper < same.size() && same[upper].focal == focal) {
        chosen = same[upper];
    } else if (upper == 0 || upper == same.size()) {
        chosen = upper == 0 ? same.front() : same.back();
        how = " (outside the calibrated " + focals + " mm: the nearest, " + number(chosen.focal) + " mm, is used)";
    } else {
        const size_t lower = upper - 1;
        const double t = (focal - same[lower].focal) / (same[upper].focal - same[lower].focal);
        for (int i = 0; i < 3; ++i) {
            const double *y1 = lower > 0 ? &same[lower - 1].terms[i] : nullptr;
            const double *y4 = upper + 1 < same.size() ? &same[upper + 1].terms[i] : nullptr;
            chosen.terms[i] = hermite(y1, same[lower].terms[i], same[upper].terms[i], y4, t);
        }
        how = " (interpolated between " + number(same[lower].focal) + " and " + number(same[upper].focal) + " mm)";
    }

    CameraModel m;
    m.type = CameraModel::Type::Lensfun;
    m.source = "Lensfun";
    m.name = name;
    m.width = width;
    m.height = height;
    m.lensfun = chosen.model;
    for (int i = 0; i < 3; ++i) m.d[i] = chosen.terms[i];

    const double aspect = aspectRatio(lens, name);
    double cropRatio = 1.0;
    if (options.crop_factor > 0) {
        double calibCrop = 0;
        if (!parseNumber(lens.child_value("cropfactor"), &calibCrop) || !(calibCrop > 0))
            fail(name, "cropfactor of " + lensName(lens), "missing or not a positive number (needed with a camera crop factor)");
        cropRatio = options.crop_factor / calibCrop;
    }
    const double unit = hypot(width, height) * 0.5 * cropRatio / sqrt(1 + aspect * aspect);
    m.fx = m.fy = unit;
    m.cx = (width - 1) * 0.5;
    m.cy = (height - 1) * 0.5;
    static const char *const kModelNames[] = {"poly3", "poly5", "ptlens"};
    m.notes.push_back("Lensfun lens " + lensName(lens) + " at " + number(focal) + " mm" + how + ", " +
                      kModelNames[static_cast<int>(chosen.model)] + "; radius 1 = " + number(unit, 5) +
                      " px (half the shorter side of a " + number(aspect, 4) + ":1 calibration frame" +
                      (cropRatio != 1.0 ? ", scaled by the crop factor ratio " + number(cropRatio, 5) : " with this frame's diagonal") + ")");
    validateModel(m, "lens");
    return m;
}

}  // namespace detail
}  // namespace parvex_calib
