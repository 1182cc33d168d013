// Work-area allocator: a boundary-tag heap over a caller-supplied region,
// and the environment record that every library object is constructed with.
//
// Blocks are 16-byte aligned, sizes are multiples of 16; a single LIFO free
// list is searched first-fit, blocks are split and coalesced on both sides.
// Every tag and free-list link inside the region is a 32-bit word, so the
// same region layout works on 32-bit and 64-bit targets: a link is the offset
// of a free block's payload from `first` (always 8 modulo 16), and 0 names
// the list sentinel, the record's free_next/free_prev pair. A zeroed record
// is an empty heap. Areas beyond 2 GiB are used up to 2 GiB. Corruption found
// by the checks stops the process; it is never reported as a code.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "runtime/pvx_result.h"

struct pvx_Heap2 {
    uint32_t lock;        // spin lock word: 0 free, 1 held (accessed atomically; 0 before construction)
    uint8_t *first;       // header of the first block
    uint8_t *last;        // header of the end sentinel block
    uint32_t free_next;   // free-list sentinel: first free node (32-bit link, 0 = empty)
    uint32_t free_prev;   // free-list sentinel: last free node (32-bit link, 0 = empty)
    uint32_t used;        // bytes in allocated blocks, headers included
    uint32_t max_used;    // highest value `used` has reached
};

struct pvx_Env {
    pvx_Heap2 heap;
    uint32_t reserved;
    int32_t valid;        // 1 after a successful construction
};

// Environment.
pvx_Result pvx_construct_Env(pvx_Env *env, void *start, size_t size);
pvx_Result pvx_destruct_Env(pvx_Env *env);
void pvx_swap_Env(pvx_Env *a, pvx_Env *b);
// Raw monotonic clock in nanoseconds; 0 when the clock cannot be read.
uint64_t pvx_Env_getTick(void);

// Heap.
pvx_Result pvx_construct_Heap2(pvx_Heap2 *heap, void *start, size_t size);
pvx_Result pvx_destruct_Heap2(pvx_Heap2 *heap);   // PVX_ERROR_STATE when a block is still in use
// null when nothing fits; a fixed marker outside every heap for size 0
void *pvx_Heap2_malloc(pvx_Heap2 *heap, size_t size);
pvx_Result pvx_Heap2_free(pvx_Heap2 *heap, void *p);  // fatal on a foreign pointer or double free
uint32_t pvx_Heap2_getUsedSize(const pvx_Heap2 *heap);
uint32_t pvx_Heap2_getMaxUsedSize(const pvx_Heap2 *heap);
uint32_t pvx_Heap2_getFreeSize(pvx_Heap2 *heap);      // largest single allocation that would succeed
int32_t pvx_Heap2_checks(pvx_Heap2 *heap);           // 1, or stops the process
pvx_Result pvx_Heap2_dump(pvx_Heap2 *heap);

// Stops the process; never returns.
[[noreturn]] void pvx_Heap2_fatal(void);

// Shorthands used by the library's objects: allocate from / give back to the
// environment's heap. A null environment allocates nothing.
inline void *pvx_Env_malloc(pvx_Env *env, size_t size) {
    return env ? pvx_Heap2_malloc(&env->heap, size) : nullptr;
}
inline pvx_Result pvx_Env_free(pvx_Env *env, void *p) {
    return env ? pvx_Heap2_free(&env->heap, p) : PVX_ERROR_PARAM;
}
