#include "runtime/pvx_lock.h"

#include <errno.h>

#include "runtime/pvx_record.h"

namespace {

pvx_Result mutexTryLock(pvx_Lock *lock, int32_t *acquired) {
    const int e = pthread_mutex_trylock(lock->mutex);
    if (e == 0) {
        *acquired = 1;
        return PVX_OK;
    }
    *acquired = 0;
    return e == EBUSY ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result mutexLock(pvx_Lock *lock) {
    return pthread_mutex_lock(lock->mutex) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result mutexUnlock(pvx_Lock *lock) {
    return pthread_mutex_unlock(lock->mutex) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}

pvx_Result mutexDestroy(pvx_Lock *lock) {
    pvx_Result r = pthread_mutex_destroy(lock->mutex) == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
    const pvx_Result f = pvx_Env_free(lock->env, lock->mutex);
    if (f == PVX_OK) lock->mutex = nullptr;
    return r != PVX_OK ? r : f;
}

// The spin lock reads before it tries the exchange so that waiting threads
// spin on a shared cache line; acquiring and releasing are sequentially
// consistent, which gives the full fences the lock promises.
pvx_Result spinTryLock(pvx_Lock *lock, int32_t *acquired) {
    uint32_t expected = 0;
    *acquired = lock->word.load(std::memory_order_relaxed) == 0 &&
                        lock->word.compare_exchange_strong(expected, 1u, std::memory_order_seq_cst,
                                                           std::memory_order_relaxed)
                    ? 1
                    : 0;
    return PVX_OK;
}

pvx_Result spinLock(pvx_Lock *lock) {
    for (;;) {
        uint32_t expected = 0;
        if (lock->word.load(std::memory_order_relaxed) == 0 &&
            lock->word.compare_exchange_weak(expected, 1u, std::memory_order_seq_cst, std::memory_order_relaxed))
            return PVX_OK;
    }
}

pvx_Result spinUnlock(pvx_Lock *lock) {
    lock->word.store(0, std::memory_order_seq_cst);
    return PVX_OK;
}

pvx_Result spinDestroy(pvx_Lock *lock) {
    lock->word.store(0, std::memory_order_relaxed);
    return PVX_OK;
}

// The operations of one kind of lock; kNoOps marks a lock that init has not set up.
struct Ops {
    pvx_LockTryOp tryLock;
    pvx_LockOp lock, unlock, destroy;
};
constexpr Ops kMutexOps = {mutexTryLock, mutexLock, mutexUnlock, mutexDestroy};
constexpr Ops kSpinOps = {spinTryLock, spinLock, spinUnlock, spinDestroy};
constexpr Ops kNoOps = {nullptr, nullptr, nullptr, nullptr};

void setOps(pvx_Lock *lock, int32_t kind, const Ops &ops) {
    lock->kind = kind;
    lock->tryLock = ops.tryLock;
    lock->lock = ops.lock;
    lock->unlock = ops.unlock;
    lock->destroy = ops.destroy;
}

}  // namespace

pvx_Result pvx_construct_Lock(pvx_Lock *lock, pvx_Env *env) { return pvx_Record_construct(lock, env); }

pvx_Result pvx_destruct_Lock(pvx_Lock *lock) { return pvx_Record_destruct(lock, pvx_Lock_recycle); }

pvx_Result pvx_Lock_init(pvx_Lock *lock, int32_t kind) {
    if (lock == nullptr) return PVX_ERROR_PARAM;
    if (kind != PVX_LOCK_REENTRANT && kind != PVX_LOCK_SPIN) return PVX_ERROR_PARAM;
    if (lock->destroy != nullptr) {
        const pvx_Result r = pvx_Lock_recycle(lock);
        if (r != PVX_OK) return r;
    }
    if (kind == PVX_LOCK_SPIN) {
        lock->word.store(0, std::memory_order_relaxed);
        setOps(lock, kind, kSpinOps);
        return PVX_OK;
    }
    pthread_mutex_t *m = static_cast<pthread_mutex_t *>(pvx_Env_malloc(lock->env, sizeof(pthread_mutex_t)));
    if (m == nullptr) return PVX_ERROR_NOMEM;
    pthread_mutexattr_t attr;
    bool ok = pthread_mutexattr_init(&attr) == 0;
    if (ok) {
        ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 && pthread_mutex_init(m, &attr) == 0;
        pthread_mutexattr_destroy(&attr);
    }
    if (!ok) {
        pvx_Env_free(lock->env, m);
        return PVX_ERROR_SYSTEM;
    }
    lock->mutex = m;
    setOps(lock, kind, kMutexOps);
    return PVX_OK;
}

pvx_Result pvx_Lock_recycle(pvx_Lock *lock) {
    if (lock == nullptr) return PVX_ERROR_PARAM;
    if (lock->destroy == nullptr) return PVX_OK;
    const pvx_Result r = lock->destroy(lock);
    setOps(lock, 0, kNoOps);
    return r;
}

pvx_Result pvx_Lock_tryLock(pvx_Lock *lock, int32_t *acquired) {
    if (acquired == nullptr) return PVX_ERROR_PARAM;
    return pvx_Record_call(lock, &pvx_Lock::tryLock, acquired);
}

pvx_Result pvx_Lock_lock(pvx_Lock *lock) { return pvx_Record_call(lock, &pvx_Lock::lock); }

pvx_Result pvx_Lock_unlock(pvx_Lock *lock) { return pvx_Record_call(lock, &pvx_Lock::unlock); }

int32_t pvx_Lock_getBufferSize(int32_t kind) {
    if (kind == PVX_LOCK_REENTRANT) return static_cast<int32_t>(sizeof(pthread_mutex_t));
    if (kind == PVX_LOCK_SPIN) return 0;
    return -1;
}
