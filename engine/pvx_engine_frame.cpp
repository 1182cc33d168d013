// The frame calls: correct (process) or distort one frame, at zoom one
// straight from source to destination, otherwise through the intermediate
// image and a resize of its centred part.
#include <math.h>

#include "engine/pvx_engine_internal.h"
#include "runtime/pvx_convert.h"

namespace {

// The caller's record in the engine's format must name every plane the
// format has (and, with pitches, rows no shorter than the format's); such a
// record is refused before it is wrapped, so the engine never allocates or
// draws on its behalf.
template <typename Record>
bool hasPlanes(const Record *image, int32_t format) {
    const int32_t planes = pvx_Image_getPlaneCount(format);
    for (int32_t p = 0; p < planes; ++p)
        if (!image->dat[p]) return false;
    return true;
}

// Rows may not overlap: each pitch the format reads covers the plane's row
// bytes (the caller's width, without the alignment rounding of tight pitches).
bool hasUsablePitches(const parvex_ImageDataEx *image, int32_t format) {
    const int32_t planes = pvx_Image_getPlaneCount(format);
    for (int32_t p = 0; p < planes; ++p)
        if (image->pitch[p] < pvx_Image_getPlaneExtent(image->width, image->height, format, p).pitch) return false;
    return true;
}

bool isValidRecord(const parvex_ImageData *image, int32_t format) { return hasPlanes(image, format); }
bool isValidRecord(const parvex_ImageDataEx *image, int32_t format) {
    return hasPlanes(image, format) && hasUsablePitches(image, format);
}

void fillImage(pvx_Image *image, const parvex_ImageData *record, int32_t format) {
    pvx_IF_initImage(image, record, format);
}
void fillImage(pvx_Image *image, const parvex_ImageDataEx *record, int32_t format) {
    pvx_IF_initImageEx(image, record, format);
}

bool isZoomOne(double zoom) { return zoom > 0.999999 && zoom < 1.000001; }

// Renders the mesh into the destination; an in-place call (same first
// plane) reads from a copy of the source in the intermediate image.
uint32_t renderDirect(pvx_EngineContext *ctx) {
    const pvx_Image *source = &ctx->src_image;
    if (ctx->dst_image.dat[0] == ctx->src_image.dat[0]) {
        // Without the copy (no heap left for it) the render would read the
        // pixels it writes.
        const pvx_Result copied = pvx_Image_copy(&ctx->work_image, &ctx->src_image);
        if (copied != PVX_OK) return copied;
        source = &ctx->work_image;
    }
    return pvx_Renderer2_render(&ctx->renderer, &ctx->dst_image, source, &ctx->render_params);
}

// Side of the centred part that a zoom keeps: rounded in single precision,
// then made even so that 4:2:0 chroma stays aligned.
int32_t zoomedSide(int32_t side, double zoom) {
    return pvx_toInt32(rintf(pvx_toFloat(side / zoom))) & ~1;
}

// Renders the input-size picture into the intermediate image, as far as its
// centred part reaches, and scales that part up into the destination. An
// intermediate image the heap cannot hold, or a render that failed, is
// reported without a resize: the destination would otherwise get a picture
// never drawn.
uint32_t renderZoomed(pvx_EngineContext *ctx, double zoom) {
    const pvx_Result image = pvx_Image_init(&ctx->work_image, ctx->in_width, ctx->in_height, nullptr, ctx->format);
    if (image != PVX_OK) return image;
    const int32_t sw = zoomedSide(ctx->in_width, zoom);
    const int32_t sh = zoomedSide(ctx->in_height, zoom);
    const int32_t sx = (ctx->in_width / 2 - (sw >> 1) + 1) & ~1;
    const int32_t sy = (ctx->in_height / 2 - (sh >> 1) + 1) & ~1;
    pvx_Image part;
    pvx_construct_Image(&part, &ctx->env);
    // The resize reads the part and nothing else, so only the cells that
    // write into it are drawn.
    const int32_t partRect[4] = {sx, sy, sx + sw, sy + sh};
    const uint32_t rendered =
        pvx_Image_initSubImage(&part, &ctx->work_image, sx, sy, sw, sh) == PVX_OK
            ? pvx_Renderer2_renderClipped(&ctx->renderer, &ctx->work_image, &ctx->src_image, &ctx->render_params,
                                          partRect)
            : pvx_Renderer2_render(&ctx->renderer, &ctx->work_image, &ctx->src_image, &ctx->render_params);
    // A render whose wait timed out is complete all the same (the wait goes
    // on until the workers are done): it is scaled, and the time-out reported.
    uint32_t status = rendered;
    if (rendered == PVX_OK || rendered == PVX_ERROR_TIMEOUT) {
        status = pvx_ImageProc2_resizeImage(&ctx->imgproc, &ctx->dst_image, &part);
        if (status == PVX_OK) status = rendered;
    }
    pvx_destruct_Image(&part);
    return status;
}

template <typename Record>
uint32_t runFrame(parvex_DistortionCorrection *handle, const Record *output, const Record *input, bool distort) {
    if (!handle || !output || !input) return PARVEX_ERROR_PARAM;
    if (!(pvx_Engine_state(handle) & PVX_ENGINE_STARTED)) return PARVEX_ERROR_STATE;
    pvx_EngineContext *ctx = pvx_Engine_context(handle);
    if (!isValidRecord(output, ctx->format) || !isValidRecord(input, ctx->format)) return PARVEX_ERROR_PARAM;

    fillImage(&ctx->src_image, input, ctx->format);
    fillImage(&ctx->dst_image, output, ctx->format);
    if (input->width != ctx->in_width || input->height != ctx->in_height || output->width != ctx->out_width ||
        output->height != ctx->out_height)
        return PARVEX_ERROR_STATE;

    if (distort) {
        if (ctx->lens_mode != PVX_LENS_COEFFICIENTS) return PARVEX_ERROR_PARAM;
        const int32_t cell = pvx_Grid_cellSize(ctx->out_width, ctx->out_height);
        const pvx_GridGeometry g = pvx_Engine_geometry(ctx);
        // A grid made for one frame is drawn with the per-cell tests.
        pvx_Renderer2_forgetPlan(&ctx->renderer);
        pvx_Grid_fillForward(&ctx->render_params, &ctx->lens, &g, cell);
    }

    const double zoom = ctx->zoom;
    return isZoomOne(zoom) ? renderDirect(ctx) : renderZoomed(ctx, zoom);
}

}  // namespace

extern "C" {

PARVEX_API uint32_t parvex_DistortionCorrection_process(parvex_DistortionCorrection *handle,
                                                        const parvex_ImageData *output,
                                                        const parvex_ImageData *input) {
    return runFrame(handle, output, input, false);
}

PARVEX_API uint32_t parvex_DistortionCorrection_processEx(parvex_DistortionCorrection *handle,
                                                          const parvex_ImageDataEx *output,
                                                          const parvex_ImageDataEx *input) {
    return runFrame(handle, output, input, false);
}

PARVEX_API uint32_t parvex_DistortionCorrection_distort(parvex_DistortionCorrection *handle,
                                                        const parvex_ImageData *output,
                                                        const parvex_ImageData *input) {
    return runFrame(handle, output, input, true);
}

PARVEX_API uint32_t parvex_DistortionCorrection_distortEx(parvex_DistortionCorrection *handle,
                                                          const parvex_ImageDataEx *output,
                                                          const parvex_ImageDataEx *input) {
    return runFrame(handle, output, input, true);
}

}  // extern "C"
