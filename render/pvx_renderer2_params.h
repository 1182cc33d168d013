// The vertex lattice of the mesh renderer: a regular grid of vertices over a
// destination rectangle, each with an integer destination position and a
// floating-point source position.
#pragma once

#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

struct pvx_Mvec8Real;

enum : int32_t { PVX_RENDERER2_MAX_VERTICES = 16384, PVX_RENDERER2_MIN_CELL = 8 };

struct pvx_Renderer2_Params {
    int32_t numX;         // vertices per row
    int32_t numY;         // vertex rows
    double *srcX;         // numX*numY source x, source pixels
    double *srcY;
    int32_t *dstX;        // numX*numY destination x, destination pixels
    int32_t *dstY;
    pvx_Heap2 *heap;      // owner of the four arrays
    uint32_t reserved;
    int32_t rect[4];      // left, top, right, bottom (right/bottom exclusive)
    int32_t cellWidth;
    int32_t cellHeight;
};

// A bare vertex store with the first fields of pvx_Renderer2_Params.
struct pvx_Renderer2_GridWrapper {
    int32_t numX;
    int32_t numY;
    double *srcX;
    double *srcY;
    int32_t *dstX;
    int32_t *dstY;
    pvx_Heap2 *heap;
};

uint32_t pvx_Renderer2_Params_getBufferSize(void);   // 409600
pvx_Result pvx_construct_Renderer2_Params(pvx_Renderer2_Params *params, pvx_Heap2 *heap);
pvx_Result pvx_destruct_Renderer2_Params(pvx_Renderer2_Params *params);
pvx_Result pvx_Renderer2_Params_initWithGridSize(pvx_Renderer2_Params *params, const int32_t *rect,
                                                 int32_t cellWidth, int32_t cellHeight);
pvx_Result pvx_Renderer2_Params_initRectWithSize(pvx_Renderer2_Params *params, const void *owner,
                                                 const int32_t *rect, int32_t cell);
pvx_Result pvx_Renderer2_Params_initRect(pvx_Renderer2_Params *params, const void *owner,
                                         const int32_t *rect, int32_t divisor);
pvx_Result pvx_Renderer2_Params_init(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                     int32_t height, int32_t divisor);
pvx_Result pvx_Renderer2_Params_initVertical(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                             int32_t height, int32_t divisor);
pvx_Result pvx_Renderer2_Params_initWithSize(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                             int32_t height, int32_t cell);
pvx_Result pvx_Renderer2_Params_copy(pvx_Renderer2_Params *dst, const pvx_Renderer2_Params *src);
pvx_Result pvx_Renderer2_Params_setMvec8Real(pvx_Renderer2_Params *params, const pvx_Mvec8Real *matrix);

uint32_t pvx_Renderer2_GridWrapper_getBufferSize(int32_t numX, int32_t numY);
pvx_Result pvx_construct_Renderer2_GridWrapper(pvx_Renderer2_GridWrapper *grid, pvx_Heap2 *heap);
pvx_Result pvx_destruct_Renderer2_GridWrapper(pvx_Renderer2_GridWrapper *grid);
pvx_Result pvx_Renderer2_GridWrapper_init(pvx_Renderer2_GridWrapper *grid, int32_t numX, int32_t numY);
pvx_Result pvx_Renderer2_GridWrapper_initWithGridSize(pvx_Renderer2_GridWrapper *grid, const int32_t *rect,
                                                      int32_t cellWidth, int32_t cellHeight);
pvx_Result pvx_Renderer2_GridWrapper_setMvec8Real(pvx_Renderer2_GridWrapper *grid, const pvx_Mvec8Real *matrix);

// Clamps every srcX to [left, right-2] and srcY to [top, bottom-2]. `grid`
// is a pvx_Renderer2_Params or a pvx_Renderer2_GridWrapper (same first fields).
pvx_Result pvx_Renderer2_Grid_confineWithinRect(void *grid, const int32_t *rect);
