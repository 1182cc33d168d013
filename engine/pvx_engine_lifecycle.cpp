// Version, work-buffer size, initialize and finalize.
#include <stddef.h>
#include <string.h>

#include "engine/pvx_engine_internal.h"
#include "runtime/pvx_convert.h"

namespace {

const char kVersion[] = "Parvex DistortionCorrection Ver.1.0.0 2021/08/01";

// Heap reserve beyond the sized parts: the engine's tables, lattice and
// per-call scratch all fit in it.
const int64_t kFixedBufferSize = PVX_ENGINE_CONTEXT_SIZE + 5242880;

// Smallest heap area that holds one block after alignment.
const int32_t kMinimumHeapArea = 64;

// The formats the engine accepts, as bits over the format values 0..29.
const uint32_t kAcceptedFormats = 0x2C00000Cu;

bool isAcceptedFormat(int32_t format) {
    return format >= 0 && format <= 29 && ((kAcceptedFormats >> format) & 1u) != 0;
}

// The caller's point table is kept in two adjacent 256-slot arrays followed
// by the zoom. The point appended after the caller's points may land past an
// array's end (on the next array or on zoom) and, with fewer than two points,
// is extrapolated from the slots before the arrays. Slots are addressed
// relative to table_ys[0] within the context's bytes, so every such access is
// a defined access to the context.
double readPointSlot(const pvx_EngineContext *ctx, ptrdiff_t slot) {
    double v;
    memcpy(&v, reinterpret_cast<const uint8_t *>(ctx) + offsetof(pvx_EngineFields, table_ys) + slot * 8, sizeof v);
    return v;
}

void writePointSlot(pvx_EngineContext *ctx, ptrdiff_t slot, double v) {
    memcpy(reinterpret_cast<uint8_t *>(ctx) + offsetof(pvx_EngineFields, table_ys) + slot * 8, &v, sizeof v);
}

// Appends the extrapolated point after `num` points: 100 times the last
// segment beyond the last point. The key deliberately starts from the last
// value of the other array.
void appendExtrapolatedPoint(pvx_EngineContext *ctx, int32_t num) {
    const ptrdiff_t xs = PVX_LENS_MAX_POINTS;
    const double lastY = readPointSlot(ctx, num - 1);
    const double ys = lastY + 100.0 * (lastY - readPointSlot(ctx, num - 2));
    writePointSlot(ctx, num, ys);
    const double xsValue = readPointSlot(ctx, num - 1) +
                           100.0 * (readPointSlot(ctx, xs + num - 1) - readPointSlot(ctx, xs + num - 2));
    writePointSlot(ctx, xs + num, xsValue);
}

uint32_t storeLens(pvx_EngineContext *ctx, const parvex_DistortionCorrection_InitParam *param) {
    if (param->mode == 0) {
        ctx->lens_mode = PVX_LENS_COEFFICIENTS;
        for (int i = 0; i < 4; ++i) ctx->coef[i] = param->coef[i];
        return PARVEX_OK;
    }
    if (param->mode != 1) return PARVEX_ERROR_PARAM;
    ctx->lens_mode = PVX_LENS_TABLE;
    ctx->num_points = param->num;
    if (param->num > PVX_LENS_MAX_POINTS || param->num < 0) return PARVEX_ERROR_PARAM;
    if (param->num > 0 && (!param->xs || !param->ys)) return PARVEX_ERROR_PARAM;
    for (int32_t i = 0; i < param->num; ++i) {
        ctx->table_ys[i] = param->ys[i];
        ctx->table_xs[i] = param->xs[i];
    }
    appendExtrapolatedPoint(ctx, param->num);
    return PARVEX_OK;
}

}  // namespace

extern "C" {

PARVEX_API const char *parvex_DistortionCorrection_getVersion(void) { return kVersion; }

PARVEX_API int32_t parvex_DistortionCorrection_getBufferSize(const parvex_DistortionCorrection_InitParam *param) {
    if (!param) return 0;
    const int32_t format = pvx_Image_getImageFormat(param->format);
    const int64_t image = pvx_Image_getSize(param->width, param->height, format, PVX_SIZE_IMAGE);
    if (image > INT32_MAX) return INT32_MAX;   // the image size saturates for hostile sizes
    const int64_t total = image + static_cast<int64_t>(pvx_Pel_getBufferSize()) + pvx_Renderer2_getBufferSize() +
                          pvx_Renderer2_Params_getBufferSize() + kFixedBufferSize;
    return total > INT32_MAX ? INT32_MAX : static_cast<int32_t>(total);
}

PARVEX_API uint32_t parvex_DistortionCorrection_initialize(parvex_DistortionCorrection *handle, void *buffer,
                                                           int32_t buffer_size,
                                                           const parvex_DistortionCorrection_InitParam *param) {
    if (!handle || !buffer || buffer_size < 1 || !param ||
        static_cast<uint32_t>(param->width) - 320u >= 5825u ||
        static_cast<uint32_t>(param->height) - 240u >= 5905u ||
        reinterpret_cast<uintptr_t>(buffer) % alignof(pvx_EngineContext) != 0)
        return PARVEX_ERROR_PARAM;
    handle->p = nullptr;
    if (buffer_size < PVX_ENGINE_CONTEXT_SIZE + kMinimumHeapArea) return PARVEX_ERROR_MALLOC;

    memset(buffer, 0, PVX_ENGINE_CONTEXT_SIZE);
    pvx_EngineContext *ctx = static_cast<pvx_EngineContext *>(buffer);
    uint8_t *heapArea = static_cast<uint8_t *>(buffer) + PVX_ENGINE_CONTEXT_SIZE;
    if (pvx_failed(pvx_construct_Env(&ctx->env, heapArea, static_cast<size_t>(buffer_size) - PVX_ENGINE_CONTEXT_SIZE)))
        return PARVEX_ERROR_MALLOC;
    handle->p = buffer;

    pvx_construct_Pel(&ctx->pel, &ctx->env);
    pvx_construct_Zelkov4DistortionCorrection(&ctx->lens, &ctx->env);
    pvx_construct_Renderer2(&ctx->renderer, &ctx->env.heap);
    pvx_construct_Renderer2_Params(&ctx->render_params, &ctx->env.heap);
    pvx_construct_ImageProc2(&ctx->imgproc, &ctx->env);

    ctx->format = pvx_Image_getImageFormat(param->format);
    if (!isAcceptedFormat(ctx->format)) return PARVEX_ERROR_IMAGE_FORMAT;

    ctx->in_width = ctx->out_width = param->width;
    ctx->in_height = ctx->out_height = param->height;
    ctx->lens_mode = PVX_LENS_NONE;
    ctx->in_center_x = ctx->out_center_x = param->width * 0.5;
    ctx->in_center_y = ctx->out_center_y = param->height * 0.5;
    ctx->zoom = 1.0;
    ctx->crop[0] = 0;
    ctx->crop[1] = 0;
    ctx->crop[2] = param->width;
    ctx->crop[3] = param->height;
    ctx->strength = 1.0;

    const uint32_t lensStatus = storeLens(ctx, param);
    if (lensStatus != PARVEX_OK) return lensStatus;

    float coef[4];
    for (int i = 0; i < 4; ++i) coef[i] = pvx_toFloat(ctx->coef[i]);
    const pvx_Result tables = pvx_Zelkov4DistortionCorrection_setParam4(&ctx->lens, coef);
    if (tables != PVX_OK) return tables;

    ctx->state = PVX_ENGINE_INITIALIZED;
    return PARVEX_OK;
}

PARVEX_API uint32_t parvex_DistortionCorrection_finalize(parvex_DistortionCorrection *handle) {
    if (!handle) return PARVEX_ERROR_PARAM;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    if (!ctx || !(ctx->state & PVX_ENGINE_INITIALIZED)) return PARVEX_ERROR_STATE;

    pvx_destruct_ImageProc2(&ctx->imgproc);
    pvx_destruct_Renderer2_Params(&ctx->render_params);
    pvx_destruct_Renderer2(&ctx->renderer);
    pvx_destruct_Image(&ctx->src_image);
    pvx_destruct_Image(&ctx->dst_image);
    pvx_destruct_Image(&ctx->work_image);
    pvx_destruct_Zelkov4DistortionCorrection(&ctx->lens);
    pvx_destruct_Pel(&ctx->pel);

    const pvx_Result teardown = pvx_destruct_Env(&ctx->env);
    if (static_cast<int32_t>(teardown) < 0) {
        // The context stays as it is (a second finalize clears it), but
        // nothing in it may be used any more: the workers have ended and the
        // mesh arrays are freed.
        ctx->state = PVX_ENGINE_INITIALIZED | PVX_ENGINE_DEFUNCT;
        return PARVEX_ERROR_MALLOC;
    }
    memset(static_cast<void *>(ctx), 0, PVX_ENGINE_CONTEXT_SIZE);
    if (teardown != 0) return PARVEX_ERROR_MALLOC;
    handle->p = nullptr;
    return PARVEX_OK;
}

}  // extern "C"
