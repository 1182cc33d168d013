// Shared between the renderer's dispatch files.
#pragma once

#include "render/pvx_renderer2.h"

// Records the destination's size and format and fills the three kernel
// slots for it and the renderer's mode; PVX_ERROR_FORMAT (slots unchanged) for an
// unsupported format, or a mode outside 0-3 for the 4:2:0 formats.
pvx_Result pvx_Renderer2_chooseKernels(pvx_Renderer2 *renderer, int32_t width, int32_t height, int32_t format);

// Whether the kernel choice accepts this format and mode.
bool pvx_Renderer2_isSupported(int32_t format, int32_t mode);

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
