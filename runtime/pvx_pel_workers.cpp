// The ready-made threaded entries and the direct path used without a pool.
#include "runtime/pvx_pel.h"
#include "runtime/pvx_pel_internal.h"
#include "runtime/pvx_syscall.h"

namespace {

// Takes the next index; one at or beyond `count` means the work is all
// handed out. The counter never moves past `count`, so it cannot overflow.
int32_t claim(std::atomic<int32_t> *counter, int32_t count) {
    int32_t v = counter->load(std::memory_order_relaxed);
    while (v < count) {
        if (counter->compare_exchange_weak(v, v + 1, std::memory_order_relaxed)) return v;
    }
    return v;
}

// The first task of a participant that was asked to bind itself does so;
// when binding fails it tries again before the next task.
template <typename Call>
pvx_Result claimLoop(const pvx_PelInfo *info, Call call) {
    pvx_Result r = PVX_OK;
    bool bind = info->wantAffinity != 0;
    for (;;) {
        const int32_t i = claim(info->counter, info->count);
        if (i >= info->count) break;
        if (bind) bind = pvx_Syscall_setThreadAffinityMask(nullptr, info->affinityMask) != PVX_OK;
        r |= call(i);
        if (info->started != nullptr) *info->started = 1;
    }
    return r;
}

}  // namespace

pvx_Result pvx_Pel_indexedWorker(void *arg, const pvx_PelInfo *info) {
    if (info == nullptr || info->descriptor == nullptr || info->descriptor->index == nullptr || info->counter == nullptr)
        return PVX_ERROR_PARAM;
    const pvx_PelIndexFn fn = info->descriptor->index;
    return claimLoop(info, [&](int32_t i) { return fn(arg, i, info); });
}

pvx_Result pvx_Pel_rangeWorker(void *arg, const pvx_PelInfo *info) {
    if (info == nullptr || info->descriptor == nullptr || info->descriptor->range == nullptr || info->counter == nullptr)
        return PVX_ERROR_PARAM;
    const pvx_PelRangeFn fn = info->descriptor->range;
    return claimLoop(info, [&](int32_t i) { return fn(arg, i, i + 1, info); });
}

pvx_Result pvx_Pel_taskWorker(void *arg, const pvx_PelInfo *info) {
    if (info == nullptr || info->descriptor == nullptr || info->descriptor->task == nullptr) return PVX_ERROR_PARAM;
    if (info->wantAffinity != 0) pvx_Syscall_setThreadAffinityMask(nullptr, info->affinityMask);
    const pvx_Result r = info->descriptor->task(arg, info);
    if (info->started != nullptr) *info->started = 1;
    return r;
}

pvx_PelInfo pvx_Pel_directInfo(const pvx_PelDescriptor *desc, int32_t n) {
    pvx_PelInfo info;
    info.worker = 0;
    info.workers = 1;
    info.count = n;
    info.wantAffinity = 0;
    info.affinityMask = 0;
    info.started = nullptr;
    info.counter = nullptr;
    info.descriptor = desc;
    return info;
}

pvx_Result pvx_Pel_runDirect(const pvx_PelDescriptor *desc, void *arg, int32_t n) {
    const pvx_PelInfo info = pvx_Pel_directInfo(desc, n);
    switch (desc->kind) {
    case PVX_PEL_TASK:
        if (desc->task == nullptr) return PVX_ERROR_PARAM;
        return desc->task(arg, &info);
    case PVX_PEL_INDEXED: {
        if (desc->index == nullptr) return PVX_ERROR_PARAM;
        pvx_Result r = PVX_OK;
        for (int32_t i = 0; i < n; ++i) r |= desc->index(arg, i, &info);
        return r;
    }
    case PVX_PEL_RANGE:
        if (desc->range == nullptr) return PVX_ERROR_PARAM;
        return n >= 1 ? desc->range(arg, 0, n, &info) : PVX_OK;
    default:
        return PVX_ERROR_PARAM;
    }
}
