// Whole-image mapping through the lens model: every destination pixel is
// taken as a distorted position, mapped back with dcbackward and sampled
// bilinearly from the source (edges clamped). Strips of 32 rows are claimed
// by the workers of the parallel layer.
#include <cstdint>

#include "lens/pvx_zelkov4.h"
#include "runtime/pvx_raw_double.h"

namespace {

constexpr int32_t kStripRows = 32;

struct ProcessJob {
    const pvx_Zelkov4DistortionCorrection *lens;
    const pvx_Image *src;
    pvx_Image *dst;
    int32_t channels;
    double scale;   // pixel distance -> normalised radius
};

// Splits a source coordinate into the two neighbouring sample indices and
// the weight of the second, clamping to the image (NaN lands on 0).
inline void splitCoord(double s, int32_t size, int32_t *i0, int32_t *i1, double *frac) {
    const double hi = static_cast<double>(size - 1);
    if (!(s > 0.0)) s = 0.0;
    if (s > hi) s = hi;
    const int32_t i = static_cast<int32_t>(s);   // 0 <= s <= size-1 here
    if (i >= size - 1) {
        *i0 = size - 1;
        *i1 = size - 1;
        *frac = 0.0;
    } else {
        *i0 = i;
        *i1 = i + 1;
        *frac = s - static_cast<double>(i);
    }
}

void renderRow(const ProcessJob *job, int32_t y) {
    const pvx_Image *src = job->src;
    const int32_t w = job->dst->width;
    const int32_t h = job->dst->height;
    const int32_t ch = job->channels;
    uint8_t *out = pvx_Image_row(job->dst, 0, y);
    for (int32_t x = 0; x < w; ++x) {
        double sx = 0.0;
        double sy = 0.0;
        pvx_Zelkov4DistortionCorrection_dcbackward(job->lens, &sx, &sy, static_cast<double>(x),
                                                   static_cast<double>(y), static_cast<double>(w),
                                                   static_cast<double>(h), job->scale);
        int32_t x0, x1, y0, y1;
        double fx, fy;
        splitCoord(sx, src->width, &x0, &x1, &fx);
        splitCoord(sy, src->height, &y0, &y1, &fy);
        const uint8_t *r0 = pvx_Image_row(src, 0, y0);
        const uint8_t *r1 = pvx_Image_row(src, 0, y1);
        for (int32_t c = 0; c < ch; ++c) {
            const double p00 = r0[static_cast<ptrdiff_t>(x0) * ch + c];
            const double p01 = r0[static_cast<ptrdiff_t>(x1) * ch + c];
            const double p10 = r1[static_cast<ptrdiff_t>(x0) * ch + c];
            const double p11 = r1[static_cast<ptrdiff_t>(x1) * ch + c];
            const double top = p00 * (1.0 - fx) + p01 * fx;
            const double bottom = p10 * (1.0 - fx) + p11 * fx;
            const double v = top * (1.0 - fy) + bottom * fy + 0.5;
            // v lies in [0.5, 255.5] as a convex combination of bytes.
            out[static_cast<ptrdiff_t>(x) * ch + c] = static_cast<uint8_t>(v >= 255.0 ? 255 : static_cast<int32_t>(v));
        }
    }
}

pvx_Result renderStrips(void *arg, int32_t begin, int32_t end, const pvx_PelInfo *) {
    const ProcessJob *job = static_cast<const ProcessJob *>(arg);
    const int64_t h = job->dst->height;
    for (int32_t s = begin; s < end; ++s) {
        const int64_t y0 = static_cast<int64_t>(s) * kStripRows;
        const int64_t y1 = y0 + kStripRows < h ? y0 + kStripRows : h;
        for (int64_t y = y0; y < y1; ++y) renderRow(job, static_cast<int32_t>(y));
    }
    return PVX_OK;
}

const pvx_PelDescriptor kStripKernel = {pvx_Pel_rangeWorker, nullptr, nullptr, renderStrips, PVX_PEL_RANGE};

int32_t channelsOf(int32_t format) {
    switch (format) {
    case PVX_FORMAT_UINT8: return 1;
    case PVX_FORMAT_RGB888:
    case PVX_FORMAT_BGR888: return 3;
    default: return 0;
    }
}

}  // namespace

pvx_Result pvx_Zelkov4DistortionCorrection_process(pvx_Zelkov4DistortionCorrection *lens, const pvx_Image *src,
                                                   pvx_Image *dst) {
    if (lens == nullptr || src == nullptr || dst == nullptr) return PVX_ERROR_PARAM;
    if (lens->table == nullptr) return PVX_ERROR_STATE;
    const int32_t channels = channelsOf(src->format);
    if (channels == 0 || dst->format != src->format) return PVX_ERROR_FORMAT;
    if (src->width != dst->width || src->height != dst->height || src->width < 0 || src->height < 0)
        return PVX_ERROR_PARAM;
    if (src->width == 0 || src->height == 0) return PVX_OK;
    if (src->dat[0] == nullptr || dst->dat[0] == nullptr) return PVX_ERROR_PARAM;

    // Reading and writing the same pixels: work from a private copy.
    pvx_Image tmp;
    pvx_construct_Image(&tmp, lens->env);
    const pvx_Image *from = src;
    if (src == dst || src->dat[0] == dst->dat[0]) {
        const pvx_Result r = pvx_Image_copy(&tmp, src);
        if (r != PVX_OK) {
            pvx_destruct_Image(&tmp);
            return r;
        }
        from = &tmp;
    }

    ProcessJob job;
    job.lens = lens;
    job.src = from;
    job.dst = dst;
    job.channels = channels;
    // Radii are measured in half-diagonals.
    job.scale = 1.0 / (0.5 * pvx_RawDouble_hypot(static_cast<double>(dst->width), static_cast<double>(dst->height)));

    const int32_t strips = static_cast<int32_t>((static_cast<int64_t>(dst->height) + kStripRows - 1) / kStripRows);
    const pvx_Result r = pvx_Pel_execute(lens->pel, &kStripKernel, &job, strips);
    pvx_destruct_Image(&tmp);
    return r;
}
