#include "runtime/pvx_parallel_executor.h"

#include <string.h>

#include "runtime/pvx_pel_internal.h"
#include "runtime/pvx_record.h"

namespace {

constexpr uint32_t kInitialised = 1;

void *argCopyOf(pvx_ParallelExecutorTask *task) {
    return reinterpret_cast<uint8_t *>(task) + PVX_PARALLEL_EXECUTOR_ARG_OFFSET;
}

pvx_Result runAtOnce(const pvx_PelDescriptor *task, const void *arg) {
    if (task->task == nullptr) return PVX_ERROR_PARAM;
    const pvx_PelInfo info = pvx_Pel_directInfo(task, 1);
    return task->task(const_cast<void *>(arg), &info);
}

}  // namespace

pvx_Result pvx_construct_ParallelExecutor(pvx_ParallelExecutor *executor, pvx_Env *env) {
    return pvx_Record_construct(executor, env);
}

pvx_Result pvx_destruct_ParallelExecutor(pvx_ParallelExecutor *executor) {
    if (executor == nullptr) return PVX_ERROR_PARAM;
    const pvx_Result r = pvx_ParallelExecutor_recycle(executor);
    if (r != PVX_OK) return r;
    pvx_Record_clear(executor);
    return PVX_OK;
}

pvx_Result pvx_ParallelExecutor_initWithPel(pvx_ParallelExecutor *executor, pvx_Pel *pel) {
    if (executor == nullptr) return PVX_ERROR_PARAM;
    if ((executor->flags & kInitialised) != 0) {
        const pvx_Result r = pvx_ParallelExecutor_recycle(executor);
        if (r != PVX_OK) return r;
    }
    executor->pel = pel;
    executor->flags |= kInitialised;
    return PVX_OK;
}

pvx_Result pvx_ParallelExecutor_recycle(pvx_ParallelExecutor *executor) {
    if (executor == nullptr) return PVX_ERROR_PARAM;
    if ((executor->flags & kInitialised) == 0) return PVX_OK;
    const pvx_Result r = pvx_ParallelExecutor_join(executor);
    // Tasks that could not be waited for may still read their copies.
    if (executor->first != nullptr) return r != PVX_OK ? r : PVX_ERROR_STATE;
    executor->pel = nullptr;
    executor->flags &= ~kInitialised;
    return PVX_OK;
}

pvx_Result pvx_ParallelExecutor_newTask(pvx_ParallelExecutor *executor, const void *arg, int32_t argSize,
                                        pvx_ParallelExecutorTask **task) {
    if (executor == nullptr || task == nullptr || argSize < 0 || (argSize > 0 && arg == nullptr))
        return PVX_ERROR_PARAM;
    const size_t bytes = static_cast<size_t>(PVX_PARALLEL_EXECUTOR_ARG_OFFSET) + static_cast<uint32_t>(argSize);
    if (bytes < static_cast<uint32_t>(argSize)) return PVX_ERROR_NOMEM;
    pvx_ParallelExecutorTask *t = static_cast<pvx_ParallelExecutorTask *>(pvx_Env_malloc(executor->env, bytes));
    if (t == nullptr) return PVX_ERROR_NOMEM;
    t->next = nullptr;
    t->event = 0;
    t->argSize = argSize;
    if (argSize > 0) memcpy(argCopyOf(t), arg, static_cast<size_t>(argSize));
    *task = t;
    return PVX_OK;
}

pvx_Result pvx_ParallelExecutor_deleteTask(pvx_ParallelExecutor *executor, pvx_ParallelExecutorTask *task) {
    if (executor == nullptr) return PVX_ERROR_PARAM;
    if (task == nullptr) return PVX_OK;
    return pvx_Env_free(executor->env, task);
}

pvx_Result pvx_ParallelExecutor_fork(pvx_ParallelExecutor *executor, const pvx_PelDescriptor *task,
                                     const void *arg, int32_t argSize) {
    if (task == nullptr) return PVX_ERROR_PARAM;
    if (executor == nullptr) return runAtOnce(task, arg);
    if (task->threaded == nullptr || argSize < 0 || (argSize > 0 && arg == nullptr)) return PVX_ERROR_PARAM;
    if ((executor->flags & kInitialised) == 0) return PVX_ERROR_STATE;
    if (executor->pel == nullptr) return runAtOnce(task, arg);
    pvx_ParallelExecutorTask *t = nullptr;
    pvx_Result r = pvx_ParallelExecutor_newTask(executor, arg, argSize, &t);
    if (r != PVX_OK) return r;
    r = pvx_Pel_enqueueTask(executor->pel, task, argCopyOf(t), 0, nullptr, &t->event);
    if (r != PVX_OK) {
        pvx_ParallelExecutor_deleteTask(executor, t);
        return r;
    }
    if (executor->last != nullptr) {
        executor->last->next = t;
    } else {
        executor->first = t;
    }
    executor->last = t;
    ++executor->forked;
    return PVX_OK;
}

pvx_Result pvx_ParallelExecutor_join(pvx_ParallelExecutor *executor) {
    if (executor == nullptr) return PVX_OK;
    if ((executor->flags & kInitialised) == 0) return PVX_ERROR_STATE;
    pvx_Result err = PVX_OK;
    while (executor->first != nullptr) {
        pvx_ParallelExecutorTask *t = executor->first;
        const pvx_Result w = pvx_Pel_waitForEvents(executor->pel, 1, &t->event);
        // A task that was not waited for keeps its record: it may still be
        // reading its argument copy. The next join tries again.
        if (w != PVX_OK) return err != PVX_OK ? err : w;
        uint32_t result = PVX_OK;
        const pvx_Result g = pvx_Pel_getEventInfo(executor->pel, t->event, PVX_PEL_EVENT_RESULT, &result);
        if (err == PVX_OK) err = g != PVX_OK ? g : result;
        pvx_Pel_releaseEvent(executor->pel, t->event);
        executor->first = t->next;
        if (executor->first == nullptr) executor->last = nullptr;
        --executor->forked;
        pvx_ParallelExecutor_deleteTask(executor, t);
    }
    return err;
}

int32_t pvx_ParallelExecutor_getNumberOfWorkers(const pvx_ParallelExecutor *executor) {
    return executor != nullptr ? pvx_Pel_getNumberOfWorkers(executor->pel) : 1;
}
