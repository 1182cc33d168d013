// Parallel layer: the direct path without a pool, kernels run by many
// workers (each index exactly once, results ORed), the thread limit,
// dependency order of events, recycle and init again; and one behaviour test
// each for the task executor and the blocking queue built on it.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "runtime/pvx_linked_blocking_queue.h"
#include "runtime/pvx_parallel_executor.h"
#include "runtime/pvx_pel.h"
#include "tests/runtime/thread_test_support.h"
#include "tests/support/test_random.h"

namespace {

using namespace pvx_thread_test;

// Hits per index; each index reports a failure bit of its own choosing.
struct Hits {
    Hits(int32_t n, int32_t workers) : hits(static_cast<size_t>(n)), expectWorkers(workers) {}
    bool each(int32_t times = 1) const {
        for (const auto &h : hits)
            if (h.load() != times) return false;
        return badInfo.load() == 0;
    }
    std::vector<std::atomic<int32_t>> hits;
    std::atomic<int32_t> badInfo{0};
    int32_t expectWorkers;
    int32_t special = -1;   // the one index that reports a failure bit
};

bool infoOk(const Hits *h, const pvx_PelInfo *info) {
    return info->workers == h->expectWorkers && info->worker >= 0 && info->worker < info->workers &&
           info->count == static_cast<int32_t>(h->hits.size());
}

pvx_Result hitIndex(void *arg, int32_t i, const pvx_PelInfo *info) {
    Hits *h = static_cast<Hits *>(arg);
    if (!infoOk(h, info)) h->badInfo.fetch_add(1);
    h->hits[static_cast<size_t>(i)].fetch_add(1);
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

// Without a pool everything runs at once on the caller: indexed work in
// order, a range kernel as one call (none for n = 0).
std::vector<std::pair<int32_t, int32_t>> g_direct;
pvx_Result logRange(void *, int32_t b, int32_t e, const pvx_PelInfo *) {
    g_direct.emplace_back(b, e);
    return 0x20u;
}

TEST(PelDirect, NullPoolRunsOnTheCaller) {
    Hits h(8, 1);
    h.special = 3;
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kHitIndexed, &h, 8), 0x8u);
    EXPECT_TRUE(h.each());
    const pvx_PelDescriptor range = {pvx_Pel_rangeWorker, nullptr, nullptr, logRange, PVX_PEL_RANGE};
    g_direct.clear();
    EXPECT_EQ(pvx_Pel_execute(nullptr, &range, nullptr, 37), 0x20u);
    EXPECT_EQ(pvx_Pel_execute(nullptr, &range, nullptr, 0), PVX_OK);
    ASSERT_EQ(g_direct.size(), 1u);
    EXPECT_EQ(g_direct[0], std::make_pair(0, 37));
    EXPECT_EQ(pvx_Pel_execute(nullptr, &kHitIndexed, &h, -1), PVX_ERROR_PARAM);
    const pvx_PelDescriptor noTask = {pvx_Pel_taskWorker, nullptr, nullptr, nullptr, PVX_PEL_TASK};
    EXPECT_EQ(pvx_Pel_execute(nullptr, &noTask, nullptr, 1), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(nullptr), 1);
}

struct StressCase {
    int32_t workers;
    int32_t callerParticipates;
    pvx_Result init;   // at most 16 threads: W - 1 with the caller taking part, else W
};

class PelStress : public ::testing::TestWithParam<StressCase> {};

// Many executes of random sizes: every index runs exactly once, and the
// result is the OR of what the indices returned. A refused init leaves an
// idle pool that runs nothing and holds no memory.
TEST_P(PelStress, EveryIndexRunsExactlyOnce) {
    const StressCase c = GetParam();
    PoolBox box;
    ASSERT_EQ(box.init(c.workers, c.callerParticipates), c.init);
    if (c.init != PVX_OK) {
        EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), 1);
        EXPECT_EQ(box.heap.used(), 0u);
        Hits none(3, 1);
        EXPECT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &none, 3), PVX_OK);
        EXPECT_TRUE(none.each(0));
        return;
    }
    EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), c.workers);
    auto rng = pvx_test::makeRng(static_cast<uint64_t>(c.workers * 2 + c.callerParticipates));
    const auto t0 = Clock::now();
    for (int done = 0; done < pvx_test::rounds(400) && (done < 20 || secondsSince(t0) < slack()); ++done) {
        const int32_t n = 1 + static_cast<int32_t>(rng() % (rng() % 4 == 0 ? 2000 : 64));
        Hits h(n, c.workers);
        h.special = rng() % 2 == 0 ? static_cast<int32_t>(rng() % static_cast<uint64_t>(n)) : -1;
        const bool indexed = rng() % 2 == 0;
        const pvx_Result r = pvx_Pel_execute(box.pel, indexed ? &kHitIndexed : &kHitRange, &h, n);
        ASSERT_EQ(r, h.special < 0 ? PVX_OK : (indexed ? 0x8u : 0x4u)) << "execute " << done << " n " << n;
        ASSERT_TRUE(h.each()) << "execute " << done << " n " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Workers, PelStress,
                         ::testing::Values(StressCase{1, 1, PVX_OK}, StressCase{1, 0, PVX_OK},
                                           StressCase{2, 1, PVX_OK}, StressCase{3, 0, PVX_OK},
                                           StressCase{5, 1, PVX_OK}, StressCase{16, 0, PVX_OK},
                                           StressCase{17, 1, PVX_OK}, StressCase{18, 1, PVX_ERROR_PARAM},
                                           StressCase{17, 0, PVX_ERROR_PARAM}));

// Several threads execute on one pool at once.
TEST(PelConcurrent, ExecutesFromSeveralThreads) {
    PoolBox box;
    ASSERT_EQ(box.init(4), PVX_OK);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < pvx_test::rounds(150); ++k) {
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

// Tasks append their number to a log.
struct TaskLog {
    std::mutex m;
    std::vector<int> order;
};
struct TaskArg {
    TaskLog *log;
    int id;
};

pvx_Result loggedTask(void *arg, const pvx_PelInfo *) {
    TaskArg *a = static_cast<TaskArg *>(arg);
    std::lock_guard<std::mutex> g(a->log->m);
    a->log->order.push_back(a->id);
    return PVX_OK;
}

const pvx_PelDescriptor kLoggedTask = {pvx_Pel_taskWorker, loggedTask, nullptr, nullptr, PVX_PEL_TASK};

// Each task waits for the one before; a kernel waits for the last task. A
// released handle is stale, and no handle is used twice while held.
TEST(PelEvents, DependencyChainRunsInOrder) {
    for (int32_t callerParticipates : {1, 0}) {
        PoolBox box;
        ASSERT_EQ(box.init(4, callerParticipates), PVX_OK);
        TaskLog log;
        const int count = 40;
        std::vector<TaskArg> args(count);
        std::vector<pvx_PelEvent> events(count + 1);
        for (int i = 0; i < count; ++i) {
            args[i] = TaskArg{&log, i};
            const pvx_PelEvent *wait = i > 0 ? &events[i - 1] : nullptr;
            ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &args[i], i > 0 ? 1 : 0, wait, &events[i]), PVX_OK);
        }
        Hits h(100, 4);
        ASSERT_EQ(pvx_Pel_enqueueKernel(box.pel, &kHitIndexed, &h, 100, 1, &events[count - 1], &events[count]),
                  PVX_OK);
        TaskArg last{&log, count};   // no handle asked for: finish waits for it
        ASSERT_EQ(pvx_Pel_enqueueTask(box.pel, &kLoggedTask, &last, 1, &events[count], nullptr), PVX_OK);
        ASSERT_EQ(pvx_Pel_waitForEvents(box.pel, count + 1, events.data()), PVX_OK);
        ASSERT_EQ(pvx_Pel_finish(box.pel), PVX_OK);
        EXPECT_TRUE(h.each());
        ASSERT_EQ(log.order.size(), static_cast<size_t>(count + 1));
        for (int i = 0; i <= count; ++i) EXPECT_EQ(log.order[i], i);
        uint32_t state = 0;
        ASSERT_EQ(pvx_Pel_getEventInfo(box.pel, events[0], PVX_PEL_EVENT_STATE, &state), PVX_OK);
        EXPECT_EQ(state, static_cast<uint32_t>(PVX_PEL_EVENT_STATE_COMPLETE));
        for (int i = 0; i <= count; ++i) {
            for (int j = 0; j < i; ++j) ASSERT_NE(events[i], events[j]);
            EXPECT_EQ(pvx_Pel_releaseEvent(box.pel, events[i]), PVX_OK);
        }
        EXPECT_EQ(pvx_Pel_getEventInfo(box.pel, events[0], PVX_PEL_EVENT_STATE, &state), PVX_ERROR_PARAM);
        EXPECT_EQ(pvx_Pel_waitForEvents(box.pel, 1, &events[0]), PVX_ERROR_PARAM);  // released handle
    }
}

// Recycle gives every block back and stops the workers; the pool can be
// initialised again with another shape.
TEST(PelLifecycle, RecycleAndInitAgain) {
    PoolBox box;
    for (int round = 0; round < 4; ++round) {
        ASSERT_EQ(box.init(1 + round * 2, round % 2), PVX_OK);
        Hits h(500, 1 + round * 2);
        ASSERT_EQ(pvx_Pel_execute(box.pel, &kHitIndexed, &h, 500), PVX_OK);
        ASSERT_TRUE(h.each());
        ASSERT_EQ(pvx_Pel_recycle(box.pel), PVX_OK);
        EXPECT_EQ(box.heap.used(), 0u);
        EXPECT_EQ(pvx_Pel_getNumberOfWorkers(box.pel), 1);
    }
    ASSERT_EQ(box.init(4), PVX_OK);   // destructed while initialised
    EXPECT_LE(box.heap.used(), pvx_Pel_getBufferSize() + 6 * 16);
}

// Executor: fork copies the argument block (the caller may overwrite it at
// once), join collects every band and reports a failure, and gives the
// copies back.
struct Band {
    int32_t id;
    int32_t rows[7];
    std::atomic<int32_t> *seen;   // seen[id] gets the sum of rows
};

pvx_Result bandTask(void *arg, const pvx_PelInfo *) {
    const Band *b = static_cast<const Band *>(arg);
    int32_t sum = 0;
    for (int32_t r : b->rows) sum += r;
    b->seen[b->id].fetch_add(sum);
    return b->id == 4 ? PVX_ERROR_FORMAT : PVX_OK;
}

TEST(ParallelExecutor, ForkCopiesTheArgumentAndJoinCollects) {
    const pvx_PelDescriptor kBand = {pvx_Pel_taskWorker, bandTask, nullptr, nullptr, PVX_PEL_TASK};
    for (int32_t workers : {1, 3}) {
        PoolBox pool;
        ASSERT_EQ(pool.init(workers), PVX_OK);
        pvx_ParallelExecutor ex;
        ASSERT_EQ(pvx_construct_ParallelExecutor(&ex, pool.heap.env()), PVX_OK);
        ASSERT_EQ(pvx_ParallelExecutor_initWithPel(&ex, pool.pel), PVX_OK);
        EXPECT_EQ(pvx_ParallelExecutor_getNumberOfWorkers(&ex), workers);
        std::vector<std::atomic<int32_t>> seen(24);
        for (int32_t id = 0; id < 24; ++id) {
            Band b{id, {}, seen.data()};
            for (int32_t k = 0; k < 7; ++k) b.rows[k] = id * 10 + k;
            ASSERT_EQ(pvx_ParallelExecutor_fork(&ex, &kBand, &b, sizeof b), PVX_OK);
            memset(static_cast<void *>(b.rows), 0x7F, sizeof b.rows);
        }
        EXPECT_EQ(pvx_ParallelExecutor_join(&ex), PVX_ERROR_FORMAT);
        for (int32_t id = 0; id < 24; ++id) EXPECT_EQ(seen[id].load(), 70 * id + 21) << id;
        EXPECT_EQ(pvx_ParallelExecutor_join(&ex), PVX_OK);
        EXPECT_EQ(pvx_destruct_ParallelExecutor(&ex), PVX_OK);
    }
}

// Blocking queue: random offers and polls over wrap-arounds of its node pool
// against a deque, then a producer blocked on a full queue of one.
TEST(LinkedBlockingQueue, MatchesAModelAndBlocksWhenFull) {
    TestEnv heap(1u << 20);
    pvx_LinkedBlockingQueue q;
    pvx_construct_LinkedBlockingQueue(&q, heap.env());
    auto item = [](uintptr_t v) { return reinterpret_cast<void *>(v); };
    auto rng = pvx_test::makeRng(11);
    for (int round = 0; round < 20; ++round) {
        const int32_t capacity = 1 + static_cast<int32_t>(rng() % 6);
        ASSERT_EQ(pvx_LinkedBlockingQueue_init(&q, capacity), PVX_OK);
        std::deque<uintptr_t> model;
        for (uintptr_t next = 1; next < static_cast<uintptr_t>(pvx_test::rounds(2000)); ++next) {
            if (rng() % 2 == 0) {
                const bool room = static_cast<int32_t>(model.size()) < capacity;
                ASSERT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(next)), room ? PVX_OK : PVX_ERROR_TIMEOUT);
                if (room) model.push_back(next);
            } else {
                ASSERT_EQ(pvx_LinkedBlockingQueue_poll(&q), model.empty() ? nullptr : item(model.front()));
                if (!model.empty()) model.pop_front();
            }
            ASSERT_EQ(pvx_LinkedBlockingQueue_size(&q), static_cast<int32_t>(model.size()));
        }
        ASSERT_EQ(pvx_LinkedBlockingQueue_recycle(&q), PVX_OK);
    }
    ASSERT_EQ(pvx_LinkedBlockingQueue_init(&q, 1), PVX_OK);
    std::thread producer([&] {
        for (uintptr_t i = 1; i <= 50; ++i) EXPECT_EQ(pvx_LinkedBlockingQueue_put(&q, item(i)), PVX_OK);
    });
    for (uintptr_t i = 1; i <= 50; ++i) ASSERT_EQ(pvx_LinkedBlockingQueue_take(&q), item(i));
    producer.join();
    EXPECT_EQ(pvx_destruct_LinkedBlockingQueue(&q), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

}  // namespace
