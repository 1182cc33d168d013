// Shared between the parallel layer's source files.
#pragma once

#include "runtime/pvx_pel.h"

// What a submission run on the calling thread sees: worker 0 of 1, `n`
// tasks, no affinity, no started flag and no claim counter.
pvx_PelInfo pvx_Pel_directInfo(const pvx_PelDescriptor *desc, int32_t n);

// Runs a submission at once on the calling thread, as a null pool does.
// The descriptor is not null; an unknown kind or a missing direct entry
// gives PVX_ERROR_PARAM.
pvx_Result pvx_Pel_runDirect(const pvx_PelDescriptor *desc, void *arg, int32_t n);
