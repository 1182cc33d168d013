// Parallel layer: parameters and sizing, the direct path without a pool,
// kernels run by many workers (each index exactly once, results ORed),
// dependency order, time-outs, events and their handles, recycle and init
// again, and nested use from inside a task.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "runtime/pvx_pel.h"
#include "runtime/pvx_syscall.h"
#include "tests/runtime/thread_test_support.h"
#include "tests/support/test_random.h"

namespace {

using namespace pvx_thread_test;
using PelBox = PoolBox;

// Calls `f` until it stops timing out (at most 10 seconds); its last answer.
template <typename F>
pvx_Result untilNoTimeout(F f) {
    pvx_Result r = PVX_ERROR_TIMEOUT;
    const auto t0 = Clock::now();
    while (r == PVX_ERROR_TIMEOUT && secondsSince(t0) < 10.0) r = f();
    return r;
}

// ---- Parameters, sizing, lifecycle ----

// Every one of the ten words 0 but the caller taking part and a 3000 ms wait.
TEST(Pel, ParamsDefaults) {
    static_assert(sizeof(pvx_PelParams) == 40, "ten words");
    pvx_PelParams want, p;
    memset(&want, 0, sizeof want);
    want.callerParticipates = 1;
    want.waitTimeoutMs = 3000;
    memset(&p, 0x5A, sizeof p);
    ASSERT_EQ(pvx_Pel_resetParams(&p), PVX_OK);
    EXPECT_EQ(memcmp(&p, &want, sizeof p), 0);
    EXPECT_EQ(pvx_Pel_resetParams(nullptr), PVX_ERROR_PARAM);
    // Without an initialised pool: the defaults with one worker.
    want.numWorkers = 1;
    PelBox box;
    for (const pvx_Pel *pel : {static_cast<pvx_Pel *>(nullptr), box.pel}) {
        memset(&p, 0x5A, sizeof p);
        ASSERT_EQ(pvx_Pel_getParams(pel, &p), PVX_OK);
        EXPECT_EQ(memcmp(&p, &want, sizeof p), 0);
    }
    EXPECT_EQ(pvx_Pel_getParams(nullptr, nullptr), PVX_ERROR_PARAM);
}

TEST(Pel, BufferSizeAndRecordSize) {
    EXPECT_EQ(pvx_Pel_getBufferSize(),
              static_cast<uint32_t>(4 * pvx_Lock_getBufferSize(PVX_LOCK_REENTRANT) +
                                    2 * pvx_Condition_getBufferSize() + 16 * pvx_Thread_getBufferSize()));
    EXPECT_LE(sizeof(pvx_Pel), 854000u);
    // init takes no more than it reports.
    PelBox box;
    ASSERT_EQ(box.init(3), PVX_OK);
    EXPECT_LE(box.heap.used(), pvx_Pel_getBufferSize() + 6 * 16);
}

TEST(Pel, WorkerCountAndStoredParams) {
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(nullptr), 1);
    PelBox box;
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), 1);   // not initialised
    EXPECT_EQ(pvx_Pel_init(nullptr, nullptr), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_Pel_init(box.pel, nullptr), PVX_OK);   // defaults: one per processor
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), pvx_Syscall_getNumberOfProcessors());
    pvx_PelParams p;
    ASSERT_EQ(pvx_Pel_getParams(box.pel, &p), PVX_OK);
    EXPECT_EQ(p.numWorkers, pvx_Syscall_getNumberOfProcessors());   // stored back
    EXPECT_EQ(p.waitTimeoutMs, 3000);

    ASSERT_EQ(box.init(5, 0, 1234), PVX_OK);   // init again recycles first
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), 5);
    ASSERT_EQ(pvx_Pel_getParams(box.pel, &p), PVX_OK);
    EXPECT_EQ(p.numWorkers, 5);
    EXPECT_EQ(p.callerParticipates, 0);
    EXPECT_EQ(p.waitTimeoutMs, 1234);
    ASSERT_EQ(pvx_Pel_recycle(box.pel), PVX_OK);
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), 1);
    EXPECT_EQ(pvx_Pel_recycle(box.pel), PVX_OK);   // twice is harmless
    EXPECT_EQ(pvx_Pel_recycle(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_construct_Pel(nullptr, nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_destruct_Pel(nullptr), PVX_ERROR_PARAM);
}

struct ThreadLimit {
    int32_t workers;
    int32_t callerParticipates;
    pvx_Result expected;
};

class PelThreadLimit : public ::testing::TestWithParam<ThreadLimit> {};

// At most 16 threads are started: W - 1 with the caller taking part, else W.
TEST_P(PelThreadLimit, MoreThanSixteenThreadsAreRefused) {
    const ThreadLimit c = GetParam();
    PelBox box;
    ASSERT_EQ(box.init(2), PVX_OK);
    EXPECT_EQ(box.init(c.workers, c.callerParticipates), c.expected);
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), c.expected == PVX_OK ? c.workers : 1);
    if (c.expected != PVX_OK) {
        pvx_PelParams p;
        pvx_Pel_getParams(box.pel, &p);
        EXPECT_EQ(p.numWorkers, 1);   // left uninitialised
        EXPECT_EQ(box.heap.used(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Limits, PelThreadLimit,
                         ::testing::Values(ThreadLimit{17, 1, PVX_OK}, ThreadLimit{18, 1, PVX_ERROR_PARAM},
                                           ThreadLimit{16, 0, PVX_OK}, ThreadLimit{17, 0, PVX_ERROR_PARAM},
                                           ThreadLimit{1000, 1, PVX_ERROR_PARAM}));

// ---- The direct path ----

struct CallLog {
    std::vector<std::pair<int32_t, int32_t>> calls;   // (begin, end) or (index, index + 1)
    std::vector<int32_t> counts;
    std::vector<pvx_ThreadId> threads;
    int tasks = 0;
};

pvx_Result logIndex(void *arg, int32_t i, const pvx_PelInfo *info) {
    CallLog *log = static_cast<CallLog *>(arg);
    log->calls.emplace_back(i, i + 1);
    log->counts.push_back(info->count);
    log->threads.push_back(pvx_Thread_getId());
    return i == 3 ? 0x10u : (i == 5 ? 0x100u : 0u);
}

pvx_Result logRange(void *arg, int32_t b, int32_t e, const pvx_PelInfo *info) {
    CallLog *log = static_cast<CallLog *>(arg);
    log->calls.emplace_back(b, e);
    log->counts.push_back(info->count);
    log->threads.push_back(pvx_Thread_getId());
    return 0x20u;
}

pvx_Result logTask(void *arg, const pvx_PelInfo *info) {
    CallLog *log = static_cast<CallLog *>(arg);
    ++log->tasks;
    log->counts.push_back(info->count);
    log->threads.push_back(pvx_Thread_getId());
    return 0x40u;
}

const pvx_PelDescriptor kLogIndexed = {pvx_Pel_indexedWorker, nullptr, logIndex, nullptr, PVX_PEL_INDEXED};
const pvx_PelDescriptor kLogRange = {pvx_Pel_rangeWorker, nullptr, nullptr, logRange, PVX_PEL_RANGE};
const pvx_PelDescriptor kLogTask = {pvx_Pel_taskWorker, logTask, nullptr, nullptr, PVX_PEL_TASK};

// Without a pool: indexed work in order on the caller, a range kernel as one
// call (none for n = 0), a task once, and events that are already complete.
TEST(PelDirect, NullPoolRunsEverythingOnTheCaller) {
    CallLog indexed;
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kLogIndexed, &indexed, 8), 0x110u);
    ASSERT_EQ(indexed.calls.size(), 8u);
    for (int32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(indexed.calls[i].first, i);
        EXPECT_EQ(indexed.counts[i], 8);
        EXPECT_EQ(indexed.threads[i], pvx_Thread_getId());
    }
    CallLog range;
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kLogRange, &range, 37), 0x20u);
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kLogRange, &range, 0), PVX_OK);
    ASSERT_EQ(range.calls.size(), 1u);
    EXPECT_EQ(range.calls[0], std::make_pair(0, 37));
    EXPECT_EQ(range.counts[0], 37);

    CallLog log;
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kLogTask, &log, 4), 0x40u);
    EXPECT_EQ(log.tasks, 1);
    pvx_PelEvent ev = 99;
    EXPECT_EQ(pvx_Pel_enqueueTask(nullptr, &kLogTask, &log, 0, nullptr, &ev), 0x40u);
    EXPECT_EQ(log.tasks, 2);
    EXPECT_EQ(ev, 0u);
    EXPECT_EQ(pvx_Pel_waitForEvents(nullptr, 1, &ev), PVX_OK);
    uint32_t state = 0;
    EXPECT_EQ(pvx_Pel_getEventInfo(nullptr, ev, PVX_PEL_EVENT_STATE, &state), PVX_OK);
    EXPECT_EQ(state, static_cast<uint32_t>(PVX_PEL_EVENT_STATE_COMPLETE));
    EXPECT_EQ(pvx_Pel_enqueueKernel(nullptr, &kLogIndexed, &log, 2, 0, nullptr, nullptr), PVX_OK);
    EXPECT_EQ(log.calls.size(), 2u);
    EXPECT_EQ(pvx_Pel_finish(nullptr), PVX_OK);
}

TEST(PelDirect, ArgumentErrors) {
    CallLog log;
    const pvx_PelDescriptor noThreaded = {nullptr, nullptr, logIndex, nullptr, PVX_PEL_INDEXED};
    const pvx_PelDescriptor badKind = {pvx_Pel_indexedWorker, nullptr, logIndex, nullptr, 3};
    const pvx_PelDescriptor noIndex = {pvx_Pel_indexedWorker, nullptr, nullptr, nullptr, PVX_PEL_INDEXED};
    PelBox box;
    for (pvx_Pel *pel : {static_cast<pvx_Pel *>(nullptr), box.pel}) {
        EXPECT_EQ(pvx_Pel_execute(pel, &kLogIndexed, &log, -1), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_execute(pel, nullptr, &log, 1), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_execute(pel, &noThreaded, &log, 1), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_execute(pel, &badKind, &log, 1), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_enqueueKernel(pel, &kLogIndexed, &log, 1, 1, nullptr, nullptr), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_enqueueKernel(pel, &kLogIndexed, &log, 1, -1, nullptr, nullptr), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_enqueueKernel(pel, &kLogTask, &log, 1, 0, nullptr, nullptr), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_enqueueTask(pel, &kLogIndexed, &log, 0, nullptr, nullptr), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_waitForEvents(pel, 1, nullptr), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_waitForEvents(pel, -1, nullptr), PVX_ERROR_PARAM);
    }
    EXPECT_EQ(pvx_Pel_execute(nullptr, &noIndex, &log, 1), PVX_ERROR_PARAM);
    EXPECT_TRUE(log.calls.empty());
}

// A pool that was constructed but never initialised runs nothing.
TEST(PelDirect, UninitialisedPool) {
    PelBox box;
    CallLog log;
    EXPECT_EQ(pvx_Pel_execute(box.pel, &kLogIndexed, &log, 5), PVX_OK);
    EXPECT_TRUE(log.calls.empty());
    pvx_PelEvent ev = 0;
    EXPECT_EQ(pvx_Pel_enqueueTask(box.pel, &kLogTask, &log, 0, nullptr, &ev), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_enqueueKernel(box.pel, &kLogIndexed, &log, 1, 0, nullptr, &ev), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &ev), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_retainEvent(box.pel, 1), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, 1), PVX_ERROR_STATE);
    uint32_t out;
    EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, 1, PVX_PEL_EVENT_STATE, &out), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_finish(box.pel), PVX_OK);
    EXPECT_EQ(log.tasks, 0);
}

// ---- Kernels on the pool ----

// Shared state of one stress kernel: hits per index and what each
// participant saw.
struct Hits {
    Hits(int32_t n, int32_t workers) : hits(static_cast<size_t>(n)), expectWorkers(workers) {}
    // Every index ran once (none at all: `times` 0) and every call saw the right info.
    bool each(int32_t times = 1) const {
        for (const auto &h : hits)
            if (h.load() != times) return false;
        return badInfo.load() == 0;
    }
    std::vector<std::atomic<int32_t>> hits;
    std::atomic<int32_t> badInfo{0};
    std::atomic<int32_t> workersSeen{0};   // bit per worker index
    int32_t expectWorkers;
    int32_t special = -1;   // the one index that reports a failure bit
};

bool infoOk(const Hits *h, const pvx_PelInfo *info) {
    return info->workers == h->expectWorkers && info->worker >= 0 && info->worker < info->workers &&
           info->count == static_cast<int32_t>(h->hits.size());
}

pvx_Result hitIndex(void *arg, int32_t i, const pvx_PelInfo *info) {
    Hits *h = static_cast<Hits *>(arg);
    if (!infoOk(h, info) || info->started == nullptr) h->badInfo.fetch_add(1);
    h->hits[static_cast<size_t>(i)].fetch_add(1);
    h->workersSeen.fetch_or(1 << info->worker);
    return i == h->special ? 0x8u : 0u;
}

pvx_Result hitRange(void *arg, int32_t b, int32_t e, const pvx_PelInfo *info) {
    Hits *h = static_cast<Hits *>(arg);
    if (!infoOk(h, info) || e != b + 1) h->badInfo.fetch_add(1);
    h->hits[static_cast<size_t>(b)].fetch_add(1);
    return b == h->special ? 0x4u : 0u;
}

const pvx_PelDescriptor kHitIndexed = {pvx_Pel_indexedWorker, nullptr, hitIndex, nullptr, PVX_PEL_INDEXED};
const pvx_PelDescriptor kHitRange = {pvx_Pel_rangeWorker, nullptr, nullptr, hitRange, PVX_PEL_RANGE};

struct StressCase {
    int32_t workers;
    int32_t callerParticipates;
};

class PelStress : public ::testing::TestWithParam<StressCase> {};

// Thousands of executes over all the configurations: every index runs
// exactly once, and the result is the OR of what the indices returned.
TEST_P(PelStress, EveryIndexRunsExactlyOnce) {
    const StressCase c = GetParam();
    PelBox box;
    ASSERT_EQ(box.init(c.workers, c.callerParticipates), PVX_OK);
    auto rng = pvx_test::makeRng(static_cast<uint64_t>(c.workers * 2 + c.callerParticipates));
    const int maxExecutes = pvx_test::rounds(1000);
    const double budget = 1.5 * slack();
    const auto t0 = Clock::now();
    int done = 0;
    for (; done < maxExecutes && (done < 20 || secondsSince(t0) < budget); ++done) {
        const int32_t n = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 2000 : 64));
        Hits h(n, c.workers);
        h.special = rng() % 2 == 0 ? static_cast<int32_t>(rng() % static_cast<uint64_t>(n)) : -1;
        const bool indexed = rng() % 2 == 0;
        const pvx_Result r = pvx_Pel_execute(box.pel, indexed ? &kHitIndexed : &kHitRange, &h, n);
        const pvx_Result expected = h.special < 0 ? PVX_OK : (indexed ? 0x8u : 0x4u);
        ASSERT_EQ(r, expected) << "execute " << done << " n " << n;
        ASSERT_TRUE(h.each()) << "execute " << done << " n " << n;
    }
    RecordProperty("executes", done);
}

INSTANTIATE_TEST_SUITE_P(Workers, PelStress,
                         ::testing::Values(StressCase{1, 1}, StressCase{1, 0}, StressCase{2, 1}, StressCase{2, 0},
                                           StressCase{3, 1}, StressCase{4, 0}, StressCase{5, 1}, StressCase{8, 1},
                                           StressCase{8, 0}, StressCase{13, 1}, StressCase{16, 1},
                                           StressCase{16, 0}, StressCase{17, 1}));

// Several threads execute on one pool at once.
TEST(PelConcurrent, ExecutesFromSeveralThreads) {
    PelBox box;
    ASSERT_EQ(box.init(4), PVX_OK);
    const int perThread = pvx_test::rounds(150);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < perThread; ++k) {
                const int32_t n = 1 + (k * 7 + t) % 300;
                Hits h(n, 4);
                if (pvx_Pel_execute(box.pel, k % 2 ? &kHitIndexed : &kHitRange, &h, n) != PVX_OK || !h.each())
                    ++failures;
            }
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(failures.load(), 0);
}

// A threaded entry of our own: it records how many participants ran at
// once and returns a bit per participant; the command's result must be
// the OR of exactly those bits.
struct Participation {
    std::atomic<int32_t> running{0};
    std::atomic<int32_t> maxRunning{0};
    std::atomic<int32_t> entries{0};
    std::atomic<uint32_t> bits{0};
    std::atomic<int32_t> claimed{0};
};

pvx_Result participate(void *arg, const pvx_PelInfo *info) {
    Participation *p = static_cast<Participation *>(arg);
    const int32_t now = p->running.fetch_add(1) + 1;
    int32_t m = p->maxRunning.load();
    while (now > m && !p->maxRunning.compare_exchange_weak(m, now)) {
    }
    const int32_t k = p->entries.fetch_add(1);
    for (;;) {
        const int32_t i = info->counter->fetch_add(1);
        if (i >= info->count) break;
        p->claimed.fetch_add(1);
        // Slow enough for other participants to join.
        const auto t0 = Clock::now();
        while (secondsSince(t0) < 0.0001) {
        }
    }
    const uint32_t bit = 1u << (k % 31);
    p->bits.fetch_or(bit);
    p->running.fetch_sub(1);
    return bit;
}

const pvx_PelDescriptor kParticipate = {participate, nullptr, nullptr, nullptr, PVX_PEL_INDEXED};

TEST(PelKernel, ResultIsTheOrOfTheParticipantsAndAtMostWJoin) {
    for (int32_t w : {1, 2, 4, 9}) {
        PelBox box;
        ASSERT_EQ(box.init(w), PVX_OK);
        for (int rep = 0; rep < 5; ++rep) {
            Participation p;
            const pvx_Result r = pvx_Pel_execute(box.pel, &kParticipate, &p, 100);
            EXPECT_EQ(r, p.bits.load());
            EXPECT_EQ(p.claimed.load(), 100);
            EXPECT_GE(p.entries.load(), 1);
            EXPECT_LE(p.entries.load(), w);
            EXPECT_LE(p.maxRunning.load(), w);
        }
    }
}

// Each worker is bound to its entry of the processor list: the set bits of
// the mask from high to low, repeated.
struct Masks {
    std::mutex m;
    std::set<std::pair<int32_t, uint32_t>> seen;
};

pvx_Result recordMask(void *arg, const pvx_PelInfo *info) {
    Masks *m = static_cast<Masks *>(arg);
    {
        std::lock_guard<std::mutex> g(m->m);
        m->seen.emplace(info->worker, info->affinityMask);
    }
    // Hold on a little so that other workers get to join.
    const auto t0 = Clock::now();
    while (secondsSince(t0) < 0.001) {
    }
    return PVX_OK;
}

const pvx_PelDescriptor kRecordMask = {recordMask, nullptr, nullptr, nullptr, PVX_PEL_INDEXED};

TEST(PelKernel, ProcessorListRepeatsTheMaskBitsFromTheTop) {
    struct Case {
        uint32_t mask;
        int32_t workers;
        std::vector<int> cpus;   // expected list entries 0 .. W-1
    };
    const Case cases[] = {
        {0x5u, 4, {2, 0, 2, 0}},          // fewer bits than workers
        {0x0u, 3, {2, 1, 0}},             // 0: the lowest W processors
        {0x80000001u, 3, {31, 0, 31}},
    };
    for (const Case &c : cases) {
        PelBox box;
        ASSERT_EQ(box.init(c.workers, 1, 10000, c.mask), PVX_OK);
        Masks m;
        for (int rep = 0; rep < 15; ++rep) ASSERT_EQ(pvx_Pel_execute(box.pel, &kRecordMask, &m, 1), PVX_OK);
        ASSERT_FALSE(m.seen.empty());
        for (const auto &s : m.seen) {
            ASSERT_GE(s.first, 0);
            ASSERT_LT(s.first, c.workers);
            EXPECT_EQ(s.second, 1u << c.cpus[static_cast<size_t>(s.first)]) << "mask " << c.mask << " worker "
                                                                             << s.first;
        }
    }
}

// ---- Tasks and events ----

// Tasks append their number to a log; each may first wait for a flag.
struct TaskLog {
    std::mutex m;
    std::vector<int> order;
    std::atomic<int> gate{1};   // tasks that wait spin until this is non-zero
};

struct TaskArg {
    TaskLog *log;
    int id;
    bool gated;
    pvx_Result result;
};

pvx_Result loggedTask(void *arg, const pvx_PelInfo *) {
    TaskArg *a = static_cast<TaskArg *>(arg);
    if (a->gated) {
        const auto t0 = Clock::now();
        while (a->log->gate.load() == 0 && secondsSince(t0) < 30.0) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    std::lock_guard<std::mutex> g(a->log->m);
    a->log->order.push_back(a->id);
    return a->result;
}

const pvx_PelDescriptor kLoggedTask = {pvx_Pel_taskWorker, loggedTask, nullptr, nullptr, PVX_PEL_TASK};

TEST(PelEvents, DependencyChainRunsInOrder) {
    for (int32_t callerParticipates : {1, 0}) {
        PelBox box;
        ASSERT_EQ(box.init(4, callerParticipates), PVX_OK);
        TaskLog log;
        const int count = 40;
        std::vector<TaskArg> args(count);
        std::vector<pvx_PelEvent> events(count);
        for (int i = 0; i < count; ++i) {
            args[i] = TaskArg{&log, i, false, PVX_OK};
            const pvx_PelEvent *wait = i > 0 ? &events[i - 1] : nullptr;
            ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &args[i], i > 0 ? 1 : 0, wait, &events[i]), PVX_OK);
        }
        ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, count, events.data()), PVX_OK);
        ASSERT_EQ(log.order.size(), static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) EXPECT_EQ(log.order[i], i);
        for (pvx_PelEvent e : events) EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, e), PVX_OK);
    }
}

TEST(PelEvents, StatesAndJoinOfTwoDependencies) {
    PelBox box;
    ASSERT_EQ(box.init(3), PVX_OK);
    TaskLog log;
    log.gate = 0;
    TaskArg a{&log, 1, true, 0x10u};
    TaskArg b{&log, 2, false, PVX_OK};
    TaskArg c{&log, 3, false, PVX_OK};
    pvx_PelEvent ea, eb, ec;
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, &ea), PVX_OK);
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &b, 0, nullptr, &eb), PVX_OK);
    const pvx_PelEvent both[2] = {ea, eb};
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &c, 2, both, &ec), PVX_OK);
    // b is free to run; a is held by the gate, and c waits for it.
    uint32_t state = 99;
    ASSERT_TRUE(waitFor([&] {
        pvx_Pel_getEventInfo(box.pel, eb, PVX_PEL_EVENT_STATE, &state);
        return state == PVX_PEL_EVENT_STATE_COMPLETE;
    }));
    ASSERT_TRUE(waitFor([&] {
        pvx_Pel_getEventInfo(box.pel, ea, PVX_PEL_EVENT_STATE, &state);
        return state == PVX_PEL_EVENT_STATE_RUNNING;
    }));
    ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, ec, PVX_PEL_EVENT_STATE, &state), PVX_OK);
    EXPECT_EQ(state, static_cast<uint32_t>(PVX_PEL_EVENT_STATE_QUEUED));
    uint64_t tick;
    EXPECT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, ec, PVX_PEL_PROFILING_START, &tick), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, ea, PVX_PEL_PROFILING_END, &tick), PVX_ERROR_STATE);
    log.gate = 1;
    ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &ec), PVX_OK);
    ASSERT_EQ(log.order.size(), 3u);
    EXPECT_EQ(log.order[2], 3);
    uint32_t result = 0;
    ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, ea, PVX_PEL_EVENT_RESULT, &result), PVX_OK);
    EXPECT_EQ(result, 0x10u);
    ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, ec, PVX_PEL_EVENT_RESULT, &result), PVX_OK);
    EXPECT_EQ(result, PVX_OK);
    EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, ec, 7, &result), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, ec, PVX_PEL_EVENT_STATE, nullptr), PVX_ERROR_PARAM);
    for (pvx_PelEvent e : {ea, eb, ec}) EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, e), PVX_OK);
}

// A kernel may wait for a task.
TEST(PelEvents, KernelAfterTask) {
    PelBox box;
    ASSERT_EQ(box.init(3), PVX_OK);
    TaskLog log;
    log.gate = 0;
    TaskArg a{&log, 1, true, PVX_OK};
    pvx_PelEvent ea, ek;
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, &ea), PVX_OK);
    Hits h(100, 3);
    ASSERT_EQ(pvx_Pel_enqueueKernel(box.pel, &kHitIndexed, &h, 100, 1, &ea, &ek), PVX_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(h.each(0));
    log.gate = 1;
    ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &ek), PVX_OK);
    EXPECT_TRUE(h.each());
    pvx_Pel_releaseEvent(box.pel, ea);
    pvx_Pel_releaseEvent(box.pel, ek);
}

// A waiter that does not run work itself gives up after the wait time-out.
TEST(PelEvents, WaiterTimesOut) {
    PelBox box;
    ASSERT_EQ(box.init(1, 0, 50), PVX_OK);   // one thread; the caller only waits
    TaskLog log;
    log.gate = 0;
    TaskArg a{&log, 1, true, 0x2u};
    pvx_PelEvent ea;
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, &ea), PVX_OK);
    const auto t0 = Clock::now();
    EXPECT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &ea), PVX_ERROR_TIMEOUT);
    const double s = secondsSince(t0);
    EXPECT_GE(s, 0.045);
    EXPECT_LT(s, 2.0 * slack());
    EXPECT_EQ(pvx_Pel_finish(box.pel), PVX_ERROR_TIMEOUT);
    log.gate = 1;
    ASSERT_EQ(untilNoTimeout([&] { return pvx_Pel_waitForEvents(box.pel, 1, &ea); }), PVX_OK);
    uint32_t result = 0;
    ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, ea, PVX_PEL_EVENT_RESULT, &result), PVX_OK);
    EXPECT_EQ(result, 0x2u);
    EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, ea), PVX_OK);
    EXPECT_EQ(pvx_Pel_finish(box.pel), PVX_OK);
}

// execute from a caller that only waits times out while the only worker
// is busy; the kernel still runs later.
TEST(PelEvents, ExecuteTimesOutWhenTheOnlyWorkerIsBusy) {
    PelBox box;
    ASSERT_EQ(box.init(1, 0, 40), PVX_OK);
    TaskLog log;
    log.gate = 0;
    TaskArg a{&log, 1, true, PVX_OK};
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, nullptr), PVX_OK);
    Hits h(10, 1);
    EXPECT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &h, 10), PVX_ERROR_TIMEOUT);
    log.gate = 1;
    ASSERT_EQ(untilNoTimeout([&] { return pvx_Pel_finish(box.pel); }), PVX_OK);
    EXPECT_TRUE(h.each());
}

TEST(PelEvents, StaleHandlesAreRejected) {
    PelBox box;
    ASSERT_EQ(box.init(2), PVX_OK);
    TaskLog log;
    TaskArg a{&log, 1, false, PVX_OK};
    pvx_PelEvent e;
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, &e), PVX_OK);
    EXPECT_EQ(e, 1u);   // the first command has id 1
    ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &e), PVX_OK);
    // Two references: one release leaves the handle valid.
    ASSERT_EQ(pvx_Pel_retainEvent(box.pel, e), PVX_OK);
    ASSERT_EQ(pvx_Pel_releaseEvent(box.pel, e), PVX_OK);
    uint32_t state;
    ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, e, PVX_PEL_EVENT_STATE, &state), PVX_OK);
    ASSERT_EQ(pvx_Pel_releaseEvent(box.pel, e), PVX_OK);
    EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, e, PVX_PEL_EVENT_STATE, &state), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_retainEvent(box.pel, e), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, e), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &e), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 1, &e, nullptr), PVX_ERROR_PARAM);
    uint64_t tick;
    EXPECT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, e, PVX_PEL_PROFILING_QUEUED, &tick), PVX_ERROR_PARAM);
    for (pvx_PelEvent bogus : {0u, 0xF0000001u, 0x3FFFu, e | 0x10000000u})
        EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, bogus, PVX_PEL_EVENT_STATE, &state), PVX_ERROR_PARAM) << bogus;

    // Fill the whole pool: the released slot is used again under a new handle.
    std::vector<TaskArg> args(PVX_PEL_COMMANDS, TaskArg{&log, 2, false, PVX_OK});
    std::vector<pvx_PelEvent> events(PVX_PEL_COMMANDS);
    for (int i = 0; i < PVX_PEL_COMMANDS; ++i)
        ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &args[i], 0, nullptr, &events[i]), PVX_OK) << i;
    ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, PVX_PEL_COMMANDS, events.data()), PVX_OK);
    int sameSlot = 0;
    for (pvx_PelEvent ev : events) {
        if ((ev & 0x3FFFu) != (e & 0x3FFFu)) continue;
        ++sameSlot;
        EXPECT_NE(ev, e);
        EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, ev, PVX_PEL_EVENT_STATE, &state), PVX_OK);
    }
    EXPECT_EQ(sameSlot, 1);
    EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, e, PVX_PEL_EVENT_STATE, &state), PVX_ERROR_PARAM);
    std::set<pvx_PelEvent> distinct(events.begin(), events.end());
    EXPECT_EQ(distinct.size(), events.size());
    for (pvx_PelEvent ev : events) ASSERT_EQ(pvx_Pel_releaseEvent(box.pel, ev), PVX_OK);
}

// A full pool makes the submitter help (or wait) until a record is free.
TEST(PelEvents, SubmitterWaitsForSpace) {
    PelBox box;
    ASSERT_EQ(box.init(2), PVX_OK);
    TaskLog log;
    std::vector<TaskArg> args(PVX_PEL_COMMANDS + 100, TaskArg{&log, 0, false, PVX_OK});
    for (size_t i = 0; i < args.size(); ++i)
        ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &args[i], 0, nullptr, nullptr), PVX_OK) << i;
    ASSERT_EQ(pvx_Pel_finish(box.pel), PVX_OK);
    EXPECT_EQ(log.order.size(), args.size());
}

TEST(PelEvents, ProfilingTicksAreOrderedAndInRange) {
    PelBox box;
    ASSERT_EQ(box.init(2), PVX_OK);
    TaskLog log;
    TaskArg a{&log, 1, false, PVX_OK};
    const uint64_t before = pvx_Env_getTick();
    pvx_PelEvent e;
    ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &a, 0, nullptr, &e), PVX_OK);
    ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &e), PVX_OK);
    const uint64_t after = pvx_Env_getTick();
    uint64_t q = 0, s = 0, f = 0;
    ASSERT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, e, PVX_PEL_PROFILING_QUEUED, &q), PVX_OK);
    ASSERT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, e, PVX_PEL_PROFILING_START, &s), PVX_OK);
    ASSERT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, e, PVX_PEL_PROFILING_END, &f), PVX_OK);
    EXPECT_EQ(pvx_Pel_getEventProfilingInfo(box.pel, e, 3, &f), PVX_ERROR_PARAM);
    // Stamps keep whole microseconds.
    EXPECT_GT(q + 1000, before);
    EXPECT_LE(q, s);
    EXPECT_LE(s, f);
    EXPECT_LE(f, after);
    pvx_Pel_releaseEvent(box.pel, e);
}

// ---- Lifecycle with threads ----

TEST(PelLifecycle, RecycleWhileIdleAndInitAgain) {
    PelBox box;
    for (int round = 0; round < 4; ++round) {
        ASSERT_EQ(box.init(1 + round * 2, round % 2), PVX_OK);
        Hits h(500, 1 + round * 2);
        ASSERT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &h, 500), PVX_OK);
        ASSERT_TRUE(h.each());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));   // workers go back to sleep
        ASSERT_EQ(pvx_Pel_recycle(box.pel), PVX_OK);
        EXPECT_EQ(box.heap.used(), 0u);
        // Nothing runs on a recycled pool.
        Hits none(3, 1);
        EXPECT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &none, 3), PVX_OK);
        EXPECT_TRUE(none.each(0));
    }
    ASSERT_EQ(box.init(4), PVX_OK);   // destructed while initialised
}

TEST(PelLifecycle, OneWorkerWithTheCallerStartsNoThreadAndRunsOnTheCaller) {
    PelBox box;
    ASSERT_EQ(box.init(1, 1), PVX_OK);
    CallLog log;
    ASSERT_EQ(pvx_Pel_execute(box.pel, &kLogIndexed, &log, 6), 0x110u);
    ASSERT_EQ(log.calls.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(log.calls[i].first, static_cast<int32_t>(i));   // one participant claims in order
        EXPECT_EQ(log.threads[i], pvx_Thread_getId());
    }
    EXPECT_EQ(pvx_Pel_execute(box.pel, &kLogIndexed, &log, 0), PVX_OK);   // n = 0 runs nothing
    EXPECT_EQ(log.calls.size(), 6u);
}

// A task that submits work to its own pool and waits: the waiting worker
// runs the work itself, even when it is the only thread.
struct Nested {
    pvx_Pel *pel;
    int32_t workers;
    std::atomic<int32_t> failures{0};
};

pvx_Result nestedTask(void *arg, const pvx_PelInfo *) {
    Nested *n = static_cast<Nested *>(arg);
    Hits h(300, n->workers);
    if (pvx_Pel_execute(n->pel, &kHitIndexed, &h, 300) != PVX_OK || !h.each()) n->failures.fetch_add(1);
    return PVX_OK;
}

const pvx_PelDescriptor kNested = {pvx_Pel_taskWorker, nestedTask, nullptr, nullptr, PVX_PEL_TASK};

TEST(PelLifecycle, NestedExecuteFromATask) {
    for (int32_t w : {1, 3}) {
        PelBox box;
        ASSERT_EQ(box.init(w, 0, 5000), PVX_OK);   // the caller only waits
        Nested n;
        n.pel = box.pel;
        n.workers = w;
        std::vector<pvx_PelEvent> events(6);
        for (auto &e : events) ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kNested, &n, 0, nullptr, &e), PVX_OK);
        ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, 6, events.data()), PVX_OK);
        EXPECT_EQ(n.failures.load(), 0);
        for (auto e : events) pvx_Pel_releaseEvent(box.pel, e);
    }
}

// A helping caller with restoreCallerAffinity gets all processors back.
TEST(PelLifecycle, CallerAffinityIsRestored) {
    PelBox box;
    pvx_PelParams p;
    pvx_Pel_resetParams(&p);
    p.numWorkers = 2;
    p.restoreCallerAffinity = 1;
    ASSERT_EQ(pvx_Pel_init(box.pel, &p), PVX_OK);
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    std::thread t([&] {
        Hits h(50, 2);
        EXPECT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &h, 50), PVX_OK);
        cpu_set_t now;
        ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
        for (int c = 0; c < 32; ++c) EXPECT_EQ(CPU_ISSET(c, &now), CPU_ISSET(c, &all)) << c;
    });
    t.join();
}

}  // namespace
