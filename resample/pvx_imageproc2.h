// Image resize: separable two-tap interpolation in 15-bit fixed point, with
// a 2x2 box average when the destination is (within a pixel) half the
// source. Row bands run on the parallel layer.
#pragma once

#include <stdint.h>

#include "image/pvx_image.h"
#include "resample/pvx_resize_leaves.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_result.h"

struct pvx_ImageProc2 {
    pvx_Env *env;      // allocator of scratch memory and temporary image records
    pvx_Pel *pel;      // null: everything runs on the calling thread
    pvx_ResizeLeaves leaves;   // group kernels for the running processor
};

// Construction and init both choose the group kernels for the processor
// (as pvx_Cpu_flags allows at that moment).
pvx_Result pvx_construct_ImageProc2(pvx_ImageProc2 *proc, pvx_Env *env);
pvx_Result pvx_destruct_ImageProc2(pvx_ImageProc2 *proc);
pvx_Result pvx_ImageProc2_init(pvx_ImageProc2 *proc);
pvx_Result pvx_ImageProc2_recycle(pvx_ImageProc2 *proc);
pvx_Result pvx_ImageProc2_setPel(pvx_ImageProc2 *proc, pvx_Pel *pel);

// Destination first. resizeImage may take the 2:1 box path; resizeImageBilinear never does.
pvx_Result pvx_ImageProc2_resizeImage(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src);
pvx_Result pvx_ImageProc2_resizeImageBilinear(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src);

int64_t pvx_ImageProc2_getBufferSizeForResizeImage(const pvx_ImageProc2 *proc, int32_t dstWidth);
int64_t pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(int32_t dstWidth, int32_t format, int32_t workers);
int64_t pvx_ImageProc2_getBufferSizeWithFormat(int32_t width, int32_t height, int32_t format);

// Shrink by an integer factor, averaging factor x factor blocks.
pvx_Result pvx_ImageProc2_averageShrink(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src, int32_t factor);
int64_t pvx_ImageProc2_getBufferSizeForAverageShrink(const pvx_ImageProc2 *proc, int32_t dstWidth);
int64_t pvx_ImageProc2_getBufferSizeWithFormatForAverageShrink(int32_t dstWidth, int32_t format);
