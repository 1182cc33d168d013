// The engine context: everything an engine owns, laid at the start of the
// caller's work buffer. The rest of the buffer is the engine's heap.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "image/pvx_image.h"
#include "lens/pvx_zelkov4.h"
#include "render/pvx_renderer2.h"
#include "render/pvx_renderer2_params.h"
#include "resample/pvx_imageproc2.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_pel.h"

enum : uint32_t {
    PVX_ENGINE_INITIALIZED = 2,
    PVX_ENGINE_STARTED = 4,
    // Set by a finalize that reported an error: the sub-objects are gone
    // (workers ended, arrays freed), so every call but finalize refuses.
    PVX_ENGINE_DEFUNCT = 0x100,
};

enum : int32_t {
    PVX_LENS_NONE = 0,
    PVX_LENS_COEFFICIENTS = 1,
    PVX_LENS_TABLE = 2,
    PVX_LENS_MAX_POINTS = 256,
};

struct pvx_EngineFields {
    pvx_Env env;
    pvx_Pel pel;
    pvx_Zelkov4DistortionCorrection lens;
    pvx_Renderer2_Params render_params;
    pvx_ImageProc2 imgproc;
    pvx_Renderer2 renderer;
    pvx_Image src_image;
    pvx_Image dst_image;
    pvx_Image work_image;
    int32_t in_width, in_height;
    int32_t out_width, out_height;
    int32_t format;
    double in_center_x, in_center_y;
    double out_center_x, out_center_y;
    int32_t lens_mode;
    double coef[4];
    int32_t num_points;
    // The two point arrays lie directly one after the other, followed by
    // zoom: the point appended after 256 caller points lands on table_xs[0]
    // and on zoom (see the lifecycle code).
    double table_ys[PVX_LENS_MAX_POINTS];
    double table_xs[PVX_LENS_MAX_POINTS];
    double zoom;
    int32_t crop[4];
    double strength;
    uint32_t state;
};

// The context occupies exactly this many bytes on every target.
enum : int32_t { PVX_ENGINE_CONTEXT_SIZE = 859552 };

struct pvx_EngineContext : pvx_EngineFields {
    uint8_t padding[PVX_ENGINE_CONTEXT_SIZE - sizeof(pvx_EngineFields)];
};

static_assert(sizeof(pvx_EngineFields) <= PVX_ENGINE_CONTEXT_SIZE, "engine fields exceed the context size");
static_assert(sizeof(pvx_EngineContext) == PVX_ENGINE_CONTEXT_SIZE, "engine context must be 859552 bytes");
static_assert(offsetof(pvx_EngineFields, table_xs) == offsetof(pvx_EngineFields, table_ys) + 256 * sizeof(double),
              "point arrays must be adjacent");
static_assert(offsetof(pvx_EngineFields, zoom) == offsetof(pvx_EngineFields, table_xs) + 256 * sizeof(double),
              "zoom must follow the point arrays");
