// Cost of handing n tiny tasks to the parallel layer: one pvx_Pel_execute
// on the default pool (one worker per processor, the caller helping) against
// running the same tasks inline, and against the direct path of a null pool.
#include <benchmark/benchmark.h>

#include <new>
#include <vector>

#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"

namespace {

struct Job {
    int32_t *out;
};

// A tiny task: one store.
inline pvx_Result tinyTask(Job *job, int32_t i) {
    job->out[i] = i * 3 + 1;
    return PVX_OK;
}

pvx_Result tinyIndex(void *arg, int32_t i, const pvx_PelInfo *) { return tinyTask(static_cast<Job *>(arg), i); }

pvx_Result tinyRange(void *arg, int32_t b, int32_t e, const pvx_PelInfo *) {
    pvx_Result r = PVX_OK;
    for (int32_t i = b; i < e; ++i) r |= tinyTask(static_cast<Job *>(arg), i);
    return r;
}

const pvx_PelDescriptor kIndexed = {pvx_Pel_indexedWorker, nullptr, tinyIndex, nullptr, PVX_PEL_INDEXED};
const pvx_PelDescriptor kRange = {pvx_Pel_rangeWorker, nullptr, nullptr, tinyRange, PVX_PEL_RANGE};

// The default pool over a heap of its own, kept for the whole run.
struct Pool {
    Pool() : area(1 << 20), mem(new unsigned char[sizeof(pvx_Pel)]) {
        pvx_construct_Env(&env, area.data(), area.size());
        pel = new (mem) pvx_Pel;
        pvx_construct_Pel(pel, &env);
        pvx_Pel_init(pel, nullptr);
    }
    ~Pool() {
        pvx_destruct_Pel(pel);
        delete[] mem;
        pvx_destruct_Env(&env);
    }
    std::vector<unsigned char> area;
    unsigned char *mem;
    pvx_Env env;
    pvx_Pel *pel;
};

Pool &pool() {
    static Pool p;
    return p;
}

void BM_Inline(benchmark::State &state) {
    const int32_t n = static_cast<int32_t>(state.range(0));
    std::vector<int32_t> out(static_cast<size_t>(n));
    Job job{out.data()};
    for (auto _ : state) {
        for (int32_t i = 0; i < n; ++i) tinyIndex(&job, i, nullptr);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_NullPool(benchmark::State &state) {
    const int32_t n = static_cast<int32_t>(state.range(0));
    std::vector<int32_t> out(static_cast<size_t>(n));
    Job job{out.data()};
    for (auto _ : state) {
        benchmark::DoNotOptimize(pvx_Pel_execute(nullptr, &kIndexed, &job, n));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void runOnPool(benchmark::State &state, const pvx_PelDescriptor *desc) {
    const int32_t n = static_cast<int32_t>(state.range(0));
    std::vector<int32_t> out(static_cast<size_t>(n));
    Job job{out.data()};
    pvx_Pel *pel = pool().pel;
    state.counters["workers"] = pvx_Pel_getNumberOfWorkers(pel);
    for (auto _ : state) {
        const pvx_Result r = pvx_Pel_execute(pel, desc, &job, n);
        if (r != PVX_OK) state.SkipWithError("execute failed");
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_PelIndexed(benchmark::State &state) { runOnPool(state, &kIndexed); }
void BM_PelRange(benchmark::State &state) { runOnPool(state, &kRange); }

BENCHMARK(BM_Inline)->Arg(1)->Arg(64)->Arg(2040);
BENCHMARK(BM_NullPool)->Arg(1)->Arg(64)->Arg(2040);
BENCHMARK(BM_PelIndexed)->Arg(1)->Arg(64)->Arg(2040)->UseRealTime();
BENCHMARK(BM_PelRange)->Arg(1)->Arg(64)->Arg(2040)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
