// A bounded FIFO of non-null pointers with blocking and timed operations.
// Puts and takes hold separate locks, so one producer and one consumer never
// contend; the element count is shared through an atomic. Nodes come from a
// pool of capacity + 1 records on the heap, handed out in turn by a cursor:
// a FIFO frees them in the order it takes them, so the next node is always
// free while there is room.
//
// A null queue answers PVX_OK to put and offer, null to take and poll, -1 to size. A queue that was
// constructed but not initialised answers PVX_ERROR_STATE (items: null, size: -1).
#pragma once

#include <stdint.h>

#include <atomic>

#include "runtime/pvx_condition.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_lock.h"
#include "runtime/pvx_result.h"

struct pvx_LinkedBlockingQueueNode {
    void *item;
    uint32_t next;   // index of the following node
};

struct pvx_LinkedBlockingQueueOps;

struct pvx_LinkedBlockingQueue {
    pvx_Env *env;
    int32_t capacity;
    pvx_LinkedBlockingQueueNode *nodes;   // capacity + 1 nodes
    pvx_LinkedBlockingQueueNode *head;    // dummy node before the first item (taker side)
    pvx_LinkedBlockingQueueNode *tail;    // last node (putter side); head == tail when empty
    std::atomic<uint32_t> cursor;         // next node to hand out
    std::atomic<int32_t> count;
    pvx_Lock takeLock;
    pvx_Lock putLock;
    pvx_Condition notEmpty;               // with takeLock
    pvx_Condition notFull;                // with putLock
    const pvx_LinkedBlockingQueueOps *ops;   // set by init
};

pvx_Result pvx_construct_LinkedBlockingQueue(pvx_LinkedBlockingQueue *queue, pvx_Env *env);
// PVX_ERROR_STATE while items remain (head != tail); nothing is released then.
pvx_Result pvx_destruct_LinkedBlockingQueue(pvx_LinkedBlockingQueue *queue);
// capacity < 1: PVX_ERROR_PARAM; node pool missing: PVX_ERROR_NOMEM.
pvx_Result pvx_LinkedBlockingQueue_init(pvx_LinkedBlockingQueue *queue, int32_t capacity);
// Back to the constructed state; items still queued are dropped.
pvx_Result pvx_LinkedBlockingQueue_recycle(pvx_LinkedBlockingQueue *queue);

// Waits for room without limit. A null item: PVX_ERROR_PARAM.
pvx_Result pvx_LinkedBlockingQueue_put(pvx_LinkedBlockingQueue *queue, void *item);
// Never waits: PVX_ERROR_TIMEOUT when full.
pvx_Result pvx_LinkedBlockingQueue_offer(pvx_LinkedBlockingQueue *queue, void *item);
// Waits up to ms (negative: 0) for room: PVX_ERROR_TIMEOUT when none came.
pvx_Result pvx_LinkedBlockingQueue_offerMillis(pvx_LinkedBlockingQueue *queue, void *item, int32_t ms);
// Waits for an item without limit.
void *pvx_LinkedBlockingQueue_take(pvx_LinkedBlockingQueue *queue);
// Never waits; null when empty.
void *pvx_LinkedBlockingQueue_poll(pvx_LinkedBlockingQueue *queue);
// Waits up to ms (negative: 0); null when no item came.
void *pvx_LinkedBlockingQueue_pollMillis(pvx_LinkedBlockingQueue *queue, int32_t ms);
int32_t pvx_LinkedBlockingQueue_size(pvx_LinkedBlockingQueue *queue);

// Heap bytes init takes for `capacity` items; -1 when capacity < 1 or the
// size does not fit.
int32_t pvx_LinkedBlockingQueue_getBufferSize(int32_t capacity);
