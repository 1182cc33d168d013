// The engine never reports success for work it did not do and leaves no
// thread behind a refusal: any processor count, refused initializations,
// failed finalizes, short buffers and waits that time out. These tests also
// form the engine's ThreadSanitizer run (frames at 1, 2, 3 and 16 workers,
// zoomed and in place).
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

const char kFormat[] = "YUV420_SEMIPLANAR";
const int32_t kFormatValue = 27;
const int32_t kW = 320, kH = 240;

using pvx_test::settledThreadCount;
using pvx_test::threadCount;
using pvx_test::threadCountAfterJoins;

// Threads an engine runs beside the caller: one per processor beyond the
// first, up to 16. Under an emulator a thread joined earlier may still be
// counted in the baseline.
void expectWorkers(int threads, int baseline, int32_t processors) {
    const int expected = baseline + (processors < 17 ? processors : 17) - 1;
#ifdef PVX_TEST_UNDER_EMULATOR
    EXPECT_LE(threads, expected) << processors;
    EXPECT_GE(threads, expected - 1) << processors;
#else
    EXPECT_EQ(expected, threads) << processors;
#endif
}

struct ProcessorCount {
    explicit ProcessorCount(int32_t n) { pvx_Syscall_setProcessorCountForTesting(n); }
    ~ProcessorCount() { pvx_Syscall_setProcessorCountForTesting(0); }
};

// A source with detail everywhere, so that every output pixel tells where it
// was sampled.
Frame source(int32_t w = kW, int32_t h = kH) {
    Frame f(kFormatValue, w, h);
    f.fill([](int p, int32_t x, int32_t y) { return static_cast<uint8_t>(x * 7 + y * 13 + p * 50 + (x * y >> 4)); });
    return f;
}

// Corrects `src` with a barrel lens at `zoom`, in place or not, on an engine
// whose processor count is faked to `processors`. The frame is drawn twice
// over different prefills, so a pixel the call left undrawn shows up as a
// difference between the two.
Frame correct(int32_t processors, double zoom, bool inPlace, uint32_t *status, int32_t *threadsWhileStarted) {
    const Frame src = source();
    Frame out[2] = {Frame(kFormatValue, kW, kH), Frame(kFormatValue, kW, kH)};
    ProcessorCount faked(processors);
    Engine e(coefficientParam(kFormat, kW, kH, 0.05, 0.01));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    *threadsWhileStarted = threadCount();
    if (zoom != 1.0) {
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), zoom));
    }
    *status = PARVEX_OK;
    for (int k = 0; k < 2; ++k) {
        out[k].fillConstant(k == 0 ? 0x00 : 0xFF);
        if (inPlace) out[k].copyPixelsFrom(src);
        const parvex_ImageData o = out[k].data(), i = inPlace ? out[k].data() : src.data();
        *status |= parvex_DistortionCorrection_process(e.handle(), &o, &i);
    }
    EXPECT_TRUE(out[0].samePixels(out[1])) << "pixels left undrawn with " << processors << " processors";
    EXPECT_TRUE(out[0].bandsIntact());
    return std::move(out[0]);
}

TEST(Robustness, FramesAreWholeAndEqualAtEveryProcessorCount) {
    const int baseline = settledThreadCount();
    struct Case { double zoom; bool inPlace; } cases[] = {{1.0, false}, {1.0, true}, {1.5, false}};
    for (const Case &c : cases) {
        uint32_t status;
        int32_t threads;
        const Frame reference = correct(1, c.zoom, c.inPlace, &status, &threads);
        ASSERT_EQ(PARVEX_OK, status);
        expectWorkers(threads, baseline, 1);
        for (int32_t n : {2, 3, 16, 17, 18, 64, 256}) {
            const Frame f = correct(n, c.zoom, c.inPlace, &status, &threads);
            EXPECT_EQ(PARVEX_OK, status) << n;
            EXPECT_TRUE(f.samePixels(reference)) << n << " processors, zoom " << c.zoom << " in place " << c.inPlace;
            expectWorkers(threads, baseline, n);
            EXPECT_LE(threadCountAfterJoins(baseline), baseline) << "threads outlived finalize";
        }
    }
}

// Every call but finalize needs an engine that initialize accepted.
void expectRefusesEverything(parvex_DistortionCorrection *h) {
    const Frame src = source();
    Frame dst(kFormatValue, kW, kH);
    const parvex_ImageData o = dst.data(), i = src.data();
    const parvex_ImageDataEx oe = dst.dataEx(), ie = src.dataEx();
    int32_t a = 0, b = 0, c = 0, d = 0;
    double s = 0;
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_start(h));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_process(h, &o, &i));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_processEx(h, &oe, &ie));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_distort(h, &o, &i));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_distortEx(h, &oe, &ie));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setOutputImageSize(h, kW, kH));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setInputCenter(h, 1, 1));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_getRecommendedOutputSize(h, &a, &b));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setZoomRatio(h, 2));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setCropRect(h, 0, 0, kW, kH));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_getCropRect(h, &a, &b, &c, &d));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_setCorrectionStrength(h, 0.5));
    EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_getCorrectionStrength(h, &s));
    EXPECT_TRUE(dst.bandsIntact());
}

TEST(Robustness, RefusedInitializeLeavesAHandleThatRefusesEverything) {
    const std::vector<double> points(300, 0.5);
    parvex_DistortionCorrection_InitParam table = pvx_test::tableParam(kFormat, kW, kH, points, points);
    parvex_DistortionCorrection_InitParam format = coefficientParam("YUV422_PLANAR", kW, kH);
    parvex_DistortionCorrection_InitParam mode = coefficientParam(kFormat, kW, kH);
    mode.mode = 2;
    struct Case { const char *name; parvex_DistortionCorrection_InitParam param; int32_t failAllocation; uint32_t code; };
    const Case cases[] = {{"300 points", table, 0, PARVEX_ERROR_PARAM},
                          {"format", format, 0, PARVEX_ERROR_IMAGE_FORMAT},
                          {"mode", mode, 0, PARVEX_ERROR_PARAM},
                          {"lens tables", coefficientParam(kFormat, kW, kH), 1, PARVEX_ERROR_MALLOC}};
    const int baseline = settledThreadCount();
    for (const Case &c : cases) {
        pvx_Heap2_setAllocationFault(c.failAllocation);
        Engine e(c.param);
        pvx_Heap2_setAllocationFault(0);
        EXPECT_EQ(c.code, e.status()) << c.name;
        ASSERT_NE(nullptr, e.context()) << c.name;
        expectRefusesEverything(e.handle());
        EXPECT_EQ(0u, pvx_Heap2_getUsedSize(&e.context()->env.heap)) << c.name;
        EXPECT_LE(threadCountAfterJoins(baseline), baseline) << c.name;
        EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_finalize(e.handle())) << c.name;
    }
}

TEST(Robustness, FailedFinalizeEndsTheWorkersAndRefusesEverythingUntilFinalizedAgain) {
    const int baseline = settledThreadCount();
    ProcessorCount faked(4);
    Engine e(coefficientParam(kFormat, kW, kH, 0.05));
    parvex_DistortionCorrection *h = e.handle();
    const Frame src = source();
    Frame dst(kFormatValue, kW, kH);
    const parvex_ImageData o = dst.data(), i = src.data();
    // A zoomed frame gives the intermediate image a block; the repeated
    // start forgets it, so the heap reports it at finalize.
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(h));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(h, 1.5));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(h, &o, &i));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(h));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(h, &o, &i));
    expectWorkers(threadCount(), baseline, 4);
    ASSERT_EQ(PARVEX_ERROR_MALLOC, parvex_DistortionCorrection_finalize(h));
    EXPECT_LE(threadCountAfterJoins(baseline), baseline);
    ASSERT_EQ(e.buffer(), h->p);
    expectRefusesEverything(h);
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_finalize(h));
    EXPECT_EQ(nullptr, h->p);
}

// A buffer between the context and what getBufferSize asks for: whatever
// does not fit is reported by the call that needed it.
TEST(Robustness, ShortBuffersAreReportedNeverDrawnAsNothing) {
    const parvex_DistortionCorrection_InitParam param = coefficientParam(kFormat, kW, kH);
    const int32_t asked = parvex_DistortionCorrection_getBufferSize(&param);
    const Frame src = source();
    Frame dst(kFormatValue, kW, kH);
    const parvex_ImageData o = dst.data(), i = src.data();
    bool sawWhole = false, sawShortStart = false, sawShortZoom = false;
    // The sizes where the lens tables, the mesh and the intermediate image
    // each stop fitting lie within 300 kB of the context at this frame size.
#ifdef PVX_TEST_UNDER_EMULATOR
    const int32_t step = 9001;
#else
    const int32_t step = 3079;
#endif
    for (int32_t size = PVX_ENGINE_CONTEXT_SIZE + 4096; size < PVX_ENGINE_CONTEXT_SIZE + 300000; size += step) {
        Engine e(param, size - asked);
        if (e.status() != PARVEX_OK) continue;
        const uint32_t started = parvex_DistortionCorrection_start(e.handle());
        if (started != PARVEX_OK) {
            EXPECT_EQ(PARVEX_ERROR_MALLOC, started);
            EXPECT_EQ(PARVEX_ERROR_STATE, parvex_DistortionCorrection_process(e.handle(), &o, &i));
            sawShortStart = true;
            continue;
        }
        dst.fillConstant(0);
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &o, &i));
        EXPECT_NE(0, dst.row(0, kH / 2)[kW / 2]);
        EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), 1.5));
        const uint32_t zoomed = parvex_DistortionCorrection_process(e.handle(), &o, &i);
        if (zoomed != PARVEX_OK) {
            EXPECT_EQ(PARVEX_ERROR_HEAP_EXHAUSTED, zoomed) << "the heap's own code passes up";
            sawShortZoom = true;
        } else {
            sawWhole = true;
        }
    }
    EXPECT_TRUE(sawWhole);
    EXPECT_TRUE(sawShortStart);
    EXPECT_TRUE(sawShortZoom);
}

// A wait that times out while workers still draw cannot end the frame call:
// with waits of 0 ms and more workers than processors, every frame is still
// whole (a time-out may be reported, nothing else).
TEST(Robustness, FramesWaitForTheirTasksWhateverTheTimeOut) {
    uint32_t status;
    int32_t threads;
    const Frame reference = correct(1, 1.5, false, &status, &threads);
    ProcessorCount faked(16);
    Engine e(coefficientParam(kFormat, kW, kH, 0.05, 0.01));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    e.context()->pel.params.waitTimeoutMs = 0;
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), 1.5));
    const Frame src = source();
    for (int k = 0; k < 6; ++k) {
        Frame dst(kFormatValue, kW, kH);
        const parvex_ImageData o = dst.data(), i = src.data();
        const uint32_t r = parvex_DistortionCorrection_process(e.handle(), &o, &i);
        EXPECT_TRUE(r == PARVEX_OK || r == PARVEX_ERROR_WAIT_TIMEOUT) << std::hex << r;
        EXPECT_TRUE(dst.samePixels(reference)) << k;
    }
}

}  // namespace
