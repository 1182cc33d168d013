#include "runtime/pvx_condition.h"

#include <errno.h>
#include <time.h>

#include <limits>

#include "runtime/pvx_record.h"

namespace {

// A condition is only usable with an initialised reentrant lock.
pthread_mutex_t *mutexOf(const pvx_Condition *condition) {
    const pvx_Lock *lock = condition->lock;
    return lock != nullptr && lock->lock != nullptr ? lock->mutex : nullptr;
}

pvx_Result condAwait(pvx_Condition *condition) {
    pthread_mutex_t *m = mutexOf(condition);
    if (m == nullptr) return PVX_ERROR_STATE;
    return pthread_cond_wait(condition->cond, m) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result condAwaitMillis(pvx_Condition *condition, int32_t ms) {
    pthread_mutex_t *m = mutexOf(condition);
    if (m == nullptr) return PVX_ERROR_STATE;
    if (ms < 0) ms = 0;
    struct timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return PVX_ERROR_SYSTEM;
    int64_t sec = static_cast<int64_t>(now.tv_sec) + ms / 1000;
    int64_t nsec = static_cast<int64_t>(now.tv_nsec) + static_cast<int64_t>(ms % 1000) * 1000000;
    if (nsec >= 1000000000) {
        nsec -= 1000000000;
        sec += 1;
    }
    // A 32-bit time_t cannot hold every deadline: wait until its last second.
    const int64_t maxSec = static_cast<int64_t>(std::numeric_limits<time_t>::max());
    if (sec > maxSec) sec = maxSec;
    struct timespec deadline;
    deadline.tv_sec = static_cast<time_t>(sec);
    deadline.tv_nsec = static_cast<long>(nsec);
    const int e = pthread_cond_timedwait(condition->cond, m, &deadline);
    if (e == 0) return PVX_OK;
    return e == ETIMEDOUT ? PVX_ERROR_TIMEOUT : PVX_ERROR_SYSTEM;
}

pvx_Result condSignal(pvx_Condition *condition) {
    return pthread_cond_signal(condition->cond) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result condSignalAll(pvx_Condition *condition) {
    return pthread_cond_broadcast(condition->cond) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result condDestroy(pvx_Condition *condition) {
    const pvx_Result r = pthread_cond_destroy(condition->cond) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
    const pvx_Result f = pvx_Env_free(condition->env, condition->cond);
    if (f == PVX_OK) condition->cond = nullptr;
    return r != PVX_OK ? r : f;
}

// Binds the condition to `lock` and sets its operations, or (lock null)
// clears both.
void bind(pvx_Condition *condition, pvx_Lock *lock) {
    const bool on = lock != nullptr;
    condition->lock = lock;
    condition->await = on ? condAwait : nullptr;
    condition->awaitMillis = on ? condAwaitMillis : nullptr;
    condition->signal = on ? condSignal : nullptr;
    condition->signalAll = on ? condSignalAll : nullptr;
    condition->destroy = on ? condDestroy : nullptr;
}

}  // namespace

pvx_Result pvx_construct_Condition(pvx_Condition *condition, pvx_Env *env) {
    return pvx_Record_construct(condition, env);
}

pvx_Result pvx_destruct_Condition(pvx_Condition *condition) {
    return pvx_Record_destruct(condition, pvx_Condition_recycle);
}

pvx_Result pvx_Condition_init(pvx_Condition *condition, pvx_Lock *lock) {
    if (condition == nullptr || lock == nullptr) return PVX_ERROR_PARAM;
    if (condition->destroy != nullptr) {
        const pvx_Result r = pvx_Condition_recycle(condition);
        if (r != PVX_OK) return r;
    }
    pthread_cond_t *c = static_cast<pthread_cond_t *>(pvx_Env_malloc(condition->env, sizeof(pthread_cond_t)));
    if (c == nullptr) return PVX_ERROR_NOMEM;
    if (pthread_cond_init(c, nullptr) != 0) {
        pvx_Env_free(condition->env, c);
        return PVX_ERROR_SYSTEM;
    }
    condition->cond = c;
    bind(condition, lock);
    return PVX_OK;
}

pvx_Result pvx_Condition_recycle(pvx_Condition *condition) {
    if (condition == nullptr) return PVX_ERROR_PARAM;
    if (condition->destroy == nullptr) return PVX_OK;
    const pvx_Result r = condition->destroy(condition);
    bind(condition, nullptr);
    return r;
}

pvx_Result pvx_Condition_await(pvx_Condition *condition) {
    return pvx_Record_call(condition, &pvx_Condition::await);
}

pvx_Result pvx_Condition_awaitMillis(pvx_Condition *condition, int32_t ms) {
    return pvx_Record_call(condition, &pvx_Condition::awaitMillis, ms);
}

pvx_Result pvx_Condition_signal(pvx_Condition *condition) {
    return pvx_Record_call(condition, &pvx_Condition::signal);
}

pvx_Result pvx_Condition_signalAll(pvx_Condition *condition) {
    if (condition == nullptr) return PVX_ERROR_PARAM;
    // Waking nobody on a condition that was never set up is harmless, and
    // shutdown paths rely on it.
    if (condition->signalAll == nullptr) return PVX_OK;
    return condition->signalAll(condition);
}

int32_t pvx_Condition_getBufferSize(void) { return static_cast<int32_t>(sizeof(pthread_cond_t)); }
