// The two things the binding needs that the public calls do not offer: the
// size of the correction mesh an output size needs, and a worker count other
// than the processor count. Kept in this one file so that the rest of the
// module sees only the public header.
#pragma once

#include <stdint.h>

#include "parvex_distortion_correction.h"

namespace parvex_python {

// Vertices of the mesh the engine lays over a width x height output, and the
// most it can lay out; beyond that it draws nothing.
int64_t meshVertexCount(int32_t outWidth, int32_t outHeight);
int64_t meshVertexLimit();

// Most worker threads an engine runs (the calling thread counts as one).
int32_t maxWorkers();

// Restarts the started engine's worker pool with `workers` threads.
uint32_t setWorkerCount(parvex_DistortionCorrection *handle, int32_t workers);

}  // namespace parvex_python
