// Allocation-failure injection for tests: makes the work-area heaps refuse
// one chosen allocation, so that every path that handles a refused
// allocation can be driven. Off unless a test arms it; one process-wide
// countdown shared by every heap (each engine runs its allocations on the
// calling thread, so the count is deterministic for one engine).
#pragma once

#include <stdint.h>

// Arms the fault: the n-th non-empty allocation from now (n >= 1) returns
// null; n = 0 disarms it. Resets the allocation count.
void pvx_Heap2_setAllocationFault(int32_t n);

// Non-empty allocations asked for since the last pvx_Heap2_setAllocationFault.
int32_t pvx_Heap2_allocationCount(void);

// Counts one allocation; true when it is the one to refuse.
bool pvx_Heap2_faultRefuses(void);
