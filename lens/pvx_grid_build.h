// Filling the renderer's vertex lattice from the lens description: the
// correction mesh (lens model or point table) and the distortion mesh.
#pragma once

#include <stdint.h>

#include "lens/pvx_zelkov4.h"
#include "render/pvx_renderer2_params.h"

// Sizes, centres, crop and strength that shape a mesh.
struct pvx_GridGeometry {
    int32_t inWidth, inHeight;
    int32_t outWidth, outHeight;
    double inCenterX, inCenterY;
    double outCenterX, outCenterY;
    int32_t crop[4];   // left, top, right, bottom
    double strength;
};

// Edge of a lattice cell in output pixels: max(side) / 60, even, 8 .. 64.
int32_t pvx_Grid_cellSize(int32_t outWidth, int32_t outHeight);

// True when the lattice's arrays hold numX * numY vertices that can be filled.
bool pvx_Grid_isFillable(const pvx_Renderer2_Params *params);

// Correction mesh from the lens model: source = base point + offset from the
// output centre scaled by the inverse model, blended by the strength.
void pvx_Grid_fillModel(pvx_Renderer2_Params *params, const pvx_Zelkov4DistortionCorrection *lens,
                        const pvx_GridGeometry *geometry, int32_t cell);

// Correction mesh from a point table of `count` points (keys xs ascending:
// normalised output radii; values ys: normalised source radii).
void pvx_Grid_fillTable(pvx_Renderer2_Params *params, const pvx_GridGeometry *geometry, int32_t cell,
                        const double *xs, const double *ys, int32_t count);

// Distortion mesh from the forward model (the inverse of the correction).
void pvx_Grid_fillForward(pvx_Renderer2_Params *params, const pvx_Zelkov4DistortionCorrection *lens,
                          const pvx_GridGeometry *geometry, int32_t cell);
