// GStreamer video frames as the engine's image records.
#pragma once

#include <gst/video/video.h>

#include "parvex_distortion_correction.h"

namespace parvex_gst {

// The engine's name for a format the element accepts; null for others.
const char *engineFormatName(GstVideoFormat format);

// True when the engine can address every plane of the mapped frame in
// place: positive row pitches that cover a row and fit its int32 pitch.
bool frameAddressable(const GstVideoFrame *frame);

// The frame's planes and row pitches (call only on addressable frames).
parvex_ImageDataEx imageRecord(const GstVideoFrame *frame);

}  // namespace parvex_gst
