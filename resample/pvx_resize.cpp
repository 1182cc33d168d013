// Top-level resize: argument checks, the equal-size copy, the half test and
// the dispatch on the destination's format to the members.
#include "resample/pvx_resize_internal.h"

namespace {

const pvx_ResizeMember kMembers[PVX_RESIZE_MEMBERS] = {
    {pvx_ImageProc2_Uint8_resampleRow, pvx_ImageProc2_Uint8_blendRows, pvx_ImageProc2_Uint8_shrinkRow, 1, 1},
    {pvx_ImageProc2_Uint16_resampleRow, pvx_ImageProc2_Uint16_blendRows, pvx_ImageProc2_Uint16_shrinkRow, 2, 2},
    {pvx_ImageProc2_Int32_resampleRow, pvx_ImageProc2_Int32_blendRows, pvx_ImageProc2_Int32_shrinkRow, 8, 4},
    {pvx_ImageProc2_Uint88_resampleRow, pvx_ImageProc2_Uint88_blendRows, pvx_ImageProc2_Uint88_shrinkRow, 4, 2},
    {pvx_ImageProc2_Rgb888_resampleRow, pvx_ImageProc2_Rgb888_blendRows, pvx_ImageProc2_Rgb888_shrinkRow, 3, 3},
};

pvx_Result resizePlane(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src, int32_t member, void *arg) {
    return pvx_ImageProc2_runMember(proc, dst, src, member, *static_cast<const int32_t *>(arg));
}

int64_t distance(int64_t a, int64_t b) { return a > b ? a - b : b - a; }

pvx_Result resize(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src, int32_t allowHalf) {
    if (!proc || !dst || !src) return PVX_ERROR_PARAM;
    if (dst->width == src->width && dst->height == src->height)
        return dst->format == src->format ? pvx_Image_copy(dst, src) : PVX_ERROR_FORMAT;
    // Within one pixel of half the source in both directions (arithmetic shift).
    int32_t half = allowHalf && distance(dst->width, src->width >> 1) <= 1 &&
                   distance(dst->height, src->height >> 1) <= 1;
    return pvx_ImageProc2_forEachPlane(proc, dst, src, resizePlane, &half);
}

}  // namespace

const pvx_ResizeMember *pvx_ImageProc2_getMember(int32_t member) {
    return member >= 0 && member < PVX_RESIZE_MEMBERS ? &kMembers[member] : nullptr;
}

pvx_Result pvx_ImageProc2_resizeImage(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src) {
    return resize(proc, dst, src, 1);
}

pvx_Result pvx_ImageProc2_resizeImageBilinear(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src) {
    return resize(proc, dst, src, 0);
}
