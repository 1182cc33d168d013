// Boundary-tag heap over a caller-supplied work area.
//
// Every word the heap keeps inside the area is 32 bits wide. Free-list links
// are not pointers but offsets of a free block's payload from `first`; such an
// offset is always 8 modulo 16 and at least 8, so the value 0 cannot name a
// block and stands for the list sentinel (the record's free_next/free_prev
// pair). A zeroed record is therefore an empty heap.
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_heap2_fault.h"

#include <stdlib.h>
#include <string.h>

namespace {

const uint32_t kSentinel = 0;        // link value of the free-list sentinel
const uint32_t kInUse = 1;           // in-use bit of a tag
const uint32_t kMinBlock = 16;
const size_t kMaxArea = 0x80000000u;  // areas beyond 2 GiB are used up to 2 GiB
const size_t kMaxRequest = 0x7FFFFFE0u;  // larger requests cannot fit any block

// Object whose address malloc(0) returns: outside every heap, recognised by
// free. Nothing is ever written to it.
alignas(16) uint8_t g_zeroSizeMarker[16];

// Output hook of the heap walk. This build does not log: every line is
// discarded (the format attribute still checks the arguments).
typedef void (*OutputHook)(const char *format, ...);
__attribute__((format(printf, 1, 2))) void discardOutput(const char *, ...) {}
const OutputHook g_output = discardOutput;

// ---- spin lock --------------------------------------------------------------

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ __volatile__("yield" ::: "memory");
#endif
}

void lockHeap(pvx_Heap2 *heap) {
    for (;;) {
        uint32_t expected = 0;
        if (__atomic_compare_exchange_n(&heap->lock, &expected, 1u, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
            break;
        }
        cpuRelax();
    }
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}

void unlockHeap(pvx_Heap2 *heap) {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    __atomic_store_n(&heap->lock, 0u, __ATOMIC_RELEASE);
}

// The statistics are read without the lock, so they are written atomically.
inline uint32_t loadStat(const uint32_t *p) { return __atomic_load_n(p, __ATOMIC_RELAXED); }
inline void storeStat(uint32_t *p, uint32_t v) { __atomic_store_n(p, v, __ATOMIC_RELAXED); }

// Misuse or damage found: stop, leaving the lock held so that nothing else
// touches the heap on the way down.
[[noreturn]] void corrupt(pvx_Heap2 *heap) {
    (void)heap;
    pvx_Heap2_fatal();
}

// ---- words in the area, addressed by offset from `first` ---------------------

inline uint32_t rd(const pvx_Heap2 *heap, uint32_t off) {
    uint32_t v;
    memcpy(&v, heap->first + off, sizeof v);
    return v;
}

inline void wr(pvx_Heap2 *heap, uint32_t off, uint32_t v) { memcpy(heap->first + off, &v, sizeof v); }

// Offset of `last` from `first`: the sentinel block's header.
inline uint32_t lastOff(const pvx_Heap2 *heap) {
    return static_cast<uint32_t>(heap->last - heap->first);
}

inline uint32_t nextOf(const pvx_Heap2 *heap, uint32_t link) {
    return link == kSentinel ? heap->free_next : rd(heap, link);
}
inline uint32_t prevOf(const pvx_Heap2 *heap, uint32_t link) {
    return link == kSentinel ? heap->free_prev : rd(heap, link + 4);
}
inline void setNext(pvx_Heap2 *heap, uint32_t link, uint32_t v) {
    if (link == kSentinel) heap->free_next = v;
    else wr(heap, link, v);
}
inline void setPrev(pvx_Heap2 *heap, uint32_t link, uint32_t v) {
    if (link == kSentinel) heap->free_prev = v;
    else wr(heap, link + 4, v);
}

// A link is the sentinel or the payload offset of a block header in
// [first, last), whose payload is 16-aligned.
inline bool linkWellFormed(const pvx_Heap2 *heap, uint32_t link) {
    if (link == kSentinel) return true;
    if (link < 8) return false;
    uint32_t h = link - 8;
    return h < lastOff(heap) && (h & 15u) == 0;
}

// Checks the block whose header is at offset h: payload 16-aligned, header in
// [first, last], a size that is a positive multiple of 16 reaching no further
// than `last`, and a following block whose preceding tag repeats the size
// word. Returns the size word, or 0 when any of this fails.
uint32_t checkBlock(const pvx_Heap2 *heap, uint32_t h) {
    const uint32_t lo = lastOff(heap);
    if (h > lo) return 0;
    if (((reinterpret_cast<uintptr_t>(heap->first) + h + 8) & 15u) != 0) return 0;
    uint32_t word = rd(heap, h + 4);
    uint32_t size = word & ~kInUse;
    if (size < kMinBlock || (size & 15u) != 0 || size > lo - h) return 0;
    if (rd(heap, h + size) != word) return 0;
    return word;
}

// Node validation for a free-list member `link`: its block, its free state,
// both links well formed, and both neighbours pointing back at it. Returns the
// block size, or 0 when any of this fails.
uint32_t checkNode(const pvx_Heap2 *heap, uint32_t link) {
    if (link == kSentinel || link < 8) return 0;
    uint32_t word = checkBlock(heap, link - 8);
    if (word == 0 || (word & kInUse) != 0) return 0;
    uint32_t next = nextOf(heap, link);
    uint32_t prev = prevOf(heap, link);
    if (!linkWellFormed(heap, next) || !linkWellFormed(heap, prev)) return 0;
    if (prevOf(heap, next) != link || nextOf(heap, prev) != link) return 0;
    return word;
}

uint32_t validateNode(pvx_Heap2 *heap, uint32_t link) {
    uint32_t size = checkNode(heap, link);
    if (size == 0) corrupt(heap);
    return size;
}

// Upper bound on the number of free nodes; a longer list walk means a cycle.
inline uint32_t maxNodes(const pvx_Heap2 *heap) { return lastOff(heap) / kMinBlock + 1; }

void unlinkNode(pvx_Heap2 *heap, uint32_t link) {
    uint32_t next = nextOf(heap, link);
    uint32_t prev = prevOf(heap, link);
    setNext(heap, prev, next);
    setPrev(heap, next, prev);
}

void pushFront(pvx_Heap2 *heap, uint32_t link) {
    uint32_t head = heap->free_next;
    setNext(heap, link, head);
    setPrev(heap, link, kSentinel);
    setPrev(heap, head, link);
    heap->free_next = link;
}

inline unsigned addr32(const void *p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

// Address a link stands for, for the report lines.
inline unsigned linkAddr(const pvx_Heap2 *heap, uint32_t link) {
    return link == kSentinel ? addr32(&heap->free_next) : addr32(heap->first + link);
}

// Walks every block and the free list, reporting each line to the output
// hook. Returns 0, or PVX_ERROR_STATE at the first inconsistency; *inUse tells
// whether an allocated block was seen. Called with the lock held.
pvx_Result walk(pvx_Heap2 *heap, bool *inUse) {
    *inUse = false;
    g_output("[HEAP2] -- dump --\n");
    g_output("[HEAP2] %u bytes alloced (max %u, whole %u)\n", heap->used, heap->max_used,
             static_cast<unsigned>(heap->last - heap->first));
    if (heap->first == nullptr) {
        if (heap->last != nullptr || heap->free_next != kSentinel || heap->free_prev != kSentinel) {
            return PVX_ERROR_STATE;
        }
        g_output("[HEAP2]\n");
        return PVX_OK;
    }
    if (heap->last <= heap->first || rd(heap, 0) != kInUse || rd(heap, lastOff(heap) + 4) != kInUse) {
        return PVX_ERROR_STATE;
    }
    const uint32_t lo = lastOff(heap);
    const uint32_t limit = maxNodes(heap);
    uint32_t freeBlocks = 0;
    uint32_t usedBytes = 0;
    uint32_t h = 0;
    while (h < lo) {
        uint32_t word = checkBlock(heap, h);
        if (word == 0) return PVX_ERROR_STATE;
        uint32_t size = word & ~kInUse;
        const uint8_t *payload = heap->first + h + 8;
        const uint8_t *end = heap->first + h + size;
        uint32_t bytes = (size - 8) & ~1u;
        if (word & kInUse) {
            *inUse = true;
            usedBytes += size;
            g_output("[HEAP2]  use #%08X:#%08X(%10u)\n", addr32(payload), addr32(end), bytes);
        } else {
            // Free blocks are never adjacent: coalescing merges them at once.
            if ((rd(heap, h) & kInUse) == 0) return PVX_ERROR_STATE;
            uint32_t link = heap->free_next;
            uint32_t steps = 0;
            for (;;) {
                if (++steps > limit || checkNode(heap, link) == 0) return PVX_ERROR_STATE;
                if (link == h + 8) break;
                link = nextOf(heap, link);
            }
            const uint32_t next = nextOf(heap, link);
            ++freeBlocks;
            g_output("[HEAP2] FREE #%08X:#%08X(%10u) --> #%08X (--> #%08X)\n", addr32(payload), addr32(end),
                     bytes, linkAddr(heap, next), linkAddr(heap, nextOf(heap, next)));
        }
        h += size;
    }
    if (h != lo || usedBytes != heap->used) return PVX_ERROR_STATE;
    // Every list member was met as a free block of the area: same count.
    uint32_t listed = 0;
    for (uint32_t link = heap->free_next; link != kSentinel; link = nextOf(heap, link)) {
        if (++listed > freeBlocks) return PVX_ERROR_STATE;
    }
    if (listed != freeBlocks) return PVX_ERROR_STATE;
    g_output("[HEAP2]\n");
    return PVX_OK;
}

// Leaves the heap without an area: no blocks, empty free list, no use.
void clearArea(pvx_Heap2 *heap) {
    heap->first = nullptr;
    heap->last = nullptr;
    heap->free_next = kSentinel;
    heap->free_prev = kSentinel;
    storeStat(&heap->used, 0);
    storeStat(&heap->max_used, 0);
}

// Walks every block under the lock; a heap the walk cannot follow is corrupt.
void checkedWalk(pvx_Heap2 *heap) {
    lockHeap(heap);
    bool inUse = false;
    if (walk(heap, &inUse) != PVX_OK) corrupt(heap);
    unlockHeap(heap);
}

}  // namespace

void pvx_Heap2_fatal(void) {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    abort();
}

pvx_Result pvx_construct_Heap2(pvx_Heap2 *heap, void *start, size_t size) {
    if (heap == nullptr) return PVX_ERROR_PARAM;
    lockHeap(heap);
    if (size != 0 && start == nullptr) corrupt(heap);
    clearArea(heap);
    if (start != nullptr) {
        if (size > kMaxArea) size = kMaxArea;
        const uintptr_t s = reinterpret_cast<uintptr_t>(start);
        // The area must exist: neither its end nor the alignment slack wraps.
        if (size < 24 || s > UINTPTR_MAX - size) corrupt(heap);
        const uintptr_t p0 = (s + 23) & ~static_cast<uintptr_t>(15);
        const uintptr_t e = (s + size - 8) & ~static_cast<uintptr_t>(15);
        if (e <= p0) corrupt(heap);  // first >= last: not even one 16-byte block
        uint8_t *base = static_cast<uint8_t *>(start);
        heap->first = base + (p0 - 8 - s);
        heap->last = base + (e - 8 - s);
        const uint32_t total = static_cast<uint32_t>(e - p0);
        wr(heap, 0, kInUse);
        wr(heap, 4, total);
        wr(heap, total, total);
        wr(heap, total + 4, kInUse);
        pushFront(heap, 8);
    }
    unlockHeap(heap);
    return PVX_OK;
}

pvx_Result pvx_destruct_Heap2(pvx_Heap2 *heap) {
    if (heap == nullptr) return PVX_ERROR_PARAM;
    lockHeap(heap);
    bool inUse = false;
    if (walk(heap, &inUse) != PVX_OK) corrupt(heap);
    clearArea(heap);
    unlockHeap(heap);
    return inUse ? PVX_ERROR_STATE : PVX_OK;
}

void *pvx_Heap2_malloc(pvx_Heap2 *heap, size_t n) {
    if (heap == nullptr) return nullptr;
    if (n == 0) return g_zeroSizeMarker;
    if (n > kMaxRequest || pvx_Heap2_faultRefuses()) return nullptr;
    uint32_t need = static_cast<uint32_t>(n) + 8;
    need = need <= kMinBlock ? kMinBlock : (need + 15u) & ~15u;

    lockHeap(heap);
    const uint32_t limit = maxNodes(heap);
    uint32_t steps = 0;
    uint32_t link = heap->free_next;
    uint32_t size = 0;
    while (link != kSentinel) {
        if (++steps > limit) corrupt(heap);
        size = validateNode(heap, link);
        if (size >= need) break;
        link = nextOf(heap, link);
    }
    if (link == kSentinel) {
        unlockHeap(heap);
        return nullptr;
    }
    unlinkNode(heap, link);
    const uint32_t h = link - 8;
    uint32_t given = size;
    if (size - need >= kMinBlock) {
        // Split: the remainder becomes a free block right behind, tried first.
        const uint32_t rest = size - need;
        const uint32_t r = h + need;
        wr(heap, r + 4, rest);
        wr(heap, r + rest, rest);
        pushFront(heap, r + 8);
        given = need;
    }
    const uint32_t used = loadStat(&heap->used) + given;
    storeStat(&heap->used, used);
    if (used > loadStat(&heap->max_used)) storeStat(&heap->max_used, used);
    wr(heap, h + 4, given | kInUse);
    wr(heap, h + given, given | kInUse);
    uint8_t *p = heap->first + link;
    unlockHeap(heap);
    return p;
}

pvx_Result pvx_Heap2_free(pvx_Heap2 *heap, void *p) {
    if (heap == nullptr) return PVX_ERROR_PARAM;
    if (p == nullptr || p == g_zeroSizeMarker) return PVX_OK;
    lockHeap(heap);
    // Foreign pointers, double frees and damaged tags all stop here.
    const uintptr_t pa = reinterpret_cast<uintptr_t>(p);
    const uintptr_t fa = reinterpret_cast<uintptr_t>(heap->first);
    if (heap->first == nullptr || (pa & 15u) != 0 || pa < fa + 8 || pa - 8 - fa > lastOff(heap)) {
        corrupt(heap);
    }
    uint32_t h = static_cast<uint32_t>(pa - 8 - fa);
    const uint32_t word = checkBlock(heap, h);
    if (word == 0 || (word & kInUse) == 0) corrupt(heap);
    uint32_t size = word & ~kInUse;
    const uint32_t used = loadStat(&heap->used);
    if (used < size) corrupt(heap);
    storeStat(&heap->used, used - size);
    wr(heap, h + 4, size);

    const uint32_t before = rd(heap, h);
    if ((before & kInUse) == 0) {
        if (before < kMinBlock || before > h) corrupt(heap);
        const uint32_t ph = h - before;
        if (validateNode(heap, ph + 8) != before) corrupt(heap);
        unlinkNode(heap, ph + 8);
        h = ph;
        size += before;
    }
    const uint32_t f = h + size;
    const uint32_t after = rd(heap, f + 4);
    if ((after & kInUse) == 0) {
        if (validateNode(heap, f + 8) != after) corrupt(heap);
        unlinkNode(heap, f + 8);
        size += after;
    }
    wr(heap, h + 4, size);
    wr(heap, h + size, size);
    pushFront(heap, h + 8);
    unlockHeap(heap);
    return PVX_OK;
}

uint32_t pvx_Heap2_getUsedSize(const pvx_Heap2 *heap) {
    return heap ? loadStat(&heap->used) : 0;
}

uint32_t pvx_Heap2_getMaxUsedSize(const pvx_Heap2 *heap) {
    return heap ? loadStat(&heap->max_used) : 0;
}

uint32_t pvx_Heap2_getFreeSize(pvx_Heap2 *heap) {
    if (heap == nullptr) return 0;
    lockHeap(heap);
    const uint32_t limit = maxNodes(heap);
    uint32_t steps = 0;
    uint32_t largest = 0;
    for (uint32_t link = heap->free_next; link != kSentinel; link = nextOf(heap, link)) {
        if (++steps > limit) corrupt(heap);
        uint32_t size = validateNode(heap, link);
        if (size - 8 > largest) largest = size - 8;
    }
    unlockHeap(heap);
    return largest;
}

int32_t pvx_Heap2_checks(pvx_Heap2 *heap) {
    if (heap == nullptr) return 0;
    checkedWalk(heap);
    return 1;
}

pvx_Result pvx_Heap2_dump(pvx_Heap2 *heap) {
    if (heap == nullptr) return PVX_ERROR_PARAM;
    checkedWalk(heap);
    return PVX_OK;
}
