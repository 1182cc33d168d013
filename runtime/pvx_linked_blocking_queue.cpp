#include "runtime/pvx_linked_blocking_queue.h"

#include <string.h>
#include <time.h>

#include "runtime/pvx_record.h"

struct pvx_LinkedBlockingQueueOps {
    pvx_Result (*put)(pvx_LinkedBlockingQueue *queue, void *item, int32_t ms);   // ms < 0: no limit
    void *(*take)(pvx_LinkedBlockingQueue *queue, int32_t ms);                   // ms < 0: no limit
};

namespace {

typedef pvx_LinkedBlockingQueue Queue;

constexpr uint32_t kNoNode = 0xFFFFFFFFu;

int64_t monotonicMs() {
    struct timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return 0;
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Waits on `cond` until `deadline` (monotonic ms); limited < 0 waits without
// limit. PVX_OK after a wake (the caller re-checks), PVX_ERROR_TIMEOUT once it passed.
pvx_Result waitUntil(pvx_Condition *cond, bool limited, int64_t deadline) {
    if (!limited) return pvx_Condition_await(cond);
    const int64_t left = deadline - monotonicMs();
    if (left <= 0) return PVX_ERROR_TIMEOUT;
    const pvx_Result r = pvx_Condition_awaitMillis(cond, left > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(left));
    return r == PVX_ERROR_TIMEOUT ? PVX_OK : r;   // the loop sees the deadline next time round
}

// Links an item behind the tail; the caller holds the put lock and has seen
// room, so the node under the cursor is free.
void enqueue(Queue *q, void *item) {
    const uint32_t last = static_cast<uint32_t>(q->capacity);
    uint32_t index = q->cursor.load(std::memory_order_relaxed);
    while (!q->cursor.compare_exchange_weak(index, index == last ? 0 : index + 1, std::memory_order_relaxed)) {
    }
    pvx_LinkedBlockingQueueNode *node = &q->nodes[index];
    node->item = item;
    node->next = kNoNode;
    q->tail->next = index;
    q->tail = node;
}

// Unlinks the first item; the caller holds the take lock and has seen one.
// The old dummy node is dropped and the first node becomes the dummy.
void *dequeue(Queue *q) {
    pvx_LinkedBlockingQueueNode *first = &q->nodes[q->head->next];
    q->head = first;
    void *item = first->item;
    first->item = nullptr;
    return item;
}

void signalNotEmpty(Queue *q) {
    pvx_Lock_lock(&q->takeLock);
    pvx_Condition_signal(&q->notEmpty);
    pvx_Lock_unlock(&q->takeLock);
}

void signalNotFull(Queue *q) {
    pvx_Lock_lock(&q->putLock);
    pvx_Condition_signal(&q->notFull);
    pvx_Lock_unlock(&q->putLock);
}

pvx_Result queuePut(Queue *q, void *item, int32_t ms) {
    const bool limited = ms >= 0;
    const int64_t deadline = limited ? monotonicMs() + ms : 0;
    pvx_Result r = pvx_Lock_lock(&q->putLock);
    if (r != PVX_OK) return r;
    while (q->count.load(std::memory_order_acquire) == q->capacity) {
        r = waitUntil(&q->notFull, limited, deadline);
        if (r != PVX_OK) {
            pvx_Lock_unlock(&q->putLock);
            return r;
        }
    }
    enqueue(q, item);
    const int32_t before = q->count.fetch_add(1, std::memory_order_acq_rel);
    if (before + 1 < q->capacity) pvx_Condition_signal(&q->notFull);
    pvx_Lock_unlock(&q->putLock);
    if (before == 0) signalNotEmpty(q);
    return PVX_OK;
}

void *queueTake(Queue *q, int32_t ms) {
    const bool limited = ms >= 0;
    const int64_t deadline = limited ? monotonicMs() + ms : 0;
    if (pvx_Lock_lock(&q->takeLock) != PVX_OK) return nullptr;
    while (q->count.load(std::memory_order_acquire) == 0) {
        if (waitUntil(&q->notEmpty, limited, deadline) != PVX_OK) {
            pvx_Lock_unlock(&q->takeLock);
            return nullptr;
        }
    }
    void *item = dequeue(q);
    const int32_t before = q->count.fetch_sub(1, std::memory_order_acq_rel);
    if (before > 1) pvx_Condition_signal(&q->notEmpty);
    pvx_Lock_unlock(&q->takeLock);
    if (before == q->capacity) signalNotFull(q);
    return item;
}

constexpr pvx_LinkedBlockingQueueOps kOps = {queuePut, queueTake};

pvx_Result releaseAll(Queue *q) {
    pvx_Result r = PVX_OK;
    r |= pvx_Condition_recycle(&q->notFull);
    r |= pvx_Condition_recycle(&q->notEmpty);
    r |= pvx_Lock_recycle(&q->putLock);
    r |= pvx_Lock_recycle(&q->takeLock);
    if (q->nodes != nullptr) {
        const pvx_Result f = pvx_Env_free(q->env, q->nodes);
        if (f == PVX_OK) q->nodes = nullptr;
        r |= f;
    }
    q->head = nullptr;
    q->tail = nullptr;
    q->cursor.store(0, std::memory_order_relaxed);
    q->count.store(0, std::memory_order_relaxed);
    q->capacity = 0;
    q->ops = nullptr;
    return r;
}

// Puts and takes of the public calls; ms < 0 waits without limit.
pvx_Result putWithin(pvx_LinkedBlockingQueue *queue, void *item, int32_t ms) {
    if (queue == nullptr) return PVX_OK;
    if (queue->ops == nullptr) return PVX_ERROR_STATE;
    if (item == nullptr) return PVX_ERROR_PARAM;
    return queue->ops->put(queue, item, ms);
}

void *takeWithin(pvx_LinkedBlockingQueue *queue, int32_t ms) {
    if (queue == nullptr || queue->ops == nullptr) return nullptr;
    return queue->ops->take(queue, ms);
}

}  // namespace

pvx_Result pvx_construct_LinkedBlockingQueue(pvx_LinkedBlockingQueue *queue, pvx_Env *env) {
    const pvx_Result r = pvx_Record_construct(queue, env);
    if (r != PVX_OK) return r;
    pvx_construct_Lock(&queue->takeLock, env);
    pvx_construct_Lock(&queue->putLock, env);
    pvx_construct_Condition(&queue->notEmpty, env);
    pvx_construct_Condition(&queue->notFull, env);
    return PVX_OK;
}

pvx_Result pvx_destruct_LinkedBlockingQueue(pvx_LinkedBlockingQueue *queue) {
    if (queue == nullptr) return PVX_ERROR_PARAM;
    if (queue->head != queue->tail) return PVX_ERROR_STATE;
    const pvx_Result r = releaseAll(queue);
    pvx_Record_clear(queue);
    return r;
}

pvx_Result pvx_LinkedBlockingQueue_init(pvx_LinkedBlockingQueue *queue, int32_t capacity) {
    if (queue == nullptr || capacity < 1) return PVX_ERROR_PARAM;
    if (queue->ops != nullptr) {
        const pvx_Result r = releaseAll(queue);
        if (r != PVX_OK) return r;
    }
    const uint64_t bytes = (static_cast<uint64_t>(capacity) + 1) * sizeof(pvx_LinkedBlockingQueueNode);
    if (bytes > static_cast<uint64_t>(SIZE_MAX)) return PVX_ERROR_NOMEM;
    queue->nodes = static_cast<pvx_LinkedBlockingQueueNode *>(pvx_Env_malloc(queue->env, static_cast<size_t>(bytes)));
    if (queue->nodes == nullptr) return PVX_ERROR_NOMEM;
    pvx_Result r = pvx_Lock_init(&queue->takeLock, PVX_LOCK_REENTRANT);
    if (r == PVX_OK) r = pvx_Lock_init(&queue->putLock, PVX_LOCK_REENTRANT);
    if (r == PVX_OK) r = pvx_Condition_init(&queue->notEmpty, &queue->takeLock);
    if (r == PVX_OK) r = pvx_Condition_init(&queue->notFull, &queue->putLock);
    if (r != PVX_OK) {
        releaseAll(queue);
        return r;
    }
    queue->capacity = capacity;
    queue->nodes[0].item = nullptr;
    queue->nodes[0].next = kNoNode;
    queue->head = &queue->nodes[0];
    queue->tail = &queue->nodes[0];
    queue->cursor.store(1, std::memory_order_relaxed);
    queue->count.store(0, std::memory_order_relaxed);
    queue->ops = &kOps;
    return PVX_OK;
}

pvx_Result pvx_LinkedBlockingQueue_recycle(pvx_LinkedBlockingQueue *queue) {
    if (queue == nullptr) return PVX_ERROR_PARAM;
    if (queue->ops == nullptr) return PVX_OK;
    return releaseAll(queue);
}

pvx_Result pvx_LinkedBlockingQueue_put(pvx_LinkedBlockingQueue *queue, void *item) {
    return putWithin(queue, item, -1);
}

pvx_Result pvx_LinkedBlockingQueue_offer(pvx_LinkedBlockingQueue *queue, void *item) {
    return pvx_LinkedBlockingQueue_offerMillis(queue, item, 0);
}

pvx_Result pvx_LinkedBlockingQueue_offerMillis(pvx_LinkedBlockingQueue *queue, void *item, int32_t ms) {
    return putWithin(queue, item, ms < 0 ? 0 : ms);
}

void *pvx_LinkedBlockingQueue_take(pvx_LinkedBlockingQueue *queue) { return takeWithin(queue, -1); }

void *pvx_LinkedBlockingQueue_poll(pvx_LinkedBlockingQueue *queue) {
    return pvx_LinkedBlockingQueue_pollMillis(queue, 0);
}

void *pvx_LinkedBlockingQueue_pollMillis(pvx_LinkedBlockingQueue *queue, int32_t ms) {
    return takeWithin(queue, ms < 0 ? 0 : ms);
}

int32_t pvx_LinkedBlockingQueue_size(pvx_LinkedBlockingQueue *queue) {
    if (queue == nullptr || queue->ops == nullptr) return -1;
    return queue->count.load(std::memory_order_seq_cst);
}

int32_t pvx_LinkedBlockingQueue_getBufferSize(int32_t capacity) {
    if (capacity < 1) return -1;
    const int64_t bytes = static_cast<int64_t>(capacity) * static_cast<int64_t>(sizeof(pvx_LinkedBlockingQueueNode)) +
                          2 * (static_cast<int64_t>(pvx_Condition_getBufferSize()) +
                               pvx_Lock_getBufferSize(PVX_LOCK_REENTRANT)) +
                          16;
    return bytes > 0x7FFFFFFF ? -1 : static_cast<int32_t>(bytes);
}
