// start: workers, image records, centres and the correction mesh.
#include <stddef.h>
#include <string.h>

#include "engine/pvx_engine_internal.h"
#include "runtime/pvx_syscall.h"

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

pvx_Result pvx_Engine_planFrames(pvx_EngineContext *ctx) {
    // Every frame reads the source at the input size.
    return pvx_Renderer2_planCells(&ctx->renderer, &ctx->render_params, ctx->in_width, ctx->in_height,
                                   ctx->format);
}

pvx_Result pvx_Engine_fillModelGrid(pvx_EngineContext *ctx) {
    const int32_t cell = pvx_Grid_cellSize(ctx->out_width, ctx->out_height);
    const pvx_GridGeometry g = pvx_Engine_geometry(ctx);
    pvx_Grid_fillModel(&ctx->render_params, &ctx->lens, &g, cell);
    return pvx_Engine_planFrames(ctx);
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

// Lays the lattice over the output. A lattice with more vertices than the
// renderer takes (an output above about 8000 x 8000) is left empty and
// frames draw nothing, which the public header documents; a lattice that
// the heap could not hold is reported, since frames would draw nothing
// without anyone being told.
pvx_Result layOutLattice(pvx_EngineContext *ctx, int32_t cell) {
    const int32_t sourceRect[4] = {0, 0, ctx->in_width, ctx->in_height};
    const int32_t outputRect[4] = {0, 0, ctx->out_width, ctx->out_height};
    const pvx_Result r = pvx_Renderer2_Params_initRectWithSize(&ctx->render_params, sourceRect, outputRect, cell);
    if (r == PVX_OK) return PVX_OK;
    ctx->render_params.numX = 0;
    ctx->render_params.numY = 0;
    return r == PVX_ERROR_PARAM ? PVX_OK : PARVEX_ERROR_MALLOC;
}

// Starts the worker pool with one worker per processor, the calling thread
// being one of them. Machines with more processors than the pool has thread
// slots get as many workers as it can run. When the system refuses the
// threads, the frames run on the calling thread alone (a null pool); only a
// pool whose locks the heap could not hold is reported.
pvx_Result startWorkers(pvx_EngineContext *ctx, pvx_Pel **pool) {
    pvx_PelParams params;
    pvx_Pel_resetParams(&params);
    const int32_t processors = pvx_Syscall_getNumberOfProcessors();
    params.numWorkers = processors < PVX_PEL_MAX_THREADS + 1 ? processors : PVX_PEL_MAX_THREADS + 1;
    const pvx_Result r = pvx_Pel_init(&ctx->pel, &params);
    *pool = r == PVX_OK ? &ctx->pel : nullptr;
    return r == PVX_ERROR_NOMEM ? PARVEX_ERROR_MALLOC : PVX_OK;
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

// A start that could not set the engine up ends the workers it started and
// leaves the engine refusing frames until a start succeeds.
uint32_t refuseStart(pvx_EngineContext *ctx, uint32_t status) {
    pvx_Pel_recycle(&ctx->pel);
    ctx->lens.pel = nullptr;
    pvx_ImageProc2_setPel(&ctx->imgproc, nullptr);
    pvx_Renderer2_initWithPel(&ctx->renderer, nullptr);
    ctx->state &= ~static_cast<uint32_t>(PVX_ENGINE_STARTED);
    return status;
}

}  // namespace

extern "C" PARVEX_API uint32_t parvex_DistortionCorrection_start(parvex_DistortionCorrection *handle) {
    if (!handle) return PARVEX_ERROR_PARAM;
    // A handle whose initialize was refused (or whose finalize failed) holds
    // no usable engine: it starts no thread and touches no heap.
    if (!(pvx_Engine_state(handle) & PVX_ENGINE_INITIALIZED)) return PARVEX_ERROR_STATE;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    if (ctx->lens_mode != PVX_LENS_COEFFICIENTS && ctx->lens_mode != PVX_LENS_TABLE) return PARVEX_ERROR_PARAM;
    const int32_t cell = pvx_Grid_cellSize(ctx->out_width, ctx->out_height);

    pvx_Pel *pool = nullptr;
    const pvx_Result workers = startWorkers(ctx, &pool);
    ctx->lens.pel = pool;
    pvx_ImageProc2_setPel(&ctx->imgproc, pool);
    pvx_ImageProc2_init(&ctx->imgproc);   // picks the resize kernels for the processor
    pvx_Renderer2_initWithPel(&ctx->renderer, pool);
    if (workers != PVX_OK) return refuseStart(ctx, workers);
    pvx_construct_Image(&ctx->src_image, &ctx->env);
    pvx_construct_Image(&ctx->dst_image, &ctx->env);
    pvx_construct_Image(&ctx->work_image, &ctx->env);

    resolveCentres(ctx);
    const pvx_Result lattice = layOutLattice(ctx, cell);
    if (lattice != PVX_OK) return refuseStart(ctx, lattice);

    // The plan's block is taken here, once for the lattice, so that a later
    // setCropRect plans again without allocating. A lattice too large to
    // plan is drawn with the per-cell tests.
    pvx_Result planned = PVX_OK;
    if (ctx->lens_mode == PVX_LENS_COEFFICIENTS) {
        planned = pvx_Engine_fillModelGrid(ctx);
    } else {
        double xs[PVX_LENS_MAX_POINTS + 1], ys[PVX_LENS_MAX_POINTS + 1];
        const int32_t count = copyTablePoints(ctx, xs, ys);
        const pvx_GridGeometry g = pvx_Engine_geometry(ctx);
        pvx_Grid_fillTable(&ctx->render_params, &g, cell, xs, ys, count);
        planned = pvx_Engine_planFrames(ctx);
    }
    if (planned == PVX_ERROR_NOMEM) return refuseStart(ctx, PARVEX_ERROR_MALLOC);
    ctx->state |= PVX_ENGINE_STARTED;
    return PARVEX_OK;
}
