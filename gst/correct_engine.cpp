#include "correct_engine.h"

#include <stdio.h>
#include <string.h>

namespace parvex_gst {

namespace {

parvex_DistortionCorrection_InitParam initParam(const EngineSetup &s) {
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = s.format;
    param.width = s.width;
    param.height = s.height;
    param.mode = s.lens.mode;
    if (s.lens.mode == 1) {
        param.num = static_cast<int32_t>(s.lens.xs.size());
        param.xs = s.lens.xs.data();
        param.ys = s.lens.ys.data();
    } else {
        for (int i = 0; i < 4; ++i) param.coef[i] = s.lens.coef[i];
    }
    return param;
}

Refusal refusal(uint32_t code, const char *call, const std::string &property) {
    Refusal r;
    r.code = code;
    if (code != PARVEX_OK) {
        r.call = call;
        r.property = property;
    }
    return r;
}

bool centreGiven(const EngineSetup &s) { return s.centerX >= 0 || s.centerY >= 0; }

// An initialized (not started) engine over its own buffer, finalized when it
// goes out of scope.
struct Initialized {
    std::unique_ptr<uint64_t[]> buffer;
    parvex_DistortionCorrection handle{};
    bool ok = false;

    Refusal initialize(const EngineSetup &s) {
        const parvex_DistortionCorrection_InitParam param = initParam(s);
        int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
        if (size < 8) size = 8;
        buffer.reset(new uint64_t[(static_cast<size_t>(size) + 7) / 8]);
        const uint32_t code = parvex_DistortionCorrection_initialize(&handle, buffer.get(), size, &param);
        ok = code == PARVEX_OK;
        return refusal(code, "initialize", s.lens.property);
    }
    void finalize() {
        if (ok) parvex_DistortionCorrection_finalize(&handle);
        ok = false;
    }
    ~Initialized() { finalize(); }
};

}  // namespace

bool outputMeshFits(int32_t width, int32_t height) {
    if (width < 1 || height < 1) return false;
    // The engine's lattice: cells of max(side) / 60 pixels (even, 8 .. 64),
    // one vertex more than cells on each axis, at most 16384 vertices.
    int64_t cell = (width > height ? width : height) / 60;
    cell &= ~int64_t(1);
    if (cell < 9) cell = 8;
    if (cell > 63) cell = 64;
    const int64_t nx = (width + cell - 1) / cell + 1, ny = (height + cell - 1) / cell + 1;
    return nx * ny <= 16384;
}

std::unique_ptr<Engine> Engine::create(const EngineSetup &setup, Refusal *refusal) {
    std::unique_ptr<Engine> engine(new Engine(setup));
    *refusal = engine->configure();
    if (*refusal) engine.reset();
    return engine;
}

// Centre, output size and strength before start; zoom (always, so that a
// table of 256 points does not leave its appended point in the zoom) and
// crop after it.
Refusal Engine::configure() {
    const EngineSetup &s = setup_;
    Initialized init;
    Refusal r = init.initialize(s);
    if (r) return r;
    if (centreGiven(s)) {
        r = refusal(parvex_DistortionCorrection_setInputCenter(&init.handle, s.centerX, s.centerY), "setInputCenter",
                    "center-x/center-y");
        if (r) return r;
    }
    if (s.outWidth != s.width || s.outHeight != s.height) {
        r = refusal(parvex_DistortionCorrection_setOutputImageSize(&init.handle, s.outWidth, s.outHeight),
                    "setOutputImageSize", "output-width/output-height");
        if (r) return r;
    }
    r = refusal(parvex_DistortionCorrection_setCorrectionStrength(&init.handle, s.strength), "setCorrectionStrength",
                "strength");
    if (r) return r;
    r = refusal(parvex_DistortionCorrection_start(&init.handle), "start", s.lens.property);
    if (r) return r;
    r = refusal(parvex_DistortionCorrection_setZoomRatio(&init.handle, s.zoom), "setZoomRatio", "zoom");
    if (r) return r;
    if (s.cropSet) {
        r = refusal(parvex_DistortionCorrection_setCropRect(&init.handle, s.crop[0], s.crop[1], s.crop[2], s.crop[3]),
                    "setCropRect", "crop");
        if (r) return r;
    }
    buffer_ = std::move(init.buffer);
    handle_ = init.handle;
    initialized_ = true;
    init.ok = false;
    return probeBorder(s.distort ? "mode" : "zoom");
}

Refusal Engine::probeBorder(const std::string &property) {
    if (!setup_.fill) return Refusal();
    const EngineSetup &s = setup_;
    const size_t size = parvex_BorderFill_probeSize(s.format, s.width, s.height, s.outWidth, s.outHeight);
    if (size == 0) return refusal(PARVEX_ERROR_PARAM, "parvex_BorderFill_probeSize", "fill");
    std::unique_ptr<uint64_t[]> scratch(new uint64_t[(size + 7) / 8]);
    int32_t count = 0;
    const int32_t direction = s.distort ? PARVEX_BORDER_FILL_DISTORT : PARVEX_BORDER_FILL_PROCESS;
    const uint32_t code = parvex_BorderFill_probe(&handle_, direction, s.format, s.width, s.height, s.outWidth,
                                                  s.outHeight, scratch.get(), size, &count);
    if (code != PARVEX_OK) return refusal(code, s.distort ? "distort" : "process", property);
    spans_.resize(static_cast<size_t>(count));
    return refusal(parvex_BorderFill_init(&border_, scratch.get(), spans_.data(), count), "parvex_BorderFill_init",
                   "fill");
}

Engine::~Engine() {
    if (initialized_) parvex_DistortionCorrection_finalize(&handle_);
}

Refusal Engine::setZoom(double zoom) {
    Refusal r = refusal(parvex_DistortionCorrection_setZoomRatio(&handle_, zoom), "setZoomRatio", "zoom");
    if (r) return r;
    const double before = setup_.zoom;
    setup_.zoom = zoom;
    r = probeBorder("zoom");
    if (r) {
        setup_.zoom = before;
        parvex_DistortionCorrection_setZoomRatio(&handle_, before);
        probeBorder("zoom");
    }
    return r;
}

Refusal Engine::applyCrop(bool set, const int32_t crop[4]) {
    const int32_t whole[4] = {0, 0, setup_.width, setup_.height};
    const int32_t *c = set ? crop : whole;
    return refusal(parvex_DistortionCorrection_setCropRect(&handle_, c[0], c[1], c[2], c[3]), "setCropRect", "crop");
}

Refusal Engine::setCrop(bool set, const int32_t crop[4]) {
    const Refusal r = applyCrop(set, crop);
    if (r) {
        applyCrop(setup_.cropSet, setup_.crop);  // the mesh of the crop that worked
        return r;
    }
    setup_.cropSet = set;
    if (set) memcpy(setup_.crop, crop, sizeof setup_.crop);
    return probeBorder("crop");
}

// The strength reaches the mesh only when it is rebuilt, which setCropRect
// does with the crop in force.
Refusal Engine::setStrength(double strength) {
    Refusal r = refusal(parvex_DistortionCorrection_setCorrectionStrength(&handle_, strength), "setCorrectionStrength",
                        "strength");
    if (r) return r;
    r = applyCrop(setup_.cropSet, setup_.crop);
    if (r) {
        parvex_DistortionCorrection_setCorrectionStrength(&handle_, setup_.strength);
        applyCrop(setup_.cropSet, setup_.crop);
        r.property = "strength";
        return r;
    }
    setup_.strength = strength;
    return probeBorder("strength");
}

Refusal Engine::run(const parvex_ImageDataEx &output, const parvex_ImageDataEx &input) {
    Refusal r;
    if (setup_.distort) {
        r = refusal(parvex_DistortionCorrection_distortEx(&handle_, &output, &input), "distortEx",
                    setup_.lens.mode == 1 ? "mode/table" : "mode");
    } else {
        const bool bgr = strcmp(setup_.format, "BGR888") == 0;
        r = refusal(parvex_DistortionCorrection_processEx(&handle_, &output, &input), "processEx", bgr ? "zoom" : "");
    }
    if (r || !setup_.fill) return r;
    return refusal(parvex_BorderFill_applyEx(&border_, &output, setup_.fillColour), "parvex_BorderFill_applyEx",
                   "fill");
}

Refusal recommendedOutputSize(const EngineSetup &setup, int32_t *width, int32_t *height) {
    Initialized init;
    Refusal r = init.initialize(setup);
    if (r) return r;
    if (centreGiven(setup)) {
        r = refusal(parvex_DistortionCorrection_setInputCenter(&init.handle, setup.centerX, setup.centerY),
                    "setInputCenter", "center-x/center-y");
        if (r) return r;
    }
    int32_t w = 0, h = 0;
    r = refusal(parvex_DistortionCorrection_getRecommendedOutputSize(&init.handle, &w, &h), "getRecommendedOutputSize",
                "output-size");
    if (r) return r;
    *width = w;
    *height = h;
    return r;
}

}  // namespace parvex_gst
