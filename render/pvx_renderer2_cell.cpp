// The renderer's per-cell work: the source bounds test, the destination
// box, the classification into general, parallelogram and unrotated cells,
// and the loops that run cells on the parallel layer, in row bands and on
// the calling thread.
#include <math.h>

#include "render/pvx_renderer2_internal.h"
#include "runtime/pvx_syscall.h"

namespace {

// Cells whose corners reach this far are never drawn, whatever the
// boundary check: their fixed-point positions would be meaningless.
constexpr double kFarCoordinate = 16777216.0;

inline bool cornerInside(const int32_t *rect, double x, double y) {
    return x >= rect[0] && x <= rect[2] && y >= rect[1] && y <= rect[3];
}

// Takes the next task index; the counter stops at `count`.
int32_t claim(std::atomic<int32_t> *counter, int32_t count) {
    int32_t v = counter->load(std::memory_order_relaxed);
    while (v < count) {
        if (counter->compare_exchange_weak(v, v + 1, std::memory_order_relaxed)) return v;
    }
    return v;
}

// Whether a cell with the destination box of top-left vertex v writes a
// pixel of the renderer's clip rectangle. Rows are drawn in pairs, so a
// cell of odd height also writes the row at its bottom edge.
bool writesIntoClip(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params, int32_t v) {
    const int32_t vbr = v + params->numX + 1;
    const int64_t x0 = params->dstX[v], y0 = params->dstY[v], x1 = params->dstX[vbr], y1 = params->dstY[vbr];
    const int64_t yEnd = y1 + ((y1 - y0) & 1);
    const int64_t *clip = renderer->clipRect;
    return x0 < clip[2] && x1 > clip[0] && y0 < clip[3] && yEnd > clip[1];
}

}  // namespace

int32_t pvx_Renderer2_cellCount(const pvx_Renderer2_Params *params) {
    if (params->numX < 2 || params->numY < 2) return 0;
    const int64_t n = static_cast<int64_t>(params->numX - 1) * (params->numY - 1);
    return n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

bool pvx_Renderer2_cellInClip(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params, int32_t cell) {
    return !renderer->clipActive || writesIntoClip(renderer, params, cell + cell / (params->numX - 1));
}

int32_t pvx_Renderer2_classifyCell(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                   const int32_t *srcRect, int32_t cell) {
    const int32_t nx = params->numX;
    const int32_t v = cell + cell / (nx - 1);   // top-left vertex
    const int32_t vr = v + 1, vb = v + nx, vbr = v + nx + 1;
    const double corners[8] = {params->srcX[v],  params->srcY[v],  params->srcX[vr],  params->srcY[vr],
                               params->srcX[vb], params->srcY[vb], params->srcX[vbr], params->srcY[vbr]};

    // 1. Source bounds, compared as doubles; a NaN is never inside.
    if (renderer->boundaryCheck == 0) {
        for (int i = 0; i < 8; i += 2)
            if (!cornerInside(srcRect, corners[i], corners[i + 1])) return PVX_RENDERER2_CELL_SKIPPED;
    } else {
        bool any = false;
        for (int i = 0; i < 8; ++i)
            if (corners[i] >= kFarCoordinate) return PVX_RENDERER2_CELL_SKIPPED;
        for (int i = 0; i < 8; i += 2) any = any || cornerInside(srcRect, corners[i], corners[i + 1]);
        if (!any) return PVX_RENDERER2_CELL_SKIPPED;
    }

    // 2. Destination box.
    if (!(params->dstX[v] < params->dstX[vbr] && params->dstY[v] < params->dstY[vbr]))
        return PVX_RENDERER2_CELL_SKIPPED;

    // 3. Classification. Every test is written so that a NaN measure fails
    // toward the general kernel (twists) or the parallelogram kernel (slope).
    // A zero scale would make every measure infinite or NaN: the general
    // kernel, without dividing.
    const int64_t top = static_cast<int64_t>(params->dstX[vr]) - params->dstX[v];
    const int64_t left = static_cast<int64_t>(params->dstY[vb]) - params->dstY[v];
    const double s = static_cast<double>(top > left ? top : left);
    if (s == 0) return PVX_RENDERER2_CELL_GENERAL;
    const double twistX = (corners[0] + corners[6] - corners[2] - corners[4]) * 128 / s;
    if (!(fabs(twistX) < renderer->twistThreshold)) return PVX_RENDERER2_CELL_GENERAL;
    const double twistY = (corners[1] + corners[7] - corners[3] - corners[5]) * 128 / s;
    if (!(fabs(twistY) < renderer->twistThreshold)) return PVX_RENDERER2_CELL_GENERAL;
    const double slope = (corners[1] - corners[3]) * 128 / s;
    return fabs(slope) < renderer->rotationThreshold ? PVX_RENDERER2_CELL_NOROT : PVX_RENDERER2_CELL_PARALLEL;
}

pvx_Result pvx_Renderer2_drawClassified(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                        const pvx_Image *dst, const pvx_Image *src, int32_t cell, int32_t kind,
                                        int32_t interior) {
    const int32_t nx = params->numX;
    const int32_t v = cell + cell / (nx - 1);   // top-left vertex
    const int32_t vr = v + 1, vb = v + nx, vbr = v + nx + 1;
    const pvx_Renderer2_DrawFn fn = kind == PVX_RENDERER2_CELL_NOROT     ? renderer->drawRectNoRot
                                    : kind == PVX_RENDERER2_CELL_PARALLEL ? renderer->drawRectParallel
                                                                          : renderer->drawRect;
    if (fn == nullptr) return PVX_ERROR_FORMAT;   // no kernels chosen
    const double corners[8] = {params->srcX[v],  params->srcY[v],  params->srcX[vr],  params->srcY[vr],
                               params->srcX[vb], params->srcY[vb], params->srcX[vbr], params->srcY[vbr]};
    const int32_t cellRect[4] = {params->dstX[v], params->dstY[v], params->dstX[vbr], params->dstY[vbr]};
    pvx_Renderer2_DrawArg arg;
    arg.dst = dst;
    arg.src = src;
    arg.corners = corners;
    arg.cellRect = cellRect;
    arg.boundaryCheck = renderer->boundaryCheck;
    arg.interior = interior;
    return fn(&arg);
}

pvx_Result pvx_Renderer2_drawCell(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                  const pvx_Image *dst, const pvx_Image *src, int32_t cell) {
    if (!pvx_Renderer2_cellInClip(renderer, params, cell)) return PVX_OK;
    const int32_t kind = pvx_Renderer2_classifyCell(renderer, params, renderer->srcRect, cell);
    if (kind == PVX_RENDERER2_CELL_SKIPPED) return PVX_OK;
    return pvx_Renderer2_drawClassified(renderer, params, dst, src, cell, kind, 0);
}

pvx_Result pvx_Renderer2_cellRoutine(void *arg, int32_t index, const pvx_PelInfo *info) {
    (void)info;
    const pvx_Renderer2_KernelArg *a = static_cast<const pvx_Renderer2_KernelArg *>(arg);
    if (a == nullptr || a->renderer == nullptr || a->params == nullptr) return PVX_ERROR_PARAM;
    const int64_t cells = pvx_Renderer2_cellCount(a->params);
    for (int32_t k = 0; k < a->cellsPerTask; ++k) {
        const int64_t c = static_cast<int64_t>(index) * a->cellsPerTask + k;
        if (c >= cells) break;
        const pvx_Result r = pvx_Renderer2_drawCell(a->renderer, a->params, a->dst, a->src, static_cast<int32_t>(c));
        if (r != PVX_OK) return r;
    }
    return PVX_OK;
}

pvx_Result pvx_Renderer2_workerLoop(void *arg, const pvx_PelInfo *info) {
    if (info == nullptr || info->counter == nullptr) return PVX_ERROR_PARAM;
    pvx_Result status = PVX_OK;
    bool bind = info->wantAffinity != 0;
    for (;;) {
        const int32_t t = claim(info->counter, info->count);
        if (t >= info->count) break;
        // Binding that fails is tried again before the next task.
        if (bind) bind = pvx_Syscall_setThreadAffinityMask(nullptr, info->affinityMask) != PVX_OK;
        status |= pvx_Renderer2_cellRoutine(arg, t, info);
        if (info->started != nullptr) *info->started = 1;
    }
    return status;
}

pvx_Result pvx_Renderer2_drawBand(const pvx_Renderer2_BandArg *band) {
    const pvx_Renderer2_Params *params = band->params;
    const int32_t rows = params->numY - 1, cols = params->numX - 1;
    if (rows < 1 || cols < 1) return PVX_OK;
    const int32_t end = band->rowEnd < rows ? band->rowEnd : rows;
    for (int32_t y = band->rowBegin < 0 ? 0 : band->rowBegin; y < end; ++y)
        for (int32_t x = 0; x < cols; ++x) {
            const pvx_Result r = pvx_Renderer2_drawCell(band->renderer, params, band->dst, band->src, y * cols + x);
            if (r != PVX_OK) return r;
        }
    return PVX_OK;
}

pvx_Result pvx_Renderer2_bandTask(void *arg, const pvx_PelInfo *info) {
    (void)info;
    if (arg == nullptr) return PVX_ERROR_PARAM;
    return pvx_Renderer2_drawBand(static_cast<const pvx_Renderer2_BandArg *>(arg));
}
