// Workers made slow on purpose: the submitter's argument block and the memory
// its tasks write live on its stack, so pvx_Pel_execute may not return before
// the last task has finished, however short the pool's wait time-out is. The
// time-out is still reported.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "runtime/pvx_pel.h"
#include "tests/runtime/thread_test_support.h"

namespace {

struct SlowJob {
    int32_t workers = 1;
    std::atomic<int32_t> arrived{0};
    std::atomic<int32_t> running{0};
    std::atomic<int32_t> finished{0};
    int32_t written[12] = {};
};

// The first `workers` tasks meet (so every participant holds one), then the
// pool's threads sleep in theirs while the calling thread (worker 0) runs
// through the rest at once and has to wait for them.
pvx_Result slowIndex(void *arg, int32_t index, const pvx_PelInfo *info) {
    SlowJob *job = static_cast<SlowJob *>(arg);
    job->running.fetch_add(1);
    if (index < job->workers) {
        job->arrived.fetch_add(1);
        const auto t0 = std::chrono::steady_clock::now();
        while (job->arrived.load() < job->workers && std::chrono::steady_clock::now() - t0 < std::chrono::seconds(5))
            std::this_thread::yield();
    }
    if (info->worker != 0) std::this_thread::sleep_for(std::chrono::milliseconds(60));
    job->written[index] = index + 1;
    job->running.fetch_sub(1);
    job->finished.fetch_add(1);
    return PVX_OK;
}

const pvx_PelDescriptor kSlowKernel = {pvx_Pel_indexedWorker, nullptr, slowIndex, nullptr, PVX_PEL_INDEXED};

struct Case {
    int32_t workers;
    int32_t timeoutMs;
    bool timesOut;   // whether the wait expires (reported once the work is done)
};

class SlowWorkers : public ::testing::TestWithParam<Case> {};

TEST_P(SlowWorkers, ExecuteReturnsOnlyAfterTheLastTask) {
    const Case c = GetParam();
    pvx_thread_test::PoolBox box;
    ASSERT_EQ(PVX_OK, box.init(c.workers, 1, c.timeoutMs));
    int timeouts = 0;
    for (int round = 0; round < 3; ++round) {
        SlowJob job;
        job.workers = c.workers < 12 ? c.workers : 12;   // participants that can hold a task at once
        const pvx_Result r = pvx_Pel_execute(box.pel, &kSlowKernel, &job, 12);
        EXPECT_EQ(0, job.running.load()) << "a task still ran after execute returned";
        EXPECT_EQ(12, job.finished.load());
        for (int32_t i = 0; i < 12; ++i) EXPECT_EQ(i + 1, job.written[i]);
        // The time-out is the only failure a wait may add.
        EXPECT_TRUE(r == PVX_OK || (c.timesOut && r == PVX_ERROR_TIMEOUT)) << std::hex << r;
        timeouts += r == PVX_ERROR_TIMEOUT ? 1 : 0;
    }
    // A caller held up for longer than the pool's threads sleep (a loaded
    // machine) may find them done; not in every round.
    if (c.timesOut) {
        EXPECT_GT(timeouts, 0);
    }
}

// The caller waits about 60 ms for the pool's threads: a wait of 0 or 1 ms
// expires, one of 5 s does not. One worker (the caller alone) never waits.
INSTANTIATE_TEST_SUITE_P(Pel, SlowWorkers,
                         ::testing::Values(Case{3, 1, true}, Case{3, 0, true}, Case{16, 1, true},
                                           Case{3, 5000, false}, Case{1, 0, false}));

}  // namespace
