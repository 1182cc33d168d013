// Cell plans and the renderer's work on the parallel layer.
//
// A plan lists, in drawing order, the cells of a lattice that a render
// draws and the kernel kind of each, so that a frame neither tests bounds
// nor classifies: the lattice is fixed from start to start, only the pixels
// change.
//
// On the parallel layer the items (planned cells, or all cells when there
// is no plan) are claimed in runs of consecutive items whose length shrinks
// with the work left: long runs keep each participant's writes in its own
// stretch of destination rows (two participants drawing neighbouring narrow
// cells would share every cache line along their common edge), and the
// short runs at the end even out the finishing times.
#include <string.h>

#include "render/pvx_renderer2_internal.h"
#include "runtime/pvx_syscall.h"

namespace {

// An item: cell index in the low 16 bits, kernel kind in the next two, and
// the interior mark above them.
constexpr uint32_t kCellBits = 0xFFFFu;
constexpr uint32_t kKindShift = 16, kKindBits = 3u;
constexpr uint32_t kInterior = 1u << 18;
constexpr int32_t kMaxPlannedCells = 65536;

// Shortest run handed out, and how many runs per participant the work
// left is cut into: a participant takes 1 / (kRunsPerWorker * W) of it.
constexpr int32_t kMinRun = 4;
constexpr int32_t kRunsPerWorker = 2;

// Claims the next run of items; returns its length (0 when all are handed
// out) and its first item in *begin. The counter never passes `count`.
int32_t claimRun(std::atomic<int32_t> *counter, int32_t count, int32_t workers, int32_t *begin) {
    int32_t v = counter->load(std::memory_order_relaxed);
    while (v < count) {
        const int32_t left = count - v;
        int32_t run = left / (kRunsPerWorker * workers);
        if (run < kMinRun) run = kMinRun;
        if (run > left) run = left;
        if (counter->compare_exchange_weak(v, v + run, std::memory_order_relaxed)) {
            *begin = v;
            return run;
        }
    }
    return 0;
}

bool planFits(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params) {
    const pvx_Renderer2_CellPlan &p = renderer->plan;
    return p.params == params && p.numX == params->numX && p.numY == params->numY &&
           p.srcWidth == renderer->srcRect[2] && p.srcHeight == renderer->srcRect[3] &&
           p.boundaryCheck == renderer->boundaryCheck && p.twistThreshold == renderer->twistThreshold &&
           p.rotationThreshold == renderer->rotationThreshold && p.format == renderer->dstFormat &&
           p.mode == renderer->mode;
}

}  // namespace

pvx_Result pvx_Renderer2_planCells(pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params, int32_t srcWidth,
                                   int32_t srcHeight, int32_t format) {
    if (renderer == nullptr || params == nullptr) return PVX_ERROR_PARAM;
    pvx_Renderer2_forgetPlan(renderer);
    const int32_t cells = pvx_Renderer2_cellCount(params);
    if (cells > kMaxPlannedCells) return PVX_ERROR_PARAM;
    if (cells > 0 && (params->srcX == nullptr || params->srcY == nullptr || params->dstX == nullptr ||
                      params->dstY == nullptr))
        return PVX_ERROR_PARAM;
    pvx_Renderer2_CellPlan &plan = renderer->plan;
    if (plan.capacity < cells) {
        if (plan.items != nullptr && pvx_Heap2_free(renderer->heap, plan.items) == PVX_OK) {
            plan.items = nullptr;
            plan.capacity = 0;
        }
        if (plan.items != nullptr || renderer->heap == nullptr) return PVX_ERROR_NOMEM;
        plan.items = static_cast<uint32_t *>(pvx_Heap2_malloc(renderer->heap, sizeof(uint32_t) * cells));
        if (plan.items == nullptr) return PVX_ERROR_NOMEM;
        plan.capacity = cells;
    }
    const int32_t srcRect[4] = {0, 0, srcWidth, srcHeight};
    // Trimmed spans are not what the proof covers: with the boundary check
    // every span proves itself.
    const pvx_Renderer2_InsideFn inside =
        renderer->boundaryCheck == 0 ? pvx_Renderer2_insideTest(format, renderer->mode) : nullptr;
    const int32_t nx = params->numX;
    int32_t count = 0;
    for (int32_t c = 0; c < cells; ++c) {
        const int32_t kind = pvx_Renderer2_classifyCell(renderer, params, srcRect, c);
        if (kind == PVX_RENDERER2_CELL_SKIPPED) continue;
        uint32_t item = static_cast<uint32_t>(c) | static_cast<uint32_t>(kind) << kKindShift;
        if (inside != nullptr) {
            const int32_t v = c + c / (nx - 1), vr = v + 1, vb = v + nx, vbr = v + nx + 1;
            const double corners[8] = {params->srcX[v],  params->srcY[v],  params->srcX[vr],  params->srcY[vr],
                                       params->srcX[vb], params->srcY[vb], params->srcX[vbr], params->srcY[vbr]};
            const int32_t rect[4] = {params->dstX[v], params->dstY[v], params->dstX[vbr], params->dstY[vbr]};
            if (inside(kind, corners, rect, srcWidth, srcHeight)) item |= kInterior;
        }
        plan.items[count++] = item;
    }
    plan.count = count;
    plan.numX = params->numX;
    plan.numY = params->numY;
    plan.srcWidth = srcWidth;
    plan.srcHeight = srcHeight;
    plan.boundaryCheck = renderer->boundaryCheck;
    plan.twistThreshold = renderer->twistThreshold;
    plan.rotationThreshold = renderer->rotationThreshold;
    plan.format = format;
    plan.mode = renderer->mode;
    plan.params = params;
    return PVX_OK;
}

void pvx_Renderer2_forgetPlan(pvx_Renderer2 *renderer) {
    if (renderer == nullptr) return;
    renderer->plan.params = nullptr;
    renderer->plan.count = 0;
}

pvx_Result pvx_Renderer2_destroyPlan(pvx_Renderer2 *renderer) {
    pvx_Renderer2_forgetPlan(renderer);
    pvx_Renderer2_CellPlan &plan = renderer->plan;
    if (plan.items == nullptr) return PVX_OK;
    const pvx_Result r = pvx_Heap2_free(renderer->heap, plan.items);
    if (r == PVX_OK) {
        plan.items = nullptr;
        plan.capacity = 0;
    }
    return r;
}

int32_t pvx_Renderer2_frameItems(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                 const uint32_t **items) {
    if (planFits(renderer, params)) {
        *items = renderer->plan.items;
        return renderer->plan.count;
    }
    *items = nullptr;
    return pvx_Renderer2_cellCount(params);
}

pvx_Result pvx_Renderer2_drawItem(const pvx_Renderer2_FrameArg *arg, int32_t item) {
    const pvx_Renderer2_KernelArg &k = arg->kernel;
    if (arg->items == nullptr) return pvx_Renderer2_drawCell(k.renderer, k.params, k.dst, k.src, item);
    const uint32_t e = arg->items[item];
    const int32_t cell = static_cast<int32_t>(e & kCellBits);
    if (!pvx_Renderer2_cellInClip(k.renderer, k.params, cell)) return PVX_OK;
    return pvx_Renderer2_drawClassified(k.renderer, k.params, k.dst, k.src, cell,
                                        static_cast<int32_t>((e >> kKindShift) & kKindBits), (e & kInterior) != 0);
}

pvx_Result pvx_Renderer2_frameItem(void *arg, int32_t index, const pvx_PelInfo *info) {
    (void)info;
    if (arg == nullptr) return PVX_ERROR_PARAM;
    return pvx_Renderer2_drawItem(static_cast<const pvx_Renderer2_FrameArg *>(arg), index);
}

// Every participant claims runs until none is left; the statuses of all the
// items it drew are OR-ed, as when each cell is a task of its own.
pvx_Result pvx_Renderer2_frameWorker(void *arg, const pvx_PelInfo *info) {
    if (arg == nullptr || info == nullptr || info->counter == nullptr) return PVX_ERROR_PARAM;
    const pvx_Renderer2_FrameArg *a = static_cast<const pvx_Renderer2_FrameArg *>(arg);
    const int32_t workers = info->workers > 0 ? info->workers : 1;
    pvx_Result status = PVX_OK;
    bool bind = info->wantAffinity != 0;
    for (;;) {
        int32_t begin = 0;
        const int32_t run = claimRun(info->counter, info->count, workers, &begin);
        if (run == 0) break;
        // Binding that fails is tried again before the next run.
        if (bind) bind = pvx_Syscall_setThreadAffinityMask(nullptr, info->affinityMask) != PVX_OK;
        for (int32_t i = begin; i < begin + run; ++i) status |= pvx_Renderer2_drawItem(a, i);
        if (info->started != nullptr) *info->started = 1;
    }
    return status;
}
