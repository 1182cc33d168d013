// Helpers shared by the engine's public entry points.
#pragma once

#include "engine/pvx_engine_context.h"
#include "lens/pvx_grid_build.h"
#include "parvex_distortion_correction.h"

// The context of a non-null handle; null when the handle holds no engine
// (never initialized, or finalized), which the entry points report as a
// state error.
inline pvx_EngineContext *pvx_Engine_context(const parvex_DistortionCorrection *handle) {
    return static_cast<pvx_EngineContext *>(handle->p);
}

// State word of a handle's engine as the calls see it: 0 when it holds
// none, or holds one whose finalize failed.
inline uint32_t pvx_Engine_state(const parvex_DistortionCorrection *handle) {
    const pvx_EngineContext *ctx = pvx_Engine_context(handle);
    if (!ctx || (ctx->state & PVX_ENGINE_DEFUNCT)) return 0u;
    return ctx->state;
}

// The mesh-shaping settings of the context.
pvx_GridGeometry pvx_Engine_geometry(const pvx_EngineContext *ctx);

// Re-runs the cell size and the model fill over the laid-out lattice, and
// plans the frames' cells (the plan's status).
pvx_Result pvx_Engine_fillModelGrid(pvx_EngineContext *ctx);
// Works out once which cells the frames draw and with which kernel; without
// a plan (PVX_ERROR_NOMEM) frames test each cell as they draw it.
pvx_Result pvx_Engine_planFrames(pvx_EngineContext *ctx);
