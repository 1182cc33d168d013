// Shrink by an integer factor f, averaging f x f blocks.
//
// The destination measures ceil(sw / f) x ceil(sh / f) and has the source's
// format; blocks at the right and bottom edges are cut by the image and
// average the pixels they hold. Each output is the rounded mean
// floor((sum + count / 2) / count) per channel. Formats and planes are
// those of the resize; rows are split into min(5W, dh) tasks claimed
// dynamically on the parallel layer.
#include <string.h>

#include "resample/pvx_resize_internal.h"

namespace {

// Largest factor: block sums of 32-bit samples then stay far inside 64 bits.
const int32_t kMaxFactor = 1024;

struct ShrinkJob {
    pvx_Image *dst;
    const pvx_Image *src;
    int32_t factor;
    int32_t member;
    int32_t n;
};

inline int64_t sample(const uint8_t *row, int64_t i, int32_t member) {
    switch (member) {
        case PVX_RESIZE_UINT16: {
            uint16_t v;
            memcpy(&v, row + 2 * i, 2);
            return v;
        }
        case PVX_RESIZE_INT32: {
            int32_t v;
            memcpy(&v, row + 4 * i, 4);
            return v;
        }
        default: return row[i];
    }
}

inline void store(uint8_t *row, int64_t i, int64_t v, int32_t member) {
    switch (member) {
        case PVX_RESIZE_UINT16: {
            const uint16_t s = static_cast<uint16_t>(v);
            memcpy(row + 2 * i, &s, 2);
            break;
        }
        case PVX_RESIZE_INT32: {
            const int32_t s = static_cast<int32_t>(v);
            memcpy(row + 4 * i, &s, 4);
            break;
        }
        default: row[i] = static_cast<uint8_t>(v);
    }
}

int32_t channelsOf(int32_t member) {
    return member == PVX_RESIZE_UINT88 ? 2 : member == PVX_RESIZE_RGB888 ? 3 : 1;
}

// Floor division by a positive count (sums of "INT32" blocks can be negative).
inline int64_t floorDiv(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return (a % b != 0 && a < 0) ? q - 1 : q;
}

void shrinkRow(const ShrinkJob *job, int32_t y) {
    const pvx_Image *src = job->src;
    const int32_t f = job->factor, channels = channelsOf(job->member);
    const int32_t dw = job->dst->width, sw = src->width, sh = src->height;
    const int64_t r0 = static_cast<int64_t>(y) * f;
    const int64_t r1 = r0 + f < sh ? r0 + f : sh;
    uint8_t *out = pvx_Image_row(job->dst, 0, y);
    for (int32_t x = 0; x < dw; ++x) {
        const int64_t c0 = static_cast<int64_t>(x) * f;
        const int64_t c1 = c0 + f < sw ? c0 + f : sw;
        const int64_t count = (r1 - r0) * (c1 - c0);
        for (int32_t c = 0; c < channels; ++c) {
            int64_t sum = 0;
            for (int64_t r = r0; r < r1; ++r) {
                const uint8_t *row = pvx_Image_row(src, 0, static_cast<int32_t>(r));
                for (int64_t i = c0; i < c1; ++i) sum += sample(row, i * channels + c, job->member);
            }
            store(out, static_cast<int64_t>(x) * channels + c, floorDiv(sum + count / 2, count), job->member);
        }
    }
}

pvx_Result shrinkRange(void *arg, int32_t begin, int32_t end, const pvx_PelInfo * /*info*/) {
    const ShrinkJob *job = static_cast<const ShrinkJob *>(arg);
    const int32_t dh = job->dst->height;
    const int64_t n = job->n;
    for (int32_t i = begin; i < end; ++i) {
        const int32_t y0 = static_cast<int32_t>(static_cast<int64_t>(dh) * i / n);
        const int32_t y1 = static_cast<int32_t>(static_cast<int64_t>(dh) * (i + 1) / n);
        for (int32_t y = y0; y < y1; ++y) shrinkRow(job, y);
    }
    return PVX_OK;
}

const pvx_PelDescriptor kShrinkKernel = {pvx_Pel_rangeWorker, nullptr, nullptr, shrinkRange, PVX_PEL_RANGE};

int32_t ceilDiv(int32_t a, int32_t b) { return static_cast<int32_t>((static_cast<int64_t>(a) + b - 1) / b); }

pvx_Result shrinkPlane(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src, int32_t member, void *arg) {
    const int32_t factor = *static_cast<const int32_t *>(arg);
    // Plane views derive their own sizes; check them again.
    if (dst->width != ceilDiv(src->width, factor) || dst->height != ceilDiv(src->height, factor))
        return PVX_ERROR_PARAM;
    if (dst->height == 0 || dst->width == 0) return PVX_OK;
    if (!dst->dat[0] || !src->dat[0]) return PVX_ERROR_PARAM;
    int32_t workers = pvx_Pel_getNumberOfWorkers(proc->pel);
    if (workers < 1) workers = 1;
    const int64_t tasks = 5 * static_cast<int64_t>(workers);
    ShrinkJob job = {dst, src, factor, member, static_cast<int32_t>(tasks < dst->height ? tasks : dst->height)};
    return pvx_Pel_execute(proc->pel, &kShrinkKernel, &job, job.n);
}

}  // namespace

pvx_Result pvx_ImageProc2_averageShrink(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                        int32_t factor) {
    if (!proc || !dst || !src) return PVX_ERROR_PARAM;
    if (factor < 1 || factor > kMaxFactor) return PVX_ERROR_PARAM;
    if (dst->format != src->format) return PVX_ERROR_FORMAT;
    if (src->width < 0 || src->height < 0) return PVX_ERROR_PARAM;
    return pvx_ImageProc2_forEachPlane(proc, dst, src, shrinkPlane, &factor);
}
