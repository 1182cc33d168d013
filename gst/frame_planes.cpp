#include "frame_planes.h"

#include <stdint.h>

namespace parvex_gst {

const char *engineFormatName(GstVideoFormat format) {
    switch (format) {
    case GST_VIDEO_FORMAT_NV12: return "YUV420_SEMIPLANAR";
    case GST_VIDEO_FORMAT_NV21: return "YVU420_SEMIPLANAR";
    case GST_VIDEO_FORMAT_I420: return "YUV420_PLANAR";
    case GST_VIDEO_FORMAT_RGB: return "RGB888";
    case GST_VIDEO_FORMAT_BGR: return "BGR888";
    default: return nullptr;
    }
}

namespace {

// Bytes of one row of plane p: the plane's width in samples times the
// bytes of a sample (3 for RGB, 2 for interleaved chroma, else 1).
int64_t rowBytes(const GstVideoFrame *frame, guint plane) {
    const GstVideoFormatInfo *info = frame->info.finfo;
    const int64_t width = GST_VIDEO_FRAME_WIDTH(frame);
    if (GST_VIDEO_FORMAT_INFO_IS_RGB(info)) return width * 3;
    if (plane == 0) return width;
    const int64_t chroma = (width + 1) / 2;
    return GST_VIDEO_FRAME_N_PLANES(frame) == 2 ? chroma * 2 : chroma;
}

}  // namespace

bool frameAddressable(const GstVideoFrame *frame) {
    for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(frame); ++p) {
        const int64_t stride = GST_VIDEO_FRAME_PLANE_STRIDE(frame, p);
        if (stride < rowBytes(frame, p) || stride > INT32_MAX || !GST_VIDEO_FRAME_PLANE_DATA(frame, p)) return false;
    }
    return true;
}

parvex_ImageDataEx imageRecord(const GstVideoFrame *frame) {
    parvex_ImageDataEx record = {};
    record.width = GST_VIDEO_FRAME_WIDTH(frame);
    record.height = GST_VIDEO_FRAME_HEIGHT(frame);
    for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(frame) && p < 3; ++p) {
        record.dat[p] = GST_VIDEO_FRAME_PLANE_DATA(frame, p);
        record.pitch[p] = GST_VIDEO_FRAME_PLANE_STRIDE(frame, p);
    }
    return record;
}

}  // namespace parvex_gst
