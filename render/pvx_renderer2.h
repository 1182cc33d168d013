// Mesh warp renderer: walks a vertex lattice cell by cell, classifies each
// cell and runs one per-format draw kernel per cell, spread over the
// parallel layer, a task executor or the calling thread.
#pragma once

#include <stdint.h>

#include "image/pvx_image.h"
#include "render/pvx_mvec8real.h"
#include "render/pvx_renderer2_params.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_parallel_executor.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_result.h"

// What a draw kernel receives for one cell.
struct pvx_Renderer2_DrawArg {
    const pvx_Image *dst;
    const pvx_Image *src;
    const double *corners;    // TL.x, TL.y, TR.x, TR.y, BL.x, BL.y, BR.x, BR.y (source pixels)
    const int32_t *cellRect;  // x0, y0, x1, y1 (destination, end exclusive)
    int32_t boundaryCheck;
    // Non-zero: the renderer's plan proved that every span of the cell reads
    // inside the source (see pvx_draw_walk.h), so the kernel skips the
    // per-span proofs. 0 whenever unsure.
    int32_t interior;
};

typedef pvx_Result (*pvx_Renderer2_DrawFn)(const pvx_Renderer2_DrawArg *arg);

// The cells of one lattice that a render draws, worked out once (bounds test,
// destination box, kernel kind) by pvx_Renderer2_planCells so that frames
// only draw. A render uses the plan while its lattice, source size, boundary
// check and thresholds are those it was made for; whoever rewrites the
// lattice's vertices plans again or forgets the plan.
struct pvx_Renderer2_CellPlan {
    const pvx_Renderer2_Params *params;   // null: no plan
    int32_t numX, numY;
    int32_t srcWidth, srcHeight;
    int32_t boundaryCheck;
    int32_t format, mode;   // the kernels whose inside proofs the items carry
    double twistThreshold, rotationThreshold;
    uint32_t *items;      // heap block: cell index | kernel kind << 16 | interior << 18, in drawing order
    int32_t count;        // items in use
    int32_t capacity;     // items the block holds
};

enum : int32_t {
    PVX_RENDERER2_MODE_BILINEAR = 0,
    PVX_RENDERER2_MODE_HQ = 1,
    PVX_RENDERER2_MODE_NEAREST = 2,
    PVX_RENDERER2_MODE_COPY = 3,
};

struct pvx_Renderer2 {
    pvx_Heap2 *heap;
    pvx_ParallelExecutor *executor;
    pvx_Pel *pel;
    pvx_Renderer2_Params params;   // the lattice renderWithMvec8Real builds
    int32_t dstWidth, dstHeight, dstFormat;
    int32_t dstRect[4];
    int32_t srcRect[4];
    int32_t gridDivision;
    int32_t mode;
    int32_t boundaryCheck;
    double twistThreshold;
    double rotationThreshold;
    pvx_Renderer2_DrawFn drawRect;
    pvx_Renderer2_DrawFn drawRectParallel;
    pvx_Renderer2_DrawFn drawRectNoRot;
    // Destination rectangle x0, y0, x1, y1 (end exclusive) outside which no
    // pixel is wanted, for the duration of one renderClipped call; clipActive 0
    // draws every cell.
    int64_t clipRect[4];
    int32_t clipActive;
    pvx_Renderer2_CellPlan plan;
};

// Argument of the renderer's kernel on the parallel layer.
struct pvx_Renderer2_KernelArg {
    pvx_Renderer2 *renderer;
    const pvx_Renderer2_Params *params;
    const pvx_Image *dst;
    const pvx_Image *src;
    int32_t cellsPerTask;
};

// Argument of one row band on the task executor (cell rows, end exclusive).
struct pvx_Renderer2_BandArg {
    pvx_Renderer2 *renderer;
    const pvx_Renderer2_Params *params;
    const pvx_Image *dst;
    const pvx_Image *src;
    int32_t rowBegin;
    int32_t rowEnd;
};

uint32_t pvx_Renderer2_getBufferSize(void);
pvx_Result pvx_construct_Renderer2(pvx_Renderer2 *renderer, pvx_Heap2 *heap);
pvx_Result pvx_destruct_Renderer2(pvx_Renderer2 *renderer);
pvx_Result pvx_Renderer2_init(pvx_Renderer2 *renderer, pvx_ParallelExecutor *executor);
pvx_Result pvx_Renderer2_initWithPel(pvx_Renderer2 *renderer, pvx_Pel *pel);
pvx_Result pvx_Renderer2_setMode(pvx_Renderer2 *renderer, int32_t mode);
pvx_Result pvx_Renderer2_setBoundaryCheck(pvx_Renderer2 *renderer, int32_t flag);
pvx_Result pvx_Renderer2_render(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                const pvx_Renderer2_Params *params);
// As render, but draws only the cells that write a pixel of `clip` (x0, y0,
// x1, y1, end exclusive, widened to even edges so that the 4:2:0 chroma of
// its border is complete): every pixel inside `clip` comes out as a full
// render leaves it, the pixels outside may keep their previous values.
pvx_Result pvx_Renderer2_renderClipped(pvx_Renderer2 *renderer, const pvx_Image *dst, const pvx_Image *src,
                                       const pvx_Renderer2_Params *params, const int32_t *clip);
pvx_Result pvx_Renderer2_renderWithMvec8Real(pvx_Renderer2 *renderer, const pvx_Image *dst,
                                             const pvx_Image *src, const pvx_Mvec8Real *matrix);
pvx_Result pvx_Renderer2_renderWithMvec6F32(pvx_Renderer2 *renderer, const pvx_Image *dst,
                                            const pvx_Image *src, const int32_t *m);
// Works out which cells of `params` a render from a source of srcWidth x
// srcHeight draws, with which kernel, and which of them the kernels of
// `format` (in the renderer's mode) draw wholly inside the source; later
// renders of that lattice, source size and format skip those tests. The item block comes from the
// renderer's heap (kept for later plans); without it, renders test every
// cell as they go. PVX_ERROR_NOMEM then, but rendering stays correct.
pvx_Result pvx_Renderer2_planCells(pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                   int32_t srcWidth, int32_t srcHeight, int32_t format);
// Drops the plan (its block is kept): renders test every cell again.
void pvx_Renderer2_forgetPlan(pvx_Renderer2 *renderer);
pvx_Result pvx_Renderer2_getKernel(const pvx_Renderer2 *renderer, const pvx_PelDescriptor **out);
pvx_Result pvx_Renderer2_getKernelFunc(const pvx_Renderer2 *renderer, pvx_PelIndexFn *out);
pvx_Result pvx_Renderer2_getKernelArg(pvx_Renderer2 *renderer, pvx_Renderer2_KernelArg *arg,
                                      const pvx_Image *dst, const pvx_Image *src,
                                      const pvx_Renderer2_Params *params, int32_t cellsPerTask);
