// The environment record: the work-area heap every library object allocates
// from, and the tick counter.
#include <string.h>
#include <time.h>

#include "runtime/pvx_heap2.h"

pvx_Result pvx_construct_Env(pvx_Env *env, void *start, size_t size) {
    if (env == nullptr) return PVX_ERROR_PARAM;
    memset(env, 0, sizeof *env);
    pvx_Result r = pvx_construct_Heap2(&env->heap, start, size);
    if (r == PVX_OK) env->valid = 1;
    return r;
}

pvx_Result pvx_destruct_Env(pvx_Env *env) {
    if (env == nullptr) return PVX_ERROR_PARAM;
    pvx_Result r = pvx_destruct_Heap2(&env->heap);
    env->valid = 0;
    return r;
}

void pvx_swap_Env(pvx_Env *a, pvx_Env *b) {
    if (a == nullptr || b == nullptr || a == b) return;
    pvx_Env t;
    memcpy(&t, a, sizeof t);
    memcpy(a, b, sizeof t);
    memcpy(b, &t, sizeof t);
}

uint64_t pvx_Env_getTick(void) {
    struct timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC_RAW, &ts) != 0) return 0;
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}
