// Record of the parallel layer. It is embedded in the engine context, whose
// size is fixed, so the 16384 command records and the 16383 dependency nodes
// are packed: links are 14-bit slot or node numbers, time stamps are 32-bit
// microsecond counts from the pool's init tick, and only the descriptor and
// argument are native pointers (kept in their own array so that no padding
// is spent on them).
#pragma once

#include <stdint.h>

#include <atomic>

#include "runtime/pvx_condition.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_lock.h"
#include "runtime/pvx_thread.h"

enum : uint32_t {
    PVX_PEL_SLOT_MASK = 0x3FFFu,   // low 14 bits of a handle: the command slot
    PVX_PEL_NO_NODE = 0x3FFFu,     // end of a dependency node chain
    PVX_PEL_NO_BLOCK = 0xFFFFu,
};
enum : int32_t {
    PVX_PEL_MAX_BLOCKS = 256,      // per-worker entries shared out as 256 / W blocks of W
    PVX_PEL_CPU_LIST = 32,
};

// One command: what the pool knows about a submission beyond its descriptor
// and argument. Written under the pool lock only.
struct pvx_PelCommand {
    uint32_t link : 14;         // next slot in the free list or the ready list
    uint32_t generation : 14;   // bits 14..27 of the command's handle; advanced on every release
    uint32_t state : 2;         // PVX_PEL_EVENT_STATE_*
    uint32_t spare0 : 2;
    uint32_t pending : 14;      // wait-list events not complete yet
    uint32_t dependants : 14;   // first dependency node waiting for this command
    uint32_t spare1 : 4;
    int32_t count;              // n
    uint32_t result;            // OR of the participants' results, once complete
    uint32_t queued;            // time stamps: microseconds after the init tick, modulo 2^32
    uint32_t started;
    uint32_t ended;
};

struct pvx_PelWork {
    const pvx_PelDescriptor *descriptor;
    void *arg;
};

// Dependency node: command `command` waits for the command whose chain
// this node is on.
struct pvx_PelNode {
    uint16_t command;
    uint16_t next;
};

// A running kernel: its claim counter and the participants that joined it.
// Block b owns the per-worker entries b*W .. b*W+W-1, one per participant.
struct pvx_PelBlock {
    std::atomic<int32_t> counter;
    uint16_t command;
    uint16_t next;      // free list
    uint8_t joined;     // participants so far (entries handed out)
    uint8_t active;     // participants still running
    uint8_t exhausted;  // a participant returned: no more joiners
    uint8_t spare;
};

struct pvx_PelWorkerEntry {
    int32_t started;    // info->started of the participant
    uint32_t result;    // what its threaded entry returned
};

struct pvx_PelThreadEntry {
    pvx_ThreadId id;
    int32_t worker;
};

struct pvx_PelWorkerArg {
    pvx_Pel *pel;
    int32_t worker;
};

struct pvx_Pel {
    pvx_Env *env;
    uint32_t flags;               // bit 0: initialised
    pvx_PelParams params;
    int32_t workers;              // W
    int32_t threadCount;          // T, threads started by init
    uint32_t mask;                // processors in use (params' mask or the lowest W)
    uint64_t initTick;
    int32_t stop;                 // set by recycle; workers leave their loop

    // Command pool (under the pool lock).
    int32_t freeCount;            // FIFO of free slots, so a slot rests long before reuse
    uint32_t freeHead, freeTail;
    int32_t readyCount;           // FIFO of ready commands; a running kernel stays at the head while it takes joiners
    uint32_t readyHead, readyTail;
    uint32_t headBlock;           // block of the kernel at the ready head once it runs
    int32_t incomplete;           // submitted, not complete
    int32_t freeNodes;
    uint32_t nodeHead;
    int32_t blockCount;           // 256 / W
    int32_t freeBlocks;
    uint32_t blockHead;
    int32_t idleWorkers;          // sleeping on the work condition
    int32_t sleepingHelpers;      // participating waiters asleep on the completion condition
    int32_t sleepingWaiters;      // every thread asleep on the completion condition

    std::atomic<int32_t> startedThreads;
    // Bumped (under the pool lock) whenever work becomes ready or a command
    // completes, so that a thread that just ran out of work can watch for
    // the next event for a moment without the lock before it sleeps.
    std::atomic<uint32_t> news;
    int32_t tableCount;           // (thread id, worker) sorted by id; under locks[1]
    pvx_PelThreadEntry table[PVX_PEL_MAX_THREADS];
    pvx_PelWorkerArg workerArgs[PVX_PEL_MAX_THREADS];
    uint8_t cpuList[PVX_PEL_CPU_LIST];

    pvx_Lock locks[3];            // 0: pool (reentrant); 1: thread table (spin); 2: spare (spin)
    pvx_Condition conditions[2];  // 0: work available; 1: completion and space
    pvx_Thread threads[PVX_PEL_MAX_THREADS];

    pvx_PelBlock blocks[PVX_PEL_MAX_BLOCKS];
    pvx_PelWorkerEntry entries[PVX_PEL_MAX_BLOCKS];
    pvx_PelNode nodes[PVX_PEL_DEPENDENCY_NODES];
    uint16_t refs[PVX_PEL_COMMANDS];        // event reference counts
    pvx_PelWork work[PVX_PEL_COMMANDS];
    pvx_PelCommand commands[PVX_PEL_COMMANDS];
};

static_assert(sizeof(pvx_PelCommand) == 28, "command records are seven words");
static_assert(sizeof(pvx_PelNode) == 4, "dependency nodes are two 16-bit halves");
static_assert(sizeof(pvx_Pel) <= 854000, "the engine context leaves 854000 bytes for the parallel layer");
