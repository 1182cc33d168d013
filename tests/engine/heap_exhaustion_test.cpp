// The work-area heap refuses the n-th allocation of initialize, start, a
// zoomed frame and an in-place frame, for every n that call reaches: the call
// reports an error, nothing crashes, and finalize still finds every block
// given back (the heap's own leak check) with no thread left running.
#include <gtest/gtest.h>

#include <thread>

#include "engine_fixture.h"
#include "frame_images.h"
#include "tests/support/thread_count.h"
#include "runtime/pvx_heap2_fault.h"
#include "runtime/pvx_syscall.h"

namespace {

using pvx_test::coefficientParam;
using pvx_test::Engine;
using pvx_test::Frame;

const int32_t kFormatValue = 26;   // YUV420_PLANAR: three planes to allocate and copy
const int32_t kW = 322, kH = 242;

using pvx_test::settledThreadCount;
using pvx_test::threadCount;
using pvx_test::threadCountAfterJoins;

enum Phase { kInitialize, kStart, kZoomedFrame, kInPlaceFrame, kFinalize, kPhases };
const char *const kPhaseNames[] = {"initialize", "start", "zoomed frame", "in-place frame", "finalize"};

struct Sequence {
    Frame src{kFormatValue, kW, kH}, dst{kFormatValue, kW, kH};
    std::unique_ptr<Engine> engine;

    // Runs the phases in order; the allocation fault is armed for `faulty`
    // only. Returns that phase's status and its allocation count.
    uint32_t run(Phase faulty, int32_t failAt, int32_t *allocations) {
        uint32_t status = PARVEX_OK;
        for (int p = kInitialize; p <= faulty; ++p) {
            pvx_Heap2_setAllocationFault(p == faulty ? failAt : 0);
            status = call(static_cast<Phase>(p));
            *allocations = pvx_Heap2_allocationCount();
            pvx_Heap2_setAllocationFault(0);
            if (p < faulty && status != PARVEX_OK) ADD_FAILURE() << kPhaseNames[p] << " failed without a fault";
        }
        return status;
    }

    uint32_t call(Phase phase) {
        parvex_DistortionCorrection *h = engine ? engine->handle() : nullptr;
        switch (phase) {
        case kInitialize:
            engine.reset(new Engine(coefficientParam("YUV420_PLANAR", kW, kH, 0.08, 0.02)));
            return engine->status();
        case kStart: return parvex_DistortionCorrection_start(h);
        case kZoomedFrame: {
            parvex_DistortionCorrection_setZoomRatio(h, 1.25);
            const parvex_ImageData o = dst.data(), i = src.data();
            return parvex_DistortionCorrection_process(h, &o, &i);
        }
        case kInPlaceFrame: {
            parvex_DistortionCorrection_setZoomRatio(h, 1.0);
            const parvex_ImageData io = dst.data();
            return parvex_DistortionCorrection_process(h, &io, &io);
        }
        default: return parvex_DistortionCorrection_finalize(h);
        }
    }
};

TEST(HeapExhaustion, EveryRefusedAllocationIsReportedAndNothingLeaks) {
    pvx_Syscall_setProcessorCountForTesting(3);
    const int baseline = settledThreadCount();
    for (int p = kInitialize; p < kPhases; ++p) {
        const Phase phase = static_cast<Phase>(p);
        int32_t reached = 0;
        {
            Sequence clean;
            ASSERT_EQ(PARVEX_OK, clean.run(phase, 0, &reached)) << kPhaseNames[p];
        }
        if (phase == kZoomedFrame || phase == kStart) {
            EXPECT_GT(reached, 0) << kPhaseNames[p];
        }
        for (int32_t n = 1; n <= reached; ++n) {
            Sequence r;
            int32_t count = 0;
            EXPECT_NE(PARVEX_OK, r.run(phase, n, &count)) << kPhaseNames[p] << ", allocation " << n;
            parvex_DistortionCorrection *h = r.engine->handle();
            if (!h->p) continue;
            pvx_EngineContext *ctx = r.engine->context();
            if (!(ctx->state & PVX_ENGINE_INITIALIZED)) {
                // A refused initialize keeps nothing.
                EXPECT_EQ(0u, pvx_Heap2_getUsedSize(&ctx->env.heap)) << kPhaseNames[p] << ", allocation " << n;
                continue;
            }
            EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_finalize(h)) << kPhaseNames[p] << ", allocation " << n;
            EXPECT_LE(threadCountAfterJoins(baseline), baseline) << kPhaseNames[p] << ", allocation " << n;
        }
    }
    pvx_Syscall_setProcessorCountForTesting(0);
}

}  // namespace
