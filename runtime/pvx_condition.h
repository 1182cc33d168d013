// A condition variable bound to one reentrant pvx_Lock, its pthread_cond_t
// taken from the heap. Timed waits use an absolute deadline on the real-time
// clock. Waiting with the lock taken more than once by the caller would keep
// it held, so callers wait with the lock taken exactly once.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_lock.h"
#include "runtime/pvx_result.h"

struct pvx_Condition;
typedef pvx_Result (*pvx_ConditionOp)(pvx_Condition *condition);
typedef pvx_Result (*pvx_ConditionWaitOp)(pvx_Condition *condition, int32_t ms);

struct pvx_Condition {
    pvx_Env *env;
    pthread_cond_t *cond;   // heap block holding the condition variable
    pvx_Lock *lock;         // the lock waits release and retake
    pvx_ConditionOp await;
    pvx_ConditionWaitOp awaitMillis;
    pvx_ConditionOp signal;
    pvx_ConditionOp signalAll;
    pvx_ConditionOp destroy;
};

pvx_Result pvx_construct_Condition(pvx_Condition *condition, pvx_Env *env);
pvx_Result pvx_destruct_Condition(pvx_Condition *condition);
pvx_Result pvx_Condition_init(pvx_Condition *condition, pvx_Lock *lock);
pvx_Result pvx_Condition_recycle(pvx_Condition *condition);
pvx_Result pvx_Condition_await(pvx_Condition *condition);
// PVX_OK when signalled, PVX_ERROR_TIMEOUT when `ms` (negative: 0) milliseconds passed.
pvx_Result pvx_Condition_awaitMillis(pvx_Condition *condition, int32_t ms);
// Uninitialised: signal answers PVX_ERROR_STATE but signalAll PVX_OK.
pvx_Result pvx_Condition_signal(pvx_Condition *condition);
pvx_Result pvx_Condition_signalAll(pvx_Condition *condition);
int32_t pvx_Condition_getBufferSize(void);
