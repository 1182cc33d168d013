// Splitting one member's work into row bands on the parallel layer.
//
// Half path: n = min(5W, dh) tasks as a dynamically scheduled range kernel.
// General path: n = 2W tasks with a layer (1 without), each owning a slice
// of one scratch area taken from the heap for the call; a single task runs
// directly on the calling thread.
#include "resample/pvx_resize_internal.h"

namespace {

pvx_Result halfRange(void *arg, int32_t begin, int32_t end, const pvx_PelInfo * /*info*/) {
    const pvx_ResizeJob *job = static_cast<const pvx_ResizeJob *>(arg);
    pvx_Result r = PVX_OK;
    for (int32_t i = begin; i < end; ++i) r |= pvx_ImageProc2_shrinkHalfBand(job, i);
    return r;
}

pvx_Result bilinearIndex(void *arg, int32_t index, const pvx_PelInfo * /*info*/) {
    return pvx_ImageProc2_resizeBilinearBand(static_cast<const pvx_ResizeJob *>(arg), index);
}

const pvx_PelDescriptor kHalfKernel = {pvx_Pel_rangeWorker, nullptr, nullptr, halfRange, PVX_PEL_RANGE};
const pvx_PelDescriptor kBilinearKernel = {pvx_Pel_indexedWorker, nullptr, bilinearIndex, nullptr,
                                           PVX_PEL_INDEXED};

// Largest scratch request passed to the heap, whose block sizes are 32-bit.
const uint64_t kMaxScratch = 0xFFFFF000u;

}  // namespace

pvx_Result pvx_ImageProc2_runMember(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                    int32_t member, int32_t half) {
    const pvx_ResizeMember *m = pvx_ImageProc2_getMember(member);
    if (!proc || !dst || !src || !m) return PVX_ERROR_PARAM;
    int32_t workers = pvx_Pel_getNumberOfWorkers(proc->pel);
    if (workers < 1) workers = 1;

    pvx_ResizeJob job;
    job.dst = dst;
    job.src = src;
    job.scratch = nullptr;
    job.member = m;
    job.leaves = &proc->leaves;

    if (half) {
        const int64_t tasks = 5 * static_cast<int64_t>(workers);
        job.n = static_cast<int32_t>(tasks < dst->height ? tasks : dst->height);
        return pvx_Pel_execute(proc->pel, &kHalfKernel, &job, job.n);
    }

    job.n = proc->pel ? 2 * workers : 1;
    const uint64_t width = dst->width > 0 ? static_cast<uint64_t>(dst->width) : 0;
    const uint64_t bytes = width * static_cast<uint64_t>(job.n) * 2 * static_cast<uint64_t>(m->lineBytes);
    if (bytes > kMaxScratch) return PVX_ERROR_NOMEM;
    job.scratch = static_cast<uint8_t *>(pvx_Env_malloc(proc->env, static_cast<size_t>(bytes)));
    if (!job.scratch) return PVX_ERROR_NOMEM;

    // The bands' own codes are not passed on: the scratch is the only thing
    // this path can fail to get.
    if (job.n == 1) {
        pvx_ImageProc2_resizeBilinearBand(&job, 0);
    } else {
        pvx_Pel_execute(proc->pel, &kBilinearKernel, &job, job.n);
    }
    pvx_Env_free(proc->env, job.scratch);
    return PVX_OK;
}
