// Shared between the parallel layer's source files.
#pragma once

#include "runtime/pvx_pel.h"

// Runs a submission at once on the calling thread, as a null pool does.
// The descriptor is not null; an unknown kind or a missing direct entry
// gives 0x80000001.
pvx_Result pvx_Pel_runDirect(const pvx_PelDescriptor *desc, void *arg, int32_t n);
