// Geometry settings: output size, centres, zoom, crop, strength and the
// recommended output size. The handle and the values set are tested before
// the state, so a bad value in the wrong state reports PARVEX_ERROR_PARAM;
// getCropRect and getCorrectionStrength test their output pointers only after
// the state.
#include <math.h>

#include "engine/pvx_engine_internal.h"
#include "runtime/pvx_convert.h"
#include "runtime/pvx_raw_double.h"

namespace {

const uint32_t kStateMask = PVX_ENGINE_INITIALIZED | PVX_ENGINE_STARTED;

bool isInitializedNotStarted(const parvex_DistortionCorrection *h) {
    return (pvx_Engine_state(h) & kStateMask) == PVX_ENGINE_INITIALIZED;
}
bool isStarted(const parvex_DistortionCorrection *h) { return (pvx_Engine_state(h) & kStateMask) == kStateMask; }
bool isInitialized(const parvex_DistortionCorrection *h) {
    return (pvx_Engine_state(h) & PVX_ENGINE_INITIALIZED) != 0;
}

// How far from the centre, along one axis, the output may reach before its
// source position leaves the frame (within a margin of 2 pixels).
int32_t searchAxisLimit(const pvx_Zelkov4DistortionCorrection *lens, double outCenter, int32_t outSize,
                        double inCenter, float g1, float k, float ratio) {
    int64_t lo = pvx_toInt32(outCenter);
    int64_t hi = outSize;
    const float limit = static_cast<float>(outSize);
    while (lo + 1 < hi) {
        const int64_t mid = (lo + hi) / 2;
        const double d = static_cast<double>(mid) - outCenter;
        const float gi = pvx_Zelkov4DistortionCorrection_getinv(lens, pvx_toFloat(d * k * g1));
        const float p = pvx_toFloat(inCenter + d * static_cast<double>(g1 * (gi * ratio))) + 2.0f;
        if (p <= limit)
            lo = mid;
        else
            hi = mid;
    }
    return static_cast<int32_t>(lo);
}

}  // namespace

extern "C" {

PARVEX_API uint32_t parvex_DistortionCorrection_setOutputImageSize(parvex_DistortionCorrection *handle, int32_t width,
                                                                   int32_t height) {
    if (!handle || width < 1 || height < 1) return PARVEX_ERROR_PARAM;
    if (!isInitializedNotStarted(handle)) return PARVEX_ERROR_STATE;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    ctx->out_width = width;
    ctx->out_height = height;
    ctx->out_center_x = width * 0.5;
    ctx->out_center_y = height * 0.5;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_setInputCenter(parvex_DistortionCorrection *handle, double x,
                                                               double y) {
    // A NaN centre would reach the mesh as NaN source positions.
    if (!handle || isnan(x) || isnan(y)) return PARVEX_ERROR_PARAM;
    if (!isInitializedNotStarted(handle)) return PARVEX_ERROR_STATE;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    ctx->in_center_x = ctx->out_center_x = x;
    ctx->in_center_y = ctx->out_center_y = y;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_getRecommendedOutputSize(parvex_DistortionCorrection *handle,
                                                                         int32_t *width, int32_t *height) {
    if (!handle || !width || !height) return PARVEX_ERROR_PARAM;
    if (!isInitializedNotStarted(handle)) return PARVEX_ERROR_STATE;
    const pvx_EngineContext *ctx = pvx_Engine_context(handle);

    const double ro = pvx_RawDouble_hypot(ctx->out_center_x, ctx->out_center_y);
    const double ri = pvx_RawDouble_hypot(ctx->in_center_x, ctx->in_center_y);
    const float g1 = pvx_Zelkov4DistortionCorrection_get(&ctx->lens, 1.0f);
    const float k = pvx_toFloat(1.0 / ro);
    const float ratio = pvx_toFloat(ri / ro);
    const int32_t loX = searchAxisLimit(&ctx->lens, ctx->out_center_x, ctx->out_width, ctx->in_center_x, g1, k, ratio);
    const int32_t loY =
        searchAxisLimit(&ctx->lens, ctx->out_center_y, ctx->out_height, ctx->in_center_y, g1, k, ratio);

    int32_t w = ctx->out_width, h = ctx->out_height;
    const double ex = static_cast<double>(static_cast<float>(loX)) - ctx->out_center_x;
    const double ey = static_cast<double>(static_cast<float>(loY)) - ctx->out_center_y;
    // A search that never left the centre gives no aspect ratio: the current
    // output size is the answer then.
    if (ex > 0 && ey > 0) {
        if (ex > ey)
            w = pvx_toInt32((ex / ey) * ctx->out_height);
        else
            h = pvx_toInt32((ey / ex) * ctx->out_width);
    }
    *width = w;
    *height = h;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_setZoomRatio(parvex_DistortionCorrection *handle, double zoom) {
    // Written so that NaN fails the test too.
    if (!handle || !(zoom >= 1.0)) return PARVEX_ERROR_PARAM;
    if (!isStarted(handle)) return PARVEX_ERROR_STATE;
    pvx_Engine_context(handle)->zoom = zoom;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_setCropRect(parvex_DistortionCorrection *handle, int32_t left,
                                                            int32_t top, int32_t right, int32_t bottom) {
    if (!handle) return PARVEX_ERROR_PARAM;
    if (!isStarted(handle)) return PARVEX_ERROR_STATE;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    ctx->crop[0] = left;
    ctx->crop[1] = top;
    ctx->crop[2] = right;
    ctx->crop[3] = bottom;
    pvx_Engine_fillModelGrid(ctx);
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_getCropRect(parvex_DistortionCorrection *handle, int32_t *left,
                                                            int32_t *top, int32_t *right, int32_t *bottom) {
    if (!handle) return PARVEX_ERROR_PARAM;
    if (!isStarted(handle)) return PARVEX_ERROR_STATE;
    if (!left || !top || !right || !bottom) return PARVEX_ERROR_PARAM;
    const pvx_EngineContext *ctx = pvx_Engine_context(handle);
    *left = ctx->crop[0];
    *top = ctx->crop[1];
    *right = ctx->crop[2];
    *bottom = ctx->crop[3];
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_setCorrectionStrength(parvex_DistortionCorrection *handle,
                                                                      double strength) {
    // Written so that NaN fails the test too.
    if (!handle || !(strength >= 0.0 && strength <= 1.0)) return PARVEX_ERROR_PARAM;
    if (!isInitialized(handle)) return PARVEX_ERROR_STATE;
    pvx_Engine_context(handle)->strength = strength;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_getCorrectionStrength(parvex_DistortionCorrection *handle,
                                                                      double *strength) {
    if (!handle) return PARVEX_ERROR_PARAM;
    if (!isInitialized(handle)) return PARVEX_ERROR_STATE;
    if (!strength) return PARVEX_ERROR_PARAM;
    *strength = pvx_Engine_context(handle)->strength;
    return PARVEX_OK;
}

}  // extern "C"
