// Helpers shared by the thread-layer tests: a pool in guarded memory over a
// guarded heap, a clock, and bounded waits so that no test can hang.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <chrono>
#include <new>
#include <thread>

#include "runtime/pvx_pel.h"
#include "tests/support/test_env.h"

namespace pvx_thread_test {

using Clock = std::chrono::steady_clock;
using pvx_test::TestEnv;

inline double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Polls `done` until it holds or `seconds` pass; true when it held.
template <class F>
bool waitFor(F done, double seconds = 10.0) {
    const auto t0 = Clock::now();
    while (!done()) {
        if (secondsSince(t0) > seconds) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

// Time limits are generous under the emulator and the thread sanitizer.
inline double slack() {
#if defined(PVX_TEST_UNDER_EMULATOR)
    return 8.0;
#elif defined(__SANITIZE_THREAD__)
    return 4.0;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
    return 4.0;
#else
    return 1.0;
#endif
#else
    return 1.0;
#endif
}

// A pool record in guarded memory over a guarded heap; destructing it must
// give every block back.
struct PoolBox {
    PoolBox() : heap(1u << 20), mem(sizeof(pvx_Pel)) {
        pel = new (mem.data()) pvx_Pel;
        EXPECT_EQ(pvx_construct_Pel(pel, heap.env()), PVX_OK);
    }
    ~PoolBox() {
        EXPECT_EQ(pvx_destruct_Pel(pel), PVX_OK);
        EXPECT_EQ(heap.used(), 0u);
    }
    pvx_Result init(int32_t workers, int32_t callerParticipates = 1, int32_t timeoutMs = 10000) {
        pvx_PelParams p;
        pvx_Pel_resetParams(&p);
        p.numWorkers = workers;
        p.callerParticipates = callerParticipates;
        p.waitTimeoutMs = timeoutMs;
        return pvx_Pel_init(pel, &p);
    }
    TestEnv heap;
    pvx_test::GuardedBuffer mem;
    pvx_Pel *pel;
};

}  // namespace pvx_thread_test
