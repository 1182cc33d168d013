#include "correct_controller.h"

#include <string.h>

#include <string>

#include "library_errors.h"

namespace parvex_gst {

namespace {

std::string sizeText(int32_t width, int32_t height) { return std::to_string(width) + "x" + std::to_string(height); }

Report refusalReport(const Refusal &r) {
    return {r.property, r.property + ": " + r.call + " refused it with " + parvex_tool::resultName(r.code) +
                            "; the element keeps the value that worked"};
}

bool sameCrop(bool setA, const int32_t *a, bool setB, const int32_t *b) {
    return setA == setB && (!setA || memcmp(a, b, 4 * sizeof(int32_t)) == 0);
}

// The engine takes any crop; one outside the input or empty leaves nothing
// sensible to draw, so the element refuses it.
bool cropFits(bool set, const int32_t *c, int32_t width, int32_t height) {
    return !set || (c[0] >= 0 && c[1] >= 0 && c[2] <= width && c[3] <= height && c[0] < c[2] && c[1] < c[3]);
}

Report cropReport(int32_t width, int32_t height) {
    return {"crop", "crop: the rectangle must lie inside the " + sizeText(width, height) + " input and not be empty"};
}

Report zoomWithSizeReport(double zoom) {
    return {"zoom", "zoom " + std::to_string(zoom) +
                        " cannot be combined with an output size other than the input size "
                        "(output-width/output-height/output-size); zoom stays as it was"};
}

}  // namespace

bool parseFill(const std::string &text, const char *format, bool fullRange, bool *fill, parvex_BorderColour *colour) {
    *fill = true;
    if (text == "black") {
        *colour = parvex_BorderFill_black(format, fullRange);
        return true;
    }
    if (text == "none") {
        *fill = false;
        return true;
    }
    const size_t digits = text.compare(0, 2, "0x") == 0 ? 2 : text.compare(0, 1, "#") == 0 ? 1 : 0;
    if (digits == 0 || text.size() != digits + 6) return false;
    uint32_t rgb = 0;
    for (size_t i = digits; i < text.size(); ++i) {
        const char c = text[i];
        const int v = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                             : -1;
        if (v < 0) return false;
        rgb = rgb << 4 | static_cast<uint32_t>(v);
    }
    *colour = parvex_BorderFill_fromRgb(format, static_cast<uint8_t>(rgb >> 16), static_cast<uint8_t>(rgb >> 8),
                                        static_cast<uint8_t>(rgb), fullRange);
    return true;
}

void Controller::setShape(const FrameShape &shape) {
    shape_ = shape;
    engine_.reset();
    rebuild_ = true;
}

void Controller::outputSize(const char *format, int32_t width, int32_t height, int32_t *outWidth, int32_t *outHeight,
                            std::vector<Report> *reports) {
    *outWidth = width;
    *outHeight = height;
    if (wanted_.recommended) {
        Lens lens;
        double cx, cy;
        std::string error, property;
        LensSource source = wanted_.lens;
        source.coefficientsOnly = wanted_.strength != 1.0 || wanted_.cropSet;
        if (!resolveLens(source, width, height, &lens, &cx, &cy, &error, &property)) {
            reports->push_back({property, property + ": " + error});
            return;
        }
        EngineSetup setup = setupFor(lens, cx, cy);
        setup.format = format;
        setup.width = width;
        setup.height = height;
        int32_t w = 0, h = 0;
        const Refusal r = recommendedOutputSize(setup, &w, &h);
        if (r) {
            reports->push_back(refusalReport(r));
        } else if (!outputMeshFits(w, h)) {
            reports->push_back({"output-size", "output-size: the library recommends " + sizeText(w, h) +
                                                   ", which this lens and centre cannot use; the output keeps the "
                                                   "input size (give output-width and output-height)"});
        } else {
            *outWidth = w;
            *outHeight = h;
        }
    } else if (wanted_.outWidth > 0 && wanted_.outHeight > 0) {
        *outWidth = wanted_.outWidth;
        *outHeight = wanted_.outHeight;
    }
}

EngineSetup Controller::setupFor(const Lens &lens, double cx, double cy) const {
    EngineSetup s;
    s.format = shape_.format;
    s.width = shape_.width;
    s.height = shape_.height;
    s.outWidth = shape_.outWidth;
    s.outHeight = shape_.outHeight;
    s.lens = lens;
    s.centerX = wanted_.centerX >= 0 || wanted_.centerY >= 0 ? wanted_.centerX : cx;
    s.centerY = wanted_.centerX >= 0 || wanted_.centerY >= 0 ? wanted_.centerY : cy;
    s.strength = wanted_.strength;
    s.zoom = wanted_.zoom;
    s.cropSet = wanted_.cropSet;
    memcpy(s.crop, wanted_.crop, sizeof s.crop);
    s.distort = wanted_.distort;
    parseFill(wanted_.fill, s.format, shape_.fullRange, &s.fill, &s.fillColour);
    return s;
}

// Puts `property` back to the value the engine last took; false when that
// changes nothing (the refused value is the one that worked before).
bool Controller::revert(const std::string &property) {
    Settings &w = wanted_;
    const Settings &a = accepted_;
    const Settings before = w;
    if (property == "k1..k4")
        memcpy(w.lens.coef, a.lens.coef, sizeof w.lens.coef);
    else if (property == "table")
        w.lens.table = a.lens.table;
    else if (property == "calibration")
        w.lens.calibration = a.lens.calibration;
    else if (property == "center-x/center-y")
        w.centerX = a.centerX, w.centerY = a.centerY;
    else if (property == "strength")
        w.strength = a.strength;
    else if (property == "zoom")
        w.zoom = a.zoom == w.zoom ? 1.0 : a.zoom;
    else if (property == "crop")
        w.cropSet = a.cropSet, memcpy(w.crop, a.crop, sizeof w.crop);
    else if (property == "mode" || property == "mode/table")
        w.distort = a.distort;
    else if (property == "fill")
        w.fill = a.fill == w.fill ? "none" : a.fill;
    else
        return false;
    return memcmp(before.lens.coef, w.lens.coef, sizeof w.lens.coef) != 0 || before.lens.table != w.lens.table ||
           before.lens.calibration != w.lens.calibration || before.centerX != w.centerX ||
           before.centerY != w.centerY || before.strength != w.strength || before.zoom != w.zoom ||
           !sameCrop(before.cropSet, before.crop, w.cropSet, w.crop) || before.distort != w.distort ||
           before.fill != w.fill;
}

bool Controller::build(std::vector<Report> *reports) {
    engine_.reset();
    const int32_t width = shape_.width, height = shape_.height;
    const bool resized = shape_.outWidth != width || shape_.outHeight != height;
    for (int attempt = 0; attempt < 16; ++attempt) {
        Lens lens;
        double cx, cy;
        std::string error, property;
        wanted_.lens.coefficientsOnly = wanted_.strength != 1.0 || wanted_.cropSet;
        if (!resolveLens(wanted_.lens, width, height, &lens, &cx, &cy, &error, &property)) {
            reports->push_back({property, property + ": " + error});
            if (!revert(property)) return false;
            continue;
        }
        if (wanted_.zoom != 1.0 && resized) {
            reports->push_back(zoomWithSizeReport(wanted_.zoom));
            wanted_.zoom = 1.0;
            continue;
        }
        if (!cropFits(wanted_.cropSet, wanted_.crop, width, height)) {
            reports->push_back(cropReport(width, height));
            if (!revert("crop")) wanted_.cropSet = false;
            continue;
        }
        bool fill = false;
        parvex_BorderColour colour;
        if (!parseFill(wanted_.fill, shape_.format, shape_.fullRange, &fill, &colour)) {
            reports->push_back({"fill", "fill: \"" + wanted_.fill + "\" is not black, none, 0xRRGGBB or #RRGGBB"});
            if (!revert("fill")) return false;
            continue;
        }
        if (!outputMeshFits(shape_.outWidth, shape_.outHeight)) {
            reports->push_back({"output-width/output-height",
                                "output-width/output-height: " + sizeText(shape_.outWidth, shape_.outHeight) +
                                    " is larger than the engine's mesh can lay out"});
            return false;
        }
        Refusal refusal;
        engine_ = Engine::create(setupFor(lens, cx, cy), &refusal);
        if (engine_) {
            accepted_ = wanted_;
            rebuild_ = false;
            return true;
        }
        reports->push_back(refusalReport(refusal));
        if (!revert(refusal.property)) return false;
    }
    return false;
}

void Controller::applyRunTime(std::vector<Report> *reports) {
    const EngineSetup &now = engine_->setup();
    const bool cropChanged = !sameCrop(wanted_.cropSet, wanted_.crop, now.cropSet, now.crop);
    // A crop rebuilds the mesh from the coefficients, so table lenses take
    // strength and crop through a new engine.
    if (now.lens.mode == 1 && (cropChanged || wanted_.strength != now.strength)) {
        build(reports);
        return;
    }
    if (cropChanged) {
        if (!cropFits(wanted_.cropSet, wanted_.crop, now.width, now.height)) {
            reports->push_back(cropReport(now.width, now.height));
            wanted_.cropSet = now.cropSet;
            memcpy(wanted_.crop, now.crop, sizeof wanted_.crop);
        } else if (const Refusal r = engine_->setCrop(wanted_.cropSet, wanted_.crop)) {
            reports->push_back(refusalReport(r));
            revert("crop");
        }
    }
    if (wanted_.strength != now.strength) {
        if (const Refusal r = engine_->setStrength(wanted_.strength)) {
            reports->push_back(refusalReport(r));
            wanted_.strength = now.strength;
        }
    }
    if (wanted_.zoom != now.zoom) {
        if (wanted_.zoom != 1.0 && (now.outWidth != now.width || now.outHeight != now.height)) {
            reports->push_back(zoomWithSizeReport(wanted_.zoom));
            wanted_.zoom = now.zoom;
        } else if (const Refusal r = engine_->setZoom(wanted_.zoom)) {
            reports->push_back(refusalReport(r));
            wanted_.zoom = now.zoom;
        }
    }
    accepted_.strength = now.strength;
    accepted_.zoom = now.zoom;
    accepted_.cropSet = now.cropSet;
    memcpy(accepted_.crop, now.crop, sizeof accepted_.crop);
}

bool Controller::prepare(std::vector<Report> *reports) {
    if (!shape_.format) return false;
    if (!engine_ || rebuild_) return build(reports);
    applyRunTime(reports);
    return engine_ != nullptr;
}

bool Controller::run(const parvex_ImageDataEx &output, const parvex_ImageDataEx &input, std::vector<Report> *reports) {
    if (!engine_) return false;
    Refusal r = engine_->run(output, input);
    if (!r) return true;
    reports->push_back(refusalReport(r));
    // A frame refused because of a setting: go back to the one that worked.
    if (r.property == "zoom" && engine_->setup().zoom != 1.0) {
        wanted_.zoom = accepted_.zoom = 1.0;
        if (engine_->setZoom(1.0)) return false;
    } else if ((r.property == "mode" || r.property == "mode/table") && wanted_.distort) {
        wanted_.distort = accepted_.distort = false;
        if (!build(reports)) return false;
    } else {
        return false;
    }
    r = engine_->run(output, input);
    if (r) reports->push_back(refusalReport(r));
    return !r;
}

}  // namespace parvex_gst
