// Shared between the renderer's dispatch files.
#pragma once

#include "render/pvx_renderer2.h"

// Records the destination's size and format and fills the three kernel
// slots for it and the renderer's mode; PVX_ERROR_FORMAT (slots unchanged) for an
// unsupported format, or a mode outside 0-3 for the 4:2:0 formats.
pvx_Result pvx_Renderer2_chooseKernels(pvx_Renderer2 *renderer, int32_t width, int32_t height, int32_t format);

// Whether the kernel choice accepts this format and mode.
bool pvx_Renderer2_isSupported(int32_t format, int32_t mode);

// Kernel kinds of a cell, as a plan stores them.
enum : int32_t {
    PVX_RENDERER2_CELL_SKIPPED = -1,   // outside the source, or an empty destination box
    PVX_RENDERER2_CELL_GENERAL = 0,
    PVX_RENDERER2_CELL_PARALLEL = 1,
    PVX_RENDERER2_CELL_NOROT = 2,
};

// Source bounds test against srcRect, destination box and classification of
// cell `cell` of `params`: the kernel kind it is drawn with, or SKIPPED.
int32_t pvx_Renderer2_classifyCell(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                   const int32_t *srcRect, int32_t cell);

// Whether the cell writes a pixel of the clip rectangle (always, without one).
bool pvx_Renderer2_cellInClip(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params, int32_t cell);

// Kernel call of a cell already classified as `kind`; `interior` as in the
// draw record.
pvx_Result pvx_Renderer2_drawClassified(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                        const pvx_Image *dst, const pvx_Image *src, int32_t cell, int32_t kind,
                                        int32_t interior);

// Whether every span of a cell of kernel kind `kind` reads inside a source of
// srcW x srcH, for the kernels of `format` and `mode`; null when the
// family has no such proof.
typedef bool (*pvx_Renderer2_InsideFn)(int32_t kind, const double *corners, const int32_t *rect, int32_t srcW,
                                       int32_t srcH);
pvx_Renderer2_InsideFn pvx_Renderer2_insideTest(int32_t format, int32_t mode);

// Bounds test, classification and kernel call of cell `cell` of `params`.
pvx_Result pvx_Renderer2_drawCell(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                  const pvx_Image *dst, const pvx_Image *src, int32_t cell);

// Cell rows [rowBegin, rowEnd) on the calling thread; the first failure ends the band.
pvx_Result pvx_Renderer2_drawBand(const pvx_Renderer2_BandArg *band);

// Number of cells of a lattice (0 when it has fewer than two vertices a side).
int32_t pvx_Renderer2_cellCount(const pvx_Renderer2_Params *params);

// Entries of the renderer's work on the parallel layer and the executor.
pvx_Result pvx_Renderer2_cellRoutine(void *arg, int32_t index, const pvx_PelInfo *info);
pvx_Result pvx_Renderer2_workerLoop(void *arg, const pvx_PelInfo *info);
pvx_Result pvx_Renderer2_bandTask(void *arg, const pvx_PelInfo *info);

// What the renderer's own descriptor on the parallel layer runs: cells, or
// the items of a plan, claimed in runs.
struct pvx_Renderer2_FrameArg {
    pvx_Renderer2_KernelArg kernel;
    const uint32_t *items;   // null: item i is cell i, tested as it is drawn
};
// The items a render of `params` draws: the plan's when it fits (*items
// set), else every cell (*items null).
int32_t pvx_Renderer2_frameItems(const pvx_Renderer2 *renderer, const pvx_Renderer2_Params *params,
                                 const uint32_t **items);
// Forgets the plan and gives its block back to the heap.
pvx_Result pvx_Renderer2_destroyPlan(pvx_Renderer2 *renderer);
pvx_Result pvx_Renderer2_drawItem(const pvx_Renderer2_FrameArg *arg, int32_t item);
pvx_Result pvx_Renderer2_frameWorker(void *arg, const pvx_PelInfo *info);
pvx_Result pvx_Renderer2_frameItem(void *arg, int32_t index, const pvx_PelInfo *info);
