// Thread primitives: threads and their results, reentrant and spin locks,
// conditions with timed waits, the two system calls, and the answers of
// objects that were constructed but never initialised.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "runtime/pvx_condition.h"
#include "runtime/pvx_lock.h"
#include "runtime/pvx_syscall.h"
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

TEST(Thread, StateAndArgumentErrors) {
    pvx_Thread t;
    EXPECT_EQ(pvx_construct_Thread(nullptr, nullptr), PVX_ERROR_PARAM);
    pvx_construct_Thread(&t, nullptr);
    pvx_Result result = 77;
    EXPECT_EQ(pvx_Thread_join(&t, &result), PVX_OK);   // never started
    EXPECT_EQ(result, PVX_OK);
    EntryArg arg;
    arg.result = PVX_OK;
    EXPECT_EQ(pvx_Thread_start(nullptr, recordingEntry, &arg), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Thread_start(&t, nullptr, &arg), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_Thread_start(&t, recordingEntry, &arg), PVX_OK);
    EXPECT_EQ(pvx_Thread_start(&t, recordingEntry, &arg), PVX_ERROR_STATE);
    // The destructor joins.
    EXPECT_EQ(pvx_destruct_Thread(&t), PVX_OK);
    EXPECT_NE(arg.ranOn.load(), 0u);
    EXPECT_EQ(pvx_Thread_getBufferSize(), 0);
}

// ---- Lock ----

TEST(Lock, BufferSizes) {
    EXPECT_EQ(pvx_Lock_getBufferSize(PVX_LOCK_REENTRANT), static_cast<int32_t>(sizeof(pthread_mutex_t)));
    EXPECT_EQ(pvx_Lock_getBufferSize(PVX_LOCK_SPIN), 0);
    EXPECT_EQ(pvx_Lock_getBufferSize(2), -1);
    EXPECT_EQ(pvx_Lock_getBufferSize(-1), -1);
    EXPECT_EQ(pvx_Condition_getBufferSize(), static_cast<int32_t>(sizeof(pthread_cond_t)));
}

TEST(Lock, UninitialisedAndNullAnswers) {
    pvx_Lock lock;
    int32_t acquired = 5;
    EXPECT_EQ(pvx_construct_Lock(nullptr, nullptr), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_construct_Lock(&lock, nullptr), PVX_OK);
    EXPECT_EQ(pvx_Lock_lock(&lock), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Lock_unlock(&lock), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Lock_tryLock(&lock, &acquired), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Lock_tryLock(&lock, nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_tryLock(nullptr, &acquired), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_lock(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_unlock(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_init(nullptr, 0), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_init(&lock, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Lock_recycle(&lock), PVX_OK);   // nothing to give back
    EXPECT_EQ(pvx_destruct_Lock(&lock), PVX_OK);
}

TEST(Lock, ReentrantMutexComesFromTheHeapAndGoesBack) {
    TestHeap heap;
    ASSERT_TRUE(heap.ok);
    const uint32_t before = heap.used();
    pvx_Lock lock;
    pvx_construct_Lock(&lock, &heap.env);
    ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_OK);
    const uint32_t one = heap.used();
    EXPECT_GT(one, before);
    // Initialising again recycles first: still one mutex.
    ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_OK);
    EXPECT_EQ(heap.used(), one);
    // A spin lock takes nothing.
    ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_SPIN), PVX_OK);
    EXPECT_EQ(heap.used(), before);
    ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_OK);
    EXPECT_EQ(pvx_destruct_Lock(&lock), PVX_OK);
    EXPECT_EQ(heap.used(), before);
}

TEST(Lock, ReentrantInitWithoutMemory) {
    pvx_Lock lock;
    pvx_construct_Lock(&lock, nullptr);   // no allocator at all
    EXPECT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_Lock_lock(&lock), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Lock_init(&lock, PVX_LOCK_SPIN), PVX_OK);   // needs none

    pvx_Env empty;
    ASSERT_EQ(pvx_construct_Env(&empty, nullptr, 0), PVX_OK);   // a heap with no room
    pvx_construct_Lock(&lock, &empty);
    EXPECT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_ERROR_NOMEM);
    pvx_destruct_Lock(&lock);
}

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
    TestHeap heap;
    pvx_Lock lock;
    pvx_construct_Lock(&lock, &heap.env);
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
    TestHeap heap;
    pvx_Lock lock;
    pvx_construct_Lock(&lock, &heap.env);
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

TEST(Condition, UninitialisedAnswersKeepTheSignalAsymmetry) {
    pvx_Condition c;
    EXPECT_EQ(pvx_construct_Condition(nullptr, nullptr), PVX_ERROR_PARAM);
    ASSERT_EQ(pvx_construct_Condition(&c, nullptr), PVX_OK);
    EXPECT_EQ(pvx_Condition_signal(&c), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Condition_signalAll(&c), PVX_OK);
    EXPECT_EQ(pvx_Condition_await(&c), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Condition_awaitMillis(&c, 10), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Condition_signal(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Condition_signalAll(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Condition_await(nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Condition_awaitMillis(nullptr, 0), PVX_ERROR_PARAM);
}

TEST(Condition, InitErrors) {
    TestHeap heap;
    pvx_Lock lock;
    pvx_construct_Lock(&lock, &heap.env);
    pvx_Lock_init(&lock, PVX_LOCK_REENTRANT);
    pvx_Condition c;
    pvx_construct_Condition(&c, &heap.env);
    EXPECT_EQ(pvx_Condition_init(nullptr, &lock), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_Condition_init(&c, nullptr), PVX_ERROR_PARAM);
    pvx_Condition noHeap;
    pvx_construct_Condition(&noHeap, nullptr);
    EXPECT_EQ(pvx_Condition_init(&noHeap, &lock), PVX_ERROR_NOMEM);
    EXPECT_EQ(pvx_Condition_signal(&noHeap), PVX_ERROR_STATE);

    const uint32_t before = heap.used();
    ASSERT_EQ(pvx_Condition_init(&c, &lock), PVX_OK);
    EXPECT_GT(heap.used(), before);
    ASSERT_EQ(pvx_Condition_init(&c, &lock), PVX_OK);   // recycles first
    EXPECT_EQ(pvx_destruct_Condition(&c), PVX_OK);
    EXPECT_EQ(heap.used(), before);
    pvx_destruct_Lock(&lock);
}

struct CondFixture : public ::testing::Test {
    void SetUp() override {
        pvx_construct_Lock(&lock, &heap.env);
        ASSERT_EQ(pvx_Lock_init(&lock, PVX_LOCK_REENTRANT), PVX_OK);
        pvx_construct_Condition(&cond, &heap.env);
        ASSERT_EQ(pvx_Condition_init(&cond, &lock), PVX_OK);
    }
    void TearDown() override {
        EXPECT_EQ(pvx_destruct_Condition(&cond), PVX_OK);
        EXPECT_EQ(pvx_destruct_Lock(&lock), PVX_OK);
        EXPECT_EQ(heap.used(), 0u);
    }
    TestHeap heap;
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
TEST_F(CondFixture, SignalAllWakesEveryWaiter) { wakeWaiters(&lock, &cond, 3, true, true); }
TEST_F(CondFixture, UntimedAwaitReturnsWhenSignalled) { wakeWaiters(&lock, &cond, 1, false, true); }

TEST(Condition, WaitOnASpinLockIsRefused) {
    pvx_Lock spin;
    pvx_construct_Lock(&spin, nullptr);
    pvx_Lock_init(&spin, PVX_LOCK_SPIN);
    TestHeap heap;
    pvx_Condition c;
    pvx_construct_Condition(&c, &heap.env);
    ASSERT_EQ(pvx_Condition_init(&c, &spin), PVX_OK);
    EXPECT_EQ(pvx_Condition_awaitMillis(&c, 0), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_Condition_await(&c), PVX_ERROR_STATE);
    pvx_destruct_Condition(&c);
}

// ---- System calls ----

TEST(Syscall, ProcessorCountIsTheConfiguredCountAtLeastOne) {
    const long conf = sysconf(_SC_NPROCESSORS_CONF);
    const int32_t n = pvx_Syscall_getNumberOfProcessors();
    EXPECT_GE(n, 1);
    EXPECT_EQ(n, conf < 2 ? 1 : static_cast<int32_t>(conf));
}

// Affinity is changed on a thread of its own so the test runner is not bound.
TEST(Syscall, AffinityBindsTheCallingThread) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    int firstAllowed = -1;
    for (int c = 0; c < 32 && firstAllowed < 0; ++c)
        if (CPU_ISSET(c, &before)) firstAllowed = c;
    ASSERT_GE(firstAllowed, 0);
    std::thread t([&] {
        EXPECT_EQ(pvx_Syscall_setThreadAffinityMask(nullptr, 1u << firstAllowed), PVX_OK);
        cpu_set_t now;
        ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
        EXPECT_EQ(CPU_COUNT(&now), 1);
        EXPECT_TRUE(CPU_ISSET(firstAllowed, &now));
        // No processor at all is refused, and the binding stays.
        EXPECT_EQ(pvx_Syscall_setThreadAffinityMask(nullptr, 0), PVX_ERROR_SYSTEM);
        ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
        EXPECT_EQ(CPU_COUNT(&now), 1);
        // Every bit: back to what the process may use (within 32 processors).
        EXPECT_EQ(pvx_Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu), PVX_OK);
        ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
        for (int c = 0; c < 32; ++c) EXPECT_EQ(CPU_ISSET(c, &now), CPU_ISSET(c, &before)) << c;
    });
    t.join();
    EXPECT_EQ(pvx_Syscall_setThreadAffinityMask(nullptr, 0), PVX_ERROR_SYSTEM);
}

}  // namespace
