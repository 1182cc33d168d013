// Radial lens model D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8 (distorted
// radius over undistorted radius) with two tables sampled every 0.001 of
// normalised radius: the forward ratio and the inverse (undistortion) ratio.
#pragma once

#include <stdint.h>

#include "image/pvx_image.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_result.h"

struct pvx_Zelkov4DistortionCorrection {
    int32_t num;          // samples per table: 2048 once parameterised
    pvx_Env *env;         // allocator of the tables
    float param[4];       // k1 .. k4
    float *table;         // inv[0..num-1] followed by fwd[0..num-1]; null when absent
    pvx_Pel *pel;         // layer for process (set by the engine's start)
    int32_t reserved;
    float vslope;         // vertical scale of dcforward/dcbackward (0 disables)
};

pvx_Result pvx_construct_Zelkov4DistortionCorrection(pvx_Zelkov4DistortionCorrection *lens, pvx_Env *env);
pvx_Result pvx_destruct_Zelkov4DistortionCorrection(pvx_Zelkov4DistortionCorrection *lens);
// Builds both tables; PVX_ERROR_SYSTEM when the table cannot be allocated.
pvx_Result pvx_Zelkov4DistortionCorrection_setParam4(pvx_Zelkov4DistortionCorrection *lens, const float *coef);

float pvx_Zelkov4DistortionCorrection_get(const pvx_Zelkov4DistortionCorrection *lens, float r);
float pvx_Zelkov4DistortionCorrection_getf(const pvx_Zelkov4DistortionCorrection *lens, float r);
float pvx_Zelkov4DistortionCorrection_getinv(const pvx_Zelkov4DistortionCorrection *lens, float t);

pvx_Result pvx_Zelkov4DistortionCorrection_dcforward(const pvx_Zelkov4DistortionCorrection *lens,
                                                     double *outX, double *outY, double x, double y,
                                                     double width, double height, double scale);
pvx_Result pvx_Zelkov4DistortionCorrection_dcbackward(const pvx_Zelkov4DistortionCorrection *lens,
                                                      double *outX, double *outY, double x, double y,
                                                      double width, double height, double scale);
pvx_Result pvx_Zelkov4DistortionCorrection_getPos(void);
// Maps a whole image through the model, in strips of 32 rows on `pel`.
pvx_Result pvx_Zelkov4DistortionCorrection_process(pvx_Zelkov4DistortionCorrection *lens,
                                                   const pvx_Image *src, pvx_Image *dst);
