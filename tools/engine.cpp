#include "engine.h"

#include <string.h>

#include <string>

#include "library_errors.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

parvex_DistortionCorrection_InitParam initParam(Layout layout, int width, int height, const Lens &lens) {
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = layoutName(layout);
    param.width = width;
    param.height = height;
    if (lens.table) {
        param.mode = 1;
        param.num = static_cast<int32_t>(lens.outputRadii.size());
        param.xs = lens.outputRadii.data();
        param.ys = lens.sourceRadii.data();
    } else {
        param.mode = 0;
        for (int i = 0; i < 4; ++i) param.coef[i] = lens.coef[i];
    }
    return param;
}

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

}  // namespace

int32_t engineBufferSize(Layout layout, int width, int height) {
    const parvex_DistortionCorrection_InitParam param = initParam(layout, width, height, Lens());
    return parvex_DistortionCorrection_getBufferSize(&param);
}

Engine::Engine(Layout layout, int width, int height, const Lens &lens)
    : layout_(layout), width_(width), height_(height), outWidth_(width), outHeight_(height), tableLens_(lens.table) {
    const parvex_DistortionCorrection_InitParam param = initParam(layout, width, height, lens);
    std::string hint;
    int32_t size = 8;
    if (width < kMinWidth || width > kMaxWidth || height < kMinHeight || height > kMaxHeight) {
        // initialize refuses the size before it looks at the buffer, so a
        // token buffer lets it name the fault without a large allocation.
        hint = "the picture is " + sizeText(width, height) + "; the engine takes widths " +
               std::to_string(kMinWidth) + ".." + std::to_string(kMaxWidth) + " and heights " +
               std::to_string(kMinHeight) + ".." + std::to_string(kMaxHeight);
    } else {
        size = parvex_DistortionCorrection_getBufferSize(&param);
        if (size <= 0) size = 8;
    }
    buffer_.reset(new uint64_t[(static_cast<size_t>(size) + 7) / 8]);
    const uint32_t code = parvex_DistortionCorrection_initialize(&handle_, buffer_.get(), size, &param);
    checkResult(code, "initialize", hint);
    initialized_ = true;
}

Engine::~Engine() {
    if (initialized_) parvex_DistortionCorrection_finalize(&handle_);
}

void Engine::setOutputSize(int width, int height) {
    checkResult(parvex_DistortionCorrection_setOutputImageSize(&handle_, width, height), "setOutputImageSize",
                "output size " + sizeText(width, height));
    outWidth_ = width;
    outHeight_ = height;
}

void Engine::setCenter(double x, double y) {
    checkResult(parvex_DistortionCorrection_setInputCenter(&handle_, x, y), "setInputCenter");
}

void Engine::recommendedOutputSize(int *width, int *height) {
    int32_t w = 0, h = 0;
    checkResult(parvex_DistortionCorrection_getRecommendedOutputSize(&handle_, &w, &h),
                "getRecommendedOutputSize");
    *width = w;
    *height = h;
}

void Engine::setStrength(double strength) {
    checkResult(parvex_DistortionCorrection_setCorrectionStrength(&handle_, strength), "setCorrectionStrength");
}

void Engine::start() { checkResult(parvex_DistortionCorrection_start(&handle_), "start"); }

void Engine::setZoom(double zoom) {
    checkResult(parvex_DistortionCorrection_setZoomRatio(&handle_, zoom), "setZoomRatio");
}

void Engine::setCrop(int left, int top, int right, int bottom) {
    checkResult(parvex_DistortionCorrection_setCropRect(&handle_, left, top, right, bottom), "setCropRect");
}

void Engine::process(Frame *output, Frame *input) {
    const parvex_ImageData out = output->imageData(), in = input->imageData();
    checkFrameCall(parvex_DistortionCorrection_process(&handle_, &out, &in), "process");
}

void Engine::distort(Frame *output, Frame *input) {
    const parvex_ImageData out = output->imageData(), in = input->imageData();
    checkFrameCall(parvex_DistortionCorrection_distort(&handle_, &out, &in), "distort");
}

void Engine::checkFrameCall(uint32_t code, const char *call) const {
    std::string hint;
    if (code == PARVEX_ERROR_IMAGE_FORMAT && layout_ == Layout::BGR888)
        hint = "the engine scales no BGR888 pictures, so BGR888 works only at zoom 1; use RGB888";
    if (code == PARVEX_ERROR_PARAM && tableLens_ && std::string(call) == "distort") hint = "distort needs a lens given by coefficients, not by a table";
    checkResult(code, call, hint);
}

}  // namespace parvex_tool
