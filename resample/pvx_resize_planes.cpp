// Plane-by-plane application of a single-plane operation.
//
// Single-plane formats go straight to their member. The YUV420 formats run
// the "UINT8" member on the Y plane with the whole images (members read
// plane 0 only), then bind two temporary records as single-plane views of
// the chroma planes of both images: U then V ("UINT8" views) for the planar
// format, the interleaved plane ("UINT88" view) for the semi-planar ones.
// The result is the first failing step's code ORed with both destructors'.
#include "resample/pvx_resize_internal.h"

namespace {

typedef pvx_Result (*ViewFn)(pvx_Image *, const pvx_Image *, int32_t, int32_t, int32_t, int32_t);

pvx_Result chromaPasses(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src, pvx_ImageProc2_PlaneOp op,
                        void *arg, const ViewFn *views, int32_t passes, int32_t member) {
    pvx_Image d, s;
    pvx_Result r = pvx_construct_Image(&d, proc->env);
    if (r == PVX_OK) r = pvx_construct_Image(&s, proc->env);
    for (int32_t p = 0; p < passes && r == PVX_OK; ++p) {
        r = views[p](&d, dst, 0, 0, dst->width, dst->height);
        if (r == PVX_OK) r = views[p](&s, src, 0, 0, src->width, src->height);
        if (r == PVX_OK) r = op(proc, &d, &s, member, arg);
    }
    return r | pvx_destruct_Image(&d) | pvx_destruct_Image(&s);
}

const ViewFn kPlanarViews[2] = {pvx_Image_initSubImageU, pvx_Image_initSubImageV};
const ViewFn kSemiplanarViews[1] = {pvx_Image_initSubImageUV};

}  // namespace

pvx_Result pvx_ImageProc2_forEachPlane(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                       pvx_ImageProc2_PlaneOp op, void *arg) {
    if (!proc || !dst || !src || !op) return PVX_ERROR_PARAM;
    switch (dst->format) {
        case PVX_FORMAT_UINT8: return op(proc, dst, src, PVX_RESIZE_UINT8, arg);
        case PVX_FORMAT_INT32: return op(proc, dst, src, PVX_RESIZE_INT32, arg);
        case PVX_FORMAT_UINT16: return op(proc, dst, src, PVX_RESIZE_UINT16, arg);
        case PVX_FORMAT_UINT88: return op(proc, dst, src, PVX_RESIZE_UINT88, arg);
        case PVX_FORMAT_RGB888: return op(proc, dst, src, PVX_RESIZE_RGB888, arg);
        case PVX_FORMAT_YUV420_PLANAR:
        case PVX_FORMAT_YUV420_SEMIPLANAR:
        case PVX_FORMAT_YVU420_SEMIPLANAR: {
            const pvx_Result r = op(proc, dst, src, PVX_RESIZE_UINT8, arg);
            if (r != PVX_OK) return r;
            if (dst->format == PVX_FORMAT_YUV420_PLANAR)
                return chromaPasses(proc, dst, src, op, arg, kPlanarViews, 2, PVX_RESIZE_UINT8);
            return chromaPasses(proc, dst, src, op, arg, kSemiplanarViews, 1, PVX_RESIZE_UINT88);
        }
        default: return PVX_ERROR_FORMAT;
    }
}
