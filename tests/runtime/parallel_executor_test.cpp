// Task executor: fork copies the argument block (the caller may overwrite
// it at once), join collects every result and gives the copies back, a null
// executor runs the task at once, and the state and argument errors.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "runtime/pvx_parallel_executor.h"
#include "tests/runtime/thread_test_support.h"

namespace {

using namespace pvx_thread_test;

struct Band {
    int32_t id;
    int32_t rows[7];   // an odd-sized block
    std::atomic<int32_t> *seen;   // seen[id] gets the sum of rows
    pvx_Result result;
};

pvx_Result bandTask(void *arg, const pvx_PelInfo *info) {
    const Band *b = static_cast<const Band *>(arg);
    int32_t sum = 0;
    for (int32_t r : b->rows) sum += r;
    b->seen[b->id].fetch_add(sum);
    return info != nullptr && info->descriptor != nullptr ? b->result : PVX_ERROR_PARAM;
}

const pvx_PelDescriptor kBand = {pvx_Pel_taskWorker, bandTask, nullptr, nullptr, PVX_PEL_TASK};

Band makeBand(int32_t id, std::atomic<int32_t> *seen, pvx_Result result = PVX_OK) {
    Band b;
    b.id = id;
    for (int32_t k = 0; k < 7; ++k) b.rows[k] = id * 10 + k;
    b.seen = seen;
    b.result = result;
    return b;
}

int32_t expectedSum(int32_t id) { return 7 * id * 10 + 21; }

// An executor over a pool of `workers`; the pool's box checks the heap.
struct ExecutorBox {
    explicit ExecutorBox(int32_t workers) {
        EXPECT_EQ(pool.init(workers), PVX_OK);
        EXPECT_EQ(pvx_construct_ParallelExecutor(&ex, &pool.heap.env), PVX_OK);
        EXPECT_EQ(pvx_ParallelExecutor_initWithPel(&ex, pool.pel), PVX_OK);
    }
    ~ExecutorBox() { EXPECT_EQ(pvx_destruct_ParallelExecutor(&ex), PVX_OK); }
    PoolBox pool;
    pvx_ParallelExecutor ex;
};

TEST(ParallelExecutor, NullExecutorRunsTheTaskAtOnce) {
    std::atomic<int32_t> seen[4] = {};
    Band b = makeBand(2, seen, 0x30u);
    EXPECT_EQ(pvx_ParallelExecutor_fork(nullptr, &kBand, &b, sizeof b), 0x30u);
    EXPECT_EQ(seen[2].load(), expectedSum(2));   // before any join
    EXPECT_EQ(pvx_ParallelExecutor_join(nullptr), PVX_OK);
    EXPECT_EQ(pvx_ParallelExecutor_getNumberOfWorkers(nullptr), 1);
    EXPECT_EQ(pvx_ParallelExecutor_fork(nullptr, nullptr, &b, sizeof b), PVX_ERROR_PARAM);
}

TEST(ParallelExecutor, ForkCopiesTheArgumentBlock) {
    for (int32_t workers : {1, 3}) {
        ExecutorBox box(workers);
        EXPECT_EQ(pvx_ParallelExecutor_getNumberOfWorkers(&box.ex), workers);
        const int32_t count = 24;
        std::vector<std::atomic<int32_t>> seen(count);
        Band b;
        for (int32_t id = 0; id < count; ++id) {
            b = makeBand(id, seen.data());
            ASSERT_EQ(pvx_ParallelExecutor_fork(&box.ex, &kBand, &b, sizeof b), PVX_OK);
            // Overwrite the caller's block at once: the task has its own copy.
            memset(static_cast<void *>(b.rows), 0x7F, sizeof b.rows);
            b.id = -1;
        }
        EXPECT_GT(box.pool.heap.used(), 0u);
        ASSERT_EQ(pvx_ParallelExecutor_join(&box.ex), PVX_OK);
        for (int32_t id = 0; id < count; ++id) EXPECT_EQ(seen[id].load(), expectedSum(id)) << id;
        EXPECT_EQ(box.ex.first, nullptr);
        // Join again with nothing forked.
        EXPECT_EQ(pvx_ParallelExecutor_join(&box.ex), PVX_OK);
    }
}

TEST(ParallelExecutor, JoinReportsAnErrorAndStillReleasesEverything) {
    ExecutorBox box(2);
    std::vector<std::atomic<int32_t>> seen(6);
    for (int32_t id = 0; id < 6; ++id) {
        Band b = makeBand(id, seen.data(), id == 4 ? PVX_ERROR_FORMAT : PVX_OK);
        ASSERT_EQ(pvx_ParallelExecutor_fork(&box.ex, &kBand, &b, sizeof b), PVX_OK);
    }
    EXPECT_EQ(pvx_ParallelExecutor_join(&box.ex), PVX_ERROR_FORMAT);
    for (int32_t id = 0; id < 6; ++id) EXPECT_EQ(seen[id].load(), expectedSum(id));
    EXPECT_EQ(box.ex.first, nullptr);
}

TEST(ParallelExecutor, StateAndArgumentErrors) {
    TestHeap heap;
    pvx_ParallelExecutor ex;
    EXPECT_EQ(pvx_construct_ParallelExecutor(nullptr, &heap.env), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_construct_ParallelExecutor(&ex, &heap.env), PVX_OK);
    std::atomic<int32_t> seen[2] = {};
    Band b = makeBand(1, seen);
    EXPECT_EQ(pvx_ParallelExecutor_fork(&ex, &kBand, &b, sizeof b), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_ParallelExecutor_join(&ex), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_ParallelExecutor_getNumberOfWorkers(&ex), 1);
    EXPECT_EQ(pvx_ParallelExecutor_initWithPel(nullptr, nullptr), PVX_ERROR_PARAM);

    // Over no pool: forks run at once.
    ASSERT_EQ(pvx_ParallelExecutor_initWithPel(&ex, nullptr), PVX_OK);
    EXPECT_EQ(pvx_ParallelExecutor_fork(&ex, &kBand, &b, sizeof b), PVX_OK);
    EXPECT_EQ(seen[1].load(), expectedSum(1));
    EXPECT_EQ(pvx_ParallelExecutor_fork(&ex, &kBand, &b, -1), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ParallelExecutor_fork(&ex, &kBand, nullptr, 4), PVX_ERROR_PARAM);
    const pvx_PelDescriptor noThreaded = {nullptr, bandTask, nullptr, nullptr, PVX_PEL_TASK};
    EXPECT_EQ(pvx_ParallelExecutor_fork(&ex, &noThreaded, &b, sizeof b), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ParallelExecutor_join(&ex), PVX_OK);
    EXPECT_EQ(pvx_destruct_ParallelExecutor(&ex), PVX_OK);
    EXPECT_EQ(heap.used(), 0u);
}

TEST(ParallelExecutor, ForkWithoutHeapRoom) {
    ExecutorBox box(2);
    pvx_ParallelExecutorTask *task = nullptr;
    std::vector<uint8_t> big(512 * 1024, 1);
    EXPECT_EQ(pvx_ParallelExecutor_newTask(&box.ex, big.data(), static_cast<int32_t>(big.size()), &task),
              PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_ParallelExecutor_fork(&box.ex, &kBand, big.data(), static_cast<int32_t>(big.size())),
              PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_ParallelExecutor_join(&box.ex), PVX_OK);
    // A block of zero bytes is fine.
    ASSERT_EQ(pvx_ParallelExecutor_newTask(&box.ex, nullptr, 0, &task), PVX_OK);
    EXPECT_EQ(pvx_ParallelExecutor_deleteTask(&box.ex, task), PVX_OK);
}

}  // namespace
