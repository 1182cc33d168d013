// Parallel layer: pool lifecycle, submission, waiting and events.
//
// Everything in the command pool is touched under the pool lock (locks[0]);
// work functions run with it released. A kernel command is run by up to W
// participants: the first one to take it from the ready list gives it a
// block (claim counter and per-participant entries) and it stays at the head
// of the ready list, taking more participants, until it has W of them or one
// of them returns, which means the counter is used up. It completes when the
// last participant has returned.
#include "runtime/pvx_pel.h"

#include <string.h>

#include "runtime/pvx_pel_internal.h"
#include "runtime/pvx_record.h"
#include "runtime/pvx_syscall.h"

namespace {

constexpr uint32_t kInitialised = 1;
constexpr int32_t kMaxRefs = 0xFFFF;

typedef pvx_PelCommand Command;

// A piece of work taken from the ready list by one participant.
struct Job {
    uint32_t slot;
    uint32_t block;   // PVX_PEL_NO_BLOCK for a task
    uint32_t entry;   // index into pel->entries
    const pvx_PelDescriptor *descriptor;
    void *arg;
    int32_t count;
};

// How the calling thread takes part: workers and, when the params say so,
// any other waiting thread run ready work instead of sleeping.
struct Caller {
    int32_t worker;      // worker index, or -1 for a thread that is not a worker
    bool participates;
    bool helped;         // ran at least one job while waiting
};

bool initialised(const pvx_Pel *pel) { return (pel->flags & kInitialised) != 0; }

pvx_Lock *poolLock(pvx_Pel *pel) { return &pel->locks[0]; }
pvx_Lock *tableLock(pvx_Pel *pel) { return &pel->locks[1]; }
pvx_Condition *workCondition(pvx_Pel *pel) { return &pel->conditions[0]; }
pvx_Condition *doneCondition(pvx_Pel *pel) { return &pel->conditions[1]; }

uint32_t nowMicros(const pvx_Pel *pel) {
    return static_cast<uint32_t>((pvx_Env_getTick() - pel->initTick) / 1000u);
}

pvx_PelEvent handleOf(const pvx_Pel *pel, uint32_t slot) {
    return (static_cast<uint32_t>(pel->commands[slot].generation) << 14) | slot;
}

// A handle names a live command when its generation is the slot's current
// one and someone still holds a reference. Bits above the generation are
// never set in a handle.
bool lookup(const pvx_Pel *pel, pvx_PelEvent event, uint32_t *slot) {
    if ((event >> 28) != 0) return false;
    const uint32_t s = event & PVX_PEL_SLOT_MASK;
    if (((handleOf(pel, s) ^ event) & 0x0FFFFFFFu) != 0 || pel->refs[s] == 0) return false;
    *slot = s;
    return true;
}

bool isKernel(const pvx_PelDescriptor *desc) { return desc->kind != PVX_PEL_TASK; }

void defaults(pvx_PelParams *p) {
    memset(p, 0, sizeof *p);
    p->numWorkers = 0;
    p->affinityMask = 0;
    p->callerParticipates = 1;
    p->restoreCallerAffinity = 0;
    p->waitTimeoutMs = 3000;
}

// ---- Pools (pool lock held) ----

// Appends `slot` to a FIFO of commands chained through their links.
void append(pvx_Pel *pel, int32_t &count, uint32_t &head, uint32_t &tail, uint32_t slot) {
    if (count == 0) {
        head = slot;
    } else {
        pel->commands[tail].link = slot;
    }
    tail = slot;
    ++count;
}

void freeCommand(pvx_Pel *pel, uint32_t slot) {
    Command &c = pel->commands[slot];
    // A new generation makes every handle of the old use stale; handle 0
    // (slot 0, generation 0) is never given out.
    uint32_t g = (c.generation + 1u) & 0x3FFFu;
    if (slot == 0 && g == 0) g = 1;
    c.generation = g;
    pel->work[slot].descriptor = nullptr;
    pel->work[slot].arg = nullptr;
    append(pel, pel->freeCount, pel->freeHead, pel->freeTail, slot);
    if (pel->sleepingWaiters > 0) pvx_Condition_signalAll(doneCondition(pel));
}

void pushReady(pvx_Pel *pel, uint32_t slot) {
    pel->commands[slot].state = PVX_PEL_EVENT_STATE_READY;
    append(pel, pel->readyCount, pel->readyHead, pel->readyTail, slot);
    pel->news.fetch_add(1, std::memory_order_release);
}

void popReady(pvx_Pel *pel) {
    pel->readyHead = pel->commands[pel->readyHead].link;
    --pel->readyCount;
    pel->headBlock = PVX_PEL_NO_BLOCK;
}

// Tells sleeping threads that there is ready work.
void announceWork(pvx_Pel *pel) {
    if (pel->idleWorkers > 0) pvx_Condition_signalAll(workCondition(pel));
    if (pel->sleepingHelpers > 0) pvx_Condition_signalAll(doneCondition(pel));
}

void freeBlock(pvx_Pel *pel, uint32_t b) {
    pel->blocks[b].next = static_cast<uint16_t>(pel->blockHead);
    pel->blockHead = b;
    ++pel->freeBlocks;
    pel->news.fetch_add(1, std::memory_order_release);
    // A kernel at the ready head may have been waiting for a block.
    if (pel->readyCount > 0) announceWork(pel);
}

void complete(pvx_Pel *pel, uint32_t slot, pvx_Result result) {
    Command &c = pel->commands[slot];
    c.result = result;
    c.ended = nowMicros(pel);
    c.state = PVX_PEL_EVENT_STATE_COMPLETE;
    --pel->incomplete;
    pel->news.fetch_add(1, std::memory_order_release);
    bool madeReady = false;
    uint32_t n = c.dependants;
    while (n != PVX_PEL_NO_NODE) {
        pvx_PelNode &node = pel->nodes[n];
        Command &d = pel->commands[node.command];
        if (--d.pending == 0) {
            pushReady(pel, node.command);
            madeReady = true;
        }
        const uint32_t next = node.next;
        node.next = static_cast<uint16_t>(pel->nodeHead);
        pel->nodeHead = n;
        ++pel->freeNodes;
        n = next;
    }
    c.dependants = PVX_PEL_NO_NODE;
    if (pel->refs[slot] == 0) freeCommand(pel, slot);
    if (pel->sleepingWaiters > 0) pvx_Condition_signalAll(doneCondition(pel));
    if (madeReady && pel->idleWorkers > 0) pvx_Condition_signalAll(workCondition(pel));
}

// Takes a share of the work at the ready head, if there is one that can run.
bool takeWork(pvx_Pel *pel, Job *job) {
    if (pel->readyCount == 0) return false;
    const uint32_t slot = pel->readyHead;
    Command &c = pel->commands[slot];
    const pvx_PelWork &w = pel->work[slot];
    job->slot = slot;
    job->descriptor = w.descriptor;
    job->arg = w.arg;
    job->count = c.count;
    if (!isKernel(w.descriptor)) {
        popReady(pel);
        c.state = PVX_PEL_EVENT_STATE_RUNNING;
        c.started = nowMicros(pel);
        job->block = PVX_PEL_NO_BLOCK;
        job->entry = 0;
        return true;
    }
    if (c.state == PVX_PEL_EVENT_STATE_READY) {
        if (pel->freeBlocks == 0) return false;
        const uint32_t b = pel->blockHead;
        pvx_PelBlock &blk = pel->blocks[b];
        pel->blockHead = blk.next;
        --pel->freeBlocks;
        blk.counter.store(0, std::memory_order_relaxed);
        blk.command = static_cast<uint16_t>(slot);
        blk.joined = 0;
        blk.active = 0;
        blk.exhausted = 0;
        c.state = PVX_PEL_EVENT_STATE_RUNNING;
        c.started = nowMicros(pel);
        pel->headBlock = b;
    }
    const uint32_t b = pel->headBlock;
    pvx_PelBlock &blk = pel->blocks[b];
    const uint32_t k = blk.joined++;
    ++blk.active;
    job->block = b;
    job->entry = b * static_cast<uint32_t>(pel->workers) + k;
    pel->entries[job->entry].started = 0;
    pel->entries[job->entry].result = PVX_OK;
    if (blk.joined == pel->workers) popReady(pel);
    return true;
}

void finishJob(pvx_Pel *pel, const Job &job, pvx_Result result) {
    if (job.block == PVX_PEL_NO_BLOCK) {
        complete(pel, job.slot, result);
        return;
    }
    pvx_PelBlock &blk = pel->blocks[job.block];
    pel->entries[job.entry].result = result;
    --blk.active;
    if (blk.exhausted == 0) {
        // A participant only returns once the counter is used up: nobody
        // else needs to join.
        blk.exhausted = 1;
        if (pel->readyCount > 0 && pel->readyHead == job.slot) popReady(pel);
    }
    if (blk.active != 0) return;
    const uint32_t first = job.block * static_cast<uint32_t>(pel->workers);
    pvx_Result all = PVX_OK;
    for (uint32_t k = 0; k < blk.joined; ++k) all |= pel->entries[first + k].result;
    freeBlock(pel, job.block);
    complete(pel, job.slot, all);
}

// Runs a job with the pool lock released and takes the lock back.
void runJob(pvx_Pel *pel, const Job &job, const Caller &caller) {
    pvx_Lock_unlock(poolLock(pel));
    pvx_PelInfo info;
    info.worker = caller.worker >= 0 ? caller.worker : 0;
    info.workers = pel->workers;
    info.count = job.count;
    // Workers bound themselves when they started; a helping caller is bound
    // to the first processor only when its own affinity will be put back.
    info.wantAffinity = caller.worker < 0 && pel->params.restoreCallerAffinity != 0 ? 1 : 0;
    info.affinityMask = 1u << pel->cpuList[info.worker];
    int32_t localStarted = 0;
    std::atomic<int32_t> localCounter(0);
    if (job.block != PVX_PEL_NO_BLOCK) {
        info.started = &pel->entries[job.entry].started;
        info.counter = &pel->blocks[job.block].counter;
    } else {
        info.started = &localStarted;
        info.counter = &localCounter;
    }
    info.descriptor = job.descriptor;
    const pvx_Result r = job.descriptor->threaded(job.arg, &info);
    pvx_Lock_lock(poolLock(pel));
    finishJob(pel, job, r);
}

// How long a thread that ran out of work watches for news before it sleeps
// on a condition. Frames take a millisecond or two and a sleeping thread
// takes tens of microseconds to wake, so a participant that waits for the
// last run of a frame, or a worker between the two commands of a zoomed
// frame, does better to spin briefly.
constexpr uint64_t kSpinNanoseconds = 100000;

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__arm__) && defined(__ARM_ARCH) && __ARM_ARCH >= 7)
    __asm__ __volatile__("yield");
#endif
}

// With the pool lock held on entry and on return: releases it and watches
// the news counter for up to kSpinNanoseconds. True when something happened.
bool spinForNews(pvx_Pel *pel) {
    const uint32_t seen = pel->news.load(std::memory_order_acquire);
    pvx_Lock_unlock(poolLock(pel));
    const uint64_t start = pvx_Env_getTick();
    for (uint32_t i = 0;; ++i) {
        cpuRelax();
        if (pel->news.load(std::memory_order_acquire) != seen) break;
        if ((i & 63) == 63 && pvx_Env_getTick() - start >= kSpinNanoseconds) break;
    }
    pvx_Lock_lock(poolLock(pel));
    // Looked at again under the lock: news that came after the spin gave up
    // but before the lock was taken back would otherwise be slept through,
    // its signal having gone to nobody.
    return pel->news.load(std::memory_order_relaxed) != seen;
}

// Sleeps on the completion condition with the wait time-out.
pvx_Result sleepForCompletion(pvx_Pel *pel, const Caller &caller) {
    ++pel->sleepingWaiters;
    if (caller.participates) ++pel->sleepingHelpers;
    const pvx_Result r = pvx_Condition_awaitMillis(doneCondition(pel), pel->params.waitTimeoutMs);
    if (caller.participates) --pel->sleepingHelpers;
    --pel->sleepingWaiters;
    return r;
}

// The worker index of the calling thread, or -1.
int32_t workerIndexOfCaller(pvx_Pel *pel) {
    const pvx_ThreadId self = pvx_Thread_getId();
    int32_t found = -1;
    pvx_Lock_lock(tableLock(pel));
    int32_t lo = 0, hi = pel->tableCount;
    while (lo < hi) {
        const int32_t mid = lo + (hi - lo) / 2;
        if (pel->table[mid].id < self) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    if (lo < pel->tableCount && pel->table[lo].id == self) found = pel->table[lo].worker;
    pvx_Lock_unlock(tableLock(pel));
    return found;
}

Caller identifyCaller(pvx_Pel *pel) {
    Caller c;
    c.worker = workerIndexOfCaller(pel);
    c.participates = c.worker >= 0 || pel->params.callerParticipates != 0;
    c.helped = false;
    return c;
}

void restoreCallerAffinity(pvx_Pel *pel, const Caller &caller) {
    if (!caller.helped || caller.worker >= 0 || pel->params.restoreCallerAffinity == 0) return;
    const uint32_t mask = pel->params.affinityMask != 0 ? pel->params.affinityMask : 0xFFFFFFFFu;
    pvx_Syscall_setThreadAffinityMask(pel->env, mask);
}

bool eventDone(const pvx_Pel *pel, pvx_PelEvent event) {
    uint32_t slot;
    // A handle that went stale while we waited belonged to a command that
    // completed and was released.
    return !lookup(pel, event, &slot) || pel->commands[slot].state == PVX_PEL_EVENT_STATE_COMPLETE;
}

int32_t incompleteEvents(const pvx_Pel *pel, int32_t count, const pvx_PelEvent *events) {
    int32_t n = 0;
    for (int32_t i = 0; i < count; ++i) n += eventDone(pel, events[i]) ? 0 : 1;
    return n;
}

// One step of a wait (pool lock held): a caller that takes part runs a job
// when there is one, otherwise it sleeps until a completion or its time-out.
pvx_Result helpOrSleep(pvx_Pel *pel, Caller *caller) {
    Job job;
    if (caller->participates && takeWork(pel, &job)) {
        caller->helped = true;
        runJob(pel, job, *caller);
        return PVX_OK;
    }
    // The caller re-checks what it waits for after news.
    if (spinForNews(pel)) return PVX_OK;
    return sleepForCompletion(pel, *caller);
}

// Waits (pool lock held) until every listed event is complete.
pvx_Result waitLocked(pvx_Pel *pel, int32_t count, const pvx_PelEvent *events, Caller *caller) {
    // An event once done stays done, so the events before `next` need no
    // second look: long lists cost one pass, not one pass per wake.
    int32_t next = 0;
    for (;;) {
        while (next < count && eventDone(pel, events[next])) ++next;
        if (next == count) return PVX_OK;
        if (pel->stop != 0) return PVX_ERROR_STATE;
        const pvx_Result r = helpOrSleep(pel, caller);
        if (r != PVX_OK) return r;
    }
}

// Waits (pool lock held) until the command in `slot` has completed, however
// long that takes: its work reads the submitter's argument block and writes
// the submitter's memory, so returning earlier would let the submitter free
// memory that workers still use. A wait that timed out or failed on the way
// is reported once the command is complete; otherwise the command's result.
pvx_Result waitUntilComplete(pvx_Pel *pel, uint32_t slot, Caller *caller) {
    const pvx_PelEvent event = handleOf(pel, slot);
    pvx_Result failure = PVX_OK;
    for (;;) {
        const pvx_Result r = waitLocked(pel, 1, &event, caller);
        if (r == PVX_OK) break;
        // A pool being stopped has no workers left to wait for.
        if (pel->stop != 0) return r;
        if (failure == PVX_OK) failure = r;
    }
    return failure != PVX_OK ? failure : pel->commands[slot].result;
}

// Makes a command (pool lock held). `refs` is 1 when someone keeps the
// event, else 0 and the record is given back at completion.
pvx_Result submitLocked(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n, int32_t waitCount,
                        const pvx_PelEvent *waitList, int32_t refs, Caller *caller, uint32_t *slotOut) {
    for (int32_t i = 0; i < waitCount; ++i) {
        uint32_t s;
        if (!lookup(pel, waitList[i], &s)) return PVX_ERROR_PARAM;
    }
    int32_t needed;
    for (;;) {
        if (pel->stop != 0) return PVX_ERROR_STATE;
        needed = incompleteEvents(pel, waitCount, waitList);
        if (needed > PVX_PEL_DEPENDENCY_NODES) return PVX_ERROR_PARAM;
        if (pel->freeCount > 0 && pel->freeNodes >= needed) break;
        const pvx_Result r = helpOrSleep(pel, caller);
        if (r != PVX_OK) return r;
    }
    const uint32_t slot = pel->freeHead;
    pel->freeHead = pel->commands[slot].link;
    --pel->freeCount;
    Command &c = pel->commands[slot];
    pel->work[slot].descriptor = desc;
    pel->work[slot].arg = arg;
    pel->refs[slot] = static_cast<uint16_t>(refs);
    c.count = n;
    c.result = PVX_OK;
    c.pending = static_cast<uint32_t>(needed);
    c.dependants = PVX_PEL_NO_NODE;
    c.queued = nowMicros(pel);
    c.started = 0;
    c.ended = 0;
    c.state = PVX_PEL_EVENT_STATE_QUEUED;
    ++pel->incomplete;
    for (int32_t i = 0; i < waitCount; ++i) {
        uint32_t s;
        if (!lookup(pel, waitList[i], &s) || pel->commands[s].state == PVX_PEL_EVENT_STATE_COMPLETE) continue;
        const uint32_t nd = pel->nodeHead;
        pel->nodeHead = pel->nodes[nd].next;
        --pel->freeNodes;
        pel->nodes[nd].command = static_cast<uint16_t>(slot);
        pel->nodes[nd].next = static_cast<uint16_t>(pel->commands[s].dependants);
        pel->commands[s].dependants = nd;
    }
    if (needed == 0) {
        pushReady(pel, slot);
        announceWork(pel);
    }
    *slotOut = slot;
    return PVX_OK;
}

void releaseLocked(pvx_Pel *pel, uint32_t slot) {
    if (--pel->refs[slot] == 0 && pel->commands[slot].state == PVX_PEL_EVENT_STATE_COMPLETE) freeCommand(pel, slot);
}

pvx_Result validateSubmission(const pvx_PelDescriptor *desc, int32_t n, int32_t waitCount,
                              const pvx_PelEvent *waitList) {
    if (desc == nullptr || desc->threaded == nullptr || n < 0) return PVX_ERROR_PARAM;
    if (desc->kind != PVX_PEL_TASK && desc->kind != PVX_PEL_INDEXED && desc->kind != PVX_PEL_RANGE)
        return PVX_ERROR_PARAM;
    if (waitCount < 0 || (waitCount > 0 && waitList == nullptr)) return PVX_ERROR_PARAM;
    return PVX_OK;
}

pvx_Result enqueue(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n, int32_t waitCount,
                   const pvx_PelEvent *waitList, pvx_PelEvent *eventOut) {
    if (pel == nullptr) {
        if (eventOut != nullptr) *eventOut = 0;
        return pvx_Pel_runDirect(desc, arg, n);
    }
    if (!initialised(pel)) return PVX_ERROR_STATE;
    Caller caller = identifyCaller(pel);
    pvx_Result r = pvx_Lock_lock(poolLock(pel));
    if (r != PVX_OK) return r;
    uint32_t slot = 0;
    r = submitLocked(pel, desc, arg, n, waitCount, waitList, eventOut != nullptr ? 1 : 0, &caller, &slot);
    if (r == PVX_OK && eventOut != nullptr) *eventOut = handleOf(pel, slot);
    pvx_Lock_unlock(poolLock(pel));
    restoreCallerAffinity(pel, caller);
    return r;
}

// ---- Worker threads ----

pvx_Result workerMain(void *p) {
    const pvx_PelWorkerArg *wa = static_cast<const pvx_PelWorkerArg *>(p);
    pvx_Pel *pel = wa->pel;
    Caller self;
    self.worker = wa->worker;
    self.participates = true;
    self.helped = false;
    pel->startedThreads.fetch_add(1, std::memory_order_acq_rel);

    // Register so that a task of ours that submits or waits is recognised.
    const pvx_ThreadId id = pvx_Thread_getId();
    pvx_Lock_lock(tableLock(pel));
    int32_t i = pel->tableCount;
    while (i > 0 && pel->table[i - 1].id > id) {
        pel->table[i] = pel->table[i - 1];
        --i;
    }
    pel->table[i].id = id;
    pel->table[i].worker = self.worker;
    ++pel->tableCount;
    pvx_Lock_unlock(tableLock(pel));

    // A processor that does not exist only leaves the thread unbound.
    pvx_Syscall_setThreadAffinityMask(pel->env, 1u << pel->cpuList[self.worker]);

    pvx_Lock_lock(poolLock(pel));
    bool worked = false;
    while (pel->stop == 0) {
        Job job;
        if (takeWork(pel, &job)) {
            runJob(pel, job, self);
            worked = true;
            continue;
        }
        // Right after a job more work tends to follow (the next command of
        // the same frame): watch for it before sleeping.
        if (worked) {
            worked = false;
            if (spinForNews(pel)) continue;
        }
        ++pel->idleWorkers;
        const pvx_Result r = pvx_Condition_await(workCondition(pel));
        --pel->idleWorkers;
        if (r != PVX_OK) break;
    }
    pvx_Lock_unlock(poolLock(pel));
    return PVX_OK;
}

void resetPools(pvx_Pel *pel) {
    // Slot 1 is handed out first, so the first handles are 1, 2, ... and
    // slot 0 starts at generation 1 (handle 16384).
    for (uint32_t s = 0; s < PVX_PEL_COMMANDS; ++s) {
        Command &c = pel->commands[s];
        memset(static_cast<void *>(&c), 0, sizeof c);
        c.generation = s == 0 ? 1 : 0;
        c.link = (s + 1) & PVX_PEL_SLOT_MASK;
        c.state = PVX_PEL_EVENT_STATE_COMPLETE;
        c.dependants = PVX_PEL_NO_NODE;
        pel->refs[s] = 0;
        pel->work[s].descriptor = nullptr;
        pel->work[s].arg = nullptr;
    }
    pel->freeHead = 1;
    pel->freeTail = 0;
    pel->freeCount = PVX_PEL_COMMANDS;
    pel->readyCount = 0;
    pel->readyHead = 0;
    pel->readyTail = 0;
    pel->headBlock = PVX_PEL_NO_BLOCK;
    pel->incomplete = 0;

    for (uint32_t i = 0; i < PVX_PEL_DEPENDENCY_NODES; ++i) {
        pel->nodes[i].command = 0;
        pel->nodes[i].next = static_cast<uint16_t>(i + 1 < PVX_PEL_DEPENDENCY_NODES ? i + 1 : static_cast<uint32_t>(PVX_PEL_NO_NODE));
    }
    pel->nodeHead = 0;
    pel->freeNodes = PVX_PEL_DEPENDENCY_NODES;

    pel->blockCount = PVX_PEL_MAX_BLOCKS / pel->workers;
    for (int32_t b = 0; b < pel->blockCount; ++b) {
        pel->blocks[b].counter.store(0, std::memory_order_relaxed);
        pel->blocks[b].command = 0;
        pel->blocks[b].next = static_cast<uint16_t>(b + 1 < pel->blockCount ? static_cast<uint32_t>(b + 1) : PVX_PEL_NO_BLOCK);
        pel->blocks[b].joined = 0;
        pel->blocks[b].active = 0;
        pel->blocks[b].exhausted = 0;
    }
    pel->blockHead = 0;
    pel->freeBlocks = pel->blockCount;
    memset(pel->entries, 0, sizeof pel->entries);

    pel->idleWorkers = 0;
    pel->sleepingHelpers = 0;
    pel->sleepingWaiters = 0;
    pel->stop = 0;
    pel->tableCount = 0;
    pel->startedThreads.store(0, std::memory_order_relaxed);
    pel->news.store(0, std::memory_order_relaxed);
}

// Processor numbers of the set bits from 31 down to 0, repeated to fill the list.
void buildCpuList(pvx_Pel *pel) {
    int32_t n = 0;
    for (int32_t bit = 31; bit >= 0; --bit)
        if ((pel->mask >> bit) & 1u) pel->cpuList[n++] = static_cast<uint8_t>(bit);
    for (int32_t i = n; i < PVX_PEL_CPU_LIST; ++i) pel->cpuList[i] = pel->cpuList[i - n];
}

// Stops and joins the started threads, gives back locks and conditions.
pvx_Result shutDown(pvx_Pel *pel) {
    pvx_Result r = PVX_OK;
    if (pvx_Lock_lock(poolLock(pel)) == PVX_OK) {
        pel->stop = 1;
        pel->news.fetch_add(1, std::memory_order_release);
        pvx_Condition_signalAll(workCondition(pel));
        pvx_Condition_signalAll(doneCondition(pel));
        pvx_Lock_unlock(poolLock(pel));
    }
    for (int32_t k = 0; k < pel->threadCount; ++k) {
        pvx_Result ignored;
        r |= pvx_Thread_join(&pel->threads[k], &ignored);
    }
    pel->threadCount = 0;
    pel->tableCount = 0;
    for (int32_t i = 0; i < 2; ++i) r |= pvx_Condition_recycle(&pel->conditions[i]);
    for (int32_t i = 0; i < 3; ++i) r |= pvx_Lock_recycle(&pel->locks[i]);
    pel->flags &= ~kInitialised;
    return r;
}

}  // namespace

// ---- Lifecycle ----

uint32_t pvx_Pel_getBufferSize(void) {
    return static_cast<uint32_t>(4 * pvx_Lock_getBufferSize(PVX_LOCK_REENTRANT) + 2 * pvx_Condition_getBufferSize() +
                                 PVX_PEL_MAX_THREADS * pvx_Thread_getBufferSize());
}

pvx_Result pvx_construct_Pel(pvx_Pel *pel, pvx_Env *env) {
    const pvx_Result r = pvx_Record_construct(pel, env);
    if (r != PVX_OK) return r;
    for (int32_t i = 0; i < 3; ++i) pvx_construct_Lock(&pel->locks[i], env);
    for (int32_t i = 0; i < 2; ++i) pvx_construct_Condition(&pel->conditions[i], env);
    for (int32_t i = 0; i < PVX_PEL_MAX_THREADS; ++i) pvx_construct_Thread(&pel->threads[i], env);
    return PVX_OK;
}

pvx_Result pvx_destruct_Pel(pvx_Pel *pel) {
    if (pel == nullptr) return PVX_ERROR_PARAM;
    pvx_Result r = PVX_OK;
    if (initialised(pel)) r |= shutDown(pel);
    for (int32_t i = 0; i < PVX_PEL_MAX_THREADS; ++i) r |= pvx_destruct_Thread(&pel->threads[i]);
    for (int32_t i = 0; i < 2; ++i) r |= pvx_destruct_Condition(&pel->conditions[i]);
    for (int32_t i = 0; i < 3; ++i) r |= pvx_destruct_Lock(&pel->locks[i]);
    pvx_Record_clear(pel);
    return r;
}

pvx_Result pvx_Pel_resetParams(pvx_PelParams *params) {
    if (params == nullptr) return PVX_ERROR_PARAM;
    defaults(params);
    return PVX_OK;
}

pvx_Result pvx_Pel_getParams(const pvx_Pel *pel, pvx_PelParams *params) {
    if (params == nullptr) return PVX_ERROR_PARAM;
    if (pel == nullptr || !initialised(pel)) {
        defaults(params);
        params->numWorkers = 1;
        return PVX_OK;
    }
    *params = pel->params;
    return PVX_OK;
}

pvx_Result pvx_Pel_init(pvx_Pel *pel, const pvx_PelParams *params) {
    if (pel == nullptr) return PVX_ERROR_PARAM;
    pvx_PelParams p;
    if (params != nullptr) {
        p = *params;
    } else {
        defaults(&p);
    }
    if (initialised(pel)) {
        const pvx_Result r = pvx_Pel_recycle(pel);
        if (r != PVX_OK) return r;
    }
    const int32_t w = p.numWorkers > 0 ? p.numWorkers : pvx_Syscall_getNumberOfProcessors();
    const int32_t t = p.callerParticipates != 0 ? w - 1 : w;
    if (t > PVX_PEL_MAX_THREADS) return PVX_ERROR_PARAM;
    p.numWorkers = w;
    pel->params = p;
    pel->workers = w;
    pel->threadCount = 0;
    pel->mask = p.affinityMask != 0 ? p.affinityMask : (1u << w) - 1u;
    buildCpuList(pel);
    resetPools(pel);
    pel->initTick = pvx_Env_getTick();

    pvx_Result r = pvx_Lock_init(&pel->locks[0], PVX_LOCK_REENTRANT);
    if (r == PVX_OK) r = pvx_Lock_init(&pel->locks[1], PVX_LOCK_SPIN);
    if (r == PVX_OK) r = pvx_Lock_init(&pel->locks[2], PVX_LOCK_SPIN);
    if (r == PVX_OK) r = pvx_Condition_init(&pel->conditions[0], &pel->locks[0]);
    if (r == PVX_OK) r = pvx_Condition_init(&pel->conditions[1], &pel->locks[0]);
    if (r != PVX_OK) {
        shutDown(pel);
        return r;
    }
    const int32_t firstWorker = p.callerParticipates != 0 ? 1 : 0;
    for (int32_t k = 0; k < t; ++k) {
        pel->workerArgs[k].pel = pel;
        pel->workerArgs[k].worker = firstWorker + k;
        r = pvx_Thread_start(&pel->threads[k], workerMain, &pel->workerArgs[k]);
        if (r != PVX_OK) break;
        pel->threadCount = k + 1;
    }
    if (r != PVX_OK) {
        shutDown(pel);
        return r;
    }
    pel->flags |= kInitialised;
    return PVX_OK;
}

pvx_Result pvx_Pel_recycle(pvx_Pel *pel) {
    if (pel == nullptr) return PVX_ERROR_PARAM;
    if (!initialised(pel)) return PVX_OK;
    return shutDown(pel);
}

int32_t pvx_Pel_getNumberOfWorkers(const pvx_Pel *pel) {
    return pel != nullptr && initialised(pel) ? pel->workers : 1;
}

// ---- Submission and waiting ----

pvx_Result pvx_Pel_execute(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n) {
    const pvx_Result v = validateSubmission(desc, n, 0, nullptr);
    if (v != PVX_OK) return v;
    if (pel == nullptr) return pvx_Pel_runDirect(desc, arg, n);
    if (!initialised(pel) || n == 0) return PVX_OK;
    Caller caller = identifyCaller(pel);
    pvx_Result r = pvx_Lock_lock(poolLock(pel));
    if (r != PVX_OK) return r;
    uint32_t slot = 0;
    r = submitLocked(pel, desc, arg, n, 0, nullptr, 1, &caller, &slot);
    if (r == PVX_OK) {
        r = waitUntilComplete(pel, slot, &caller);
        releaseLocked(pel, slot);
    }
    pvx_Lock_unlock(poolLock(pel));
    restoreCallerAffinity(pel, caller);
    return r;
}

pvx_Result pvx_Pel_enqueueKernel(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t n,
                                 int32_t waitCount, const pvx_PelEvent *waitList, pvx_PelEvent *eventOut) {
    const pvx_Result v = validateSubmission(desc, n, waitCount, waitList);
    if (v != PVX_OK) return v;
    if (desc->kind == PVX_PEL_TASK) return PVX_ERROR_PARAM;
    return enqueue(pel, desc, arg, n, waitCount, waitList, eventOut);
}

pvx_Result pvx_Pel_enqueueTask(pvx_Pel *pel, const pvx_PelDescriptor *desc, void *arg, int32_t waitCount,
                               const pvx_PelEvent *waitList, pvx_PelEvent *eventOut) {
    const pvx_Result v = validateSubmission(desc, 1, waitCount, waitList);
    if (v != PVX_OK) return v;
    if (desc->kind != PVX_PEL_TASK) return PVX_ERROR_PARAM;
    return enqueue(pel, desc, arg, 1, waitCount, waitList, eventOut);
}

pvx_Result pvx_Pel_waitForEvents(pvx_Pel *pel, int32_t count, const pvx_PelEvent *events) {
    if (count < 0 || (count > 0 && events == nullptr)) return PVX_ERROR_PARAM;
    if (pel == nullptr) return PVX_OK;
    if (!initialised(pel)) return PVX_ERROR_STATE;
    Caller caller = identifyCaller(pel);
    pvx_Result r = pvx_Lock_lock(poolLock(pel));
    if (r != PVX_OK) return r;
    for (int32_t i = 0; i < count && r == PVX_OK; ++i) {
        uint32_t s;
        if (!lookup(pel, events[i], &s)) r = PVX_ERROR_PARAM;
    }
    if (r == PVX_OK) r = waitLocked(pel, count, events, &caller);
    pvx_Lock_unlock(poolLock(pel));
    restoreCallerAffinity(pel, caller);
    return r;
}

pvx_Result pvx_Pel_finish(pvx_Pel *pel) {
    if (pel == nullptr || !initialised(pel)) return PVX_OK;
    Caller caller = identifyCaller(pel);
    pvx_Result r = pvx_Lock_lock(poolLock(pel));
    if (r != PVX_OK) return r;
    for (;;) {
        if (pel->incomplete == 0) break;
        if (pel->stop != 0) {
            r = PVX_ERROR_STATE;
            break;
        }
        r = helpOrSleep(pel, &caller);
        if (r != PVX_OK) break;
    }
    pvx_Lock_unlock(poolLock(pel));
    restoreCallerAffinity(pel, caller);
    return r;
}

// ---- Events ----

namespace {

// Runs `use` on the slot of `event` with the pool lock held; an event the
// pool does not know answers PVX_ERROR_PARAM.
template <typename Use>
pvx_Result withEvent(pvx_Pel *pel, pvx_PelEvent event, Use use) {
    if (!initialised(pel)) return PVX_ERROR_STATE;
    pvx_Result r = pvx_Lock_lock(poolLock(pel));
    if (r != PVX_OK) return r;
    uint32_t s;
    r = lookup(pel, event, &s) ? use(s) : PVX_ERROR_PARAM;
    pvx_Lock_unlock(poolLock(pel));
    return r;
}

}  // namespace

pvx_Result pvx_Pel_retainEvent(pvx_Pel *pel, pvx_PelEvent event) {
    if (pel == nullptr) return PVX_OK;
    return withEvent(pel, event, [pel](uint32_t s) -> pvx_Result {
        if (pel->refs[s] >= kMaxRefs) return PVX_ERROR_PARAM;
        ++pel->refs[s];
        return PVX_OK;
    });
}

pvx_Result pvx_Pel_releaseEvent(pvx_Pel *pel, pvx_PelEvent event) {
    if (pel == nullptr) return PVX_OK;
    return withEvent(pel, event, [pel](uint32_t s) -> pvx_Result {
        releaseLocked(pel, s);
        return PVX_OK;
    });
}

pvx_Result pvx_Pel_getEventInfo(pvx_Pel *pel, pvx_PelEvent event, int32_t what, uint32_t *out) {
    if (out == nullptr || (what != PVX_PEL_EVENT_STATE && what != PVX_PEL_EVENT_RESULT)) return PVX_ERROR_PARAM;
    if (pel == nullptr) {
        // Without a pool the work ran when it was submitted.
        *out = what == PVX_PEL_EVENT_STATE ? static_cast<uint32_t>(PVX_PEL_EVENT_STATE_COMPLETE) : PVX_OK;
        return PVX_OK;
    }
    return withEvent(pel, event, [pel, what, out](uint32_t s) -> pvx_Result {
        *out = what == PVX_PEL_EVENT_STATE ? static_cast<uint32_t>(pel->commands[s].state) : pel->commands[s].result;
        return PVX_OK;
    });
}

pvx_Result pvx_Pel_getEventProfilingInfo(pvx_Pel *pel, pvx_PelEvent event, int32_t what, uint64_t *out) {
    if (out == nullptr || what < PVX_PEL_PROFILING_QUEUED || what > PVX_PEL_PROFILING_END) return PVX_ERROR_PARAM;
    if (pel == nullptr) {
        *out = 0;
        return PVX_OK;
    }
    return withEvent(pel, event, [pel, what, out](uint32_t s) -> pvx_Result {
        const Command &c = pel->commands[s];
        const uint32_t state = c.state;
        uint32_t stamp = c.queued;
        if (what == PVX_PEL_PROFILING_START) {
            stamp = c.started;
            if (state != PVX_PEL_EVENT_STATE_RUNNING && state != PVX_PEL_EVENT_STATE_COMPLETE) return PVX_ERROR_STATE;
        } else if (what == PVX_PEL_PROFILING_END) {
            stamp = c.ended;
            if (state != PVX_PEL_EVENT_STATE_COMPLETE) return PVX_ERROR_STATE;
        }
        // The stamp keeps 32 bits of microseconds; take the latest time
        // not after now that has those bits.
        const uint64_t now = (pvx_Env_getTick() - pel->initTick) / 1000u;
        const uint64_t micros = now - static_cast<uint32_t>(static_cast<uint32_t>(now) - stamp);
        *out = pel->initTick + micros * 1000u;
        return PVX_OK;
    });
}
