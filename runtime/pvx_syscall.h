// The two system calls the thread layer needs: how many processors there
// are, and binding the calling thread to some of them.
#pragma once

#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

// Configured processors; 1 when there is one or the query fails.
int32_t pvx_Syscall_getNumberOfProcessors(void);

// Tests: makes pvx_Syscall_getNumberOfProcessors answer `count` as if the
// system had that many processors; 0 goes back to asking the system.
void pvx_Syscall_setProcessorCountForTesting(int32_t count);

// Binds the calling thread to the processors whose bits are set in `mask`.
// `env` is not used. PVX_OK, or PVX_ERROR_SYSTEM when the system refuses.
pvx_Result pvx_Syscall_setThreadAffinityMask(pvx_Env *env, uint32_t mask);
