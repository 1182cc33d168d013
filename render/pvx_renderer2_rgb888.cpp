// Draw kernels of the three-bytes-a-pixel family ("RGB888", "BGR888"): the
// three bytes of a pixel are weighted alike, so both channel orders share
// the kernels.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Rgb888_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutRgb888, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Rgb888_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutRgb888, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Rgb888_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutRgb888, kBilinear, kNoRot>(arg);
}
