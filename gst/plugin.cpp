// The parvex GStreamer plugin: one element, parvexcorrect.
#include <gst/gst.h>

#include "gstparvexcorrect.h"

#ifndef PACKAGE
#define PACKAGE "parvex"
#endif

static gboolean plugin_init(GstPlugin *plugin) { return GST_ELEMENT_REGISTER(parvexcorrect, plugin); }

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, parvex, "Lens-distortion correction with the parvex library",
                  plugin_init, "1.0.0", "unknown", "parvex", "parvex")
