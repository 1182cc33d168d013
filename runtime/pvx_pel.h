// Parallel execution layer: a fixed pool of worker threads, started at init
// and kept until recycle, that runs tasks, indexed kernels and range kernels.
// A null pool runs every submission at once on the calling thread, so all
// callers have one code path.
#pragma once

#include <atomic>
#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

struct pvx_PelDescriptor;

// What a work function learns about the call it serves.
struct pvx_PelInfo {
    int32_t worker;                  // 0 .. W-1: which thread runs this call (the caller counts as one)
    int32_t workers;                 // W
    int32_t count;                   // n, the number of tasks of the command
    int32_t wantAffinity;            // non-zero: bind to `affinityMask` before the first task
    uint32_t affinityMask;           // this worker's processor mask
    int32_t *started;                // this worker's started flag for the command (may be null)
    std::atomic<int32_t> *counter;   // the command's shared claim counter (kinds 1 and 2)
    const pvx_PelDescriptor *descriptor;  // the command's descriptor
};

typedef pvx_Result (*pvx_PelTaskFn)(void *arg, const pvx_PelInfo *info);
typedef pvx_Result (*pvx_PelIndexFn)(void *arg, int32_t index, const pvx_PelInfo *info);
typedef pvx_Result (*pvx_PelRangeFn)(void *arg, int32_t begin, int32_t end, const pvx_PelInfo *info);

enum : int32_t {
    PVX_PEL_TASK = 0,      // run once
    PVX_PEL_INDEXED = 1,   // every index 0 .. n-1 once, on any worker
    PVX_PEL_RANGE = 2,     // indices claimed one at a time from the shared counter
};

// A constant record in the submitter's code. `threaded` is what each
// participating worker runs; `task`/`index`/`range` (by kind) does the work
// and is also called directly when there is no pool. For kinds 1 and 2 the
// threaded entry claims indices from info->counter until it draws one at or
// beyond info->count; pvx_Pel_indexedWorker and pvx_Pel_rangeWorker are
// ready-made threaded entries that do exactly that.
struct pvx_PelDescriptor {
    pvx_PelTaskFn threaded;
    pvx_PelTaskFn task;
    pvx_PelIndexFn index;
    pvx_PelRangeFn range;
    int32_t kind;
};

// Ready-made threaded entries (arg is the submission's argument; the
// descriptor is found through info). They return the OR of the statuses.
pvx_Result pvx_Pel_indexedWorker(void *arg, const pvx_PelInfo *info);
pvx_Result pvx_Pel_rangeWorker(void *arg, const pvx_PelInfo *info);
pvx_Result pvx_Pel_taskWorker(void *arg, const pvx_PelInfo *info);

// Pool parameters, ten 32-bit words.
struct pvx_PelParams {
    int32_t numWorkers;          // W; 0 or negative: the processor count
    uint32_t affinityMask;       // 0: the lowest W processors
    int32_t reserved2;
    int32_t callerParticipates;  // default 1: only W-1 threads are started
    int32_t restoreCallerAffinity;
    int32_t reserved5;
    int32_t waitTimeoutMs;       // default 3000
    int32_t reserved7[3];
};

typedef uint32_t pvx_PelEvent;   // command handle: low 14 bits slot, upper bits change on reuse

enum : int32_t { PVX_PEL_MAX_THREADS = 16, PVX_PEL_COMMANDS = 16384, PVX_PEL_DEPENDENCY_NODES = 16383 };

struct pvx_Pel;   // defined in runtime/pvx_pel_record.h

uint32_t pvx_Pel_getBufferSize(void);
pvx_Result pvx_construct_Pel(pvx_Pel *pel, pvx_Env *env);
pvx_Result pvx_destruct_Pel(pvx_Pel *pel);
pvx_Result pvx_Pel_resetParams(pvx_PelParams *params);
pvx_Result pvx_Pel_getParams(const pvx_Pel *pel, pvx_PelParams *params);
pvx_Result pvx_Pel_init(pvx_Pel *pel, const pvx_PelParams *params);  // null params: defaults
pvx_Result pvx_Pel_recycle(pvx_Pel *pel);
int32_t pvx_Pel_getNumberOfWorkers(const pvx_Pel *pel);             // 1 for a null or idle pool

// Submits and waits. n < 0 or a null threaded entry: PVX_ERROR_PARAM.
pvx_Result pvx_Pel_execute(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n);
pvx_Result pvx_Pel_enqueueKernel(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n,
                                 int32_t waitCount, const pvx_PelEvent *waitList, pvx_PelEvent *eventOut);
pvx_Result pvx_Pel_enqueueTask(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg,
                               int32_t waitCount, const pvx_PelEvent *waitList, pvx_PelEvent *eventOut);
pvx_Result pvx_Pel_waitForEvents(pvx_Pel *pel, int32_t count, const pvx_PelEvent *events);
pvx_Result pvx_Pel_retainEvent(pvx_Pel *pel, pvx_PelEvent event);
pvx_Result pvx_Pel_releaseEvent(pvx_Pel *pel, pvx_PelEvent event);

enum : int32_t { PVX_PEL_EVENT_STATE = 0, PVX_PEL_EVENT_RESULT = 1 };
enum : int32_t { PVX_PEL_EVENT_STATE_QUEUED = 0, PVX_PEL_EVENT_STATE_READY = 1,
                 PVX_PEL_EVENT_STATE_RUNNING = 2, PVX_PEL_EVENT_STATE_COMPLETE = 3 };
pvx_Result pvx_Pel_getEventInfo(pvx_Pel *pel, pvx_PelEvent event, int32_t what, uint32_t *out);

enum : int32_t { PVX_PEL_PROFILING_QUEUED = 0, PVX_PEL_PROFILING_START = 1, PVX_PEL_PROFILING_END = 2 };
pvx_Result pvx_Pel_getEventProfilingInfo(pvx_Pel *pel, pvx_PelEvent event, int32_t what, uint64_t *out);
pvx_Result pvx_Pel_finish(pvx_Pel *pel);

#include "runtime/pvx_pel_record.h"
