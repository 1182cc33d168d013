// Task executor: fork tasks onto the parallel layer and join them. A null
// executor runs a forked task at once on the calling thread.
#pragma once

#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_result.h"

struct pvx_ParallelExecutor;   // defined in runtime/pvx_parallel_executor_record.h
struct pvx_ParallelExecutorTask;

pvx_Result pvx_construct_ParallelExecutor(pvx_ParallelExecutor *executor, pvx_Env *env);
// Joins what is still forked; the record is cleared only when that works.
pvx_Result pvx_destruct_ParallelExecutor(pvx_ParallelExecutor *executor);
// Forks go to `pel` (a null pel runs them at once on the calling thread).
pvx_Result pvx_ParallelExecutor_initWithPel(pvx_ParallelExecutor *executor, pvx_Pel *pel);
// Joins what is still forked and returns to the constructed state.
pvx_Result pvx_ParallelExecutor_recycle(pvx_ParallelExecutor *executor);
// A task record with a copy of `argSize` bytes at `arg` (PVX_ERROR_NOMEM when
// the heap has no room), and its release.
pvx_Result pvx_ParallelExecutor_newTask(pvx_ParallelExecutor *executor, const void *arg, int32_t argSize,
                                        pvx_ParallelExecutorTask **task);
pvx_Result pvx_ParallelExecutor_deleteTask(pvx_ParallelExecutor *executor, pvx_ParallelExecutorTask *task);

// `task` is a kind-0 descriptor; its task entry receives a heap copy of the
// `argSize` bytes at `arg`, so the caller's block may go out of scope.
pvx_Result pvx_ParallelExecutor_fork(pvx_ParallelExecutor *executor, const pvx_PelDescriptor *task,
                                     const void *arg, int32_t argSize);
// Waits for every task forked since the last join; 0 or the first error met.
pvx_Result pvx_ParallelExecutor_join(pvx_ParallelExecutor *executor);
// Worker count used to split work into bands (1 for a null executor).
int32_t pvx_ParallelExecutor_getNumberOfWorkers(const pvx_ParallelExecutor *executor);

#include "runtime/pvx_parallel_executor_record.h"
