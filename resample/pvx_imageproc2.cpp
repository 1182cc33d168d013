// The image-processing object: construction, destruction, the working-
// resource pair init/recycle, and the parallel layer it runs bands on.
//
// A resize takes its scratch memory from the allocator for the duration of
// the call, so the object holds no resources between calls. Construction
// and init fill the table of group kernels for the processor once, so no
// band tests the processor; recycle has nothing to release. The parallel
// layer is set by setPel alone and is kept across init and recycle.
#include <string.h>

#include "resample/pvx_imageproc2.h"

pvx_Result pvx_construct_ImageProc2(pvx_ImageProc2 *proc, pvx_Env *env) {
    if (!proc) return PVX_ERROR_PARAM;
    memset(proc, 0, sizeof(*proc));
    proc->env = env;
    pvx_ImageProc2_fillLeaves(&proc->leaves);
    return PVX_OK;
}

pvx_Result pvx_destruct_ImageProc2(pvx_ImageProc2 *proc) {
    if (!proc) return PVX_ERROR_PARAM;
    memset(proc, 0, sizeof(*proc));
    return PVX_OK;
}

pvx_Result pvx_ImageProc2_init(pvx_ImageProc2 *proc) {
    if (!proc) return PVX_ERROR_PARAM;
    pvx_ImageProc2_fillLeaves(&proc->leaves);
    return PVX_OK;
}

pvx_Result pvx_ImageProc2_recycle(pvx_ImageProc2 *proc) { return proc ? PVX_OK : PVX_ERROR_PARAM; }

pvx_Result pvx_ImageProc2_setPel(pvx_ImageProc2 *proc, pvx_Pel *pel) {
    if (!proc) return PVX_ERROR_PARAM;
    proc->pel = pel;
    return PVX_OK;
}
