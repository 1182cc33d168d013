// A joinable POSIX thread that runs one entry function and keeps its 32-bit
// result. The record is embedded in its owner; the thread takes no heap
// memory of its own.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

typedef pvx_Result (*pvx_ThreadEntry)(void *arg);

// A thread identifier that can be ordered (pthread_t is an integer on the
// C libraries we run on).
typedef uintptr_t pvx_ThreadId;

struct pvx_Thread;
typedef pvx_Result (*pvx_ThreadJoinOp)(pvx_Thread *thread, pvx_Result *result);

struct pvx_Thread {
    pvx_Env *env;
    pvx_ThreadJoinOp join;   // set while a started thread is not yet joined
    pthread_t handle;
    pvx_Result result;       // the entry's result, valid after the join
    pvx_ThreadEntry entry;
    void *arg;
};

pvx_Result pvx_construct_Thread(pvx_Thread *thread, pvx_Env *env);
// Joins a started thread first; the record is cleared only when that works.
pvx_Result pvx_destruct_Thread(pvx_Thread *thread);
pvx_Result pvx_Thread_start(pvx_Thread *thread, pvx_ThreadEntry entry, void *arg);
// Not started: 0 with a result of 0. The entry's result goes to `result`
// when given, otherwise it is ORed into the returned code.
pvx_Result pvx_Thread_join(pvx_Thread *thread, pvx_Result *result);
// 1 while the thread has been started and not joined.
int32_t pvx_Thread_isStarted(const pvx_Thread *thread);
pvx_ThreadId pvx_Thread_getId(void);
// Heap bytes a thread takes: none.
int32_t pvx_Thread_getBufferSize(void);
