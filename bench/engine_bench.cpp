// Frame time of the public calls: process at zoom 1 and 1.5 and distort, for
// each engine format, with one worker and with all workers.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "engine/pvx_engine_context.h"
#include "parvex_distortion_correction.h"
#include "runtime/pvx_pel.h"

namespace {

const char *const kFormats[] = {"RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR", "YVU420_SEMIPLANAR"};

struct Frame {
    std::vector<uint8_t> bytes;
    parvex_ImageData data;
};

Frame makeFrame(const char *format, int32_t w, int32_t h) {
    Frame f;
    const bool rgb = format[0] == 'R' || format[0] == 'B';
    const size_t luma = static_cast<size_t>(w) * h;
    f.bytes.resize(rgb ? luma * 3 : luma + 2 * (static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2)));
    for (size_t i = 0; i < f.bytes.size(); ++i) f.bytes[i] = static_cast<uint8_t>((i * 2654435761u) >> 24);
    f.data.width = w;
    f.data.height = h;
    f.data.dat[0] = f.bytes.data();
    f.data.dat[1] = rgb ? nullptr : f.bytes.data() + luma;
    f.data.dat[2] = nullptr;
    if (strcmp(format, "YUV420_PLANAR") == 0)   // U then V at half size
        f.data.dat[2] = f.bytes.data() + luma + static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2);
    return f;
}

enum class Call { Process, Distort };

// Arguments: format index, width, height, zoom x 100, workers (0 = all).
void frameCall(benchmark::State &state, Call call) {
    const char *format = kFormats[state.range(0)];
    const int32_t w = static_cast<int32_t>(state.range(1)), h = static_cast<int32_t>(state.range(2));
    const double zoom = state.range(3) / 100.0;
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = format;
    param.width = w;
    param.height = h;
    param.coef[0] = -0.2;
    param.coef[1] = 0.03;
    const int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
    void *buffer = aligned_alloc(64, (static_cast<size_t>(size) + 63) / 64 * 64);
    parvex_DistortionCorrection h0;
    if (parvex_DistortionCorrection_initialize(&h0, buffer, size, &param) != PARVEX_OK ||
        parvex_DistortionCorrection_start(&h0) != PARVEX_OK) {
        state.SkipWithError("engine set-up failed");
        free(buffer);
        return;
    }
    if (state.range(4) > 0) {
        pvx_PelParams params;
        pvx_Pel_resetParams(&params);
        params.numWorkers = static_cast<int32_t>(state.range(4));
        pvx_Pel_init(&static_cast<pvx_EngineContext *>(h0.p)->pel, &params);
    }
    parvex_DistortionCorrection_setZoomRatio(&h0, zoom);
    Frame in = makeFrame(format, w, h), out = makeFrame(format, w, h);
    for (auto _ : state) {
        const uint32_t r = call == Call::Process ? parvex_DistortionCorrection_process(&h0, &out.data, &in.data)
                                                 : parvex_DistortionCorrection_distort(&h0, &out.data, &in.data);
        if (r != PARVEX_OK) state.SkipWithError("frame call failed");
        benchmark::DoNotOptimize(out.bytes.data());
    }
    state.counters["MPix/s"] = benchmark::Counter(static_cast<double>(w) * h * state.iterations() / 1e6,
                                                  benchmark::Counter::kIsRate);
    state.SetLabel(format);
    parvex_DistortionCorrection_finalize(&h0);
    free(buffer);
}

void process(benchmark::State &state) { frameCall(state, Call::Process); }
void distort(benchmark::State &state) { frameCall(state, Call::Distort); }

void processArgs(benchmark::internal::Benchmark *b) {
    for (int64_t f = 0; f < 5; ++f)
        for (auto size : {std::pair<int64_t, int64_t>{1920, 1080}, {4000, 3000}})
            for (int64_t zoom : {100, 150})
                for (int64_t workers : {1, 0}) {
                    // The resize does not scale BGR888: zoom 1 only.
                    if (f == 1 && zoom != 100) continue;
                    b->Args({f, size.first, size.second, zoom, workers});
                }
}

void distortArgs(benchmark::internal::Benchmark *b) {
    for (int64_t f = 0; f < 5; ++f)
        for (int64_t workers : {1, 0}) b->Args({f, 1920, 1080, 100, workers});
}

BENCHMARK(process)->Apply(processArgs)->ArgNames({"format", "w", "h", "zoom%", "workers"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(distort)->Apply(distortArgs)->ArgNames({"format", "w", "h", "zoom%", "workers"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
