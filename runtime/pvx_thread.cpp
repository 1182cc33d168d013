#include "runtime/pvx_thread.h"

#include <string.h>

#include <type_traits>

#include "runtime/pvx_record.h"

static_assert(std::is_integral<pthread_t>::value && sizeof(pthread_t) <= sizeof(pvx_ThreadId),
              "thread ids are compared as integers");

namespace {

void *threadMain(void *p) {
    pvx_Thread *thread = static_cast<pvx_Thread *>(p);
    thread->result = thread->entry(thread->arg);
    return nullptr;
}

pvx_Result joinStarted(pvx_Thread *thread, pvx_Result *result) {
    if (pthread_join(thread->handle, nullptr) != 0) return PVX_ERROR_SYSTEM;
    thread->join = nullptr;
    memset(&thread->handle, 0, sizeof thread->handle);
    const pvx_Result r = thread->result;
    if (result != nullptr) {
        *result = r;
        return PVX_OK;
    }
    return r;
}

}  // namespace

pvx_Result pvx_construct_Thread(pvx_Thread *thread, pvx_Env *env) { return pvx_Record_construct(thread, env); }

pvx_Result pvx_destruct_Thread(pvx_Thread *thread) {
    if (thread == nullptr) return PVX_ERROR_PARAM;
    pvx_Result ignored = PVX_OK;
    const pvx_Result r = pvx_Thread_join(thread, &ignored);
    if (r != PVX_OK) return r;
    pvx_Record_clear(thread);
    return PVX_OK;
}

pvx_Result pvx_Thread_start(pvx_Thread *thread, pvx_ThreadEntry entry, void *arg) {
    if (thread == nullptr || entry == nullptr) return PVX_ERROR_PARAM;
    if (thread->join != nullptr) return PVX_ERROR_STATE;
    thread->entry = entry;
    thread->arg = arg;
    thread->result = PVX_OK;
    if (pthread_create(&thread->handle, nullptr, threadMain, thread) != 0) {
        thread->entry = nullptr;
        thread->arg = nullptr;
        return PVX_ERROR_SYSTEM;
    }
    thread->join = joinStarted;
    return PVX_OK;
}

pvx_Result pvx_Thread_join(pvx_Thread *thread, pvx_Result *result) {
    if (thread == nullptr) return PVX_ERROR_PARAM;
    if (thread->join == nullptr) {
        if (result != nullptr) *result = PVX_OK;
        return PVX_OK;
    }
    return thread->join(thread, result);
}

int32_t pvx_Thread_isStarted(const pvx_Thread *thread) {
    return thread != nullptr && thread->join != nullptr ? 1 : 0;
}

pvx_ThreadId pvx_Thread_getId(void) {
    return static_cast<pvx_ThreadId>(pthread_self());
}

int32_t pvx_Thread_getBufferSize(void) { return 0; }
