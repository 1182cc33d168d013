#include "engine_internals.h"

#include "engine/pvx_engine_context.h"
#include "lens/pvx_grid_build.h"
#include "render/pvx_renderer2_params.h"
#include "runtime/pvx_pel.h"

namespace parvex_python {

int64_t meshVertexCount(int32_t outWidth, int32_t outHeight) {
    const int64_t cell = pvx_Grid_cellSize(outWidth, outHeight);
    return ((outWidth + cell - 1) / cell + 1) * ((outHeight + cell - 1) / cell + 1);
}

int64_t meshVertexLimit() { return PVX_RENDERER2_MAX_VERTICES; }

int32_t maxWorkers() { return PVX_PEL_MAX_THREADS; }

uint32_t setWorkerCount(parvex_DistortionCorrection *handle, int32_t workers) {
    // start() sets the pool up with the processor count; setting it up again
    // in place keeps the pointers the renderer and resizer hold.
    pvx_PelParams params;
    pvx_Pel_resetParams(&params);
    params.numWorkers = workers;
    return pvx_Pel_init(&static_cast<pvx_EngineContext *>(handle->p)->pel, &params);
}

}  // namespace parvex_python
