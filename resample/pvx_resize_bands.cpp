// Band routines of the resizer: one task's rows of the general (bilinear)
// path with its two-line row cache, and one task's rows of the 2:1 box path.
// The per-row work is done by the member's row functions.
#include "resample/pvx_resize_internal.h"

namespace {

// Common checks of both bands; 0 when the band may run.
pvx_Result checkBand(const pvx_ResizeJob *job, int32_t task) {
    if (!job || !job->dst || !job->src || !job->member) return PVX_ERROR_PARAM;
    const pvx_Image *d = job->dst;
    const pvx_Image *s = job->src;
    if (d->width <= 0 || d->height <= 0 || s->width <= 0 || s->height <= 0) return PVX_ERROR_FAIL;
    if (!d->dat[0] || !s->dat[0] || job->n <= 0 || task < 0 || task >= job->n) return PVX_ERROR_PARAM;
    return PVX_OK;
}

}  // namespace

pvx_Result pvx_ImageProc2_resizeBilinearBand(const pvx_ResizeJob *job, int32_t task) {
    const pvx_Result r = checkBand(job, task);
    if (r != PVX_OK) return r;
    if (!job->scratch || !job->leaves) return PVX_ERROR_PARAM;
    const pvx_ResizeMember *m = job->member;
    pvx_Image *dst = job->dst;
    const pvx_Image *src = job->src;
    const int32_t dw = dst->width, dh = dst->height, sw = src->width, sh = src->height;
    const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);

    // Rows ceil(dh*i/n) .. ceil(dh*(i+1)/n).
    const int64_t n = job->n;
    const int32_t yBegin = static_cast<int32_t>((static_cast<int64_t>(dh) * task + n - 1) / n);
    const int32_t yEnd = static_cast<int32_t>((static_cast<int64_t>(dh) * (task + 1) + n - 1) / n);

    // This task's slice of the scratch area: two lines of dw samples.
    const size_t lineSize = static_cast<size_t>(dw) * static_cast<size_t>(m->lineBytes);
    uint8_t *slice = job->scratch + static_cast<size_t>(task) * 2 * lineSize;
    void *upper = slice;
    void *lower = slice + lineSize;
    int64_t held0 = -1, held1 = -1;   // source rows in `upper` and `lower`; none yet
    const pvx_ResizeLeaves *leaves = job->leaves;

    for (int32_t y = yBegin; y < yEnd; ++y) {
        const int64_t ys = pvx_ImageProc2_rowPosition(y, sh, dh);
        int64_t y0 = ys < 0 ? 0 : ys >> 15;
        int64_t y1 = ys < -32768 ? 0 : (ys >> 15) + 1;
        if (y0 > sh - 1) y0 = sh - 1;
        if (y1 > sh - 1) y1 = sh - 1;

        if (held0 >= 0 && y0 == held0 && y1 == held1) {
            // Both rows already resampled.
        } else if (held0 >= 0 && held1 == y0) {
            void *t = upper;
            upper = lower;
            lower = t;
            m->resampleRow(lower, pvx_Image_row(src, 0, static_cast<int32_t>(y1)), sw, dw, g.x0, g.step, g.safe, leaves);
        } else {
            m->resampleRow(upper, pvx_Image_row(src, 0, static_cast<int32_t>(y0)), sw, dw, g.x0, g.step, g.safe, leaves);
            m->resampleRow(lower, pvx_Image_row(src, 0, static_cast<int32_t>(y1)), sw, dw, g.x0, g.step, g.safe, leaves);
        }
        held0 = y0;
        held1 = y1;

        m->blendRows(pvx_Image_row(dst, 0, y), upper, lower, dw, static_cast<int32_t>(ys & 32767), leaves);
    }
    return PVX_OK;
}

pvx_Result pvx_ImageProc2_shrinkHalfBand(const pvx_ResizeJob *job, int32_t task) {
    const pvx_Result r = checkBand(job, task);
    if (r != PVX_OK) return r;
    pvx_Image *dst = job->dst;
    const pvx_Image *src = job->src;
    const int32_t dw = dst->width, dh = dst->height, sw = src->width, sh = src->height;

    // Rows floor(dh*i/n) .. min(floor(dh*(i+1)/n), dh).
    const int64_t n = job->n;
    const int32_t yBegin = static_cast<int32_t>(static_cast<int64_t>(dh) * task / n);
    int64_t end = static_cast<int64_t>(dh) * (task + 1) / n;
    const int32_t yEnd = static_cast<int32_t>(end < dh ? end : dh);

    for (int32_t y = yBegin; y < yEnd; ++y) {
        const int64_t a = 2 * static_cast<int64_t>(y);
        const int32_t r0 = static_cast<int32_t>(a < sh - 1 ? a : sh - 1);
        const int32_t r1 = static_cast<int32_t>(a + 1 < sh - 1 ? a + 1 : sh - 1);
        job->member->shrinkRow(pvx_Image_row(dst, 0, y), pvx_Image_row(src, 0, r0), pvx_Image_row(src, 0, r1), sw, dw);
    }
    return PVX_OK;
}
