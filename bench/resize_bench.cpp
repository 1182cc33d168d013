// Resize of a YUV420_SEMIPLANAR frame from its zoom-1.5 centre part, as the
// engine's zoom path does: the centred, even-aligned view of an input-size
// image enlarged back to the frame size, on the calling thread alone and on
// a pool of all workers.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <vector>

#include "image/pvx_image.h"
#include "resample/pvx_imageproc2.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"

namespace {

struct Frame {
    std::vector<uint8_t> bytes;
    pvx_Image image;

    Frame(int32_t w, int32_t h) {
        const size_t luma = static_cast<size_t>(w) * h;
        const size_t chroma = static_cast<size_t>((w + 1) / 2) * 2 * ((h + 1) / 2);
        bytes.resize(luma + chroma);
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>((i * 2654435761u) >> 24);
        memset(&image, 0, sizeof image);
        pvx_construct_Image(&image, nullptr);
        void *planes[2] = {bytes.data(), bytes.data() + luma};
        pvx_Image_init(&image, w, h, planes, PVX_FORMAT_YUV420_SEMIPLANAR);
    }
};

// Arguments: frame width, height, workers (-1: no parallel layer, 0: all processors).
void resizeFrame(benchmark::State &state) {
    const int32_t w = static_cast<int32_t>(state.range(0)), h = static_cast<int32_t>(state.range(1));
    const int32_t workers = static_cast<int32_t>(state.range(2));

    // Centre part at zoom 1.5, even-sized and even-aligned.
    const int32_t sw = static_cast<int32_t>(w / 1.5 + 0.5) & ~1, sh = static_cast<int32_t>(h / 1.5 + 0.5) & ~1;
    const int32_t sx = (w / 2 - (sw >> 1) + 1) & ~1, sy = (h / 2 - (sh >> 1) + 1) & ~1;
    Frame work(w, h), out(w, h);
    pvx_Image part;
    pvx_construct_Image(&part, nullptr);
    if (pvx_Image_initSubImage(&part, &work.image, sx, sy, sw, sh) != PVX_OK) {
        state.SkipWithError("sub-image failed");
        return;
    }

    const size_t heapSize = pvx_Pel_getBufferSize() + (16u << 20);
    std::vector<uint8_t> area(heapSize);
    pvx_Env env;
    pvx_construct_Env(&env, area.data(), area.size());
    std::unique_ptr<pvx_Pel> pel;
    if (workers >= 0) {
        pel.reset(new pvx_Pel);
        pvx_construct_Pel(pel.get(), &env);
        pvx_PelParams params;
        pvx_Pel_resetParams(&params);
        params.numWorkers = workers;
        if (pvx_Pel_init(pel.get(), &params) != PVX_OK) {
            state.SkipWithError("pool start failed");
            return;
        }
    }
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, &env);
    pvx_ImageProc2_setPel(&proc, pel.get());

    for (auto _ : state) {
        if (pvx_ImageProc2_resizeImage(&proc, &out.image, &part) != PVX_OK) {
            state.SkipWithError("resize failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    state.counters["workers"] = pel ? pvx_Pel_getNumberOfWorkers(pel.get()) : 0;
    state.counters["MP/s"] = benchmark::Counter(static_cast<double>(w) * h / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.SetLabel(std::to_string(sw) + "x" + std::to_string(sh) + " -> " + std::to_string(w) + "x" +
                   std::to_string(h));

    pvx_destruct_ImageProc2(&proc);
    if (pel) pvx_destruct_Pel(pel.get());
    pvx_destruct_Image(&part);
    pvx_destruct_Env(&env);
}

BENCHMARK(resizeFrame)
    ->ArgNames({"w", "h", "workers"})
    ->Args({1920, 1080, -1})
    ->Args({1920, 1080, 0})
    ->Args({4000, 3000, -1})
    ->Args({4000, 3000, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
