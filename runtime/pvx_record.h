// What the runtime's records have in common: a record is cleared and bound
// to its heap when it is constructed, and its operations go through function
// pointers that init sets, so one that was only constructed (or has been
// recycled) answers PVX_ERROR_STATE.
#pragma once

#include <string.h>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_result.h"

template <typename Record>
void pvx_Record_clear(Record *record) {
    memset(static_cast<void *>(record), 0, sizeof *record);
}

// Clears `record` and binds it to `env`.
template <typename Record>
pvx_Result pvx_Record_construct(Record *record, pvx_Env *env) {
    if (record == nullptr) return PVX_ERROR_PARAM;
    pvx_Record_clear(record);
    record->env = env;
    return PVX_OK;
}

// Recycles `record`, then clears it whatever the recycle answered.
template <typename Record>
pvx_Result pvx_Record_destruct(Record *record, pvx_Result (*recycle)(Record *)) {
    if (record == nullptr) return PVX_ERROR_PARAM;
    const pvx_Result r = recycle(record);
    pvx_Record_clear(record);
    return r;
}

// Runs the operation `op` of `record` with `args`.
template <typename Record, typename Op, typename... Args>
pvx_Result pvx_Record_call(Record *record, Op Record::*op, Args... args) {
    if (record == nullptr) return PVX_ERROR_PARAM;
    if (record->*op == nullptr) return PVX_ERROR_STATE;
    return (record->*op)(record, args...);
}
