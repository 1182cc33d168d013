// Which cells of a plan lie wholly inside the source: the proof of the draw
// walk (pvx_draw_walk.h) run once per cell for the layout and sampling mode
// of a format, so that frames skip the per-span proofs of those cells.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_internal.h"

using namespace pvx_draw;

namespace {

template <class L, int Mode>
bool insideOf(int32_t kind, const double *corners, const int32_t *rect, int32_t srcW, int32_t srcH) {
    switch (kind) {
    case PVX_RENDERER2_CELL_GENERAL:
        return cellInside<L, Mode, kGeneral>(corners, rect, srcW, srcH);
    case PVX_RENDERER2_CELL_PARALLEL:
        return cellInside<L, Mode, kParallel>(corners, rect, srcW, srcH);
    case PVX_RENDERER2_CELL_NOROT:
        return cellInside<L, Mode, kNoRot>(corners, rect, srcW, srcH);
    default:
        return false;
    }
}

}  // namespace

// The layouts and modes mirror the kernel choice; families whose slots do
// not run the kernel of their kind (the single 4:2:2 planar kernel) and the
// plain copy get no proof.
pvx_Renderer2_InsideFn pvx_Renderer2_insideTest(int32_t format, int32_t mode) {
    switch (format) {
    case PVX_FORMAT_RGB888:
    case PVX_FORMAT_BGR888:
        return insideOf<LayoutRgb888, kBilinear>;
    case PVX_FORMAT_UINT8:
        return insideOf<LayoutUint8, kBilinear>;
    case PVX_FORMAT_YUV422_YUYV:
    case PVX_FORMAT_YUV422_YVYU:
        return insideOf<LayoutYuyv, kBilinear>;
    case PVX_FORMAT_YUV422_VYUY:
    case PVX_FORMAT_YUV422_UYVY:
        return insideOf<LayoutUyvy, kBilinear>;
    case PVX_FORMAT_YUV420_PLANAR:
        if (mode == PVX_RENDERER2_MODE_BILINEAR) return insideOf<LayoutYuv420Planar, kBilinear>;
        if (mode == PVX_RENDERER2_MODE_HQ) return insideOf<LayoutYuv420Planar, kHQ>;
        return nullptr;
    case PVX_FORMAT_YUV420_SEMIPLANAR:
    case PVX_FORMAT_YVU420_SEMIPLANAR:
        if (mode == PVX_RENDERER2_MODE_BILINEAR) return insideOf<LayoutYuv420Semiplanar, kBilinear>;
        if (mode == PVX_RENDERER2_MODE_HQ) return insideOf<LayoutYuv420Semiplanar, kHQ>;
        if (mode == PVX_RENDERER2_MODE_NEAREST) return insideOf<LayoutYuv420Semiplanar, kNearest>;
        return nullptr;
    default:
        return nullptr;
    }
}
