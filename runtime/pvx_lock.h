// A lock of one of two kinds: a reentrant system mutex (kind 0, its
// pthread_mutex_t taken from the heap) or a spin lock on one word (kind 1)
// that never yields and is not reentrant. Operations go through the
// function pointers that init sets, so a lock that was only constructed
// answers PVX_ERROR_STATE.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

enum : int32_t { PVX_LOCK_REENTRANT = 0, PVX_LOCK_SPIN = 1 };

struct pvx_Lock;
typedef pvx_Result (*pvx_LockTryOp)(pvx_Lock *lock, int32_t *acquired);
typedef pvx_Result (*pvx_LockOp)(pvx_Lock *lock);

struct pvx_Lock {
    pvx_Env *env;
    pthread_mutex_t *mutex;       // kind 0: heap block holding the mutex
    std::atomic<uint32_t> word;   // kind 1: 0 free, 1 held
    int32_t kind;
    pvx_LockTryOp tryLock;
    pvx_LockOp lock;
    pvx_LockOp unlock;
    pvx_LockOp destroy;
};

pvx_Result pvx_construct_Lock(pvx_Lock *lock, pvx_Env *env);
pvx_Result pvx_destruct_Lock(pvx_Lock *lock);
// Recycles an initialised lock first.
pvx_Result pvx_Lock_init(pvx_Lock *lock, int32_t kind);
pvx_Result pvx_Lock_recycle(pvx_Lock *lock);
// A lock held elsewhere gives acquired 0 and result 0.
pvx_Result pvx_Lock_tryLock(pvx_Lock *lock, int32_t *acquired);
pvx_Result pvx_Lock_lock(pvx_Lock *lock);
pvx_Result pvx_Lock_unlock(pvx_Lock *lock);
// Heap bytes init takes: kind 0 the mutex, kind 1 none, other kinds -1.
int32_t pvx_Lock_getBufferSize(int32_t kind);
