// start: workers, image records, centres and the correction mesh.
#include <stddef.h>
#include <string.h>

#include "engine/pvx_engine_internal.h"

pvx_GridGeometry pvx_Engine_geometry(const pvx_EngineContext *ctx) {
    pvx_GridGeometry g;
    g.inWidth = ctx->in_width;
    g.inHeight = ctx->in_height;
    g.outWidth = ctx->out_width;
    g.outHeight = ctx->out_height;
    g.inCenterX = ctx->in_center_x;
    g.inCenterY = ctx->in_center_y;
    g.outCenterX = ctx->out_center_x;
    g.outCenterY = ctx->out_center_y;
    for (int i = 0; i < 4; ++i) g.crop[i] = ctx->crop[i];
    g.strength = ctx->strength;
    return g;
}

void pvx_Engine_fillModelGrid(pvx_EngineContext *ctx) {
    const int32_t cell = pvx_Grid_cellSize(ctx->out_width, ctx->out_height);
    const pvx_GridGeometry g = pvx_Engine_geometry(ctx);
    pvx_Grid_fillModel(&ctx->render_params, &ctx->lens, &g, cell);
}

namespace {

// A negative centre means "the default": the input's middle, and for the
// output the input centre scaled to the output size. NaN is kept.
void resolveCentres(pvx_EngineContext *ctx) {
    if (ctx->in_center_x < 0) ctx->in_center_x = ctx->in_width * 0.5;
    if (ctx->in_center_y < 0) ctx->in_center_y = ctx->in_height * 0.5;
    if (ctx->out_center_x < 0) ctx->out_center_x = ctx->in_center_x * ctx->out_width / ctx->in_width;
    if (ctx->out_center_y < 0) ctx->out_center_y = ctx->in_center_y * ctx->out_height / ctx->in_height;
}

// Lays the lattice over the output. A lattice that could not be laid (too
// many vertices for a huge output, or no heap left) is left empty, so that
// frames draw nothing instead of walking arrays that do not match its counts.
void layOutLattice(pvx_EngineContext *ctx, int32_t cell) {
    const int32_t sourceRect[4] = {0, 0, ctx->in_width, ctx->in_height};
    const int32_t outputRect[4] = {0, 0, ctx->out_width, ctx->out_height};
    if (pvx_Renderer2_Params_initRectWithSize(&ctx->render_params, sourceRect, outputRect, cell) != PVX_OK) {
        ctx->render_params.numX = 0;
        ctx->render_params.numY = 0;
    }
}

// The table's points as read by the mesh fill: keys and values 0 .. num,
// the last one being the appended extrapolated point. Read slot by slot from
// the context, where the appended point of a full table overlays table_xs[0]
// and zoom.
int32_t copyTablePoints(const pvx_EngineContext *ctx, double *xs, double *ys) {
    int32_t count = ctx->num_points + 1;
    if (count < 1) count = 1;
    if (count > PVX_LENS_MAX_POINTS + 1) count = PVX_LENS_MAX_POINTS + 1;
    const uint8_t *base = reinterpret_cast<const uint8_t *>(ctx) + offsetof(pvx_EngineFields, table_ys);
    for (int32_t i = 0; i <= PVX_LENS_MAX_POINTS; ++i) {
        memcpy(&ys[i], base + static_cast<ptrdiff_t>(i) * 8, 8);
        memcpy(&xs[i], base + static_cast<ptrdiff_t>(PVX_LENS_MAX_POINTS + i) * 8, 8);
    }
    return count;
}

}  // namespace

extern "C" PARVEX_API uint32_t parvex_DistortionCorrection_start(parvex_DistortionCorrection *handle) {
    if (!handle) return PARVEX_ERROR_PARAM;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    if (!ctx) return PARVEX_ERROR_STATE;
    const int32_t cell = pvx_Grid_cellSize(ctx->out_width, ctx->out_height);

    pvx_Pel_init(&ctx->pel, nullptr);
    ctx->lens.pel = &ctx->pel;
    pvx_ImageProc2_setPel(&ctx->imgproc, &ctx->pel);
    pvx_ImageProc2_init(&ctx->imgproc);   // picks the resize kernels for the processor
    pvx_Renderer2_initWithPel(&ctx->renderer, &ctx->pel);
    pvx_construct_Image(&ctx->src_image, &ctx->env);
    pvx_construct_Image(&ctx->dst_image, &ctx->env);
    pvx_construct_Image(&ctx->work_image, &ctx->env);

    resolveCentres(ctx);
    layOutLattice(ctx, cell);

    if (ctx->lens_mode == PVX_LENS_COEFFICIENTS) {
        pvx_Engine_fillModelGrid(ctx);
    } else if (ctx->lens_mode == PVX_LENS_TABLE) {
        double xs[PVX_LENS_MAX_POINTS + 1], ys[PVX_LENS_MAX_POINTS + 1];
        const int32_t count = copyTablePoints(ctx, xs, ys);
        const pvx_GridGeometry g = pvx_Engine_geometry(ctx);
        pvx_Grid_fillTable(&ctx->render_params, &g, cell, xs, ys, count);
    } else {
        return PARVEX_ERROR_PARAM;
    }
    ctx->state |= PVX_ENGINE_STARTED;
    return PARVEX_OK;
}
