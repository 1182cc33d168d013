#include "gstparvexcorrect.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "correct_controller.h"
#include "frame_planes.h"

GST_DEBUG_CATEGORY_STATIC(parvex_correct_debug);
#define GST_CAT_DEFAULT parvex_correct_debug

using parvex_gst::Controller;
using parvex_gst::Report;

namespace {

// What the element keeps beside its GObject part.
struct ElementState {
    std::mutex lock;  // guards everything below; frames hold it
    Controller controller;
    GstBuffer *stagingIn = nullptr, *stagingOut = nullptr;  // for frames the engine cannot address
};

enum Property {
    PROP_0,
    PROP_K1,
    PROP_K2,
    PROP_K3,
    PROP_K4,
    PROP_TABLE,
    PROP_CALIBRATION,
    PROP_CENTER_X,
    PROP_CENTER_Y,
    PROP_STRENGTH,
    PROP_ZOOM,
    PROP_CROP,
    PROP_FILL,
    PROP_MODE,
    PROP_OUTPUT_WIDTH,
    PROP_OUTPUT_HEIGHT,
    PROP_OUTPUT_SIZE,
};

enum OutputSize { OUTPUT_SIZE_INPUT, OUTPUT_SIZE_RECOMMENDED };
enum Mode { MODE_CORRECT, MODE_DISTORT };

// The engine takes inputs of 320x240 up to 6144x6144; outputs may have any size.
GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-raw, format = (string) { NV12, NV21, I420, RGB, BGR }, width = (int) [ 320, 6144 ], "
                    "height = (int) [ 240, 6144 ], framerate = (fraction) [ 0, max ]"));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("{ NV12, NV21, I420, RGB, BGR }")));

GType mode_get_type() {
    static GType type = 0;
    static const GEnumValue values[] = {
        {MODE_CORRECT, "Remove the lens distortion", "correct"},
        {MODE_DISTORT, "Apply the lens distortion (coefficient lenses only)", "distort"},
        {0, nullptr, nullptr}};
    if (g_once_init_enter(&type)) g_once_init_leave(&type, g_enum_register_static("GstParvexCorrectMode", values));
    return type;
}

GType output_size_get_type() {
    static GType type = 0;
    static const GEnumValue values[] = {
        {OUTPUT_SIZE_INPUT, "The input size, or output-width x output-height when both are set", "input"},
        {OUTPUT_SIZE_RECOMMENDED, "The library's size whose picture stays inside the input", "recommended"},
        {0, nullptr, nullptr}};
    if (g_once_init_enter(&type))
        g_once_init_leave(&type, g_enum_register_static("GstParvexCorrectOutputSize", values));
    return type;
}

// "left,top,right,bottom" (empty: the whole frame).
bool parseCrop(const char *text, bool *set, int32_t crop[4]) {
    if (!text || !*text) {
        *set = false;
        return true;
    }
    const char *p = text;
    for (int i = 0; i < 4; ++i) {
        char *end = nullptr;
        errno = 0;
        const long v = strtol(p, &end, 10);
        if (end == p || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
        crop[i] = static_cast<int32_t>(v);
        p = end;
        if (i < 3) {
            if (*p != ',') return false;
            ++p;
        }
    }
    if (*p) return false;
    *set = true;
    return true;
}

}  // namespace

struct _GstParvexCorrect {
    GstVideoFilter parent;
    ElementState *state;
};

G_DEFINE_TYPE(GstParvexCorrect, gst_parvex_correct, GST_TYPE_VIDEO_FILTER);
GST_ELEMENT_REGISTER_DEFINE(parvexcorrect, "parvexcorrect", GST_RANK_NONE, GST_TYPE_PARVEX_CORRECT);

namespace {

ElementState *stateOf(gpointer object) { return GST_PARVEX_CORRECT(object)->state; }

// Posts each refusal as an element error: the element itself carries on with
// the values that worked, so an application may set a better one.
void postReports(GstParvexCorrect *self, const std::vector<Report> &reports) {
    for (const Report &r : reports) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", r.message.c_str()), ("property %s", r.property.c_str()));
    }
}

void set_property(GObject *object, guint id, const GValue *value, GParamSpec *pspec) {
    GstParvexCorrect *self = GST_PARVEX_CORRECT(object);
    ElementState *state = stateOf(object);
    std::vector<Report> reports;
    bool reconfigure = false;
    {
        std::lock_guard<std::mutex> guard(state->lock);
        parvex_gst::Settings &s = state->controller.wanted();
        Controller &c = state->controller;
        switch (id) {
        case PROP_K1:
        case PROP_K2:
        case PROP_K3:
        case PROP_K4:
            s.lens.coef[id - PROP_K1] = g_value_get_double(value);
            c.rebuildLater();
            reconfigure = s.recommended;
            break;
        case PROP_TABLE:
            s.lens.table = g_value_get_string(value) ? g_value_get_string(value) : "";
            c.rebuildLater();
            reconfigure = s.recommended;
            break;
        case PROP_CALIBRATION:
            s.lens.calibration = g_value_get_string(value) ? g_value_get_string(value) : "";
            c.rebuildLater();
            reconfigure = s.recommended;
            break;
        case PROP_CENTER_X:
            s.centerX = g_value_get_double(value);
            c.rebuildLater();
            reconfigure = s.recommended;
            break;
        case PROP_CENTER_Y:
            s.centerY = g_value_get_double(value);
            c.rebuildLater();
            reconfigure = s.recommended;
            break;
        case PROP_STRENGTH: s.strength = g_value_get_double(value); break;
        case PROP_ZOOM: s.zoom = g_value_get_double(value); break;
        case PROP_CROP: {
            bool set = false;
            int32_t crop[4] = {0, 0, 0, 0};
            if (parseCrop(g_value_get_string(value), &set, crop)) {
                s.cropSet = set;
                for (int i = 0; i < 4; ++i) s.crop[i] = crop[i];
            } else {
                reports.push_back({"crop", std::string("crop: \"") + g_value_get_string(value) +
                                               "\" is not left,top,right,bottom; the crop stays as it was"});
            }
            break;
        }
        case PROP_FILL:
            s.fill = g_value_get_string(value) ? g_value_get_string(value) : "black";
            c.rebuildLater();
            break;
        case PROP_MODE:
            s.distort = g_value_get_enum(value) == MODE_DISTORT;
            c.rebuildLater();
            break;
        case PROP_OUTPUT_WIDTH:
        case PROP_OUTPUT_HEIGHT: {
            const int32_t v = g_value_get_int(value);
            const int32_t w = id == PROP_OUTPUT_WIDTH ? v : s.outWidth, h = id == PROP_OUTPUT_HEIGHT ? v : s.outHeight;
            if (w > 0 && h > 0 && !parvex_gst::outputMeshFits(w, h)) {
                reports.push_back({"output-width/output-height",
                                   "output-width/output-height: " + std::to_string(w) + "x" + std::to_string(h) +
                                       " is larger than the engine's mesh can lay out; the size stays as it was"});
            } else {
                (id == PROP_OUTPUT_WIDTH ? s.outWidth : s.outHeight) = v;
                reconfigure = true;
            }
            break;
        }
        case PROP_OUTPUT_SIZE:
            s.recommended = g_value_get_enum(value) == OUTPUT_SIZE_RECOMMENDED;
            reconfigure = true;
            break;
        default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
        }
    }
    postReports(self, reports);
    if (reconfigure) gst_base_transform_reconfigure_src(GST_BASE_TRANSFORM(self));
}

void get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec) {
    ElementState *state = stateOf(object);
    std::lock_guard<std::mutex> guard(state->lock);
    const parvex_gst::Settings &s = state->controller.wanted();
    switch (id) {
    case PROP_K1:
    case PROP_K2:
    case PROP_K3:
    case PROP_K4: g_value_set_double(value, s.lens.coef[id - PROP_K1]); break;
    case PROP_TABLE: g_value_set_string(value, s.lens.table.empty() ? nullptr : s.lens.table.c_str()); break;
    case PROP_CALIBRATION:
        g_value_set_string(value, s.lens.calibration.empty() ? nullptr : s.lens.calibration.c_str());
        break;
    case PROP_CENTER_X: g_value_set_double(value, s.centerX); break;
    case PROP_CENTER_Y: g_value_set_double(value, s.centerY); break;
    case PROP_STRENGTH: g_value_set_double(value, s.strength); break;
    case PROP_ZOOM: g_value_set_double(value, s.zoom); break;
    case PROP_CROP: {
        if (!s.cropSet) {
            g_value_set_string(value, "");
        } else {
            char text[64];
            snprintf(text, sizeof text, "%d,%d,%d,%d", s.crop[0], s.crop[1], s.crop[2], s.crop[3]);
            g_value_set_string(value, text);
        }
        break;
    }
    case PROP_FILL: g_value_set_string(value, s.fill.c_str()); break;
    case PROP_MODE: g_value_set_enum(value, s.distort ? MODE_DISTORT : MODE_CORRECT); break;
    case PROP_OUTPUT_WIDTH: g_value_set_int(value, s.outWidth); break;
    case PROP_OUTPUT_HEIGHT: g_value_set_int(value, s.outHeight); break;
    case PROP_OUTPUT_SIZE: g_value_set_enum(value, s.recommended ? OUTPUT_SIZE_RECOMMENDED : OUTPUT_SIZE_INPUT); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
}

bool fixedSize(const GstStructure *s, gint *width, gint *height) {
    return gst_structure_get_int(s, "width", width) && gst_structure_get_int(s, "height", height);
}

// Output caps keep the format; the size is the input's unless the
// properties ask for another one.
GstCaps *transform_caps(GstBaseTransform *trans, GstPadDirection direction, GstCaps *caps, GstCaps *filter) {
    GstParvexCorrect *self = GST_PARVEX_CORRECT(trans);
    ElementState *state = self->state;
    std::vector<Report> reports;
    GstCaps *result = gst_caps_new_empty();
    {
        std::lock_guard<std::mutex> guard(state->lock);
        parvex_gst::Settings &s = state->controller.wanted();
        const bool resizing = s.recommended || (s.outWidth > 0 && s.outHeight > 0);
        for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
            GstStructure *st = gst_structure_copy(gst_caps_get_structure(caps, i));
            if (resizing && direction == GST_PAD_SRC) {
                gst_structure_set(st, "width", GST_TYPE_INT_RANGE, 320, 6144, "height", GST_TYPE_INT_RANGE, 240, 6144,
                                  nullptr);
            } else if (resizing) {
                gint w = 0, h = 0;
                const gchar *formatText = gst_structure_get_string(st, "format");
                const char *format =
                    formatText ? parvex_gst::engineFormatName(gst_video_format_from_string(formatText)) : nullptr;
                if (fixedSize(st, &w, &h) && (format || !s.recommended)) {
                    int32_t ow = w, oh = h;
                    state->controller.outputSize(format ? format : "RGB888", w, h, &ow, &oh, &reports);
                    gst_structure_set(st, "width", G_TYPE_INT, ow, "height", G_TYPE_INT, oh, nullptr);
                } else {
                    gst_structure_set(st, "width", GST_TYPE_INT_RANGE, 1, G_MAXINT, "height", GST_TYPE_INT_RANGE, 1,
                                      G_MAXINT, nullptr);
                }
            }
            gst_caps_append_structure(result, st);
        }
    }
    postReports(self, reports);
    if (filter) {
        GstCaps *both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = both;
    }
    GST_DEBUG_OBJECT(self, "transformed %" GST_PTR_FORMAT " into %" GST_PTR_FORMAT, caps, result);
    return result;
}

gboolean set_info(GstVideoFilter *filter, GstCaps *, GstVideoInfo *in_info, GstCaps *, GstVideoInfo *out_info) {
    ElementState *state = stateOf(filter);
    parvex_gst::FrameShape shape;
    shape.format = parvex_gst::engineFormatName(GST_VIDEO_INFO_FORMAT(in_info));
    shape.width = GST_VIDEO_INFO_WIDTH(in_info);
    shape.height = GST_VIDEO_INFO_HEIGHT(in_info);
    shape.outWidth = GST_VIDEO_INFO_WIDTH(out_info);
    shape.outHeight = GST_VIDEO_INFO_HEIGHT(out_info);
    shape.fullRange = GST_VIDEO_INFO_COLORIMETRY(in_info).range == GST_VIDEO_COLOR_RANGE_0_255;
    if (!shape.format || GST_VIDEO_INFO_FORMAT(in_info) != GST_VIDEO_INFO_FORMAT(out_info)) return FALSE;
    {
        std::lock_guard<std::mutex> guard(state->lock);
        state->controller.setShape(shape);
        gst_clear_buffer(&state->stagingIn);
        gst_clear_buffer(&state->stagingOut);
    }
    gst_base_transform_set_in_place(GST_BASE_TRANSFORM(filter),
                                    shape.width == shape.outWidth && shape.height == shape.outHeight);
    return TRUE;
}

// A frame as the engine sees it: the mapped frame itself when the engine can
// address its planes, otherwise a packed copy in `*staging` (one buffer per
// caps, kept by the element), e.g. for rows stored bottom up.
class EngineFrame {
public:
    EngineFrame(GstVideoFrame *frame, GstBuffer **staging, const GstVideoInfo *info, bool copyIn) : frame_(frame) {
        if (parvex_gst::frameAddressable(frame)) return;
        if (!*staging) *staging = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(info), nullptr);
        staged_ = *staging && gst_video_frame_map(&copy_, info, *staging, GST_MAP_READWRITE);
        failed_ = !staged_;
        if (staged_ && copyIn) gst_video_frame_copy(&copy_, frame);
    }
    ~EngineFrame() {
        if (staged_) gst_video_frame_unmap(&copy_);
    }
    EngineFrame(const EngineFrame &) = delete;
    EngineFrame &operator=(const EngineFrame &) = delete;

    bool failed() const { return failed_; }
    parvex_ImageDataEx record() const { return parvex_gst::imageRecord(staged_ ? &copy_ : frame_); }
    // Puts a corrected copy where the frame's buffer wants it.
    void copyBack() {
        if (staged_) gst_video_frame_copy(frame_, &copy_);
    }

private:
    GstVideoFrame *frame_;
    GstVideoFrame copy_{};
    bool staged_ = false, failed_ = false;
};

GstFlowReturn correctFrames(GstParvexCorrect *self, GstVideoFrame *in, GstVideoFrame *out) {
    ElementState *state = self->state;
    GstVideoFilter *filter = GST_VIDEO_FILTER(self);
    std::vector<Report> reports;
    bool ok = false;
    {
        std::lock_guard<std::mutex> guard(state->lock);
        if (state->controller.prepare(&reports)) {
            EngineFrame source(in, &state->stagingIn, &filter->in_info, true);
            if (in == out) {
                ok = !source.failed() && state->controller.run(source.record(), source.record(), &reports);
                if (ok) source.copyBack();
            } else {
                EngineFrame destination(out, &state->stagingOut, &filter->out_info, false);
                ok = !source.failed() && !destination.failed() &&
                     state->controller.run(destination.record(), source.record(), &reports);
                if (ok) destination.copyBack();
            }
        }
    }
    postReports(self, reports);
    if (ok) return GST_FLOW_OK;
    GST_ELEMENT_ERROR(self, LIBRARY, FAILED, ("parvexcorrect cannot correct these frames"), (nullptr));
    return GST_FLOW_ERROR;
}

GstFlowReturn transform_frame(GstVideoFilter *filter, GstVideoFrame *in, GstVideoFrame *out) {
    return correctFrames(GST_PARVEX_CORRECT(filter), in, out);
}

GstFlowReturn transform_frame_ip(GstVideoFilter *filter, GstVideoFrame *frame) {
    return correctFrames(GST_PARVEX_CORRECT(filter), frame, frame);
}

gboolean stop(GstBaseTransform *trans) {
    ElementState *state = stateOf(trans);
    std::lock_guard<std::mutex> guard(state->lock);
    state->controller.setShape(parvex_gst::FrameShape());
    gst_clear_buffer(&state->stagingIn);
    gst_clear_buffer(&state->stagingOut);
    return TRUE;
}

void finalize(GObject *object) {
    GstParvexCorrect *self = GST_PARVEX_CORRECT(object);
    gst_clear_buffer(&self->state->stagingIn);
    gst_clear_buffer(&self->state->stagingOut);
    delete self->state;
    self->state = nullptr;
    G_OBJECT_CLASS(gst_parvex_correct_parent_class)->finalize(object);
}

// Every property may change while playing: zoom, crop and strength go to the
// running engine, the others build a new one at the next frame.
const GParamFlags kPlayingFlags =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);

void installDouble(GObjectClass *klass, guint id, const char *name, const char *blurb, double def) {
    g_object_class_install_property(
        klass, id, g_param_spec_double(name, name, blurb, -G_MAXDOUBLE, G_MAXDOUBLE, def, kPlayingFlags));
}

void installString(GObjectClass *klass, guint id, const char *name, const char *blurb, const char *def) {
    g_object_class_install_property(klass, id, g_param_spec_string(name, name, blurb, def, kPlayingFlags));
}

}  // namespace

static void gst_parvex_correct_class_init(GstParvexCorrectClass *klass) {
    GObjectClass *gobject = G_OBJECT_CLASS(klass);
    GstElementClass *element = GST_ELEMENT_CLASS(klass);
    GstBaseTransformClass *trans = GST_BASE_TRANSFORM_CLASS(klass);
    GstVideoFilterClass *filter = GST_VIDEO_FILTER_CLASS(klass);
    GST_DEBUG_CATEGORY_INIT(parvex_correct_debug, "parvexcorrect", 0, "parvex lens correction");

    gobject->set_property = set_property;
    gobject->get_property = get_property;
    gobject->finalize = finalize;

    installDouble(gobject, PROP_K1, "k1",
                  "Lens coefficient k1 of D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8 (r in half diagonals)", 0);
    installDouble(gobject, PROP_K2, "k2", "Lens coefficient k2", 0);
    installDouble(gobject, PROP_K3, "k3", "Lens coefficient k3", 0);
    installDouble(gobject, PROP_K4, "k4", "Lens coefficient k4", 0);
    installString(gobject, PROP_TABLE, "table",
                  "File of 2..256 lines \"OUT SRC\" (radii in units of the output centre-to-corner distance); "
                  "replaces k1..k4",
                  nullptr);
    installString(gobject, PROP_CALIBRATION, "calibration",
                  "Calibration file (OpenCV YAML/XML, Android JSON, Lensfun XML); replaces table and k1..k4", nullptr);
    installDouble(gobject, PROP_CENTER_X, "center-x",
                  "Optical centre x in input pixels (negative: the calibration's, else the picture centre)", -1);
    installDouble(gobject, PROP_CENTER_Y, "center-y", "Optical centre y in input pixels (negative: as center-x)", -1);
    installDouble(gobject, PROP_STRENGTH, "strength", "Correction strength 0 (none) .. 1 (full); changes while playing",
                  1);
    installDouble(gobject, PROP_ZOOM, "zoom",
                  "Zoom ratio, at least 1, only with the input size as output; changes while playing", 1);
    installString(gobject, PROP_CROP, "crop",
                  "Crop rectangle left,top,right,bottom in input pixels (right, bottom exclusive; empty: the whole "
                  "frame); changes while playing. With a table lens the crop replaces the table by the plain lens",
                  "");
    installString(gobject, PROP_FILL, "fill",
                  "Colour of the pixels the correction leaves undrawn: black, none or 0xRRGGBB", "black");
    g_object_class_install_property(gobject, PROP_MODE,
                                    g_param_spec_enum("mode", "mode", "Correct the lens distortion or apply it",
                                                      mode_get_type(), MODE_CORRECT, kPlayingFlags));
    g_object_class_install_property(
        gobject, PROP_OUTPUT_WIDTH,
        g_param_spec_int("output-width", "output-width", "Output width (0: the input's; needs output-height)", 0,
                         G_MAXINT, 0, kPlayingFlags));
    g_object_class_install_property(
        gobject, PROP_OUTPUT_HEIGHT,
        g_param_spec_int("output-height", "output-height", "Output height (0: the input's; needs output-width)", 0,
                         G_MAXINT, 0, kPlayingFlags));
    g_object_class_install_property(
        gobject, PROP_OUTPUT_SIZE,
        g_param_spec_enum("output-size", "output-size",
                          "Output size: the input's (or output-width x output-height) or the recommended one",
                          output_size_get_type(), OUTPUT_SIZE_INPUT, kPlayingFlags));

    gst_element_class_set_static_metadata(element, "Lens distortion correction", "Filter/Effect/Video",
                                          "Removes or applies radial lens distortion (NV12, NV21, I420, RGB, BGR)",
                                          "parvex");
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &srcTemplate);
    gst_type_mark_as_plugin_api(mode_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(output_size_get_type(), GstPluginAPIFlags(0));

    trans->transform_caps = transform_caps;
    trans->stop = stop;
    filter->set_info = set_info;
    filter->transform_frame = transform_frame;
    filter->transform_frame_ip = transform_frame_ip;
}

static void gst_parvex_correct_init(GstParvexCorrect *self) { self->state = new ElementState(); }
