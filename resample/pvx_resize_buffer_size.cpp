// Heap memory queries of the image-processing object.
//
// A resize takes one scratch block per member pass on the general path
// (dw x tasks x two lines); the passes of a multi-plane format run one after
// another, so the largest pass counts. Sizes are whole heap blocks (payload
// plus the 8-byte header, rounded up to 16), 0 when nothing is taken.
#include "resample/pvx_resize_internal.h"

namespace {

int64_t heapBlock(int64_t payload) { return payload > 0 ? (payload + 8 + 15) / 16 * 16 : 0; }

int64_t passBytes(int64_t width, int32_t member, int64_t tasks) {
    return width * tasks * 2 * pvx_ImageProc2_getMember(member)->lineBytes;
}

}  // namespace

int64_t pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(int32_t dstWidth, int32_t format, int32_t workers) {
    if (dstWidth <= 0) return 0;
    // workers <= 0: no parallel layer, one task.
    const int64_t tasks = workers > 0 ? 2 * static_cast<int64_t>(workers) : 1;
    const int64_t chroma = (static_cast<int64_t>(dstWidth) + 1) / 2;
    int64_t bytes = 0;
    switch (format) {
        case PVX_FORMAT_UINT8: bytes = passBytes(dstWidth, PVX_RESIZE_UINT8, tasks); break;
        case PVX_FORMAT_INT32: bytes = passBytes(dstWidth, PVX_RESIZE_INT32, tasks); break;
        case PVX_FORMAT_UINT16: bytes = passBytes(dstWidth, PVX_RESIZE_UINT16, tasks); break;
        case PVX_FORMAT_UINT88: bytes = passBytes(dstWidth, PVX_RESIZE_UINT88, tasks); break;
        case PVX_FORMAT_RGB888: bytes = passBytes(dstWidth, PVX_RESIZE_RGB888, tasks); break;
        case PVX_FORMAT_YUV420_PLANAR: bytes = passBytes(dstWidth, PVX_RESIZE_UINT8, tasks); break;
        case PVX_FORMAT_YUV420_SEMIPLANAR:
        case PVX_FORMAT_YVU420_SEMIPLANAR: {
            const int64_t luma = passBytes(dstWidth, PVX_RESIZE_UINT8, tasks);
            const int64_t uv = passBytes(chroma, PVX_RESIZE_UINT88, tasks);
            bytes = luma > uv ? luma : uv;
            break;
        }
        default: return 0;
    }
    return heapBlock(bytes);
}

int64_t pvx_ImageProc2_getBufferSizeForResizeImage(const pvx_ImageProc2 *proc, int32_t dstWidth) {
    if (!proc) return 0;
    // Any format: the widest intermediate sample ("INT32").
    const int32_t workers = proc->pel ? pvx_Pel_getNumberOfWorkers(proc->pel) : 0;
    return pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(dstWidth, PVX_FORMAT_INT32, workers);
}

int64_t pvx_ImageProc2_getBufferSizeWithFormat(int32_t width, int32_t height, int32_t format) {
    // What the object takes to resize into a width x height image of the
    // format on the calling thread alone: the one-task scratch.
    if (height < 0) return 0;
    return pvx_ImageProc2_getBufferSizeWithFormatForResizeImage(width, format, 0);
}

// Shrinking by averaging sums each block on the fly and takes no memory.
int64_t pvx_ImageProc2_getBufferSizeForAverageShrink(const pvx_ImageProc2 * /*proc*/, int32_t /*dstWidth*/) {
    return 0;
}

int64_t pvx_ImageProc2_getBufferSizeWithFormatForAverageShrink(int32_t /*dstWidth*/, int32_t /*format*/) {
    return 0;
}
