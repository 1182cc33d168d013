// Mesh warp renderer: object lifecycle, kernel choice by format and mode,
// and the spreading of a lattice's cells over the parallel layer, a task
// executor or the calling thread.
#include "render/pvx_renderer2.h"

#include <string.h>

#include "render/pvx_draw_span.h"
#include "render/pvx_renderer2_internal.h"
#include "render/pvx_renderer2_kernels.h"

namespace {

// Kind 1 on the parallel layer: every participant runs the worker loop,
// which claims cell indices; without a pool the cell routine runs for each
// index in turn.
const pvx_PelDescriptor kCellKernel = {pvx_Renderer2_workerLoop, nullptr, pvx_Renderer2_cellRoutine, nullptr,
                                       PVX_PEL_INDEXED};

// Kind 1 as the renderer runs its frames: participants claim runs of cells
// (or of a plan's items).
const pvx_PelDescriptor kFrameKernel = {pvx_Renderer2_frameWorker, nullptr, pvx_Renderer2_frameItem, nullptr,
                                        PVX_PEL_INDEXED};

// Kind 0 for the executor: one row band per task.
const pvx_PelDescriptor kBandTask = {pvx_Pel_taskWorker, pvx_Renderer2_bandTask, nullptr, nullptr, PVX_PEL_TASK};

struct Family {
    pvx_Renderer2_DrawFn rect, parallel, noRot;
};

#define PVX_FAMILY(F) \
    Family { pvx_Renderer2_##F##_drawRect, pvx_Renderer2_##F##_drawRectParallel, pvx_Renderer2_##F##_drawRectNoRot }

// The kernels for a format and mode; false when the pair is not supported.
bool familyOf(int32_t format, int32_t mode, Family *out) {
    switch (format) {
    case PVX_FORMAT_RGB888:
    case PVX_FORMAT_BGR888:
        *out = PVX_FAMILY(Rgb888);
        return true;
    case PVX_FORMAT_UINT8:
        *out = PVX_FAMILY(Uint8);
        return true;
    case PVX_FORMAT_YUV422_YUYV:
    case PVX_FORMAT_YUV422_YVYU:
        *out = PVX_FAMILY(Yuv422Yuyv);
        return true;
    case PVX_FORMAT_YUV422_VYUY:
    case PVX_FORMAT_YUV422_UYVY:
        *out = PVX_FAMILY(Yuv422Uyvy);
        return true;
    case PVX_FORMAT_YUV422_PLANAR:
        *out = PVX_FAMILY(Yuv422Planar);
        return true;
    case PVX_FORMAT_YUV420_PLANAR:
        switch (mode) {
        case PVX_RENDERER2_MODE_BILINEAR:
            *out = PVX_FAMILY(Yuv420Planar);
            return true;
        case PVX_RENDERER2_MODE_HQ:
            *out = PVX_FAMILY(Yuv420PlanarHQ);
            return true;
        case PVX_RENDERER2_MODE_COPY:
            *out = Family{pvx_Renderer2_Yuv420Planar_drawRectMemcpy, pvx_Renderer2_Yuv420Planar_drawRectMemcpy,
                          pvx_Renderer2_Yuv420Planar_drawRectMemcpy};
            return true;
        default:
            return false;
        }
    case PVX_FORMAT_YUV420_SEMIPLANAR:
    case PVX_FORMAT_YVU420_SEMIPLANAR:
        switch (mode) {
        case PVX_RENDERER2_MODE_BILINEAR:
            *out = PVX_FAMILY(Yuv420Semiplanar);
            return true;
        case PVX_RENDERER2_MODE_HQ:
            *out = PVX_FAMILY(Yuv420SemiplanarHQ);
            return true;
        case PVX_RENDERER2_MODE_NEAREST:
            *out = PVX_FAMILY(Yuv420SemiplanarNN);
            return true;
        case PVX_RENDERER2_MODE_COPY:
            *out = Family{pvx_Renderer2_Yuv420Semiplanar_drawRectMemcpy,
                          pvx_Renderer2_Yuv420Semiplanar_drawRectMemcpy,
                          pvx_Renderer2_Yuv420Semiplanar_drawRectMemcpy};
            return true;
        default:
            return false;
        }
    default:
        return false;
    }
}

#undef PVX_FAMILY

bool sameDestination(const pvx_Renderer2 *r, const pvx_Image *dst) {
    return dst->width == r->dstWidth && dst->height == r->dstHeight && dst->format == r->dstFormat;
}

void setRect(int32_t *rect, int32_t width, int32_t height) {
    rect[0] = 0;
    rect[1] = 0;
    rect[2] = width;
    rect[3] = height;
}

// Before any cell is drawn: the source bounds, and the kernels chosen
// again when the destination changed. A destination whose format and mode
// have no kernels is refused here even when nothing changed, so stale slots
// (a choice that failed) are never run on images they were not chosen for.
pvx_Result prepare(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src) {
    setRect(renderer->srcRect, src->width, src->height);
    if (!sameDestination(renderer, dst)) {
        setRect(renderer->dstRect, dst->width, dst->height);
        const pvx_Result r = pvx_Renderer2_chooseKernels(renderer, dst->width, dst->height, dst->format);
        if (r != PVX_OK) return r;
    }
    if (!pvx_Renderer2_isSupported(renderer->dstFormat, renderer->mode)) return PVX_ERROR_FORMAT;
    return PVX_OK;
}

pvx_Result renderBands(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                       const pvx_Renderer2_Params *params) {
    const int32_t rows = params->numY > 1 ? params->numY - 1 : 0;
    pvx_Renderer2_BandArg band = {renderer, params, dst, src, 0, rows};
    pvx_ParallelExecutor *executor = renderer->executor;
    const int32_t workers = executor != nullptr ? pvx_ParallelExecutor_getNumberOfWorkers(executor) : 1;
    if (executor == nullptr || workers == 1) {
        // On the calling thread a plan saves the tests; the first failure ends the walk.
        pvx_Renderer2_FrameArg frame = {{renderer, params, dst, src, 1}, nullptr};
        const int32_t n = pvx_Renderer2_frameItems(renderer, params, &frame.items);
        if (frame.items == nullptr) return pvx_Renderer2_drawBand(&band);
        for (int32_t i = 0; i < n; ++i) {
            const pvx_Result r = pvx_Renderer2_drawItem(&frame, i);
            if (r != PVX_OK) return r;
        }
        return PVX_OK;
    }

    int32_t bounds[6];
    int32_t bands = 0;
    if (workers == 2) {
        const int32_t h = rows / 2;
        bounds[0] = 0;
        bounds[1] = h;
        bounds[2] = 2 * h;
        bands = 2;
        if (2 * h < rows) bounds[++bands] = rows;
    } else {
        const int32_t q = rows / 4;
        for (int i = 0; i <= 4; ++i) bounds[i] = i * q;
        bands = 4;
        if (4 * q < rows) bounds[++bands] = rows;
    }
    for (int32_t i = 0; i < bands; ++i) {
        band.rowBegin = bounds[i];
        band.rowEnd = bounds[i + 1];
        const pvx_Result r = pvx_ParallelExecutor_fork(executor, &kBandTask, &band, sizeof band);
        if (r != PVX_OK) return r;
    }
    return pvx_ParallelExecutor_join(executor);
}

}  // namespace

bool pvx_Renderer2_isSupported(int32_t format, int32_t mode) {
    Family f;
    return familyOf(format, mode, &f);
}

pvx_Result pvx_Renderer2_chooseKernels(pvx_Renderer2 *renderer, int32_t width, int32_t height, int32_t format) {
    renderer->dstWidth = width;
    renderer->dstHeight = height;
    renderer->dstFormat = format;
    Family f;
    if (!familyOf(format, renderer->mode, &f)) return PVX_ERROR_FORMAT;
    renderer->drawRect = f.rect;
    renderer->drawRectParallel = f.parallel;
    renderer->drawRectNoRot = f.noRot;
    return PVX_OK;
}

uint32_t pvx_Renderer2_getBufferSize(void) { return pvx_Renderer2_Params_getBufferSize(); }

pvx_Result pvx_construct_Renderer2(pvx_Renderer2 *renderer, pvx_Heap2 *heap) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    memset(renderer, 0, sizeof *renderer);
    const pvx_Result r = pvx_construct_Renderer2_Params(&renderer->params, heap);
    if (r != PVX_OK) return r;
    renderer->heap = heap;
    renderer->gridDivision = 16;
    renderer->mode = PVX_RENDERER2_MODE_BILINEAR;
    renderer->boundaryCheck = 0;
    return PVX_OK;
}

pvx_Result pvx_destruct_Renderer2(pvx_Renderer2 *renderer) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    pvx_Result r = pvx_Renderer2_destroyPlan(renderer);
    if (r == PVX_OK) r = pvx_destruct_Renderer2_Params(&renderer->params);
    if (r == PVX_OK) memset(renderer, 0, sizeof *renderer);
    return r;
}

pvx_Result pvx_Renderer2_init(pvx_Renderer2 *renderer, pvx_ParallelExecutor *executor) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    pvx_draw::initDrawSpans();   // the span leaves for this processor, once per start
    renderer->twistThreshold = 0.5;
    renderer->rotationThreshold = 0.5;
    renderer->executor = executor;
    renderer->pel = nullptr;
    return PVX_OK;
}

pvx_Result pvx_Renderer2_initWithPel(pvx_Renderer2 *renderer, pvx_Pel *pel) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    pvx_draw::initDrawSpans();   // the span leaves for this processor, once per start
    renderer->twistThreshold = 0.5;
    renderer->rotationThreshold = 0.5;
    renderer->executor = nullptr;
    renderer->pel = pel;
    return PVX_OK;
}

pvx_Result pvx_Renderer2_setMode(pvx_Renderer2 *renderer, int32_t mode) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    renderer->mode = mode;
    if (renderer->dstWidth >= 1 && renderer->dstHeight >= 1)
        return pvx_Renderer2_chooseKernels(renderer, renderer->dstWidth, renderer->dstHeight, renderer->dstFormat);
    return PVX_OK;
}

pvx_Result pvx_Renderer2_setBoundaryCheck(pvx_Renderer2 *renderer, int32_t flag) {
    if (renderer == nullptr) return PVX_ERROR_PARAM;
    renderer->boundaryCheck = flag;
    return PVX_OK;
}

pvx_Result pvx_Renderer2_render(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                const pvx_Renderer2_Params *params) {
    if (renderer == nullptr || dst == nullptr || src == nullptr || params == nullptr) return PVX_ERROR_PARAM;
    const pvx_Result r = prepare(renderer, dst, src);
    if (r != PVX_OK) return r;
    if (renderer->pel != nullptr) {
        pvx_Renderer2_FrameArg frame = {{renderer, params, dst, src, 1}, nullptr};
        const int32_t n = pvx_Renderer2_frameItems(renderer, params, &frame.items);
        return pvx_Pel_execute(renderer->pel, &kFrameKernel, &frame, n);
    }
    return renderBands(renderer, dst, src, params);
}

pvx_Result pvx_Renderer2_renderClipped(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                       const pvx_Renderer2_Params *params, const int32_t *clip) {
    if (renderer == nullptr || clip == nullptr) return PVX_ERROR_PARAM;
    // Even edges: a 4:2:0 chroma sample belongs to a 2x2 block of pixels.
    for (int i = 0; i < 4; ++i) {
        const int64_t edge = clip[i];
        renderer->clipRect[i] = i < 2 ? edge & ~static_cast<int64_t>(1) : (edge + 1) & ~static_cast<int64_t>(1);
    }
    renderer->clipActive = 1;
    const pvx_Result r = pvx_Renderer2_render(renderer, dst, src, params);
    renderer->clipActive = 0;
    return r;
}

pvx_Result pvx_Renderer2_renderWithMvec8Real(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                             const pvx_Mvec8Real *matrix) {
    if (renderer == nullptr || dst == nullptr || src == nullptr || matrix == nullptr) return PVX_ERROR_PARAM;
    setRect(renderer->srcRect, src->width, src->height);
    if (!sameDestination(renderer, dst)) {
        setRect(renderer->dstRect, dst->width, dst->height);
        pvx_Result r = pvx_Renderer2_chooseKernels(renderer, dst->width, dst->height, dst->format);
        if (r != PVX_OK) return r;
        r = pvx_Renderer2_Params_init(&renderer->params, renderer, dst->width, dst->height, renderer->gridDivision);
        if (r != PVX_OK) {
            // A lattice whose building failed must not be mapped or drawn:
            // forget the destination so that the next call lays it again.
            renderer->dstWidth = renderer->dstHeight = renderer->dstFormat = 0;
            return r;
        }
    }
    // The vertices move: a plan of this lattice no longer holds.
    if (renderer->plan.params == &renderer->params) pvx_Renderer2_forgetPlan(renderer);
    const pvx_Result r = pvx_Renderer2_Params_setMvec8Real(&renderer->params, matrix);
    if (r != PVX_OK) return r;
    return pvx_Renderer2_render(renderer, dst, src, &renderer->params);
}

pvx_Result pvx_Renderer2_renderWithMvec6F32(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                            const int32_t *m) {
    if (renderer == nullptr || dst == nullptr || src == nullptr || m == nullptr) return PVX_ERROR_PARAM;
    pvx_Mvec8Real matrix;
    for (int i = 0; i < 6; ++i) matrix.m[i] = m[i] / 32768.0;
    matrix.m[6] = 0;
    matrix.m[7] = 0;
    matrix.m[8] = 1;
    return pvx_Renderer2_renderWithMvec8Real(renderer, dst, src, &matrix);
}

pvx_Result pvx_Renderer2_getKernel(const pvx_Renderer2 *renderer, const pvx_PelDescriptor **out) {
    if (renderer == nullptr || out == nullptr) return PVX_ERROR_PARAM;
    *out = &kCellKernel;
    return PVX_OK;
}

pvx_Result pvx_Renderer2_getKernelFunc(const pvx_Renderer2 *renderer, pvx_PelIndexFn *out) {
    if (renderer == nullptr || out == nullptr) return PVX_ERROR_PARAM;
    *out = pvx_Renderer2_cellRoutine;
    return PVX_OK;
}

pvx_Result pvx_Renderer2_getKernelArg(pvx_Renderer2 *renderer, pvx_Renderer2_KernelArg *arg, const pvx_Image *dst,
                                      const pvx_Image *src, const pvx_Renderer2_Params *params,
                                      int32_t cellsPerTask) {
    if (renderer == nullptr || arg == nullptr || dst == nullptr || src == nullptr || params == nullptr)
        return PVX_ERROR_PARAM;
    const pvx_Result r = prepare(renderer, dst, src);
    if (r != PVX_OK) return r;
    arg->renderer = renderer;
    arg->params = params;
    arg->dst = dst;
    arg->src = src;
    arg->cellsPerTask = cellsPerTask;
    return PVX_OK;
}
