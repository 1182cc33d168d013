// Record of the task executor. Forked tasks are kept in a list of heap
// blocks, each holding the task's event and a copy of its argument block.
#pragma once

#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"

struct pvx_ParallelExecutorTask {
    pvx_ParallelExecutorTask *next;
    pvx_PelEvent event;
    int32_t argSize;
    // The argument copy follows at PVX_PARALLEL_EXECUTOR_ARG_OFFSET.
};

enum : int32_t { PVX_PARALLEL_EXECUTOR_ARG_OFFSET = 16 };   // keeps the copy 16-byte aligned
static_assert(sizeof(pvx_ParallelExecutorTask) <= PVX_PARALLEL_EXECUTOR_ARG_OFFSET, "task header fits");

struct pvx_ParallelExecutor {
    pvx_Env *env;
    pvx_Pel *pel;                      // null: forks run at once on the calling thread
    uint32_t flags;                    // bit 0: initialised
    int32_t forked;                    // tasks in the list
    pvx_ParallelExecutorTask *first;   // forked since the last join, in order
    pvx_ParallelExecutorTask *last;
};
