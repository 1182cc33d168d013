// Thread primitives: threads and their results, reentrant and spin locks,
// and conditions with timed waits.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "runtime/pvx_condition.h"
#include "runtime/pvx_lock.h"
#include "runtime/pvx_thread.h"
#include "tests/runtime/thread_test_support.h"

namespace {

using namespace pvx_thread_test;

// ---- Thread ----

struct EntryArg {
    pvx_Result result;
    std::atomic<pvx_ThreadId> ranOn{0};
};

pvx_Result recordingEntry(void *p) {
    EntryArg *a = static_cast<EntryArg *>(p);
    a->ranOn.store(pvx_Thread_getId());
    return a->result;
}

// The entry's result comes back through the out pointer, or without one
// ORed into join's answer; a joined thread can be started again.
TEST(Thread, JoinHandsBackTheEntryResult) {
    pvx_Thread t;
    ASSERT_EQ(pvx_construct_Thread(&t, nullptr), PVX_OK);
    EntryArg arg;
    arg.result = 0x1234u;
    ASSERT_EQ(pvx_Thread_start(&t, recordingEntry, &arg), PVX_OK);
    EXPECT_EQ(pvx_Thread_isStarted(&t), 1);
    pvx_Result result = 0;
    EXPECT_EQ(pvx_Thread_join(&t, &result), PVX_OK);
    EXPECT_EQ(result, 0x1234u);
    EXPECT_EQ(pvx_Thread_isStarted(&t), 0);
    EXPECT_NE(arg.ranOn.load(), pvx_Thread_getId());
    EXPECT_EQ(pvx_Thread_getId(), static_cast<pvx_ThreadId>(pthread_self()));
    arg.result = PVX_ERROR_FORMAT;
    ASSERT_EQ(pvx_Thread_start(&t, recordingEntry, &arg), PVX_OK);
    EXPECT_EQ(pvx_Thread_join(&t, nullptr), PVX_ERROR_FORMAT);
    EXPECT_EQ(pvx_destruct_Thread(&t), PVX_OK);
}

// ---- Lock ----

// What another thread sees when it tries the lock.
int32_t tryFromOtherThread(pvx_Lock *lock, pvx_Result *result) {
    int32_t acquired = -1;
    std::thread t([&] {
        *result = pvx_Lock_tryLock(lock, &acquired);
        if (acquired == 1) pvx_Lock_unlock(lock);
    });
    t.join();
    return acquired;
}

class LockKinds : public ::testing::TestWithParam<int32_t> {};

// Several threads add to a plain counter under the lock; any lost update
// (or, under the thread sanitizer, any race report) means no exclusion.
TEST_P(LockKinds, MutualExclusion) {
    TestEnv heap;
    pvx_Lock lock;
    pvx_construct_Lock(&lock, heap.env());
    ASSERT_EQ(pvx_Lock_init(&lock, GetParam()), PVX_OK);
    const int threads = 4;
    const int rounds = static_cast<int>(20000 / slack());
    long counter = 0;
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                pvx_Lock_lock(&lock);
                counter = counter + 1;
                pvx_Lock_unlock(&lock);
            }
        });
    }
    for (auto &t : pool) t.join();
    EXPECT_EQ(counter, static_cast<long>(threads) * rounds);
    pvx_destruct_Lock(&lock);
}

// The holder may take a reentrant lock again (and must release it as often
// as it took it), a spin lock never; no other thread gets a held lock.
TEST_P(LockKinds, HeldLockRefusesOtherThreads) {
    TestEnv heap;
    pvx_Lock lock;
    pvx_construct_Lock(&lock, heap.env());
    ASSERT_EQ(pvx_Lock_init(&lock, GetParam()), PVX_OK);
    ASSERT_EQ(pvx_Lock_lock(&lock), PVX_OK);
    int32_t acquired = 5;
    ASSERT_EQ(pvx_Lock_tryLock(&lock, &acquired), PVX_OK);
    EXPECT_EQ(acquired, GetParam() == PVX_LOCK_REENTRANT ? 1 : 0);
    pvx_Result r = 1;
    for (int32_t held = acquired + 1; held > 0; --held) {
        EXPECT_EQ(tryFromOtherThread(&lock, &r), 0) << held;
        EXPECT_EQ(r, PVX_OK);
        ASSERT_EQ(pvx_Lock_unlock(&lock), PVX_OK);
    }
    EXPECT_EQ(tryFromOtherThread(&lock, &r), 1);
    EXPECT_EQ(r, PVX_OK);
    pvx_destruct_Lock(&lock);
}

INSTANTIATE_TEST_SUITE_P(Kinds, LockKinds, ::testing::Values(PVX_LOCK_REENTRANT, PVX_LOCK_SPIN));

// ---- Condition ----

struct CondFixture : public ::testing::Test {
    void SetUp() override {
        pvx_construct_Lock(&lock, heap.env());
        ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_OK);
        pvx_construct_Condition(&cond, heap.env());
        ASSERT_EQ(pvx_Condition_init(&cond, &lock), PVX_OK);
    }
    void TearDown() override {
        EXPECT_EQ(pvx_destruct_Condition(&cond), PVX_OK);
        EXPECT_EQ(pvx_destruct_Lock(&lock), PVX_OK);
        EXPECT_EQ(heap.used(), 0u);
    }
    TestEnv heap;
    pvx_Lock lock;
    pvx_Condition cond;
};

// 0 or a negative time gives up at once, a positive one after about the time.
TEST_F(CondFixture, TimedWaitGivesUpAfterTheTime) {
    for (int32_t ms : {0, -1, -1000, INT32_MIN, 60}) {
        pvx_Lock_lock(&lock);
        const auto t0 = Clock::now();
        EXPECT_EQ(pvx_Condition_awaitMillis(&cond, ms), PVX_ERROR_TIMEOUT) << ms;
        const double s = secondsSince(t0);
        pvx_Lock_unlock(&lock);
        EXPECT_GE(s, ms > 0 ? 0.055 : 0.0) << ms;
        EXPECT_LT(s, (ms > 0 ? 2.0 : 0.5) * slack()) << ms;
    }
}

// `n` threads wait (timed or not) until a flag is set under the lock; signal
// (one waiter) or signalAll must wake each of them before its time runs out.
void wakeWaiters(pvx_Lock *lock, pvx_Condition *cond, int n, bool timed, bool all) {
    bool go = false;   // guarded by the lock
    int asleep = 0;
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < n; ++i) {
        waiters.emplace_back([&] {
            pvx_Lock_lock(lock);
            ++asleep;
            pvx_Result r = PVX_OK;
            while (!go && r == PVX_OK) r = timed ? pvx_Condition_awaitMillis(cond, 10000) : pvx_Condition_await(cond);
            if (r == PVX_OK) ++woken;
            pvx_Lock_unlock(lock);
        });
    }
    // A waiter is asleep once it has released the lock.
    EXPECT_TRUE(waitFor([&] {
        pvx_Lock_lock(lock);
        const bool allAsleep = asleep == n;
        pvx_Lock_unlock(lock);
        return allAsleep;
    }));
    pvx_Lock_lock(lock);
    go = true;
    EXPECT_EQ(all ? pvx_Condition_signalAll(cond) : pvx_Condition_signal(cond), PVX_OK);
    pvx_Lock_unlock(lock);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(woken.load(), n);
}

TEST_F(CondFixture, SignalWakesAWaiter) { wakeWaiters(&lock, &cond, 1, true, false); }
TEST_F(CondFixture, SignalAllWakesEveryWaiterUntimed) { wakeWaiters(&lock, &cond, 3, false, true); }

}  // namespace
