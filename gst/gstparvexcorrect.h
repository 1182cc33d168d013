// parvexcorrect: removes (or applies) radial lens distortion from NV12,
// NV21, I420, RGB and BGR frames with the parvex engine.
#pragma once

#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

G_BEGIN_DECLS

#define GST_TYPE_PARVEX_CORRECT (gst_parvex_correct_get_type())
G_DECLARE_FINAL_TYPE(GstParvexCorrect, gst_parvex_correct, GST, PARVEX_CORRECT, GstVideoFilter)

GST_ELEMENT_REGISTER_DECLARE(parvexcorrect);

G_END_DECLS
